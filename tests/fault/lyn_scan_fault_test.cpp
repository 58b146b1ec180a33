/* SPDX-License-Identifier: Apache-2.0 */
/* Controls and neighbour scans without memory: what is refused, what is dropped, and that no scan stays pending. */
#include <cstring>

#include "alloc_fault.h"
#include "board.h"

using testing::ElementsAre;

namespace {

using lyn_scan_fault = board_test;

bool nothing_pending() {
  const lyn_module_guard_t held;
  const lyn_scan_group_t none = {};
  return memcmp(&lyn_state.lte_scan, &none, sizeof none) == 0 && memcmp(&lyn_state.nr5g_scan, &none, sizeof none) == 0;
}

/** One control with a block of zeroes, and what set info logs behind the failed allocation. */
struct control_row {
  uint32_t control;
  std::vector<std::string> logged;
};

const control_row controls[] = {
    {OX_LYN_SET_LTE_CELL_LOCK_LIST_E, {"ERROR LTE/NR5G Set NAS Cell lock list failed\\n"}},
    {OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, {"ERROR LTE/NR5G Set NAS Cell lock list failed\\n"}},
    {OX_LYN_SET_NR5G_DEPRIORITIZE_E, {}},
    {OX_LYN_SET_MMW_PPS_CONFIG_E, {"ERROR mmW pps config request is failed\\n"}},
    {OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E, {"ERROR mmW pps change status is failed\\n"}},
    {OX_LYN_SET_INSTALL_MODE_E,
     {"HIGH  Install request return success\\n", "ERROR Safe install mode config request is failed\\n"}},
};

}  // namespace

TEST_F(lyn_scan_fault, a_control_without_memory_for_its_request_or_response_is_refused_and_logged) {
  alignas(16) static char zeroes[512];
  board.start(OX_LYN_REG_LTE_NR5G_E);
  for (const control_row &row : controls) {
    for (uint32_t pass = 0; pass < 2; pass++) {
      board.forget();
      alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
      EXPECT_EQ(board.set(row.control, zeroes), OX_LYN_ERR_NO_MEMORY) << row.control;
      EXPECT_TRUE(alloc_fault_disarm());
      std::vector<std::string> expected = {"ERROR Memory allocation failure"};
      expected.insert(expected.end(), row.logged.begin(), row.logged.end());
      EXPECT_EQ(diag_log_lines({"lyn_interface_set.cpp", "lyn_yrp_nas_config.cpp"}), expected);
      EXPECT_TRUE(board.asked().empty());
    }
  }
}

TEST_F(lyn_scan_fault, a_scan_without_memory_for_its_request_leaves_nothing_pending) {
  board.start(OX_LYN_REG_LTE_NR5G_E, "[scan]\nanswer_ms = 0\n");
  for (uint32_t pass = 0; pass < 2; pass++) {
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, pass);
    EXPECT_EQ(board.get_list({22, 23}), OX_LYN_ERR_NO_MEMORY); /* a list asks for nothing before its scan */
    EXPECT_TRUE(alloc_fault_disarm());
    EXPECT_TRUE(nothing_pending());
  }
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  EXPECT_EQ(board.take(1).at(0).id, 1U);
}

/**
 * Every allocation between the modem's answer and the user, one after the other. An answer that is lost before it is
 * queued leaves its scan pending, as one that never came; one that is lost in delivery ends it.
 */
TEST_F(lyn_scan_fault, an_answer_without_memory_is_dropped_and_ends_its_scan_once_it_was_queued) {
  for (const uint32_t metric : {OX_LYN_GET_LTE_NBR_PCI_E, OX_LYN_GET_NR5G_NBR_PCI_E}) {
    uint32_t unqueued = 0, undelivered = 0;
    for (uint32_t pass = 0; pass < 20; pass++) {
      board.start(OX_LYN_REG_LTE_NR5G_E, "[scan]\nanswer_ms = -1\n");
      EXPECT_EQ(board.get(metric), OX_LYN_SUCCESS);
      alloc_fault_arm(ALLOC_FAULT_OTHER_THREADS, pass);
      sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
      board.settle();
      const bool met = alloc_fault_disarm(), clear = nothing_pending();
      const size_t delivered = board.take(0).size();
      board.stop();
      if (!met) {
        EXPECT_EQ(delivered, 1U);
        break;
      }
      EXPECT_EQ(delivered, 0U) << pass;
      unqueued += !clear;
      undelivered += clear;
    }
    EXPECT_EQ(unqueued, 4U);    /* the decoded record, the command, its data, its place in the queue */
    EXPECT_EQ(undelivered, 2U); /* the record and the block of the callback */
  }
}

TEST_F(lyn_scan_fault, a_second_radio_without_memory_for_its_request_is_dropped_and_the_first_is_delivered) {
  for (uint32_t pass = 4; pass < 6; pass++) { /* behind the four that bring the first answer into the queue */
    board.start(OX_LYN_REG_LTE_NR5G_E, "[scan]\nanswer_ms = -1\n");
    EXPECT_EQ(board.get_list({22, 23}), OX_LYN_SUCCESS);
    alloc_fault_arm(ALLOC_FAULT_OTHER_THREADS, pass);
    sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
    board.settle();
    EXPECT_TRUE(alloc_fault_disarm());
    EXPECT_EQ(board.take(1).at(0).id, 1U);
    EXPECT_TRUE(nothing_pending());
    board.stop();
  }
}
