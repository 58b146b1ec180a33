/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The command queue when memory or a pthread call fails.
 *
 * The program is linked with --wrap for the pthread functions that the queue calls (tests/CMakeLists.txt); a test arms
 * one of them for the queue's own object, everybody else's calls pass.
 */
#include <errno.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "alloc_fault.h"
#include "diag_log.h"
#include "lyn_cmdq.h"

namespace {

/** A function that can be made to fail. */
struct call_fault {
  std::atomic<const void *> object{nullptr}; /* whose calls: null for nobody's */
  std::atomic<int> pass{0};                  /* calls let through first */
  std::atomic<int> result{0};
  std::atomic<bool> performed{false}; /* the real call is made before the result is given */
  std::atomic<int> calls{0};          /* for `object`, failed ones included */

  void arm(const void *new_object, int new_result, int new_pass = 0, bool is_performed = false) {
    pass = new_pass;
    result = new_result;
    performed = is_performed;
    calls = 0;
    object = new_object;
  }
  void watch(const void *new_object) { arm(new_object, 0, INT32_MAX); }
  void disarm() { object = nullptr; }

  template <typename Real>
  int meet(const void *of, Real real) {
    if (object != of || calls++ < pass) {
      return real();
    }
    if (performed) {
      real();
    }
    return result;
  }
};

call_fault fault_mutex_init, fault_cond_init, fault_create, fault_lock, fault_unlock, fault_wait, fault_signal,
    fault_join;

std::function<void()> before_wait;  /* run between the empty queue and the wait */
std::function<void()> after_unlock; /* run once, when the object of fault_unlock has been unlocked */

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr);
int __real_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg);
int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __real_pthread_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex);
int __real_pthread_cond_signal(pthread_cond_t *cond);
int __real_pthread_join(pthread_t thread, void **result);

int __wrap_pthread_mutex_init(pthread_mutex_t *mutex, const pthread_mutexattr_t *attr) {
  return fault_mutex_init.meet(mutex, [=] { return __real_pthread_mutex_init(mutex, attr); });
}
int __wrap_pthread_cond_init(pthread_cond_t *cond, const pthread_condattr_t *attr) {
  return fault_cond_init.meet(cond, [=] { return __real_pthread_cond_init(cond, attr); });
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg) {
  return fault_create.meet(arg, [=] { return __real_pthread_create(thread, attr, entry, arg); });
}
int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  return fault_lock.meet(mutex, [=] { return __real_pthread_mutex_lock(mutex); });
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  const int result = fault_unlock.meet(mutex, [=] { return __real_pthread_mutex_unlock(mutex); });
  if (after_unlock && fault_unlock.object == mutex) {
    std::exchange(after_unlock, nullptr)();
  }
  return result;
}
int __wrap_pthread_cond_wait(pthread_cond_t *cond, pthread_mutex_t *mutex) {
  return fault_wait.meet(cond, [=] {
    if (before_wait) {
      before_wait();
    }
    return __real_pthread_cond_wait(cond, mutex);
  });
}
int __wrap_pthread_cond_signal(pthread_cond_t *cond) {
  return fault_signal.meet(cond, [=] { return __real_pthread_cond_signal(cond); });
}
int __wrap_pthread_join(pthread_t thread, void **result) {
  return fault_join.meet(reinterpret_cast<const void *>(thread), [=] { return __real_pthread_join(thread, result); });
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

using texts = std::vector<std::string>;

void *const thread_failed = reinterpret_cast<void *>(intptr_t{-1});

class lyn_cmdq_fault : public testing::Test {
 protected:
  lyn_cmdq_t queue = {};
  std::atomic<int> executed{0}, freed{0};
  lyn_cmd cmd = {.execute_f = [](lyn_cmd *, void *data) { static_cast<lyn_cmdq_fault *>(data)->executed++; },
                 .free_f = [](lyn_cmd *, void *data) { static_cast<lyn_cmdq_fault *>(data)->freed++; },
                 .data = this};

  void SetUp() override { diag_log_take(); }
  void TearDown() override {
    for (call_fault *fault : {&fault_mutex_init, &fault_cond_init, &fault_create, &fault_lock, &fault_unlock,
                              &fault_wait, &fault_signal, &fault_join}) {
      fault->disarm();
    }
    before_wait = after_unlock = nullptr;
  }
  /** Make the queue by hand, without a thread: the test's own thread runs it. */
  void make_bare() {
    queue.head = queue.tail = lyn_dll_init(nullptr);
    queue.max = 100;
    pthread_mutex_init(&queue.mutex, nullptr);
    pthread_cond_init(&queue.cond, nullptr);
  }
  void free_bare() {
    EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
    free(queue.head);
  }
  /** Start the queue and see its thread to the wait. */
  void start_idle() {
    fault_wait.watch(&queue.cond);
    ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
    while (fault_wait.calls == 0) {
      std::this_thread::yield();
    }
    // The thread counted the wait while it held the mutex.
    pthread_mutex_lock(&queue.mutex);
    pthread_mutex_unlock(&queue.mutex);
  }
};

/* Starting */

TEST_F(lyn_cmdq_fault, init_without_memory_fails) {
  // A live queue holds the sentinel that was kept, so another one must be made.
  lyn_cmdq_t holder = {};
  ASSERT_EQ(lyn_cmdq_init(&holder, 1), 0);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  const int32_t status = lyn_cmdq_init(&queue, 100);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_EQ(status, -1);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"Failed to allocate memory for cmdq\\n"});
  EXPECT_EQ(lyn_cmdq_deinit(&holder), 0);
}

TEST_F(lyn_cmdq_fault, init_without_mutex_or_condition_fails_and_leaves_no_sentinel) {
  fault_mutex_init.arm(&queue.mutex, EAGAIN);
  EXPECT_EQ(lyn_cmdq_init(&queue, 100), -1);
  EXPECT_EQ(queue.head, nullptr);
  fault_mutex_init.disarm();
  fault_cond_init.arm(&queue.cond, EAGAIN);
  EXPECT_EQ(lyn_cmdq_init(&queue, 100), -1);
  EXPECT_EQ(queue.head, nullptr);
  EXPECT_EQ(queue.tail, nullptr);
  EXPECT_EQ(queue.thread, 0u);
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"pthread_mutex_init failed:", "pthread_cond_init failed:"}));
}

TEST_F(lyn_cmdq_fault, init_without_thread_succeeds_and_commands_wait_for_deinit) {
  fault_create.arm(&queue, EAGAIN);
  EXPECT_EQ(lyn_cmdq_init(&queue, 100), 0);
  EXPECT_EQ(queue.thread, 0u);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(lyn_cmdq_join_thread(&queue), -1);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(executed, 0);
  EXPECT_EQ(freed, 1);
  EXPECT_EQ(diag_log_texts("ERROR"),
            (texts{"Cannot start cmdthrd:", "Command thread not initialized\\n", "Command thread not initialized\\n"}));
}

/* Enqueueing */

TEST_F(lyn_cmdq_fault, enqueueing_signals_only_when_the_queue_was_empty) {
  make_bare();
  fault_signal.watch(&queue.cond);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(fault_signal.calls, 1);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(fault_signal.calls, 1);
  EXPECT_EQ(lyn_cmdq_flush(&queue), 0);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(fault_signal.calls, 2);
  free_bare();
}

TEST_F(lyn_cmdq_fault, enqueueing_without_memory_fails_and_the_command_stays_its_producers) {
  make_bare();
  for (const uint32_t allocation : {0U, 1U, 2U}) {
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, allocation);
    const int32_t status = lyn_cmdq_enq(&queue, &cmd);
    EXPECT_TRUE(alloc_fault_disarm());
    EXPECT_EQ(status, -1);
    EXPECT_EQ(queue.count, 0);
    EXPECT_EQ(diag_log_texts("ERROR"), texts{"Failed to insert into cmdq\\n"});
  }
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), -1);
  EXPECT_TRUE(alloc_fault_disarm());
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"Failed to insert into cmdq\\n", "pthread_mutex_unlock failed:"}));
  free_bare();
  EXPECT_EQ(freed, 0);
}

TEST_F(lyn_cmdq_fault, enqueueing_takes_only_a_negative_lock_result_for_a_failure) {
  make_bare();
  fault_lock.arm(&queue.mutex, -1);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), -1);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_lock failed:"});
  fault_lock.arm(&queue.mutex, EDEADLK, 0, true);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_lock.disarm();
  EXPECT_EQ(diag_log_texts(), texts{});
  EXPECT_EQ(queue.count, 1);
  free_bare();
}

TEST_F(lyn_cmdq_fault, enqueueing_takes_only_a_negative_unlock_result_for_a_failure_and_the_command_is_queued) {
  make_bare();
  fault_unlock.arm(&queue.mutex, -1, 0, true);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), -1);
  EXPECT_EQ(queue.count, 1);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_unlock failed:"});
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts(), texts{});
  EXPECT_EQ(queue.count, 2);
  free_bare();
}

TEST_F(lyn_cmdq_fault, enqueueing_without_signal_fails_although_the_command_is_queued) {
  start_idle();
  fault_signal.arm(&queue.cond, EINVAL);
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  const int32_t status = lyn_cmdq_enq(&queue, &cmd);
  fault_signal.disarm();
  fault_unlock.disarm();
  EXPECT_EQ(status, -1);
  EXPECT_EQ(queue.count, 1);
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"pthread_cond_signal failed:", "pthread_mutex_unlock failed:"}));
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(freed, 1);
}

TEST_F(lyn_cmdq_fault, enqueueing_that_cannot_lock_again_with_the_memory_it_got_fails_and_frees_it) {
  make_bare();
  fault_lock.arm(&queue.mutex, -1, 1);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), -1);
  EXPECT_EQ(fault_lock.calls, 2);
  fault_lock.disarm();
  EXPECT_EQ(diag_log_texts(), texts{"pthread_mutex_lock failed:"});
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(pthread_mutex_trylock(&queue.mutex), 0) << "it had released the mutex for the memory";
  pthread_mutex_unlock(&queue.mutex);
  free_bare();
}

/* Posting, which gets memory for a chunk, its items and its node, in this order */

class lyn_cmdq_post_fault : public lyn_cmdq_fault {
 protected:
  lyn_cmdq_gate_t gate = LYN_CMDQ_GATE_INITIALIZER;
  lyn_cmd posted = {.execute_f = [](lyn_cmd *, void *) {}, .free_f = nullptr, .data = nullptr}, other = posted;

  void make_open() {
    make_bare();
    queue.gate = &gate;
    gate.queue = &queue;
  }
  lyn_cmdq_post_e post(lyn_cmd *one) {
    const unsigned char own[LYN_CMDQ_OWN_LEN] = {};
    return lyn_cmdq_post(&gate, one, own);
  }
  lyn_cmdq_post_e post_without(uint32_t allocation) {
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, allocation);
    const lyn_cmdq_post_e result = post(&posted);
    EXPECT_TRUE(alloc_fault_disarm());
    return result;
  }
};

TEST_F(lyn_cmdq_post_fault, a_post_without_memory_says_for_what_and_warns_where_it_has_seen_the_queue) {
  make_open();
  queue.max = -1;
  EXPECT_EQ(post_without(0), LYN_CMDQ_NO_CHUNK);
  EXPECT_EQ(post_without(1), LYN_CMDQ_NO_ITEMS);
  EXPECT_EQ(diag_log_texts(), texts{});
  EXPECT_EQ(post_without(2), LYN_CMDQ_NO_NODE);
  EXPECT_EQ(diag_log_texts(),
            (texts{"Command queue exceeds configured maximum! 0 > -1\\n", "Failed to insert into cmdq\\n"}));
  for (uint32_t i = 0; i < LYN_CMDQ_CHUNK_LEN; i++) {
    EXPECT_EQ(post(&posted), LYN_CMDQ_QUEUED);
  }
  diag_log_take();
  EXPECT_EQ(post_without(2), LYN_CMDQ_NO_NODE);
  EXPECT_EQ(diag_log_texts(),
            (texts{"Command queue exceeds configured maximum! 32 > -1\\n", "Failed to insert into cmdq\\n"}));
  EXPECT_EQ(queue.count, 32);
  free_bare();
}

TEST_F(lyn_cmdq_post_fault, a_post_that_is_refused_logs_an_unlock_that_fails) {
  make_open();
  fault_unlock.arm(&gate.mutex, EPERM, 0, true);
  EXPECT_EQ(post_without(0), LYN_CMDQ_NO_CHUNK);
  EXPECT_EQ(diag_log_texts(), texts{"pthread_mutex_unlock failed:"});
  EXPECT_EQ(post_without(2), LYN_CMDQ_NO_NODE);
  EXPECT_EQ(diag_log_texts(), (texts{"Failed to insert into cmdq\\n", "pthread_mutex_unlock failed:"}));
  lyn_cmdq_shut(&gate);
  EXPECT_EQ(post(&posted), LYN_CMDQ_SHUT);
  EXPECT_EQ(diag_log_texts(), texts{"pthread_mutex_unlock failed:"});
  fault_unlock.disarm();
  free_bare();
}

TEST_F(lyn_cmdq_post_fault, a_post_that_cannot_lock_again_with_the_memory_it_got_fails_and_frees_it) {
  make_open();
  fault_lock.arm(&gate.mutex, -1, 1);
  EXPECT_EQ(post(&posted), LYN_CMDQ_FAILED);
  fault_lock.disarm();
  EXPECT_EQ(diag_log_texts(), texts{"pthread_mutex_lock failed:"});
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(queue.tail, queue.head);
  free_bare();
}

TEST_F(lyn_cmdq_post_fault, a_post_that_is_queued_takes_only_a_negative_unlock_result_for_a_failure) {
  make_open();
  fault_unlock.arm(&gate.mutex, -1, 1, true);
  EXPECT_EQ(post(&posted), LYN_CMDQ_QUEUED_FAILED);
  EXPECT_EQ(diag_log_texts(), texts{"pthread_mutex_unlock failed:"});
  fault_unlock.arm(&gate.mutex, EPERM, 0, true);
  EXPECT_EQ(post(&posted), LYN_CMDQ_QUEUED);
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts(), texts{});
  EXPECT_EQ(queue.count, 2);
  free_bare();
}

TEST_F(lyn_cmdq_post_fault, a_gate_that_is_shut_while_a_post_gets_memory_refuses_it) {
  make_open();
  fault_unlock.watch(&gate.mutex);
  after_unlock = [this] { lyn_cmdq_shut(&gate); };
  EXPECT_EQ(post(&posted), LYN_CMDQ_SHUT);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(queue.tail, queue.head);
  EXPECT_EQ(diag_log_texts(), texts{});
  free_bare();
}

TEST_F(lyn_cmdq_post_fault, room_that_somebody_else_makes_while_a_post_gets_memory_is_used) {
  make_open();
  fault_unlock.watch(&gate.mutex);
  after_unlock = [this] { EXPECT_EQ(post(&other), LYN_CMDQ_QUEUED); };
  EXPECT_EQ(post(&posted), LYN_CMDQ_QUEUED);
  EXPECT_EQ(queue.count, 2);
  EXPECT_EQ(queue.tail->prev, queue.head) << "one chunk for both";
  EXPECT_EQ(lyn_cmdq_deq(&queue), &other);
  EXPECT_EQ(lyn_cmdq_deq(&queue), &posted);
  EXPECT_EQ(lyn_cmdq_deq(&queue), nullptr);
  free_bare();
}

/* Flushing */

TEST_F(lyn_cmdq_fault, flush_without_lock_fails_and_discards_nothing) {
  make_bare();
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_lock.arm(&queue.mutex, EINVAL);
  EXPECT_EQ(lyn_cmdq_flush(&queue), -1);
  fault_lock.disarm();
  EXPECT_EQ(freed, 0);
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  EXPECT_EQ(lyn_cmdq_flush(&queue), -1);
  fault_unlock.disarm();
  EXPECT_EQ(freed, 1);
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"pthread_mutex_lock failed:", "pthread_mutex_unlock failed:"}));
  free_bare();
}

/* The thread */

TEST_F(lyn_cmdq_fault, the_thread_ends_when_it_cannot_lock) {
  make_bare();
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_lock.arm(&queue.mutex, EINVAL);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  fault_lock.disarm();
  EXPECT_TRUE(queue.running);
  EXPECT_EQ(executed, 0);
  EXPECT_EQ(queue.count, 1);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_lock failed:"});
  free_bare();
}

TEST_F(lyn_cmdq_fault, the_thread_ends_when_it_cannot_unlock_and_releases_the_command_that_it_took) {
  make_bare();
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  fault_unlock.disarm();
  EXPECT_EQ(executed, 0);
  EXPECT_EQ(freed, 1);
  EXPECT_EQ(queue.count, 0);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_unlock failed:"});
  free_bare();
}

TEST_F(lyn_cmdq_fault, the_thread_begins_the_first_command_before_it_releases_the_mutex) {
  make_bare();
  lyn_cmd first = {
      .execute_f = [](lyn_cmd *,
                      void *data) { std::atomic_ref(static_cast<lyn_cmdq_t *>(data)->running).store(false); },
      .free_f = nullptr,
      .data = &queue};
  EXPECT_EQ(lyn_cmdq_enq(&queue, &first), 0);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  fault_unlock.watch(&queue.mutex);
  after_unlock = [this] { EXPECT_EQ(lyn_cmdq_flush(&queue), 0); };
  alarm(60);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  alarm(0);
  EXPECT_EQ(executed, 0);
  EXPECT_EQ(freed, 1);
  EXPECT_EQ(queue.count, 0);
  free_bare();
}

TEST_F(lyn_cmdq_fault, the_thread_ends_when_it_cannot_wait) {
  make_bare();
  fault_wait.arm(&queue.cond, EINVAL);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_cond_wait failed:"});
  EXPECT_EQ(pthread_mutex_trylock(&queue.mutex), 0);
  pthread_mutex_unlock(&queue.mutex);
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts("ERROR"), (texts{"pthread_cond_wait failed:", "pthread_mutex_unlock failed:"}));
  free_bare();
}

TEST_F(lyn_cmdq_fault, the_thread_ends_when_it_cannot_unlock_after_a_wait) {
  make_bare();
  fault_wait.arm(&queue.cond, 0);
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_unlock failed:"});
  free_bare();
}

TEST_F(lyn_cmdq_fault, the_thread_goes_round_the_loop_after_a_wait) {
  make_bare();
  // Of three locks one comes before each of the two waits; a command taken straight after waking would need none.
  fault_wait.arm(&queue.cond, 0);
  fault_lock.arm(&queue.mutex, EINVAL, 2);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), thread_failed);
  EXPECT_EQ(fault_wait.calls, 2);
  EXPECT_EQ(fault_lock.calls, 3);
  fault_lock.disarm();
  free_bare();
}

TEST_F(lyn_cmdq_fault, what_wakes_the_thread_is_run_without_another_look_at_the_mutex) {
  static int locks;
  locks = 0;
  start_idle();
  lyn_cmd look = {.execute_f = [](lyn_cmd *, void *) { locks = fault_lock.calls; },
                  .free_f = [](lyn_cmd *, void *data) { ++*static_cast<std::atomic<int> *>(data); },
                  .data = &freed};
  fault_lock.watch(&queue.mutex);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &look), 0);
  while (freed == 0) {
    std::this_thread::yield();
  }
  EXPECT_EQ(locks, 2) << "those of the producer, which got memory between them";
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq_fault, a_chunk_that_was_run_serves_the_next_who_needs_one) {
  start_idle();
  for (uint32_t i = 0; i < LYN_CMDQ_CHUNK_LEN; i++) {
    EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  }
  while (freed < static_cast<int>(LYN_CMDQ_CHUNK_LEN)) {
    std::this_thread::yield();
  }
  // The thread keeps it when it looks for more.
  int32_t status = -1;
  for (int ms = 0; ms < 5000 && status != 0; ms++) {
    alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
    status = lyn_cmdq_enq(&queue, &cmd);
    alloc_fault_disarm();
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(status, 0) << "it takes no memory";
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq_fault, a_thread_that_has_ended_keeps_no_chunk) {
  make_bare();
  static lyn_cmdq_t *owner;
  static lyn_cmd nothing = {.execute_f = [](lyn_cmd *, void *) {}, .free_f = nullptr, .data = nullptr};
  lyn_cmd last = {.execute_f = [](lyn_cmd *, void *) { std::atomic_ref(owner->running).store(false); },
                  .free_f = nullptr,
                  .data = nullptr};
  const auto enqueue_nothing = [this](uint32_t times) {
    for (uint32_t i = 0; i < times; i++) {
      EXPECT_EQ(lyn_cmdq_enq(&queue, &nothing), 0);
    }
  };
  owner = &queue;
  enqueue_nothing(LYN_CMDQ_CHUNK_LEN);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &last), 0);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  enqueue_nothing(LYN_CMDQ_CHUNK_LEN - 1);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), -1);
  EXPECT_TRUE(alloc_fault_disarm());
  free_bare();
}

TEST_F(lyn_cmdq_fault, commands_wait_for_deinit_once_the_thread_has_failed) {
  fault_wait.arm(&queue.cond, EINVAL);
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  void *result = nullptr;
  ASSERT_EQ(pthread_join(queue.thread, &result), 0);
  queue.thread = 0;
  EXPECT_EQ(result, thread_failed);
  EXPECT_EQ(lyn_cmdq_enq(&queue, &cmd), 0);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(executed, 0);
  EXPECT_EQ(freed, 1);
}

/* Stopping */

TEST_F(lyn_cmdq_fault, a_stop_between_the_empty_queue_and_the_wait_is_not_lost) {
  std::thread stopper;
  fault_wait.watch(&queue.cond);
  before_wait = [&] {
    stopper = std::thread([this] { lyn_cmdthrd_deinit(&queue); });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  };
  make_bare();
  alarm(60);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  alarm(0);
  stopper.join();
  EXPECT_EQ(fault_wait.calls, 1);
  EXPECT_FALSE(queue.running);
  free_bare();
}

TEST_F(lyn_cmdq_fault, a_stop_that_is_seen_needs_no_wait) {
  make_bare();
  lyn_cmdthrd_deinit(&queue);
  fault_wait.watch(&queue.cond);
  EXPECT_EQ(lyn_cmdthrd_main(&queue), nullptr);
  EXPECT_EQ(fault_wait.calls, 0);
  free_bare();
}

TEST_F(lyn_cmdq_fault, a_stop_takes_only_a_negative_signal_result_for_a_failure) {
  make_bare();
  fault_signal.arm(&queue.cond, EINVAL, 0, true);
  lyn_cmdthrd_deinit(&queue);
  EXPECT_EQ(diag_log_texts(), texts{});
  fault_signal.arm(&queue.cond, -1, 0, true);
  lyn_cmdthrd_deinit(&queue);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_cond_signal failed:"});
  free_bare();
}

TEST_F(lyn_cmdq_fault, a_stop_without_lock_stops_all_the_same) {
  start_idle();
  fault_lock.arm(&queue.mutex, EINVAL, 0, false);
  lyn_cmdthrd_deinit(&queue);
  fault_lock.disarm();
  EXPECT_EQ(lyn_cmdq_join_thread(&queue), 0);
  queue.thread = 0;
  EXPECT_EQ(diag_log_texts("ERROR")[0], "pthread_mutex_lock failed:");
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
}

TEST_F(lyn_cmdq_fault, a_stop_logs_an_unlock_that_fails) {
  make_bare();
  fault_unlock.arm(&queue.mutex, EPERM, 0, true);
  lyn_cmdthrd_deinit(&queue);
  fault_unlock.disarm();
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_mutex_unlock failed:"});
  EXPECT_TRUE(queue.stop);
  free_bare();
}

TEST_F(lyn_cmdq_fault, a_failed_join_is_logged_and_deinit_goes_on) {
  ASSERT_EQ(lyn_cmdq_init(&queue, 100), 0);
  fault_join.arm(reinterpret_cast<const void *>(queue.thread), EINVAL);
  EXPECT_EQ(lyn_cmdq_join_thread(&queue), -1);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_join failed:"});
  fault_join.arm(reinterpret_cast<const void *>(queue.thread), EINVAL, 0, true);
  EXPECT_EQ(lyn_cmdq_deinit(&queue), 0);
  EXPECT_EQ(queue.head, nullptr);
  EXPECT_EQ(diag_log_texts("ERROR"), texts{"pthread_join failed:"});
}

}  // namespace
