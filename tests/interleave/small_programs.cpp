/* SPDX-License-Identifier: Apache-2.0 */
#include "small_programs.h"

#include <pthread.h>

#include <cstdlib>

namespace {

/** Threads that each do something once, the body among them. */
interleave_result all_do(size_t threads, const std::function<void(size_t)> &once) {
  return interleave_all([&] {
    for (size_t i = 1; i < threads; i++) {
      interleave_start([&once, i] { once(i); });
    }
    once(0);
  });
}

std::atomic<int> places[4];
std::atomic<int> &place = places[0];

}  // namespace

interleave_result each_changes_its_own(size_t threads) {
  return all_do(threads, [](size_t i) { places[i].fetch_add(1); });
}

interleave_result each_changes_the_same(size_t threads, size_t times) {
  return all_do(threads, [times](size_t) {
    for (size_t i = 0; i < times; i++) {
      place.fetch_add(1);
    }
  });
}

interleave_result readers_only(size_t readers) {
  return all_do(readers, [](size_t) { place.load(); });
}

interleave_result one_writes_what_others_read(size_t readers) {
  return all_do(readers + 1, [](size_t i) {
    if (i == 0) {
      place.store(1);
    } else {
      place.load();
    }
  });
}

interleave_result each_holds_the_mutex(size_t threads) {
  static pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  static int guarded;
  return all_do(threads, [](size_t) {
    pthread_mutex_lock(&mutex);
    guarded++;
    pthread_mutex_unlock(&mutex);
  });
}

interleave_result adds_without_care() {
  return interleave_all([] {
    std::atomic<int> count{0};
    const auto add = [&count] { count.store(count.load() + 1); };
    const size_t other = interleave_start(add);
    add();
    interleave_join(other);
    if (count.load() != 2) {
      interleave_fail("lost");
    }
  });
}

interleave_result locks_crosswise() {
  static pthread_mutex_t mutexes[2] = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_MUTEX_INITIALIZER};
  return all_do(2, [](size_t i) {
    pthread_mutex_lock(&mutexes[i]);
    pthread_mutex_lock(&mutexes[1 - i]);
    pthread_mutex_unlock(&mutexes[1 - i]);
    pthread_mutex_unlock(&mutexes[i]);
  });
}

interleave_result waits_for_a_flag(bool looks_with_mutex) {
  return interleave_all([looks_with_mutex] {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    std::atomic<bool> flag{false};
    const size_t other = interleave_start([&] {
      pthread_mutex_lock(&mutex);
      flag = true;
      pthread_mutex_unlock(&mutex);
      pthread_cond_signal(&condition);
    });
    const bool seen_before = flag;
    pthread_mutex_lock(&mutex);
    if (!(looks_with_mutex ? flag.load() : seen_before)) {
      pthread_cond_wait(&condition, &mutex);
    }
    pthread_mutex_unlock(&mutex);
    interleave_join(other);
  });
}

interleave_result hands_over(std::memory_order store, std::memory_order load) {
  return interleave_all([=] {
    int value = 0;
    std::atomic<bool> ready{false};
    const size_t other = interleave_start([&] {
      value = 7;
      ready.store(true, store);
    });
    if (ready.load(load) && value != 7) {
      interleave_fail("another value");
    }
    interleave_join(other);
  });
}

interleave_result frees_what_is_used(bool later) {
  return interleave_all([later] {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    int *block = static_cast<int *>(malloc(sizeof *block));
    bool is_freed = false;
    const size_t other = interleave_start([&] {
      pthread_mutex_lock(&mutex);
      free(block);
      is_freed = true;
      pthread_mutex_unlock(&mutex);
    });
    if (later) {
      pthread_mutex_lock(&mutex);
      if (is_freed) {
        *block = 2;
      }
      pthread_mutex_unlock(&mutex);
    } else {
      *block = 1;
    }
    interleave_join(other);
  });
}

interleave_result spins() {
  return interleave_all([] {
    while (place.load() != -1) {
    }
  });
}
