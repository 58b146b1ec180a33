/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [board], [nas], [scan] and [trace], and the tables that a scenario has.
 */
#include "sim_key_types.h"

namespace {

using board_t = decltype(sim_scenario::board);
constexpr sim_key board_keys[] = {
    {.name = "seed",
     .type = sim_key_number<&board_t::seed>(0),
     .initial = "1",
     .text = "of the noise: the same seed walks the same way"},
    {.name = "noise_db",
     .type = sim_key_number<&board_t::noise_db>(0, 1000),
     .initial = "2",
     .text = "random walk on rsrp, rsrq and snr, at most three times as far from the value given; 0: values stay as "
             "given"},
    {.name = "tick_ms",
     .type = sim_key_number<&board_t::tick_ms>(1, sim_key_longest_ms),
     .initial = "1000",
     .text = "one measurement each tick"},
};

using nas_t = decltype(sim_scenario::nas);
constexpr sim_key nas_keys[] = {
    {.name = "available",
     .type = sim_key_boolean<&nas_t::available>(),
     .initial = "true",
     .text = "false: the NAS service is never offered"},
    {.name = "available_after_ms",
     .type = sim_key_time<&nas_t::available_after_ms>(),
     .initial = "0",
     .text = "counted from the first platform call; until then the service list is empty"},
};

using scan_t = decltype(sim_scenario::scan);
constexpr sim_key scan_keys[] = {
    {.name = "answer_ms",
     .type = sim_key_time_or_never<&scan_t::answer_ms>(),
     .initial = "200",
     .text = "when the result of a neighbour scan comes; -1: never"},
    {.name = "status",
     .type = sim_key_number<&scan_t::status>(),
     .initial = "0",
     .text = "0 success; any other: a failed scan, nobody found"},
};

/** From a row a day on: slower, and the trace would seem to have stopped. */
constexpr sim_key_type speed() {
  sim_key_type type = sim_key_number<&sim_trace_cfg::speed>(0, 1'000'000'000);
  type.least = 1000.0 / sim_key_longest_ms;
  type.range = "from 1/86400, a row a day, to 1000000000";
  type.lone = 0;
  return type;
}

constexpr sim_key trace_keys[] = {
    {.name = "file",
     .type = sim_key_text<&sim_trace_cfg::file>(),
     .initial = "\"\"",
     .text = "the log, relative to the scenario's folder; \"\": no trace"},
    {.name = "speed",
     .type = speed(),
     .initial = "1",
     .text = "rows a second; 0: as fast as the board can; 1/86400 (0.0000116) is a row a day"},
    {.name = "after",
     .type = sim_key_crossing<&sim_trace_cfg::after>(true),
     .initial = "\"\"",
     .text = "what row 1 waits for, as in the timeline"},
    {.name = "skip",
     .type = sim_key_number<&sim_trace_cfg::skip>(0),
     .initial = "0",
     .text = "let so many of these calls pass first"},
};

constexpr sim_key scenario_keys[] = {
    {.name = "board", .type = sim_key_table<&sim_scenario::board>(sim_keys_board)},
    {.name = "nas", .type = sim_key_table<&sim_scenario::nas>(sim_keys_nas)},
    {.name = "sys_info", .type = sim_key_table<&sim_scenario::radio, &sim_radio::sys_info>(sim_keys_sys_info)},
    {.name = "lte", .type = sim_key_table<&sim_scenario::radio, &sim_radio::lte>(sim_keys_lte)},
    {.name = "nr5g", .type = sim_key_table<&sim_scenario::radio, &sim_radio::nr5g>(sim_keys_nr5g)},
    {.name = "endc", .type = sim_key_table<&sim_scenario::radio, &sim_radio::endc>(sim_keys_endc)},
    {.name = "scan", .type = sim_key_table<&sim_scenario::scan>(sim_keys_scan)},
    {.name = "wwan", .type = sim_key_table<&sim_scenario::wwan>(sim_keys_wwan)},
    {.name = "mtpe", .type = sim_key_table<&sim_scenario::mtpe>(sim_keys_mtpe)},
    {.name = "location", .type = sim_key_table<&sim_scenario::radio, &sim_radio::location>(sim_keys_location)},
    {.name = "at", .type = sim_key_checked_tables<sim_key_wrong_at, &sim_scenario::at>(sim_keys_at), .initial = "[]"},
    {.name = "fault",
     .type = sim_key_checked_tables<sim_key_wrong_fault, &sim_scenario::fault>(sim_keys_fault),
     .initial = "[]"},
    {.name = "trace", .type = sim_key_table<&sim_scenario::trace>(sim_keys_trace)},
};

}  // namespace

sim_keys sim_keys_board() {
  return board_keys;
}

sim_keys sim_keys_nas() {
  return nas_keys;
}

sim_keys sim_keys_scan() {
  return scan_keys;
}

sim_keys sim_keys_trace() {
  return trace_keys;
}

sim_keys sim_keys_scenario() {
  return scenario_keys;
}
