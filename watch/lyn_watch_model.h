/* SPDX-License-Identifier: Apache-2.0 */
// What is known of the watched board: of every item its newest value with its age and status, ten minutes of what is
// measured, the neighbours, the data path, the location and the last events. The source writes it, the views read it,
// and neither knows the other.
//
// All of it is behind one mutex, which nobody holds while waiting for the module, a terminal or a client. Functions may
// be called from any thread. `now` is the time of the monotonic clock; only events and locations have a time of day.
#ifndef LYN_WATCH_MODEL_H
#define LYN_WATCH_MODEL_H

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "lyn_watch_items.h"
#include "ox_lyn.h"

using lyn_watch_time_t = std::chrono::steady_clock::time_point;
using lyn_watch_utc_t = std::chrono::system_clock::time_point;
using lyn_watch_ms_t = std::chrono::milliseconds;

enum {
  LYN_WATCH_HISTORY_S = 600,     // one bucket a second
  LYN_WATCH_EVENTS = 100,        // the last events, as views show them
  LYN_WATCH_EVENTS_KEPT = 16384  // for who follows them and is late; of measurements 2.2 MiB
};

/** How the module stands. */
enum lyn_watch_state_e {
  LYN_WATCH_STARTING,  // the module comes up, or waits for the modem to be there
  LYN_WATCH_DOWN,      // the modem is gone, refuses or does not answer
  LYN_WATCH_UP         // the last question for the registration status was answered
};

/** "starting", "down" and "up", as records have it. */
const char *lyn_watch_state_name(lyn_watch_state_e state);

/** One item: no value where the last question was not answered with one. */
struct lyn_watch_reading_t {
  lyn_watch_value_t value;
  int32_t status = OX_LYN_ERR_NOT_INITIALIZED;  // of the last question, ox_lyn_status_e
  lyn_watch_time_t at{};                        // when it was answered; the epoch: never
};

/** What was measured within one second. */
struct lyn_watch_bucket_t {
  double least;
  double most;
  double last;
};

/** Second n of the history is at n modulo its length. */
struct lyn_watch_history_t {
  std::array<lyn_watch_bucket_t, LYN_WATCH_HISTORY_S> buckets;
  std::array<int64_t, LYN_WATCH_HISTORY_S> seconds;  // which second of the monotonic clock a bucket is of; -1: none
};

struct lyn_watch_neighbour_t {
  int64_t channel;
  int64_t pci;
  std::optional<int64_t> rsrp{};  // dBm
  std::optional<int64_t> rsrq{};  // dB
  std::vector<int64_t> cgis{};
  std::vector<std::string> plmns{};
};

/** Neighbours of one radio: the answer to the last scan. */
struct lyn_watch_neighbours_t {
  std::vector<lyn_watch_neighbour_t> cells;
  lyn_watch_time_t at{};  // the epoch: none was answered
};

/** Counters of one profile and IP family. */
struct lyn_watch_traffic_t {
  ox_lyn_wwan_stats_t stats;
  std::optional<double> rx_rate;  // bytes a second since the reading before
  std::optional<double> tx_rate;
  lyn_watch_time_t at;
};

/** Names of the IP families, as records and metrics have them. */
inline constexpr const char *lyn_watch_families[] = {"ipv4", "ipv6"};

enum { LYN_WATCH_FAMILIES = std::size(lyn_watch_families) };

struct lyn_watch_profile_t {
  uint32_t index;
  std::string apn;  // empty: not told
  std::array<std::optional<lyn_watch_traffic_t>, LYN_WATCH_FAMILIES> traffic;
};

struct lyn_watch_location_t {
  ox_lyn_location_t location;
  lyn_watch_time_t at;
};

/** A location that picture and events share. */
using lyn_watch_fix_t = std::shared_ptr<const lyn_watch_location_t>;

struct lyn_watch_event_t {
  uint64_t id;  // from 1
  lyn_watch_utc_t time;
  const lyn_watch_event_kind_t *kind;
  std::vector<lyn_watch_field_t> fields;
  lyn_watch_time_t at{};
  lyn_watch_fix_t location{};  // the last one then; null: there was none
};

/** What tells a radio's serving cells apart; none of a value that was never measured there. */
struct lyn_watch_cell_t {
  lyn_watch_value_t cgi;
  lyn_watch_value_t pci;
};

/** How often each request was answered with which status; by the request's name and the status. */
using lyn_watch_requests_t = std::map<std::pair<std::string_view, int32_t>, uint64_t>;

/** Upper bounds of the histogram of request durations, in seconds; one more bucket has what took longer. */
inline constexpr std::array<double, 9> lyn_watch_duration_bounds = {0.001, 0.005, 0.02, 0.1, 0.5, 1, 5, 20, 50};

struct lyn_watch_durations_t {
  std::array<uint64_t, lyn_watch_duration_bounds.size() + 1> counts{};
  double sum = 0;  // s
};

/** A copy of all but history and events, as it stood at one moment. */
struct lyn_watch_picture_t {
  lyn_watch_time_t now;
  lyn_watch_utc_t time;
  lyn_watch_state_e state = LYN_WATCH_STARTING;
  std::string board;
  lyn_watch_ms_t every{};       // how often all items are read, as planned
  lyn_watch_time_t begin{};     // when that began; the epoch: the module is not up yet
  lyn_watch_time_t answered{};  // when the modem last answered anything; the epoch: never
  std::vector<std::array<lyn_watch_reading_t, LYN_WATCH_PLACES>> items;  // in the order of the table
  std::array<lyn_watch_neighbours_t, LYN_WATCH_RADIOS> neighbours;
  std::vector<lyn_watch_profile_t> profiles;
  lyn_watch_fix_t location;            // the last one; null: there was none
  std::vector<uint64_t> event_counts;  // in the order of the table of kinds
  std::array<uint64_t, LYN_WATCH_RADIOS> cell_changes{};
  lyn_watch_requests_t requests;
  lyn_watch_durations_t durations;
  uint64_t readings = 0;    // how often all items were read, as planned
  bool read = false;        // all items were read since the modem is up
  bool scanning = false;    // a scan was sent and is not answered
  bool locating = false;    // a location was asked for and has not come
  uint64_t last_event = 0;  // id of the newest; 0: none
};

struct lyn_watch_model_t {
  std::mutex mutex;
  std::condition_variable changed;
  lyn_watch_picture_t picture;
  std::map<lyn_watch_key_t, lyn_watch_history_t> history;  // of the items that are measured
  std::deque<lyn_watch_event_t> events;
  std::array<lyn_watch_cell_t, LYN_WATCH_RADIOS> cells;  // the last that each radio was in, whatever was gone since
  uint64_t changes = 0;                                  // counts every change
  bool ended = false;
};

/* What the source does */

void lyn_watch_model_init(lyn_watch_model_t *model, const std::string &board);

/** All items are read every so often, from `begin` on; the epoch: once the module is up. */
void lyn_watch_model_plan(lyn_watch_model_t *model, lyn_watch_ms_t every, lyn_watch_time_t begin);

/** `down` takes all values away: what is gone measures nothing. Histories and counters stay. */
void lyn_watch_model_set_state(lyn_watch_model_t *model, lyn_watch_state_e state);

/** An item was asked for. Where that failed, `value` is none. */
void lyn_watch_model_put(lyn_watch_model_t *model, lyn_watch_key_t key, lyn_watch_value_t value, int32_t status,
                         lyn_watch_time_t now);

/** A request was answered; `name` is one of a few that live for ever. */
void lyn_watch_model_count_request(lyn_watch_model_t *model, const char *name, int32_t status,
                                   std::chrono::duration<double> took, lyn_watch_time_t now);

void lyn_watch_model_put_neighbours(lyn_watch_model_t *model, lyn_watch_radio_e radio, lyn_watch_neighbours_t cells);

/** The profiles with their counters; rates follow from what was known of the same profile and family before. */
void lyn_watch_model_put_profiles(lyn_watch_model_t *model, std::vector<lyn_watch_profile_t> profiles);

void lyn_watch_model_put_location(lyn_watch_model_t *model, const ox_lyn_location_t &location, lyn_watch_time_t now);

/** An event happened. Where it carries an item, that item was measured. Gives the event's id. */
uint64_t lyn_watch_model_put_event(lyn_watch_model_t *model, const lyn_watch_event_kind_t *kind,
                                   std::vector<lyn_watch_field_t> fields, lyn_watch_utc_t time, lyn_watch_time_t now);

/** What is under way: answers that the callback will bring. */
void lyn_watch_model_set_scanning(lyn_watch_model_t *model, bool scanning);
void lyn_watch_model_set_locating(lyn_watch_model_t *model, bool locating);

/**
 * All items were read once more; `planned`: at the interval, not on an event. A serving cell is another one if its CGI
 * is another than the last one measured or, where one of the two was not measured, its PCI.
 */
void lyn_watch_model_end_reading(lyn_watch_model_t *model, bool planned);

/** Nothing follows: wakes everybody. */
void lyn_watch_model_end(lyn_watch_model_t *model);

/* What the views do */

lyn_watch_picture_t lyn_watch_model_picture(lyn_watch_model_t *model, lyn_watch_time_t now);

/** When the oldest counters of the data path were read; the picture's time, where there are none. */
lyn_watch_time_t lyn_watch_picture_counted(const lyn_watch_picture_t &picture);

/** The seconds up to `now`, the oldest first, LYN_WATCH_HISTORY_S of them; nothing where nothing was measured. */
std::vector<std::optional<lyn_watch_bucket_t>> lyn_watch_model_history(lyn_watch_model_t *model, lyn_watch_key_t key,
                                                                       lyn_watch_time_t now);

/** Events behind the one with the id `after`, the oldest first and at most `most`, and how many of them were not kept.
 */
struct lyn_watch_events_t {
  std::vector<lyn_watch_event_t> events;
  uint64_t missed;
};
lyn_watch_events_t lyn_watch_model_events(lyn_watch_model_t *model, uint64_t after, size_t most);

/** How often anything changed. */
uint64_t lyn_watch_model_changes(lyn_watch_model_t *model);

/** Whether nothing follows. */
bool lyn_watch_model_ended(lyn_watch_model_t *model);

/** The id behind which the last hundred events come. */
uint64_t lyn_watch_model_recent(lyn_watch_model_t *model);

/**
 * Wait until there is an event behind `after`, all items were read more often than `readings`, the model has ended, or
 * `until` has come.
 *
 * false: it has ended
 */
bool lyn_watch_model_wait(lyn_watch_model_t *model, uint64_t after, uint64_t readings, lyn_watch_time_t until);

/** Wait until there were more changes than `changes`, the model has ended, or `until` has come; false: it has ended. */
bool lyn_watch_model_wait_change(lyn_watch_model_t *model, uint64_t changes, lyn_watch_time_t until);

#endif
