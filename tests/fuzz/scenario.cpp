/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any text as a scenario. Ends with an error where it is neither refused with a line that says where and why, nor gives
 * a scenario all of whose values are within the limits of their keys, also when the timeline's changes are in force;
 * and where the board does not take what the reader takes.
 */
#include <algorithm>
#include <charconv>

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

/** The row of this name; null: there is none. */
const sim_key *find_row(sim_keys keys, std::string_view name) {
  const auto found = std::find_if(keys.begin(), keys.end(), [name](const sim_key &row) { return row.name == name; });
  return found == keys.end() ? nullptr : &*found;
}

/** What a line "KEY = INTEGER" of a table says is what was loaded. */
void hold_line(const sim_scenario &scenario, const sim_key &table, std::string_view line) {
  const size_t middle = line.find(" = ");
  const sim_key *row = middle == line.npos ? nullptr : find_row(table.type.keys(), line.substr(0, middle));
  if (row == nullptr || row->type.load == nullptr || row->type.kind == sim_key_kind::text) {
    return;
  }
  const std::string_view digits = line.substr(middle + 3);
  int64_t said = 0;
  const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), said);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
    return;
  }
  const sim_key_value loaded = row->type.load(table.type.entries(&scenario).front());
  const auto *integer = std::get_if<int64_t>(&loaded);
  const auto *real = std::get_if<double>(&loaded);
  const auto rounded = static_cast<double>(static_cast<float>(said)); /* some are kept so */
  fuzz_hold((integer != nullptr && *integer == said) ||
                (real != nullptr && (*real == static_cast<double>(said) || *real == rounded)),
            "a number is loaded as it is written", line);
}

/** The lines of the scenario's plain tables; lines may also be those of a text. */
void hold_lines(const sim_scenario &scenario, std::string_view text) {
  if (text.find("\"\"\"") != text.npos || text.find("'''") != text.npos) {
    return;
  }
  const sim_key *table = nullptr;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    if (line.starts_with('[')) {
      table = line.ends_with(']') ? find_row(sim_keys_scenario(), line.substr(1, line.size() - 2)) : nullptr;
    } else if (table != nullptr && table->type.kind == sim_key_kind::table) {
      hold_line(scenario, *table, line);
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

extern "C" {

/* libFuzzer's own, where it is linked. */
__attribute__((weak)) size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t most);

/** Half the time one number becomes another: most other changes leave no scenario. */
size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t most, unsigned int seed) {
  constexpr std::string_view numbers[] = {"-1",    "0",     "1",          "255",      "256",
                                          "65535", "65536", "4294967296", "86400001", "0.5"};
  const std::string_view text = fuzz_text(data, size);
  const size_t begin = text.find_first_of("-0123456789", size == 0 ? 0 : seed / 32 % size);
  const size_t end = std::min(text.find_first_not_of("-.0123456789", begin), size);
  if (seed % 2 == 0 || begin == text.npos) {
    return LLVMFuzzerMutate(data, size, most);
  }
  std::string changed(text.substr(0, begin));
  changed.append(numbers[seed / 2 % std::size(numbers)]).append(text.substr(end));
  return changed.copy(reinterpret_cast<char *>(data), most);
}
}

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
  hold_lines(*scenario, text);
  apply_changes(*scenario);
  hold_table(&*scenario, sim_keys_scenario());
  return 0;
}
