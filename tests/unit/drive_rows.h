/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The rows of a drive, as they are recorded, for tests that compare with them.
 *
 *   for (drive_row &row : drive_rows(path)) ... row["RSRP"] ...
 */
#ifndef DRIVE_ROWS_H
#define DRIVE_ROWS_H

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

/** By the name of the column; a row that breaks off lacks its last ones. */
using drive_row = std::map<std::string, std::string>;

inline std::vector<std::string> drive_fields(const std::string &line) {
  std::vector<std::string> fields;
  std::istringstream in(line);
  for (std::string field; std::getline(in, field, ',');) {
    fields.push_back(field);
  }
  return fields;
}

inline std::vector<drive_row> drive_rows(const std::string &path) {
  std::ifstream in(path);
  std::string line;
  std::getline(in, line);
  const std::vector<std::string> names = drive_fields(line);
  std::vector<drive_row> rows;
  while (std::getline(in, line)) {
    const std::vector<std::string> fields = drive_fields(line);
    drive_row &row = rows.emplace_back();
    for (size_t i = 0; i < std::min(names.size(), fields.size()); i++) {
      row[names[i]] = fields[i];
    }
  }
  return rows;
}

#endif
