/* SPDX-License-Identifier: Apache-2.0 */
// The demo client: a console for every operation of the Device Manager API, driven by a menu or by a script.
//
// An option line ("7 10") is parsed and dispatched by lyn_demo.cpp. Each option has a handler, which calls one
// operation of the API and prints what came of it: lyn_demo_control.cpp has options 1 to 6 and 10, lyn_demo_metric.cpp
// 7 and 8, lyn_demo_set.cpp 9. Questions are asked through lyn_demo_prompt.h; lyn_demo_cb.cpp prints what the module
// reports on its own. Everything is said on standard output: a message without a line break of its own goes through
// puts.
#ifndef LYN_DEMO_H
#define LYN_DEMO_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>

#include "ox_lyn.h"

enum {
  LYN_DEMO_MAX_OPTIONS = 100,  // values on one option line, the option number included
  LYN_DEMO_LINE_LEN = 300,     // interactive option line, terminator included
};

// Owner of a block that came from malloc or calloc, ours or the module's.
struct lyn_demo_free_t {
  void operator()(void *block) const { free(block); }
};
template <typename T>
using lyn_demo_block_t = std::unique_ptr<T, lyn_demo_free_t>;

// True: row n of a table is that of enumerator n.
template <typename Row, size_t N>
constexpr bool lyn_demo_in_order(const Row (&rows)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (rows[i].id != i) {
      return false;
    }
  }
  return true;
}

// Entries of a list that may be read, whatever its count says.
constexpr int lyn_demo_bounded(uint32_t count, size_t capacity) {
  return static_cast<int>(count < capacity ? count : capacity);
}

// options[0] is the option number, count includes it and is at least 1. Returns the API's status, 0 for an argument
// error that was reported, -1 for an abandoned prompt sequence; anything but 0 ends a scripted run.
typedef int32_t (*lyn_demo_handler_fn)(const int32_t *options, uint32_t count);

// One option: its line in the menu, its line on the usage screen (null: none) and what it does.
struct lyn_demo_option_t {
  const char *menu;
  const char *usage = nullptr;
  lyn_demo_handler_fn handler;
};

extern ox_lyn_hndl_t lyn_demo_hndl;                               // drawn by option 1, given by every other option
extern const std::array<lyn_demo_option_t, 10> lyn_demo_options;  // option n is row n - 1

// Main loop. A script that is given is run in the place of the automatic test file, and closed. Returns 0 on every path
// on which it returns.
int lyn_demo_main(FILE *script);
void lyn_demo_sigterm_handler(int signal_number);
// Tokenises line in place. Returns 0, or 1 when a token is no number or the values do not fit.
int32_t lyn_demo_parse_options(char *line, int32_t *options, uint32_t *count);
int32_t lyn_demo_process_options(const int32_t *options, uint32_t count);

// Display names: of indications and asynchronous responses from the callback's tables, of metrics and controls from
// those of their options. A number without a name gets a placeholder, or the invalid request's name.
const char *lyn_demo_ind_name(uint32_t ind);
const char *lyn_demo_async_name(uint32_t async_resp);
const char *lyn_demo_metric_name(uint32_t metric);
const char *lyn_demo_control_name(uint32_t control);

// Option handlers.
int32_t lyn_demo_register(const int32_t *options, uint32_t count);
int32_t lyn_demo_deregister(const int32_t *options, uint32_t count);
int32_t lyn_demo_set_ind(const int32_t *options, uint32_t count);
int32_t lyn_demo_get_ind_count(const int32_t *options, uint32_t count);
int32_t lyn_demo_get_ind_list(const int32_t *options, uint32_t count);
int32_t lyn_demo_clear_ind_list(const int32_t *options, uint32_t count);
int32_t lyn_demo_get_info(const int32_t *options, uint32_t count);
int32_t lyn_demo_get_info_list(const int32_t *options, uint32_t count);
int32_t lyn_demo_set_info(const int32_t *options, uint32_t count);
int32_t lyn_demo_print_usage(const int32_t *options, uint32_t count);

// The callback given to ox_lyn_init; runs on the module's command thread and owns dm_info.
void lyn_demo_user_cb(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info, uint32_t user_data);

#endif
