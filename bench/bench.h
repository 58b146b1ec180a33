/*
 * The harness of the benchmarks: contestants run side by side in one process, in rounds whose order rotates, so that
 * all of them meet the same machine; a figure is the median of the rounds' ratios.
 *
 *   bench_options options = bench_begin(argc, argv);
 *   bench_report(options, "pipeline.throughput.deque.1p", ours, theirs, "events/s");
 *
 * One line a figure: NAME RATIO (ours THEIRS unit) [ratio min..max]. With --json=FILE each figure is also appended to
 * FILE as one JSON object a line, which tools/bench collects. --smoke runs everything once and briefly, for its
 * correctness alone.
 */
#ifndef BENCH_H
#define BENCH_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

struct bench_options {
  bool smoke = false;
  size_t rounds = 7;
  size_t events = 0; /**< of --events=N: what a mode is to run, where it asks */
  const char *json = nullptr;
  const char *only = nullptr; /**< the part to run, where a program has several */
};

using bench_clock = std::chrono::steady_clock;

[[noreturn]] inline void bench_fail(const char *what) {
  fprintf(stderr, "benchmark failed: %s\n", what);
  exit(1);
}

inline void bench_require(bool holds, const char *what) {
  if (!holds)
    bench_fail(what);
}

inline bench_options bench_begin(int argc, char **argv) {
  bench_options options;
  for (int i = 1; i < argc; i++) {
    const std::string arg = argv[i];
    if (arg == "--smoke")
      options.smoke = true;
    else if (arg.starts_with("--rounds="))
      options.rounds = strtoul(argv[i] + strlen("--rounds="), nullptr, 10);
    else if (arg.starts_with("--events="))
      options.events = strtoul(argv[i] + strlen("--events="), nullptr, 10);
    else if (arg.starts_with("--json="))
      options.json = argv[i] + strlen("--json=");
    else if (arg.starts_with("--only="))
      options.only = argv[i] + strlen("--only=");
    else
      bench_fail(("unknown option " + arg).c_str());
  }
  if (options.smoke || options.rounds == 0)
    options.rounds = 1;
  setvbuf(stdout, nullptr, _IOLBF, 0);
  return options;
}

inline bool bench_wants(const bench_options &options, const char *part) {
  return options.only == nullptr || strcmp(options.only, part) == 0;
}

template <typename Work>
double bench_seconds(Work &&work) {
  const auto start = bench_clock::now();
  work();
  return std::chrono::duration<double>(bench_clock::now() - start).count();
}

inline double bench_median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/** One figure of paired rounds: ratio = ours / theirs, round by round. */
inline void bench_report(const bench_options &options, const std::string &name, const std::vector<double> &ours,
                         const std::vector<double> &theirs, const char *unit) {
  std::vector<double> ratios;
  for (size_t i = 0; i < ours.size(); i++)
    ratios.push_back(ours[i] / theirs[i]);
  const double ratio = bench_median(ratios), low = *std::min_element(ratios.begin(), ratios.end()),
               high = *std::max_element(ratios.begin(), ratios.end());
  const double mine = bench_median(ours), other = bench_median(theirs);
  printf("%s %.3f (%.6g %.6g %s) [%.3f..%.3f]\n", name.c_str(), ratio, mine, other, unit, low, high);
  if (options.json == nullptr)
    return;
  FILE *file = fopen(options.json, "a");
  bench_require(file != nullptr, "the file of --json cannot be written");
  fprintf(file,
          "{\"name\": \"%s\", \"ratio\": %.6g, \"ours\": %.6g, \"theirs\": %.6g, \"unit\": \"%s\", \"min\": %.6g, "
          "\"max\": %.6g, \"rounds\": %zu}\n",
          name.c_str(), ratio, mine, other, unit, low, high, ratios.size());
  fclose(file);
}

#endif
