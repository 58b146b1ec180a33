/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What one connection is answered, without sockets.
 */
#include "lyn_watch_talk.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "watch_wire.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string host = "Host: localhost\r\n";

std::string get(const std::string &path, const std::string &fields = "") {
  return "GET " + path + " HTTP/1.1\r\n" + host + fields + "\r\n";
}

std::vector<watch_answer> answers_of(std::string_view text) {
  std::vector<watch_answer> answers;
  while (!text.empty()) {
    answers.push_back(watch_take_answer(&text));
    if (answers.back().status == 0) {
      ADD_FAILURE() << text;
      break;
    }
  }
  return answers;
}

std::vector<watch_answer> talk(lyn_watch_model_t *model, watch_wire *wire, const lyn_watch_http_plan_t &plan = {}) {
  lyn_watch_talk(model, plan, wire);
  return answers_of(wire->out);
}

std::vector<watch_answer> talk(const std::string &sent) {
  watch_wire wire(sent);
  return talk(watch_model(0).get(), &wire);
}

std::vector<int> statuses_of(const std::vector<watch_answer> &answers) {
  std::vector<int> statuses;
  for (const watch_answer &answer : answers) {
    statuses.push_back(answer.status);
  }
  return statuses;
}

/** The values of one field of a stream of events, in their order. */
std::vector<std::string> fields_of(const std::string &stream, const std::string &name) {
  std::vector<std::string> values;
  std::istringstream lines(stream);
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with(name + ": ")) {
      values.push_back(line.substr(name.size() + 2));
    }
  }
  return values;
}

/** What a model that has ended streams to one who asks with these fields. */
std::string stream_of(lyn_watch_model_t *model, const std::string &fields, const std::string &path = "/api/events") {
  lyn_watch_model_end(model);
  watch_wire wire(get(path, fields));
  const std::vector<watch_answer> answers = talk(model, &wire);
  return answers.size() == 1 && answers[0].status == 200 ? answers[0].body : "";
}

TEST(lyn_watch_talk, requests_in_a_row_are_answered_in_their_order) {
  for (const size_t at_once : {size_t{1}, size_t{7}, SIZE_MAX}) {
    watch_wire wire(get("/health") + "HEAD /metrics HTTP/1.1\r\n" + host + "\r\n" + get("/nothing") + get("/"));
    wire.at_once = at_once;
    EXPECT_THAT(statuses_of(talk(watch_model(0).get(), &wire)), ElementsAre(200, 200, 404, 200));
  }
}

TEST(lyn_watch_talk, nothing_follows_where_the_connection_ends) {
  EXPECT_THAT(statuses_of(talk(get("/", "Connection: close\r\n") + get("/"))), ElementsAre(200));
  EXPECT_THAT(statuses_of(talk("GET / HTTP/1.0\r\n\r\n" + get("/"))), ElementsAre(200));
  EXPECT_THAT(statuses_of(talk(get("/", "Content-Length: 5\r\n") + get("/"))), ElementsAre(413));
  EXPECT_THAT(statuses_of(talk("POST / HTTP/1.1\r\n" + host + "Content-Length: 5\r\n\r\n" + get("/"))),
              ElementsAre(405));
  EXPECT_THAT(statuses_of(talk("\r\n\r\n" + get("/"))), ElementsAre(400));
  EXPECT_THAT(statuses_of(talk("GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n" + get("/"))), ElementsAre(421));
}

TEST(lyn_watch_talk, an_answer_tells_nothing_of_the_library) {
  for (const char *method : {"GET", "HEAD"}) {
    const std::vector<watch_answer> answers = talk(std::string(method) + " / HTTP/1.1\r\n" + host + "\r\n");
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_FALSE(answers[0].headers.contains("Keep-Alive")) << "its limits are not ours";
    EXPECT_FALSE(answers[0].headers.contains("Accept-Ranges"));
    EXPECT_FALSE(answers[0].headers.contains("Connection"));
  }
}

TEST(lyn_watch_talk, fields_that_the_library_would_act_upon_change_nothing) {
  for (const char *fields : {"Range: bytes=0-1\r\n", "Range: bytes=9-1\r\n", "Range: x\r\n", "Expect: 100-continue\r\n",
                             "Accept-Encoding: gzip, br\r\n", "Upgrade: h2c\r\n"}) {
    const std::vector<watch_answer> answers = talk(get("/", fields));
    ASSERT_EQ(answers.size(), 1u) << fields;
    EXPECT_EQ(answers[0].body, talk(get("/"))[0].body) << fields;
  }
  EXPECT_THAT(statuses_of(talk(get("/", "Range: bytes=0-" + std::string(8000, '1') + "\r\n"))), ElementsAre(200));
}

TEST(lyn_watch_talk, a_method_that_is_no_reading_is_told_which_are) {
  for (const char *method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "CONNECT", "PATCH", "BREW", "get"}) {
    const std::vector<watch_answer> answers = talk(std::string(method) + " /metrics HTTP/1.1\r\n" + host + "\r\n");
    ASSERT_EQ(answers.size(), 1u) << method;
    EXPECT_EQ(answers[0].status, 405) << method;
    EXPECT_EQ(answers[0].headers.at("Allow"), "GET, HEAD");
  }
}

TEST(lyn_watch_talk, a_head_has_its_limits) {
  EXPECT_THAT(statuses_of(talk(get("/", "X: " + std::string(8192 - get("/", "X: \r\n").size(), 'x') + "\r\n"))),
              ElementsAre(200));
  EXPECT_THAT(statuses_of(talk(get("/", "X: " + std::string(8193 - get("/", "X: \r\n").size(), 'x') + "\r\n"))),
              ElementsAre(431));
  EXPECT_THAT(statuses_of(talk(get("/" + std::string(1024, 'a')))), ElementsAre(414));
  EXPECT_THAT(statuses_of(talk("GET /" + std::string(9000, 'a'))), ElementsAre(414));
  watch_wire pieces(get("/", "X: " + std::string(9000, 'x') + "\r\n"));
  pieces.at_once = 1500;
  EXPECT_THAT(statuses_of(talk(watch_model(0).get(), &pieces)), ElementsAre(431));
}

TEST(lyn_watch_talk, a_head_that_does_not_come_in_time_is_refused_and_silence_is_not) {
  watch_wire half("GET / HT");
  half.silent = true;
  EXPECT_THAT(statuses_of(talk(watch_model(0).get(), &half)), ElementsAre(408));
  watch_wire silent("");
  silent.silent = true;
  EXPECT_TRUE(talk(watch_model(0).get(), &silent).empty());
}

/** Time that a head may still take goes down with each octet, and not up again. */
struct dribbling_wire : watch_wire {
  using watch_wire::watch_wire;
  ssize_t read(char *data, size_t size, lyn_watch_time_t until) override {
    if (!in.empty() && !untils.empty()) {
      until_same = until_same && (untils.size() == 1 || until == untils.back());
    }
    untils.push_back(until);
    return watch_wire::read(data, std::min<size_t>(size, 1), until);
  }
  std::vector<lyn_watch_time_t> untils;
  bool until_same = true;
};

TEST(lyn_watch_talk, the_time_for_a_head_counts_from_its_first_octet) {
  dribbling_wire wire(get("/"));
  const lyn_watch_http_plan_t plan;
  talk(watch_model(0).get(), &wire, plan);
  ASSERT_GT(wire.untils.size(), 3u);
  EXPECT_TRUE(wire.until_same) << "no octet prolongs it";
  EXPECT_LT(wire.untils[1], wire.untils[0]) << "without any octet there is more time";
}

TEST(lyn_watch_talk, the_modem_is_healthy_only_while_it_is_up) {
  const auto owned = watch_model(0);
  lyn_watch_model_t *model = owned.get();
  for (const auto &[state, status, name] :
       {std::tuple(LYN_WATCH_STARTING, 503, "starting"), std::tuple(LYN_WATCH_DOWN, 503, "down"),
        std::tuple(LYN_WATCH_UP, 200, "up")}) {
    lyn_watch_model_set_state(model, state);
    watch_wire wire(get("/health"));
    const std::vector<watch_answer> answers = talk(model, &wire);
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_EQ(answers[0].status, status);
    EXPECT_EQ(nlohmann::json::parse(answers[0].body)["state"], name);
  }
}

/* The page */

TEST(lyn_watch_talk, the_page_and_its_parts_are_what_they_are_named) {
  for (const auto &[path, type, begin] :
       {std::tuple("/", "text/html", "<!DOCTYPE html>"), std::tuple("/page.css", "text/css", "/* SPDX"),
        std::tuple("/page.js", "text/javascript", "// SPDX"), std::tuple("/chart.js", "text/javascript", "/*!")}) {
    const std::vector<watch_answer> answers = talk(get(path));
    ASSERT_EQ(answers.size(), 1u) << path;
    EXPECT_EQ(answers[0].headers.at("Content-Type"), std::string(type) + "; charset=utf-8");
    EXPECT_TRUE(answers[0].body.starts_with(begin)) << path;
    EXPECT_EQ(answers[0].body.back(), '\n') << "nothing of it is missing";
    EXPECT_EQ(answers[0].body.find('\0'), std::string::npos) << "and nothing is behind it";
  }
  EXPECT_THAT(statuses_of(talk(get("/index.html") + get("/page") + get("/page.js?x"))), ElementsAre(404, 404, 200));
}

TEST(lyn_watch_talk, a_page_may_run_and_load_what_is_its_own_and_nothing_else) {
  const std::string policy = talk(get("/"))[0].headers.at("Content-Security-Policy");
  EXPECT_EQ(policy, talk(get("/nothing"))[0].headers.at("Content-Security-Policy"));
  EXPECT_THAT(policy, HasSubstr("default-src 'none'"));
  EXPECT_THAT(policy, HasSubstr("frame-ancestors 'none'"));
  EXPECT_EQ(policy.find("unsafe"), std::string::npos);
  EXPECT_EQ(policy.find('*'), std::string::npos);
}

/* History */

TEST(lyn_watch_talk, history_is_told_with_its_age) {
  const auto owned = watch_model(0);
  const lyn_watch_time_t now = std::chrono::steady_clock::now();
  lyn_watch_model_put(owned.get(), lyn_watch_key(LYN_WATCH_NR5G, "sinr"), int64_t{155}, OX_LYN_SUCCESS,
                      now - std::chrono::seconds(60));
  watch_wire wire(get("/api/history"));
  const std::vector<watch_answer> answers = talk(owned.get(), &wire);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].headers.at("Content-Type"), "application/json");
  const nlohmann::json values = nlohmann::json::parse(answers[0].body)["nr5g"]["sinr"];
  ASSERT_EQ(values.size(), 1u);
  EXPECT_GE(values[0][0], 60);
  EXPECT_EQ(values[0][1], 155);
}

/* Events */

TEST(lyn_watch_talk, a_stream_begins_with_the_last_hundred_events) {
  const std::string stream = stream_of(watch_model(250).get(), "");
  const std::vector<std::string> ids = fields_of(stream, "id");
  ASSERT_EQ(ids.size(), 100u);
  EXPECT_EQ(ids.front(), "151");
  EXPECT_EQ(ids.back(), "250");
  const nlohmann::json record = nlohmann::json::parse(fields_of(stream, "data").back());
  EXPECT_EQ(record["type"], "event");
  EXPECT_EQ(record["id"], 250);
  EXPECT_EQ(fields_of(stream, "event").back(), "event");
  EXPECT_EQ(record["value"], -249);
}

TEST(lyn_watch_talk, a_stream_goes_on_behind_the_id_that_was_seen_last) {
  const std::vector<std::string> ids = fields_of(stream_of(watch_model(1000).get(), "Last-Event-ID: 17\r\n"), "id");
  ASSERT_EQ(ids.size(), 983u);
  EXPECT_EQ(ids.front(), "18");
  EXPECT_TRUE(stream_of(watch_model(10).get(), "Last-Event-ID: 10\r\n").empty());
}

TEST(lyn_watch_talk, an_id_that_is_not_ours_counts_as_none) {
  for (const char *id : {"251", "18446744073709551615", "99999999999999999999", "x"}) {
    const std::string stream = stream_of(watch_model(250).get(), "Last-Event-ID: " + std::string(id) + "\r\n");
    EXPECT_EQ(fields_of(stream, "id").size(), 100u) << id;
  }
}

TEST(lyn_watch_talk, what_is_not_kept_any_more_is_told_as_missed) {
  const std::string stream = stream_of(watch_model(LYN_WATCH_EVENTS_KEPT + 904).get(), "Last-Event-ID: 4\r\n");
  EXPECT_EQ(fields_of(stream, "event").front(), "missed");
  EXPECT_EQ(fields_of(stream, "id").front(), "904");
  EXPECT_EQ(nlohmann::json::parse(fields_of(stream, "data").front())["count"], 900);
  EXPECT_EQ(fields_of(stream, "id").size(), 1u + LYN_WATCH_EVENTS_KEPT);
  EXPECT_EQ(fields_of(stream, "id")[1], "905");
}

/** Counts pieces, does something at one of them, and is gone after some. */
struct counting_wire : watch_wire {
  using watch_wire::watch_wire;
  bool write(const char *data, size_t size, lyn_watch_time_t until) override {
    ++pieces;
    if (on_piece) {
      on_piece();
    }
    return pieces <= most && watch_wire::write(data, size, until);
  }
  bool gone() const override { return pieces >= gone_after; }
  std::function<void()> on_piece;
  size_t pieces = 0;
  size_t most = SIZE_MAX;
  size_t gone_after = SIZE_MAX;
};

TEST(lyn_watch_talk, a_client_that_was_too_slow_is_told_what_it_missed) {
  const auto owned = watch_model(10);
  lyn_watch_model_t *model = owned.get();
  counting_wire wire(get("/api/events"));
  wire.on_piece = [&] {
    if (wire.pieces == 2) {  // behind the head: the first ten
      for (size_t i = 0; i < LYN_WATCH_EVENTS_KEPT + 1904; ++i) {
        lyn_watch_model_put_event(model, lyn_watch_event_kind(OX_LYN_RECORD_IND_E, OX_LYN_IND_REG_STATUS_E), {}, {},
                                  {});
      }
      lyn_watch_model_end(model);
    }
  };
  lyn_watch_talk(model, {}, &wire);
  const std::vector<std::string> events = fields_of(wire.out, "event");
  ASSERT_EQ(events.size(), 10u + 1u + LYN_WATCH_EVENTS_KEPT);
  EXPECT_EQ(events[10], "missed");
  EXPECT_THAT(fields_of(wire.out, "data")[10], HasSubstr("\"count\":1904"));
}

TEST(lyn_watch_talk, a_stream_without_events_has_heartbeats) {
  counting_wire wire(get("/api/events"));
  wire.gone_after = 4;
  lyn_watch_http_plan_t plan;
  plan.heartbeat = lyn_watch_ms_t(1);
  const std::vector<watch_answer> answers = talk(watch_model(0).get(), &wire, plan);
  ASSERT_EQ(answers.size(), 1u);
  EXPECT_EQ(answers[0].headers.at("Content-Type"), "text/event-stream");
  EXPECT_EQ(answers[0].headers.at("Connection"), "close");
  EXPECT_EQ(answers[0].body, ":\n\n:\n\n:\n\n");
}

TEST(lyn_watch_talk, a_stream_that_nobody_takes_ends) {
  counting_wire wire(get("/api/events"));
  wire.most = 2;  // head and first piece
  lyn_watch_http_plan_t plan;
  plan.heartbeat = lyn_watch_ms_t(1);
  lyn_watch_talk(watch_model(10).get(), plan, &wire);
  EXPECT_EQ(wire.pieces, 3u);
}

/** Takes all but the first piece. */
struct late_wire : watch_wire {
  using watch_wire::watch_wire;
  bool write(const char *data, size_t size, lyn_watch_time_t until) override {
    return pieces++ != 0 && watch_wire::write(data, size, until);
  }
  size_t pieces = 0;
};

TEST(lyn_watch_talk, nothing_follows_what_was_not_taken_in_time) {
  late_wire wire(get("/health") + get("/health"));
  lyn_watch_talk(watch_model(0).get(), {}, &wire);
  EXPECT_EQ(wire.out, "") << "a body without its head, and an answer behind it";
}

TEST(lyn_watch_talk, a_stream_follows_events_as_they_come) {
  const auto owned = watch_model(1);
  lyn_watch_model_t *model = owned.get();
  std::thread other;
  counting_wire wire(get("/api/events"));
  wire.on_piece = [&] {
    if (wire.pieces == 3) {
      lyn_watch_model_end(model);
    } else if (wire.pieces == 2) {
      other = std::thread([model] {
        lyn_watch_model_put_event(model, lyn_watch_event_kind(OX_LYN_RECORD_IND_E, OX_LYN_IND_REG_STATUS_E), {}, {},
                                  {});
      });
    }
  };
  lyn_watch_talk(model, {}, &wire);
  other.join();
  EXPECT_THAT(fields_of(wire.out, "data"), ElementsAre(HasSubstr("\"lte_rsrp\""), HasSubstr("\"reg_status\"")));
}

/* Snapshots among the events */

const char *const with_snapshots = "/api/events?snapshots";

TEST(lyn_watch_talk, a_stream_with_snapshots_begins_with_one_that_has_no_id) {
  const std::string stream = stream_of(watch_model(2).get(), "", with_snapshots);
  EXPECT_THAT(fields_of(stream, "event"), ElementsAre("snapshot", "event", "event"));
  EXPECT_THAT(fields_of(stream, "id"), ElementsAre("1", "2"));
  const nlohmann::json record = nlohmann::json::parse(fields_of(stream, "data").front());
  EXPECT_EQ(record["type"], "snapshot");
  EXPECT_EQ(record["lte"]["rsrp"], -1) << "as the last event has it";
}

TEST(lyn_watch_talk, a_stream_with_snapshots_goes_on_behind_the_event_that_was_seen_last) {
  const std::string stream = stream_of(watch_model(9).get(), "Last-Event-ID: 7\r\n", with_snapshots);
  EXPECT_THAT(fields_of(stream, "event"), ElementsAre("snapshot", "event", "event"));
  EXPECT_THAT(fields_of(stream, "id"), ElementsAre("8", "9"));
}

TEST(lyn_watch_talk, only_the_whole_query_asks_for_snapshots) {
  for (const char *query :
       {"", "?", "?snapshot", "?snapshots=1", "?x&snapshots", "?snapshots&x", "?Snapshots", "?snapshots?"}) {
    const std::string stream = stream_of(watch_model(1).get(), "", std::string("/api/events") + query);
    EXPECT_THAT(fields_of(stream, "event"), ElementsAre("event")) << query;
  }
}

/** A stream during which the model goes through these steps, one a piece, and then ends. */
std::vector<std::string> stream_while(const std::vector<std::function<void(lyn_watch_model_t *)>> &steps) {
  const auto owned = watch_model(0);
  lyn_watch_model_t *model = owned.get();
  counting_wire wire(get(with_snapshots));
  wire.on_piece = [&] {
    if (wire.pieces < 2) { /* the head */
      return;
    }
    if (wire.pieces - 2 < steps.size()) {
      steps[wire.pieces - 2](model);
    } else {
      lyn_watch_model_end(model);
    }
  };
  lyn_watch_talk(model, {}, &wire);
  return fields_of(wire.out, "data");
}

TEST(lyn_watch_talk, a_snapshot_follows_every_planned_reading) {
  const auto read = [](lyn_watch_model_t *model) { lyn_watch_model_end_reading(model, true); };
  EXPECT_EQ(stream_while({read, read, read}).size(), 4u);
}

TEST(lyn_watch_talk, a_snapshot_tells_that_the_modem_went_and_came_and_what_was_read_then) {
  const std::vector<std::string> records = stream_while({
      [](lyn_watch_model_t *model) { lyn_watch_model_set_state(model, LYN_WATCH_DOWN); },
      [](lyn_watch_model_t *model) { lyn_watch_model_set_state(model, LYN_WATCH_UP); },
      [](lyn_watch_model_t *model) {
        lyn_watch_model_put(model, lyn_watch_key(LYN_WATCH_LTE, "rsrp"), int64_t{-88}, OX_LYN_SUCCESS, {});
        lyn_watch_model_end_reading(model, false);
      },
  });
  EXPECT_THAT(records, ElementsAre(HasSubstr("\"rsrp\":-95"), HasSubstr("\"state\":\"down\""),
                                   HasSubstr("\"state\":\"up\""), HasSubstr("\"rsrp\":-88")));
}

TEST(lyn_watch_talk, a_flood_of_events_holds_up_no_snapshot) {
  const auto owned = watch_model(150);
  lyn_watch_model_t *model = owned.get();
  counting_wire wire(get(with_snapshots, "Last-Event-ID: 1\r\n"));
  wire.on_piece = [&] {
    if (wire.pieces == 2) { /* the first events of many */
      lyn_watch_model_end_reading(model, true);
      lyn_watch_model_end(model);
    }
  };
  lyn_watch_talk(model, {}, &wire);
  const std::vector<std::string> events = fields_of(wire.out, "event");
  ASSERT_EQ(events.size(), 151u);
  EXPECT_EQ(events[65], "snapshot") << "behind the first piece";
  EXPECT_EQ(events.back(), "event");
}

}  // namespace
