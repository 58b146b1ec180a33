# SPDX-License-Identifier: Apache-2.0
"""What tools/coverage makes of gcovr's report and of the records of what no test can reach; nothing is built here."""
import copy
import importlib.machinery
import importlib.util
import sys

import pytest

from lyn import BUILD, ROOT

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="the tool is the same with every build")

SOURCE = """\
int half(int number) {
  if (number < 0 || number > 9) {
    return -1;
  }
  return number / 2;
}

int twice(int number) {
  if (number < 0) {
    return -1;
  }
  return number * 2;
}
""".splitlines()


def line(number, count, *branches):
    return {"line_number": number, "count": count, "gcovr/noncode": False,
            "branches": [{"count": taken, "fallthrough": False, "throw": False} for taken in branches]}


# The first function never sees a number above 9, the second none below 0.
REPORT = {"files": [{"file": "src/a.cpp", "lines": [
    line(1, 3), line(2, 3, 1, 2, 0, 2), line(3, 1), line(5, 2),
    line(8, 2), line(9, 2, 0, 2), line(10, 0), line(12, 2)]}] + [
        {"file": f"{folder}/b.cpp", "lines": [line(1, 1, 1, 1)]} for folder in ("demo", "watch")]}

BRANCH = """\
src/a.cpp:

?1 if (number < 0 || number > 9) {
No number has two digits.
"""
LINE = """\
src/a.cpp:

?1 if (number < 0) {
- return -1;
None is negative.
"""


@pytest.fixture(scope="module", name="coverage")
def tool():
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("coverage", str(ROOT / "tools/coverage"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("coverage", loader))
    loader.exec_module(module)
    return module


@pytest.fixture(name="judged")
def judge(coverage, capsys):
    """Judges the report with some records: whether all is good, and what was printed."""
    def judged(text):
        good = coverage.judge(copy.deepcopy(REPORT), coverage.records(text), lambda _: SOURCE)
        return good, capsys.readouterr().out.splitlines()
    return judged


def test_every_hole_is_shown_and_one_is_too_many(judged):
    good, printed = judged("")
    assert not good
    assert printed[:3] == ["not taken 1 of 4  src/a.cpp:2  if (number < 0 || number > 9) {",
                           "not taken 1 of 2  src/a.cpp:9  if (number < 0) {",
                           "not run        src/a.cpp:10  return -1;"]
    assert [row.split()[0] for row in printed[3:6]] == ["src/", "demo/", "watch/"]
    assert "87.50 % (7 of 8)" in printed[3] and "66.67 % (4 of 6)" in printed[3]


def test_what_a_record_names_is_no_hole(judged):
    good, printed = judged(BRANCH + "\n" + LINE)
    assert good
    assert printed[0].startswith("src/") and "(7 of 7)" in printed[0] and "(4 of 4)" in printed[0]


def test_each_folder_has_to_reach_the_goals(judged):
    good, printed = judged(LINE)
    assert not good and "not taken 1 of 4  src/a.cpp:2" in printed[0]


@pytest.mark.parametrize("record, wrong", [
    ("- return 5;", "is not in the file"),
    ("- return -1;", "is in more than one place"),
    ("- return number / 2;", "is run, or no code"),
    ("- }\n  return number * 2;", "is run, or no code: }"),
    ("?2 if (number < 0 || number > 9) {", "does not leave 2 branches"),
    ("?1 return number / 2;", "does not leave 1 branches"),
    ("  int twice(int number) {\n?2 if (number < 0) {", "does not leave 2 branches"),
])
def test_a_record_that_excludes_nothing_is_a_failure(judged, record, wrong):
    good, printed = judged(f"{BRANCH}\n{LINE}\n{record}\nWhy.\n")
    assert not good
    assert [row for row in printed if wrong in row and row.startswith("tests/coverage.excluded:12: src/a.cpp: ")]


def test_a_record_of_a_file_that_is_not_counted_is_a_failure(judged):
    good, printed = judged(f"{BRANCH}\n{LINE}\nsrc/gone.cpp:\n\n- return;\nWhy.\n")
    assert not good and any("is of no file that was counted" in row for row in printed)


# As gcov prints it: a call that may throw, a block that only an exception leads to, and what stands in a template twice.
PRINTED = """\
        -:    0:Source:/usr/include/c++/12/demo/vector
        7:    1:int not_counted() {
        -:    0:Source:../../../src/lyn_list.cpp
        -:    0:Graph:somewhere.gcno
        -:    1:/* no code */
function f called 3 returned 100% blocks executed 60%
       3*:   10:  if (a && b()) {
branch  0 taken 2 (fallthrough)
branch  1 taken 1
        3:   10-block  0
call    2 returned 2
branch  3 taken 2 (fallthrough)
branch  4 taken 0 (throw)
    $$$$$:   10-block  1
branch  5 never executed
branch  6 never executed
    %%%%%:   10-block  2
branch  7 never executed
    #####:   11:    c();
    =====:   12:  } catch (...) {
    #####:   13:  }
------------------
f<int>:
        2:   20:  return x ? 1 : 2;
branch  0 taken 2 (fallthrough)
branch  1 taken 0
------------------
f<long>:
    #####:   20:  return x ? 1 : 2;
branch  0 never executed
branch  1 never executed
"""


def test_lines_of_all_objects_are_summed_up_without_what_only_an_exception_takes(coverage):
    lines = coverage.Lines()
    lines.add(PRINTED)
    lines.add(PRINTED.replace("    #####:   11:", "        4:   11:").replace("branch  7 never executed", "branch  7 taken 4"))
    [file] = lines.report()["files"]
    assert file["file"] == "src/lyn_list.cpp"
    found = {line["line_number"]: (line["count"], [branch["count"] for branch in line["branches"]]) for line in file["lines"]}
    assert found == {10: (6, [4, 2, 4, 4]), 11: (4, []), 12: (0, []), 20: (4, [4, 0])}


def test_the_records_of_the_tree_can_be_read_and_each_has_its_reason(coverage):
    text = (ROOT / coverage.EXCLUDED).read_text(encoding="utf-8")
    lines = text.splitlines()
    for record in coverage.records(text):
        assert len(record.places(coverage.read_source(record.name))) == 1, str(record)
        reason = lines[record.number - 1 + len(record.lines)]
        assert reason and not reason.endswith(":"), str(record)
