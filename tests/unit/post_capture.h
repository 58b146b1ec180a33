/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Events as a client of the board posts them, for its tests: this program's lyn_post_async_event keeps them in place of
 * the module's. Include it in one source file of the program.
 */
#ifndef POST_CAPTURE_H
#define POST_CAPTURE_H

#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "lyn_event.h"
#include "ox_lyn.h"

/** Frees a block as the module does once it is delivered. */
struct post_release {
  uint32_t id = 0;

  void operator()(void *data) const {
    if (id == LYN_EVENT_LOC_BATCH) {
      free(static_cast<ox_lyn_loc_batch_t *>(data)->locations);
    }
    free(data);
  }
};

struct posted_event {
  uint32_t id;
  std::shared_ptr<void> data;

  template <typename block>
  const block &as() const {
    return *static_cast<const block *>(data.get());
  }
};

inline std::mutex post_lock;
inline std::vector<posted_event> post_events;
inline int32_t post_status = 0; /* what posting returns; with a failure the block is gone at once */

/** As the module's: the block is no longer the poster's, whatever is returned. */
int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data) {
  std::lock_guard guard(post_lock);
  post_events.push_back({yrp_msg_id, {yrp_msg_data, post_release{yrp_msg_id}}});
  if (post_status != 0) {
    post_events.back().data.reset();
  }
  return post_status;
}

inline void post_fail(int32_t status) {
  std::lock_guard guard(post_lock);
  post_status = status;
}

/** The events since the last call. */
inline std::vector<posted_event> post_take() {
  std::lock_guard guard(post_lock);
  return std::exchange(post_events, {});
}

/** Forget all events. */
inline void post_clear() {
  (void)post_take();
}

/** The events so far, at least `count` of them within 5 s. */
inline std::vector<posted_event> post_wait(size_t count) {
  for (int ms = 0; ms < 5000; ms++) {
    {
      std::lock_guard guard(post_lock);
      if (post_events.size() >= count) {
        break;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  std::lock_guard guard(post_lock);
  return post_events;
}

#endif
