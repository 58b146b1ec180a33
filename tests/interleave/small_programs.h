/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Programs of a few steps whose orders can be counted by hand, compiled so that they tell their accesses.
 */
#ifndef SMALL_PROGRAMS_H
#define SMALL_PROGRAMS_H

#include <atomic>
#include <cstddef>

#include "interleave.h"

interleave_result each_changes_its_own(size_t threads);
interleave_result each_changes_the_same(size_t threads, size_t times);
interleave_result one_writes_what_others_read(size_t readers);
interleave_result readers_only(size_t readers);
interleave_result each_holds_the_mutex(size_t threads);
interleave_result adds_without_care();
interleave_result locks_crosswise();
/** Waits for a flag that somebody sets and signals, looking at it with the mutex held or before. */
interleave_result waits_for_a_flag(bool looks_with_mutex);
/** A value is handed over by an atomic. */
interleave_result hands_over(std::memory_order store, std::memory_order load);
/** A block that is used while another thread may free it or, as a mutex shows, has. */
interleave_result frees_what_is_used(bool later);
interleave_result spins();

#endif
