# SPDX-License-Identifier: Apache-2.0
"""A board that cannot be simulated, as a user meets it: the demo client ends with status 2 at its first platform call,
and one line on standard error says which file, where in it, and what is wrong."""
import pathlib

import pytest

from lyn import AUTO_ENABLED, BANNER

HEADER = "Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ"

SCENARIOS = {  # text: line, column, and words that the message must have
    "unknown_key": ("[board]\nnoize_db = 1\n", 2, 1, ["noize_db", "unknown key"]),
    "unknown_table": ("[radio]\n", 1, 2, ["radio", "unknown key"]),
    "unknown_key_of_a_fault": ('[[fault]]\non = "nas.79"\ntwice = 2\n', 3, 1, ["twice", "unknown key"]),
    "wrong_type": ('[lte]\nearfcn = 1300\nrsrp = "low"\n', 3, 8, ["lte.rsrp", "text"]),
    "table_in_place_of_a_list": ('[at]\nmodem = "up"\n', 1, 1, ["at", "list"]),
    "out_of_range": ("[lte]\npci = 70000\n", 2, 7, ["lte.pci", "70000"]),
    "does_not_fit_its_field": ("[lte]\n\nrsrq = -129\n", 3, 8, ["lte.rsrq", "-129"]),
    "unknown_word": ('[sys_info]\nlte = "splendid"\n', 2, 7, ["sys_info.lte", "splendid"]),
    "too_many_neighbours": ("[[lte.neighbour]]\n" * 6, None, None, ["lte.neighbour"]),
    "broken_table": ("[board\nseed = 1\n", 1, 7, []),
    "broken_value": ("[board]\nseed = = 1\n", 2, 8, []),
    "key_given_twice": ("[board]\nseed = 1\nseed = 2\n", 3, None, ["seed"]),
    "no_toml_at_all": ("\x00\x01\x02", 1, None, []),
    "timeline_against_the_trace": ('[trace]\nfile = "clean.csv"\n[[at]]\nlte = { rsrp = -100 }\n', 4, None, ["rsrp"]),
}

LOGS = {  # text: line, and words
    "empty": ("", 1, []),
    "no_log": ("dear diary\n", 1, []),
    "no_rows": (HEADER + "\n", None, []),
    "a_column_is_missing": (HEADER.replace("SNR,", "") + "\n0,0,0,LTE,-90,-10,9,1,1,-95,-14\n", 1, ["SNR"]),
    "columns_are_missing": ("\n" + HEADER.replace(",RSRP,RSRQ", "") + "\n0,0\n", 2, ["RSRP", "RSRQ"]),
    "binary": ("\x00\xff\n\x00\n", 1, []),
}


def check_refused(demo, scenario_text, prepare=None):
    """Run option 1 on a bad board; returns its one line on standard error."""
    launch = demo.launch(scenario=scenario_text)
    (launch.folder / "clean.csv").write_text(f"{HEADER}\n0,0,0,LTE,-90,-10,5,9,1,1,-95,-14\n")
    if prepare:
        prepare(launch.folder)
    launch.auto_file.write_text("10\n1\n7 1\n")
    result = demo.auto_prepared(launch)
    assert result.status == 2
    assert result.console.startswith(BANNER + AUTO_ENABLED)
    assert result.console.endswith("LYN DEMO APP : 1\nLYN DEMO APP : Register application.\n")
    assert result.stderr.count("\n") == 1 and result.stderr.endswith("\n")
    return result.stderr.removesuffix("\n"), launch.env["LYN_SIM_SCENARIO"]


def place(path, line, column):
    return ":".join([str(path), *(str(number) for number in (line, column) if number is not None)]) + ":"


@pytest.mark.parametrize("kind", SCENARIOS)
def test_scenario_that_cannot_be_used(demo, kind):
    text, line, column, words = SCENARIOS[kind]
    message, path = check_refused(demo, text)
    assert message.startswith(place(path, line, column))
    assert len(message) > len(place(path, line, column)) + 5
    for word in words:
        assert word in message


@pytest.mark.parametrize("kind", LOGS)
def test_log_that_cannot_be_used(demo, kind):
    text, line, words = LOGS[kind]
    message, path = check_refused(demo, '[trace]\nfile = "bad.csv"\n',
                                  lambda folder: (folder / "bad.csv").write_bytes(text.encode("latin-1")))
    assert message.startswith(place(path, 2, 8))
    assert place(pathlib.Path(path).parent / "bad.csv", line, None) in message
    for word in words:
        assert word in message


def test_log_that_is_not_there(demo):
    message, path = check_refused(demo, '[trace]\nfile = "nowhere/absent.csv"\n')
    assert message.startswith(place(path, 2, 8))
    assert str(pathlib.Path(path).parent / "nowhere/absent.csv") in message


@pytest.mark.parametrize("file", ["/nowhere/board.toml", "/tmp", "/proc/self/mem", "/dev/zero"])
def test_scenario_file_that_cannot_be_read(demo, file):
    result = demo.auto(["1"], env={"LYN_SIM_SCENARIO": file})
    assert result.status == 2
    assert result.stderr.startswith(file + ":") and result.stderr.count("\n") == 1


@pytest.mark.parametrize("variable", ["LYN_SIM_JOURNAL", "LYN_SIM_DIAG"])
@pytest.mark.parametrize("read", ["scenario.toml", "clean.csv"])
def test_what_the_board_reads_is_never_written_over(demo, variable, read):
    launch = demo.launch(scenario='[trace]\nfile = "clean.csv"\n')
    (launch.folder / "clean.csv").write_text(f"{HEADER}\n0,0,0,LTE,-90,-10,5,9,1,1,-95,-14\n")
    before = (launch.folder / read).read_bytes()
    link = launch.folder / "link"
    link.symlink_to(read)
    launch.env[variable] = str(link)
    launch.auto_file.write_text("1\n")
    result = demo.auto_prepared(launch)
    assert result.status == 2
    assert result.stderr.startswith(f"{link}: cannot be the ") and result.stderr.count("\n") == 1
    assert str(launch.folder / read) in result.stderr
    assert (launch.folder / read).read_bytes() == before


def test_bad_board_does_not_matter_until_the_first_platform_call(demo):
    result = demo.auto(["10"], scenario="[board\n")
    assert (result.status, result.stderr) == (0, "")


def test_bad_board_at_the_prompt(demo):
    with demo.session(scenario="[board]\nnoize_db = 1\n") as session:
        session.send("1")
        result = session.finish()
    assert result.status == 2
    assert result.console.endswith("LYN DEMO APP : Register application.\n")
    assert result.stderr.count("\n") == 1
