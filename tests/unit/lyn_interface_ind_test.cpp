/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Indication subscriptions: what each operation accepts, what it sends to the modem, what it lists, and that the table
 * only changes when the modem has accepted it.
 */
#include <nlohmann/json.hpp>

#include "board.h"
#include "lyn_interface.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using list = std::vector<uint32_t>;

struct lyn_interface_ind : board_test {
  void SetUp() override { restart(""); }

  void restart(const std::string &toml) {
    board.stop();
    board.start(board_no_service + toml);
  }

  uint32_t count() {
    uint32_t subscribed = 99;
    EXPECT_EQ(ox_lyn_get_ind_count(board.hndl, &subscribed), 0);
    return subscribed;
  }

  list listed(uint32_t room = 8) {
    list inds(room, 77);
    EXPECT_EQ(ox_lyn_get_ind_list(board.hndl, inds.data(), room), 0);
    return inds;
  }

  int32_t clear(list inds) {
    return ox_lyn_clear_ind_list(board.hndl, inds.data(), static_cast<uint32_t>(inds.size()));
  }

  /** The fields of the requests `id` since the start. */
  std::vector<nlohmann::json> sent(int id) {
    std::vector<nlohmann::json> requests;
    for (const auto &row : board_journal("nas", "request")) {
      if (row["id"] == id) {
        requests.push_back(row["fields"]);
      }
    }
    return requests;
  }
};

/* Subscribing */

TEST_F(lyn_interface_ind, indications_are_deliberately_listed_lte_before_nr5g) {
  board.subscribe_all();
  EXPECT_EQ(count(), 8U);
  EXPECT_THAT(listed(), ElementsAre(1, 2, 3, 5, 7, 4, 6, 8));
}

TEST_F(lyn_interface_ind, three_of_them_are_listed_in_that_order_and_the_rest_of_the_list_is_cleared) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_NR5G_RSRP_E, 1), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_SINR_E, 1), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), 0);
  EXPECT_EQ(count(), 3U);
  EXPECT_THAT(listed(3), ElementsAre(1, 7, 4));
  EXPECT_THAT(listed(5), ElementsAre(1, 7, 4, 0, 0));
}

TEST_F(lyn_interface_ind, the_modem_gets_the_threshold_of_every_signal_subscribed) {
  for (uint32_t ind = OX_LYN_IND_LTE_RSRP_E; ind <= OX_LYN_IND_NR5G_SINR_E; ind++) {
    EXPECT_EQ(board.subscribe(ind, 10 + ind), 0);
  }
  const auto deltas = sent(YRP_NAS_CONFIG_SIG_INFO);
  ASSERT_EQ(deltas.size(), 6U);
  EXPECT_EQ(deltas[0], nlohmann::json::parse(R"({"lte_rsrp_delta_valid": 1, "lte_rsrp_delta": 13})"));
  EXPECT_EQ(deltas[5],
            nlohmann::json::parse(
                R"({"lte_snr_delta_valid": 1, "lte_snr_delta": 17, "lte_rsrq_delta_valid": 1, "lte_rsrq_delta": 15,
                    "lte_rsrp_delta_valid": 1, "lte_rsrp_delta": 13, "nr5g_snr_delta_valid": 1, "nr5g_snr_delta": 18,
                    "nr5g_rsrp_delta_valid": 1, "nr5g_rsrp_delta": 14, "nr5g_rsrq_delta_valid": 1,
                    "nr5g_rsrq_delta": 16})"));
}

TEST_F(lyn_interface_ind, every_subscription_sends_the_registration_and_the_deltas_once) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRQ_E, 3), 0);
  const auto registrations = sent(YRP_NAS_INDICATION_REGISTER);
  ASSERT_EQ(registrations.size(), 4U); /* the first is the start's */
  EXPECT_FALSE(registrations[0].contains("sig_info"));
  EXPECT_EQ(registrations[1]["sig_info"], 0);
  EXPECT_EQ(registrations[2]["sig_info"], 0);
  EXPECT_EQ(registrations[3]["sig_info"], 1);
  EXPECT_EQ(sent(YRP_NAS_CONFIG_SIG_INFO).size(), 3U);
  EXPECT_THAT(listed(2), ElementsAre(2, 5));
}

TEST_F(lyn_interface_ind, subscribing_again_replaces_the_threshold) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 5), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 9), 0);
  EXPECT_EQ(sent(YRP_NAS_CONFIG_SIG_INFO).back()["lte_rsrp_delta"], 9);
  EXPECT_EQ(count(), 1U);
}

TEST_F(lyn_interface_ind, a_threshold_deliberately_keeps_its_low_16_bits) {
  const struct {
    int64_t threshold;
    int kept;
  } rows[] = {{70000, 4464}, {4294967295, 65535}, {65536, 0}, {INT64_MAX, 65535}, {1, 1}};
  for (const auto &row : rows) {
    EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, row.threshold), 0);
    EXPECT_EQ(sent(YRP_NAS_CONFIG_SIG_INFO).back()["lte_rsrp_delta"], row.kept) << row.threshold;
  }
}

TEST_F(lyn_interface_ind, a_signal_needs_a_threshold_from_1_and_the_refusal_is_silent) {
  ox_lyn_dm_ind_info_t info = {};
  info.record_type = OX_LYN_RECORD_IND_E;
  for (uint32_t ind = OX_LYN_IND_LTE_RSRP_E; ind <= OX_LYN_IND_NR5G_SINR_E; ind++) {
    info.indication = ind;
    const struct {
      uint32_t value_type;
      int64_t threshold;
    } rows[] = {{OX_LYN_VALUE_INT64_E, 0},
                {OX_LYN_VALUE_INT64_E, -1},
                {OX_LYN_VALUE_INT64_E, INT64_MIN},
                {OX_LYN_VALUE_NONE_E, 5},
                {OX_LYN_VALUE_UINT32_E, 5}};
    for (const auto &row : rows) {
      info.value_type = row.value_type;
      info.threshold = row.threshold;
      EXPECT_EQ(ox_lyn_set_ind_info(board.hndl, &info), OX_LYN_ERR_INVALID_PARAM);
    }
  }
  EXPECT_THAT(diag_log_texts(), IsEmpty());
  EXPECT_THAT(sent(YRP_NAS_CONFIG_SIG_INFO), IsEmpty());
  EXPECT_EQ(count(), 0U);
}

TEST_F(lyn_interface_ind, other_indications_cannot_be_subscribed) {
  for (const uint32_t ind : {0U, 9U, 13U, 14U, 0xFFFFFFFFU}) {
    EXPECT_EQ(board.subscribe(ind, 5), OX_LYN_ERR_NOT_SUPPORTED);
    EXPECT_THAT(diag_log_texts(), ElementsAre("Setting diagnostic indication information for metric[" +
                                              std::to_string(ind) + "] - not supported!!"));
  }
  EXPECT_THAT(sent(YRP_NAS_CONFIG_SIG_INFO), IsEmpty());
}

TEST_F(lyn_interface_ind, a_refused_subscription_leaves_the_table) {
  /* The first 3 is the start's, then one subscription passes. */
  restart("[[fault]]\non = 'nas.3'\nskip = 2\n[[fault]]\non = 'nas.108'\nskip = 1\ntransport = -3\n");
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 5), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), OX_LYN_ERR_FAILURE); /* 3 fails */
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 9), OX_LYN_ERR_FAILURE);  /* 108 fails */
  EXPECT_THAT(listed(1), ElementsAre(3));
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  EXPECT_EQ(sent(YRP_NAS_CONFIG_SIG_INFO).back()["lte_rsrp_delta"], 5);
}

/* Listing */

TEST_F(lyn_interface_ind, a_list_that_is_too_short_is_refused_and_left_alone) {
  board.subscribe_all();
  diag_log_take();
  list inds(8, 77);
  EXPECT_EQ(ox_lyn_get_ind_list(board.hndl, inds.data(), 7), OX_LYN_ERR_INSUFFICIENT_BUFFER);
  EXPECT_THAT(inds, testing::Each(77));
  EXPECT_THAT(diag_log_texts(),
              ElementsAre("Indication list count [7] passed can't store the entire indication list [8]"));
}

/* Clearing */

TEST_F(lyn_interface_ind, clearing_takes_several_and_those_not_subscribed) {
  board.subscribe_all();
  EXPECT_EQ(clear({3, 8, 1, 3}), 0);
  EXPECT_THAT(listed(5), ElementsAre(2, 5, 7, 4, 6));
  const auto deltas = sent(YRP_NAS_CONFIG_SIG_INFO).back();
  EXPECT_FALSE(deltas.contains("lte_rsrp_delta"));
  EXPECT_FALSE(deltas.contains("nr5g_snr_delta"));
  EXPECT_EQ(deltas["lte_rsrq_delta"], 1);
}

TEST_F(lyn_interface_ind, clearing_the_last_signal_switches_reports_off) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 5), 0);
  EXPECT_EQ(clear({3}), 0);
  EXPECT_EQ(sent(YRP_NAS_INDICATION_REGISTER).back()["sig_info"], 0);
  EXPECT_EQ(count(), 0U);
}

TEST_F(lyn_interface_ind, clearing_is_all_or_nothing) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  diag_log_take();
  for (const list &inds : {list{2, 9}, list{2, 0, 9}, list{0xFFFFFFFF}}) {
    const size_t before = sent(YRP_NAS_INDICATION_REGISTER).size();
    EXPECT_EQ(clear(inds), OX_LYN_ERR_NOT_SUPPORTED);
    const uint32_t unknown = inds.size() > 1 ? inds[1] : inds[0];
    EXPECT_THAT(diag_log_texts(), ElementsAre("Clearing diagnostic indication information for metric[" +
                                              std::to_string(unknown) + "] - not supported!!"));
    EXPECT_EQ(sent(YRP_NAS_INDICATION_REGISTER).size(), before);
  }
  EXPECT_THAT(listed(1), ElementsAre(2));
}

TEST_F(lyn_interface_ind, a_refused_clear_leaves_the_table) {
  restart("[[fault]]\non = 'nas.3'\nskip = 2\nresult = 1\nerror = 46\n");
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 5), 0);
  EXPECT_EQ(clear({3}), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(count(), 1U);
}

/* Bad arguments */

TEST_F(lyn_interface_ind, bad_arguments_are_refused_with_the_operations_own_text) {
  uint32_t inds[2] = {2, 2}, subscribed = 0;
  ox_lyn_dm_ind_info_t info = {}, wrong = {};
  info.record_type = OX_LYN_RECORD_IND_E;
  info.indication = OX_LYN_IND_REG_STATUS_E;
  wrong.record_type = OX_LYN_RECORD_GET_E;
  const struct {
    int32_t status;
    const char *text;
  } rows[] = {
      {ox_lyn_set_ind_info(0, &info), "Invalid params - hndl[(nil)], dm_ind_info[0x"},
      {ox_lyn_set_ind_info(board.hndl + 1, &info), "Invalid params - hndl[0x"},
      {ox_lyn_set_ind_info(board.hndl, nullptr), "], dm_ind_info[(nil)]"},
      {ox_lyn_set_ind_info(board.hndl, &wrong), "], dm_ind_info[0x"},
      {ox_lyn_get_ind_count(0, &subscribed), "Invalid params - hndl[(nil)], dm_ind_cnt[0x"},
      {ox_lyn_get_ind_count(board.hndl, nullptr), "], dm_ind_cnt[(nil)]"},
      {ox_lyn_get_ind_list(0, inds, 2), "Invalid params - hndl[(nil)], dm_ind_cnt[0x"}, /* the count's own text */
      {ox_lyn_get_ind_list(board.hndl, nullptr, 2), "], dm_ind_list[(nil)], dm_ind_list_cnt[2]"},
      {ox_lyn_get_ind_list(board.hndl, inds, 0), "], dm_ind_list_cnt[0]"},
      {ox_lyn_clear_ind_list(0, inds, 2), "Invalid params - hndl[(nil)], dm_clr_ind_list[0x"},
      {ox_lyn_clear_ind_list(board.hndl, nullptr, 2), "], dm_clr_ind_list[(nil)], dm_clr_ind_list_cnt[2]"},
      {ox_lyn_clear_ind_list(board.hndl, inds, 0), "], dm_clr_ind_list_cnt[0]"},
  };
  const auto errors = diag_log_texts("ERROR");
  ASSERT_EQ(errors.size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); i++) {
    EXPECT_EQ(rows[i].status, OX_LYN_ERR_INVALID_PARAM) << i;
    EXPECT_NE(errors[i].find(rows[i].text), std::string::npos) << errors[i];
  }
}

TEST_F(lyn_interface_ind, after_a_failed_teardown_all_four_say_that_the_module_is_down) {
  restart("[[fault]]\non = 'yrp.release'\n");
  EXPECT_EQ(ox_lyn_deinit(board.hndl), OX_LYN_ERR_FAILURE);
  diag_log_take();
  uint32_t inds[1] = {2}, subscribed = 0;
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), OX_LYN_ERR_NOT_INITIALIZED);
  EXPECT_EQ(ox_lyn_get_ind_count(board.hndl, &subscribed), OX_LYN_ERR_NOT_INITIALIZED);
  EXPECT_EQ(ox_lyn_get_ind_list(board.hndl, inds, 1), OX_LYN_ERR_NOT_INITIALIZED);
  EXPECT_EQ(clear({2}), OX_LYN_ERR_NOT_INITIALIZED);
  EXPECT_THAT(diag_log_texts(),
              testing::AllOf(testing::SizeIs(4), testing::Each("Device Manager module is not initialized!!")));
  board.start(board_no_service);
}

TEST_F(lyn_interface_ind, the_table_is_empty_after_a_new_start) {
  board.subscribe_all();
  restart("");
  EXPECT_EQ(count(), 0U);
}

}  // namespace
