/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What one would use instead of the module's queue. Each peer carries an event (its number and the posted block, owned)
 * from any thread to one consumer thread of its own, which hands it to pipeline_consume.
 *
 * A peer is told to stop by a null block and stops when it meets it: all before it has been consumed.
 */
#ifndef PIPELINE_PEERS_H
#define PIPELINE_PEERS_H

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

#include "lyn_interface.h"

#if BENCH_HAS_GLIB
#include <glib.h>
#endif
#if BENCH_HAS_ASIO
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#endif
#if BENCH_HAS_UV
#include <uv.h>
#endif
#if BENCH_HAS_MOODY
#include <concurrentqueue/blockingconcurrentqueue.h>
#endif

/** An event as a peer carries it. */
struct pipeline_event {
  uint32_t msg_id;
  void *msg_data;
};

/** The consumer's work, the module's own: module lock, record, callback; then the block is freed. */
inline void pipeline_consume(const pipeline_event &event) {
  static lyn_cmd command = {};
  yrp_async_data data = {.msg_id = event.msg_id, .msg_data = event.msg_data};
  lyn_process_async_event(&command, &data);
  free(event.msg_data);
}

/** std::deque with mutex and condition variable, as everybody writes it. */
struct peer_deque {
  static constexpr char name[] = "deque";
  std::mutex mutex;
  std::condition_variable filled;
  std::deque<pipeline_event> events;
  std::thread thread{[this] { run(); }};

  void post(uint32_t id, void *data) {
    bool was_empty = false;
    {
      const std::lock_guard guard(mutex);
      was_empty = events.empty();
      events.push_back({id, data});
    }
    if (was_empty) {
      filled.notify_one();
    }
  }
  pipeline_event take() {
    std::unique_lock guard(mutex);
    filled.wait(guard, [this] { return !events.empty(); });
    const pipeline_event event = events.front();
    events.pop_front();
    return event;
  }
  void run() {
    for (pipeline_event event = take(); event.msg_data != nullptr; event = take()) {
      pipeline_consume(event);
    }
  }
  void stop() {
    post(0, nullptr);
    thread.join();
  }
};

#if BENCH_HAS_GLIB
/** GAsyncQueue, which carries pointers: the event is a block of its own. */
struct peer_gasync {
  static constexpr char name[] = "gasync";
  GAsyncQueue *queue = g_async_queue_new();
  std::thread thread{[this] { run(); }};

  void post(uint32_t id, void *data) {
    auto *event = static_cast<pipeline_event *>(malloc(sizeof(pipeline_event)));
    *event = {id, data};
    g_async_queue_push(queue, event);
  }
  void run() {
    for (bool goes_on = true; goes_on;) {
      auto *event = static_cast<pipeline_event *>(g_async_queue_pop(queue));
      goes_on = event->msg_data != nullptr;
      if (goes_on) {
        pipeline_consume(*event);
      }
      free(event);
    }
  }
  void stop() {
    post(0, nullptr);
    thread.join();
    g_async_queue_unref(queue);
  }
};
#endif

#if BENCH_HAS_ASIO
/** An io_context with one thread. */
struct peer_asio {
  static constexpr char name[] = "asio";
  boost::asio::io_context context;
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work{context.get_executor()};
  std::thread thread{[this] { context.run(); }};

  void post(uint32_t id, void *data) {
    boost::asio::post(context, [event = pipeline_event{id, data}] { pipeline_consume(event); });
  }
  void stop() {
    boost::asio::post(context, [this] { work.reset(); });
    thread.join();
  }
};
#endif

#if BENCH_HAS_UV
/** A loop that uv_async_send wakes, with a locked queue, because sends coalesce. */
struct peer_uv {
  static constexpr char name[] = "uv";
  uv_loop_t loop;
  uv_async_t wake;
  std::mutex mutex;
  std::deque<pipeline_event> events;
  std::thread thread;

  peer_uv() {
    uv_loop_init(&loop);
    uv_async_init(&loop, &wake, [](uv_async_t *handle) { static_cast<peer_uv *>(handle->data)->drain(); });
    wake.data = this;
    thread = std::thread([this] { uv_run(&loop, UV_RUN_DEFAULT); });
  }
  void post(uint32_t id, void *data) {
    {
      const std::lock_guard guard(mutex);
      events.push_back({id, data});
    }
    uv_async_send(&wake);
  }
  void drain() {
    std::deque<pipeline_event> batch;
    {
      const std::lock_guard guard(mutex);
      batch.swap(events);
    }
    for (const pipeline_event &event : batch) {
      if (event.msg_data != nullptr) {
        pipeline_consume(event);
      } else {
        uv_close(reinterpret_cast<uv_handle_t *>(&wake), nullptr);
      }
    }
  }
  void stop() {
    post(0, nullptr);
    thread.join();
    uv_loop_close(&loop);
  }
};
#endif

#if BENCH_HAS_MOODY
struct peer_moody {
  static constexpr char name[] = "moody";
  moodycamel::BlockingConcurrentQueue<pipeline_event> queue;
  std::thread thread{[this] { run(); }};

  void post(uint32_t id, void *data) { queue.enqueue({id, data}); }
  void run() {
    pipeline_event event;
    for (queue.wait_dequeue(event); event.msg_data != nullptr; queue.wait_dequeue(event)) {
      pipeline_consume(event);
    }
  }
  void stop() {
    post(0, nullptr);
    thread.join();
  }
};
#endif

#endif
