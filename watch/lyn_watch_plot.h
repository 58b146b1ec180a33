/* SPDX-License-Identifier: Apache-2.0 */
// Numbers over time as a filled area of characters, the newest on the right. Braille characters have two columns of
// four dots; without UTF-8 a character has one column and three heights. What was not measured leaves a gap, and what
// was measured is at least one dot high.
//
// A column of dots stands for whole seconds, counted from the clock's begin: a plot moves a column at a time and does
// not flicker in between.
#ifndef LYN_WATCH_PLOT_H
#define LYN_WATCH_PLOT_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "lyn_watch_model.h"

struct lyn_watch_plot_t {
  size_t width;   // in characters
  size_t height;  // in lines
  bool braille;
  double least;  // what is one dot high
  double most;   // what reaches the top
};

/** The lines from above, in UTF-8. `newest` is the second of the history's last bucket. */
std::vector<std::string> lyn_watch_plot(const lyn_watch_plot_t &plot,
                                        std::span<const std::optional<lyn_watch_bucket_t>> history, int64_t newest);

/** What was measured at least and at most; none: nothing was. */
std::optional<lyn_watch_bucket_t> lyn_watch_plot_extremes(std::span<const std::optional<lyn_watch_bucket_t>> history);

#endif
