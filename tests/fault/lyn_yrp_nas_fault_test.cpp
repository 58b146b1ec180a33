/* SPDX-License-Identifier: Apache-2.0 */
/* The NAS client without memory: every allocation of every call but the queries, one after the other. */
#include <functional>

#include "alloc_fault.h"
#include "lyn_yrp_nas_board.h"

using testing::Contains;

namespace {

template <typename Record>
std::function<int32_t()> telling(int32_t (*request)(const Record *)) {
  return [request] {
    const Record record = {};
    return request(&record);
  };
}

}  // namespace

TEST_F(lyn_yrp_nas, when_request_or_response_cannot_be_allocated_then_nothing_is_sent) {
  const std::function<int32_t()> calls[] = {
      telling(lyn_yrp_nas_set_cell_lock_list),
      telling(lyn_yrp_nas_set_pps_config),
      telling(lyn_yrp_nas_set_pps_change_status),
      telling(lyn_yrp_nas_set_install_mode),
      [] { return lyn_yrp_nas_set_nr5g_deprioritize(1); },
      [] {
        uint8_t ongoing = 0;
        return lyn_yrp_nas_incremental_scan(1, &ongoing, 0, nullptr);
      },
  };
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  for (const auto &call : calls) {
    for (uint32_t pass = 0; pass < 2; pass++) {
      diag_log_take();
      alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
      EXPECT_EQ(call(), -3);
      EXPECT_TRUE(alloc_fault_disarm());
      EXPECT_THAT(diag_log_placed(), testing::ElementsAre("ERROR lyn_yrp_nas_config.cpp Memory allocation failure"));
    }
  }
  EXPECT_TRUE(nas_requests().empty());
}

TEST_F(lyn_yrp_nas, when_registering_runs_out_of_memory_then_what_was_sent_before_stays) {
  const lyn_ind_table_t table = {};
  for (uint32_t pass = 0; pass < 4; pass++) {
    nas_connect(OX_LYN_REG_LTE_E);
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
    EXPECT_EQ(lyn_yrp_nas_register_ind(&table), -3);
    EXPECT_TRUE(alloc_fault_disarm());
    EXPECT_EQ(nas_requests(), pass < 2 ? std::vector<int>() : std::vector<int>{3});
    EXPECT_THAT(diag_log_lines(), Contains("ERROR Memory allocation failed"));
  }
}

TEST_F(lyn_yrp_nas, when_a_service_event_cannot_be_allocated_then_it_is_dropped) {
  nas_connect(OX_LYN_REG_LTE_E);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  lyn_yrp_nas_svc_notify_cb(nullptr, nullptr, YRP_SERVICE_UP, nullptr);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_TRUE(nas_events().empty());
  EXPECT_EQ(diag_log_lines().back(), "ERROR Memory allocation failure");
}

TEST_F(lyn_yrp_nas, when_a_record_cannot_be_allocated_then_the_indication_is_dropped) {
  nas_connect(OX_LYN_REG_LTE_E);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  uint8_t nothing = 0;
  lyn_yrp_nas_ind_cb(nullptr, YRP_NAS_PPS_IND, &nothing, 0, nullptr);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_TRUE(nas_events().empty());
  EXPECT_EQ(diag_log_lines().back(), "ERROR Memory allocation failure");
}
