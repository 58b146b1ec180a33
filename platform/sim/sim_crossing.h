/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Names of crossings of the platform boundary, as faults and the timeline give them: "nas.79", "yrp.release", ...
 */
#ifndef SIM_CROSSING_H
#define SIM_CROSSING_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/** The id of "nas.79", when the service answers such a message. */
std::optional<uint32_t> sim_crossing_message(std::string_view name);

/** Why `name` is no crossing; nothing: it is one. */
std::optional<std::string> sim_crossing_wrong(const std::string &name);

#endif
