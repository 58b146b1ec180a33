/*
 * The command queue: order, ownership, the warning, flushing and stopping, with the real command thread.
 */
#include "lyn_cmdq.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "diag_log.h"

namespace {

/** A command that is freed by the test, so that it can be looked at after its free_f. */
struct probe {
  lyn_cmd cmd = {};
  int producer = 0;
  int number = 0;
  std::atomic<int> executed{0};
  std::atomic<int> freed{0};
  std::atomic<bool> *hold = nullptr; /* execute_f lasts until it is false */
  std::thread::id thread = {};
};

std::mutex order_lock;
std::vector<const probe *> order; /* as executed */

void probe_execute(lyn_cmd *cmd, void *data) {
  auto *self = static_cast<probe *>(data);
  EXPECT_EQ(cmd, &self->cmd);
  EXPECT_EQ(self->freed, 0);
  self->thread = std::this_thread::get_id();
  {
    std::lock_guard guard(order_lock);
    order.push_back(self);
  }
  self->executed++;
  while (self->hold != nullptr && *self->hold) {
    std::this_thread::yield();
  }
}

void probe_free(lyn_cmd *cmd, void *data) {
  auto *self = static_cast<probe *>(data);
  EXPECT_EQ(cmd, &self->cmd);
  self->freed++;
}

/** Ends the program with a signal when what it guards hangs. */
struct watchdog {
  explicit watchdog(unsigned seconds) { alarm(seconds); }
  ~watchdog() { alarm(0); }
  watchdog(const watchdog &) = delete;
  watchdog &operator=(const watchdog &) = delete;
};

void wait_until(const std::atomic<int> &value, int expected) {
  while (value.load() < expected) {
    std::this_thread::yield();
  }
}

class lyn_cmdq : public testing::Test {
 protected:
  lyn_cmdq_t queue = {};
  std::deque<probe> probes;
  std::atomic<bool> hold{false};
  watchdog limit{300};

  void SetUp() override {
    order.clear();
    diag_log_take();
  }

  probe &make_probe() {
    probe &made = probes.emplace_back();
    made.number = static_cast<int>(probes.size()) - 1;
    made.cmd = {.execute_f = probe_execute, .free_f = probe_free, .data = &made};
    return made;
  }
  probe &enqueue() {
    probe &made = make_probe();
    EXPECT_EQ(lyn_cmdq_enq(&queue, &made.cmd), 0);
    return made;
  }
  /** Occupy the command thread until `hold` is cleared. */
  probe &occupy() {
    hold = true;
    probe &made = make_probe();
    made.hold = &hold;
    EXPECT_EQ(lyn_cmdq_enq(&queue, &made.cmd), 0);
    wait_until(made.executed, 1);
    return made;
  }
  /** Make the queue by hand, without a thread. */
  void make_bare() {
    queue.head = queue.tail = lyn_dll_init(nullptr);
    queue.max = 100;
    pthread_mutex_init(&queue.mutex, nullptr);
    pthread_cond_init(&queue.cond, nullptr);
  }
  void expect_zeroed() const {
    static const lyn_cmdq_t zero = {};
    EXPECT_EQ(memcmp(&queue, &zero, sizeof queue), 0);
  }
  /** Stop the queue while the thread is occupied: what is queued behind is not run any more. */
  void deinit_while_occupied() { deinit_while_held(hold); }
  void deinit_while_held(std::atomic<bool> &held) {
    std::thread releaser([this, &held] {
      while (!std::atomic_ref(queue.stop).load()) {
        std::this_thread::yield();
      }
      held = false;
    });
    EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
    releaser.join();
  }
};

/* Running commands */

TEST_F(lyn_cmdq, commands_run_in_order_on_one_thread_of_its_own_and_are_freed) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  for (int i = 0; i < 50; i++) {
    enqueue();
  }
  wait_until(probes.back().freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  ASSERT_EQ(order.size(), probes.size());
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(order[i], &probes[i]);
    EXPECT_EQ(probes[i].executed, 1);
    EXPECT_EQ(probes[i].freed, 1);
    EXPECT_EQ(probes[i].thread, probes[0].thread);
    EXPECT_NE(probes[i].thread, std::this_thread::get_id());
  }
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
}

TEST_F(lyn_cmdq, commands_of_each_producer_run_in_their_order) {
  for (int producers : {1, 2, 4}) {
    constexpr int each = 1500;
    SCOPED_TRACE(std::to_string(producers) + " producers");
    order.clear();
    auto commands = std::make_unique<probe[]>(static_cast<size_t>(producers * each));
    ASSERT_EQ(lyn_cmdq_init(&queue, INT32_MAX), 0);
    std::vector<std::thread> threads;
    for (int producer = 0; producer < producers; producer++) {
      threads.emplace_back([this, &commands, producer] {
        for (int i = 0; i < each; i++) {
          probe &made = commands[static_cast<size_t>(producer * each + i)];
          made.producer = producer;
          made.number = i;
          made.cmd = {.execute_f = probe_execute, .free_f = probe_free, .data = &made};
          EXPECT_EQ(lyn_cmdq_enq(&queue, &made.cmd), 0);
        }
      });
    }
    for (std::thread &thread : threads) {
      thread.join();
    }
    probe &last = make_probe();
    EXPECT_EQ(lyn_cmdq_enq(&queue, &last.cmd), 0);
    wait_until(last.freed, 1);
    EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
    order.pop_back();
    ASSERT_EQ(order.size(), static_cast<size_t>(producers * each));
    std::vector<int> next(static_cast<size_t>(producers));
    for (const probe *run : order) {
      EXPECT_EQ(run->number, next[static_cast<size_t>(run->producer)]++);
      EXPECT_EQ(run->executed, 1);
      EXPECT_EQ(run->freed, 1);
    }
  }
}

TEST_F(lyn_cmdq, a_command_without_free_f_is_left_to_its_builder) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  probe &made = make_probe();
  made.cmd.free_f = nullptr;
  EXPECT_EQ(lyn_cmdq_enq(&queue, &made.cmd), 0);
  probe &after = enqueue();
  wait_until(after.freed, 1);
  EXPECT_EQ(made.executed, 1);
  EXPECT_EQ(made.freed, 0);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq, a_running_command_may_enqueue_another) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  static lyn_cmdq_t *target = nullptr;
  static lyn_cmd *second = nullptr;
  target = &queue;
  probe &inner = make_probe();
  second = &inner.cmd;
  lyn_cmd first = {.execute_f = [](lyn_cmd *, void *) { EXPECT_EQ(lyn_cmdq_enq(target, second), 0); },
                   .free_f = nullptr,
                   .data = nullptr};
  EXPECT_EQ(lyn_cmdq_enq(&queue, &first), 0);
  wait_until(inner.freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq, the_thread_takes_no_signal_and_the_callers_mask_stays) {
  sigset_t only_usr1, after;
  sigemptyset(&only_usr1);
  sigaddset(&only_usr1, SIGUSR1);
  pthread_sigmask(SIG_SETMASK, &only_usr1, nullptr);
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  pthread_sigmask(SIG_SETMASK, nullptr, &after);
  EXPECT_EQ(sigismember(&after, SIGUSR1), 1);
  EXPECT_EQ(sigismember(&after, SIGTERM), 0);
  EXPECT_EQ(sigismember(&after, SIGALRM), 0);
  static std::atomic<int> blocked{-1};
  lyn_cmd ask = {.execute_f =
                     [](lyn_cmd *, void *) {
                       sigset_t own;
                       pthread_sigmask(SIG_SETMASK, nullptr, &own);
                       blocked = sigismember(&own, SIGTERM) + sigismember(&own, SIGINT) + sigismember(&own, SIGUSR1);
                     },
                 .free_f = nullptr,
                 .data = nullptr};
  EXPECT_EQ(lyn_cmdq_enq(&queue, &ask), 0);
  wait_until(blocked, 0);
  EXPECT_EQ(blocked, 3);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

/* Refusals */

TEST_F(lyn_cmdq, a_command_without_execute_f_is_refused_and_stays_its_producers) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  probe &made = make_probe();
  made.cmd.execute_f = nullptr;
  EXPECT_EQ(lyn_cmdq_enq(&queue, &made.cmd), -1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(made.freed, 0);
  EXPECT_EQ(diag_log_texts("ERROR"), std::vector<std::string>{"lyn_cmdq_enq: Bad Param cmd->execute_f NULL"});
}

TEST_F(lyn_cmdq, null_arguments_are_refused_with_the_stated_texts) {
  make_bare();
  probe &made = make_probe();
  EXPECT_EQ(lyn_cmdq_init(nullptr, 100), -1);
  lyn_cmdthrd_init(nullptr);
  EXPECT_EQ(lyn_cmdq_enq(nullptr, &made.cmd), -1);
  EXPECT_EQ(lyn_cmdq_enq(&queue, nullptr), -1);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});

  EXPECT_EQ(lyn_cmdq_deq(nullptr), nullptr);
  EXPECT_EQ(lyn_cmdq_flush(nullptr), -1);
  EXPECT_EQ(lyn_cmdq_join_thread(nullptr), -1);
  EXPECT_EQ(lyn_cmdthrd_main(nullptr), reinterpret_cast<void *>(intptr_t{-1}));
  lyn_cmdthrd_deinit(nullptr);
  EXPECT_EQ(lyn_cmdq_deinit(nullptr), -1);  // with the text of the join operation, deliberately
  EXPECT_EQ(diag_log_texts("ERROR"),
            (std::vector<std::string>{
                "lyn_cmdq_deq: Bad Param cmdq NULL", "lyn_cmdq_flush Bad Param cmdq NULL\\n",
                "lyn_cmdq_join_thread: Bad Param cmdq NULL\\n", "lyn_cmdthrd_main: Bad Param cmdq NULL",
                "lyn_cmdthrd_deinit: Bad Param cmdq NULL", "lyn_cmdq_join_thread: Bad Param cmdq NULL\\n"}));
  free(queue.head);
}

/* The maximum */

TEST_F(lyn_cmdq, from_the_102nd_pending_command_on_each_is_accepted_with_a_warning) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  occupy();
  for (int i = 0; i < 101; i++) {
    enqueue();
  }
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
  enqueue();
  EXPECT_EQ(diag_log_texts("HIGH"), std::vector<std::string>{"Command queue exceeds configured maximum! 101 > 100\\n"});
  probe &last = enqueue();
  EXPECT_EQ(diag_log_texts("HIGH"), std::vector<std::string>{"Command queue exceeds configured maximum! 102 > 100\\n"});
  hold = false;
  wait_until(last.freed, 1);
  enqueue();
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(last.executed, 1);
}

/* Flushing */

TEST_F(lyn_cmdq, flush_frees_what_is_queued_without_running_it_and_the_queue_works_on) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  occupy();
  for (int i = 0; i < 5; i++) {
    enqueue();
  }
  probe &unowned = make_probe();
  unowned.cmd.free_f = nullptr;
  EXPECT_EQ(lyn_cmdq_enq(&queue, &unowned.cmd), 0);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  for (size_t i = 1; i <= 5; i++) {
    EXPECT_EQ(probes[i].freed, 1);
  }
  hold = false;
  probe &after = enqueue();
  wait_until(after.freed, 1);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  for (size_t i = 1; i <= 6; i++) {
    EXPECT_EQ(probes[i].executed, 0);
  }
  EXPECT_EQ(unowned.freed, 0);
}

TEST_F(lyn_cmdq, what_waits_behind_a_running_command_is_queued_however_it_came_there) {
  std::atomic<bool> hold_second{true};
  ASSERT_EQ(lyn_cmdq_init(&queue, 2), 0);
  occupy();
  probe &second = make_probe();
  second.hold = &hold_second;
  EXPECT_EQ(lyn_cmdq_enq(&queue, &second.cmd), 0);
  for (int i = 0; i < 3; i++) {
    enqueue();
  }
  hold = false;
  wait_until(second.executed, 1);
  EXPECT_EQ(std::atomic_ref(queue.count).load(), 3);
  diag_log_take();
  enqueue();  // the three before it count
  EXPECT_EQ(diag_log_texts("HIGH"), std::vector<std::string>{"Command queue exceeds configured maximum! 3 > 2\\n"});
  pthread_mutex_lock(&queue.mutex);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &probes[2].cmd);
  pthread_mutex_unlock(&queue.mutex);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  for (size_t i = 3; i < 6; i++) {
    EXPECT_EQ(probes[i].freed, 1);
  }
  hold_second = false;
  probe &after = enqueue();
  wait_until(after.freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  for (size_t i = 2; i < 6; i++) {
    EXPECT_EQ(probes[i].executed, 0);
  }
}

TEST_F(lyn_cmdq, a_flush_while_commands_run_discards_all_that_was_queued_before_it) {
  ASSERT_EQ(lyn_cmdq_init(&queue, INT32_MAX), 0);
  for (int round = 0; round < 300; round++) {
    const size_t first = probes.size();
    for (int i = 0; i < 20; i++) {
      enqueue();
    }
    EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
    probe &after = enqueue();
    wait_until(after.freed, 1);
    for (size_t i = first; i < probes.size(); i++) {
      EXPECT_EQ(probes[i].freed, 1);
    }
  }
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq, deq_takes_the_oldest_command_and_counts_down) {
  make_bare();
  probe &first = enqueue();
  probe &second = enqueue();
  EXPECT_EQ(queue.count, 2);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &first.cmd);
  EXPECT_EQ(queue.count, 1);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &second.cmd);
  EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(queue.tail, queue.head);
  free(queue.head);
}

/* Batches */

/** A batch whose items are probes; the first word of an item is the pointer that is fetched ahead. */
struct probe_batch {
  struct item {
    probe *who;
    void *spare;
  };
  lyn_dll_node node = {};
  std::vector<item> items;
  lyn_cmd_batch_t batch = {};

  explicit probe_batch(size_t room) : items(room) {
    const auto execute = [](lyn_cmd *, void *data) {
      probe *self = static_cast<item *>(data)->who;
      probe_execute(&self->cmd, self);
    };
    const auto release = [](lyn_cmd *, void *data) {
      probe *self = static_cast<item *>(data)->who;
      probe_free(&self->cmd, self);
    };
    batch = {.cmd = {.execute_f = execute, .free_f = release, .data = nullptr},
             .node = &node,
             .items = items.data(),
             .item_size = sizeof(item),
             .ahead = offsetof(item, who),
             .filled = 0,
             .taken = 0};
  }
};

class lyn_cmdq_batches : public lyn_cmdq {
 protected:
  probe &put(probe_batch &to) {
    probe &made = make_probe();
    put(to, made);
    return made;
  }
  void put(probe_batch &to, probe &made) {
    pthread_mutex_lock(&queue.mutex);
    to.items.at(to.batch.filled).who = &made;
    int32_t before = 0;
    EXPECT_TRUE(lyn_cmdq_put(&queue, &to.batch, &before));
    EXPECT_EQ(lyn_cmdq_leave(&queue, before), 0);
  }
  probe &put_held(probe_batch &to, std::atomic<bool> &until) {
    probe &made = make_probe();
    made.hold = &until;
    put(to, made);
    return made;
  }
  int32_t count() { return std::atomic_ref(queue.count).load(); }
  /** Run a command and five items, of which the second lasts until `held` is false, up to that one. */
  void run_to_second(probe_batch &batch, std::atomic<bool> &held) {
    ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
    occupy();
    put(batch);
    probe &second = put_held(batch, held);
    for (int i = 0; i < 3; i++) {
      put(batch);
    }
    EXPECT_EQ(count(), 5);
    hold = false;
    wait_until(second.executed, 1);
  }
};

TEST_F(lyn_cmdq_batches, items_and_commands_run_in_the_order_in_which_they_were_queued) {
  probe_batch first(3), second(2);
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  occupy();
  for (int i = 0; i < 3; i++) {
    put(first);
  }
  enqueue();
  put(second);
  put(second);
  enqueue();
  EXPECT_EQ(count(), 7);
  hold = false;
  wait_until(probes.back().freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  ASSERT_EQ(order.size(), probes.size());
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(order[i], &probes[i]);
    EXPECT_EQ(probes[i].freed, 1);
  }
}

TEST_F(lyn_cmdq_batches, a_batch_whose_items_were_all_taken_is_queued_again_with_the_next) {
  probe_batch batch(3);
  make_bare();
  probe &first = put(batch);
  put(batch);
  EXPECT_EQ(queue.tail, &batch.node);
  lyn_cmd *cmd = lyn_cmdq_deq(&queue);
  EXPECT_EQ(cmd, &batch.batch.cmd);
  EXPECT_EQ(static_cast<probe_batch::item *>(cmd->data)->who, &first);
  EXPECT_EQ(queue.count, 1);
  EXPECT_NE(lyn_cmdq_deq(&queue), nullptr);
  EXPECT_EQ(queue.tail, queue.head);
  EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
  probe &last = put(batch);
  EXPECT_EQ(queue.tail, &batch.node);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(last.freed, 1);
  EXPECT_EQ(queue.count, 0);
  free(queue.head);
}

TEST_F(lyn_cmdq_batches, a_batch_without_node_is_a_failed_insert_behind_the_warning) {
  probe_batch batch(1);
  batch.batch.node = nullptr;
  make_bare();
  queue.max = 0;
  enqueue();
  int32_t before = 0;
  EXPECT_FALSE(lyn_cmdq_put(&queue, &batch.batch, &before));
  EXPECT_EQ(queue.count, 1);
  EXPECT_EQ(batch.batch.filled, 0U);
  EXPECT_EQ(diag_log_texts(), (std::vector<std::string>{"Command queue exceeds configured maximum! 1 > 0\\n",
                                                        "Failed to insert into cmdq\\n"}));
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  free(queue.head);
}

TEST_F(lyn_cmdq_batches, the_count_is_exact_while_an_item_runs_and_a_flush_meets_those_behind_it) {
  probe_batch batch(6);
  std::atomic<bool> hold_second{true};
  run_to_second(batch, hold_second);
  EXPECT_EQ(count(), 3);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(count(), 0);
  hold_second = false;
  probe &after = put(batch);
  wait_until(after.freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].executed, i < 3 || i == 6) << i;
    EXPECT_EQ(probes[i].freed, 1) << i;
  }
}

TEST_F(lyn_cmdq_batches, far_beyond_the_maximum_the_count_is_right_again_when_the_thread_comes_for_more) {
  probe_batch first(8), second(8);
  std::atomic<bool> hold_middle{true}, hold_next{true};
  ASSERT_EQ(lyn_cmdq_init(&queue, 4), 0);
  occupy();
  for (int i = 0; i < 8; i++) {
    i == 4 ? put_held(first, hold_middle) : put(first);
  }
  probe &next = put_held(second, hold_next);
  for (int i = 0; i < 7; i++) {
    put(second);
  }
  hold = false;
  wait_until(probes[5].executed, 1);
  EXPECT_GE(count(), 11);  // what is queued
  EXPECT_LE(count(), 16);  // and what was begun since the thread came
  hold_middle = false;
  wait_until(next.executed, 1);
  EXPECT_EQ(count(), 7);
  hold_next = false;
  wait_until(probes.back().freed, 1);
  while (count() != 0) {
    std::this_thread::yield();
  }
  probe &after = enqueue();  // is signalled: the queue counts as empty
  wait_until(after.freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq_batches, a_stop_within_a_batch_discards_the_rest_of_it) {
  probe_batch batch(5);
  std::atomic<bool> hold_second{true};
  run_to_second(batch, hold_second);
  deinit_while_held(hold_second);
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].executed, i < 3) << i;
    EXPECT_EQ(probes[i].freed, 1) << i;
  }
  expect_zeroed();
}

TEST_F(lyn_cmdq_batches, flushes_while_items_run_meet_each_item_once) {
  constexpr size_t room = 64;
  ASSERT_EQ(lyn_cmdq_init(&queue, 16), 0);
  for (int round = 0; round < 200; round++) {
    probe_batch batch(room);
    const size_t first = probes.size();
    for (size_t i = 0; i < room; i++) {
      put(batch);
      if (i % 16 == 15) {
        EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
      }
    }
    for (size_t i = first; i < probes.size(); i++) {
      wait_until(probes[i].freed, 1);
    }
  }
  while (count() != 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  for (const probe &one : probes) {
    EXPECT_LE(one.executed, 1);
    EXPECT_EQ(one.freed, 1);
  }
}

/* Stopping */

TEST_F(lyn_cmdq, deinit_frees_what_is_still_queued_without_running_it_and_zeroes_the_queue) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  probe &running = occupy();
  for (int i = 0; i < 5; i++) {
    enqueue();
  }
  deinit_while_occupied();
  EXPECT_EQ(running.freed, 1);
  for (size_t i = 1; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].executed, 0);
    EXPECT_EQ(probes[i].freed, 1);
  }
  expect_zeroed();
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
}

TEST_F(lyn_cmdq, deinit_without_a_thread_logs_it_and_drains_all_the_same) {
  make_bare();
  probe &made = enqueue();
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(made.executed, 0);
  EXPECT_EQ(made.freed, 1);
  expect_zeroed();
  EXPECT_EQ(diag_log_texts("ERROR"), std::vector<std::string>{"Command thread not initialized\\n"});
}

TEST_F(lyn_cmdq, deinit_of_a_zeroed_queue_does_no_harm) {
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  expect_zeroed();
}

TEST_F(lyn_cmdq, the_sentinel_of_a_stopped_queue_serves_the_next_one) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  lyn_dll_node *sentinel = queue.head;
  enqueue();
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  EXPECT_EQ(queue.head, sentinel);
  EXPECT_EQ(queue.head->prev, nullptr);
  EXPECT_EQ(queue.head->data, nullptr);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq, a_stop_before_the_thread_has_begun_is_seen) {
  make_bare();
  lyn_cmdthrd_deinit(&queue);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  EXPECT_FALSE(queue.running);
  free(queue.head);
}

TEST_F(lyn_cmdq, a_stop_is_seen_although_the_thread_has_set_running_after_it) {
  make_bare();
  // What is left when a stop meets the thread between its look at the stop and its setting of running.
  lyn_cmd overrun = {.execute_f =
                         [](lyn_cmd *, void *data) {
                           auto *owner = static_cast<lyn_cmdq_t *>(data);
                           std::atomic_ref(owner->stop).store(true);
                           EXPECT_TRUE(std::atomic_ref(owner->running).load());
                         },
                     .free_f = nullptr,
                     .data = &queue};
  EXPECT_EQ(lyn_cmdq_enq(&queue, &overrun), 0);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  free(queue.head);
}

TEST_F(lyn_cmdq, the_thread_shows_that_it_runs_and_ends_when_that_is_cleared) {
  make_bare();
  lyn_cmd end = {.execute_f =
                     [](lyn_cmd *, void *data) {
                       auto *owner = static_cast<lyn_cmdq_t *>(data);
                       EXPECT_TRUE(std::atomic_ref(owner->running).load());
                       std::atomic_ref(owner->running).store(false);
                     },
                 .free_f = nullptr,
                 .data = &queue};
  EXPECT_EQ(lyn_cmdq_enq(&queue, &end), 0);
  probe &never = enqueue();
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  EXPECT_EQ(never.executed, 0);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  free(queue.head);
}

TEST_F(lyn_cmdq, a_command_that_lost_its_execute_f_ends_the_thread_and_is_not_released) {
  make_bare();
  probe &broken = enqueue();
  probe &after = enqueue();
  broken.cmd.execute_f = nullptr;
  EXPECT_EQ(lyn_cmdthrd_main(&queue), reinterpret_cast<void *>(intptr_t{-1}));
  EXPECT_EQ(broken.freed, 0);
  EXPECT_EQ(after.executed, 0);
  EXPECT_EQ(diag_log_texts("ERROR"), std::vector<std::string>{"lyn_cmdthrd_main: NULL for cmd->execute_f"});
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(after.freed, 1);
}

TEST_F(lyn_cmdq, ten_thousand_starts_and_stops_never_hang) {
  for (int i = 0; i < 10000; i++) {
    ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
    // Stops meet the thread not yet started, on its way to waiting, and waiting.
    if (i % 3 == 1) {
      std::this_thread::yield();
    } else if (i % 3 == 2) {
      while (!std::atomic_ref(queue.running).load()) {
        std::this_thread::yield();
      }
    }
    ASSERT_EQ(lyn_cmdq_deinit(&queue), 0);
  }
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
}

/* Producers against starts and stops */

/** The queue as its user has it: nobody posts any more once it is closed. */
struct gated_queue {
  lyn_cmdq_t queue = {};
  std::mutex gate;
  bool open = false;
  std::atomic<int> accepted{0}, executed{0}, freed{0};
  int last_number[4] = {}; /* by the command thread, of which there is one at a time */
};

struct gated_cmd {
  lyn_cmd cmd;
  gated_queue *owner;
  int producer, number;
  bool executed;
};

void gated_execute(lyn_cmd *, void *data) {
  auto *self = static_cast<gated_cmd *>(data);
  EXPECT_FALSE(self->executed);
  self->executed = true;
  self->owner->executed++;
  EXPECT_LT(self->owner->last_number[self->producer], self->number);
  self->owner->last_number[self->producer] = self->number;
}

void gated_free(lyn_cmd *, void *data) {
  auto *self = static_cast<gated_cmd *>(data);
  self->owner->freed++;
  free(self);
}

void gated_produce(gated_queue &gated, int producer, const std::atomic<bool> &done) {
  for (int number = 1; !done; number++) {
    auto *made = static_cast<gated_cmd *>(calloc(1, sizeof(gated_cmd)));
    *made = {{gated_execute, gated_free, made}, &gated, producer, number, false};
    bool queued = false;
    {
      std::lock_guard guard(gated.gate);
      queued = gated.open && lyn_cmdq_enq(&gated.queue, &made->cmd) == 0;
      gated.accepted += queued;
    }
    if (!queued) {
      free(made);
    }
    // Behind a backlog the starts and stops would never meet an empty queue.
    if (!queued || gated.accepted - gated.freed > 50) {
      std::this_thread::yield();
    }
  }
}

void gated_set_open(gated_queue &gated, bool open) {
  std::lock_guard guard(gated.gate);
  gated.open = open;
}

TEST_F(lyn_cmdq, a_thousand_starts_and_stops_under_four_producers_free_each_command_once) {
  gated_queue gated;
  std::atomic<bool> done{false};
  std::vector<std::thread> producers;
  for (int producer = 0; producer < 4; producer++) {
    producers.emplace_back([&gated, producer, &done] { gated_produce(gated, producer, done); });
  }
  int pairs_with_commands = 0;
  for (int i = 0; i < 1000; i++) {
    const int before = gated.accepted;
    ASSERT_EQ(lyn_cmdq_init(&gated.queue, INT32_MAX), 0);
    gated_set_open(gated, true);
    std::this_thread::sleep_for(std::chrono::microseconds(i % 200));
    gated_set_open(gated, false);
    ASSERT_EQ(lyn_cmdq_deinit(&gated.queue), 0);
    ASSERT_EQ(gated.freed, gated.accepted);
    pairs_with_commands += gated.accepted > before;
  }
  done = true;
  for (std::thread &thread : producers) {
    thread.join();
  }
  EXPECT_LE(gated.executed, gated.accepted);
  EXPECT_GT(gated.executed, 0);
  EXPECT_GT(pairs_with_commands, 100);
}

}  // namespace
