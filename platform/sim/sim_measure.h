/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The measured values of the board, and their reports to NAS clients. Call with sim_lock held.
 */
#ifndef SIM_MEASURE_H
#define SIM_MEASURE_H

#include <array>
#include <optional>

#include "sim_core.h"
#include "yrp_client.h"

struct sim_client;

/** The six values that indication 81 reports and message 108 has deltas for. */
enum sim_value { SIM_LTE_RSRP, SIM_LTE_RSRQ, SIM_LTE_SNR, SIM_NR5G_RSRP, SIM_NR5G_RSRQ, SIM_NR5G_SNR, SIM_VALUES };

using sim_measured = std::array<std::optional<int>, SIM_VALUES>;

sim_measured sim_measure();
/** A new measurement: reports it to every client whose deltas ask for it. */
void sim_measure_report();
/** Report all values to a client that gave new deltas. */
void sim_measure_first_report(sim_client &client, yrp_client_type handle);
/** The base changed: what was set is reported as set. */
void sim_measure_rebase(const sim_radio &before);
void sim_measure_tick();

#endif
