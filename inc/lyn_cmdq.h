/*
 * Command queue and command thread: commands from any thread, run one at a time, first in, first out, on one thread.
 *
 * A command belongs to its producer until lyn_cmdq_enq returns 0, from then on to the queue: it runs execute_f and then
 * free_f, which releases data and the command. What is still queued when the thread stops, or is flushed, meets free_f
 * only. Both functions run with the queue's mutex released, so producers never wait for them.
 */
#ifndef LYN_CMDQ_H
#define LYN_CMDQ_H

#include <pthread.h>
#include <stdint.h>

#include "lyn_list.h"

typedef struct lyn_cmd lyn_cmd;

typedef void (*lyn_cmd_fn)(lyn_cmd *cmd, void *data);

/** A command, allocated by its producer. */
struct lyn_cmd {
  lyn_cmd_fn execute_f; /**< must be set */
  lyn_cmd_fn free_f;    /**< null: the queue does not release the command */
  void *data;
};

static_assert(sizeof(lyn_cmd) == 3 * sizeof(void *));

/**
 * A queue. `mutex` guards the list and changes of `count`; what is not a pointer of the list is accessed as an atomic.
 *
 * The thread takes the whole list off at once and keeps it in `batch`. What it has not begun is queued all the same: it
 * counts, and is met by a flush. The commands begun since the batch was taken, but for its first, are in `begun` and
 * still in `count`.
 */
typedef struct {
  lyn_dll_node *head;
  lyn_dll_node *tail;
  int32_t count;
  int32_t max; /**< a warning threshold, not a limit */
  pthread_t thread;
  pthread_cond_t cond;
  pthread_mutex_t mutex;
  bool running;
  bool stop;           /**< set once, by lyn_cmdthrd_deinit: a stop is seen even before the thread has set `running` */
  lyn_dll_node *batch; /**< linked by `next` */
  int32_t begun;       /**< of the thread; set back under `mutex` */
} lyn_cmdq_t;

/** Zero the queue and start its thread. 0; -1 when the sentinel, the mutex or the condition cannot be made. */
int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max);

/** Append a command. 0; -1 on null arguments, a null execute_f, or a failed lock, insert, signal or unlock. */
int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd);

/**
 * As lyn_cmdq_enq; `queued` tells whether the command is in the queue, and so no longer the producer's: a failed signal
 * or unlock gives -1 with the command queued.
 */
int32_t lyn_cmdq_enq_tell(lyn_cmdq_t *cmdq, lyn_cmd *cmd, bool *queued);

/**
 * As lyn_cmdq_enq_tell, in a list node of the producer's, which is the queue's while it holds the command and is never
 * freed by it: the producer takes it back with free_f. A null node counts as one that could not be allocated.
 */
int32_t lyn_cmdq_enq_lent(lyn_cmdq_t *cmdq, lyn_cmd *cmd, lyn_dll_node *node, bool *queued);

/** Take off the first command, or null. Call with `mutex` held. */
lyn_cmd *lyn_cmdq_deq(lyn_cmdq_t *cmdq);

/** Discard every queued command with its free_f. 0, or -1. */
int32_t lyn_cmdq_flush(lyn_cmdq_t *cmdq);

/** Wait for the command thread to end. 0; -1 when there is none or the join fails. */
int32_t lyn_cmdq_join_thread(lyn_cmdq_t *cmdq);

/** Stop and join the thread, discard what is queued, zero the queue. 0, or -1 for a null queue. */
int32_t lyn_cmdq_deinit(lyn_cmdq_t *cmdq);

/** Start the command thread, with all signals blocked. A failure is logged only. */
void lyn_cmdthrd_init(lyn_cmdq_t *cmdq);

/** Entry of the command thread; `cmdq` is an lyn_cmdq_t. Returns 0 or, as a pointer, -1. */
void *lyn_cmdthrd_main(void *cmdq);

/** Ask the command thread to stop. */
void lyn_cmdthrd_deinit(lyn_cmdq_t *cmdq);

#endif
