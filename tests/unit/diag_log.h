/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the module logged, for the tests of its lower rooms: the simulated board writes its diagnostic records into a
 * memory file of the test program, which is named before the first platform call.
 *
 *   diag_log_take();                                   // forget what was logged so far
 *   lyn_dll_data(nullptr);
 *   EXPECT_EQ(diag_log_texts(), std::vector<std::string>{"lyn_dll_data: Bad Param node NULL"});
 */
#ifndef DIAG_LOG_H
#define DIAG_LOG_H

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

struct diag_log_record {
  std::string level; /* HIGH, ERROR */
  std::string file;
  int line = 0;
  std::string text; /* line breaks as the file shows them: \n */
};

/** The memory file, and how far it has been read. */
inline int diag_log_open() {
  int fd = memfd_create("diag", 0);
  setenv("LYN_SIM_DIAG", ("/proc/self/fd/" + std::to_string(fd)).c_str(), 1);
  return fd;
}
inline const int diag_log_fd = diag_log_open();
inline off_t diag_log_offset = 0;

/** "ERROR lyn_list.cpp:12 text" */
inline diag_log_record diag_log_parse(const std::string &line) {
  diag_log_record record;
  const size_t blank = line.find(' ');
  const size_t colon = line.find(':', blank);
  const size_t text = line.find(' ', colon);
  record.level = line.substr(0, blank);
  record.file = line.substr(blank + 1, colon - blank - 1);
  record.line = atoi(line.substr(colon + 1, text - colon - 1).c_str());
  record.text = line.substr(text + 1);
  return record;
}

/** The records since the last call. A line that is just being written is left for the next one. */
inline std::vector<diag_log_record> diag_log_take() {
  std::string bytes;
  char part[4096];
  for (ssize_t n;
       (n = pread(diag_log_fd, part, sizeof part, diag_log_offset + static_cast<off_t>(bytes.size()))) > 0;) {
    bytes.append(part, static_cast<size_t>(n));
  }
  std::vector<diag_log_record> records;
  size_t from = 0;
  for (size_t to; (to = bytes.find('\n', from)) != std::string::npos; from = to + 1) {
    records.push_back(diag_log_parse(bytes.substr(from, to - from)));
  }
  diag_log_offset += static_cast<off_t>(from);
  return records;
}

/** Only the texts of the records since the last call; of one level where it is named. */
inline std::vector<std::string> diag_log_texts(const std::string &level = "") {
  std::vector<std::string> texts;
  for (const diag_log_record &record : diag_log_take()) {
    if (level.empty() || record.level == level) {
      texts.push_back(record.text);
    }
  }
  return texts;
}

/** The same with level and file: "ERROR lyn_list.cpp text". */
inline std::vector<std::string> diag_log_placed(const std::string &level = "") {
  std::vector<std::string> lines;
  for (const diag_log_record &record : diag_log_take()) {
    if (level.empty() || record.level == level) {
      lines.push_back(record.level + " " + record.file + " " + record.text);
    }
  }
  return lines;
}

/** The records since the last call as "HIGH text", of all files or of those that are named. */
inline std::vector<std::string> diag_log_lines(std::initializer_list<std::string_view> files = {}) {
  std::vector<std::string> lines;
  for (const diag_log_record &record : diag_log_take()) {
    if (files.size() == 0 || std::ranges::find(files, record.file) != files.end()) {
      lines.push_back(record.level + " " + record.text);
    }
  }
  return lines;
}

#endif
