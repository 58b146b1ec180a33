/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The module lock: who has it, and whose turn is next.
 *
 * Callers and the command thread are served in the order of their coming. A lock that nobody waits for is taken and
 * given back with one atomic exchange; whoever finds it taken stands in a row, and who releases it hands it to the
 * first of the row, so that nobody who comes later, and the one who has just released it least of all, gets ahead of
 * those who wait. No wait has an end of its own, and none looks at a clock.
 *
 * ox_lyn_deinit joins the command thread while it holds the lock. The thread alone may therefore be sent away: once the
 * module is no longer initialised it does not wait any more.
 */
#include <atomic>

#include "lyn_interface.h"

/** `wanted`: taken, and the row is not empty; that changes under the row's mutex only. */
enum lyn_lock_state_e : uint32_t { LYN_LOCK_FREE, LYN_LOCK_TAKEN, LYN_LOCK_WANTED };

/** A place in the row, on the stack of the thread that stands there. */
typedef struct lyn_lock_place_t {
  struct lyn_lock_place_t *behind;
  pthread_cond_t called;
  bool is_called;   /**< it may go: with the lock, or sent away */
  bool is_sent_off; /**< sent away */
} lyn_lock_place_t;

alignas(64) static std::atomic<lyn_lock_state_e> lyn_lock_state{LYN_LOCK_FREE};
static pthread_mutex_t lyn_lock_row_mutex = PTHREAD_MUTEX_INITIALIZER;  // guards what follows
static lyn_lock_place_t *lyn_lock_first, *lyn_lock_last;
static lyn_lock_place_t *lyn_lock_thread;  // the command thread's place

/** Holds the row's mutex for a scope. */
struct lyn_row_guard_t {
  lyn_row_guard_t() {
    lyn_order_take(LYN_ORDER_ROW);
    pthread_mutex_lock(&lyn_lock_row_mutex);
  }
  ~lyn_row_guard_t() {
    lyn_order_give(LYN_ORDER_ROW);
    pthread_mutex_unlock(&lyn_lock_row_mutex);
  }
  lyn_row_guard_t(const lyn_row_guard_t &) = delete;
  lyn_row_guard_t &operator=(const lyn_row_guard_t &) = delete;
};

/** Let the one at `place` go. It is gone when the mutex is released, so it is called before. */
static void lyn_lock_call(lyn_lock_place_t *place) {
  place->is_called = true;
  pthread_cond_signal(&place->called);
}

/** Take a place out of the row. */
static void lyn_lock_leave_row(lyn_lock_place_t *place) {
  lyn_lock_place_t *before = nullptr;
  for (lyn_lock_place_t *at = lyn_lock_first; at != place; at = at->behind) {
    before = at;
  }
  (before != nullptr ? before->behind : lyn_lock_first) = place->behind;
  if (lyn_lock_last == place) {
    lyn_lock_last = before;
  }
  if (lyn_lock_first == nullptr) {
    lyn_lock_state.store(LYN_LOCK_TAKEN, std::memory_order_relaxed);
  }
}

/** Stand in the row until called. False: sent away. */
static bool lyn_lock_stand(bool is_thread) {
  lyn_lock_place_t place = {
      .behind = nullptr, .called = PTHREAD_COND_INITIALIZER, .is_called = false, .is_sent_off = false};
  (lyn_lock_last != nullptr ? lyn_lock_last->behind : lyn_lock_first) = &place;
  lyn_lock_last = &place;
  if (is_thread) {
    lyn_lock_thread = &place;
  }
  while (!place.is_called) {
    pthread_cond_wait(&place.called, &lyn_lock_row_mutex);
  }
  if (is_thread) {
    lyn_lock_thread = nullptr;
  }
  pthread_cond_destroy(&place.called);
  // Whoever has called it took it out of the row before. NOLINTNEXTLINE(clang-analyzer-core.StackAddressEscape)
  return !place.is_sent_off;
}

/** The lock was found taken. */
static bool lyn_lock_wait(bool is_thread) {
  const lyn_row_guard_t row;
  if (is_thread && !lyn_is_initialised()) {
    return false;
  }
  if (lyn_lock_state.exchange(LYN_LOCK_WANTED, std::memory_order_acquire) == LYN_LOCK_FREE) {
    lyn_lock_state.store(LYN_LOCK_TAKEN, std::memory_order_relaxed);  // released since, and the row is empty
    return true;
  }
  return lyn_lock_stand(is_thread);
}

bool lyn_lock_try() {
  lyn_lock_state_e found = LYN_LOCK_FREE;
  return lyn_lock_state.compare_exchange_strong(found, LYN_LOCK_TAKEN, std::memory_order_acquire,
                                                std::memory_order_relaxed);
}

void lyn_lock() {
  lyn_order_take(LYN_ORDER_MODULE);
  if (!lyn_lock_try()) {
    lyn_lock_wait(false);
  }
}

void lyn_unlock() {
  lyn_order_give(LYN_ORDER_MODULE);
  lyn_lock_state_e found = LYN_LOCK_TAKEN;
  if (lyn_lock_state.compare_exchange_strong(found, LYN_LOCK_FREE, std::memory_order_release,
                                             std::memory_order_relaxed)) {
    return;
  }
  const lyn_row_guard_t row;
  lyn_lock_place_t *next = lyn_lock_first;
  lyn_lock_leave_row(next);
  lyn_lock_call(next);
}

bool lyn_lock_while_initialised() {
  lyn_order_take(LYN_ORDER_MODULE);
  if (!lyn_lock_try() && !lyn_lock_wait(true)) {
    lyn_order_give(LYN_ORDER_MODULE);
    return false;
  }
  if (lyn_is_initialised()) {
    return true;
  }
  lyn_unlock();
  return false;
}

void lyn_lock_send_thread_off() {
  const lyn_row_guard_t row;
  if (lyn_lock_thread != nullptr) {
    lyn_lock_leave_row(lyn_lock_thread);
    lyn_lock_thread->is_sent_off = true;
    lyn_lock_call(lyn_lock_thread);
  }
}
