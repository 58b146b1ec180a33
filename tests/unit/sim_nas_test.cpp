/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The NAS service of the simulated board: what it answers, what its settings change, what it refuses.
 */
#include "sim_client.h"

namespace {

constexpr char quiet[] = "[board]\nnoise_db = 0\n";
constexpr char lte_only[] = "[board]\nnoise_db = 0\n[sys_info]\nnr5g_pci = -1\n";
constexpr char nr5g_only[] = "[board]\nnoise_db = 0\n[sys_info]\nlte = \"absent\"\nnr5g = \"service\"\nnr5g_pci = -1\n";
constexpr char no_service[] = "[board]\nnoise_db = 0\n[sys_info]\nlte = \"no_service\"\nnr5g_pci = -1\n";

struct sim_nas : sim_board_test {
  void expect_radios(bool lte, bool nr5g) {
    const auto bands = client.query<yrp_nas_rf_band_info_resp_t>(YRP_NAS_GET_RF_BAND_INFO);
    EXPECT_EQ(bands.lte_rf_bandwidth_valid, lte);
    EXPECT_EQ(bands.nr5g_rf_bandwidth_valid, nr5g);
    const auto cells = client.query<yrp_nas_cell_location_info_resp_t>(YRP_NAS_GET_CELL_LOCATION_INFO);
    EXPECT_EQ(cells.lte_intra_valid, lte);
    EXPECT_EQ(cells.nr5g_arfcn_valid, nr5g);
    EXPECT_EQ(cells.nr5g_serving_cell_info_valid, nr5g);
    const auto signal = client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
    EXPECT_EQ(signal.lte_sig_info_valid, lte);
    EXPECT_EQ(signal.nr5g_sig_info_valid, nr5g);
    EXPECT_EQ(signal.nr5g_rsrq_valid, nr5g);
    const auto rrc = client.query<yrp_nas_rrc_state_resp_t>(YRP_NAS_GET_RRC_STATE);
    EXPECT_EQ(rrc.lte_rrc_state_valid, lte);
    EXPECT_EQ(rrc.nr5g_rrc_state_valid, nr5g);
    EXPECT_EQ(client.query<yrp_nas_cphy_ca_info_resp_t>(YRP_NAS_GET_CPHY_CA_INFO).dl_bandwidth_valid, lte);
    const auto system = client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
    EXPECT_EQ(system.endc_available_valid, lte);
    EXPECT_EQ(system.restrict_dcnr_valid, lte);
    EXPECT_EQ(system.nr5g_scs_valid, nr5g);
    expect_radio_of_asked(YRP_NAS_RADIO_IF_LTE, lte);
    expect_radio_of_asked(YRP_NAS_RADIO_IF_NR5G, nr5g);
    EXPECT_EQ(cqi(YRP_NAS_CQI_RADIO_LTE).lte_cc_cqi_valid, lte);
    EXPECT_EQ(cqi(YRP_NAS_CQI_RADIO_NR5G).nr5g_cc_cqi_valid, nr5g);
  }

  void expect_radio_of_asked(uint32_t radio, bool measured) {
    yrp_nas_tx_rx_info_resp_t resp = {};
    ASSERT_EQ(client.send(YRP_NAS_GET_TX_RX_INFO, yrp_nas_tx_rx_info_req_t{radio}, resp), 0);
    EXPECT_EQ(resp.tx_valid, measured);
    EXPECT_EQ(resp.downlink_mod_valid, measured);
    EXPECT_EQ(resp.uplink_mod_valid, measured);
  }

  yrp_nas_cqi_info_resp_t cqi(uint32_t radio) {
    yrp_nas_cqi_info_resp_t resp = {};
    EXPECT_EQ(client.send(YRP_NAS_GET_CQI_INFO, yrp_nas_cqi_info_req_t{1, radio}, resp), 0);
    return resp;
  }

  yrp_nas_sys_info_resp_t system() { return client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO); }

  yrp_nas_resp_t scan(uint8_t network_type) {
    const yrp_nas_incremental_scan_req_t req = {1, network_type, 1, YRP_NAS_SCAN_TYPE_PCI_EXT};
    return client.command(YRP_NAS_INCREMENTAL_NETWORK_SCAN, req);
  }
};

TEST_F(sim_nas, both_radios_of_the_default_board_are_measured) {
  board(quiet);
  expect_radios(true, true);
}

TEST_F(sim_nas, without_a_nr5g_cell_only_lte_parts_are_valid) {
  board(lte_only);
  expect_radios(true, false);
}

TEST_F(sim_nas, with_nr5g_service_alone_only_nr5g_parts_are_valid) {
  board(nr5g_only);
  expect_radios(false, true);
}

TEST_F(sim_nas, without_service_no_part_is_valid) {
  board(no_service);
  expect_radios(false, false);
}

TEST_F(sim_nas, every_value_of_the_default_board_is_answered) {
  board(quiet);
  const auto cells = client.query<yrp_nas_cell_location_info_resp_t>(YRP_NAS_GET_CELL_LOCATION_INFO);
  EXPECT_EQ(cells.lte_intra.earfcn, 1300);
  EXPECT_EQ(cells.lte_intra.pci, 214);
  EXPECT_EQ(cells.lte_intra.tac, 6699);
  EXPECT_EQ(cells.lte_intra.cgi, 10607298U);
  EXPECT_EQ(cells.lte_intra.plmn_id[1], 0xF2);
  EXPECT_EQ(cells.nr5g_arfcn, 636000U);
  EXPECT_EQ(cells.nr5g_serving_cell_info.cgi, 68719476736U);
  EXPECT_EQ(cells.nr5g_serving_cell_info.tac[2], 0x2B);
  const auto signal = client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
  EXPECT_EQ(signal.lte_sig_info.rssi, -65);
  EXPECT_EQ(signal.lte_sig_info.rsrq, -11);
  EXPECT_EQ(signal.lte_sig_info.rsrp, -95);
  EXPECT_EQ(signal.lte_sig_info.snr, 130);
  EXPECT_EQ(signal.nr5g_sig_info.rsrp, -98);
  EXPECT_EQ(signal.nr5g_rsrq, -11);
  EXPECT_EQ(cqi(YRP_NAS_CQI_RADIO_LTE).lte_cc_cqi[0].cw_cqi[1], 11);
  EXPECT_EQ(system().nr5g_pci, 500);
}

TEST_F(sim_nas, a_value_that_is_not_measured_makes_its_part_not_valid) {
  board(quiet);
  client.release();
  client.handle = nullptr;
  ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n[lte]\ncqi = []\n"), "");
  client.connect();
  EXPECT_EQ(cqi(YRP_NAS_CQI_RADIO_LTE).lte_cc_cqi_valid, 0);
}

TEST_F(sim_nas, an_unknown_radio_is_refused) {
  board(quiet);
  yrp_nas_tx_rx_info_resp_t tx = {};
  ASSERT_EQ(client.send(YRP_NAS_GET_TX_RX_INFO, yrp_nas_tx_rx_info_req_t{9}, tx), 0);
  EXPECT_EQ(tx.resp.result, 1U);
  EXPECT_EQ(cqi(2).resp.result, 1U);
}

TEST_F(sim_nas, the_lte_lock_list_that_was_set_is_given_back) {
  board(quiet);
  EXPECT_EQ(client.query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST).lte_cell_list_valid, 1);
  yrp_nas_set_lte_cell_lock_list_req_t req = {};
  req.lte_cell_list_len = 2;
  req.lte_cell_list[0] = {214, 1300};
  req.lte_cell_list[1] = {215, 1301};
  EXPECT_EQ(client.command(YRP_NAS_SET_LTE_CELL_LOCK_LIST, req).resp.result, 0U);
  const auto got = client.query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST);
  EXPECT_EQ(got.lte_cell_list_valid, 1);
  ASSERT_EQ(got.lte_cell_list_len, 2U);
  EXPECT_EQ(got.lte_cell_list[1].pci, 215);
  EXPECT_EQ(got.lte_cell_list[1].freq, 1301);
}

TEST_F(sim_nas, a_list_of_locks_above_its_capacity_does_not_leave) {
  board(quiet);
  yrp_nas_set_lte_cell_lock_list_req_t req = {};
  req.lte_cell_list_len = YRP_NAS_LTE_LOCK_SET_MAX + 1;
  yrp_nas_resp_t resp = {};
  EXPECT_EQ(client.send(YRP_NAS_SET_LTE_CELL_LOCK_LIST, req, resp), YRP_INVALID_PARAM_ERR);
}

TEST_F(sim_nas, nr5g_locks_are_given_back_in_the_numbering_of_the_query) {
  board(quiet);
  yrp_nas_set_nr5g_cell_lock_list_req_t one = {};
  one.cell_identity_valid = 1;
  one.cell_identity.pci = 500;
  one.cell_identity.arfcn = 636000;
  one.cell_identity.scs = 1;
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, one).resp.result, 0U);
  auto got = client.query<yrp_nas_nr5g_cell_lock_list_resp_t>(YRP_NAS_GET_NR5G_CELL_LOCK_LIST);
  EXPECT_EQ(got.type, 1U);
  EXPECT_EQ(got.cell_identity_valid, 1);
  EXPECT_EQ(got.cell_identity.arfcn, 636000U);
  EXPECT_EQ(got.arfcn_identity_valid, 0);

  yrp_nas_set_nr5g_cell_lock_list_req_t list = {};
  list.type = 1;
  list.arfcn_list_valid = 1;
  list.arfcn_list_len = 1;
  list.arfcn_list[0] = {2079167, 3};
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, list).resp.result, 0U);
  got = client.query<yrp_nas_nr5g_cell_lock_list_resp_t>(YRP_NAS_GET_NR5G_CELL_LOCK_LIST);
  EXPECT_EQ(got.type, 2U);
  EXPECT_EQ(got.cell_identity_valid, 0);
  EXPECT_EQ(got.arfcn_identity_valid, 1);
  EXPECT_EQ(got.arfcn_list[0].scs, 3U);

  yrp_nas_set_nr5g_cell_lock_list_req_t unlock = {};
  unlock.type = 2;
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, unlock).resp.result, 0U);
  got = client.query<yrp_nas_nr5g_cell_lock_list_resp_t>(YRP_NAS_GET_NR5G_CELL_LOCK_LIST);
  EXPECT_EQ(got.type, 3U);
  EXPECT_EQ(got.arfcn_identity_valid, 0);
}

TEST_F(sim_nas, a_nr5g_lock_without_what_its_type_needs_is_refused) {
  board(quiet);
  for (const uint32_t type : {0U, 1U, 3U, 0xFFFFFFFFU}) {
    yrp_nas_set_nr5g_cell_lock_list_req_t req = {};
    req.type = type;
    EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, req).resp.result, 1U) << type;
  }
}

TEST_F(sim_nas, deprioritised_lte_service_loses_its_nr5g_cell_until_restored) {
  board(quiet);
  client.register_all();
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_DEPRIORITIZE, yrp_nas_set_nr5g_deprioritize_req_t{1}).resp.result, 0U);
  EXPECT_EQ(system().nr5g_pci_valid, 0);
  expect_radios(true, false);
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_DEPRIORITIZE, yrp_nas_set_nr5g_deprioritize_req_t{0}).resp.result, 0U);
  EXPECT_EQ(system().nr5g_pci_valid, 1);
  const auto sent = client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND);
  ASSERT_EQ(sent.size(), 2U);
  EXPECT_EQ(sent[0].nr5g_pci_valid, 0);
  EXPECT_EQ(sent[1].nr5g_pci_valid, 1);
}

TEST_F(sim_nas, deprioritised_nr5g_service_falls_back_to_lte_only_where_there_is_lte) {
  board(nr5g_only);
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_DEPRIORITIZE, yrp_nas_set_nr5g_deprioritize_req_t{1}).resp.result, 0U);
  EXPECT_EQ(system().nr5g_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_SERVICE});
  client.release();
  board("[sys_info]\nlte = \"service\"\nnr5g = \"service\"\n");
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_DEPRIORITIZE, yrp_nas_set_nr5g_deprioritize_req_t{1}).resp.result, 0U);
  EXPECT_EQ(system().nr5g_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_NO_SERVICE});
  EXPECT_EQ(system().lte_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_SERVICE});
}

TEST_F(sim_nas, deprioritisation_without_a_nr5g_cell_is_refused) {
  board(lte_only);
  EXPECT_EQ(client.command(YRP_NAS_SET_NR5G_DEPRIORITIZE, yrp_nas_set_nr5g_deprioritize_req_t{1}).resp.result, 1U);
}

TEST_F(sim_nas, pps_settings_are_kept_as_they_were_sent) {
  board(quiet);
  yrp_nas_set_pps_config_req_t config = {};
  config.position_index = 3;
  config.pps_mode_enabled = 1;
  config.freq_list_valid = 1;
  config.freq_list_len = 2;
  yrp_nas_status_resp_t resp = {};
  EXPECT_EQ(client.send(YRP_NAS_SET_PPS_CONFIG, config, resp), 0);
  EXPECT_EQ(resp.status_valid, 1);
  EXPECT_EQ(client.command(YRP_NAS_SET_PPS_CHANGE_STATUS, yrp_nas_set_pps_change_status_req_t{4, 1, 2}).resp.result,
            0U);
  EXPECT_EQ(client.command(YRP_NAS_SET_PPS_CHANGE_STATUS, yrp_nas_set_pps_change_status_req_t{5, 0, 3}).resp.result,
            1U);
  const sim_board_settings kept = sim_board_nas_settings();
  EXPECT_EQ(kept.pps_position_index, 3);
  EXPECT_EQ(kept.pps_mode_enabled, 1);
  EXPECT_EQ(kept.pps_freqs, 2U);
  EXPECT_EQ(kept.pps_change_index, 4);
  EXPECT_EQ(kept.pps_change_changed, 1);
  EXPECT_EQ(kept.pps_change_mode, 2U);
}

TEST_F(sim_nas, install_mode_reports_the_given_frequencies_until_stopped) {
  board("[board]\nnoise_db = 0\ntick_ms = 5\n");
  client.register_all();
  yrp_nas_set_install_mode_req_t req = {};
  req.freq_list_valid = 1;
  req.freq_list_len = 2;
  req.freq_list[0] = {2079167, 261, 3};
  req.freq_list[1] = {2079168, 260, 2};
  yrp_nas_status_resp_t resp = {};
  ASSERT_EQ(client.send(YRP_NAS_SET_INSTALL_MODE, req, resp), 0);
  ASSERT_TRUE(client.wait_for(YRP_NAS_INSTALL_FREQ_IND, 3));
  yrp_nas_set_install_mode_req_t stop = {};
  stop.mode = 1;
  ASSERT_EQ(client.send(YRP_NAS_SET_INSTALL_MODE, stop, resp), 0);
  ASSERT_TRUE(client.wait_for(YRP_NAS_INSTALL_STATUS_IND, 2));
  const auto status = client.indications<yrp_nas_install_status_ind_t>(YRP_NAS_INSTALL_STATUS_IND);
  ASSERT_EQ(status.size(), 2U);
  EXPECT_EQ(status[0].status, 1U);
  EXPECT_EQ(status[1].status, 0U);
  const auto measured = client.indications<yrp_nas_install_freq_ind_t>(YRP_NAS_INSTALL_FREQ_IND);
  EXPECT_EQ(measured[0].freq_valid, 1);
  ASSERT_EQ(measured[0].freq_len, 2U);
  EXPECT_EQ(measured[0].freqs[1].arfcn, 2079168U);
  EXPECT_EQ(measured[0].freqs[1].band, 260U);
  EXPECT_EQ(measured[0].freqs[1].rsrp, -98);
  timespec pause = {0, 30000000};
  nanosleep(&pause, nullptr);
  EXPECT_EQ(client.indications<yrp_nas_install_freq_ind_t>(YRP_NAS_INSTALL_FREQ_IND).size(), measured.size());
}

TEST_F(sim_nas, a_scan_answers_with_the_neighbours_of_the_asked_type) {
  board("[scan]\nanswer_ms = 1\n");
  EXPECT_EQ(scan(YRP_NAS_NETWORK_TYPE_LTE).resp.result, 0U);
  EXPECT_EQ(scan(YRP_NAS_NETWORK_TYPE_NR5G).resp.result, 0U);
  ASSERT_TRUE(client.wait_for(YRP_NAS_INCREMENTAL_NETWORK_SCAN, 2));
  const auto found = client.indications<yrp_nas_incremental_scan_ind_t>(YRP_NAS_INCREMENTAL_NETWORK_SCAN);
  EXPECT_EQ(found[0].lte_nbr_info_valid, 1);
  EXPECT_EQ(found[0].nr5g_nbr_info_valid, 0);
  ASSERT_EQ(found[0].lte_nbr_count, 1U);
  EXPECT_EQ(found[0].lte_nbr[0].plmn[0].plmn_mcc, 272);
  EXPECT_EQ(found[0].lte_highest_signal_nbr.rsrp, -101);
  EXPECT_EQ(found[1].lte_nbr_info_valid, 0);
  ASSERT_EQ(found[1].nr5g_nbr_count, 1U);
  EXPECT_EQ(found[1].nr5g_nbr[0].cgi[0], 68719476737U);
}

TEST_F(sim_nas, ten_thousand_scans_are_answered_in_the_order_asked) {
  board("[scan]\nanswer_ms = 0\n");
  sim_board_journal_keep(false);
  for (int i = 0; i < 10000; i++) {
    scan(i % 2 ? YRP_NAS_NETWORK_TYPE_NR5G : YRP_NAS_NETWORK_TYPE_LTE);
  }
  ASSERT_TRUE(client.wait_for(YRP_NAS_INCREMENTAL_NETWORK_SCAN, 10000));
  const auto found = client.indications<yrp_nas_incremental_scan_ind_t>(YRP_NAS_INCREMENTAL_NETWORK_SCAN);
  ASSERT_EQ(found.size(), 10000U);
  for (size_t i = 0; i < found.size(); i++) {
    ASSERT_EQ(found[i].lte_nbr_info_valid, i % 2 == 0) << i;
  }
}

TEST_F(sim_nas, more_scans_than_the_clock_can_count_are_waited_for) {
  ASSERT_EQ(sim_board_load("[scan]\nanswer_ms = 86400000\n"), "");
  client.connect();
  for (int i = 0; i < 110000; i++) {  // the clock counts some 107,000 days
    ASSERT_EQ(scan(YRP_NAS_NETWORK_TYPE_LTE).resp.result, 0U);
  }
  EXPECT_TRUE(client.indications<yrp_nas_incremental_scan_ind_t>(YRP_NAS_INCREMENTAL_NETWORK_SCAN).empty());
}

TEST_F(sim_nas, a_scan_that_ends_while_the_modem_is_down_has_no_answer) {
  board(
      "[scan]\nanswer_ms = 200\n"
      "[[at]]\nafter = \"nas.133\"\nmodem = \"down\"\n"
      "[[at]]\nafter = \"nas.133\"\nms = 400\nmodem = \"up\"\n"
      "[[at]]\nafter = \"nas.133\"\nms = 400\nraw = { lib = \"nas\", id = 901, bytes = \"\" }\n");
  EXPECT_EQ(scan(YRP_NAS_NETWORK_TYPE_LTE).resp.result, 0U);
  ASSERT_TRUE(client.wait_for(901, 1));
  EXPECT_TRUE(client.indications<yrp_nas_incremental_scan_ind_t>(YRP_NAS_INCREMENTAL_NETWORK_SCAN).empty());
  EXPECT_EQ(scan(YRP_NAS_NETWORK_TYPE_LTE).resp.result, 0U);
  ASSERT_TRUE(client.wait_for(YRP_NAS_INCREMENTAL_NETWORK_SCAN, 1)) << "the next one is answered";
}

TEST_F(sim_nas, a_failing_scan_has_a_status_and_no_neighbours) {
  board("[scan]\nanswer_ms = 0\nstatus = 2\n");
  scan(YRP_NAS_NETWORK_TYPE_LTE);
  ASSERT_TRUE(client.wait_for(YRP_NAS_INCREMENTAL_NETWORK_SCAN, 1));
  const auto found = client.indications<yrp_nas_incremental_scan_ind_t>(YRP_NAS_INCREMENTAL_NETWORK_SCAN);
  EXPECT_EQ(found[0].scan_status, 2U);
  EXPECT_EQ(found[0].lte_nbr_info_valid, 0);
}

TEST_F(sim_nas, a_scan_that_never_answers_is_accepted_and_one_of_no_type_refused) {
  board("[scan]\nanswer_ms = -1\n");
  EXPECT_EQ(scan(YRP_NAS_NETWORK_TYPE_LTE).resp.result, 0U);
  EXPECT_EQ(scan(5).resp.result, 1U);
  EXPECT_FALSE(client.wait_for(YRP_NAS_INCREMENTAL_NETWORK_SCAN, 1, 50));
}

TEST_F(sim_nas, request_and_response_are_journaled_with_the_fields_that_are_present) {
  board(lte_only);
  client.query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
  yrp_nas_config_sig_info_req_t deltas = {};
  deltas.lte_rsrp_delta_valid = 1;
  deltas.lte_rsrp_delta = 2;
  client.command(YRP_NAS_CONFIG_SIG_INFO, deltas);
  EXPECT_EQ(journaled({R"("lib": "nas", "dir": "request", "id": 79, "name": "get_sig_info", "fields": {}})"}), 1U);
  EXPECT_EQ(
      journaled({R"("dir": "response", "id": 79, "name": "get_sig_info", "fields": {"transport": 0, "result": 0, )"
                 R"("error": 0, "lte_sig_info_valid": 1, "lte_sig_info": {"rssi": -65, "rsrq": -11, )"
                 R"("rsrp": -95, "snr": 130}}})"}),
      1U);
  EXPECT_EQ(journaled({R"("id": 108, "name": "config_sig_info", "fields": {"lte_rsrp_delta_valid": 1, )"
                       R"("lte_rsrp_delta": 2}})"}),
            1U);
}

}  // namespace
