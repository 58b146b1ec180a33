/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The demo client's callback: what it prints for every event, the odd ones included, and what it frees. A block that it
 * does not free although it should is a leak that the leak checker reports; one freed twice is reported as well.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "../../demo/lyn_demo.h"

namespace {

/** Run the callback and return what it printed. */
std::string printed(ox_lyn_dm_info_t *event) {
  testing::internal::CaptureStdout();
  lyn_demo_user_cb(4711, event, 0);
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

ox_lyn_dm_info_t *record(uint32_t type, uint32_t id, uint32_t value_type, int64_t value = 0) {
  auto *event = static_cast<ox_lyn_dm_info_t *>(calloc(1, sizeof(ox_lyn_dm_info_t)));
  event->record_type = type;
  event->metric = id;
  event->value_type = value_type;
  event->value.i64 = value;
  return event;
}

std::string indication(uint32_t id, int64_t value, uint32_t value_type = OX_LYN_VALUE_INT64_E) {
  return printed(record(OX_LYN_RECORD_IND_E, id, value_type, value));
}

template <typename Block>
Block *block_of(const Block &from) {
  auto *block = static_cast<Block *>(calloc(1, sizeof(Block)));
  *block = from;
  return block;
}

std::string with_block(uint32_t type, uint32_t id, uint32_t value_type, void *block) {
  ox_lyn_dm_info_t *event = record(type, id, value_type);
  event->value.ptr = block;
  return printed(event);
}

/** The caller keeps and frees the block, as the callback does not. */
template <typename Block>
std::string kept_indication(uint32_t id, Block block) {
  return with_block(OX_LYN_RECORD_IND_E, id, OX_LYN_VALUE_INT64_E, &block);
}

std::string install_screen(const ox_lyn_install_freq_list_t &list) {
  return with_block(OX_LYN_RECORD_IND_E, OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E, OX_LYN_VALUE_INT64_E, block_of(list));
}

template <typename Block>
std::string response(uint32_t id, const Block &block, uint32_t value_type = OX_LYN_VALUE_LOCATION_E) {
  return with_block(OX_LYN_RECORD_ASYNC_E, id, value_type, block_of(block));
}

const std::string callback = "LYN DEMO APP CALLBACK - ";

/* Indications */

TEST(lyn_demo_cb, nothing_is_printed_for_no_event) {
  EXPECT_EQ(printed(nullptr), "");
}

TEST(lyn_demo_cb, numbers_have_a_line_each) {
  const struct {
    uint32_t id;
    int64_t value;
    std::string line;
  } rows[] = {
      {1, 9, callback + "Modem up status indication\n"},
      {1, 8, callback + "Modem down status indication\n"},
      {1, 7, ""},
      {1, 0, ""},
      {2, 5, callback + "Registration status indication[5].\n"},
      {2, 0xFFFFFFFF, callback + "Registration status indication[4294967295].\n"},
      {3, -95, callback + "LTE serving cell RSRP indication[-95].\n"},
      {3, INT64_MIN, callback + "LTE serving cell RSRP indication[-9223372036854775808].\n"},
      {4, -98, callback + "NR 5G serving cell RSRP indication[-98].\n"},
      {5, -11, callback + "LTE serving cell RRSQ indication[-11].\n"}, /* the letters are deliberate */
      {6, -12, callback + "NR 5G serving cell RSRQ indication[-12].\n"},
      {7, 130, callback + "LTE serving cell SINR indication[130].\n"},
      {8, 150, callback + "NR 5G serving cell SINR indication[150].\n"},
      {12, 3, "LYN DEMO APP indication for install status mode  3\n"},
      {12, 0x1FFFFFFFF, "LYN DEMO APP indication for install status mode  -1\n"},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(indication(row.id, row.value), row.line);
  }
}

TEST(lyn_demo_cb, an_unknown_indication_is_not_supported) {
  for (const uint32_t id : {0U, 14U, 4294967295U}) {
    EXPECT_EQ(indication(id, 5), "LYN DEMO APP : Invalid indication[" + std::to_string(id) + "] - Not Supported!!\n");
  }
}

TEST(lyn_demo_cb, an_indication_without_value_is_named_or_has_a_placeholder) {
  const struct {
    uint32_t id;
    const char *name;
  } rows[] = {{0, "Invalid Indication"},      {1, "Modem Status"},
              {2, "Registration Status"},     {3, "LTE Serving Cell RSRP"},
              {4, "NR 5G Serving Cell RSRP"}, {5, "LTE Serving Cell RSRQ"},
              {6, "NR 5G Serving Cell RSRQ"}, {7, "LTE Serving Cell SINR"},
              {8, "NR 5G Serving Cell SINR"}, {9, "Unknown Indication"},
              {13, "Unknown Indication"},     {4294967295, "Unknown Indication"}};
  for (const auto &row : rows) {
    EXPECT_EQ(indication(row.id, 9, OX_LYN_VALUE_NONE_E),
              callback + "Metric information not valid for indication[" + row.name + "].\n");
  }
}

TEST(lyn_demo_cb, a_throughput_status_has_lines_for_rate_and_failure_where_they_apply) {
  const std::string head = callback + "MTPE Test type 1\n" + callback + "MTPE Test status ";
  EXPECT_EQ(kept_indication(9, ox_lyn_mtpe_status_t{1, 0, 1, 93000}), head + "1\n");
  EXPECT_EQ(kept_indication(9, ox_lyn_mtpe_status_t{1, 0, 2, 93000}),
            head + "2\n" + callback + "MTPE Test peak rate caluculated 93000\n");
  EXPECT_EQ(kept_indication(9, ox_lyn_mtpe_status_t{1, 3, 3, 93000}),
            head + "3\n" + callback + "MTPE failure reason 3\n");
  EXPECT_EQ(kept_indication(9, ox_lyn_mtpe_status_t{1, 7, 2, 5}),
            head + "2\n" + callback + "MTPE Test peak rate caluculated 5\n" + callback + "MTPE failure reason 7\n");
}

TEST(lyn_demo_cb, a_qos_flow_prints_the_bearers_low_byte) {
  EXPECT_EQ(kept_indication(10, ox_lyn_qos_flow_t{0x105, 7, 6}),
            callback + "Successfully Recevied Indication Results\n" + callback + "QOS bearer ID 5\n" + callback +
                "QOS Tx_5g_qci value 7\n" + callback + "QOS Rx_5g_qci value 6\n");
}

TEST(lyn_demo_cb, a_panel_position_has_two_lines) {
  EXPECT_EQ(kept_indication(11, ox_lyn_pps_ind_t{2, 3}),
            "LYN DEMO APP indication result for PPS Index  2\nLYN DEMO APP indication result for PPS mode 3\n");
}

TEST(lyn_demo_cb, indications_without_their_block_print_nothing) {
  for (const uint32_t id : {9U, 10U, 11U, 13U}) {
    EXPECT_EQ(indication(id, 0), "");
  }
}

/* Install mode */

const std::string rule(60, '-');

std::string screen_head(int number) {
  return "\033[2J\033[31;5;1m\033#6LYN DEMO APP Indication Install Mode - Indication #" + std::to_string(number) +
         "\n\033[97m" + rule + "\n";
}

TEST(lyn_demo_cb, the_install_screen_is_coloured_and_deliberately_not_reset) {
  ox_lyn_install_freq_list_t list = {};
  list.count = 2;
  list.entries[0] = {2079167, 261, 4, -88, 12};
  list.entries[1] = {2070833, 260, static_cast<uint32_t>(-1), -32768, 32767};
  const std::string first = install_screen(list);
  EXPECT_EQ(first, screen_head(0) +
                       "\033[33;5m Arfcn            --> \033[32m 2079167\n"
                       "\033[33;5m NR5G Band        --> \033[32m 261\n"
                       "\033[33;5m Sub Carrier Freq --> \033[32m 4\n"
                       "\033[33;5m RSRP             --> \033[32m-88\n"
                       "\033[33;5m SNR              --> \033[32m12\n\033[39m" +
                       rule +
                       "\n\033[33;5m Arfcn            --> \033[32m 2070833\n"
                       "\033[33;5m NR5G Band        --> \033[32m 260\n"
                       "\033[33;5m Sub Carrier Freq --> \033[32m -1\n"
                       "\033[33;5m RSRP             --> \033[32m-32768\n"
                       "\033[33;5m SNR              --> \033[32m32767\n\033[39m" +
                       rule + "\n");
  EXPECT_EQ(first.find("\033[0m"), std::string::npos);
  /* The screens are numbered 0 and 1 in turn. */
  list.count = 0;
  EXPECT_EQ(install_screen(list), screen_head(1));
  EXPECT_EQ(install_screen(list), screen_head(0));
  EXPECT_EQ(install_screen(list), screen_head(1));
}

TEST(lyn_demo_cb, the_install_screen_ends_with_the_lists_room) {
  ox_lyn_install_freq_list_t list = {};
  list.count = 65535;
  const std::string text = install_screen(list);
  size_t entries = 0;
  for (size_t at = 0; (at = text.find(" Arfcn ", at)) != std::string::npos; at++) {
    entries++;
  }
  EXPECT_EQ(entries, 16U);
}

/* Neighbours */

const std::string lte_head = callback + "LTE neighbor information asynchronous response.\n";
const std::string nr5g_head = callback + "NR 5G neighbor information asynchronous response.\n";

TEST(lyn_demo_cb, lte_neighbours_plmn_lines_are_deliberately_numbered_by_plmn) {
  ox_lyn_lte_nbr_info_t info = {};
  info.cells[0] = {.present = 1,
                   .index = 1,
                   .earfcn = 1300,
                   .pci = 301,
                   .cgi_valid = 1,
                   .cgi = 10607299,
                   .plmn_valid = 1,
                   .plmn_count = 2,
                   .plmn = {{272, 1, 0}, {65535, 99, 1}, {}, {}}};
  info.cells[1] = {.present = 1,
                   .index = 2,
                   .earfcn = 4294967295,
                   .pci = 65535,
                   .cgi_valid = 0,
                   .cgi = 5,
                   .plmn_valid = 0,
                   .plmn_count = 1,
                   .plmn = {}};
  info.cells[3].present = 1; /* behind a gap: not listed */
  const std::string nbr = callback + "LTE neighbor #";
  EXPECT_EQ(response(1, info, OX_LYN_VALUE_LTE_NBR_E),
            lte_head + nbr + "0 : Frequency[1300]\n" + nbr + "0 : Cell ID[301]\n" + nbr +
                "0 : Global Cell ID[10607299]\n" + nbr + "0 : PLMN MCC[272]\n" + nbr + "0 : PLMN MNC[1]\n" + nbr +
                "0 : PLMN PCS[0]\n" + nbr + "1 : PLMN MCC[65535]\n" + nbr + "1 : PLMN MNC[99]\n" + nbr +
                "1 : PLMN PCS[1]\n" + nbr + "1 : Frequency[4294967295]\n" + nbr + "1 : Cell ID[65535]\n");
}

TEST(lyn_demo_cb, the_lte_signal_deliberately_says_rrsp_and_rrsq) {
  ox_lyn_lte_nbr_info_t info = {};
  info.serving.valid = 1;
  info.serving.earfcn = 1300;
  info.serving.pci = 301;
  const std::string head = lte_head + callback + "LTE neighbor signal information valid.\n" + callback +
                           "LTE neighbor cell ID[301]\n" + callback + "LTE neighbor frequency[1300]\n";
  EXPECT_EQ(response(1, info, OX_LYN_VALUE_LTE_NBR_E), head);
  info.serving.rsrp_valid = 1;
  info.serving.rsrp = -101;
  EXPECT_EQ(response(1, info, OX_LYN_VALUE_LTE_NBR_E), head + callback + "LTE neighbor RRSP[-101]\n");
  info.serving.rsrq_valid = 1;
  info.serving.rsrq = -14;
  EXPECT_EQ(response(1, info, OX_LYN_VALUE_LTE_NBR_E),
            head + callback + "LTE neighbor RRSP[-101]\n" + callback + "LTE neighbor RRSQ[-14]\n");
}

TEST(lyn_demo_cb, nr5g_neighbours_lines_are_numbered_by_neighbour) {
  ox_lyn_nr5g_nbr_info_t info = {};
  for (uint32_t i = 0; i < 2; i++) {
    ox_lyn_nr5g_nbr_t &cell = info.cells[i];
    cell.present = 1;
    cell.earfcn = 636000 + i;
    cell.pci = static_cast<uint16_t>(501 + i);
  }
  info.cells[1].rsrp_valid = 1;
  info.cells[1].rsrp = -104;
  info.cells[1].plmn_valid = 1;
  info.cells[1].plmn_count = 2;
  info.cells[1].plmn[1] = {272, 1, 1};
  info.cells[1].cgi_valid = 1;
  info.cells[1].cgi_count = 2;
  info.cells[1].cgi[0] = 68719476737;
  info.cells[1].cgi[1] = UINT64_MAX;
  const std::string nbr = callback + "NR 5G neighbor #";
  EXPECT_EQ(response(2, info, OX_LYN_VALUE_NR5G_NBR_E),
            nr5g_head + nbr + "0 : Cell ID[501]\n" + nbr + "0 : Frequency[636000]\n" + nbr + "1 : Cell ID[502]\n" +
                nbr + "1 : Frequency[636001]\n" + nbr + "1 : RRSP[-104]\n" + nbr + "1 : PLMN MCC[0]\n" + nbr +
                "1 : PLMN MNC[0]\n" + nbr + "1 : PLMN PCS[0]\n" + nbr + "1 : PLMN MCC[272]\n" + nbr +
                "1 : PLMN MNC[1]\n" + nbr + "1 : PLMN PCS[1]\n" + nbr + "1 : CGI[68719476737]\n" + nbr +
                "1 : CGI[18446744073709551615]\n");
}

TEST(lyn_demo_cb, neighbour_lists_end_with_their_room) {
  ox_lyn_lte_nbr_info_t lte = {};
  for (auto &cell : lte.cells) {
    cell = {.present = 1,
            .index = 0,
            .earfcn = 0,
            .pci = 0,
            .cgi_valid = 0,
            .cgi = 0,
            .plmn_valid = 1,
            .plmn_count = UINT32_MAX,
            .plmn = {}};
  }
  const std::string lte_text = response(1, lte, OX_LYN_VALUE_LTE_NBR_E);
  EXPECT_EQ(std::count(lte_text.begin(), lte_text.end(), '\n'), 1 + 5 * (2 + 4 * 3));
  ox_lyn_nr5g_nbr_info_t nr5g = {};
  for (auto &cell : nr5g.cells) {
    cell.present = 1;
    cell.plmn_valid = cell.cgi_valid = 1;
    cell.plmn_count = cell.cgi_count = UINT32_MAX;
  }
  const std::string nr5g_text = response(2, nr5g, OX_LYN_VALUE_NR5G_NBR_E);
  EXPECT_EQ(std::count(nr5g_text.begin(), nr5g_text.end(), '\n'), 1 + 10 * (2 + 12 * 3 + 11));
}

TEST(lyn_demo_cb, an_empty_neighbour_response_has_its_first_line_only) {
  EXPECT_EQ(response(1, ox_lyn_lte_nbr_info_t{}, OX_LYN_VALUE_LTE_NBR_E), lte_head);
  EXPECT_EQ(response(2, ox_lyn_nr5g_nbr_info_t{}, OX_LYN_VALUE_NR5G_NBR_E), nr5g_head);
}

TEST(lyn_demo_cb, a_neighbour_response_without_its_block_says_so) {
  EXPECT_EQ(printed(record(OX_LYN_RECORD_ASYNC_E, 1, OX_LYN_VALUE_LTE_NBR_E)),
            lte_head + callback + "LTE neighbor information asynchronous response extension not valid.\n");
  /* Deliberately without a line break. */
  EXPECT_EQ(printed(record(OX_LYN_RECORD_ASYNC_E, 2, OX_LYN_VALUE_NR5G_NBR_E)),
            nr5g_head + callback + "NR 5G neighbor information asynchronous response extension not valid.");
}

TEST(lyn_demo_cb, a_response_without_value_is_named_or_has_a_placeholder) {
  const struct {
    uint32_t id;
    const char *name;
  } rows[] = {{0, "Invalid Async Response"}, {1, "LTE Neighbor Info"},      {2, "NR 5G Neighbor Info"},
              {3, "Unknown Async Response"}, {4, "Unknown Async Response"}, {4294967295, "Unknown Async Response"}};
  for (const auto &row : rows) {
    EXPECT_EQ(printed(record(OX_LYN_RECORD_ASYNC_E, row.id, OX_LYN_VALUE_NONE_E)),
              callback + "Metric information not valid for async response[" + row.name + "].\n");
  }
}

/* Location */

ox_lyn_location_t somewhere(uint32_t flags) {
  ox_lyn_location_t location = {};
  location.flags = flags;
  location.timestamp = 1767225600000;
  location.latitude = 51.897463;
  location.longitude = -8.480187;
  location.altitude = 36;
  location.speed = 1.5F;
  location.bearing = 270;
  location.horizontal_accuracy = 5;
  location.vertical_accuracy = 8;
  location.speed_accuracy = 0.5F;
  location.bearing_accuracy = 10;
  location.tech_mask = 3;
  location.extra_time[0] = 111;
  location.extra_time[1] = 222;
  return location;
}

std::string location_text(uint32_t flags) {
  return "\n Location info Details: \n LocationFlagsMask is " + std::to_string(flags) +
         "   \n Timestamp is1767225600000 \n Latitude is 51.897463 \n Longitude is -8.480187 \n Altitude is 36.000000 "
         "\n Speed is 1.500000 \n Bearing is 270.000000 \n HorizontalAccuracy is 5.000000 \n VerticalAccuracy is "
         "8.000000 \n SpeedAccuracy is 0.500000 \n  BearingAccuracy is 10.000000 \n  Technology Flagmask is 3 \n ";
}

TEST(lyn_demo_cb, a_single_shot_prints_its_location_where_there_is_one) {
  const struct {
    uint32_t kind, response;
    bool location, stop;
  } rows[] = {{0, 0, true, false}, {0, 4, true, false}, {0, 1, false, false},
              {1, 0, false, true}, {1, 4, false, true}, {2, 0, false, false}};
  for (const auto &row : rows) {
    std::string text = "single shot location response is " + std::to_string(row.response) + " \n";
    if (row.location) {
      text += location_text(5);
    }
    if (row.stop) {
      text += "single shot location stop successful is " + std::to_string(row.response) + " \n";
    }
    EXPECT_EQ(response(3, ox_lyn_loc_single_shot_t{row.kind, row.response, somewhere(5)}), text);
  }
}

TEST(lyn_demo_cb, further_times_are_printed_where_their_flag_is_set) {
  const std::string head = "single shot location response is 0 \n";
  const auto shot = [](uint32_t flags) { return response(3, ox_lyn_loc_single_shot_t{0, 0, somewhere(flags)}); };
  EXPECT_EQ(shot(0x200), head + location_text(0x200) + " Timestamp is 111 \n");
  EXPECT_EQ(shot(0x400), head + location_text(0x400) + " Timestamp is 222 \n");
  EXPECT_EQ(shot(0x600), head + location_text(0x600) + " Timestamp is 111 \n Timestamp is 222 \n");
}

ox_lyn_loc_batch_t batch(int32_t status, int32_t code, uint8_t count, bool array) {
  ox_lyn_loc_batch_t block = {};
  block.status = status;
  block.response = code;
  block.count = count;
  if (array) {
    block.locations = static_cast<ox_lyn_location_t *>(calloc(count + 1U, sizeof(ox_lyn_location_t)));
    for (uint8_t i = 0; i < count; i++) {
      block.locations[i] = somewhere(i);
    }
  }
  return block;
}

TEST(lyn_demo_cb, a_batch_prints_every_location) {
  const std::string line = "########################################################### \n";
  EXPECT_EQ(response(4, batch(1, 0, 2, true)), "batching_routine_location_callback, batching status: 1, pos cnt 2 \n" +
                                                   line + "Batching location entry 0 : \n" + location_text(0) + line +
                                                   "Batching location entry 1 : \n" + location_text(1));
}

TEST(lyn_demo_cb, a_batch_that_failed_prints_its_status_only_and_frees_the_array) {
  EXPECT_EQ(response(4, batch(1, 3, 2, true)), "batching_routine_location_callback, batching status: 1, pos cnt 2 \n");
  EXPECT_EQ(response(4, batch(2, 0, 2, false)), "batching_routine_location_callback, batching status: 2, pos cnt 2 \n");
  EXPECT_EQ(response(4, batch(-1, 0, 0, false)),
            "batching_routine_location_callback, batching status: -1, pos cnt 0 \n");
  EXPECT_EQ(response(4, batch(1, 0, 255, false)),
            "batching_routine_location_callback, batching status: 1, pos cnt 255 \n");
}

TEST(lyn_demo_cb, a_location_response_without_its_block_prints_nothing) {
  for (const uint32_t id : {3U, 4U}) {
    EXPECT_EQ(printed(record(OX_LYN_RECORD_ASYNC_E, id, OX_LYN_VALUE_LOCATION_E)), "");
  }
}

/* What nobody knows: the event is deliberately not freed, so the test does it. */

TEST(lyn_demo_cb, an_unknown_response_is_not_supported_and_deliberately_not_freed) {
  for (const uint32_t id : {0U, 5U, 4294967295U}) {
    ox_lyn_dm_info_t *event = record(OX_LYN_RECORD_ASYNC_E, id, OX_LYN_VALUE_INT64_E);
    EXPECT_EQ(printed(event), "LYN DEMO APP : Asynchronous response[" + std::to_string(id) + "] - Not Supported!!\n");
    free(event);
  }
}

TEST(lyn_demo_cb, an_unknown_record_type_is_not_supported_and_deliberately_not_freed) {
  for (const uint32_t type : {0U, 1U, 4U, 4294967295U}) {
    ox_lyn_dm_info_t *event = record(type, 1, OX_LYN_VALUE_NONE_E);
    EXPECT_EQ(printed(event), "LYN DEMO APP : Info type[" + std::to_string(type) + "] - Not Supported!!\n");
    free(event);
  }
}

}  // namespace
