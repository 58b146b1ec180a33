/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The module on a simulated board, driven through its API as an application does that uses location and the mobile AP.
 * What the callback delivers is taken as one line of text each; fixes also as they are, to their last digit.
 *
 *   mobile.start("[location]\nfix_ms = 5\n");
 *   EXPECT_EQ(board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &shot), OX_LYN_SUCCESS);
 *   EXPECT_EQ(mobile.take(1), lines({"shot kind 0 response 0 at 51.897463 -8.480187"}));
 *   board.stop();
 */
#ifndef MOBILE_BOARD_H
#define MOBILE_BOARD_H

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "board.h"

using lines = std::vector<std::string>;

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
  return text_of("throughput type ", of.test_type, " reason ", of.failure_reason, " status ", of.test_status, " rate ",
                 of.peak_rate);
}

inline std::string mobile_flow_line(const ox_lyn_qos_flow_t &of) {
  return text_of("flow bearer ", of.bearer_id, " tx ", of.tx_5g_qci, " rx ", of.rx_5g_qci);
}

inline std::string mobile_shot_line(const ox_lyn_loc_single_shot_t &of) {
  return text_of("shot kind ", of.kind, " response ", of.response, " at ", of.location.latitude, " ",
                 of.location.longitude);
}

inline std::string mobile_batch_line(const ox_lyn_loc_batch_t &of) {
  return text_of("batch status ", of.status, " response ", of.response, " of ", of.count,
                 of.locations != nullptr ? "" : " without array");
}

inline std::string mobile_line(const delivered &one) {
  const auto is = [&one](uint32_t record_type, uint32_t id, uint32_t value_type) {
    return one.record_type == record_type && one.id == id && one.value_type == value_type;
  };
  if (is(OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, OX_LYN_VALUE_INT64_E)) {
    return mobile_throughput_line(one.as<ox_lyn_mtpe_status_t>());
  }
  if (is(OX_LYN_RECORD_IND_E, OX_LYN_IND_QOS_FLOW_E, OX_LYN_VALUE_INT64_E)) {
    return mobile_flow_line(one.as<ox_lyn_qos_flow_t>());
  }
  if (is(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, OX_LYN_VALUE_LOCATION_E)) {
    return mobile_batch_line(one.as<ox_lyn_loc_batch_t>());
  }
  if (is(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, OX_LYN_VALUE_LOCATION_E)) {
    return mobile_shot_line(one.as<ox_lyn_loc_single_shot_t>());
  }
  return text_of("type ", one.record_type, " id ", one.id, " value type ", one.value_type);
}

/** The fixes of a shot or a batch; of anything else there are none. */
inline std::vector<ox_lyn_location_t> mobile_fixes(const delivered &one) {
  if (one.record_type != OX_LYN_RECORD_ASYNC_E || one.value_type != OX_LYN_VALUE_LOCATION_E) {
    return {};
  }
  if (one.id == OX_LYN_ASYNC_LOC_SINGLE_SHOT_E) {
    return {one.as<ox_lyn_loc_single_shot_t>().location};
  }
  std::vector<ox_lyn_location_t> fixes(one.locations.size() / sizeof(ox_lyn_location_t));
  if (!fixes.empty()) {
    memcpy(fixes.data(), one.locations.data(), one.locations.size());
  }
  return fixes;
}

class mobile_board {
 public:
  std::vector<ox_lyn_location_t> fixes; /**< of the shots and batches taken since the start */

  /** Bring the module up; its receiver has told its capabilities where `toml` does not say when it does. */
  void start(const std::string &toml = "") {
    const bool given = toml.find("capabilities_ms") != std::string::npos;
    fixes.clear();
    board_load((given ? "" : "location.capabilities_ms = 0\n") + toml);
    board.up();
    if (!given) {
      EXPECT_TRUE(logged(mobile_capable));
    }
  }

  /** `count` events, or what there is of them after a minute. They are forgotten here. */
  lines take(size_t count) { return lines_of(board.take(count)); }

  /** What has come once everything due by now is delivered. What is due later is not waited for. */
  lines settled() { return lines_of(board.settled()); }

  /** The last fix taken, or zeros. */
  ox_lyn_location_t last_fix() const { return fixes.empty() ? ox_lyn_location_t{} : fixes.back(); }

  /** The next events are exactly these, and nothing else is due behind them. */
  void expect(const lines &wanted) {
    EXPECT_EQ(take(wanted.size()), wanted);
    EXPECT_EQ(settled(), lines());
  }

  /** What the module called of one library, with what it passed: "StartMTPE {}". */
  static lines calls(const std::string &lib, const std::string &name = "") {
    lines made;
    for (const auto &row : board_journal<nlohmann::ordered_json>(lib, "call")) {
      if (name.empty() || row["name"] == name) {
        made.push_back(row["name"].get<std::string>() + " " + row["fields"].dump());
      }
    }
    return made;
  }

  /** Wait until a text was logged; what was logged up to then is forgotten. */
  static bool logged(std::string_view text) {
    for (int ms = 0; ms < 60000; ms++) {
      const lines texts = diag_log_texts();
      if (std::find(texts.begin(), texts.end(), text) != texts.end()) {
        return true;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
  }

  static void forget_calls() { sim_board_journal_keep(true); }

 private:
  lines lines_of(const std::vector<delivered> &taken) {
    lines texts;
    for (const delivered &one : taken) {
      texts.push_back(mobile_line(one));
      std::ranges::copy(mobile_fixes(one), std::back_inserter(fixes));
    }
    return texts;
  }
};

inline mobile_board mobile;

#endif
