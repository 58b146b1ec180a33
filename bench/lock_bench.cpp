/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a caller waits for while events pour in: the callbacks that lie between its call of ox_lyn_get_ind_count and its
 * turn, the one that runs when it comes included.
 *
 * The callback takes 50 us, and as each posts the next event, the command thread never runs out of them. The callers
 * rest for a while between two calls, each time another one, so that they come at any moment of a callback.
 *
 * A caller that the kernel preempts on its way to the lock has not come yet, while callbacks go on. The kernel counts
 * how often it has preempted a thread (ru_nivcsw); a wait for the lock is not among these. So a call during which that
 * count has changed is left out, and another one is made in its place; how many were is printed beside.
 */
#include <sys/resource.h>

#include <atomic>
#include <random>
#include <thread>

#include "bench.h"
#include "lyn_event.h"
#include "ox_lyn.h"
#include "sim_board.h"

namespace {

constexpr std::chrono::microseconds callback_lasts(50);
constexpr int events_queued = 64;
constexpr double may_pass = 2;

std::atomic<uint32_t> ended{0};
std::atomic<bool> goes_on{false};

void post_event() {
  auto *status = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
  *status = 0;
  bench_require(lyn_post_async_event(LYN_EVENT_MODEM_UP, status) == OX_LYN_SUCCESS, "a post was refused");
}

void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  free(info);
  if (!goes_on) {
    return;
  }
  for (const auto until = bench_clock::now() + callback_lasts; bench_clock::now() < until;) {
  }
  post_event();
  ended++;
}

struct waits {
  uint32_t worst = 0;
  uint32_t counted = 0, left_out = 0;
};

long preemptions() {
  rusage used = {};
  getrusage(RUSAGE_THREAD, &used);
  return used.ru_nivcsw;
}

waits call(ox_lyn_hndl_t hndl, uint32_t calls, uint32_t seed) {
  std::minstd_rand random(seed);
  waits result;
  while (result.counted < calls) {
    std::this_thread::sleep_for(std::chrono::microseconds(random() % (2 * callback_lasts.count())));
    uint32_t count = 0;
    const long preempted = preemptions();
    const uint32_t before = ended;
    bench_require(ox_lyn_get_ind_count(hndl, &count) == OX_LYN_SUCCESS, "a call failed");
    const uint32_t passed = ended - before;
    if (preemptions() != preempted) {
      result.left_out++;
      continue;
    }
    result.worst = std::max(result.worst, passed);
    result.counted++;
  }
  return result;
}

/** `calls` calls in a flood, of so many callers together. */
waits flood(ox_lyn_hndl_t hndl, uint32_t callers, uint32_t calls) {
  std::vector<waits> each(callers);
  std::vector<std::thread> threads;
  goes_on = true;
  for (int i = 0; i < events_queued; i++) {
    post_event();
  }
  for (uint32_t i = 0; i < callers; i++) {
    threads.emplace_back([&each, hndl, i, share = calls / callers] { each[i] = call(hndl, share, i + 1); });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  goes_on = false;
  waits all;
  for (const waits &one : each) {
    all.worst = std::max(all.worst, one.worst);
    all.left_out += one.left_out;
  }
  return all;
}

void run(const bench_options &options, ox_lyn_hndl_t hndl, const char *name, uint32_t callers) {
  const uint32_t calls = options.smoke ? 20 : 1000;
  std::vector<double> worst, left_out;
  for (size_t round = 0; round < options.rounds; round++) {
    const waits result = flood(hndl, callers, calls);
    worst.push_back(result.worst);
    left_out.push_back(result.left_out);
  }
  bench_report(options, name, worst, std::vector<double>(worst.size(), may_pass),
               "callbacks, worst of 1000 calls, theirs the goal", {"left_out", left_out});
}

ox_lyn_hndl_t bring_up() {
  bench_require(sim_board_load("[board]\nnoise_db = 0\n").empty(), "the board does not load");
  ox_lyn_hndl_t hndl = 0;
  bench_require(ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS, "the module does not come up");
  ox_lyn_dm_ind_info_t wanted = {};
  wanted.record_type = OX_LYN_RECORD_IND_E;
  wanted.indication = OX_LYN_IND_MODEM_STATUS_E;
  bench_require(ox_lyn_set_ind_info(hndl, &wanted) == OX_LYN_SUCCESS, "the subscription is refused");
  return hndl;
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  const ox_lyn_hndl_t hndl = bring_up();
  run(options, hndl, "lock.wait", 1);
  run(options, hndl, "lock.wait.callers", 4);
  bench_require(ox_lyn_deinit(hndl) == OX_LYN_SUCCESS, "the module does not go down");
  return 0;
}
