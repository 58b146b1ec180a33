/* SPDX-License-Identifier: Apache-2.0 */
// How the terminal says things: values in the unit that people know, ages, rates, and what happened as lines. All texts
// are UTF-8; lyn_watch_clip turns them into what fits a place on the screen.
#ifndef LYN_WATCH_SHOW_H
#define LYN_WATCH_SHOW_H

#include <deque>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lyn_watch_items.h"
#include "lyn_watch_model.h"

/** What was not measured. */
inline constexpr const char *LYN_WATCH_DASH = "-";

/** "LTE" and "NR 5G"; "" of the board. */
const char *lyn_watch_radio_label(lyn_watch_radio_e radio);

/** A number of the catalogue in the item's usual unit, without naming it. */
std::string lyn_watch_show_number(const lyn_watch_item_t &item, double number);

/** A value as one short text; `unit`: with the item's unit behind it. */
std::string lyn_watch_show_value(lyn_watch_key_t key, const lyn_watch_value_t &value, bool unit);

/** 7s, 12m, 5h, 3d: at most three characters, for a hundred days. */
std::string lyn_watch_show_age(std::chrono::steady_clock::duration age);

/** At most three digits with their power of thousand: 999, 1.25k, 12.5M, 734M. */
std::string lyn_watch_show_amount(double amount);

/** HH:MM:SS, local time. */
std::string lyn_watch_show_clock(lyn_watch_utc_t time);

/** Terminals that know UTF-8 show every character, others what is ASCII. */
bool lyn_watch_utf8_locale();

/**
 * What fits into `width` columns, and how many of them it takes. What is cut off ends in a mark. Characters that would
 * move the cursor or the text's direction are replaced, others that take no column are left out.
 */
struct lyn_watch_clipped_t {
  std::wstring text;
  int width;
};
lyn_watch_clipped_t lyn_watch_clip(const std::string &text, int width, bool utf8);

/** One event, or measurements: of each item the newest value. */
struct lyn_watch_line_t {
  lyn_watch_utc_t time;
  const lyn_watch_event_kind_t *kind;  // null: measurements
  std::string text;
  std::vector<std::pair<lyn_watch_key_t, std::string>> values;  // in the order of radios and items
};

/**
 * What happened, the newest last, as far as a screen can show it. What comes again and again, measurements and answers
 * to what was asked for, has a line each behind what came last of anything else: it does not push out what is rare.
 */
struct lyn_watch_news_t {
  std::deque<lyn_watch_line_t> lines;
  uint64_t last = 0;  // id of the newest event that is in it
};

/** Take what has happened since. */
void lyn_watch_news_follow(lyn_watch_news_t *news, lyn_watch_model_t *model);

std::string lyn_watch_show_line(const lyn_watch_line_t &line);

#endif
