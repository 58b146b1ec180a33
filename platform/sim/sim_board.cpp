/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board in the hands of a test; see sim_board.h.
 */
#include "sim_board.h"

#include <algorithm>
#include <cstring>

#include "sim_journal.h"
#include "sim_state.h"

namespace {

sim_lib lib_of(std::string_view lib) {
  return lib == "oxmap" ? sim_lib::oxmap : sim_lib::nas;
}

bool timeline_idle() {
  const sim_state &board = sim_board_raw();
  return board.due.empty() || board.due.front().at > sim_clock::now();
}

bool idle() {
  const std::lock_guard guard(sim_board().lock);
  return timeline_idle() && sim_queues_idle();
}

void restart_with(sim_scenario scenario) {
  sim_board();
  sim_queues_pause(true);
  sim_clock_release();
  sim_journal_forget();
  sim_board_reset(std::move(scenario));
  sim_queues_pause(false);
}

// Random records, filled by the table like everything else.

void fill_entry(const sim_field &field, uint8_t *entry, std::mt19937_64 &random);

void fill_field(const sim_field &field, uint8_t *base, std::mt19937_64 &random) {
  uint32_t count = field.capacity;
  if (field.count_name) {
    count = static_cast<uint32_t>(random() % (field.capacity + 1));
    memcpy(base + field.count_offset, &count, sizeof count);
  }
  for (uint32_t i = 0; i < count; i++) {
    fill_entry(field, base + field.offset + i * field.size, random);
  }
}

void fill_entry(const sim_field &field, uint8_t *entry, std::mt19937_64 &random) {
  for (const sim_field &inner : field.fields) {
    fill_field(inner, entry, random);
  }
  if (field.kind == sim_kind::record) {
    return;
  }
  const uint64_t value = random();
  memcpy(entry, &value, field.size);
}

}  // namespace

std::string sim_board_load(std::string_view text, const std::string &folder) {
  std::string error;
  std::optional<sim_scenario> scenario = sim_scenario_parse(text, "scenario", folder, error);
  if (!scenario) {
    return error;
  }
  sim_board_preset(*scenario);
  if (sim_board_started()) {
    restart_with(*std::move(scenario));
  } else {
    sim_board();
  }
  return {};
}

void sim_board_restart() {
  sim_board();
  restart_with(sim_scenario(sim_board_raw().scenario));
}

void sim_board_post(std::string_view lib, uint32_t id, std::vector<uint8_t> bytes) {
  sim_board();
  sim_indicate_raw(lib_of(lib), id, std::move(bytes));
}

std::string sim_board_happen(const std::string &entry) {
  std::string error;
  const std::optional<sim_scenario> scenario = sim_scenario_parse("[[at]]\n" + entry, "entry", ".", error);
  const std::lock_guard guard(sim_board().lock);
  for (const sim_timeline_entry &now : scenario ? scenario->at : std::vector<sim_timeline_entry>()) {
    std::for_each(now.events.begin(), now.events.end(), sim_timeline_happen);
  }
  return error;
}

bool sim_board_wait_idle(unsigned int timeout_ms) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (!idle()) {
    if (std::chrono::steady_clock::now() > until) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

void sim_board_advance(double ms) {
  {
    const std::lock_guard guard(sim_board().lock);
    sim_clock_advance(std::chrono::duration_cast<sim_clock::duration>(std::chrono::duration<double, std::milli>(ms)));
    sim_board_raw().due_changed.notify_one();
  }
  sim_queues_wake();
}

void sim_board_journal_keep(bool on) {
  sim_journal_keep(on);
}

std::vector<std::string> sim_board_journal() {
  return sim_journal_lines();
}

std::vector<uint8_t> sim_board_sample(std::string_view lib, uint32_t id, uint64_t seed) {
  const sim_message *message = sim_message_find(lib_of(lib), sim_direction::indication, id);
  if (!message) {
    return {};
  }
  std::mt19937_64 random(seed);
  std::vector<uint64_t> record(message->size / sizeof(uint64_t) + 1);  // aligned for any struct
  uint8_t *base = reinterpret_cast<uint8_t *>(record.data());
  for (const sim_part &part : message->parts) {
    if (part.valid_name) {
      base[part.valid_offset] = static_cast<uint8_t>(random() % 4 != 0);
    }
    for (const sim_field &field : part.fields) {
      fill_field(field, base, random);
    }
  }
  std::vector<uint8_t> bytes;
  sim_message_encode(*message, base, bytes);
  return bytes;
}

sim_board_settings sim_board_nas_settings() {
  const std::lock_guard guard(sim_board().lock);
  const sim_nas_config &nas = sim_board_raw().nas;
  return {.pps_position_index = nas.pps.position_index,
          .pps_mode_enabled = nas.pps.pps_mode_enabled,
          .pps_freqs = nas.pps.freq_list_valid ? nas.pps.freq_list_len : 0,
          .pps_change_index = nas.pps_change.position_index,
          .pps_change_changed = nas.pps_change.position_changed,
          .pps_change_mode = nas.pps_change.pps_mode,
          .installing = nas.installing,
          .install_freqs = nas.install.freq_list_valid ? nas.install.freq_list_len : 0,
          .deprioritized = nas.deprioritized};
}
