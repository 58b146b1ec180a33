/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The simulated board in the hands of a test in the same process: which board it is, what it sends, when it is at rest,
 * and what crossed its boundary.
 *
 *   sim_board_journal_keep(true);
 *   sim_board_load("[board]\nnoise_db = 0\n");     // a fresh board, before or after the first platform call
 *   ... calls of the module ...
 *   sim_board_post("nas", 81, {0x01, 0x02});       // any bytes under any id
 *   sim_board_advance(500);                        // half a second passes at once
 *   sim_board_wait_idle(1000);
 *   sim_board_journal();                           // lines as LYN_SIM_JOURNAL would have them
 *
 * Once sim_board_load was called, LYN_SIM_SCENARIO is not read; the other two variables are.
 */
#ifndef SIM_BOARD_H
#define SIM_BOARD_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

/**
 * Restart the board with the scenario in `text` (TOML); relative file names are resolved against `folder`. Returns an
 * empty string, or what is wrong with the scenario: the board then stays as it was. Same rules as sim_board_restart.
 */
std::string sim_board_load(std::string_view text, const std::string &folder = ".");

/**
 * Start over with the scenario in force: time, service, radios, stored settings and registrations are as at the first
 * call, queued work is dropped, and the next yrp_client_init_instance is time 0 again. Open handles stay open. Waits
 * for callbacks that run; to be called with no other platform call under way, and never from a callback.
 */
void sim_board_restart();

/**
 * Deliver `bytes` as indication `id` to the clients of `lib` ("nas" or "oxmap"), behind what is already queued; nothing
 * of "nas" while the modem is down.
 */
void sim_board_post(std::string_view lib, uint32_t id, std::vector<uint8_t> bytes);

/**
 * Have happen now what an entry of the timeline says: sim_board_happen("modem = 'down'"). Returns an empty string, or
 * what is wrong with it.
 */
std::string sim_board_happen(const std::string &entry);

/** Wait until nothing is due, queued or being delivered. False when that takes longer than `timeout_ms`. */
bool sim_board_wait_idle(unsigned int timeout_ms);

/**
 * Let `ms` of the board's time pass at once: what falls due in them is done in the order of its times, as soon as the
 * board's threads get to it. From the first call on until the next load or restart time stands still but for these
 * calls, so that a day takes as long as its work. Advance no further than the interval of a batching session, whose
 * next location is due from when the last one was there. Delays of faults are waited out as ever.
 */
void sim_board_advance(double ms);

/** Keep the journal in memory from here on, or keep it no more. What was kept goes; so it does at a restart. */
void sim_board_journal_keep(bool on);

/** The lines kept; those of a drive's first row and later, where the journal was kept before the board was loaded. */
std::vector<std::string> sim_board_journal();

/**
 * A well-formed message `id` of `lib` as the modem would send it, its optional parts, list lengths and values drawn by
 * `seed`: a seed for mutation. Empty when there is no such indication.
 */
std::vector<uint8_t> sim_board_sample(std::string_view lib, uint32_t id, uint64_t seed);

/** The last settings that the NAS service accepted and has no query for. */
struct sim_board_settings {
  uint8_t pps_position_index, pps_mode_enabled;
  uint32_t pps_freqs;
  uint8_t pps_change_index, pps_change_changed;
  uint32_t pps_change_mode;
  bool installing;
  uint32_t install_freqs;
  bool deprioritized;
};
sim_board_settings sim_board_nas_settings();

#endif
