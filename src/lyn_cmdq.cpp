/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Command queue and command thread: see lyn_cmdq.h for who owns a command when.
 *
 * The list's elements are chunks of items, so that most commands cost neither an allocation nor a list operation. The
 * thread takes what is in the first chunk as its run, with one look at the mutex, and claims each item when it begins
 * it; so does a flush with those that the thread has not begun. A chunk that has room stays in the list meanwhile, and
 * leaves it when its last item is taken. Where memory is needed, the mutex is released for it.
 *
 * The thread waits on the condition for the empty queue to fill and is signalled for that transition only; it drains
 * the queue before it waits again. A stop is the field `stop`, which the thread never clears: it is set and signalled
 * under the mutex, and the thread looks at it under the mutex before it waits, so no interleaving loses it. `running`
 * is what the thread shows of itself; clearing it alone asks for an end, too.
 *
 * The mutex and the condition variable are not destroyed by lyn_cmdq_deinit, and the sentinel is not freed but kept for
 * the next lyn_cmdq_init.
 */
#include "lyn_cmdq.h"

#include <signal.h>
#include <string.h>

#include <atomic>

#include "lyn_block.h"
#include "lyn_log.h"
#include "lyn_order.h"

/** The sentinel between two lives of a queue. */
static std::atomic<void *> lyn_cmdq_spare_sentinel{nullptr};

/** The chunk that a thread has run last, for whoever needs the next one; none is kept when the thread has ended. */
static std::atomic<lyn_cmdq_chunk_t *> lyn_cmdq_spare_chunk{nullptr};

/** What lyn_cmdthrd_main returns when it fails: -1. */
static void *const LYN_CMDTHRD_FAILED = reinterpret_cast<void *>(intptr_t{-1});

/* State words and pthread calls */

static int32_t lyn_cmdq_count(lyn_cmdq_t *cmdq) {
  return std::atomic_ref(cmdq->count).load(std::memory_order_relaxed);
}

/** Returns the count before. */
static int32_t lyn_cmdq_count_add(lyn_cmdq_t *cmdq, int32_t change) {
  return std::atomic_ref(cmdq->count).fetch_add(change, std::memory_order_relaxed);
}

static bool lyn_cmdthrd_is_stopped(lyn_cmdq_t *cmdq) {
  return std::atomic_ref(cmdq->stop).load() || !std::atomic_ref(cmdq->running).load();
}

static pthread_mutex_t *lyn_cmdq_mutex(lyn_cmdq_t *cmdq) {
  return cmdq->gate != nullptr ? &cmdq->gate->mutex : &cmdq->mutex;
}

static pthread_cond_t *lyn_cmdq_cond(lyn_cmdq_t *cmdq) {
  return cmdq->gate != nullptr ? &cmdq->gate->cond : &cmdq->cond;
}

static int lyn_mutex_lock(pthread_mutex_t *mutex) {
  lyn_order_take(LYN_ORDER_GATE);
  const int result = pthread_mutex_lock(mutex);
  if (result != 0) {
    lyn_order_give(LYN_ORDER_GATE);
  }
  return result;
}

static int lyn_mutex_unlock(pthread_mutex_t *mutex) {
  lyn_order_give(LYN_ORDER_GATE);
  return pthread_mutex_unlock(mutex);
}

static bool lyn_cmdq_lock(lyn_cmdq_t *cmdq) {
  bool locked = lyn_mutex_lock(lyn_cmdq_mutex(cmdq)) == 0;
  if (!locked) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
  }
  return locked;
}

/** Log that an unlock failed, where it did. */
static bool lyn_cmdq_unlocked(bool unlocked) {
  if (!unlocked) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
  }
  return unlocked;
}

static bool lyn_cmdq_unlock(lyn_cmdq_t *cmdq) {
  return lyn_cmdq_unlocked(lyn_mutex_unlock(lyn_cmdq_mutex(cmdq)) == 0);
}

/** The warning that `count` commands are queued, if that is more than `max`. */
static void lyn_cmdq_warn(int32_t count, int32_t max) {
  if (count > max) {
    LYN_LOG_HIGH("Command queue exceeds configured maximum! %d > %d\n", count, max);
  }
}

/* Chunks */

static void lyn_chunk_free(lyn_cmdq_chunk_t *chunk) {
  if (chunk != nullptr) {
    free(chunk->node);
    free(chunk->items);
    free(chunk);
  }
}

/** Keep a chunk, or none, for the next who needs one. Any thread. What was kept before is the caller's. */
static lyn_cmdq_chunk_t *lyn_chunk_keep(lyn_cmdq_chunk_t *chunk) {
  return lyn_cmdq_spare_chunk.exchange(chunk, std::memory_order_acq_rel);
}

/** The chunk that was kept, empty, or null. */
static lyn_cmdq_chunk_t *lyn_chunk_take() {
  lyn_cmdq_chunk_t *chunk = lyn_chunk_keep(nullptr);
  if (chunk != nullptr) {
    chunk->taken = 0;
  }
  return chunk;
}

/** A new chunk; null, with the reason, when there is no memory for it or its items. It may lack its node. */
static lyn_cmdq_chunk_t *lyn_chunk_make(lyn_cmdq_post_e *reason) {
  auto *chunk = static_cast<lyn_cmdq_chunk_t *>(malloc(sizeof(lyn_cmdq_chunk_t)));
  if (chunk == nullptr) {
    *reason = LYN_CMDQ_NO_CHUNK;
    return nullptr;
  }
  auto *items = static_cast<lyn_cmdq_item_t *>(malloc(LYN_CMDQ_CHUNK_LEN * sizeof(lyn_cmdq_item_t)));
  if (items == nullptr) {
    *reason = LYN_CMDQ_NO_ITEMS;
    free(chunk);
    return nullptr;
  }
  *chunk = {.node = static_cast<lyn_dll_node *>(malloc(sizeof(lyn_dll_node))), .items = items, .taken = 0};
  return chunk;
}

static void *lyn_item_data(lyn_cmdq_item_t *item) {
  return item->has_own ? item->own : item->cmd->data;
}

/** Run free_f of a command that is not run, where it has one. */
static void lyn_item_discard(lyn_cmdq_item_t *item) {
  if (item->cmd->free_f != nullptr) {
    item->cmd->free_f(item->cmd, lyn_item_data(item));
  }
}

/* Taking commands off, with the mutex held */

/** Begin the next item of the run; null where there is none. The thread does so without the mutex. */
static lyn_cmdq_item_t *lyn_run_claim(lyn_cmdq_run_t *run) {
  const uint32_t index = std::atomic_ref(run->next).fetch_add(1, std::memory_order_relaxed);
  return index < run->end ? &run->chunk->items[index] : nullptr;
}

/** End a run all of whose items were begun. Its chunk is the caller's; null where it is listed still, or none. */
static lyn_cmdq_chunk_t *lyn_run_end(lyn_cmdq_t *cmdq) {
  lyn_cmdq_chunk_t *chunk = cmdq->run.chunk;
  lyn_cmdq_count_add(cmdq, -static_cast<int32_t>(cmdq->run.uncounted));
  cmdq->run = {};
  return chunk != nullptr && chunk->taken == LYN_CMDQ_CHUNK_LEN ? chunk : nullptr;
}

/** The same for the run of a thread that has ended; null, too, while it has not. */
static lyn_cmdq_chunk_t *lyn_run_end_left(lyn_cmdq_t *cmdq) {
  return std::atomic_ref(cmdq->run.is_left).load(std::memory_order_acquire) ? lyn_run_end(cmdq) : nullptr;
}

/** The first chunk with items that nobody has taken, or null. `end`: behind its last item. */
static lyn_cmdq_chunk_t *lyn_cmdq_first(lyn_cmdq_t *cmdq, uint32_t *end) {
  void *data = nullptr;
  const lyn_dll_node *first = cmdq->head != nullptr ? lyn_dll_next(cmdq->head, &data) : nullptr;
  if (first == nullptr) {
    return nullptr;
  }
  auto *chunk = static_cast<lyn_cmdq_chunk_t *>(data);
  *end = first == cmdq->tail ? static_cast<uint32_t>(cmdq->put - chunk->items) : LYN_CMDQ_CHUNK_LEN;
  return chunk->taken < *end ? chunk : nullptr;
}

/** Take the first chunk out of the list; null where there is none. */
static lyn_cmdq_chunk_t *lyn_cmdq_unlist_first(lyn_cmdq_t *cmdq) {
  void *data = nullptr;
  lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data);
  if (cmdq->tail == cmdq->head) {
    cmdq->put = cmdq->put_end = nullptr;
  }
  return static_cast<lyn_cmdq_chunk_t *>(data);
}

/** The same for a chunk with room that nothing is left in, when all is taken and the thread is at no item of it. */
static lyn_cmdq_chunk_t *lyn_cmdq_unlist_emptied(lyn_cmdq_t *cmdq) {
  return cmdq->run.chunk == nullptr ? lyn_cmdq_unlist_first(cmdq) : nullptr;
}

/** Take the items before `end` off the first chunk, which leaves the list when its last one is taken. */
static void lyn_cmdq_take_until(lyn_cmdq_t *cmdq, lyn_cmdq_chunk_t *first, uint32_t end) {
  first->taken = end;
  if (end == LYN_CMDQ_CHUNK_LEN) {
    lyn_cmdq_unlist_first(cmdq);
  }
}

/** Take the first command off. */
static bool lyn_cmdq_take(lyn_cmdq_t *cmdq, lyn_cmdq_item_t *taken) {
  if (const lyn_cmdq_item_t *item = lyn_run_claim(&cmdq->run)) {
    *taken = *item;
    lyn_cmdq_count_add(cmdq, -1);
    return true;
  }
  lyn_chunk_free(lyn_run_end_left(cmdq));
  uint32_t end = 0;
  lyn_cmdq_chunk_t *chunk = lyn_cmdq_first(cmdq, &end);
  if (chunk == nullptr) {
    lyn_chunk_free(lyn_cmdq_unlist_emptied(cmdq));
    return false;
  }
  *taken = chunk->items[chunk->taken];
  lyn_cmdq_count_add(cmdq, -1);
  if (chunk == cmdq->run.chunk || chunk->taken + 1 < end) {
    lyn_cmdq_take_until(cmdq, chunk, chunk->taken + 1);
  } else {
    lyn_cmdq_unlist_first(cmdq);
    lyn_chunk_free(chunk);
  }
  return true;
}

lyn_cmd *lyn_cmdq_deq(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_deq: Bad Param cmdq NULL");
    return nullptr;
  }
  lyn_cmdq_item_t item;
  return lyn_cmdq_take(cmdq, &item) ? item.cmd : nullptr;
}

static void lyn_cmdq_discard_all(lyn_cmdq_t *cmdq) {
  for (lyn_cmdq_item_t item; lyn_cmdq_take(cmdq, &item);) {
    lyn_item_discard(&item);
  }
}

/** Move all chunks of the list to another one. */
static void lyn_cmdq_move(lyn_cmdq_t *from, lyn_cmdq_t *to) {
  uint32_t end = 0;
  while (lyn_cmdq_chunk_t *chunk = lyn_cmdq_first(from, &end)) {
    lyn_cmdq_unlist_first(from);
    lyn_cmdq_count_add(from, static_cast<int32_t>(chunk->taken) - static_cast<int32_t>(end));
    to->tail = lyn_dll_insert(to->tail, chunk->node, chunk);
    to->put = chunk->items + end;
  }
}

/** Copy and take off what the thread has not begun of its run, and what came into the same chunk since. */
static uint32_t lyn_cmdq_take_run_chunk(lyn_cmdq_t *cmdq, lyn_cmdq_item_t taken[LYN_CMDQ_CHUNK_LEN]) {
  uint32_t len = 0;
  while (const lyn_cmdq_item_t *item = lyn_run_claim(&cmdq->run)) {
    taken[len++] = *item;
  }
  uint32_t end = 0;
  lyn_cmdq_chunk_t *first = lyn_cmdq_first(cmdq, &end);
  if (first != nullptr && first == cmdq->run.chunk) {
    for (uint32_t i = first->taken; i < end; i++) {
      taken[len++] = first->items[i];
    }
    lyn_cmdq_take_until(cmdq, first, end);
  }
  lyn_cmdq_count_add(cmdq, -static_cast<int32_t>(len));
  return len;
}

int32_t lyn_cmdq_flush(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_flush Bad Param cmdq NULL\n");  // deliberately without the others' colon
    return -1;
  }
  lyn_dll_node sentinel;
  lyn_cmdq_t flushed = {};  // what was queued, as a queue of nobody else's
  flushed.head = flushed.tail = lyn_dll_init(&sentinel);
  lyn_cmdq_item_t first[LYN_CMDQ_CHUNK_LEN];
  if (!lyn_cmdq_lock(cmdq)) {
    return -1;
  }
  const uint32_t first_len = lyn_cmdq_take_run_chunk(cmdq, first);
  lyn_cmdq_chunk_t *left = lyn_run_end_left(cmdq);
  lyn_cmdq_move(cmdq, &flushed);
  lyn_cmdq_chunk_t *emptied = lyn_cmdq_unlist_emptied(cmdq);
  const bool unlocked = lyn_cmdq_unlock(cmdq);
  lyn_chunk_free(left);
  lyn_chunk_free(emptied);
  for (uint32_t i = 0; i < first_len; i++) {
    lyn_item_discard(&first[i]);
  }
  lyn_cmdq_discard_all(&flushed);
  return unlocked ? 0 : -1;
}

/* Putting commands in */

/** Where a producer comes in. */
typedef struct {
  pthread_mutex_t *mutex;
  pthread_cond_t *cond;
  lyn_cmdq_t *const *queue; /**< null: shut */
} lyn_cmdq_door_t;

/** What a producer saw inside. */
typedef struct {
  int32_t before, max; /**< commands that were queued, and the queue's maximum; 0 where it was not looked at */
  int unlocked;        /**< result of the last unlock */
} lyn_cmdq_seen_t;

/** Deliberate: only a lock that returns a negative number is a failure; pthread errors are positive. */
static bool lyn_door_enter(const lyn_cmdq_door_t &door) {
  const bool entered = lyn_mutex_lock(door.mutex) >= 0;  // NOLINT(bugprone-posix-return)
  if (!entered) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
  }
  return entered;
}

static bool lyn_cmdq_has_room(const lyn_cmdq_t *cmdq) {
  return cmdq != nullptr && cmdq->put != cmdq->put_end;
}

/**
 * With the mutex held: append a command, with octets of its own or null, and before it `*chunk`, which is the queue's
 * then, where there is no room for it.
 */
static lyn_cmdq_post_e lyn_cmdq_append(lyn_cmdq_t *cmdq, lyn_cmd *cmd, const void *own, lyn_cmdq_chunk_t **chunk,
                                       lyn_cmdq_seen_t *seen) {
  if (cmdq == nullptr) {
    return LYN_CMDQ_SHUT;
  }
  seen->max = cmdq->max;
  seen->before = lyn_cmdq_count(cmdq);
  if (*chunk != nullptr && !lyn_cmdq_has_room(cmdq)) {
    if ((*chunk)->node == nullptr) {
      return LYN_CMDQ_NO_NODE;
    }
    cmdq->tail = lyn_dll_insert(cmdq->tail, (*chunk)->node, *chunk);
    cmdq->put = (*chunk)->items;
    cmdq->put_end = cmdq->put + LYN_CMDQ_CHUNK_LEN;
    *chunk = nullptr;
  }
  lyn_cmdq_item_t *item = cmdq->put++;
  item->cmd = cmd;
  item->has_own = own != nullptr;
  if (own != nullptr) {
    memcpy(item->own, own, sizeof item->own);
  }
  seen->before = lyn_cmdq_count_add(cmdq, 1);
  return LYN_CMDQ_QUEUED;
}

/**
 * Behind an item that was queued: wake the thread where it was the first. The mutex is released before, or the thread
 * would only run into it and sleep again.
 */
static lyn_cmdq_post_e lyn_door_wake(const lyn_cmdq_door_t &door, const lyn_cmdq_seen_t &seen) {
  const bool signalled = seen.before != 0 || pthread_cond_signal(door.cond) == 0;
  if (!signalled) {
    LYN_LOG_ERROR("pthread_cond_signal failed:");
  }
  // Deliberate: an unlock that returns a positive error number, as POSIX has it, is no failure by itself.
  const bool failed = signalled ? seen.unlocked < 0 : seen.unlocked != 0;  // NOLINT(bugprone-posix-return)
  return lyn_cmdq_unlocked(!failed) && signalled ? LYN_CMDQ_QUEUED : LYN_CMDQ_QUEUED_FAILED;
}

/**
 * Queue a command. A failed unlock behind one that was not queued is left to the caller to log, in `seen`. Inlined, as
 * every event comes through here.
 */
[[gnu::always_inline]] static inline lyn_cmdq_post_e lyn_door_put(const lyn_cmdq_door_t &door, lyn_cmd *cmd,
                                                                  const void *own, lyn_cmdq_seen_t *seen) {
  if (!lyn_door_enter(door)) {
    return LYN_CMDQ_FAILED;
  }
  lyn_cmdq_chunk_t *chunk = nullptr;
  lyn_cmdq_post_e result = LYN_CMDQ_FAILED;
  if (!lyn_cmdq_has_room(*door.queue)) {
    chunk = lyn_chunk_take();
    if (chunk == nullptr) {
      seen->unlocked = lyn_mutex_unlock(door.mutex);
      chunk = lyn_chunk_make(&result);
      if (chunk == nullptr) {
        return result;
      }
      if (!lyn_door_enter(door)) {
        lyn_chunk_free(chunk);
        return LYN_CMDQ_FAILED;
      }
    }
  }
  result = lyn_cmdq_append(*door.queue, cmd, own, &chunk, seen);
  seen->unlocked = lyn_mutex_unlock(door.mutex);
  lyn_chunk_free(chunk);  // somebody else has made room meanwhile, or nothing was queued
  return result == LYN_CMDQ_QUEUED ? lyn_door_wake(door, *seen) : result;
}

static void lyn_cmdq_not_inserted() {
  LYN_LOG_ERROR("Failed to insert into cmdq\n");
}

int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  if (cmdq == nullptr || cmd == nullptr) {
    return -1;
  }
  if (cmd->execute_f == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_enq: Bad Param cmd->execute_f NULL");
    return -1;
  }
  lyn_cmdq_warn(lyn_cmdq_count(cmdq), cmdq->max);
  const lyn_cmdq_door_t door = {lyn_cmdq_mutex(cmdq), lyn_cmdq_cond(cmdq), &cmdq};
  lyn_cmdq_seen_t seen = {};
  const lyn_cmdq_post_e result = lyn_door_put(door, cmd, nullptr, &seen);
  if (result == LYN_CMDQ_NO_CHUNK || result == LYN_CMDQ_NO_ITEMS || result == LYN_CMDQ_NO_NODE) {
    lyn_cmdq_not_inserted();
    lyn_cmdq_unlocked(seen.unlocked == 0);
  }
  return result == LYN_CMDQ_QUEUED ? 0 : -1;
}

lyn_cmdq_post_e lyn_cmdq_post(lyn_cmdq_gate_t *gate, lyn_cmd *cmd, const void *own) {
  const lyn_cmdq_door_t door = {&gate->mutex, &gate->cond, &gate->queue};
  lyn_cmdq_seen_t seen = {};
  const lyn_cmdq_post_e result = lyn_door_put(door, cmd, own, &seen);
  lyn_cmdq_warn(seen.before, seen.max);
  if (result == LYN_CMDQ_NO_NODE) {
    lyn_cmdq_not_inserted();
  }
  if (result != LYN_CMDQ_QUEUED && result != LYN_CMDQ_QUEUED_FAILED) {
    lyn_cmdq_unlocked(seen.unlocked == 0);
  }
  return result;
}

/* The command thread */

/** Run a command. False: the thread ends. */
static bool lyn_cmdthrd_run(lyn_cmdq_item_t *item) {
  lyn_cmd *cmd = item->cmd;
  if (cmd->execute_f == nullptr) {
    // Deliberate: what such a command is cannot be known, so it is not released either.
    LYN_LOG_ERROR("lyn_cmdthrd_main: NULL for cmd->execute_f");
    return false;
  }
  const lyn_cmd_fn free_f = cmd->free_f;  // read here: where there is none, running the command may release it
  void *data = lyn_item_data(item);
  cmd->execute_f(cmd, data);
  if (free_f != nullptr) {
    free_f(cmd, data);
  }
  return true;
}

/** Run an item that the thread has claimed. False: the thread ends. */
static bool lyn_cmdthrd_run_claimed(lyn_cmdq_t *cmdq, lyn_cmdq_item_t *item) {
  lyn_cmdq_run_t *run = &cmdq->run;
  if (run->counts_late) {
    run->uncounted++;
  } else {
    lyn_cmdq_count_add(cmdq, -1);
  }
  const lyn_cmdq_item_t *later = item + 2;
  if (later < run->chunk->items + run->end) {
    void *needed = nullptr;
    memcpy(&needed, later->own + sizeof later->own - sizeof needed, sizeof needed);
    __builtin_prefetch(needed);
  }
  return lyn_cmdthrd_run(item);
}

/** With the mutex held: make the first chunk the next run. Its first item, or null where there is none. */
static lyn_cmdq_item_t *lyn_cmdthrd_take_run(lyn_cmdq_t *cmdq) {
  uint32_t end = 0;
  lyn_cmdq_chunk_t *chunk = lyn_cmdq_first(cmdq, &end);
  if (chunk == nullptr) {
    return nullptr;
  }
  const auto items = static_cast<int32_t>(end - chunk->taken);
  cmdq->run = {.chunk = chunk,
               .next = chunk->taken,
               .end = end,
               .uncounted = 0,
               .counts_late = lyn_cmdq_count(cmdq) - items > cmdq->max,
               .is_left = false};
  lyn_cmdq_take_until(cmdq, chunk, end);
  return &chunk->items[cmdq->run.next];
}

/**
 * With the mutex held and the queue empty: wait for a signal unless there is a stop. What woke the thread becomes its
 * run while it has the mutex; the command is begun on the next round of the loop, as every other.
 */
static bool lyn_cmdthrd_wait(lyn_cmdq_t *cmdq) {
  if (lyn_cmdthrd_is_stopped(cmdq)) {
    return true;
  }
  const bool waited = pthread_cond_wait(lyn_cmdq_cond(cmdq), lyn_cmdq_mutex(cmdq)) == 0;
  if (waited) {
    lyn_cmdthrd_take_run(cmdq);
  }
  return waited;
}

/**
 * Behind a run: claim the first item of the next one, or wait where there is none. False: the thread ends, and what it
 * has claimed is discarded.
 */
static bool lyn_cmdthrd_next_run(lyn_cmdq_t *cmdq, lyn_cmdq_item_t **item) {
  if (!lyn_cmdq_lock(cmdq)) {
    return false;
  }
  lyn_cmdq_chunk_t *done = lyn_run_end(cmdq);
  lyn_cmdq_chunk_t *surplus = done != nullptr ? lyn_chunk_keep(done) : nullptr;  // not freed under the mutex
  *item = lyn_cmdthrd_take_run(cmdq);
  bool waited = true;
  if (*item != nullptr) {
    cmdq->run.next++;  // claimed; nobody else can while the mutex is held
  } else {
    waited = lyn_cmdthrd_wait(cmdq);
  }
  const bool unlocked = lyn_mutex_unlock(lyn_cmdq_mutex(cmdq)) == 0;
  if (!waited) {
    LYN_LOG_ERROR("pthread_cond_wait failed:");
  }
  lyn_cmdq_unlocked(unlocked);
  lyn_chunk_free(surplus);
  if (*item != nullptr && !unlocked) {
    lyn_cmdq_count_add(cmdq, -1);
    lyn_item_discard(*item);
  }
  return waited && unlocked;
}

/** Run the next command, or wait where there is none. False: the thread ends. */
static bool lyn_cmdthrd_step(lyn_cmdq_t *cmdq) {
  lyn_cmdq_item_t *item = lyn_run_claim(&cmdq->run);
  if (item == nullptr && !lyn_cmdthrd_next_run(cmdq, &item)) {
    return false;
  }
  return item == nullptr || lyn_cmdthrd_run_claimed(cmdq, item);
}

/** The thread ends: its run, whatever is left of it, is given back by who empties the queue. */
static void lyn_cmdthrd_leave(lyn_cmdq_t *cmdq) {
  lyn_chunk_free(lyn_chunk_keep(nullptr));
  std::atomic_ref(cmdq->run.is_left).store(true, std::memory_order_release);
}

void *lyn_cmdthrd_main(void *arg) {
  auto *cmdq = static_cast<lyn_cmdq_t *>(arg);
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdthrd_main: Bad Param cmdq NULL");
    return LYN_CMDTHRD_FAILED;
  }
  if (!std::atomic_ref(cmdq->stop).load()) {
    std::atomic_ref(cmdq->running).store(true);
  }
  bool goes_on = true;
  do {
    goes_on = lyn_cmdthrd_step(cmdq);
  } while (goes_on && !lyn_cmdthrd_is_stopped(cmdq));
  lyn_cmdthrd_leave(cmdq);
  return goes_on ? nullptr : LYN_CMDTHRD_FAILED;
}

void lyn_cmdthrd_init(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    return;
  }
  // Signals of the process are the main thread's; a new thread inherits the mask.
  sigset_t all, previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  pthread_t thread = 0;
  if (pthread_create(&thread, nullptr, lyn_cmdthrd_main, cmdq) == 0) {
    cmdq->thread = thread;
  } else {
    LYN_LOG_ERROR("Cannot start cmdthrd:");
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

void lyn_cmdthrd_deinit(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdthrd_deinit: Bad Param cmdq NULL");
    return;
  }
  const bool locked = lyn_cmdq_lock(cmdq);  // an unguarded stop is better than none
  std::atomic_ref(cmdq->stop).store(true);
  std::atomic_ref(cmdq->running).store(false);
  const int signalled = pthread_cond_signal(lyn_cmdq_cond(cmdq));
  const bool unlocked = !locked || lyn_mutex_unlock(lyn_cmdq_mutex(cmdq)) == 0;
  // Deliberate, as in lyn_door_enter. NOLINTNEXTLINE(bugprone-posix-return)
  if (signalled < 0) {
    LYN_LOG_ERROR("pthread_cond_signal failed:");
  }
  lyn_cmdq_unlocked(unlocked);
}

/* Life cycle */

/** Make mutex and condition variable. */
static bool lyn_cmdq_init_sync(lyn_cmdq_t *cmdq) {
  if (pthread_mutex_init(&cmdq->mutex, nullptr) != 0) {
    LYN_LOG_ERROR("pthread_mutex_init failed:");
    return false;
  }
  if (pthread_cond_init(&cmdq->cond, nullptr) != 0) {
    LYN_LOG_ERROR("pthread_cond_init failed:");
    return false;
  }
  return true;
}

int32_t lyn_cmdq_init_behind(lyn_cmdq_t *cmdq, int32_t max, lyn_cmdq_gate_t *gate) {
  if (cmdq == nullptr) {
    return -1;
  }
  memset(cmdq, 0, sizeof *cmdq);
  auto *sentinel = static_cast<lyn_dll_node *>(lyn_slot_take(lyn_cmdq_spare_sentinel, sizeof(lyn_dll_node)));
  if (sentinel == nullptr) {
    LYN_LOG_ERROR("Failed to allocate memory for cmdq\n");
    return -1;
  }
  cmdq->head = cmdq->tail = lyn_dll_init(sentinel);
  cmdq->max = max;
  cmdq->gate = gate;
  if (!lyn_cmdq_init_sync(cmdq)) {
    free(sentinel);
    cmdq->head = cmdq->tail = nullptr;
    return -1;
  }
  lyn_cmdthrd_init(cmdq);
  return 0;
}

int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max) {
  return lyn_cmdq_init_behind(cmdq, max, nullptr);
}

static void lyn_gate_set(lyn_cmdq_gate_t *gate, lyn_cmdq_t *cmdq) {
  lyn_mutex_lock(&gate->mutex);
  gate->queue = cmdq;
  lyn_mutex_unlock(&gate->mutex);
}

void lyn_cmdq_open(lyn_cmdq_gate_t *gate, lyn_cmdq_t *cmdq) {
  lyn_gate_set(gate, cmdq);
}

void lyn_cmdq_shut(lyn_cmdq_gate_t *gate) {
  lyn_gate_set(gate, nullptr);
}

int32_t lyn_cmdq_join_thread(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_join_thread: Bad Param cmdq NULL\n");
    return -1;
  }
  if (cmdq->thread == 0) {
    LYN_LOG_ERROR("Command thread not initialized\n");
    return -1;
  }
  if (pthread_join(cmdq->thread, nullptr) != 0) {
    LYN_LOG_ERROR("pthread_join failed:");
    return -1;
  }
  return 0;
}

int32_t lyn_cmdq_deinit(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    // Deliberate: the same text as lyn_cmdq_join_thread's.
    LYN_LOG_ERROR("lyn_cmdq_join_thread: Bad Param cmdq NULL\n");
    return -1;
  }
  lyn_cmdthrd_deinit(cmdq);
  lyn_cmdq_join_thread(cmdq);
  lyn_cmdq_discard_all(cmdq);
  lyn_slot_put(lyn_cmdq_spare_sentinel, cmdq->head);
  memset(cmdq, 0, sizeof *cmdq);
  return 0;
}
