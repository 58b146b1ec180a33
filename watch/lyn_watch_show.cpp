/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_show.h"

#include <langinfo.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>

using std::chrono::duration_cast;
using std::chrono::seconds;

/* Values */

const char *lyn_watch_radio_label(lyn_watch_radio_e radio) {
  static constexpr const char *labels[] = {"LTE", "NR 5G", ""};
  return labels[radio];
}

template <typename... Args>
static std::string lyn_watch_format(const char *format, Args... args) {
  char text[64];
  snprintf(text, sizeof(text), format, args...);
  return text;
}

std::string lyn_watch_show_number(const lyn_watch_item_t &item, double number) {
  return item.scale == 1 ? lyn_watch_format("%.0f", number) : lyn_watch_format("%.1f", number * item.scale);
}

template <typename List, typename Show>
static std::string lyn_watch_join(const List &list, const char *between, Show show) {
  std::string text;
  for (const auto &element : list) {
    text += text.empty() ? "" : between;
    text += show(element);
  }
  return text;
}

// Neighbours that are equal are counted: 2x64QAM.
static std::string lyn_watch_show_texts(const std::vector<std::string> &texts) {
  std::string shown;
  for (auto text = texts.begin(); text != texts.end();) {
    const auto end = std::find_if(text, texts.end(), [text](const std::string &other) { return other != *text; });
    shown += shown.empty() ? "" : " ";
    shown += end - text == 1 ? *text : std::to_string(end - text) + "x" + *text;
    text = end;
  }
  return shown;
}

/** One overload for each type that a value can have. */
struct lyn_watch_shower_t {
  const lyn_watch_item_t &item;
  const char *prefix;

  std::string operator()(std::monostate) const { return LYN_WATCH_DASH; }
  std::string operator()(bool flag) const { return flag ? "yes" : "no"; }
  std::string operator()(int64_t number) const { return lyn_watch_show_number(item, static_cast<double>(number)); }
  std::string operator()(double number) const { return prefix + lyn_watch_format("%.8g", number); }
  std::string operator()(const std::string &text) const { return text; }
  std::string operator()(const std::vector<double> &numbers) const { return lyn_watch_join(numbers, "/", *this); }
  std::string operator()(const std::vector<int64_t> &numbers) const { return lyn_watch_join(numbers, "/", *this); }
  std::string operator()(const std::vector<std::string> &texts) const { return lyn_watch_show_texts(texts); }
  std::string operator()(const lyn_watch_cqi_t &carriers) const { return lyn_watch_join(carriers, " ", *this); }
};

std::string lyn_watch_show_value(lyn_watch_key_t key, const lyn_watch_value_t &value, bool unit) {
  const lyn_watch_item_t &item = lyn_watch_items[key.item];
  const std::string text = std::visit(lyn_watch_shower_t{.item = item, .prefix = item.prefix[key.radio]}, value);
  return unit && *item.shown != '\0' && lyn_watch_measured(value) ? text + " " + item.shown : text;
}

std::string lyn_watch_show_age(std::chrono::steady_clock::duration age) {
  static constexpr struct {
    int64_t length;  // s
    char unit;
  } units[] = {{1, 's'}, {60, 'm'}, {3600, 'h'}};
  const int64_t length = std::max<int64_t>(duration_cast<seconds>(age).count(), 0);
  for (const auto &row : units) {
    if (length < 100 * row.length) {
      return std::to_string(length / row.length) + row.unit;
    }
  }
  return std::to_string(length / 86400) + "d";
}

std::string lyn_watch_show_amount(double amount) {
  static constexpr const char *powers[] = {"", "k", "M", "G", "T", "P"};
  size_t power = 0;
  // From 999.5 on three digits would show 1000.
  for (; amount >= 999.5 && power + 1 < std::size(powers); ++power) {
    amount /= 1000;
  }
  const int decimals = power == 0 || amount >= 99.95 ? 0 : amount >= 9.995 ? 1 : 2;
  return lyn_watch_format("%.*f%s", decimals, amount, powers[power]);
}

std::string lyn_watch_show_clock(lyn_watch_utc_t time) {
  const time_t second = std::chrono::system_clock::to_time_t(time);
  tm parts = {};
  localtime_r(&second, &parts);
  return lyn_watch_format("%02d:%02d:%02d", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

/* What fits */

bool lyn_watch_utf8_locale() {
  return strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

static std::wstring lyn_watch_decode(const std::string &text) {
  std::wstring wide;
  for (const char c : lyn_watch_utf8(text)) {
    const auto octet = static_cast<unsigned char>(c);
    if ((octet & 0xC0) == 0x80) {
      wide.back() = wide.back() << 6 | (octet & 0x3F);
    } else {
      wide += static_cast<wchar_t>(octet < 0x80   ? octet
                                   : octet < 0xE0 ? octet & 0x1F
                                   : octet < 0xF0 ? octet & 0x0F
                                                  : octet & 0x07);
    }
  }
  return wide;
}

// U+200B to U+200F, U+202A to U+202E, U+2060 to U+206F: nothing to see, but they change how the rest is laid out.
static bool lyn_watch_directs(wchar_t c) {
  return (c >= 0x200B && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2060 && c <= 0x206F);
}

static std::wstring lyn_watch_printable(const std::string &text, bool utf8) {
  std::wstring printable;
  for (const wchar_t c : lyn_watch_decode(text)) {
    const bool strange = utf8 ? wcwidth(c) < 0 || lyn_watch_directs(c) : c < 0x20 || c > 0x7E;
    if (strange) {
      printable += utf8 ? L'\uFFFD' : L'?';
    } else if (wcwidth(c) > 0) {
      printable += c;
    }
  }
  return printable;
}

lyn_watch_clipped_t lyn_watch_clip(const std::string &text, int width, bool utf8) {
  lyn_watch_clipped_t clipped = {.text = lyn_watch_printable(text, utf8), .width = 0};
  for (const wchar_t c : clipped.text) {
    clipped.width += wcwidth(c);
  }
  if (clipped.width <= width) {
    return clipped;
  }
  // Room for the mark.
  while (!clipped.text.empty() && clipped.width > width - 1) {
    clipped.width -= wcwidth(clipped.text.back());
    clipped.text.pop_back();
  }
  if (width > 0) {
    clipped.text += utf8 ? L'\u2026' : L'~';
    ++clipped.width;
  }
  return clipped;
}

/* What happened */

// Whether it comes again and again: a measurement, whose history is kept as well.
static std::optional<lyn_watch_key_t> lyn_watch_measures(const lyn_watch_event_t &event) {
  if (event.kind->item == nullptr || event.fields.empty()) {
    return {};
  }
  const lyn_watch_key_t key = lyn_watch_key(event.kind->radio, event.kind->item);
  return lyn_watch_items[key.item].history ? std::optional(key) : std::nullopt;
}

static std::string lyn_watch_show_field(const lyn_watch_field_t &field) {
  static const lyn_watch_item_t plain = {.name = "", .label = "", .help = "", .of = {}};
  const std::string value = std::visit(lyn_watch_shower_t{.item = plain, .prefix = ""}, field.second);
  return strcmp(field.first, "value") == 0 ? value : std::string(field.first) + "=" + value;
}

static void lyn_watch_line_put(lyn_watch_line_t *line, lyn_watch_key_t key, std::string value) {
  const auto behind = [](const auto &entry, lyn_watch_key_t other) {
    return std::tie(entry.first.radio, entry.first.item) < std::tie(other.radio, other.item);
  };
  auto place = std::lower_bound(line->values.begin(), line->values.end(), key, behind);
  if (place == line->values.end() || key < place->first || place->first < key) {
    place = line->values.insert(place, {key, {}});
  }
  place->second = std::move(value);
}

static bool lyn_watch_line_is_routine(const lyn_watch_event_kind_t *kind) {
  return kind == nullptr || kind->record_type == OX_LYN_RECORD_ASYNC_E;
}

// The line at the end that an event goes into: one of its kind where nothing rare came since, else a new one.
static lyn_watch_line_t *lyn_watch_news_last(lyn_watch_news_t *news, const lyn_watch_event_kind_t *kind) {
  std::deque<lyn_watch_line_t> &all = news->lines;
  auto line = all.rbegin();
  while (line != all.rend() && line->kind != kind && lyn_watch_line_is_routine(line->kind)) {
    ++line;
  }
  if (lyn_watch_line_is_routine(kind) && line != all.rend() && line->kind == kind) {
    std::rotate(all.rbegin(), line, std::next(line));
  } else {
    all.push_back({.time = {}, .kind = kind, .text = {}, .values = {}});
  }
  return &all.back();
}

static void lyn_watch_news_add(lyn_watch_news_t *news, const lyn_watch_event_t &event) {
  const std::optional<lyn_watch_key_t> key = lyn_watch_measures(event);
  lyn_watch_line_t *line = lyn_watch_news_last(news, key ? nullptr : event.kind);
  line->time = event.time;
  if (key) {
    lyn_watch_line_put(line, *key, lyn_watch_show_value(*key, event.fields.front().second, false));
  } else {
    line->text = lyn_watch_join(event.fields, " ", lyn_watch_show_field);
    line->text = lyn_watch_format("%-19s ", event.kind->name) + line->text;
  }
  if (news->lines.size() > LYN_WATCH_EVENTS) {
    news->lines.pop_front();
  }
}

void lyn_watch_news_follow(lyn_watch_news_t *news, lyn_watch_model_t *model) {
  for (const lyn_watch_event_t &event : lyn_watch_model_events(model, news->last, SIZE_MAX).events) {
    lyn_watch_news_add(news, event);
    news->last = event.id;
  }
}

std::string lyn_watch_show_line(const lyn_watch_line_t &line) {
  std::string text = lyn_watch_show_clock(line.time) + "  " + line.text;
  std::optional<lyn_watch_radio_e> radio;
  for (const auto &[key, value] : line.values) {
    if (radio != key.radio) {
      text += radio ? "  " : "";
      text += lyn_watch_radio_label(key.radio);
      radio = key.radio;
    }
    text += std::string(" ") + lyn_watch_items[key.item].label + " " + value;
  }
  return text;
}
