/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Command queue and command thread (of the module): commands from any thread, run one at a time, first in, first out,
 * on one thread.
 *
 * A command belongs to its producer until lyn_cmdq_enq returns 0, from then on to the queue: it runs execute_f and then
 * free_f, which releases data and the command. What is still queued when the thread stops, or is flushed, meets free_f
 * only. Both functions run with the queue's mutex released, so producers never wait for them.
 *
 * A queue that comes and goes under producers that stay has a gate, which outlives it: lyn_cmdq_post queues while the
 * gate is open and is refused while it is shut.
 *
 *   static lyn_cmdq_gate_t gate = LYN_CMDQ_GATE_INITIALIZER;
 *   lyn_cmdq_init_behind(&queue, 100, &gate);
 *   lyn_cmdq_open(&gate, &queue);
 *   ...                                        // any thread: lyn_cmdq_post(&gate, &cmd, &event)
 *   lyn_cmdq_shut(&gate);
 *   lyn_cmdq_deinit(&queue);
 */
#ifndef LYN_CMDQ_H
#define LYN_CMDQ_H

#include <pthread.h>
#include <stddef.h>
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

/** Octets that may be queued with a command. */
inline constexpr size_t LYN_CMDQ_OWN_LEN = 16;

/** A command that is queued. One command may be queued many times, each time with octets of its own for data. */
typedef struct {
  lyn_cmd *cmd;
  bool has_own;                                        /**< `own` is the data; else the command's */
  alignas(void *) unsigned char own[LYN_CMDQ_OWN_LEN]; /**< the last word may be what running it will read */
} lyn_cmdq_item_t;

/** Items in a chunk. */
inline constexpr uint32_t LYN_CMDQ_CHUNK_LEN = 32;

/** An element of the queue's list. Three allocations, because a producer tells them apart when memory runs out. */
typedef struct {
  lyn_dll_node *node;
  lyn_cmdq_item_t *items;
  uint32_t taken; /**< items taken off; it stands in the list until that is all of them */
} lyn_cmdq_chunk_t;

/** Items of one chunk that the thread is to run. Until it begins one, whoever takes commands off may claim it first. */
typedef struct {
  lyn_cmdq_chunk_t *chunk;
  uint32_t next;      /**< atomic: the item to be begun next */
  uint32_t end;       /**< written under the mutex */
  uint32_t uncounted; /**< items begun that are still in `count`; of the thread */
  bool counts_late;   /**< of the thread */
  bool is_left;       /**< atomic: the thread has ended; who empties the queue frees the chunk */
} lyn_cmdq_run_t;

typedef struct lyn_cmdq_gate_t lyn_cmdq_gate_t;

/**
 * A queue. The mutex, its own or the gate's, guards the list; `count`, `running` and `stop` are accessed as atomics.
 *
 * `count` is exact up to the maximum. Beyond it the thread subtracts what it has begun of a chunk when it comes for the
 * next one, since producers would wait for it each time.
 */
typedef struct {
  lyn_dll_node *head; /**< data are chunks */
  lyn_dll_node *tail;
  int32_t count;
  int32_t max; /**< a warning threshold, not a limit */
  pthread_t thread;
  pthread_cond_t cond;
  pthread_mutex_t mutex;
  bool running;
  lyn_cmdq_gate_t *gate;          /**< null: none, `mutex` and `cond` are in use */
  lyn_cmdq_item_t *put, *put_end; /**< where the next item goes, in the last chunk; equal: into a new one */
  char apart[64]; /**< the thread writes what follows, the producers what precedes: never the same cache line */
  lyn_cmdq_run_t run;
  bool stop; /**< set once, by lyn_cmdthrd_deinit: a stop is seen even before the thread has set `running` */
} lyn_cmdq_t;

/** What producers meet. Never zeroed: a producer that comes late finds a mutex and a condition that live. */
struct lyn_cmdq_gate_t {
  pthread_mutex_t mutex;
  pthread_cond_t cond;
  lyn_cmdq_t *queue; /**< null while the gate is shut; under the mutex */
};

/** The mutex is held for a few instructions, so whoever finds it taken does not sleep at once. */
#define LYN_CMDQ_GATE_INITIALIZER \
  { PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP, PTHREAD_COND_INITIALIZER, nullptr }

/** What became of a post. */
typedef enum {
  LYN_CMDQ_QUEUED,
  LYN_CMDQ_QUEUED_FAILED, /**< queued, but the signal or the unlock failed, which is logged */
  LYN_CMDQ_SHUT,
  LYN_CMDQ_NO_CHUNK, /**< no memory for a chunk */
  LYN_CMDQ_NO_ITEMS, /**< no memory for its items */
  LYN_CMDQ_NO_NODE,  /**< no memory for its node, which is logged */
  LYN_CMDQ_FAILED    /**< the lock failed, which is logged */
} lyn_cmdq_post_e;

/** Zero the queue and start its thread. 0; -1 when the sentinel, the mutex or the condition cannot be made. */
int32_t lyn_cmdq_init(lyn_cmdq_t *cmdq, int32_t max);

/** The same for a queue behind a gate, which stays shut. */
int32_t lyn_cmdq_init_behind(lyn_cmdq_t *cmdq, int32_t max, lyn_cmdq_gate_t *gate);

/** Let posts through to a queue that was made behind the gate. */
void lyn_cmdq_open(lyn_cmdq_gate_t *gate, lyn_cmdq_t *cmdq);

/** Refuse posts from here on. What was queued stays so. */
void lyn_cmdq_shut(lyn_cmdq_gate_t *gate);

/**
 * Queue `cmd`, which outlives the queue, with a copy of LYN_CMDQ_OWN_LEN octets for its data. Any thread. Nothing is
 * logged while the gate's mutex is held.
 */
lyn_cmdq_post_e lyn_cmdq_post(lyn_cmdq_gate_t *gate, lyn_cmd *cmd, const void *own);

/** Append a command. 0; -1 on null arguments, a null execute_f, or a failed lock, insert, signal or unlock. */
int32_t lyn_cmdq_enq(lyn_cmdq_t *cmdq, lyn_cmd *cmd);

/** Take off the first command, or null. Call with the mutex held. Octets that were queued with it are lost. */
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
