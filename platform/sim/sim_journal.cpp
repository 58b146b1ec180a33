/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The journal: every crossing of the platform boundary, one JSON object a line.
 *
 * A line is timed and written under one lock, so that the lines stand in the order of their times, and goes out with
 * one write, so that a process that is killed leaves whole lines.
 */
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "sim_diag.h"
#include "sim_journal.h"
#include "sim_state.h"

namespace {

struct sim_journal_state {
  std::mutex lock;
  sim_lines lines;
  bool keeping = false;
  std::vector<std::string> kept;
};

sim_journal_state &journal() {
  static sim_journal_state &state = *new sim_journal_state;
  return state;
}

std::atomic<bool> on;

std::string value_text(const nlohmann::ordered_json &value);

std::string members_text(const nlohmann::ordered_json &object) {
  std::string text;
  for (const auto &[name, value] : object.items()) {
    if (!text.empty()) {
      text += ", ";
    }
    text += nlohmann::ordered_json(name).dump() + ": " + value_text(value);
  }
  return text;
}

/** On one line with blanks after commas and colons, which the library does not offer. */
std::string value_text(const nlohmann::ordered_json &value) {
  if (value.is_object()) {
    return '{' + members_text(value) + '}';
  }
  if (!value.is_array()) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
  }
  std::string text;
  for (const nlohmann::ordered_json &entry : value) {
    text += (text.empty() ? "" : ", ") + value_text(entry);
  }
  return '[' + text + ']';
}

}  // namespace

bool sim_journal_on() {
  return on.load(std::memory_order_relaxed);
}

void sim_journal_open(std::vector<sim_file> &taken) {
  const char *file = getenv("LYN_SIM_JOURNAL");
  if (!file || !*file) {
    return;
  }
  std::string error;
  journal().lines.what = {"the journal", file};
  journal().lines.file = sim_file_create(journal().lines.what, taken, error);
  if (journal().lines.file < 0) {
    sim_give_up(error);
  }
  on = true;
}

void sim_journal_keep(bool keep) {
  const std::lock_guard guard(journal().lock);
  journal().keeping = keep;
  journal().kept.clear();
  on = keep || journal().lines.file >= 0;
}

void sim_journal_forget() {
  const std::lock_guard guard(journal().lock);
  journal().kept.clear();
}

std::vector<std::string> sim_journal_lines() {
  const std::lock_guard guard(journal().lock);
  return journal().kept;
}

void sim_journal_text(const char *lib, const char *dir, const char *name, const std::string &members, int64_t id) {
  if (!sim_journal_on()) {
    return;
  }
  const std::string number = id < 0 ? "" : "\"id\": " + std::to_string(id) + ", ";
  const std::lock_guard guard(journal().lock);
  char time[32];
  snprintf(time, sizeof time, "%.6f", sim_now());
  const std::string line = std::string("{\"t\": ") + time + ", \"lib\": \"" + lib + "\", \"dir\": \"" + dir + "\", " +
                           number + "\"name\": \"" + name + "\", \"fields\": {" + members + "}}";
  if (journal().keeping) {
    journal().kept.push_back(line);
  }
  sim_lines_add(journal().lines, line + '\n');
}

void sim_journal(const char *lib, const char *dir, const char *name, const nlohmann::ordered_json &fields, int64_t id) {
  if (sim_journal_on()) {
    sim_journal_text(lib, dir, name, members_text(fields), id);
  }
}

sim_fault_hit sim_call(const char *lib, const char *name, const nlohmann::ordered_json &fields) {
  return sim_call_text(lib, name, sim_journal_on() ? members_text(fields) : std::string());
}

void sim_call_return(const char *lib, const char *name, const nlohmann::ordered_json &fields) {
  sim_call_return_text(lib, name, sim_journal_on() ? members_text(fields) : std::string());
}
