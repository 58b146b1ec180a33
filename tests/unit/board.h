/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The module on a simulated board of the test's own: what it asked the board for, what it logged, and everything that
 * its callback delivers. The headers of the other boards are built on this one.
 *
 *   board.start("[lte]\nrsrp = -100\n");
 *   board.subscribe(OX_LYN_IND_LTE_RSRP_E, 1);
 *   EXPECT_EQ(board.settled(), (std::vector<delivered>{number(OX_LYN_IND_LTE_RSRP_E, -100)}));
 *   board.stop();
 */
#ifndef BOARD_H
#define BOARD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <charconv>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "delivered.h"
#include "diag_log.h"
#include "lyn_event.h"
#include "lyn_interface.h"
#include "nas_service_v01.h"
#include "ox_lyn.h"
#include "reg_status.h"
#include "sim_board.h"
#include "source_dir.h"

/** Texts and numbers in one text; a double has the fewest digits that tell it from every other. */
template <typename... Part>
std::string text_of(const Part &...parts) {
  std::string text;
  const auto append = [&text](const auto &part) {
    if constexpr (std::is_arithmetic_v<std::remove_cvref_t<decltype(part)>>) {
      char digits[64];
      text += std::string_view(digits, std::to_chars(digits, digits + sizeof digits, part).ptr);
    } else {
      text += part;
    }
  };
  (append(parts), ...);
  return text;
}

/** A radio that is not in service: nothing is measured, so that subscribing delivers nothing. */
inline constexpr char board_no_service[] = "[sys_info]\nlte = \"no_service\"\nnr5g_pci = -1\n";

/** Load a quiet board with `toml` behind it; its receiver says nothing, unless `toml` tells when it does. */
inline void board_load(const std::string &toml) {
  const bool receiver = toml.find("capabilities_ms") != std::string::npos;
  const std::string quiet = receiver ? "board.noise_db = 0\n" : "board.noise_db = 0\nlocation.capabilities_ms = -1\n";
  ASSERT_EQ(sim_board_load(quiet + toml, source_path("tests/data")), "");
  sim_board_journal_keep(true);
}

/** The journal's rows of one library and direction since the board was loaded or the last board_forget. */
template <typename Row = nlohmann::json>
std::vector<Row> board_journal(const std::string &lib, const std::string &dir) {
  std::vector<Row> rows;
  for (const std::string &line : sim_board_journal()) {
    Row row = Row::parse(line);
    if (row["lib"] == lib && row["dir"] == dir) {
      rows.push_back(std::move(row));
    }
  }
  return rows;
}

/** Forget what was asked and logged so far. */
inline void board_forget() {
  sim_board_journal_keep(true);
  diag_log_take();
}

/** A request that reached the modem: its id, and its fields as the journal shows them. */
using board_request = std::pair<int, nlohmann::json>;
using board_requests = std::vector<board_request>;

/** A zeroed record that asks for a metric. */
inline ox_lyn_dm_info_t metric_request(uint32_t metric, const void *ptr = nullptr) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  info.value.ptr = const_cast<void *>(ptr);  // the record has no room for const
  return info;
}

/** Holds the command thread, so that nothing is delivered while it lives; API calls go on. */
class held_delivery {
 public:
  held_delivery() {
    auto *cmd = static_cast<lyn_cmd *>(calloc(1, sizeof(lyn_cmd)));
    *cmd = {.execute_f = hold, .free_f = [](lyn_cmd *self, void *) { free(self); }, .data = this};
    EXPECT_EQ(lyn_cmdq_enq(&lyn_state.cmdq, cmd), 0);
    held_.get_future().wait();
  }
  ~held_delivery() { end_.set_value(); }
  held_delivery(const held_delivery &) = delete;
  held_delivery &operator=(const held_delivery &) = delete;

 private:
  std::promise<void> held_, end_;

  /** The future outlives the object, which is not touched any more once it says that it holds. */
  static void hold(lyn_cmd *, void *data) {
    auto *self = static_cast<held_delivery *>(data);
    const std::future<void> end = self->end_.get_future();
    self->held_.set_value();
    end.wait();
  }
};

struct module_board {
  static constexpr uint32_t user_data = 4711;

  ox_lyn_hndl_t hndl = 0; /* 0: down */
  std::mutex lock;
  std::condition_variable changed;
  std::vector<delivered> deliveries; /* not yet taken */
  size_t strangers = 0;              /* callbacks with another handle or user value than ours */

  /** Bring the module up on the board that is loaded. */
  void up();

  /** The same on a board of its own; the log begins when it is up. */
  void start(const std::string &toml = "") {
    board_load(toml);
    up();
    diag_log_take();
  }

  /** The same at a network status; what was asked begins there, too. */
  void start(uint32_t network_status, const std::string &toml = "") {
    start(board_status(network_status) + toml);
    board_forget();
  }

  /** Forget what was asked and logged up to here, with the board at rest. */
  void forget() {
    EXPECT_TRUE(sim_board_wait_idle(5000));
    board_forget();
  }

  /** Down, where it is up. */
  void stop() {
    if (hndl != 0) {
      EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    }
    hndl = 0;
    sim_board_journal_keep(false);
    EXPECT_EQ(strangers, 0U);
  }

  void on_event(ox_lyn_hndl_t from, ox_lyn_dm_info_t *info, uint32_t data) {
    const std::lock_guard guard(lock);
    strangers += data != user_data || (hndl != 0 && from != hndl);
    deliveries.push_back(take_delivered(info));
    changed.notify_all();
  }

  int32_t get(uint32_t metric, const void *ptr = nullptr) {
    ox_lyn_dm_info_t info = metric_request(metric, ptr);
    return ox_lyn_get_info(hndl, &info);
  }

  int32_t get_list(const std::vector<uint32_t> &metrics, const void *ptr = nullptr) {
    std::vector<ox_lyn_dm_info_t> list;
    for (const uint32_t metric : metrics) {
      list.push_back(metric_request(metric, ptr));
    }
    return ox_lyn_get_info_list(hndl, list.data(), static_cast<uint32_t>(list.size()));
  }

  int32_t set(uint32_t control, void *block = nullptr) {
    ox_lyn_dm_ctrl_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.control = control;
    info.value.ptr = block;
    return ox_lyn_set_info(hndl, &info);
  }

  /** The requests since the last call or `forget`, but for the system information that each get begins with. */
  board_requests asked() {
    board_requests found;
    for (const auto &row : board_journal("nas", "request")) {
      if (row["id"] != YRP_NAS_GET_SYS_INFO) {
        found.emplace_back(row["id"], row["fields"]);
      }
    }
    sim_board_journal_keep(true);
    return found;
  }

  int32_t subscribe(uint32_t indication, int64_t threshold = 0) { return ::subscribe(hndl, indication, threshold); }

  void subscribe_all() {
    for (uint32_t indication = OX_LYN_IND_MODEM_STATUS_E; indication <= OX_LYN_IND_NR5G_SINR_E; indication++) {
      EXPECT_EQ(subscribe(indication, 1), OX_LYN_SUCCESS);
    }
  }

  /** Wait until `count` events were delivered; takes all there are. */
  std::vector<delivered> take(size_t count) {
    std::unique_lock guard(lock);
    EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [&] { return deliveries.size() >= count; }))
        << deliveries.size() << " of " << count << " events came";
    return std::exchange(deliveries, {});
  }

  /** Wait until the board is at rest and all that it sent has been delivered. */
  void settle() {
    EXPECT_TRUE(sim_board_wait_idle(60000));
    const held_delivery drained;
  }

  /** What was delivered by then and not yet taken. */
  std::vector<delivered> settled() {
    settle();
    return take(0);
  }

  /** Post and settle. */
  template <typename Block>
  std::vector<delivered> deliver(uint32_t msg_id, const Block &block) {
    EXPECT_EQ(lyn_post_async_event(msg_id, posted_copy(block)), OX_LYN_SUCCESS);
    return settled();
  }
};

inline module_board board;

inline void module_board::up() {
  hndl = 0;
  deliveries.clear();
  ox_lyn_hndl_t given = 0;
  ASSERT_EQ(
      ox_lyn_init(&given, user_data,
                  [](ox_lyn_hndl_t from, ox_lyn_dm_info_t *info, uint32_t data) { board.on_event(from, info, data); }),
      OX_LYN_SUCCESS);
  {
    const std::lock_guard guard(lock);
    hndl = given;
  }
  EXPECT_TRUE(sim_board_wait_idle(5000)); /* the mobile AP has said that it is there */
}

/** Brought down after each test, whatever it left running. */
struct board_test : testing::Test {
  void TearDown() override { board.stop(); }
};

#endif
