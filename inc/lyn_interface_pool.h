/*
 * Where posted events live: in batches of the command queue, so that posting one costs no malloc and no free.
 *
 * Events leave the queue in the order in which they enter it, so their places are handed out one after the other from a
 * batch, and the batch is used again as soon as the last of them is given back. A batch that other commands have come
 * behind is not filled up. What is not needed any more goes back to the heap: one batch is kept.
 *
 * A batch is three allocations, its command, its records and its list node, because a post tells them apart when memory
 * runs out.
 */
#ifndef LYN_INTERFACE_POOL_H
#define LYN_INTERFACE_POOL_H

#include "lyn_interface.h"

/** Places in a batch. */
inline constexpr uint32_t LYN_POOL_BATCH = 32;

/**
 * The place of the next event: a record to be written, whose `place` is set, and the batch that it is the next item of.
 * It is the same again until lyn_pool_take. Call with the gate held. OX_LYN_SUCCESS; OX_LYN_ERR_NO_MEMORY when there is
 * no memory for the command, OX_LYN_ERR_FAILURE when there is none for the records, both logged; without memory for the
 * node the batch has none.
 */
int32_t lyn_pool_next(lyn_cmd_batch_t **batch, yrp_async_data **event);

/**
 * Leave the open batch as it is where other commands have come behind it in the queue; the next place is one of
 * another. Call with the gate held, while the module is up: nobody else looks at a queue that is taken down.
 */
void lyn_pool_keep_order(const lyn_cmdq_t *cmdq);

/** The place was queued. Call with the gate held. */
void lyn_pool_take();

/** Give a place back. Any thread, with or without the gate. */
void lyn_pool_give(yrp_async_data *event);

/** Free what nothing is in use of. Call with the gate held. */
void lyn_pool_trim();

#endif
