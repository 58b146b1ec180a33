/*
 * Slot: keeps one spare block between two uses.
 *
 * For blocks that their user never releases: the owner keeps one of them in a static slot and uses it, zeroed, the next
 * time instead of allocating, so memory stays bounded and nothing is lost. Callable from any thread; all uses of one
 * slot take blocks of the same size.
 *
 *   static std::atomic<void *> spare{nullptr};
 *   auto *record = static_cast<lyn_record_t *>(lyn_slot_take(spare, sizeof(lyn_record_t)));
 *   ...
 *   lyn_slot_put(spare, record);
 */
#ifndef LYN_SLOT_H
#define LYN_SLOT_H

#include <atomic>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

/** The slot's block or, when it is empty, a new one; zeroed, the caller's. Null when the allocation fails. */
inline void *lyn_slot_take(std::atomic<void *> &slot, size_t size) {
  void *block = slot.exchange(nullptr);
  if (block == nullptr) {
    return calloc(1, size);
  }
  return memset(block, 0, size);
}

/** Keep `block` for the next take; a block that another thread put there in between is freed. */
inline void lyn_slot_put(std::atomic<void *> &slot, void *block) {
  free(slot.exchange(block));
}

#endif
