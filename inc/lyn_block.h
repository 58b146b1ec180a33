/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Blocks of memory that change hands (of the module): made zeroed by one side, freed with free() by the other.
 *
 * A block has an owner until it is handed over, which `release` says at the very place. A slot keeps one spare block
 * between two uses, for blocks that their user never releases: it is used, zeroed, the next time instead of allocating,
 * so memory stays bounded and nothing is lost.
 *
 *   auto event = lyn_new_block<ox_lyn_qos_flow_t>(LYN_LOG_ERROR_HERE);
 *   if (!event) return;
 *   lyn_post_async_event(LYN_EVENT_QOS_FLOW, event.release());  // the queue's from here on
 *
 *   static std::atomic<void *> spare{nullptr};
 *   auto *record = static_cast<lyn_record_t *>(lyn_slot_take(spare, sizeof(lyn_record_t)));
 *   ...
 *   lyn_slot_put(spare, record);
 */
#ifndef LYN_BLOCK_H
#define LYN_BLOCK_H

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <atomic>
#include <memory>

#include "lyn_log.h"

/** Deleter of what malloc or calloc made. */
struct lyn_free_t {
  void operator()(void *block) const { free(block); }
};

/** Owner of a block that C code may free. */
template <class T>
using lyn_block_t = std::unique_ptr<T, lyn_free_t>;

/** `count` zeroed entries; null when the allocation fails, which the caller logs. */
template <class T>
lyn_block_t<T> lyn_zeroed_block(size_t count) {
  return lyn_block_t<T>(static_cast<T *>(calloc(count, sizeof(T))));
}

/**
 * A zeroed entry, as above. malloc takes small blocks from the thread's own cache, which calloc passes by; larger ones
 * are left to calloc, which knows fresh memory to be zero.
 */
template <class T>
lyn_block_t<T> lyn_zeroed_block() {
  if constexpr (sizeof(T) > 1024) {
    return lyn_zeroed_block<T>(1);
  } else {
    lyn_block_t<T> owner(static_cast<T *>(malloc(sizeof(T))));
    void *block = owner.get();
    asm("" : "+r"(block));  // or the compiler would make the two calls into one of calloc
    if (block != nullptr) {
      memset(block, 0, sizeof(T));  // cppcheck-suppress memsetClassFloat ; all bits zero is 0.0
    }
    return owner;
  }
}

/** A zeroed block; null, and logged as of the caller's `place`, when the allocation fails. */
template <class T>
lyn_block_t<T> lyn_new_block(const diag_msg_record_t *place) {
  lyn_block_t<T> block = lyn_zeroed_block<T>();
  if (!block) {
    LYN_LOG_OF(place, "Memory allocation failure");
  }
  return block;
}

/**
 * The slot's block or, when it is empty, a new one; zeroed, the caller's. Null when the allocation fails. Any thread;
 * all uses of one slot take blocks of the same size.
 */
inline void *lyn_slot_take(std::atomic<void *> &slot, size_t size) {
  void *block = slot.exchange(nullptr);
  return block != nullptr ? memset(block, 0, size) : calloc(1, size);
}

/** Keep `block` for the next take; a block that another thread put there in between is freed. */
inline void lyn_slot_put(std::atomic<void *> &slot, void *block) {
  free(slot.exchange(block));
}

#endif
