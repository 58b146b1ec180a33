/* SPDX-License-Identifier: Apache-2.0 */
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

#include "allocated.h"
#include "diag_log.h"
#include "watchdog.h"

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

  void SetUp() override {
    watchdog(testing::UnitTest::GetInstance()->current_test_info()->name(), 300);
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
  /** A command behind which the thread ends. */
  lyn_cmd end_of_thread() {
    return {.execute_f = [](lyn_cmd *,
                            void *data) { std::atomic_ref(static_cast<lyn_cmdq_t *>(data)->running).store(false); },
            .free_f = nullptr,
            .data = &queue};
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
  EXPECT_EQ(std::atomic_ref(queue.count).load(), 3);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(std::atomic_ref(queue.count).load(), 0);
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

/* Posts through a gate */

/** What is queued with the one command of all posts. */
struct probe_own {
  probe *who;
  void *spare;
};

lyn_cmd posted_cmd = {.execute_f =
                          [](lyn_cmd *, void *data) {
                            probe *self = static_cast<probe_own *>(data)->who;
                            probe_execute(&self->cmd, self);
                          },
                      .free_f =
                          [](lyn_cmd *, void *data) {
                            probe *self = static_cast<probe_own *>(data)->who;
                            probe_free(&self->cmd, self);
                          },
                      .data = nullptr};

constexpr int chunk = LYN_CMDQ_CHUNK_LEN;

class lyn_cmdq_posts : public lyn_cmdq {
 protected:
  lyn_cmdq_gate_t gate = LYN_CMDQ_GATE_INITIALIZER;

  void start(int32_t max = 100) {
    ASSERT_EQ(lyn_cmdq_init_behind(&queue, max, &gate), 0);
    lyn_cmdq_open(&gate, &queue);
  }
  lyn_cmdq_post_e post(probe &made) {
    const probe_own own = {&made, nullptr};
    return lyn_cmdq_post(&gate, &posted_cmd, &own);
  }
  probe &post() {
    probe &made = make_probe();
    EXPECT_EQ(post(made), LYN_CMDQ_QUEUED);
    return made;
  }
  void post_many(int many) {
    for (int i = 0; i < many; i++) {
      post();
    }
  }
  probe &post_held(std::atomic<bool> &until) {
    probe &made = make_probe();
    made.hold = &until;
    EXPECT_EQ(post(made), LYN_CMDQ_QUEUED);
    return made;
  }
  int32_t count() { return std::atomic_ref(queue.count).load(); }
  /** Run a command and five posts, of which the second lasts until `held` is false, up to that one. */
  void run_to_second(std::atomic<bool> &held) {
    start();
    occupy();
    post();
    probe &second = post_held(held);
    post_many(3);
    EXPECT_EQ(count(), 5);
    hold = false;
    wait_until(second.executed, 1);
  }
  void expect_all_run_in_order() {
    ASSERT_EQ(order.size(), probes.size());
    for (size_t i = 0; i < probes.size(); i++) {
      EXPECT_EQ(order[i], &probes[i]) << i;
      EXPECT_EQ(probes[i].freed, 1) << i;
    }
  }
  void stop() {
    lyn_cmdq_shut(&gate);
    EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  }
};

TEST_F(lyn_cmdq_posts, posts_and_commands_run_in_the_order_in_which_they_were_queued) {
  start(INT32_MAX);
  occupy();
  for (int many : {3, 1, chunk - 6, 2, 3 * chunk, chunk}) {
    post_many(many);
    enqueue();
  }
  hold = false;
  wait_until(probes.back().freed, 1);
  stop();
  expect_all_run_in_order();
}

TEST_F(lyn_cmdq_posts, a_gate_lets_through_while_it_is_open_only) {
  probe &early = make_probe();
  EXPECT_EQ(post(early), LYN_CMDQ_SHUT);
  ASSERT_EQ(lyn_cmdq_init_behind(&queue, 100, &gate), 0);
  EXPECT_EQ(post(early), LYN_CMDQ_SHUT);
  lyn_cmdq_open(&gate, &queue);
  probe &accepted = post();
  wait_until(accepted.freed, 1);
  lyn_cmdq_shut(&gate);
  EXPECT_EQ(post(early), LYN_CMDQ_SHUT);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(post(early), LYN_CMDQ_SHUT);
  EXPECT_EQ(early.executed, 0);
  EXPECT_EQ(early.freed, 0) << "what is refused stays its producer's";
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
}

TEST_F(lyn_cmdq_posts, a_gate_may_be_opened_and_shut_while_others_post) {
  start(INT32_MAX);
  static lyn_cmd nothing = {.execute_f = [](lyn_cmd *, void *) {}, .free_f = nullptr, .data = nullptr};
  std::atomic<bool> done{false};
  std::thread poster([&] {
    const probe_own own = {};
    while (!done.load(std::memory_order_relaxed)) {
      (void)lyn_cmdq_post(&gate, &nothing, &own);
    }
  });
  for (int i = 0; i < 500; i++) {
    lyn_cmdq_shut(&gate);
    std::this_thread::yield();
    lyn_cmdq_open(&gate, &queue);
  }
  done = true;
  poster.join();
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  stop();
}

TEST_F(lyn_cmdq_posts, what_was_posted_before_the_gate_was_shut_is_run_or_freed) {
  start();
  occupy();
  post_many(chunk + 1);
  lyn_cmdq_shut(&gate);
  hold = false;
  wait_until(probes.back().freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  expect_all_run_in_order();
}

TEST_F(lyn_cmdq_posts, posts_beyond_the_maximum_are_accepted_with_a_warning) {
  start(1);
  occupy();
  post_many(2);
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{});
  post();
  EXPECT_EQ(diag_log_texts("HIGH"), std::vector<std::string>{"Command queue exceeds configured maximum! 2 > 1\\n"});
  hold = false;
  wait_until(probes.back().freed, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, a_chunk_of_which_some_were_taken_off_gives_the_rest_in_order) {
  start();
  occupy();
  post_many(2 * chunk + 3);
  pthread_mutex_lock(&gate.mutex);
  for (int i = 0; i < chunk + 2; i++) {
    EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
  }
  EXPECT_EQ(count(), chunk + 1);
  pthread_mutex_unlock(&gate.mutex);
  hold = false;
  wait_until(probes.back().freed, 1);
  stop();
  ASSERT_EQ(order.size(), static_cast<size_t>(1 + chunk + 1));
  for (size_t i = 1; i < order.size(); i++) {
    EXPECT_EQ(order[i], &probes[static_cast<size_t>(chunk) + 2 + i]);
  }
}

TEST_F(lyn_cmdq_posts, a_flush_of_a_chunk_of_which_some_were_taken_off_counts_the_rest) {
  make_bare();
  gate.queue = &queue;
  queue.gate = &gate;
  post_many(chunk + 3);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(count(), 0);
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].freed, i >= 2) << i;
  }
  free(queue.head);
}

TEST_F(lyn_cmdq_posts, an_emptied_queue_takes_chunks_again) {
  make_bare();
  gate.queue = &queue;
  queue.gate = &gate;
  for (int many : {1, chunk, chunk + 1, 3 * chunk}) {
    post_many(many);
    EXPECT_EQ(count(), many);
    for (int i = 0; i < many; i++) {
      EXPECT_NE(queue.tail, queue.head);
      EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
    }
    EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
    EXPECT_EQ(queue.tail, queue.head);
    EXPECT_EQ(count(), 0);
  }
  free(queue.head);
}

TEST_F(lyn_cmdq_posts, the_count_is_exact_while_a_command_runs_and_a_flush_meets_those_behind_it) {
  std::atomic<bool> hold_second{true};
  run_to_second(hold_second);
  EXPECT_EQ(count(), 3);
  post_many(2 * chunk);
  EXPECT_EQ(count(), 3 + 2 * chunk);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(count(), 0);
  const size_t flushed = probes.size();
  hold_second = false;
  probe &after = post();
  wait_until(after.freed, 1);
  stop();
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].executed, i < 3 || i == flushed) << i;
    EXPECT_EQ(probes[i].freed, 1) << i;
  }
}

TEST_F(lyn_cmdq_posts, others_may_empty_the_chunk_that_holds_the_running_command) {
  start();
  occupy();
  for (int behind : {3, chunk, 1}) {
    const size_t first = probes.size();
    post_many(behind);
    for (int i = 0; i < behind; i++) {
      pthread_mutex_lock(&gate.mutex);
      EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd) << i;
      pthread_mutex_unlock(&gate.mutex);
    }
    pthread_mutex_lock(&gate.mutex);
    EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
    pthread_mutex_unlock(&gate.mutex);
    EXPECT_EQ(count(), 0);
    EXPECT_EQ(probes[first].freed, 0);
  }
  hold = false;
  probe &after = post();
  wait_until(after.freed, 1);
  EXPECT_EQ(probes[0].freed, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, a_flush_frees_with_the_mutex_released) {
  start();
  occupy();
  static pthread_mutex_t *mutex;
  static std::atomic<int> freed_unlocked{0};
  freed_unlocked = 0;
  mutex = &gate.mutex;
  lyn_cmd look = {.execute_f = [](lyn_cmd *, void *) {},
                  .free_f =
                      [](lyn_cmd *, void *) {
                        if (pthread_mutex_trylock(mutex) == 0) {
                          freed_unlocked++;
                          pthread_mutex_unlock(mutex);
                        }
                      },
                  .data = nullptr};
  for (int i = 0; i < chunk + 1; i++) {
    EXPECT_EQ(lyn_cmdq_enq(&queue, &look), 0);
  }
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(freed_unlocked, chunk + 1);
  hold = false;
  stop();
}

TEST_F(lyn_cmdq_posts, far_beyond_the_maximum_the_count_is_right_again_when_the_thread_comes_for_more) {
  std::atomic<bool> hold_middle{true}, hold_next{true};
  start(4);
  occupy();
  for (int i = 0; i < chunk; i++) {
    i == 4 ? post_held(hold_middle) : post();
  }
  probe &next = post_held(hold_next);
  post_many(7);
  hold = false;
  wait_until(probes[5].executed, 1);
  EXPECT_EQ(count(), chunk + 8) << "what was begun since the thread came still counts";
  hold_middle = false;
  wait_until(next.executed, 1);
  EXPECT_EQ(count(), 7);
  hold_next = false;
  wait_until(probes.back().freed, 1);
  while (count() != 0) {
    std::this_thread::yield();
  }
  probe &after = post();  // is signalled: the queue counts as empty
  wait_until(after.freed, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, what_is_counted_late_is_counted_once_where_a_flush_leaves_nothing_behind_it) {
  std::atomic<bool> hold_middle{true};
  start(4);
  occupy();
  for (int i = 0; i < chunk; i++) {
    i == 4 ? post_held(hold_middle) : post();
  }
  post_many(8);
  hold = false;
  wait_until(probes[5].executed, 1);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(count(), 5) << "what was begun since the thread came still counts";
  hold_middle = false;
  for (int i = 0; i < 2; i++) {
    while (count() != 0) {
      std::this_thread::yield();
    }
    probe &after = post();
    wait_until(after.freed, 1);
  }
  stop();
}

TEST_F(lyn_cmdq_posts, up_to_the_maximum_behind_its_run_the_thread_keeps_the_count_exact) {
  std::atomic<bool> hold_middle{true};
  start(4);
  occupy();
  for (int i = 0; i < chunk - 1; i++) {
    i == 4 ? post_held(hold_middle) : post();
  }
  post_many(4);
  hold = false;
  wait_until(probes[5].executed, 1);
  EXPECT_EQ(count(), chunk - 1 - 5 + 4);
  hold_middle = false;
  wait_until(probes.back().freed, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, a_stop_within_a_chunk_discards_the_rest_of_it) {
  std::atomic<bool> hold_second{true};
  run_to_second(hold_second);
  lyn_cmdq_shut(&gate);
  deinit_while_held(hold_second);
  for (size_t i = 0; i < probes.size(); i++) {
    EXPECT_EQ(probes[i].executed, i < 3) << i;
    EXPECT_EQ(probes[i].freed, 1) << i;
  }
  expect_zeroed();
}

TEST_F(lyn_cmdq_posts, flushes_while_commands_run_meet_each_command_once) {
  start(16);
  for (int round = 0; round < 200; round++) {
    const size_t first = probes.size();
    for (int i = 0; i < 64; i++) {
      post();
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
  stop();
  for (const probe &one : probes) {
    EXPECT_LE(one.executed, 1);
    EXPECT_EQ(one.freed, 1);
  }
}

TEST_F(lyn_cmdq_posts, taking_off_leaves_alone_what_the_thread_runs) {
  hold = true;
  start();
  probe &running = post_held(hold);
  wait_until(running.executed, 1);
  pthread_mutex_lock(&gate.mutex);
  EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
  pthread_mutex_unlock(&gate.mutex);
  hold = false;
  wait_until(running.freed, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, a_chunk_of_which_some_were_taken_off_is_used_again_from_its_beginning) {
  make_bare();
  gate.queue = &queue;
  queue.gate = &gate;
  // Each command queues the next, into a chunk of its own, as the one before is being run; the third gets the first's.
  static lyn_cmdq_t *owner;
  static lyn_cmd steps[3];
  static int runs;
  owner = &queue;
  runs = 0;
  for (lyn_cmd &step : steps) {
    step = {.execute_f =
                [](lyn_cmd *cmd, void *) {
                  EXPECT_EQ(std::atomic_ref(owner->count).load(), 0);
                  runs++;
                  if (cmd == &steps[2]) {
                    std::atomic_ref(owner->running).store(false);
                  } else {
                    EXPECT_EQ(lyn_cmdq_enq(owner, cmd + 1), 0);
                  }
                },
            .free_f = nullptr,
            .data = nullptr};
  }
  post_many(2);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &steps[0]), 0);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &posted_cmd);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  EXPECT_EQ(runs, 3);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  free(queue.head);
}

// Of use under the thread sanitizer, which sees whether whoever takes a chunk sees what was done with it before:
// nothing else comes between the two threads.
TEST_F(lyn_cmdq_posts, a_chunk_that_one_queue_has_emptied_serves_another) {
  start(INT32_MAX);
  lyn_cmdq_t other = {};
  lyn_cmdq_gate_t other_gate = LYN_CMDQ_GATE_INITIALIZER;
  ASSERT_EQ(lyn_cmdq_init_behind(&other, INT32_MAX, &other_gate), 0);
  lyn_cmdq_open(&other_gate, &other);
  for (int round = 0; round < 10; round++) {
    for (lyn_cmdq_gate_t *to : {&gate, &other_gate}) {
      for (int i = 0; i < chunk; i++) {
        const probe_own own = {&make_probe(), nullptr};
        EXPECT_EQ(lyn_cmdq_post(to, &posted_cmd, &own), LYN_CMDQ_QUEUED);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }
  for (const probe &one : probes) {
    wait_until(one.freed, 1);
  }
  lyn_cmdq_shut(&other_gate);
  EXPECT_EQ(lyn_cmdq_deinit(&other), 0);
  stop();
}

TEST_F(lyn_cmdq_posts, a_command_may_post_and_release_itself) {
  start();
  static std::atomic<int> runs{0};
  static lyn_cmdq_gate_t *to;
  runs = 0;
  to = &gate;
  auto *own = static_cast<lyn_cmd *>(malloc(sizeof(lyn_cmd)));
  *own = {.execute_f =
              [](lyn_cmd *cmd, void *) {
                const probe_own none = {};
                static lyn_cmd note = {
                    .execute_f = [](lyn_cmd *, void *) { runs++; }, .free_f = nullptr, .data = nullptr};
                EXPECT_EQ(lyn_cmdq_post(to, &note, &none), LYN_CMDQ_QUEUED);
                free(cmd);
              },
          .free_f = nullptr,
          .data = nullptr};
  EXPECT_EQ(lyn_cmdq_enq(&queue, own), 0);
  wait_until(runs, 1);
  stop();
}

TEST_F(lyn_cmdq_posts, memory_follows_a_backlog_down) {
  start(INT32_MAX);
  occupy();
  std::vector<probe> many(10000);
  const size_t before = allocated();
  for (probe &one : many) {
    one.cmd = {.execute_f = probe_execute, .free_f = probe_free, .data = &one};
    EXPECT_EQ(post(one), LYN_CMDQ_QUEUED);
  }
  const size_t full = allocated();
  EXPECT_GT(full, before + many.size() * sizeof(lyn_cmdq_item_t));
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_LT(allocated(), before + 16 * chunk * sizeof(lyn_cmdq_item_t));
  hold = false;
  stop();
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

TEST_F(lyn_cmdq, a_queue_is_made_of_whatever_its_memory_held) {
  memset(static_cast<void *>(&queue), 0xa5, sizeof queue);
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  EXPECT_EQ(std::atomic_ref(queue.count).load(), 0);
  probe &made = enqueue();
  wait_until(made.freed, 1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(made.executed, 1);
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
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
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

TEST_F(lyn_cmdq, a_flush_gives_back_all_that_a_thread_has_left) {
  make_bare();
  queue.max = -1;  // what is begun is counted late
  lyn_cmd end = end_of_thread();
  EXPECT_EQ(lyn_cmdq_enq(&queue, &end), 0);
  probe &never = enqueue();
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(never.freed, 1);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(queue.run.chunk, nullptr);
  free(queue.head);
}

// As above, but the thread has only just left, and nobody has joined it.
TEST_F(lyn_cmdq, a_flush_sees_all_that_a_thread_has_done_that_has_left) {
  make_bare();
  queue.max = -1;
  lyn_cmd end = end_of_thread();
  EXPECT_EQ(lyn_cmdq_enq(&queue, &end), 0);
  probe &never = enqueue();
  std::thread thread([this] { EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr); });
  for (bool has_left = false; !has_left;) {
    pthread_mutex_lock(&queue.mutex);
    has_left = std::atomic_ref(queue.run.is_left).load(std::memory_order_relaxed);
    pthread_mutex_unlock(&queue.mutex);
  }
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(never.freed, 1);
  EXPECT_EQ(queue.count, 0);
  thread.join();
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
