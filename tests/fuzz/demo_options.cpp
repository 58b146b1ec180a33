/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any text as option lines. Ends with an error where a line is read otherwise than its grammar says; and where a script
 * of these lines does not run them one by one up to the first that fails, with nothing behind it.
 */
#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

#include "../../demo/lyn_demo.h"
#include "../../demo/lyn_demo_line.h"
#include "fuzz.h"
#include "sim_board.h"

namespace {

constexpr size_t most_lines = 24; /* of a script; options 5 and 10 print much */

using option_values = std::vector<int32_t>;

/** The script's lines as they are read, each a text without zero octets. */
std::vector<std::string> lines_of(std::string_view text, std::string *script) {
  std::vector<std::string> lines;
  while (!text.empty() && lines.size() < most_lines) {
    const std::string_view line = text.substr(0, std::min(text.find('\n'), text.size() - 1) + 1);
    lines.emplace_back(line.substr(0, line.find('\0')));
    script->append(line);
    text.remove_prefix(line.size());
  }
  return lines;
}

/** A number with blanks before it; beyond 32 bits the nearest bound. */
std::optional<int32_t> number_of(std::string_view token) {
  const size_t begin = token.find_first_not_of("\t\n\v\f\r");
  token.remove_prefix(std::min(begin, token.size()));
  const bool negative = token.starts_with('-');
  if (negative || token.starts_with('+')) {
    token.remove_prefix(1);
  }
  int64_t number = 0;
  for (const char digit : token) {
    if (digit < '0' || digit > '9') {
      return {};
    }
    number = std::min<int64_t>(number * 10 + (digit - '0'), int64_t{INT32_MAX} + 1);
  }
  const int64_t value = negative ? -number : std::min<int64_t>(number, INT32_MAX);
  return token.empty() ? std::nullopt : std::optional(static_cast<int32_t>(value));
}

/** Nothing: the line is refused. A comment has no values. */
std::optional<option_values> values_of(std::string_view line) {
  option_values found;
  if (line.starts_with('#')) {
    return found;
  }
  while (!line.empty()) {
    const std::string_view token = line.substr(0, line.find(' '));
    line.remove_prefix(std::min(token.size() + 1, line.size()));
    if (token.empty()) {
      continue;
    }
    const std::optional<int32_t> number = number_of(token);
    if (!number || found.size() == LYN_DEMO_MAX_OPTIONS) {
      return {};
    }
    found.push_back(*number);
  }
  return found;
}

std::optional<option_values> parsed(std::string line) {
  option_values found(LYN_DEMO_MAX_OPTIONS);
  uint32_t count = 0;
  if (lyn_demo_parse_options(line.data(), found.data(), &count) != 0) {
    return {};
  }
  found.resize(count);
  return found;
}

/** Take everything up to and including `part` off; false: it is not there. */
bool pass(std::string_view *text, std::string_view part) {
  const size_t at = text->find(part);
  text->remove_prefix(at == std::string_view::npos ? 0 : at + part.size());
  return at != std::string_view::npos;
}

/** What a run printed, and whether it came to the end of its script. */
struct transcript {
  std::string printed;
  bool done;
};

constexpr std::string_view failure = "LYN DEMO APP : Processing diagnostic metric information failed!!";

/** From the first line on, each is shown and run; nothing comes behind one that fails. */
void hold_transcript(const std::vector<std::string> &lines, const transcript &of) {
  const auto contains = [](std::string_view text, std::string_view part) { return text.find(part) != text.npos; };
  std::string_view rest = of.printed;
  fuzz_hold(pass(&rest, "Auto test configuration file enabled.\n"), "a script is announced", of.printed);
  for (const std::string &line : lines) {
    if (rest.find(failure) <= rest.find("LYN DEMO APP : " + line)) { /* an unfinished line may be the begin of it */
      fuzz_hold(contains(rest, failure), "each line is shown", of.printed);
      break;
    }
    pass(&rest, "LYN DEMO APP : " + line);
    const auto values = values_of(std::string_view(line).substr(0, line.empty() ? 0 : line.size() - 1));
    if (!values) {
      fuzz_hold(contains(rest, "LYN DEMO APP : Invalid option is passed.\n") &&
                    contains(rest, "LYN DEMO APP : Parsing the entered options failed - invalid options passed!!"),
                "a line that is none is refused", of.printed);
      return fuzz_hold(!of.done, "a line that is none ends the script", of.printed);
    }
    const bool known = values->empty() || (values->front() >= 1 && values->front() <= 10);
    fuzz_hold(known || contains(rest, "Option ID[" + std::to_string(values->front()) + "] NOT SUPPORTED.\n"),
              "an option that is none is named", of.printed);
  }
  const bool failed = contains(rest, failure);
  fuzz_hold(of.done != failed, "a script ends at the first line that fails", of.printed);
  fuzz_hold(of.done == contains(rest, "Auto test configuration file successfully processed.\n"),
            "a script that is done says so", of.printed);
}

/** The menu reads lines, too, and the rest of one that is too long for it as the next. */
void hold_menu_lines(std::string_view text) {
  const fuzz_typed typed(text);
  std::string read;
  char line[LYN_DEMO_LINE_LEN];
  while (lyn_demo_read_line("", line, sizeof line) == LYN_DEMO_READ_LINE) {
    fuzz_hold(parsed(line) == values_of(line), "the menu's line is read as its grammar says", line);
    read += line;
  }
  fuzz_hold(read == text || text.find('\0') != text.npos, "the menu loses nothing", read);
}

/** The script as a file that tells whether it was closed: one that a line ends stays open. */
struct script_file {
  std::string_view rest;
  bool closed = false;

  FILE *open() {
    cookie_io_functions_t functions = {};
    functions.read = [](void *cookie, char *buffer, size_t size) {
      auto *self = static_cast<script_file *>(cookie);
      const size_t count = self->rest.copy(buffer, size);
      self->rest.remove_prefix(count);
      return static_cast<ssize_t>(count);
    };
    functions.close = [](void *cookie) {
      static_cast<script_file *>(cookie)->closed = true;
      return 0;
    };
    return fopencookie(this, "r", functions);
  }
};

transcript run(std::string_view script) {
  const fuzz_typed nothing("");
  script_file source = {.rest = script};
  FILE *file = source.open();
  sim_board_restart();
  fuzz_printed();
  fuzz_hold(lyn_demo_main(file) == 0, "the client returns 0");
  const bool done = source.closed;
  if (!done) {
    fclose(file);
  }
  ox_lyn_deinit(lyn_demo_hndl);
  return {fuzz_printed(), done};
}

/** A quiet board, on which scans and fixes come at once. */
constexpr char board[] = "[board]\nnoise_db = 0\n[scan]\nanswer_ms = 0\n[location]\nfix_ms = 0\n";

bool start() {
  fuzz_take_stdio();
  fuzz_hold(sim_board_load(board).empty(), "the board is there");
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool started = start();
  const std::string_view text = fuzz_text(data, started ? size : 0);
  std::string script;
  const std::vector<std::string> lines = lines_of(text, &script);
  for (const std::string &line : lines) {
    fuzz_hold(parsed(line) == values_of(line), "a line is read as its grammar says", line);
  }
  hold_menu_lines(script);
  const transcript of = run(script);
  if (text.find("LYN DEMO APP") == text.npos) { /* else lines cannot be told from what is said of them */
    hold_transcript(lines, of);
  }
  return 0;
}
