/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_metrics.h"

#include <prometheus/text_serializer.h>

#include <algorithm>
#include <cassert>
#include <iterator>
#include <set>
#include <type_traits>

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

using lyn_watch_labels_t = std::vector<ClientMetric::Label>;
using lyn_watch_families_t = std::vector<MetricFamily>;

/* Families and series */

static MetricFamily lyn_watch_family(const char *name, const char *help, MetricType type = MetricType::Gauge) {
  return {.name = name, .help = help, .type = type, .metric = {}};
}

static lyn_watch_labels_t lyn_watch_radio_labels(lyn_watch_radio_e radio) {
  return radio == LYN_WATCH_BOARD ? lyn_watch_labels_t() : lyn_watch_labels_t{{"radio", lyn_watch_radio_name(radio)}};
}

static lyn_watch_labels_t lyn_watch_with(lyn_watch_labels_t labels, const char *name, std::string value) {
  labels.push_back({name, std::move(value)});
  return labels;
}

// A second series with the same labels would spoil the whole scrape: the first one stands.
static ClientMetric *lyn_watch_add_series(MetricFamily *family, lyn_watch_labels_t labels) {
  if (std::ranges::find(family->metric, labels, &ClientMetric::label) != family->metric.end()) {
    return nullptr;
  }
  family->metric.emplace_back().label = std::move(labels);
  return &family->metric.back();
}

static void lyn_watch_add(MetricFamily *family, lyn_watch_labels_t labels, double value) {
  if (ClientMetric *series = lyn_watch_add_series(family, std::move(labels)); series != nullptr) {
    (family->type == MetricType::Counter ? series->counter.value : series->gauge.value) = value;
  }
}

// A family without series is left out.
static void lyn_watch_keep(lyn_watch_families_t *families, MetricFamily family) {
  if (!family.metric.empty()) {
    families->push_back(std::move(family));
  }
}

static void lyn_watch_keep_one(lyn_watch_families_t *families, MetricFamily family, lyn_watch_labels_t labels,
                               double value) {
  lyn_watch_add(&family, std::move(labels), value);
  lyn_watch_keep(families, std::move(family));
}

/* Items */

// What an item's value becomes, by its kind; `labels` has the radio.
struct lyn_watch_exposer_t {
  const lyn_watch_item_t &item;
  const lyn_watch_labels_t &labels;
  MetricFamily *family;

  // Divided rather than multiplied: 7 tenths are 0.7 then, and not 0.7000000000000001.
  double shown(double number) const { return number / (1 / item.scale); }

  lyn_watch_labels_t with(size_t label, std::string value) const {
    assert(item.exposed.labels[label] != nullptr);
    return lyn_watch_with(labels, item.exposed.labels[label], std::move(value));
  }

  void operator()(std::monostate) const {}
  void operator()(bool flag) const { lyn_watch_add(family, labels, flag ? 1 : 0); }
  void operator()(int64_t number) const { lyn_watch_add(family, labels, shown(static_cast<double>(number))); }
  void operator()(double number) const { lyn_watch_add(family, labels, shown(number)); }

  void operator()(const std::string &text) const {
    for (const char *state : item.exposed.states) {
      lyn_watch_add(family, with(0, state), text == state ? 1 : 0);
    }
    if (item.exposed.states.empty()) {
      lyn_watch_add(family, with(0, text), 1);
    }
  }

  void operator()(const std::vector<double> &numbers) const {
    for (size_t i = 0; i < numbers.size(); ++i) {
      lyn_watch_add(family, with(0, std::to_string(i)), shown(numbers[i]));
    }
  }

  void operator()(const std::vector<std::string> &texts) const {
    for (size_t i = 0; i < texts.size(); ++i) {
      lyn_watch_add(family, lyn_watch_with(with(0, std::to_string(i)), item.exposed.labels[1], texts[i]), 1);
    }
  }

  void operator()(const lyn_watch_cqi_t &carriers) const {
    for (size_t i = 0; i < carriers.size(); ++i) {
      for (size_t codeword = 0; codeword < carriers[i].size(); ++codeword) {
        lyn_watch_add(family,
                      lyn_watch_with(with(0, std::to_string(i)), item.exposed.labels[1], std::to_string(codeword)),
                      static_cast<double>(carriers[i][codeword]));
      }
    }
  }
};

static void lyn_watch_expose_items(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  for (size_t i = 0; i < lyn_watch_items.size(); ++i) {
    const lyn_watch_item_t &item = lyn_watch_items[i];
    if (item.exposed.name == nullptr) {
      continue;
    }
    MetricFamily family = lyn_watch_family(item.exposed.name, item.help);
    for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G, LYN_WATCH_BOARD}) {
      const lyn_watch_labels_t labels = lyn_watch_radio_labels(radio);
      std::visit(lyn_watch_exposer_t{.item = item, .labels = labels, .family = &family}, picture.items[i][radio].value);
    }
    lyn_watch_keep(families, std::move(family));
  }
}

/* The serving cell */

// Numbers and texts identify; "": not measured.
static std::string lyn_watch_identifier(const lyn_watch_value_t &value) {
  if (const auto *number = std::get_if<int64_t>(&value); number != nullptr) {
    return std::to_string(*number);
  }
  const auto *text = std::get_if<std::string>(&value);
  return text == nullptr ? "" : *text;
}

static void lyn_watch_expose_serving_cell(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  MetricFamily family = lyn_watch_family(
      "lyn_serving_cell_info", "What identifies the serving cell; a label is absent where that is not measured.");
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    lyn_watch_labels_t labels = lyn_watch_radio_labels(radio);
    const size_t least = labels.size();
    for (const char *name : {"plmn", "pci", "cgi", "tac", "channel"}) {
      const lyn_watch_key_t key = lyn_watch_key(radio, name);
      std::string identifier = lyn_watch_identifier(picture.items[key.item][key.radio].value);
      if (!identifier.empty()) {
        labels.push_back({name, std::move(identifier)});
      }
    }
    if (labels.size() > least) {
      lyn_watch_add(&family, std::move(labels), 1);
    }
  }
  lyn_watch_keep(families, std::move(family));
}

/* Neighbours */

// How many there are: a scan may list one twice.
static double lyn_watch_count_cells(const std::vector<lyn_watch_neighbour_t> &cells) {
  std::set<std::pair<int64_t, int64_t>> different;
  for (const lyn_watch_neighbour_t &cell : cells) {
    different.emplace(cell.channel, cell.pci);
  }
  return static_cast<double>(different.size());
}

static constexpr struct lyn_watch_neighbour_row_t {
  const char *name;
  const char *help;
  std::optional<int64_t> lyn_watch_neighbour_t::*value;
} lyn_watch_neighbour_rows[] = {
    {"lyn_neighbour_rsrp_dbm", "Reference signal received power of a neighbour cell at the last scan.",
     &lyn_watch_neighbour_t::rsrp},
    {"lyn_neighbour_rsrq_db", "Reference signal received quality of a neighbour cell at the last scan.",
     &lyn_watch_neighbour_t::rsrq},
};

static lyn_watch_labels_t lyn_watch_cell_labels(lyn_watch_radio_e radio, const lyn_watch_neighbour_t &cell) {
  return {{"radio", lyn_watch_radio_name(radio)},
          {"channel", std::to_string(cell.channel)},
          {"pci", std::to_string(cell.pci)}};
}

static void lyn_watch_expose_cells(lyn_watch_radio_e radio, const std::vector<lyn_watch_neighbour_t> &cells,
                                   const lyn_watch_neighbour_row_t &row, MetricFamily *family) {
  for (const lyn_watch_neighbour_t &cell : cells) {
    if (const std::optional<int64_t> value = cell.*row.value; value) {
      lyn_watch_add(family, lyn_watch_cell_labels(radio, cell), static_cast<double>(*value));
    }
  }
}

static void lyn_watch_expose_neighbours(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  MetricFamily count = lyn_watch_family("lyn_neighbours", "Neighbour cells that the last scan found.");
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    if (picture.neighbours[radio].at != lyn_watch_time_t{}) {
      lyn_watch_add(&count, lyn_watch_radio_labels(radio), lyn_watch_count_cells(picture.neighbours[radio].cells));
    }
  }
  lyn_watch_keep(families, std::move(count));

  for (const lyn_watch_neighbour_row_t &row : lyn_watch_neighbour_rows) {
    MetricFamily family = lyn_watch_family(row.name, row.help);
    for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
      lyn_watch_expose_cells(radio, picture.neighbours[radio].cells, row, &family);
    }
    lyn_watch_keep(families, std::move(family));
  }
}

/* The data path */

template <auto Member>
static double lyn_watch_counter(const ox_lyn_wwan_stats_t &stats) {
  return static_cast<double>(stats.*Member);
}

static constexpr struct lyn_watch_traffic_row_t {
  const char *name;
  const char *help;
  double (*value)(const ox_lyn_wwan_stats_t &stats);
} lyn_watch_traffic_rows[] = {
    {"lyn_receive_bytes_total", "Bytes received.", lyn_watch_counter<&ox_lyn_wwan_stats_t::bytes_rx>},
    {"lyn_transmit_bytes_total", "Bytes sent.", lyn_watch_counter<&ox_lyn_wwan_stats_t::bytes_tx>},
    {"lyn_receive_packets_total", "Packets received.", lyn_watch_counter<&ox_lyn_wwan_stats_t::pkts_rx>},
    {"lyn_transmit_packets_total", "Packets sent.", lyn_watch_counter<&ox_lyn_wwan_stats_t::pkts_tx>},
    {"lyn_receive_dropped_packets_total", "Packets dropped on receipt.",
     lyn_watch_counter<&ox_lyn_wwan_stats_t::pkts_dropped_rx>},
    {"lyn_transmit_dropped_packets_total", "Packets dropped instead of sent.",
     lyn_watch_counter<&ox_lyn_wwan_stats_t::pkts_dropped_tx>},
};

static void lyn_watch_expose_profile(const lyn_watch_profile_t &profile, const lyn_watch_traffic_row_t &row,
                                     MetricFamily *family) {
  for (size_t i = 0; i < LYN_WATCH_FAMILIES; ++i) {
    if (profile.traffic[i]) {
      lyn_watch_add(family, {{"profile", std::to_string(profile.index)}, {"family", lyn_watch_families[i]}},
                    row.value(profile.traffic[i]->stats));
    }
  }
}

static void lyn_watch_expose_traffic(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  for (const lyn_watch_traffic_row_t &row : lyn_watch_traffic_rows) {
    MetricFamily family = lyn_watch_family(row.name, row.help, MetricType::Counter);
    for (const lyn_watch_profile_t &profile : picture.profiles) {
      lyn_watch_expose_profile(profile, row, &family);
    }
    lyn_watch_keep(families, std::move(family));
  }
}

/* The location */

template <auto Member>
static double lyn_watch_located(const ox_lyn_location_t &location) {
  return static_cast<double>(location.*Member);
}

static constexpr struct {
  const char *name;
  const char *help;
  uint32_t flag;
  double (*value)(const ox_lyn_location_t &location);
} lyn_watch_location_rows[] = {
    {"lyn_location_latitude_degrees", "Latitude of the last location (WGS 84), north positive.",
     OX_LYN_LOC_FLAG_LAT_LONG_E, lyn_watch_located<&ox_lyn_location_t::latitude>},
    {"lyn_location_longitude_degrees", "Longitude of the last location (WGS 84), east positive.",
     OX_LYN_LOC_FLAG_LAT_LONG_E, lyn_watch_located<&ox_lyn_location_t::longitude>},
    {"lyn_location_speed_meters_per_second", "Speed over ground at the last location.", OX_LYN_LOC_FLAG_SPEED_E,
     lyn_watch_located<&ox_lyn_location_t::speed>},
};

static double lyn_watch_seconds(lyn_watch_time_t from, lyn_watch_time_t to) {
  return std::max(0.0, std::chrono::duration<double>(to - from).count());
}

static void lyn_watch_expose_location(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  if (!picture.location) {
    return;
  }
  for (const auto &row : lyn_watch_location_rows) {
    if ((picture.location->location.flags & row.flag) != 0) {
      lyn_watch_keep_one(families, lyn_watch_family(row.name, row.help), {}, row.value(picture.location->location));
    }
  }
  lyn_watch_keep_one(families, lyn_watch_family("lyn_location_age_seconds", "Time since the last location came."), {},
                     lyn_watch_seconds(picture.location->at, picture.now));
}

/* What is there with and without a modem */

static void lyn_watch_expose_infos(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  const struct {
    const char *name;
    const char *help;
    lyn_watch_labels_t labels;
    double value;
  } rows[] = {{"lyn_up", "Whether the modem answers.", {}, picture.state == LYN_WATCH_UP ? 1.0 : 0.0},
              {"lyn_build_info", "Version of lyn_watch.", {{"version", lyn_watch_version()}}, 1},
              {"lyn_board_info", "Name of the board.", {{"board", picture.board}}, 1}};
  for (const auto &row : rows) {
    lyn_watch_keep_one(families, lyn_watch_family(row.name, row.help), row.labels, row.value);
  }
  if (picture.answered != lyn_watch_time_t{}) {
    lyn_watch_keep_one(families, lyn_watch_family("lyn_reading_age_seconds", "Time since the modem last answered."), {},
                       lyn_watch_seconds(picture.answered, picture.now));
  }
}

static void lyn_watch_expose_cell_changes(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  MetricFamily family =
      lyn_watch_family("lyn_cell_changes_total", "How often the serving cell became another one.", MetricType::Counter);
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    lyn_watch_add(&family, lyn_watch_radio_labels(radio), static_cast<double>(picture.cell_changes[radio]));
  }
  lyn_watch_keep(families, std::move(family));
}

static void lyn_watch_expose_events(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  MetricFamily family =
      lyn_watch_family("lyn_events_total", "Indications and asynchronous answers of the modem.", MetricType::Counter);
  for (size_t i = 0; i < lyn_watch_event_kinds.size(); ++i) {
    lyn_watch_add(&family, {{"indication", lyn_watch_event_kinds[i].name}},
                  static_cast<double>(picture.event_counts[i]));
  }
  lyn_watch_keep(families, std::move(family));
}

// Several statuses may have the name "other".
static void lyn_watch_expose_requests(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  std::map<std::pair<std::string_view, std::string_view>, uint64_t> counts;
  for (const auto &[request, count] : picture.requests) {
    counts[{request.first, lyn_watch_status_name(request.second)}] += count;
  }
  MetricFamily family = lyn_watch_family("lyn_requests_total", "Requests to the module, by what they came back with.",
                                         MetricType::Counter);
  for (const auto &[request, count] : counts) {
    lyn_watch_add(&family, {{"metric", std::string(request.first)}, {"status", std::string(request.second)}},
                  static_cast<double>(count));
  }
  lyn_watch_keep(families, std::move(family));
}

static void lyn_watch_expose_durations(const lyn_watch_picture_t &picture, lyn_watch_families_t *families) {
  MetricFamily family =
      lyn_watch_family("lyn_request_duration_seconds", "How long requests to the module took.", MetricType::Histogram);
  ClientMetric::Histogram *histogram = &lyn_watch_add_series(&family, {})->histogram;
  uint64_t count = 0;
  for (size_t i = 0; i < lyn_watch_duration_bounds.size(); ++i) {
    count += picture.durations.counts[i];
    histogram->bucket.push_back({.cumulative_count = count, .upper_bound = lyn_watch_duration_bounds[i]});
  }
  histogram->sample_count = count + picture.durations.counts.back();
  histogram->sample_sum = picture.durations.sum;
  lyn_watch_keep(families, std::move(family));
}

/* All of it */

lyn_watch_families_t lyn_watch_metrics_families(const lyn_watch_picture_t &picture) {
  lyn_watch_families_t families;
  lyn_watch_expose_infos(picture, &families);
  if (picture.state == LYN_WATCH_UP) {
    lyn_watch_expose_items(picture, &families);
    lyn_watch_expose_serving_cell(picture, &families);
    lyn_watch_expose_neighbours(picture, &families);
    lyn_watch_expose_traffic(picture, &families);
    lyn_watch_expose_location(picture, &families);
  }
  lyn_watch_expose_cell_changes(picture, &families);
  lyn_watch_expose_events(picture, &families);
  lyn_watch_expose_requests(picture, &families);
  lyn_watch_expose_durations(picture, &families);
  return families;
}

std::string lyn_watch_metrics_text(const lyn_watch_picture_t &picture) {
  return prometheus::TextSerializer().Serialize(lyn_watch_metrics_families(picture));
}
