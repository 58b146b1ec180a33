/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The journal, beside what sim_core.h offers to all.
 */
#ifndef SIM_JOURNAL_H
#define SIM_JOURNAL_H

#include <string>
#include <vector>

#include "sim_file.h"

/** Open the file of LYN_SIM_JOURNAL, which must be none of those `taken`. */
void sim_journal_open(std::vector<sim_file> &taken);
/** Keep the lines in memory, for tests. */
void sim_journal_keep(bool on);
std::vector<std::string> sim_journal_lines();
void sim_journal_forget();

#endif
