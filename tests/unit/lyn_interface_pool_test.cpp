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

  static lyn_pool_place_t take() {
    lyn_pool_place_t place = {};
    EXPECT_EQ(lyn_pool_take(&place), OX_LYN_SUCCESS);
    EXPECT_NE(lyn_pool_node(&place), nullptr);
    *place.cmd = {};
    *place.event = {};
    *lyn_pool_node(&place) = {};
    return place;
  }
};

TEST_F(lyn_interface_pool, places_in_use_are_all_different_and_come_back_in_any_order) {
  std::vector<lyn_pool_place_t> places;
  std::set<void *> blocks;
  for (uint32_t i = 0; i < 3 * LYN_POOL_BATCH + 1; i++) {
    places.push_back(take());
    EXPECT_TRUE(blocks.insert(places.back().cmd).second);
    EXPECT_TRUE(blocks.insert(places.back().event).second);
    EXPECT_TRUE(blocks.insert(lyn_pool_node(&places.back())).second);
  }
  for (size_t i = 0; i < places.size(); i += 2)
    lyn_pool_give(places[i].event);
  for (size_t i = 1; i < places.size(); i += 2)
    lyn_pool_give(places[i].event);
}

TEST_F(lyn_interface_pool, a_batch_that_was_given_back_whole_is_used_again) {
  std::vector<lyn_pool_place_t> places;
  for (uint32_t i = 0; i < LYN_POOL_BATCH; i++)
    places.push_back(take());
  lyn_cmd *first = places.front().cmd;
  for (const lyn_pool_place_t &place : places)
    lyn_pool_give(place.event);
  const lyn_pool_place_t again = take();
  EXPECT_EQ(again.cmd, first);
  lyn_pool_give(again.event);
}

TEST_F(lyn_interface_pool, places_given_back_by_another_thread_while_others_are_taken_are_never_handed_out_twice) {
  std::deque<lyn_pool_place_t> handed;
  std::mutex lock;
  bool done = false;
  std::thread consumer([&] {
    for (;;) {
      const std::lock_guard guard(lock);
      if (handed.empty() && done)
        return;
      if (handed.empty())
        continue;
      EXPECT_EQ(handed.front().event->msg_id, 7U); /* nobody has written over it */
      lyn_pool_give(handed.front().event);
      handed.pop_front();
    }
  });
  for (int i = 0; i < 20000; i++) {
    lyn_pool_place_t place = take();
    EXPECT_EQ(place.event->msg_id, 0U);
    place.event->msg_id = 7;
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
  const lyn_pool_place_t place = take();
  place.event->msg_id = 7;
  lyn_pool_trim();
  EXPECT_EQ(place.event->msg_id, 7U);
  lyn_pool_give(place.event);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(lyn_interface_pool, memory_goes_back_when_a_backlog_has_drained) {
  constexpr size_t backlog = 100000;
  std::vector<yrp_async_data *> events;
  events.reserve(backlog);
  const size_t before = mallinfo2().uordblks;
  for (size_t i = 0; i < backlog; i++)
    events.push_back(take().event);
  EXPECT_GT(mallinfo2().uordblks, before + backlog * (sizeof(lyn_cmd) + sizeof(yrp_async_data)));
  for (yrp_async_data *event : events)
    lyn_pool_give(event);
  EXPECT_LT(mallinfo2().uordblks, before + 16384);
}
#endif

}  // namespace
