/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Reading TOML by the rows of sim_key.h. toml++ stays inside this and the two files that include it.
 *
 * Reading goes on after an error; the one that stands first in the file is kept.
 */
#ifndef SIM_KEY_READ_H
#define SIM_KEY_READ_H

#include <toml++/toml.h>

#include "sim_key.h"

struct sim_key_traced {
  toml::source_position at;
  std::string path;
};

struct sim_key_reader {
  std::string error; /**< without origin; empty: none so far */
  toml::source_position at = {};
  bool patching = false;              /**< inside a table that the timeline changes */
  std::vector<sim_key_traced> traced; /**< keys of the timeline that a trace does not leave to it */
};

void sim_key_fail(sim_key_reader &in, const toml::source_position &at, const std::string &text);
void sim_key_fail(sim_key_reader &in, const toml::node &node, const std::string &path, const std::string &text);

/** All that a table changes, in the order of its rows; nothing when it is no table. */
sim_key_change sim_key_read_table(sim_key_reader &in, const std::string &path, const toml::node &node, sim_keys keys);

#endif
