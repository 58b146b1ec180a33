/*
 * The places of posted events: each used by one event at a time, memory that follows the backlog down again.
 */
#include "lyn_interface_pool.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <deque>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace {

struct lyn_interface_pool : testing::Test {
  void SetUp() override { pthread_mutex_lock(&lyn_gate); }
  void TearDown() override {
    lyn_pool_trim();
    pthread_mutex_unlock(&lyn_gate);
  }

  /** Take a place as a post does. */
  static yrp_async_data *take() {
    lyn_cmd_batch_t *batch = nullptr;
    yrp_async_data *event = nullptr;
    EXPECT_EQ(lyn_pool_next(&batch, &event), OX_LYN_SUCCESS);
    EXPECT_NE(batch->node, nullptr);
    EXPECT_EQ(static_cast<yrp_async_data *>(batch->items) + batch->filled, event);
    batch->filled++;
    lyn_pool_take();
    batch->taken++;  // the queue has handed it over
    event->msg_id = 0;
    event->msg_data = nullptr;
    return event;
  }
};

TEST_F(lyn_interface_pool, places_in_use_are_all_different_and_come_back_in_any_order) {
  std::vector<yrp_async_data *> places;
  std::set<void *> different;
  for (uint32_t i = 0; i < 3 * LYN_POOL_BATCH + 1; i++) {
    places.push_back(take());
    EXPECT_TRUE(different.insert(places.back()).second);
  }
  for (size_t i = 0; i < places.size(); i += 2)
    lyn_pool_give(places[i]);
  for (size_t i = 1; i < places.size(); i += 2)
    lyn_pool_give(places[i]);
}

TEST_F(lyn_interface_pool, a_place_that_was_not_taken_is_the_next_again) {
  lyn_cmd_batch_t *batch = nullptr;
  yrp_async_data *event = nullptr, *again = nullptr;
  EXPECT_EQ(lyn_pool_next(&batch, &event), OX_LYN_SUCCESS);
  EXPECT_EQ(lyn_pool_next(&batch, &again), OX_LYN_SUCCESS);
  EXPECT_EQ(event, again);
}

TEST_F(lyn_interface_pool, a_batch_that_was_given_back_whole_is_used_again) {
  std::vector<yrp_async_data *> places;
  for (uint32_t i = 0; i < LYN_POOL_BATCH; i++)
    places.push_back(take());
  for (yrp_async_data *place : places)
    lyn_pool_give(place);
  yrp_async_data *again = take();
  EXPECT_EQ(again, places.front());
  lyn_pool_give(again);
}

TEST_F(lyn_interface_pool, places_given_back_by_another_thread_while_others_are_taken_are_never_handed_out_twice) {
  std::deque<yrp_async_data *> handed;
  std::mutex lock;
  bool done = false;
  std::thread consumer([&] {
    for (;;) {
      const std::lock_guard guard(lock);
      if (handed.empty() && done)
        return;
      if (handed.empty())
        continue;
      EXPECT_EQ(handed.front()->msg_id, 7U); /* nobody has written over it */
      lyn_pool_give(handed.front());
      handed.pop_front();
    }
  });
  for (int i = 0; i < 20000; i++) {
    yrp_async_data *place = take();
    EXPECT_EQ(place->msg_id, 0U);
    place->msg_id = 7;
    const std::lock_guard guard(lock);
    handed.push_back(place);
  }
  {
    const std::lock_guard guard(lock);
    done = true;
  }
  consumer.join();
}

TEST_F(lyn_interface_pool, trimming_leaves_what_is_in_use) {
  yrp_async_data *place = take();
  place->msg_id = 7;
  lyn_pool_trim();
  EXPECT_EQ(place->msg_id, 7U);
  lyn_pool_give(place);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(lyn_interface_pool, memory_goes_back_when_a_backlog_has_drained) {
  constexpr size_t backlog = 100000;
  std::vector<yrp_async_data *> events;
  events.reserve(backlog);
  const size_t before = mallinfo2().uordblks;
  for (size_t i = 0; i < backlog; i++)
    events.push_back(take());
  EXPECT_GT(mallinfo2().uordblks, before + backlog * sizeof(yrp_async_data));
  for (yrp_async_data *event : events)
    lyn_pool_give(event);
  EXPECT_LT(mallinfo2().uordblks, before + 16384);
}
#endif

}  // namespace
