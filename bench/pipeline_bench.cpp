/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The event pipeline: from lyn_post_async_event to the user's callback, beside what one would use instead.
 *
 * All contestants carry the same event (a registration status in a malloc'ed block) and run the same consumer's work:
 * the module's own lyn_process_async_event, with its lock, its callback record and the callback, which frees the
 * record. The order is checked in every run: an event's value is its number, and its producer's number in the upper
 * byte.
 *
 * throughput: producers post as fast as they can; events a second, from the first post to the last callback, and how
 *             far the callbacks fell behind the posts.
 * cpu:        processor time an event, of all threads, where events are posted at a rate. The poster sleeps in between,
 *             and what that takes is measured by itself and subtracted.
 * latency:    from before the post to the callback, at the same rates.
 * backlog:    cost of an event, posted and delivered, where the callback is held until so many are queued.
 * instructions: only posts --events events, in bursts; for callgrind, which tools/bench runs.
 *
 * --only=throughput.lyn runs the module alone, for a profiler; with --events=N only with N producers.
 */
#include <semaphore.h>
#include <sys/prctl.h>
#include <time.h>

#include <atomic>
#include <barrier>
#include <functional>
#include <memory>

#include "bench.h"
#include "lyn_event.h"
#include "ox_lyn.h"
#include "pipeline_peers.h"
#include "sim_board.h"

namespace {

constexpr uint32_t max_producers = 4;
constexpr uint32_t number_bits = 24;

/** How many events a producer has posted, where no other thread writes. */
struct alignas(64) posted_count {
  std::atomic<uint64_t> events{0};
};

/** What the callback sees. Written by one consumer at a time; `seen` publishes. */
struct {
  alignas(64) std::atomic<uint64_t> seen{0};
  std::atomic<bool> held{false};
  uint32_t next[max_producers] = {};
  bool in_order = true;
  uint64_t longest_backlog = 0;          /**< as looked at once in so many events */
  bench_clock::time_point *at = nullptr; /**< when the callback ran for each event, or null */
  uint64_t wake_at = 0;                  /**< posts `reached` for this event */
  bench_clock::time_point finished;
  sem_t reached;
  posted_count posted[max_producers];
} sink;

uint64_t sink_posted() {
  uint64_t events = 0;
  for (const posted_count &one : sink.posted) {
    events += one.events.load(std::memory_order_relaxed);
  }
  return events;
}

void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  constexpr uint64_t look_each = 256;
  const auto value = static_cast<uint32_t>(info->value.i64);
  if (sink.at != nullptr) {
    sink.at[value % (1U << number_bits)] = bench_clock::now();
  }
  sink.in_order = sink.in_order && value % (1U << number_bits) == sink.next[value >> number_bits]++;
  free(info);
  while (sink.held.load(std::memory_order_acquire)) {
    std::this_thread::yield();
  }
  const uint64_t seen = sink.seen.load(std::memory_order_relaxed) + 1;
  if (seen % look_each == 0) {
    sink.longest_backlog = std::max(sink.longest_backlog, sink_posted() - std::min(sink_posted(), seen));
  }
  sink.seen.store(seen, std::memory_order_release);
  if (seen == sink.wake_at) {
    sink.finished = bench_clock::now();
    sem_post(&sink.reached);
  }
}

void sink_reset() {
  sink.seen = 0;
  sink.wake_at = 0;
  sink.longest_backlog = 0;
  std::fill(std::begin(sink.next), std::end(sink.next), 0U);
  for (posted_count &one : sink.posted) {
    one.events = 0;
  }
}

void sink_expect(uint64_t count) {
  sink.wake_at = count;
}

void sink_wait() {
  while (sem_wait(&sink.reached) != 0) {
  }
  bench_require(sink.in_order, "events were reordered, lost or doubled");
}

ox_lyn_hndl_t module_handle;

void module_up() {
  bench_require(ox_lyn_init(&module_handle, 0, on_event) == OX_LYN_SUCCESS, "the module does not come up");
  bench_require(sim_board_wait_idle(10000), "the board does not come to rest");
  lyn_state.ind_table.reg_status = 1;  // subscribed, without the board's own first report of it
}

void module_down() {
  bench_require(ox_lyn_deinit(module_handle) == OX_LYN_SUCCESS, "the module does not go down");
}

/** The module itself as a contestant, which begins with a new thread as its peers do. */
struct contestant_lyn {
  static constexpr char name[] = "lyn";
  contestant_lyn() {
    module_down();
    module_up();
  }
  void post(uint32_t id, void *data) {
    if (lyn_post_async_event(id, data) != OX_LYN_SUCCESS) {
      bench_fail("a post was refused");
    }
  }
  void stop() {}
};

template <typename Queue>
void post_number(Queue &queue, uint32_t producer, uint32_t number) {
  auto *status = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
  *status = producer << number_bits | number;
  queue.post(LYN_EVENT_SYS_INFO, status);
}  // NOLINT(clang-analyzer-unix.Malloc): the block is the queue's

/* Throughput */

struct throughput_result {
  double rate;    /**< events a second */
  double backlog; /**< how far the callbacks fell behind the posts */
};

template <typename Queue>
throughput_result throughput(Queue &queue, uint32_t producers, uint32_t events) {
  const uint32_t each = events / producers;
  sink_reset();
  sink_expect(each * producers);
  bench_clock::time_point began;
  std::barrier start(producers, [&began]() noexcept { began = bench_clock::now(); });
  std::vector<std::thread> threads;
  for (uint32_t producer = 0; producer < producers; producer++) {
    threads.emplace_back([&queue, &start, producer, each] {
      start.arrive_and_wait();
      for (uint32_t number = 0; number < each; number++) {
        post_number(queue, producer, number);
        sink.posted[producer].events.store(number + 1, std::memory_order_relaxed);
      }
    });
  }
  sink_wait();
  const double seconds = std::chrono::duration<double>(sink.finished - began).count();
  for (std::thread &thread : threads) {
    thread.join();
  }
  return {each * producers / seconds, static_cast<double>(sink.longest_backlog)};
}

/* Events at a rate */

/**
 * Call `post` with the numbers of `events` events at so many a second. The thread sleeps until the next one is due;
 * where it wakes later, as it must where the rate is higher than it can wake, it posts all that are due by then.
 * Returns how often it has slept.
 */
template <typename Post>
uint32_t pace(uint32_t rate, uint32_t events, Post &&post) {
  const auto start = bench_clock::now();
  const auto due = [=](uint32_t number) {
    return start + std::chrono::nanoseconds(uint64_t{number + 1} * 1000000000 / rate);
  };
  uint32_t sleeps = 0;
  for (uint32_t number = 0; number < events; number++) {
    if (bench_clock::now() < due(number)) {
      std::this_thread::sleep_until(due(number));
      sleeps++;
    }
    post(number);
  }
  return sleeps;
}

double cpu_us() {
  timespec used = {};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) * 1e6 + static_cast<double>(used.tv_nsec) / 1e3;
}

struct cpu_result {
  double us;     /**< of all threads, the poster's sleeps included */
  double sleeps; /**< how often the poster has slept */
};

/** The poster without an event. */
cpu_result pacing_cpu(uint32_t rate, uint32_t events) {
  const double before = cpu_us();
  const uint32_t sleeps =
      pace(rate, events, [](uint32_t number) { sink.posted[0].events.store(number, std::memory_order_relaxed); });
  return {cpu_us() - before, static_cast<double>(sleeps)};
}

template <typename Queue>
cpu_result paced_cpu(Queue &queue, uint32_t rate, uint32_t events) {
  sink_reset();
  sink_expect(events);
  const double before = cpu_us();
  const uint32_t sleeps = pace(rate, events, [&queue](uint32_t number) { post_number(queue, 0, number); });
  sink_wait();
  return {cpu_us() - before, static_cast<double>(sleeps)};
}

struct latency_result {
  double p50, p99; /**< us */
};

template <typename Queue>
latency_result paced_latency(Queue &queue, uint32_t rate, uint32_t events) {
  std::vector<bench_clock::time_point> posted(events), called(events);
  sink_reset();
  sink_expect(events);
  sink.at = called.data();
  pace(rate, events, [&queue, &posted](uint32_t number) {
    posted[number] = bench_clock::now();
    post_number(queue, 0, number);
  });
  sink_wait();
  std::vector<double> us;
  for (uint32_t number = 0; number < events; number++) {
    us.push_back(std::chrono::duration<double, std::micro>(called[number] - posted[number]).count());
  }
  sink.at = nullptr;
  return {bench_quantile(us, 0.5), bench_quantile(us, 0.99)};
}

/* Backlog */

/** Nanoseconds an event, `times` times a backlog of `depth`. */
template <typename Queue>
double backlog(Queue &queue, uint32_t depth, uint32_t times) {
  double seconds = 0;
  for (uint32_t run = 0; run < times; run++) {
    sink_reset();
    sink_expect(depth);
    seconds += bench_seconds([&queue, depth] {
      sink.held = true;
      for (uint32_t number = 0; number < depth; number++) {
        post_number(queue, 0, number);
      }
      sink.held = false;
      sink_wait();
    });
  }
  return seconds * 1e9 / depth / times;
}

/* The rounds */

struct contestant {
  const char *name;
  std::function<throughput_result(uint32_t producers, uint32_t events)> throughput;
  std::function<cpu_result(uint32_t rate, uint32_t events)> cpu;
  std::function<latency_result(uint32_t rate, uint32_t events)> latency;
};

/** Run something with a queue that is made for it, and whose thread has run before. */
constexpr uint32_t warm_up = 100;

template <typename Queue, typename Result>
std::function<Result(uint32_t, uint32_t)> with_queue(Result (*run)(Queue &, uint32_t, uint32_t)) {
  return [run](uint32_t first, uint32_t events) {
    Queue queue;
    throughput(queue, 1, warm_up);
    const Result result = run(queue, first, events);
    queue.stop();
    return result;
  };
}

template <typename Queue>
contestant make_contestant() {
  return {Queue::name, with_queue(throughput<Queue>), with_queue(paced_cpu<Queue>), with_queue(paced_latency<Queue>)};
}

/** Ours first, then the peers that were found. */
std::vector<contestant> all_contestants() {
  std::vector<contestant> list = {make_contestant<contestant_lyn>(), make_contestant<peer_deque>()};
#if BENCH_HAS_GLIB
  list.push_back(make_contestant<peer_gasync>());
#endif
#if BENCH_HAS_ASIO
  list.push_back(make_contestant<peer_asio>());
#endif
#if BENCH_HAS_UV
  list.push_back(make_contestant<peer_uv>());
#endif
#if BENCH_HAS_MOODY
  list.push_back(make_contestant<peer_moody>());
#endif
  return list;
}

/** Run every contestant once a round; the one that begins rotates. Results by contestant, then round. */
template <typename Result>
std::vector<std::vector<Result>> rounds(const std::vector<contestant> &list, size_t count,
                                        const std::function<Result(const contestant &)> &run) {
  std::vector<std::vector<Result>> results(list.size());
  for (size_t round = 0; round < count; round++) {
    for (size_t i = 0; i < list.size(); i++) {
      const size_t turn = (round + i) % list.size();
      results[turn].push_back(run(list[turn]));
    }
  }
  return results;
}

/** One number of each round. */
template <typename Result>
std::vector<double> part_of(const std::vector<Result> &results, double Result::*part) {
  std::vector<double> values;
  values.reserve(results.size());
  for (const Result &result : results) {
    values.push_back(result.*part);
  }
  return values;
}

void run_throughput(const bench_options &options) {
  const std::vector<contestant> list = all_contestants();
  const uint32_t events = options.smoke ? 4000 : 400000;
  for (const uint32_t producers : {1U, 2U, 4U}) {
    const auto results = rounds<throughput_result>(
        list, options.rounds, [=](const contestant &one) { return one.throughput(producers, events); });
    for (size_t i = 1; i < list.size(); i++) {
      const auto rate = &throughput_result::rate, backlog = &throughput_result::backlog;
      bench_report(options, std::string("pipeline.throughput.") + list[i].name + "." + std::to_string(producers) + "p",
                   part_of(results[0], rate), part_of(results[i], rate), "events/s",
                   {"backlog", part_of(results[0], backlog), part_of(results[i], backlog)});
    }
  }
}

constexpr uint32_t paced_rates[] = {1000, 10000, 100000};

/** Events of one run at a rate: half a second of them. */
uint32_t paced_events(const bench_options &options, uint32_t rate) {
  return options.smoke ? 20 : rate / 2;
}

/** Processor time an event without the poster's sleeps, of which each takes `sleep_us`. */
std::vector<double> without_pacing(const std::vector<cpu_result> &results, double sleep_us, uint32_t events) {
  std::vector<double> values;
  values.reserve(results.size());
  for (const cpu_result &result : results) {
    values.push_back((result.us - result.sleeps * sleep_us) / events);
  }
  return values;
}

void run_cpu(const bench_options &options) {
  std::vector<contestant> list = all_contestants();
  list.push_back({"pacing", nullptr, pacing_cpu, nullptr});
  for (const uint32_t rate : paced_rates) {
    const uint32_t events = paced_events(options, rate);
    const auto results =
        rounds<cpu_result>(list, options.rounds, [=](const contestant &one) { return one.cpu(rate, events); });
    std::vector<double> sleep_us;
    sleep_us.reserve(options.rounds);
    for (const cpu_result &pacing : results.back()) {
      sleep_us.push_back(pacing.us / pacing.sleeps);
    }
    const double sleep = bench_median(sleep_us);
    for (size_t i = 1; i + 1 < list.size(); i++) {
      bench_report(options, std::string("pipeline.cpu.") + list[i].name + "." + std::to_string(rate),
                   without_pacing(results[0], sleep, events), without_pacing(results[i], sleep, events), "us/event",
                   {"sleeps", part_of(results[0], &cpu_result::sleeps), part_of(results[i], &cpu_result::sleeps)});
    }
  }
}

void run_latency(const bench_options &options) {
  const std::vector<contestant> list = all_contestants();
  for (const uint32_t rate : paced_rates) {
    const uint32_t events = paced_events(options, rate);
    const auto results =
        rounds<latency_result>(list, options.rounds, [=](const contestant &one) { return one.latency(rate, events); });
    for (const auto &[name, part] : {std::pair{"p50", &latency_result::p50}, std::pair{"p99", &latency_result::p99}}) {
      for (size_t i = 1; i < list.size(); i++) {
        bench_report(options, std::string("pipeline.latency.") + name + "." + list[i].name + "." + std::to_string(rate),
                     part_of(results[0], part), part_of(results[i], part), "us");
      }
    }
  }
}

void run_backlog(const bench_options &options) {
  const uint32_t deep = options.smoke ? 10000 : 1000000, shallow = 1000;
  contestant_lyn lyn;
  backlog(lyn, deep, 1);  // the memory has been the process's once before either is measured
  std::vector<double> at_deep, at_shallow;
  for (size_t round = 0; round < options.rounds; round++) {
    const bool deep_first = round % 2 == 0;
    if (deep_first) {
      at_deep.push_back(backlog(lyn, deep, 1));
    }
    at_shallow.push_back(backlog(lyn, shallow, deep / shallow));
    if (!deep_first) {
      at_deep.push_back(backlog(lyn, deep, 1));
    }
  }
  bench_report(options, "pipeline.backlog", at_deep, at_shallow, "ns/event");
}

/** The limit: what the handler itself costs where nothing is queued. */
void run_inline(const bench_options &options) {
  const uint32_t events = options.smoke ? 4000 : 400000;
  struct inline_queue {
    void post(uint32_t id, void *data) { pipeline_consume({id, data}); }
  } queue;
  std::vector<double> ours, limit;
  for (size_t round = 0; round < options.rounds; round++) {
    contestant_lyn lyn;
    ours.push_back(throughput(lyn, 1, events).rate);
    limit.push_back(throughput(queue, 1, events).rate);
  }
  bench_report(options, "pipeline.throughput.inline.1p", ours, limit, "events/s");
}

/** The module alone. */
void run_alone(const bench_options &options) {
  for (const uint32_t producers : {1U, 2U, 4U}) {
    if (options.events != 0 && options.events != producers) {
      continue;
    }
    contestant_lyn lyn;
    std::vector<double> rates;
    for (size_t round = 0; round < options.rounds; round++) {
      rates.push_back(throughput(lyn, producers, 400000).rate);
    }
    fprintf(stderr, "%u producers: %.4g events/s\n", producers, bench_median(rates));
  }
}

template <typename Queue>
void run_bursts(uint32_t events) {
  constexpr uint32_t burst = 64;
  Queue queue;
  sink_reset();
  for (uint32_t number = 0; number < events; number++) {
    if (number % burst == 0) {
      sink_expect(number + burst);
    }
    post_number(queue, 0, number);
    if (number % burst == burst - 1) {
      sink_wait();
    }
  }
  queue.stop();
}

void bring_up() {
  sem_init(&sink.reached, 0, 0);
  prctl(PR_SET_TIMERSLACK, 1UL);  // the poster's sleeps, and its threads'
  bench_require(sim_board_load("[board]\nnoise_db = 0\n").empty(), "the board does not load");
  module_up();
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  bring_up();
  if (options.only != nullptr && strcmp(options.only, "instructions") == 0) {
    run_bursts<contestant_lyn>(static_cast<uint32_t>(options.events));
  }
  if (options.only != nullptr && strcmp(options.only, "instructions.deque") == 0) {
    run_bursts<peer_deque>(static_cast<uint32_t>(options.events));
  }
  if (options.only != nullptr && strcmp(options.only, "throughput.lyn") == 0) {
    run_alone(options);
  }
  if (bench_wants(options, "throughput")) {
    run_throughput(options);
  }
  if (bench_wants(options, "inline")) {
    run_inline(options);
  }
  if (bench_wants(options, "cpu")) {
    run_cpu(options);
  }
  if (bench_wants(options, "latency")) {
    run_latency(options);
  }
  if (bench_wants(options, "backlog")) {
    run_backlog(options);
  }
  module_down();
  return 0;
}
