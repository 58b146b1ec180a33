/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Faults of the simulated board: every kind of crossing can fail, refuse, lose parts of its answer or take its time.
 */
#include <chrono>

#include "diag_service.h"
#include "sim_client.h"
#include "sim_core.h"
#include "sim_message.h"
#include "source_dir.h"

namespace {

double ms_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

struct sim_fault : sim_board_test {
  int32_t ask(yrp_nas_sig_info_resp_t &resp) {
    resp = {};
    return client.send(YRP_NAS_GET_SIG_INFO, yrp_nas_empty_req_t{}, resp);
  }
};

TEST_F(sim_fault, a_rule_that_names_nothing_fails_the_message_once) {
  board("[[fault]]\non = \"nas.79\"\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), -1);
  EXPECT_EQ(ask(resp), 0);
  EXPECT_EQ(journaled({R"("dir": "response", "id": 79, "name": "get_sig_info", "fields": {"transport": -1}})"}), 1U);
}

TEST_F(sim_fault, skip_lets_calls_pass_and_times_fails_so_many) {
  board("[[fault]]\non = \"nas.79\"\nskip = 2\ntimes = 3\ntransport = -7\n");
  yrp_nas_sig_info_resp_t resp;
  std::vector<int32_t> got;
  for (int i = 0; i < 7; i++) {
    got.push_back(ask(resp));
  }
  EXPECT_EQ(got, (std::vector<int32_t>{0, 0, -7, -7, -7, 0, 0}));
}

TEST_F(sim_fault, times_minus_one_fails_from_then_on) {
  board("[[fault]]\non = \"nas.79\"\nskip = 1\ntimes = -1\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  for (int i = 0; i < 5; i++) {
    EXPECT_EQ(ask(resp), -1);
  }
}

TEST_F(sim_fault, skip_and_times_may_be_as_large_as_integers_are) {
  board(
      "[[fault]]\non = \"nas.79\"\nskip = 9223372036854775807\ntimes = 9223372036854775807\ntransport = -3\n"
      "[[fault]]\non = \"nas.79\"\nskip = 1\ntimes = 9223372036854775807\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  for (int i = 0; i < 3; i++) {
    EXPECT_EQ(ask(resp), -1);
  }
}

TEST_F(sim_fault, the_first_matching_rule_wins) {
  board("[[fault]]\non = \"nas.79\"\ntransport = -3\n[[fault]]\non = \"nas.79\"\ntransport = -4\ntimes = 2\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), -3);
  EXPECT_EQ(ask(resp), -4);
  EXPECT_EQ(ask(resp), 0);
}

TEST_F(sim_fault, a_refused_request_has_result_and_error_and_changes_nothing) {
  board("[[fault]]\non = \"nas.216\"\nresult = 1\nerror = 46\n");
  yrp_nas_set_lte_cell_lock_list_req_t req = {};
  req.lte_cell_list_len = 1;
  const yrp_nas_resp_t resp = client.command(YRP_NAS_SET_LTE_CELL_LOCK_LIST, req);
  EXPECT_EQ(resp.resp.result, 1U);
  EXPECT_EQ(resp.resp.error, 46U);
  EXPECT_EQ(client.query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST).lte_cell_list_len, 0U);
}

TEST_F(sim_fault, cleared_flags_make_their_parts_not_valid) {
  board("[[fault]]\non = \"nas.79\"\nclear = [\"lte_sig_info_valid\"]\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  EXPECT_EQ(resp.lte_sig_info_valid, 0);
  EXPECT_EQ(resp.nr5g_sig_info_valid, 1);
  EXPECT_EQ(ask(resp), 0);
  EXPECT_EQ(resp.lte_sig_info_valid, 1);
}

TEST_F(sim_fault, a_delay_alone_is_waited_out_and_the_call_succeeds) {
  board("[[fault]]\non = \"nas.79\"\ndelay_ms = 60\n");
  yrp_nas_sig_info_resp_t resp;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(ask(resp), 0);
  EXPECT_GE(ms_since(start), 60);
}

TEST_F(sim_fault, a_delay_beyond_the_time_out_ends_the_request) {
  board("[[fault]]\non = \"nas.79\"\ndelay_ms = 60000\n");
  yrp_nas_empty_req_t req = {};
  yrp_nas_sig_info_resp_t resp = {};
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(yrp_client_send_msg_sync(client.handle, YRP_NAS_GET_SIG_INFO, &req, sizeof req, &resp, sizeof resp, 20),
            YRP_TIMEOUT_ERR);
  EXPECT_LT(ms_since(start), 5000);
}

TEST_F(sim_fault, a_late_answer_is_a_time_out_that_nobody_waits_for_and_the_request_is_carried_out) {
  board("[[fault]]\non = \"nas.216\"\nlate = true\n");
  yrp_nas_set_lte_cell_lock_list_req_t req = {};
  req.lte_cell_list_len = 1;
  yrp_nas_resp_t resp = {};
  EXPECT_EQ(client.send(YRP_NAS_SET_LTE_CELL_LOCK_LIST, req, resp), YRP_TIMEOUT_ERR);
  EXPECT_EQ(journaled({R"("dir": "response", "id": 216)", R"("fields": {"transport": -3}})"}), 1U);
  EXPECT_EQ(client.query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST).lte_cell_list_len, 1U);
}

TEST_F(sim_fault, any_counts_the_calls_of_all_names) {
  ASSERT_EQ(sim_board_load("[[fault]]\non = \"any\"\nskip = 4\ntransport = -9\n"), "");
  client.connect(); /* four calls */
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), -9);
  EXPECT_EQ(ask(resp), 0);
}

TEST_F(sim_fault, the_modem_goes_down_just_before_a_call_and_comes_up_before_another) {
  board(
      "[[fault]]\non = \"nas.79\"\nskip = 1\nmodem = \"down\"\n"
      "[[fault]]\non = \"nas.79\"\nskip = 3\nmodem = \"up\"\n");
  yrp_nas_sig_info_resp_t resp;
  const std::vector<int32_t> got = {ask(resp), ask(resp), ask(resp), ask(resp), ask(resp)};
  EXPECT_EQ(got, (std::vector<int32_t>{0, YRP_INTERNAL_ERR, YRP_INTERNAL_ERR, 0, 0}));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(client.events, (std::vector<int32_t>{YRP_SERVICE_DOWN, YRP_SERVICE_UP}));
}

TEST_F(sim_fault, the_modem_restarts_just_before_a_call_which_it_answers) {
  board("[[fault]]\non = \"nas.79\"\nmodem = \"restart\"\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(client.events, (std::vector<int32_t>{YRP_SERVICE_DOWN, YRP_SERVICE_UP}));
}

TEST_F(sim_fault, service_is_lost_just_before_a_call) {
  board("[[fault]]\non = \"nas.77\"\nskip = 1\nsys_info = { lte = \"no_service\" }\n");
  client.register_all();
  EXPECT_EQ(client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO).lte_srv_status_info.srv_status, 2U);
  const auto lost = client.query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
  EXPECT_EQ(lost.lte_srv_status_info.srv_status, 0U);
  EXPECT_EQ(lost.nr5g_pci_valid, 1) << "exactly the keys given change";
  EXPECT_EQ(client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND).size(), 1U);
}

TEST_F(sim_fault, indications_are_lost_cut_and_cleared_of_their_parts) {
  board(
      "board.noise_db = 0\n[[fault]]\non = \"nas.ind.78\"\n"
      "[[fault]]\non = \"nas.ind.78\"\nskip = 1\ntruncate = 5\n"
      "[[fault]]\non = \"nas.ind.78\"\nskip = 2\nclear = [\"lte_srv_status_info_valid\"]\n"
      "[[fault]]\non = \"nas.ind.78\"\nskip = 3\ntruncate = 4294967295\n"
      "[[at]]\nsys_info = { nr5g_pci = 7 }\nafter = \"nas.79\"\nrepeat = 5\n");
  client.register_all();
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SYS_INFO_IND, 4));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  std::vector<sim_received> got;
  for (const sim_received &one : client.received) {
    if (one.id == YRP_NAS_SYS_INFO_IND) {
      got.push_back(one);
    }
  }
  ASSERT_EQ(got.size(), 4U) << "one of five is lost";
  const size_t whole = got[3].bytes.size();
  EXPECT_EQ(got[0].bytes, (std::vector<uint8_t>(got[3].bytes.begin(), got[3].bytes.begin() + 5)));
  EXPECT_LT(got[1].bytes.size(), whole);
  EXPECT_EQ(got[2].bytes, got[3].bytes);
  yrp_nas_sys_info_ind_t cleared = {};
  EXPECT_EQ(yrp_client_message_decode(client.handle, YRP_MSG_INDICATION, YRP_NAS_SYS_INFO_IND, got[1].bytes.data(),
                                      static_cast<unsigned int>(got[1].bytes.size()), &cleared, sizeof cleared),
            0);
  EXPECT_EQ(cleared.lte_srv_status_info_valid, 0);
  EXPECT_EQ(cleared.nr5g_pci, 7);
}

TEST_F(sim_fault, bytes_that_are_no_message_have_no_flag_to_clear) {
  board(
      "[[fault]]\non = \"nas.ind.78\"\nclear = [\"nr5g_pci_valid\"]\n"
      "[[at]]\nafter = \"nas.79\"\nraw = { lib = \"nas\", id = 78, bytes = \"10\" }\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  ASSERT_TRUE(client.wait_for(YRP_NAS_SYS_INFO_IND, 1));
  EXPECT_EQ(client.received.back().bytes, (std::vector<uint8_t>{0x10}));
}

TEST_F(sim_fault, an_indication_may_be_waited_for) {
  board(
      "[[at]]\nafter = \"nas.79\"\nraw = { lib = \"nas\", id = 78, bytes = \"10\" }\n"
      "[[at]]\nafter = \"nas.ind.78\"\nraw = { lib = \"nas\", id = 81, bytes = \"11\" }\n");
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  EXPECT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 1));
}

TEST_F(sim_fault, a_number_of_calls_may_be_waited_for_whatever_they_are) {
  board("[[at]]\nafter = \"any\"\nskip = 5\nraw = { lib = \"nas\", id = 81, bytes = \"11\" }\n"); /* connects in four */
  yrp_nas_sig_info_resp_t resp;
  EXPECT_EQ(ask(resp), 0);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_TRUE(client.received.empty());
  EXPECT_EQ(ask(resp), 0);
  EXPECT_TRUE(client.wait_for(YRP_NAS_SIG_INFO_IND, 1));
}

TEST_F(sim_fault, a_drive_may_wait_for_an_indication) {
  ASSERT_EQ(sim_board_load("[trace]\nfile = \"drive.csv\"\nspeed = 0\nafter = \"oxmap.ind.258\"\n",
                           source_path("tests/data")),
            "");
  sim_board_journal_keep(true);
  client.connect();
  sim_client_open(sim_lib::oxmap, nullptr, nullptr);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(journaled({"trace_row"}), 0U);
  sim_board_post("oxmap", 258, {});
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(journaled({"trace_end"}), 1U);
}

TEST_F(sim_fault, every_call_of_the_client_library_can_fail) {
  ASSERT_EQ(sim_board_load("[[fault]]\non = \"yrp.nas_get_service_object_internal_v01\"\n"
                           "[[fault]]\non = \"yrp.notifier_init\"\ntransport = -11\n"
                           "[[fault]]\non = \"yrp.get_service_list\"\ntransport = -12\n"
                           "[[fault]]\non = \"yrp.register_notify_cb\"\ntransport = -13\n"
                           "[[fault]]\non = \"yrp.init_instance\"\ntransport = -14\n"
                           "[[fault]]\non = \"yrp.message_decode\"\ntransport = -15\n"
                           "[[fault]]\non = \"yrp.release\"\ntransport = -16\n"),
            "");
  EXPECT_EQ(nas_get_service_object_internal_v01(1, 388, 6), nullptr);
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  ASSERT_NE(service, nullptr);
  yrp_client_os_params signal = {};
  yrp_client_type handle = nullptr, notifier = nullptr;
  EXPECT_EQ(yrp_client_notifier_init(service, &signal, &notifier), -11);
  EXPECT_EQ(notifier, nullptr);
  EXPECT_EQ(yrp_client_notifier_init(service, &signal, &notifier), 0);
  unsigned int services = 0;
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), -12);
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), 0);
  EXPECT_EQ(yrp_client_register_notify_cb(notifier, sim_nas_client::on_event, &client), -13);
  EXPECT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, sim_nas_client::on_indication, &client, &signal, 100,
                                     &handle),
            -14);
  EXPECT_EQ(handle, nullptr);
  EXPECT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, sim_nas_client::on_indication, &client, &signal, 100,
                                     &handle),
            0);
  yrp_nas_sig_info_ind_t out = {};
  EXPECT_EQ(yrp_client_message_decode(handle, YRP_MSG_INDICATION, YRP_NAS_SIG_INFO_IND, "", 0, &out, sizeof out), -15);
  EXPECT_EQ(yrp_client_release(notifier), -16);
  EXPECT_EQ(yrp_client_release(notifier), 0);
  EXPECT_EQ(yrp_client_release(handle), 0);
}

TEST_F(sim_fault, the_service_list_may_fail_several_times_before_it_succeeds) {
  ASSERT_EQ(sim_board_load("[[fault]]\non = \"yrp.get_service_list\"\ntimes = 3\n"), "");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  yrp_client_type notifier = nullptr;
  ASSERT_EQ(yrp_client_notifier_init(service, &signal, &notifier), 0);
  unsigned int services = 0, failures = 0;
  while (yrp_client_get_service_list(service, nullptr, nullptr, &services) != 0) {
    failures++;
    yrp_cci_os_signal_wait(&signal, 0);
  }
  EXPECT_EQ(failures, 3U);
  EXPECT_EQ(yrp_client_release(notifier), 0);
}

TEST_F(sim_fault, the_diagnostic_service_can_refuse) {
  ASSERT_EQ(sim_board_load("[[fault]]\non = \"diag.Diag_LSM_Init\"\n[[fault]]\non = \"diag.Diag_LSM_DeInit\"\n"), "");
  EXPECT_EQ(Diag_LSM_Init(nullptr), 0);
  EXPECT_EQ(Diag_LSM_Init(nullptr), 1);
  EXPECT_EQ(Diag_LSM_DeInit(), 0);
  EXPECT_EQ(Diag_LSM_DeInit(), 1);
}

TEST_F(sim_fault, requests_that_are_none_fail_and_are_journaled) {
  board("");
  yrp_nas_sig_info_resp_t resp = {};
  yrp_nas_empty_req_t req = {};
  const auto send = [&](uint32_t id, unsigned int req_len, unsigned int resp_len) {
    return yrp_client_send_msg_sync(client.handle, id, &req, req_len, &resp, resp_len, 100);
  };
  EXPECT_EQ(send(9999, sizeof req, sizeof resp), YRP_UNKNOWN_MESSAGE_ERR);
  EXPECT_EQ(send(UINT32_MAX, sizeof req, sizeof resp), YRP_UNKNOWN_MESSAGE_ERR);
  EXPECT_EQ(send(YRP_NAS_GET_SIG_INFO, sizeof req + 1, sizeof resp), YRP_BUFFER_ERR);
  EXPECT_EQ(send(YRP_NAS_GET_SIG_INFO, sizeof req, sizeof resp - 1), YRP_BUFFER_ERR);
  EXPECT_EQ(yrp_client_send_msg_sync(nullptr, YRP_NAS_GET_SIG_INFO, &req, sizeof req, &resp, sizeof resp, 100),
            YRP_INVALID_PARAM_ERR);
  EXPECT_EQ(journaled({R"("dir": "request", "id": 79)"}), 3U);
  EXPECT_EQ(journaled({R"("dir": "request", "id": 9999, "name": "unknown")"}), 1U);
  EXPECT_EQ(journaled({R"("dir": "request", "id": 4294967295, "name": "unknown")"}), 1U);
  EXPECT_EQ(journaled({R"("dir": "response", "id": 4294967295, "name": "unknown")"}), 1U);
}

}  // namespace
