/*
 * Command queue and command thread: commands from any thread, run one at a time, first in, first out, on one thread.
 *
 * A command is queued by itself (lyn_cmdq_enq) or as an item of a batch that its producer fills (lyn_cmdq_put); an item
 * counts and runs as a command of its own. What is not queued stays its producer's. What is queued meets execute_f and
 * then free_f, which releases it; what is still queued when the thread stops, or is flushed, meets free_f only. Both
 * functions run with the queue's mutex released, so producers never wait for them. That mutex is the queue's own or,
 * where it is made so, one of its owner's.
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
 * A command that is run once for each of its items: for a producer of many commands, for whom to allocate a command,
 * its data and a list node each time would cost more than the work itself.
 *
 * Items are put in and taken off in turn; execute_f and free_f get the item as their data. The producer owns all of it
 * and uses it again when free_f has been called for every item that it has room for.
 */
typedef struct {
  lyn_cmd cmd;        /**< first, so that one is the other */
  lyn_dll_node *node; /**< null: there was no memory for it */
  void *items;
  uint32_t item_size; /**< octets */
  uint32_t ahead;     /**< offset in an item of a pointer to what running it reads: fetched while those before it run */
  uint32_t filled;    /**< items put in; under the mutex */
  uint32_t taken;     /**< items taken off; under the mutex */
} lyn_cmd_batch_t;

/** What the thread has taken off at once: items of one batch, which others may still take off before it begins them. */
typedef struct {
  lyn_cmd_batch_t *batch;
  uint32_t next;      /**< atomic */
  uint32_t end;       /**< written under the mutex */
  uint32_t uncounted; /**< items begun that are still in `count`; of the thread */
  bool counts_late;   /**< of the thread */
} lyn_cmdq_run_t;

/**
 * A queue. The mutex guards the list; `count`, `running` and `stop` are accessed as atomics.
 *
 * `count` is exact, but for a queue that is far beyond its maximum: there the thread subtracts what it has taken of a
 * batch when it comes for more, since producers would wait for it each time.
 */
typedef struct {
  lyn_dll_node *head; /**< data are commands or, marked as such, batches */
  lyn_dll_node *tail;
  int32_t count;
  int32_t max; /**< a warning threshold, not a limit */
  pthread_t thread;
  pthread_cond_t cond;
  pthread_mutex_t mutex;
  bool running;
  int32_t waking;        /**< atomic: producers that have queued a command and are about to signal `cond` */
  pthread_mutex_t *lock; /**< null: `mutex`; else the mutex of the queue's owner, used in its place */
  char apart[64];        /**< the thread writes what follows, the producers what precedes: never the same cache line */
  lyn_cmdq_run_t run;
  bool stop; /**< set once, by lyn_cmdthrd_deinit: a stop is seen even before the thread has set `running` */
} lyn_cmdq_t;

/** Zero the queue and start its thread. 0; -1 when the sentinel, the mutex or the condition cannot be made. */
int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max);

/** The same for a queue that is guarded by its owner's mutex, which outlives it. */
int32_t lyn_cmdq_init_under(lyn_cmdq_t *cmdq, int32_t max, pthread_mutex_t *lock);

/**
 * Append a command. 0; -1 on null arguments, a null execute_f, a failed lock or insert, and also, although the command
 * is queued then, on a failed signal or unlock.
 */
int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd);

/** The warning that `count` commands are queued, if that is more than `max`. */
void lyn_cmdq_warn(int32_t count, int32_t max);

/**
 * Whether the next item of a batch would stand behind all that is queued: not when items of it are queued and commands
 * behind them. Call with the mutex held.
 */
bool lyn_cmdq_may_put(const lyn_cmdq_t *cmdq, const lyn_cmd_batch_t *batch);

/**
 * Queue the next item of a batch that it may put. Call with the mutex held, then lyn_cmdq_leave. `before` is how many
 * commands were queued. False, and logged, when the batch has no node.
 */
bool lyn_cmdq_put(lyn_cmdq_t *cmdq, lyn_cmd_batch_t *batch, int32_t *before);

/** Release the mutex behind a command that was queued, and wake the thread if there were none before. 0, or -1. */
int32_t lyn_cmdq_leave(lyn_cmdq_t *cmdq, int32_t before);

/** Take off the first command, or null; one of a batch has its item as data. Call with the mutex held. */
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
