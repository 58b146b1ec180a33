/*
 * The event pipeline: from lyn_post_async_event to the user's callback, beside what one would use instead.
 *
 * All contestants carry the same event (a registration status in a malloc'ed block) and run the same consumer's work:
 * the module's own lyn_process_async_event, with its lock, its callback record and the callback, which frees the
 * record. The order is checked in every run: an event's value is its number, and its producer's number in the upper
 * byte.
 *
 * throughput: producers post as fast as they can; events a second, from the first post to the last callback.
 * latency:    one event at a time meets a consumer that sleeps; from before the post to the callback.
 * backlog:    cost of an event, posted and delivered, where the callback is held until so many are queued.
 * instructions: only posts --events events, in bursts; for callgrind, which tools/bench runs.
 *
 * --only=throughput.lyn runs the module alone, for a profiler; with --events=N only with N producers.
 */
#include <semaphore.h>

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

/** What the callback sees. Written by one consumer at a time; `seen` publishes. */
struct {
  std::atomic<uint64_t> seen{0};
  std::atomic<bool> held{false};
  uint32_t next[max_producers] = {};
  bool in_order = true;
  bool timed = false; /**< the callback notes when it ran */
  bench_clock::time_point at;
  uint64_t wake_at = 0; /**< posts `reached` for this event */
  sem_t reached;
} sink;

void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  if (sink.timed)
    sink.at = bench_clock::now();
  const auto value = static_cast<uint32_t>(info->value.i64);
  sink.in_order = sink.in_order && value % (1U << number_bits) == sink.next[value >> number_bits]++;
  free(info);
  while (sink.held.load(std::memory_order_acquire))
    std::this_thread::yield();
  const uint64_t seen = sink.seen.load(std::memory_order_relaxed) + 1;
  sink.seen.store(seen, std::memory_order_release);
  if (seen == sink.wake_at)
    sem_post(&sink.reached);
}

void sink_reset() {
  sink.seen = 0;
  sink.wake_at = 0;
  std::fill(std::begin(sink.next), std::end(sink.next), 0U);
}

void sink_expect(uint64_t count) {
  sink.wake_at = count;
}

void sink_wait() {
  while (sem_wait(&sink.reached) != 0) {
  }
  bench_require(sink.in_order, "events were reordered, lost or doubled");
}

/** The module itself as a contestant. */
struct contestant_lyn {
  static constexpr char name[] = "lyn";
  void post(uint32_t id, void *data) {
    if (lyn_post_async_event(id, data) != OX_LYN_SUCCESS)
      bench_fail("a post was refused");
  }
  void stop() {}
};

template <typename Queue>
void post_number(Queue &queue, uint32_t producer, uint32_t number) {
  auto *status = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
  *status = producer << number_bits | number;
  queue.post(LYN_EVENT_SYS_INFO, status);
}

/* Throughput */

/** Events a second. */
template <typename Queue>
double throughput(Queue &queue, uint32_t producers, uint32_t events) {
  const uint32_t each = events / producers;
  sink_reset();
  sink_expect(each * producers);
  std::barrier start(producers + 1);
  std::vector<std::thread> threads;
  for (uint32_t producer = 0; producer < producers; producer++) {
    threads.emplace_back([&queue, &start, producer, each] {
      start.arrive_and_wait();
      for (uint32_t number = 0; number < each; number++)
        post_number(queue, producer, number);
    });
  }
  start.arrive_and_wait();
  const double seconds = bench_seconds(sink_wait);
  for (std::thread &thread : threads)
    thread.join();
  return each * producers / seconds;
}

/* Latency */

struct latency_result {
  double p50, p99; /**< us */
};

/** The consumer gets time to fall asleep between two events; the poster keeps its core, for its own sleep would count.
 */
template <typename Queue>
latency_result latency(Queue &queue, uint32_t events) {
  constexpr std::chrono::microseconds rest(30);
  std::vector<double> us;
  sink_reset();
  sink.timed = true;
  for (uint32_t number = 0; number < events; number++) {
    for (const auto until = bench_clock::now() + rest; bench_clock::now() < until;) {
    }
    const auto posted = bench_clock::now();
    post_number(queue, 0, number);
    while (sink.seen.load(std::memory_order_acquire) <= number) {
    }
    us.push_back(std::chrono::duration<double, std::micro>(sink.at - posted).count());
  }
  sink.timed = false;
  bench_require(sink.in_order, "events were reordered, lost or doubled");
  std::sort(us.begin(), us.end());
  return {us[us.size() / 2], us[us.size() * 99 / 100]};
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
      for (uint32_t number = 0; number < depth; number++)
        post_number(queue, 0, number);
      sink.held = false;
      sink_wait();
    });
  }
  return seconds * 1e9 / depth / times;
}

/* The rounds */

struct contestant {
  const char *name;
  std::function<double(uint32_t producers, uint32_t events)> throughput;
  std::function<latency_result(uint32_t events)> latency;
};

template <typename Queue>
contestant make_contestant() {
  return {Queue::name,
          [](uint32_t producers, uint32_t events) {
            Queue queue;
            const double result = throughput(queue, producers, events);
            queue.stop();
            return result;
          },
          [](uint32_t events) {
            Queue queue;
            const latency_result result = latency(queue, events);
            queue.stop();
            return result;
          }};
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

void run_throughput(const bench_options &options) {
  const std::vector<contestant> list = all_contestants();
  const uint32_t events = options.smoke ? 4000 : 400000;
  for (const uint32_t producers : {1U, 2U, 4U}) {
    const auto results =
        rounds<double>(list, options.rounds, [=](const contestant &one) { return one.throughput(producers, events); });
    for (size_t i = 1; i < list.size(); i++)
      bench_report(options, std::string("pipeline.throughput.") + list[i].name + "." + std::to_string(producers) + "p",
                   results[0], results[i], "events/s");
  }
}

void run_latency(const bench_options &options) {
  const std::vector<contestant> list = all_contestants();
  const uint32_t events = options.smoke ? 50 : 3000;
  const auto results =
      rounds<latency_result>(list, options.rounds, [=](const contestant &one) { return one.latency(events); });
  for (const auto &[name, part] : {std::pair{"p50", &latency_result::p50}, std::pair{"p99", &latency_result::p99}}) {
    std::vector<std::vector<double>> values(list.size());
    for (size_t i = 0; i < list.size(); i++) {
      for (const latency_result &result : results[i])
        values[i].push_back(result.*part);
    }
    for (size_t i = 1; i < list.size(); i++)
      bench_report(options, std::string("pipeline.latency.") + name + "." + list[i].name, values[0], values[i], "us");
  }
}

void run_backlog(const bench_options &options) {
  const uint32_t deep = options.smoke ? 10000 : 1000000, shallow = 1000;
  contestant_lyn lyn;
  backlog(lyn, deep, 1);  // the memory has been the process's once before either is measured
  std::vector<double> at_deep, at_shallow;
  for (size_t round = 0; round < options.rounds; round++) {
    const bool deep_first = round % 2 == 0;
    if (deep_first)
      at_deep.push_back(backlog(lyn, deep, 1));
    at_shallow.push_back(backlog(lyn, shallow, deep / shallow));
    if (!deep_first)
      at_deep.push_back(backlog(lyn, deep, 1));
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
    ours.push_back(throughput(lyn, 1, events));
    limit.push_back(throughput(queue, 1, events));
  }
  bench_report(options, "pipeline.throughput.inline.1p", ours, limit, "events/s");
}

/** The module alone. */
void run_alone(const bench_options &options) {
  for (const uint32_t producers : {1U, 2U, 4U}) {
    if (options.events != 0 && options.events != producers)
      continue;
    std::vector<double> rates;
    for (size_t round = 0; round < options.rounds; round++) {
      contestant_lyn lyn;
      rates.push_back(throughput(lyn, producers, 400000));
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
    if (number % burst == 0)
      sink_expect(number + burst);
    post_number(queue, 0, number);
    if (number % burst == burst - 1)
      sink_wait();
  }
  queue.stop();
}

ox_lyn_hndl_t bring_up() {
  sem_init(&sink.reached, 0, 0);
  bench_require(sim_board_load("[board]\nnoise_db = 0\n").empty(), "the board does not load");
  ox_lyn_hndl_t hndl = 0;
  bench_require(ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS, "the module does not come up");
  lyn_state.ind_table.reg_status = 1;  // subscribed, without the board's own first report of it
  return hndl;
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  const ox_lyn_hndl_t hndl = bring_up();
  if (options.only != nullptr && strcmp(options.only, "instructions") == 0)
    run_bursts<contestant_lyn>(static_cast<uint32_t>(options.events));
  if (options.only != nullptr && strcmp(options.only, "instructions.deque") == 0)
    run_bursts<peer_deque>(static_cast<uint32_t>(options.events));
  if (options.only != nullptr && strcmp(options.only, "throughput.lyn") == 0)
    run_alone(options);
  if (bench_wants(options, "throughput"))
    run_throughput(options);
  if (bench_wants(options, "inline"))
    run_inline(options);
  if (bench_wants(options, "latency"))
    run_latency(options);
  if (bench_wants(options, "backlog"))
    run_backlog(options);
  bench_require(ox_lyn_deinit(hndl) == OX_LYN_SUCCESS, "the module does not go down");
  return 0;
}
