/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Metrics out of pictures: what is measured has its series once, what is not has none. docs/watch.md lists all of them;
 * LYN_DOCS_UPDATE=1 writes them into the document.
 */
#include "lyn_watch_metrics.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "source_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using std::chrono::seconds;

const lyn_watch_time_t long_ago = lyn_watch_time_t(seconds(1000));

lyn_watch_picture_t picture_of(lyn_watch_state_e state) {
  lyn_watch_model_t model;
  lyn_watch_model_init(&model, "bench");
  lyn_watch_model_set_state(&model, state);
  return lyn_watch_model_picture(&model, long_ago);
}

void put(lyn_watch_picture_t *picture, lyn_watch_radio_e radio, const char *name, lyn_watch_value_t value) {
  const lyn_watch_key_t key = lyn_watch_key(radio, name);
  picture->items[key.item][key.radio].value = std::move(value);
}

/** The lines of the text that begin so. */
std::vector<std::string> lines_of(const lyn_watch_picture_t &picture, const std::string &begin) {
  std::vector<std::string> lines;
  std::istringstream text(lyn_watch_metrics_text(picture));
  for (std::string line; std::getline(text, line);) {
    if (line.starts_with(begin)) {
      lines.push_back(line);
    }
  }
  return lines;
}

std::vector<std::string> names_of(const lyn_watch_picture_t &picture) {
  std::vector<std::string> names;
  for (const prometheus::MetricFamily &family : lyn_watch_metrics_families(picture)) {
    names.push_back(family.name);
  }
  return names;
}

/** A value of every kind that items have; of a text with states, one of them. */
lyn_watch_value_t example_of(const lyn_watch_item_t &item) {
  static const std::map<std::string, lyn_watch_value_t> examples = {
      {"registration", std::string("lte")},
      {"rrc", std::string("idle")},
      {"cqi", lyn_watch_cqi_t{{15}}},
      {"dl_modulation", std::vector<std::string>{"QPSK"}},
      {"ul_modulation", std::vector<std::string>{"QPSK"}},
      {"rf_bandwidth", std::vector<double>{1.4}},
      {"endc_available", true},
  };
  const auto found = examples.find(item.name);
  return found == examples.end() ? int64_t{1} : found->second;
}

/** Everything is measured. */
lyn_watch_picture_t full_picture() {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    picture.items[key.item][key.radio].value = example_of(lyn_watch_items[key.item]);
  }
  picture.answered = long_ago;
  picture.neighbours[LYN_WATCH_LTE] = {.cells = {{.channel = 1, .pci = 2, .rsrp = -100, .rsrq = -10}}, .at = long_ago};
  lyn_watch_traffic_t traffic = {};
  picture.profiles = {{.index = 1, .apn = "internet", .traffic = {traffic, traffic}}};
  lyn_watch_location_t found = {.location = {}, .at = long_ago};
  found.location.flags = OX_LYN_LOC_FLAG_LAT_LONG_E | OX_LYN_LOC_FLAG_SPEED_E;
  picture.location = std::make_shared<const lyn_watch_location_t>(found);
  picture.requests[{"registration", OX_LYN_SUCCESS}] = 1;
  return picture;
}

TEST(lyn_watch_metrics, every_item_is_shown_in_its_usual_unit_once_for_each_radio) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  put(&picture, LYN_WATCH_LTE, "rsrp", int64_t{-95});
  put(&picture, LYN_WATCH_NR5G, "rsrp", int64_t{-101});
  put(&picture, LYN_WATCH_LTE, "tx_power", int64_t{-7});
  put(&picture, LYN_WATCH_LTE, "endc_available", false);
  EXPECT_THAT(lines_of(picture, "lyn_rsrp_dbm"),
              ElementsAre("lyn_rsrp_dbm{radio=\"lte\"} -95", "lyn_rsrp_dbm{radio=\"nr5g\"} -101"));
  EXPECT_THAT(lines_of(picture, "lyn_tx_power_dbm"), ElementsAre("lyn_tx_power_dbm{radio=\"lte\"} -0.7"));
  EXPECT_THAT(lines_of(picture, "lyn_endc_available"), ElementsAre("lyn_endc_available{radio=\"lte\"} 0"));
}

TEST(lyn_watch_metrics, tenths_are_what_they_were) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  for (int64_t tenths = -600; tenths <= 600; ++tenths) {
    put(&picture, LYN_WATCH_LTE, "sinr", tenths);
    const std::vector<std::string> lines = lines_of(picture, "lyn_sinr_db");
    ASSERT_EQ(lines.size(), 1u);
    ASSERT_NEAR(std::stod(lines[0].substr(lines[0].find(' '))), static_cast<double>(tenths) / 10, 1e-12);
  }
  put(&picture, LYN_WATCH_LTE, "sinr", int64_t{7});
  EXPECT_THAT(lines_of(picture, "lyn_sinr_db"), ElementsAre("lyn_sinr_db{radio=\"lte\"} 0.7"));
}

TEST(lyn_watch_metrics, an_item_of_the_board_has_no_radio_and_each_state_is_a_series) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  put(&picture, LYN_WATCH_BOARD, "registration", std::string("lte"));
  EXPECT_THAT(lines_of(picture, "lyn_registration{state="),
              ElementsAre("lyn_registration{state=\"no_service\"} 0", "lyn_registration{state=\"power_save\"} 0",
                          "lyn_registration{state=\"limited\"} 0", "lyn_registration{state=\"limited_regional\"} 0",
                          "lyn_registration{state=\"lte\"} 1", "lyn_registration{state=\"lte_nr5g\"} 0",
                          "lyn_registration{state=\"nr5g\"} 0"));
}

TEST(lyn_watch_metrics, elements_of_a_list_are_told_apart_by_labels) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  put(&picture, LYN_WATCH_NR5G, "rf_bandwidth", std::vector<double>{100, 1.4});
  put(&picture, LYN_WATCH_NR5G, "ul_modulation", std::vector<std::string>{"QPSK", "QPSK"});
  put(&picture, LYN_WATCH_NR5G, "cqi", lyn_watch_cqi_t{{12, 11}, {}, {3}});
  put(&picture, LYN_WATCH_NR5G, "rrc", std::string("idle"));
  EXPECT_THAT(lines_of(picture, "lyn_rf_bandwidth_mhz"),
              ElementsAre("lyn_rf_bandwidth_mhz{radio=\"nr5g\",carrier=\"0\"} 100",
                          "lyn_rf_bandwidth_mhz{radio=\"nr5g\",carrier=\"1\"} 1.4"));
  EXPECT_THAT(lines_of(picture, "lyn_ul_modulation"),
              ElementsAre("lyn_ul_modulation{radio=\"nr5g\",stream=\"0\",modulation=\"QPSK\"} 1",
                          "lyn_ul_modulation{radio=\"nr5g\",stream=\"1\",modulation=\"QPSK\"} 1"));
  EXPECT_THAT(lines_of(picture, "lyn_cqi"), ElementsAre("lyn_cqi{radio=\"nr5g\",carrier=\"0\",codeword=\"0\"} 12",
                                                        "lyn_cqi{radio=\"nr5g\",carrier=\"0\",codeword=\"1\"} 11",
                                                        "lyn_cqi{radio=\"nr5g\",carrier=\"2\",codeword=\"0\"} 3"));
  EXPECT_THAT(lines_of(picture, "lyn_rrc"), ElementsAre("lyn_rrc{radio=\"nr5g\",state=\"idle\"} 1"));
}

TEST(lyn_watch_metrics, the_serving_cell_has_the_labels_that_are_measured) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  EXPECT_THAT(lines_of(picture, "lyn_serving_cell_info"), IsEmpty());
  put(&picture, LYN_WATCH_LTE, "pci", int64_t{0});
  put(&picture, LYN_WATCH_LTE, "plmn", std::string("272-01"));
  EXPECT_THAT(lines_of(picture, "lyn_serving_cell_info"),
              ElementsAre("lyn_serving_cell_info{radio=\"lte\",plmn=\"272-01\",pci=\"0\"} 1"));
}

TEST(lyn_watch_metrics, labels_are_escaped) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_DOWN);
  picture.board = "a\"b\\c\nd\xC3\xA4";
  EXPECT_THAT(lines_of(picture, "lyn_board_info{"), ElementsAre("lyn_board_info{board=\"a\\\"b\\\\c\\nd\xC3\xA4\"} 1"));
}

TEST(lyn_watch_metrics, without_a_modem_there_is_nothing_that_was_measured) {
  for (const lyn_watch_state_e state : {LYN_WATCH_STARTING, LYN_WATCH_DOWN}) {
    lyn_watch_picture_t picture = full_picture();
    picture.state = state;
    EXPECT_THAT(names_of(picture), ElementsAre("lyn_up", "lyn_build_info", "lyn_board_info", "lyn_reading_age_seconds",
                                               "lyn_cell_changes_total", "lyn_events_total", "lyn_requests_total",
                                               "lyn_request_duration_seconds"));
    EXPECT_THAT(lines_of(picture, "lyn_up"), ElementsAre("lyn_up 0"));
  }
}

TEST(lyn_watch_metrics, a_modem_that_is_up_and_measures_nothing_has_no_series_but_its_own) {
  EXPECT_THAT(names_of(picture_of(LYN_WATCH_UP)),
              ElementsAre("lyn_up", "lyn_build_info", "lyn_board_info", "lyn_cell_changes_total", "lyn_events_total",
                          "lyn_request_duration_seconds"));
}

TEST(lyn_watch_metrics, the_age_counts_from_the_last_answer_and_is_never_negative) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  picture.answered = picture.now - lyn_watch_ms_t(2500);
  EXPECT_THAT(lines_of(picture, "lyn_reading_age_seconds"), ElementsAre("lyn_reading_age_seconds 2.5"));
  picture.answered = picture.now + seconds(1);
  EXPECT_THAT(lines_of(picture, "lyn_reading_age_seconds"), ElementsAre("lyn_reading_age_seconds 0"));
}

TEST(lyn_watch_metrics, a_cell_that_a_scan_lists_twice_has_one_series) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  EXPECT_THAT(lines_of(picture, "lyn_neighbours"), IsEmpty());
  picture.neighbours[LYN_WATCH_LTE].at = long_ago;
  picture.neighbours[LYN_WATCH_NR5G] = {.cells = {{.channel = 1300, .pci = 1, .rsrp = -100},
                                                  {.channel = 1300, .pci = 1, .rsrp = -90, .rsrq = -9},
                                                  {.channel = 1300, .pci = 2}},
                                        .at = long_ago};
  EXPECT_THAT(lines_of(picture, "lyn_neighbours"),
              ElementsAre("lyn_neighbours{radio=\"lte\"} 0", "lyn_neighbours{radio=\"nr5g\"} 2"));
  EXPECT_THAT(lines_of(picture, "lyn_neighbour_rsrp_dbm"),
              ElementsAre("lyn_neighbour_rsrp_dbm{radio=\"nr5g\",channel=\"1300\",pci=\"1\"} -100"));
  EXPECT_THAT(lines_of(picture, "lyn_neighbour_rsrq_db"),
              ElementsAre("lyn_neighbour_rsrq_db{radio=\"nr5g\",channel=\"1300\",pci=\"1\"} -9"));
}

TEST(lyn_watch_metrics, counters_of_the_data_path_lose_nothing_up_to_what_the_format_can_tell) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  lyn_watch_traffic_t traffic = {};
  traffic.stats = {.bytes_rx = (uint64_t{1} << 53) - 1,
                   .bytes_tx = 0,
                   .pkts_rx = UINT32_MAX,
                   .pkts_tx = 0,
                   .pkts_dropped_rx = 0,
                   .pkts_dropped_tx = 7};
  picture.profiles = {{.index = 2, .apn = {}, .traffic = {traffic, {}}},
                      {.index = 2, .apn = {}, .traffic = {traffic, {}}}};
  EXPECT_THAT(lines_of(picture, "lyn_receive_bytes_total"),
              ElementsAre("lyn_receive_bytes_total{profile=\"2\",family=\"ipv4\"} 9007199254740991"));
  EXPECT_THAT(lines_of(picture, "lyn_receive_packets_total"),
              ElementsAre("lyn_receive_packets_total{profile=\"2\",family=\"ipv4\"} 4294967295"));
  EXPECT_THAT(lines_of(picture, "lyn_transmit_dropped_packets_total"),
              ElementsAre("lyn_transmit_dropped_packets_total{profile=\"2\",family=\"ipv4\"} 7"));
}

TEST(lyn_watch_metrics, changes_of_the_cell_are_counted_from_nothing) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_DOWN);
  picture.cell_changes[LYN_WATCH_NR5G] = 2;
  EXPECT_THAT(lines_of(picture, "lyn_cell_changes_total"),
              ElementsAre("lyn_cell_changes_total{radio=\"lte\"} 0", "lyn_cell_changes_total{radio=\"nr5g\"} 2"));
}

TEST(lyn_watch_metrics, every_kind_of_event_is_counted_from_nothing) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_STARTING);
  picture.event_counts.back() = 3;
  const std::vector<std::string> lines = lines_of(picture, "lyn_events_total");
  ASSERT_EQ(lines.size(), lyn_watch_event_kinds.size());
  EXPECT_EQ(lines.front(), "lyn_events_total{indication=\"modem_status\"} 0");
  EXPECT_EQ(lines.back(), "lyn_events_total{indication=\"loc_batch\"} 3");
}

TEST(lyn_watch_metrics, statuses_without_a_name_are_counted_together) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  picture.requests[{"init", 1000}] = 2;
  picture.requests[{"init", 1001}] = 3;
  picture.requests[{"init", OX_LYN_ERR_BUSY}] = 1;
  EXPECT_THAT(lines_of(picture, "lyn_requests_total"),
              ElementsAre("lyn_requests_total{metric=\"init\",status=\"busy\"} 1",
                          "lyn_requests_total{metric=\"init\",status=\"other\"} 5"));
}

TEST(lyn_watch_metrics, durations_are_counted_up_to_each_bound) {
  lyn_watch_model_t model;
  lyn_watch_model_init(&model, "bench");
  for (const double took : {0.001, 0.0011, 0.3, 50.0, 51.0}) {
    lyn_watch_model_count_request(&model, "init", OX_LYN_SUCCESS, std::chrono::duration<double>(took), long_ago);
  }
  const lyn_watch_picture_t picture = lyn_watch_model_picture(&model, long_ago);
  EXPECT_THAT(lines_of(picture, "lyn_request_duration_seconds_bucket"),
              ElementsAre(HasSubstr("le=\"0.001\"} 1"), HasSubstr("le=\"0.005\"} 2"), HasSubstr("le=\"0.02\"} 2"),
                          HasSubstr("le=\"0.1\"} 2"), HasSubstr("le=\"0.5\"} 3"), HasSubstr("le=\"1\"} 3"),
                          HasSubstr("le=\"5\"} 3"), HasSubstr("le=\"20\"} 3"), HasSubstr("le=\"50\"} 4"),
                          HasSubstr("le=\"+Inf\"} 5")));
  EXPECT_THAT(lines_of(picture, "lyn_request_duration_seconds_count"), ElementsAre(HasSubstr(" 5")));
  EXPECT_THAT(lines_of(picture, "lyn_request_duration_seconds_sum"), ElementsAre(HasSubstr(" 101.3021")));
}

TEST(lyn_watch_metrics, a_location_has_what_its_flags_say) {
  lyn_watch_picture_t picture = picture_of(LYN_WATCH_UP);
  lyn_watch_location_t found = {.location = {}, .at = long_ago - seconds(3)};
  found.location.flags = OX_LYN_LOC_FLAG_LAT_LONG_E;
  found.location.latitude = 51.897463;
  found.location.longitude = -8.5;
  picture.location = std::make_shared<const lyn_watch_location_t>(found);
  EXPECT_THAT(lines_of(picture, "lyn_location_"),
              ElementsAre("lyn_location_latitude_degrees 51.897463", "lyn_location_longitude_degrees -8.5",
                          "lyn_location_age_seconds 3"));
}

TEST(lyn_watch_metrics, no_series_is_there_twice_and_each_family_says_what_it_is) {
  lyn_watch_picture_t picture = full_picture();
  std::set<std::string> names;
  for (const prometheus::MetricFamily &family : lyn_watch_metrics_families(picture)) {
    EXPECT_TRUE(names.insert(family.name).second) << family.name;
    EXPECT_FALSE(family.help.empty()) << family.name;
    EXPECT_EQ(family.help.back(), '.') << family.name;
    std::set<std::vector<prometheus::ClientMetric::Label>> labels;
    for (const prometheus::ClientMetric &metric : family.metric) {
      EXPECT_TRUE(labels.insert(metric.label).second) << family.name;
    }
  }
}

/* The document */

std::string labels_of(const prometheus::MetricFamily &family) {
  std::string labels;
  for (const prometheus::ClientMetric::Label &label : family.metric.front().label) {
    labels += (labels.empty() ? "`" : ", `") + label.name + "`";
  }
  return labels;
}

std::string table() {
  static const std::map<prometheus::MetricType, std::string> types = {
      {prometheus::MetricType::Counter, "counter"},
      {prometheus::MetricType::Gauge, "gauge"},
      {prometheus::MetricType::Histogram, "histogram"},
  };
  std::string text = "\n| metric | type | labels | what it says |\n|---|---|---|---|\n";
  for (const prometheus::MetricFamily &family : lyn_watch_metrics_families(full_picture())) {
    text +=
        "| `" + family.name + "` | " + types.at(family.type) + " | " + labels_of(family) + " | " + family.help + " |\n";
  }
  return text + "\n";
}

TEST(lyn_watch_metrics, the_document_lists_every_metric) {
  const std::string path = source_path("docs/watch.md");
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  std::string wanted = text.str();
  const std::string begin = "<!-- metrics:begin -->\n";
  const size_t from = wanted.find(begin) + begin.size();
  const size_t to = wanted.find("<!-- metrics:end -->");
  ASSERT_LE(from, to);
  ASSERT_NE(to, std::string::npos);
  wanted.replace(from, to - from, table());
  if (getenv("LYN_DOCS_UPDATE") != nullptr) {
    std::ofstream(path) << wanted;
  } else {
    EXPECT_EQ(text.str(), wanted) << "LYN_DOCS_UPDATE=1 lyn_watch_metrics_test writes the second one";
  }
}

}  // namespace
