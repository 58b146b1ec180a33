/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_lines.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string_view>
#include <system_error>

#include "lyn_watch_json.h"

using std::chrono::seconds;
using std::chrono::steady_clock;

// How long a snapshot waits for its interval's reading: a quarter of the interval, and no longer than this.
static constexpr lyn_watch_ms_t LYN_WATCH_GRACE = seconds(1);

// How often somebody who waits looks whether there is still a reader, or whether the model has ended.
static constexpr lyn_watch_ms_t LYN_WATCH_READER_LOOK = seconds(1);
static constexpr lyn_watch_ms_t LYN_WATCH_END_LOOK = lyn_watch_ms_t(200);

// For one snapshot: until the modem is there, until all items were read, until what was sent is answered.
static constexpr lyn_watch_ms_t LYN_WATCH_MODEM_PATIENCE = seconds(10);
static constexpr lyn_watch_ms_t LYN_WATCH_READ_PATIENCE = seconds(10);
static constexpr lyn_watch_ms_t LYN_WATCH_SENT_PATIENCE = seconds(60);

enum { LYN_WATCH_LINES_AT_ONCE = 64 };

struct lyn_watch_lines_t {
  lyn_watch_model_t *model;
  int fd;
  int error = 0;      // of the write that failed
  uint64_t last = 0;  // id of the last event that was written
};

/* Writing */

// A reader that does not read must not hold up the end, so that nobody is ever inside a write that blocks: a pipe that
// is ready takes PIPE_BUF octets. false: the model has ended, and there is no room.
static bool lyn_watch_lines_await_room(const lyn_watch_lines_t &lines) {
  for (;;) {
    const bool ended = lyn_watch_model_ended(lines.model);
    pollfd output = {.fd = lines.fd, .events = POLLOUT, .revents = 0};
    const int ready = poll(&output, 1, ended ? 0 : static_cast<int>(LYN_WATCH_END_LOOK.count()));
    if (ready > 0 || lines.fd < 0) {
      return true;
    }
    if (ended) {
      return false;
    }
  }
}

// As many whole lines as are written in one piece, or a piece of a line that is longer.
static std::string_view lyn_watch_lines_piece(std::string_view text) {
  if (text.size() <= PIPE_BUF) {
    return text;
  }
  const size_t end = text.rfind('\n', PIPE_BUF - 1);
  return text.substr(0, end == std::string_view::npos ? PIPE_BUF : end + 1);
}

// false: nothing can be written any more, or need be.
static bool lyn_watch_lines_write(lyn_watch_lines_t *lines, std::string_view text) {
  while (!text.empty()) {
    if (!lyn_watch_lines_await_room(*lines)) {
      return false;
    }
    const std::string_view piece = lyn_watch_lines_piece(text);
    const ssize_t count = write(lines->fd, piece.data(), piece.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<size_t>(count));
    } else if (errno != EAGAIN && errno != EINTR) {
      lines->error = errno;
      return false;
    }
  }
  return true;
}

static bool lyn_watch_lines_has_reader(const lyn_watch_lines_t &lines) {
  pollfd output = {.fd = lines.fd, .events = 0, .revents = 0};
  return poll(&output, 1, 0) <= 0 || (output.revents & POLLERR) == 0;
}

// All that happened up to the picture.
static bool lyn_watch_lines_write_events(lyn_watch_lines_t *lines, const lyn_watch_picture_t &picture) {
  while (lines->last < picture.last_event) {
    const lyn_watch_events_t found = lyn_watch_model_events(
        lines->model, lines->last, std::min<uint64_t>(picture.last_event - lines->last, LYN_WATCH_LINES_AT_ONCE));
    std::string text;
    if (found.missed != 0) {
      text += lyn_watch_json_missed(picture, found.missed) + '\n';
    }
    for (const lyn_watch_event_t &event : found.events) {
      text += lyn_watch_json_event(picture.board, event) + '\n';
      lines->last = event.id;
    }
    if (!lyn_watch_lines_write(lines, text)) {
      return false;
    }
  }
  return true;
}

static lyn_watch_lines_end_e lyn_watch_lines_end(const lyn_watch_lines_t &lines) {
  if (lines.error == 0 || lines.error == EPIPE) {
    return LYN_WATCH_LINES_DONE;
  }
  fprintf(stderr, "lyn_watch: standard output: %s\n", std::generic_category().message(lines.error).c_str());
  return LYN_WATCH_LINES_FAILED;
}

/* A snapshot every interval */

static lyn_watch_time_t lyn_watch_intervals_due(const lyn_watch_intervals_t &intervals) {
  return intervals.origin + intervals.next * intervals.every;
}

lyn_watch_time_t lyn_watch_intervals_latest(const lyn_watch_intervals_t &intervals) {
  return lyn_watch_intervals_due(intervals) + std::min(intervals.every / 4, LYN_WATCH_GRACE);
}

bool lyn_watch_intervals_take(lyn_watch_intervals_t *intervals, const lyn_watch_picture_t &picture) {
  if (picture.begin != lyn_watch_time_t() && picture.begin != intervals->origin) {
    intervals->origin = picture.begin;
    intervals->next = 0;
  }
  const bool read = picture.readings != intervals->readings;
  intervals->readings = picture.readings;
  if (picture.now < (read ? lyn_watch_intervals_due(*intervals) : lyn_watch_intervals_latest(*intervals))) {
    return false;
  }
  intervals->next = (picture.now - intervals->origin) / intervals->every + 1;
  return true;
}

// false: the model has ended.
static bool lyn_watch_lines_wait(const lyn_watch_lines_t &lines, const lyn_watch_intervals_t &intervals) {
  const lyn_watch_time_t look = steady_clock::now() + LYN_WATCH_READER_LOOK;
  return lyn_watch_model_wait(lines.model, lines.last, intervals.readings,
                              std::min(lyn_watch_intervals_latest(intervals), look));
}

lyn_watch_lines_end_e lyn_watch_lines_run(lyn_watch_model_t *model, lyn_watch_ms_t every, int fd) {
  lyn_watch_lines_t lines = {.model = model, .fd = fd};
  lyn_watch_intervals_t intervals = {.every = every, .origin = steady_clock::now()};
  for (bool going = true; going;) {
    going = lyn_watch_lines_wait(lines, intervals);
    const lyn_watch_picture_t picture = lyn_watch_model_picture(model, steady_clock::now());
    // Events first, so that records are in the order of their times.
    if (!lyn_watch_lines_write_events(&lines, picture)) {
      break;
    }
    if (going && lyn_watch_intervals_take(&intervals, picture) &&
        !lyn_watch_lines_write(&lines, lyn_watch_json_snapshot(picture) + '\n')) {
      break;
    }
    going = going && lyn_watch_lines_has_reader(lines);
  }
  return lyn_watch_lines_end(lines);
}

/* One snapshot */

// The first picture that is `good`, or the last one before `patience` is over or the model ends.
static lyn_watch_picture_t lyn_watch_lines_await(lyn_watch_model_t *model, lyn_watch_ms_t patience,
                                                 bool (*good)(const lyn_watch_picture_t &picture)) {
  const lyn_watch_time_t until = steady_clock::now() + patience;
  for (;;) {
    const uint64_t changes = lyn_watch_model_changes(model);
    lyn_watch_picture_t picture = lyn_watch_model_picture(model, steady_clock::now());
    if (good(picture) || picture.now >= until || !lyn_watch_model_wait_change(model, changes, until)) {
      return picture;
    }
  }
}

// Whether something was sent that is not answered yet.
static bool lyn_watch_lines_is_asked(const lyn_watch_picture_t &picture) {
  return picture.scanning || picture.locating;
}

lyn_watch_lines_end_e lyn_watch_lines_once(lyn_watch_model_t *model, int fd) {
  static constexpr struct {
    lyn_watch_ms_t patience;
    bool (*good)(const lyn_watch_picture_t &picture);
  } steps[] = {
      {LYN_WATCH_MODEM_PATIENCE, [](const lyn_watch_picture_t &picture) { return picture.state == LYN_WATCH_UP; }},
      {LYN_WATCH_READ_PATIENCE, [](const lyn_watch_picture_t &picture) { return picture.read; }},
      {LYN_WATCH_SENT_PATIENCE, [](const lyn_watch_picture_t &picture) { return !lyn_watch_lines_is_asked(picture); }},
  };
  lyn_watch_picture_t picture;
  for (const auto &step : steps) {
    picture = lyn_watch_lines_await(model, step.patience, step.good);
    if (picture.state != LYN_WATCH_UP) {
      break;
    }
  }
  if (lyn_watch_model_ended(model)) {
    return LYN_WATCH_LINES_DONE;
  }
  if (picture.state != LYN_WATCH_UP) {
    return LYN_WATCH_LINES_NO_MODEM;
  }
  lyn_watch_lines_t lines = {.model = model, .fd = fd};
  lyn_watch_lines_write(&lines, lyn_watch_json_snapshot(picture) + '\n');
  return lyn_watch_lines_end(lines);
}
