/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_model.h"

#include <algorithm>

using std::chrono::duration_cast;
using std::chrono::seconds;

/* Inside the mutex */

static void lyn_watch_model_note_change(lyn_watch_model_t *model) {
  ++model->changes;
  model->changed.notify_all();
}

static int64_t lyn_watch_model_second(lyn_watch_time_t time) {
  return duration_cast<seconds>(time.time_since_epoch()).count();
}

static size_t lyn_watch_model_bucket(int64_t second) {
  return static_cast<size_t>(second % LYN_WATCH_HISTORY_S);
}

static void lyn_watch_model_remember(lyn_watch_history_t *history, double value, lyn_watch_time_t now) {
  const int64_t second = lyn_watch_model_second(now);
  const size_t at = lyn_watch_model_bucket(second);
  lyn_watch_bucket_t *bucket = &history->buckets[at];
  if (history->seconds[at] != second) {
    history->seconds[at] = second;
    *bucket = {.least = value, .most = value, .last = value};
  }
  *bucket = {.least = std::min(bucket->least, value), .most = std::max(bucket->most, value), .last = value};
}

static void lyn_watch_model_put_locked(lyn_watch_model_t *model, lyn_watch_key_t key, lyn_watch_value_t value,
                                       int32_t status, lyn_watch_time_t now) {
  const auto history = model->history.find(key);
  if (const auto *number = std::get_if<int64_t>(&value); number != nullptr && history != model->history.end()) {
    lyn_watch_model_remember(&history->second, static_cast<double>(*number), now);
  }
  model->picture.items[key.item][key.radio] = {.value = std::move(value), .status = status, .at = now};
}

static void lyn_watch_model_forget_values(lyn_watch_picture_t *picture) {
  for (auto &places : picture->items) {
    for (lyn_watch_reading_t &reading : places) {
      reading.value = {};
      reading.status = OX_LYN_ERR_FAILURE;
    }
  }
  picture->neighbours = {};
  picture->profiles.clear();
  picture->read = false;
}

const char *lyn_watch_state_name(lyn_watch_state_e state) {
  static constexpr const char *names[] = {"starting", "down", "up"};
  static_assert(std::size(names) == LYN_WATCH_UP + 1);
  return names[state];
}

/* What the source does */

void lyn_watch_model_init(lyn_watch_model_t *model, const std::string &board) {
  model->picture.board = lyn_watch_utf8(board);
  model->picture.items.resize(lyn_watch_items.size());
  model->picture.event_counts.resize(lyn_watch_event_kinds.size());
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    if (lyn_watch_items[key.item].history) {
      model->history[key].seconds.fill(-1);
    }
  }
}

void lyn_watch_model_plan(lyn_watch_model_t *model, lyn_watch_ms_t every, lyn_watch_time_t begin) {
  const std::lock_guard lock(model->mutex);
  model->picture.every = every;
  model->picture.begin = begin;
  lyn_watch_model_note_change(model);
}

void lyn_watch_model_set_state(lyn_watch_model_t *model, lyn_watch_state_e state) {
  const std::lock_guard lock(model->mutex);
  if (model->picture.state == state) {
    return;
  }
  model->picture.state = state;
  if (state != LYN_WATCH_UP) {
    lyn_watch_model_forget_values(&model->picture);
  }
  lyn_watch_model_note_change(model);
}

void lyn_watch_model_put(lyn_watch_model_t *model, lyn_watch_key_t key, lyn_watch_value_t value, int32_t status,
                         lyn_watch_time_t now) {
  const std::lock_guard lock(model->mutex);
  lyn_watch_model_put_locked(model, key, std::move(value), status, now);
}

// Other statuses may also be given by the module alone.
static bool lyn_watch_model_is_answer(int32_t status) {
  return status == OX_LYN_SUCCESS || status == OX_LYN_ERR_INFO_UNAVAILABLE || status == OX_LYN_ERR_SERVICE_UNAVAILABLE;
}

void lyn_watch_model_count_request(lyn_watch_model_t *model, const char *name, int32_t status,
                                   std::chrono::duration<double> took, lyn_watch_time_t now) {
  const std::lock_guard lock(model->mutex);
  lyn_watch_picture_t *picture = &model->picture;
  ++picture->requests[{name, status}];
  const auto bound = std::ranges::lower_bound(lyn_watch_duration_bounds, took.count());
  ++picture->durations.counts[static_cast<size_t>(bound - lyn_watch_duration_bounds.begin())];
  picture->durations.sum += took.count();
  if (lyn_watch_model_is_answer(status)) {
    picture->answered = now;
  }
}

void lyn_watch_model_put_neighbours(lyn_watch_model_t *model, lyn_watch_radio_e radio, lyn_watch_neighbours_t cells) {
  const std::lock_guard lock(model->mutex);
  model->picture.neighbours[radio] = std::move(cells);
  lyn_watch_model_note_change(model);
}

// Bytes a second between two readings of a counter; none where it was set back.
static std::optional<double> lyn_watch_model_rate(uint64_t before, uint64_t after,
                                                  std::chrono::duration<double> between) {
  if (after < before || between.count() <= 0) {
    return {};
  }
  return static_cast<double>(after - before) / between.count();
}

static void lyn_watch_model_find_rates(const lyn_watch_traffic_t &before, lyn_watch_traffic_t *after) {
  const auto between = after->at - before.at;
  after->rx_rate = lyn_watch_model_rate(before.stats.bytes_rx, after->stats.bytes_rx, between);
  after->tx_rate = lyn_watch_model_rate(before.stats.bytes_tx, after->stats.bytes_tx, between);
}

void lyn_watch_model_put_profiles(lyn_watch_model_t *model, std::vector<lyn_watch_profile_t> profiles) {
  const std::lock_guard lock(model->mutex);
  for (lyn_watch_profile_t &profile : profiles) {
    const auto before = std::ranges::find(model->picture.profiles, profile.index, &lyn_watch_profile_t::index);
    for (size_t family = 0; before != model->picture.profiles.end() && family < LYN_WATCH_FAMILIES; ++family) {
      if (profile.traffic[family] && before->traffic[family]) {
        lyn_watch_model_find_rates(*before->traffic[family], &*profile.traffic[family]);
      }
    }
  }
  model->picture.profiles = std::move(profiles);
}

void lyn_watch_model_put_location(lyn_watch_model_t *model, const ox_lyn_location_t &location, lyn_watch_time_t now) {
  const std::lock_guard lock(model->mutex);
  model->picture.location =
      std::make_shared<const lyn_watch_location_t>(lyn_watch_location_t{.location = location, .at = now});
  lyn_watch_model_note_change(model);
}

uint64_t lyn_watch_model_put_event(lyn_watch_model_t *model, const lyn_watch_event_kind_t *kind,
                                   std::vector<lyn_watch_field_t> fields, lyn_watch_utc_t time, lyn_watch_time_t now) {
  const std::lock_guard lock(model->mutex);
  if (kind->item != nullptr && !fields.empty()) {
    lyn_watch_model_put_locked(model, lyn_watch_key(kind->radio, kind->item), fields.front().second, OX_LYN_SUCCESS,
                               now);
  }
  ++model->picture.event_counts[static_cast<size_t>(kind - lyn_watch_event_kinds.data())];
  const uint64_t id = ++model->picture.last_event;
  model->events.push_back({.id = id,
                           .time = time,
                           .kind = kind,
                           .fields = std::move(fields),
                           .at = now,
                           .location = model->picture.location});
  if (model->events.size() > LYN_WATCH_EVENTS_KEPT) {
    model->events.pop_front();
  }
  lyn_watch_model_note_change(model);
  return id;
}

void lyn_watch_model_set_scanning(lyn_watch_model_t *model, bool scanning) {
  const std::lock_guard lock(model->mutex);
  model->picture.scanning = scanning;
  lyn_watch_model_note_change(model);
}

void lyn_watch_model_set_locating(lyn_watch_model_t *model, bool locating) {
  const std::lock_guard lock(model->mutex);
  model->picture.locating = locating;
  lyn_watch_model_note_change(model);
}

static bool lyn_watch_model_other_cell(const lyn_watch_cell_t &before, const lyn_watch_cell_t &after) {
  const auto both = [&](lyn_watch_value_t lyn_watch_cell_t::*value) {
    return lyn_watch_measured(before.*value) && lyn_watch_measured(after.*value);
  };
  return both(&lyn_watch_cell_t::cgi) ? before.cgi != after.cgi
                                      : both(&lyn_watch_cell_t::pci) && before.pci != after.pci;
}

// At the end of a reading, as CGI and PCI are read one after the other.
static void lyn_watch_model_note_cell(lyn_watch_model_t *model, lyn_watch_radio_e radio) {
  const auto value = [&](const char *name) {
    return model->picture.items[lyn_watch_key(radio, name).item][radio].value;
  };
  const lyn_watch_cell_t now = {.cgi = value("cgi"), .pci = value("pci")};
  lyn_watch_cell_t *cell = &model->cells[radio];
  if (lyn_watch_model_other_cell(*cell, now)) {
    ++model->picture.cell_changes[radio];
    *cell = now;
  }
  cell->cgi = lyn_watch_measured(now.cgi) ? now.cgi : cell->cgi;
  cell->pci = lyn_watch_measured(now.pci) ? now.pci : cell->pci;
}

void lyn_watch_model_end_reading(lyn_watch_model_t *model, bool planned) {
  const std::lock_guard lock(model->mutex);
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    lyn_watch_model_note_cell(model, radio);
  }
  model->picture.readings += planned ? 1 : 0;
  model->picture.read = model->picture.state == LYN_WATCH_UP;
  lyn_watch_model_note_change(model);
}

void lyn_watch_model_end(lyn_watch_model_t *model) {
  const std::lock_guard lock(model->mutex);
  model->ended = true;
  lyn_watch_model_note_change(model);
}

/* What the views do */

lyn_watch_picture_t lyn_watch_model_picture(lyn_watch_model_t *model, lyn_watch_time_t now) {
  const std::lock_guard lock(model->mutex);
  lyn_watch_picture_t picture = model->picture;
  picture.now = now;
  picture.time = std::chrono::system_clock::now();
  return picture;
}

lyn_watch_time_t lyn_watch_picture_counted(const lyn_watch_picture_t &picture) {
  lyn_watch_time_t oldest = picture.now;
  for (const lyn_watch_profile_t &profile : picture.profiles) {
    for (const std::optional<lyn_watch_traffic_t> &traffic : profile.traffic) {
      oldest = traffic ? std::min(oldest, traffic->at) : oldest;
    }
  }
  return oldest;
}

std::vector<std::optional<lyn_watch_bucket_t>> lyn_watch_model_history(lyn_watch_model_t *model, lyn_watch_key_t key,
                                                                       lyn_watch_time_t now) {
  std::vector<std::optional<lyn_watch_bucket_t>> seconds_(LYN_WATCH_HISTORY_S);
  const std::lock_guard lock(model->mutex);
  const auto found = model->history.find(key);
  if (found == model->history.end()) {
    return seconds_;
  }
  const int64_t first = lyn_watch_model_second(now) - LYN_WATCH_HISTORY_S + 1;
  for (int64_t i = 0; i < LYN_WATCH_HISTORY_S; ++i) {
    const size_t at = lyn_watch_model_bucket(first + i);
    if (first + i >= 0 && found->second.seconds[at] == first + i) {
      seconds_[static_cast<size_t>(i)] = found->second.buckets[at];
    }
  }
  return seconds_;
}

lyn_watch_events_t lyn_watch_model_events(lyn_watch_model_t *model, uint64_t after, size_t most) {
  const std::lock_guard lock(model->mutex);
  lyn_watch_events_t found = {.events = {}, .missed = 0};
  if (model->events.empty() || after >= model->events.back().id) {
    return found;
  }
  const uint64_t first = std::max(after + 1, model->events.front().id);
  found.missed = first - after - 1;
  const auto begin = model->events.begin() + static_cast<std::ptrdiff_t>(first - model->events.front().id);
  const auto left = static_cast<size_t>(model->events.end() - begin);
  found.events.assign(begin, begin + static_cast<std::ptrdiff_t>(std::min(most, left)));
  return found;
}

uint64_t lyn_watch_model_changes(lyn_watch_model_t *model) {
  const std::lock_guard lock(model->mutex);
  return model->changes;
}

bool lyn_watch_model_ended(lyn_watch_model_t *model) {
  const std::lock_guard lock(model->mutex);
  return model->ended;
}

uint64_t lyn_watch_model_recent(lyn_watch_model_t *model) {
  const std::lock_guard lock(model->mutex);
  const uint64_t last = model->picture.last_event;
  return last - std::min<uint64_t>(last, LYN_WATCH_EVENTS);
}

bool lyn_watch_model_wait(lyn_watch_model_t *model, uint64_t after, uint64_t readings, lyn_watch_time_t until) {
  std::unique_lock lock(model->mutex);
  model->changed.wait_until(lock, until, [&] {
    return model->ended || model->picture.last_event > after || model->picture.readings > readings;
  });
  return !model->ended;
}

bool lyn_watch_model_wait_change(lyn_watch_model_t *model, uint64_t changes, lyn_watch_time_t until) {
  std::unique_lock lock(model->mutex);
  model->changed.wait_until(lock, until, [&] { return model->ended || model->changes > changes; });
  return !model->ended;
}
