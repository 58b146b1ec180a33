/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Names of crossings of the platform boundary, as faults and the timeline give them: "nas.79", "yrp.release", ...; of
 * indications, which cross it the other way: "nas.ind.81"; and "any", which is every call.
 */
#ifndef SIM_CROSSING_H
#define SIM_CROSSING_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "sim_message.h"

/** Every call, whatever its name; not the indications. */
inline constexpr char sim_crossing_any[] = "any";

/** What the client gets at "nas.79" or "nas.ind.81": the response or the indication; null at all others. */
const sim_message *sim_crossing_message(std::string_view name);

/** "nas.ind.81" */
std::string sim_crossing_indication(sim_lib lib, uint32_t id);

/** Why `name` is no crossing; nothing: it is one. */
std::optional<std::string> sim_crossing_wrong(const std::string &name);

#endif
