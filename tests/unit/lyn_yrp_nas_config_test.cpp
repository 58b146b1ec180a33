/* SPDX-License-Identifier: Apache-2.0 */
/* The NAS client's configuration requests: what is refused, what is sent, translated. */
#include "lyn_yrp_nas_board.h"

using testing::ElementsAre;

namespace {

std::string fails(int id) {
  return "[[fault]]\non = \"nas." + std::to_string(id) + "\"\nresult = 1\nerror = 46\n";
}

lyn_nas_cell_lock_req_t both_locks() {
  lyn_nas_cell_lock_req_t lock = {};
  lock.lte_list_valid = 1;
  lock.lte_count = 1;
  lock.lte_cells[0] = {.pci = 214, .freq = 1300};
  lock.nr5g_type = 1;
  lock.cell_identity_valid = 1;
  lock.pci = 9;
  lock.scs = OX_LYN_SCS_30_KHZ_E;
  lock.arfcn = 636000;
  return lock;
}

ox_lyn_pps_change_status_t pps_change(uint32_t mode) {
  return {.position_changed = 1, .position_index = 7, .reserved = 0, .pps_mode = mode};
}

}  // namespace

TEST_F(lyn_yrp_nas, when_cells_are_locked_then_the_status_decides_which_radio_is_told) {
  const std::vector<std::vector<int>> sent = {{}, {}, {}, {}, {}, {216}, {216, 270}, {270}};
  const auto lock = both_locks();
  for (uint32_t status = 1; status <= 7; status++) {
    nas_connect(status);
    EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), sent[status].empty() ? -1 : 0);
    EXPECT_EQ(nas_requests(), sent[status]);
    EXPECT_TRUE(diag_log_texts("ERROR").empty());
  }
}

TEST_F(lyn_yrp_nas, when_the_lte_list_is_too_long_then_the_first_sixty_are_sent) {
  nas_connect(OX_LYN_REG_LTE_E);
  auto lock = both_locks();
  for (const int count : {0, 1, 60, 61, 255}) {
    lock.lte_count = static_cast<uint8_t>(count);
    nas_forget();
    EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), 0);
    EXPECT_EQ(nas_request_fields(0)["lte_cell_list_len"], std::min(count, 60));
  }
}

TEST_F(lyn_yrp_nas, when_the_lte_list_is_not_valid_then_nr5g_is_not_told_either) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  auto lock = both_locks();
  lock.lte_list_valid = 0;
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), -1);
  EXPECT_TRUE(nas_requests().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH LTE multi-lock cell list - lte_cell_list_valid[0]",
                                            "ERROR Invalid LTE configuration\\n"));
}

TEST_F(lyn_yrp_nas, when_a_lock_type_is_given_then_the_modem_gets_its_own_number) {
  nas_connect(OX_LYN_REG_NR5G_E);
  auto lock = both_locks();
  for (const uint32_t type : {0U, 1U, 2U, 3U, 4U, 0xffffffffU}) {
    lock.nr5g_type = type;
    lock.cell_identity_valid = type == 2 ? 0 : 1;
    lock.arfcn_list_valid = 1;
    lock.arfcn_list_len = 1;
    nas_forget();
    const bool known = type >= 1 && type <= 3;
    EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), known ? 0 : -1);
    EXPECT_EQ(nas_requests().size(), known ? 1U : 0U);
    if (known) {
      EXPECT_EQ(nas_request_fields(0)["type"], type - 1);
    } else {
      EXPECT_EQ(diag_log_lines().back(), "ERROR Invalid NR5g configuration\\n");
    }
  }
}

TEST_F(lyn_yrp_nas, when_neither_cell_nor_frequencies_are_named_then_only_an_unlock_is_sent) {
  nas_connect(OX_LYN_REG_NR5G_E);
  auto lock = both_locks();
  lock.cell_identity_valid = 0;
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), -1);
  lock.nr5g_type = 3;
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), 0);
  EXPECT_EQ(nas_requests(), std::vector<int>{270});
  EXPECT_EQ(diag_log_lines().back(), "HIGH NR 5G cell lock list unlocked , All parames are cleared\\n");
}

TEST_F(lyn_yrp_nas, when_a_spacing_is_given_then_the_modem_gets_its_own_number_or_nothing) {
  nas_connect(OX_LYN_REG_NR5G_E);
  const std::vector<int> codes = {0, 0, 1, 2, 3, 4};
  for (uint32_t scs = 0; scs <= 6; scs++) {
    auto lock = both_locks();
    lock.scs = scs;
    ox_lyn_pps_config_t pps = {};
    pps.freq_count = 1;
    pps.freqs[0] = {.arfcn = 2079167, .band = 261, .scs = scs};
    ox_lyn_install_mode_t install = {};
    install.mode = 1;
    install.freq_count = 1;
    install.freqs[0] = pps.freqs[0];
    nas_forget();
    const int32_t expected = scs <= 5 ? 0 : -2;
    EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), expected);
    EXPECT_EQ(lyn_yrp_nas_set_pps_config(&pps), expected);
    EXPECT_EQ(lyn_yrp_nas_set_install_mode(&install), expected);
    EXPECT_EQ(nas_requests().size(), scs <= 5 ? 3U : 0U);
    if (scs <= 5) {
      EXPECT_EQ(nas_request_fields(0)["cell_identity"]["scs"], codes[scs]);
      EXPECT_EQ(nas_request_fields(1)["freq_list"][0]["scs"], codes[scs]);
      EXPECT_EQ(nas_request_fields(2)["freq_list"][0]["scs"], codes[scs]);
    }
  }
}

TEST_F(lyn_yrp_nas, when_a_lock_does_not_use_a_spacing_then_it_may_be_anything) {
  nas_connect(OX_LYN_REG_NR5G_E);
  auto cell = both_locks(); /* the list is left out beside a cell */
  cell.arfcn_list_valid = 1;
  cell.arfcn_list_len = 2;
  cell.arfcn_list[1].scs = 6;
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&cell), 0);
  EXPECT_FALSE(nas_request_fields(0).contains("arfcn_list"));

  auto list = both_locks();
  list.nr5g_type = 2;
  list.cell_identity_valid = 0;
  list.scs = 6;
  list.arfcn_list_valid = 1;
  list.arfcn_list_len = 1;
  list.arfcn_list[0] = {.arfcn = 636000, .scs = OX_LYN_SCS_60_KHZ_E};
  list.arfcn_list[1].scs = 6; /* behind the last entry */
  nas_forget();
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&list), 0);
  EXPECT_EQ(nas_request_fields(0)["arfcn_list"], nlohmann::json::parse(R"([{"arfcn": 636000, "scs": 2}])"));

  list.nr5g_type = 3; /* an unlock */
  list.arfcn_list_valid = 0;
  nas_forget();
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&list), 0);
  EXPECT_EQ(nas_request_fields(0), nlohmann::json::parse(R"({"type": 2})"));
}

TEST_F(lyn_yrp_nas, when_more_than_sixteen_frequencies_are_given_then_nothing_is_sent) {
  nas_connect(OX_LYN_REG_NR5G_E);
  ox_lyn_pps_config_t pps = {};
  ox_lyn_install_mode_t install = {};
  for (const uint32_t count : {0U, 1U, 16U, 17U, 255U, 65535U, 65537U}) {
    nas_forget();
    pps.freq_count = count;
    EXPECT_EQ(lyn_yrp_nas_set_pps_config(&pps), count <= 16 ? 0 : -2);
    install.freq_count = static_cast<uint16_t>(count);
    EXPECT_EQ(lyn_yrp_nas_set_install_mode(&install), install.freq_count <= 16 ? 0 : -2);
    EXPECT_EQ(nas_requests().size(), (count <= 16 ? 1U : 0U) + (install.freq_count <= 16 ? 1U : 0U));
  }
}

TEST_F(lyn_yrp_nas, deliberately_an_unknown_install_mode_is_sent_as_a_start) {
  nas_connect(OX_LYN_REG_NR5G_E);
  const std::vector<int> codes = {0, 0, 1, 0};
  for (uint32_t mode = 0; mode <= 3; mode++) {
    nas_forget();
    ox_lyn_install_mode_t install = {};
    install.mode = mode;
    EXPECT_EQ(lyn_yrp_nas_set_install_mode(&install), 0);
    EXPECT_EQ(nas_request_fields(0)["mode"], codes[mode]);
  }
}

TEST_F(lyn_yrp_nas, deliberately_the_octets_of_a_panel_change_are_swapped) {
  nas_connect(OX_LYN_REG_NR5G_E);
  for (const uint32_t mode : {1U, 2U, 3U}) {
    nas_forget();
    const auto change = pps_change(mode);
    EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(&change), 0);
    EXPECT_EQ(nas_request_fields(0),
              nlohmann::json({{"position_index", 7}, {"position_changed", 1}, {"pps_mode", mode - 1}}));
  }
}

TEST_F(lyn_yrp_nas, deliberately_the_text_of_an_unknown_pps_mode_has_its_full_stop_behind_the_line_break) {
  nas_connect(OX_LYN_REG_NR5G_E);
  for (const uint32_t mode : {0U, 4U}) {
    const auto change = pps_change(mode);
    EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(&change), -1);
    EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR PPS mode is " + std::to_string(mode) + " is invalid\\n."));
  }
  EXPECT_TRUE(nas_requests().empty());
}

TEST_F(lyn_yrp_nas, when_there_is_no_nr5g_then_it_cannot_be_deprioritised) {
  nas_connect(OX_LYN_REG_LTE_E);
  EXPECT_EQ(lyn_yrp_nas_set_nr5g_deprioritize(1), -1);
  EXPECT_TRUE(nas_requests().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR NR5G Service is not available \\n"));
  nas_connect(OX_LYN_REG_NR5G_E);
  EXPECT_EQ(lyn_yrp_nas_set_nr5g_deprioritize(1), 0);
  EXPECT_EQ(nas_requests(), std::vector<int>{295});
}

TEST_F(lyn_yrp_nas, deliberately_a_refused_request_says_that_retrieving_failed_a_lock_as_its_query_does) {
  const auto lock = both_locks();
  const ox_lyn_pps_config_t pps = {};
  const ox_lyn_pps_change_status_t change = {.position_changed = 0, .position_index = 0, .reserved = 0, .pps_mode = 1};
  const ox_lyn_install_mode_t install = {};
  nas_connect(OX_LYN_REG_LTE_E, fails(216));
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), -1);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Retrieving LTE cell lock list failed - error[0], response[1/46]"));
  nas_connect(OX_LYN_REG_NR5G_E, fails(270) + fails(295) + fails(277) + fails(279) + fails(333));
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), -1);
  EXPECT_EQ(lyn_yrp_nas_set_nr5g_deprioritize(1), -1);
  EXPECT_EQ(lyn_yrp_nas_set_pps_config(&pps), -1);
  EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(&change), -1);
  EXPECT_EQ(lyn_yrp_nas_set_install_mode(&install), -1);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Retrieving NR 5G cell lock list failed - error[0], response[1/46]",
                          "Retrieving NR 5G de_prioritization is failed - error[0], response[1/46]",
                          "Retrieving pps config request  failed - error[0], response[1/46]",
                          "Retrieving pps change status request  failed - error[0], response[1/46]",
                          "Retrieving set install mode request - error[0], response[1/46]"));
}

TEST_F(lyn_yrp_nas, when_a_record_is_null_then_the_request_is_refused_with_its_text) {
  nas_connect(OX_LYN_REG_NR5G_E);
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_pps_config(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_install_mode(nullptr), -2);
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Invalid params - cell_lock_list[(nil)]",
                                            "ERROR Invalid params - pps config request [(nil)]",
                                            "ERROR Invalid params - pps change status request [(nil)]",
                                            "ERROR Invalid params - install mode config request [(nil)]"));
}

TEST_F(lyn_yrp_nas, when_both_radios_shall_be_scanned_then_only_lte_is) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E, "[scan]\nanswer_ms = -1\n");
  uint8_t lte = 9;
  uint8_t nr5g = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(1, &lte, 1, &nr5g), 0);
  EXPECT_EQ(lte, 1);
  EXPECT_EQ(nr5g, 0);
  EXPECT_EQ(nas_request_fields(0)["network_type"], 4);
  EXPECT_EQ(nas_request_fields(0)["scan_type"], 5);
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH Performing incremental network scan request - network_type [4]"));
}

TEST_F(lyn_yrp_nas, when_a_scan_fails_to_start_then_neither_radio_is_scanned) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E, fails(133));
  uint8_t lte = 9;
  uint8_t nr5g = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(0, &lte, 1, &nr5g), -1);
  EXPECT_EQ(lte, 0);
  EXPECT_EQ(nr5g, 0);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Performing incremental network scan failed - error[0], response[1/46]"));
}

TEST_F(lyn_yrp_nas, when_no_radio_or_no_flag_is_given_then_a_scan_is_refused) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  uint8_t lte = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(0, &lte, 0, nullptr), -2);
  EXPECT_EQ(lte, 9);
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(3, nullptr, 0, nullptr), -2);
  EXPECT_TRUE(nas_requests().empty());
  EXPECT_EQ(diag_log_lines().back(),
            "ERROR Invalid params - lte_scan_request[3], nr5g_scan_request[0], "
            "lte_scan_ongoing[(nil)], nr5g_scan_ongoing[(nil)]");
}

TEST_F(lyn_yrp_nas, one_flag_is_enough_for_a_scan_of_either_radio) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  uint8_t flag = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(1, nullptr, 0, &flag), 0);
  EXPECT_EQ(flag, 0);
  flag = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(0, nullptr, 1, &flag), 0);
  EXPECT_EQ(flag, 1);
}

TEST_F(lyn_yrp_nas, deliberately_a_scan_does_not_check_the_connection) {
  nas_board("");
  uint8_t lte = 9;
  EXPECT_EQ(lyn_yrp_nas_incremental_scan(1, &lte, 0, nullptr), -1);
  EXPECT_EQ(lte, 0);
  EXPECT_EQ(lyn_yrp_nas_set_nr5g_deprioritize(1), -12);
}

TEST_F(lyn_yrp_nas, when_not_connected_then_every_request_but_the_scan_is_refused_and_a_null_record_before_that) {
  nas_board("");
  const auto lock = both_locks();
  const ox_lyn_pps_config_t pps = {};
  const ox_lyn_pps_change_status_t change = {}; /* its mode of 0 is looked at only later */
  const ox_lyn_install_mode_t install = {};
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(&lock), -12);
  EXPECT_EQ(lyn_yrp_nas_set_nr5g_deprioritize(1), -12);
  EXPECT_EQ(lyn_yrp_nas_set_pps_config(&pps), -12);
  EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(&change), -12);
  EXPECT_EQ(lyn_yrp_nas_set_install_mode(&install), -12);
  EXPECT_EQ(diag_log_texts("ERROR"),
            std::vector<std::string>(5, "YRP NAS module not initialized - yrp_nas_clnt_handle[(nil)]"));
  EXPECT_EQ(lyn_yrp_nas_set_cell_lock_list(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_pps_config(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_pps_change_status(nullptr), -2);
  EXPECT_EQ(lyn_yrp_nas_set_install_mode(nullptr), -2);
}
