/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Runs a few threads in every order that makes a difference, and looks at each: the threads are fibers of one thread,
 * which switch where the code under test locks, waits, signals, joins or touches an atomic. The code is the module's
 * own, compiled so that it tells each access to memory (-fsanitize=thread, with the functions of interleave.cpp in
 * place of the compiler's runtime), and linked so that its pthread calls come here.
 *
 * Orders that differ only in steps which do not touch the same object are the same to the code: of each such class one
 * is run (dynamic partial-order reduction with sleep sets). Memory is what each order makes of it, one step after the
 * other; what a weaker memory could show of atomics is judged by their orders: an access that no lock and no release
 * and acquire puts behind the one it conflicts with is a race, in whatever order it was met.
 *
 *   const interleave_result all = interleave_all([] {
 *     interleave_start([] { ... });      // a second thread
 *     ...
 *   });
 *   EXPECT_EQ(all.failure, "");
 */
#ifndef INTERLEAVE_H
#define INTERLEAVE_H

#include <cstddef>
#include <functional>
#include <string>

struct interleave_result {
  size_t orders = 0;   /**< run to their end */
  size_t repeated = 0; /**< begun, and found to be like one that was run */
  std::string failure; /**< of the first order that fails, and its steps; empty: none */
};

/** Run `body` in every order of its threads. The first failure ends it. */
interleave_result interleave_all(const std::function<void()> &body);

/** From within: one more thread. Returns its number. */
size_t interleave_start(std::function<void()> body);

/** From within: wait for its end. */
void interleave_join(size_t thread);

/** From within: pthread_create fails from here on, or no more. */
void interleave_refuse_threads(bool refuse);

/** From within: this order fails. */
void interleave_fail(const std::string &why);

#endif
