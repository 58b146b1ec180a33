/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The drive-test reader: every rule on dirty logs, and the recorded drives (where LYN_DRIVES names their folder)
 * against an independent reading.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "sim_scenario.h"

namespace {

const std::string header =
    "Timestamp,Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n";
const std::string clean_row = "2020.02.14_07.29.00,-8.388198,51.93559,36,LTE,-90,-8,5.0,10,9CBA,11016962,-95.0,-10.0\n";

class sim_trace_test : public testing::Test {
 protected:
  void SetUp() override {
    const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
    file_ = (std::filesystem::temp_directory_path() / (name + '.' + std::to_string(getpid()))).string();
  }
  void TearDown() override { std::filesystem::remove(file_); }

  std::vector<sim_trace_row> load(const std::string &text) {
    std::ofstream(file_, std::ios::binary) << text;
    std::string error;
    std::optional<std::vector<sim_trace_row>> rows = sim_trace_load(file_, error);
    EXPECT_TRUE(rows) << error;
    return rows.value_or(std::vector<sim_trace_row>(1));
  }

  /** The only row of a log whose `column` holds `field` and whose other columns are clean. */
  sim_trace_row with(const std::string &column, const std::string &field) {
    std::vector<std::string> names = cut(header), fields = cut(clean_row);
    const auto found = std::find(names.begin(), names.end(), column);
    if (found == names.end()) {
      names.push_back(column);
      fields.push_back(field);
    } else {
      fields[static_cast<size_t>(found - names.begin())] = field;
    }
    const std::vector<sim_trace_row> rows = load(join(names) + join(fields));
    EXPECT_EQ(rows.size(), 1U);
    return rows[0];
  }

  /** What is wrong, without the file's name. */
  std::string error_of(const std::string &text) {
    std::ofstream(file_, std::ios::binary) << text;
    std::string error;
    EXPECT_FALSE(sim_trace_load(file_, error));
    EXPECT_EQ(error.find(file_), 0U) << error;
    return error.substr(std::min(error.size(), file_.size()));
  }

  static std::vector<std::string> cut(const std::string &line) {
    std::vector<std::string> fields;
    std::istringstream in(line.substr(0, line.find('\n')));
    for (std::string field; std::getline(in, field, ',');) {
      fields.push_back(field);
    }
    return fields;
  }

  static std::string join(const std::vector<std::string> &fields) {
    std::string line;
    for (const std::string &field : fields) {
      line += (line.empty() ? "" : ",") + field;
    }
    return line + '\n';
  }

 private:
  std::string file_;
};

TEST_F(sim_trace_test, a_clean_row_is_measured_whole) {
  const std::vector<sim_trace_row> rows = load(header + clean_row);
  ASSERT_EQ(rows.size(), 1U);
  const sim_trace_row &row = rows[0];
  EXPECT_EQ(row.lte, sim_srv::service);
  EXPECT_FALSE(row.nr5g_cell);
  EXPECT_EQ(row.rsrp, -90);
  EXPECT_EQ(row.rsrq, -8);
  EXPECT_EQ(row.snr, 50) << "0.1 dB";
  EXPECT_EQ(row.cqi, 10);
  EXPECT_EQ(row.tac, 0x9CBA);
  EXPECT_EQ(row.cgi, 11016962U);
  EXPECT_EQ(row.nbr_rsrp, -95);
  EXPECT_EQ(row.nbr_rsrq, -10);
  EXPECT_EQ(row.longitude, -8.388198);
  EXPECT_EQ(row.latitude, 51.93559);
  EXPECT_EQ(row.speed, 10.0) << "m/s";
  EXPECT_EQ(row.timestamp_ms, 1581665340000);
  EXPECT_FALSE(row.nr_rsrp);
  EXPECT_FALSE(row.nr_rsrq);
  EXPECT_FALSE(row.nr_snr);
}

TEST_F(sim_trace_test, columns_are_found_by_name_in_any_order) {
  std::vector<std::string> names = cut(header), fields = cut(clean_row);
  std::reverse(names.begin(), names.end());
  std::reverse(fields.begin(), fields.end());
  const sim_trace_row row = load(join(names) + join(fields))[0];
  EXPECT_EQ(row.rsrp, -90);
  EXPECT_EQ(row.nbr_rsrq, -10);
  EXPECT_EQ(row.timestamp_ms, 1581665340000);
}

TEST_F(sim_trace_test, a_second_byte_order_mark_is_of_the_first_name) {
  const std::string mark = "\xEF\xBB\xBF", text = "RSRP," + header + "-70," + clean_row;
  EXPECT_EQ(load(mark + text)[0].rsrp, -70);
  EXPECT_EQ(load(mark + mark + text)[0].rsrp, -90);
}

TEST_F(sim_trace_test, byte_order_mark_carriage_returns_blanks_and_quotes_are_tolerated) {
  std::string text = "\xEF\xBB\xBF\"Timestamp\"," + header.substr(10);
  text +=
      "\"2020.02.14_07.29.00\" , -8.388198,\t51.93559 ,36, \"LTE\",-90 ,-8,\"5.0\",10,9CBA,11016962,-95.0, -10.0 \t\n";
  for (size_t at = 0; (at = text.find('\n', at)) != std::string::npos; at += 2) {
    text.replace(at, 1, "\r\n");
  }
  const std::vector<sim_trace_row> rows = load(text + "\r\n\n");
  EXPECT_EQ(load(text + "\r\n  \n").size(), 1U);
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].lte, sim_srv::service);
  EXPECT_EQ(rows[0].snr, 50);
  EXPECT_EQ(rows[0].nbr_rsrq, -10);
  EXPECT_EQ(rows[0].timestamp_ms, 1581665340000);
}

TEST_F(sim_trace_test, a_comma_inside_quotes_belongs_to_the_field) {
  const std::string names = "Operatorname," + header;
  EXPECT_EQ(load(names + "\"A, B\"," + clean_row)[0].rsrp, -90);
}

TEST_F(sim_trace_test, network_modes_are_lte_5g_and_anything_else) {
  EXPECT_EQ(with("NetworkMode", "LTE").lte, sim_srv::service);
  EXPECT_FALSE(with("NetworkMode", "LTE").nr5g_cell);
  EXPECT_EQ(with("NetworkMode", "5G").lte, sim_srv::service);
  EXPECT_TRUE(with("NetworkMode", "5G").nr5g_cell);
  for (const char *other : {"HSPA+", "HSUPA", "UMTS", "EDGE", "", "-", "lte", "LTE+", "5", "5G-NR"}) {
    EXPECT_EQ(with("NetworkMode", other).lte, sim_srv::no_service) << other;
    EXPECT_FALSE(with("NetworkMode", other).nr5g_cell) << other;
  }
}

TEST_F(sim_trace_test, what_is_no_number_is_not_measured) {
  for (const char *field : {"-",       "",      "2147483647",     "2147483647.0",   "nan",  "inf", "-inf",    "x",
                            "-90x",    "--90",  "-90 dBm",        "0x5A",           "-.",   ".",   "-90e",    "-9-0",
                            "-9e999",  "\"-90", "+-90",           "-+90",           "++90", "+",   "-90e+-0", "-90e--0",
                            "-90e-+0", "-90e+", "-90e2147483647", "-90e-2147483648"}) {
    EXPECT_FALSE(with("RSRP", field).rsrp) << field;
    EXPECT_FALSE(with("RSRQ", field).rsrq) << field;
    EXPECT_FALSE(with("SNR", field).snr) << field;
    EXPECT_FALSE(with("NRxRSRP", field).nbr_rsrp) << field;
    EXPECT_FALSE(with("NRxRSRQ", field).nbr_rsrq) << field;
    EXPECT_FALSE(with("CQI", field).cqi) << field;
    EXPECT_FALSE(with("RAWCELLID", field).cgi) << field;
    EXPECT_FALSE(with("Longitude", field).longitude) << field;
    EXPECT_FALSE(with("Latitude", field).latitude) << field;
    EXPECT_FALSE(with("Speed", field).speed) << field;
    EXPECT_FALSE(with("NR_SNR", field).nr_snr) << field;
  }
  EXPECT_FALSE(with("SNR", "+-5").snr);
  EXPECT_FALSE(with("CQI", "1e+-0").cqi);
  EXPECT_TRUE(with("RSRP", "-").rsrq) << "the other columns of the row stay measured";
}

TEST_F(sim_trace_test, numbers_have_their_ranges) {
  EXPECT_EQ(with("RSRP", "-156").rsrp, -156);
  EXPECT_EQ(with("RSRP", "-31").rsrp, -31);
  EXPECT_FALSE(with("RSRP", "-157").rsrp);
  EXPECT_FALSE(with("RSRP", "-30").rsrp);
  EXPECT_EQ(with("RSRQ", "-43").rsrq, -43);
  EXPECT_EQ(with("RSRQ", "20").rsrq, 20);
  EXPECT_FALSE(with("RSRQ", "-44").rsrq);
  EXPECT_FALSE(with("RSRQ", "21").rsrq);
  EXPECT_EQ(with("SNR", "-40").snr, -400);
  EXPECT_EQ(with("SNR", "50.0").snr, 500);
  EXPECT_FALSE(with("SNR", "-40.1").snr);
  EXPECT_FALSE(with("SNR", "50.1").snr);
  EXPECT_EQ(with("CQI", "0").cqi, 0);
  EXPECT_EQ(with("CQI", "15").cqi, 15);
  EXPECT_FALSE(with("CQI", "16").cqi);
  EXPECT_FALSE(with("CQI", "-1").cqi);
  EXPECT_FALSE(with("CQI", "271").cqi) << "never the low octet of a larger number";
  EXPECT_EQ(with("RAWCELLID", "4294967295").cgi, 4294967295U);
  EXPECT_FALSE(with("RAWCELLID", "4294967296").cgi);
  EXPECT_FALSE(with("RAWCELLID", "-1").cgi);
  EXPECT_EQ(with("NRxRSRP", "-31.0").nbr_rsrp, -31);
  EXPECT_FALSE(with("NRxRSRP", "-30.0").nbr_rsrp);
  EXPECT_FALSE(with("NRxRSRQ", "20.5").nbr_rsrq);
  EXPECT_EQ(with("Latitude", "-90").latitude, -90);
  EXPECT_FALSE(with("Latitude", "90.000001").latitude);
  EXPECT_EQ(with("Longitude", "180").longitude, 180);
  EXPECT_FALSE(with("Longitude", "-180.5").longitude);
  EXPECT_FALSE(with("Speed", "-1").speed);
}

TEST_F(sim_trace_test, fractions_round_half_away_from_zero) {
  const std::map<std::string, int> rsrp = {{"-90.5", -91},   {"-90.49999999999999999999", -90},
                                           {"-91.5", -92},   {"-90.4", -90},
                                           {"-99.5", -100},  {"-9.05e1", -91},
                                           {"-905E-1", -91}, {"-0090.50", -91}};
  for (const auto &[field, value] : rsrp) {
    EXPECT_EQ(with("RSRP", field).rsrp, value) << field;
  }
  const std::map<std::string, int> snr = {{"5.0", 50},    {"5", 50},        {"5.26", 53},  {"5.24", 52}, {"5.25", 53},
                                          {"-5.25", -53}, {"0.05", 1},      {"-0.05", -1}, {"0.04", 0},  {"-0.04", 0},
                                          {"+7.5", 75},   {"1.005e1", 101}, {".25", 3},    {"12.", 120}, {"8.15", 82}};
  for (const auto &[field, value] : snr) {
    EXPECT_EQ(with("SNR", field).snr, value) << field;
  }
  EXPECT_EQ(with("RSRQ", "-8.5").rsrq, -9);
  EXPECT_EQ(with("RSRQ", "0.5").rsrq, 1);
  EXPECT_EQ(with("CQI", "9.5").cqi, 10);
  EXPECT_EQ(with("RAWCELLID", "11016962.0").cgi, 11016962U);
}

TEST_F(sim_trace_test, every_half_of_a_tenth_rounds_away_from_zero) {
  for (int twentieths = 1; twentieths < 1000; twentieths += 2) {  // 0.05 to 49.95 dB
    char field[32];
    snprintf(field, sizeof(field), "%d.%02d", twentieths * 5 / 100, twentieths * 5 % 100);
    EXPECT_EQ(with("SNR", field).snr, (twentieths + 1) / 2) << field;
  }
}

TEST_F(sim_trace_test, the_tracking_area_is_hexadecimal) {
  EXPECT_EQ(with("LACHEX", "9CBA").tac, 0x9CBA);
  EXPECT_EQ(with("LACHEX", "9cba").tac, 0x9CBA);
  EXPECT_EQ(with("LACHEX", "0").tac, 0);
  EXPECT_EQ(with("LACHEX", "10").tac, 16);
  EXPECT_EQ(with("LACHEX", "FFFF").tac, 0xFFFF);
  for (const char *field : {"", "-", "10000", "2147483647", "-1", "0x9CBA", "9CBG", "9C BA"}) {
    EXPECT_FALSE(with("LACHEX", field).tac) << field;
  }
}

TEST_F(sim_trace_test, positions_are_kept_to_the_last_digit) {
  EXPECT_EQ(with("Latitude", "51.935590000000005").latitude, 51.935590000000005);
  EXPECT_EQ(with("Longitude", "-8.394544999999999").longitude, -8.394544999999999);
}

TEST_F(sim_trace_test, the_nr_columns_are_optional) {
  const sim_trace_row row = with("NR_RSRP", "-101");
  EXPECT_EQ(row.nr_rsrp, -101);
  EXPECT_FALSE(row.nr_rsrq);
  EXPECT_EQ(with("NR_RSRQ", "-11.5").nr_rsrq, -12);
  EXPECT_EQ(with("NR_SNR", "13.5").nr_snr, 135);
}

TEST_F(sim_trace_test, odd_timestamps_lose_no_row) {
  EXPECT_EQ(with("Timestamp", "1970.01.01_00.00.01").timestamp_ms, 1000);
  for (const char *field :
       {"", "-", "yesterday", "2020.02.30_07.29.00", "2020.02.14_24.00.00", "2020.02.14 07.29.00"}) {
    EXPECT_EQ(with("Timestamp", field).timestamp_ms, 0) << field;
  }
  const std::string earlier = "2019" + clean_row.substr(4);
  EXPECT_EQ(load(header + clean_row + earlier + clean_row + clean_row).size(), 4U);
}

TEST_F(sim_trace_test, missing_trailing_fields_are_not_measured) {
  const std::vector<sim_trace_row> rows = load(header + "2020.02.14_07.29.00,-8.4,51.9,0,LTE,-90,-8\n,\n" + clean_row +
                                               clean_row.substr(0, clean_row.size() - 1) + ",more,fields\n");
  ASSERT_EQ(rows.size(), 4U);
  EXPECT_EQ(rows[0].rsrq, -8);
  EXPECT_FALSE(rows[0].snr);
  EXPECT_FALSE(rows[0].nbr_rsrq);
  EXPECT_EQ(rows[1].lte, sim_srv::no_service);
  EXPECT_EQ(rows[3].nbr_rsrq, -10);
}

TEST_F(sim_trace_test, a_last_line_that_breaks_off_gives_no_half_numbers) {
  const std::string broken = "2020.02.14_07.29.00,-8.4,51.9,0,LTE,-90,-1";  // of -13
  const std::vector<sim_trace_row> rows = load(header + clean_row + broken);
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[1].rsrp, -90);
  EXPECT_FALSE(rows[1].rsrq);
  EXPECT_EQ(load(header + clean_row + broken + ",")[1].rsrq, -1) << "the comma says that the field is whole";
}

TEST_F(sim_trace_test, a_whole_last_line_needs_no_line_break) {
  const std::vector<sim_trace_row> rows = load(header + clean_row.substr(0, clean_row.size() - 1));
  EXPECT_EQ(rows[0].nbr_rsrq, -10);
}

TEST_F(sim_trace_test, a_missing_column_is_an_error_with_its_line) {
  for (const std::string &name : cut(header)) {
    if (name == "Timestamp") {
      continue;
    }
    std::vector<std::string> names = cut(header);
    std::erase(names, name);
    EXPECT_EQ(error_of(join(names) + clean_row), ":1: no column " + name);
    EXPECT_EQ(error_of("\n\n" + join(names) + clean_row), ":3: no column " + name);
  }
  EXPECT_EQ(error_of("Timestamp,Longitude,RSRP\n1,2,3\n"),
            ":1: no column Latitude, Speed, NetworkMode, RSRQ, SNR, CQI, LACHEX, RAWCELLID, NRxRSRP, NRxRSRQ");
}

TEST_F(sim_trace_test, a_file_that_is_no_log_is_an_error_with_its_line) {
  EXPECT_EQ(error_of(""), ":1: not a drive test: the file is empty");
  EXPECT_EQ(error_of("\n \n"), ":1: not a drive test: the file is empty");
  EXPECT_EQ(error_of("hello\n" + header), ":1: not a drive test: no header line with its columns");
  EXPECT_EQ(error_of(std::string("\x7F"
                                 "ELF\0\0\n\0,,,",
                                 12)),
            ":1: not a drive test: no header line with its columns");
  EXPECT_EQ(error_of(clean_row), ":1: not a drive test: no header line with its columns");
  EXPECT_EQ(error_of(header), ":1: no rows behind the header");
  EXPECT_EQ(error_of(header + "\r\n\n"), ":1: no rows behind the header");
}

TEST_F(sim_trace_test, what_no_drive_can_be_is_refused_where_it_is_seen) {
  const std::string longest(65536, ','), commas = longest + ',';
  EXPECT_EQ(error_of(commas), ":1: a line of more than 65536 octets");
  EXPECT_EQ(error_of(header + clean_row + "\n" + commas), ":4: a line of more than 65536 octets");
  EXPECT_EQ(load(header + clean_row + longest).size(), 2U);
  std::string rows = header;
  for (int row = 0; row < 1000000; ++row) {
    rows += ",\n";
  }
  EXPECT_EQ(load(rows).size(), 1000000U);
  EXPECT_EQ(error_of(rows + "," + "\n"), ":1000002: more than 1000000 rows");
}

TEST_F(sim_trace_test, a_long_log_is_read_at_once) {
  std::string text = header;
  for (int row = 0; row < 100000; ++row) {
    text += clean_row;
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(load(text).size(), 100000U);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20)) << "a sanitizer build is slow, too";
}

// Putting a row in force.

sim_radio applied(const sim_trace_row &row, int nr5g_pci = 500) {
  sim_radio radio = sim_scenario_default().radio;
  sim_trace_apply(row, nr5g_pci, radio);
  return radio;
}

sim_trace_row lte_row() {
  sim_trace_row row;
  row.lte = sim_srv::service;
  row.rsrp = -90, row.rsrq = -8, row.snr = 50;
  row.nbr_rsrp = -95, row.nbr_rsrq = -10;
  row.cqi = uint8_t(10), row.cgi = 11016962U, row.tac = uint16_t(0x9CBA);
  row.latitude = 51.9, row.longitude = -8.4, row.speed = 10;
  row.timestamp_ms = 1581665340000;
  return row;
}

TEST(sim_trace_apply_test, an_lte_row_has_no_nr5g_cell) {
  const sim_radio radio = applied(lte_row());
  EXPECT_EQ(radio.sys_info.lte, sim_srv::service);
  EXPECT_EQ(radio.sys_info.nr5g, sim_srv::absent);
  EXPECT_EQ(radio.sys_info.nr5g_pci, -1);
  EXPECT_EQ(radio.lte.rsrp, -90);
  EXPECT_EQ(radio.lte.snr, 50);
  EXPECT_EQ(radio.lte.cqi, (std::vector<std::vector<uint8_t>>{{10}}));
  EXPECT_EQ(radio.lte.cgi, 11016962U);
  EXPECT_EQ(radio.lte.tac, 0x9CBA);
  EXPECT_TRUE(radio.lte.neighbour_measured);
  EXPECT_EQ(radio.lte.neighbour.at(0).rsrp, -95);
  EXPECT_EQ(radio.lte.neighbour.at(0).rsrq, -10);
  EXPECT_EQ(radio.lte.neighbour.at(0).pci, 301) << "what the log does not know is the scenario's";
  EXPECT_EQ(radio.lte.pci, 214);
  EXPECT_FALSE(radio.nr5g.rsrp) << "no NR columns";
  EXPECT_EQ(radio.nr5g.pci, 500);
}

TEST(sim_trace_apply_test, a_5g_row_has_the_cell_of_the_scenario) {
  sim_trace_row row = lte_row();
  row.nr5g_cell = true;
  row.nr_rsrp = -101, row.nr_rsrq = -12, row.nr_snr = 135;
  const sim_radio radio = applied(row, 77);
  EXPECT_EQ(radio.sys_info.lte, sim_srv::service);
  EXPECT_EQ(radio.sys_info.nr5g_pci, 77);
  EXPECT_EQ(radio.nr5g.rsrp, -101);
  EXPECT_EQ(radio.nr5g.rsrq, -12);
  EXPECT_EQ(radio.nr5g.snr, 135);
}

TEST(sim_trace_apply_test, what_no_column_tells_of_the_system_is_the_scenarios) {
  sim_radio radio = sim_scenario_default().radio;
  radio.sys_info.lte = sim_srv::limited;
  radio.sys_info.nr5g = sim_srv::power_save;
  radio.sys_info.lte_domain = 1;
  radio.sys_info.nr5g_capability = 2;
  sim_trace_apply(lte_row(), 500, radio);
  EXPECT_EQ(radio.sys_info.lte, sim_srv::service) << "the row's";
  EXPECT_EQ(radio.sys_info.nr5g, sim_srv::power_save);
  EXPECT_EQ(radio.sys_info.lte_domain, 1U);
  EXPECT_EQ(radio.sys_info.nr5g_capability, 2U);
}

TEST(sim_trace_apply_test, a_row_of_another_technology_has_no_lte_whatever_its_columns_hold) {
  sim_trace_row row = lte_row();
  row.lte = sim_srv::no_service;
  const sim_radio radio = applied(row);
  EXPECT_EQ(radio.sys_info.lte, sim_srv::no_service);
  EXPECT_EQ(radio.sys_info.nr5g_pci, -1);
  EXPECT_FALSE(radio.lte.rsrp);
  EXPECT_FALSE(radio.lte.rsrq);
  EXPECT_FALSE(radio.lte.snr);
  EXPECT_FALSE(radio.lte.cgi);
  EXPECT_FALSE(radio.lte.tac);
  EXPECT_TRUE(radio.lte.cqi.empty());
  EXPECT_FALSE(radio.lte.neighbour_measured);
  EXPECT_EQ(radio.location.fix.latitude, 51.9) << "the receiver does not need LTE";
}

TEST(sim_trace_apply_test, the_neighbour_needs_both_values) {
  sim_trace_row row = lte_row();
  row.nbr_rsrq.reset();
  EXPECT_FALSE(applied(row).lte.neighbour_measured);
  row = lte_row();
  row.nbr_rsrp.reset();
  EXPECT_FALSE(applied(row).lte.neighbour_measured);
}

TEST(sim_trace_apply_test, a_value_that_comes_back_is_measured_again) {
  sim_radio radio = sim_scenario_default().radio;
  sim_trace_apply(sim_trace_row(), 500, radio);
  sim_trace_apply(lte_row(), 500, radio);
  EXPECT_EQ(radio.lte.rsrq, -8);
  EXPECT_TRUE(radio.lte.neighbour_measured);
  EXPECT_EQ(radio.lte.neighbour.size(), 1U);
  EXPECT_EQ(radio.location.fix.flags, 0x1FFU);
}

TEST(sim_trace_apply_test, the_receiver_is_where_the_row_was_recorded) {
  const location_client::Location fix = applied(lte_row()).location.fix;
  EXPECT_EQ(fix.latitude, 51.9);
  EXPECT_EQ(fix.longitude, -8.4);
  EXPECT_EQ(fix.speed, 10.0F);
  EXPECT_EQ(fix.timestamp, 1581665340000U);
  EXPECT_EQ(fix.altitude, 36) << "the scenario's";
}

TEST(sim_trace_apply_test, half_a_position_is_none) {
  sim_trace_row row = lte_row();
  row.latitude.reset();
  row.speed.reset();
  row.timestamp_ms = 0;
  const location_client::Location fix = applied(row).location.fix;
  EXPECT_FALSE(fix.flags & location_client::LOCATION_HAS_LAT_LONG);
  EXPECT_FALSE(fix.flags & location_client::LOCATION_HAS_SPEED);
  EXPECT_FALSE(fix.flags & location_client::LOCATION_HAS_TIMESTAMP);
  EXPECT_TRUE(fix.flags & location_client::LOCATION_HAS_ALTITUDE);
  EXPECT_EQ(fix.longitude, 0);
}

// The recorded drives.

struct drive {
  const char *file;
  size_t rows;
};

class sim_trace_drive_test : public testing::TestWithParam<drive> {};

void PrintTo(const drive &of, std::ostream *out) {
  *out << of.file;
}

std::vector<std::map<std::string, std::string>> read_plainly(const std::string &file) {
  std::ifstream in(file);
  std::vector<std::map<std::string, std::string>> rows;
  std::vector<std::string> names;
  for (std::string line; std::getline(in, line);) {
    std::map<std::string, std::string> row;
    std::istringstream fields(line);
    std::string field;
    for (size_t at = 0; std::getline(fields, field, ','); ++at) {
      if (rows.empty() && names.size() == at) {
        names.push_back(field);
      }
      row[names.at(at)] = field;
    }
    rows.push_back(row);
  }
  rows.erase(rows.begin());
  return rows;
}

/** Whole numbers only: the drives hold no other fractions than .0. */
std::optional<int> plainly(const std::string &field, double min, double max, int scale = 1) {
  char *end = nullptr;
  const double value = strtod(field.c_str(), &end);
  if (field.empty() || field == "-" || *end || value < min || value > max) {
    return {};
  }
  EXPECT_EQ(value * scale, std::floor(value * scale)) << field;
  return static_cast<int>(value * scale);
}

TEST_P(sim_trace_drive_test, is_read_as_an_independent_reader_reads_it) {
  const char *folder = getenv("LYN_DRIVES");
  if (!folder) {
    GTEST_SKIP() << "LYN_DRIVES does not name the folder of the recorded drives";
  }
  const std::string file = std::string(folder) + '/' + GetParam().file;
  std::string error;
  const std::optional<std::vector<sim_trace_row>> rows = sim_trace_load(file, error);
  ASSERT_TRUE(rows) << error;
  ASSERT_EQ(rows->size(), GetParam().rows);
  const auto plain = read_plainly(file);
  ASSERT_EQ(plain.size(), rows->size());
  for (size_t at = 0; at < plain.size(); ++at) {
    const sim_trace_row &row = (*rows)[at];
    const auto field = [&plain, at](const char *name) { return plain[at].at(name); };
    SCOPED_TRACE("row " + std::to_string(at));
    const std::string mode = field("NetworkMode");
    EXPECT_EQ(row.lte == sim_srv::service, mode == "LTE" || mode == "5G");
    EXPECT_EQ(row.nr5g_cell, mode == "5G");
    EXPECT_EQ(row.rsrp, plainly(field("RSRP"), -156, -31));
    EXPECT_EQ(row.rsrq, plainly(field("RSRQ"), -43, 20));
    EXPECT_EQ(row.snr, plainly(field("SNR"), -40, 50, 10));
    EXPECT_EQ(row.nbr_rsrp, plainly(field("NRxRSRP"), -156, -31));
    EXPECT_EQ(row.nbr_rsrq, plainly(field("NRxRSRQ"), -43, 20));
    EXPECT_EQ(row.cqi.has_value(), plainly(field("CQI"), 0, 15).has_value());
    EXPECT_EQ(row.cqi.value_or(0), plainly(field("CQI"), 0, 15).value_or(0));
    EXPECT_EQ(row.cgi, strtoul(field("RAWCELLID").c_str(), nullptr, 10));
    EXPECT_EQ(row.tac, strtoul(field("LACHEX").c_str(), nullptr, 16));
    EXPECT_EQ(row.longitude, strtod(field("Longitude").c_str(), nullptr));
    EXPECT_EQ(row.latitude, strtod(field("Latitude").c_str(), nullptr));
    EXPECT_EQ(row.speed, strtod(field("Speed").c_str(), nullptr) / 3.6);
    EXPECT_GT(row.timestamp_ms, 1570000000000);
    if (HasFailure()) {
      break;
    }
  }
}

constexpr drive drives[] = {{"driving-lte-5g.csv", 2617},
                            {"driving-lte-5g-hspa-edge.csv", 2362},
                            {"driving-short.csv", 1084},
                            {"driving-hspa.csv", 2139},
                            {"static.csv", 3322}};

INSTANTIATE_TEST_SUITE_P(drives, sim_trace_drive_test, testing::ValuesIn(drives));

}  // namespace
