/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any text as a scenario. Ends with an error where it is neither refused with a line that says where and why, nor gives
 * a scenario all of whose values are within the limits of their keys, also when the timeline's changes are in force;
 * and where the board does not take what the reader takes.
 */
#include <cmath>

#include "fuzz.h"
#include "sim_board.h"
#include "sim_key.h"
#include "sim_scenario.h"
#include "source_dir.h"

namespace {

void hold_integer(const sim_key &row, int64_t value) {
  fuzz_hold(value >= row.type.min && value <= row.type.max, "a number is within its limits", row.name);
}

/** The values of one key, by what they are. */
struct holder {
  const sim_key &row;

  void operator()(std::monostate) const {}
  void operator()(bool) const {}
  void operator()(int64_t value) const { hold_integer(row, value); }
  void operator()(double value) const {
    const bool within = value >= row.type.least && value <= row.type.most_real;
    fuzz_hold(within || value == row.type.lone, "a real number is within its limits", row.name);
  }
  void operator()(const std::string &text) const {
    bool known = row.type.words.empty();
    for (const sim_key_word &word : row.type.words) {
      known = known || text == word.name;
    }
    fuzz_hold(known && text.size() <= std::max(row.type.most, sim_key_longest_text), "a text is one of the key's",
              row.name);
  }
  void operator()(const std::vector<int64_t> &values) const {
    fuzz_hold(values.size() >= row.type.fewest && values.size() <= row.type.most, "a list has its length", row.name);
    for (const int64_t value : values) {
      if (row.type.kind == sim_key_kind::integers) {
        hold_integer(row, value);
      }
    }
  }
  void operator()(const std::vector<std::vector<int64_t>> &lists) const {
    fuzz_hold(lists.size() <= row.type.most, "a list of lists has its length", row.name);
    for (const auto &list : lists) {
      fuzz_hold(list.size() <= row.type.most_inner, "a list in a list has its length", row.name);
      for (const int64_t value : list) {
        hold_integer(row, value);
      }
    }
  }
  void operator()(const std::vector<std::string> &) const {}
};

void hold_table(const void *record, sim_keys keys) {
  for (const sim_key &row : keys) {
    if (row.type.patch) {
      continue; /* of the radio's tables, which are looked at when it is in force */
    }
    if (row.type.load != nullptr) {
      std::visit(holder{row}, row.type.load(record));
    }
    if (row.type.entries != nullptr) {
      const std::vector<const void *> entries = row.type.entries(record);
      fuzz_hold(row.type.kind == sim_key_kind::table || entries.size() <= row.type.most, "tables have their number",
                row.name);
      for (const void *entry : entries) {
        hold_table(entry, row.type.keys());
      }
    }
  }
}

/** The timeline's changes, one on top of the other. */
void apply_changes(sim_scenario &scenario) {
  for (const sim_timeline_entry &entry : scenario.at) {
    for (const sim_event &event : entry.events) {
      const auto *change = std::get_if<sim_ev_change>(&event);
      if (change != nullptr && change->apply) {
        change->apply(scenario.radio);
      }
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const std::string folder = source_path("tests/data");
  const std::string_view text = fuzz_text(data, size);
  std::string error;
  std::optional<sim_scenario> scenario = sim_scenario_parse(text, "fuzz", folder, error);
  fuzz_hold(scenario.has_value() == error.empty(), "a scenario is read or refused", error);
  const std::string refused = sim_board_load(text, folder);
  fuzz_hold(refused.empty() == scenario.has_value(), "the board takes what the reader takes", refused);
  if (!scenario) {
    fuzz_hold_error(error, "fuzz", text, true);
    return 0;
  }
  hold_table(&*scenario, sim_keys_scenario());
  apply_changes(*scenario);
  hold_table(&*scenario, sim_keys_scenario());
  return 0;
}
