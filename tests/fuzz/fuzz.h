/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the fuzz targets share: how one says what is wrong, and how inputs become texts and files.
 */
#ifndef FUZZ_H
#define FUZZ_H

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

/** Ends with what was found where `holds` is false, so that the input is kept. */
inline void fuzz_hold(bool holds, const char *what, std::string_view found = {}) {
  if (!holds) {
    fprintf(stderr, "does not hold: %s\n%s\n", what, std::string(found).c_str());
    abort();
  }
}

inline std::string_view fuzz_text(const uint8_t *data, size_t size) {
  return {reinterpret_cast<const char *>(data), size};
}

/** Standard input is none, and standard output a file that is looked at here; errors are still seen. */
inline void fuzz_take_stdio() {
  const int nothing = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int printed = memfd_create("printed", MFD_CLOEXEC);
  fuzz_hold(dup2(nothing, STDIN_FILENO) >= 0 && dup2(printed, STDOUT_FILENO) >= 0 &&
                fcntl(STDOUT_FILENO, F_SETFL, O_APPEND) == 0, /* others may print while it is looked at */
            "standard output is taken");
}

/** What was printed since this was called last. */
inline std::string fuzz_printed() {
  fflush(stdout);
  std::string text(static_cast<size_t>(lseek(STDOUT_FILENO, 0, SEEK_END)), '\0');
  fuzz_hold(pread(STDOUT_FILENO, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()) &&
                ftruncate(STDOUT_FILENO, 0) == 0,
            "what was printed can be read");
  return text;
}

/** What will be typed: the text, then the end of input. */
struct fuzz_typed {
  explicit fuzz_typed(std::string_view text) : answers(text) {
    stdin = fmemopen(answers.data(), answers.size(), "rb");
    fuzz_hold(stdin != nullptr, "standard input is there");
  }
  ~fuzz_typed() {
    fclose(stdin);
    stdin = terminal;
  }
  fuzz_typed(const fuzz_typed &) = delete;
  fuzz_typed &operator=(const fuzz_typed &) = delete;

  std::string answers;
  FILE *terminal = stdin;
};

/** A file with these bytes in place of those that it had; its name. */
inline std::string fuzz_file(std::string_view bytes) {
  static const int file = memfd_create("fuzz", MFD_CLOEXEC);
  fuzz_hold(
      ftruncate(file, 0) == 0 && pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
      "the file is written");
  return "/proc/self/fd/" + std::to_string(file);
}

/** "ORIGIN:LINE[:COLUMN]: what", one line, of a text with so many line breaks. */
inline void fuzz_hold_error(std::string_view error, std::string_view origin, std::string_view text, bool placed) {
  fuzz_hold(error.starts_with(origin) && error.substr(origin.size()).starts_with(':'), "an error names its file",
            error);
  for (const char octet : error) {
    fuzz_hold(static_cast<unsigned char>(octet) >= ' ' && octet != 0x7F, "an error is one line", error);
  }
  std::string_view rest = error.substr(origin.size() + 1);
  size_t lines = 1;
  for (const char octet : text) {
    lines += octet == '\n';
  }
  if (placed) {
    const unsigned long line = strtoul(std::string(rest).c_str(), nullptr, 10);
    fuzz_hold(line >= 1 && line <= lines, "an error names a line of the file", error);
  }
  const size_t what = rest.find(": ");
  const bool bare = !placed && rest.starts_with(' ') && rest.size() > 1;
  fuzz_hold(bare || (what != std::string_view::npos && what + 2 < rest.size()), "an error says what is wrong", error);
}

#endif
