# SPDX-License-Identifier: Apache-2.0
"""The manual pages are true: they name what the header declares and what the board reads, and their examples work."""
import re
import subprocess

import pytest

from lyn import AUTO_DONE, BUILD, EMULATOR, ROOT

MAN = ROOT / "docs/man"
HEADER = (ROOT / "inc/ox_lyn.h").read_text(encoding="utf-8")
PAGES = sorted(MAN.iterdir())
AUTO_FILE, = re.findall(r'LYN_DEMO_AUTO_FILE = "(.*?)"', (ROOT / "demo/lyn_demo.cpp").read_text(encoding="utf-8"))


def source(page):
    return (MAN / page).read_text(encoding="utf-8")


def shown(page):
    """A page as it is read, without fonts and breaks of lines."""
    text = subprocess.run(["mandoc", "-T", "ascii", "-O", "width=1000", page], capture_output=True, text=True, check=True)
    return re.sub(r".\x08", "", text.stdout)


def examples(page):
    """The displays of a page, as a reader would copy them."""
    text = source(page).split(".Sh EXAMPLES")[1]
    for block in re.findall(r"(?ms)^\.Bd -literal[^\n]*\n(.*?)^\.Ed", text):
        yield block.replace("\\e", "\\")


def words(text):
    return re.sub(r"\s+", " ", text)


def test_synopsis_of_the_library_is_what_the_header_declares():
    declared = [words(each) for each in re.findall(r"(?ms)^int32_t ox_lyn_\w+\([^)]*\);", HEADER)]
    page = words(shown(MAN / "ox_lyn.3"))
    assert len(declared) == 9
    for each in declared:
        assert each in page


def test_every_status_of_the_library_is_in_its_page():
    declared = re.findall(r"(?m)^  (OX_LYN_ERR_\w+) = ", HEADER)
    assert re.findall(r"(?m)^\.It Dv (\w+)", source("ox_lyn.3")) == declared


def test_example_of_the_library_compiles(tmp_path):
    (tmp_path / "example.c").write_text(next(examples("ox_lyn.3")), encoding="utf-8")
    subprocess.run(["cc", "-std=c11", "-Wall", "-Wextra", "-Werror", "-fsyntax-only", "-I", ROOT / "inc", "example.c"],
                   cwd=tmp_path, check=True)


def test_example_of_the_board_is_a_scenario(demo):
    result = demo.auto(["1", "7 1", "7 10", "2"], scenario=next(examples("lyn_sim.7")))
    assert result.status == 0
    assert "[LTE Serving Cell RSRP] - -95\n" in result.console


def test_example_of_the_client_is_what_it_asks_for(demo):
    lines = re.findall(r"(?m)^Option > (.*)$", next(examples("lyn_demo.1")))
    result = demo.auto(lines)
    assert AUTO_DONE in result.console
    assert "[Registration Status] - " in result.console and "[LTE Serving Cell RSRP] - " in result.console


def test_every_option_and_file_of_the_client_is_in_its_page():
    page = source("lyn_demo.1")
    menu = re.findall(r'\.menu = "(\d\d)\.', (ROOT / "demo/lyn_demo.cpp").read_text(encoding="utf-8"))
    assert re.findall(r"(?m)^\.It Cm (\d+)", page) == [str(int(number)) for number in menu]
    assert f".It Pa {AUTO_FILE}\n" in page


def test_command_line_of_the_client_is_what_its_help_says():
    printed = subprocess.run([*EMULATOR, BUILD / "lyn_demo", "--help"], capture_output=True, text=True, check=True).stdout
    usage = printed.split("\n")[0]
    assert AUTO_FILE in printed
    synopsis = shown(MAN / "lyn_demo.1").split("SYNOPSIS")[1].split("DESCRIPTION")[0]
    assert words(synopsis).strip() == usage.removeprefix("usage: ")


def test_every_option_of_the_live_picture_is_in_its_page(watch):
    offered = re.findall(r"(?m)^  (?:-h,)?(--[\w-]+)", watch.run("--help").console)
    page = source("lyn_watch.1")
    told = re.findall(r"(?m)^\.It (?:Fl h , )?Fl -(\w+)|^\.It Fl h , -(\w+)", page)
    assert offered and sorted(offered) == sorted("--" + (first or second) for first, second in told)


def test_every_variable_of_the_board_is_in_its_page():
    guide = (ROOT / "docs/simulator.md").read_text(encoding="utf-8")
    page = source("lyn_sim.7")
    assert re.findall(r"(?m)^\.It Ev (\w+)", page) == re.findall(r"(?m)^\| `(LYN_SIM_\w+)=", guide)


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.name)
def test_pages_refer_to_each_other(page):
    own = {each.name for each in PAGES}
    for name, section in re.findall(r"(?m)^\.Xr (\w+) (\d)", page.read_text(encoding="utf-8")):
        assert f"{name}.{section}" in own or section == "3"
