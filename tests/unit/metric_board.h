/*
 * A simulated board at a given network status, for the tests of queries and metrics: what was asked of it and what was
 * logged, since the board was loaded or since the last metric_forget.
 *
 *   metric_board(OX_LYN_REG_LTE_NR5G_E, "[lte]\nrsrp = -80\n");
 *   EXPECT_EQ(lyn_yrp_nas_get_tx_pwr_info(&power), 0);
 *   EXPECT_THAT(metric_asked(), ElementsAre("90 {radio_if: 8}", "90 {radio_if: 12}"));
 *   EXPECT_THAT(metric_log(), Contains("HIGH LTE transmit power info - tx_valid[1]"));
 *
 * Every value of the board has a number of its own, so that one taken from the wrong place shows.
 */
#ifndef METRIC_BOARD_H
#define METRIC_BOARD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "diag_log.h"
#include "ox_lyn.h"
#include "sim_board.h"

/** The [sys_info] that means each network status, from 1 on. */
inline constexpr const char *metric_sys_info[] = {
    "lte = \"no_service\"\n",
    "lte = \"power_save\"\n",
    "lte = \"limited\"\n",
    "lte = \"limited_regional\"\n",
    "lte = \"service\"\nnr5g_pci = -1\n",
    "lte = \"service\"\nnr5g_pci = 777\n",
    "lte = \"absent\"\nnr5g = \"service\"\nnr5g_pci = -1\n",
};

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

/** Texts and numbers in one text. */
template <typename... part>
std::string metric_text(const part &...parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/** Forget what was logged and asked so far. */
inline void metric_forget() {
  diag_log_take();
  sim_board_journal_keep(true);
}

/** Load the board at rest. */
inline void metric_board(uint32_t network_status, const metric_tables &tables = {}) {
  const std::string text = std::string("[board]\nnoise_db = 0\n[sys_info]\n") + metric_sys_info[network_status - 1] +
                           "[lte]\n" + tables.lte + "[nr5g]\n" + tables.nr5g + "[endc]\n" + tables.endc +
                           "[location]\n" + tables.location + tables.rest;
  ASSERT_EQ(sim_board_load(text), "");
  metric_forget();
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

/** The board with one key of both radios' tables, or of one, in place of its usual value. */
inline metric_tables metric_with_lte(const std::string &key, const std::string &value, metric_tables tables = {}) {
  const size_t at = ("\n" + tables.lte).find("\n" + key + " = ");
  tables.lte.replace(at, tables.lte.find('\n', at) - at, key + " = " + value);
  return tables;
}
inline metric_tables metric_with_nr5g(const std::string &key, const std::string &value, metric_tables tables = {}) {
  const size_t at = ("\n" + tables.nr5g).find("\n" + key + " = ");
  tables.nr5g.replace(at, tables.nr5g.find('\n', at) - at, key + " = " + value);
  return tables;
}

/** A zeroed record that asks for a metric. */
inline ox_lyn_dm_info_t metric_request(uint32_t metric, void *buffer = nullptr) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  info.value.ptr = buffer;
  return info;
}

/** The requests that reached the modem, in order: id and, where there are any, fields. */
inline std::vector<std::string> metric_asked() {
  std::vector<std::string> asked;
  for (const std::string &line : sim_board_journal()) {
    const auto entry = nlohmann::json::parse(line);
    if (entry["lib"] != "nas" || entry["dir"] != "request")
      continue;
    std::string fields;
    for (const auto &[name, value] : entry["fields"].items())
      fields += (fields.empty() ? "" : ", ") + name + ": " + value.dump();
    asked.push_back(entry["id"].dump() + (fields.empty() ? "" : " {" + fields + "}"));
  }
  return asked;
}

/** What was logged since the last call, "HIGH text" or "ERROR text". */
inline std::vector<std::string> metric_log() {
  std::vector<std::string> lines;
  for (const diag_log_record &record : diag_log_take())
    lines.push_back(record.level + " " + record.text);
  return lines;
}

/** Only what was logged at error level. */
inline std::vector<std::string> metric_errors() {
  return diag_log_texts("ERROR");
}

#endif
