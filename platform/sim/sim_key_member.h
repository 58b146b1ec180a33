/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Where a key's value is stored: a member of a record, or a member of that. Values go to members, and back.
 */
#ifndef SIM_KEY_MEMBER_H
#define SIM_KEY_MEMBER_H

#include <algorithm>
#include <iterator>
#include <type_traits>

#include "sim_key.h"

// Members.

template <typename owner, typename value>
owner sim_key_owner_type(value owner::*);
template <typename owner, typename value>
value sim_key_value_type(value owner::*);

template <auto member>
using sim_key_owner = decltype(sim_key_owner_type(member));

/** The member of a record, `void` or `const void`. */
template <auto first, auto... rest, typename untyped>
auto &sim_key_member(untyped *record) {
  using owner = sim_key_owner<first>;
  auto &member = static_cast<std::conditional_t<std::is_const_v<untyped>, const owner, owner> *>(record)->*first;
  if constexpr (sizeof...(rest) == 0) {
    return member;
  } else {
    using inner = std::conditional_t<std::is_const_v<untyped>, const void, void>;
    return sim_key_member<rest...>(static_cast<inner *>(&member));
  }
}

template <auto... members>
using sim_key_member_type = std::remove_reference_t<decltype(sim_key_member<members...>(static_cast<void *>(nullptr)))>;

// Values to members, and back.

template <typename type>
void sim_key_put(type &to, const sim_key_value &value) {
  if constexpr (std::is_floating_point_v<type>) {
    to = static_cast<type>(std::get<double>(value));
  } else if constexpr (std::is_integral_v<type> && !std::is_same_v<type, bool>) {
    to = static_cast<type>(std::get<int64_t>(value));
  } else {
    to = std::get<type>(value);
  }
}

template <typename type>
void sim_key_put(std::optional<type> &to, const sim_key_value &value) {
  to.reset();
  if (!std::holds_alternative<std::monostate>(value)) {
    sim_key_put(to.emplace(), value);
  }
}

template <typename number, size_t count>
void sim_key_put(number (&to)[count], const sim_key_value &value) {
  const std::vector<int64_t> &from = std::get<std::vector<int64_t>>(value);
  std::transform(from.begin(), from.end(), to, [](int64_t one) { return static_cast<number>(one); });
}

template <typename number>
std::vector<number> sim_key_cast(const std::vector<int64_t> &from) {
  std::vector<number> to;
  std::transform(from.begin(), from.end(), std::back_inserter(to),
                 [](int64_t one) { return static_cast<number>(one); });
  return to;
}

template <typename number>
void sim_key_put(std::vector<number> &to, const sim_key_value &value) {
  to = sim_key_cast<number>(std::get<std::vector<int64_t>>(value));
}

inline void sim_key_put(std::vector<std::string> &to, const sim_key_value &value) {
  to = std::get<std::vector<std::string>>(value);
}

template <typename number>
void sim_key_put(std::vector<std::vector<number>> &to, const sim_key_value &value) {
  to.clear();
  for (const std::vector<int64_t> &from : std::get<std::vector<std::vector<int64_t>>>(value)) {
    to.push_back(sim_key_cast<number>(from));
  }
}

template <typename type>
sim_key_value sim_key_get(const type &from) {
  if constexpr (std::is_floating_point_v<type>) {
    return static_cast<double>(from);
  } else if constexpr (std::is_integral_v<type> && !std::is_same_v<type, bool>) {
    return static_cast<int64_t>(from);
  } else {
    return from;
  }
}

template <typename type>
sim_key_value sim_key_get(const std::optional<type> &from) {
  return from ? sim_key_get(*from) : sim_key_value();
}

template <typename number, size_t count>
sim_key_value sim_key_get(const number (&from)[count]) {
  return std::vector<int64_t>(std::begin(from), std::end(from));
}

template <typename number>
sim_key_value sim_key_get(const std::vector<number> &from) {
  return std::vector<int64_t>(from.begin(), from.end());
}

inline sim_key_value sim_key_get(const std::vector<std::string> &from) {
  return from;
}

template <typename number>
sim_key_value sim_key_get(const std::vector<std::vector<number>> &from) {
  std::vector<std::vector<int64_t>> lists;
  lists.reserve(from.size());
  for (const std::vector<number> &list : from) {
    lists.emplace_back(list.begin(), list.end());
  }
  return lists;
}

template <auto... members>
void sim_key_store(void *record, const sim_key_value &value) {
  sim_key_put(sim_key_member<members...>(record), value);
}

template <auto... members>
sim_key_value sim_key_load(const void *record) {
  return sim_key_get(sim_key_member<members...>(record));
}

#endif
