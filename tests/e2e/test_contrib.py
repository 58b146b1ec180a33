# SPDX-License-Identifier: Apache-2.0
"""What a fleet is collected, judged and shown with: contrib/prometheus by promtool, and that rules and dashboard ask only
for what lyn_watch tells."""
import functools
import itertools
import json
import re
import shutil
import subprocess

import pytest

from lyn import ROOT

# What is here does not depend on the build that is tested.
pytestmark = pytest.mark.release_only

PROMETHEUS = ROOT / "contrib/prometheus"
RULES = (PROMETHEUS / "rules.yml").read_text(encoding="utf-8")
TESTS = ["rules_test.yml", "rules_week_test.yml"]
DASHBOARD = json.loads((ROOT / "contrib/grafana/lyn_boards.json").read_text(encoding="utf-8"))

# What Prometheus makes itself.
OWN = {"up", "ALERTS"}
# With neighbours, traffic and a location at once.
EVERYTHING = """
[board]
noise_db = 0
[location]
capabilities_ms = 0
fix_ms = 10
"""


def promtool(*words, cwd=PROMETHEUS):
    program = shutil.which("promtool") or shutil.which("promtool", path=ROOT / "build/prometheus/usr/bin")
    if not program:
        pytest.skip("no promtool, which is in Debian's package prometheus")
    return subprocess.run([program, *words], cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)


def rules():
    """Each rule's text, by its kind and name."""
    parts = re.split(r"^      - (record|alert): (.+)\n", RULES, flags=re.MULTILINE)[1:]
    return {(kind, name): text for kind, name, text in zip(*[iter(parts)] * 3)}


def names(kind):
    return [name for found, name in rules() if found == kind]


def expressions():
    """Of rules and dashboard, with where they are from."""
    for (_, name), text in rules().items():
        yield name, re.search(r"expr: (.*)", text)[1]
    for panel in DASHBOARD["panels"]:
        for target in panel["targets"]:
            yield panel["title"], target["expr"]
    for variable in DASHBOARD["templating"]["list"]:
        if variable["type"] == "query":
            yield variable["name"], variable["query"]["query"]
    for annotation in DASHBOARD["annotations"]["list"]:
        yield annotation["name"], annotation["expr"]


def metrics_in(expression):
    """Names that select series: in front of braces, a range or by themselves, and of our kind or Prometheus' own."""
    bare = re.sub(r'"(\\.|[^"])*"', '""', expression)
    return set(re.findall(r"\b(lyn[_:][\w:]+|up|ALERTS)\b(?!\()", bare))


@functools.cache
def alert_tests():
    """Per alert, whether some test has it fire, and whether some has it not; each is one block of the files."""
    fires, rests = set(), set()
    for name in TESTS:
        text = (PROMETHEUS / name).read_text(encoding="utf-8")
        for block in re.split(r"^      - eval_time:", text, flags=re.MULTILINE)[1:]:
            for alert in re.findall(r"alertname: (\w+)", block):
                (rests if "exp_alerts: []" in block else fires).add(alert)
    return fires, rests


def test_configuration_is_what_prometheus_takes(tmp_path):
    folder = shutil.copytree(PROMETHEUS, tmp_path / "prometheus")
    (folder / "targets").mkdir()
    (folder / "targets/boards.yml").write_text('- targets: ["mast-7.example.org:9750"]\n', encoding="utf-8")
    for words in (["check", "config", "prometheus.yml"], ["check", "rules", "rules.yml"]):
        done = promtool(*words, cwd=folder)
        assert done.returncode == 0 and "SUCCESS" in done.stdout, done.stdout


def test_rules_do_what_their_tests_say():
    done = promtool("test", "rules", *TESTS)
    assert done.returncode == 0 and done.stdout.count("SUCCESS") == len(TESTS), done.stdout


def promtool_with(folder, rules_text):
    """What promtool says where the rules are these."""
    copy = shutil.copytree(PROMETHEUS, folder / "prometheus")
    (copy / "rules.yml").write_text(rules_text, encoding="utf-8")
    return promtool("test", "rules", *TESTS, cwd=copy)


BROKEN = [('up{job="lyn"} == 0', 'up{job="lyn"} == 1'), ("lyn_up == 0", "lyn_up == 2"),
          ("no_service|power_save|limited|", "no_service|"), ("[10m]) > 6", "[10m]) > 3"),
          ("last_week - 6", "last_week - 3"), (" offset 1h", ""), ("[1w]", "[1h]"), ("rate(lyn_receive", "increase(lyn_receive"),
          ("count by (job) (lyn_up", "count by (instance) (lyn_up")]


@pytest.mark.parametrize("right, wrong", BROKEN)
def test_tests_of_the_rules_notice_one_that_is_broken(tmp_path, right, wrong):
    assert right in RULES
    done = promtool_with(tmp_path, RULES.replace(right, wrong, 1))
    assert done.returncode != 0 and "FAILED" in done.stdout, done.stdout


@pytest.mark.parametrize("alert", names("alert"))
def test_tests_of_the_rules_notice_an_alert_that_does_not_wait(tmp_path, alert):
    text = rules()["alert", alert]
    assert "        for: " in text
    done = promtool_with(tmp_path, RULES.replace(text, re.sub(r" +for: .*\n", "", text)))
    assert done.returncode != 0 and f"alertname: {alert}" in done.stdout, done.stdout


def test_every_alert_says_what_is_wrong_and_is_tested_both_ways():
    fires, rests = alert_tests()
    assert names("alert")
    for alert in names("alert"):
        text = rules()["alert", alert]
        for annotation in ("summary", "description"):
            assert re.search(rf'^ +{annotation}: ".+"$', text, re.MULTILINE), f"{alert} has no {annotation}"
        assert alert in fires, f"{alert} fires in no test"
        assert alert in rests, f"{alert} is silent in no test"


def test_rules_and_dashboard_use_metrics_that_are_told(watch):
    used = {name: where for where, expression in expressions() for name in metrics_in(expression)}
    wanted = {name for name in used if name.startswith("lyn_")}
    assert {"lyn_rsrp_dbm", "lyn_cell_changes_total", "lyn_up"} <= wanted
    with watch.session("--serve", "0", "--scan", "200ms", "--locate", "200ms", scenario=EVERYTHING) as session:
        found = session.wait_metrics(lambda found: any(name.startswith("lyn_neighbour_rsrp") for name in found))
    told = {re.match(r"\w+", name)[0] for name in found}
    strange = {name: used[name] for name in used.keys() - told - OWN - set(names("record"))}
    assert not strange


def test_states_that_rules_and_dashboard_select_are_told(watch):
    asked = {state for _, expression in expressions() for states in re.findall(r'state=~"([^"]+)"', expression)
             for state in states.split("|")}
    with watch.session("--serve", "0", scenario=EVERYTHING) as session:
        found = session.wait_metrics(lambda found: any(name.startswith("lyn_registration") for name in found))
    told = {state for name in found for state in re.findall(r'^lyn_registration\{state="(\w+)"\}', name)}
    assert asked and asked <= told


def test_panels_of_the_dashboard_have_titles_and_room():
    places = {}
    for panel in DASHBOARD["panels"]:
        grid = panel["gridPos"]
        assert panel["title"] and panel["targets"] and grid["w"] > 0 and grid["h"] > 0
        assert 0 <= grid["x"] and grid["x"] + grid["w"] <= 24
        for place in itertools.product(range(grid["x"], grid["x"] + grid["w"]), range(grid["y"], grid["y"] + grid["h"])):
            assert places.setdefault(place, panel["title"]) is panel["title"], f"{panel['title']} and {places[place]}"
    for unique in ("id", "title"):
        values = [panel[unique] for panel in DASHBOARD["panels"]]
        assert len(values) == len(set(values))
