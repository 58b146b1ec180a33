/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the sweeps share, the tests that have one thing after another go wrong below each operation: the case, its run
 * from a board of its own to the proof that all works again, and the account of what was tried.
 *
 *   sweep_case one = sweep_case_of({operation_kind::get, 10});
 *   EXPECT_EQ(sweep_prepare(one, &hndl), "");
 *   ... something goes wrong ...
 *   const int32_t status = one.act(&hndl);
 *   EXPECT_EQ(sweep_prove_good(one, &hndl, status), "");
 *   sweep_tried(one.name, "allocation 3", text_of(status));
 *
 * Where LYN_FAULTS names a file, each thing tried is a line of it; tools/faults shows them.
 */
#ifndef SWEEP_H
#define SWEEP_H

#include <stdio.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "board.h"
#include "operations.h"

struct sweep_case {
  std::string group, name;
  std::string toml;                                /**< the board */
  std::vector<operation> before;                   /**< done while all is well */
  std::function<int32_t(ox_lyn_hndl_t *hndl)> act; /**< done while something goes wrong */
  std::function<bool(int32_t)> states;             /**< whether a status of `act` is stated */
  int32_t good = OX_LYN_SUCCESS;                   /**< the status while all is well */
  ox_lyn_user_cb_fn on_event = event_ignored;
  bool again = true;       /**< the same succeeds afterwards */
  int patience_ms = 30000; /**< then the module counts as locked */
};

inline std::ostream &operator<<(std::ostream &out, const sweep_case &one) {
  return out << one.name;
}

/** The name of a case in that of a test. */
inline std::string sweep_test_name(const sweep_case &one) {
  std::string name = one.group + "_" + one.name;
  std::ranges::replace_if(
      name, [](char c) { return isalnum(static_cast<unsigned char>(c)) == 0; }, '_');
  return name;
}

inline sweep_case sweep_case_of(const operation &one) {
  sweep_case made;
  made.group = operation_kinds[static_cast<size_t>(one.kind)].name;
  made.name = operation_name(one);
  made.toml = operation_board(one);
  if (one.kind != operation_kind::init) {
    made.before = {{operation_kind::init}};
  }
  for (const operation &before : operation_before(one)) {
    made.before.push_back(before);
  }
  made.act = [one](ox_lyn_hndl_t *hndl) { return operation_call(one, hndl); };
  made.states = [one](int32_t status) { return operation_states(one, status); };
  made.good = operation_good(one);
  /* What a list had started by then is busy; what a stop had stopped by then is down. */
  made.again = one.kind != operation_kind::list_all && one.kind != operation_kind::deinit;
  return made;
}

/** Standard output goes into a file while it lives: what module and demo client print. */
class sweep_printing {
 public:
  sweep_printing() : kept_(dup(STDOUT_FILENO)), file_(memfd_create("stdout", 0)) {
    fflush(stdout);
    dup2(file_, STDOUT_FILENO);
  }
  ~sweep_printing() {
    fflush(stdout);
    dup2(kept_, STDOUT_FILENO);
    close(kept_);
    close(file_);
  }
  sweep_printing(const sweep_printing &) = delete;
  sweep_printing &operator=(const sweep_printing &) = delete;

  std::string text() const {
    fflush(stdout);
    std::string all(static_cast<size_t>(lseek(file_, 0, SEEK_END)), '\0');
    all.resize(static_cast<size_t>(std::max<ssize_t>(0, pread(file_, all.data(), all.size(), 0))));
    return all;
  }

 private:
  int kept_, file_;
};

/** Until all that is due has been delivered, and all that this causes; the module may be down. */
inline void sweep_settle() {
  for (int round = 0; round < 2; round++) {
    if (!sim_board_wait_idle(30000)) {
      fputs("the board does not come to rest\n", stderr);
      abort();
    }
    if (lyn_is_initialised()) {
      const held_delivery drained;
    }
  }
}

/** Bring the module up, and what else the case needs. Returns what was wrong, or an empty text. */
inline std::string sweep_prepare(const sweep_case &one, ox_lyn_hndl_t *hndl) {
  const sweep_printing elsewhere;
  const std::string wrong = sim_board_load(one.toml);
  if (!wrong.empty()) {
    return wrong;
  }
  for (const operation &before : one.before) {
    const int32_t status = operation_call(before, hndl, one.on_event);
    if (status != OX_LYN_SUCCESS) {
      return text_of(operation_name(before), " gives ", status);
    }
    sweep_settle();
  }
  return "";
}

/** All works: the same, a good call, the end. Returns what does not, or an empty text. */
inline std::string sweep_prove(const sweep_case &one, ox_lyn_hndl_t *hndl, int32_t status) {
  if (one.again && status != one.good) {
    status = one.act(hndl);
    if (status != one.good) {
      return text_of("the second time gives ", status);
    }
  }
  for (const operation_kind kind : {operation_kind::init, operation_kind::get, operation_kind::deinit}) {
    if (kind == operation_kind::init && lyn_is_initialised()) {
      continue;
    }
    status = operation_call({kind, OX_LYN_GET_REG_STATUS_E}, hndl, one.on_event);
    if (status != OX_LYN_SUCCESS) {
      return text_of(operation_kinds[static_cast<size_t>(kind)].name, " gives ", status, " afterwards");
    }
  }
  return "";
}

/** The same, and the module is down, whatever came of it. */
inline std::string sweep_prove_good(const sweep_case &one, ox_lyn_hndl_t *hndl, int32_t status) {
  const sweep_printing elsewhere;
  const std::string wrong = sweep_prove(one, hndl, status);
  if (!wrong.empty() && lyn_is_initialised()) {
    ox_lyn_deinit(lyn_state.hndl);
  }
  return wrong;
}

/** What to do, what went wrong, and what came of it, into the file that LYN_FAULTS names. */
inline void sweep_tried(const std::string &name, const std::string &fault, const std::string &outcome) {
  static FILE *const file = [] {
    const char *wanted = getenv("LYN_FAULTS");
    return wanted != nullptr && *wanted != '\0' ? fopen(wanted, "a") : nullptr;
  }();
  if (file != nullptr) {
    fprintf(file, "%s\t%s\t%s\n", name.c_str(), fault.c_str(), outcome.c_str());
    fflush(file);
  }
}

#endif
