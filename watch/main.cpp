/* SPDX-License-Identifier: Apache-2.0 */
// The executable's entry and its command line.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <thread>

#include "lyn_watch_http.h"
#include "lyn_watch_lines.h"
#include "lyn_watch_model.h"
#include "lyn_watch_screen.h"
#include "lyn_watch_source.h"
#include "lyn_watch_terminal.h"
#include "ox_lyn.h"

enum { LYN_WATCH_USAGE_ERROR = 2, LYN_WATCH_NO_MODEM = 3 };

// How long the end of the program waits for a request that is under way.
static constexpr lyn_watch_ms_t LYN_WATCH_END_PATIENCE = std::chrono::seconds(2);

static constexpr lyn_watch_ms_t LYN_WATCH_SHORTEST = std::chrono::milliseconds(10);
static constexpr lyn_watch_ms_t LYN_WATCH_LONGEST = std::chrono::hours(24);

// How long a view may take to end once the program is told to; a terminal that was stopped takes for ever.
static constexpr std::chrono::seconds LYN_WATCH_END_GRACE(5);

struct lyn_watch_options_t {
  bool screen = false;
  bool json = false;
  bool once = false;
  lyn_watch_plan_t plan = {.every = std::chrono::seconds(1), .scan = {}, .locate = {}};
  lyn_watch_http_plan_t http;
  std::string name;
};

/* Options */

// 200ms, 1s, 5m, 1h; none: it is no such duration.
static std::optional<lyn_watch_ms_t> lyn_watch_parse_duration(const std::string &text) {
  static constexpr struct {
    const char *unit;
    lyn_watch_ms_t length;
  } units[] = {{"ms", lyn_watch_ms_t(1)},
               {"s", std::chrono::seconds(1)},
               {"m", std::chrono::minutes(1)},
               {"h", std::chrono::hours(1)}};
  const size_t digits = text.find_first_not_of("0123456789");
  if (digits == 0 || digits == std::string::npos || digits > 9) {
    return {};
  }
  for (const auto &row : units) {
    if (text.substr(digits) == row.unit) {
      return std::stol(text) * row.length;
    }
  }
  return {};
}

static std::string lyn_watch_check_duration(const std::string &text) {
  const std::optional<lyn_watch_ms_t> duration = lyn_watch_parse_duration(text);
  if (!duration || *duration < LYN_WATCH_SHORTEST || *duration > LYN_WATCH_LONGEST) {
    return "takes a duration from 10ms to 24h, such as 200ms, 1s, 5m or 1h; got '" + text + "'";
  }
  return "";
}

static void lyn_watch_add_duration(CLI::App *app, const char *option, lyn_watch_ms_t *duration, const char *help) {
  app->add_option_function<std::string>(
         option, [duration](const std::string &text) { *duration = *lyn_watch_parse_duration(text); }, help)
      ->check(lyn_watch_check_duration)
      ->type_name("TIME");
}

static std::string lyn_watch_check_serve(const std::string &text) {
  lyn_watch_http_plan_t plan;
  return lyn_watch_http_parse(text, &plan) ? "" : "takes [ADDR:]PORT, such as 9750 or [::1]:9750; got '" + text + "'";
}

static std::string lyn_watch_host_name() {
  char name[256] = {};
  return gethostname(name, sizeof(name) - 1) == 0 ? name : "";
}

static void lyn_watch_add_options(CLI::App *app, lyn_watch_options_t *options) {
  app->set_version_flag("--version", "lyn_watch " + lyn_watch_version());
  CLI::Option *json = app->add_flag("--json", options->json, "one JSON object a line: snapshots and events");
  app->add_flag("--screen", options->screen, "the picture in the terminal, which is the view without any other")
      ->excludes(json);
  app->add_flag("--once", options->once, "with --json: one snapshot, then end; status 3 without a modem")->needs(json);
  lyn_watch_add_duration(app, "--every", &options->plan.every, "how often the metrics are read [1s]");
  lyn_watch_add_duration(app, "--scan", &options->plan.scan, "scan for neighbours so often; without it never");
  lyn_watch_add_duration(app, "--locate", &options->plan.locate, "find the location so often; without it never");
  app->add_option_function<std::string>(
         "--serve", [options](const std::string &text) { lyn_watch_http_parse(text, &options->http); },
         "a page, metrics and JSON over HTTP; ADDR is 127.0.0.1 unless given, port 0 takes a free one")
      ->check(lyn_watch_check_serve)
      ->type_name("[ADDR:]PORT");
  app->add_option("--name", options->name, "of the board in records and metrics [the host's name]")->type_name("NAME");
}

// Help and version were asked for; all else is one line that names the option and what it takes.
static int lyn_watch_end_of_options(const CLI::App &app, const CLI::ParseError &error) {
  if (error.get_exit_code() == 0) {
    return app.exit(error);
  }
  fprintf(stderr, "lyn_watch: %s\n", error.what());
  return LYN_WATCH_USAGE_ERROR;
}

/* Output */

// What module and board print is not ours to mix with records. Gives where these go; below 0: standard output is
// closed.
static int lyn_watch_keep_output() {
  const int output = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
  dup2(nowhere, STDOUT_FILENO);
  return output;
}

/* Signals */

static lyn_watch_model_t *const lyn_watch_model = new lyn_watch_model_t;

static sigset_t lyn_watch_end_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

static void *lyn_watch_wait_for_signal(void *) {
  const sigset_t signals = lyn_watch_end_signals();
  int signal = 0;
  sigwait(&signals, &signal);
  lyn_watch_model_end(lyn_watch_model);
  std::this_thread::sleep_for(LYN_WATCH_END_GRACE);
  _exit(EXIT_SUCCESS);
}

// A thread of its own waits for signals, so that they end all views in the same way.
static bool lyn_watch_catch_signals() {
  const sigset_t signals = lyn_watch_end_signals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGPIPE, SIG_IGN);
  pthread_t thread;
  return pthread_create(&thread, nullptr, lyn_watch_wait_for_signal, nullptr) == 0 && pthread_detach(thread) == 0;
}

/* The program */

static int lyn_watch_run_json(const lyn_watch_options_t &options, int output) {
  switch (options.once ? lyn_watch_lines_once(lyn_watch_model, output)
                       : lyn_watch_lines_run(lyn_watch_model, options.plan.every, output)) {
    case LYN_WATCH_LINES_DONE:
      return EXIT_SUCCESS;
    case LYN_WATCH_LINES_NO_MODEM:
      fputs("lyn_watch: no modem\n", stderr);
      return LYN_WATCH_NO_MODEM;
    case LYN_WATCH_LINES_FAILED:
      break;
  }
  return EXIT_FAILURE;
}

static int lyn_watch_run_screen(const std::string &address) {
  const lyn_watch_screen_plan_t plan = {.scan = lyn_watch_source_scan, .address = address};
  if (!lyn_watch_screen_run(lyn_watch_model, plan)) {
    fputs("lyn_watch: the terminal cannot be drawn on\n", stderr);
    return EXIT_FAILURE;
  }
  return EXIT_SUCCESS;
}

// Served alone, until the model ends.
static int lyn_watch_run_nothing() {
  while (lyn_watch_model_wait(lyn_watch_model, UINT64_MAX, UINT64_MAX,
                              std::chrono::steady_clock::now() + std::chrono::hours(1))) {
  }
  return EXIT_SUCCESS;
}

static bool lyn_watch_serves(const lyn_watch_options_t &options) {
  return !options.http.port.empty();
}

static bool lyn_watch_draws(const lyn_watch_options_t &options) {
  return options.screen || (!options.json && !lyn_watch_serves(options));
}

// Threads and views; `output` is where records go, `address` where it serves.
static int lyn_watch_run_views(const lyn_watch_options_t &options, int output, const std::string &address) {
  lyn_watch_model_init(lyn_watch_model, options.name.empty() ? lyn_watch_host_name() : options.name);
  if (!lyn_watch_catch_signals() || (lyn_watch_serves(options) && !lyn_watch_http_start(lyn_watch_model)) ||
      !lyn_watch_source_start(lyn_watch_model, options.plan)) {
    fputs("lyn_watch: no thread to be had\n", stderr);
    return EXIT_FAILURE;
  }
  const int status = lyn_watch_draws(options) ? lyn_watch_run_screen(address)
                     : options.json           ? lyn_watch_run_json(options, output)
                                              : lyn_watch_run_nothing();
  lyn_watch_model_end(lyn_watch_model);  // where a view ended by itself
  lyn_watch_http_stop(LYN_WATCH_END_PATIENCE);
  lyn_watch_source_stop(LYN_WATCH_END_PATIENCE);
  return status;
}

static int lyn_watch_run(const lyn_watch_options_t &options) {
  // Ahead of the picture, while standard error can be read.
  const std::string address = lyn_watch_serves(options) ? lyn_watch_http_open(options.http) : "";
  if (lyn_watch_serves(options) && address.empty()) {
    return EXIT_FAILURE;
  }
  if (!lyn_watch_draws(options)) {
    return lyn_watch_run_views(options, lyn_watch_keep_output(), address);
  }
  if (const int status = lyn_watch_terminal_borrow(); status != 0) {
    return status;
  }
  const int status = lyn_watch_run_views(options, -1, address);
  lyn_watch_terminal_return(status == EXIT_SUCCESS);
  return status;
}

static int lyn_watch_main(int argc, char **argv) {
  CLI::App app("The live picture of a cellular modem board.", "lyn_watch");
  app.footer(
      "\nA TIME is 200ms, 1s, 5m or 1h. The picture, and metrics for a collector on another machine:\n"
      "  lyn_watch --screen --serve 0.0.0.0:9750 --scan 1m\n");
  lyn_watch_options_t options;
  options.http.machine = lyn_watch_host_name();
  lyn_watch_add_options(&app, &options);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    return lyn_watch_end_of_options(app, error);
  }
  return lyn_watch_run(options);
}

int main(int argc, char **argv) {
  try {
    return lyn_watch_main(argc, argv);
  } catch (...) {  // out of memory
    return EXIT_FAILURE;
  }
}
