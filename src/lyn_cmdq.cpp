/*
 * Command queue and command thread: see lyn_cmdq.h for who owns a command when.
 *
 * The thread waits on `cond` for the empty queue to fill and is signalled for that transition only; it drains the queue
 * before it waits again. A stop is the field `stop`, which the thread never clears: it is set and signalled under
 * `mutex`, and the thread looks at it under `mutex` before it waits, so no interleaving loses it. `running` is what the
 * thread shows of itself; clearing it alone asks for an end, too.
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

/** Under `mutex`: only the warning of lyn_cmdq_enq reads the count without it. */
static int32_t lyn_cmdq_count_add(lyn_cmdq_t *cmdq, int32_t change) {
  int32_t count = lyn_cmdq_count(cmdq) + change;
  std::atomic_ref(cmdq->count).store(count, std::memory_order_relaxed);
  return count;
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

lyn_cmd *lyn_cmdq_deq(lyn_cmdq_t *cmdq) {
  if (cmdq == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_deq: Bad Param cmdq NULL");
    return nullptr;
  }
  void *cmd = nullptr;
  lyn_dll_node *node = lyn_dll_delete_head(cmdq->head, &cmdq->tail, &cmd);
  if (node != nullptr) {
    lyn_cmdq_count_add(cmdq, -1);
    free(node);
  }
  return static_cast<lyn_cmd *>(cmd);
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

/** Under `mutex`: append, and wake the thread where the queue was empty. `queued` tells whether it is in the queue. */
static bool lyn_cmdq_append(lyn_cmdq_t *cmdq, lyn_cmd *cmd, bool *queued) {
  lyn_dll_node *node = lyn_dll_insert(cmdq->tail, nullptr, cmd);
  if (node == nullptr) {
    LYN_LOG_ERROR("Failed to insert into cmdq\n");
    return false;
  }
  cmdq->tail = node;
  *queued = true;
  if (lyn_cmdq_count_add(cmdq, 1) == 1 && pthread_cond_signal(&cmdq->cond) != 0) {
    LYN_LOG_ERROR("pthread_cond_signal failed:");
    return false;
  }
  return true;
}

int32_t lyn_cmdq_enq_tell(lyn_cmdq_t *cmdq, lyn_cmd *cmd, bool *queued) {
  if (cmdq == nullptr || cmd == nullptr || queued == nullptr) {
    return -1;
  }
  *queued = false;
  if (cmd->execute_f == nullptr) {
    LYN_LOG_ERROR("lyn_cmdq_enq: Bad Param cmd->execute_f NULL");
    return -1;
  }
  if (int32_t count = lyn_cmdq_count(cmdq); count > cmdq->max) {
    LYN_LOG_HIGH("Command queue exceeds configured maximum! %d > %d\n", count, cmdq->max);
  }
  // Deliberate: here a lock or unlock that returns a positive error number, as POSIX has it, is no failure.
  // NOLINTBEGIN(bugprone-posix-return)
  if (pthread_mutex_lock(&cmdq->mutex) < 0) {
    LYN_LOG_ERROR("pthread_mutex_lock failed:");
    return -1;
  }
  if (!lyn_cmdq_append(cmdq, cmd, queued)) {
    lyn_cmdq_unlock(cmdq);
    return -1;
  }
  if (pthread_mutex_unlock(&cmdq->mutex) < 0) {
    LYN_LOG_ERROR("pthread_mutex_unlock failed:");
    return -1;
  }
  // NOLINTEND(bugprone-posix-return)
  return 0;
}

int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  bool queued = false;
  return lyn_cmdq_enq_tell(cmdq, cmd, &queued);
}

/* ------------------------------------------------------------------------------------------------------------------ */
/* The command thread                                                                                                 */
/* ------------------------------------------------------------------------------------------------------------------ */

/** Release `mutex` and run a command. False: the thread ends. */
static bool lyn_cmdthrd_run(lyn_cmdq_t *cmdq, lyn_cmd *cmd) {
  if (!lyn_cmdq_unlock(cmdq)) {
    lyn_cmd_free(cmd);
    return false;
  }
  if (cmd->execute_f == nullptr) {
    // Deliberate: what such a command is cannot be known, so it is not released either.
    LYN_LOG_ERROR("lyn_cmdthrd_main: NULL for cmd->execute_f");
    return false;
  }
  cmd->execute_f(cmd, cmd->data);
  lyn_cmd_free(cmd);
  return true;
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
    if (!lyn_cmdq_lock(cmdq)) {
      return LYN_CMDTHRD_FAILED;
    }
    lyn_cmd *cmd = lyn_cmdq_deq(cmdq);
    bool goes_on = cmd != nullptr ? lyn_cmdthrd_run(cmdq, cmd) : lyn_cmdthrd_wait(cmdq);
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
