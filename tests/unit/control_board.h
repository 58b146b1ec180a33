/*
 * The whole module on a simulated board of a chosen network status, for the tests of controls and neighbour scans: what
 * it asked the modem for, what it logged, what it delivered.
 *
 *   board.start(OX_LYN_REG_LTE_E);
 *   EXPECT_EQ(board.set(OX_LYN_SET_LTE_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
 *   EXPECT_EQ(board.asked(), requests({{216, fields}}));
 *   board.stop();
 */
#ifndef CONTROL_BOARD_H
#define CONTROL_BOARD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <map>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "diag_log.h"
#include "lyn_interface.h"
#include "nas_service_v01.h"
#include "ox_lyn.h"
#include "sim_board.h"

/** A request that reached the modem: its id, and its fields as the journal shows them. */
using control_request = std::pair<int, nlohmann::json>;
using control_requests = std::vector<control_request>;

/** One asynchronous response, its block copied. */
struct control_answer {
  uint32_t id = 0, value_type = 0;
  ox_lyn_lte_nbr_info_t lte = {};
  ox_lyn_nr5g_nbr_info_t nr5g = {};
};

/** The [sys_info] table of a board with this network status. */
inline std::string control_sys_info(uint32_t network_status) {
  static const std::map<uint32_t, std::string> tables = {
      {OX_LYN_REG_NO_SERVICE_E, "lte = \"no_service\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_POWER_SAVE_E, "lte = \"power_save\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_LIMITED_E, "lte = \"limited\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_LIMITED_REGIONAL_E, "lte = \"limited_regional\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_LTE_E, "lte = \"service\"\nnr5g_pci = -1\n"},
      {OX_LYN_REG_LTE_NR5G_E, "lte = \"service\"\nnr5g_pci = 500\n"},
      {OX_LYN_REG_NR5G_E, "lte = \"absent\"\nnr5g = \"service\"\nnr5g_pci = -1\n"}};
  return "[board]\nnoise_db = 0\n[sys_info]\n" + tables.at(network_status);
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

struct control_board {
  ox_lyn_hndl_t hndl = 0;
  std::mutex lock;
  std::condition_variable changed;
  std::vector<control_answer> answers; /* delivered and not yet taken */
  size_t others = 0;                   /* deliveries that are no asynchronous response */

  /** Bring the module up on a board of this network status with `toml` behind it. */
  void start(uint32_t network_status, const std::string &toml = "");

  void stop() {
    if (hndl != 0) {
      EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    }
    hndl = 0;
    sim_board_journal_keep(false);
  }

  /** Forget what was asked and logged so far. */
  void forget() {
    EXPECT_TRUE(sim_board_wait_idle(5000));
    sim_board_journal_keep(true);
    diag_log_take();
  }

  /** Set info with a block, or with `ptr` null. */
  int32_t set(uint32_t control, void *block) {
    ox_lyn_dm_ctrl_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.control = control;
    info.value.ptr = block;
    return ox_lyn_set_info(hndl, &info);
  }

  /** Get info of a metric that takes a buffer or nothing. */
  int32_t get(uint32_t metric, void *block = nullptr) {
    ox_lyn_dm_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.metric = metric;
    info.value.ptr = block;
    return ox_lyn_get_info(hndl, &info);
  }

  int32_t get_list(const std::vector<uint32_t> &metrics) {
    std::vector<ox_lyn_dm_info_t> list(metrics.size());
    for (size_t i = 0; i < metrics.size(); i++) {
      list[i].record_type = OX_LYN_RECORD_GET_E;
      list[i].metric = metrics[i];
    }
    return ox_lyn_get_info_list(hndl, list.data(), static_cast<uint32_t>(list.size()));
  }

  /** The requests since the last call or `forget`, but for the system information that each get begins with. */
  control_requests asked() {
    control_requests found;
    for (const std::string &line : sim_board_journal()) {
      const auto entry = nlohmann::json::parse(line);
      if (entry["lib"] == "nas" && entry["dir"] == "request" && entry["id"] != YRP_NAS_GET_SYS_INFO) {
        found.emplace_back(entry["id"], entry["fields"]);
      }
    }
    sim_board_journal_keep(true);
    return found;
  }

  /** Records since the last call or `forget`, "HIGH text", of the named files. */
  std::vector<std::string> logged(std::initializer_list<const char *> files = {"lyn_interface_set.cpp",
                                                                               "lyn_yrp_nas_config.cpp"}) {
    std::vector<std::string> lines;
    for (const auto &record : diag_log_take()) {
      for (const char *file : files) {
        if (record.file == file) {
          lines.push_back(record.level + " " + record.text);
        }
      }
    }
    return lines;
  }

  /** Wait until so many answers were delivered; takes all there are. */
  std::vector<control_answer> wait_answers(size_t count) {
    std::unique_lock guard(lock);
    EXPECT_TRUE(changed.wait_for(guard, std::chrono::seconds(60), [&] { return answers.size() >= count; }))
        << answers.size() << " of " << count << " answers came";
    return std::exchange(answers, {});
  }

  /** Wait until the board is at rest and all that it sent has been delivered. */
  void settle() {
    EXPECT_TRUE(sim_board_wait_idle(5000));
    const held_delivery drained;
  }

  /** Takes the record and its block, as a user does. */
  void on_event(ox_lyn_dm_info_t *info) {
    const std::lock_guard guard(lock);
    if (info->record_type == OX_LYN_RECORD_ASYNC_E) {
      control_answer &answer = answers.emplace_back();
      answer.id = info->metric;
      answer.value_type = info->value_type;
      if (info->value_type == OX_LYN_VALUE_LTE_NBR_E) {
        answer.lte = *static_cast<const ox_lyn_lte_nbr_info_t *>(info->value.ptr);
      } else if (info->value_type == OX_LYN_VALUE_NR5G_NBR_E) {
        answer.nr5g = *static_cast<const ox_lyn_nr5g_nbr_info_t *>(info->value.ptr);
      }
      free(info->value.ptr);
      changed.notify_all();
    } else {
      others++;
    }
    free(info);
  }
};

inline control_board board;

inline void control_board::start(uint32_t network_status, const std::string &toml) {
  ASSERT_EQ(sim_board_load(control_sys_info(network_status) + toml), "");
  answers.clear();
  ASSERT_EQ(ox_lyn_init(&hndl, 0, [](ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) { board.on_event(info); }),
            OX_LYN_SUCCESS);
  forget();
}

/** Brought down after each test, whatever it left running. */
struct control_board_test : testing::Test {
  void TearDown() override { board.stop(); }
};

#endif
