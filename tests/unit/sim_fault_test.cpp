/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Faults of the simulated board: every kind of crossing can fail, refuse, lose parts of its answer or take its time.
 */
#include <chrono>

#include "diag_service.h"
#include "sim_client.h"
#include "sim_core.h"

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
