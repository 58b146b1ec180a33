/*
 * The module on a simulated board, driven through its API as an application does that uses location and the mobile AP.
 * What the callback delivers is kept as one line of text each; fixes also as they are, to their last digit.
 *
 *   mobile.start("[location]\nfix_ms = 5\n");
 *   EXPECT_EQ(mobile.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &shot), OX_LYN_SUCCESS);
 *   EXPECT_EQ(mobile.take(1), lines({"shot kind 0 response 0 at 51.897463 -8.480187"}));
 *   mobile.stop();
 */
#ifndef MOBILE_BOARD_H
#define MOBILE_BOARD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "diag_log.h"
#include "ox_lyn.h"
#include "sim_board.h"

using lines = std::vector<std::string>;

/** Texts and numbers in one text; a double has the fewest digits that tell it from every other. */
template <typename... Part>
std::string mobile_text(const Part &...parts) {
  std::string text;
  const auto append = [&text](const auto &part) {
    if constexpr (std::is_arithmetic_v<std::remove_cvref_t<decltype(part)>>) {
      char digits[64];
      text.append(digits, std::to_chars(digits, digits + sizeof digits, part).ptr);
    } else {
      text += part;
    }
  };
  (append(parts), ...);
  return text;
}

struct mobile_free {
  void operator()(void *block) const { free(block); }
};

/** A block that a metric gave to its caller. */
template <typename Block>
using mobile_block = std::unique_ptr<Block, mobile_free>;

/** Logged once the receiver has told its capabilities. */
inline constexpr char mobile_capable[] =
    "onCapabilitiesCb: mask string=SINGLE_SHOT TIME_BASED_BATCHING DISTANCE_BASED_BATCHING capability flag is 1";

inline std::string mobile_throughput_line(const ox_lyn_mtpe_status_t &of) {
  return mobile_text("throughput type ", of.test_type, " reason ", of.failure_reason, " status ", of.test_status,
                     " rate ", of.peak_rate);
}

inline std::string mobile_flow_line(const ox_lyn_qos_flow_t &of) {
  return mobile_text("flow bearer ", of.bearer_id, " tx ", of.tx_5g_qci, " rx ", of.rx_5g_qci);
}

inline std::string mobile_shot_line(const ox_lyn_loc_single_shot_t &of) {
  return mobile_text("shot kind ", of.kind, " response ", of.response, " at ", of.location.latitude, " ",
                     of.location.longitude);
}

inline std::string mobile_batch_line(const ox_lyn_loc_batch_t &of) {
  return mobile_text("batch status ", of.status, " response ", of.response, " of ", of.count,
                     of.locations != nullptr ? "" : " without array");
}

struct mobile_board {
  ox_lyn_hndl_t hndl = 0;
  std::mutex lock;
  std::condition_variable changed;
  lines events;
  std::vector<ox_lyn_location_t> fixes; /**< of shots and batches since the start; with the lock while events come */

  /** Bring the module up on a quiet board; its receiver has told its capabilities where it has any. */
  void start(const std::string &toml = "");

  void stop() {
    EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    sim_board_journal_keep(false);
  }

  /** As the user: take note of an event and free all of it. */
  void on_event(ox_lyn_dm_info_t *info) {
    const mobile_block<ox_lyn_dm_info_t> record(info);
    const mobile_block<void> payload(info->value.ptr);
    const std::lock_guard guard(lock);
    events.push_back(line_of(*info));
    changed.notify_all();
  }

  /** `count` events, or what there is of them after a minute. They are forgotten here. */
  lines take(size_t count) {
    std::unique_lock guard(lock);
    EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [&] { return events.size() >= count; }));
    return std::exchange(events, {});
  }

  /** The last fix delivered, or zeros. */
  ox_lyn_location_t last_fix() {
    const std::lock_guard guard(lock);
    return fixes.empty() ? ox_lyn_location_t{} : fixes.back();
  }

  /** What has come once everything due by now is delivered. What is due later is not waited for. */
  lines settled() {
    EXPECT_TRUE(sim_board_wait_idle(60000));
    sim_board_post("oxmap", 258, qos_flow_bytes);
    std::unique_lock guard(lock);
    EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(60),
                                 [&] { return !events.empty() && events.back() == "flow bearer 255 tx 1 rx 2"; }));
    events.pop_back();
    return std::exchange(events, {});
  }

  /** The next events are exactly these, and nothing else is due behind them. */
  void expect(const lines &wanted) {
    EXPECT_EQ(take(wanted.size()), wanted);
    EXPECT_EQ(settled(), lines());
  }

  ox_lyn_dm_info_t record_of(uint32_t metric, const void *ptr = nullptr) const {
    ox_lyn_dm_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.metric = metric;
    info.value.ptr = const_cast<void *>(ptr);  // the record has no room for const; the module only reads it
    return info;
  }

  int32_t get(uint32_t metric, const void *ptr = nullptr) const {
    ox_lyn_dm_info_t info = record_of(metric, ptr);
    return ox_lyn_get_info(hndl, &info);
  }

  int32_t get_list(uint32_t metric, const void *ptr = nullptr) const {
    ox_lyn_dm_info_t info = record_of(metric, ptr);
    return ox_lyn_get_info_list(hndl, &info, 1);
  }

  int32_t set(uint32_t control) const {
    ox_lyn_dm_ctrl_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.control = control;
    return ox_lyn_set_info(hndl, &info);
  }

  /** What the module called of one library, with what it passed: "StartMTPE {}". */
  static lines calls(const std::string &lib, const std::string &name = "") {
    lines made;
    for (const std::string &line : sim_board_journal()) {
      const auto row = nlohmann::ordered_json::parse(line);
      if (row["lib"] == lib && row["dir"] == "call" && (name.empty() || row["name"] == name))
        made.push_back(row["name"].get<std::string>() + " " + row["fields"].dump());
    }
    return made;
  }

  /** Wait until a text was logged; what was logged up to then is forgotten. */
  static bool logged(std::string_view text) {
    for (int ms = 0; ms < 60000; ms++) {
      const lines texts = diag_log_texts();
      if (std::find(texts.begin(), texts.end(), text) != texts.end())
        return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  static void forget_calls() { sim_board_journal_keep(true); }

 private:
  /** Bearer 255, classes 1 and 2: the last event of settled(). */
  inline static const std::vector<uint8_t> qos_flow_bytes = {0x01, 1, 0,    255, 0x02, 4, 0, 1, 0,
                                                             0,    0, 0x03, 4,   0,    2, 0, 0, 0};

  std::string batch_line(const ox_lyn_loc_batch_t &batch) {
    const mobile_block<ox_lyn_location_t> array(batch.locations);
    fixes.insert(fixes.end(), array.get(), array.get() + batch.count);
    return mobile_batch_line(batch);
  }

  std::string line_of(const ox_lyn_dm_info_t &info) {
    const void *block = info.value.ptr;
    const auto is = [&info](uint32_t record_type, uint32_t id, uint32_t value_type) {
      return info.record_type == record_type && info.metric == id && info.value_type == value_type;
    };
    if (is(OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, OX_LYN_VALUE_INT64_E))
      return mobile_throughput_line(*static_cast<const ox_lyn_mtpe_status_t *>(block));
    if (is(OX_LYN_RECORD_IND_E, OX_LYN_IND_QOS_FLOW_E, OX_LYN_VALUE_INT64_E))
      return mobile_flow_line(*static_cast<const ox_lyn_qos_flow_t *>(block));
    if (is(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, OX_LYN_VALUE_LOCATION_E))
      return batch_line(*static_cast<const ox_lyn_loc_batch_t *>(block));
    if (!is(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, OX_LYN_VALUE_LOCATION_E))
      return mobile_text("type ", info.record_type, " id ", info.metric, " value type ", info.value_type);
    const auto &shot = *static_cast<const ox_lyn_loc_single_shot_t *>(block);
    fixes.push_back(shot.location);
    return mobile_shot_line(shot);
  }
};

inline mobile_board mobile;

inline void mobile_board::start(const std::string &toml) {
  const bool given = toml.find("capabilities_ms") != std::string::npos;
  ASSERT_EQ(sim_board_load((given ? "" : "location.capabilities_ms = 0\n") + std::string("board.noise_db = 0\n") + toml,
                           LYN_SOURCE_DIR "/tests/data"),
            "");
  events.clear();
  fixes.clear();
  sim_board_journal_keep(true);
  const auto deliver = [](ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) { mobile.on_event(info); };
  ASSERT_EQ(ox_lyn_init(&hndl, 0, deliver), OX_LYN_SUCCESS);
  if (!given) {
    EXPECT_TRUE(logged(mobile_capable));
  }
}

#endif
