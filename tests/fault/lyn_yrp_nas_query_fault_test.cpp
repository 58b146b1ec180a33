/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Queries and metrics without memory, and with a modem that claims longer lists than there is room for.
 */
#include <functional>
#include <memory>

#include "alloc_fault.h"
#include "lyn_yrp_nas.h"
#include "metric_board.h"

// A response in which every list claims to be longer than it can be, where a test wants it so.
namespace {
bool lists_too_long = false;

template <typename response>
response &as(void *resp) {
  return *static_cast<response *>(resp);
}

void claim_too_much(unsigned int msg_id, void *resp) {
  constexpr uint32_t length = UINT32_MAX;
  if (msg_id == YRP_NAS_GET_RF_BAND_INFO) {
    as<yrp_nas_rf_band_info_resp_t>(resp).lte_rf_bandwidth_len = length;
    as<yrp_nas_rf_band_info_resp_t>(resp).nr5g_rf_bandwidth_len = length;
  } else if (msg_id == YRP_NAS_GET_TX_RX_INFO) {
    as<yrp_nas_tx_rx_info_resp_t>(resp).downlink_mod_len = length;
    as<yrp_nas_tx_rx_info_resp_t>(resp).uplink_mod_len = length;
  } else if (msg_id == YRP_NAS_GET_LTE_CELL_LOCK_LIST) {
    as<yrp_nas_lte_cell_lock_list_resp_t>(resp).lte_cell_list_len = length;
  } else if (msg_id == YRP_NAS_GET_NR5G_CELL_LOCK_LIST) {
    as<yrp_nas_nr5g_cell_lock_list_resp_t>(resp).arfcn_identity_valid = 1;
    as<yrp_nas_nr5g_cell_lock_list_resp_t>(resp).arfcn_list_len = length;
  } else if (msg_id == YRP_NAS_GET_CQI_INFO) {
    auto &cqi = as<yrp_nas_cqi_info_resp_t>(resp);
    cqi.lte_cc_cqi_len = cqi.nr5g_cc_cqi_len = length;
    for (yrp_nas_cc_cqi_t &carrier : cqi.lte_cc_cqi) {
      carrier.cw_cqi_len = length;
    }
    for (yrp_nas_cc_cqi_t &carrier : cqi.nr5g_cc_cqi) {
      carrier.cw_cqi_len = length;
    }
  }
}
}  // namespace

// The linker's names: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {
yrp_client_error_type __real_yrp_client_send_msg_sync(yrp_client_type user_handle, unsigned int msg_id, void *req,
                                                      unsigned int req_len, void *resp, unsigned int resp_len,
                                                      unsigned int timeout_ms);

yrp_client_error_type __wrap_yrp_client_send_msg_sync(yrp_client_type user_handle, unsigned int msg_id, void *req,
                                                      unsigned int req_len, void *resp, unsigned int resp_len,
                                                      unsigned int timeout_ms) {
  const auto status = __real_yrp_client_send_msg_sync(user_handle, msg_id, req, req_len, resp, resp_len, timeout_ms);
  if (lists_too_long) {
    claim_too_much(msg_id, resp);
  }
  return status;
}
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

struct lyn_yrp_nas_query_fault : board_test {
  void SetUp() override {
    metric_board(OX_LYN_REG_LTE_NR5G_E);
    board.up();
    board_forget();
  }
  void TearDown() override {
    lists_too_long = false;
    board_test::TearDown();
  }
};

/* Without memory */

template <typename record>
std::function<int32_t(bool &)> asking(int32_t (*query)(record *)) {
  return [query](bool &untouched) {
    record before, result;
    memset(&before, 0xEE, sizeof before);
    memcpy(&result, &before, sizeof result);
    const int32_t status = query(&result);
    untouched = memcmp(&before, &result, sizeof result) == 0;
    return status;
  };
}

const std::function<int32_t(bool &)> queries[] = {
    asking(+[](lyn_nas_sys_info_t *sys_info) { return lyn_yrp_nas_get_sys_info(sys_info, 1); }),
    asking(lyn_yrp_nas_get_cell_info),
    asking(lyn_yrp_nas_get_sig_info),
    asking(lyn_yrp_nas_get_tx_pwr_info),
    asking(lyn_yrp_nas_get_mcs_info),
    asking(lyn_yrp_nas_get_rrc_state),
    asking(lyn_yrp_nas_get_endc_mode),
    asking(lyn_yrp_nas_get_scs_info),
    asking(lyn_yrp_nas_get_cphy_ca_info),
    asking(lyn_yrp_nas_get_rf_bw_info),
    asking(lyn_yrp_nas_get_cqi_info),
    asking(lyn_yrp_nas_get_cell_lock_list),
};

TEST_F(lyn_yrp_nas_query_fault, query_without_memory_for_either_buffer_asks_nothing_and_leaves_its_record) {
  for (const auto &query : queries) {
    for (uint32_t pass = 0; pass < 2; pass++) {
      SCOPED_TRACE(text_of("query ", &query - queries, ", allocation ", pass + 1));
      bool untouched = false;
      alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
      const int32_t status = query(untouched);
      EXPECT_TRUE(alloc_fault_disarm());
      EXPECT_EQ(status, -3);
      EXPECT_TRUE(untouched);
      EXPECT_THAT(diag_log_placed(), ElementsAre("ERROR lyn_yrp_nas_query.cpp Memory allocation failure"));
      EXPECT_THAT(metric_asked(), IsEmpty());
    }
  }
}

TEST_F(lyn_yrp_nas_query_fault, query_allocates_two_buffers_however_many_messages_it_sends) {
  for (const auto &query : queries) {
    bool untouched = false;
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 1000);
    EXPECT_EQ(query(untouched), 0);
    EXPECT_EQ(alloc_fault_seen(), 2U);
    alloc_fault_disarm();
  }
}

/** One metric with its n-th allocation failing. */
struct starved_get {
  int32_t status;
  bool met; /* the allocation really failed */
  ox_lyn_dm_info_t info;
};

starved_get get_starved(uint32_t metric, uint32_t pass, void *buffer) {
  starved_get got = {.status = 0, .met = false, .info = metric_request(metric, buffer)};
  got.info.value_type = 99;
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
  got.status = ox_lyn_get_info(board.hndl, &got.info);
  got.met = alloc_fault_disarm();
  return got;
}

TEST_F(lyn_yrp_nas_query_fault, metric_without_memory_has_no_value_whichever_allocation_fails) {
  ox_lyn_nr5g_cell_lock_t buffer = {}; /* the largest of the callers' buffers */
  for (uint32_t metric = 1; metric <= OX_LYN_GET_NR5G_RF_BANDWIDTH_E; metric++) {
    if (metric >= OX_LYN_GET_LTE_NBR_EARFCN_E && metric <= OX_LYN_GET_LTE_NBR_RSRQ_E) {
      continue;
    }
    const bool own_block = metric == OX_LYN_GET_LTE_MCS_E || metric == OX_LYN_GET_NR5G_MCS_E;
    const bool pci = metric == OX_LYN_GET_LTE_SERV_PCI_E || metric == OX_LYN_GET_NR5G_SERV_PCI_E;
    const uint32_t of_queries = metric == OX_LYN_GET_REG_STATUS_E ? 2 : pci ? 6 : 4;
    for (uint32_t pass = 0; pass < of_queries + own_block; pass++) {
      SCOPED_TRACE(text_of("metric ", metric, ", allocation ", pass + 1));
      board_forget();
      const starved_get got = get_starved(metric, pass, &buffer);
      EXPECT_TRUE(got.met);
      EXPECT_EQ(got.status, pass < of_queries ? -3 : -1);
      EXPECT_EQ(got.info.value_type, 0U);
      EXPECT_EQ(got.info.value.ptr, &buffer);
      EXPECT_EQ(diag_log_placed("ERROR").back(), pass < of_queries
                                                     ? "ERROR lyn_yrp_nas_query.cpp Memory allocation failure"
                                                     : "ERROR lyn_interface_get.cpp Memory allocation failure");
    }
    if (metric == OX_LYN_GET_LTE_ENDC_MODE_E) {
      continue; /* its block has a test program of its own */
    }
    const starved_get fed = get_starved(metric, of_queries + own_block, &buffer);
    EXPECT_FALSE(fed.met) << "there is no further allocation";
    EXPECT_EQ(fed.status, 0) << metric;
    if (own_block) {
      free(fed.info.value.ptr);
    }
  }
}

TEST_F(lyn_yrp_nas_query_fault, list_without_memory_ends_at_its_entry_and_gives_the_lock_back) {
  ox_lyn_dm_info_t list[3] = {};
  for (ox_lyn_dm_info_t &info : list) {
    info = metric_request(OX_LYN_GET_LTE_SERV_RSRP_E);
  }
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 6);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, list, 3), -3);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_EQ(list[0].value.i64, -95);
  EXPECT_EQ(list[2].value.i64, 0);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, list, 3), 0);
}

/* Lists longer than their room */

TEST_F(lyn_yrp_nas_query_fault, lists_that_claim_to_be_longer_are_cut_to_the_room_in_the_record) {
  lists_too_long = true;
  auto rf = std::make_unique<lyn_nas_rf_bw_info_t>();
  ASSERT_EQ(lyn_yrp_nas_get_rf_bw_info(rf.get()), 0);
  EXPECT_EQ(rf->len, 16U);
  auto mcs = std::make_unique<lyn_nas_mcs_info_t>();
  ASSERT_EQ(lyn_yrp_nas_get_mcs_info(mcs.get()), 0);
  for (const uint32_t len : {mcs->lte.dl_len, mcs->lte.ul_len, mcs->nr5g.dl_len, mcs->nr5g.ul_len}) {
    EXPECT_EQ(len, 2U);
  }
  auto locks = std::make_unique<lyn_nas_cell_lock_list_t>();
  ASSERT_EQ(lyn_yrp_nas_get_cell_lock_list(locks.get()), 0);
  EXPECT_EQ(locks->count, 60U);
  EXPECT_EQ(locks->arfcn_list_len, 32U);
  auto cqi = std::make_unique<lyn_nas_cqi_info_t>();
  ASSERT_EQ(lyn_yrp_nas_get_cqi_info(cqi.get()), 0);
  EXPECT_EQ(cqi->lte_cc_cqi_len, 7U);
  EXPECT_EQ(cqi->nr5g_cc_cqi_len, 12U);
  EXPECT_EQ(cqi->lte[6].cw_cqi_len, 4U);
  EXPECT_EQ(cqi->nr5g[11].cw_cqi_len, 4U);
}

/** A buffer of the caller's, alone on the heap, so that a sanitizer sees the first octet written behind it. */
template <typename block>
void expect_whole(uint32_t metric, uint32_t (*count)(const block &), uint32_t wanted) {
  auto buffer = std::make_unique<block>();
  ox_lyn_dm_info_t info = metric_request(metric, buffer.get());
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0) << metric;
  EXPECT_EQ(count(*buffer), wanted);
}

TEST_F(lyn_yrp_nas_query_fault, callers_buffers_take_lists_that_claim_to_be_longer) {
  lists_too_long = true;
  expect_whole<ox_lyn_lte_cqi_t>(
      OX_LYN_GET_LTE_SERV_CQI_E, [](const auto &cqi) { return cqi.count; }, 7);
  expect_whole<ox_lyn_nr5g_cqi_t>(
      OX_LYN_GET_NR5G_SERV_CQI_E, [](const auto &cqi) { return cqi.count; }, 12);
  expect_whole<ox_lyn_lte_cell_lock_t>(
      OX_LYN_GET_LTE_CELL_LOCK_LIST_E, [](const auto &lock) { return uint32_t{lock.count}; }, 60);
  expect_whole<ox_lyn_nr5g_cell_lock_t>(
      OX_LYN_GET_NR5G_CELL_LOCK_LIST_E, [](const auto &lock) { return lock.arfcn_list_len; }, 32);
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_NR5G_RF_BANDWIDTH_E);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  EXPECT_EQ(info.count, 16U);
}

}  // namespace
