/*
 * Where posted events live: command, record and list node of each event, made a batch at a time.
 *
 * Events leave the queue in the order in which they enter it, so their places are handed out one after the other from a
 * batch and the batch is used again as soon as the last of them is given back. Posting an event so costs no malloc and
 * no free, whatever the backlog, and a batch that is not needed any more goes back to the heap: one is kept.
 *
 * A batch is three allocations, its commands, its records and its nodes, because a post tells them apart when memory
 * runs out. A batch of which nothing is in use is not kept by a post that fails.
 */
#ifndef LYN_INTERFACE_POOL_H
#define LYN_INTERFACE_POOL_H

#include "lyn_interface.h"

/** Places in a batch. */
inline constexpr uint32_t LYN_POOL_BATCH = 32;

typedef struct lyn_pool_batch_t lyn_pool_batch_t;

/** What one event is made of. */
typedef struct {
  lyn_cmd *cmd;
  yrp_async_data *event;
  lyn_pool_batch_t *batch; /**< the pool's own */
} lyn_pool_place_t;

/**
 * Take a place. Call with the gate held. OX_LYN_SUCCESS; OX_LYN_ERR_NO_MEMORY when there is no memory for commands,
 * OX_LYN_ERR_FAILURE when there is none for their records, both logged.
 */
int32_t lyn_pool_take(lyn_pool_place_t *place);

/** The node of a place that was taken; null when there is no memory for nodes. Call with the gate held. */
lyn_dll_node *lyn_pool_node(const lyn_pool_place_t *place);

/** Give a place back. Any thread, with or without the gate. */
void lyn_pool_give(yrp_async_data *event);

/** Free what nothing is in use of. Call with the gate held. */
void lyn_pool_trim();

#endif
