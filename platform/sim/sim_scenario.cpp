/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Whole scenarios: the text, its keys by the rows of sim_key.h, and the drive test that it names.
 */
#include "sim_scenario.h"

#include <cctype>
#include <cstring>
#include <exception>
#include <filesystem>

#include "sim_file.h"
#include "sim_key_read.h"

namespace {

constexpr size_t longest_scenario = 16 << 20;  // octets of a file

/** The parts of a key, "a.b.c", become tables within tables, and the parser has no limit to them but the stack. */
constexpr size_t most_parts = 100;

/** The line of a key with more parts. */
std::optional<toml::source_index> deep_key(std::string_view text) {
  toml::source_index line = 1;
  size_t parts = 0;
  bool named = false;  // the part has begun
  for (const char octet : text) {
    const bool of_name = isalnum(static_cast<unsigned char>(octet)) || strchr("-_\"'", octet);
    if (octet == '.' && named && ++parts >= most_parts) {
      return line;
    }
    if (octet != '.' && octet != ' ' && octet != '\t' && !of_name) {
      parts = 0;
    }
    if (octet != ' ' && octet != '\t') {
      named = of_name;
    }
    if (octet == '\n') {
      ++line;
    }
  }
  return {};
}

std::string located(const std::string &origin, const toml::source_position &at, std::string_view text) {
  std::string place = origin;
  if (at.line) {
    place += ':' + std::to_string(at.line) + ':' + std::to_string(at.column);
  }
  return sim_one_line(place + ": " + std::string(text));
}

void load_trace(sim_key_reader &in, const toml::table &root, const std::string &folder, sim_scenario &scenario) {
  if (scenario.trace.file.empty()) {
    return;
  }
  for (const sim_key_traced &key : in.traced) {
    sim_key_fail(in, key.at, key.path + ": the trace owns this value, the timeline cannot set it");
  }
  if (!in.error.empty()) {
    return;
  }
  scenario.trace.file = (std::filesystem::path(folder) / scenario.trace.file).string();
  std::string error;
  std::optional<std::vector<sim_trace_row>> rows = sim_trace_load(scenario.trace.file, error);
  if (rows) {
    scenario.rows = *std::move(rows);
  } else {
    sim_key_fail(in, *root["trace"]["file"].node(), "trace.file", error);
  }
}

std::optional<sim_scenario> read_scenario(std::string_view text, const std::string &origin, const std::string &folder,
                                          std::string &error) {
  if (const std::optional<toml::source_index> line = deep_key(text)) {
    error = located(origin, {*line, 1}, "a key of more than " + std::to_string(most_parts) + " parts");
    return {};
  }
  const toml::table root = toml::parse(text, origin);
  sim_key_reader in;
  const sim_key_change fill = sim_key_read_table(in, "", root, sim_keys_scenario());
  sim_scenario scenario = sim_scenario_default();
  scenario.origin = origin;
  if (in.error.empty()) {
    fill(&scenario);
  }
  if (const toml::node *file = root["trace"]["file"].node(); file && file->is_string()) {
    scenario.trace.file = file->as_string()->get();  // also where another key is wrong: the first error counts
    load_trace(in, root, folder, scenario);
  }
  if (in.error.empty()) {
    return scenario;
  }
  error = located(origin, in.at, in.error);
  return {};
}

}  // namespace

sim_scenario sim_scenario_default() {
  sim_scenario scenario;
  scenario.radio.lte.neighbour.emplace_back();
  scenario.radio.nr5g.neighbour.emplace_back();
  scenario.wwan.profile.emplace_back();
  scenario.wwan.stats.emplace_back();
  return scenario;
}

std::optional<sim_scenario> sim_scenario_parse(std::string_view text, const std::string &origin,
                                               const std::string &folder, std::string &error) {
  try {
    return read_scenario(text, origin, folder, error);
  } catch (const toml::parse_error &broken) {
    error = located(origin, broken.source().begin, broken.description());
  } catch (const std::exception &other) {
    error = located(origin, {}, other.what());
  }
  return {};
}

std::optional<sim_scenario> sim_scenario_load(const std::string &file, std::string &error) {
  try {
    const std::optional<std::string> text = sim_file_read(file, longest_scenario, error);
    if (text) {
      return sim_scenario_parse(*text, file, std::filesystem::path(file).parent_path().string(), error);
    }
  } catch (const std::exception &other) {
    error = sim_one_line(file + ": " + other.what());
  }
  return {};
}
