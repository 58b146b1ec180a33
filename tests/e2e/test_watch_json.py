# SPDX-License-Identifier: Apache-2.0
"""The live picture's records: what the scenario measures, and nothing that it does not."""

QUIET = "[board]\nnoise_db = 0\n"


def test_one_snapshot_holds_what_the_board_measures(watch):
    result = watch.run("--json", "--once", scenario=QUIET)
    assert result.status == 0
    [record] = result.records
    assert record["type"] == "snapshot" and record["up"] and record["registration"] == "lte_nr5g"
    assert record["lte"]["rsrp"] == -95 and record["lte"]["sinr"] == 130 and record["lte"]["plmn"] == "272-01"
    assert record["nr5g"]["pci"] == 500


def test_a_measured_change_comes_as_an_event(watch):
    with watch.session("--json", scenario=QUIET + "[[at]]\nms = 500\nlte = { rsrp = -101 }\n") as session:
        event = session.wait_record(lambda record: record.get("event") == "lte_rsrp" and record["value"] == -101)
        assert event["type"] == "event"
        assert session.wait_record(lambda record: record["type"] == "snapshot")["lte"]["rsrp"] == -101
        assert session.terminate() == 0
