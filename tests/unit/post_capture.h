/*
 * Events as a client of the board posts them, for its tests: this program's lyn_post_async_event keeps them in place of
 * the module's. Include it in one source file of the program.
 */
#ifndef POST_CAPTURE_H
#define POST_CAPTURE_H

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <vector>

#include "lyn_event.h"
#include "ox_lyn.h"

struct posted_event {
  uint32_t id;
  void *data;

  template <typename block>
  const block &as() const {
    return *static_cast<const block *>(data);
  }
};

inline std::mutex post_lock;
inline std::vector<posted_event> post_events;
inline int32_t post_status = 0; /* what posting returns; with a failure nothing is kept */

inline void post_release(const posted_event &event) {
  if (event.id == LYN_EVENT_LOC_BATCH) {
    free(static_cast<ox_lyn_loc_batch_t *>(event.data)->locations);
  }
  free(event.data);
}

/** As the module's: the block is no longer the poster's, whatever is returned. */
int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data) {
  std::lock_guard guard(post_lock);
  if (post_status == 0) {
    post_events.push_back({yrp_msg_id, yrp_msg_data});
  } else {
    post_release({yrp_msg_id, yrp_msg_data});
  }
  return post_status;
}

inline void post_fail(int32_t status) {
  std::lock_guard guard(post_lock);
  post_status = status;
}

/** Forget all events. */
inline void post_clear() {
  std::lock_guard guard(post_lock);
  for (const posted_event &event : post_events) {
    post_release(event);
  }
  post_events.clear();
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
