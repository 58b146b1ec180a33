/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_show.h"

#include <gmock/gmock.h>

#include <clocale>
#include <cwchar>

using std::chrono::hours;
using std::chrono::milliseconds;
using std::chrono::minutes;
using std::chrono::seconds;

static std::string shown(lyn_watch_radio_e radio, const char *name, const lyn_watch_value_t &value) {
  return lyn_watch_show_value(lyn_watch_key(radio, name), value, true);
}

TEST(lyn_watch_show, what_was_not_measured_is_a_dash_without_a_unit) {
  EXPECT_EQ(shown(LYN_WATCH_LTE, "rsrp", {}), "-");
}

TEST(lyn_watch_show, a_value_has_its_usual_unit) {
  EXPECT_EQ(shown(LYN_WATCH_LTE, "rsrp", int64_t{-95}), "-95 dBm");
  EXPECT_EQ(shown(LYN_WATCH_NR5G, "sinr", int64_t{-5}), "-0.5 dB");
  EXPECT_EQ(shown(LYN_WATCH_NR5G, "scs", int64_t{30}), "30 kHz");
  EXPECT_EQ(shown(LYN_WATCH_LTE, "ca_bandwidth", 1.4), "1.4 MHz");
  EXPECT_EQ(shown(LYN_WATCH_LTE, "endc_available", true), "yes");
}

TEST(lyn_watch_show, lists_are_short) {
  EXPECT_EQ(shown(LYN_WATCH_LTE, "bands", std::vector<double>{3}), "B3");
  EXPECT_EQ(shown(LYN_WATCH_NR5G, "bands", std::vector<double>{77, 78}), "n77/n78");
  EXPECT_EQ(shown(LYN_WATCH_NR5G, "rf_bandwidth", std::vector<double>{100, 20}), "100/20 MHz");
  EXPECT_EQ(shown(LYN_WATCH_LTE, "cqi", lyn_watch_cqi_t{{12, 11}, {9}}), "12/11 9");
  using texts = std::vector<std::string>;
  EXPECT_EQ(shown(LYN_WATCH_LTE, "dl_modulation", texts{"64QAM", "64QAM"}), "2x64QAM");
  EXPECT_EQ(shown(LYN_WATCH_LTE, "dl_modulation", texts{"QPSK", "64QAM", "64QAM", "QPSK"}), "QPSK 2x64QAM QPSK");
}

TEST(lyn_watch_show, an_age_has_at_most_three_characters_for_a_hundred_days) {
  EXPECT_EQ(lyn_watch_show_age(milliseconds(999)), "0s");
  EXPECT_EQ(lyn_watch_show_age(seconds(99)), "99s");
  EXPECT_EQ(lyn_watch_show_age(seconds(100)), "1m");
  EXPECT_EQ(lyn_watch_show_age(minutes(99)), "99m");
  EXPECT_EQ(lyn_watch_show_age(minutes(100)), "1h");
  EXPECT_EQ(lyn_watch_show_age(hours(99)), "99h");
  EXPECT_EQ(lyn_watch_show_age(hours(100)), "4d");
  EXPECT_EQ(lyn_watch_show_age(seconds(-5)), "0s");
}

TEST(lyn_watch_show, an_amount_has_three_digits_and_a_power_of_thousand) {
  EXPECT_EQ(lyn_watch_show_amount(0), "0");
  EXPECT_EQ(lyn_watch_show_amount(999.4), "999");
  EXPECT_EQ(lyn_watch_show_amount(999.6), "1.00k");
  EXPECT_EQ(lyn_watch_show_amount(9994), "9.99k");
  EXPECT_EQ(lyn_watch_show_amount(9996), "10.0k");
  EXPECT_EQ(lyn_watch_show_amount(99960), "100k");
  EXPECT_EQ(lyn_watch_show_amount(1.5e18), "1500P");
}

/* What fits */

class lyn_watch_clip_test : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    EXPECT_TRUE(lyn_watch_utf8_locale());
  }

  void TearDown() override { setlocale(LC_CTYPE, "C"); }
};

static std::wstring clipped(const std::string &text, int width, bool utf8 = true) {
  const lyn_watch_clipped_t clip = lyn_watch_clip(text, width, utf8);
  EXPECT_EQ(clip.width, wcswidth(clip.text.c_str(), clip.text.size()));
  EXPECT_LE(clip.width, width);
  return clip.text;
}

TEST_F(lyn_watch_clip_test, what_fits_stays_as_it_is) {
  EXPECT_EQ(clipped("abc", 3), L"abc");
  EXPECT_EQ(clipped("b\u00fcro", 4), L"b\u00fcro");
  EXPECT_EQ(clipped("\u5bb6\u5bb6", 4), L"\u5bb6\u5bb6");
  EXPECT_EQ(clipped("\U0001F4E1", 2), L"\U0001F4E1");
}

TEST_F(lyn_watch_clip_test, what_is_cut_off_leaves_a_mark) {
  EXPECT_EQ(clipped("abcd", 3), L"ab\u2026");
  EXPECT_EQ(clipped("\u5bb6\u5bb6", 3), L"\u5bb6\u2026");
  EXPECT_EQ(clipped("\u5bb6\u5bb6", 2), L"\u2026");
  EXPECT_EQ(clipped("ab", 0), L"");
  EXPECT_EQ(clipped("ab", -1 + 1), L"");
}

TEST_F(lyn_watch_clip_test, control_characters_and_directions_are_replaced) {
  EXPECT_EQ(clipped("a\033[2J\n\x7f\u009b", 20), L"a\ufffd[2J\ufffd\ufffd\ufffd");
  EXPECT_EQ(clipped("a\u202eb\u200b", 20), L"a\ufffdb\ufffd");
  EXPECT_EQ(clipped("a\xff\xc3", 20), L"a\ufffd\ufffd");
  EXPECT_EQ(clipped("\u2060\u206f", 20), L"\ufffd\ufffd");
  EXPECT_EQ(clipped("\u2030\u2070", 20), L"\u2030\u2070");
}

TEST_F(lyn_watch_clip_test, characters_without_a_column_are_left_out) {
  EXPECT_EQ(clipped("e\u0301x", 2), L"ex");
}

TEST(lyn_watch_clip, without_utf_8_everything_is_ascii) {
  EXPECT_EQ(clipped("b\u00fcro \u5bb6", 20, false), L"b?ro ?");
  EXPECT_EQ(clipped("\033", 20, false), L"?");
  EXPECT_EQ(clipped("abcd", 3, false), L"ab~");
  EXPECT_FALSE(lyn_watch_utf8_locale());
}

/* What happened */

static const lyn_watch_event_kind_t *kind(const char *name) {
  for (const lyn_watch_event_kind_t &row : lyn_watch_event_kinds) {
    if (strcmp(row.name, name) == 0) {
      return &row;
    }
  }
  return nullptr;
}

class lyn_watch_lines_test : public testing::Test {
 protected:
  void SetUp() override { lyn_watch_model_init(&model, "board"); }

  void happen(const char *name, std::vector<lyn_watch_field_t> fields) {
    lyn_watch_model_put_event(&model, kind(name), std::move(fields), {}, {});
  }

  std::vector<std::string> told() {
    lyn_watch_news_follow(&lines, &model);
    std::vector<std::string> texts;
    for (const lyn_watch_line_t &line : lines.lines) {
      texts.push_back(lyn_watch_show_line(line).substr(10));
    }
    return texts;
  }

  lyn_watch_model_t model;
  lyn_watch_news_t lines;
};

TEST_F(lyn_watch_lines_test, a_run_of_measurements_is_one_line_with_the_newest_of_each) {
  happen("nr5g_sinr", {{"value", int64_t{150}}});
  happen("lte_sinr", {{"value", int64_t{99}}});
  happen("lte_rsrp", {{"value", int64_t{-90}}});
  EXPECT_THAT(told(), testing::ElementsAre("LTE RSRP -90 SINR 9.9  NR 5G SINR 15.0"));
  happen("lte_rsrp", {{"value", int64_t{-91}}});
  EXPECT_THAT(told(), testing::ElementsAre("LTE RSRP -91 SINR 9.9  NR 5G SINR 15.0"));
}

TEST_F(lyn_watch_lines_test, other_events_end_a_run_and_name_their_fields) {
  happen("lte_rsrp", {{"value", int64_t{-90}}});
  happen("reg_status", {{"value", std::string("lte")}});
  happen("qos_flow", {{"bearer", int64_t{5}}, {"tx_5qi", int64_t{7}}});
  happen("lte_rsrp", {{"value", int64_t{-92}}});
  EXPECT_THAT(told(), testing::ElementsAre("LTE RSRP -90", "reg_status          lte",
                                           "qos_flow            bearer=5 tx_5qi=7", "LTE RSRP -92"));
}

TEST_F(lyn_watch_lines_test, a_measurement_that_has_lost_its_value_is_told_as_any_other_event) {
  happen("lte_rsrp", {});
  EXPECT_THAT(told(), testing::ElementsAre(testing::HasSubstr("lte_rsrp")));
}

TEST_F(lyn_watch_lines_test, thousands_of_measurements_do_not_push_out_what_is_rare) {
  happen("reg_status", {{"value", std::string("lte")}});
  for (int i = 0; i < 3000; ++i) {
    happen("lte_rsrp", {{"value", int64_t{-90}}});
  }
  EXPECT_THAT(told(), testing::ElementsAre("reg_status          lte", "LTE RSRP -90"));
}

TEST_F(lyn_watch_lines_test, answers_do_not_push_out_what_is_rare_either) {
  happen("reg_status", {{"value", std::string("lte")}});
  for (int64_t i = 0; i < 3; ++i) {
    happen("loc_single_shot", {{"latitude", 51.897463 + static_cast<double>(i)}});
    happen("lte_nbr_info", {{"cells", i}});
    happen("lte_rsrp", {{"value", -90 - i}});
  }
  happen("loc_single_shot", {{"latitude", -8.480187}});
  EXPECT_THAT(told(), testing::ElementsAre("reg_status          lte", "lte_nbr_info        cells=2", "LTE RSRP -92",
                                           "loc_single_shot     latitude=-8.480187"));
  happen("reg_status", {{"value", std::string("nr5g")}});
  happen("lte_nbr_info", {{"cells", int64_t{7}}});
  EXPECT_THAT(told(), testing::Contains("lte_nbr_info        cells=2"));
  EXPECT_EQ(told().back(), "lte_nbr_info        cells=7");
}

TEST_F(lyn_watch_lines_test, no_more_is_kept_than_a_screen_can_show) {
  for (int i = 0; i < 300; ++i) {
    happen("reg_status", {{"value", std::to_string(i)}});
  }
  EXPECT_EQ(told().size(), 100);
  EXPECT_EQ(told().back(), "reg_status          299");
}
