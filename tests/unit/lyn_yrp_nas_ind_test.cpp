/* SPDX-License-Identifier: Apache-2.0 */
/* The NAS client's indications: decoding, what is logged, what goes up. */
#include "lyn_yrp_nas_board.h"

using testing::ElementsAre;

namespace {

yrp_nas_sys_info_ind_t lte_service(uint32_t srv_status, uint8_t nr5g_pci_valid = 0) {
  yrp_nas_sys_info_ind_t info = {};
  info.lte_srv_status_info_valid = 1;
  info.lte_srv_status_info.srv_status = srv_status;
  info.nr5g_pci_valid = nr5g_pci_valid;
  info.nr5g_pci = 500;
  return info;
}

yrp_nas_sys_info_ind_t both_services(uint32_t nr5g, uint32_t lte) {
  yrp_nas_sys_info_ind_t info = lte_service(lte, 1);
  info.nr5g_srv_status_info_valid = 1;
  info.nr5g_srv_status_info.srv_status = nr5g;
  return info;
}

}  // namespace

TEST_F(lyn_yrp_nas, when_system_information_changes_then_the_status_follows_nr5g_service_then_lte) {
  const struct {
    yrp_nas_sys_info_ind_t info;
    uint32_t status;
  } rows[] = {
      {lte_service(YRP_NAS_SRV_NO_SERVICE), OX_LYN_REG_NO_SERVICE_E},
      {lte_service(YRP_NAS_SRV_LIMITED), OX_LYN_REG_LIMITED_E},
      {lte_service(YRP_NAS_SRV_SERVICE), OX_LYN_REG_LTE_E},
      {lte_service(YRP_NAS_SRV_SERVICE, 1), OX_LYN_REG_LTE_NR5G_E},
      {lte_service(YRP_NAS_SRV_LIMITED_REGIONAL), OX_LYN_REG_LIMITED_REGIONAL_E},
      {lte_service(YRP_NAS_SRV_POWER_SAVE), OX_LYN_REG_POWER_SAVE_E},
      {lte_service(5), OX_LYN_REG_NO_SERVICE_E},
      {both_services(YRP_NAS_SRV_SERVICE, YRP_NAS_SRV_SERVICE), OX_LYN_REG_NR5G_E},
      {both_services(YRP_NAS_SRV_LIMITED, YRP_NAS_SRV_NO_SERVICE), OX_LYN_REG_LIMITED_E},
      {both_services(YRP_NAS_SRV_LIMITED_REGIONAL, 5), OX_LYN_REG_LIMITED_REGIONAL_E},
      {both_services(YRP_NAS_SRV_POWER_SAVE, YRP_NAS_SRV_NO_SERVICE), OX_LYN_REG_POWER_SAVE_E},
      {both_services(5, YRP_NAS_SRV_NO_SERVICE), OX_LYN_REG_NO_SERVICE_E},
      {both_services(YRP_NAS_SRV_LIMITED, YRP_NAS_SRV_SERVICE), OX_LYN_REG_LTE_NR5G_E},
      {both_services(YRP_NAS_SRV_POWER_SAVE, YRP_NAS_SRV_LIMITED), OX_LYN_REG_LIMITED_E},
      {{}, OX_LYN_REG_NO_SERVICE_E},
  };
  for (const auto &row : rows) {
    /* from another status, so that each is a change */
    nas_connect(row.status == OX_LYN_REG_LTE_E ? OX_LYN_REG_NR5G_E : OX_LYN_REG_LTE_E);
    nas_indicate(YRP_NAS_SYS_INFO_IND, row.info);
    const auto events = nas_events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].id, LYN_EVENT_SYS_INFO);
    EXPECT_EQ(events[0].as<uint32_t>(), row.status);
  }
}

TEST_F(lyn_yrp_nas, when_two_indications_mean_the_same_status_then_only_the_first_is_posted) {
  nas_connect(OX_LYN_REG_NO_SERVICE_E);
  nas_indicate(YRP_NAS_SYS_INFO_IND, lte_service(YRP_NAS_SRV_SERVICE, 1));
  nas_indicate(YRP_NAS_SYS_INFO_IND, both_services(YRP_NAS_SRV_LIMITED, YRP_NAS_SRV_SERVICE));
  EXPECT_EQ(nas_events().size(), 1U);
  EXPECT_EQ(diag_log_lines().back(), "HIGH System info indication - curr_network_status[6], prev_network_status[6]");
}

TEST_F(lyn_yrp_nas, when_system_information_arrives_then_it_is_logged_as_of_the_indication) {
  nas_connect(OX_LYN_REG_LTE_E);
  nas_indicate(YRP_NAS_SYS_INFO_IND, both_services(YRP_NAS_SRV_LIMITED, YRP_NAS_SRV_SERVICE));
  EXPECT_THAT(diag_log_placed(), testing::Each(testing::StartsWith("HIGH lyn_yrp_nas_ind.cpp ")));
}

TEST_F(lyn_yrp_nas, when_a_query_saw_the_change_first_then_it_is_not_posted) {
  nas_connect(OX_LYN_REG_LTE_E);
  nas_indicate(YRP_NAS_SYS_INFO_IND, lte_service(YRP_NAS_SRV_SERVICE));
  EXPECT_TRUE(nas_events().empty());
}

TEST_F(lyn_yrp_nas, when_system_information_arrives_then_each_valid_part_is_logged) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  nas_indicate(YRP_NAS_SYS_INFO_IND, both_services(YRP_NAS_SRV_LIMITED, YRP_NAS_SRV_SERVICE));
  EXPECT_THAT(
      diag_log_lines(),
      ElementsAre(
          "HIGH Indication received from NAS service with msg_id[78]",
          "HIGH NR 5G system info indication - srv_status[1]", "HIGH NR 5G system info indication - srv_domain[0]",
          "HIGH NR 5G system info indication - srv_capability[0]", "HIGH LTE system info indication - srv_status[2]",
          "HIGH LTE system info indication - srv_domain[0]", "HIGH LTE system info indication - srv_capability[0]",
          "HIGH LTE system info indication - nr5g_pci_valid[1], nr5g_pci[500]",
          "HIGH System info indication - curr_network_status[6], prev_network_status[6]"));
}

TEST_F(lyn_yrp_nas, when_signals_are_reported_then_the_whole_record_goes_up) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  const yrp_nas_sig_info_ind_t info = {.lte_sig_info_valid = 1,
                                       .lte_sig_info = {.rsrp = -95, .snr = 130, .rsrq = -11},
                                       .nr5g_sig_info_valid = 1,
                                       .nr5g_sig_info = {.rsrp = -100, .snr = -5},
                                       .nr5g_rsrq_valid = 1,
                                       .nr5g_rsrq = -12};
  nas_indicate(YRP_NAS_SIG_INFO_IND, info);
  const auto events = nas_events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].id, LYN_EVENT_SIG_INFO);
  const auto &posted = events[0].as<yrp_nas_sig_info_ind_t>();
  EXPECT_EQ(posted.lte_sig_info.rsrp, -95);
  EXPECT_EQ(posted.nr5g_rsrq, -12);
  EXPECT_THAT(
      diag_log_lines(),
      ElementsAre("HIGH Indication received from NAS service with msg_id[81]",
                  "HIGH NR 5G signal info indication - rsrp[-100]", "HIGH NR 5G signal info indication - snr[-5]",
                  "HIGH NR 5G signal info indication - nr5g_rsrq_valid[1], nr5g_rsrq[-12]",
                  "HIGH LTE signal info indication - rsrp[-95]", "HIGH LTE signal info indication - snr[130]",
                  "HIGH LTE signal info indication - rsrq[-11]"));
}

TEST_F(lyn_yrp_nas, when_the_panel_moves_then_index_and_mode_are_logged_and_posted) {
  nas_connect(OX_LYN_REG_NR5G_E);
  nas_indicate(YRP_NAS_PPS_IND, yrp_nas_pps_ind_t{.position_index = 3, .position_changed = 1, .mode_index = 2});
  const auto events = nas_events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].as<yrp_nas_pps_ind_t>().position_changed, 1);
  EXPECT_THAT(diag_log_lines(),
              ElementsAre("HIGH Indication received from NAS service with msg_id[278]",
                          "HIGH NR 5g panel pos index indication - [3]", "HIGH NR 5g panel pos mode indication - [2]"));
}

TEST_F(lyn_yrp_nas, when_an_install_status_is_not_valid_then_only_its_log_is_missing) {
  nas_connect(OX_LYN_REG_NR5G_E);
  nas_indicate(YRP_NAS_INSTALL_STATUS_IND, yrp_nas_install_status_ind_t{.valid = 1, .status = 7});
  nas_indicate(YRP_NAS_INSTALL_STATUS_IND, yrp_nas_install_status_ind_t{});
  EXPECT_EQ(nas_events().size(), 2U);
  EXPECT_THAT(diag_log_lines(),
              ElementsAre("HIGH Indication received from NAS service with msg_id[335]", "HIGH  install mode status[7]",
                          "HIGH Indication received from NAS service with msg_id[335]"));
}

TEST_F(lyn_yrp_nas, when_an_install_measurement_is_valid_then_flag_length_and_entries_are_logged) {
  nas_connect(OX_LYN_REG_NR5G_E);
  yrp_nas_install_freq_ind_t measured = {.freq_valid = 1, .freq_len = 1, .freqs = {}};
  measured.freqs[0] = {.arfcn = 2079167, .band = 261, .scs = 3, .rsrp = -88, .snr = 12};
  nas_indicate(YRP_NAS_INSTALL_FREQ_IND, measured);
  const auto events = nas_events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].as<yrp_nas_install_freq_ind_t>().freqs[0].band, 261U);
  EXPECT_THAT(
      diag_log_lines(),
      ElementsAre("HIGH Indication received from NAS service with msg_id[334]",
                  "HIGH NR 5g frequency is valid for install mode [1]", "HIGH NR 5g frequency length - [1]",
                  "HIGH Install mode frequency of arfcn  - [2079167]",
                  "HIGH Install mode frequency of nr5g band - [261]", "HIGH Install mode frequency of scs  - [3]",
                  "HIGH Install mode value of RSRP  - [-88]", "HIGH Install mode Value of SNR  - [12]"));
}

TEST_F(lyn_yrp_nas, when_a_scan_has_both_radios_then_only_lte_is_logged_and_both_are_posted) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  auto scan = std::make_unique<yrp_nas_incremental_scan_ind_t>();
  scan->lte_nbr_info_valid = 1;
  scan->lte_nbr_count = 1;
  scan->lte_nbr[0] = {.earfcn = 1300, .pci = 301, .cgi = 10607299, .plmn_count = 1, .plmn = {{272, 1, 0}}};
  scan->lte_highest_signal_nbr = {.earfcn = 1300, .pci = 301, .rsrp = -101, .rsrq = -14};
  scan->nr5g_nbr_info_valid = 1;
  scan->nr5g_nbr_count = 1;
  scan->nr5g_nbr[0].pci = 501;
  nas_indicate(YRP_NAS_INCREMENTAL_NETWORK_SCAN, *scan);
  const auto events = nas_events();
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].as<yrp_nas_incremental_scan_ind_t>().nr5g_nbr[0].pci, 501);
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH Indication received from NAS service with msg_id[133]",
                                            "HIGH Network incremental PCI extension scan status [0]",
                                            "HIGH LTE network scan indication - highest signal neighbor rsrp[-101]",
                                            "HIGH LTE network scan indication - highest signal neighbor rsrq[-14]",
                                            "HIGH LTE network scan indication - neighbor #0 earfcn[1300]",
                                            "HIGH LTE network scan indication - neighbor #0 pci[301]",
                                            "HIGH LTE network scan indication - neighbor #0 cgi[10607299]",
                                            "HIGH LTE network scan indication - neighbor #0 plmn_mcc[272] plmn_mnc[1], "
                                            "plmn_mnc_includes_pcs_digit[0]"));
}

TEST_F(lyn_yrp_nas, when_a_scan_has_nr5g_only_then_its_neighbours_are_logged) {
  nas_connect(OX_LYN_REG_NR5G_E);
  auto scan = std::make_unique<yrp_nas_incremental_scan_ind_t>();
  scan->scan_status = 1;
  scan->nr5g_nbr_info_valid = 1;
  scan->nr5g_nbr_count = 1;
  scan->nr5g_nbr[0] = {.rsrp = -104,
                       .earfcn = 636000,
                       .pci = 501,
                       .cgi_count = 1,
                       .cgi = {68719476737U},
                       .plmn_count = 1,
                       .plmn = {{272, 1, 1}}};
  nas_indicate(YRP_NAS_INCREMENTAL_NETWORK_SCAN, *scan);
  EXPECT_THAT(diag_log_lines(),
              ElementsAre("HIGH Indication received from NAS service with msg_id[133]",
                          "HIGH Network incremental PCI extension scan status [1]",
                          "HIGH NR 5G network scan indication - neighbor #0 rsrp[-104]",
                          "HIGH NR 5G network scan indication - neighbor #0 earfcn[636000]",
                          "HIGH NR 5G network scan indication - neighbor #0 pci[501]",
                          "HIGH NR 5G network scan indication - neighbor #0 cgi[68719476737]",
                          "HIGH NR 5G network scan indication - neighbor #0 plmn_mcc[272] plmn_mnc[1], "
                          "plmn_mnc_includes_pcs_digit[1]"));
}

TEST_F(lyn_yrp_nas, deliberately_some_indications_share_the_text_of_a_failed_decoding) {
  const struct {
    uint32_t id;
    std::string text;
  } rows[] = {{78, "System information change indication decoding failed with status[-7]"},
              {81, "Signal strength change indication decoding failed with status[-7]"},
              {133, "System information change indication decoding failed with status[-7]"},
              {278, "Panel position change indication failed with status[-7]"},
              {334, "Panel position change indication failed with status[-7]"},
              {335, "Panel position change indication failed with status[-7]"}};
  for (const auto &row : rows) {
    nas_connect(OX_LYN_REG_LTE_E, "[[fault]]\non = \"yrp.message_decode\"\ntransport = -7\ntimes = 2\n");
    sim_board_post("nas", row.id, sim_board_sample("nas", row.id, 1));
    sim_board_post("nas", row.id, sim_board_sample("nas", row.id, 1));
    EXPECT_TRUE(nas_events().empty());
    EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(row.text, row.text));
  }
}

TEST_F(lyn_yrp_nas, when_bytes_are_malformed_then_the_next_indication_still_goes_up) {
  nas_connect(OX_LYN_REG_LTE_E);
  sim_board_post("nas", YRP_NAS_SIG_INFO_IND, {0x10, 0xff, 0xff});
  sim_board_post("nas", YRP_NAS_SIG_INFO_IND, sim_board_sample("nas", YRP_NAS_SIG_INFO_IND, 1));
  EXPECT_EQ(nas_events().size(), 1U);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Signal strength change indication decoding failed with status[-4]"));
}

TEST_F(lyn_yrp_nas, when_an_indication_is_not_handled_then_only_its_arrival_is_logged) {
  nas_connect(OX_LYN_REG_LTE_E);
  sim_board_post("nas", 79, {});
  EXPECT_TRUE(nas_events().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH Indication received from NAS service with msg_id[79]"));
}

TEST_F(lyn_yrp_nas, when_posting_fails_then_the_record_is_not_touched_again) {
  nas_connect(OX_LYN_REG_LTE_E);
  post_fail(-1);
  nas_indicate(YRP_NAS_PPS_IND, yrp_nas_pps_ind_t{.position_index = 1, .position_changed = 1, .mode_index = 1});
  EXPECT_EQ(nas_events().size(), 1U); /* a second release of the record would be reported here */
  EXPECT_TRUE(diag_log_texts("ERROR").empty());
}
