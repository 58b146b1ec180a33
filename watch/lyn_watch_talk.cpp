/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_talk.h"

#include <httplib.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <utility>

#include "lyn_watch_json.h"
#include "lyn_watch_metrics.h"
#include "lyn_watch_page.h"
#include "lyn_watch_request.h"

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// How often a stream without events looks whether anybody is there; events at most in one piece.
static constexpr milliseconds LYN_WATCH_LOOK = seconds(1);
static constexpr size_t LYN_WATCH_PIECE = 64;

static constexpr const char *const lyn_watch_text_type = "text/plain; charset=utf-8";

// Every answer has them. A page may run and load what this server has, and nothing else, and be shown in nothing.
static constexpr struct {
  const char *name;
  const char *value;
} lyn_watch_talk_headers[] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; connect-src 'self'; img-src data:; base-uri 'none'; "
     "form-action 'none'; frame-ancestors 'none'"},
    {"X-Content-Type-Options", "nosniff"},
    {"Referrer-Policy", "no-referrer"},
    {"Cache-Control", "no-store"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
};

static constexpr struct {
  lyn_watch_status_e status;
  const char *text;
} lyn_watch_talk_refusals[] = {
    {LYN_WATCH_BAD_REQUEST, "This is no HTTP request.\n"},
    {LYN_WATCH_NOT_FOUND, "There is nothing here.\n"},
    {LYN_WATCH_METHOD_NOT_ALLOWED, "This can be read, and nothing else.\n"},
    {LYN_WATCH_REQUEST_TIMEOUT, "The request took too long.\n"},
    {LYN_WATCH_CONTENT_TOO_LARGE, "A request may have no body.\n"},
    {LYN_WATCH_URI_TOO_LONG, "The request target is too long.\n"},
    {LYN_WATCH_MISDIRECTED, "This host is not served here: use an address or the board's own name.\n"},
    {LYN_WATCH_HEAD_TOO_LARGE, "The request head is too large.\n"},
    {LYN_WATCH_UNAVAILABLE, "Too many clients; try again later.\n"},
};

static const char *lyn_watch_refusal(lyn_watch_status_e status) {
  return std::ranges::find(lyn_watch_talk_refusals, status, [](const auto &row) { return row.status; })->text;
}

/* One connection */

// What the library reads is a head of ours, and what it writes goes out, in time or not at all.
class lyn_watch_stream_t : public httplib::Stream {
 public:
  lyn_watch_stream_t(lyn_watch_wire_t *wire, milliseconds patience) : wire_(wire), patience_(patience) {}

  void give(std::string head) {
    head_ = std::move(head);
    hurry();
  }

  // Something was not taken: where the next answer would begin is not certain any more.
  bool broken() const { return broken_; }

  // What is written from here on has its own time.
  void hurry() { until_ = steady_clock::now() + patience_; }

  bool is_readable() const override { return !head_.empty(); }
  bool is_writable() const override { return !wire_->gone(); }
  ssize_t read(char *data, size_t size) override {
    const size_t count = head_.copy(data, size);
    head_.erase(0, count);
    return static_cast<ssize_t>(count);
  }
  ssize_t write(const char *data, size_t size) override {
    broken_ = broken_ || !wire_->write(data, size, until_);
    return broken_ ? -1 : static_cast<ssize_t>(size);
  }
  void get_remote_ip_and_port(std::string &, int &) const override {}
  void get_local_ip_and_port(std::string &, int &) const override {}
  socket_t socket() const override { return -1; }

 private:
  lyn_watch_wire_t *wire_;
  milliseconds patience_;
  lyn_watch_time_t until_{};
  bool broken_ = false;
  std::string head_;
};

// What the last snapshot of a stream told of; once it is another, a new one is due.
struct lyn_watch_progress_t {
  uint64_t readings;
  lyn_watch_state_e state;
  bool read;

  bool operator==(const lyn_watch_progress_t &) const = default;
};

// A server of the library's with one connection. The library is given only heads that are known to be good, written
// anew: its own reading takes ranges, bodies, codings and expressions of any length.
class lyn_watch_talk_t : public httplib::Server {
 public:
  lyn_watch_talk_t(lyn_watch_model_t *model, const lyn_watch_http_plan_t &plan, lyn_watch_wire_t *wire)
      : model_(model), plan_(plan), wire_(wire), stream_(wire, plan.answer) {
    svr_sock_ = 0;  // what the library takes for a server that runs
    set_default_headers(default_headers());
    set_pre_routing_handler([this](const httplib::Request &, httplib::Response &response) {
      answer(&response);
      return HandlerResponse::Handled;
    });
    set_post_routing_handler([this](const httplib::Request &, httplib::Response &response) { finish(&response); });
  }

  // false: the connection is to end.
  bool take_request();

  void answer_metrics(httplib::Response *response);
  void answer_snapshot(httplib::Response *response);
  void answer_history(httplib::Response *response);
  void answer_events(httplib::Response *response);
  void answer_health(httplib::Response *response);

 private:
  // nothing: the connection has ended, or was idle too long
  std::optional<lyn_watch_status_e> read_head();
  lyn_watch_status_e judge() const;
  void answer(httplib::Response *response);
  void finish(httplib::Response *response) const;
  bool send_events(httplib::DataSink *sink);
  std::string take_snapshot();
  std::string take_events();
  bool send_piece(httplib::DataSink *sink, const std::string &piece);
  static httplib::Headers default_headers();
  lyn_watch_picture_t picture() { return lyn_watch_model_picture(model_, steady_clock::now()); }

  lyn_watch_model_t *model_;
  const lyn_watch_http_plan_t &plan_;
  lyn_watch_wire_t *wire_;
  lyn_watch_stream_t stream_;
  std::string given_;  // read and not yet used
  lyn_watch_request_t request_;
  lyn_watch_status_e status_ = LYN_WATCH_OK;
  uint64_t sent_ = 0;       // id of the last event that was sent
  bool snapshots_ = false;  // the stream has them, too
  std::optional<lyn_watch_progress_t> shown_;
  bool ended_ = false;
  lyn_watch_time_t heartbeat_{};
};

static constexpr struct lyn_watch_route_t {
  const char *path;
  void (lyn_watch_talk_t::*answer)(httplib::Response *response);
} lyn_watch_routes[] = {
    {"/metrics", &lyn_watch_talk_t::answer_metrics},     {"/api/snapshot", &lyn_watch_talk_t::answer_snapshot},
    {"/api/history", &lyn_watch_talk_t::answer_history}, {"/api/events", &lyn_watch_talk_t::answer_events},
    {"/health", &lyn_watch_talk_t::answer_health},
};

// Null: it may be a file of the page.
static const lyn_watch_route_t *lyn_watch_find_route(std::string_view path) {
  const auto found = std::ranges::find(lyn_watch_routes, path, &lyn_watch_route_t::path);
  return found == std::end(lyn_watch_routes) ? nullptr : &*found;
}

httplib::Headers lyn_watch_talk_t::default_headers() {
  httplib::Headers headers;
  for (const auto &header : lyn_watch_talk_headers) {
    headers.emplace(header.name, header.value);
  }
  return headers;
}

/* Requests */

std::optional<lyn_watch_status_e> lyn_watch_talk_t::read_head() {
  lyn_watch_time_t until = steady_clock::now() + (given_.empty() ? plan_.idle : plan_.head);
  size_t end = 0;
  while ((end = lyn_watch_request_end(given_)) == std::string::npos) {
    if (given_.size() == LYN_WATCH_HEAD_SIZE) {
      return given_.find('\n') == std::string::npos ? LYN_WATCH_URI_TOO_LONG : LYN_WATCH_HEAD_TOO_LARGE;
    }
    char data[2048];
    const ssize_t count = wire_->read(data, std::min(sizeof(data), LYN_WATCH_HEAD_SIZE - given_.size()), until);
    if (count <= 0) {
      return given_.empty() ? std::nullopt
                            : std::optional(count == 0 ? LYN_WATCH_BAD_REQUEST : LYN_WATCH_REQUEST_TIMEOUT);
    }
    until = given_.empty() ? steady_clock::now() + plan_.head : until;
    given_.append(data, static_cast<size_t>(count));
  }
  const lyn_watch_status_e status = lyn_watch_request_read(std::string_view(given_).substr(0, end), &request_);
  given_.erase(0, end);
  return status;
}

// What a well-formed request is answered with.
lyn_watch_status_e lyn_watch_talk_t::judge() const {
  static constexpr std::string_view methods[] = {"GET", "HEAD"};
  if (request_.host && !lyn_watch_request_accepts(*request_.host, plan_.machine, plan_.address)) {
    return LYN_WATCH_MISDIRECTED;
  }
  if (lyn_watch_find_route(request_.path) == nullptr && lyn_watch_page_file(request_.path) == nullptr) {
    return LYN_WATCH_NOT_FOUND;
  }
  if (std::ranges::find(methods, request_.method) == std::end(methods)) {
    return LYN_WATCH_METHOD_NOT_ALLOWED;
  }
  return request_.body ? LYN_WATCH_CONTENT_TOO_LARGE : LYN_WATCH_OK;
}

bool lyn_watch_talk_t::take_request() {
  request_ = {};
  const std::optional<lyn_watch_status_e> status = read_head();
  if (!status) {
    return false;
  }
  status_ = *status == LYN_WATCH_OK ? judge() : *status;
  // A connection is good for more only while it is certain where the next request begins.
  request_.last |= request_.body || (status_ != LYN_WATCH_OK && status_ != LYN_WATCH_NOT_FOUND &&
                                     status_ != LYN_WATCH_METHOD_NOT_ALLOWED);
  stream_.give((request_.method == "HEAD" ? "HEAD" : "GET") + std::string(" / HTTP/1.1\r\n\r\n"));
  bool closed = false;
  return process_request(stream_, request_.last, closed, nullptr) && !stream_.broken() && !request_.last;
}

/* Answers */

void lyn_watch_talk_t::answer(httplib::Response *response) {
  response->status = status_;
  if (status_ == LYN_WATCH_OK) {
    if (const lyn_watch_page_file_t *file = lyn_watch_page_file(request_.path); file != nullptr) {
      response->set_content(file->content.data(), file->content.size(), std::string(file->type));
    } else {
      (this->*lyn_watch_find_route(request_.path)->answer)(response);
    }
    return;
  }
  response->set_content(lyn_watch_refusal(status_), lyn_watch_text_type);
  if (status_ == LYN_WATCH_METHOD_NOT_ALLOWED) {
    response->set_header("Allow", "GET, HEAD");
  }
}

// The library tells of its own limits, which are not ours, and of ranges, which nothing here has.
void lyn_watch_talk_t::finish(httplib::Response *response) const {
  for (const char *name : {"Keep-Alive", "Accept-Ranges", "Connection"}) {
    response->headers.erase(name);
  }
  if (request_.last) {
    response->set_header("Connection", "close");
  }
}

void lyn_watch_talk_t::answer_metrics(httplib::Response *response) {
  response->set_content(lyn_watch_metrics_text(picture()), lyn_watch_metrics_type);
}

void lyn_watch_talk_t::answer_snapshot(httplib::Response *response) {
  response->set_content(lyn_watch_json_snapshot(picture()), "application/json");
}

void lyn_watch_talk_t::answer_history(httplib::Response *response) {
  response->set_content(lyn_watch_json_history(model_, picture()), "application/json");
}

void lyn_watch_talk_t::answer_health(httplib::Response *response) {
  const lyn_watch_picture_t now = picture();
  const bool up = now.state == LYN_WATCH_UP;
  nlohmann::ordered_json health = {{"up", up}, {"state", lyn_watch_state_name(now.state)}};
  if (now.answered != lyn_watch_time_t{}) {
    health["age_seconds"] = std::max(0.0, std::chrono::duration<double>(now.now - now.answered).count());
  }
  response->status = up ? LYN_WATCH_OK : LYN_WATCH_UNAVAILABLE;
  response->set_content(health.dump(), "application/json");
}

/* Events */

void lyn_watch_talk_t::answer_events(httplib::Response *response) {
  const bool known = request_.event_id && *request_.event_id <= picture().last_event;
  sent_ = known ? *request_.event_id : lyn_watch_model_recent(model_);
  snapshots_ = request_.query == "snapshots";
  heartbeat_ = steady_clock::now() + plan_.heartbeat;
  request_.last = true;  // the answer ends with the connection
  response->set_content_provider("text/event-stream",
                                 [this](size_t, httplib::DataSink &sink) { return send_events(&sink); });
}

// A record by its type, so that who follows need not know every event there is.
static std::string lyn_watch_stream_record(const char *type, const std::string &record) {
  return std::string("event: ") + type + "\ndata: " + record + "\n\n";
}

static std::string lyn_watch_stream_events(const lyn_watch_picture_t &picture, const lyn_watch_events_t &found,
                                           uint64_t after) {
  const auto id = [](uint64_t number) { return "id: " + std::to_string(number) + "\n"; };
  std::string piece;
  if (found.missed != 0) {
    piece += id(after + found.missed) + lyn_watch_stream_record("missed", lyn_watch_json_missed(picture, found.missed));
  }
  for (const lyn_watch_event_t &event : found.events) {
    piece += id(event.id) + lyn_watch_stream_record("event", lyn_watch_json_event(picture.board, event));
  }
  return piece;
}

// Empty: none is due. What was read after the modem came back is not left to the next interval.
std::string lyn_watch_talk_t::take_snapshot() {
  if (!snapshots_) {
    return "";
  }
  const lyn_watch_picture_t now = picture();
  const lyn_watch_progress_t progress = {.readings = now.readings, .state = now.state, .read = now.read};
  return std::exchange(shown_, progress) == progress
             ? ""
             : lyn_watch_stream_record("snapshot", lyn_watch_json_snapshot(now));
}

std::string lyn_watch_talk_t::take_events() {
  const lyn_watch_events_t found = lyn_watch_model_events(model_, sent_, LYN_WATCH_PIECE);
  if (found.events.empty()) {
    return "";
  }
  const uint64_t after = std::exchange(sent_, found.events.back().id);
  return lyn_watch_stream_events(picture(), found, after);
}

bool lyn_watch_talk_t::send_piece(httplib::DataSink *sink, const std::string &piece) {
  heartbeat_ = steady_clock::now() + plan_.heartbeat;
  stream_.hurry();
  return sink->write(piece.data(), piece.size());
}

// One piece, or a wait for it; called again until the stream is done. false: nobody takes it.
bool lyn_watch_talk_t::send_events(httplib::DataSink *sink) {
  const uint64_t changes = lyn_watch_model_changes(model_);
  if (const std::string piece = take_snapshot() + take_events(); !piece.empty()) {
    return send_piece(sink, piece);
  }
  if (ended_) {
    sink->done();
    return true;
  }
  const lyn_watch_time_t now = steady_clock::now();
  if (now >= heartbeat_) {
    return send_piece(sink, ":\n\n");
  }
  if (!sink->is_writable()) {
    return false;
  }
  ended_ = !lyn_watch_model_wait_change(model_, changes, std::min(heartbeat_, now + LYN_WATCH_LOOK));
  return true;
}

/* Connections */

void lyn_watch_talk(lyn_watch_model_t *model, const lyn_watch_http_plan_t &plan, lyn_watch_wire_t *wire) {
  lyn_watch_talk_t talk(model, plan, wire);
  while (talk.take_request()) {
  }
}

std::string lyn_watch_talk_refusal() {
  const std::string body = lyn_watch_refusal(LYN_WATCH_UNAVAILABLE);
  std::string text = "HTTP/1.1 503 Service Unavailable\r\nConnection: close\r\nRetry-After: 15\r\n";
  for (const auto &header : lyn_watch_talk_headers) {
    text += std::string(header.name) + ": " + header.value + "\r\n";
  }
  return text + "Content-Type: " + lyn_watch_text_type + "\r\nContent-Length: " + std::to_string(body.size()) +
         "\r\n\r\n" + body;
}
