/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Limits and names of keys as messages and the document write them.
 */
#include "sim_key.h"

#include <charconv>

namespace {

/** "a, b, c": the names of rows. */
template <typename rows>
std::string names_of(const rows &all) {
  std::string names;
  for (const auto &row : all) {
    names.append(names.empty() ? "" : ", ").append(row.name);
  }
  return names;
}

}  // namespace

std::string sim_key_range_text(int64_t min, int64_t max) {
  if (min == sim_key_no_minimum && max == sim_key_no_maximum) {
    return "any";
  }
  if (max == sim_key_no_maximum) {
    return "from " + std::to_string(min);
  }
  return "from " + std::to_string(min) + " to " + std::to_string(max);
}

std::string sim_key_number_text(double value) {
  char text[32];
  const std::to_chars_result end = std::to_chars(text, text + sizeof(text), value);
  return std::string(text, end.ptr);
}

std::string sim_key_real_range_text(const sim_key_type &type) {
  const std::string lone = type.lone ? sim_key_number_text(*type.lone) + ", or " : "";
  return lone + (type.range.empty() ? sim_key_range_text(type.min, type.max) : std::string(type.range));
}

std::string sim_key_names(sim_keys keys) {
  return names_of(keys);
}

std::string sim_key_word_names(std::span<const sim_key_word> words) {
  return names_of(words);
}
