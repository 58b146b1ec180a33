/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board's mobile access point, as a client of it sees it.
 */
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "oxmap_client.h"
#include "sim_board.h"

namespace {

struct indication {
  unsigned int id;
  uint32_t words[4];
};

std::mutex lock;
std::condition_variable noted;
std::vector<indication> indications;

void on_indication(yrp_client_type handle, unsigned int id, void *buf, unsigned int len) {
  indication seen = {.id = id, .words = {}};
  if (id == OXMAP_MTPE_STATUS_IND) {
    oxmap_mtpe_status_ind_t record;
    EXPECT_EQ(yrp_client_message_decode(handle, YRP_MSG_INDICATION, id, buf, len, &record, sizeof(record)), 0);
    seen.words[0] = record.test_status;
    seen.words[1] = record.peak_rate_valid ? record.peak_rate : 0;
    seen.words[2] = record.failure_reason_valid ? record.failure_reason : 0;
  } else if (id == OXMAP_QOS_FLOW_IND) {
    oxmap_qos_flow_ind_t record;
    EXPECT_EQ(yrp_client_message_decode(handle, YRP_MSG_INDICATION, id, buf, len, &record, sizeof(record)), 0);
    seen.words[0] = record.bearer_id;
    seen.words[1] = record.tx_5g_qci;
    seen.words[2] = record.rx_5g_qci;
  } else {
    oxmap_mobile_ap_state_ind_t record;
    EXPECT_EQ(yrp_client_message_decode(handle, YRP_MSG_INDICATION, id, buf, len, &record, sizeof(record)), 0);
    seen.words[0] = record.state;
  }
  const std::lock_guard guard(lock);
  indications.push_back(seen);
  noted.notify_all();
}

class sim_oxmap_test : public testing::Test {
 protected:
  void load(const std::string &scenario) {
    client.reset();
    ASSERT_EQ(sim_board_load(scenario), "");
    {
      const std::lock_guard guard(lock);
      indications.clear();
    }
    client = std::make_unique<OXMAP_Client>(on_indication, 0);
  }

  void TearDown() override { client.reset(); }

  static bool wait(size_t count) {
    std::unique_lock guard(lock);
    return noted.wait_for(guard, std::chrono::seconds(5), [count] { return indications.size() >= count; });
  }

  static void rest() { std::this_thread::sleep_for(std::chrono::milliseconds(80)); }

  /** A test that is ready to start. */
  void configure(uint32_t duration = 0) {
    oxmap_mtpe_config_t config = {};
    config.duration = duration;
    const size_t before = indications.size();
    ASSERT_TRUE(client->ConfigureMTPE(&config, &error));
    ASSERT_TRUE(wait(before + 1));
    ASSERT_EQ(indications.back().words[0], 1U);
  }

  std::unique_ptr<OXMAP_Client> client;
  yrp_error_type_v01 error = 99;
};

TEST_F(sim_oxmap_test, enabling_connects_the_mobile_ap) {
  load("");
  EXPECT_TRUE(client->IsReady());
  EXPECT_TRUE(client->EnableMobileAP_Ext(&error));
  EXPECT_EQ(error, 0U);
  ASSERT_TRUE(wait(1));
  EXPECT_EQ(indications[0].id, static_cast<unsigned>(OXMAP_MOBILE_AP_STATE_IND));
  EXPECT_EQ(indications[0].words[0], 1U);
}

TEST_F(sim_oxmap_test, a_test_is_configured_runs_completes_and_can_run_again) {
  load("mtpe = { configured_ms = 5, duration_ms = 10, peak_rate_kbps = 4711 }");
  configure();
  for (int run = 0; run < 2; ++run) {
    ASSERT_TRUE(client->StartMTPE(&error));
    ASSERT_TRUE(wait(2 + static_cast<size_t>(run)));
    EXPECT_EQ(indications.back().words[0], 2U);
    EXPECT_EQ(indications.back().words[1], 4711U);
  }
  EXPECT_TRUE(client->TeardownMTPE(&error));
}

TEST_F(sim_oxmap_test, a_test_fails_with_its_reason_or_is_aborted) {
  load("mtpe = { configured_ms = 0, duration_ms = 1, result = \"failed\", failure_reason = 9 }");
  configure();
  ASSERT_TRUE(client->StartMTPE(&error));
  ASSERT_TRUE(wait(2));
  EXPECT_EQ(indications[1].words[0], 3U);
  EXPECT_EQ(indications[1].words[1], 0U);
  EXPECT_EQ(indications[1].words[2], 9U);

  load("mtpe = { configured_ms = 0, duration_ms = 1, result = \"aborted\" }");
  configure();
  ASSERT_TRUE(client->StartMTPE(&error));
  ASSERT_TRUE(wait(2));
  EXPECT_EQ(indications[1].words[0], 4U);
}

TEST_F(sim_oxmap_test, a_duration_of_0_is_the_one_asked_for) {
  load("mtpe = { configured_ms = 0, duration_ms = 0 }");
  configure(1);
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(client->StartMTPE(&error));
  ASSERT_TRUE(wait(2));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(990));
}

TEST_F(sim_oxmap_test, steps_out_of_order_are_refused) {
  load("mtpe = { configured_ms = 0, duration_ms = -1 }");
  oxmap_mtpe_config_t config = {};
  EXPECT_FALSE(client->TeardownMTPE(&error)) << "nothing is configured";
  EXPECT_NE(error, 0U);
  EXPECT_FALSE(client->StartMTPE(&error)) << "nothing is configured";
  EXPECT_FALSE(client->ConfigureMTPE(nullptr, &error));
  configure();
  EXPECT_TRUE(client->StartMTPE(&error));
  EXPECT_FALSE(client->StartMTPE(&error)) << "it runs";
  EXPECT_FALSE(client->ConfigureMTPE(&config, &error)) << "it runs";
  EXPECT_TRUE(client->TeardownMTPE(&error));
  EXPECT_FALSE(client->TeardownMTPE(&error));
}

TEST_F(sim_oxmap_test, what_was_due_dies_with_the_teardown) {
  load("mtpe = { configured_ms = 30 }");
  oxmap_mtpe_config_t config = {};
  ASSERT_TRUE(client->ConfigureMTPE(&config, &error));
  EXPECT_FALSE(client->StartMTPE(&error)) << "not ready";
  ASSERT_TRUE(client->TeardownMTPE(&error));
  rest();
  EXPECT_TRUE(indications.empty());
}

TEST_F(sim_oxmap_test, a_new_configuration_has_its_own_time) {
  load("mtpe = { configured_ms = 60 }");
  oxmap_mtpe_config_t config = {};
  ASSERT_TRUE(client->ConfigureMTPE(&config, &error));
  std::this_thread::sleep_for(std::chrono::milliseconds(40));
  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(client->ConfigureMTPE(&config, &error));
  ASSERT_TRUE(wait(1));
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(59));
}

TEST_F(sim_oxmap_test, a_second_qos_query_before_the_answer_is_refused_with_118) {
  load("wwan.qos = { bearer = 6, tx_5qi = 1, rx_5qi = 2, answer_ms = 30 }");
  ASSERT_TRUE(client->GetGlobalQoSFlowInfo(4, &error));
  EXPECT_FALSE(client->GetGlobalQoSFlowInfo(6, &error));
  EXPECT_EQ(error, 118U);
  ASSERT_TRUE(wait(1));
  EXPECT_EQ(indications[0].id, static_cast<unsigned>(OXMAP_QOS_FLOW_IND));
  EXPECT_EQ(indications[0].words[0], 6U);
  EXPECT_EQ(indications[0].words[1], 1U);
  EXPECT_EQ(indications[0].words[2], 2U);
  EXPECT_TRUE(client->GetGlobalQoSFlowInfo(4, &error));
}

TEST_F(sim_oxmap_test, a_policy_list_holds_the_first_fifty_profiles) {
  for (const uint32_t profiles : {0U, 1U, 3U, 50U, 60U}) {
    std::string scenario = "wwan.profile = [";
    for (uint32_t index = 1; index <= profiles; ++index) {
      scenario += "{ index = " + std::to_string(index) + ", apn = \"apn" + std::to_string(index) + "\" }, ";
    }
    load(scenario + "]");
    auto list = std::make_unique<oxmap_wwan_policy_list_t>();
    ASSERT_TRUE(client->GetWWANPolicyListEx(list.get(), &error));
    EXPECT_EQ(list->count, std::min(profiles, 50U));
    if (list->count) {
      const oxmap_wwan_policy_t &last = list->entries[list->count - 1];
      EXPECT_EQ(last.profile_index, list->count);
      EXPECT_STREQ(last.apn_name, ("apn" + std::to_string(list->count)).c_str());
      EXPECT_EQ(last.ip_family, 4U);
    }
    uint32_t index = 0;
    EXPECT_EQ(client->GetWWANProfilePreference(&index, &error), profiles > 0);
    EXPECT_EQ(index, profiles > 0 ? 1U : 0U);
  }
}

TEST_F(sim_oxmap_test, statistics_are_of_a_handle_and_a_family) {
  load(
      "wwan.stats = [{ handle = 1, bytes_rx = 10, pkts_tx = 3, dropped_rx = 4, rx_rate = 0, tx_rate = 0 },"
      "{ handle = 2, ip_family = 6, bytes_rx = 20, rx_rate = 0, tx_rate = 0 }]");
  oxmap_wwan_stats_t stats = {};
  EXPECT_FALSE(client->GetWWANStatistics(4, &stats, &error)) << "no handle is selected";
  EXPECT_FALSE(client->SetWWANProfileHandlePreference(3, &error));
  EXPECT_NE(error, 0U);
  ASSERT_TRUE(client->SetWWANProfileHandlePreference(1, &error));
  ASSERT_TRUE(client->GetWWANStatistics(4, &stats, &error));
  EXPECT_EQ(stats.bytes_rx, 10U);
  EXPECT_EQ(stats.pkts_tx, 3U);
  EXPECT_EQ(stats.pkts_dropped_rx, 4U);
  EXPECT_FALSE(client->GetWWANStatistics(6, &stats, &error));
  ASSERT_TRUE(client->SetWWANProfileHandlePreference(2, &error));
  ASSERT_TRUE(client->GetWWANStatistics(6, &stats, &error));
  EXPECT_EQ(stats.bytes_rx, 20U);
}

TEST_F(sim_oxmap_test, statistics_of_handle_0_are_read_before_a_handle_was_selected) {
  load("wwan.stats = [{ handle = 0, bytes_rx = 10, rx_rate = 0 }, { handle = 1, bytes_rx = 20, rx_rate = 0 }]");
  oxmap_wwan_stats_t stats = {};
  ASSERT_TRUE(client->GetWWANStatistics(4, &stats, &error));
  EXPECT_EQ(stats.bytes_rx, 10U);
  ASSERT_TRUE(client->SetWWANProfileHandlePreference(1, &error));
  ASSERT_TRUE(client->GetWWANStatistics(4, &stats, &error));
  EXPECT_EQ(stats.bytes_rx, 20U);
  ASSERT_TRUE(client->SetWWANProfileHandlePreference(0, &error));
  ASSERT_TRUE(client->GetWWANStatistics(4, &stats, &error));
  EXPECT_EQ(stats.bytes_rx, 10U);
}

TEST_F(sim_oxmap_test, statistics_grow_by_their_rates) {
  load("wwan.stats = [{ rx_rate = 125000000, tx_rate = 1250000 }]");
  oxmap_wwan_stats_t first = {}, second = {};
  ASSERT_TRUE(client->SetWWANProfileHandlePreference(1, &error));
  ASSERT_TRUE(client->GetWWANStatistics(4, &first, &error));
  rest();
  ASSERT_TRUE(client->GetWWANStatistics(4, &second, &error));
  EXPECT_GE(second.bytes_rx, first.bytes_rx + 125000 * 80);
  EXPECT_GE(second.bytes_tx, first.bytes_tx + 1250 * 80);
  EXPECT_NEAR(static_cast<double>(second.pkts_rx), static_cast<double>(second.bytes_rx) / 1250, 1);
}

TEST_F(sim_oxmap_test, test_information_is_the_scenarios) {
  load("mtpe = { bandwidth_kbps = 5, mtu = 6 }");
  oxmap_mtpe_net_params_t params = {};
  oxmap_mtpe_test_info_t info = {};
  ASSERT_TRUE(client->GetMTPETestInfo(&params, &info, &error));
  EXPECT_EQ(info.bandwidth_kbps, 5);
  EXPECT_EQ(info.mtu, 6);
}

TEST_F(sim_oxmap_test, a_fault_fails_the_operation_with_its_error) {
  load(
      "[[fault]]\non = \"oxmap.EnableMobileAP_Ext\"\nerror = 33\n[[fault]]\non = \"oxmap.EnableMobileAP_Ext\"\nskip = "
      "1\n"
      "[[fault]]\non = \"oxmap.IsReady\"\n");
  EXPECT_FALSE(client->EnableMobileAP_Ext(&error));
  EXPECT_EQ(error, 33U);
  EXPECT_FALSE(client->EnableMobileAP_Ext(&error));
  EXPECT_EQ(error, 1U);
  EXPECT_TRUE(client->EnableMobileAP_Ext(nullptr));
  EXPECT_FALSE(client->IsReady());
  EXPECT_TRUE(client->IsReady());
}

TEST_F(sim_oxmap_test, a_client_whose_construction_fails_is_never_ready) {
  load("[[fault]]\non = \"oxmap.OXMAP_Client\"\n");
  EXPECT_FALSE(client->IsReady());
  EXPECT_FALSE(client->IsReady());
}

TEST_F(sim_oxmap_test, a_configuration_is_journaled_with_its_addresses_as_text) {
  load("");
  oxmap_mtpe_config_t config = {};
  config.ip_family = 10;
  config.src_port = 5001;
  config.server_address_valid = 1;
  std::strcpy(config.server_url, "server.example");
  const uint8_t ipv4[] = {192, 0, 2, 1}, ipv6[] = {0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};
  std::memcpy(&config.src_ipv4, ipv4, sizeof(ipv4));
  std::memcpy(config.dst_ipv6, ipv6, sizeof(ipv6));
  sim_board_journal_keep(true);
  ASSERT_TRUE(client->ConfigureMTPE(&config, &error));
  const std::vector<std::string> journal = sim_board_journal();
  sim_board_journal_keep(false);
  ASSERT_GE(journal.size(), 2U);
  for (const char *part : {"\"dir\": \"call\", \"name\": \"ConfigureMTPE\", \"fields\": {\"ip_family\": 10",
                           "\"src_port\": 5001", "\"server_url\": \"server.example\"", "\"src_ipv4\": \"192.0.2.1\"",
                           "\"dst_ipv4\": \"0.0.0.0\"", "\"dst_ipv6\": \"2001:db8::1\"", "\"test_params_valid\": 0}"}) {
    EXPECT_NE(journal[0].find(part), std::string::npos) << part << '\n' << journal[0];
  }
  EXPECT_NE(
      journal[1].find("\"dir\": \"return\", \"name\": \"ConfigureMTPE\", \"fields\": {\"ok\": true, \"error\": 0}"),
      std::string::npos)
      << journal[1];
}

}  // namespace
