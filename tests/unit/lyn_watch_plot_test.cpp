/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_plot.h"

#include <gmock/gmock.h>

using testing::ElementsAre;
using testing::IsEmpty;

using lyn_watch_seconds_t = std::vector<std::optional<lyn_watch_bucket_t>>;

static std::optional<lyn_watch_bucket_t> measured(double value) {
  return lyn_watch_bucket_t{.least = value, .most = value, .last = value};
}

static lyn_watch_seconds_t seconds_of(const std::vector<double> &values) {
  lyn_watch_seconds_t history;
  for (const double value : values) {
    history.push_back(measured(value));
  }
  return history;
}

static lyn_watch_plot_t braille(size_t width, size_t height) {
  return {.width = width, .height = height, .braille = true, .least = 0, .most = 3};
}

static lyn_watch_plot_t ascii(size_t width, size_t height) {
  return {.width = width, .height = height, .braille = false, .least = 0, .most = 2};
}

TEST(lyn_watch_plot, every_height_of_a_braille_column_is_filled_from_below) {
  const auto lines = lyn_watch_plot(braille(4, 1), seconds_of({0, 0, 1, 1, 2, 2, 3, 3}), 7);
  EXPECT_THAT(lines, ElementsAre("⣀⣤⣶⣿"));
}

TEST(lyn_watch_plot, both_columns_of_a_braille_character_have_heights_of_their_own) {
  EXPECT_THAT(lyn_watch_plot(braille(2, 1), seconds_of({0, 3, 3, 0}), 3), ElementsAre("⣸⣇"));
}

TEST(lyn_watch_plot, a_plot_of_two_lines_has_eight_heights) {
  lyn_watch_plot_t plot = braille(4, 2);
  plot.most = 7;
  const auto lines = lyn_watch_plot(plot, seconds_of({0, 0, 3, 3, 4, 4, 7, 7}), 7);
  EXPECT_THAT(lines, ElementsAre("  ⣀⣿", "⣀⣿⣿⣿"));
}

TEST(lyn_watch_plot, without_utf_8_a_character_has_three_heights) {
  EXPECT_THAT(lyn_watch_plot(ascii(3, 1), seconds_of({0, 1, 2}), 2), ElementsAre(".:|"));
  lyn_watch_plot_t plot = ascii(3, 2);
  plot.most = 5;
  EXPECT_THAT(lyn_watch_plot(plot, seconds_of({0, 3, 5}), 2), ElementsAre(" .|", ".||"));
}

TEST(lyn_watch_plot, what_was_not_measured_leaves_a_gap) {
  lyn_watch_seconds_t history = seconds_of({2, 2, 2});
  history[1].reset();
  EXPECT_THAT(lyn_watch_plot(ascii(3, 1), history, 2), ElementsAre("| |"));
  EXPECT_THAT(lyn_watch_plot(braille(2, 1), lyn_watch_seconds_t(4), 3), ElementsAre("  "));
}

TEST(lyn_watch_plot, what_lies_outside_the_scale_is_drawn_at_its_edge) {
  EXPECT_THAT(lyn_watch_plot(ascii(2, 1), seconds_of({-100, 100}), 1), ElementsAre(".|"));
}

TEST(lyn_watch_plot, a_scale_without_extent_shows_the_lowest_dot) {
  lyn_watch_plot_t plot = ascii(2, 1);
  plot.most = plot.least;
  EXPECT_THAT(lyn_watch_plot(plot, seconds_of({0, 0}), 1), ElementsAre(".."));
}

TEST(lyn_watch_plot, a_column_is_the_mean_of_its_seconds) {
  EXPECT_THAT(lyn_watch_plot(ascii(2, 1), seconds_of({0, 2, 2, 2}), 3), ElementsAre(":|"));
}

TEST(lyn_watch_plot, columns_keep_their_seconds_while_time_goes_on) {
  // Two seconds a column: the fifth second begins a column, the sixth completes it, and the others stay as they are.
  EXPECT_THAT(lyn_watch_plot(ascii(2, 1), seconds_of({0, 0, 2, 2}), 3), ElementsAre(".|"));
  EXPECT_THAT(lyn_watch_plot(ascii(2, 1), seconds_of({0, 2, 2, 0}), 4), ElementsAre("|."));
  EXPECT_THAT(lyn_watch_plot(ascii(2, 1), seconds_of({2, 2, 0, 0}), 5), ElementsAre("|."));
}

TEST(lyn_watch_plot, seconds_before_the_clocks_begin_are_left_out) {
  EXPECT_THAT(lyn_watch_plot(ascii(4, 1), seconds_of({2, 2, 2, 2}), 1), ElementsAre("  ||"));
}

TEST(lyn_watch_plot, a_plot_wider_than_the_history_has_its_newest_on_the_right) {
  EXPECT_THAT(lyn_watch_plot(ascii(5, 1), seconds_of({0, 2}), 9), ElementsAre("   .|"));
}

TEST(lyn_watch_plot, where_there_is_no_room_nothing_is_drawn) {
  EXPECT_THAT(lyn_watch_plot(braille(0, 1), seconds_of({1}), 0), IsEmpty());
  EXPECT_THAT(lyn_watch_plot(braille(1, 0), seconds_of({1}), 0), IsEmpty());
}

TEST(lyn_watch_plot, extremes_are_those_within_the_seconds_and_not_only_their_last_values) {
  lyn_watch_seconds_t history(3);
  EXPECT_FALSE(lyn_watch_plot_extremes(history));
  history[0] = {.least = -120, .most = -90, .last = -100};
  history[2] = {.least = -95, .most = -80, .last = -85};
  const auto extremes = lyn_watch_plot_extremes(history);
  ASSERT_TRUE(extremes);
  EXPECT_EQ(extremes->least, -120);
  EXPECT_EQ(extremes->most, -80);
}
