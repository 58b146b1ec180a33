/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The order of the module's locks (of the module), held to by every build with assertions: a thread takes a lock only
 * while it holds none of the same place or behind it. A program that breaks it ends there and not in a deadlock that
 * comes once in a year. Also an application's callback that calls back into the module ends so.
 *
 *   lyn_order_take(LYN_ORDER_GATE);     // before the lock is taken
 *   pthread_mutex_lock(mutex);
 *   ...
 *   lyn_order_give(LYN_ORDER_GATE);
 *   pthread_mutex_unlock(mutex);
 */
#ifndef LYN_ORDER_H
#define LYN_ORDER_H

#include <assert.h>
#include <stdint.h>

typedef enum : uint8_t {
  LYN_ORDER_MODULE, /**< the module lock */
  LYN_ORDER_ROW,    /**< the mutex of those that wait for it */
  LYN_ORDER_GATE    /**< the mutex of a command queue or its gate */
} lyn_order_e;

#ifdef NDEBUG
inline void lyn_order_take(lyn_order_e) {}
inline void lyn_order_give(lyn_order_e) {}
#else
inline thread_local uint8_t lyn_order_held; /**< a bit for each lock that this thread holds */

inline void lyn_order_take(lyn_order_e lock) {
  assert(lyn_order_held >> lock == 0 && "a lock is taken out of order");
  lyn_order_held = static_cast<uint8_t>(lyn_order_held | 1U << lock);
}

inline void lyn_order_give(lyn_order_e lock) {
  lyn_order_held = static_cast<uint8_t>(lyn_order_held & ~(1U << lock));
}
#endif

#endif
