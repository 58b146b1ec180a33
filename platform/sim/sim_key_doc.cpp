/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The tables of keys in Markdown, for docs/simulator.md: one row a key. A test holds the document to them.
 */
#include <algorithm>

#include "sim_key.h"

namespace {

/** "u16", "1 to 10", "from 0". */
std::string limits_text(const sim_key_type &type) {
  if (!type.wire.empty()) {
    return std::string(type.wire);
  }
  const std::string from = "from ", range = sim_key_range_text(type.min, type.max);
  const bool both = type.min != sim_key_no_minimum && type.max != sim_key_no_maximum;
  return both ? range.substr(from.size()) : range;
}

/** "up to 2 u32", "3 u8", "up to 11, each from 0". */
std::string list_text(const sim_key_type &type, size_t fewest, size_t most) {
  const std::string amount = (fewest == most ? "" : "up to ") + std::to_string(most);
  return amount + (type.wire.empty() ? ", each " : " ") + limits_text(type);
}

std::string capacity_text(size_t most, const std::string &what) {
  return most == sim_key_no_limit ? what : "up to " + std::to_string(most) + ' ' + what;
}

std::string allowed_text(const sim_key &row) {
  const sim_key_type &type = row.type;
  switch (type.kind) {
    case sim_key_kind::boolean:
      return "true, false";
    case sim_key_kind::integer:
      return limits_text(type);
    case sim_key_kind::real:
      return type.range.empty() ? limits_text(type) : sim_key_real_range_text(type);
    case sim_key_kind::time:
      return type.lone ? "time, -1" : "time";
    case sim_key_kind::measured:
      return limits_text(type) + ", absent";
    case sim_key_kind::text:
      return capacity_text(type.most, "octets");
    case sim_key_kind::word:
      return sim_key_word_names(type.words);
    case sim_key_kind::crossing:
      return "a [crossing](#faults)";
    case sim_key_kind::flags:
      return std::string(type.range);
    case sim_key_kind::bytes:
      return "hexadecimal digits";
    case sim_key_kind::integers:
      return list_text(type, type.fewest, type.most);
    case sim_key_kind::carriers:
      return capacity_text(type.most, "lists of ") + list_text(type, 0, type.most_inner);
    case sim_key_kind::table:
      return type.patch ? "keys of `" + std::string(row.name) + '`' : "a table";
    case sim_key_kind::tables:
      return capacity_text(type.most, "tables");
  }
  return "";
}

std::string cell(std::string_view text) {
  return text.empty() ? " |" : ' ' + std::string(text) + " |";
}

void add_keys(std::string &text, const std::string &path, sim_keys keys) {
  for (const sim_key &row : keys) {
    const std::string key = path + '.' + std::string(row.name);
    text += "| `" + key + "` |" + cell(row.required ? "needed" : row.initial) + cell(allowed_text(row)) +
            cell(row.text) + '\n';
    if (row.type.keys && !row.type.patch) {
      add_keys(text, key, row.type.keys());
    }
  }
}

}  // namespace

std::string sim_key_table_markdown(std::span<const std::string> tables) {
  std::string text = "| key | default | allowed | meaning |\n|---|---|---|---|\n";
  for (const sim_key &table : sim_keys_scenario()) {
    if (std::find(tables.begin(), tables.end(), table.name) != tables.end()) {
      add_keys(text, std::string(table.name), table.type.keys());
    }
  }
  return text;
}
