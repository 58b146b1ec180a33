# SPDX-License-Identifier: Apache-2.0
"""Which mistakes tools/mutants makes in a source, and which it does not; what it prints is drawn by seed.

Nothing is built here: whether a mutant is noticed is the tool's own business.
"""
import collections
import importlib.machinery
import importlib.util
import subprocess
import sys

import pytest

from lyn import BUILD, ROOT

pytestmark = pytest.mark.skipif(BUILD.name != "release", reason="the tool is the same with every build")

TOOL = ROOT / "tools/mutants"

SOURCE = r'''
#include "a == b.h"  // a == b
#define TWICE(x) \
  ((x) + (x) == 2)
/* if (a == b) return 1; */
static_assert(sizeof(int) == 4 && true);
alignas(64) static const char *text = "a == b && 1 + 1; \" 2";
static const char *raw = R"(if (a < b) { c = 1; })", letter = '1', big = 1'000;

static const pair_t pairs[] = {
    {A, B},
    {A, C},
};

template <class T>
static bool judge(const T *item, T &&other) {
  const lyn_guard_t lock(&mutex);
  LYN_LOG_ERROR("is 5 == %d && true", item->number + 1);
  if (const T *next = item->next) {
    item->left--;  // one == less
    (void)next->release(
        other);
  }
  for (; item->goes;) ++item;
  pthread_mutex_lock(&item->mutex);
  item->until = now + std::chrono::seconds(15);
  (void)item->seen.exchange(ready.load(), std::memory_order_acq_rel);
  if (item) return EXIT_SUCCESS;
  return item->number < other.number && !item->done;
}
'''

CHANGES = [
    ("{A, B}, {A, C},", "{A, C}, {A, B},"),
    ("const lyn_guard_t lock(&mutex);", ";"),
    ('const lyn_guard_t lock(&mutex); LYN_LOG_ERROR("is 5 == %d && true", item->number + 1);',
     'LYN_LOG_ERROR("is 5 == %d && true", item->number + 1); const lyn_guard_t lock(&mutex);'),
    ('const lyn_guard_t lock(&mutex); LYN_LOG_ERROR("is 5 == %d && true", item->number + 1);',
     '{ const lyn_guard_t lock(&mutex); LYN_LOG_ERROR("is 5 == %d && true", item->number + 1); }'),
    ('LYN_LOG_ERROR("is 5 == %d && true", item->number + 1);', ";"),
    ("if (const T *next = item->next) {", "if (const T *next = item->next; !next) {"),
    ("item->left--; // one == less", "; // one == less"),
    ("item->left--; // one == less", "item->left++; // one == less"),
    ("(void)next->release( other);", ";"),
    ("for (; item->goes;) ++item;", "for (; !(item->goes);) ++item;"),
    ("for (; item->goes;) ++item;", "for (; item->goes;) --item;"),
    ("pthread_mutex_lock(&item->mutex);", ";"),
    ("pthread_mutex_lock(&item->mutex); item->until = now + std::chrono::seconds(15);",
     "item->until = now + std::chrono::seconds(15); pthread_mutex_lock(&item->mutex);"),
    ("item->until = now + std::chrono::seconds(15);", ";"),
    ("item->until = now + std::chrono::seconds(15);", "item->until = {};"),
    ("item->until = now + std::chrono::seconds(15);", "item->until = now - std::chrono::seconds(15);"),
    ("item->until = now + std::chrono::seconds(15);", "item->until = now + std::chrono::seconds(15 * 1000);"),
    ("item->until = now + std::chrono::seconds(15);", "item->until = now + std::chrono::seconds(0);"),
    ("(void)item->seen.exchange(ready.load(), std::memory_order_acq_rel);", ";"),
    ("(void)item->seen.exchange(ready.load(), std::memory_order_acq_rel);",
     "(void)item->seen.exchange(ready.load(std::memory_order_relaxed), std::memory_order_acq_rel);"),
    ("(void)item->seen.exchange(ready.load(), std::memory_order_acq_rel);",
     "(void)item->seen.exchange(ready.load(), std::memory_order_acquire);"),
    ("(void)item->seen.exchange(ready.load(), std::memory_order_acq_rel);",
     "(void)item->seen.exchange(ready.load(), std::memory_order_release);"),
    ("if (item) return EXIT_SUCCESS;", "if (!(item)) return EXIT_SUCCESS;"),
    ("if (item) return EXIT_SUCCESS;", "if (item) return 1;"),
    ("return item->number < other.number && !item->done;", "return item->number <= other.number && !item->done;"),
    ("return item->number < other.number && !item->done;", "return item->number >= other.number && !item->done;"),
    ("return item->number < other.number && !item->done;", "return item->number < other.number || !item->done;"),
    ("return item->number < other.number && !item->done;", "return item->number < other.number && item->done;"),
    ("return item->number < other.number && !item->done;", "return {};"),
]


@pytest.fixture(scope="module", name="mutants")
def tool():
    sys.dont_write_bytecode = True
    loader = importlib.machinery.SourceFileLoader("mutants", str(TOOL))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutants", loader))
    loader.exec_module(module)
    return module


def listed(*arguments):
    done = subprocess.run([str(TOOL), "--list", *arguments], check=True, capture_output=True, text=True)
    return done.stdout.splitlines()


def test_code_is_changed_and_comments_literals_directives_and_log_texts_are_not(mutants):
    made = [(one.before, one.after) for one in mutants.mutants_of("a.cpp", SOURCE)]
    assert sorted(made) == sorted(CHANGES)


def test_one_function_or_table_may_be_named(mutants):
    assert [one.before for one in mutants.mutants_of("a.cpp", SOURCE, "pairs")] == ["{A, B}, {A, C},"]
    assert len(mutants.mutants_of("a.cpp", SOURCE, "judge")) == len(CHANGES) - 1


def test_the_same_seed_draws_the_same_mutants():
    drawn = listed("--seed", "7", "--count", "20")
    assert len(drawn) == 20
    assert listed("--seed", "7", "--count", "20") == drawn
    assert listed("--seed", "8", "--count", "20") != drawn


def test_those_that_fit_an_expression_are_left(mutants):
    drawn = listed("--count", "0", "--only", "lock.cpp:.*->  ;$", "src/lyn_interface_*.cpp")
    assert drawn and all(line.startswith("src/lyn_interface_lock.cpp:") and line.endswith(";") for line in drawn)


def test_what_is_known_to_make_no_difference_can_still_be_made_and_is_not_listed(mutants):
    text = (ROOT / mutants.EQUIVALENT).read_text(encoding="utf-8")
    known = mutants.equivalents(text)
    assert len(known) == text.count("\n+ ")
    names = sorted({name for name, *_ in known})
    made = [one for name in names for one in mutants.mutants_of(name, (ROOT / name).read_text(encoding="utf-8"))]
    assert known - {key for one in made for key in one.keys} == set()
    assert collections.Counter(listed("--count", "0", *names)) == collections.Counter(
        str(one) for one in made if not one.keys & known)


def test_a_record_may_say_behind_which_line_its_line_stands(mutants):
    text = "void f() {\n  one();\n  end();\n  two();\n  end();\n}\n"
    known = mutants.equivalents("a.cpp:\n\n  two();\n- end();\n+ ;\nWhy.\n\n- one();\n+ ;\nWhy.\n")
    left = [(one.line, one.before) for one in mutants.mutants_of("a.cpp", text)
            if one.after == ";" and not one.keys & known]
    assert left == [(3, "end();"), (4, "two();")]
