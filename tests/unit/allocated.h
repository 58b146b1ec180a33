/* SPDX-License-Identifier: Apache-2.0 */
/*
 * How much memory the program holds, with and without a sanitizer's own heap.
 */
#ifndef ALLOCATED_H
#define ALLOCATED_H

#include <malloc.h>
#include <stddef.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ALLOCATED_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ALLOCATED_SANITIZED 1
#endif
#endif
#ifndef ALLOCATED_SANITIZED
#define ALLOCATED_SANITIZED 0
#endif
#if ALLOCATED_SANITIZED
// The compiler's header for it is not always installed. NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" size_t __sanitizer_get_current_allocated_bytes();
#endif

/** Octets in blocks that were not freed, of all threads. */
inline size_t allocated() {
#if ALLOCATED_SANITIZED
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

#endif
