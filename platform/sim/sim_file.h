/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The files of the board: those that it reads, a scenario and a drive test, and those that it writes, the journal and
 * the diagnostic log.
 *
 * Only a regular file is read, and to its end: what a pipe or a device gives has none, and what a failing disk gives is
 * never taken for a whole file. Nothing is written into a file that has another part already, whatever it is called
 * there; so what is read has to be known before anything is opened for writing.
 */
#ifndef SIM_FILE_H
#define SIM_FILE_H

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/** The same text on one line, as messages are, whatever it holds. */
std::string sim_one_line(std::string text);

/** What is in a file of at most `most` octets; or nothing, and in `error` one line: "NAME: what is wrong". */
std::optional<std::string> sim_file_read(const std::string &name, size_t most, std::string &error);

/** A file and its part: "the scenario", "the trace", "the journal". */
struct sim_file {
  std::string part, name;
};

/**
 * Open `name` to have lines added, as `part`; a regular file is emptied and joins `taken`. Returns the descriptor, or
 * -1 and in `error` one line: "NAME: what is wrong".
 */
int sim_file_create(const std::string &name, const std::string &part, std::vector<sim_file> &taken, std::string &error);

#endif
