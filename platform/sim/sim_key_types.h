/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the row of a key can be: templates over the member that stores its value. A member inside a member is named by
 * both: sim_key_number<&sim_location::fix, &Location::latitude>(-90, 90).
 */
#ifndef SIM_KEY_TYPES_H
#define SIM_KEY_TYPES_H

#include <type_traits>

#include "nas_service_v01.h"
#include "sim_key.h"
#include "sim_key_member.h"
#include "sim_scenario.h"

// Types of rows.

template <auto... members>
constexpr sim_key_type sim_key_plain(sim_key_kind kind) {
  return {.kind = kind, .store = sim_key_store<members...>, .load = sim_key_load<members...>};
}

template <typename number>
constexpr int64_t sim_key_lowest() {
  if constexpr (std::is_floating_point_v<number>) {
    return sim_key_no_minimum;
  } else {
    return static_cast<int64_t>(std::numeric_limits<number>::min());
  }
}

template <typename number>
constexpr int64_t sim_key_highest() {
  if constexpr (std::is_floating_point_v<number> || sizeof(number) == sizeof(int64_t)) {
    return sim_key_no_maximum;
  } else {
    return static_cast<int64_t>(std::numeric_limits<number>::max());
  }
}

/** "u8" to "i32"; wider ones are not counted to their end. */
template <typename number>
constexpr std::string_view sim_key_wire_name() {
  constexpr std::string_view names[][2] = {{"u8", "i8"}, {"u16", "i16"}, {"u32", "i32"}};
  if constexpr (std::is_integral_v<number> && sizeof(number) < sizeof(int64_t)) {
    return names[sizeof(number) / 2][std::is_signed_v<number>];
  } else {
    return {};
  }
}

/** The whole range of a number. */
template <typename number>
constexpr sim_key_type sim_key_any(sim_key_type type) {
  type.min = sim_key_lowest<number>();
  type.max = sim_key_highest<number>();
  type.wire = sim_key_wire_name<number>();
  if constexpr (std::is_floating_point_v<number>) {
    type.least = -static_cast<double>(std::numeric_limits<number>::max());
    type.most_real = static_cast<double>(std::numeric_limits<number>::max());
  }
  return type;
}

constexpr sim_key_type sim_key_between(sim_key_type type, int64_t min, int64_t max) {
  type.wire = {};
  type.min = min;
  if (min != sim_key_no_minimum) {
    type.least = static_cast<double>(min);
  }
  if (max != sim_key_no_maximum) {
    type.max = max;
    type.most_real = static_cast<double>(max);
  }
  return type;
}

/** A number of the member's whole range. */
template <auto... members>
constexpr sim_key_type sim_key_number() {
  using number = sim_key_member_type<members...>;
  const sim_key_kind kind = std::is_floating_point_v<number> ? sim_key_kind::real : sim_key_kind::integer;
  return sim_key_any<number>(sim_key_plain<members...>(kind));
}

template <auto... members>
constexpr sim_key_type sim_key_number(int64_t min, int64_t max = sim_key_no_maximum) {
  return sim_key_between(sim_key_number<members...>(), min, max);
}

/** A number that the scenario need not give. */
template <auto... members>
constexpr sim_key_type sim_key_given() {
  return sim_key_any<typename sim_key_member_type<members...>::value_type>(
      sim_key_plain<members...>(sim_key_kind::integer));
}

constexpr sim_key_type sim_key_as_time(sim_key_type type) {
  type.kind = sim_key_kind::time;
  return sim_key_between(type, 0, sim_key_longest_ms);
}

/** A time. */
template <auto... members>
constexpr sim_key_type sim_key_time() {
  return sim_key_as_time(sim_key_plain<members...>(sim_key_kind::time));
}

/** The same, or -1: never. No other negative number says so, it would be a slip. */
template <auto... members>
constexpr sim_key_type sim_key_time_or_never() {
  sim_key_type type = sim_key_time<members...>();
  type.lone = -1;
  return type;
}

/** A measured value: what the wire's type holds, or "absent". */
template <typename wire, auto... members>
constexpr sim_key_type sim_key_measured() {
  return sim_key_any<wire>(sim_key_plain<members...>(sim_key_kind::measured));
}

template <auto... members>
constexpr sim_key_type sim_key_boolean() {
  return sim_key_plain<members...>(sim_key_kind::boolean);
}

template <auto... members>
constexpr sim_key_type sim_key_text(size_t longest = sim_key_longest_text) {
  sim_key_type type = sim_key_plain<members...>(sim_key_kind::text);
  type.most = longest;
  return type;
}

template <const auto &words, auto... members>
void sim_key_store_word(void *record, const sim_key_value &value) {
  auto &member = sim_key_member<members...>(record);
  for (const sim_key_word &word : words) {
    if (word.name == std::get<std::string>(value)) {
      member = static_cast<sim_key_member_type<members...>>(word.value);
    }
  }
}

template <const auto &words, auto... members>
sim_key_value sim_key_load_word(const void *record) {
  for (const sim_key_word &word : words) {
    if (word.value == static_cast<int>(sim_key_member<members...>(record))) {
      return std::string(word.name);
    }
  }
  return {};
}

/** One of a few words; the member is a text, or what the words mean. */
template <const auto &words, auto... members>
constexpr sim_key_type sim_key_choice() {
  sim_key_type type = {.kind = sim_key_kind::word, .most = sim_key_longest_text, .words = words};
  if constexpr (std::is_same_v<sim_key_member_type<members...>, std::string>) {
    type.store = sim_key_store<members...>;
    type.load = sim_key_load<members...>;
  } else {
    type.store = sim_key_store_word<words, members...>;
    type.load = sim_key_load_word<words, members...>;
  }
  return type;
}

template <auto... members>
constexpr sim_key_type sim_key_crossing(bool may_be_empty) {
  sim_key_type type = sim_key_plain<members...>(sim_key_kind::crossing);
  type.most = sim_key_longest_text;
  type.fewest = may_be_empty ? 0 : 1;
  return type;
}

/** A list of numbers, at most `most`. */
template <auto... members>
constexpr sim_key_type sim_key_integers(size_t most) {
  using number = typename sim_key_member_type<members...>::value_type;
  sim_key_type type = sim_key_any<number>(sim_key_plain<members...>(sim_key_kind::integers));
  type.most = most;
  return type;
}

/** An array: exactly as many numbers as it has. */
template <auto... members>
constexpr sim_key_type sim_key_array() {
  using array = sim_key_member_type<members...>;
  sim_key_type type = sim_key_any<std::remove_extent_t<array>>(sim_key_plain<members...>(sim_key_kind::integers));
  type.most = type.fewest = std::extent_v<array>;
  return type;
}

template <auto... members>
constexpr sim_key_type sim_key_carriers(size_t most) {
  using number = typename sim_key_member_type<members...>::value_type::value_type;
  sim_key_type type = sim_key_any<number>(sim_key_plain<members...>(sim_key_kind::carriers));
  type.most = most;
  type.most_inner = YRP_NAS_CW_MAX;
  return type;
}

// Entries as a whole, each in the file of its keys.

std::optional<sim_key_wrong> sim_key_wrong_at(const sim_timeline_entry &entry);
std::optional<sim_key_wrong> sim_key_wrong_fault(const sim_fault_rule &rule);

// Tables inside tables.

/** The rows of a table of the same file. */
template <const auto &rows>
sim_keys sim_keys_of() {
  return rows;
}

template <auto... members>
void sim_key_fill_table(void *record, const std::vector<sim_key_change> &changes) {
  for (const sim_key_change &change : changes) {
    change(&sim_key_member<members...>(record));
  }
}

template <auto... members>
std::vector<const void *> sim_key_table_entry(const void *record) {
  return {&sim_key_member<members...>(record)};
}

template <auto... members>
constexpr sim_key_type sim_key_table(sim_keys (*keys)()) {
  return {.kind = sim_key_kind::table,
          .keys = keys,
          .fill = sim_key_fill_table<members...>,
          .entries = sim_key_table_entry<members...>};
}

template <typename entry>
std::vector<entry> sim_key_made(const std::vector<sim_key_change> &changes) {
  std::vector<entry> made;
  for (const sim_key_change &change : changes) {
    change(&made.emplace_back());
  }
  return made;
}

template <typename entry>
std::vector<const void *> sim_key_addresses(const std::vector<entry> &list) {
  std::vector<const void *> all;
  all.reserve(list.size());
  for (const entry &one : list) {
    all.push_back(&one);
  }
  return all;
}

template <auto... members>
void sim_key_fill_tables(void *record, const std::vector<sim_key_change> &changes) {
  auto &list = sim_key_member<members...>(record);
  list = sim_key_made<typename sim_key_member_type<members...>::value_type>(changes);
}

template <auto... members>
std::vector<const void *> sim_key_table_entries(const void *record) {
  return sim_key_addresses(sim_key_member<members...>(record));
}

template <auto... members>
constexpr sim_key_type sim_key_tables(sim_keys (*keys)(), size_t most = sim_key_no_limit) {
  return {.kind = sim_key_kind::tables,
          .most = most,
          .keys = keys,
          .fill = sim_key_fill_tables<members...>,
          .entries = sim_key_table_entries<members...>};
}

/** The same, where `wrong` says what is wrong with an entry as a whole. */
template <auto wrong, auto... members>
constexpr sim_key_type sim_key_checked_tables(sim_keys (*keys)()) {
  sim_key_type type = sim_key_tables<members...>(keys);
  type.check = [](const sim_key_change &change) {
    typename sim_key_member_type<members...>::value_type entry;
    change(&entry);
    return wrong(entry);
  };
  return type;
}

#endif
