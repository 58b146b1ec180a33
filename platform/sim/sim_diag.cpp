/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The diagnostic service: writes the records of LYN_SIM_DIAG=FILE, one a line; without the variable a record costs one
 * branch. Records are taken before the first Diag_LSM_Init too, so that its failure can be read.
 */
#include "diag_service.h"

#include <unistd.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "sim_diag.h"
#include "sim_state.h"

namespace {

struct sim_diag_state {
  std::mutex lock;
  sim_lines lines;
};

sim_diag_state &diag() {
  static sim_diag_state &state = *new sim_diag_state;  // never destroyed: records come while the process ends
  return state;
}

std::atomic<bool> dropping;

const char *level_name(uint32_t level) {
  if (level == DIAG_LEVEL_HIGH) {
    return "HIGH";
  }
  return level == DIAG_LEVEL_ERROR ? "ERROR" : "LEVEL?";
}

std::string text_of(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  if (length < 0) {
    return "(format)";
  }
  std::string text(static_cast<size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

void add_escaped(std::string &line, const std::string &text) {
  for (const char c : text) {
    if (c == '\n') {
      line += "\\n";
    } else {
      line += c;
    }
  }
}

int answer(const char *name) {
  const sim_fault_hit fault = sim_call_text("diag", name, "");
  const int ok = sim_fault_status(fault) == 0 && !(fault.has_result && fault.result != 0);
  sim_call_return_text("diag", name, ok ? "\"ok\": true" : "\"ok\": false");
  return ok;
}

}  // namespace

void sim_diag_open(std::vector<sim_file> &taken) {
  const char *file = getenv("LYN_SIM_DIAG");
  if (!file || !*file) {
    dropping = true;
    return;
  }
  std::string error;
  sim_lines &lines = diag().lines;
  lines.what = {"the diagnostic log", file};
  lines.file = strcmp(file, "-") == 0 ? STDERR_FILENO : sim_file_create(lines.what, taken, error);
  if (lines.file < 0) {
    sim_give_up(error);
  }
}

int Diag_LSM_Init(void *) {
  return answer("Diag_LSM_Init");
}

int Diag_LSM_DeInit(void) {
  return answer("Diag_LSM_DeInit");
}

void msg_sprintf(const diag_msg_record_t *record, ...) {
  if (dropping.load(std::memory_order_relaxed)) {
    return;
  }
  sim_board();
  va_list arguments;
  va_start(arguments, record);
  const std::string text = text_of(record->format, arguments);
  va_end(arguments);

  std::string line = std::string(level_name(record->level)) + ' ' + record->file + ':' + std::to_string(record->line);
  line += ' ';
  add_escaped(line, text);
  line += '\n';
  const std::lock_guard guard(diag().lock);
  sim_lines_add(diag().lines, line);
}
