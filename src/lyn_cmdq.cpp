/*
 * Command queue and command thread: see lyn_cmdq.h for who owns a command when.
 *
 * The thread waits on `cond` for the empty queue to fill and is signalled for that transition only; it drains the queue
 * before it waits again. A stop is the field `stop`, which the thread never clears: it is set and signalled under the
 * mutex, and the thread looks at it under the mutex before it waits, so no interleaving loses it. `running` is what the
 * thread shows of itself; clearing it alone asks for an end, too.
 *
 * Of a batch the thread takes all items that are there as its run, so that it needs the mutex once for them, and claims
 * each before it begins it. So does a flush with those that the thread has not begun.
 *
 * The mutex and the condition variable are not destroyed by lyn_cmdq_deinit, and the sentinel is not freed but kept for
 * the next lyn_cmdq_init.
 */
#include "lyn_cmdq.h"

#include <sched.h>
#include <signal.h>
#include <string.h>

#include <atomic>

#include "lyn_block.h"
#include "lyn_log.h"

/** The sentinel between two lives of a queue. */
static std::atomic<void *> lyn_cmdq_spare_sentinel{nullptr};

/** What lyn_cmdthrd_main returns when it fails: -1. */
static void *const LYN_CMDTHRD_FAILED = reinterpret_cast<void *>(intptr_t{-1});

/* ------------------------------------------------------------------------------------------------------------------ */
/* State words and pthread calls                                                                                      */
/* ------------------------------------------------------------------------------------------------------------------ */

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

/** What guards the queue; a queue that was made by hand has only its own. */
static pthread_mutex_t *lyn_cmdq_mutex(lyn_cmdq_t *cmdq) {
  return cmdq->lock != nullptr ? cmdq->lock : &cmdq->mutex;
}

static bool lyn_cmdq_lock(lyn_cmdq_t *cmdq) {
  bool locked = pthread_mutex_lock(lyn_cmdq_mutex(cmdq)) == 0;
  if (!locked) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
  }
  return locked;
}

static bool lyn_cmdq_unlock(lyn_cmdq_t *cmdq) {
  bool unlocked = pthread_mutex_unlock(lyn_cmdq_mutex(cmdq)) == 0;
  if (!unlocked) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
  }
  return unlocked;
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Batches                                                                                                            */
/* ------------------------------------------------------------------------------------------------------------------ */

/** The lowest bit of an element's data, which no command's address has: it is a batch. */
static constexpr uintptr_t LYN_CMDQ_BATCH = 1;

static void *lyn_cmdq_mark(lyn_cmd_batch_t *batch) {
  return reinterpret_cast<char *>(batch) + LYN_CMDQ_BATCH;
}

/** The batch of an element's data; null where it is a command. */
static lyn_cmd_batch_t *lyn_cmdq_batch(void *data) {
  const bool is_batch = (reinterpret_cast<uintptr_t>(data) & LYN_CMDQ_BATCH) != 0;
  return is_batch ? reinterpret_cast<lyn_cmd_batch_t *>(static_cast<char *>(data) - LYN_CMDQ_BATCH) : nullptr;
}

/** Whether items of the batch stand in the list. */
static bool lyn_cmdq_is_listed(const lyn_cmd_batch_t *batch) {
  return batch->filled != batch->taken;
}

static char *lyn_cmdq_item(const lyn_cmd_batch_t *batch, uint32_t index) {
  return static_cast<char *>(batch->items) + static_cast<size_t>(index) * batch->item_size;
}

/** Begin the next item of the run. The thread does so without the mutex, everybody else with it. False: none is left.
 */
static bool lyn_cmdq_claim(lyn_cmdq_run_t *run, uint32_t *index) {
  if (run->batch == nullptr) {
    return false;
  }
  *index = std::atomic_ref(run->next).fetch_add(1, std::memory_order_relaxed);
  return *index < run->end;
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Taking commands off                                                                                                */
/* ------------------------------------------------------------------------------------------------------------------ */

static void lyn_cmd_free(lyn_cmd *cmd, void *data) {
  if (cmd->free_f != nullptr) {
    cmd->free_f(cmd, data);
  }
}

static void lyn_cmdq_discard_all(lyn_cmdq_t *cmdq) {
  while (lyn_cmd *cmd = lyn_cmdq_deq(cmdq)) {
    lyn_cmd_free(cmd, cmd->data);
  }
}

/** With the mutex held: the command of the list's first element, or of its first item. */
static lyn_cmd *lyn_cmdq_take_first(lyn_cmdq_t *cmdq) {
  void *data = nullptr;
  lyn_dll_node *first = lyn_dll_next(cmdq->head, &data);
  if (first == nullptr) {
    return nullptr;
  }
  lyn_cmd_batch_t *batch = lyn_cmdq_batch(data);
  if (batch == nullptr) {
    free(lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data));
    return static_cast<lyn_cmd *>(data);
  }
  batch->cmd.data = lyn_cmdq_item(batch, batch->taken++);
  if (!lyn_cmdq_is_listed(batch)) {
    lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data);
  }
  return &batch->cmd;
}

lyn_cmd *lyn_cmdq_deq(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_deq: Bad Param cmdq NULL");
    return nullptr;
  }
  lyn_cmd *cmd = nullptr;
  uint32_t index = 0;
  if (lyn_cmdq_claim(&cmdq->run, &index)) {
    cmd = &cmdq->run.batch->cmd;
    cmd->data = lyn_cmdq_item(cmdq->run.batch, index);
  } else if (cmdq->head != nullptr) {
    cmd = lyn_cmdq_take_first(cmdq);
  }
  if (cmd != nullptr) {
    lyn_cmdq_count_add(cmdq, -1);
  }
  return cmd;
}

int32_t lyn_cmdq_flush(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_flush Bad Param cmdq NULL\n");  // deliberately without the others' colon
    return -1;
  }
  if (!lyn_cmdq_lock(cmdq)) {
    return -1;
  }
  lyn_cmdq_discard_all(cmdq);
  return lyn_cmdq_unlock(cmdq) ? 0 : -1;
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Putting commands in                                                                                                */
/* ------------------------------------------------------------------------------------------------------------------ */

void lyn_cmdq_warn(int32_t count, int32_t max) {
  if (count > max) {
    LYN_LOG_HIGH("Command queue exceeds configured maximum! %d > %d\n", count, max);
  }
}

/** Wake the thread; the mutex is not held. `waking`, set under it, keeps the queue from being zeroed meanwhile. */
static bool lyn_cmdq_wake(lyn_cmdq_t *cmdq) {
  const bool signalled = pthread_cond_signal(&cmdq->cond) == 0;
  std::atomic_ref(cmdq->waking).fetch_sub(1, std::memory_order_release);
  if (!signalled) {
    LYN_LOG_ERROR("pthread_cond_signal failed:");
  }
  return signalled;
}

/**
 * The mutex is released before the thread is woken, which would only run into it and sleep again. Deliberate: an unlock
 * that returns a positive error number, as POSIX has it, is no failure by itself.
 */
int32_t lyn_cmdq_leave(lyn_cmdq_t *cmdq, int32_t before) {
  const bool wake = before == 0;
  if (wake) {
    std::atomic_ref(cmdq->waking).fetch_add(1, std::memory_order_relaxed);
  }
  const int unlocked = pthread_mutex_unlock(lyn_cmdq_mutex(cmdq));
  const bool signalled = !wake || lyn_cmdq_wake(cmdq);
  const bool failed = signalled ? unlocked < 0 : unlocked != 0;  // NOLINT(bugprone-posix-return)
  if (failed) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
  }
  return signalled && !failed ? 0 : -1;
}

bool lyn_cmdq_may_put(const lyn_cmdq_t *cmdq, const lyn_cmd_batch_t *batch) {
  return !lyn_cmdq_is_listed(batch) || cmdq->tail == batch->node;
}

bool lyn_cmdq_put(lyn_cmdq_t *cmdq, lyn_cmd_batch_t *batch, int32_t *before) {
  const bool is_listed = lyn_cmdq_is_listed(batch);
  if (!is_listed && batch->node == nullptr) {
    lyn_cmdq_warn(lyn_cmdq_count(cmdq), cmdq->max);
    LYN_LOG_ERROR("Failed to insert into cmdq\n");
    return false;
  }
  if (!is_listed) {
    cmdq->tail = lyn_dll_insert(cmdq->tail, batch->node, lyn_cmdq_mark(batch));
  }
  batch->filled++;
  *before = lyn_cmdq_count_add(cmdq, 1);
  return true;
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
  // Deliberate: a lock that returns a positive error number is no failure. NOLINTNEXTLINE(bugprone-posix-return)
  if (pthread_mutex_lock(lyn_cmdq_mutex(cmdq)) < 0) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
    return -1;
  }
  lyn_dll_node *node = lyn_dll_insert(cmdq->tail, nullptr, cmd);
  if (node == nullptr) {
    LYN_LOG_ERROR("Failed to insert into cmdq\n");
    lyn_cmdq_unlock(cmdq);
    return -1;
  }
  cmdq->tail = node;
  return lyn_cmdq_leave(cmdq, lyn_cmdq_count_add(cmdq, 1));
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* The command thread                                                                                                 */
/* ------------------------------------------------------------------------------------------------------------------ */

/** Run a command. False: the thread ends. */
static bool lyn_cmdthrd_run(lyn_cmd *cmd, void *data) {
  if (cmd->execute_f == nullptr) {
    // Deliberate: what such a command is cannot be known, so it is not released either.
    LYN_LOG_ERROR("lyn_cmdthrd_main: NULL for cmd->execute_f");
    return false;
  }
  cmd->execute_f(cmd, data);
  lyn_cmd_free(cmd, data);
  return true;
}

/** With the mutex held: release it and run the command that was taken. False: the thread ends. */
static bool lyn_cmdthrd_run_taken(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  if (!lyn_cmdq_unlock(cmdq)) {
    lyn_cmd_free(cmd, cmd->data);
    return false;
  }
  return lyn_cmdthrd_run(cmd, cmd->data);
}

/** With the mutex held and the queue empty: wait for a signal unless there is a stop; release it. False: as above. */
static bool lyn_cmdthrd_wait(lyn_cmdq_t *cmdq) {
  bool waited = true;
  if (!lyn_cmdthrd_is_stopped(cmdq)) {
    waited = pthread_cond_wait(&cmdq->cond, lyn_cmdq_mutex(cmdq)) == 0;
    if (!waited) {
      LYN_LOG_ERROR("pthread_cond_wait failed:");
    }
  }
  return lyn_cmdq_unlock(cmdq) && waited;
}

/** With the mutex held, behind a run: make all items of the first batch the next one. False: the first is no batch. */
static bool lyn_cmdthrd_take_run(lyn_cmdq_t *cmdq) {
  lyn_cmdq_run_t *run = &cmdq->run;
  lyn_cmdq_count_add(cmdq, -static_cast<int32_t>(run->uncounted));
  *run = {};
  void *data = nullptr;
  lyn_cmd_batch_t *batch = lyn_dll_next(cmdq->head, &data) != nullptr ? lyn_cmdq_batch(data) : nullptr;
  if (batch == nullptr) {
    return false;
  }
  lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data);
  const auto items = static_cast<int32_t>(batch->filled - batch->taken);
  *run = {.batch = batch,
          .next = batch->taken,
          .end = batch->filled,
          .uncounted = 0,
          .counts_late = lyn_cmdq_count(cmdq) - items > cmdq->max};
  batch->taken = batch->filled;
  return true;
}

/** Run an item that the thread has claimed. False: the thread ends. */
static bool lyn_cmdthrd_run_item(lyn_cmdq_t *cmdq, uint32_t index) {
  lyn_cmdq_run_t *run = &cmdq->run;
  if (run->counts_late) {
    run->uncounted++;
  } else {
    lyn_cmdq_count_add(cmdq, -1);
  }
  lyn_cmd_batch_t *batch = run->batch;
  if (index + 2 < run->end) {
    void *needed = nullptr;
    memcpy(&needed, lyn_cmdq_item(batch, index + 2) + batch->ahead, sizeof needed);
    __builtin_prefetch(needed);
  }
  return lyn_cmdthrd_run(&batch->cmd, lyn_cmdq_item(batch, index));
}

/** Run the first command, or wait where there is none. False: the thread ends. */
static bool lyn_cmdthrd_step(lyn_cmdq_t *cmdq) {
  uint32_t index = 0;
  if (lyn_cmdq_claim(&cmdq->run, &index)) {
    return lyn_cmdthrd_run_item(cmdq, index);
  }
  if (!lyn_cmdq_lock(cmdq)) {
    return false;
  }
  if (lyn_cmdthrd_take_run(cmdq)) {
    return lyn_cmdq_unlock(cmdq);
  }
  lyn_cmd *cmd = lyn_cmdq_deq(cmdq);
  return cmd != nullptr ? lyn_cmdthrd_run_taken(cmdq, cmd) : lyn_cmdthrd_wait(cmdq);
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
  do {
    if (!lyn_cmdthrd_step(cmdq)) {
      return LYN_CMDTHRD_FAILED;
    }
  } while (!lyn_cmdthrd_is_stopped(cmdq));
  return nullptr;
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
  bool locked = lyn_cmdq_lock(cmdq);  // an unguarded stop is better than none
  std::atomic_ref(cmdq->stop).store(true);
  std::atomic_ref(cmdq->running).store(false);
  if (pthread_cond_signal(&cmdq->cond) < 0) {  // NOLINT(bugprone-posix-return): deliberate, as in lyn_cmdq_enq
    LYN_LOG_ERROR("pthread_cond_signal failed:");
  }
  if (locked) {
    lyn_cmdq_unlock(cmdq);
  }
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Life cycle                                                                                                         */
/* ------------------------------------------------------------------------------------------------------------------ */

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

int32_t lyn_cmdq_init_under(lyn_cmdq_t *cmdq, int32_t max, pthread_mutex_t *lock) {
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
  cmdq->lock = lock;
  if (!lyn_cmdq_init_sync(cmdq)) {
    free(sentinel);
    cmdq->head = cmdq->tail = nullptr;
    return -1;
  }
  lyn_cmdthrd_init(cmdq);
  return 0;
}

int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max) {
  return lyn_cmdq_init_under(cmdq, max, nullptr);
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
  while (std::atomic_ref(cmdq->waking).load(std::memory_order_acquire) != 0) {
    sched_yield();
  }
  lyn_cmdq_discard_all(cmdq);
  lyn_slot_put(lyn_cmdq_spare_sentinel, cmdq->head);
  memset(cmdq, 0, sizeof *cmdq);
  return 0;
}
