/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The timeline of the simulated board: what happens when, in which order, how often, and after which call.
 */
#include <nlohmann/json.hpp>

#include "oxmap_client.h"
#include "sim_client.h"
#include "sim_message.h"

namespace {

struct sim_timeline : sim_board_test {
  std::vector<uint32_t> ids() {
    EXPECT_TRUE(sim_board_wait_idle(30000));
    const std::lock_guard guard(client.lock);
    std::vector<uint32_t> found;
    for (const sim_received &message : client.received) {
      found.push_back(message.id);
    }
    return found;
  }
};

std::string raw(unsigned int id, const std::string &more = "") {
  return "[[at]]\nraw = { lib = \"nas\", id = " + std::to_string(id) + ", bytes = \"\" }\n" + more;
}

TEST_F(sim_timeline, entries_of_equal_time_run_in_file_order) {
  board(raw(901, "ms = 20\n") + raw(902, "ms = 10\n") + raw(903, "ms = 20\n") + raw(904, "ms = 10\n"));
  ASSERT_TRUE(client.wait_for(903, 1));
  EXPECT_EQ(ids(), (std::vector<uint32_t>{902, 904, 901, 903}));
}

TEST_F(sim_timeline, repeats_at_once_come_before_the_entry_behind) {
  board(raw(901, "ms = 5\nrepeat = 3\nevery_ms = 0\n") + raw(902, "ms = 5\n"));
  ASSERT_TRUE(client.wait_for(902, 1));
  EXPECT_EQ(ids(), (std::vector<uint32_t>{901, 901, 901, 902}));
}

TEST_F(sim_timeline, repeats_apart_mix_with_others_by_time) {
  board(raw(901, "ms = 10\nrepeat = 3\nevery_ms = 20\n") + raw(902, "ms = 20\n"));
  ASSERT_TRUE(client.wait_for(901, 3));
  EXPECT_EQ(ids(), (std::vector<uint32_t>{901, 902, 901, 901}));
}

TEST_F(sim_timeline, entries_wait_for_the_call_they_name_and_skip_so_many) {
  board(raw(901, "after = \"nas.77\"\nms = 0\n") + raw(902, "after = \"nas.77\"\nskip = 2\nms = 0\n"));
  EXPECT_TRUE(ids().empty());
  client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
  EXPECT_EQ(ids(), (std::vector<uint32_t>{901}));
  client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
  EXPECT_EQ(ids().size(), 1U);
  client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
  EXPECT_EQ(ids(), (std::vector<uint32_t>{901, 902}));
}

TEST_F(sim_timeline, nothing_happens_before_the_first_instance_and_time_0_never_starts_again) {
  ASSERT_EQ(sim_board_load(raw(901, "ms = 0\n")), "");
  ASSERT_TRUE(sim_board_wait_idle(1000));
  client.connect();
  EXPECT_EQ(ids().size(), 1U);
  client.release();
  client.connect();
  EXPECT_EQ(ids().size(), 1U);
}

TEST_F(sim_timeline, every_kind_of_event_is_delivered_to_those_registered) {
  board(
      "[[at]]\nafter = \"nas.3\"\nms = 0\npanel = { index = 2, changed = 1, mode = 1 }\n"
      "[[at]]\nafter = \"nas.3\"\nms = 0\ninstall_status = 1\n"
      "[[at]]\nafter = \"nas.3\"\nms = 0\n"
      "install_measurement = [{ arfcn = 2079167, band = 261, scs = 3, rsrp = -88, snr = 12 }]\n"
      "[[at]]\nafter = \"nas.3\"\nms = 0\nsys_info = { lte = \"limited\" }\n");
  client.register_all();
  EXPECT_EQ(ids(), (std::vector<uint32_t>{YRP_NAS_PPS_IND, YRP_NAS_INSTALL_STATUS_IND, YRP_NAS_INSTALL_FREQ_IND,
                                          YRP_NAS_SYS_INFO_IND}));
  const auto panel = client.indications<yrp_nas_pps_ind_t>(YRP_NAS_PPS_IND);
  EXPECT_EQ(panel[0].position_index, 2);
  EXPECT_EQ(panel[0].position_changed, 1);
  EXPECT_EQ(panel[0].mode_index, 1U);
  const auto status = client.indications<yrp_nas_install_status_ind_t>(YRP_NAS_INSTALL_STATUS_IND);
  EXPECT_EQ(status[0].valid, 1);
  EXPECT_EQ(status[0].status, 1U);
  const auto measured = client.indications<yrp_nas_install_freq_ind_t>(YRP_NAS_INSTALL_FREQ_IND);
  EXPECT_EQ(measured[0].freqs[0].rsrp, -88);
  const auto system = client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND);
  EXPECT_EQ(system[0].lte_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_LIMITED});
}

TEST_F(sim_timeline, events_nobody_registered_for_are_not_sent_but_raw_bytes_are) {
  board(
      "[[at]]\nms = 0\npanel = { index = 2, changed = 1, mode = 1 }\n"
      "[[at]]\nms = 0\nsys_info = { lte = \"limited\" }\n" +
      raw(YRP_NAS_SIG_INFO_IND, "ms = 0\n"));
  EXPECT_EQ(ids(), (std::vector<uint32_t>{YRP_NAS_SIG_INFO_IND}));
}

TEST_F(sim_timeline, a_sys_info_entry_sends_78_also_when_nothing_changes) {
  board("[[at]]\nafter = \"nas.3\"\nms = 0\nsys_info = { lte = \"service\" }\n");
  client.register_all();
  EXPECT_EQ(ids(), (std::vector<uint32_t>{YRP_NAS_SYS_INFO_IND}));
}

std::vector<uint32_t> oxmap_ids;

void on_oxmap(yrp_client_type, unsigned int id, void *, unsigned int, void *) {
  oxmap_ids.push_back(id);
}

TEST_F(sim_timeline, a_qos_flow_goes_to_the_mobile_access_points_client) {
  ASSERT_EQ(sim_board_load("[[at]]\nms = 0\nqos_flow = { bearer = 6, tx_5qi = 1, rx_5qi = 2 }\n"), "");
  oxmap_ids.clear();
  const yrp_client_type oxmap = sim_client_open(sim_lib::oxmap, on_oxmap, nullptr);
  client.connect();
  ASSERT_TRUE(sim_board_wait_idle(1000));
  EXPECT_TRUE(sim_client_close(oxmap));
  EXPECT_EQ(oxmap_ids, (std::vector<uint32_t>{OXMAP_QOS_FLOW_IND}));
  EXPECT_TRUE(ids().empty());
}

/** Down after message 3, each kind of indication, and up again. */
constexpr char down_and_up[] =
    "[board]\nnoise_db = 0\n"
    "[[at]]\nafter = \"nas.3\"\nmodem = \"down\"\n"
    "[[at]]\nafter = \"nas.3\"\nsys_info = { lte = \"limited\" }\n"
    "[[at]]\nafter = \"nas.3\"\npanel = { index = 2, changed = 1, mode = 1 }\n"
    "[[at]]\nafter = \"nas.3\"\ninstall_status = 1\n"
    "[[at]]\nafter = \"nas.3\"\ninstall_measurement = [{ arfcn = 2079167 }]\n"
    "[[at]]\nafter = \"nas.3\"\nraw = { lib = \"nas\", id = 901, bytes = \"\" }\n"
    "[[at]]\nafter = \"nas.3\"\nraw = { lib = \"oxmap\", id = 902, bytes = \"\" }\n"
    "[[at]]\nafter = \"nas.3\"\nqos_flow = { bearer = 6, tx_5qi = 1, rx_5qi = 2 }\n"
    "[[at]]\nafter = \"nas.3\"\nmodem = \"up\"\n"
    "[[at]]\nafter = \"nas.3\"\ninstall_status = 2\n";

TEST_F(sim_timeline, while_the_modem_is_down_no_indication_of_its_service_goes_out) {
  board(down_and_up);
  oxmap_ids.clear();
  const yrp_client_type oxmap = sim_client_open(sim_lib::oxmap, on_oxmap, nullptr);
  client.register_all();
  EXPECT_EQ(ids(), (std::vector<uint32_t>{YRP_NAS_INSTALL_STATUS_IND})) << "of the one after it was up again";
  EXPECT_EQ(client.indications<yrp_nas_install_status_ind_t>(YRP_NAS_INSTALL_STATUS_IND)[0].status, 2U);
  EXPECT_EQ(client.events, (std::vector<int32_t>{YRP_SERVICE_DOWN, YRP_SERVICE_UP}));
  EXPECT_EQ(journaled({R"("lib": "nas", "dir": "indication")"}), 1U);
  EXPECT_TRUE(sim_client_close(oxmap));
  EXPECT_EQ(oxmap_ids, (std::vector<uint32_t>{902, OXMAP_QOS_FLOW_IND})) << "the mobile AP is another service";
}

TEST_F(sim_timeline, what_a_test_posts_is_not_delivered_while_the_modem_is_down) {
  board("[[at]]\nmodem = \"down\"\n[[at]]\nafter = \"nas.3\"\nmodem = \"up\"\n");
  ASSERT_TRUE(sim_board_wait_idle(1000));
  sim_board_post("nas", 901, {});
  yrp_nas_indication_register_req_t req = {};
  yrp_nas_resp_t resp = {};
  EXPECT_NE(client.send(YRP_NAS_INDICATION_REGISTER, req, resp), 0) << "down";
  ASSERT_TRUE(sim_board_wait_idle(1000));
  sim_board_post("nas", 902, {});
  EXPECT_EQ(ids(), (std::vector<uint32_t>{902}));
}

TEST_F(sim_timeline, what_a_test_has_happen_happens_at_once_and_in_the_order_of_an_entry) {
  board("");
  client.register_all();
  EXPECT_EQ(sim_board_happen("install_status = 3\nqos_flow = { bearer = 1 }"), "");
  EXPECT_EQ(sim_board_happen("modem = \"down\""), "");
  EXPECT_EQ(sim_board_happen("install_status = 4"), "");
  EXPECT_EQ(sim_board_happen("modem = \"up\""), "");
  EXPECT_EQ(ids(), (std::vector<uint32_t>{YRP_NAS_INSTALL_STATUS_IND}));
  EXPECT_EQ(client.events, (std::vector<int32_t>{YRP_SERVICE_DOWN, YRP_SERVICE_UP}));
  EXPECT_EQ(sim_board_happen("modem = \"gone\"").find("entry:2:"), 0U);
}

TEST_F(sim_timeline, bytes_that_are_no_message_stand_in_the_journal_as_they_are) {
  board("[[at]]\nms = 0\nraw = { lib = \"nas\", id = 81, bytes = \"01fe\" }\n" + raw(81, "ms = 0\n"));
  ASSERT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(journaled({R"("dir": "indication", "id": 81, "name": "sig_info_ind", "fields": {"raw": "01fe"}})"}), 1U);
  EXPECT_EQ(journaled({R"("dir": "indication", "id": 81, "name": "sig_info_ind", "fields": {}})"}), 1U);
}

TEST_F(sim_timeline, every_id_of_32_bits_is_delivered_and_journaled_as_it_is) {
  board(raw(2147483647) + raw(2147483648) + raw(4294967295));
  EXPECT_EQ(ids(), (std::vector<uint32_t>{2147483647, 2147483648, 4294967295}));
  EXPECT_EQ(journaled({R"("dir": "indication", "id": 2147483647, "name": "unknown")"}), 1U);
  EXPECT_EQ(journaled({R"("dir": "indication", "id": 2147483648, "name": "unknown")"}), 1U);
  EXPECT_EQ(journaled({R"("dir": "indication", "id": 4294967295, "name": "unknown")"}), 1U);
}

TEST_F(sim_timeline, a_million_indications_at_once_are_all_delivered) {
  ASSERT_EQ(sim_board_load(raw(901, "ms = 0\nrepeat = 1000000\nevery_ms = 0\n") + raw(902, "ms = 0\n")), "");
  client.connect();
  ASSERT_TRUE(client.wait_for(902, 1, 60000));
  EXPECT_EQ(client.received.size(), 1000001U);
  EXPECT_EQ(client.received.back().id, 902U);
}

TEST_F(sim_timeline, a_held_clock_moves_only_when_it_is_advanced_and_then_all_that_is_due_is_done_in_its_order) {
  board(raw(901, "ms = 3600000\n") + raw(902, "ms = 1800000\nrepeat = 24\nevery_ms = 3600000\n"));
  sim_board_advance(1700000);
  EXPECT_EQ(ids(), std::vector<uint32_t>());
  sim_board_advance(100000);
  EXPECT_EQ(ids(), std::vector<uint32_t>{902});
  sim_board_advance(2 * 3600000);
  EXPECT_EQ(ids(), (std::vector<uint32_t>{902, 901, 902, 902}));
  sim_board_advance(86400000);
  EXPECT_EQ(ids().size(), 25U);
}

TEST_F(sim_timeline, the_journal_has_the_held_time_and_a_fresh_board_the_machines_again) {
  sim_board_journal_keep(true);
  board(raw(901, "ms = 5000000\n"));
  sim_board_advance(5000000);
  EXPECT_EQ(ids(), std::vector<uint32_t>{901});
  EXPECT_GE(nlohmann::json::parse(sim_board_journal().back())["t"], 5000.0);
  board(raw(902, "ms = 1\n"));
  EXPECT_TRUE(client.wait_for(902, 1));
  EXPECT_LT(nlohmann::json::parse(sim_board_journal().back())["t"], 5000.0);
  sim_board_journal_keep(false);
}

}  // namespace
