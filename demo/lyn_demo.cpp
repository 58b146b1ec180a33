/* SPDX-License-Identifier: Apache-2.0 */
// Main loop of the demo client: start-up, the scripted and the interactive loop, the option-line grammar and the
// dispatch from an option number to its handler.
//
// The mode is chosen once: where a file was named, or the automatic test file exists, its lines are run, one option
// line each, up to the first that fails; otherwise the menu is shown again and again until a signal ends the process.
#include "lyn_demo.h"

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "lyn_demo_line.h"

static constexpr const char *LYN_DEMO_AUTO_FILE = "/data/data_oxmap/lyn_auto_test.cfg";
static constexpr int LYN_DEMO_MENU_WIDTH = 53;  // menu lines are padded with blanks

ox_lyn_hndl_t lyn_demo_hndl = 0;

constexpr std::array<lyn_demo_option_t, 10> lyn_demo_options = {{
    {.menu = "01. LYN DM Register", .usage = "Register application --- 1 ", .handler = lyn_demo_register},
    // "Deregiser" is the menu's own spelling, kept for scripts that look for it.
    {.menu = "02. LYN DM Deregiser", .usage = "Deregister application --- 2", .handler = lyn_demo_deregister},
    // The usage line leaves the indication out and names only the threshold; deliberately kept.
    {.menu = "03. LYN DM Set Indication",
     .usage = "Set metric indication --- 3 <threshold value> (optional)",
     .handler = lyn_demo_set_ind},
    {.menu = "04. LYN DM Get Indication Count",
     .usage = "Get metric indication count --- 4 ",
     .handler = lyn_demo_get_ind_count},
    {.menu = "05. LYN DM Get Indication List",
     .usage = "Get metric indication list --- 5 <indication count>",
     .handler = lyn_demo_get_ind_list},
    {.menu = "06. LYN DM Clear Indication List",
     .usage = "Clear metric indication list --- 6 <metric indication ID 1> <metric indication ID 2> ... "
              "<metric indication ID n>",
     .handler = lyn_demo_clear_ind_list},
    {.menu = "07. LYN DM Get LTE/5G/GPS Metric Info",
     .usage = "Get metric info --- 7 <metric request ID>",
     .handler = lyn_demo_get_info},
    {.menu = "08. LYN DM Get LTE/5G/GPS Metric List",
     .usage = "Get metric info list --- 8 <metric request ID 1> <metric request ID 2> ... <metric request ID n>",
     .handler = lyn_demo_get_info_list},
    {.menu = "09. LYN DM Set LTE/5G/GPS Metric Info",
     .usage = "Set metric info --- 9 <metric request ID> ",
     .handler = lyn_demo_set_info},
    {.menu = "10. LYN DM Options Usage", .handler = lyn_demo_print_usage},
}};

// Values of one option line.
struct lyn_demo_line_t {
  int32_t options[LYN_DEMO_MAX_OPTIONS];
  uint32_t count;
};

// exit runs here at any moment of the main thread, also inside printf: nothing else may be done, and no object of the
// process may have a destructor that runs at exit.
void lyn_demo_sigterm_handler(int signal_number) {
  if (signal_number == SIGTERM) {
    exit(0);
  }
  printf("Received unexpected signal %d\n", signal_number);
}

// Whole token or nothing; beyond 32 bits the nearest bound.
static bool lyn_demo_parse_value(const char *token, int32_t *value) {
  char *end = nullptr;
  const long number = strtol(token, &end, 10);
  *value = static_cast<int32_t>(std::clamp<long>(number, INT32_MIN, INT32_MAX));
  return *end == '\0';
}

int32_t lyn_demo_parse_options(char *line, int32_t *options, uint32_t *count) {
  if (line == nullptr || options == nullptr || count == nullptr) {
    return 1;
  }
  if (line[0] == '#') {
    return 0;
  }
  *count = 0;
  char *rest = nullptr;
  for (char *token = strtok_r(line, " ", &rest); token != nullptr; token = strtok_r(nullptr, " ", &rest)) {
    if (*count == LYN_DEMO_MAX_OPTIONS || !lyn_demo_parse_value(token, &options[*count])) {
      puts("LYN DEMO APP : Invalid option is passed.");
      return 1;
    }
    ++*count;
  }
  return 0;
}

int32_t lyn_demo_process_options(const int32_t *options, uint32_t count) {
  if (options == nullptr || count == 0) {
    return 1;
  }
  const int32_t option = options[0];
  if (option < 1 || option > static_cast<int32_t>(lyn_demo_options.size())) {
    printf("LYN DEMO APP : Option ID[%d] NOT SUPPORTED.\n", option);
    return 0;
  }
  return lyn_demo_options[static_cast<size_t>(option - 1)].handler(options, count);
}

// Takes the line break off, whatever character it is: an unfinished last line loses a real one. An empty string (a line
// that begins with a zero byte) has nothing to lose.
static void lyn_demo_cut_last(char *line) {
  const size_t length = strlen(line);
  if (length > 0) {
    line[length - 1] = '\0';
  }
}

// This line and the next are deliberately not ended: what is printed behind them runs on.
static void lyn_demo_report_bad_line() {
  printf("LYN DEMO APP : Parsing the entered options failed - invalid options passed!!");
}

static void lyn_demo_report_failure() {
  printf("LYN DEMO APP : Processing diagnostic metric information failed!!");
}

static lyn_demo_block_t<char> lyn_demo_next_line(FILE *file) {
  char *buffer = nullptr;
  size_t size = 0;
  fflush(stdout);
  const ssize_t length = getline(&buffer, &size, file);
  lyn_demo_block_t<char> line(buffer);
  if (length == -1) {
    line.reset();
  }
  return line;
}

// True: carry on with the next line.
static bool lyn_demo_run_line(char *text) {
  lyn_demo_line_t line = {};
  printf("LYN DEMO APP : %s", text);
  lyn_demo_cut_last(text);
  if (lyn_demo_parse_options(text, line.options, &line.count) != 0) {
    lyn_demo_report_bad_line();
    return false;
  }
  if (line.count > 0 && lyn_demo_process_options(line.options, line.count) != 0) {
    lyn_demo_report_failure();
    return false;
  }
  return true;
}

// A run that a line ends leaves the file open: the process ends with it.
static void lyn_demo_auto_loop(FILE *file) {
  for (;;) {
    const lyn_demo_block_t<char> line = lyn_demo_next_line(file);
    if (line == nullptr) {
      break;
    }
    if (!lyn_demo_run_line(line.get())) {
      return;
    }
  }
  fclose(file);
  puts("LYN DEMO APP : Auto test configuration file successfully processed.");
}

static void lyn_demo_print_menu() {
  puts("\n\nPlease select an option to test from the items listed below.\n");
  for (const lyn_demo_option_t &option : lyn_demo_options) {
    printf("%-*s\n", LYN_DEMO_MENU_WIDTH, option.menu);
  }
}

// One turn of the menu. On a closed standard input the turns repeat without end, deliberately.
static void lyn_demo_interact() {
  lyn_demo_line_t line = {};
  char text[LYN_DEMO_LINE_LEN];
  lyn_demo_print_menu();
  if (lyn_demo_read_line("Option > ", text, sizeof text) != LYN_DEMO_READ_LINE) {
    return;
  }
  lyn_demo_cut_last(text);
  // Unlike in a script, a comment or an empty line is reported here; deliberate.
  if (lyn_demo_parse_options(text, line.options, &line.count) != 0 || line.count == 0) {
    lyn_demo_report_bad_line();
  } else if (lyn_demo_process_options(line.options, line.count) != 0) {
    lyn_demo_report_failure();
  }
}

// Null, where there is one that cannot be opened.
static FILE *lyn_demo_open_auto_file() {
  FILE *file = fopen(LYN_DEMO_AUTO_FILE, "r");
  if (file == nullptr) {
    puts("LYN DEMO APP : Opening auto test configuration file failed.");
  }
  return file;
}

[[noreturn]] static void lyn_demo_menu_loop() {
  lyn_demo_edit_lines();
  for (;;) {
    lyn_demo_interact();
  }
}

int lyn_demo_main(FILE *script) {
  setvbuf(stdout, nullptr, _IOLBF, 0);  // a reader at the other end of a pipe sees each line as it is printed
  signal(SIGTERM, lyn_demo_sigterm_handler);
  puts("\n\n################### Device Manager Client Application #########################\n");
  struct stat status = {};
  if (script == nullptr && stat(LYN_DEMO_AUTO_FILE, &status) != 0) {
    lyn_demo_menu_loop();
  }
  FILE *file = script != nullptr ? script : lyn_demo_open_auto_file();
  if (file != nullptr) {
    puts("LYN DEMO APP : Auto test configuration file enabled.");
    lyn_demo_auto_loop(file);
  }
  return 0;
}
