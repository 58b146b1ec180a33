/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_json.h"

#include <unistd.h>

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;

// UTC with milliseconds, as in RFC 3339.
static std::string lyn_watch_json_time(lyn_watch_utc_t time) {
  const auto since = std::chrono::duration_cast<lyn_watch_ms_t>(time.time_since_epoch()).count();
  const time_t second = since / 1000;
  tm parts = {};
  gmtime_r(&second, &parts);
  char text[40];
  const size_t length = strftime(text, sizeof(text), "%FT%T", &parts);
  snprintf(text + length, sizeof(text) - length, ".%03dZ", static_cast<int>(since % 1000));
  return text;
}

static json lyn_watch_json_value(const lyn_watch_value_t &value) {
  return std::visit(
      [](const auto &held) -> json {
        if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>) {
          return nullptr;
        } else {
          return held;
        }
      },
      value);
}

// What was not measured is left out.
static void lyn_watch_json_items(const lyn_watch_picture_t &picture, lyn_watch_radio_e radio, json *object) {
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_value_t &value = picture.items[key.item][key.radio].value;
    if (key.radio == radio && lyn_watch_measured(value)) {
      (*object)[lyn_watch_items[key.item].name] = lyn_watch_json_value(value);
    }
  }
}

std::string lyn_watch_json_snapshot(const lyn_watch_picture_t &picture) {
  json line = {{"type", "snapshot"}, {"time", lyn_watch_json_time(picture.time)}, {"board", picture.board}};
  line["up"] = picture.state == LYN_WATCH_UP;
  lyn_watch_json_items(picture, LYN_WATCH_BOARD, &line);
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    json object = json::object();
    lyn_watch_json_items(picture, radio, &object);
    if (!object.empty()) {
      line[lyn_watch_radio_name(radio)] = std::move(object);
    }
  }
  return line.dump();
}

std::string lyn_watch_json_event(const std::string &board, const lyn_watch_event_t &event) {
  json line = {{"type", "event"},
               {"time", lyn_watch_json_time(event.time)},
               {"board", board},
               {"id", event.id},
               {"event", event.kind->name}};
  for (const auto &[name, value] : event.fields) {
    line[name] = lyn_watch_json_value(value);
  }
  return line.dump();
}

static bool lyn_watch_json_write(int fd, std::string line) {
  line += '\n';
  for (size_t done = 0; done < line.size();) {
    const ssize_t count = write(fd, line.data() + done, line.size() - done);
    if (count < 0) {
      return false;
    }
    done += static_cast<size_t>(count);
  }
  return true;
}

bool lyn_watch_json_run(lyn_watch_model_t *model, const lyn_watch_json_plan_t &plan) {
  uint64_t readings = 0;
  uint64_t last = 0;
  auto due = std::chrono::steady_clock::now() + plan.every;
  while (lyn_watch_model_wait(model, last, readings, due)) {
    const auto now = std::chrono::steady_clock::now();
    const lyn_watch_picture_t picture = lyn_watch_model_picture(model, now);
    for (const lyn_watch_event_t &event : lyn_watch_model_events(model, last, SIZE_MAX).events) {
      last = event.id;
      if (!lyn_watch_json_write(plan.fd, lyn_watch_json_event(picture.board, event))) {
        return false;
      }
    }
    if (picture.readings > readings || now >= due) {
      readings = picture.readings;
      due = now + plan.every + plan.every / 2;
      if (!lyn_watch_json_write(plan.fd, lyn_watch_json_snapshot(picture))) {
        return false;
      }
    }
  }
  return true;
}

bool lyn_watch_json_once(lyn_watch_model_t *model, const lyn_watch_json_plan_t &plan) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  lyn_watch_model_wait(model, UINT64_MAX, 0, until);
  const lyn_watch_picture_t picture = lyn_watch_model_picture(model, std::chrono::steady_clock::now());
  return picture.state == LYN_WATCH_UP && lyn_watch_json_write(plan.fd, lyn_watch_json_snapshot(picture));
}
