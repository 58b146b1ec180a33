/* SPDX-License-Identifier: Apache-2.0 */
/*
 * One function for each kind of key: it checks the value and returns the change that stores it, or nothing after an
 * error.
 */
#include "sim_key_read.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "sim_crossing.h"

namespace {

bool stands_before(const toml::source_position &a, const toml::source_position &b) {
  return a.line != b.line ? a.line < b.line : a.column < b.column;
}

std::string type_text(const toml::node &node) {
  switch (node.type()) {
    case toml::node_type::none:
      return "nothing";
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a number with a fraction";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::date:
    case toml::node_type::time:
    case toml::node_type::date_time:
      return "a date or time";
  }
  return "nothing";
}

void fail_type(sim_key_reader &in, const toml::node &node, const std::string &path, const std::string &wanted) {
  sim_key_fail(in, node, path, type_text(node) + ", where " + wanted + " is allowed");
}

std::string entry_path(const std::string &path, size_t at) {
  return path + '[' + std::to_string(at) + ']';
}

// Values.

std::optional<int64_t> read_integer(sim_key_reader &in, const std::string &path, const toml::node &node,
                                    const sim_key_type &type) {
  const std::string range = sim_key_range_text(type.min, type.max);
  if (!node.is_integer()) {
    const char *absent = type.kind == sim_key_kind::measured ? " or \"absent\"" : "";
    fail_type(in, node, path, "an integer (" + range + ")" + absent);
    return {};
  }
  const int64_t value = node.as_integer()->get();
  if (value >= type.min && value <= type.max) {
    return value;
  }
  sim_key_fail(in, node, path, std::to_string(value) + " is out of range (" + range + ")");
  return {};
}

std::optional<double> read_real(sim_key_reader &in, const std::string &path, const toml::node &node,
                                const sim_key_type &type) {
  if (!node.is_number()) {
    fail_type(in, node, path, "a number (" + sim_key_real_range_text(type) + ")");
    return {};
  }
  const double value =
      node.is_integer() ? static_cast<double>(node.as_integer()->get()) : node.as_floating_point()->get();
  if (value == type.lone || (value >= type.least && value <= type.most_real)) {
    return value;
  }
  sim_key_fail(in, node, path, sim_key_number_text(value) + " is out of range (" + sim_key_real_range_text(type) + ")");
  return {};
}

std::optional<std::string> read_text(sim_key_reader &in, const std::string &path, const toml::node &node,
                                     size_t longest) {
  if (!node.is_string()) {
    fail_type(in, node, path, "a text");
    return {};
  }
  const std::string &value = node.as_string()->get();
  if (value.size() > longest) {
    sim_key_fail(
        in, node, path,
        "a text of " + std::to_string(value.size()) + " octets, at most " + std::to_string(longest) + " are allowed");
    return {};
  }
  if (value.find('\0') != std::string::npos) {
    sim_key_fail(in, node, path, "a text that holds the character 0");
    return {};
  }
  return value;
}

std::optional<std::string> read_word(sim_key_reader &in, const std::string &path, const toml::node &node,
                                     const sim_key_type &type) {
  const std::string allowed = sim_key_word_names(type.words);
  if (!node.is_string()) {
    fail_type(in, node, path, "one of the texts " + allowed);
    return {};
  }
  std::optional<std::string> name = read_text(in, path, node, type.most);
  if (!name) {
    return {};
  }
  if (std::any_of(type.words.begin(), type.words.end(), [&name](const auto &word) { return word.name == *name; })) {
    return name;
  }
  sim_key_fail(in, node, path, "\"" + *name + "\" is none of " + allowed);
  return {};
}

std::optional<std::string> read_crossing(sim_key_reader &in, const std::string &path, const toml::node &node,
                                         const sim_key_type &type) {
  std::optional<std::string> name = read_text(in, path, node, type.most);
  if (!name || (name->empty() && type.fewest == 0)) {
    return name;
  }
  if (const std::optional<std::string> wrong = sim_crossing_wrong(*name)) {
    sim_key_fail(in, node, path, *wrong);
  }
  return name;
}

std::optional<int64_t> hex_octet(std::string_view digits) {
  uint8_t octet = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), octet, 16);
  const bool whole = digits.size() == 2 && end.ec == std::errc() && end.ptr == digits.data() + digits.size();
  return whole ? std::optional<int64_t>(octet) : std::nullopt;
}

std::optional<std::vector<int64_t>> read_bytes(sim_key_reader &in, const std::string &path, const toml::node &node) {
  const std::optional<std::string> digits = read_text(in, path, node, sim_key_no_limit);
  if (!digits) {
    return {};
  }
  std::vector<int64_t> bytes;
  for (size_t at = 0; at < digits->size(); at += 2) {
    const std::optional<int64_t> octet = hex_octet(std::string_view(*digits).substr(at, 2));
    if (!octet) {
      sim_key_fail(in, node, path, "two hexadecimal digits are needed for each octet");
      return {};
    }
    bytes.push_back(*octet);
  }
  return bytes;
}

// Lists. An entry that is wrong leaves an empty one, so that the others keep their places.

/** The list, when it is one of at most `most` entries. */
const toml::array *read_list(sim_key_reader &in, const std::string &path, const toml::node &node, size_t most) {
  const toml::array *list = node.as_array();
  if (!list) {
    fail_type(in, node, path, "a list");
    return nullptr;
  }
  if (list->size() <= most) {
    return list;
  }
  sim_key_fail(in, node, path,
               std::to_string(list->size()) + " entries, at most " + std::to_string(most) + " are allowed");
  return nullptr;
}

/** Every entry, as `read_one` reads it. */
template <typename value, typename function>
std::optional<std::vector<value>> read_entries(sim_key_reader &in, const std::string &path, const toml::node &node,
                                               size_t most, const function &read_one) {
  const toml::array *list = read_list(in, path, node, most);
  if (!list) {
    return {};
  }
  std::vector<value> values;
  for (const toml::node &entry : *list) {
    values.push_back(read_one(entry_path(path, values.size()), entry).value_or(value()));
  }
  return values;
}

std::optional<std::vector<int64_t>> read_integers(sim_key_reader &in, const std::string &path, const toml::node &node,
                                                  const sim_key_type &type, size_t most) {
  return read_entries<int64_t>(in, path, node, most, [&in, &type](const std::string &place, const toml::node &entry) {
    return read_integer(in, place, entry, type);
  });
}

std::optional<std::vector<int64_t>> read_integer_list(sim_key_reader &in, const std::string &path,
                                                      const toml::node &node, const sim_key_type &type) {
  std::optional<std::vector<int64_t>> values = read_integers(in, path, node, type, type.most);
  if (!values || values->size() >= type.fewest) {
    return values;
  }
  sim_key_fail(in, node, path,
               std::to_string(values->size()) + " entries, " + std::to_string(type.fewest) + " are needed");
  return {};
}

std::optional<std::vector<std::vector<int64_t>>> read_carriers(sim_key_reader &in, const std::string &path,
                                                               const toml::node &node, const sim_key_type &type) {
  return read_entries<std::vector<int64_t>>(in, path, node, type.most,
                                            [&in, &type](const std::string &place, const toml::node &entry) {
                                              return read_integers(in, place, entry, type, type.most_inner);
                                            });
}

std::optional<std::vector<std::string>> read_flags(sim_key_reader &in, const std::string &path, const toml::node &node,
                                                   const sim_key_type &type) {
  return read_entries<std::string>(in, path, node, type.most, [&in](const std::string &place, const toml::node &entry) {
    return read_text(in, place, entry, sim_key_longest_text);
  });
}

// Tables.

void check_names(sim_key_reader &in, const std::string &prefix, const toml::table &table, sim_keys keys) {
  for (const auto &[key, value] : table) {
    const std::string_view name = key.str();
    if (std::none_of(keys.begin(), keys.end(), [name](const sim_key &row) { return row.name == name; })) {
      sim_key_fail(in, key.source().begin,
                   prefix + std::string(name) + ": unknown key; the keys here are " + sim_key_names(keys));
    }
  }
}

void check_needed(sim_key_reader &in, const std::string &path, const toml::table &table, sim_keys keys) {
  for (const sim_key &row : keys) {
    if (row.required && !table.contains(row.name)) {
      sim_key_fail(in, table, path, "the key " + std::string(row.name) + " is missing");
    }
  }
  const bool has_events = std::any_of(keys.begin(), keys.end(), [](const sim_key &row) { return row.event; });
  const auto is_given = [&table](const sim_key &row) { return row.event && table.contains(row.name); };
  if (has_events && std::none_of(keys.begin(), keys.end(), is_given)) {
    sim_key_fail(in, table, path, "an entry without an event");
  }
}

/** What a check of the whole found is said at the key, which holds a right value. */
void fail_entry(sim_key_reader &in, const std::string &path, const toml::node &node, const sim_key_wrong &wrong) {
  const toml::node *place = node.as_table()->get(wrong.key);
  std::string place_path = path + '.' + std::string(wrong.key);
  if (wrong.at) {
    place = place->as_array()->get(*wrong.at);
    place_path = entry_path(place_path, *wrong.at);
  }
  sim_key_fail(in, *place, place_path, wrong.text);
}

sim_key_change read_entry(sim_key_reader &in, const std::string &path, const toml::node &node,
                          const sim_key_type &type) {
  sim_key_change change = sim_key_read_table(in, path, node, type.keys());
  if (!change) {
    return [](void *) {};
  }
  if (type.check) {
    if (const std::optional<sim_key_wrong> wrong = type.check(change)) {
      fail_entry(in, path, node, *wrong);
    }
  }
  return change;
}

sim_key_change fill(const sim_key_type &type, std::vector<sim_key_change> changes) {
  return [&type, changes = std::move(changes)](void *record) { type.fill(record, changes); };
}

sim_key_change read_one_table(sim_key_reader &in, const std::string &path, const toml::node &node,
                              const sim_key_type &type) {
  const bool patching = std::exchange(in.patching, in.patching || type.patch);
  sim_key_change change = sim_key_read_table(in, path, node, type.keys());
  in.patching = patching;
  return change ? fill(type, {std::move(change)}) : sim_key_change();
}

sim_key_change read_tables(sim_key_reader &in, const std::string &path, const toml::node &node,
                           const sim_key_type &type) {
  std::optional<std::vector<sim_key_change>> changes = read_entries<sim_key_change>(
      in, path, node, type.most, [&in, &type](const std::string &place, const toml::node &entry) {
        return std::optional(read_entry(in, place, entry, type));
      });
  return changes ? fill(type, *std::move(changes)) : sim_key_change();
}

template <typename value>
sim_key_change store(const sim_key_type &type, std::optional<value> read) {
  if (!read) {
    return {};
  }
  return [&type, read = sim_key_value(*std::move(read))](void *record) { type.store(record, read); };
}

sim_key_change read_value(sim_key_reader &in, const std::string &path, const toml::node &node,
                          const sim_key_type &type) {
  switch (type.kind) {
    case sim_key_kind::boolean:
      if (!node.is_boolean()) {
        fail_type(in, node, path, "a boolean");
        return {};
      }
      return store(type, std::optional(node.as_boolean()->get()));
    case sim_key_kind::measured:
      if (node.is_string() && node.as_string()->get() == "absent") {
        return store(type, std::optional(std::monostate()));
      }
      return store(type, read_integer(in, path, node, type));
    case sim_key_kind::integer:
      return store(type, read_integer(in, path, node, type));
    case sim_key_kind::real:
    case sim_key_kind::time:
      return store(type, read_real(in, path, node, type));
    case sim_key_kind::text:
      return store(type, read_text(in, path, node, type.most));
    case sim_key_kind::word:
      return store(type, read_word(in, path, node, type));
    case sim_key_kind::crossing:
      return store(type, read_crossing(in, path, node, type));
    case sim_key_kind::flags:
      return store(type, read_flags(in, path, node, type));
    case sim_key_kind::bytes:
      return store(type, read_bytes(in, path, node));
    case sim_key_kind::integers:
      return store(type, read_integer_list(in, path, node, type));
    case sim_key_kind::carriers:
      return store(type, read_carriers(in, path, node, type));
    case sim_key_kind::table:
      return read_one_table(in, path, node, type);
    case sim_key_kind::tables:
      return read_tables(in, path, node, type);
  }
  return {};
}

}  // namespace

void sim_key_fail(sim_key_reader &in, const toml::source_position &at, const std::string &text) {
  if (!in.error.empty() && !stands_before(at, in.at)) {
    return;
  }
  in.error = text;
  in.at = at;
}

void sim_key_fail(sim_key_reader &in, const toml::node &node, const std::string &path, const std::string &text) {
  sim_key_fail(in, node.source().begin, path + ": " + text);
}

sim_key_change sim_key_read_table(sim_key_reader &in, const std::string &path, const toml::node &node, sim_keys keys) {
  const toml::table *table = node.as_table();
  if (!table) {
    fail_type(in, node, path, "a table with the keys " + sim_key_names(keys));
    return {};
  }
  const std::string prefix = path.empty() ? "" : path + '.';
  check_names(in, prefix, *table, keys);
  check_needed(in, path, *table, keys);
  std::vector<sim_key_change> changes;
  for (const sim_key &row : keys) {
    const toml::node *value = table->get(row.name);
    if (!value) {
      continue;
    }
    const std::string key_path = prefix + std::string(row.name);
    if (in.patching && row.traced) {
      in.traced.push_back({value->source().begin, key_path});
    }
    if (sim_key_change change = read_value(in, key_path, *value, row.type)) {
      changes.push_back(std::move(change));
    }
  }
  return [changes = std::move(changes)](void *record) {
    for (const sim_key_change &change : changes) {
      change(record);
    }
  };
}
