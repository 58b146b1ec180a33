/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The diagnostic log, and how the board gives up.
 */
#ifndef SIM_DIAG_H
#define SIM_DIAG_H

#include <string>
#include <vector>

#include "sim_file.h"

/** Open the file of LYN_SIM_DIAG, which must be none of those `taken`. */
void sim_diag_open(std::vector<sim_file> &taken);

/** One line on standard error and status 2. */
[[noreturn]] void sim_give_up(const std::string &line);

#endif
