/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A simulated board at a given network status, for the tests of queries and metrics, and what was asked of it.
 *
 *   metric_board(OX_LYN_REG_LTE_NR5G_E, "[lte]\nrsrp = -80\n");
 *   EXPECT_EQ(lyn_yrp_nas_get_tx_pwr_info(&power), 0);
 *   EXPECT_THAT(metric_asked(), ElementsAre("90 {radio_if: 8}", "90 {radio_if: 12}"));
 *   EXPECT_THAT(diag_log_lines(), Contains("HIGH LTE transmit power info - tx_valid[1]"));
 *
 * Every value of the board has a number of its own, so that one taken from the wrong place shows.
 */
#ifndef METRIC_BOARD_H
#define METRIC_BOARD_H

#include <string>
#include <vector>

#include "board.h"

/** Settings of one table of the scenario; a test gives its own in place of these, or adds faults and timelines. */
struct metric_tables {
  std::string lte =
      "earfcn = 1301\npci = 214\ntac = 6699\ncgi = 10607298\nplmn = [0x72, 0xF2, 0x10]\nrsrp = -95\nrsrq = -11\n"
      "snr = 130\nrssi = -65\ntx_power = -120\nrrc_state = 3\ncqi = [[12, 11], [9]]\ndl_mod = [2, 3]\nul_mod = [1]\n"
      "rf_bandwidth = [3, 4]\nca_dl_bandwidth = 4\ncell_lock = [{ pci = 214, freq = 1301 }, { pci = 65535, freq = 0 "
      "}]\n";
  std::string nr5g =
      "arfcn = 636001\npci = 500\ncgi = 68719476736\ntac = [0x00, 0x1A, 0xFF]\nplmn = [0x73, 0xF3, 0x20]\n"
      "rsrp = -98\nrsrq = -13\nsnr = -15\ntx_power = 150\nrrc_state = 2\nscs = 1\ncqi = [[14, 13]]\ndl_mod = [4]\n"
      "ul_mod = [2, 0]\nrf_bandwidth = [10]\n"
      "cell_lock = { type = 1, pci = 501, arfcn = 636002, scs = 2, list = [] }\n";
  std::string endc = "available = 1\nrestrict_dcnr = 0\n";
  std::string location = "capabilities_ms = -1\n"; /* no callback comes while a test looks at the log */
  std::string rest;
};

/** Load the board at rest. */
inline void metric_board(uint32_t network_status, const metric_tables &tables = {}) {
  board_load(board_status(network_status) + "[lte]\n" + tables.lte + "[nr5g]\n" + tables.nr5g + "[endc]\n" +
             tables.endc + "[location]\n" + tables.location + tables.rest);
  board_forget();
}

/** One fault of NAS message `id`, the `skip`+1-th of it: `what` names its effect. */
inline std::string metric_fault(int id, int skip, const std::string &what) {
  return "[[fault]]\non = \"nas." + std::to_string(id) + "\"\nskip = " + std::to_string(skip) + "\n" + what + "\n";
}

/** The same on the board of each test, with nothing else changed. */
inline metric_tables metric_with(const std::string &rest) {
  metric_tables tables;
  tables.rest = rest;
  return tables;
}

/** The board with one key of a radio's table in place of its usual value. */
inline metric_tables metric_with_key(std::string metric_tables::*table, const std::string &key,
                                     const std::string &value, metric_tables tables) {
  std::string &text = tables.*table;
  const size_t at = ("\n" + text).find("\n" + key + " = ");
  text.replace(at, text.find('\n', at) - at, key + " = " + value);
  return tables;
}
inline metric_tables metric_with_lte(const std::string &key, const std::string &value,
                                     const metric_tables &tables = {}) {
  return metric_with_key(&metric_tables::lte, key, value, tables);
}
inline metric_tables metric_with_nr5g(const std::string &key, const std::string &value,
                                      const metric_tables &tables = {}) {
  return metric_with_key(&metric_tables::nr5g, key, value, tables);
}

/** The requests that reached the modem, in order: id and, where there are any, fields. */
inline std::vector<std::string> metric_asked() {
  std::vector<std::string> asked;
  for (const auto &row : board_journal("nas", "request")) {
    std::string fields;
    for (const auto &[name, value] : row["fields"].items()) {
      fields += (fields.empty() ? "" : ", ") + name + ": " + value.dump();
    }
    asked.push_back(row["id"].dump() + (fields.empty() ? "" : " {" + fields + "}"));
  }
  return asked;
}

#endif
