/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Every key of a scenario, by its row: what it takes and what it refuses, where it is stored, and its default.
 */
#include "sim_key.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "sim_scenario.h"
#include "source_dir.h"

namespace {

/** A row with the rows of the tables that it stands in, from the scenario's own. */
using road = std::vector<const sim_key *>;

std::string path_of(const road &to) {
  std::string path;
  for (const sim_key *row : to) {
    path.append(path.empty() ? "" : ".").append(row->name);
  }
  return path;
}

bool is_patch(const road &to) {
  return to.back()->type.patch;
}

/** Every row; those of a patch stand in the board's own table. */
void add_roads(const road &before, sim_keys keys, std::vector<road> &all) {
  for (const sim_key &row : keys) {
    road to = before;
    to.push_back(&row);
    all.push_back(to);
    if (row.type.keys && !is_patch(to)) {
      add_roads(to, row.type.keys(), all);
    }
  }
}

std::vector<road> all_roads() {
  std::vector<road> all;
  add_roads({}, sim_keys_scenario(), all);
  return all;
}

/** What an entry needs beside the key: a needed one, or an event. */
struct companion {
  std::string_view path, key, value;
};

constexpr companion companions[] = {{"at", "modem", "\"up\""},
                                    {"at.raw", "lib", "\"nas\""},
                                    {"at.raw", "id", "81"},
                                    {"at.raw", "bytes", "\"00\""},
                                    {"fault", "on", "\"nas.79\""}};

bool has_events(const road &table) {
  const sim_keys keys = table.back()->type.keys();
  return std::any_of(keys.begin(), keys.end(), [](const sim_key &row) { return row.event; });
}

/** The other keys that an entry needs; one with an event needs no other event. */
std::vector<std::string> companions_of(const road &table, const sim_key *key) {
  std::vector<std::string> all;
  for (const companion &other : companions) {
    const bool given = key && (other.key == key->name || (has_events(table) && key->event));
    if (!given && other.path == path_of(table)) {
      all.push_back(std::string(other.key) + " = " + std::string(other.value));
    }
  }
  return all;
}

/** A table with these assignments, or a list with one. */
std::string entry_of(const road &table, const std::vector<std::string> &assignments) {
  std::string text;
  for (const std::string &one : assignments) {
    text += (text.empty() ? "" : ", ") + one;
  }
  return table.back()->type.kind == sim_key_kind::tables ? "[{ " + text + " }]" : "{ " + text + " }";
}

/** A scenario in which the row has this value. */
std::string scenario_with(road to, std::string value) {
  while (to.size() > 1) {
    const sim_key &key = *to.back();
    to.pop_back();
    std::vector<std::string> assignments = companions_of(to, &key);
    assignments.push_back(std::string(key.name) + " = " + value);
    value = entry_of(to, assignments);
  }
  return std::string(to.front()->name) + " = " + value;
}

std::optional<sim_scenario> parse(const std::string &text, std::string &error) {
  return sim_scenario_parse(text, "x", ".", error);
}

/** The record of the table that the row stands in. */
const void *record_of(const sim_scenario &scenario, const road &to) {
  const void *record = &scenario;
  for (size_t at = 0; at + 1 < to.size(); ++at) {
    const std::vector<const void *> entries = to[at]->type.entries(record);
    if (entries.empty()) {
      return nullptr;
    }
    record = entries.front();
  }
  return record;
}

std::optional<sim_scenario> accepted(const road &to, const std::string &value) {
  const std::string text = scenario_with(to, value);
  std::string error;
  std::optional<sim_scenario> scenario = parse(text, error);
  EXPECT_TRUE(scenario) << text.substr(0, 200) << '\n' << error;
  return scenario;
}

void expect_refused(const road &to, const std::string &value) {
  const std::string text = scenario_with(to, value);
  std::string error;
  EXPECT_FALSE(parse(text, error)) << text.substr(0, 200);
}

/** Accepted and stored where the row says. */
void expect_stored(const road &to, const std::string &value, const sim_key_value &wanted) {
  const std::optional<sim_scenario> scenario = accepted(to, value);
  if (scenario) {
    EXPECT_EQ(to.back()->type.load(record_of(*scenario, to)), wanted) << path_of(to) << " = " << value.substr(0, 200);
  }
}

std::string repeated(const std::string &one, size_t count) {
  std::string all;
  for (size_t at = 0; at < count; ++at) {
    all += one;
  }
  return all;
}

std::string list_of(const std::string &one, size_t count) {
  return '[' + repeated(one + ", ", count) + ']';
}

std::string quoted(const std::string &text) {
  return '"' + text + '"';
}

// Kinds.

constexpr const char *integers_beyond[] = {"-9223372036854775808", "9223372036854775807"};

/** Numbers one beyond the limits, as far as TOML can write them. */
std::vector<std::string> beyond(const sim_key_type &type) {
  std::vector<std::string> all;
  if (type.min != sim_key_no_minimum) {
    all.insert(all.end(), {std::to_string(type.min - 1), integers_beyond[0]});
  }
  if (type.max != sim_key_no_maximum) {
    all.insert(all.end(), {std::to_string(type.max + 1), integers_beyond[1]});
  }
  return all;
}

void check_integer(const road &to, const sim_key_type &type) {
  for (const int64_t limit : {type.min, type.max}) {
    expect_stored(to, std::to_string(limit), limit);
  }
  for (const std::string &value : beyond(type)) {
    expect_refused(to, value);
  }
  expect_refused(to, "0.5");
}

void check_measured(const road &to, const sim_key_type &type) {
  check_integer(to, type);
  expect_stored(to, "\"absent\"", {});
  expect_refused(to, "\"none\"");
}

void check_real(const road &to, const sim_key_type &type) {
  for (const double limit : {type.least, type.most_real, type.lone.value_or(type.most_real)}) {
    const std::string text = sim_key_number_text(limit);
    expect_stored(to, text.find_first_of(".e") == std::string::npos ? text + ".0" : text, limit);
  }
  for (const std::string &value : {std::string("inf"), std::string("-inf"), std::string("nan")}) {
    expect_refused(to, value);
  }
  if (type.max != sim_key_no_maximum) {
    expect_refused(to, std::to_string(type.max) + ".5");
  }
  if (type.min != sim_key_no_minimum) {
    expect_refused(to, std::to_string(type.min - 1) + (type.lone ? ".5" : ".0"));
  }
}

void check_text(const road &to, const sim_key_type &type) {
  const std::string longest(type.most, 'a');
  if (path_of(to) != "trace.file") {  // it would be read
    expect_stored(to, quoted(longest), longest);
  }
  expect_refused(to, quoted(longest + 'a'));
}

void check_word(const road &to, const sim_key_type &type) {
  for (const sim_key_word &word : type.words) {
    expect_stored(to, quoted(std::string(word.name)), std::string(word.name));
  }
  expect_refused(to, "\"no such word\"");
}

void check_crossing(const road &to, const sim_key_type &type) {
  expect_stored(to, "\"nas.79\"", "nas.79");
  expect_refused(to, "\"nas.81\"");
  if (type.fewest) {
    expect_refused(to, "\"\"");
  } else {
    expect_stored(to, "\"\"", "");
  }
}

void check_integers(const road &to, const sim_key_type &type) {
  for (const int64_t limit : {type.min, type.max}) {
    expect_stored(to, list_of(std::to_string(limit), type.most), std::vector<int64_t>(type.most, limit));
  }
  for (const std::string &value : beyond(type)) {
    expect_refused(to, list_of(value, type.most));
  }
  expect_refused(to, list_of("1", type.most + 1));
  if (type.fewest) {
    expect_refused(to, list_of("1", type.fewest - 1));
  } else {
    expect_stored(to, "[]", std::vector<int64_t>());
  }
}

void check_carriers(const road &to, const sim_key_type &type) {
  const std::vector<int64_t> inner(type.most_inner, type.max);
  const std::string limit = std::to_string(type.max);
  expect_stored(to, list_of(list_of(limit, type.most_inner), type.most),
                std::vector<std::vector<int64_t>>(type.most, inner));
  expect_refused(to, list_of("[]", type.most + 1));
  expect_refused(to, list_of(list_of("1", type.most_inner + 1), 1));
  for (const std::string &value : beyond(type)) {
    expect_refused(to, list_of(list_of(value, 1), 1));
  }
}

void check_tables(const road &to, const sim_key_type &type) {
  if (type.most != sim_key_no_limit) {
    const std::optional<sim_scenario> scenario = accepted(to, list_of("{}", type.most));
    EXPECT_EQ(scenario ? type.entries(record_of(*scenario, to)).size() : 0, type.most) << path_of(to);
    expect_refused(to, list_of("{}", type.most + 1));
  }
  expect_refused(to, "[1]");
  expect_refused(to, "{}");
}

void check_limits(const road &to) {
  const sim_key_type &type = to.back()->type;
  switch (type.kind) {
    case sim_key_kind::boolean:
      expect_stored(to, "true", true);
      expect_stored(to, "false", false);
      expect_refused(to, "1");
      return;
    case sim_key_kind::integer:
      return check_integer(to, type);
    case sim_key_kind::real:
    case sim_key_kind::time:
      return check_real(to, type);
    case sim_key_kind::measured:
      return check_measured(to, type);
    case sim_key_kind::text:
      return check_text(to, type);
    case sim_key_kind::word:
      return check_word(to, type);
    case sim_key_kind::crossing:
      return check_crossing(to, type);
    case sim_key_kind::flags:
      expect_stored(to, "[\"lte_sig_info_valid\"]", std::vector<std::string>{"lte_sig_info_valid"});
      return expect_refused(to, "[\"no_such_flag\"]");
    case sim_key_kind::bytes:
      expect_stored(to, "\"00fFa0\"", std::vector<int64_t>{0, 255, 160});
      return expect_refused(to, "\"0\"");
    case sim_key_kind::integers:
      return check_integers(to, type);
    case sim_key_kind::carriers:
      return check_carriers(to, type);
    case sim_key_kind::table:
      return expect_refused(to, "[]");
    case sim_key_kind::tables:
      return check_tables(to, type);
  }
}

TEST(sim_key_test, every_key_takes_its_limits_and_nothing_beyond) {
  for (const road &to : all_roads()) {
    SCOPED_TRACE(path_of(to));
    check_limits(to);
  }
}

TEST(sim_key_test, every_table_refuses_a_key_that_has_no_row) {
  const sim_key unknown = {.name = "q", .type = {.kind = sim_key_kind::integer}};
  for (road to : all_roads()) {
    const sim_key &table = *to.back();
    if (!table.type.keys) {
      continue;
    }
    to.push_back(&unknown);
    std::string error;
    EXPECT_FALSE(parse(scenario_with(to, "0"), error));
    const std::string place = std::string(table.name) + (table.type.kind == sim_key_kind::tables ? "[0]" : "");
    const std::string wrong = place + ".q: unknown key; the keys here are " + sim_key_names(table.type.keys());
    EXPECT_NE(error.find(wrong), std::string::npos) << error;
  }
}

TEST(sim_key_test, the_timeline_takes_the_keys_of_the_board) {
  int patches = 0;
  for (const sim_key &row : sim_keys_at()) {
    for (const sim_key &table : sim_keys_scenario()) {
      if (row.type.patch && row.name == table.name) {
        EXPECT_EQ(row.type.keys, table.type.keys) << row.name;
        ++patches;
      }
    }
  }
  EXPECT_EQ(patches, 5);
}

TEST(sim_key_test, a_key_that_is_needed_is_missed) {
  int needed = 0;
  for (const road &to : all_roads()) {
    if (to.back()->required) {
      const road table(to.begin(), to.end() - 1);
      std::string error;
      const bool list = table.back()->type.kind == sim_key_kind::tables;
      EXPECT_FALSE(parse(scenario_with(table, list ? "[{}]" : "{}"), error)) << path_of(to);
      ++needed;
    }
  }
  EXPECT_EQ(needed, 4);
}

// Defaults.

/** A scenario that gives nothing but, where the row stands in one that is not there by default, an entry or event. */
sim_scenario without(const road &to) {
  std::string text, error;
  for (road table = {to.begin(), to.end() - 1}; text.empty() && !table.empty(); table.pop_back()) {
    const sim_key &row = *table.back();
    const bool is_there = row.type.kind == sim_key_kind::table || row.initial == "[{}]";
    if (row.event || !is_there) {
      text = scenario_with(table, entry_of(table, companions_of(table, nullptr)));
    }
  }
  const std::optional<sim_scenario> scenario = parse(text, error);
  EXPECT_TRUE(scenario) << text << '\n' << error;
  return scenario.value_or(sim_scenario());
}

/** A default that was given is stored as the one that was not. */
void expect_default(const road &to, const sim_scenario &board) {
  const sim_key &row = *to.back();
  const std::optional<sim_scenario> given = accepted(to, std::string(row.initial));
  ASSERT_TRUE(given);
  const void *default_record = record_of(board, to), *given_record = record_of(*given, to);
  ASSERT_TRUE(default_record && given_record);
  if (row.type.load) {
    EXPECT_EQ(row.type.load(default_record), row.type.load(given_record));
  } else {
    EXPECT_EQ(row.type.entries(default_record).size(), row.type.entries(given_record).size());
  }
}

TEST(sim_key_test, every_documented_default_is_what_a_scenario_without_the_key_has) {
  for (const road &to : all_roads()) {
    SCOPED_TRACE(path_of(to));
    const sim_key &row = *to.back();
    if (!row.initial.empty()) {
      expect_default(to, without(to));
    } else if (row.type.load && !row.required && !row.event) {
      EXPECT_EQ(row.type.load(record_of(without(to), to)), sim_key_value()) << "has a default that no row tells";
    }
  }
}

TEST(sim_key_test, every_key_has_another_value_in_the_scenario_with_every_key) {
  std::string error;
  const std::string file = source_path("tests/data/scenarios/every_key.toml");
  const std::optional<sim_scenario> every = sim_scenario_load(file, error);
  ASSERT_TRUE(every) << error;
  for (const road &to : all_roads()) {
    const std::string path = path_of(to);
    if (!to.back()->type.load || to.back()->required || path == "trace.file") {  // a file has its own tests
      continue;
    }
    const void *record = record_of(*every, to);
    ASSERT_TRUE(record) << path;
    EXPECT_NE(to.back()->type.load(record), to.back()->type.load(record_of(without(to), to))) << path;
  }
}

}  // namespace
