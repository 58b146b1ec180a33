# SPDX-License-Identifier: Apache-2.0
"""Every metric of the catalogue, read through Python, is what the scenario says."""
import pytest
from boards import BOTH_RADIOS, LOCATION, LTE, LTE_ALONE, MTPE, NR5G, NR5G_ALONE, WWAN

lyn = pytest.importorskip("lyn", reason="the package is built in the release preset only")

NET_PARAMS = lyn.MtpeNetParams(lyn.IpFamily.V4, b"\xc0\x00\x02\x01")
TEST = lyn.MtpeReq(test_type=lyn.MtpeType.DOWNLINK, duration=1, ip_family=lyn.IpFamily.V4, protocol=lyn.Protocol.UDP,
                   server_url="speed.example")
ARGUMENTS = {
    lyn.Metric.IPV4_STATS: 7,
    lyn.Metric.IPV6_STATS: 9,
    lyn.Metric.MTPE_SERVER_CONFIG: NET_PARAMS,
    lyn.Metric.MTPE_LTE_INFO: TEST,
    lyn.Metric.MTPE_NR5G_INFO: TEST,
    lyn.Metric.LOC_SINGLE_SHOT: lyn.LocSingleShotReq(timeout_ms=60000, horizontal_accuracy=10.0),
    lyn.Metric.LOC_ROUTINE_BATCHING: lyn.LocBatchingReq(min_interval_ms=10),
}


def cqi(radio):
    return [lyn.CqiEntry(carrier) for carrier in radio["cqi"]]


def one_more(numbers):
    """The module's numbers of what the modem counts from 0."""
    return [number + 1 for number in numbers]


def profile(row):
    return lyn.WwanProfile(row["index"], lyn.Subscription(row["subscription"] + 1), lyn.Technology(row["technology"]),
                           lyn.IpFamily(row["ip_family"]), row["id_3gpp"], row["id_3gpp2"], row["apn"])


def stats(row):
    names = ("bytes_rx", "bytes_tx", "pkts_rx", "pkts_tx", "dropped_rx", "dropped_tx")
    return lyn.WwanStats(*(row.get(name, 0) for name in names))


# On a board with both radios; a scan is one event later.
ANSWERS = {
    lyn.Metric.REG_STATUS: lyn.RegStatus.LTE_NR5G,
    lyn.Metric.LTE_SERV_EARFCN: LTE["earfcn"],
    lyn.Metric.NR5G_SERV_EARFCN: NR5G["arfcn"],
    lyn.Metric.LTE_SERV_PCI: LTE["pci"],
    lyn.Metric.NR5G_SERV_PCI: 777,
    lyn.Metric.LTE_SERV_CGI: LTE["cgi"],
    lyn.Metric.NR5G_SERV_CGI: NR5G["cgi"],
    lyn.Metric.LTE_SERV_PLMN: bytes(LTE["plmn"]),
    lyn.Metric.NR5G_SERV_PLMN: bytes(NR5G["plmn"]),
    lyn.Metric.LTE_SERV_RSRP: LTE["rsrp"],
    lyn.Metric.NR5G_SERV_RSRP: NR5G["rsrp"],
    lyn.Metric.LTE_SERV_RSRQ: LTE["rsrq"],
    lyn.Metric.NR5G_SERV_RSRQ: NR5G["rsrq"],
    lyn.Metric.LTE_SERV_SINR: LTE["snr"],
    lyn.Metric.NR5G_SERV_SINR: NR5G["snr"],
    lyn.Metric.LTE_SERV_CQI: lyn.LteCqi(1, cqi(LTE)),
    lyn.Metric.NR5G_SERV_CQI: lyn.Nr5gCqi(1, cqi(NR5G)),
    lyn.Metric.LTE_SERV_TAC: LTE["tac"],
    lyn.Metric.NR5G_SERV_TAC: bytes(NR5G["tac"]),
    lyn.Metric.LTE_SERV_TX_POWER: LTE["tx_power"],
    lyn.Metric.NR5G_SERV_TX_POWER: NR5G["tx_power"],
    lyn.Metric.LTE_CELL_LOCK_LIST: lyn.LteCellLock([lyn.LteLockCell(**cell) for cell in LTE["cell_lock"]]),
    lyn.Metric.NR5G_CELL_LOCK_LIST: lyn.Nr5gCellLock(1, 501, lyn.Scs.SCS_60_KHZ, 636002, band_mask=[0] * 8),
    lyn.Metric.LTE_MCS: lyn.Mcs(one_more(LTE["dl_mod"]), one_more(LTE["ul_mod"])),
    lyn.Metric.NR5G_MCS: lyn.Mcs(one_more(NR5G["dl_mod"]), one_more(NR5G["ul_mod"])),
    lyn.Metric.LTE_CA_STATS: lyn.CaBandwidth.UNKNOWN,
    lyn.Metric.LTE_ENDC_MODE: lyn.EndcMode(),
    lyn.Metric.LTE_RRC_STATE: lyn.RrcState(LTE["rrc_state"] + 1),
    lyn.Metric.NR5G_RRC_STATE: lyn.RrcState(NR5G["rrc_state"] + 7),
    lyn.Metric.NR5G_SCS: lyn.Scs(NR5G["scs"] + 1),
    lyn.Metric.LTE_RF_BANDWIDTH: [lyn.RfBandwidth.NR5G_25_MHZ],
    lyn.Metric.NR5G_RF_BANDWIDTH: [lyn.RfBandwidth.NR5G_25_MHZ],
    lyn.Metric.WWAN_PROFILE_INDEX: lyn.WwanProfileList([profile(row) for row in WWAN["profile"]]),
    lyn.Metric.IPV4_STATS: stats(WWAN["stats"][0]),
    lyn.Metric.IPV6_STATS: stats(WWAN["stats"][1]),
    lyn.Metric.MTPE_SERVER_CONFIG: lyn.MtpeServerConfig(MTPE["bandwidth_kbps"], MTPE["mtu"]),
}

LOCATED = lyn.Location(flags=lyn.LocFlag(0x1FF), timestamp=LOCATION["timestamp"], latitude=LOCATION["latitude"],
                       longitude=LOCATION["longitude"], altitude=LOCATION["altitude"], horizontal_accuracy=5.5,
                       vertical_accuracy=8.0, speed_accuracy=0.5, bearing_accuracy=10.0, tech_mask=1,
                       extra_time=LOCATION["extra_time"])


def plmns(row):
    return [lyn.Plmn(each["mcc"], each["mnc"], each.get("pcs_digit", 0)) for each in row["plmn"]]


def lte_neighbours(plmn, cgi):
    """The cells of an LTE scan's answer, with what was asked for."""
    return [lyn.LteNbr(1, at, row["earfcn"], row["pci"], int(cgi), row["cgi"] if cgi else 0, int(plmn),
                       plmns(row) if plmn else []) for at, row in enumerate(LTE["neighbour"], 1)]


def strongest(rsrp, rsrq):
    first = LTE["neighbour"][0]
    return lyn.LteNbrInfoServing(1, first["earfcn"], first["pci"], int(rsrp), first["rsrp"] if rsrp else 0, int(rsrq),
                                 first["rsrq"] if rsrq else 0)


def lte_scan(plmn=False, cgi=False):
    return lyn.Event(lyn.Async.LTE_NBR_INFO, lyn.LteNbrInfo(lte_neighbours(plmn, cgi)))


def lte_signal(rsrp=False, rsrq=False):
    return lyn.Event(lyn.Async.LTE_NBR_INFO, lyn.LteNbrInfo(serving=strongest(rsrp, rsrq)))


def nr5g_scan(rsrp=False, plmn=False, cgi=False):
    row, = NR5G["neighbour"]
    cell = lyn.Nr5gNbr(1, 1, row["arfcn"], row["pci"], int(rsrp), row["rsrp"] if rsrp else 0, int(plmn),
                       plmns(row) if plmn else [], int(cgi), row["cgi"] if cgi else [])
    return lyn.Event(lyn.Async.NR5G_NBR_INFO, lyn.Nr5gNbrInfo([cell]))


def throughput(status, peak_rate=0):
    return lyn.Event(lyn.Indication.MTPE_STATUS, lyn.MtpeStatus(lyn.MtpeType.DOWNLINK, test_status=status,
                                                                peak_rate=peak_rate))


RUN = [throughput(lyn.MtpeTestStatus.CONFIGURED), throughput(lyn.MtpeTestStatus.COMPLETED, MTPE["peak_rate_kbps"])]
QOS = [lyn.Event(lyn.Indication.QOS_FLOW, lyn.QosFlow(6, 2, 3))]

# The events that answer the metrics which give nothing at once.
ANSWERED_LATER = {
    lyn.Metric.LTE_NBR_EARFCN: [lte_scan()],
    lyn.Metric.NR5G_NBR_EARFCN: [nr5g_scan()],
    lyn.Metric.LTE_NBR_PCI: [lte_scan()],
    lyn.Metric.NR5G_NBR_PCI: [nr5g_scan()],
    lyn.Metric.LTE_NBR_CGI: [lte_scan(cgi=True)],
    lyn.Metric.NR5G_NBR_CGI: [nr5g_scan(cgi=True)],
    lyn.Metric.LTE_NBR_PLMN: [lte_scan(plmn=True)],
    lyn.Metric.NR5G_NBR_PLMN: [nr5g_scan(plmn=True)],
    lyn.Metric.LTE_NBR_RSRP: [lte_signal(rsrp=True)],
    lyn.Metric.NR5G_NBR_RSRP: [nr5g_scan(rsrp=True)],
    lyn.Metric.LTE_NBR_RSRQ: [lte_signal(rsrq=True)],
    lyn.Metric.MTPE_LTE_INFO: RUN,
    lyn.Metric.MTPE_NR5G_INFO: RUN,
    lyn.Metric.LOC_SINGLE_SHOT: [lyn.Event(lyn.Async.LOC_SINGLE_SHOT, lyn.LocSingleShot(location=LOCATED))],
    lyn.Metric.LOC_ROUTINE_BATCHING: [lyn.Event(lyn.Async.LOC_BATCH, lyn.LocBatch(
        lyn.LocBatchStatus.LOCATIONS, locations=[LOCATED, LOCATED, LOCATED]))],
    lyn.Metric.IPV4_QOS_TFT: QOS,
    lyn.Metric.IPV6_QOS_TFT: QOS,
}


def typed(value):
    """A value with the types of all that it consists of: equal numbers of two kinds differ."""
    return repr(value)


def test_every_metric_is_answered_at_once_or_later():
    assert ANSWERS.keys() | ANSWERED_LATER.keys() == set(lyn.Metric) - {lyn.Metric.INVALID}
    assert not ANSWERS.keys() & ANSWERED_LATER.keys()


@pytest.mark.board(BOTH_RADIOS)
def test_every_metric_is_what_the_scenario_says():
    with lyn.open() as modem:
        answers = {metric: modem.get(metric, ARGUMENTS.get(metric)) for metric in ANSWERS}
    assert typed(answers) == typed(ANSWERS)


@pytest.mark.board(BOTH_RADIOS)
def test_list_gives_what_single_calls_give():
    wanted = [(metric, ARGUMENTS[metric]) if metric in ARGUMENTS else metric for metric in ANSWERS]
    with lyn.open() as modem:
        assert typed(modem.get_list(wanted)) == typed(list(ANSWERS.values()))


@pytest.mark.parametrize("metric", ANSWERED_LATER, ids=lambda metric: metric.name)
@pytest.mark.board(BOTH_RADIOS)
def test_metric_that_is_answered_later_is_answered_by_its_event(metric, get_when_ready):
    expected = ANSWERED_LATER[metric]
    with lyn.open() as modem:
        assert get_when_ready(modem, metric, ARGUMENTS.get(metric)) is None
        events = modem.events(timeout=20)
        found = [next(events) for _ in expected]
    for event in found:
        for each in getattr(event.value, "locations", []):
            each.timestamp = LOCATED.timestamp  # each is an interval later
    assert typed(found) == typed(expected)


@pytest.mark.board(BOTH_RADIOS)
def test_list_of_neighbour_metrics_is_one_scan_of_each_radio():
    metrics = [metric for metric in lyn.Metric if "_NBR_" in metric.name]
    with lyn.open() as modem:
        assert modem.get_list(metrics) == [None] * len(metrics)
        events = modem.events(timeout=20)
        lte, nr5g = next(events), next(events)
    assert lte == lyn.Event(lyn.Async.LTE_NBR_INFO, lyn.LteNbrInfo(lte_neighbours(True, True), strongest(True, True)))
    assert nr5g == nr5g_scan(True, True, True)


@pytest.mark.board(LTE_ALONE)
def test_carrier_aggregation_and_endc_mode_are_read_with_lte_alone():
    with lyn.open() as modem:
        assert modem.get(lyn.Metric.REG_STATUS) is lyn.RegStatus.LTE
        assert modem.get(lyn.Metric.LTE_CA_STATS) is lyn.CaBandwidth.BANDWIDTH_15_MHZ
        assert modem.get(lyn.Metric.LTE_ENDC_MODE) == lyn.EndcMode(1, 1, 1, 0)
        assert modem.get(lyn.Metric.LTE_RF_BANDWIDTH) == [lyn.RfBandwidth.LTE_10_MHZ, lyn.RfBandwidth.LTE_15_MHZ]


@pytest.mark.board(NR5G_ALONE.replace("cell_lock = { type = 1, pci = 501, arfcn = 636002, scs = 2 }",
                                      "cell_lock = { type = 2, list = [{ arfcn = 636004, scs = 0 }] }"))
def test_nr5g_lock_of_frequencies_is_a_list():
    with lyn.open() as modem:
        lock = modem.get(lyn.Metric.NR5G_CELL_LOCK_LIST)
    assert (lock.lock_type, lock.arfcn_list) == (2, [lyn.Nr5gLockArfcn(636004, lyn.Scs.SCS_15_KHZ)])


@pytest.mark.board("[board]\nnoise_db = 0\n[lte]\ncqi = [[1, 2, 3, 4], [5]]\n[[wwan.profile]]\nindex = 4\n")
def test_full_lists_and_a_lone_profile_come_whole():
    with lyn.open() as modem:
        assert modem.get(lyn.Metric.LTE_SERV_CQI).entries == [lyn.CqiEntry([1, 2, 3, 4]), lyn.CqiEntry([5])]
        assert modem.get(lyn.Metric.WWAN_PROFILE_INDEX).profiles == [lyn.WwanProfile(profile_index=4)]


@pytest.mark.board("[lte]\ncgi = 4294967295\n[nr5g]\ncgi = 3000000000\n")
def test_numbers_with_their_highest_bit_set_stay_positive():
    with lyn.open() as modem:
        assert modem.get(lyn.Metric.LTE_SERV_CGI) == 4294967295
        assert modem.get(lyn.Metric.NR5G_SERV_CGI) == 3000000000


@pytest.mark.board("[wwan]\nprofile = []\n")
def test_no_profile_is_an_empty_list():
    with lyn.open() as modem:
        assert modem.get(lyn.Metric.WWAN_PROFILE_INDEX).profiles == []
