/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The client library of the simulated board: waiting for the service, handles, service events, release.
 */
#include <atomic>
#include <chrono>
#include <thread>

#include "sim_client.h"

namespace {

using sim_yrp = sim_board_test;

TEST_F(sim_yrp, only_the_known_interface_version_has_a_service_object) {
  ASSERT_EQ(sim_board_load(""), "");
  EXPECT_NE(nas_get_service_object_internal_v01(1, 388, 6), nullptr);
  EXPECT_NE(nas_get_service_object_internal_v01(1, 300, 6), nullptr);
  EXPECT_EQ(nas_get_service_object_internal_v01(2, 388, 6), nullptr);
  EXPECT_EQ(nas_get_service_object_internal_v01(1, 389, 6), nullptr);
  EXPECT_EQ(nas_get_service_object_internal_v01(1, 388, 5), nullptr);
}

TEST_F(sim_yrp, the_service_list_has_one_service_and_respects_the_array) {
  board("");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  unsigned int services = 0, entries = 4;
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), 0);
  EXPECT_EQ(services, 1U);
  yrp_service_info list[4] = {};
  EXPECT_EQ(yrp_client_get_service_list(service, list, &entries, &services), 0);
  EXPECT_EQ(entries, 1U);
  EXPECT_NE(list[0].service_id, 0U);
  entries = 0;
  list[0] = {};
  EXPECT_EQ(yrp_client_get_service_list(service, list, &entries, &services), 0);
  EXPECT_EQ(list[0].service_id, 0U);
}

TEST_F(sim_yrp, a_service_that_comes_later_gives_the_signal) {
  ASSERT_EQ(sim_board_load("[nas]\navailable_after_ms = 40\n"), "");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  ASSERT_EQ(yrp_client_notifier_init(service, &signal, &client.notifier), 0);
  unsigned int services = 0;
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), YRP_SERVICE_ERR);
  yrp_cci_os_signal_wait(&signal, 0);
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), 0);
  EXPECT_EQ(yrp_client_release(client.notifier), 0);
}

TEST_F(sim_yrp, a_service_that_is_never_offered_gives_none) {
  ASSERT_EQ(sim_board_load("[nas]\navailable = false\n"), "");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  yrp_client_type handle = nullptr;
  ASSERT_EQ(yrp_client_notifier_init(service, &signal, &client.notifier), 0);
  yrp_cci_os_signal_wait(&signal, 30);
  EXPECT_EQ(signal.timed_out, 1U);
  unsigned int services = 0;
  EXPECT_EQ(yrp_client_get_service_list(service, nullptr, nullptr, &services), YRP_SERVICE_ERR);
  EXPECT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, nullptr, nullptr, &signal, 10, &handle),
            YRP_TIMEOUT_ERR);
  EXPECT_EQ(yrp_client_release(client.notifier), 0);
}

TEST_F(sim_yrp, a_handle_is_released_once) {
  board("");
  const yrp_client_type handle = client.handle;
  client.release();
  EXPECT_EQ(yrp_client_release(handle), YRP_INVALID_PARAM_ERR);
  EXPECT_EQ(yrp_client_release(nullptr), YRP_INVALID_PARAM_ERR);
  client.connect();
  EXPECT_NE(client.handle, handle);
}

TEST_F(sim_yrp, while_the_modem_is_down_requests_fail_and_registrations_survive) {
  board(
      "[board]\nnoise_db = 0\n"
      "[[at]]\nafter = \"nas.77\"\nms = 0\nmodem = \"down\"\n"
      "[[at]]\nafter = \"nas.77\"\nskip = 1\nms = 0\nmodem = \"up\"\n"
      "[[at]]\nafter = \"nas.77\"\nskip = 1\nms = 0\nsys_info = { lte = \"limited\" }\n");
  client.register_all();
  yrp_nas_sys_info_resp_t resp = {};
  EXPECT_EQ(client.send(YRP_NAS_GET_SYS_INFO, yrp_nas_empty_req_t{}, resp), 0);
  ASSERT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(client.send(YRP_NAS_GET_SYS_INFO, yrp_nas_empty_req_t{}, resp), -1);
  ASSERT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(client.send(YRP_NAS_GET_SYS_INFO, yrp_nas_empty_req_t{}, resp), 0);
  EXPECT_EQ(resp.lte_srv_status_info.srv_status, uint32_t{YRP_NAS_SRV_LIMITED});
  EXPECT_EQ(client.events, (std::vector<int32_t>{YRP_SERVICE_DOWN, YRP_SERVICE_UP}));
  EXPECT_EQ(client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND).size(), 1U);
  EXPECT_EQ(journaled({R"("lib": "yrp", "dir": "event", "name": "service_event", "fields": {"event": 1}})"}), 1U);
}

std::atomic<int> calls;
std::atomic<bool> inside;

void slow_callback(yrp_client_type, unsigned int, void *, unsigned int, void *) {
  inside = true;
  calls++;
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  inside = false;
}

TEST_F(sim_yrp, after_release_no_callback_runs_any_more) {
  ASSERT_EQ(sim_board_load(""), "");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  yrp_client_type handle = nullptr;
  ASSERT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, slow_callback, nullptr, &signal, 100, &handle), 0);
  for (int i = 0; i < 5; i++) {
    sim_board_post("nas", YRP_NAS_SIG_INFO_IND, {});
  }
  while (!inside) {
    std::this_thread::yield();
  }
  EXPECT_EQ(yrp_client_release(handle), 0);
  EXPECT_FALSE(inside);
  const int before = calls;
  EXPECT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(calls, before);
}

int32_t released_inside = 1;

void releasing_callback(yrp_client_type handle, unsigned int, void *, unsigned int, void *) {
  released_inside = yrp_client_release(handle);
}

TEST_F(sim_yrp, a_client_may_release_itself_in_its_callback) {
  ASSERT_EQ(sim_board_load(""), "");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  yrp_client_type handle = nullptr;
  ASSERT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, releasing_callback, nullptr, &signal, 100, &handle), 0);
  sim_board_post("nas", YRP_NAS_SIG_INFO_IND, {});
  EXPECT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(released_inside, 0);
  EXPECT_EQ(yrp_client_release(handle), YRP_INVALID_PARAM_ERR);
}

void throwing_callback(yrp_client_type, unsigned int, void *, unsigned int, void *) {
  throw 1;
}

TEST_F(sim_yrp, a_callback_that_throws_does_not_end_the_board) {
  board("");
  const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
  yrp_client_os_params signal = {};
  yrp_client_type handle = nullptr;
  ASSERT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, throwing_callback, nullptr, &signal, 100, &handle), 0);
  sim_board_post("nas", YRP_NAS_SIG_INFO_IND, {});
  EXPECT_TRUE(sim_board_wait_idle(1000));
  EXPECT_EQ(yrp_client_release(handle), 0);
  EXPECT_EQ(journaled({"callback_threw"}), 1U);
}

TEST_F(sim_yrp, a_restart_drops_what_is_queued_and_registered) {
  board("[[at]]\nms = 60000\nsys_info = { lte = \"limited\" }\n");
  client.register_all();
  yrp_nas_set_lte_cell_lock_list_req_t req = {};
  req.lte_cell_list_len = 1;
  client.command(YRP_NAS_SET_LTE_CELL_LOCK_LIST, req);
  sim_board_restart();
  EXPECT_EQ(client.query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST).lte_cell_list_len, 0U);
  EXPECT_TRUE(sim_board_wait_idle(1000));
  EXPECT_TRUE(client.indications<yrp_nas_sys_info_ind_t>(YRP_NAS_SYS_INFO_IND).empty());
}

}  // namespace
