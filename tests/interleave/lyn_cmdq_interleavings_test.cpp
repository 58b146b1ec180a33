/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The command queue in every order of its threads: small operations against each other, all orders that differ to them.
 * Whatever the order, a command is run at most once and in its turn, released exactly once, nobody waits for ever, and
 * no access to memory is in a race. How many orders there were is printed.
 */
#include <gtest/gtest.h>

#include <array>
#include <atomic>

#include "interleave.h"
#include "lyn_cmdq.h"
#include "lyn_log.h"

/* In place of the module's lyn_log.cpp: what the queue has to say goes nowhere. */
bool lyn_log_init() {
  return true;
}
void lyn_log_deinit() {}
void lyn_log_emit(const diag_msg_record_t *, const uint8_t *, const uint64_t *) {}

namespace {

constexpr int32_t MAX = 100;

/** Commands that are numbered, and what became of them in this order. */
struct commands {
  struct one {
    lyn_cmd cmd;
    commands *all;
    int number, runs, releases;
  };
  std::array<one, 4> each = {};
  int last_run = -1;
  bool in_turn = true; /**< those of one producer ran in their turn */

  commands() {
    for (int i = 0; i < 4; i++) {
      each[static_cast<size_t>(i)] = {{run, release, &each[static_cast<size_t>(i)]}, this, i, 0, 0};
    }
  }
  commands(const commands &) = delete;
  commands &operator=(const commands &) = delete;

  lyn_cmd *operator[](size_t number) { return &each[number].cmd; }

  static void run(lyn_cmd *, void *data) {
    auto *self = static_cast<one *>(data);
    self->runs++;
    self->all->in_turn = self->all->in_turn && self->number > self->all->last_run;
    self->all->last_run = self->number;
  }
  static void release(lyn_cmd *, void *data) { static_cast<one *>(data)->releases++; }

  /** The first `count` are the queue's, and the queue is no more. */
  void judge(size_t count, bool one_producer) const {
    for (size_t i = 0; i < each.size(); i++) {
      if (each[i].runs > 1 || each[i].releases != (i < count ? 1 : 0)) {
        interleave_fail("command " + std::to_string(i) + " ran " + std::to_string(each[i].runs) +
                        " times, was released " + std::to_string(each[i].releases) + " times");
      }
    }
    if (one_producer && !in_turn) {
      interleave_fail("not in their turn");
    }
  }
};

void check(bool holds, const char *what) {
  if (!holds) {
    interleave_fail(what);
  }
}

void show(const interleave_result &all) {
  EXPECT_EQ(all.failure, "");
  printf("%zu orders, %zu begun twice\n", all.orders, all.repeated);
  testing::Test::RecordProperty("orders", std::to_string(all.orders));
}

TEST(lyn_cmdq_interleavings, two_commands_and_a_stop) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    check(lyn_cmdq_init(&queue, MAX) == 0, "no queue");
    check(lyn_cmdq_enq(&queue, given[0]) == 0, "not queued");
    check(lyn_cmdq_enq(&queue, given[1]) == 0, "not queued");
    check(lyn_cmdq_deinit(&queue) == 0, "not stopped");
    given.judge(2, true);
  }));
}

TEST(lyn_cmdq_interleavings, two_producers_and_a_stop) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    lyn_cmdq_init(&queue, MAX);
    const size_t one = interleave_start([&] { check(lyn_cmdq_enq(&queue, given[0]) == 0, "not queued"); });
    check(lyn_cmdq_enq(&queue, given[1]) == 0, "not queued");
    interleave_join(one);
    lyn_cmdq_deinit(&queue);
    given.judge(2, false);
  }));
}

TEST(lyn_cmdq_interleavings, a_flush_while_a_command_comes) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    lyn_cmdq_init(&queue, MAX);
    lyn_cmdq_enq(&queue, given[0]);
    const size_t one = interleave_start([&] { check(lyn_cmdq_flush(&queue) == 0, "not flushed"); });
    lyn_cmdq_enq(&queue, given[1]);
    interleave_join(one);
    lyn_cmdq_deinit(&queue);
    given.judge(2, true);
  }));
}

TEST(lyn_cmdq_interleavings, a_command_is_taken_off_while_the_thread_takes_it) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    lyn_cmdq_init(&queue, MAX);
    lyn_cmdq_enq(&queue, given[0]);
    pthread_mutex_lock(&queue.mutex);
    const lyn_cmd *taken = lyn_cmdq_deq(&queue);
    pthread_mutex_unlock(&queue.mutex);
    lyn_cmdq_deinit(&queue);
    check(taken == nullptr || taken == given[0], "another command");
    check(taken == nullptr || given.each[0].runs == 0, "taken, and run");
    given.judge(taken == nullptr ? 1 : 0, true);
  }));
}

TEST(lyn_cmdq_interleavings, a_post_while_the_gate_is_shut_and_the_queue_stopped) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_gate_t gate = LYN_CMDQ_GATE_INITIALIZER;
    lyn_cmdq_t queue;
    lyn_cmdq_init_behind(&queue, MAX, &gate);
    lyn_cmdq_open(&gate, &queue);
    lyn_cmdq_post_e posted = LYN_CMDQ_FAILED;
    struct {
      commands::one *self;
      void *nothing;
    } own = {given.each.data(), nullptr};
    lyn_cmd cmd = {[](lyn_cmd *, void *data) { commands::run(nullptr, *static_cast<void **>(data)); },
                   [](lyn_cmd *, void *data) { commands::release(nullptr, *static_cast<void **>(data)); }, nullptr};
    const size_t one = interleave_start([&] { posted = lyn_cmdq_post(&gate, &cmd, &own); });
    lyn_cmdq_shut(&gate);
    lyn_cmdq_deinit(&queue);
    interleave_join(one);
    check(posted == LYN_CMDQ_QUEUED || posted == LYN_CMDQ_SHUT, "neither queued nor refused");
    given.judge(posted == LYN_CMDQ_QUEUED ? 1 : 0, true);
  }));
}

/** Nobody but its producer wakes the thread. */
TEST(lyn_cmdq_interleavings, a_command_is_run_without_a_stop) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    lyn_cmdq_init(&queue, MAX);
    struct {
      pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
      pthread_cond_t changed = PTHREAD_COND_INITIALIZER;
      int runs = 0;
    } seen;
    lyn_cmd cmd = {[](lyn_cmd *, void *data) {
                     auto *shown = static_cast<decltype(seen) *>(data);
                     pthread_mutex_lock(&shown->mutex);
                     shown->runs++;
                     pthread_mutex_unlock(&shown->mutex);
                     pthread_cond_signal(&shown->changed);
                   },
                   nullptr, &seen};
    for (int i = 1; i <= 2; i++) {
      lyn_cmdq_enq(&queue, &cmd);
      pthread_mutex_lock(&seen.mutex);
      while (seen.runs < i) {
        pthread_cond_wait(&seen.changed, &seen.mutex);
      }
      pthread_mutex_unlock(&seen.mutex);
    }
    lyn_cmdq_deinit(&queue);
    check(seen.runs == 2, "run more often than queued");
  }));
}

/** What the thread has left behind is found by whoever empties the queue, before it is joined and after. */
TEST(lyn_cmdq_interleavings, a_flush_while_the_thread_ends) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    lyn_cmdq_init(&queue, MAX);
    lyn_cmdq_enq(&queue, given[0]);
    lyn_cmdthrd_deinit(&queue);
    lyn_cmdq_flush(&queue);
    lyn_cmdq_enq(&queue, given[1]);
    lyn_cmdq_deinit(&queue);
    given.judge(2, true);
  }));
}

/** A chunk that ends while its last commands are run and the next one comes. */
TEST(lyn_cmdq_interleavings, commands_of_two_chunks) {
  show(interleave_all([] {
    commands given;
    lyn_cmdq_t queue;
    interleave_refuse_threads(true);
    lyn_cmdq_init(&queue, MAX);
    interleave_refuse_threads(false);
    lyn_cmd filling = {[](lyn_cmd *, void *) {}, nullptr, nullptr};
    for (uint32_t i = 1; i < LYN_CMDQ_CHUNK_LEN; i++) {
      lyn_cmdq_enq(&queue, &filling);
    }
    lyn_cmdq_enq(&queue, given[0]);
    pthread_mutex_lock(&queue.mutex);
    for (uint32_t i = 1; i < LYN_CMDQ_CHUNK_LEN; i++) {
      lyn_cmdq_deq(&queue);
    }
    pthread_mutex_unlock(&queue.mutex);
    const size_t thread = interleave_start([&] { lyn_cmdthrd_main(&queue); });
    lyn_cmdq_enq(&queue, given[1]);
    lyn_cmdthrd_deinit(&queue);
    interleave_join(thread);
    lyn_cmdq_deinit(&queue);
    given.judge(2, true);
  }));
}

}  // namespace
