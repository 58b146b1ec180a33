/* SPDX-License-Identifier: Apache-2.0 */
// What can be read of a board, and what can happen there: two tables. A row of the first says which metric an item
// comes from, how it is taken from the metric's record, and how the views call it. Source, model and views walk the
// tables, so that a new item is a new row.
#ifndef LYN_WATCH_ITEMS_H
#define LYN_WATCH_ITEMS_H

#include <cstdint>
#include <span>
#include <string>
#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "ox_lyn.h"

enum lyn_watch_radio_e {
  LYN_WATCH_LTE,
  LYN_WATCH_NR5G,
  LYN_WATCH_BOARD,  // what belongs to neither
  LYN_WATCH_RADIOS = LYN_WATCH_BOARD,
  LYN_WATCH_PLACES
};

/** A radio's name in records and metrics: "lte" and "nr5g"; "" of the board. */
const char *lyn_watch_radio_name(lyn_watch_radio_e radio);

/** CQI: per component carrier, per codeword. */
using lyn_watch_cqi_t = std::vector<std::vector<int64_t>>;

/** What an item has; the first: nothing was measured. */
using lyn_watch_value_t = std::variant<std::monostate, bool, int64_t, double, std::string, std::vector<double>,
                                       std::vector<std::string>, lyn_watch_cqi_t>;

inline bool lyn_watch_measured(const lyn_watch_value_t &value) {
  return !std::holds_alternative<std::monostate>(value);
}

/** Where a metric's answer stands. */
enum lyn_watch_block_e {
  LYN_WATCH_IN_RECORD,  // in the record itself
  LYN_WATCH_OURS,       // in the asker's buffer
  LYN_WATCH_THEIRS      // in a block of the module's, which the asker frees
};

/** An item's name in the exposition, the labels that tell the elements of a list or a text apart, and what it says. */
struct lyn_watch_exposed_t {
  const char *name = nullptr;             // null: the item is not exposed by itself
  const char *labels[2] = {};             // of a list's elements, of a text
  std::span<const char *const> states{};  // of a text: all that it can be, each a series of 0 or 1
};

/** Where one radio's value of an item comes from. */
struct lyn_watch_taken_t {
  uint32_t metric = OX_LYN_GET_INVALID_E;  // ox_lyn_get_info_e; invalid: the radio has no such item
  lyn_watch_value_t (*take)(const ox_lyn_dm_info_t &record) = nullptr;
};

struct lyn_watch_item_t {
  const char *name;                                     // in records
  const char *unit = "";                                // the catalogue's
  const char *label;                                    // on the screen
  const char *help;                                     // one line
  const char *shown = "";                               // the unit in its usual form, which screen and exposition have
  const char *prefix[LYN_WATCH_PLACES] = {"", "", ""};  // of its numbers on the screen
  double scale = 1;                                     // from the catalogue's to that
  bool history = false;                                 // it is measured again and again, and its history is kept
  bool less_is_best = false;                            // of two values in its history
  lyn_watch_block_e block = LYN_WATCH_IN_RECORD;
  lyn_watch_exposed_t exposed{};
  lyn_watch_taken_t of[LYN_WATCH_PLACES];
};

extern const std::span<const lyn_watch_item_t> lyn_watch_items;

/** One item of one radio. */
struct lyn_watch_key_t {
  size_t item;  // row of the table
  lyn_watch_radio_e radio;
};

/** In the order of the table. */
inline bool operator<(const lyn_watch_key_t &a, const lyn_watch_key_t &b) {
  return std::tie(a.item, a.radio) < std::tie(b.item, b.radio);
}

/** Every item of every radio that has it, in the order of the table. */
const std::vector<lyn_watch_key_t> &lyn_watch_keys();

/** The item of this name, which must be in the table. */
lyn_watch_key_t lyn_watch_key(lyn_watch_radio_e radio, const char *name);

/** The request's name in metrics: that of the item that is first taken from it, behind its radio's. */
const char *lyn_watch_metric_name(uint32_t metric);

/** The largest block that a metric answers with in the asker's buffer. */
union lyn_watch_buffer_t {
  ox_lyn_lte_cqi_t lte_cqi;
  ox_lyn_nr5g_cqi_t nr5g_cqi;
  ox_lyn_lte_cell_lock_t lte_lock;
  ox_lyn_nr5g_cell_lock_t nr5g_lock;
};

/** What an event carries, by name. */
using lyn_watch_field_t = std::pair<const char *, lyn_watch_value_t>;

/** What can happen: an indication or an asynchronous response. */
struct lyn_watch_event_kind_t {
  uint32_t record_type;  // OX_LYN_RECORD_IND_E or OX_LYN_RECORD_ASYNC_E
  uint32_t id;           // ox_lyn_ind_e or ox_lyn_async_resp_e
  const char *name;
  lyn_watch_radio_e radio = LYN_WATCH_BOARD;
  const char *item = nullptr;  // that it measures, of this radio; its first field is the value
  bool block = false;          // it comes with a block of the module's, which the receiver frees
  std::vector<lyn_watch_field_t> (*take)(const ox_lyn_dm_info_t &record);
};

extern const std::span<const lyn_watch_event_kind_t> lyn_watch_event_kinds;

/** Null: the module has no such event. */
const lyn_watch_event_kind_t *lyn_watch_event_kind(uint32_t record_type, uint32_t id);

/** A status's name in metrics; "other" where it has none. */
const char *lyn_watch_status_name(int32_t status);

/** "0.1.0": of the program, which is that of the header it was built with. */
std::string lyn_watch_version();

/**
 * "272-01", from the three octets of 3GPP TS 24.008 or a neighbour's numbers; "" where the octets are no digits, or a
 * number has more than three.
 */
std::string lyn_watch_plmn(const int64_t octets[3]);
std::string lyn_watch_plmn(const ox_lyn_plmn_t &plmn);

/** The text with everything that is no UTF-8 replaced by U+FFFD. */
std::string lyn_watch_utf8(const std::string &text);

#endif
