/*
 * Command queue and command thread: see lyn_cmdq.h for who owns a command when.
 *
 * The thread waits on `cond` for the empty queue to fill and is signalled for that transition only; it drains the queue
 * before it waits again. It takes the list off as a batch, so that it needs the mutex once a batch, and claims each
 * command of the batch without it. A stop is the field `stop`, which the thread never clears: it is set and signalled
 * under `mutex`, and the thread looks at it under `mutex` before it waits, so no interleaving loses it. `running` is
 * what the thread shows of itself; clearing it alone asks for an end, too.
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

/** Under `mutex`: only the warning of lyn_cmdq_enq reads the count without it. */
static void lyn_cmdq_count_add(lyn_cmdq_t *cmdq, int32_t change) {
  std::atomic_ref count(cmdq->count);
  count.store(count.load(std::memory_order_relaxed) + change, std::memory_order_relaxed);
}

/** Commands queued. Without `mutex` it may be too low while the thread takes a batch: `begun` is read first for that.
 */
static int32_t lyn_cmdq_pending(lyn_cmdq_t *cmdq) {
  const int32_t begun = std::atomic_ref(cmdq->begun).load(std::memory_order_acquire);
  return std::atomic_ref(cmdq->count).load(std::memory_order_relaxed) - begun;
}

static bool lyn_cmdthrd_is_stopped(lyn_cmdq_t *cmdq) {
  return std::atomic_ref(cmdq->stop).load() || !std::atomic_ref(cmdq->running).load();
}

static bool lyn_cmdq_lock(lyn_cmdq_t *cmdq) {
  bool locked = pthread_mutex_lock(&cmdq->mutex) == 0;
  if (!locked) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
  }
  return locked;
}

static bool lyn_cmdq_unlock(lyn_cmdq_t *cmdq) {
  bool unlocked = pthread_mutex_unlock(&cmdq->mutex) == 0;
  if (!unlocked) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
  }
  return unlocked;
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* List elements                                                                                                      */
/* ------------------------------------------------------------------------------------------------------------------ */

/** The lowest bit of an element's data, which no command's address has: the node is the producer's. */
static constexpr uintptr_t LYN_CMDQ_LENT = 1;

static void *lyn_cmdq_lend(lyn_cmd *cmd) {
  return reinterpret_cast<char *>(cmd) + LYN_CMDQ_LENT;
}

static bool lyn_cmdq_is_lent(const void *data) {
  return (reinterpret_cast<uintptr_t>(data) & LYN_CMDQ_LENT) != 0;
}

static lyn_cmd *lyn_cmdq_cmd(void *data) {
  return reinterpret_cast<lyn_cmd *>(static_cast<char *>(data) - (lyn_cmdq_is_lent(data) ? LYN_CMDQ_LENT : 0));
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* Taking commands off                                                                                                */
/* ------------------------------------------------------------------------------------------------------------------ */

static void lyn_cmd_free(lyn_cmd *cmd) {
  if (cmd->free_f != nullptr) {
    cmd->free_f(cmd, cmd->data);
  }
}

static void lyn_cmdq_discard_all(lyn_cmdq_t *cmdq) {
  while (lyn_cmd *cmd = lyn_cmdq_deq(cmdq)) {
    lyn_cmd_free(cmd);
  }
}

/** Take an element's command out of its node, which is not used any more. */
static lyn_cmd *lyn_cmdq_unwrap(lyn_dll_node *node, void *data) {
  if (!lyn_cmdq_is_lent(data)) {
    free(node);
  }
  return lyn_cmdq_cmd(data);
}

/** What `batch` shows while somebody claims its first command: a moment, in which nobody waits for anything. */
static lyn_dll_node lyn_cmdq_claiming;

/**
 * Claim the first command of the batch; null when there is none. The thread does so without `mutex`, everybody else
 * holds it: two at most meet here, and the node is read by the one that took it only.
 */
static lyn_cmd *lyn_cmdq_claim(lyn_cmdq_t *cmdq) {
  std::atomic_ref batch(cmdq->batch);
  if (batch.load(std::memory_order_relaxed) == nullptr) {
    return nullptr;
  }
  lyn_dll_node *node = batch.exchange(&lyn_cmdq_claiming, std::memory_order_acquire);
  while (node == &lyn_cmdq_claiming) {
    sched_yield();
    node = batch.exchange(&lyn_cmdq_claiming, std::memory_order_acquire);
  }
  batch.store(node != nullptr ? node->next : nullptr, std::memory_order_release);
  return node != nullptr ? lyn_cmdq_unwrap(node, node->data) : nullptr;
}

/** On the thread, under `mutex`, behind an empty batch: make the list the batch and claim the first. Null: all empty.
 */
static lyn_cmd *lyn_cmdq_take_batch(lyn_cmdq_t *cmdq) {
  void *data = nullptr;
  std::atomic_ref begun(cmdq->begun);
  lyn_cmdq_count_add(cmdq, -begun.load(std::memory_order_relaxed));
  begun.store(0, std::memory_order_release);
  lyn_dll_node *first = lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data);
  if (first == nullptr) {
    return nullptr;
  }
  lyn_cmdq_count_add(cmdq, -1);
  std::atomic_ref(cmdq->batch).store(cmdq->head->next, std::memory_order_release);
  cmdq->head->next = nullptr;
  cmdq->tail = cmdq->head;
  return lyn_cmdq_unwrap(first, data);
}

lyn_cmd *lyn_cmdq_deq(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_deq: Bad Param cmdq NULL");
    return nullptr;
  }
  lyn_cmd *cmd = lyn_cmdq_claim(cmdq);
  if (cmd == nullptr) {
    void *data = nullptr;
    lyn_dll_node *node = lyn_dll_delete_head(cmdq->head, &cmdq->tail, &data);
    cmd = node != nullptr ? lyn_cmdq_unwrap(node, data) : nullptr;
  }
  if (cmd != nullptr) {
    lyn_cmdq_count_add(cmdq, -1);
  }
  return cmd;
}

int32_t lyn_cmdq_flush(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_flush Bad Param cmdq NULL\n");
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

/** An element to be appended: its data and, where `is_lent`, the producer's node, null when there is no memory. */
typedef struct {
  void *data;
  lyn_dll_node *node;
  bool is_lent;
} lyn_cmdq_element_t;

/** Under `mutex`: append; `was_empty` tells whether the thread must be woken. */
static bool lyn_cmdq_append(lyn_cmdq_t *cmdq, const lyn_cmdq_element_t &element, bool *was_empty) {
  lyn_dll_node *node = nullptr;
  if (!element.is_lent || element.node != nullptr) {
    node = lyn_dll_insert(cmdq->tail, element.node, element.data);
  }
  if (node == nullptr) {
    LYN_LOG_ERROR("Failed to insert into cmdq\n");
    return false;
  }
  // Only where the list is empty can the queue be.
  *was_empty = cmdq->tail == cmdq->head && lyn_cmdq_pending(cmdq) == 0;
  cmdq->tail = node;
  lyn_cmdq_count_add(cmdq, 1);
  return true;
}

/**
 * Release `mutex`, then wake the thread: with the mutex still held it would only run into it and sleep again. False,
 * and logged, when either fails; deliberate: an unlock that returns a positive error number, as POSIX has it, is no
 * failure by itself.
 */
static bool lyn_cmdq_unlock_and_wake(lyn_cmdq_t *cmdq, bool wake) {
  const int unlocked = pthread_mutex_unlock(&cmdq->mutex);
  const bool signalled = !wake || pthread_cond_signal(&cmdq->cond) == 0;
  if (!signalled) {
    LYN_LOG_ERROR("pthread_cond_signal failed:");
  }
  const bool failed = signalled ? unlocked < 0 : unlocked != 0;  // NOLINT(bugprone-posix-return)
  if (failed) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
  }
  return signalled && !failed;
}

static int32_t lyn_cmdq_enq_element(lyn_cmdq_t *cmdq, const lyn_cmdq_element_t &element, bool *queued) {
  if (int32_t count = lyn_cmdq_pending(cmdq); count > cmdq->max) {
    LYN_LOG_HIGH("Command queue exceeds configured maximum! %d > %d\n", count, cmdq->max);
  }
  // Deliberate: a lock that returns a positive error number is no failure. NOLINTNEXTLINE(bugprone-posix-return)
  if (pthread_mutex_lock(&cmdq->mutex) < 0) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
    return -1;
  }
  bool was_empty = false;
  if (!lyn_cmdq_append(cmdq, element, &was_empty)) {
    lyn_cmdq_unlock(cmdq);
    return -1;
  }
  *queued = true;
  return lyn_cmdq_unlock_and_wake(cmdq, was_empty) ? 0 : -1;
}

/** Whether `cmd` may be queued; `queued` is false from here on. */
static bool lyn_cmdq_may_enq(const lyn_cmdq_t *cmdq, const lyn_cmd *cmd, bool *queued) {
  if (cmdq == nullptr || cmd == nullptr || queued == nullptr) {
    return false;
  }
  *queued = false;
  if (cmd->execute_f == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_enq: Bad Param cmd->execute_f NULL");
    return false;
  }
  return true;
}

int32_t lyn_cmdq_enq_tell(lyn_cmdq_t *cmdq, lyn_cmd *cmd, bool *queued) {
  if (!lyn_cmdq_may_enq(cmdq, cmd, queued)) {
    return -1;
  }
  return lyn_cmdq_enq_element(cmdq, {.data = cmd, .node = nullptr, .is_lent = false}, queued);
}

int32_t lyn_cmdq_enq_lent(lyn_cmdq_t *cmdq, lyn_cmd *cmd, lyn_dll_node *node, bool *queued) {
  if (!lyn_cmdq_may_enq(cmdq, cmd, queued)) {
    return -1;
  }
  return lyn_cmdq_enq_element(cmdq, {.data = lyn_cmdq_lend(cmd), .node = node, .is_lent = true}, queued);
}

int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  bool queued = false;
  return lyn_cmdq_enq_tell(cmdq, cmd, &queued);
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* The command thread                                                                                                 */
/* ------------------------------------------------------------------------------------------------------------------ */

/** Run a command. False: the thread ends. */
static bool lyn_cmdthrd_run(lyn_cmd *cmd) {
  if (cmd->execute_f == nullptr) {
    // Deliberate: what such a command is cannot be known, so it is not released either.
    LYN_LOG_ERROR("lyn_cmdthrd_main: NULL for cmd->execute_f");
    return false;
  }
  cmd->execute_f(cmd, cmd->data);
  lyn_cmd_free(cmd);
  return true;
}

/** Claim a command of the batch and run it; `is_empty` when there is none. False: the thread ends. */
static bool lyn_cmdthrd_run_of_batch(lyn_cmdq_t *cmdq, bool *is_empty) {
  lyn_cmd *cmd = lyn_cmdq_claim(cmdq);
  *is_empty = cmd == nullptr;
  if (*is_empty) {
    return true;
  }
  std::atomic_ref begun(cmdq->begun);
  begun.store(begun.load(std::memory_order_relaxed) + 1, std::memory_order_release);
  return lyn_cmdthrd_run(cmd);
}

/** With `mutex` held: release it and run the command that was taken. False: the thread ends. */
static bool lyn_cmdthrd_run_first(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  if (!lyn_cmdq_unlock(cmdq)) {
    lyn_cmd_free(cmd);
    return false;
  }
  return lyn_cmdthrd_run(cmd);
}

/** With `mutex` held and the queue empty: wait for a signal unless there is a stop; release `mutex`. False: as above.
 */
static bool lyn_cmdthrd_wait(lyn_cmdq_t *cmdq) {
  bool waited = true;
  if (!lyn_cmdthrd_is_stopped(cmdq)) {
    waited = pthread_cond_wait(&cmdq->cond, &cmdq->mutex) == 0;
    if (!waited) {
      LYN_LOG_ERROR("pthread_cond_wait failed:");
    }
  }
  return lyn_cmdq_unlock(cmdq) && waited;
}

/** Take what is queued and run its first command, or wait where nothing is. False: the thread ends. */
static bool lyn_cmdthrd_next_batch(lyn_cmdq_t *cmdq) {
  if (!lyn_cmdq_lock(cmdq)) {
    return false;
  }
  lyn_cmd *cmd = lyn_cmdq_take_batch(cmdq);
  return cmd != nullptr ? lyn_cmdthrd_run_first(cmdq, cmd) : lyn_cmdthrd_wait(cmdq);
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
    bool is_empty = false;
    bool goes_on = lyn_cmdthrd_run_of_batch(cmdq, &is_empty);
    if (is_empty) {
      goes_on = lyn_cmdthrd_next_batch(cmdq);
    }
    if (!goes_on) {
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

int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max) {
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
  if (!lyn_cmdq_init_sync(cmdq)) {
    free(sentinel);
    cmdq->head = cmdq->tail = nullptr;
    return -1;
  }
  lyn_cmdthrd_init(cmdq);
  return 0;
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
