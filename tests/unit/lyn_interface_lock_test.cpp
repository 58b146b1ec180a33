/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The module lock under a flood of events: how many callbacks a caller waits for, and that neither side starves.
 *
 * Nothing is timed. A callback is held until the callers sleep at the lock; after it so many callbacks run freely as
 * may lie between a caller's coming and its turn, and the next one is held until the callers have returned or, where an
 * operation takes the lock several times, sleep at it again.
 */
#include <gmock/gmock.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

#include "before_mutex.h"
#include "board.h"

using testing::ElementsAre;

namespace {

std::atomic<int> waits_cut_short{0};  // waits to come that end at once

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_pthread_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex);

int __wrap_pthread_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex) {
  if (waits_cut_short <= 0) {
    return __real_pthread_cond_wait(cond, mutex);
  }
  pthread_mutex_unlock(mutex);
  waits_cut_short--;
  return pthread_mutex_lock(mutex);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

constexpr uint32_t may_pass = 2; /* callbacks between a caller's coming and its turn */
constexpr uint32_t flood_length = 200;

void wait_for(const std::function<bool()> &done, int seconds = 60) {
  for (int ms = 0; ms < seconds * 1000 && !done(); ms++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

/** Whether a thread of this process sleeps. */
bool sleeps(pid_t thread) {
  std::ifstream stat("/proc/self/task/" + std::to_string(thread) + "/stat");
  const std::string line{std::istreambuf_iterator<char>(stat), {}};
  const size_t name_end = line.rfind(')');
  return name_end != std::string::npos && line.compare(name_end + 2, 1, "S") == 0;
}

/** A thread that calls something and has nothing else to wait for than the lock. */
struct caller {
  std::atomic<pid_t> at_the_call{0};
  std::atomic<bool> returned{false};
  std::thread thread;

  explicit caller(const std::function<void()> &call)
      : thread([this, call] {
          at_the_call = gettid();
          call();
          returned = true;
        }) {}

  bool is_at_the_lock() const { return at_the_call != 0 && sleeps(at_the_call); }
  bool has_come_to_rest() const { return returned || is_at_the_lock(); }
  void wait_until_it_sleeps() const {
    for (int seen = 0; seen < 3; seen = is_at_the_lock() ? seen + 1 : 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  }
};

/** What the callbacks wait for. */
struct {
  std::atomic<uint32_t> begun{0}, ended{0};
  std::atomic<bool> first_held{true};
  std::deque<caller> callers;
  uint32_t free_until = may_pass; /* callbacks that need not look at the callers; of the command thread */
  uint32_t comings = 0;           /* how often a caller may still be met at the lock */
  std::atomic<bool> starved{false};
} flood;

bool callers_returned() {
  return std::all_of(flood.callers.begin(), flood.callers.end(), [](const caller &one) { return one.returned.load(); });
}

/** So many callbacks have passed that the callers must have had their turn. */
void judge_callers() {
  wait_for([] {
    return std::all_of(flood.callers.begin(), flood.callers.end(),
                       [](const caller &one) { return one.has_come_to_rest(); });
  });
  if (!callers_returned() && --flood.comings == 0) {
    flood.starved = true;
  }
  flood.free_until += may_pass;
}

void on_flood(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  (void)take_delivered(info);
  const uint32_t number = flood.begun++;
  if (number == 0) {
    wait_for([] { return !flood.first_held; });
  } else if (number > flood.free_until && !flood.starved && !callers_returned()) {
    judge_callers();
  }
  flood.ended++;
}

struct lyn_interface_lock : testing::Test {
  ox_lyn_hndl_t hndl = 0;

  void SetUp() override {
    board_load("");
    flood.begun = 0;
    ASSERT_EQ(ox_lyn_init(&hndl, 0, on_flood), OX_LYN_SUCCESS);
    EXPECT_TRUE(sim_board_wait_idle(5000));
  }
  void TearDown() override {
    if (hndl != 0) {
      EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    }
    sim_board_journal_keep(false);
  }

  static void post(uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
      EXPECT_EQ(lyn_post_async_event(LYN_EVENT_INSTALL_STATUS, posted_copy(yrp_nas_install_status_ind_t{1, i})), 0);
    }
  }

  /** Let `calls` meet a flood, each on a thread of its own that comes while a callback runs. */
  static void meet(const std::vector<std::function<void()>> &calls, uint32_t comings = 1) {
    flood.begun = flood.ended = 0;
    flood.first_held = true;
    flood.free_until = may_pass;
    flood.comings = comings;
    flood.starved = false;
    post(flood_length);
    wait_for([] { return flood.begun == 1; });
    for (const auto &call : calls) {
      flood.callers.emplace_back(call).wait_until_it_sleeps();
    }
    flood.first_held = false;
    for (caller &one : flood.callers) {
      one.thread.join();
    }
    EXPECT_FALSE(flood.starved);
    wait_for([] { return flood.ended == flood_length || !lyn_is_initialised(); });
    flood.callers.clear();
  }

  /** Every operation, those first that take the lock more than once: a list three times, with its inner get. */
  std::vector<std::function<void()>> operations() const {
    return {
        [this] {
          ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_REG_STATUS_E);
          EXPECT_EQ(ox_lyn_get_info_list(hndl, &info, 1), OX_LYN_SUCCESS);
        },
        [this] {
          uint32_t list[16] = {};
          EXPECT_EQ(ox_lyn_get_ind_list(hndl, list, 16), OX_LYN_SUCCESS);
        },
        [this] {
          ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_REG_STATUS_E);
          EXPECT_EQ(ox_lyn_get_info(hndl, &info), OX_LYN_SUCCESS);
        },
        [this] {
          ox_lyn_dm_ctrl_info_t control = {};
          control.control = OX_LYN_SET_NR5G_DEPRIORITIZE_E;
          EXPECT_EQ(ox_lyn_set_info(hndl, &control), OX_LYN_SUCCESS);
        },
        [this] { EXPECT_EQ(subscribe(hndl, OX_LYN_IND_MODEM_STATUS_E, 0), OX_LYN_SUCCESS); },
        [this] {
          uint32_t count = 0;
          EXPECT_EQ(ox_lyn_get_ind_count(hndl, &count), OX_LYN_SUCCESS);
        },
        [this] {
          uint32_t cleared = OX_LYN_IND_REG_STATUS_E;
          EXPECT_EQ(ox_lyn_clear_ind_list(hndl, &cleared, 1), OX_LYN_SUCCESS);
        },
        [] {
          ox_lyn_hndl_t other = 0;
          EXPECT_EQ(ox_lyn_init(&other, 0, on_flood), OX_LYN_ERR_ALREADY_INITIALIZED);
        },
        [] { EXPECT_EQ(ox_lyn_deinit(0), OX_LYN_ERR_INVALID_PARAM); },
    };
  }
};

TEST_F(lyn_interface_lock, in_a_flood_at_most_two_callbacks_lie_between_any_call_and_its_turn) {
  constexpr uint32_t comings[] = {3, 2};
  const auto calls = operations();
  for (size_t i = 0; i < calls.size(); i++) {
    SCOPED_TRACE("operation " + std::to_string(i));
    meet({calls[i]}, i < std::size(comings) ? comings[i] : 1);
  }
}

TEST_F(lyn_interface_lock, in_a_flood_at_most_two_callbacks_pass_however_many_callers_wait) {
  meet(operations(), 3);
  std::vector<std::function<void()>> many;
  for (int i = 0; i < 30; i++) {
    many.push_back(operations().back());
  }
  meet(many);
}

TEST_F(lyn_interface_lock, in_a_flood_deinit_returns_when_the_callback_that_runs_has_returned) {
  meet({[this] { EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS); }});
  hndl = 0;
  EXPECT_EQ(flood.begun, 1U);
}

TEST_F(lyn_interface_lock, callers_are_served_in_the_order_of_their_coming) {
  static std::vector<int> turns;
  turns.clear();
  lyn_lock();
  std::deque<caller> callers;
  for (int i = 0; i < 8; i++) {
    callers
        .emplace_back([i] {
          const lyn_module_guard_t lock;
          turns.push_back(i);
        })
        .wait_until_it_sleeps();
  }
  lyn_unlock();
  for (caller &one : callers) {
    one.thread.join();
  }
  EXPECT_THAT(turns, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
}

/** A list of indications takes the lock twice; between the two somebody else has it. */
struct lyn_interface_lock_between : lyn_interface_lock {
  /** What the list comes to that asks for `room` entries while `other` comes behind it. */
  std::vector<uint32_t> list(uint32_t room, const std::function<void()> &other, int32_t expected) {
    std::vector<uint32_t> inds(room, 77);
    lyn_lock();
    std::deque<caller> callers;
    callers.emplace_back([&] { EXPECT_EQ(ox_lyn_get_ind_list(hndl, inds.data(), room), expected); })
        .wait_until_it_sleeps();
    callers.emplace_back(other).wait_until_it_sleeps();
    lyn_unlock();
    for (caller &one : callers) {
      one.thread.join();
    }
    return inds;
  }
};

TEST_F(lyn_interface_lock_between, a_subscription_that_came_behind_the_count_is_written_as_far_as_there_is_room) {
  EXPECT_EQ(subscribe(hndl, OX_LYN_IND_REG_STATUS_E, 0), OX_LYN_SUCCESS);
  EXPECT_THAT(list(
                  1, [this] { EXPECT_EQ(subscribe(hndl, OX_LYN_IND_MODEM_STATUS_E, 0), OX_LYN_SUCCESS); }, 0),
              ElementsAre(OX_LYN_IND_MODEM_STATUS_E));
}

TEST_F(lyn_interface_lock_between, a_module_that_went_down_behind_the_count_refuses_the_handle) {
  list(
      1, [this] { EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS); }, OX_LYN_ERR_INVALID_PARAM);
  hndl = 0;
}

TEST_F(lyn_interface_lock_between, a_teardown_that_failed_behind_the_count_leaves_nothing_to_list) {
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  board_load("[[fault]]\non = \"yrp.release\"\n");
  EXPECT_EQ(ox_lyn_init(&hndl, 0, on_flood), OX_LYN_SUCCESS);
  list(
      1, [this] { EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_ERR_FAILURE); }, OX_LYN_ERR_NOT_INITIALIZED);
  EXPECT_EQ(ox_lyn_init(&hndl, 0, on_flood), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface_lock, callers_that_never_rest_do_not_keep_events_from_being_delivered) {
  std::atomic<bool> done{false};
  flood.first_held = false;
  std::vector<std::thread> callers;
  for (int i = 0; i < 4; i++) {
    callers.emplace_back([this, &done] {
      for (uint32_t count = 0; !done;) {
        EXPECT_EQ(ox_lyn_get_ind_count(hndl, &count), OX_LYN_SUCCESS);
      }
    });
  }
  post(2000);
  wait_for([] { return flood.begun == 2000; });
  EXPECT_EQ(flood.begun, 2000U);
  done = true;
  for (std::thread &one : callers) {
    one.join();
  }
}

TEST_F(lyn_interface_lock, a_lock_that_is_given_back_is_free_for_anybody) {
  EXPECT_TRUE(lyn_lock_try());
  EXPECT_FALSE(lyn_lock_try());
  lyn_unlock();
  EXPECT_TRUE(lyn_lock_while_initialised());
  EXPECT_FALSE(lyn_lock_try());
  lyn_unlock();
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  hndl = 0;
  EXPECT_FALSE(lyn_lock_while_initialised());
  EXPECT_TRUE(lyn_lock_try()) << "what is refused keeps nothing";
  EXPECT_FALSE(lyn_lock_while_initialised()) << "a module that is down is not waited for";
  lyn_unlock();
}

// The next two are of use under the thread sanitizer: nothing but the lock comes between their threads, which tell each
// other when by what orders nothing else.
std::atomic<int> stage{0};

void wait_for_stage(int wanted) {
  while (stage.load(std::memory_order_relaxed) != wanted) {
    std::this_thread::yield();
  }
}

TEST_F(lyn_interface_lock, whoever_takes_the_lock_sees_what_was_done_under_it) {
  static int number;
  number = 0;
  const auto take_turns = [](int first) {
    for (int turn = first; turn < 200; turn += 2) {
      wait_for_stage(turn);
      lyn_lock();
      number++;
      lyn_unlock();
      stage.store(turn + 1, std::memory_order_relaxed);
    }
  };
  stage = 0;
  std::thread other(take_turns, 1);
  take_turns(0);
  other.join();
  EXPECT_EQ(number, 200);
}

TEST_F(lyn_interface_lock, a_lock_that_is_given_back_as_somebody_begins_to_wait_is_taken_with_what_was_done_under_it) {
  static int number;
  number = 0;
  stage = 0;
  lyn_lock();
  std::thread late([] {
    before_mutex(1, [] {  // it has found the lock taken
      stage.store(1, std::memory_order_relaxed);
      wait_for_stage(2);
    });
    lyn_lock();
    EXPECT_EQ(number, 7);
    EXPECT_FALSE(lyn_lock_try());
    lyn_unlock();
  });
  wait_for_stage(1);
  number = 7;
  lyn_unlock();
  stage.store(2, std::memory_order_relaxed);
  late.join();
  EXPECT_TRUE(lyn_lock_try());
  lyn_unlock();
}

/** Waits are not cut short, and the one that is sent off takes nobody's turn: whichever place of the row it has. */
TEST_F(lyn_interface_lock, the_command_thread_is_sent_off_from_any_place_and_the_others_keep_theirs) {
  for (int place = 0; place < 3; place++) {
    static std::vector<int> turns;
    turns.clear();
    lyn_lock();
    std::deque<caller> callers;
    for (int i = 0; i < 3; i++) {
      callers
          .emplace_back([i, place] {
            if (i == place) {
              EXPECT_FALSE(lyn_lock_while_initialised());
            } else {
              const lyn_module_guard_t lock;
              turns.push_back(i);
            }
          })
          .wait_until_it_sleeps();
    }
    std::atomic_ref(lyn_state.initialised).store(0);
    lyn_lock_send_thread_off();
    callers[static_cast<size_t>(place)].thread.join();
    EXPECT_THAT(turns, ElementsAre());
    std::atomic_ref(lyn_state.initialised).store(1);
    lyn_lock_send_thread_off();  // nobody there
    callers
        .emplace_back([] {
          const lyn_module_guard_t lock;
          turns.push_back(3);
        })
        .wait_until_it_sleeps();
    lyn_unlock();
    for (caller &one : callers) {
      if (one.thread.joinable()) {
        one.thread.join();
      }
    }
    EXPECT_THAT(turns, testing::SizeIs(3));
    EXPECT_TRUE(std::is_sorted(turns.begin(), turns.end()));
  }
}

TEST_F(lyn_interface_lock, a_caller_that_wakes_without_having_been_called_waits_on) {
  lyn_lock();
  waits_cut_short = 3;
  caller waiting([] { const lyn_module_guard_t lock; });
  wait_for([] { return waits_cut_short <= 0; });
  waiting.wait_until_it_sleeps();
  EXPECT_FALSE(waiting.returned);
  lyn_unlock();
  waiting.thread.join();
}

#ifndef NDEBUG
/** Where a deadlock would come now and then, the program ends each time. */
TEST(lyn_order_death, a_lock_taken_out_of_order_ends_a_program_with_assertions) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  constexpr char told[] = "a lock is taken out of order";
  EXPECT_DEATH(
      {
        lyn_cmdq_t queue;
        lyn_cmdq_init(&queue, 1);
        lyn_order_take(LYN_ORDER_GATE);
        lyn_lock();
      },
      told);
  EXPECT_DEATH(
      {
        const lyn_module_guard_t once;
        const lyn_module_guard_t twice;
      },
      told);
  EXPECT_DEATH(
      {
        lyn_order_take(LYN_ORDER_GATE);
        lyn_cmdq_flush(&lyn_state.cmdq);
      },
      told);
  EXPECT_DEATH(
      {
        lyn_order_take(LYN_ORDER_ROW);
        lyn_lock_send_thread_off();
      },
      told);
}

TEST(lyn_order_death, a_callback_that_calls_back_into_the_module_ends_a_program_with_assertions) {
  testing::FLAGS_gtest_death_test_style = "threadsafe";
  EXPECT_DEATH(
      {
        sim_board_load("board.noise_db = 0\n");
        ox_lyn_hndl_t up = 0;
        ox_lyn_init(&up, 0, [](ox_lyn_hndl_t from, ox_lyn_dm_info_t *, uint32_t) { ox_lyn_deinit(from); });
        subscribe(up, OX_LYN_IND_LTE_RSRP_E, 1);
        pause();
      },
      "a lock is taken out of order");
}
#endif

}  // namespace
