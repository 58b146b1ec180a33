/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Four threads make every call in any order, start and stop included, on a board that sends everything it can, while
 * the modem restarts: each call ends with a stated status, the callback runs once at a time and never for a life of the
 * module that has ended, and in the end the module works. Made for the thread sanitizer.
 *
 * Ten seconds there, two elsewhere, sixty with LYN_LONG. The order of calls is drawn: LYN_SEED=N repeats a seed.
 */
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <random>
#include <thread>

#include "operations.h"
#include "sim_board.h"
#include "watchdog.h"

namespace {

using clock_type = std::chrono::steady_clock;

std::chrono::seconds duration() {
  const char *wanted = getenv("LYN_LONG");
  if (wanted != nullptr && *wanted != '\0') {
    return std::chrono::seconds(60);
  }
#ifdef __SANITIZE_THREAD__
  return std::chrono::seconds(10);
#else
  return std::chrono::seconds(2);
#endif
}

unsigned int seed() {
  const char *wanted = getenv("LYN_SEED");
  return wanted != nullptr ? static_cast<unsigned int>(strtoul(wanted, nullptr, 10)) : std::random_device()();
}

/** Indications of every kind, some of them broken, service that comes and goes, and a modem that does. */
const std::string busy_board = [] {
  std::string toml =
      "[board]\nnoise_db = 3\ntick_ms = 1\n"
      "[scan]\nanswer_ms = 2\n"
      "[wwan]\nstats = [{}, { ip_family = 6 }]\nqos.answer_ms = 1\n"
      "[mtpe]\nconfigured_ms = 1\nduration_ms = 3\n"
      "[location]\ncapabilities_ms = 1\nfix_ms = 2\nrepeat_fix = 2\nbatch = 8\n";
  const char *const events[] = {
      "panel = { index = 1, changed = 1, mode = 2 }",
      "install_status = 1",
      "install_measurement = [{ arfcn = 2070833, band = 261, scs = 3, rsrp = -90, snr = 10 }]",
      "qos_flow = { bearer = 5, tx_5qi = 7, rx_5qi = 7 }",
      "raw = { lib = 'nas', id = 81, bytes = '010200' }",
      "raw = { lib = 'oxmap', id = 264, bytes = '01' }",
      "sys_info = { lte = 'limited' }",
      "sys_info = { lte = 'service', nr5g_pci = -1 }",
      "sys_info = { lte = 'absent', nr5g = 'service' }",
      "sys_info = { lte = 'service', nr5g = 'absent', nr5g_pci = 500 }",
      "location = { capabilities = 0 }",
      "location = { capabilities = 7 }"};
  int ms = 0;
  for (const char *event : events) {
    toml += "[[at]]\nms = " + std::to_string(ms++) + "\nevery_ms = 12\nrepeat = 1000000\n" + event + "\n";
  }
  return toml +
         "[[at]]\nms = 100\nevery_ms = 150\nrepeat = 500000\nmodem = 'down'\n"
         "[[at]]\nms = 110\nevery_ms = 150\nrepeat = 500000\nmodem = 'up'\n";
}();

/**
 * What the callback sees. Each life of the module has a number, its user data; they need not begin in the order of
 * their numbers, as who has drawn one may be held up before the start.
 */
struct deliveries {
  std::atomic<uint32_t> lives{0};
  std::array<std::atomic<bool>, 4096> ended{}; /**< of the latest lives, each at its number's remainder */
  std::atomic<bool> running{false};
  std::atomic<size_t> events{0}, at_once{0}, of_the_dead{0};

  uint32_t draw() {
    const uint32_t life = ++lives;
    has_ended(life) = false;
    return life;
  }
  std::atomic<bool> &has_ended(uint32_t life) { return ended[life % ended.size()]; }

  void on_event(ox_lyn_dm_info_t *info, uint32_t life) {
    at_once += running.exchange(true);
    of_the_dead += has_ended(life);
    events++;
    event_release(info);
    running = false;
  }
} seen;

void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t life) {
  seen.on_event(info, life);
}

std::atomic<ox_lyn_hndl_t> shared_hndl{0};

/** One caller. Whoever stops the module knows which life it was, because only a stop lets the next one begin. */
class caller {
 public:
  explicit caller(unsigned int seed) : random_(seed) {}

  void run(clock_type::time_point end) {
    const std::vector<operation> table = operations();
    while (clock_type::now() < end) {
      call(table[random_() % table.size()]);
    }
  }

  std::map<std::string, size_t> unstated;
  std::map<operation_kind, size_t> calls;

 private:
  std::mt19937 random_;

  void call(const operation &one) {
    ox_lyn_hndl_t hndl = shared_hndl;
    uint32_t life = 0;
    if (one.kind == operation_kind::init) {
      life = seen.draw();
    } else if (one.kind == operation_kind::deinit) {
      life = running_life;
    }
    const int32_t status = operation_call(one, &hndl, on_event, life);
    calls[one.kind]++;
    if (!operation_states_unheld(one, status)) {
      unstated[operation_name(one) + ": " + std::to_string(status)]++;
    }
    if (one.kind == operation_kind::init && status == OX_LYN_SUCCESS) {
      running_life = life;
      shared_hndl = hndl;
    } else if (one.kind == operation_kind::deinit && status == OX_LYN_SUCCESS) {
      seen.has_ended(life) = true;
    }
  }

  static inline std::atomic<uint32_t> running_life{0};
};

/** Four of them until then. */
std::vector<caller> call_everything(unsigned int first, clock_type::time_point end) {
  constexpr unsigned int count = 4;
  std::vector<caller> callers;
  std::vector<std::thread> threads;
  callers.reserve(count);
  threads.reserve(count);
  for (unsigned int i = 0; i < count; i++) {
    caller &each = callers.emplace_back(first + i);
    threads.emplace_back([&each, end] { each.run(end); });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  return callers;
}

/** Nothing unstated was returned, and no kind of call is missing; how many there were. */
size_t judge(const std::vector<caller> &callers) {
  std::map<operation_kind, size_t> calls;
  size_t all = 0;
  for (const caller &each : callers) {
    for (const auto &[kind, count] : each.calls) {
      calls[kind] += count;
      all += count;
    }
    for (const auto &[what, count] : each.unstated) {
      ADD_FAILURE() << what << ", " << count << " times";
    }
  }
  for (const operation_kind_row &row : operation_kinds) {
    EXPECT_GT(calls[row.kind], 0U) << row.name;
  }
  return all;
}

TEST(lyn_stress, four_callers_of_everything_on_a_busy_board_whose_modem_restarts) {
  ASSERT_EQ(sim_board_load(busy_board), "");
  const unsigned int first = seed();
  const std::string told = "LYN_SEED=" + std::to_string(first);
  SCOPED_TRACE(told);
  watchdog("four callers of everything, " + told, 300);
  const size_t calls = judge(call_everything(first, clock_type::now() + duration()));
  printf("%zu calls, %u starts tried, %zu events\n", calls, seen.lives.load(), seen.events.load());
  EXPECT_GT(seen.events, 0U);
  EXPECT_EQ(seen.at_once, 0U);
  EXPECT_EQ(seen.of_the_dead, 0U);

  ox_lyn_deinit(shared_hndl);
  ASSERT_EQ(sim_board_load("board.noise_db = 0\n"), "");
  ox_lyn_hndl_t hndl = 0;
  ASSERT_EQ(operation_call({operation_kind::init}, &hndl), OX_LYN_SUCCESS);
  EXPECT_EQ(operation_call({operation_kind::get, OX_LYN_GET_LTE_SERV_RSRP_E}, &hndl), OX_LYN_SUCCESS);
  EXPECT_EQ(operation_call({operation_kind::deinit}, &hndl), OX_LYN_SUCCESS);
}

}  // namespace
