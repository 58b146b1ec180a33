/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Connections of the live picture's server without sockets, what they are answered, and a model with fixed values.
 */
#ifndef WATCH_WIRE_H
#define WATCH_WIRE_H

#include <algorithm>
#include <charconv>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "lyn_watch_talk.h"

/** The other side has sent all that it will; what it is told is kept. */
struct watch_wire : lyn_watch_wire_t {
  explicit watch_wire(std::string sent) : in(std::move(sent)) {}

  ssize_t read(char *data, size_t size, lyn_watch_time_t) override {
    const size_t count = in.copy(data, std::min(size, at_once));
    in.erase(0, count);
    return count == 0 && silent ? -1 : static_cast<ssize_t>(count);
  }
  bool write(const char *data, size_t size, lyn_watch_time_t) override {
    out.append(data, size);
    return true;
  }
  bool gone() const override { return false; }

  std::string in;
  std::string out;
  size_t at_once = SIZE_MAX;
  bool silent = false;  // it does not end the connection, and sends nothing more
};

struct watch_answer {
  int status = 0;
  std::map<std::string, std::string> headers;
  std::string body;
};

/** Take the first answer away; status 0: it is not well formed. One to HEAD has no body. */
inline watch_answer watch_take_answer(std::string_view *text) {
  watch_answer answer;
  const std::string_view version = "HTTP/1.1 ";
  const size_t end = text->find("\r\n\r\n");
  if (!text->starts_with(version) || end == std::string_view::npos) {
    return {};
  }
  int status = 0;
  const auto [reason, error] = std::from_chars(text->data() + version.size(), text->data() + end, status);
  if (error != std::errc() || status < 100 || status > 599 || *reason != ' ') {
    return {};
  }
  for (size_t at = text->find("\r\n"); at < end;) {
    const size_t next = text->find("\r\n", at + 2);
    const std::string_view line = text->substr(at + 2, next - at - 2);
    const size_t colon = line.find(": ");
    if (colon == std::string_view::npos || line.find_first_of("\r\n") != std::string_view::npos ||
        !answer.headers.emplace(line.substr(0, colon), line.substr(colon + 2)).second) {
      return {};
    }
    at = next;
  }
  text->remove_prefix(end + 4);
  const bool head = text->empty() || text->starts_with(version);
  const auto length = answer.headers.find("Content-Length");
  const size_t size = length == answer.headers.end() ? text->size() : std::stoul(length->second);
  if (!head && size > text->size()) {
    return {};
  }
  answer.body = text->substr(0, head ? 0 : size);
  text->remove_prefix(answer.body.size());
  answer.status = status;
  return answer;
}

/** A model that is up, has some values and events, and is a board named "bench". */
inline std::unique_ptr<lyn_watch_model_t> watch_model(size_t events) {
  auto owned = std::make_unique<lyn_watch_model_t>();
  lyn_watch_model_t *model = owned.get();
  lyn_watch_model_init(model, "bench");
  lyn_watch_model_set_state(model, LYN_WATCH_UP);
  lyn_watch_model_put(model, lyn_watch_key(LYN_WATCH_LTE, "rsrp"), int64_t{-95}, OX_LYN_SUCCESS, {});
  for (size_t i = 0; i < events; ++i) {
    lyn_watch_model_put_event(model, lyn_watch_event_kind(OX_LYN_RECORD_IND_E, OX_LYN_IND_LTE_RSRP_E),
                              {{"value", -static_cast<int64_t>(i)}}, {}, {});
  }
  return owned;
}

#endif
