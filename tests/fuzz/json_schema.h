/* SPDX-License-Identifier: Apache-2.0 */
/*
 * JSON held to a JSON schema: as much of the language as docs/lyn_watch.schema.json speaks. A word that is not known
 * here is an error, so that nothing is passed over.
 */
#ifndef JSON_SCHEMA_H
#define JSON_SCHEMA_H

#include <regex.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <string>

#include "fuzz.h"

/** What is wrong, the path first; empty: nothing. */
using json_schema_wrong = std::string;

struct json_schema {
  nlohmann::json root;

  json_schema_wrong wrong(const nlohmann::json &schema, const nlohmann::json &value) const;
};

/** One word of a schema: what is wrong about the value. */
using json_schema_word = json_schema_wrong (*)(const json_schema &all, const nlohmann::json &schema,
                                               const nlohmann::json &word, const nlohmann::json &value);

inline bool json_schema_is(const std::string &type, const nlohmann::json &value) {
  const bool integer =
      value.is_number_integer() || (value.is_number_float() && std::trunc(value.get<double>()) == value.get<double>());
  return (type == "object" && value.is_object()) || (type == "array" && value.is_array()) ||
         (type == "string" && value.is_string()) || (type == "boolean" && value.is_boolean()) ||
         (type == "number" && value.is_number()) || (type == "integer" && integer);
}

inline json_schema_wrong json_schema_said(bool wrong, const char *what) {
  return wrong ? std::string(": ") + what : "";
}

inline json_schema_wrong json_schema_properties(const json_schema &all, const nlohmann::json &,
                                                const nlohmann::json &word, const nlohmann::json &value) {
  for (const auto &[name, member] : value.items()) {
    const json_schema_wrong wrong = word.contains(name) ? all.wrong(word[name], member) : "";
    if (!wrong.empty()) {
      return '/' + name + wrong;
    }
  }
  return {};
}

/** The schema's own list of properties is all there may be. */
inline json_schema_wrong json_schema_no_others(const json_schema &, const nlohmann::json &schema,
                                               const nlohmann::json &word, const nlohmann::json &value) {
  fuzz_hold(word == false, "additionalProperties is false");
  for (const auto &[name, member] : value.items()) {
    if (!schema["properties"].contains(name)) {
      return '/' + name + ": unknown";
    }
  }
  return {};
}

inline json_schema_wrong json_schema_required(const json_schema &, const nlohmann::json &, const nlohmann::json &word,
                                              const nlohmann::json &value) {
  for (const std::string name : word) {
    if (!value.contains(name)) {
      return '/' + name + ": missing";
    }
  }
  return {};
}

/** Those behind the ones of `prefixItems`; false: there are none. */
inline json_schema_wrong json_schema_items(const json_schema &all, const nlohmann::json &schema,
                                           const nlohmann::json &word, const nlohmann::json &value) {
  const size_t before = schema.contains("prefixItems") ? schema["prefixItems"].size() : 0;
  for (size_t i = before; i < value.size(); ++i) {
    const json_schema_wrong wrong = word == false ? ": too many" : all.wrong(word, value[i]);
    if (!wrong.empty()) {
      return '/' + std::to_string(i) + wrong;
    }
  }
  return {};
}

inline json_schema_wrong json_schema_prefix(const json_schema &all, const nlohmann::json &, const nlohmann::json &word,
                                            const nlohmann::json &value) {
  for (size_t i = 0; i < std::min(word.size(), value.size()); ++i) {
    const json_schema_wrong wrong = all.wrong(word[i], value[i]);
    if (!wrong.empty()) {
      return '/' + std::to_string(i) + wrong;
    }
  }
  return {};
}

inline json_schema_wrong json_schema_any_of(const json_schema &all, const nlohmann::json &, const nlohmann::json &word,
                                            const nlohmann::json &value) {
  const auto fits = [&](const nlohmann::json &one) { return all.wrong(one, value).empty(); };
  return json_schema_said(std::none_of(word.begin(), word.end(), fits), "none of several");
}

inline json_schema_wrong json_schema_pattern(const json_schema &, const nlohmann::json &, const nlohmann::json &word,
                                             const nlohmann::json &value) {
  static auto *const compiled = new std::map<std::string, regex_t>;
  const auto [found, fresh] = compiled->try_emplace(word);
  fuzz_hold(!fresh || regcomp(&found->second, found->first.c_str(), REG_EXTENDED | REG_NOSUB) == 0, "a pattern is one");
  const bool fits = regexec(&found->second, value.get<std::string>().c_str(), 0, nullptr, 0) == 0;
  return json_schema_said(!fits, "not in its form");
}

inline json_schema_wrong json_schema_ref(const json_schema &all, const nlohmann::json &, const nlohmann::json &word,
                                         const nlohmann::json &value) {
  return all.wrong(all.root.at(nlohmann::json::json_pointer(word.get<std::string>().substr(1))), value);
}

template <typename compare>
json_schema_wrong json_schema_bound(const json_schema &, const nlohmann::json &, const nlohmann::json &word,
                                    const nlohmann::json &value) {
  return json_schema_said(compare()(value, word), "out of bounds");
}

template <typename compare>
json_schema_wrong json_schema_size(const json_schema &, const nlohmann::json &, const nlohmann::json &word,
                                   const nlohmann::json &value) {
  return json_schema_said(compare()(value.size(), word.get<size_t>()), "has not its size");
}

inline json_schema_wrong json_schema_nothing(const json_schema &, const nlohmann::json &, const nlohmann::json &,
                                             const nlohmann::json &) {
  return {};
}

inline const std::map<std::string, json_schema_word> &json_schema_words() {
  static const auto *const words = new std::map<std::string, json_schema_word>{
      {"$comment", json_schema_nothing},
      {"$defs", json_schema_nothing},
      {"$schema", json_schema_nothing},
      {"description", json_schema_nothing},
      {"title", json_schema_nothing},
      {"unit", json_schema_nothing},
      {"$ref", json_schema_ref},
      {"additionalProperties", json_schema_no_others},
      {"anyOf", json_schema_any_of},
      {"items", json_schema_items},
      {"maxItems", json_schema_size<std::greater<>>},
      {"maximum", json_schema_bound<std::greater<>>},
      {"minItems", json_schema_size<std::less<>>},
      {"minProperties", json_schema_size<std::less<>>},
      {"minimum", json_schema_bound<std::less<>>},
      {"pattern", json_schema_pattern},
      {"prefixItems", json_schema_prefix},
      {"properties", json_schema_properties},
      {"required", json_schema_required},
      {"const", [](const json_schema &, const nlohmann::json &, const nlohmann::json &word,
                   const nlohmann::json &value) { return json_schema_said(value != word, "another"); }},
      {"enum",
       [](const json_schema &, const nlohmann::json &, const nlohmann::json &word, const nlohmann::json &value) {
         return json_schema_said(std::find(word.begin(), word.end(), value) == word.end(), "none of its words");
       }},
      {"type",
       [](const json_schema &, const nlohmann::json &, const nlohmann::json &word, const nlohmann::json &value) {
         return json_schema_said(!json_schema_is(word, value), "not its type");
       }},
  };
  return *words;
}

inline json_schema_wrong json_schema::wrong(const nlohmann::json &schema, const nlohmann::json &value) const {
  if (schema.contains("type") && !json_schema_is(schema["type"], value)) {
    return ": not its type"; /* the other words are those of the type */
  }
  for (const auto &[name, word] : schema.items()) {
    const auto found = json_schema_words().find(name);
    fuzz_hold(found != json_schema_words().end(), "a word of the schema is known", name);
    const json_schema_wrong wrong = found->second(*this, schema, word, value);
    if (!wrong.empty()) {
      return wrong;
    }
  }
  return {};
}

#endif
