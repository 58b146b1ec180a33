/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Event delivery: what each posted event becomes, what subscriptions let through, which repeats are suppressed, in
 * which order, and what posting says. How the neighbour scan, the throughput test and locations go on is tested with
 * the calls that start them.
 */
#include <atomic>
#include <thread>

#include "board.h"
#include "lyn_interface.h"
#include "lyn_interface_event.h"

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

struct lyn_interface_event : board_test {
  void SetUp() override { board.start(board_no_service); }
};

struct lyn_interface_event_down : testing::Test {};

yrp_nas_sig_info_ind_t lte_signal(int16_t rsrp, int8_t rsrq, int16_t snr) {
  yrp_nas_sig_info_ind_t ind = {};
  ind.lte_sig_info_valid = 1;
  ind.lte_sig_info = {rsrp, snr, rsrq};
  return ind;
}

yrp_nas_sig_info_ind_t full_signal(int16_t rsrp, int16_t rsrq, int16_t snr) {
  yrp_nas_sig_info_ind_t ind = lte_signal(rsrp, static_cast<int8_t>(rsrq), snr);
  ind.nr5g_sig_info_valid = 1;
  ind.nr5g_sig_info = {static_cast<int16_t>(rsrp - 1), static_cast<int16_t>(snr - 1)};
  ind.nr5g_rsrq_valid = 1;
  ind.nr5g_rsrq = static_cast<int16_t>(rsrq - 1);
  return ind;
}

std::vector<std::string> texts_of(const std::string &level, const std::string &file) {
  std::vector<std::string> texts;
  for (const diag_log_record &record : diag_log_take()) {
    if (record.level == level && record.file == file) {
      texts.push_back(record.text);
    }
  }
  return texts;
}

std::vector<std::string> event_texts() {
  return texts_of("HIGH", "lyn_interface_event.cpp");
}

/* Modem and registration */

TEST_F(lyn_interface_event, modem_up_and_down_are_delivered_while_subscribed) {
  EXPECT_THAT(board.deliver<uint8_t>(LYN_EVENT_MODEM_UP, 1), IsEmpty());
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), 0);
  EXPECT_THAT(board.deliver<uint8_t>(LYN_EVENT_MODEM_UP, 1), ElementsAre(number(1, 9, OX_LYN_VALUE_UINT32_E)));
  EXPECT_THAT(board.deliver<uint8_t>(LYN_EVENT_MODEM_DOWN, 1), ElementsAre(number(1, 8, OX_LYN_VALUE_UINT32_E)));
  uint32_t all[] = {OX_LYN_IND_MODEM_STATUS_E};
  EXPECT_EQ(ox_lyn_clear_ind_list(board.hndl, all, 1), 0);
  EXPECT_THAT(board.deliver<uint8_t>(LYN_EVENT_MODEM_DOWN, 1), IsEmpty());
}

TEST_F(lyn_interface_event, the_registration_status_is_delivered_while_subscribed) {
  EXPECT_THAT(board.deliver<uint32_t>(LYN_EVENT_SYS_INFO, 5), IsEmpty());
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  EXPECT_THAT(board.deliver<uint32_t>(LYN_EVENT_SYS_INFO, 5), ElementsAre(number(2, 5, OX_LYN_VALUE_UINT32_E)));
  EXPECT_THAT(board.deliver<uint32_t>(LYN_EVENT_SYS_INFO, 0xFFFFFFFF),
              ElementsAre(number(2, 0xFFFFFFFF, OX_LYN_VALUE_UINT32_E)));
}

/* Signal */

TEST_F(lyn_interface_event, six_signal_values_are_delivered_lte_first) {
  board.subscribe_all();
  EXPECT_THAT(
      board.deliver(LYN_EVENT_SIG_INFO, full_signal(-90, -11, 130)),
      ElementsAre(number(3, -90), number(5, -11), number(7, 130), number(4, -91), number(6, -12), number(8, 129)));
}

TEST_F(lyn_interface_event, a_repeated_value_is_not_delivered_again) {
  board.subscribe_all();
  EXPECT_EQ(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -11, 130)).size(), 3U);
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -11, 130)), IsEmpty());
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -12, 130)), ElementsAre(number(5, -12)));
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-91, -11, 130)),
              ElementsAre(number(3, -91), number(5, -11)));
}

TEST_F(lyn_interface_event, thresholds_are_the_modems_business) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 20), 0);
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -11, 130)), ElementsAre(number(3, -90)));
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-91, -11, 130)), ElementsAre(number(3, -91)));
}

TEST_F(lyn_interface_event, parts_that_are_not_valid_are_not_delivered) {
  board.subscribe_all();
  yrp_nas_sig_info_ind_t ind = full_signal(-90, -11, 130);
  ind.lte_sig_info_valid = 0;
  ind.nr5g_rsrq_valid = 0;
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, ind), ElementsAre(number(4, -91), number(8, 129)));
  ind.nr5g_rsrq_valid = 1;
  ind.nr5g_sig_info_valid = 0;
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, ind), ElementsAre(number(6, -12)));
}

TEST_F(lyn_interface_event, a_first_value_of_0_is_deliberately_not_delivered) {
  board.subscribe_all();
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(0, 0, 0)), IsEmpty());
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(0, 0, 5)), ElementsAre(number(7, 5)));
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(0, 0, 0)), ElementsAre(number(7, 0)));
}

TEST_F(lyn_interface_event, subscribing_again_makes_the_same_value_new) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 1), 0);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRQ_E, 1), 0);
  EXPECT_EQ(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -11, 130)).size(), 2U);
  EXPECT_EQ(board.subscribe(OX_LYN_IND_LTE_RSRP_E, 1), 0);
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(-90, -11, 130)), ElementsAre(number(3, -90)));
}

TEST_F(lyn_interface_event, extreme_values_are_sign_extended) {
  board.subscribe_all();
  EXPECT_THAT(board.deliver(LYN_EVENT_SIG_INFO, lte_signal(INT16_MIN, INT8_MIN, INT16_MAX)),
              ElementsAre(number(3, -32768), number(5, -128), number(7, 32767)));
}

/* Blocks; delivered without subscription */

TEST_F(lyn_interface_event, a_qos_flow_is_delivered_as_a_copy) {
  const ox_lyn_qos_flow_t flow = {5, 7, 6};
  const auto got = board.deliver(LYN_EVENT_QOS_FLOW, flow);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].record_type, OX_LYN_RECORD_IND_E);
  EXPECT_EQ(got[0].id, OX_LYN_IND_QOS_FLOW_E);
  EXPECT_EQ(got[0].value_type, OX_LYN_VALUE_INT64_E);
  EXPECT_EQ(memcmp(got[0].block.data(), &flow, sizeof flow), 0);
}

TEST_F(lyn_interface_event, a_panel_position_is_delivered_with_its_mode_translated) {
  const uint32_t modes[][2] = {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 0}, {0xFFFFFFFF, 0}};
  for (const auto &[from, to] : modes) {
    const auto got = board.deliver(LYN_EVENT_PPS, yrp_nas_pps_ind_t{2, 1, from});
    ASSERT_EQ(got.size(), 1U);
    EXPECT_EQ(got[0].id, OX_LYN_IND_PPS_CHANGE_E);
    EXPECT_EQ(got[0].value_type, OX_LYN_VALUE_INT64_E);
    EXPECT_EQ(got[0].as<ox_lyn_pps_ind_t>().position_index, 2);
    EXPECT_EQ(got[0].as<ox_lyn_pps_ind_t>().mode, to);
  }
  const auto texts = event_texts();
  ASSERT_GE(texts.size(), 3U);
  EXPECT_EQ(texts[0], "pps position index  2\\n");
  EXPECT_EQ(texts[1], "pps is position changed  1\\n");
  EXPECT_EQ(texts[2], "pps mode  1\\n");
}

TEST_F(lyn_interface_event, an_install_measurement_is_delivered_with_its_spacing_translated) {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_len = 7; /* the flag is 0: delivered all the same */
  for (uint32_t i = 0; i < 7; i++) {
    ind.freqs[i] = {2079167 + i, 261, i, static_cast<int16_t>(-88 - static_cast<int>(i)), 12};
  }
  const auto got = board.deliver(LYN_EVENT_INSTALL_FREQ, ind);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].id, OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E);
  const auto list = got[0].as<ox_lyn_install_freq_list_t>();
  ASSERT_EQ(list.count, 7);
  const int32_t spacings[] = {1, 2, 3, 4, 5, -1, -1};
  for (uint32_t i = 0; i < 7; i++) {
    EXPECT_EQ(list.entries[i].arfcn, 2079167 + i);
    EXPECT_EQ(list.entries[i].band, 261U);
    EXPECT_EQ(static_cast<int32_t>(list.entries[i].scs), spacings[i]);
    EXPECT_EQ(list.entries[i].rsrp, -88 - static_cast<int>(i));
    EXPECT_EQ(list.entries[i].snr, 12);
  }
}

TEST_F(lyn_interface_event, each_entry_of_an_install_measurement_is_logged) {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_len = 1;
  ind.freqs[0] = {2079167, 261, 3, -88, 12};
  EXPECT_EQ(board.deliver(LYN_EVENT_INSTALL_FREQ, ind).size(), 1U);
  const auto texts = event_texts();
  ASSERT_GE(texts.size(), 6U);
  EXPECT_EQ(
      (std::vector<std::string>(texts.begin(), texts.begin() + 6)),
      (std::vector<std::string>{"Install mode frequency info length 1\\n", "Install mode frequency info rsrp -88\\n",
                                "Install mode frequency info snr 12\\n", "Install mode frequency info arfcn 2079167\\n",
                                "Install mode frequency info scs 4\\n", "Install mode frequency info band 261\\n"}));
}

TEST_F(lyn_interface_event, an_install_measurement_above_its_capacity_is_cut) {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_len = 70000;
  const auto got = board.deliver(LYN_EVENT_INSTALL_FREQ, ind);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].as<ox_lyn_install_freq_list_t>().count, 16);
}

TEST_F(lyn_interface_event, an_install_status_is_delivered_and_logged_with_its_misspelling) {
  EXPECT_THAT(board.deliver(LYN_EVENT_INSTALL_STATUS, yrp_nas_install_status_ind_t{0, 0x80000001}),
              ElementsAre(number(OX_LYN_IND_INSTALL_MODE_STATUS_E, 0x80000001)));
  EXPECT_THAT(event_texts(), Contains("Recevied install mode status -2147483647\\n"));
}

TEST_F(lyn_interface_event, a_single_shot_result_is_delivered_and_ends_the_request) {
  ox_lyn_loc_single_shot_t shot = {};
  shot.kind = 1;
  shot.response = 3;
  shot.location.latitude = 51.5;
  lyn_state.single_shot_ongoing = 1;
  const auto got = board.deliver(LYN_EVENT_LOC_SINGLE_SHOT, shot);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].record_type, OX_LYN_RECORD_ASYNC_E);
  EXPECT_EQ(got[0].id, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E);
  EXPECT_EQ(got[0].value_type, OX_LYN_VALUE_LOCATION_E);
  EXPECT_EQ(got[0].as<ox_lyn_loc_single_shot_t>().response, 3U);
  EXPECT_EQ(got[0].as<ox_lyn_loc_single_shot_t>().location.latitude, 51.5);
  EXPECT_EQ(lyn_state.single_shot_ongoing, 0);
}

TEST_F(lyn_interface_event, a_batch_is_delivered_with_locations_of_its_own) {
  ox_lyn_loc_batch_t batch = {};
  batch.status = 1;
  batch.response = 2;
  batch.count = 2;
  batch.locations = static_cast<ox_lyn_location_t *>(calloc(2, sizeof(ox_lyn_location_t)));
  batch.locations[1].latitude = -8.5;
  const auto got = board.deliver(LYN_EVENT_LOC_BATCH, batch);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].id, OX_LYN_ASYNC_LOC_BATCH_E);
  EXPECT_EQ(got[0].value_type, OX_LYN_VALUE_LOCATION_E);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().status, 1);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().response, 2);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().count, 2);
  ASSERT_EQ(got[0].locations.size(), 2 * sizeof(ox_lyn_location_t));
  ox_lyn_location_t second;
  memcpy(&second, got[0].locations.data() + sizeof second, sizeof second);
  EXPECT_EQ(second.latitude, -8.5);
}

TEST_F(lyn_interface_event, a_batch_of_another_status_has_no_locations) {
  ox_lyn_loc_batch_t batch = {};
  batch.status = 2;
  batch.response = 1;
  batch.count = 1;
  batch.locations = static_cast<ox_lyn_location_t *>(calloc(1, sizeof(ox_lyn_location_t)));
  const auto got = board.deliver(LYN_EVENT_LOC_BATCH, batch);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().locations, nullptr);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().count, 0);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().response, 1);
}

TEST_F(lyn_interface_event, a_batch_without_locations_has_an_array_all_the_same) {
  ox_lyn_loc_batch_t batch = {};
  batch.status = 1;
  const auto got = board.deliver(LYN_EVENT_LOC_BATCH, batch);
  ASSERT_EQ(got.size(), 1U);
  EXPECT_NE(got[0].as<ox_lyn_loc_batch_t>().locations, nullptr);
  EXPECT_EQ(got[0].as<ox_lyn_loc_batch_t>().count, 0);
}

TEST_F(lyn_interface_event, nothing_can_be_freed) {
  lyn_free_event_data(LYN_EVENT_LOC_BATCH, nullptr);
  lyn_free_async_event(nullptr, nullptr);
  EXPECT_THAT(diag_log_lines(), IsEmpty());
}

TEST_F(lyn_interface_event, an_unknown_event_is_logged_and_freed) {
  EXPECT_THAT(board.deliver<uint32_t>(79, 1), IsEmpty());
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Processing of NAS message ID [79] - not supported!!"));
}

TEST_F(lyn_interface_event, a_command_without_data_is_refused) {
  lyn_cmd cmd = {};
  yrp_async_data no_block = {.msg_id = LYN_EVENT_SYS_INFO, .msg_data = nullptr};
  lyn_process_async_event(nullptr, &no_block);
  lyn_process_async_event(&cmd, nullptr);
  lyn_process_async_event(&cmd, &no_block);
  const auto errors = diag_log_texts("ERROR");
  ASSERT_EQ(errors.size(), 3U);
  EXPECT_EQ(errors[0].rfind("Invalid params - cmd[(nil)], yrp_async_data[0x", 0), 0U) << errors[0];
  EXPECT_NE(errors[1].find("], yrp_async_data[(nil)]"), std::string::npos) << errors[1];
  EXPECT_EQ(errors[2].rfind("Invalid params - cmd[0x", 0), 0U) << errors[2];
}

/* Order */

TEST_F(lyn_interface_event, each_producers_events_are_delivered_in_its_order) {
  constexpr uint32_t producers = 4, each = 2000;
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  std::vector<std::thread> threads;
  for (uint32_t producer = 0; producer < producers; producer++) {
    threads.emplace_back([producer] {
      for (uint32_t i = 0; i < each; i++) {
        EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, posted_copy(producer * each + i)), OX_LYN_SUCCESS);
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  uint32_t next[producers] = {};
  for (const delivered &one : board.settled()) {
    const uint32_t value = static_cast<uint32_t>(one.value);
    ASSERT_EQ(value % each, next[value / each]++);
  }
  EXPECT_THAT(next, testing::Each(each));
}

TEST_F(lyn_interface_event, commands_between_events_are_run_between_them) {
  EXPECT_EQ(board.subscribe(OX_LYN_IND_REG_STATUS_E), 0);
  static std::vector<size_t> delivered_before;
  delivered_before.clear();
  lyn_cmd note = {.execute_f = [](lyn_cmd *, void *) { delivered_before.push_back(board.take(0).size()); },
                  .free_f = nullptr,
                  .data = nullptr};
  {
    const held_delivery held;
    for (uint32_t status = 1; status <= 3; status++) {
      EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, posted_copy(status)), OX_LYN_SUCCESS);
      EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, posted_copy(status)), OX_LYN_SUCCESS);
      EXPECT_EQ(lyn_cmdq_enq(&lyn_state.cmdq, &note), 0);
    }
    EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, posted_copy(uint32_t{4})), OX_LYN_SUCCESS);
  }
  EXPECT_THAT(board.settled(), ElementsAre(number(OX_LYN_IND_REG_STATUS_E, 4, OX_LYN_VALUE_UINT32_E)));
  EXPECT_THAT(delivered_before, ElementsAre(2U, 2U, 2U));
}

TEST_F(lyn_interface_event, events_of_the_board_come_in_its_order) {
  board.stop();
  board.start(
      "[[at]]\nafter = 'nas.108'\nms = 5\nsys_info = { lte = 'limited' }\n"
      "[[at]]\nafter = 'nas.108'\nms = 5\ninstall_status = 3\n"
      "[[at]]\nafter = 'nas.108'\nms = 5\nmodem = 'down'\n"
      "[[at]]\nafter = 'nas.108'\nms = 5\nmodem = 'up'\n"
      "[[at]]\nafter = 'nas.108'\nms = 5\nsys_info = { lte = 'service', nr5g_pci = -1 }\n"
      "[[at]]\nafter = 'nas.108'\nms = 5\ninstall_status = 4\n");
  lyn_state.ind_table.reg_status = 1; /* so that one message 108 starts the timeline */
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), 0);
  std::vector<delivered> got;
  for (int i = 0; i < 500 && (got.empty() || got.back() != number(12, 4)); i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (const delivered &one : board.settled()) {
      got.push_back(one);
    }
  }
  EXPECT_THAT(got, ElementsAre(number(2, 3, 4), number(12, 3), number(1, 8, 4), number(1, 9, 4), number(2, 5, 4),
                               number(12, 4)));
}

TEST_F(lyn_interface_event, after_a_modem_restart_nothing_is_registered_again) {
  board.stop();
  board.start("[[at]]\nms = 5\nafter = 'nas.108'\nmodem = 'down'\n[[at]]\nms = 10\nafter = 'nas.108'\nmodem = 'up'\n");
  EXPECT_EQ(board.subscribe(OX_LYN_IND_MODEM_STATUS_E), 0);
  std::vector<delivered> got;
  for (int i = 0; i < 500 && got.size() < 2; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    for (const delivered &one : board.settled()) {
      got.push_back(one);
    }
  }
  EXPECT_THAT(got, ElementsAre(number(1, 8, 4), number(1, 9, 4)));
  size_t registrations = 0;
  for (const std::string &line : sim_board_journal()) {
    registrations += line.find(R"("dir": "request", "id": 3,)") != std::string::npos;
  }
  EXPECT_EQ(registrations, 2U); /* at the start, and by the subscription */
}

/* Posting */

TEST_F(lyn_interface_event, posting_nothing_is_refused) {
  EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, nullptr), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Invalid params - yrp_msg_id[78], yrp_msg_data[(nil)]"));
}

TEST_F(lyn_interface_event_down, posting_to_a_module_that_is_down_is_refused_and_the_block_freed) {
  diag_log_take();
  ox_lyn_loc_batch_t batch = {};
  batch.locations = static_cast<ox_lyn_location_t *>(calloc(1, sizeof(ox_lyn_location_t)));
  EXPECT_EQ(lyn_post_async_event(LYN_EVENT_SYS_INFO, posted_copy<uint32_t>(5)), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(lyn_post_async_event(LYN_EVENT_LOC_BATCH, posted_copy(batch)), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Device Manager module is not initialized!!", "Device Manager module is not initialized!!"));
}

TEST_F(lyn_interface_event_down, events_before_the_end_of_the_start_are_refused) {
  /* The first registration is slow, and indications come meanwhile: raw ones need no registration. */
  ASSERT_EQ(sim_board_load("[[at]]\nms = 0\nraw = { lib = 'nas', id = 335, bytes = '' }\nrepeat = 3\n"
                           "[[fault]]\non = 'nas.3'\ndelay_ms = 300\n"),
            "");
  diag_log_take();
  std::atomic<int> calls{0};
  static std::atomic<int> *counted;
  counted = &calls;
  ox_lyn_hndl_t hndl = 0;
  ASSERT_EQ(ox_lyn_init(&hndl, 0,
                        [](ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
                          (void)take_delivered(info);
                          ++*counted;
                        }),
            OX_LYN_SUCCESS);
  EXPECT_THAT(diag_log_texts("ERROR"),
              testing::AllOf(testing::SizeIs(3), testing::Each("Device Manager module is not initialized!!")));
  EXPECT_TRUE(sim_board_wait_idle(5000));
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  EXPECT_EQ(calls, 0);
}

TEST_F(lyn_interface_event_down, an_event_that_runs_on_a_module_that_is_down_is_dropped) {
  diag_log_take();
  lyn_cmd cmd = {};
  uint32_t status = 5;
  yrp_async_data event = {.msg_id = LYN_EVENT_SYS_INFO, .msg_data = &status};
  lyn_process_async_event(&cmd, &event);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Device Manager module is not initialized!!"));
}

}  // namespace
