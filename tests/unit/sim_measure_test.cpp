/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Measurements of the simulated board: which values indication 81 reports and when, the noise, and drive tests.
 */
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <set>

#include "sim_client.h"

namespace {

constexpr char header[] =
    "Timestamp,Longitude,Latitude,Speed,Operatorname,CellID,NetworkMode,RSRP,RSRQ,SNR,CQI,RSSI,DL_bitrate,UL_bitrate,"
    "State,PINGAVG,PINGMIN,PINGMAX,PINGSTDEV,PINGLOSS,CELLHEX,NODEHEX,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ,NR_RSRP,NR_RSRQ,"
    "NR_SNR\n";

struct row {
  const char *mode = "LTE";
  std::string rsrp = "-90", rsrq = "-8", snr = "5", nr_rsrp = "-", nr_rsrq = "-", nr_snr = "-";
};

std::string line(const row &values) {
  return std::string("2020.02.14_07.29.00,-8.388198,51.93559,0,B,2,") + values.mode + ',' + values.rsrp + ',' +
         values.rsrq + ',' + values.snr + ",10,-105,10,4,D,-,-,-,-,-,2,A81B,9CBA,11016962,-95,-10," + values.nr_rsrp +
         ',' + values.nr_rsrq + ',' + values.nr_snr + '\n';
}

struct sim_measure : sim_board_test {
  std::string folder;

  void TearDown() override {
    sim_board_test::TearDown();
    if (folder.empty()) {
      return;
    }
    unlink((folder + "/drive.csv").c_str());
    rmdir(folder.c_str());
  }

  void configure(uint16_t rsrp, uint16_t rsrq = 0, uint16_t snr = 0) {
    yrp_nas_config_sig_info_req_t req = {};
    req.lte_rsrp_delta_valid = rsrp > 0;
    req.lte_rsrp_delta = rsrp;
    req.lte_rsrq_delta_valid = rsrq > 0;
    req.lte_rsrq_delta = rsrq;
    req.lte_snr_delta_valid = snr > 0;
    req.lte_snr_delta = snr;
    EXPECT_EQ(client.command(YRP_NAS_CONFIG_SIG_INFO, req).resp.result, 0U);
  }

  void configure_nr5g(uint16_t rsrp) {
    yrp_nas_config_sig_info_req_t req = {};
    req.nr5g_rsrp_delta_valid = 1;
    req.nr5g_rsrp_delta = rsrp;
    EXPECT_EQ(client.command(YRP_NAS_CONFIG_SIG_INFO, req).resp.result, 0U);
  }

  void report(uint8_t on) {
    yrp_nas_indication_register_req_t req = {};
    req.sig_info_valid = 1;
    req.sig_info = on;
    EXPECT_EQ(client.command(YRP_NAS_INDICATION_REGISTER, req).resp.result, 0U);
  }

  std::vector<yrp_nas_sig_info_ind_t> reports() {
    return client.indications<yrp_nas_sig_info_ind_t>(YRP_NAS_SIG_INFO_IND);
  }

  std::vector<int> reported_rsrp() {
    std::vector<int> values;
    for (const yrp_nas_sig_info_ind_t &ind : reports()) {
      values.push_back(ind.lte_sig_info.rsrp);
    }
    return values;
  }

  /** A board on a drive test, its rows waiting for message 108. */
  void drive(const std::string &lines, const std::string &trace = "speed = 0\nafter = \"nas.108\"\n") {
    char name[] = "/tmp/sim_measure_XXXXXX";
    folder = mkdtemp(name);
    std::ofstream(folder + "/drive.csv") << header << lines;
    sim_board_journal_keep(true);
    ASSERT_EQ(sim_board_load("[trace]\nfile = \"drive.csv\"\n" + trace, folder), "");
    client.connect();
    client.register_all();
  }
};

/** Entries that change LTE RSRP, each after one more message 77. */
std::string rsrp_steps(std::initializer_list<int> values) {
  std::string text = "[board]\nnoise_db = 0\n";
  int skip = 0;
  for (const int value : values) {
    text += "[[at]]\nafter = \"nas.108\"\nms = " + std::to_string(skip++) +
            "\nlte = { rsrp = " + std::to_string(value) + " }\n";
  }
  return text;
}

TEST_F(sim_measure, all_valid_values_go_out_at_once_after_108) {
  board("[board]\nnoise_db = 0\n");
  client.register_all();
  configure(5);
  const auto sent = reports();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].lte_sig_info.rsrp, -95);
  EXPECT_EQ(sent[0].lte_sig_info.snr, 130);
  EXPECT_EQ(sent[0].nr5g_sig_info.rsrp, -98);
  EXPECT_EQ(sent[0].nr5g_rsrq, -11);
  configure(5);
  EXPECT_EQ(reports().size(), 2U);
}

TEST_F(sim_measure, nothing_goes_out_while_reporting_is_off_or_nobody_is_measured) {
  board("[board]\nnoise_db = 0\n");
  configure(1);
  EXPECT_TRUE(reports().empty());
  report(1);
  configure(1);
  EXPECT_EQ(reports().size(), 1U);
  report(0);
  configure(1);
  EXPECT_EQ(reports().size(), 1U);
  client.release();
  client.handle = nullptr;
  board("[board]\nnoise_db = 0\n[sys_info]\nlte = \"no_service\"\nnr5g_pci = -1\n");
  report(1);
  configure(1);
  EXPECT_EQ(reports().size(), 1U);
}

TEST_F(sim_measure, a_value_is_reported_when_it_moved_by_its_delta_from_what_was_last_reported) {
  board(rsrp_steps({-96, -97, -98, -97, -96, -95, -94}));
  client.register_all();
  configure(3);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 3));
  EXPECT_EQ(reported_rsrp(), (std::vector<int>{-95, -98, -95}));
}

TEST_F(sim_measure, a_value_without_a_delta_does_not_report_but_is_carried_and_counts_as_reported) {
  board(
      "[board]\nnoise_db = 0\n"
      "[[at]]\nafter = \"nas.108\"\nms = 0\nlte = { rsrp = -100 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 1\nlte = { rsrq = -15 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 2\nlte = { snr = 10 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 20\nraw = { lib = \"nas\", id = 900, bytes = \"\" }\n");
  client.register_all();
  configure(0, 4);
  ASSERT_TRUE(client.wait_for(900, 1));
  const auto sent = reports();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[1].lte_sig_info.rsrp, -100);
  EXPECT_EQ(sent[1].lte_sig_info.rsrq, -15);
  EXPECT_EQ(sent[1].lte_sig_info.snr, 130);
}

TEST_F(sim_measure, a_part_that_returns_is_compared_with_what_was_last_reported_of_it) {
  board(
      "[board]\nnoise_db = 0\n"
      "[[at]]\nafter = \"nas.108\"\nms = 0\nsys_info = { lte = \"no_service\" }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 1\nsys_info = { lte = \"service\" }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 2\nsys_info = { lte = \"no_service\" }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 3\nlte = { rsrp = -99 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 4\nsys_info = { lte = \"service\" }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 20\nraw = { lib = \"nas\", id = 900, bytes = \"\" }\n");
  client.register_all();
  configure(2);
  ASSERT_TRUE(client.wait_for(900, 1));
  EXPECT_EQ(reported_rsrp(), (std::vector<int>{-95, -99}));
}

TEST_F(sim_measure, a_value_first_measured_after_108_is_reported) {
  board(
      "[board]\nnoise_db = 0\n[sys_info]\nlte = \"no_service\"\n"
      "[[at]]\nafter = \"nas.108\"\nms = 0\nsys_info = { lte = \"service\" }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 20\nraw = { lib = \"nas\", id = 900, bytes = \"\" }\n");
  client.register_all();
  configure(50);
  ASSERT_TRUE(client.wait_for(900, 1));
  EXPECT_EQ(reported_rsrp(), (std::vector<int>{-95}));
}

TEST_F(sim_measure, noise_moves_the_values_within_limits_and_the_same_for_one_seed) {
  const char scenario[] = "[board]\nseed = 5\nnoise_db = 2\ntick_ms = 1\n";
  std::vector<int> runs[2];
  for (std::vector<int> &values : runs) {
    client.received.clear();
    ASSERT_EQ(sim_board_load(scenario), "");
    client.connect();
    client.register_all();
    configure(1);
    ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 40));
    sim_board_restart();
    values = reported_rsrp();
    client.release();
    client.handle = nullptr;
  }
  std::set<int> distinct(runs[0].begin(), runs[0].end());
  EXPECT_GT(distinct.size(), 3U);
  for (const int value : runs[0]) {
    EXPECT_LE(std::abs(value + 95), 6);
  }
  // The first report is of the moment of the 108, between two ticks of its own.
  const size_t both = std::min(runs[0].size(), runs[1].size());
  EXPECT_TRUE(std::equal(runs[0].begin() + 1, runs[0].begin() + 20, runs[1].begin() + 1) || both < 20);
}

TEST_F(sim_measure, a_quiet_board_sends_nothing_after_the_first) {
  board("[board]\nnoise_db = 0\ntick_ms = 1\n");
  client.register_all();
  configure(1);
  usleep(50000);
  EXPECT_EQ(reports().size(), 1U);
}

TEST_F(sim_measure, what_is_measured_after_the_modem_was_down_is_compared_with_what_was_last_reported) {
  board(
      "[board]\nnoise_db = 0\ntick_ms = 1\n"
      "[[at]]\nafter = \"nas.108\"\nmodem = \"down\"\n"
      "[[at]]\nafter = \"nas.108\"\nms = 5\nlte = { rsrp = -101 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 10\nmodem = \"up\"\n"
      "[[at]]\nafter = \"nas.108\"\nms = 30\nmodem = \"down\"\n"
      "[[at]]\nafter = \"nas.108\"\nms = 31\nlte = { rsrp = -120 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 40\nlte = { rsrp = -103 }\n"
      "[[at]]\nafter = \"nas.108\"\nms = 50\nmodem = \"up\"\n"
      "[[at]]\nafter = \"nas.108\"\nms = 70\nraw = { lib = \"nas\", id = 900, bytes = \"\" }\n");
  client.register_all();
  configure(5);
  ASSERT_TRUE(client.wait_for(900, 1));
  EXPECT_EQ(reported_rsrp(), (std::vector<int>{-95, -101})) << "by the tick; -103 is less than the delta from -101";
}

TEST_F(sim_measure, rows_of_a_drive_go_by_while_the_modem_is_down) {
  std::string lines;
  for (const char *rsrp : {"-90", "-80", "-70", "-60"}) {
    row values;
    values.rsrp = rsrp;
    lines += line(values);
  }
  drive(lines,
        "speed = 100\nafter = \"nas.108\"\n"
        "[[at]]\nafter = \"nas.108\"\nms = 5\nmodem = \"down\"\n"
        "[[at]]\nafter = \"nas.108\"\nms = 25\nmodem = \"up\"\n");
  configure(5);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 2));
  EXPECT_EQ(reported_rsrp(), (std::vector<int>{-90, -60}));
  EXPECT_EQ(journaled({"trace_row"}), 4U);
}

TEST_F(sim_measure, no_row_of_a_drive_is_skipped_or_merged) {
  std::string lines;
  std::vector<int> expected;
  for (int i = 0; i < 20000; i++) {
    expected.push_back(-90 - i % 7 * 2);
    row values;
    values.rsrp = std::to_string(expected.back());
    lines += line(values);
  }
  drive(lines);
  configure(1);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, expected.size(), 30000));
  EXPECT_EQ(reported_rsrp(), expected);
  EXPECT_EQ(journaled({"trace_row"}), expected.size());
  EXPECT_EQ(journaled({R"("name": "trace_end", "fields": {"rows": 20000})"}), 1U);
}

TEST_F(sim_measure, the_first_row_is_in_force_before_the_client_starts) {
  row first;
  first.rsrp = "-71";
  drive(line(first) + line({}));
  const auto signal = client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
  EXPECT_EQ(signal.lte_sig_info.rsrp, -71);
  EXPECT_EQ(signal.lte_sig_info.snr, 50);
  EXPECT_EQ(journaled({R"("name": "trace_row", "fields": {"row": 0})"}), 1U);
}

TEST_F(sim_measure, a_drive_sends_system_information_where_it_differs_from_the_row_before) {
  row lte, nr5g, none;
  nr5g.mode = "5G";
  none.mode = "HSPA+";
  drive(line(lte) + line(lte) + line(nr5g) + line(nr5g) + line(none) + line(lte));
  configure(1);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SYS_INFO_IND, 3));
  const auto sent = client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND);
  ASSERT_EQ(sent.size(), 3U);
  EXPECT_EQ(sent[0].nr5g_pci_valid, 1);
  EXPECT_EQ(sent[0].nr5g_pci, 500);
  EXPECT_EQ(sent[1].lte_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_NO_SERVICE});
  EXPECT_EQ(sent[1].nr5g_pci_valid, 0);
  EXPECT_EQ(sent[2].lte_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_SERVICE});
}

TEST_F(sim_measure, nr5g_values_of_a_drive_are_valid_exactly_where_the_row_has_them) {
  row without, with, half;
  without.mode = with.mode = half.mode = "5G";
  with.nr_rsrp = half.nr_rsrp = "-80";
  with.nr_rsrq = "-9";
  with.nr_snr = "12.5";
  drive(line(without) + line(with) + line(half));
  EXPECT_EQ(client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO).nr5g_sig_info_valid, 0);
  configure_nr5g(1);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 2));
  const auto sent = reports();
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].nr5g_sig_info_valid, 0);
  EXPECT_EQ(sent[1].nr5g_sig_info.rsrp, -80);
  EXPECT_EQ(sent[1].nr5g_sig_info.snr, 125);
  EXPECT_EQ(sent[1].nr5g_rsrq, -9);
  const auto last = client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
  EXPECT_EQ(last.nr5g_sig_info_valid, 0);
  EXPECT_EQ(last.nr5g_rsrq_valid, 0);
}

TEST_F(sim_measure, rows_stand_before_what_they_cause_and_the_end_behind) {
  row second;
  second.rsrp = "-80";
  drive(line({}) + line(second));
  configure(1);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 2));
  ASSERT_TRUE(sim_board_wait_idle(1000));
  size_t at[4] = {};
  const std::vector<std::string> lines = sim_board_journal();
  for (size_t i = 0; i < lines.size(); i++) {
    if (lines[i].find("{\"row\": 0}") != std::string::npos) {
      at[0] = i;
    }
    if (lines[i].find("{\"row\": 1}") != std::string::npos) {
      at[1] = i;
    }
    if (lines[i].find("\"rsrp\": -80") != std::string::npos) {
      at[2] = i;
    }
    if (lines[i].find("trace_end") != std::string::npos) {
      at[3] = i;
    }
  }
  EXPECT_LT(at[0], at[1]);
  EXPECT_LT(at[1], at[2]);
  EXPECT_LT(at[2], at[3]);
}

TEST_F(sim_measure, a_drive_of_one_row_ends_at_its_start) {
  drive(line({}), "after = \"nas.108\"\n");
  EXPECT_EQ(journaled({"trace_end"}), 0U);
  configure(1);
  ASSERT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(journaled({R"("name": "trace_end", "fields": {"rows": 1})"}), 1U);
}

TEST_F(sim_measure, rows_follow_at_the_speed_of_the_trace) {
  std::string lines;
  for (int i = 0; i < 51; i++) {
    lines += line({});
  }
  drive(lines, "speed = 500\nafter = \"nas.108\"\n");
  const auto start = std::chrono::steady_clock::now();
  configure(1);
  while (journaled({"trace_end"}) == 0) {
    usleep(1000);
  }
  const double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  EXPECT_GE(ms, 100);
  EXPECT_LT(ms, 1000);
}

}  // namespace
