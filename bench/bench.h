/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The harness of the benchmarks: contestants run side by side in one process, in rounds whose order rotates, so that
 * all of them meet the same machine; a figure is the median of the rounds' ratios.
 *
 *   bench_options options = bench_begin(argc, argv);
 *   bench_report(options, "pipeline.throughput.deque.1p", ours, theirs, "events/s");
 *
 * One line a figure: NAME RATIO (ours THEIRS unit) [lowest, first..third quartile, highest ratio], and what was seen
 * beside it. With --json=FILE each figure is also appended to FILE as one JSON object a line, which tools/bench
 * collects. --smoke runs everything once and briefly, for its correctness alone.
 */
#ifndef BENCH_H
#define BENCH_H

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <string>
#include <string_view>
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
  if (!holds) {
    bench_fail(what);
  }
}

inline bench_options bench_begin(int argc, char **argv) {
  bench_options options;
  for (int i = 1; i < argc; i++) {
    const std::string arg = argv[i];
    if (arg == "--smoke") {
      options.smoke = true;
    } else if (arg.starts_with("--rounds=")) {
      options.rounds = strtoul(argv[i] + strlen("--rounds="), nullptr, 10);
    } else if (arg.starts_with("--events=")) {
      options.events = strtoul(argv[i] + strlen("--events="), nullptr, 10);
    } else if (arg.starts_with("--json=")) {
      options.json = argv[i] + strlen("--json=");
    } else if (arg.starts_with("--only=")) {
      options.only = argv[i] + strlen("--only=");
    } else {
      bench_fail(("unknown option " + arg).c_str());
    }
  }
  if (options.smoke || options.rounds == 0) {
    options.rounds = 1;
  }
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

/** The value below which `part` of the values lie; between two values, what lies between them. */
inline double bench_quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  const double place = part * static_cast<double>(values.size() - 1);
  const auto below = static_cast<size_t>(place);
  const size_t above = std::min(below + 1, values.size() - 1);
  return values[below] + (values[above] - values[below]) * (place - static_cast<double>(below));
}

inline double bench_median(std::vector<double> values) {
  return bench_quantile(std::move(values), 0.5);
}

/** What is reported beside a figure: a number of each round, and of the other side where there is one. */
struct bench_beside {
  const char *name = nullptr;
  std::vector<double> ours, theirs = {};
};

/** The medians of its sides. */
inline std::string bench_medians(const bench_beside &beside, const char *between) {
  char text[64];
  int length = snprintf(text, sizeof text, "%.6g", bench_median(beside.ours));
  if (!beside.theirs.empty()) {
    length += snprintf(text + length, sizeof text - static_cast<size_t>(length), "%s%.6g", between,
                       bench_median(beside.theirs));
  }
  return {text, static_cast<size_t>(length)};
}

inline std::string bench_join(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) {
    text.append(part);
  }
  return text;
}

/** One figure of paired rounds: ratio = ours / theirs, round by round. */
inline void bench_report(const bench_options &options, const std::string &name, const std::vector<double> &ours,
                         const std::vector<double> &theirs, const char *unit, const bench_beside &beside = {}) {
  std::vector<double> ratios;
  for (size_t i = 0; i < ours.size(); i++) {
    ratios.push_back(ours[i] / theirs[i]);
  }
  double at[5];
  for (int i = 0; i < 5; i++) {
    at[i] = bench_quantile(ratios, i / 4.0);
  }
  const double mine = bench_median(ours), other = bench_median(theirs);
  std::string seen, seen_json;
  if (beside.name != nullptr) {
    seen = bench_join({" ", beside.name, " ", bench_medians(beside, " ")});
    seen_json = bench_join({", \"", beside.name, "\": [", bench_medians(beside, ", "), "]"});
  }
  printf("%s %.3f (%.6g %.6g %s) [%.3f, %.3f..%.3f, %.3f]%s\n", name.c_str(), at[2], mine, other, unit, at[0], at[1],
         at[3], at[4], seen.c_str());
  if (options.json == nullptr) {
    return;
  }
  FILE *file = fopen(options.json, "a");
  bench_require(file != nullptr, "the file of --json cannot be written");
  fprintf(file,
          "{\"name\": \"%s\", \"ratio\": %.6g, \"ours\": %.6g, \"theirs\": %.6g, \"unit\": \"%s\", \"min\": %.6g, "
          "\"q1\": %.6g, \"q3\": %.6g, \"max\": %.6g, \"rounds\": %zu%s}\n",
          name.c_str(), at[2], mine, other, unit, at[0], at[1], at[3], at[4], ratios.size(), seen_json.c_str());
  fclose(file);
}

#endif
