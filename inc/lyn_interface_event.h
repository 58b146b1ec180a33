/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Callback records (of the module): what the rooms that turn events into them share. Only lyn_interface*.cpp include
 * it.
 *
 * All of it runs on the command thread with the module lock held, where the user's callback is called.
 */
#ifndef LYN_INTERFACE_EVENT_H
#define LYN_INTERFACE_EVENT_H

#include <stddef.h>

#include <utility>

#include "lyn_interface.h"

using lyn_record_t = lyn_block_t<ox_lyn_dm_info_t>;

/** A callback record without value, or null when there is no memory: that delivery is skipped. */
lyn_record_t lyn_new_record(uint32_t record_type, uint32_t id, uint32_t value_type);

/** Hand a record to the user, who owns it from here on. */
void lyn_deliver(lyn_record_t record);

/** Deliver an indication with a number. Returns whether it was delivered. */
bool lyn_deliver_number(uint32_t indication, uint32_t value_type, int64_t value);

/** Deliver a block, which becomes the user's with the record; nothing where there is none. */
template <class T>
void lyn_deliver_block(uint32_t record_type, uint32_t id, uint32_t value_type, lyn_block_t<T> block) {
  if (!block) {
    return;
  }
  lyn_record_t record = lyn_new_record(record_type, id, value_type);
  if (!record) {
    return;
  }
  record->value.ptr = block.release();
  lyn_deliver(std::move(record));
}

/** Deliver a new copy of a posted block. `place`: where it is logged when there is no memory. */
template <class T>
void lyn_deliver_copy(const diag_msg_record_t *place, uint32_t record_type, uint32_t id, uint32_t value_type,
                      const T &posted) {
  lyn_block_t<T> copy = lyn_new_block<T>(place);
  if (copy) {
    *copy = posted;
  }
  lyn_deliver_block(record_type, id, value_type, std::move(copy));
}

/** `count` limited to the room for it. */
inline uint32_t lyn_clamp(uint32_t count, size_t room) {
  return count < room ? count : static_cast<uint32_t>(room);
}

/** The answer of a neighbour scan; `data` is a yrp_nas_incremental_scan_ind_t. */
void lyn_event_scan(const void *data);

/** A throughput test goes on or ends; `data` is an ox_lyn_mtpe_status_t. */
void lyn_event_mtpe_status(const void *data);

/** Free a posted block with all that it owns. */
void lyn_free_event_data(uint32_t msg_id, void *msg_data);

#endif
