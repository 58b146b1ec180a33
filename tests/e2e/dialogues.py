# SPDX-License-Identifier: Apache-2.0
"""What the demo client's prompt sequences print, and what becomes of the answers: a second account of them.

A dialogue is run with a keyboard that knows one plausible answer to each question. A keyboard can be told to answer one
question differently, to end an answer with the end-of-file key of a terminal (CTRL_D), or to fall silent (end of input)
at one. What the user types is made up as the questions come, so that a dialogue always gets just the answers it asks for.

    keys = Keyboard({0: "65537"})
    outcome = option_9(3, keys, network_status=5)
    outcome.console, outcome.status, outcome.requests, keys.typed
"""
import ctypes
import dataclasses
import re
import socket

LONG_MAX, LONG_MIN = (1 << 63) - 1, -(1 << 63)
CTRL_D = "\x04"
FAILED, INVALID_PARAM, NOT_SUPPORTED, BUSY, SERVICE_UNAVAILABLE = -1, -2, -7, -5, -16


class Keyboard:
    """Types the default answer, or another one at the questions named in `changes`; silent from question `end` on."""

    def __init__(self, changes=None, end=None):
        self.changes = changes or {}
        self.end = end
        self.heard = []
        self.typed = ""
        self.rest = ""
        self.silent = False

    def read(self, question, default, size):
        """One read into a buffer of `size` characters, as fgets does it; None at the end of input."""
        if not self.rest:
            self.silent = self.silent or len(self.heard) == self.end
            if self.silent:
                return None
            answer = self.changes.get(len(self.heard), default)
            self.typed += answer if answer.endswith(CTRL_D) else answer + "\n"
            self.rest = answer.rstrip(CTRL_D) + "\n"
            self.heard.append(question)
        cut = min(self.rest.index("\n") + 1, size - 1)
        piece, self.rest = self.rest[:cut], self.rest[cut:]
        return piece


class Abandoned(Exception):
    """The sequence failed: no call is made."""


def number(text):
    """The digits a text begins with, held to 64 bits; 0 without."""
    match = re.match(r"[ \t\n\v\f\r]*([+-]?[0-9]+)", text or "")
    return max(LONG_MIN, min(LONG_MAX, int(match.group(1)))) if match else 0


def bits(value, width):
    return value & ((1 << width) - 1)


def i32(value):
    return bits(value + (1 << 31), 32) - (1 << 31)


class Dialogue:
    def __init__(self, keys):
        self.keys = keys
        self.console = ""

    def say(self, text):
        self.console += text + "\n"

    def read(self, default, size=100):
        return self.keys.read(self.console.rstrip("\n").rsplit("\n", 1)[-1], str(default), size)

    def ask(self, question, default, size=100):
        self.say(question)
        return number(self.read(default, size))

    def ask_behind(self, question, default):
        """The answer is typed on the question's own line."""
        self.console += question
        return number(self.read(default))

    def count(self, question, default, capacity):
        count = self.ask(question, default)
        if not 0 <= count <= capacity:
            raise Abandoned
        return count

    def until(self, question, default, valid, again=None):
        self.console += question
        while True:
            text = self.read(default)
            if text is None:
                raise Abandoned
            if valid(i32(number(text))):
                return i32(number(text))
            self.console += again or question

    def address(self, family, default):
        """The address in its usual form; that of all zeroes at the end of input."""
        while True:
            self.console += f"\n Please Enter {'V6' if family == socket.AF_INET6 else 'V4'} Address Value =>"
            text = self.read(default, 50)
            if text is None:
                return "::" if family == socket.AF_INET6 else "0.0.0.0"
            try:
                return socket.inet_ntop(family, socket.inet_pton(family, text.split("\n")[0]))
            except (OSError, ValueError):
                self.say("\n Address not in presentation format")


# Controls: each asks, and gives the request that its record becomes, or the status it is refused with -----------------

SCS_MENU = "\n1- 15 KHz \n2- 30 KHz \n3- 60 KHz \n4- 120 KHz \n5- 240 KHz"
SCS_CODES = [0, 0, 1, 2, 3, 4]


def lte_lock(talk, network_status):
    count = talk.count("Please Enter the Cell identity length ", 2, 60)
    cells = []
    for i in range(1, count + 1):
        pci = talk.ask(f"Please Enter the pci value for list-{i}", 213 + i)
        cells.append({"pci": bits(pci, 16),
                      "freq": bits(talk.ask(f"Please Enter the freq value for list-{i}", 1299 + i), 16)})
    enforce = bits(talk.ask("Please Enter enforce value (Eg: 0 or 1)", 1), 8)
    if network_status not in (5, 6) or not cells:
        return FAILED, []
    fields = {"lte_cell_list_len": len(cells), "lte_cell_list": cells}
    if enforce:
        fields |= {"enforce_valid": 1, "enforce": enforce}
    return 0 if network_status == 5 else FAILED, [(216, fields)]  # with both radios the NR 5G side is found empty


def band_masks(talk):
    """The eight masks as the 64 octets on the wire."""
    talk.say("please Select the  corresponding operating band from the list")
    choice = i32(talk.ask("\n1- bits_1_64 \n2- bits_65_128 \n3- bits_129_192 \n4- bits_193_256 \n5- bits_257_320 "
                          "\n6- bits_321_384 \n7- bits_385_448 \n8- bits_449_512", 5))
    octets = bytearray(64)
    if 1 <= choice <= 8:
        blank = " " if choice == 7 else ""
        mask = talk.ask("Please enter the operating band value" + blank, 72340172838076673)
        octets[8 * choice - 8:8 * choice] = bits(mask, 64).to_bytes(8, "little")
    return [list(octets[at:at + 16]) for at in range(0, 64, 16)]


def nr5g_lock(talk, network_status):
    lock_type = bits(talk.ask("Please Enter the Cell Lock type 1- pci,2- arfcn, 3- unlock", talk.lock_type), 32)
    fields, spacings, valid = {"type": lock_type - 1}, [], lock_type == 3
    if lock_type == 1:
        talk.say(" Please Enter the Cell identity types")
        pci = bits(talk.ask(" Enter the PCI cell number", 500), 16)
        talk.say(" Enter the Sub carrier  value ")
        spacings = [bits(talk.ask(SCS_MENU, 2), 32)]
        arfcn = bits(talk.ask("Please Enter the arfcn value", 636000), 32)
        cell = {"pci": pci, "scs": 0, "arfcn": arfcn, "blocks": band_masks(talk)}
        fields |= {"cell_identity_valid": 1, "cell_identity": cell}
        valid = pci != 0
    elif lock_type == 2:
        count = talk.count("Please Enter the arfcn list length (Eg: 1,2)", 2, 32)
        entries = []
        for i in range(1, count + 1):
            arfcn = talk.ask(f"Please Enter the arfcn value for list-{i}", 636000 + i)
            talk.say(f"Please Enter the Sub carrier value for list-{i}")
            spacings.append(bits(talk.ask(SCS_MENU, 5), 32))
            entries.append({"arfcn": bits(arfcn, 32), "scs": 0})
        fields |= {"arfcn_list_valid": 1, "arfcn_list_len": count, "arfcn_list": entries}
        valid = count != 0
    if any(scs > 5 for scs in spacings):
        return INVALID_PARAM, []
    if network_status != 7 or not valid:
        return FAILED, []
    for entry, scs in zip([fields["cell_identity"]] if lock_type == 1 else fields.get("arfcn_list", []), spacings):
        entry["scs"] = SCS_CODES[scs]
    return 0, [(270, fields)]


def nr5g_deprioritize(talk, network_status):
    talk.say("Enabling deprioritize_nr5G will switch between LTE and NR5G")
    answer = i32(talk.ask("Do you want to enable deprioritize_nr5G (1- yes / 0- No)", 7, 50))
    if network_status not in (6, 7):
        return FAILED, []
    return 0, [(295, {"deprioritize": int(answer != 0)})]


def frequencies(talk, count, band_question, arfcn_ask, scs_question):
    entries = []
    for i in range(count):
        band = bits(talk.ask(band_question, 257 + i), 32)
        arfcn = bits(arfcn_ask(2079167 + i), 32)
        entries.append({"arfcn": arfcn, "band": band, "scs": bits(talk.ask(scs_question, 4), 32)})
    return entries


def with_frequencies(fields, entries):
    """The request with its list, its spacings translated, or the refusal."""
    if any(entry["scs"] > 5 for entry in entries):
        return None
    if entries:
        fields |= {"freq_list_valid": 1, "freq_list_len": len(entries),
                   "freq_list": [entry | {"scs": SCS_CODES[entry["scs"]]} for entry in entries]}
    return fields


def pps_config(talk, _):
    index = bits(talk.ask("Please Enter the current panel position index ", 3), 8)
    enabled = bits(talk.ask("Do you want to enable the pps mode 1 - yes/0 - No ", 1), 8)
    entries = []
    if i32(talk.ask("Do you want to enable pps with freq information 1 -yes/ 0 - no ", 1)) == 0:
        talk.say("User Requested with pps mode only ")
    else:
        count = talk.count("Please Enter the pps freq length ", 2, 16)
        entries = frequencies(talk, count, "Please Enter is pps  nr5g band freq (250 to 290) ",
                              lambda default: talk.ask("Please Enter is pps  nr5g earfcn freq ", default),
                              "Please Enter is pps nr5g subcarrier space freq -(1 to 5)")
        if count == 0:
            raise Abandoned
    fields = with_frequencies({"position_index": index, "pps_mode_enabled": enabled}, entries)
    return (INVALID_PARAM, []) if fields is None else (0, [(277, fields)])


def pps_change(talk, _):
    changed = bits(talk.ask("Please Enter the is panel position changed 1 - yes/ 0 - no ", 1), 8)
    index = bits(talk.ask("Please Enter panel position index  ", 7), 8)
    mode = bits(talk.ask("Please Enter pps mode \n0 - Invalid \n1 - start \n2 - measurement", 2), 32)
    if mode == 0:
        raise Abandoned
    if mode > 3:
        return FAILED, []
    return 0, [(279, {"position_index": index, "position_changed": changed, "pps_mode": mode - 1})]


def install_mode(talk, _):
    mode = bits(talk.ask("Please Request the install mode status 1- start/2-stop ", talk.install_mode), 32)
    entries = []
    if mode == 1:
        count = bits(talk.ask("Please Enter the freq length ", 2), 16)
        if count >= 17:
            talk.say("Please Enter the frequncy length in the range(1-16) ")
            raise Abandoned
        entries = frequencies(talk, count, "Please Enter is nr5g band freq (250 to 290) ",
                              lambda default: talk.ask_behind("Please Enter nr5g earfcn freq ", default),
                              "Please Enter nr5g subcarrier space freq -(1 to 5)")
    if mode == 0 or (mode == 1 and (not entries or entries[-1]["scs"] == 0)):
        raise Abandoned
    fields = with_frequencies({"mode": int(mode == 2)}, entries)
    return (INVALID_PARAM, []) if fields is None else (0, [(333, fields)])


def nothing(status):
    return lambda _talk, _network_status: (status, [])


@dataclasses.dataclass(frozen=True)
class Control:
    name: str
    run: object
    abandoned: str = ""
    done: str = ""


CONTROLS = {
    0: Control("Invalid Request", nothing(NOT_SUPPORTED)),
    1: Control("Gps Single shot stop", nothing(FAILED)),
    2: Control("Gps Batching stop", nothing(FAILED)),
    3: Control("SET LTE Cell Lock List", lte_lock, "failed to Configure NR5G cell lock list info",
               "Cell Lock list Configuration success\n"),
    4: Control("SET NR 5G Cell Lock List", nr5g_lock, "failed to Set Cell lock list configuration",
               "Cell Lock list Configuration success\n"),
    5: Control("SET NR5G De_Prioritize Req", nr5g_deprioritize, "", "De_prioritization configured successfully.\n"),
    6: Control("SET mmW PPS config Req", pps_config, "failed to Set mmw pps configuration",
               "mmw metric pps config req is success\nPanel position mode started\n"),
    7: Control("SET mmW PPS change status Req", pps_change, "failed to Set pps change status ",
               "mmw metric pps change status success\n"),
    8: Control("SET LYN Install mode", install_mode, "failed to Set install mode configuration",
               "Install mode config req is success\n"),
}


# Metrics that ask --------------------------------------------------------------------------------------------------

def ip_family(talk):
    return talk.until("\nPlease input IP Family 4:IPv4 6:IPv6 :- ", talk.ip_family, lambda family: family in (4, 6))


def family_address(talk, family, last):
    return talk.address(*((socket.AF_INET, f"192.0.2.{last}") if family == 4
                          else (socket.AF_INET6, f"2001:db8::{last}")))


def mtpe_client(talk):
    family = ip_family(talk)
    talk.say("\nPlease input client's public IP address")
    address = family_address(talk, family, 1)
    return 0, [("GetMTPETestInfo", {"ip_family": family, "client_addr": address})]


def mtpe_test(talk):
    test_type = talk.until("\nPlease input throughput estimation test type 1:Uplink 2:Downlink, 3:both :- ",
                           talk.test_type, lambda answer: 1 <= answer <= 3,
                           "\nPlease throughput estimation test type 1:Uplink 2:Downlink :- ")
    duration = bits(talk.ask_behind("\nPlease input test duration in seconds :- ", 10), 32)
    talk.until("\nPlease input Protocol 1:UDP :- ", 1, lambda answer: answer == 1)
    family = ip_family(talk)
    client, server = ("dst", "src") if test_type == 2 else ("src", "dst")
    version = "ipv4" if family == 4 else "ipv6"
    config = {"ip_family": family, "protocol": 2, "test_type": 2 if test_type == 2 else 1, "duration": duration,
              "external_server": 0, "src_port": 0, "dst_port": 0, "server_address_valid": 1, "server_url": "",
              "src_ipv4": "0.0.0.0", "dst_ipv4": "0.0.0.0", "src_ipv6": "::", "dst_ipv6": "::", "test_params_valid": 0}
    talk.say("\nPlease input client's public IP address")
    config[f"{client}_{version}"] = family_address(talk, family, 1)
    if i32(talk.ask("\nUse IP address or URL for Server: 0:IP Address 1:URL :- ", talk.by_url)) != 0:
        talk.say("\nPlease input test server's URL")
        config["server_url"] = (talk.read("test.example/" + "u" * 150, 300) or "").split("\n")[0]
    else:
        talk.say("\nPlease input test server's public IP address")
        config[f"{server}_{version}"] = family_address(talk, family, 2)
        config["external_server"] = bits(
            talk.ask("\n Please select option is it external server? 1 - Yes, 0 - No", talk.external), 32)
    for end, port in ((client, 5001), (server, 5002)):
        whose = "client" if end == client else "server"
        config[f"{end}_port"] = bits(
            talk.until(f"\nPlease input {whose}'s port :- ", port, lambda answer: bits(answer, 16) != 0), 16)
    if config["external_server"] != 1 and test_type != 1:
        bandwidth = bits(talk.ask("Please Provide bandwidth (kbps): ", 90000), 32)
        mtu = bits(talk.ask("Please Provide MTU: ", 1400), 32)
        if bandwidth and mtu:
            config |= {"test_params_valid": 1, "bandwidth": bandwidth, "mtu": mtu}
    nowhere = config["src_ipv4"] == config["dst_ipv4"] == "0.0.0.0" and config["src_ipv6"] == config["dst_ipv6"] == "::"
    if nowhere and not config["server_url"]:
        for field in ("server_url", "src_ipv4", "dst_ipv4", "src_ipv6", "dst_ipv6"):
            del config[field]
        config["server_address_valid"] = 0
    return 0, [("ConfigureMTPE", config)]


def single_shot(talk):
    timeout = talk.ask_behind(" Enter timeout in millisecond : ", 5000)
    talk.console += " Enter Horizontal qos : "
    text = re.match(r"\s*[+-]?[0-9]+(\.[0-9]*)?", talk.read("12.5") or "")
    accuracy = ctypes.c_float(float(text.group(0)) if text else 0.0).value
    talk.say(f"User input  timeout msec {i32(timeout)}, horQoS {accuracy:f} ")
    return FAILED, []  # the receivers of these tests have no capabilities


def batching(talk):
    interval = talk.ask_behind(" Enter timeout in millisecond : ", 1000)
    talk.say(f"User input  Batching interval  msec {i32(interval)} ")
    return FAILED, []


@dataclasses.dataclass(frozen=True)
class AskingMetric:
    name: str
    run: object
    abandoned: str = ""
    done: str = ""


STARTED = "LYN DEMO APP: MTPE metric id [{}]\nLYN DEMO APP: MTPE test started successfully \n"
METRICS = {
    47: AskingMetric("Get MTPE Server Config", mtpe_client, "failed to get the MTPE test info",
                     "LYN DEMO APP: MTPE metric id YRP success->[Get MTPE Server Config]\n"
                     "LYN DEMO APP: MTPE bandwidth 100000 and MTU 1500"),
    48: AskingMetric("Get MTPE LTE Info Req", mtpe_test, "failed to Configure MTPE test info",
                     STARTED.format("Get MTPE LTE Info Req")),
    49: AskingMetric("Get MTPE NR5G Info Req", mtpe_test, "failed to Configure MTPE test info",
                     STARTED.format("Get MTPE NR5G Info Req")),
    50: AskingMetric("GPS Get Single Shot", single_shot),
    51: AskingMetric("GPS Start Batching", batching),
}

# The options --------------------------------------------------------------------------------------------------------


@dataclasses.dataclass
class Outcome:
    console: str
    status: int
    requests: list


def talk_with(keys, path):
    """A dialogue whose default answers take one path: the answers that decide which questions follow."""
    talk = Dialogue(keys)
    defaults = {"lock_type": 1, "install_mode": 1, "ip_family": 4, "test_type": 1, "by_url": 0, "external": 0}
    for name, value in (defaults | path).items():
        setattr(talk, name, value)
    return talk


def option_9(identifier, keys, network_status, **path):
    talk = talk_with(keys, path)
    control = CONTROLS[identifier]
    talk.say("LYN DEMO APP : Setting metric information.")
    talk.say(f"LYN DEMO APP : Setting LTE/NR5G GPS [{control.name}] metric information.")
    try:
        status, requests = control.run(talk, network_status)
    except Abandoned:
        talk.say(control.abandoned)
        return Outcome(talk.console, -1, [])
    if status == 0:
        talk.console += f"LYN DEMO APP : [{control.name}] \n{control.done}"
    else:
        talk.say(f"LYN DEMO APP : Setting LTE/NR5G/GPS [{control.name}] metric information failed with "
                 f"status[{status}].")
    return Outcome(talk.console, status, requests)


def option_7(identifier, keys, _network_status, **path):
    talk = talk_with(keys, path)
    metric = METRICS[identifier]
    talk.say(f"LYN DEMO APP : Getting LTE/5G [{metric.name}] metric information.")
    try:
        status, requests = metric.run(talk)
    except Abandoned:
        talk.say(metric.abandoned)
        return Outcome(talk.console, -1, [])
    if status == 0:
        talk.console += metric.done
    else:
        talk.say(f"LYN DEMO APP : Getting LTE/5G [{metric.name}] metric information failed with status[{status}].")
    return Outcome(talk.console, status, requests)


OPTIONS = {7: option_7, 9: option_9}
