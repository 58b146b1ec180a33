# SPDX-License-Identifier: Apache-2.0
"""What the documents show of calling the module works as it is shown."""
import os
import re
import subprocess
import sys

import pytest
from conftest import ROOT

lyn = pytest.importorskip("lyn", reason="the package is built in the release preset only")

CALLERS = (ROOT / "docs/callers.md").read_text(encoding="utf-8")
README = (ROOT / "README.md").read_text(encoding="utf-8")


def run(command, **more):
    plain = {name: value for name, value in os.environ.items() if not name.startswith("LYN_SIM_")}
    done = subprocess.run(command, cwd=ROOT, env=plain, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=600, check=False, **more)
    assert done.returncode == 0, done.stdout
    return done.stdout


def test_session_of_the_readme_works(tmp_path):
    session, = re.findall(r"(?s)<!-- python session: begin -->\n```\n(.*?)```\n<!-- python session: end -->", README)
    build, start = re.findall(r"^\$ (.*)\n", session, re.M)
    run(["bash", "-euc", build])
    text = tmp_path / "session.txt"
    text.write_text(re.sub(r"(?m)^\$.*\n", "", session), encoding="utf-8")
    run(["bash", "-euc", f"{start} -m doctest {text}"])
    assert sys.executable in start


@pytest.mark.board("[board]\nnoise_db = 0\n")
def test_the_page_of_the_api_runs_as_it_stands(capfd):
    program, = re.findall(r"(?s)```python\n(.*?)```", CALLERS)
    exec(compile(program, "docs/callers.md", "exec"), {})
    lines = capfd.readouterr().out.splitlines()
    assert [line.removeprefix("MobileAP Enable succeeds.") for line in lines if line] == ["LTE RSRP -95", "[501]", "-1"]


def test_every_exception_metric_and_method_that_the_page_names_exists():
    names = re.findall(r"\b(Metric|Control|Indication|Async|Scs)\.([A-Z0-9_]+)", CALLERS + README)
    assert len(names) > 10
    for group, member in names:
        assert member in getattr(lyn, group).__members__
    for method in re.findall(r"^\| `(\w+)\(", CALLERS, re.M):
        assert callable(getattr(lyn.Modem, method))
    for name in ("NotSupported", "Busy", "InfoUnavailable", "ServiceUnavailable", "Failure", "NotInitialized"):
        assert name in CALLERS and issubclass(getattr(lyn, name), lyn.Error)
