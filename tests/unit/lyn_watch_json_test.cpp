/* SPDX-License-Identifier: Apache-2.0 */
// The JSON records of the live picture: numbers and texts as they are written, what is left out, and the schema, which
// names every item and every event and no other.
#include "lyn_watch_json.h"

#include <gmock/gmock.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include "source_dir.h"

using namespace std::chrono_literals;
using nlohmann::json;
using testing::ElementsAre;

namespace {

lyn_watch_picture_t up_picture() {
  lyn_watch_picture_t picture;
  picture.now = lyn_watch_time_t(100s);
  picture.time = lyn_watch_utc_t(1767225600s + 7ms);
  picture.state = LYN_WATCH_UP;
  picture.board = "b";
  picture.every = 1s;
  picture.answered = picture.now - 12ms;
  picture.items.resize(lyn_watch_items.size());
  return picture;
}

void set_item(lyn_watch_picture_t *picture, lyn_watch_radio_e radio, const char *name, lyn_watch_value_t value,
              lyn_watch_ms_t age = 0ms) {
  const lyn_watch_key_t key = lyn_watch_key(radio, name);
  picture->items[key.item][key.radio] = {.value = std::move(value), .status = OX_LYN_SUCCESS, .at = picture->now - age};
}

json snapshot(const lyn_watch_picture_t &picture) {
  return json::parse(lyn_watch_json_snapshot(picture));
}

const lyn_watch_event_kind_t *kind_named(const std::string &name) {
  for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
    if (name == kind.name) {
      return &kind;
    }
  }
  return nullptr;
}

json schema() {
  return json::parse(std::ifstream(source_path("docs/lyn_watch.schema.json")));
}

std::set<std::string> names(const json &object) {
  std::set<std::string> keys;
  for (const auto &member : object.items()) {
    keys.insert(member.key());
  }
  return keys;
}

/* Values */

TEST(lyn_watch_json, time_is_utc_with_milliseconds) {
  EXPECT_EQ(snapshot(up_picture())["time"], "2026-01-01T00:00:00.007Z");
}

TEST(lyn_watch_json, integral_numbers_are_integers_and_others_keep_their_digits) {
  lyn_watch_picture_t picture = up_picture();
  set_item(&picture, LYN_WATCH_LTE, "bands", std::vector<double>{3});
  set_item(&picture, LYN_WATCH_LTE, "rf_bandwidth", std::vector<double>{1.4, 20});
  set_item(&picture, LYN_WATCH_LTE, "ca_bandwidth", 10.0);
  const std::string line = lyn_watch_json_snapshot(picture);
  EXPECT_THAT(line, testing::HasSubstr(R"("bands":[3],)"));
  EXPECT_THAT(line, testing::HasSubstr(R"("rf_bandwidth":[1.4,20])"));
  EXPECT_THAT(line, testing::HasSubstr(R"("ca_bandwidth":10)"));
  EXPECT_THAT(line, testing::HasSubstr(R"("age":0.012,)"));
  set_item(&picture, LYN_WATCH_LTE, "ca_bandwidth", 1e30);
  EXPECT_THAT(lyn_watch_json_snapshot(picture), testing::HasSubstr(R"("ca_bandwidth":1e+30)"))
      << "one that fits no integer";
}

TEST(lyn_watch_json, what_is_not_measured_is_absent) {
  const json record = snapshot(up_picture());
  EXPECT_EQ(names(record), (std::set<std::string>{"type", "time", "board", "up", "state", "age"}));
}

TEST(lyn_watch_json, names_that_are_no_utf8_are_replaced) {
  lyn_watch_picture_t picture = up_picture();
  picture.board = "a\xFF\"\n";
  EXPECT_EQ(snapshot(picture)["board"], "a\uFFFD\"\n");
}

TEST(lyn_watch_json, record_is_one_line) {
  lyn_watch_picture_t picture = up_picture();
  picture.board = "two\nlines";
  EXPECT_EQ(lyn_watch_json_snapshot(picture).find('\n'), std::string::npos);
}

/* Age */

TEST(lyn_watch_json, modem_that_never_answered_has_no_age) {
  lyn_watch_picture_t picture = up_picture();
  picture.state = LYN_WATCH_STARTING;
  picture.answered = {};
  const json record = snapshot(picture);
  EXPECT_FALSE(record.contains("age"));
  EXPECT_EQ(record["state"], "starting");
  EXPECT_EQ(record["up"], false);
}

TEST(lyn_watch_json, answer_that_came_after_the_picture_has_age_zero) {
  lyn_watch_picture_t picture = up_picture();
  picture.answered = picture.now + 5ms;
  EXPECT_EQ(snapshot(picture)["age"], 0);
}

TEST(lyn_watch_json, only_what_is_older_than_two_intervals_has_an_age_of_its_own) {
  lyn_watch_picture_t picture = up_picture();
  set_item(&picture, LYN_WATCH_LTE, "rsrp", int64_t{-90}, 2001ms);
  set_item(&picture, LYN_WATCH_LTE, "rsrq", int64_t{-9}, 2000ms);
  set_item(&picture, LYN_WATCH_LTE, "sinr", {}, 9s);
  set_item(&picture, LYN_WATCH_BOARD, "registration", std::string("lte"), 3s);
  EXPECT_EQ(snapshot(picture)["ages"], json::parse(R"({"registration": 3, "lte": {"rsrp": 2.001}})"));
  picture.every = 3s;
  EXPECT_FALSE(snapshot(picture).contains("ages"));
}

TEST(lyn_watch_json, age_of_the_data_path_is_that_of_its_oldest_counters) {
  lyn_watch_picture_t picture = up_picture();
  const auto read = [&picture](lyn_watch_ms_t age) {
    return lyn_watch_traffic_t{.stats = {}, .rx_rate = {}, .tx_rate = {}, .at = picture.now - age};
  };
  picture.profiles = {{.index = 1, .apn = "", .traffic = {read(1s), read(4s)}}};
  EXPECT_EQ(snapshot(picture)["ages"], json::parse(R"({"data": 4})"));
}

/* Data path and location */

TEST(lyn_watch_json, counters_keep_all_64_bits_and_rates_are_whole_octets) {
  lyn_watch_picture_t picture = up_picture();
  ox_lyn_wwan_stats_t stats = {};
  stats.bytes_rx = std::numeric_limits<uint64_t>::max();
  picture.profiles = {
      {.index = 7,
       .apn = "",
       .traffic = {lyn_watch_traffic_t{.stats = stats, .rx_rate = 1.6, .tx_rate = {}, .at = picture.now}}}};
  const json data = snapshot(picture)["data"][0];
  EXPECT_EQ(data["ipv4"]["bytes_rx"], std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(data["ipv4"]["rx_rate"], 2);
  EXPECT_FALSE(data["ipv4"].contains("tx_rate"));
  EXPECT_FALSE(data.contains("ipv6"));
  EXPECT_FALSE(data.contains("apn"));
  picture.profiles[0].traffic[1] = picture.profiles[0].traffic[0];
  picture.profiles[0].traffic[1]->stats.bytes_rx = 6;
  EXPECT_EQ(snapshot(picture)["data"][0]["ipv6"]["bytes_rx"], 6);
}

json location_with(
    uint32_t flags, const std::function<void(ox_lyn_location_t *)> &change = [](auto *) {}) {
  lyn_watch_picture_t picture = up_picture();
  ox_lyn_location_t location = {};
  location.flags = flags;
  location.latitude = 51.897463;
  location.longitude = -8;
  location.speed = 24 / 3.6F;
  location.timestamp = 1767225600123;
  change(&location);
  picture.location = std::make_shared<const lyn_watch_location_t>(
      lyn_watch_location_t{.location = location, .at = picture.now - 1500ms});
  return snapshot(picture)["location"];
}

TEST(lyn_watch_json, location_has_only_what_its_flags_name) {
  EXPECT_EQ(location_with(OX_LYN_LOC_FLAG_LAT_LONG_E),
            json::parse(R"({"latitude": 51.897463, "longitude": -8, "age": 1.5})"));
  for (uint32_t bit = 1; bit < 9; ++bit) {
    EXPECT_EQ(location_with(OX_LYN_LOC_FLAG_LAT_LONG_E | 1U << bit).size(), 4U) << bit;
  }
  EXPECT_EQ(location_with(0x1FF)["time"], "2026-01-01T00:00:00.123Z");
}

TEST(lyn_watch_json, float_has_the_digits_that_make_it_and_no_more) {
  EXPECT_EQ(location_with(0x1FF)["speed"].dump(), "6.666667");
}

TEST(lyn_watch_json, what_is_no_number_or_no_time_is_left_out) {
  const json location = location_with(0x1FF, [](ox_lyn_location_t *changed) {
    changed->altitude = std::numeric_limits<double>::quiet_NaN();
    changed->bearing = std::numeric_limits<float>::infinity();
    changed->timestamp = 253402300800000;
  });
  EXPECT_EQ(names(location), (std::set<std::string>{"latitude", "longitude", "speed", "horizontal_accuracy",
                                                    "vertical_accuracy", "speed_accuracy", "bearing_accuracy", "age"}));
}

/* Events */

TEST(lyn_watch_json, event_has_the_location_that_was_known_then_and_its_age_then) {
  lyn_watch_location_t found = {.location = {}, .at = lyn_watch_time_t(50s)};
  found.location.flags = OX_LYN_LOC_FLAG_LAT_LONG_E;
  const lyn_watch_event_t event = {.id = 9,
                                   .time = lyn_watch_utc_t(1s),
                                   .kind = kind_named("nr5g_sinr"),
                                   .fields = {{"value", int64_t{-35}}},
                                   .at = lyn_watch_time_t(52s),
                                   .location = std::make_shared<const lyn_watch_location_t>(found)};
  EXPECT_EQ(json::parse(lyn_watch_json_event("b", event)),
            json::parse(R"({"type": "event", "time": "1970-01-01T00:00:01.000Z", "board": "b", "id": 9,
                            "event": "nr5g_sinr", "radio": "nr5g", "value": -35,
                            "location": {"latitude": 0, "longitude": 0, "age": 2}})"));
}

TEST(lyn_watch_json, event_leaves_out_a_field_that_is_no_number) {
  const lyn_watch_event_t event = {.id = 1,
                                   .time = {},
                                   .kind = kind_named("loc_single_shot"),
                                   .fields = {{"latitude", std::nan("")}, {"longitude", 1.5}}};
  const json record = json::parse(lyn_watch_json_event("b", event));
  EXPECT_FALSE(record.contains("latitude"));
  EXPECT_EQ(record["longitude"], 1.5);
}

TEST(lyn_watch_json, missed_events_are_counted) {
  const json record = json::parse(lyn_watch_json_missed(up_picture(), 42));
  EXPECT_EQ(record,
            json::parse(R"({"type": "missed", "time": "2026-01-01T00:00:00.007Z", "board": "b", "count": 42})"));
}

/* History */

json history_at(lyn_watch_model_t *model, lyn_watch_time_t now) {
  lyn_watch_picture_t picture = lyn_watch_model_picture(model, now);
  picture.time = lyn_watch_utc_t(1767225600s + 7ms);
  return json::parse(lyn_watch_json_history(model, picture));
}

TEST(lyn_watch_json, history_has_each_second_that_was_measured_the_oldest_first) {
  lyn_watch_model_t model;
  lyn_watch_model_init(&model, "b");
  lyn_watch_model_plan(&model, 200ms, {});
  const auto put = [&model](lyn_watch_radio_e radio, const char *name, int64_t value, lyn_watch_ms_t at) {
    lyn_watch_model_put(&model, lyn_watch_key(radio, name), value, OX_LYN_SUCCESS, lyn_watch_time_t(at));
  };
  put(LYN_WATCH_LTE, "rsrp", -100, 1400s); /* too old */
  put(LYN_WATCH_LTE, "rsrp", -99, 1401s);
  put(LYN_WATCH_LTE, "rsrp", -90, 1998s);
  put(LYN_WATCH_LTE, "rsrp", -97, 2000s);
  put(LYN_WATCH_LTE, "rsrp", -96, 2000s + 200ms); /* the last one of a second */
  put(LYN_WATCH_LTE, "pci", 214, 2000s);          /* is not measured */
  put(LYN_WATCH_NR5G, "sinr", -35, 1999s);
  EXPECT_EQ(history_at(&model, lyn_watch_time_t(2000s + 900ms)),
            json::parse(R"({"time": "2026-01-01T00:00:00.007Z", "every": 0.2,
                            "lte": {"rsrp": [[599, -99], [2, -90], [0, -96]]}, "nr5g": {"sinr": [[1, -35]]}})"));
}

TEST(lyn_watch_json, history_of_nothing_has_no_radio) {
  lyn_watch_model_t model;
  lyn_watch_model_init(&model, "b");
  EXPECT_EQ(history_at(&model, lyn_watch_time_t(2000s)),
            json::parse(R"({"time": "2026-01-01T00:00:00.007Z", "every": 0})"));
}

/* The schema */

// What the schema has of one place's items: name to label, help and unit.
using texts_t = std::map<std::string, std::vector<std::string>>;

texts_t texts_of_items(lyn_watch_radio_e radio) {
  texts_t texts;
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_item_t &item = lyn_watch_items[key.item];
    if (key.radio == radio) {
      texts[item.name] = {item.label, item.help, item.unit};
    }
  }
  return texts;
}

texts_t texts_of_schema(const json &properties) {
  texts_t texts;
  for (const auto &member : properties.items()) {
    const json &property = member.value();
    texts[member.key()] = {property["title"], property["description"], property.value("unit", "")};
  }
  return texts;
}

TEST(lyn_watch_json, schema_has_every_item_with_its_texts_and_no_other) {
  const json defs = schema()["$defs"];
  EXPECT_EQ(texts_of_schema(defs["lte"]["properties"]), texts_of_items(LYN_WATCH_LTE));
  EXPECT_EQ(texts_of_schema(defs["nr5g"]["properties"]), texts_of_items(LYN_WATCH_NR5G));
  const texts_t board = texts_of_items(LYN_WATCH_BOARD);
  for (const auto &[name, texts] : board) {
    const json property = {{name, defs["snapshot"]["properties"][name]}};
    EXPECT_EQ(texts_of_schema(property)[name], texts);
  }
}

TEST(lyn_watch_json, schema_has_an_age_of_every_item) {
  const json ages = schema()["$defs"]["ages"]["properties"];
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    EXPECT_EQ(names(ages[lyn_watch_radio_name(radio)]["properties"]), names(json(texts_of_items(radio))));
  }
  EXPECT_TRUE(ages.contains("registration"));
}

TEST(lyn_watch_json, schema_has_the_history_of_every_item_that_has_one) {
  std::set<std::string> wanted;
  for (const lyn_watch_item_t &item : lyn_watch_items) {
    if (item.history) {
      wanted.insert(item.name);
    }
  }
  EXPECT_EQ(names(schema()["$defs"]["measured"]["properties"]), wanted);
}

TEST(lyn_watch_json, schema_has_every_event_once_and_no_other) {
  std::multiset<std::string> found;
  const json kinds = schema()["$defs"]["event"]["anyOf"];
  for (const json &kind : kinds) {
    const json &event = kind["properties"]["event"];
    const json listed = event.contains("enum") ? event["enum"] : json::array({event["const"]});
    found.insert(listed.begin(), listed.end());
    for (const json &name : listed) {
      const lyn_watch_event_kind_t *known = kind_named(name);
      ASSERT_NE(known, nullptr) << name;
      EXPECT_EQ(kind["properties"].contains("radio"), known->radio != LYN_WATCH_BOARD) << name;
    }
  }
  std::multiset<std::string> wanted;
  for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
    wanted.insert(kind.name);
  }
  EXPECT_EQ(found, wanted);
}

TEST(lyn_watch_json, schema_lets_nothing_in_that_it_does_not_name) {
  const std::function<void(const json &)> check = [&check](const json &part) {
    if (part.is_object() && part.contains("properties") && !part["properties"].contains("properties")) {
      EXPECT_EQ(part.value("additionalProperties", true), false) << part.dump().substr(0, 200);
    }
    for (const json &inner : part.is_structured() ? part : json::array()) {
      check(inner);
    }
  };
  check(schema());
}

}  // namespace
