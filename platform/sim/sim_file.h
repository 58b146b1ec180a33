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
 * Open a file to have lines added, as its part; a regular one is emptied and joins `taken`. Returns the descriptor, or
 * -1 and in `error` one line: "NAME: what is wrong".
 */
int sim_file_create(const sim_file &what, std::vector<sim_file> &taken, std::string &error);

/** A file that lines are added to, one thread at a time. */
struct sim_lines {
  sim_file what;
  int file = -1; /**< none, or it has ended */
};

/**
 * Add a line, its line break included, whole or not at all. On a full disk the lines end there: what was written of
 * this one is taken back, one line on standard error says so, and nothing is added any more. So no line of the file is
 * a part of one, and none is missing between others.
 */
void sim_lines_add(sim_lines &lines, const std::string &line);

#endif
