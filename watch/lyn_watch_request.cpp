/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_request.h"

#include <arpa/inet.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <utility>

/* Words */

static bool lyn_watch_equal(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

static bool lyn_watch_is_digit(char character) {
  return '0' <= character && character <= '9';
}

static bool lyn_watch_is_token(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    return lyn_watch_is_digit(character) || ('A' <= character && character <= 'Z') ||
           ('a' <= character && character <= 'z') ||
           std::string_view("!#$%&'*+-.^_`|~").find(character) != std::string_view::npos;
  });
}

static bool lyn_watch_is_visible(std::string_view text) {
  return std::ranges::all_of(text, [](char character) { return 0x20 < character && character < 0x7F; });
}

// What a field may have: anything but control characters.
static bool lyn_watch_is_field_value(std::string_view text) {
  return std::ranges::all_of(text, [](char character) {
    return character == '\t' || (static_cast<unsigned char>(character) >= 0x20 && character != 0x7F);
  });
}

static std::string_view lyn_watch_trim(std::string_view text) {
  const size_t first = text.find_first_not_of(" \t");
  return first == std::string_view::npos ? "" : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Decimal digits and nothing else.
static std::optional<uint64_t> lyn_watch_number(std::string_view text) {
  uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

// What stands in front of the next separator, which is taken away with it.
static std::string_view lyn_watch_next(std::string_view *text, std::string_view separator) {
  const size_t end = text->find(separator);
  const std::string_view word = text->substr(0, end);
  *text = end == std::string_view::npos ? "" : text->substr(end + separator.size());
  return word;
}

/* The request line */

// "http://HOST/PATH" is as good as "/PATH", and says the host better than the field.
static void lyn_watch_take_target(std::string_view target, lyn_watch_request_t *request) {
  static constexpr std::string_view scheme = "http://";
  if (lyn_watch_equal(target.substr(0, scheme.size()), scheme)) {
    target.remove_prefix(scheme.size());
    const size_t end = std::min(target.find_first_of("/?"), target.size());
    request->host = target.substr(0, end);
    target.remove_prefix(end);
  }
  const std::string_view path = lyn_watch_next(&target, "?");
  request->path = path.empty() ? "/" : path;
  request->query = target;
}

static lyn_watch_status_e lyn_watch_read_request_line(std::string_view line, lyn_watch_request_t *request) {
  request->method = lyn_watch_next(&line, " ");
  const std::string_view target = lyn_watch_next(&line, " ");
  if (target.size() > LYN_WATCH_TARGET_SIZE) {
    return LYN_WATCH_URI_TOO_LONG;
  }
  request->http_1_0 = line == "HTTP/1.0";
  request->last = request->http_1_0;
  if (!lyn_watch_is_token(request->method) || target.empty() || !lyn_watch_is_visible(target) ||
      (line != "HTTP/1.1" && !request->http_1_0)) {
    return LYN_WATCH_BAD_REQUEST;
  }
  lyn_watch_take_target(target, request);
  return LYN_WATCH_OK;
}

/* Fields. false: it may not be so */

static bool lyn_watch_take_connection(std::string_view value, lyn_watch_request_t *request) {
  while (!value.empty()) {
    request->last |= lyn_watch_equal(lyn_watch_trim(lyn_watch_next(&value, ",")), "close");
  }
  return true;
}

static bool lyn_watch_take_length(std::string_view value, lyn_watch_request_t *request) {
  const std::optional<uint64_t> length = lyn_watch_number(value);
  request->body |= length.value_or(1) != 0;
  return length.has_value();
}

static bool lyn_watch_take_coding(std::string_view, lyn_watch_request_t *request) {
  request->body = true;
  return true;
}

static bool lyn_watch_take_event_id(std::string_view value, lyn_watch_request_t *request) {
  request->event_id = lyn_watch_number(value);
  return true;
}

static constexpr struct {
  std::string_view name;
  bool (*take)(std::string_view value, lyn_watch_request_t *request);
} lyn_watch_request_fields[] = {{"Connection", lyn_watch_take_connection},
                                {"Content-Length", lyn_watch_take_length},
                                {"Transfer-Encoding", lyn_watch_take_coding},
                                {"Last-Event-ID", lyn_watch_take_event_id}};

static bool lyn_watch_read_field(std::string_view line, lyn_watch_request_t *request,
                                 std::optional<std::string> *host) {
  const size_t colon = line.find(':');
  if (colon == std::string_view::npos || !lyn_watch_is_token(line.substr(0, colon))) {
    return false;
  }
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = lyn_watch_trim(line.substr(colon + 1));
  if (lyn_watch_equal(name, "Host")) {
    return !std::exchange(*host, std::string(value)).has_value() && lyn_watch_is_field_value(value);
  }
  for (const auto &field : lyn_watch_request_fields) {
    if (lyn_watch_equal(name, field.name) && !field.take(value, request)) {
      return false;
    }
  }
  return lyn_watch_is_field_value(value);
}

/* The head */

size_t lyn_watch_request_end(std::string_view text) {
  for (size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n', end + 1)) {
    for (const std::string_view empty_line : {"\r\n", "\n"}) {
      if (text.substr(end + 1).starts_with(empty_line)) {
        return end + 1 + empty_line.size();
      }
    }
  }
  return std::string_view::npos;
}

lyn_watch_status_e lyn_watch_request_read(std::string_view head, lyn_watch_request_t *request) {
  std::string_view rest = head;
  const lyn_watch_status_e status = lyn_watch_read_request_line(lyn_watch_next(&rest, "\r\n"), request);
  if (status != LYN_WATCH_OK) {
    return status;
  }
  std::optional<std::string> host;
  while (rest != "\r\n") {
    if (!lyn_watch_read_field(lyn_watch_next(&rest, "\r\n"), request, &host)) {
      return LYN_WATCH_BAD_REQUEST;
    }
  }
  if (!host && !request->http_1_0) {
    return LYN_WATCH_BAD_REQUEST;
  }
  request->host = request->host ? request->host : host;
  return LYN_WATCH_OK;
}

/* Who is meant */

// "name:80", "10.0.0.1" and "[::1]:80" without port and brackets; "": it is no host.
static std::string lyn_watch_host_without_port(const std::string &host) {
  const bool brackets = host.starts_with('[');
  const size_t end = brackets ? host.find(']') : std::min(host.find(':'), host.size());
  if (end == std::string::npos) {
    return "";
  }
  const std::string_view rest = std::string_view(host).substr(brackets ? end + 1 : end);
  const bool port = rest.starts_with(':') && std::ranges::all_of(rest.substr(1), lyn_watch_is_digit);
  return rest.empty() || port ? host.substr(brackets ? 1 : 0, end - (brackets ? 1 : 0)) : "";
}

bool lyn_watch_request_accepts(const std::string &host, const std::string &own_name, const std::string &given_address) {
  const std::string name = lyn_watch_host_without_port(host);
  if (name.empty()) {
    return false;
  }
  in6_addr address;
  if (host.starts_with('[')) {
    return inet_pton(AF_INET6, name.c_str(), &address) == 1;
  }
  return inet_pton(AF_INET, name.c_str(), &address) == 1 || lyn_watch_equal(name, "localhost") ||
         lyn_watch_equal(name, own_name) || lyn_watch_equal(name, given_address);
}
