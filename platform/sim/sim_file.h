/*
 * The files that the board reads: a scenario, a drive test.
 *
 * Only a regular file is read, and to its end: what a pipe or a device gives has none, and what a failing disk gives is
 * never taken for a whole file.
 */
#ifndef SIM_FILE_H
#define SIM_FILE_H

#include <cstddef>
#include <optional>
#include <string>

/** The same text on one line, as messages are, whatever it holds. */
std::string sim_one_line(std::string text);

/** What is in a file of at most `most` octets; or nothing, and in `error` one line: "NAME: what is wrong". */
std::optional<std::string> sim_file_read(const std::string &name, size_t most, std::string &error);

#endif
