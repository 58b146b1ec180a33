# SPDX-License-Identifier: Apache-2.0
"""A board on which every value is another one, so that a value taken from the wrong place shows."""
import tomllib

BOTH_RADIOS = """
[board]
noise_db = 0
[sys_info]
lte = "service"
nr5g_pci = 777
[lte]
earfcn = 1301
pci = 214
tac = 6699
cgi = 10607298
plmn = [0x72, 0xF2, 0x10]
rsrp = -95
rsrq = -11
snr = 130
tx_power = -120
rrc_state = 3
cqi = [[12, 11], [9]]
dl_mod = [2, 3]
ul_mod = [1]
rf_bandwidth = [3, 4]
ca_dl_bandwidth = 4
cell_lock = [{ pci = 214, freq = 1301 }, { pci = 65535, freq = 0 }]
neighbour = [
  { earfcn = 1302, pci = 301, cgi = 10607299, rsrp = -101, rsrq = -14, plmn = [{ mcc = 272, mnc = 1, pcs_digit = 0 }] },
  { earfcn = 1303, pci = 302, cgi = 1060, plmn = [{ mcc = 310, mnc = 410, pcs_digit = 1 }, { mcc = 234, mnc = 2 }] },
]
[nr5g]
arfcn = 636001
pci = 500
cgi = 68719476736
tac = [0x00, 0x1A, 0xFF]
plmn = [0x73, 0xF3, 0x20]
rsrp = -98
rsrq = -13
snr = -15
tx_power = 150
rrc_state = 2
scs = 1
cqi = [[14, 13]]
dl_mod = [4]
ul_mod = [2, 0]
rf_bandwidth = [10]
cell_lock = { type = 1, pci = 501, arfcn = 636002, scs = 2 }
neighbour = [{ arfcn = 636003, pci = 502, rsrp = -104, cgi = [68719476737, 5], plmn = [{ mcc = 272, mnc = 3 }] }]
[endc]
available = 1
restrict_dcnr = 0
[[wwan.profile]]
index = 7
subscription = 1
technology = 1
ip_family = 10
id_3gpp = 3
id_3gpp2 = 4
apn = "internet"
[[wwan.profile]]
index = 9
subscription = 0
technology = 2
ip_family = 6
id_3gpp = 5
id_3gpp2 = 6
apn = "ims"
[[wwan.stats]]
handle = 7
bytes_rx = 4294967299
bytes_tx = 2
pkts_rx = 3
pkts_tx = 4
dropped_rx = 5
dropped_tx = 6
rx_rate = 0
tx_rate = 0
[[wwan.stats]]
handle = 9
ip_family = 6
bytes_rx = 8
rx_rate = 0
tx_rate = 0
[wwan.qos]
bearer = 6
tx_5qi = 2
rx_5qi = 3
[mtpe]
bandwidth_kbps = 12345
mtu = 1400
peak_rate_kbps = 93001
configured_ms = 20
duration_ms = 20
[location]
latitude = 51.25
longitude = -8.5
altitude = 36.5
horizontal_accuracy = 5.5
timestamp = 1767225600001
extra_time = [11, 12]
fix_ms = 20
batch = 3
[scan]
answer_ms = 20
"""
LTE_ALONE = BOTH_RADIOS.replace("nr5g_pci = 777", "nr5g_pci = -1")
NR5G_ALONE = BOTH_RADIOS.replace('lte = "service"\nnr5g_pci = 777', 'lte = "absent"\nnr5g = "service"\nnr5g_pci = -1')
NO_SERVICE = '[board]\nnoise_db = 0\n[sys_info]\nlte = "no_service"\n'

VALUES = tomllib.loads(BOTH_RADIOS)
LTE, NR5G, WWAN, MTPE, LOCATION = (VALUES[name] for name in ("lte", "nr5g", "wwan", "mtpe", "location"))
