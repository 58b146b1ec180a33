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

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "diag_log.h"
#include "lyn_event.h"
#include "lyn_yrp_nas.h"
#include "sim_board.h"
#include "sim_message.h"

struct nas_free {
  void operator()(void *block) const { free(block); }
};

struct nas_event {
  uint32_t id = 0;
  std::unique_ptr<void, nas_free> data;

  template <typename Record>
  const Record &as() const {
    return *static_cast<const Record *>(data.get());
  }
};

inline std::mutex nas_posted_lock;
inline std::vector<nas_event> nas_posted;
inline int32_t nas_post_result = 0;

/* Takes the place of the module's own: these programs do not link event delivery. */
int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data) {
  const std::lock_guard<std::mutex> guard(nas_posted_lock);
  nas_event event;
  event.id = yrp_msg_id;
  event.data.reset(yrp_msg_data);
  nas_posted.push_back(std::move(event));
  return nas_post_result;
}

/** The events since the last call, once the board is at rest. */
inline std::vector<nas_event> nas_events() {
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const std::lock_guard<std::mutex> guard(nas_posted_lock);
  return std::exchange(nas_posted, {});
}

/** The same for events that the timeline still has to cause: at least `count` of them, or what came within 5 s. */
inline std::vector<nas_event> nas_wait_for_events(size_t count) {
  std::vector<nas_event> events;
  for (int i = 0; i < 500 && events.size() < count; i++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    std::ranges::move(nas_events(), std::back_inserter(events));
  }
  return events;
}

/** Forget what was logged, asked and posted so far. */
inline void nas_forget() {
  (void)nas_events();
  diag_log_take();
  sim_board_journal_keep(true);
}

/** A board at rest with `toml` behind it, not connected. */
inline void nas_board(const std::string &toml) {
  const std::string problem = sim_board_load("[board]\nnoise_db = 0\n" + toml);
  ASSERT_EQ(problem, "");
  nas_forget();
}

/** The [sys_info] table of a board with this network status. */
inline std::string nas_sys_info(uint32_t network_status) {
  static const std::map<uint32_t, std::string> tables = {
      {OX_LYN_REG_NO_SERVICE_E, "lte = \"no_service\"\n"},
      {OX_LYN_REG_POWER_SAVE_E, "lte = \"power_save\"\n"},
      {OX_LYN_REG_LIMITED_E, "lte = \"limited\"\n"},
      {OX_LYN_REG_LIMITED_REGIONAL_E, "lte = \"limited_regional\"\n"},
      {OX_LYN_REG_LTE_E, "lte = \"service\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_LTE_NR5G_E, "lte = \"service\"\nnr5g_pci = 500\n"},
      {OX_LYN_REG_NR5G_E, "lte = \"absent\"\nnr5g = \"service\"\n"}};
  return "[sys_info]\n" + tables.at(network_status);
}

/** Connected to a board with this network status and `toml` behind it, the status known to the client. */
inline void nas_connect(uint32_t network_status, const std::string &toml = "") {
  (void)lyn_yrp_nas_release();
  nas_board(nas_sys_info(network_status) + toml);
  ASSERT_EQ(lyn_yrp_nas_init(), 0);
  lyn_nas_sys_info_t sys_info;
  ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 1), 0);
  ASSERT_EQ(sys_info.network_status, network_status);
  nas_forget();
}

/** The journal's entries of one direction since the last nas_forget. */
inline std::vector<nlohmann::json> nas_journal(const std::string &lib, const std::string &dir) {
  std::vector<nlohmann::json> entries;
  for (const std::string &line : sim_board_journal()) {
    const auto entry = nlohmann::json::parse(line);
    if (entry["lib"] == lib && entry["dir"] == dir) {
      entries.push_back(entry);
    }
  }
  return entries;
}

/** Ids of the requests that reached the modem. */
inline std::vector<int> nas_requests() {
  std::vector<int> ids;
  for (const auto &entry : nas_journal("nas", "request")) {
    ids.push_back(entry["id"]);
  }
  return ids;
}

/** Fields of the n-th of them. */
inline nlohmann::json nas_request_fields(size_t n) {
  return nas_journal("nas", "request").at(n)["fields"];
}

/** Records as "HIGH text" and "ERROR text". */
inline std::vector<std::string> nas_log() {
  std::vector<std::string> lines;
  for (const auto &record : diag_log_take()) {
    lines.push_back(record.level + " " + record.text);
  }
  return lines;
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
    nas_post_result = 0;
  }
};

#endif
