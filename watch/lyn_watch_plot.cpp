/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_plot.h"

#include <algorithm>
#include <cmath>

using lyn_watch_seconds_t = std::span<const std::optional<lyn_watch_bucket_t>>;

/** How many dots a character has. */
struct lyn_watch_dots_t {
  size_t across;
  size_t up;
};

static constexpr lyn_watch_dots_t lyn_watch_braille_dots = {.across = 2, .up = 4};
static constexpr lyn_watch_dots_t lyn_watch_ascii_dots = {.across = 1, .up = 3};

/** A column of dots: the mean of its seconds. */
struct lyn_watch_average_t {
  double sum = 0;
  size_t count = 0;
};

// The columns up to the one that the newest second is in.
static std::vector<lyn_watch_average_t> lyn_watch_plot_columns(size_t count, lyn_watch_seconds_t history,
                                                               int64_t newest) {
  std::vector<lyn_watch_average_t> columns(count);
  const auto seconds = static_cast<int64_t>((history.size() + count - 1) / count);
  for (size_t i = 0; i < history.size(); ++i) {
    const int64_t second = newest - static_cast<int64_t>(history.size() - 1 - i);
    const int64_t back = newest / seconds - second / seconds;
    if (history[i] && second >= 0 && back < static_cast<int64_t>(count)) {
      lyn_watch_average_t *column = &columns[count - 1 - static_cast<size_t>(back)];
      column->sum += history[i]->last;
      ++column->count;
    }
  }
  return columns;
}

// How many dots of `dots` are set; none where nothing was measured.
static size_t lyn_watch_plot_level(const lyn_watch_average_t &column, const lyn_watch_plot_t &plot, size_t dots) {
  if (column.count == 0) {
    return 0;
  }
  const double value = column.sum / static_cast<double>(column.count);
  const double part = plot.most > plot.least ? (value - plot.least) / (plot.most - plot.least) : 0;
  return 1 + static_cast<size_t>(std::lround(std::clamp(part, 0.0, 1.0) * static_cast<double>(dots - 1)));
}

// How much of a level lies in one character's line, whose lowest dot is `below` dots up.
static size_t lyn_watch_plot_part(size_t level, size_t below, size_t up) {
  return std::min(level - std::min(level, below), up);
}

// U+2800 and a bit for each dot: two columns, filled from below.
static std::string lyn_watch_braille(size_t left, size_t right) {
  static constexpr unsigned lefts[] = {0x00, 0x40, 0x44, 0x46, 0x47};
  static constexpr unsigned rights[] = {0x00, 0x80, 0xA0, 0xB0, 0xB8};
  const unsigned dots = lefts[left] | rights[right];
  return dots == 0 ? " "
                   : std::string{'\xE2', static_cast<char>(0xA0 | dots >> 6), static_cast<char>(0x80 | (dots & 0x3F))};
}

static std::string lyn_watch_plot_line(const std::vector<size_t> &levels, size_t below, bool braille) {
  static constexpr char ascii[] = {' ', '.', ':', '|'};
  std::string line;
  if (!braille) {
    for (const size_t level : levels) {
      line += ascii[lyn_watch_plot_part(level, below, lyn_watch_ascii_dots.up)];
    }
    return line;
  }
  for (size_t i = 0; i < levels.size(); i += 2) {
    line += lyn_watch_braille(lyn_watch_plot_part(levels[i], below, lyn_watch_braille_dots.up),
                              lyn_watch_plot_part(levels[i + 1], below, lyn_watch_braille_dots.up));
  }
  return line;
}

std::vector<std::string> lyn_watch_plot(const lyn_watch_plot_t &plot, lyn_watch_seconds_t history, int64_t newest) {
  if (plot.width == 0 || plot.height == 0) {
    return {};
  }
  const lyn_watch_dots_t dots = plot.braille ? lyn_watch_braille_dots : lyn_watch_ascii_dots;
  std::vector<size_t> levels;
  for (const lyn_watch_average_t &column : lyn_watch_plot_columns(plot.width * dots.across, history, newest)) {
    levels.push_back(lyn_watch_plot_level(column, plot, plot.height * dots.up));
  }
  std::vector<std::string> lines;
  for (size_t line = plot.height; line-- > 0;) {
    lines.push_back(lyn_watch_plot_line(levels, line * dots.up, plot.braille));
  }
  return lines;
}

std::optional<lyn_watch_bucket_t> lyn_watch_plot_extremes(lyn_watch_seconds_t history) {
  std::optional<lyn_watch_bucket_t> extremes;
  for (const std::optional<lyn_watch_bucket_t> &bucket : history) {
    if (bucket && !extremes) {
      extremes = bucket;
    } else if (bucket) {
      extremes = {.least = std::min(extremes->least, bucket->least),
                  .most = std::max(extremes->most, bucket->most),
                  .last = bucket->last};
    }
  }
  return extremes;
}
