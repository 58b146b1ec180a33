/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any bytes as a drive test. Ends with an error where it is neither refused with a line that says where and why, nor
 * gives one row for each line behind the header with every value in its range; and where a row reads otherwise when it
 * is the only one.
 */
#include <cmath>
#include <optional>
#include <tuple>
#include <vector>

#include "fuzz.h"
#include "sim_scenario.h"

namespace {

constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF"; /* one is passed over, a second one is a name's */

/** What is on the lines that are not blank, with their line breaks. */
std::vector<std::string_view> filled_lines(std::string_view text) {
  if (text.starts_with(byte_order_mark)) {
    text.remove_prefix(byte_order_mark.size());
  }
  std::vector<std::string_view> lines;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    const std::string_view with_break = text.substr(0, line.size() + 1);
    text.remove_prefix(with_break.size());
    if (line.find_first_not_of(" \t\r") != std::string_view::npos) {
      lines.push_back(with_break);
    }
  }
  return lines;
}

template <typename number>
void hold_between(const std::optional<number> &value, double least, double most, const char *name) {
  fuzz_hold(!value || (static_cast<double>(*value) >= least && static_cast<double>(*value) <= most), name);
}

void hold_ranges(const sim_trace_row &row) {
  hold_between(row.rsrp, -156, -31, "RSRP");
  hold_between(row.nbr_rsrp, -156, -31, "NRxRSRP");
  hold_between(row.nr_rsrp, -156, -31, "NR_RSRP");
  hold_between(row.rsrq, -43, 20, "RSRQ");
  hold_between(row.nbr_rsrq, -43, 20, "NRxRSRQ");
  hold_between(row.nr_rsrq, -43, 20, "NR_RSRQ");
  hold_between(row.snr, -400, 500, "SNR");
  hold_between(row.nr_snr, -400, 500, "NR_SNR");
  hold_between(row.cqi, 0, 15, "CQI");
  hold_between(row.longitude, -180, 180, "Longitude");
  hold_between(row.latitude, -90, 90, "Latitude");
  hold_between(row.speed, 0, 1e6 / 3.6, "Speed");
  fuzz_hold(!row.nr5g_cell || row.lte == sim_srv::service, "an NR 5G cell stands beside LTE in service");
}

auto values(const sim_trace_row &row) {
  return std::tie(row.lte, row.nr5g_cell, row.rsrp, row.rsrq, row.snr, row.nbr_rsrp, row.nbr_rsrq, row.cqi, row.cgi,
                  row.tac, row.nr_rsrp, row.nr_rsrq, row.nr_snr, row.longitude, row.latitude, row.speed,
                  row.timestamp_ms);
}

/** What a row leaves of the board when it is put in force. */
void hold_applied(const sim_trace_row &row, int nr5g_pci) {
  sim_radio radio = sim_scenario_default().radio;
  sim_trace_apply(row, nr5g_pci, radio);
  const bool lte = row.lte == sim_srv::service;
  fuzz_hold(radio.sys_info.nr5g_pci == (row.nr5g_cell ? nr5g_pci : -1), "the NR 5G cell is the row's");
  fuzz_hold(radio.lte.rsrp == (lte ? row.rsrp : std::nullopt), "without LTE nothing of it is measured");
  fuzz_hold(radio.lte.neighbour.size() == 1, "the board keeps its neighbour");
  const bool placed = (radio.location.fix.flags & location_client::LOCATION_HAS_LAT_LONG) != 0;
  fuzz_hold(placed == (row.latitude && row.longitude), "a place is latitude and longitude");
}

/** Each by itself: as many as one input of a long drive should take time for. */
void hold_alone(const std::vector<std::string_view> &lines, const std::vector<sim_trace_row> &rows) {
  for (size_t i = 0; i < rows.size() && i < 8; ++i) {
    const std::string text = std::string(byte_order_mark) + std::string(lines[0]) + std::string(lines[i + 1]);
    std::string error;
    const auto alone = sim_trace_load(fuzz_file(text), error);
    fuzz_hold(alone && alone->size() == 1 && values(alone->front()) == values(rows[i]), "a row depends on no other",
              text);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string_view text = fuzz_text(data, size);
  const std::string name = fuzz_file(text);
  std::string error;
  const std::optional<std::vector<sim_trace_row>> rows = sim_trace_load(name, error);
  fuzz_hold(rows.has_value() == error.empty(), "a drive is read or refused", error);
  if (!rows) {
    fuzz_hold_error(error, name, text, true);
    return 0;
  }
  const std::vector<std::string_view> lines = filled_lines(text);
  fuzz_hold(rows->size() + 1 == lines.size(), "each line behind the header is a row");
  for (const sim_trace_row &row : *rows) {
    hold_ranges(row);
    hold_applied(row, 500);
  }
  hold_alone(lines, *rows);
  return 0;
}
