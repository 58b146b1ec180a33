/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The mobile AP client on the simulated board, up to the events that it posts and what it prints.
 */
#include "lyn_oxmap_interface.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <iterator>

#include "diag_log.h"
#include "post_capture.h"
#include "sim_board.h"

namespace {

using testing::Contains;
using testing::HasSubstr;
using texts = std::vector<std::string>;

std::string fault(const std::string &call, uint32_t error) {
  return "[[fault]]\non = \"oxmap." + call + "\"\nerror = " + std::to_string(error) + "\nresult = 1\ntimes = -1\n";
}

/** What `work` and the board's answers to it print. */
std::string printed(const std::function<void()> &work) {
  testing::internal::CaptureStdout();
  work();
  EXPECT_TRUE(sim_board_wait_idle(5000));
  return testing::internal::GetCapturedStdout();
}

class lyn_oxmap : public testing::Test {
 protected:
  ox_lyn_dm_info_t record = {};

  void start(const std::string &scenario) {
    ASSERT_EQ(sim_board_load(scenario), "");
    sim_board_journal_keep(true);
    post_clear();
    printed([] { lyn_oxmap_init(); });
    diag_log_take();
  }
  void TearDown() override { post_clear(); }

  /** The journal's line of a call; empty when it was not made. */
  static std::string call_line(const std::string &name) {
    std::string found;
    for (const std::string &line : sim_board_journal()) {
      if (line.find("\"" + name + "\"") != std::string::npos && line.find("\"call\"") != std::string::npos) {
        found = line;
      }
    }
    return found;
  }
};

ox_lyn_mtpe_req_t request() {
  ox_lyn_mtpe_req_t req = {};
  req.external_server = 1;
  req.test_type = 3;
  req.duration = 10;
  req.ip_family = 4;
  req.protocol = 2;
  req.src_port = 5001;
  req.dst_port = 5002;
  return req;
}

/* Life cycle */

TEST_F(lyn_oxmap, without_client_every_operation_fails) {
  const ox_lyn_mtpe_req_t req = request();
  ox_lyn_wwan_profile_list_t list = {};
  EXPECT_EQ(lyn_oxmap_mtpe_start(1), 0);
  EXPECT_EQ(lyn_oxmap_mtpe_start(0), 0);
  EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), -1);
  EXPECT_EQ(lyn_oxmap_get_wwan_stats(4, &record), -1);
  EXPECT_EQ(lyn_oxmap_get_global_qos_flow_info(4, &record), -1);
  EXPECT_EQ(lyn_oxmap_get_profile_handle(&list), 0);
}

TEST_F(lyn_oxmap, init_prints_its_outcome_without_a_newline_and_replaces_the_client) {
  start("");
  EXPECT_EQ(printed([] { EXPECT_EQ(lyn_oxmap_init(), 0); }), "\nMobileAP Enable succeeds.");
  EXPECT_THAT(sim_board_journal(), Contains(HasSubstr("~OXMAP_Client")));
  EXPECT_EQ(diag_log_texts("HIGH"), texts{"oxmap_msgr_yrp_oxmap_ind: Mobile AP Connected..."});
  ASSERT_EQ(sim_board_load(fault("IsReady", 1)), "");
  EXPECT_EQ(printed([] { EXPECT_EQ(lyn_oxmap_init(), -1); }), "\nCouldn't setup OxMapClient..exiting");
  ASSERT_EQ(sim_board_load(fault("EnableMobileAP_Ext", 46)), "");
  EXPECT_EQ(printed([] { EXPECT_EQ(lyn_oxmap_init(), -1); }), "\nMobileAP Enable fails, Error: 0x2e");
}

TEST_F(lyn_oxmap, null_arguments_are_refused) {
  start("");
  EXPECT_EQ(lyn_oxmap_configure_mtpe(nullptr), -1);
  EXPECT_EQ(lyn_oxmap_get_mtpe_test_info(nullptr), -1);
  EXPECT_EQ(lyn_oxmap_get_mtpe_test_info(&record), -1);
  EXPECT_EQ(lyn_oxmap_get_wwan_stats(4, nullptr), -1);
  EXPECT_EQ(lyn_oxmap_get_profile_handle(nullptr), 0);
}

/* Throughput estimation */

TEST_F(lyn_oxmap, a_test_of_both_directions_is_configured_as_uplink_and_its_statuses_are_posted) {
  start("[mtpe]\nconfigured_ms = 0\nduration_ms = 1\npeak_rate_kbps = 777\n");
  const ox_lyn_mtpe_req_t req = request();
  EXPECT_EQ(printed([&] { EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), 0); }),
            "Modem Throughput Configuration successfull");
  EXPECT_THAT(call_line("ConfigureMTPE"), HasSubstr("\"test_type\""));
  // The board's thread logs beside this one.
  EXPECT_THAT(diag_log_texts("HIGH"),
              testing::UnorderedElementsAre("No pending Tests are present\\n",
                                            "Modem throughput estimation configuration sent.\\n",
                                            "MTPE Test has successfully been configured and is ready to Start\\n"));
  EXPECT_EQ(lyn_oxmap_mtpe_start(1), 1);
  const auto events = post_wait(2);
  ASSERT_EQ(events.size(), 2u);
  EXPECT_EQ(events[0].id, 264u);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().test_type, 1u);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().test_status, 1u);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().failure_reason, 0u);
  EXPECT_EQ(events[1].as<ox_lyn_mtpe_status_t>().test_status, 2u);
  EXPECT_EQ(events[1].as<ox_lyn_mtpe_status_t>().peak_rate, 777u);
  EXPECT_THAT(diag_log_texts("HIGH"),
              testing::UnorderedElementsAre(
                  "Successfully started Modem Throughput Estimation test\\n", "MTPE Test completed successfully!\\n",
                  "Peak rate calculated: 777(kbps)\\n", "Peak rate calculated: 777(kbps)\\n"));
  EXPECT_EQ(lyn_oxmap_mtpe_start(0), 1);
  EXPECT_EQ(diag_log_texts("HIGH"), texts{"Successfully tore down Modem Throughput Estimation configuration\\n"});
}

TEST_F(lyn_oxmap, a_request_without_address_or_with_half_the_parameters_leaves_them_out) {
  start("");
  ox_lyn_mtpe_req_t req = request();
  req.ip_family = 5;
  req.protocol = 7;
  req.bandwidth = 1000;
  EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), 0);
  const std::string line = call_line("ConfigureMTPE");
  EXPECT_THAT(line, testing::ContainsRegex("\"ip_family\": ?10,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"protocol\": ?0,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"test_type\": ?1,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"server_address_valid\": ?0,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"test_params_valid\": ?0"));
}

TEST_F(lyn_oxmap, one_address_of_either_side_is_an_address) {
  ox_lyn_mtpe_req_t requests[4];
  std::fill(std::begin(requests), std::end(requests), request());
  requests[0].src_ipv4 = 1;
  requests[1].dst_ipv4 = 1;
  requests[2].src_ipv6[0] = 1;
  requests[3].dst_ipv6[15] = 1;
  for (const ox_lyn_mtpe_req_t &req : requests) {
    start("");
    EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), 0);
    EXPECT_THAT(call_line("ConfigureMTPE"), testing::ContainsRegex("\"server_address_valid\": ?1,"));
  }
}

TEST_F(lyn_oxmap, addresses_and_parameters_go_out_whole) {
  start("");
  ox_lyn_mtpe_req_t req = request();
  req.test_type = 2;
  strcpy(req.server_url, "speed.example.org");
  req.dst_ipv6[15] = 1;
  req.bandwidth = 1000;
  req.mtu = 1400;
  EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), 0);
  const std::string line = call_line("ConfigureMTPE");
  EXPECT_THAT(line, testing::ContainsRegex("\"test_type\": ?2,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"protocol\": ?2,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"duration\": ?10,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"external_server\": ?1,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"src_port\": ?5001,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"dst_port\": ?5002,"));
  EXPECT_THAT(line, HasSubstr("speed.example.org"));
  EXPECT_THAT(line, HasSubstr("\"::1\""));
  EXPECT_THAT(line, testing::ContainsRegex("\"bandwidth\": ?1000,"));
  EXPECT_THAT(line, testing::ContainsRegex("\"mtu\": ?1400"));
}

TEST_F(lyn_oxmap, a_refused_configuration_is_posted_with_status_0) {
  start(fault("ConfigureMTPE", 70));
  ox_lyn_mtpe_req_t req = request();
  req.test_type = 2;
  EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), -1);
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, 264u);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().test_type, 2u);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().test_status, 0u);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"Failed to send Modem throughput estimation configuration, Error:0x46"});
}

TEST_F(lyn_oxmap, start_and_teardown_failures_are_logged_with_their_code) {
  start(fault("StartMTPE", 16) + fault("TeardownMTPE", 17));
  EXPECT_EQ(lyn_oxmap_mtpe_start(5), 0);
  EXPECT_EQ(lyn_oxmap_mtpe_start(0), 0);
  EXPECT_EQ(diag_log_texts("ERROR"),
            (texts{"Failed to start the Modem Throughput Estimation test, Error:0x10",
                   "Failed to tear down Modem Throughput Estimation configuration, Error: 0x11\\n"}));
}

TEST_F(lyn_oxmap, failed_and_aborted_tests_are_posted) {
  for (const std::string result : {"failed", "aborted"}) {
    start("[mtpe]\nconfigured_ms = 0\nduration_ms = 1\nfailure_reason = 9\nresult = \"" + result + "\"\n");
    const ox_lyn_mtpe_req_t req = request();
    printed([&] { EXPECT_EQ(lyn_oxmap_configure_mtpe(&req), 0); });
    EXPECT_EQ(lyn_oxmap_mtpe_start(1), 1);
    const auto events = post_wait(2);
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[1].as<ox_lyn_mtpe_status_t>().test_status, result == "failed" ? 3u : 0u);
    EXPECT_EQ(events[1].as<ox_lyn_mtpe_status_t>().failure_reason, 0u);
    EXPECT_THAT(diag_log_texts(), Contains(result == "failed" ? "MTPE Test Failed. Failure reason: 0x9\\n"
                                                              : "MTPE Test was aborted before test duration ended\\n"));
  }
}

TEST_F(lyn_oxmap, test_info_is_handed_back_in_a_block_of_the_callers) {
  start("[mtpe]\nbandwidth_kbps = 5000\nmtu = 1400\n");
  ox_lyn_mtpe_net_params_t params = {.ip_family = 9, .client_addr = {10, 0, 0, 1}};
  record.value.ptr = &params;
  EXPECT_EQ(lyn_oxmap_get_mtpe_test_info(&record), 0);
  ASSERT_NE(record.value.ptr, &params);
  auto *config = static_cast<ox_lyn_mtpe_server_config_t *>(record.value.ptr);
  EXPECT_EQ(config->bandwidth_kbps, 5000);
  EXPECT_EQ(config->mtu, 1400);
  free(config);
  EXPECT_THAT(call_line("GetMTPETestInfo"), testing::ContainsRegex("\"ip_family\": ?0,.*10\\.0\\.0\\.1"));
  EXPECT_EQ(diag_log_texts("HIGH"), texts{"Configured Bandwidth(kbps): 5000 \\n Supported MTU: 1400"});
}

TEST_F(lyn_oxmap, failed_test_info_leaves_the_record) {
  start(fault("GetMTPETestInfo", 5));
  ox_lyn_mtpe_net_params_t params = {.ip_family = 4, .client_addr = {}};
  record.value.ptr = &params;
  EXPECT_EQ(lyn_oxmap_get_mtpe_test_info(&record), -1);
  EXPECT_EQ(record.value.ptr, &params);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"Failed to retreive Test Configuration information, Error:0x5"});
}

/* Statistics, QoS flows, profiles */

TEST_F(lyn_oxmap, statistics_of_the_profile_come_in_a_block_of_the_callers) {
  start(
      "[[wwan.stats]]\nhandle = 3\nip_family = 6\nbytes_rx = 6000000000\nbytes_tx = 2\npkts_rx = 3\npkts_tx = 4\n"
      "dropped_rx = 5\ndropped_tx = 6\nrx_rate = 0\ntx_rate = 0\n");
  record.value.i64 = 3;
  EXPECT_EQ(lyn_oxmap_get_wwan_stats(6, &record), 0);
  auto *stats = static_cast<ox_lyn_wwan_stats_t *>(record.value.ptr);
  EXPECT_EQ(stats->bytes_rx, 6000000000u);
  EXPECT_EQ(stats->pkts_dropped_tx, 6u);
  free(stats);
  EXPECT_EQ(diag_log_texts("HIGH"),
            (texts{"Profile-handle updated.", "Get WWAN Stats succeeded...\\n", " wwan_stats->bytes_rx 6000000000\\n",
                   " wwan_stats->bytes_tx 2\\n", " wwan_stats->pkts_dropped_rx 5\\n",
                   " wwan_stats->pkts_dropped_tx 6\\n", " wwan_stats->pkts_rx 3\\n", " wwan_stats->pkts_tx 4\\n"}));
}

TEST_F(lyn_oxmap, failed_statistics_leave_the_record) {
  start(fault("GetWWANStatistics", 33));
  record.value.i64 = 1;
  EXPECT_EQ(lyn_oxmap_get_wwan_stats(4, &record), -1);
  EXPECT_EQ(record.value.i64, 1);
  record.value.i64 = 99;
  EXPECT_EQ(lyn_oxmap_get_wwan_stats(4, &record), -1);
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"\\nGet WWAN Stats Fails, Error: 0x21", "Profile-handle Fails!!!"}));
}

TEST_F(lyn_oxmap, a_qos_query_is_answered_by_an_event_and_a_second_one_prints_that_one_is_in_progress) {
  start("[wwan.qos]\nbearer = 9\ntx_5qi = 7\nrx_5qi = 3\nanswer_ms = 500\n");
  EXPECT_EQ(lyn_oxmap_get_global_qos_flow_info(4, &record), 0);
  testing::internal::CaptureStdout();
  EXPECT_EQ(lyn_oxmap_get_global_qos_flow_info(4, &record), -1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\nAnother QoS flow request is in progress");
  const auto events = post_wait(1);
  ASSERT_EQ(events.size(), 1u);
  EXPECT_EQ(events[0].id, 258u);
  EXPECT_EQ(events[0].as<ox_lyn_qos_flow_t>().bearer_id, 9u);
  EXPECT_EQ(events[0].as<ox_lyn_qos_flow_t>().tx_5g_qci, 7u);
  EXPECT_EQ(events[0].as<ox_lyn_qos_flow_t>().rx_5g_qci, 3u);
  EXPECT_EQ(diag_log_texts(), (texts{"\\nSuccessfully queried Global QoS Flow Indications, error code: 0",
                                     "\\nFailed to query Global QoS Flow Indications, error code: 118",
                                     "Received Indication for QOS FLOW \\n", "Received GLOBAL_QOS_FLOW_IND \\n"}));
}

TEST_F(lyn_oxmap, qos_classes_beyond_the_last_one_are_0) {
  for (uint32_t qci = 0; qci < 10; qci++) {
    const std::string number = std::to_string(qci);
    start("[wwan.qos]\ntx_5qi = " + number + "\nrx_5qi = " + number + "\nanswer_ms = 0\n");
    EXPECT_EQ(lyn_oxmap_get_global_qos_flow_info(4, &record), 0);
    const auto events = post_wait(1);
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].as<ox_lyn_qos_flow_t>().tx_5g_qci, qci <= 7 ? qci : 0);
    EXPECT_EQ(events[0].as<ox_lyn_qos_flow_t>().rx_5g_qci, qci <= 7 ? qci : 0);
  }
}

std::string profiles(int count) {
  std::string text;
  for (int i = 0; i < count; i++) {
    text += "[[wwan.profile]]\nindex = " + std::to_string(100 + i) + "\nsubscription = 1\napn = \"apn" +
            std::to_string(i) + "\"\n";
  }
  return text;
}

TEST_F(lyn_oxmap, a_lone_profile_gives_its_index_only_and_count_0) {
  start(profiles(1));
  ox_lyn_wwan_profile_list_t list = {};
  EXPECT_EQ(lyn_oxmap_get_profile_handle(&list), 1);
  EXPECT_EQ(list.count, 0u);
  EXPECT_EQ(list.profiles[0].profile_index, 100u);
  EXPECT_EQ(list.profiles[0].subscription, 0u);
  EXPECT_EQ(call_line("GetWWANProfilePreference"), "");
}

TEST_F(lyn_oxmap, of_three_or_sixty_profiles_up_to_fifty_are_listed_with_subscriptions_from_1) {
  for (const uint32_t count : {3u, 60u}) {
    start(profiles(static_cast<int>(count)) + fault("GetWWANProfilePreference", 1));
    ox_lyn_wwan_profile_list_t list = {};
    EXPECT_EQ(lyn_oxmap_get_profile_handle(&list), 1);
    ASSERT_EQ(list.count, std::min(count, 50u));
    const ox_lyn_wwan_profile_t &last = list.profiles[list.count - 1];
    EXPECT_EQ(last.profile_index, 99 + list.count);
    EXPECT_EQ(last.subscription, 2u);
    EXPECT_EQ(last.apn_name, "apn" + std::to_string(list.count - 1));
    EXPECT_NE(call_line("GetWWANProfilePreference"), "");
  }
}

TEST_F(lyn_oxmap, an_unreadable_profile_list_gives_0) {
  start(fault("GetWWANPolicyListEx", 1));
  ox_lyn_wwan_profile_list_t list = {};
  EXPECT_EQ(lyn_oxmap_get_profile_handle(&list), 0);
  EXPECT_EQ(list.count, 0u);
}

/* Indications */

TEST_F(lyn_oxmap, indications_that_cannot_be_decoded_are_logged_and_dropped) {
  start("");
  const std::string output = printed([] {
    for (uint32_t id : {39u, 264u, 258u, 12345u}) {
      sim_board_post("oxmap", id, {0x01, 0xff});
    }
  });
  EXPECT_EQ(output, "Modem Throughput Configuration successfull");
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error -4",
                                            "oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error -4\\n",
                                            "oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error -4\\n"}));
  EXPECT_TRUE(post_wait(0).empty());
}

}  // namespace
