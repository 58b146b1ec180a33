/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The tables of the live picture: what they have to hold for source, model and views to walk them, and what each row
 * takes from a record of the module's.
 */
#include "lyn_watch_items.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

namespace {

using ::testing::ElementsAre;

/** A record whose value is set by the test. */
ox_lyn_dm_info_t record_with(int64_t number) {
  ox_lyn_dm_info_t record = {};
  record.value.i64 = number;
  return record;
}

ox_lyn_dm_info_t record_of(void *block) {
  ox_lyn_dm_info_t record = {};
  record.value.ptr = block;
  return record;
}

ox_lyn_dm_info_t record_with(std::initializer_list<int64_t> numbers) {
  ox_lyn_dm_info_t record = {};
  std::ranges::copy(numbers, record.value.i64_array);
  record.count = static_cast<uint32_t>(numbers.size());
  return record;
}

lyn_watch_value_t take(lyn_watch_radio_e radio, const char *name, const ox_lyn_dm_info_t &record) {
  const lyn_watch_key_t key = lyn_watch_key(radio, name);
  return lyn_watch_items[key.item].of[radio].take(record);
}

template <typename T>
lyn_watch_value_t value(T held) {
  return lyn_watch_value_t(held);
}

const lyn_watch_value_t NONE;

/** A field, with a name that can be compared. */
using field_t = std::pair<std::string, lyn_watch_value_t>;

std::vector<field_t> take_event(uint32_t type, uint32_t id, const ox_lyn_dm_info_t &record) {
  std::vector<field_t> fields;
  for (const lyn_watch_field_t &field : lyn_watch_event_kind(type, id)->take(record)) {
    fields.emplace_back(field.first, field.second);
  }
  return fields;
}

/* The tables */

TEST(lyn_watch_items, each_is_told_apart_by_radio_and_name_and_explained) {
  std::set<std::string> names;
  for (const lyn_watch_item_t &item : lyn_watch_items) {
    EXPECT_TRUE(names.insert(item.name).second) << item.name;
    EXPECT_STRNE(item.label, "") << item.name;
    EXPECT_EQ(item.help[strlen(item.help) - 1], '.') << item.name;
    EXPECT_EQ(*item.unit == '\0', *item.shown == '\0') << item.name;
  }
  EXPECT_EQ(names.size(), lyn_watch_items.size());
}

TEST(lyn_watch_items, keys_are_every_item_of_every_radio_that_has_it) {
  size_t places = 0;
  for (const lyn_watch_item_t &item : lyn_watch_items) {
    places += static_cast<size_t>(std::ranges::count_if(item.of, [](const auto &of) { return of.take != nullptr; }));
  }
  EXPECT_EQ(lyn_watch_keys().size(), places);
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_item_t &item = lyn_watch_items[key.item];
    EXPECT_NE(item.of[key.radio].take, nullptr) << item.name;
    const lyn_watch_key_t found = lyn_watch_key(key.radio, item.name);
    EXPECT_FALSE(found < key || key < found) << item.name;
  }
}

/** Metrics that are answered at once and need nothing but a place for the answer. */
TEST(lyn_watch_items, every_metric_that_can_simply_be_read_is_in_the_table) {
  std::set<uint32_t> metrics;
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    metrics.insert(lyn_watch_items[key.item].of[key.radio].metric);
  }
  std::set<uint32_t> readable;
  for (uint32_t metric = OX_LYN_GET_REG_STATUS_E; metric <= OX_LYN_GET_NR5G_RF_BANDWIDTH_E; ++metric) {
    const bool scan = metric >= OX_LYN_GET_LTE_NBR_EARFCN_E && metric <= OX_LYN_GET_LTE_NBR_RSRQ_E;
    if (!scan) {
      readable.insert(metric);
    }
  }
  EXPECT_EQ(metrics, readable);
}

TEST(lyn_watch_items, metrics_have_names_of_their_own) {
  EXPECT_STREQ(lyn_watch_metric_name(OX_LYN_GET_REG_STATUS_E), "registration");
  EXPECT_STREQ(lyn_watch_metric_name(OX_LYN_GET_LTE_SERV_RSRP_E), "lte_rsrp");
  EXPECT_STREQ(lyn_watch_metric_name(OX_LYN_GET_NR5G_SERV_EARFCN_E), "nr5g_channel");
  EXPECT_STREQ(lyn_watch_metric_name(OX_LYN_GET_WWAN_PROFILE_INDEX_E), "wwan_profiles");
  EXPECT_STREQ(lyn_watch_metric_name(OX_LYN_GET_MTPE_LTE_INFO_E), "other");
  std::set<std::string> names;
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    names.insert(lyn_watch_metric_name(lyn_watch_items[key.item].of[key.radio].metric));
  }
  EXPECT_EQ(names.size(), 32U);
}

TEST(lyn_watch_items, every_event_of_the_module_has_a_kind) {
  for (uint32_t id = OX_LYN_IND_INVALID_E + 1; id < OX_LYN_IND_COUNT; ++id) {
    EXPECT_NE(lyn_watch_event_kind(OX_LYN_RECORD_IND_E, id), nullptr) << id;
  }
  for (uint32_t id = OX_LYN_ASYNC_INVALID_E + 1; id < OX_LYN_ASYNC_COUNT; ++id) {
    EXPECT_NE(lyn_watch_event_kind(OX_LYN_RECORD_ASYNC_E, id), nullptr) << id;
  }
  EXPECT_EQ(lyn_watch_event_kind(OX_LYN_RECORD_IND_E, OX_LYN_IND_INVALID_E), nullptr);
  EXPECT_EQ(lyn_watch_event_kind(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_COUNT), nullptr);
  EXPECT_EQ(lyn_watch_event_kind(OX_LYN_RECORD_GET_E, OX_LYN_IND_MODEM_STATUS_E), nullptr);
  std::set<std::string> names;
  for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
    EXPECT_TRUE(names.insert(kind.name).second) << kind.name;
  }
}

TEST(lyn_watch_items, codes_without_a_name_are_other) {
  EXPECT_STREQ(lyn_watch_status_name(OX_LYN_SUCCESS), "success");
  EXPECT_STREQ(lyn_watch_status_name(OX_LYN_ERR_INFO_UNAVAILABLE), "info_unavailable");
  EXPECT_STREQ(lyn_watch_status_name(-99), "other");
}

TEST(lyn_watch_items, exposed_states_are_the_names_of_the_registration) {
  const lyn_watch_item_t &item = lyn_watch_items[lyn_watch_key(LYN_WATCH_BOARD, "registration").item];
  for (int64_t code = OX_LYN_REG_NO_SERVICE_E; code <= OX_LYN_REG_NR5G_E; ++code) {
    EXPECT_EQ(take(LYN_WATCH_BOARD, "registration", record_with(code)),
              value(std::string(item.exposed.states[static_cast<size_t>(code - 1)])));
  }
}

/* Text */

TEST(lyn_watch_items, plmn_reads_its_three_octets) {
  const auto plmn = [](int64_t a, int64_t b, int64_t c) {
    const int64_t octets[] = {a, b, c};
    return lyn_watch_plmn(octets);
  };
  EXPECT_EQ(plmn(0x72, 0xF2, 0x10), "272-01");
  EXPECT_EQ(plmn(0x13, 0x00, 0x14), "310-410");
  EXPECT_EQ(plmn(0x72, 0xF2, 0x1A), "");
  EXPECT_EQ(plmn(0x7F, 0xF2, 0x10), "");
  EXPECT_EQ(plmn(0x172, 0xF2, 0x10), "");
  EXPECT_EQ(plmn(-16, 0xF2, 0x10), "");
}

TEST(lyn_watch_items, plmn_of_a_neighbour_keeps_its_digits) {
  EXPECT_EQ(lyn_watch_plmn(ox_lyn_plmn_t{.mcc = 1, .mnc = 1, .includes_pcs_digit = 0}), "001-01");
  EXPECT_EQ(lyn_watch_plmn(ox_lyn_plmn_t{.mcc = 310, .mnc = 26, .includes_pcs_digit = 1}), "310-026");
}

TEST(lyn_watch_items, plmn_of_a_neighbour_whose_numbers_have_more_than_three_digits_is_none) {
  EXPECT_EQ(lyn_watch_plmn(ox_lyn_plmn_t{.mcc = 999, .mnc = 999, .includes_pcs_digit = 1}), "999-999");
  EXPECT_EQ(lyn_watch_plmn(ox_lyn_plmn_t{.mcc = 1000, .mnc = 1, .includes_pcs_digit = 0}), "");
  EXPECT_EQ(lyn_watch_plmn(ox_lyn_plmn_t{.mcc = 272, .mnc = 65535, .includes_pcs_digit = 1}), "");
}

TEST(lyn_watch_items, utf8_stays_and_all_else_is_replaced) {
  const std::string good = "A\u00e9\u20ac\U0001F4F6";
  EXPECT_EQ(lyn_watch_utf8(good), good);
  EXPECT_EQ(lyn_watch_utf8(std::string("a\0b", 3)), std::string("a\0b", 3));
  for (const char *bad : {"\x80", "\xC0\xAF", "\xE0\x80\xAF", "\xED\xA0\x80", "\xF0\x80\x80\xAF", "\xF4\x90\x80\x80",
                          "\xF5\x80\x80\x80", "\xE2\x82", "\xFF"}) {
    std::string replaced;
    for (size_t i = 0; i < strlen(bad); ++i) {
      replaced += "\uFFFD";
    }
    EXPECT_EQ(lyn_watch_utf8(bad), replaced);
    EXPECT_EQ(lyn_watch_utf8(std::string("x") + bad + "y"), "x" + replaced + "y");
  }
}

/** The character of a code point as UTF-8 has it, well-formed or not. */
std::string encoded(uint32_t code) {
  const auto more = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
  if (code < 0x80) {
    return {static_cast<char>(code)};
  }
  if (code < 0x800) {
    return {static_cast<char>(0xC0 | code >> 6), more(0)};
  }
  if (code < 0x10000) {
    return {static_cast<char>(0xE0 | code >> 12), more(6), more(0)};
  }
  return {static_cast<char>(0xF0 | code >> 18), more(12), more(6), more(0)};
}

TEST(lyn_watch_items, every_character_stays_but_surrogates_and_those_beyond_the_last_one) {
  for (uint32_t code = 0; code < 0x200000; code++) {
    const bool good = code < 0xD800 || (code > 0xDFFF && code < 0x110000);
    const std::string text = encoded(code);
    if ((lyn_watch_utf8(text) == text) != good) {
      ADD_FAILURE() << code;
    }
  }
}

TEST(lyn_watch_items, characters_longer_than_they_need_be_are_replaced) {
  for (uint32_t code = 0; code < 0x10000; code++) {
    const auto more = [code](int shift) { return static_cast<char>(0x80 | (code >> shift & 0x3F)); };
    const std::string four = {'\xF0', more(12), more(6), more(0)};
    const std::string three = {'\xE0', more(6), more(0)};
    const std::string two = {static_cast<char>(0xC0 | code >> 6), more(0)};
    if (lyn_watch_utf8(four) == four || (code < 0x800 && lyn_watch_utf8(three) == three) ||
        (code < 0x80 && lyn_watch_utf8(two) == two)) {
      ADD_FAILURE() << code;
    }
  }
}

/* What is taken from a record */

TEST(lyn_watch_items, numbers_are_taken_as_they_are) {
  EXPECT_EQ(take(LYN_WATCH_LTE, "rsrp", record_with(-101)), value(int64_t{-101}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "sinr", record_with(-25)), value(int64_t{-25}));
  EXPECT_EQ(take(LYN_WATCH_LTE, "tac", record_with(0)), value(int64_t{0}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "tac", record_with({0x01, 0x1A, 0x2B})), value(int64_t{0x011A2B}));
}

TEST(lyn_watch_items, what_a_code_says_of_nothing_is_not_measured) {
  EXPECT_EQ(take(LYN_WATCH_BOARD, "registration", record_with(OX_LYN_REG_LTE_E)), value(std::string("lte")));
  EXPECT_EQ(take(LYN_WATCH_BOARD, "registration", record_with(int64_t{0})), NONE);
  EXPECT_EQ(take(LYN_WATCH_LTE, "rrc", record_with(OX_LYN_RRC_LTE_5_E)), value(std::string("state_5")));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "rrc", record_with(OX_LYN_RRC_NR5G_CONNECTED_E)), value(std::string("connected")));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "rrc", record_with(OX_LYN_RRC_UNKNOWN_E)), NONE);
  EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(OX_LYN_CA_BANDWIDTH_UNKNOWN_E)), NONE);
  EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(OX_LYN_CA_BANDWIDTH_1_4_MHZ_E)), value(1.4));
  EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(OX_LYN_CA_BANDWIDTH_20_MHZ_E)), value(20.0));
  EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(int64_t{7})), NONE);
  EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(int64_t{-1})), NONE);
  EXPECT_EQ(take(LYN_WATCH_NR5G, "scs", record_with(OX_LYN_SCS_UNKNOWN_E)), NONE);
  EXPECT_EQ(take(LYN_WATCH_NR5G, "scs", record_with(OX_LYN_SCS_15_KHZ_E)), value(int64_t{15}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "scs", record_with(OX_LYN_SCS_240_KHZ_E)), value(int64_t{240}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "scs", record_with(int64_t{6})), NONE);
}

TEST(lyn_watch_items, plmn_that_is_none_is_not_measured) {
  EXPECT_EQ(take(LYN_WATCH_LTE, "plmn", record_with({0x72, 0xF2, 0x10})), value(std::string("272-01")));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "plmn", record_with({0xFF, 0xFF, 0xFF})), NONE);
}

TEST(lyn_watch_items, bands_follow_from_the_channel) {
  EXPECT_EQ(take(LYN_WATCH_LTE, "bands", record_with(1300)), value(std::vector<double>{3}));
  EXPECT_EQ(take(LYN_WATCH_LTE, "bands", record_with(65000)), NONE);
  EXPECT_EQ(take(LYN_WATCH_NR5G, "bands", record_with(636000)), value(std::vector<double>{77, 78}));
}

TEST(lyn_watch_items, cqi_has_its_carriers_and_codewords_and_no_more_than_fit) {
  ox_lyn_lte_cqi_t lte = {};
  EXPECT_EQ(take(LYN_WATCH_LTE, "cqi", record_of(&lte)), NONE);
  lte.count = 2;
  lte.entries[0] = {.cw_cqi_len = 2, .cw_cqi = {12, 0}};
  lte.entries[1] = {.cw_cqi_len = 1, .cw_cqi = {7}};
  EXPECT_EQ(take(LYN_WATCH_LTE, "cqi", record_of(&lte)), value(lyn_watch_cqi_t{{12, 0}, {7}}));
  lte.count = 99;
  lte.entries[6].cw_cqi_len = 99;
  const auto carriers = std::get<lyn_watch_cqi_t>(take(LYN_WATCH_LTE, "cqi", record_of(&lte)));
  EXPECT_EQ(carriers.size(), size_t{OX_LYN_LTE_CQI_LEN});
  EXPECT_EQ(carriers.back().size(), 4U);
  ox_lyn_nr5g_cqi_t nr5g = {.valid = 1, .count = OX_LYN_NR5G_CQI_LEN, .entries = {}};
  EXPECT_EQ(std::get<lyn_watch_cqi_t>(take(LYN_WATCH_NR5G, "cqi", record_of(&nr5g))).size(),
            size_t{OX_LYN_NR5G_CQI_LEN});
}

TEST(lyn_watch_items, modulation_has_its_streams_of_either_direction) {
  ox_lyn_mcs_t mcs = {.dl_mod = {OX_LYN_LTE_MOD_1024QAM_E, OX_LYN_LTE_MOD_UNKNOWN_E},
                      .ul_mod = {OX_LYN_NR5G_MOD_PI_2_BPSK_E, 77},
                      .ul_len = 2,
                      .dl_len = 2};
  using streams = std::vector<std::string>;
  EXPECT_EQ(take(LYN_WATCH_LTE, "dl_modulation", record_of(&mcs)), value(streams{"1024QAM", "other"}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "ul_modulation", record_of(&mcs)), value(streams{"pi/2-BPSK", "other"}));
  mcs.dl_len = 99;
  EXPECT_EQ(std::get<streams>(take(LYN_WATCH_LTE, "dl_modulation", record_of(&mcs))).size(), 2U);
  mcs.ul_len = 0;
  EXPECT_EQ(take(LYN_WATCH_LTE, "ul_modulation", record_of(&mcs)), NONE);
}

TEST(lyn_watch_items, each_radio_takes_its_own_carriers_of_the_shared_list) {
  const ox_lyn_dm_info_t mixed = record_with({OX_LYN_RF_BANDWIDTH_LTE_1_4_MHZ_E, OX_LYN_RF_BANDWIDTH_LTE_20_MHZ_E,
                                              OX_LYN_RF_BANDWIDTH_NR5G_5_MHZ_E, OX_LYN_RF_BANDWIDTH_NR5G_400_MHZ_E,
                                              OX_LYN_RF_BANDWIDTH_UNKNOWN_E});
  EXPECT_EQ(take(LYN_WATCH_LTE, "rf_bandwidth", mixed), value(std::vector<double>{1.4, 20}));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "rf_bandwidth", mixed), value(std::vector<double>{5, 400}));
  EXPECT_EQ(take(LYN_WATCH_LTE, "rf_bandwidth", record_with({OX_LYN_RF_BANDWIDTH_UNKNOWN_E, 0, -1, 99})), NONE);
}

TEST(lyn_watch_items, endc_is_measured_where_the_modem_says_so) {
  ox_lyn_endc_mode_t mode = {.valid = 0, .endc_available = 1, .restrict_dcnr_valid = 1, .restrict_dcnr = 1};
  EXPECT_EQ(take(LYN_WATCH_LTE, "endc_available", record_of(&mode)), NONE);
  mode = {.valid = 1, .endc_available = 1, .restrict_dcnr_valid = 1, .restrict_dcnr = 0};
  EXPECT_EQ(take(LYN_WATCH_LTE, "endc_available", record_of(&mode)), value(true));
  EXPECT_EQ(take(LYN_WATCH_LTE, "dcnr_restricted", record_of(&mode)), value(false));
}

TEST(lyn_watch_items, locks_name_cells_and_channels) {
  using cells = std::vector<std::string>;
  ox_lyn_lte_cell_lock_t lte = {};
  EXPECT_EQ(take(LYN_WATCH_LTE, "cell_lock", record_of(&lte)), NONE);
  lte.count = 2;
  lte.cells[0] = {.pci = 214, .freq = 1300};
  lte.cells[1] = {.pci = 3, .freq = 6300};
  EXPECT_EQ(take(LYN_WATCH_LTE, "cell_lock", record_of(&lte)), value(cells{"1300/214", "6300/3"}));
  lte.count = 255;
  EXPECT_EQ(std::get<cells>(take(LYN_WATCH_LTE, "cell_lock", record_of(&lte))).size(), size_t{OX_LYN_LTE_LOCK_LEN});
  ox_lyn_nr5g_cell_lock_t nr5g = {};
  EXPECT_EQ(take(LYN_WATCH_NR5G, "cell_lock", record_of(&nr5g)), NONE);
  nr5g.arfcn = 636000;
  nr5g.pci = 500;
  nr5g.arfcn_list_len = 1;
  nr5g.arfcn_list[0] = {.arfcn = 640000, .scs = 2};
  EXPECT_EQ(take(LYN_WATCH_NR5G, "cell_lock", record_of(&nr5g)), value(cells{"636000/500", "640000"}));
}

/* What codes are called */

/** What is made of the codes from the first to the last, in a row; "-" where that is nothing. */
template <typename Name>
std::string named(int64_t first, int64_t last, Name name) {
  std::string text;
  for (int64_t code = first; code <= last; code++) {
    const lyn_watch_value_t held = name(code);
    text += (code == first ? "" : " ") + (held == NONE ? "-" : std::get<std::string>(held));
  }
  return text;
}

TEST(lyn_watch_items, every_status_has_its_name) {
  EXPECT_EQ(
      named(-18, 1, [](int64_t code) { return value(std::string(lyn_watch_status_name(static_cast<int32_t>(code)))); }),
      "other info_unavailable service_unavailable other other already_initialized not_initialized other other other"
      " other not_supported other busy insufficient_buffer no_memory invalid_param failure success other");
}

TEST(lyn_watch_items, every_registration_and_state_of_the_connection_has_its_name) {
  EXPECT_EQ(named(0, 8, [](int64_t code) { return take(LYN_WATCH_BOARD, "registration", record_with(code)); }),
            "- no_service power_save limited limited_regional lte lte_nr5g nr5g -");
  for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G}) {
    EXPECT_EQ(named(0, 10, [radio](int64_t code) { return take(radio, "rrc", record_with(code)); }),
              "- - state_1 state_2 state_3 state_4 state_5 idle inactive connected -");
  }
}

TEST(lyn_watch_items, every_modulation_has_its_name) {
  const auto first_stream = [](lyn_watch_radio_e radio, const char *item) {
    return [radio, item](int64_t code) {
      const auto number = static_cast<uint32_t>(code);
      ox_lyn_mcs_t mcs = {.dl_mod = {number}, .ul_mod = {number}, .ul_len = 1, .dl_len = 1};
      return value(std::get<std::vector<std::string>>(take(radio, item, record_of(&mcs))).front());
    };
  };
  for (const char *item : {"dl_modulation", "ul_modulation"}) {
    EXPECT_EQ(named(0, 7, first_stream(LYN_WATCH_LTE, item)), "other BPSK QPSK 16QAM 64QAM 256QAM 1024QAM other");
    EXPECT_EQ(named(0, 6, first_stream(LYN_WATCH_NR5G, item)), "other pi/2-BPSK QPSK 16QAM 64QAM 256QAM other");
  }
}

TEST(lyn_watch_items, every_bandwidth_and_spacing_has_its_number) {
  const double lte[] = {1.4, 3, 5, 10, 15, 20};
  for (size_t i = 0; i < std::size(lte); i++) {
    EXPECT_EQ(take(LYN_WATCH_LTE, "ca_bandwidth", record_with(static_cast<int64_t>(i + 1))), value(lte[i]));
  }
  ox_lyn_dm_info_t all = {};
  for (all.count = 0; all.count < OX_LYN_RF_BANDWIDTH_UNKNOWN_E; all.count++) {
    all.value.i64_array[all.count] = all.count;
  }
  EXPECT_EQ(take(LYN_WATCH_LTE, "rf_bandwidth", all), value(std::vector<double>(std::begin(lte), std::end(lte))));
  EXPECT_EQ(take(LYN_WATCH_NR5G, "rf_bandwidth", all),
            value(std::vector<double>{5, 10, 15, 20, 25, 30, 40, 50, 60, 80, 100, 200, 400}));
  for (int64_t i = 0; i < 5; i++) {
    EXPECT_EQ(take(LYN_WATCH_NR5G, "scs", record_with(OX_LYN_SCS_15_KHZ_E + i)), value(int64_t{15} << i));
  }
}

TEST(lyn_watch_items, every_answer_of_the_receiver_and_result_of_a_test_has_its_name) {
  EXPECT_EQ(
      named(-2, 5,
            [](int64_t code) {
              ox_lyn_loc_single_shot_t shot = {};
              shot.response = static_cast<uint32_t>(code);
              return take_event(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, record_of(&shot))[0].second;
            }),
      "other invalid success failure not_supported param_invalid timeout other");
  const auto of_test = [](size_t field) {
    return [field](int64_t code) {
      const auto number = static_cast<uint32_t>(code);
      ox_lyn_mtpe_status_t mtpe = {.test_type = number, .failure_reason = 0, .test_status = number, .peak_rate = 0};
      return take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, record_of(&mtpe))[field].second;
    };
  };
  EXPECT_EQ(named(0, 3, of_test(0)), "other uplink downlink other");
  EXPECT_EQ(named(0, 4, of_test(1)), "aborted configured completed failed other");
}

/* What an event carries */

TEST(lyn_watch_items, measured_events_carry_the_value_of_their_item) {
  for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
    if (kind.item != nullptr) {
      const auto fields = take_event(kind.record_type, kind.id, record_with(OX_LYN_REG_LTE_E));
      const lyn_watch_value_t taken = take(kind.radio, kind.item, record_with(OX_LYN_REG_LTE_E));
      EXPECT_THAT(fields, ElementsAre(field_t("value", taken))) << kind.name;
    }
  }
}

TEST(lyn_watch_items, modem_events_tell_up_from_down) {
  const auto state = [](int64_t code) {
    return take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_MODEM_STATUS_E, record_with(code)).front().second;
  };
  EXPECT_EQ(state(OX_LYN_MODEM_UP_E), value(std::string("up")));
  EXPECT_EQ(state(OX_LYN_MODEM_DOWN_E), value(std::string("down")));
  EXPECT_EQ(state(1), value(std::string("other")));
}

TEST(lyn_watch_items, events_that_lost_their_block_carry_nothing) {
  for (const lyn_watch_event_kind_t &kind : lyn_watch_event_kinds) {
    if (kind.block) {
      EXPECT_TRUE(kind.take(record_of(nullptr)).empty()) << kind.name;
    }
  }
}

std::string names_of(const std::vector<field_t> &fields) {
  std::string names;
  for (const field_t &field : fields) {
    names += field.first + " ";
  }
  return names;
}

TEST(lyn_watch_items, throughput_events_have_a_rate_once_completed) {
  ox_lyn_mtpe_status_t mtpe = {.test_type = OX_LYN_MTPE_TYPE_UPLINK_E,
                               .failure_reason = 0,
                               .test_status = OX_LYN_MTPE_STATUS_CONFIGURED_E,
                               .peak_rate = 5};
  const auto fields = [&] { return take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, record_of(&mtpe)); };
  EXPECT_EQ(names_of(fields()), "test value ");
  mtpe.test_status = OX_LYN_MTPE_STATUS_COMPLETED_E;
  EXPECT_THAT(fields(), ElementsAre(field_t("test", std::string("uplink")), field_t("value", std::string("completed")),
                                    field_t("peak_rate", int64_t{5})));
}

TEST(lyn_watch_items, the_other_events_carry_the_members_of_their_blocks) {
  ox_lyn_qos_flow_t flow = {.bearer_id = 5, .tx_5g_qci = 1, .rx_5g_qci = 2};
  EXPECT_THAT(take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_QOS_FLOW_E, record_of(&flow)),
              ElementsAre(field_t("bearer", int64_t{5}), field_t("tx_5qi", int64_t{1}), field_t("rx_5qi", int64_t{2})));
  ox_lyn_pps_ind_t pps = {.position_index = 2, .mode = OX_LYN_PPS_MODE_START_E};
  EXPECT_THAT(take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_PPS_CHANGE_E, record_of(&pps)),
              ElementsAre(field_t("position", int64_t{2}), field_t("mode", int64_t{1})));
  ox_lyn_install_freq_list_t list = {.count = 1,
                                     .entries = {{.arfcn = 2079167, .band = 261, .scs = 3, .rsrp = -88, .snr = 1}}};
  EXPECT_THAT(take_event(OX_LYN_RECORD_IND_E, OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E, record_of(&list)),
              ElementsAre(field_t("channel", std::vector<double>{2079167}), field_t("rsrp", std::vector<double>{-88})));
  ox_lyn_lte_nbr_info_t lte = {};
  lte.cells[0].present = 1;
  EXPECT_THAT(take_event(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LTE_NBR_INFO_E, record_of(&lte)),
              ElementsAre(field_t("cells", int64_t{1})));
  ox_lyn_loc_batch_t batch = {.status = 1, .response = OX_LYN_LOC_RESPONSE_INVALID_E, .locations = nullptr, .count = 3};
  EXPECT_THAT(take_event(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_BATCH_E, record_of(&batch)),
              ElementsAre(field_t("value", std::string("invalid")), field_t("locations", int64_t{3})));
}

TEST(lyn_watch_items, a_shot_has_a_place_where_one_was_found) {
  ox_lyn_loc_single_shot_t shot = {};
  shot.response = OX_LYN_LOC_RESPONSE_TIMEOUT_E;
  const auto fields = [&] {
    return take_event(OX_LYN_RECORD_ASYNC_E, OX_LYN_ASYNC_LOC_SINGLE_SHOT_E, record_of(&shot));
  };
  EXPECT_THAT(fields(), ElementsAre(field_t("value", std::string("timeout"))));
  shot.response = OX_LYN_LOC_RESPONSE_SUCCESS_E;
  shot.location.flags = OX_LYN_LOC_FLAG_LAT_LONG_E;
  shot.location.latitude = 51.5;
  shot.location.longitude = -8.25;
  EXPECT_THAT(fields(), ElementsAre(field_t("value", std::string("success")), field_t("latitude", 51.5),
                                    field_t("longitude", -8.25)));
}

}  // namespace
