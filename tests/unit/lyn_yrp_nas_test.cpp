/* SPDX-License-Identifier: Apache-2.0 */
/* The NAS client's life cycle: connecting, registering, service events, release. */
#include "lyn_yrp_nas_board.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsSupersetOf;

namespace {

const char *const NOT_CONNECTED = "ERROR YRP NAS module not initialized - yrp_nas_clnt_handle[(nil)]";

/** Names of the library's calls since the last nas_forget. */
std::vector<std::string> nas_calls() {
  std::vector<std::string> names;
  for (const auto &entry : board_journal("yrp", "call")) {
    names.push_back(entry["name"]);
  }
  return names;
}

std::string fault(const std::string &on, const std::string &more) {
  return "[[fault]]\non = \"" + on + "\"\n" + more + "\n";
}

}  // namespace

TEST_F(lyn_yrp_nas, when_connected_then_it_has_registered_for_the_four_indications) {
  nas_board("");
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_EQ(nas_requests(), std::vector<int>{3});
  EXPECT_EQ(nas_request_fields(0), nlohmann::json::parse(R"({"sys_info_valid": 1, "sys_info": 1,
      "reg_panel_pos_change_ind_valid": 1, "reg_panel_pos_change_ind": 1, "reg_install_meas_ind_valid": 1,
      "reg_install_meas_ind": 1, "reg_install_status_ind_valid": 1, "reg_install_status_ind": 1})"));
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH Retrieved YRP NAS service list - num_entries[1], num_services[1]",
                                            "HIGH YRP NAS client PPS mode reg_panel_pos_change_ind 1\\n",
                                            "HIGH YRP NAS client PPS mode reg_panel_pos_change_ind_valid 1\\n",
                                            "HIGH YRP NAS client install meas indications 1\\n",
                                            "HIGH YRP NAS client install  status indications 1\\n",
                                            "HIGH YRP NAS indication register request successful - sys_info[true]",
                                            "HIGH NAS service successfully initialized!"));
}

TEST_F(lyn_yrp_nas, when_already_connected_then_connecting_again_sends_nothing) {
  nas_connect(OX_LYN_REG_LTE_E);
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_EQ(lyn_yrp_nas_client_init(), 0);
  EXPECT_TRUE(nas_requests().empty());
  EXPECT_TRUE(nas_calls().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH YRP NAS client module already initialized",
                                            "HIGH YRP NAS client module already initialized"));
}

TEST_F(lyn_yrp_nas, when_the_service_is_not_offered_yet_then_connecting_waits_for_it) {
  nas_board("[nas]\navailable_after_ms = 100\n");
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_THAT(nas_calls(), Contains("yrp_cci_os_signal_wait"));
  EXPECT_EQ(diag_log_lines().front(), "ERROR Retrieving YRP NAS service list failed with status[-2]");
}

TEST_F(lyn_yrp_nas, when_a_step_of_connecting_fails_then_nothing_stays_open) {
  const struct {
    std::string toml, log;
    size_t released;
  } rows[] = {
      {fault("yrp.nas_get_service_object_internal_v01", "times = 1"), "ERROR NAS service object is not available!", 0},
      {fault("yrp.notifier_init", "transport = -7"),
       "ERROR Initializing notifier with a service object failed with status[-7]", 0},
      {fault("yrp.get_service_list", "skip = 1\ntransport = -7"),
       "ERROR Retrieving YRP NAS service list failed with status[-7]", 1},
      {fault("yrp.register_notify_cb", "transport = -7"),
       "ERROR Registering callback for YRP NAS service events failed with status[-7]", 1},
      {fault("yrp.nas_get_service_object_internal_v01", "skip = 1"), "ERROR YRP NAS service object not available", 1},
      {fault("yrp.init_instance", "transport = -7"), "ERROR YRP NAS client initialization failed with status[-7]", 1},
      {fault("nas.3", "transport = -3"), "ERROR YRP NAS indication register request failed - error[-3], response[0/0]",
       2},
      {fault("nas.3", "result = 1\nerror = 46"),
       "ERROR YRP NAS indication register request failed - error[0], response[1/46]", 2},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.log);
    nas_board(row.toml);
    EXPECT_EQ(lyn_yrp_nas_init(), -1);
    EXPECT_EQ(diag_log_lines().back(), row.log);
    const auto calls = nas_calls();
    EXPECT_EQ(static_cast<size_t>(std::count(calls.begin(), calls.end(), "release")), row.released);
    EXPECT_EQ(lyn_yrp_nas_release(), -1);
    EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR YRP NAS client module not yet initialized - cannot be released!"));
  }
}

TEST_F(lyn_yrp_nas, when_released_then_both_handles_are_and_requests_are_refused) {
  nas_connect(OX_LYN_REG_LTE_E);
  EXPECT_EQ(lyn_yrp_nas_release(), 0);
  EXPECT_THAT(nas_calls(), ElementsAre("release", "release"));
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH NAS service successfully released!"));
  lyn_ind_table_t table = {};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), -12);
  EXPECT_THAT(diag_log_lines(), ElementsAre(NOT_CONNECTED));
}

TEST_F(lyn_yrp_nas, deliberately_the_network_status_survives_a_release_until_the_next_system_information) {
  lyn_nas_rrc_state_t rrc;
  lyn_nas_sys_info_t sys_info;
  nas_connect(OX_LYN_REG_LTE_E);
  EXPECT_EQ(lyn_yrp_nas_release(), 0);
  nas_board(board_status(OX_LYN_REG_NO_SERVICE_E));
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_EQ(lyn_yrp_nas_get_rrc_state(&rrc), 0);
  EXPECT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 1), 0);
  EXPECT_EQ(lyn_yrp_nas_get_rrc_state(&rrc), 0);
  EXPECT_EQ(nas_requests(), (std::vector<int>{3, 210, 77})) << "LTE was asked as if it were still there";
}

TEST_F(lyn_yrp_nas, when_releasing_the_notifier_fails_then_both_stay_for_the_next_try) {
  nas_connect(OX_LYN_REG_LTE_E, fault("yrp.release", "transport = -9"));
  EXPECT_EQ(lyn_yrp_nas_release(), -1);
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Releasing the YRP NAS notifier handle failed with status[-9]"));
  EXPECT_EQ(lyn_yrp_nas_release(), 0);
  EXPECT_EQ(nas_calls().size(), 3U);
}

TEST_F(lyn_yrp_nas, when_releasing_the_client_fails_then_the_next_try_skips_the_notifier) {
  nas_connect(OX_LYN_REG_LTE_E, fault("yrp.release", "skip = 1\ntransport = -9"));
  EXPECT_EQ(lyn_yrp_nas_release(), -1);
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Releasing the YRP NAS client handle failed with status[-9]"));
  EXPECT_EQ(lyn_yrp_nas_release(), 0);
  EXPECT_EQ(nas_calls().size(), 3U);
}

/** Where the library refuses: 'c' connects, 'C' fails to, and 'R' is a release that fails. */
struct broken_life {
  const char *name, *steps;
  std::string faults;
};

const broken_life broken_lives[] = {
    {"notifier not released", "cRc", fault("yrp.release", "")},
    {"notifier never released", "cRcRc", fault("yrp.release", "times = 2")},
    {"client not released", "cRc", fault("yrp.release", "skip = 1")},
    {"client not released twice", "cRcRc", fault("yrp.release", "skip = 1") + fault("yrp.release", "skip = 3")},
    {"notifier and then client not released", "cRRc", fault("yrp.release", "") + fault("yrp.release", "skip = 2")},
    {"client not released and no service object", "cRCc",
     fault("yrp.release", "skip = 1") + fault("yrp.nas_get_service_object_internal_v01", "skip = 2")},
    {"client not released and no notifier", "cRCc",
     fault("yrp.release", "skip = 1") + fault("yrp.notifier_init", "skip = 1")},
    {"client not released and no service list", "cRCc",
     fault("yrp.release", "skip = 1") + fault("yrp.get_service_list", "skip = 3\ntransport = -7")},
    {"client not released and no service events", "cRCc",
     fault("yrp.release", "skip = 1") + fault("yrp.register_notify_cb", "skip = 1")},
};

/** How many calls of this name have succeeded. */
int succeeded(const std::string &name) {
  int calls = 0;
  for (const auto &entry : board_journal("yrp", "return")) {
    calls += entry["name"] == name && entry["fields"]["status"] == 0;
  }
  return calls;
}

/** Handles that the library has given and not yet got back. */
int open_handles() {
  return succeeded("notifier_init") + succeeded("init_instance") - succeeded("release");
}

TEST_F(lyn_yrp_nas, when_a_release_failed_half_way_then_the_next_connection_is_whole_and_no_part_of_it_there_twice) {
  const std::string restart =
      "[[at]]\nafter = \"nas.108\"\npanel = { index = 1, changed = 1, mode = 1 }\n"
      "[[at]]\nafter = \"nas.108\"\nmodem = \"down\"\n[[at]]\nafter = \"nas.108\"\nms = 10\nmodem = \"up\"\n";
  for (const broken_life &life : broken_lives) {
    SCOPED_TRACE(life.name);
    nas_board(restart + life.faults);
    for (const char *step = life.steps; *step != '\0'; step++) {
      ASSERT_EQ(*step == 'R' ? lyn_yrp_nas_release() : lyn_yrp_nas_init(), *step == 'c' ? 0 : -1) << step;
      ASSERT_LE(open_handles(), 2) << step;
    }
    EXPECT_EQ(open_handles(), 2) << "notifier and client";
    EXPECT_LE(succeeded("register_notify_cb"), succeeded("notifier_init"));
    const lyn_ind_table_t table = {};
    ASSERT_EQ(lyn_yrp_nas_register_ind(&table), 0);
    std::vector<uint32_t> ids;
    for (const posted_event &event : nas_wait_for_events(3)) {
      ids.push_back(event.id);
    }
    EXPECT_THAT(ids, testing::UnorderedElementsAre(LYN_EVENT_MODEM_DOWN, LYN_EVENT_MODEM_UP, LYN_EVENT_PPS));
    EXPECT_EQ(lyn_yrp_nas_release(), 0);
    EXPECT_EQ(open_handles(), 0);
  }
}

TEST_F(lyn_yrp_nas, when_registering_failed_then_the_same_client_registers_the_next_time) {
  nas_board(fault("nas.3", "times = 1\nresult = 1\nerror = 46"));
  EXPECT_EQ(lyn_yrp_nas_client_init(), -1);
  nas_forget();
  EXPECT_EQ(lyn_yrp_nas_client_init(), 0);
  EXPECT_THAT(nas_calls(), ElementsAre("nas_get_service_object_internal_v01"));
  EXPECT_EQ(nas_requests(), std::vector<int>{3});
}

TEST_F(lyn_yrp_nas, when_nothing_but_the_notifier_is_missing_then_the_client_is_not_asked_to_register_again) {
  nas_connect(OX_LYN_REG_LTE_E, fault("yrp.release", "skip = 1"));
  ASSERT_EQ(lyn_yrp_nas_release(), -1);
  nas_forget();
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_THAT(nas_calls(), ElementsAre("nas_get_service_object_internal_v01", "notifier_init", "get_service_list",
                                       "get_service_list", "register_notify_cb"));
  EXPECT_TRUE(nas_requests().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH Retrieved YRP NAS service list - num_entries[1], num_services[1]",
                                            "HIGH YRP NAS client module already initialized"));
}

TEST_F(lyn_yrp_nas, when_signals_are_subscribed_then_each_value_carries_its_own_step) {
  nas_connect(OX_LYN_REG_LTE_E);
  lyn_ind_table_t table = {};
  table.lte_rsrp = {1, 11, 0};
  table.lte_rsrq = {1, 12, 0};
  table.lte_sinr = {1, 13, 0};
  table.nr5g_rsrp = {1, 14, 0};
  table.nr5g_rsrq = {1, 15, 0};
  table.nr5g_sinr = {1, 16, 0};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), 0);
  EXPECT_EQ(nas_requests(), (std::vector<int>{3, 108}));
  EXPECT_EQ(nas_request_fields(0)["sig_info_valid"], 1);
  EXPECT_EQ(nas_request_fields(0)["sig_info"], 1);
  const auto deltas = nas_request_fields(1);
  EXPECT_EQ(deltas["lte_rsrp_delta"], 11);
  EXPECT_EQ(deltas["lte_rsrq_delta"], 12);
  EXPECT_EQ(deltas["lte_snr_delta"], 13);
  EXPECT_EQ(deltas["nr5g_rsrp_delta"], 14);
  EXPECT_EQ(deltas["nr5g_rsrq_delta"], 15);
  EXPECT_EQ(deltas["nr5g_snr_delta"], 16);
}

TEST_F(lyn_yrp_nas, when_one_signal_is_subscribed_then_the_other_steps_are_not_valid) {
  nas_connect(OX_LYN_REG_LTE_E);
  lyn_ind_table_t table = {};
  table.nr5g_rsrq = {1, 2, 0};
  table.lte_rsrp.threshold = 9;
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), 0);
  EXPECT_EQ(nas_request_fields(0)["sig_info"], 1);
  EXPECT_EQ(nas_request_fields(1), nlohmann::json::parse(R"({"nr5g_rsrq_delta_valid": 1, "nr5g_rsrq_delta": 2})"));
  EXPECT_THAT(diag_log_texts("HIGH"), IsSupersetOf({"YRP NAS client install meas indications 1\\n",
                                                    "YRP NAS client install  status indications 1\\n"}));
}

TEST_F(lyn_yrp_nas, when_no_signal_is_subscribed_then_reports_go_off_and_108_is_sent_all_the_same) {
  nas_connect(OX_LYN_REG_LTE_E);
  const lyn_ind_table_t table = {};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), 0);
  EXPECT_EQ(nas_requests(), (std::vector<int>{3, 108}));
  EXPECT_EQ(nas_request_fields(0)["sig_info"], 0);
}

TEST_F(lyn_yrp_nas, deliberately_an_error_result_in_response_108_counts_as_success) {
  nas_connect(OX_LYN_REG_LTE_E, fault("nas.108", "result = 1\nerror = 46"));
  const lyn_ind_table_t table = {};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), 0);
  EXPECT_TRUE(diag_log_texts("ERROR").empty());
}

TEST_F(lyn_yrp_nas, when_message_108_is_not_transported_then_registering_fails) {
  nas_connect(OX_LYN_REG_LTE_E, fault("nas.108", "transport = -3"));
  const lyn_ind_table_t table = {};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), -1);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("YRP NAS signaling information request failed with status[-3]"));
}

TEST_F(lyn_yrp_nas, when_message_3_fails_then_message_108_is_not_sent) {
  nas_connect(OX_LYN_REG_LTE_E, fault("nas.3", "skip = 1\nresult = 1\nerror = 46"));
  const lyn_ind_table_t table = {};
  EXPECT_EQ(lyn_yrp_nas_register_ind(&table), -1);
  EXPECT_EQ(nas_requests(), std::vector<int>{3});
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("YRP NAS indication register request failed - error[0], response[1/46]"));
}

TEST_F(lyn_yrp_nas, when_the_table_is_null_then_registering_is_refused) {
  EXPECT_EQ(lyn_yrp_nas_register_ind(nullptr), -2);
  EXPECT_THAT(diag_log_lines(), Contains("ERROR Invalid params - ind_info[(nil)]"));
}

TEST_F(lyn_yrp_nas, when_the_modem_restarts_then_both_events_are_posted_in_order) {
  nas_connect(OX_LYN_REG_LTE_E, "[[at]]\nms = 50\nmodem = \"down\"\n[[at]]\nms = 60\nmodem = \"up\"\n");
  const auto events = nas_wait_for_events(2);
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].id, LYN_EVENT_MODEM_DOWN);
  EXPECT_EQ(events[0].as<uint8_t>(), 1);
  EXPECT_EQ(events[1].id, LYN_EVENT_MODEM_UP);
  EXPECT_EQ(events[1].as<uint8_t>(), 1);
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH NAS service notification callback received service event[1]",
                                            "HIGH SSR - Modem down indication event[1]",
                                            "HIGH NAS service notification callback received service event[0]",
                                            "HIGH SSR - Modem up indication event[0]"));
}

TEST_F(lyn_yrp_nas, when_a_service_event_is_unknown_then_nothing_is_posted) {
  nas_connect(OX_LYN_REG_LTE_E);
  lyn_yrp_nas_svc_notify_cb(nullptr, nullptr, 2, nullptr);
  EXPECT_TRUE(nas_events().empty());
  EXPECT_THAT(diag_log_lines(), ElementsAre("HIGH NAS service notification callback received service event[2]",
                                            "ERROR NAS service event[2] is not currently supported"));
}

/* Last in the program: the board keeps what was not released, and calls it back. */
TEST_F(lyn_yrp_nas, when_a_failed_connection_cannot_be_released_then_it_is_forgotten_all_the_same) {
  nas_board(fault("nas.3", "result = 1") + fault("yrp.release", "times = 2"));
  EXPECT_EQ(lyn_yrp_nas_init(), -1);
  EXPECT_EQ(succeeded("release"), 0);
  diag_log_take();
  EXPECT_EQ(lyn_yrp_nas_release(), -1);
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR YRP NAS client module not yet initialized - cannot be released!"));
  EXPECT_EQ(lyn_yrp_nas_init(), 0);
  EXPECT_EQ(succeeded("notifier_init"), 2);
  EXPECT_EQ(succeeded("init_instance"), 2);
  EXPECT_EQ(lyn_yrp_nas_release(), 0);
}
