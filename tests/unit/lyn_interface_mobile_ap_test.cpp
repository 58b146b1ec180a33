/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The mobile AP through the API: throughput tests in all directions and with every way of ending, QoS flows, profiles,
 * statistics and test information (metrics 44 to 49, 52 and 53).
 */
#include <arpa/inet.h>
#include <string.h>

#include <initializer_list>

#include "mobile_board.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

enum : uint32_t { UPLINK = 1, DOWNLINK = 2, BOTH = 3 };

constexpr char quick[] = "[mtpe]\nconfigured_ms = 1\nduration_ms = 1\n";

/** A request with both families' addresses, ends that differ in everything, and test parameters. */
ox_lyn_mtpe_req_t request(uint32_t test_type, uint32_t ip_family = 4) {
  ox_lyn_mtpe_req_t req = {};
  req.test_type = test_type;
  req.duration = 7;
  req.ip_family = ip_family;
  req.protocol = 2;
  req.src_port = 5001;
  req.dst_port = 6001;
  req.bandwidth = 5000;
  req.mtu = 1400;
  if (ip_family == 4) {
    inet_pton(AF_INET, "192.0.2.1", &req.src_ipv4);
    inet_pton(AF_INET, "198.51.100.2", &req.dst_ipv4);
  } else {
    inet_pton(AF_INET6, "2001:db8::1", req.src_ipv6);
    inet_pton(AF_INET6, "2001:db8:ffff::2", req.dst_ipv6);
  }
  return req;
}

/** What of a request reaches the manager: the journal's line. */
std::string configuration(uint32_t test_type, uint32_t ip_family, int src_port, int dst_port, const char *src_ipv4,
                          const char *dst_ipv4, const char *src_ipv6, const char *dst_ipv6) {
  return text_of("ConfigureMTPE {\"ip_family\":", ip_family, ",\"protocol\":2,\"test_type\":", test_type,
                 ",\"duration\":7,\"external_server\":0,\"src_port\":", src_port, ",\"dst_port\":", dst_port,
                 ",\"server_address_valid\":1,\"server_url\":\"\",\"src_ipv4\":\"", src_ipv4, "\",\"dst_ipv4\":\"",
                 dst_ipv4, "\",\"src_ipv6\":\"", src_ipv6, "\",\"dst_ipv6\":\"", dst_ipv6,
                 "\",\"test_params_valid\":1,\"bandwidth\":5000,\"mtu\":1400}");
}

std::string as_asked(uint32_t test_type, uint32_t ip_family) {
  if (ip_family == 4) {
    return configuration(test_type, 4, 5001, 6001, "192.0.2.1", "198.51.100.2", "::", "::");
  }
  return configuration(test_type, ip_family, 5001, 6001, "0.0.0.0", "0.0.0.0", "2001:db8::1", "2001:db8:ffff::2");
}

/** The second direction: client and server have changed their roles, and nothing else has changed. */
std::string swapped(uint32_t ip_family) {
  if (ip_family == 4) {
    return configuration(DOWNLINK, 4, 6001, 5001, "198.51.100.2", "192.0.2.1", "::", "::");
  }
  return configuration(DOWNLINK, ip_family, 6001, 5001, "0.0.0.0", "0.0.0.0", "2001:db8:ffff::2", "2001:db8::1");
}

int32_t test_throughput(const ox_lyn_mtpe_req_t &req, uint32_t metric = OX_LYN_GET_MTPE_LTE_INFO_E) {
  return board.get(metric, &req);
}

std::string status_line(uint32_t test_type, uint32_t status, uint32_t reason = 0, uint32_t rate = 0) {
  return mobile_throughput_line(
      {.test_type = test_type, .failure_reason = reason, .test_status = status, .peak_rate = rate});
}

/** A direction that runs to its end. */
lines run(uint32_t test_type) {
  return {status_line(test_type, 1), status_line(test_type, 2, 0, 93000)};
}

lines operator+(lines first, const lines &second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

std::string fault(const std::string &call, int skip = 0, int times = 1) {
  return text_of("[[fault]]\non = \"oxmap.", call, "\"\nerror = 33\nresult = 1\nskip = ", skip, "\ntimes = ", times,
                 "\n");
}

using mobile_ap = board_test;

// Throughput tests ---------------------------------------------------------------------------------------------------

struct direction {
  uint32_t test_type, ip_family;
  lines configurations, events;
};

TEST_F(mobile_ap, each_direction_is_configured_and_both_directions_are_run_one_after_the_other_with_swapped_ends) {
  const direction directions[] = {
      {UPLINK, 4, {as_asked(UPLINK, 4)}, run(UPLINK)},
      {UPLINK, 6, {as_asked(UPLINK, 6)}, run(UPLINK)},
      {DOWNLINK, 4, {as_asked(DOWNLINK, 4)}, run(DOWNLINK)},
      {DOWNLINK, 6, {as_asked(DOWNLINK, 6)}, run(DOWNLINK)},
      {BOTH, 4, {as_asked(UPLINK, 4), swapped(4)}, run(UPLINK) + run(DOWNLINK)},
      {BOTH, 6, {as_asked(UPLINK, 6), swapped(6)}, run(UPLINK) + run(DOWNLINK)},
  };
  mobile.start(quick);
  for (const direction &of : directions) {
    SCOPED_TRACE(text_of("type ", of.test_type, " family ", of.ip_family));
    for (uint32_t metric : {OX_LYN_GET_MTPE_LTE_INFO_E, OX_LYN_GET_MTPE_NR5G_INFO_E}) {
      mobile.forget_calls();
      EXPECT_EQ(test_throughput(request(of.test_type, of.ip_family), metric), OX_LYN_SUCCESS);
      mobile.expect(of.events);
      EXPECT_EQ(mobile.calls("oxmap", "ConfigureMTPE"), of.configurations);
    }
  }
}

TEST_F(mobile_ap, a_test_is_torn_down_configured_started_and_torn_down) {
  mobile.start(quick);
  mobile.forget_calls();
  EXPECT_EQ(test_throughput(request(BOTH)), OX_LYN_SUCCESS);
  mobile.expect(run(UPLINK) + run(DOWNLINK));
  EXPECT_THAT(mobile.calls("oxmap"),
              ElementsAre("TeardownMTPE {}", as_asked(UPLINK, 4), "StartMTPE {}", "TeardownMTPE {}", "TeardownMTPE {}",
                          swapped(4), "StartMTPE {}", "TeardownMTPE {}"));
}

TEST_F(mobile_ap, another_test_while_one_is_ongoing_is_refused_without_a_message) {
  mobile.start("[mtpe]\nconfigured_ms = 1\nduration_ms = -1\n");
  const ox_lyn_mtpe_req_t req = request(UPLINK);
  EXPECT_EQ(test_throughput(req), OX_LYN_SUCCESS);
  for (int phase = 0; phase < 2; phase++) {
    diag_log_texts();
    EXPECT_EQ(test_throughput(req, OX_LYN_GET_MTPE_NR5G_INFO_E), OX_LYN_ERR_BUSY);
    EXPECT_EQ(diag_log_texts("ERROR"), lines());
    EXPECT_EQ(board.get_list({OX_LYN_GET_MTPE_LTE_INFO_E}, &req), OX_LYN_ERR_BUSY);
    for (const uint32_t metric : {OX_LYN_GET_MTPE_LTE_INFO_E, OX_LYN_GET_MTPE_NR5G_INFO_E}) {
      EXPECT_EQ(board.get(metric, nullptr), OX_LYN_ERR_BUSY) << "a missing request is not looked at";
    }
    if (phase == 0) {
      mobile.expect({status_line(UPLINK, 1)});
    }
  }
  EXPECT_EQ(mobile.calls("oxmap", "ConfigureMTPE").size(), 1U);
}

/** One way of going wrong: what is delivered, how many configurations go out, and the next test is accepted. */
struct ending {
  const char *name;
  uint32_t test_type;
  std::string toml;
  lines events;
  size_t configurations;
};

TEST_F(mobile_ap, after_every_way_of_ending_the_next_test_is_accepted) {
  const std::string usual = quick;
  const lines aborted = {status_line(UPLINK, 1), status_line(UPLINK, 0)};
  const ending endings[] = {
      {"failed start", UPLINK, usual + fault("StartMTPE"), {status_line(UPLINK, 3, 3)}, 1},
      {"failed start of both", BOTH, usual + fault("StartMTPE"), {status_line(UPLINK, 3, 3)}, 1},
      {"failed start of the second", BOTH, usual + fault("StartMTPE", 1),
       run(UPLINK) + lines{status_line(DOWNLINK, 3, 3)}, 2},
      // the first teardown is that of the configuration
      {"failed teardown",
       UPLINK,
       usual + fault("TeardownMTPE", 1),
       {status_line(UPLINK, 1), status_line(UPLINK, 3, 3, 93000)},
       1},
      {"failed teardown of both: no second run",
       BOTH,
       usual + fault("TeardownMTPE", 1),
       {status_line(UPLINK, 1), status_line(UPLINK, 3, 3, 93000)},
       1},
      {"failed teardown of the second", BOTH, usual + fault("TeardownMTPE", 3),
       run(UPLINK) + lines{status_line(DOWNLINK, 1), status_line(DOWNLINK, 3, 3, 93000)}, 2},
      {"refused configuration", UPLINK, usual + fault("ConfigureMTPE"), {status_line(UPLINK, 0)}, 1},
      {"refused configuration of both", BOTH, usual + fault("ConfigureMTPE"), {status_line(UPLINK, 0)}, 1},
      {"refused second configuration", BOTH, usual + fault("ConfigureMTPE", 1),
       run(UPLINK) + lines{status_line(DOWNLINK, 0)}, 2},
      {"failure",
       UPLINK,
       usual + "result = \"failed\"\nfailure_reason = 9\n",
       {status_line(UPLINK, 1), status_line(UPLINK, 3)},
       1},
      {"failure of both: no second run",
       BOTH,
       usual + "result = \"failed\"\n",
       {status_line(UPLINK, 1), status_line(UPLINK, 3)},
       1},
      {"abort", UPLINK, usual + "result = \"aborted\"\n", aborted, 1},
      {"abort of both: no second run", BOTH, usual + "result = \"aborted\"\n", aborted, 1},
  };
  for (const ending &of : endings) {
    SCOPED_TRACE(of.name);
    mobile.start(of.toml);
    EXPECT_EQ(test_throughput(request(of.test_type)), OX_LYN_SUCCESS);
    mobile.expect(of.events);
    EXPECT_EQ(mobile.calls("oxmap", "ConfigureMTPE").size(), of.configurations);
    mobile.forget_calls();
    EXPECT_EQ(test_throughput(request(DOWNLINK, 6)), OX_LYN_SUCCESS);
    EXPECT_EQ(mobile.take(1).at(0), status_line(DOWNLINK, 1));
    EXPECT_EQ(mobile.calls("oxmap", "ConfigureMTPE"), lines{as_asked(DOWNLINK, 6)});
    if (&of != std::end(endings) - 1) {
      board.stop();
    }
  }
}

TEST_F(mobile_ap, a_refused_configuration_is_logged_and_deliberately_no_failure_of_the_call) {
  mobile.start(quick + fault("ConfigureMTPE"));
  diag_log_take();
  EXPECT_EQ(test_throughput(request(UPLINK)), OX_LYN_SUCCESS);
  mobile.take(1);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Failed to send Modem throughput estimation configuration, Error:0x21"));
}

TEST_F(mobile_ap, a_missing_request_is_refused_and_is_no_test) {
  mobile.start(quick);
  mobile.forget_calls();
  for (uint32_t metric : {OX_LYN_GET_MTPE_SERVER_CONFIG_E, OX_LYN_GET_MTPE_LTE_INFO_E, OX_LYN_GET_MTPE_NR5G_INFO_E}) {
    EXPECT_EQ(board.get(metric), OX_LYN_ERR_INVALID_PARAM);
  }
  EXPECT_THAT(mobile.calls("oxmap"), IsEmpty());
  EXPECT_EQ(test_throughput(request(UPLINK)), OX_LYN_SUCCESS);
  mobile.expect(run(UPLINK));
}

TEST_F(mobile_ap, fields_of_a_request_without_a_code_of_the_manager_get_its_defaults) {
  ox_lyn_mtpe_req_t req = {};
  req.test_type = 9;
  req.ip_family = 5;
  req.protocol = 3;
  req.mtu = 1400;  // without a bandwidth
  strcpy(req.server_url, "speed.example.net");
  mobile.start("[mtpe]\nconfigured_ms = -1\n");
  EXPECT_EQ(test_throughput(req), OX_LYN_SUCCESS);
  EXPECT_THAT(mobile.calls("oxmap", "ConfigureMTPE"),
              ElementsAre("ConfigureMTPE {\"ip_family\":10,\"protocol\":0,\"test_type\":0,\"duration\":0,"
                          "\"external_server\":0,\"src_port\":0,\"dst_port\":0,\"server_address_valid\":1,"
                          "\"server_url\":\"speed.example.net\",\"src_ipv4\":\"0.0.0.0\",\"dst_ipv4\":\"0.0.0.0\","
                          "\"src_ipv6\":\"::\",\"dst_ipv6\":\"::\",\"test_params_valid\":0}"));
}

/** Indication 264 with a test status, as the manager would send it. */
void indicate(uint8_t status) {
  sim_board_post("oxmap", 264, {0x01, 4, 0, status, 0, 0, 0});
}

TEST_F(mobile_ap, statuses_without_a_test_twice_or_unknown_do_no_harm) {
  mobile.start(quick);
  indicate(1);
  mobile.expect({status_line(0, 3, 3)});  // nothing is configured that could be started
  indicate(2);
  mobile.expect({status_line(0, 3, 3)});  // nor torn down
  for (const uint8_t status : std::initializer_list<uint8_t>{3, 4, 0, 5, 255}) {
    indicate(status);
    mobile.expect({status_line(0, status == 3 ? 3 : 0)});
  }
  EXPECT_THAT(diag_log_texts("ERROR"), Contains("Invalid test status received: 0xff\\n"));
  EXPECT_EQ(test_throughput(request(UPLINK)), OX_LYN_SUCCESS);
  mobile.expect(run(UPLINK));
  indicate(2);
  indicate(2);
  mobile.expect({status_line(UPLINK, 3, 3), status_line(UPLINK, 3, 3)});
  EXPECT_EQ(test_throughput(request(BOTH)), OX_LYN_SUCCESS);
  mobile.expect(run(UPLINK) + run(DOWNLINK));
}

TEST_F(mobile_ap, indications_that_come_while_the_module_is_down_reach_nobody) {
  for (int cycle = 0; cycle < 20; cycle++) {
    mobile.start("[mtpe]\nconfigured_ms = 1\nduration_ms = 0\n[wwan.qos]\nanswer_ms = 1\n");
    ox_lyn_mtpe_req_t req = request(BOTH);
    req.duration = 0;
    EXPECT_EQ(test_throughput(req), OX_LYN_SUCCESS);
    EXPECT_EQ(board.get(OX_LYN_GET_IPV4_QOS_TFT_E), OX_LYN_SUCCESS);
    if (cycle % 2 == 1) {
      mobile.take(1);
    }
    board.stop();
    {
      const std::lock_guard guard(board.lock);
      board.deliveries.clear();
    }
    indicate(1);
    EXPECT_TRUE(mobile.logged("Device Manager module is not initialized!!"));
    EXPECT_TRUE(sim_board_wait_idle(60000));
    const std::lock_guard guard(board.lock);
    EXPECT_THAT(board.deliveries, IsEmpty());
  }
  mobile.start(quick);
  EXPECT_EQ(test_throughput(request(UPLINK)), OX_LYN_SUCCESS) << "the flag of the last life is gone";
  mobile.expect(run(UPLINK));
}

// QoS flows ----------------------------------------------------------------------------------------------------------

TEST_F(mobile_ap, a_qos_query_is_answered_by_its_flow_and_leaves_the_record) {
  mobile.start("[wwan.qos]\nbearer = 200\ntx_5qi = 7\nrx_5qi = 8\nanswer_ms = 1\n");
  for (uint32_t metric : {OX_LYN_GET_IPV4_QOS_TFT_E, OX_LYN_GET_IPV6_QOS_TFT_E}) {
    ox_lyn_dm_info_t info = metric_request(metric);
    info.value_type = 77;
    info.value.i64 = -12345;
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
    EXPECT_EQ(info.value.i64, -12345);
    EXPECT_EQ(info.value_type, OX_LYN_VALUE_NONE_E);
    mobile.expect({"flow bearer 200 tx 7 rx 0"});  // a class above 7 is 0
  }
  EXPECT_THAT(mobile.calls("oxmap", "GetGlobalQoSFlowInfo"),
              ElementsAre(R"(GetGlobalQoSFlowInfo {"ip_family":4})", R"(GetGlobalQoSFlowInfo {"ip_family":6})"));
}

TEST_F(mobile_ap, a_second_qos_query_before_the_answer_fails_and_only_error_118_prints_that_one_is_in_progress) {
  mobile.start("[wwan.qos]\nanswer_ms = -1\n" + fault("GetGlobalQoSFlowInfo", 2));
  EXPECT_EQ(board.get(OX_LYN_GET_IPV4_QOS_TFT_E), OX_LYN_SUCCESS);
  for (const auto &[error, printed] : {std::pair<int, const char *>{118, "\nAnother QoS flow request is in progress"},
                                       std::pair<int, const char *>{33, ""}}) {
    diag_log_take();
    testing::internal::CaptureStdout();
    EXPECT_EQ(board.get(OX_LYN_GET_IPV6_QOS_TFT_E), OX_LYN_ERR_FAILURE);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), printed);
    EXPECT_EQ(diag_log_texts("ERROR"),
              lines{text_of("\\nFailed to query Global QoS Flow Indications, error code: ", error)});
  }
}

// Profiles -----------------------------------------------------------------------------------------------------------

/** `count` profiles that differ in every field. */
std::string profiles(uint32_t count) {
  std::string toml = count == 0 ? "wwan.profile = []\n" : "";
  for (uint32_t i = 0; i < count; i++) {
    toml += text_of("[[wwan.profile]]\nindex = ", 1000 + i, "\nsubscription = ", i % 3, "\ntechnology = ", (i + 1) % 3,
                    "\nip_family = ", i % 2 == 0 ? 6 : 10, "\nid_3gpp = ", i, "\nid_3gpp2 = ", 255 - i, "\napn = \"apn",
                    i, "\"\n");
  }
  return toml;
}

mobile_block<ox_lyn_wwan_profile_list_t> get_profiles() {
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_WWAN_PROFILE_INDEX_E);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
  EXPECT_EQ(info.value_type, OX_LYN_VALUE_NONE_E);
  return mobile_block<ox_lyn_wwan_profile_list_t>(static_cast<ox_lyn_wwan_profile_list_t *>(info.value.ptr));
}

TEST_F(mobile_ap, none_three_fifty_or_sixty_profiles_are_listed_up_to_fifty_with_subscriptions_from_1) {
  for (uint32_t count : {0U, 3U, 50U, 60U}) {
    SCOPED_TRACE(count);
    mobile.start(profiles(count));
    const auto list = get_profiles();
    ASSERT_EQ(list->count, std::min(count, 50U));
    EXPECT_EQ(list->reserved, 0U);
    for (uint32_t i = 0; i < list->count; i++) {
      const ox_lyn_wwan_profile_t &profile = list->profiles[i];
      EXPECT_EQ(
          text_of(profile.profile_index, " ", profile.subscription, " ", profile.technology, " ", profile.ip_family,
                  " ", profile.profile_id_3gpp, " ", profile.profile_id_3gpp2, " ", profile.apn_name),
          text_of(1000 + i, " ", i % 3 + 1, " ", (i + 1) % 3, " ", i % 2 == 0 ? 6 : 10, " ", i, " ", 255 - i, " apn",
                  i));
    }
    if (count != 60) {
      board.stop();
    }
  }
}

TEST_F(mobile_ap, a_lone_profile_deliberately_gives_its_index_only_and_count_0) {
  mobile.start(profiles(1));
  const auto list = get_profiles();
  ox_lyn_wwan_profile_list_t lone = {};
  lone.profiles[0].profile_index = 1000;
  EXPECT_EQ(memcmp(list.get(), &lone, sizeof lone), 0);
  EXPECT_THAT(mobile.calls("oxmap", "GetWWANProfilePreference"), IsEmpty());
}

TEST_F(mobile_ap, an_unreadable_profile_list_fails_again_and_again_without_a_loss_and_a_preference_does_not_matter) {
  mobile.start(profiles(3) + fault("GetWWANPolicyListEx", 0, 3) + fault("GetWWANProfilePreference"));
  for (int again = 0; again < 3; again++) {
    ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_WWAN_PROFILE_INDEX_E);
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_ERR_FAILURE);
    EXPECT_EQ(info.value.ptr, nullptr);
  }
  EXPECT_EQ(get_profiles()->count, 3U);
}

// Statistics and test information ------------------------------------------------------------------------------------

/** Counters of a handle, or what went wrong. */
std::string stats_of(uint32_t metric, int64_t handle) {
  ox_lyn_dm_info_t info = metric_request(metric);
  info.value.i64 = handle;
  const int32_t status = ox_lyn_get_info(board.hndl, &info);
  EXPECT_EQ(info.value_type, OX_LYN_VALUE_NONE_E);
  if (status != OX_LYN_SUCCESS) {
    EXPECT_EQ(info.value.i64, handle) << "a failure leaves the record";
    return text_of("failed with ", status);
  }
  const mobile_block<ox_lyn_wwan_stats_t> of(static_cast<ox_lyn_wwan_stats_t *>(info.value.ptr));
  return text_of(of->bytes_rx, " ", of->bytes_tx, " ", of->pkts_rx, " ", of->pkts_tx, " ", of->pkts_dropped_rx, " ",
                 of->pkts_dropped_tx);
}

std::string counters(uint32_t handle, uint32_t ip_family, uint64_t from) {
  return text_of("[[wwan.stats]]\nhandle = ", handle, "\nip_family = ", ip_family, "\nbytes_rx = ", from,
                 "\nbytes_tx = ", from + 1, "\npkts_rx = 3\npkts_tx = 4\ndropped_rx = 5\ndropped_tx = ", handle,
                 "\nrx_rate = 0\ntx_rate = 0\n");
}

TEST_F(mobile_ap, statistics_are_those_of_the_handle_and_the_family) {
  mobile.start(counters(1, 4, 10) + counters(1, 6, 20) + counters(7, 4, 1ULL << 40));
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV4_STATS_E, 1), "10 11 3 4 5 1");
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV6_STATS_E, 1), "20 21 3 4 5 1");
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV4_STATS_E, 7), "1099511627776 1099511627777 3 4 5 7");
  diag_log_take();
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV6_STATS_E, 7), "failed with -1");
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("\\nGet WWAN Stats Fails, Error: 0x29"));
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV4_STATS_E, 99), "failed with -1");
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Profile-handle Fails!!!"));
  EXPECT_EQ(stats_of(OX_LYN_GET_IPV4_STATS_E, 1), "10 11 3 4 5 1");
}

TEST_F(mobile_ap, counters_grow_with_the_traffic) {
  mobile.start("[[wwan.stats]]\nhandle = 1\nip_family = 4\nrx_rate = 1000000000000\ntx_rate = 500000000000\n");
  ox_lyn_wwan_stats_t last = {};
  for (int reading = 0; reading < 5; reading++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_IPV4_STATS_E);
    info.value.i64 = 1;
    ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
    const mobile_block<ox_lyn_wwan_stats_t> now(static_cast<ox_lyn_wwan_stats_t *>(info.value.ptr));
    EXPECT_GT(now->bytes_rx, last.bytes_rx);
    EXPECT_GT(now->bytes_tx, last.bytes_tx);
    EXPECT_NE(now->pkts_rx, last.pkts_rx);
    EXPECT_EQ(now->pkts_dropped_rx, 0U);
    last = *now;
  }
}

TEST_F(mobile_ap, test_information_is_asked_for_a_client_and_comes_in_a_block_of_the_callers) {
  mobile.start("[mtpe]\nbandwidth_kbps = 250000\nmtu = 1300\n" + fault("GetMTPETestInfo", 3));
  ox_lyn_mtpe_net_params_t params = {};
  inet_pton(AF_INET6, "2001:db8::9", params.client_addr);
  for (uint32_t ip_family : {4U, 6U, 5U}) {
    params.ip_family = ip_family;
    ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_MTPE_SERVER_CONFIG_E, &params);
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
    const mobile_block<ox_lyn_mtpe_server_config_t> config(static_cast<ox_lyn_mtpe_server_config_t *>(info.value.ptr));
    EXPECT_EQ(config->bandwidth_kbps, 250000);
    EXPECT_EQ(config->mtu, 1300);
  }
  EXPECT_THAT(mobile.calls("oxmap", "GetMTPETestInfo"),
              ElementsAre(R"(GetMTPETestInfo {"ip_family":4,"client_addr":"32.1.13.184"})",
                          R"(GetMTPETestInfo {"ip_family":6,"client_addr":"2001:db8::9"})",
                          R"(GetMTPETestInfo {"ip_family":0,"client_addr":"32.1.13.184"})"));
  diag_log_take();
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_MTPE_SERVER_CONFIG_E, &params);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(info.value.ptr, &params) << "a failure leaves the record";
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Failed to retreive Test Configuration information, Error:0x21"));
}

}  // namespace
