/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Measurements: which values are valid, the noise on them, and the rule of their reports.
 *
 * A client that asked for signal information (message 3) and gave deltas (message 108) gets an indication 81 when a
 * value that has a delta moved at least that far from what was last reported of it, or was not reported since the 108.
 * The indication carries every value that is valid, and all of them count as reported; what is not valid sends nothing.
 */
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "sim_state.h"

namespace {

struct sim_value_traits {
  std::optional<int> &(*slot)(sim_radio &);
  double unit;   /**< steps in one dB */
  int low, high; /**< where the noise stops */
};

constexpr sim_value_traits traits[] = {
    {[](sim_radio &radio) -> std::optional<int> & { return radio.lte.rsrp; }, 1, -140, -44},
    {[](sim_radio &radio) -> std::optional<int> & { return radio.lte.rsrq; }, 1, -30, -3},
    {[](sim_radio &radio) -> std::optional<int> & { return radio.lte.snr; }, 10, -200, 300},
    {[](sim_radio &radio) -> std::optional<int> & { return radio.nr5g.rsrp; }, 1, -140, -44},
    {[](sim_radio &radio) -> std::optional<int> & { return radio.nr5g.rsrq; }, 1, -30, -3},
    {[](sim_radio &radio) -> std::optional<int> & { return radio.nr5g.snr; }, 10, -200, 300},
};
static_assert(std::size(traits) == SIM_VALUES);

/** How far the noise may walk from what was set, in steps of noise_db. */
constexpr double walk_limit = 3;

bool all_measured(const sim_measured &values, std::initializer_list<sim_value> which) {
  return std::all_of(which.begin(), which.end(), [&values](sim_value value) { return values[value].has_value(); });
}

void drop(sim_measured &values, std::initializer_list<sim_value> which) {
  for (const sim_value value : which) {
    values[value].reset();
  }
}

void put_noise(sim_value value) {
  sim_state &board = sim_board_raw();
  std::optional<int> &now = traits[value].slot(board.now);
  const std::optional<int> base = traits[value].slot(board.base);
  now = base;
  if (!base || board.walk[value] == 0) {
    return;
  }
  // A scenario may set a value outside the limits; the noise then stops there.
  const int low = std::min(traits[value].low, *base), high = std::max(traits[value].high, *base);
  now = std::clamp(*base + static_cast<int>(std::lround(board.walk[value])), low, high);
}

bool asks_for_report(const sim_registration &nas, const sim_measured &values) {
  if (!nas.sig_info || !nas.deltas_given) {
    return false;
  }
  for (size_t i = 0; i < SIM_VALUES; i++) {
    if (!values[i] || !nas.delta[i]) {
      continue;
    }
    if (!nas.reported[i] || std::abs(*values[i] - *nas.reported[i]) >= *nas.delta[i]) {
      return true;
    }
  }
  return false;
}

void report(sim_client &client, yrp_client_type handle, const sim_measured &values) {
  yrp_nas_sig_info_ind_t ind = {};
  if (values[SIM_LTE_RSRP]) {
    ind.lte_sig_info_valid = 1;
    ind.lte_sig_info = {static_cast<int16_t>(*values[SIM_LTE_RSRP]), static_cast<int16_t>(*values[SIM_LTE_SNR]),
                        static_cast<int8_t>(*values[SIM_LTE_RSRQ])};
  }
  if (values[SIM_NR5G_RSRP]) {
    ind.nr5g_sig_info_valid = 1;
    ind.nr5g_sig_info = {static_cast<int16_t>(*values[SIM_NR5G_RSRP]), static_cast<int16_t>(*values[SIM_NR5G_SNR])};
  }
  if (values[SIM_NR5G_RSRQ]) {
    ind.nr5g_rsrq_valid = 1;
    ind.nr5g_rsrq = static_cast<int16_t>(*values[SIM_NR5G_RSRQ]);
  }
  for (size_t i = 0; i < SIM_VALUES; i++) {
    if (values[i]) {
      client.nas.reported[i] = values[i];
    }
  }
  sim_indicate_to(handle, sim_lib::nas, YRP_NAS_SIG_INFO_IND, &ind);
}

}  // namespace

sim_measured sim_measure() {
  sim_state &board = sim_board_raw();
  sim_measured values;
  for (size_t i = 0; i < SIM_VALUES; i++) {
    values[i] = traits[i].slot(board.now);
  }

  const std::initializer_list<sim_value> lte = {SIM_LTE_RSRP, SIM_LTE_RSRQ, SIM_LTE_SNR};
  const std::initializer_list<sim_value> nr5g = {SIM_NR5G_RSRP, SIM_NR5G_SNR};
  if (!sim_lte_on() || !all_measured(values, lte)) {
    drop(values, lte);
  }
  if (!all_measured(values, nr5g)) {
    drop(values, nr5g);
  }
  // A drive test may have measured NR 5G without having been served by it.
  if (!board.row && !sim_nr5g_on()) {
    drop(values, {SIM_NR5G_RSRP, SIM_NR5G_RSRQ, SIM_NR5G_SNR});
  }
  return values;
}

void sim_measure_report() {
  sim_state &board = sim_board_raw();
  board.unreported = !board.modem_up;
  if (board.unreported) {
    return;
  }
  const sim_measured values = sim_measure();
  for (const auto &[handle, client] : board.clients) {
    if (asks_for_report(client->nas, values)) {
      report(*client, handle, values);
    }
  }
}

void sim_measure_first_report(sim_client &client, yrp_client_type handle) {
  const sim_measured values = sim_measure();
  const bool any = std::any_of(values.begin(), values.end(), [](const auto &value) { return value.has_value(); });
  if (client.nas.sig_info && any) {
    report(client, handle, values);
  }
}

void sim_measure_rebase(const sim_radio &before) {
  sim_state &board = sim_board_raw();
  board.now = board.base;
  sim_radio old = before;
  for (size_t i = 0; i < SIM_VALUES; i++) {
    if (traits[i].slot(old) != traits[i].slot(board.base)) {
      board.walk[i] = 0;
    }
    put_noise(static_cast<sim_value>(i));
  }
}

void sim_measure_tick() {
  sim_state &board = sim_board_raw();
  const double noise_db = board.scenario.board.noise_db;
  const bool moves = noise_db > 0 && !board.row;
  for (size_t i = 0; moves && i < SIM_VALUES; i++) {
    const double step = noise_db * traits[i].unit;
    board.walk[i] = std::clamp(board.walk[i] + (2 * sim_random() - 1) * step, -walk_limit * step, walk_limit * step);
    put_noise(static_cast<sim_value>(i));
  }
  // Where nothing moves there is nothing to report, but what the modem missed while it was down.
  if (moves || board.unreported) {
    sim_measure_report();
  }
}
