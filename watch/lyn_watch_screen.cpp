/* SPDX-License-Identifier: Apache-2.0 */
// A frame is drawn from a copy of the model, whole and from above; ncurses sends what differs from the frame before.
// How many lines a section has follows from the terminal's size alone, so that nothing moves when values come and go.
#include "lyn_watch_screen.h"

// Else their macros take names from everybody.
#define NCURSES_NOMACROS
#include <curses.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <map>
#include <numeric>
#include <span>
#include <string_view>
#include <utility>

#include "lyn_watch_plot.h"
#include "lyn_watch_show.h"
#include "lyn_watch_terminal.h"

using std::chrono::duration_cast;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

enum { LYN_WATCH_LEAST_COLUMNS = 80, LYN_WATCH_LEAST_LINES = 24 };

// How long the first frame waits for values; and the least between two frames.
static constexpr milliseconds LYN_WATCH_FIRST_FRAME = milliseconds(500);
static constexpr milliseconds LYN_WATCH_FRAME = milliseconds(200);

// A plot shows at least so many dB or dBm, so that noise does not look like a cliff.
static constexpr double LYN_WATCH_PLOT_SPAN = 4;

/** What a frame shows. */
struct lyn_watch_view_t {
  lyn_watch_picture_t picture;
  std::map<lyn_watch_key_t, std::vector<std::optional<lyn_watch_bucket_t>>> history;
  lyn_watch_news_t events;
};

/** Lines of the sections, and where they begin. */
struct lyn_watch_layout_t {
  int panel;                                           // columns of one of two panels side by side
  int item_columns;                                    // in a panel
  int plot_lines;                                      // of one plot
  int signals, items, neighbours, data, events, keys;  // where they begin
};

struct lyn_watch_screen_t {
  lyn_watch_model_t *model;
  lyn_watch_screen_plan_t plan;
  bool utf8;
  lyn_watch_view_t view{};
  lyn_watch_layout_t layout{};
  bool paused = false;
  bool help = false;
  bool over = false;
  bool stale = true;  // what is on the screen is not what it should be
  uint64_t changes = 0;
  time_t second = 0;  // of the last frame
  lyn_watch_time_t drawn{};
};

/* Styles: each can be told without colours */

enum lyn_watch_style_e {
  LYN_WATCH_PLAIN,
  LYN_WATCH_TITLE,
  LYN_WATCH_HEADING,
  LYN_WATCH_VALUE,
  LYN_WATCH_OLD,
  LYN_WATCH_PLOT,
  LYN_WATCH_ALARM,
  LYN_WATCH_STYLES
};

static constexpr struct {
  lyn_watch_style_e style;
  attr_t attributes;
  short colour;  // -1: the terminal's
} lyn_watch_styles[] = {
    {LYN_WATCH_PLAIN, A_NORMAL, -1},
    {LYN_WATCH_TITLE, A_REVERSE, -1},
    {LYN_WATCH_HEADING, A_BOLD | A_UNDERLINE, COLOR_CYAN},
    {LYN_WATCH_VALUE, A_BOLD, -1},
    {LYN_WATCH_OLD, A_DIM, -1},
    {LYN_WATCH_PLOT, A_NORMAL, COLOR_GREEN},
    {LYN_WATCH_ALARM, A_BOLD | A_REVERSE, COLOR_RED},
};
static_assert(std::size(lyn_watch_styles) == LYN_WATCH_STYLES);

static void lyn_watch_screen_init_styles() {
  if (!lyn_watch_terminal_has_colours()) {
    return;
  }
  start_color();
  use_default_colors();
  for (const auto &row : lyn_watch_styles) {
    if (row.colour >= 0) {
      init_pair(row.style, row.colour, -1);
    }
  }
}

static void lyn_watch_screen_use(lyn_watch_style_e style) {
  const auto &row = lyn_watch_styles[style];
  const bool colour = row.colour >= 0 && lyn_watch_terminal_has_colours();
  attr_set(row.attributes, static_cast<short>(colour ? row.style : LYN_WATCH_PLAIN), nullptr);
}

/* Places and what stands there */

struct lyn_watch_place_t {
  int line;
  int column;
  int width;
};

enum lyn_watch_side_e { LYN_WATCH_LEFT, LYN_WATCH_RIGHT };

// The whole place is drawn, so that a style without letters shows as well.
static void lyn_watch_screen_put(const lyn_watch_screen_t &screen, lyn_watch_place_t place, const std::string &text,
                                 lyn_watch_style_e style, lyn_watch_side_e side = LYN_WATCH_LEFT) {
  const lyn_watch_clipped_t clipped = lyn_watch_clip(text, place.width, screen.utf8);
  const std::wstring blanks(static_cast<size_t>(std::max(place.width - clipped.width, 0)), L' ');
  const std::wstring all = side == LYN_WATCH_LEFT ? clipped.text + blanks : blanks + clipped.text;
  lyn_watch_screen_use(style);
  mvaddnwstr(place.line, place.column, all.c_str(), static_cast<int>(all.size()));
}

/** A column of a table: its heading, and how wide it is. */
struct lyn_watch_column_t {
  const char *heading;
  int width;
  lyn_watch_side_e side;
};

static void lyn_watch_screen_put_row(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                     std::span<const lyn_watch_column_t> columns, std::span<const std::string> texts,
                                     lyn_watch_style_e style) {
  const int end = place.column + place.width;
  for (size_t i = 0; i < columns.size(); ++i) {
    // The last one has the rest of the line.
    const int width = i + 1 == columns.size() ? end - place.column : columns[i].width;
    lyn_watch_screen_put(screen, {place.line, place.column, width}, texts[i], style, columns[i].side);
    place.column += width;
  }
}

static void lyn_watch_screen_put_headings(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                          std::span<const lyn_watch_column_t> columns) {
  std::vector<std::string> texts;
  for (const lyn_watch_column_t &column : columns) {
    texts.emplace_back(column.heading);
  }
  lyn_watch_screen_put_row(screen, place, columns, texts, LYN_WATCH_HEADING);
}

// The panel of a radio, from a line on.
static lyn_watch_place_t lyn_watch_screen_panel(const lyn_watch_screen_t &screen, lyn_watch_radio_e radio, int line) {
  const int panel = screen.layout.panel;
  return {.line = line, .column = radio == LYN_WATCH_LTE ? 0 : COLS - panel, .width = panel};
}

/* What is old */

// How old what is shown is; none: as old as may be.
static std::optional<std::string> lyn_watch_screen_age(const lyn_watch_screen_t &screen, lyn_watch_time_t at) {
  const auto age = screen.view.picture.now - at;
  return age > 2 * screen.view.picture.every + seconds(3) ? std::optional(lyn_watch_show_age(age)) : std::nullopt;
}

// The age takes the end of the place, whatever the value leaves of it.
static void lyn_watch_screen_put_old(const lyn_watch_screen_t &screen, lyn_watch_place_t place, const std::string &text,
                                     const std::string &age) {
  const int width = static_cast<int>(age.size()) + 1;
  lyn_watch_screen_put(screen, {place.line, place.column, place.width - width}, text, LYN_WATCH_OLD);
  lyn_watch_screen_put(screen, {place.line, place.column + place.width - width, width}, age, LYN_WATCH_OLD,
                       LYN_WATCH_RIGHT);
}

/* Title */

static const char *lyn_watch_screen_state(lyn_watch_state_e state) {
  switch (state) {
    case LYN_WATCH_STARTING:
      return "starting";
    case LYN_WATCH_DOWN:
      return "modem down";
    case LYN_WATCH_UP:
      return "modem up";
  }
  return "";
}

static std::string lyn_watch_screen_answer(const lyn_watch_picture_t &picture) {
  if (picture.answered == lyn_watch_time_t()) {
    return "no answer yet";
  }
  return "answer " + lyn_watch_show_age(picture.now - picture.answered) + " old";
}

static void lyn_watch_screen_draw_title(const lyn_watch_screen_t &screen) {
  const lyn_watch_picture_t &picture = screen.view.picture;
  std::vector<std::pair<int, std::string>> texts = {{10, lyn_watch_screen_state(picture.state)}};
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    if (key.radio == LYN_WATCH_BOARD) {
      texts.emplace_back(16, lyn_watch_show_value(key, picture.items[key.item][key.radio].value, true));
    }
  }
  texts.emplace_back(14, lyn_watch_screen_answer(picture));
  texts.emplace_back(8, lyn_watch_show_clock(picture.time));
  lyn_watch_screen_put(screen, {0, 0, COLS}, "", LYN_WATCH_TITLE);
  int end = COLS - 1;
  for (auto text = texts.rbegin(); text != texts.rend(); ++text) {
    lyn_watch_screen_put(screen, {0, end - text->first, text->first}, text->second, LYN_WATCH_TITLE);
    end -= text->first + 2;
  }
  lyn_watch_screen_put(screen, {0, 1, end - 1}, "lyn_watch  " + picture.board, LYN_WATCH_TITLE);
}

/* Signals: what has a history */

static constexpr lyn_watch_column_t lyn_watch_signal_columns[] = {
    {"", 8, LYN_WATCH_LEFT},       {"now", 6, LYN_WATCH_RIGHT},   {"", 4, LYN_WATCH_RIGHT},
    {"best", 6, LYN_WATCH_RIGHT},  {"worst", 6, LYN_WATCH_RIGHT}, {"", 1, LYN_WATCH_LEFT},
    {"10 min", 0, LYN_WATCH_LEFT},
};
// Behind all others.
static constexpr int LYN_WATCH_PLOT_COLUMN =
    std::accumulate(std::begin(lyn_watch_signal_columns), std::end(lyn_watch_signal_columns), 0,
                    [](int sum, const lyn_watch_column_t &column) { return sum + column.width; });

static lyn_watch_plot_t lyn_watch_screen_scale(const lyn_watch_item_t &item, const lyn_watch_bucket_t &extremes) {
  const double span = LYN_WATCH_PLOT_SPAN / item.scale;
  const double lacking = std::max(span - (extremes.most - extremes.least), 0.0);
  return {.width = 0,
          .height = 0,
          .braille = false,
          .least = extremes.least - lacking / 2,
          .most = extremes.most + lacking / 2};
}

static void lyn_watch_screen_draw_plot(const lyn_watch_screen_t &screen, lyn_watch_place_t place, lyn_watch_key_t key,
                                       const lyn_watch_bucket_t &extremes) {
  lyn_watch_plot_t plot = lyn_watch_screen_scale(lyn_watch_items[key.item], extremes);
  plot.width = static_cast<size_t>(place.width);
  plot.height = static_cast<size_t>(screen.layout.plot_lines);
  plot.braille = screen.utf8;
  const auto newest = duration_cast<seconds>(screen.view.picture.now.time_since_epoch()).count();
  for (const std::string &line : lyn_watch_plot(plot, screen.view.history.at(key), newest)) {
    lyn_watch_screen_put(screen, place, line, LYN_WATCH_PLOT);
    ++place.line;
  }
}

// The value, and its unit or, where it is old, its age.
static void lyn_watch_screen_draw_now(const lyn_watch_screen_t &screen, lyn_watch_place_t place, lyn_watch_key_t key) {
  const lyn_watch_reading_t &reading = screen.view.picture.items[key.item][key.radio];
  const bool measured = lyn_watch_measured(reading.value);
  const auto age = measured ? lyn_watch_screen_age(screen, reading.at) : std::nullopt;
  const lyn_watch_style_e style = age ? LYN_WATCH_OLD : measured ? LYN_WATCH_VALUE : LYN_WATCH_PLAIN;
  const lyn_watch_item_t &item = lyn_watch_items[key.item];
  lyn_watch_screen_put(screen, {place.line, place.column, 8}, item.label, LYN_WATCH_PLAIN);
  lyn_watch_screen_put(screen, {place.line, place.column + 8, 6}, lyn_watch_show_value(key, reading.value, false),
                       style, LYN_WATCH_RIGHT);
  lyn_watch_screen_put(screen, {place.line, place.column + 15, 3}, age.value_or(item.shown),
                       age ? LYN_WATCH_OLD : LYN_WATCH_PLAIN);
}

static void lyn_watch_screen_draw_signal(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                         lyn_watch_key_t key) {
  lyn_watch_screen_draw_now(screen, place, key);
  const lyn_watch_item_t &item = lyn_watch_items[key.item];
  const auto extremes = lyn_watch_plot_extremes(screen.view.history.at(key));
  std::string ends[] = {LYN_WATCH_DASH, LYN_WATCH_DASH};
  if (extremes) {
    ends[0] = lyn_watch_show_number(item, item.less_is_best ? extremes->least : extremes->most);
    ends[1] = lyn_watch_show_number(item, item.less_is_best ? extremes->most : extremes->least);
  }
  lyn_watch_screen_put(screen, {place.line, place.column + 18, 6}, ends[0], LYN_WATCH_PLAIN, LYN_WATCH_RIGHT);
  lyn_watch_screen_put(screen, {place.line, place.column + 24, 6}, ends[1], LYN_WATCH_PLAIN, LYN_WATCH_RIGHT);
  if (extremes) {
    place.column += LYN_WATCH_PLOT_COLUMN;
    place.width -= LYN_WATCH_PLOT_COLUMN;
    lyn_watch_screen_draw_plot(screen, place, key, *extremes);
  }
}

// One line, or as many as a plot has, for each item; a radio that does not have it leaves its half empty.
static void lyn_watch_screen_draw_signals(const lyn_watch_screen_t &screen) {
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    const lyn_watch_place_t place = lyn_watch_screen_panel(screen, radio, screen.layout.signals);
    lyn_watch_screen_put_headings(screen, place, lyn_watch_signal_columns);
    lyn_watch_screen_put(screen, {place.line, place.column, 8}, lyn_watch_radio_label(radio), LYN_WATCH_HEADING);
  }
  int line = screen.layout.signals + 1;
  for (auto signal = screen.view.history.begin(); signal != screen.view.history.end(); ++signal) {
    const lyn_watch_key_t &key = signal->first;
    lyn_watch_screen_draw_signal(screen, lyn_watch_screen_panel(screen, key.radio, line), key);
    const auto next = std::next(signal);
    line += next != screen.view.history.end() && next->first.item != key.item ? screen.layout.plot_lines : 0;
  }
}

/* Items: all others */

static std::vector<lyn_watch_key_t> lyn_watch_screen_items(lyn_watch_radio_e radio) {
  std::vector<lyn_watch_key_t> items;
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    if (key.radio == radio && !lyn_watch_items[key.item].history) {
      items.push_back(key);
    }
  }
  return items;
}

static void lyn_watch_screen_draw_item(const lyn_watch_screen_t &screen, lyn_watch_place_t place, lyn_watch_key_t key) {
  const lyn_watch_reading_t &reading = screen.view.picture.items[key.item][key.radio];
  const std::string text = lyn_watch_show_value(key, reading.value, true);
  const bool measured = lyn_watch_measured(reading.value);
  if (const auto age = measured ? lyn_watch_screen_age(screen, reading.at) : std::nullopt) {
    lyn_watch_screen_put_old(screen, place, text, *age);
  } else {
    lyn_watch_screen_put(screen, place, text, measured ? LYN_WATCH_VALUE : LYN_WATCH_PLAIN);
  }
}

// One column of items, their values one below the other.
static void lyn_watch_screen_draw_column(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                         std::span<const lyn_watch_key_t> items) {
  int label = 0;
  for (const lyn_watch_key_t &key : items) {
    label = std::max(label, static_cast<int>(strlen(lyn_watch_items[key.item].label)) + 1);
  }
  for (const lyn_watch_key_t &key : items) {
    lyn_watch_screen_put(screen, {place.line, place.column, label}, lyn_watch_items[key.item].label, LYN_WATCH_PLAIN);
    lyn_watch_screen_draw_item(screen, {place.line, place.column + label, place.width - label}, key);
    ++place.line;
  }
}

static void lyn_watch_screen_draw_items(const lyn_watch_screen_t &screen) {
  const lyn_watch_layout_t &layout = screen.layout;
  const auto lines = static_cast<size_t>(layout.neighbours - layout.items);
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    const std::vector<lyn_watch_key_t> items = lyn_watch_screen_items(radio);
    lyn_watch_place_t place = lyn_watch_screen_panel(screen, radio, layout.items);
    const int column = place.column;
    for (int i = 0; i < layout.item_columns; ++i) {
      const size_t first = std::min(static_cast<size_t>(i) * lines, items.size());
      place.column = column + (layout.panel + 1) * i / layout.item_columns;
      // A blank between a column and the next.
      place.width = column + (layout.panel + 1) * (i + 1) / layout.item_columns - place.column - 1;
      lyn_watch_screen_draw_column(screen, place,
                                   std::span(items).subspan(first, std::min(lines, items.size() - first)));
    }
  }
}

/* Neighbours */

static constexpr lyn_watch_column_t lyn_watch_neighbour_columns[] = {
    {"Neighbours", 10, LYN_WATCH_LEFT}, {"chan", 6, LYN_WATCH_RIGHT}, {"PCI", 5, LYN_WATCH_RIGHT},
    {"RSRP", 5, LYN_WATCH_RIGHT},       {"RSRQ", 5, LYN_WATCH_RIGHT}, {"", 1, LYN_WATCH_LEFT},
    {"PLMN", 0, LYN_WATCH_LEFT},
};

static std::string lyn_watch_screen_optional(const std::optional<int64_t> &number) {
  return number ? std::to_string(*number) : LYN_WATCH_DASH;
}

static std::string lyn_watch_screen_plmns(const std::vector<std::string> &plmns) {
  std::string text;
  for (const std::string &plmn : plmns) {
    text += (text.empty() ? "" : " ") + plmn;
  }
  return text.empty() ? LYN_WATCH_DASH : text;
}

// What the first lines say of the scan: how old it is, and how many cells there are where not all have room.
static std::string lyn_watch_screen_caption(const lyn_watch_screen_t &screen, const lyn_watch_neighbours_t &neighbours,
                                            int line, int lines) {
  if (line == 0 && screen.view.picture.scanning) {
    return "scanning";
  }
  if (line == 0 && neighbours.at != lyn_watch_time_t()) {
    return lyn_watch_show_age(screen.view.picture.now - neighbours.at) + " old";
  }
  if (line == 1 && neighbours.at != lyn_watch_time_t() && neighbours.cells.empty()) {
    return "nobody";
  }
  const bool more = neighbours.cells.size() > static_cast<size_t>(lines);
  return line == 1 && more ? std::to_string(lines) + " of " + std::to_string(neighbours.cells.size()) : "";
}

static void lyn_watch_screen_draw_neighbour(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                            const std::string &caption, const lyn_watch_neighbour_t *cell) {
  lyn_watch_screen_put(screen, place, caption, LYN_WATCH_PLAIN);
  if (cell == nullptr) {
    return;
  }
  // A channel may take some of the caption's room.
  const std::string channel = std::to_string(cell->channel);
  const std::string texts[] = {caption,
                               channel,
                               std::to_string(cell->pci),
                               lyn_watch_screen_optional(cell->rsrp),
                               lyn_watch_screen_optional(cell->rsrq),
                               "",
                               lyn_watch_screen_plmns(cell->plmns)};
  lyn_watch_column_t columns[std::size(lyn_watch_neighbour_columns)];
  std::ranges::copy(lyn_watch_neighbour_columns, columns);
  columns[0].width = 8;
  columns[1].width = 8;
  lyn_watch_screen_put_row(screen, place, columns, texts, LYN_WATCH_PLAIN);
}

// The strongest first; those that were not measured keep their order behind them.
static std::vector<lyn_watch_neighbour_t> lyn_watch_screen_sorted(std::vector<lyn_watch_neighbour_t> cells) {
  std::ranges::stable_sort(cells, [](const auto &a, const auto &b) { return a.rsrp > b.rsrp; });
  return cells;
}

static void lyn_watch_screen_draw_neighbours(const lyn_watch_screen_t &screen) {
  const int lines = screen.layout.data - screen.layout.neighbours - 1;
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    const lyn_watch_neighbours_t &neighbours = screen.view.picture.neighbours[radio];
    const std::vector<lyn_watch_neighbour_t> cells = lyn_watch_screen_sorted(neighbours.cells);
    lyn_watch_place_t place = lyn_watch_screen_panel(screen, radio, screen.layout.neighbours);
    lyn_watch_screen_put_headings(screen, place, lyn_watch_neighbour_columns);
    for (int i = 0; i < lines; ++i) {
      const auto at = static_cast<size_t>(i);
      ++place.line;
      std::string caption = lyn_watch_screen_caption(screen, neighbours, i, lines);
      caption = i == 0 && caption.empty() ? LYN_WATCH_DASH : caption;
      lyn_watch_screen_draw_neighbour(screen, place, caption, at < cells.size() ? &cells[at] : nullptr);
    }
  }
}

/* Data path and location */

static constexpr lyn_watch_column_t lyn_watch_data_columns[] = {
    {"Data path", 11, LYN_WATCH_LEFT}, {"rx b/s", 7, LYN_WATCH_RIGHT}, {"tx b/s", 7, LYN_WATCH_RIGHT},
    {"rx B", 7, LYN_WATCH_RIGHT},      {"tx B", 0, LYN_WATCH_RIGHT},
};

// Wider, numbers would stand too far from the names.
static constexpr int LYN_WATCH_DATA_WIDTH = 64;

// The sum over IP families of what is known; a dash where none is.
template <typename Get>
static std::string lyn_watch_screen_sum(const lyn_watch_profile_t &profile, Get get) {
  std::optional<double> sum;
  for (const std::optional<lyn_watch_traffic_t> &traffic : profile.traffic) {
    const std::optional<double> part = traffic ? get(*traffic) : std::nullopt;
    sum = part ? sum.value_or(0) + *part : sum;
  }
  return sum ? lyn_watch_show_amount(*sum) : LYN_WATCH_DASH;
}

static std::optional<double> lyn_watch_screen_bits(const std::optional<double> &octets) {
  return octets ? std::optional(*octets * 8) : std::nullopt;
}

static void lyn_watch_screen_draw_profile(const lyn_watch_screen_t &screen, lyn_watch_place_t place,
                                          std::span<const lyn_watch_column_t> columns,
                                          const lyn_watch_profile_t &profile, lyn_watch_style_e style) {
  using lyn_watch_number_t = std::optional<double>;
  const std::string texts[] = {
      std::to_string(profile.index) + " " + (profile.apn.empty() ? LYN_WATCH_DASH : profile.apn),
      lyn_watch_screen_sum(profile, [](const auto &traffic) { return lyn_watch_screen_bits(traffic.rx_rate); }),
      lyn_watch_screen_sum(profile, [](const auto &traffic) { return lyn_watch_screen_bits(traffic.tx_rate); }),
      lyn_watch_screen_sum(profile, [](const auto &traffic) { return lyn_watch_number_t(traffic.stats.bytes_rx); }),
      lyn_watch_screen_sum(profile, [](const auto &traffic) { return lyn_watch_number_t(traffic.stats.bytes_tx); })};
  lyn_watch_screen_put_row(screen, place, columns, texts, style);
}

static void lyn_watch_screen_draw_data(const lyn_watch_screen_t &screen) {
  const std::vector<lyn_watch_profile_t> &profiles = screen.view.picture.profiles;
  lyn_watch_place_t place = lyn_watch_screen_panel(screen, LYN_WATCH_LTE, screen.layout.data);
  lyn_watch_column_t columns[std::size(lyn_watch_data_columns)];
  std::ranges::copy(lyn_watch_data_columns, columns);
  lyn_watch_screen_put(screen, place, "", LYN_WATCH_HEADING);
  place.width = std::min(place.width, LYN_WATCH_DATA_WIDTH);
  columns[0].width += place.width - (LYN_WATCH_LEAST_COLUMNS - 2) / 2;
  const auto age = lyn_watch_screen_age(screen, lyn_watch_picture_counted(screen.view.picture));
  const std::string heading = age ? "Data " + *age : columns[0].heading;
  columns[0].heading = heading.c_str();
  lyn_watch_screen_put_headings(screen, place, columns);
  const auto lines = static_cast<size_t>(screen.layout.events - screen.layout.data - 1);
  ++place.line;
  if (profiles.empty()) {
    lyn_watch_screen_put(screen, place, LYN_WATCH_DASH, LYN_WATCH_PLAIN);
  }
  for (size_t i = 0; i < std::min(lines, profiles.size()); ++i) {
    lyn_watch_screen_draw_profile(screen, place, columns, profiles[i], age ? LYN_WATCH_OLD : LYN_WATCH_PLAIN);
    ++place.line;
  }
}

// A member of a location, with its unit; a dash where it is not known.
static std::string lyn_watch_screen_member(const lyn_watch_screen_t &screen, uint32_t flag, const char *format,
                                           double number) {
  const auto &location = screen.view.picture.location;
  if (!location || (location->location.flags & flag) == 0) {
    return LYN_WATCH_DASH;
  }
  char text[32];
  snprintf(text, sizeof(text), format, number);
  return text;
}

static void lyn_watch_screen_draw_location(const lyn_watch_screen_t &screen) {
  const lyn_watch_picture_t &picture = screen.view.picture;
  const ox_lyn_location_t location = picture.location ? picture.location->location : ox_lyn_location_t{};
  const std::string age = picture.location ? lyn_watch_show_age(picture.now - picture.location->at) + " old" : "";
  lyn_watch_place_t place = lyn_watch_screen_panel(screen, LYN_WATCH_NR5G, screen.layout.data);
  lyn_watch_screen_put(screen, place, "Location", LYN_WATCH_HEADING);
  lyn_watch_screen_put(screen, {place.line, place.column + 18, 21}, age, LYN_WATCH_HEADING, LYN_WATCH_RIGHT);
  const struct {
    const char *label;
    uint32_t flag;
    const char *format;
    double number;
  } rows[] = {{"Latitude", OX_LYN_LOC_FLAG_LAT_LONG_E, "%.6f", location.latitude},
              {"Longitude", OX_LYN_LOC_FLAG_LAT_LONG_E, "%.6f", location.longitude},
              {"Alt", OX_LYN_LOC_FLAG_ALTITUDE_E, "%.0f m", location.altitude},
              {"Speed", OX_LYN_LOC_FLAG_SPEED_E, "%.1f m/s", location.speed}};
  for (size_t i = 0; i < std::size(rows); ++i) {
    const int column = place.column + (i < 2 ? 0 : 22);
    const int line = place.line + 1 + static_cast<int>(i % 2);
    lyn_watch_screen_put(screen, {line, column, 10}, rows[i].label, LYN_WATCH_PLAIN);
    lyn_watch_screen_put(screen, {line, column + (i < 2 ? 10 : 6), 11},
                         lyn_watch_screen_member(screen, rows[i].flag, rows[i].format, rows[i].number), LYN_WATCH_PLAIN,
                         LYN_WATCH_RIGHT);
  }
}

/* What happened, and the keys */

static void lyn_watch_screen_draw_events(const lyn_watch_screen_t &screen) {
  lyn_watch_screen_put(screen, {screen.layout.events, 0, COLS}, "Events", LYN_WATCH_HEADING);
  const std::deque<lyn_watch_line_t> &lines = screen.view.events.lines;
  const auto room = static_cast<size_t>(screen.layout.keys - screen.layout.events - 1);
  int line = screen.layout.events + 1;
  if (lines.empty()) {
    lyn_watch_screen_put(screen, {line, 0, COLS}, LYN_WATCH_DASH, LYN_WATCH_PLAIN);
  }
  for (size_t i = lines.size() - std::min(room, lines.size()); i < lines.size(); ++i) {
    lyn_watch_screen_put(screen, {line, 0, COLS}, lyn_watch_show_line(lines[i]), LYN_WATCH_PLAIN);
    ++line;
  }
}

static void lyn_watch_screen_toggle_help(lyn_watch_screen_t *screen) {
  screen->help = !screen->help;
}

static void lyn_watch_screen_toggle_pause(lyn_watch_screen_t *screen) {
  screen->paused = !screen->paused;
}

static void lyn_watch_screen_scan(lyn_watch_screen_t *screen) {
  screen->plan.scan();
}

static void lyn_watch_screen_quit(lyn_watch_screen_t *screen) {
  screen->over = true;
}

static constexpr struct {
  const char *keys;
  const char *name;
  const char *help;
  void (*act)(lyn_watch_screen_t *screen);
} lyn_watch_actions[] = {
    {"h?", "h help", "h ?      this help, and the picture again", lyn_watch_screen_toggle_help},
    {"p ", "p pause", "p blank  the picture stands still, reading goes on; and on again",
     lyn_watch_screen_toggle_pause},
    {"s", "s scan", "s        scan for neighbours", lyn_watch_screen_scan},
    {"q", "q quit", "q        quit, as Ctrl-C does", lyn_watch_screen_quit},
};

static void lyn_watch_screen_draw_keys(const lyn_watch_screen_t &screen) {
  const lyn_watch_picture_t &picture = screen.view.picture;
  std::string names;
  for (const auto &action : lyn_watch_actions) {
    names += (names.empty() ? " " : "   ") + std::string(action.name);
  }
  lyn_watch_screen_put(screen, {screen.layout.keys, 0, COLS}, names, LYN_WATCH_TITLE);
  const std::string doing = std::string(picture.scanning ? "scanning  " : "") + (picture.locating ? "locating  " : "");
  const std::string &right = doing.empty() ? screen.plan.address : doing;
  lyn_watch_screen_put(screen, {screen.layout.keys, 44, COLS - 53}, right, LYN_WATCH_TITLE, LYN_WATCH_RIGHT);
  if (screen.paused) {
    lyn_watch_screen_put(screen, {screen.layout.keys, COLS - 9, 8}, " PAUSED", LYN_WATCH_ALARM);
  }
}

/* What covers the picture */

static constexpr const char *lyn_watch_help[] = {
    "",
    "-        was not measured",
    "12s      dim, behind a value or in its unit's place: it is as old",
    "best     and worst of the last ten minutes, which the plot shows; its",
    "         newest is on the right, its height is from worst to best",
    "chan     EARFCN or NR-ARFCN; 2 of 5: as many neighbours have room",
    "b/s  B   bits a second and bytes of IPv4 and IPv6, k M G a thousand each",
};

static void lyn_watch_screen_draw_help(const lyn_watch_screen_t &screen) {
  std::vector<std::string> texts = {""};
  for (const auto &action : lyn_watch_actions) {
    texts.emplace_back(action.help);
  }
  texts.insert(texts.end(), std::begin(lyn_watch_help), std::end(lyn_watch_help));
  texts.emplace_back("");
  lyn_watch_place_t place = {
      .line = (LINES - static_cast<int>(texts.size())) / 2, .column = (COLS - 76) / 2, .width = 76};
  for (const std::string &text : texts) {
    lyn_watch_screen_put(screen, place, "  " + text, LYN_WATCH_TITLE);
    ++place.line;
  }
}

/** A letter of five lines, the upper first; the left column is the highest of five bits. */
struct lyn_watch_letter_t {
  char letter;
  unsigned char lines[5];
};
static constexpr lyn_watch_letter_t lyn_watch_letters[] = {
    {' ', {0x00, 0x00, 0x00, 0x00, 0x00}}, {'A', {0x0E, 0x11, 0x1F, 0x11, 0x11}}, {'D', {0x1E, 0x11, 0x11, 0x11, 0x1E}},
    {'E', {0x1F, 0x10, 0x1E, 0x10, 0x1F}}, {'G', {0x0F, 0x10, 0x13, 0x11, 0x0F}}, {'I', {0x0E, 0x04, 0x04, 0x04, 0x0E}},
    {'M', {0x11, 0x1B, 0x15, 0x11, 0x11}}, {'N', {0x11, 0x19, 0x15, 0x13, 0x11}}, {'O', {0x0E, 0x11, 0x11, 0x11, 0x0E}},
    {'R', {0x1E, 0x11, 0x1E, 0x12, 0x11}}, {'S', {0x0F, 0x10, 0x0E, 0x01, 0x1E}}, {'T', {0x1F, 0x04, 0x04, 0x04, 0x04}},
    {'W', {0x11, 0x11, 0x15, 0x1B, 0x11}},
};

static void lyn_watch_screen_draw_letter(const lyn_watch_screen_t &screen, int line, int column, char letter) {
  const auto *found = std::ranges::find(lyn_watch_letters, letter, &lyn_watch_letter_t::letter);
  for (int i = 0; i < 5; ++i) {
    for (int bit = 0; bit < 5; ++bit) {
      const bool set = (found->lines[i] >> (4 - bit) & 1) != 0;
      lyn_watch_screen_put(screen, {line + i, column + bit, 1}, "", set ? LYN_WATCH_ALARM : LYN_WATCH_PLAIN);
    }
  }
}

// In letters for the other end of the room, and in a line for everybody.
static void lyn_watch_screen_draw_banner(const lyn_watch_screen_t &screen, std::string_view large,
                                         const std::string &text) {
  const int end = screen.layout.neighbours;
  const int line = end - 8;
  for (int i = line; i < end; ++i) {
    lyn_watch_screen_put(screen, {i, 0, COLS}, "", LYN_WATCH_PLAIN);
  }
  int column = (COLS - static_cast<int>(large.size()) * 7 + 2) / 2;
  for (const char letter : large) {
    lyn_watch_screen_draw_letter(screen, line + 1, column, letter);
    column += 7;
  }
  const int width = static_cast<int>(text.size());
  lyn_watch_screen_put(screen, {end - 1, (COLS - width) / 2, width}, text, LYN_WATCH_VALUE);
}

static void lyn_watch_screen_draw_state(const lyn_watch_screen_t &screen) {
  const lyn_watch_picture_t &picture = screen.view.picture;
  switch (picture.state) {
    case LYN_WATCH_STARTING:
      lyn_watch_screen_draw_banner(screen, "STARTING", "The module starts, or waits for the modem.");
      break;
    case LYN_WATCH_DOWN:
      lyn_watch_screen_draw_banner(screen, "MODEM DOWN", "The modem is gone, refuses or does not answer.");
      break;
    case LYN_WATCH_UP:
      break;
  }
}

/* Frames */

// Lines that the sections share once each has its least: the plots grow first, as all of it is about them.
static lyn_watch_layout_t lyn_watch_screen_lay_out() {
  const auto count = [](lyn_watch_radio_e radio) { return static_cast<int>(lyn_watch_screen_items(radio).size()); };
  const auto histories = static_cast<int>(std::ranges::count_if(lyn_watch_items, &lyn_watch_item_t::history));
  lyn_watch_layout_t layout = {};
  layout.panel = (COLS - 2) / 2;
  layout.item_columns = std::max(2, layout.panel / 33);
  const int items =
      (std::max(count(LYN_WATCH_LTE), count(LYN_WATCH_NR5G)) + layout.item_columns - 1) / layout.item_columns;
  // Title, keys, four headings, and the least of each section.
  const int spare = std::max(LINES - 6 - histories - items - 2 - 2 - 2, 0);
  layout.plot_lines = std::min(1 + spare / 14, 3);
  const int rest = spare - histories * (layout.plot_lines - 1);
  layout.signals = 1;
  layout.items = layout.signals + 1 + histories * layout.plot_lines;
  layout.neighbours = layout.items + items;
  layout.data = layout.neighbours + 1 + 2 + std::min(rest / 3, 8);
  layout.events = layout.data + 1 + 2 + std::min(rest / 6, 4);
  layout.keys = LINES - 1;
  return layout;
}

static void lyn_watch_screen_draw_all(lyn_watch_screen_t *screen) {
  screen->layout = lyn_watch_screen_lay_out();
  lyn_watch_screen_draw_title(*screen);
  lyn_watch_screen_draw_signals(*screen);
  lyn_watch_screen_draw_items(*screen);
  lyn_watch_screen_draw_neighbours(*screen);
  lyn_watch_screen_draw_data(*screen);
  lyn_watch_screen_draw_location(*screen);
  lyn_watch_screen_draw_events(*screen);
  lyn_watch_screen_draw_keys(*screen);
  lyn_watch_screen_draw_state(*screen);
  if (screen->help) {
    lyn_watch_screen_draw_help(*screen);
  }
}

static void lyn_watch_screen_draw(lyn_watch_screen_t *screen) {
  lyn_watch_screen_use(LYN_WATCH_PLAIN);
  werase(stdscr);
  if (COLS < LYN_WATCH_LEAST_COLUMNS || LINES < LYN_WATCH_LEAST_LINES) {
    const std::string text = "lyn_watch needs 80x24, here are " + std::to_string(COLS) + "x" + std::to_string(LINES);
    lyn_watch_screen_put(*screen, {0, 0, COLS}, text, LYN_WATCH_PLAIN);
  } else {
    lyn_watch_screen_draw_all(screen);
  }
  wrefresh(stdscr);
}

static void lyn_watch_screen_look(lyn_watch_screen_t *screen, lyn_watch_time_t now) {
  lyn_watch_view_t *view = &screen->view;
  view->picture = lyn_watch_model_picture(screen->model, now);
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    if (lyn_watch_items[key.item].history) {
      view->history[key] = lyn_watch_model_history(screen->model, key, now);
    }
  }
  lyn_watch_news_follow(&view->events, screen->model);
}

// Draw where there is something new: what was read, a second of the clock, or what a key or the terminal asks for.
static void lyn_watch_screen_keep_up(lyn_watch_screen_t *screen) {
  const lyn_watch_time_t now = steady_clock::now();
  const uint64_t changes = lyn_watch_model_changes(screen->model);
  const time_t second = time(nullptr);
  const bool moves = !screen->paused && now - screen->drawn >= LYN_WATCH_FRAME;
  const bool news = moves && (changes != screen->changes || second != screen->second);
  if ((!news && !screen->stale) || !lyn_watch_terminal_takes_output()) {
    return;
  }
  if (!screen->paused) {
    screen->changes = changes;
    screen->second = second;
    screen->drawn = now;
    lyn_watch_screen_look(screen, now);
  }
  screen->stale = false;
  lyn_watch_screen_draw(screen);
}

static void lyn_watch_screen_heed(lyn_watch_screen_t *screen, const lyn_watch_input_t &input) {
  screen->over |= input.ended;
  screen->stale |= input.redraw;
  for (const auto &action : lyn_watch_actions) {
    if (input.key != '\0' && strchr(action.keys, input.key) != nullptr) {
      action.act(screen);
      screen->stale = true;
    }
  }
}

bool lyn_watch_screen_run(lyn_watch_model_t *model, const lyn_watch_screen_plan_t &plan) {
  lyn_watch_model_wait(model, UINT64_MAX, 0, steady_clock::now() + LYN_WATCH_FIRST_FRAME);
  if (!lyn_watch_terminal_open()) {
    return false;
  }
  lyn_watch_screen_init_styles();
  lyn_watch_screen_t screen = {.model = model, .plan = plan, .utf8 = lyn_watch_utf8_locale()};
  while (!screen.over && !lyn_watch_model_ended(model)) {
    lyn_watch_screen_keep_up(&screen);
    lyn_watch_screen_heed(&screen, lyn_watch_terminal_wait(LYN_WATCH_FRAME));
  }
  lyn_watch_terminal_close();
  return true;
}
