/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Throughput of the command queue: from lyn_cmdq_enq on 1, 2 and 4 producer threads to execute_f and free_f on the
 * command thread. Commands are made with malloc by their producers and freed by the command thread, as events are.
 *
 * One iteration is a batch of commands; items per second counts commands, from the first enqueue until the last one
 * has run.
 */
#include "lyn_cmdq.h"

#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <atomic>
#include <barrier>
#include <thread>
#include <vector>

namespace {

constexpr int64_t batch = 20000;  // commands an iteration, of all producers together

/** The work of one command: it counts itself. */
void bench_execute(lyn_cmd *, void *data) {
  static_cast<std::atomic<int64_t> *>(data)->fetch_add(1, std::memory_order_release);
}

void bench_free(lyn_cmd *cmd, void *) {
  free(cmd);
}

void bench_produce(lyn_cmdq_t *queue, int64_t count, std::atomic<int64_t> *executed) {
  for (int64_t i = 0; i < count; i++) {
    auto *cmd = static_cast<lyn_cmd *>(malloc(sizeof(lyn_cmd)));
    if (cmd == nullptr) {
      abort();
    }
    *cmd = {.execute_f = bench_execute, .free_f = bench_free, .data = executed};
    if (lyn_cmdq_enq(queue, cmd) != 0) {
      abort();
    }
  }
}

/** Producers that live for the whole benchmark and work between two barriers of each iteration. */
struct bench_producers {
  lyn_cmdq_t queue = {};
  std::atomic<int64_t> executed{0};
  std::atomic<bool> done{false};
  std::barrier<> start;
  std::vector<std::thread> threads;

  explicit bench_producers(int64_t count) : start(static_cast<std::ptrdiff_t>(count) + 1) {
    // No warnings: what is measured is the queue, not the log.
    if (lyn_cmdq_init(&queue, INT32_MAX) != 0) {
      abort();
    }
    for (int64_t i = 0; i < count; i++) {
      threads.emplace_back([this, share = batch / count] {
        for (start.arrive_and_wait(); !done; start.arrive_and_wait()) {
          bench_produce(&queue, share, &executed);
        }
      });
    }
  }
  ~bench_producers() {
    done = true;
    start.arrive_and_wait();
    for (std::thread &thread : threads) {
      thread.join();
    }
    lyn_cmdq_deinit(&queue);
  }
  bench_producers(const bench_producers &) = delete;
  bench_producers &operator=(const bench_producers &) = delete;
};

void lyn_cmdq_throughput(benchmark::State &state) {
  bench_producers producers(state.range(0));
  for (auto _ : state) {
    producers.executed = 0;
    producers.start.arrive_and_wait();
    while (producers.executed.load(std::memory_order_acquire) < batch) {
      std::this_thread::yield();
    }
  }
  state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(lyn_cmdq_throughput)->ArgName("producers")->Arg(1)->Arg(2)->Arg(4)->UseRealTime();

/** The same work without queue and thread: what the commands themselves cost. */
void lyn_cmdq_inline(benchmark::State &state) {
  std::atomic<int64_t> executed{0};
  for (auto _ : state) {
    for (int64_t i = 0; i < batch; i++) {
      auto *cmd = static_cast<lyn_cmd *>(malloc(sizeof(lyn_cmd)));
      benchmark::DoNotOptimize(cmd);
      bench_execute(cmd, &executed);
      bench_free(cmd, &executed);
    }
  }
  state.SetItemsProcessed(state.iterations() * batch);
}
BENCHMARK(lyn_cmdq_inline);

}  // namespace
