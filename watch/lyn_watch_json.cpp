/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;

/* Values */

// The last millisecond of the year 9999: RFC 3339 has no later one.
static constexpr int64_t LYN_WATCH_LAST_MS = 253402300799999;

// Up to here every integer is one as double, too.
static constexpr double LYN_WATCH_LAST_INTEGER = 9007199254740992;

// UTC with milliseconds, as in RFC 3339.
static std::string lyn_watch_json_time(int64_t ms) {
  const time_t second = ms / 1000;
  tm parts = {};
  gmtime_r(&second, &parts);
  char text[40];
  const size_t length = strftime(text, sizeof(text), "%FT%T", &parts);
  snprintf(text + length, sizeof(text) - length, ".%03dZ", static_cast<int>(ms % 1000));
  return text;
}

static std::string lyn_watch_json_time(lyn_watch_utc_t time) {
  return lyn_watch_json_time(std::chrono::duration_cast<lyn_watch_ms_t>(time.time_since_epoch()).count());
}

// An integral number is written as one. What is none at all is null, which is left out.
static json lyn_watch_json_number(double value) {
  if (!std::isfinite(value)) {
    return nullptr;
  }
  if (std::abs(value) < LYN_WATCH_LAST_INTEGER && std::trunc(value) == value) {
    return static_cast<int64_t>(value);
  }
  return value;
}

// The shortest digits that make this float: as a double it would have nine that nobody measured.
static json lyn_watch_json_number(float value) {
  char digits[32];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  double exact = value;
  std::from_chars(std::begin(digits), end, exact);
  return lyn_watch_json_number(exact);
}

static json lyn_watch_json_held(std::monostate) {
  return nullptr;
}

static json lyn_watch_json_held(double value) {
  return lyn_watch_json_number(value);
}

static json lyn_watch_json_held(const std::vector<double> &values) {
  json array = json::array();
  for (const double value : values) {
    array.push_back(lyn_watch_json_number(value));
  }
  return array;
}

template <typename T>
static json lyn_watch_json_held(const T &value) {
  return value;
}

static json lyn_watch_json_value(const lyn_watch_value_t &value) {
  return std::visit([](const auto &held) { return lyn_watch_json_held(held); }, value);
}

// Seconds between two moments, to the millisecond; what came meanwhile has no age yet.
static json lyn_watch_json_age(lyn_watch_time_t at, lyn_watch_time_t now) {
  const auto age = std::chrono::duration_cast<lyn_watch_ms_t>(now - at).count();
  return lyn_watch_json_number(static_cast<double>(std::max<int64_t>(age, 0)) / 1000);
}

static void lyn_watch_json_put(json *object, const char *name, json value) {
  if (!value.is_null()) {
    (*object)[name] = std::move(value);
  }
}

// An object without members says nothing.
static void lyn_watch_json_put_filled(json *object, const char *name, json value) {
  if (!value.empty()) {
    (*object)[name] = std::move(value);
  }
}

// Names come from outside and may be no UTF-8.
static std::string lyn_watch_json_line(const json &record) {
  return record.dump(-1, ' ', false, json::error_handler_t::replace);
}

/* Location */

template <auto member>
static json lyn_watch_json_member(const ox_lyn_location_t &location) {
  return lyn_watch_json_number(location.*member);
}

static json lyn_watch_json_fix_time(const ox_lyn_location_t &location) {
  if (location.timestamp > LYN_WATCH_LAST_MS) {
    return nullptr;
  }
  return lyn_watch_json_time(static_cast<int64_t>(location.timestamp));
}

static constexpr struct {
  const char *name;
  uint32_t flag;
  json (*take)(const ox_lyn_location_t &location);
} lyn_watch_json_location_members[] = {
    {"latitude", OX_LYN_LOC_FLAG_LAT_LONG_E, lyn_watch_json_member<&ox_lyn_location_t::latitude>},
    {"longitude", OX_LYN_LOC_FLAG_LAT_LONG_E, lyn_watch_json_member<&ox_lyn_location_t::longitude>},
    {"altitude", OX_LYN_LOC_FLAG_ALTITUDE_E, lyn_watch_json_member<&ox_lyn_location_t::altitude>},
    {"speed", OX_LYN_LOC_FLAG_SPEED_E, lyn_watch_json_member<&ox_lyn_location_t::speed>},
    {"bearing", OX_LYN_LOC_FLAG_BEARING_E, lyn_watch_json_member<&ox_lyn_location_t::bearing>},
    {"horizontal_accuracy", OX_LYN_LOC_FLAG_HORIZONTAL_ACCURACY_E,
     lyn_watch_json_member<&ox_lyn_location_t::horizontal_accuracy>},
    {"vertical_accuracy", OX_LYN_LOC_FLAG_VERTICAL_ACCURACY_E,
     lyn_watch_json_member<&ox_lyn_location_t::vertical_accuracy>},
    {"speed_accuracy", OX_LYN_LOC_FLAG_SPEED_ACCURACY_E, lyn_watch_json_member<&ox_lyn_location_t::speed_accuracy>},
    {"bearing_accuracy", OX_LYN_LOC_FLAG_BEARING_ACCURACY_E,
     lyn_watch_json_member<&ox_lyn_location_t::bearing_accuracy>},
    {"time", OX_LYN_LOC_FLAG_TIMESTAMP_E, lyn_watch_json_fix_time},
};

static json lyn_watch_json_location(const lyn_watch_location_t &found, lyn_watch_time_t now) {
  json object = json::object();
  for (const auto &row : lyn_watch_json_location_members) {
    if ((found.location.flags & row.flag) != 0) {
      lyn_watch_json_put(&object, row.name, row.take(found.location));
    }
  }
  object["age"] = lyn_watch_json_age(found.at, now);
  return object;
}

/* Parts of a snapshot */

static const lyn_watch_reading_t &lyn_watch_json_reading(const lyn_watch_picture_t &picture, lyn_watch_key_t key) {
  return picture.items[key.item][key.radio];
}

// What has a value of this radio, each item as `take` gives it; null leaves it out.
template <typename Take>
static json lyn_watch_json_items(const lyn_watch_picture_t &picture, lyn_watch_radio_e radio, Take take) {
  json object = json::object();
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_reading_t &reading = lyn_watch_json_reading(picture, key);
    if (key.radio == radio && lyn_watch_measured(reading.value)) {
      lyn_watch_json_put(&object, lyn_watch_items[key.item].name, take(reading));
    }
  }
  return object;
}

// One member of each item of the board, one object of each radio's.
template <typename Take>
static void lyn_watch_json_put_items(const lyn_watch_picture_t &picture, json *object, Take take) {
  object->update(lyn_watch_json_items(picture, LYN_WATCH_BOARD, take));
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    lyn_watch_json_put_filled(object, lyn_watch_radio_name(radio), lyn_watch_json_items(picture, radio, take));
  }
}

static json lyn_watch_json_neighbour(const lyn_watch_neighbour_t &cell) {
  json object = {{"channel", cell.channel}, {"pci", cell.pci}};
  if (cell.rsrp) {
    object["rsrp"] = *cell.rsrp;
  }
  if (cell.rsrq) {
    object["rsrq"] = *cell.rsrq;
  }
  lyn_watch_json_put_filled(&object, "cgis", cell.cgis);
  lyn_watch_json_put_filled(&object, "plmns", cell.plmns);
  return object;
}

static json lyn_watch_json_neighbours(const lyn_watch_picture_t &picture) {
  json radios = json::object();
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    const lyn_watch_neighbours_t &neighbours = picture.neighbours[radio];
    if (neighbours.at != lyn_watch_time_t()) {
      json cells = json::array();
      for (const lyn_watch_neighbour_t &cell : neighbours.cells) {
        cells.push_back(lyn_watch_json_neighbour(cell));
      }
      radios[lyn_watch_radio_name(radio)] = {{"age", lyn_watch_json_age(neighbours.at, picture.now)},
                                             {"cells", std::move(cells)}};
    }
  }
  return radios;
}

static json lyn_watch_json_traffic(const lyn_watch_traffic_t &traffic) {
  const ox_lyn_wwan_stats_t &stats = traffic.stats;
  json object = {{"bytes_rx", stats.bytes_rx},
                 {"bytes_tx", stats.bytes_tx},
                 {"pkts_rx", stats.pkts_rx},
                 {"pkts_tx", stats.pkts_tx},
                 {"pkts_dropped_rx", stats.pkts_dropped_rx},
                 {"pkts_dropped_tx", stats.pkts_dropped_tx}};
  if (traffic.rx_rate) {
    object["rx_rate"] = std::llround(*traffic.rx_rate);
  }
  if (traffic.tx_rate) {
    object["tx_rate"] = std::llround(*traffic.tx_rate);
  }
  return object;
}

static json lyn_watch_json_data(const lyn_watch_picture_t &picture) {
  json profiles = json::array();
  for (const lyn_watch_profile_t &profile : picture.profiles) {
    json object = {{"profile", profile.index}};
    if (!profile.apn.empty()) {
      object["apn"] = profile.apn;
    }
    for (size_t family = 0; family < LYN_WATCH_FAMILIES; ++family) {
      if (profile.traffic[family]) {
        object[lyn_watch_families[family]] = lyn_watch_json_traffic(*profile.traffic[family]);
      }
    }
    profiles.push_back(std::move(object));
  }
  return profiles;
}

// Ages of what should have been read anew by now: it is older than two intervals.
static json lyn_watch_json_ages(const lyn_watch_picture_t &picture) {
  const auto age = [&picture](lyn_watch_time_t at) {
    return picture.now - at > 2 * picture.every ? lyn_watch_json_age(at, picture.now) : json();
  };
  json ages = json::object();
  lyn_watch_json_put_items(picture, &ages, [age](const lyn_watch_reading_t &reading) { return age(reading.at); });
  lyn_watch_json_put(&ages, "data", age(lyn_watch_picture_counted(picture)));
  return ages;
}

/* Records */

static json lyn_watch_json_record(const char *type, lyn_watch_utc_t time, const std::string &board) {
  return {{"type", type}, {"time", lyn_watch_json_time(time)}, {"board", board}};
}

static void lyn_watch_json_put_location(const lyn_watch_picture_t &picture, json *record) {
  if (picture.location) {
    (*record)["location"] = lyn_watch_json_location(*picture.location, picture.now);
  }
}

std::string lyn_watch_json_snapshot(const lyn_watch_picture_t &picture) {
  json record = lyn_watch_json_record("snapshot", picture.time, picture.board);
  record["up"] = picture.state == LYN_WATCH_UP;
  record["state"] = lyn_watch_state_name(picture.state);
  if (picture.answered != lyn_watch_time_t()) {
    record["age"] = lyn_watch_json_age(picture.answered, picture.now);
  }
  lyn_watch_json_put_items(picture, &record,
                           [](const lyn_watch_reading_t &reading) { return lyn_watch_json_value(reading.value); });
  lyn_watch_json_put_filled(&record, "neighbours", lyn_watch_json_neighbours(picture));
  lyn_watch_json_put_filled(&record, "data", lyn_watch_json_data(picture));
  lyn_watch_json_put_location(picture, &record);
  lyn_watch_json_put_filled(&record, "ages", lyn_watch_json_ages(picture));
  return lyn_watch_json_line(record);
}

std::string lyn_watch_json_event(const std::string &board, const lyn_watch_event_t &event) {
  json record = lyn_watch_json_record("event", event.time, board);
  record["id"] = event.id;
  record["event"] = event.kind->name;
  if (event.kind->radio != LYN_WATCH_BOARD) {
    record["radio"] = lyn_watch_radio_name(event.kind->radio);
  }
  for (const auto &[name, value] : event.fields) {
    lyn_watch_json_put(&record, name, lyn_watch_json_value(value));
  }
  if (event.location != nullptr) {
    record["location"] = lyn_watch_json_location(*event.location, event.at);
  }
  return lyn_watch_json_line(record);
}

std::string lyn_watch_json_missed(const lyn_watch_picture_t &picture, uint64_t count) {
  json record = lyn_watch_json_record("missed", picture.time, picture.board);
  record["count"] = count;
  lyn_watch_json_put_location(picture, &record);
  return lyn_watch_json_line(record);
}

/* History */

static json lyn_watch_json_measured(const std::vector<std::optional<lyn_watch_bucket_t>> &seconds) {
  json values = json::array();
  for (size_t i = 0; i < seconds.size(); ++i) {
    if (seconds[i]) {
      values.push_back({seconds.size() - 1 - i, lyn_watch_json_number(seconds[i]->last)});
    }
  }
  return values;
}

std::string lyn_watch_json_history(lyn_watch_model_t *model, const lyn_watch_picture_t &picture) {
  json record = {{"time", lyn_watch_json_time(picture.time)},
                 {"every", lyn_watch_json_number(std::chrono::duration<double>(picture.every).count())}};
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    json items = json::object();
    for (const lyn_watch_key_t &key : lyn_watch_keys()) {
      if (key.radio == radio && lyn_watch_items[key.item].history) {
        lyn_watch_json_put_filled(&items, lyn_watch_items[key.item].name,
                                  lyn_watch_json_measured(lyn_watch_model_history(model, key, picture.now)));
      }
    }
    lyn_watch_json_put_filled(&record, lyn_watch_radio_name(radio), std::move(items));
  }
  return lyn_watch_json_line(record);
}
