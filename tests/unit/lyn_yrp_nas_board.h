/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A NAS client on a simulated board of the test's own, for the NAS client's tests: which board it is connected to, what
 * it logged, asked and posted. Posted events end here instead of on the command thread.
 *
 *   nas_connect(OX_LYN_REG_LTE_NR5G_E, "[lte]\nrrc_state = 3\n");
 *   EXPECT_EQ(lyn_yrp_nas_get_rrc_state(&rrc), 0);
 *   EXPECT_EQ(nas_requests(), (std::vector<int>{210, 210}));
 */
#ifndef LYN_YRP_NAS_BOARD_H
#define LYN_YRP_NAS_BOARD_H

#include <string.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "board.h"
#include "lyn_yrp_nas.h"
#include "post_capture.h"
#include "sim_message.h"

/** The events since the last call, once the board is at rest. */
inline std::vector<posted_event> nas_events() {
  EXPECT_TRUE(sim_board_wait_idle(5000));
  return post_take();
}

/** The same for events that the timeline still has to cause: at least `count` of them, or what came within 5 s. */
inline std::vector<posted_event> nas_wait_for_events(size_t count) {
  std::vector<posted_event> events;
  for (int i = 0; i < 500 && events.size() < count; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ranges::move(nas_events(), std::back_inserter(events));
  }
  return events;
}

/** Forget what was logged, asked and posted so far. */
inline void nas_forget() {
  (void)nas_events();
  board_forget();
}

/** A board at rest with `toml` behind it, not connected. */
inline void nas_board(const std::string &toml) {
  board_load(toml);
  nas_forget();
}

/** Connected to a board with this network status and `toml` behind it, the status known to the client. */
inline void nas_connect(uint32_t network_status, const std::string &toml = "") {
  (void)lyn_yrp_nas_release();
  nas_board(board_status(network_status) + toml);
  ASSERT_EQ(lyn_yrp_nas_init(), 0);
  lyn_nas_sys_info_t sys_info;
  ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 1), 0);
  ASSERT_EQ(sys_info.network_status, network_status);
  nas_forget();
}

/** Ids of the requests that reached the modem. */
inline std::vector<int> nas_requests() {
  std::vector<int> ids;
  for (const auto &entry : board_journal("nas", "request")) {
    ids.push_back(entry["id"]);
  }
  return ids;
}

/** Fields of the n-th of them. */
inline nlohmann::json nas_request_fields(size_t n) {
  return board_journal("nas", "request").at(n)["fields"];
}

/** Have the modem send an indication and wait until it has been handled. */
template <typename Record>
void nas_indicate(uint32_t id, const Record &record) {
  sim_indicate(sim_lib::nas, id, &record);
  EXPECT_TRUE(sim_board_wait_idle(5000));
}

/** Whether all octets of a record are zero. */
template <typename Record>
bool nas_all_zero(const Record &record) {
  const auto *bytes = reinterpret_cast<const uint8_t *>(&record);
  return std::all_of(bytes, bytes + sizeof(record), [](uint8_t byte) { return byte == 0; });
}

/** Disconnected after each test. */
struct lyn_yrp_nas : testing::Test {
  void TearDown() override {
    (void)lyn_yrp_nas_release();
    post_fail(0);
  }
};

#endif
