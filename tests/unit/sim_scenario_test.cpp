/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The scenario reader: its defaults, every key, every kind of error with its place, and the capacities.
 */
#include "sim_scenario.h"
#include "source_dir.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

const std::filesystem::path scenarios = source_path("tests/data/scenarios");

sim_scenario read(const std::string &text) {
  std::string error;
  std::optional<sim_scenario> scenario = sim_scenario_parse(text, "board.toml", ".", error);
  EXPECT_TRUE(scenario) << error;
  return scenario.value_or(sim_scenario());
}

std::string error_of(const std::string &text, const std::string &folder = ".") {
  std::string error;
  EXPECT_FALSE(sim_scenario_parse(text, "board.toml", folder, error)) << text;
  EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  return error;
}

std::string repeated(const std::string &text, int count) {
  std::string all;
  for (int at = 0; at < count; ++at) {
    all += text;
  }
  return all;
}

/** `entry` so many times, as the entries of a list. */
std::string entries(const std::string &entry, int count) {
  return repeated(entry + ", ", count);
}

sim_radio changed(const sim_timeline_entry &entry, sim_radio radio) {
  std::get<sim_ev_change>(entry.events.front()).apply(radio);
  return radio;
}

TEST(sim_scenario_test, an_empty_file_is_the_default_board) {
  const sim_scenario board = read("");
  EXPECT_EQ(board.board.seed, 1U);
  EXPECT_EQ(board.board.noise_db, 2);
  EXPECT_EQ(board.board.tick_ms, 1000U);
  EXPECT_TRUE(board.nas.available);
  EXPECT_EQ(board.radio.sys_info.lte, sim_srv::service);
  EXPECT_EQ(board.radio.sys_info.nr5g, sim_srv::absent);
  EXPECT_EQ(board.radio.sys_info.nr5g_pci, 500);
  EXPECT_EQ(board.radio.lte.cqi, (std::vector<std::vector<uint8_t>>{{12, 11}}));
  EXPECT_EQ(board.radio.lte.plmn[2], 0x10);
  ASSERT_EQ(board.radio.lte.neighbour.size(), 1U);
  EXPECT_EQ(board.radio.lte.neighbour[0].cgi, 10607299U);
  ASSERT_EQ(board.radio.lte.neighbour[0].plmn.size(), 1U);
  EXPECT_EQ(board.radio.lte.neighbour[0].plmn[0].mcc, 272);
  ASSERT_EQ(board.radio.nr5g.neighbour.size(), 1U);
  EXPECT_EQ(board.radio.nr5g.neighbour[0].cgi, (std::vector<uint64_t>{68719476737}));
  ASSERT_EQ(board.wwan.profile.size(), 1U);
  EXPECT_EQ(board.wwan.profile[0].apn, "internet");
  ASSERT_EQ(board.wwan.stats.size(), 1U);
  EXPECT_EQ(board.wwan.stats[0].rx_rate, 125000);
  EXPECT_EQ(board.radio.location.fix_ms, 500);
  EXPECT_EQ(board.radio.location.fix.latitude, 51.897463);
  EXPECT_EQ(board.radio.location.fix.longitude, -8.480187);
  EXPECT_TRUE(board.at.empty());
  EXPECT_TRUE(board.fault.empty());
  EXPECT_TRUE(board.rows.empty());
}

TEST(sim_scenario_test, every_scenario_of_the_tests_is_read) {
  int read_files = 0;
  for (const auto &file : std::filesystem::directory_iterator(scenarios)) {
    std::string error;
    EXPECT_TRUE(sim_scenario_load(file.path().string(), error)) << error;
    ++read_files;
  }
  EXPECT_GE(read_files, 4);
}

TEST(sim_scenario_test, every_key_is_stored_where_it_belongs) {
  std::string error;
  const std::optional<sim_scenario> read = sim_scenario_load((scenarios / "every_key.toml").string(), error);
  ASSERT_TRUE(read) << error;
  EXPECT_EQ(read->board.seed, 2U);
  EXPECT_EQ(read->board.noise_db, 0.5);
  EXPECT_EQ(read->board.tick_ms, 250U);
  EXPECT_FALSE(read->nas.available);
  EXPECT_EQ(read->nas.available_after_ms, 1500.5);

  const sim_sys_info &sys = read->radio.sys_info;
  EXPECT_EQ(sys.lte, sim_srv::power_save);
  EXPECT_EQ(sys.nr5g, sim_srv::limited_regional);
  EXPECT_EQ(sys.nr5g_pci, -1);
  EXPECT_EQ(sys.lte_domain, 1U);
  EXPECT_EQ(sys.lte_capability, 2U);
  EXPECT_EQ(sys.nr5g_domain, 4U);
  EXPECT_EQ(sys.nr5g_capability, 5U);

  const sim_lte &lte = read->radio.lte;
  EXPECT_EQ(lte.earfcn, 65535);
  EXPECT_EQ(lte.pci, 503);
  EXPECT_EQ(lte.tac, 65535);
  EXPECT_EQ(lte.cgi, 4294967295U);
  EXPECT_EQ(lte.plmn[0], 1);
  EXPECT_EQ(lte.plmn[2], 255);
  EXPECT_EQ(lte.rsrp, -32768);
  EXPECT_EQ(lte.rsrq, -128);
  EXPECT_EQ(lte.snr, 32767);
  EXPECT_EQ(lte.rssi, 127);
  EXPECT_EQ(lte.tx_power, INT32_MIN);
  EXPECT_EQ(lte.rrc_state, UINT32_MAX);
  ASSERT_EQ(lte.cqi.size(), 7U);
  EXPECT_EQ(lte.cqi[3], (std::vector<uint8_t>{7, 8, 9, 10}));
  EXPECT_TRUE(lte.cqi[4].empty());
  EXPECT_EQ(lte.dl_mod, (std::vector<uint32_t>{4}));
  EXPECT_EQ(lte.ul_mod, (std::vector<uint32_t>{0, 5}));
  EXPECT_EQ(lte.rf_bandwidth.size(), 16U);
  EXPECT_EQ(lte.ca_dl_bandwidth, 5U);
  ASSERT_EQ(lte.cell_lock.size(), 2U);
  EXPECT_EQ(lte.cell_lock[0].freq, 1300);
  EXPECT_EQ(lte.cell_lock[1].pci, 215);
  ASSERT_EQ(lte.neighbour.size(), 2U);
  EXPECT_EQ(lte.neighbour[0].earfcn, 2850U);
  EXPECT_EQ(lte.neighbour[0].pci, 77);
  EXPECT_EQ(lte.neighbour[0].cgi, 268435455U);
  EXPECT_EQ(lte.neighbour[0].rsrp, -99);
  EXPECT_EQ(lte.neighbour[0].rsrq, -9);
  ASSERT_EQ(lte.neighbour[0].plmn.size(), 4U);
  EXPECT_EQ(lte.neighbour[0].plmn[0].pcs_digit, 1);
  EXPECT_EQ(lte.neighbour[0].plmn[1].mcc, 1);
  EXPECT_EQ(lte.neighbour[0].plmn[3].mnc, 99);
  EXPECT_TRUE(lte.neighbour[1].plmn.empty());

  const sim_nr5g &nr5g = read->radio.nr5g;
  EXPECT_EQ(nr5g.arfcn, 9223372036854775807U);
  EXPECT_EQ(nr5g.pci, 1007);
  EXPECT_EQ(nr5g.cgi, 9223372036854775807U);
  EXPECT_EQ(nr5g.tac[0], 9);
  EXPECT_EQ(nr5g.plmn[2], 4);
  EXPECT_EQ(nr5g.rsrp, -80);
  EXPECT_FALSE(nr5g.rsrq);
  EXPECT_EQ(nr5g.snr, -32768);
  EXPECT_EQ(nr5g.tx_power, -1);
  EXPECT_EQ(nr5g.rrc_state, 0U);
  EXPECT_EQ(nr5g.scs, 4U);
  EXPECT_EQ(nr5g.cqi, (std::vector<std::vector<uint8_t>>{{1, 2}}));
  EXPECT_TRUE(nr5g.dl_mod.empty());
  EXPECT_EQ(nr5g.ul_mod, (std::vector<uint32_t>{7, 8}));
  EXPECT_EQ(nr5g.rf_bandwidth, (std::vector<uint32_t>{1}));
  EXPECT_EQ(nr5g.cell_lock.type, 1U);
  EXPECT_EQ(nr5g.cell_lock.pci, 2);
  EXPECT_EQ(nr5g.cell_lock.arfcn, 3U);
  EXPECT_EQ(nr5g.cell_lock.scs, 4U);
  ASSERT_EQ(nr5g.cell_lock.list.size(), 2U);
  EXPECT_EQ(nr5g.cell_lock.list[0].scs, 1U);
  EXPECT_EQ(nr5g.cell_lock.list[1].arfcn, 637000U);
  ASSERT_EQ(nr5g.neighbour.size(), 1U);
  EXPECT_EQ(nr5g.neighbour[0].arfcn, 637000U);
  EXPECT_EQ(nr5g.neighbour[0].pci, 9);
  EXPECT_EQ(nr5g.neighbour[0].rsrp, -70);
  EXPECT_EQ(nr5g.neighbour[0].cgi.size(), 3U);
  EXPECT_EQ(nr5g.neighbour[0].plmn[0].mcc, 310);
  EXPECT_EQ(nr5g.neighbour[0].plmn[0].mnc, 2);
  EXPECT_EQ(read->radio.endc.available, 0);
  EXPECT_EQ(read->radio.endc.restrict_dcnr, 255);

  EXPECT_EQ(read->scan.answer_ms, -1);
  EXPECT_EQ(read->scan.status, 3U);
  const sim_wwan_profile &profile = read->wwan.profile.at(0);
  EXPECT_EQ(profile.index, 7U);
  EXPECT_EQ(profile.subscription, 2U);
  EXPECT_EQ(profile.technology, 2U);
  EXPECT_EQ(profile.ip_family, 10U);
  EXPECT_EQ(profile.id_3gpp, 255);
  EXPECT_EQ(profile.id_3gpp2, 254);
  EXPECT_EQ(profile.apn, "ims");
  const sim_wwan_stats &stats = read->wwan.stats.at(0);
  EXPECT_EQ(stats.handle, 7U);
  EXPECT_EQ(stats.ip_family, 6U);
  EXPECT_EQ(stats.bytes_rx, 9223372036854775807U);
  EXPECT_EQ(stats.bytes_tx, 2U);
  EXPECT_EQ(stats.pkts_rx, 3U);
  EXPECT_EQ(stats.pkts_tx, 4U);
  EXPECT_EQ(stats.dropped_rx, 5U);
  EXPECT_EQ(stats.dropped_tx, UINT32_MAX);
  EXPECT_EQ(stats.rx_rate, 0);
  EXPECT_EQ(stats.tx_rate, 0.5);
  EXPECT_EQ(read->wwan.qos.bearer, 255);
  EXPECT_EQ(read->wwan.qos.tx_5qi, 1U);
  EXPECT_EQ(read->wwan.qos.rx_5qi, 2U);
  EXPECT_EQ(read->wwan.qos.answer_ms, 0);
  EXPECT_EQ(read->mtpe.configured_ms, -1);
  EXPECT_EQ(read->mtpe.duration_ms, 0);
  EXPECT_EQ(read->mtpe.result, "aborted");
  EXPECT_EQ(read->mtpe.failure_reason, 9U);
  EXPECT_EQ(read->mtpe.peak_rate_kbps, 1U);
  EXPECT_EQ(read->mtpe.bandwidth_kbps, -2);
  EXPECT_EQ(read->mtpe.mtu, 1280);

  const sim_location &location = read->radio.location;
  EXPECT_EQ(location.capabilities_ms, -1);
  EXPECT_EQ(location.capabilities, 1U);
  EXPECT_EQ(location.response, 3U);
  EXPECT_EQ(location.fix_ms, 0);
  EXPECT_EQ(location.repeat_fix, 2U);
  EXPECT_TRUE(location.fix_when_refused);
  EXPECT_EQ(location.late_ms, 5);
  EXPECT_EQ(location.batch, 300U);
  EXPECT_EQ(location.batch_status, 2);
  EXPECT_EQ(location.fix.flags, 0x700U);
  EXPECT_EQ(location.fix.timestamp, 1U);
  EXPECT_EQ(location.fix.latitude, -90);
  EXPECT_EQ(location.fix.longitude, 180);
  EXPECT_EQ(location.fix.altitude, -11.5);
  EXPECT_EQ(location.fix.speed, 1.5F);
  EXPECT_EQ(location.fix.bearing, 359.5F);
  EXPECT_EQ(location.fix.horizontalAccuracy, 1);
  EXPECT_EQ(location.fix.verticalAccuracy, 2);
  EXPECT_EQ(location.fix.speedAccuracy, 3);
  EXPECT_EQ(location.fix.bearingAccuracy, 4);
  EXPECT_EQ(location.fix.techMask, UINT32_MAX);
  EXPECT_EQ(location.fix.extraTime[1], 12U);

  const sim_fault_rule &fault = read->fault.at(0);
  EXPECT_EQ(fault.on, "nas.79");
  EXPECT_EQ(fault.skip, 1);
  EXPECT_EQ(fault.times, -1);
  EXPECT_EQ(fault.transport, -3);
  EXPECT_EQ(fault.result, 1U);
  EXPECT_EQ(fault.error, 46U);
  EXPECT_EQ(fault.clear, (std::vector<std::string>{"lte_sig_info_valid"}));
  EXPECT_EQ(fault.delay_ms, 0.5);
  EXPECT_TRUE(fault.late);
  EXPECT_EQ(fault.truncate, 7U);
  EXPECT_EQ(fault.modem, "restart");
  ASSERT_TRUE(fault.sys_info);
  sim_radio radio;
  fault.sys_info->apply(radio);
  EXPECT_EQ(radio.sys_info.lte, sim_srv::limited);
  EXPECT_EQ(radio.sys_info.nr5g_pci, -1);
  EXPECT_EQ(read->trace.speed, 0);
  EXPECT_EQ(read->trace.after, "location.getSinglePosition");
  EXPECT_EQ(read->trace.skip, 2);
}

TEST(sim_scenario_test, an_entry_of_the_timeline_becomes_events_in_their_order) {
  std::string error;
  const std::optional<sim_scenario> read = sim_scenario_load((scenarios / "every_key.toml").string(), error);
  ASSERT_TRUE(read) << error;
  const sim_timeline_entry &entry = read->at.at(0);
  EXPECT_EQ(entry.when.ms, 1.5);
  EXPECT_EQ(entry.when.after, "nas.108");
  EXPECT_EQ(entry.when.skip, 3);
  EXPECT_EQ(entry.repeat, 1000);
  EXPECT_EQ(entry.every_ms, 0.5);
  ASSERT_EQ(entry.events.size(), 7U);
  const sim_ev_change &change = std::get<sim_ev_change>(entry.events[0]);
  EXPECT_TRUE(change.sys_info);
  EXPECT_TRUE(change.measurement);
  EXPECT_TRUE(change.location);
  EXPECT_FALSE(std::get<sim_ev_modem>(entry.events[1]).up);
  EXPECT_EQ(std::get<sim_ev_panel>(entry.events[2]).index, 2);
  EXPECT_EQ(std::get<sim_ev_panel>(entry.events[2]).changed, 1);
  EXPECT_EQ(std::get<sim_ev_panel>(entry.events[2]).mode, 1U);
  EXPECT_EQ(std::get<sim_ev_install_status>(entry.events[3]).status, 1U);
  EXPECT_EQ(std::get<sim_ev_install_measurement>(entry.events[4]).freqs.at(0).band, 261U);
  EXPECT_EQ(std::get<sim_ev_install_measurement>(entry.events[4]).freqs.at(0).rsrp, -88);
  EXPECT_EQ(std::get<sim_ev_qos_flow>(entry.events[5]).rx_5qi, 2U);
  const sim_ev_raw &raw = std::get<sim_ev_raw>(entry.events[6]);
  EXPECT_EQ(raw.lib, "oxmap");
  EXPECT_EQ(raw.id, 264U);
  EXPECT_EQ(raw.bytes, (std::vector<uint8_t>{1, 2, 0xAA, 0xFF}));
}

TEST(sim_scenario_test, a_patch_changes_exactly_the_keys_that_it_gives) {
  const sim_scenario board = read("[[at]]\nlte = { rsrp = -101 }\nsys_info = { lte = \"limited\" }\n");
  const sim_radio radio = changed(board.at.at(0), board.radio);
  EXPECT_EQ(radio.lte.rsrp, -101);
  EXPECT_EQ(radio.lte.rsrq, -11);
  EXPECT_EQ(radio.lte.neighbour.size(), 1U);
  EXPECT_EQ(radio.sys_info.lte, sim_srv::limited);
  EXPECT_EQ(radio.sys_info.nr5g_pci, 500);
  EXPECT_EQ(radio.nr5g.rsrp, -98);

  const sim_ev_change &change = std::get<sim_ev_change>(board.at[0].events.at(0));
  EXPECT_FALSE(change.location);
}

TEST(sim_scenario_test, a_patch_can_be_applied_again_and_again) {
  const sim_scenario board = read("[[at]]\nnr5g = { cell_lock = { list = [{ arfcn = 1 }] }, rsrp = \"absent\" }\n");
  sim_radio radio = board.radio;
  radio.nr5g.cell_lock.type = 2;
  for (int time = 0; time < 3; ++time) {
    radio.nr5g.rsrp = -50;
    radio = changed(board.at.at(0), radio);
    EXPECT_FALSE(radio.nr5g.rsrp);
    EXPECT_EQ(radio.nr5g.cell_lock.list.size(), 1U);
    EXPECT_EQ(radio.nr5g.cell_lock.type, 2U) << "not given, so it stays";
  }
}

TEST(sim_scenario_test, a_given_list_replaces_the_default) {
  EXPECT_TRUE(read("lte.neighbour = []\n").radio.lte.neighbour.empty());
  EXPECT_TRUE(read("nr5g.neighbour = []\n").radio.nr5g.neighbour.empty());
  EXPECT_TRUE(read("[wwan]\nprofile = []\nstats = []\n").wwan.profile.empty());
  const sim_scenario one = read("[[lte.neighbour]]\npci = 7\n");
  ASSERT_EQ(one.radio.lte.neighbour.size(), 1U);
  EXPECT_EQ(one.radio.lte.neighbour[0].pci, 7);
  EXPECT_EQ(one.radio.lte.neighbour[0].rsrp, -101) << "what an entry does not give has its default";
}

TEST(sim_scenario_test, a_real_number_may_be_written_as_an_integer) {
  EXPECT_EQ(read("board.noise_db = 3").board.noise_db, 3);
  EXPECT_EQ(read("location.latitude = 51").radio.location.fix.latitude, 51);
}

struct wrong {
  const char *name, *text, *error;
};

void PrintTo(const wrong &of, std::ostream *out) {
  *out << of.name;
}

class sim_scenario_error_test : public testing::TestWithParam<wrong> {};

TEST_P(sim_scenario_error_test, is_one_line_with_its_place) {
  EXPECT_EQ(error_of(GetParam().text), GetParam().error);
}

constexpr wrong errors[] = {
    {"broken_toml", "[lte\nrsrp = 1\n", "board.toml:1:5: Error while parsing table header: expected ']', saw '\\n'"},
    {"a_key_given_twice", "[scan]\nstatus = 1\nstatus = 2\n",
     "board.toml:3:10: Error while parsing key-value pair: cannot redefine existing integer 'status'"},
    {"unknown_table", "[boards]\n",
     "board.toml:1:2: boards: unknown key; the keys here are board, nas, sys_info, lte, nr5g, endc, scan, wwan, mtpe, "
     "location, at, fault, trace"},
    {"unknown_key", "[scan]\nanswer_ms = 1\nanswer = 2\n",
     "board.toml:3:1: scan.answer: unknown key; the keys here are answer_ms, status"},
    {"unknown_key_in_a_list", "[[wwan.stats]]\n[[fault]]\non = \"nas.79\"\n[[fault]]\non = \"nas.3\"\nfoo = 1\n",
     "board.toml:6:1: fault[1].foo: unknown key; the keys here are on, skip, times, transport, result, error, clear, "
     "delay_ms, late, truncate, modem, sys_info"},
    {"unknown_key_of_the_timeline", "[[at]]\nat = 1\nmodem = \"up\"\n",
     "board.toml:2:1: at[0].at: unknown key; the keys here are ms, after, skip, repeat, every_ms, sys_info, lte, nr5g, "
     "endc, location, modem, panel, install_status, install_measurement, qos_flow, raw"},
    {"unknown_key_in_a_patch", "[[at]]\nendc = { avail = 1 }\n",
     "board.toml:2:10: at[0].endc.avail: unknown key; the keys here are available, restrict_dcnr"},
    {"text_for_integer", "[lte]\npci = \"214\"\n",
     "board.toml:2:7: lte.pci: a text, where an integer (from 0 to 65535) is allowed"},
    {"fraction_for_integer", "[lte]\npci = 214.0\n",
     "board.toml:2:7: lte.pci: a number with a fraction, where an integer (from 0 to 65535) is allowed"},
    {"boolean_for_integer", "[endc]\navailable = true\n",
     "board.toml:2:13: endc.available: a boolean, where an integer (from 0 to 255) is allowed"},
    {"date_for_number", "[board]\nnoise_db = 2020-02-14\n",
     "board.toml:2:12: board.noise_db: a date or time, where a number (from 0 to 1000) is allowed"},
    {"integer_for_boolean", "[nas]\navailable = 1\n",
     "board.toml:2:13: nas.available: an integer, where a boolean is allowed"},
    {"integer_for_text", "[[wwan.profile]]\napn = 1\n",
     "board.toml:2:7: wwan.profile[0].apn: an integer, where a text is allowed"},
    {"integer_for_list", "[lte]\ncqi = 12\n", "board.toml:2:7: lte.cqi: an integer, where a list is allowed"},
    {"integer_for_inner_list", "[lte]\ncqi = [12]\n",
     "board.toml:2:8: lte.cqi[0]: an integer, where a list is allowed"},
    {"list_for_table", "endc = [1]\n",
     "board.toml:1:8: endc: a list, where a table with the keys available, restrict_dcnr is allowed"},
    {"table_for_list", "[fault]\non = \"nas.79\"\n", "board.toml:1:1: fault: a table, where a list is allowed"},
    {"integer_for_entry", "[lte]\nneighbour = [1]\n",
     "board.toml:2:14: lte.neighbour[0]: an integer, where a table with the keys earfcn, pci, cgi, rsrp, rsrq, plmn is "
     "allowed"},
    {"word_that_is_none", "[sys_info]\nlte = \"lost\"\n",
     "board.toml:2:7: sys_info.lte: \"lost\" is none of absent, no_service, limited, service, power_save, "
     "limited_regional"},
    {"measured_value_in_words", "[lte]\nrsrp = \"weak\"\n",
     "board.toml:2:8: lte.rsrp: a text, where an integer (from -32768 to 32767) or \"absent\" is allowed"},
    {"absent_in_another_case", "[nr5g]\nsnr = \"Absent\"\n",
     "board.toml:2:7: nr5g.snr: a text, where an integer (from -32768 to 32767) or \"absent\" is allowed"},
    {"measured_value_as_a_boolean", "[lte]\ntac = false\n",
     "board.toml:2:7: lte.tac: a boolean, where an integer (from 0 to 65535) or \"absent\" is allowed"},
    {"integer_for_a_word", "[sys_info]\nlte = 2\n",
     "board.toml:2:7: sys_info.lte: an integer, where one of the texts absent, no_service, limited, service, "
     "power_save, "
     "limited_regional is allowed"},
    {"boolean_for_a_word", "[[at]]\nmodem = true\n",
     "board.toml:2:9: at[0].modem: a boolean, where one of the texts up, down is allowed"},
    {"above_u8", "[endc]\navailable = 256\n", "board.toml:2:13: endc.available: 256 is out of range (from 0 to 255)"},
    {"below_u8", "[endc]\navailable = -1\n", "board.toml:2:13: endc.available: -1 is out of range (from 0 to 255)"},
    {"above_u16", "[lte]\nearfcn = 65536\n", "board.toml:2:10: lte.earfcn: 65536 is out of range (from 0 to 65535)"},
    {"above_u32", "[scan]\nstatus = 4294967296\n",
     "board.toml:2:10: scan.status: 4294967296 is out of range (from 0 to 4294967295)"},
    {"above_i8", "[lte]\nrsrq = 128\n", "board.toml:2:8: lte.rsrq: 128 is out of range (from -128 to 127)"},
    {"below_i16", "[nr5g]\nrsrq = -32769\n",
     "board.toml:2:8: nr5g.rsrq: -32769 is out of range (from -32768 to 32767)"},
    {"below_u64", "[nr5g]\ncgi = -1\n", "board.toml:2:7: nr5g.cgi: -1 is out of range (from 0)"},
    {"pci_below_not_valid", "[sys_info]\nnr5g_pci = -2\n",
     "board.toml:2:12: sys_info.nr5g_pci: -2 is out of range (from -1 to 65535)"},
    {"latitude", "[location]\nlatitude = 90.5\n",
     "board.toml:2:12: location.latitude: 90.5 is out of range (from -90 to 90)"},
    {"not_a_number", "[board]\nnoise_db = nan\n",
     "board.toml:2:12: board.noise_db: nan is out of range (from 0 to 1000)"},
    {"infinite", "[location]\naltitude = inf\n", "board.toml:2:12: location.altitude: inf is out of range (any)"},
    {"above_float", "[location]\nspeed = 1e39\n", "board.toml:2:9: location.speed: 1e+39 is out of range (any)"},
    {"tick_of_0", "[board]\ntick_ms = 0\n", "board.toml:2:11: board.tick_ms: 0 is out of range (from 1 to 86400000)"},
    {"tick_of_more_than_a_day", "[board]\ntick_ms = 86400001\n",
     "board.toml:2:11: board.tick_ms: 86400001 is out of range (from 1 to 86400000)"},
    {"repeat_of_0", "[[at]]\nmodem = \"up\"\nrepeat = 0\n",
     "board.toml:3:10: at[0].repeat: 0 is out of range (from 1 to 100000000)"},
    {"repeat_of_far_too_many", "[[at]]\nmodem = \"up\"\nrepeat = 100000001\n",
     "board.toml:3:10: at[0].repeat: 100000001 is out of range (from 1 to 100000000)"},
    {"repeats_for_more_than_a_day", "[[at]]\nevery_ms = 86400.5\nmodem = \"up\"\nrepeat = 1001\n",
     "board.toml:4:10: at[0].repeat: 1001 times, 86400.5 ms apart, take more than 86400000 ms"},
    {"negative_skip", "[[at]]\nmodem = \"up\"\nskip = -1\n", "board.toml:3:8: at[0].skip: -1 is out of range (from 0)"},
    {"integer_beyond_64_bits", "[[fault]]\non = \"nas.79\"\ntimes = 9223372036854775808\n",
     "board.toml:3:28: Error while parsing decimal integer: '9223372036854775808' is not representable in 64 bits"},
    {"speed_of_which_no_row_comes", "[trace]\nspeed = 1e-300\n",
     "board.toml:2:9: trace.speed: 1e-300 is out of range (0, or from 1/86400, a row a day, to 1000000000)"},
    {"speed_below_0", "[trace]\nspeed = -1\n",
     "board.toml:2:9: trace.speed: -1 is out of range (0, or from 1/86400, a row a day, to 1000000000)"},
    {"speed_that_is_no_number", "[trace]\nspeed = nan\n",
     "board.toml:2:9: trace.speed: nan is out of range (0, or from 1/86400, a row a day, to 1000000000)"},
    {"speed_beyond_all", "[trace]\nspeed = 1000000001\n",
     "board.toml:2:9: trace.speed: 1000000001 is out of range (0, or from 1/86400, a row a day, to 1000000000)"},
    {"octet_of_a_list", "[lte]\nplmn = [0, 1, 256]\n",
     "board.toml:2:15: lte.plmn[2]: 256 is out of range (from 0 to 255)"},
    {"short_array", "[lte]\nplmn = [0, 1]\n", "board.toml:2:8: lte.plmn: 2 entries, 3 are needed"},
    {"long_array", "[nr5g]\ntac = [0, 1, 2, 3]\n", "board.toml:2:7: nr5g.tac: 4 entries, at most 3 are allowed"},
    {"no_event", "[[at]]\nms = 5\n", "board.toml:1:1: at[0]: an entry without an event"},
    {"number_for_the_table_of_an_event", "[[at]]\npanel = 5\n",
     "board.toml:2:9: at[0].panel: an integer, where a table with the keys index, changed, mode is allowed"},
    {"number_for_the_keys_of_a_change", "[[at]]\nendc = 5\n",
     "board.toml:2:8: at[0].endc: an integer, where a table with the keys available, restrict_dcnr is allowed"},
    {"raw_without_id", "[[at]]\nraw = { lib = \"nas\", bytes = \"\" }\n",
     "board.toml:2:7: at[0].raw: the key id is missing"},
    {"raw_of_another_library", "[[at]]\nraw = { lib = \"yrp\", id = 1, bytes = \"\" }\n",
     "board.toml:2:15: at[0].raw.lib: \"yrp\" is none of nas, oxmap"},
    {"odd_hexadecimal", "[[at]]\nraw = { lib = \"nas\", id = 1, bytes = \"012\" }\n",
     "board.toml:2:38: at[0].raw.bytes: two hexadecimal digits are needed for each octet"},
    {"no_hexadecimal", "[[at]]\nraw = { lib = \"nas\", id = 1, bytes = \"0x12\" }\n",
     "board.toml:2:38: at[0].raw.bytes: two hexadecimal digits are needed for each octet"},
    {"fault_on_nothing", "[[fault]]\nskip = 1\n", "board.toml:1:1: fault[0]: the key on is missing"},
    {"fault_on_unknown_message", "[[fault]]\non = \"nas.80\"\n",
     "board.toml:2:6: fault[0].on: \"nas.80\" is no crossing; the service answers no such message"},
    {"fault_on_indication", "[[fault]]\non = \"nas.81\"\n",
     "board.toml:2:6: fault[0].on: \"nas.81\" is no crossing; the service answers no such message"},
    {"fault_on_odd_id", "[[fault]]\non = \"nas.079\"\n",
     "board.toml:2:6: fault[0].on: \"nas.079\" is no crossing; the service answers no such message"},
    {"fault_on_unknown_function", "[[fault]]\non = \"diag.Init\"\n",
     "board.toml:2:6: fault[0].on: \"diag.Init\" is no crossing; those of diag are Diag_LSM_Init, Diag_LSM_DeInit"},
    {"fault_on_unknown_library", "[[fault]]\non = \"gps.fix\"\n",
     "board.toml:2:6: fault[0].on: \"gps.fix\" is no crossing (nas.ID, yrp.CALL, oxmap.METHOD, location.METHOD or "
     "diag.FUNCTION; nas.ind.ID or oxmap.ind.ID; any)"},
    {"fault_on_unknown_indication", "[[fault]]\non = \"nas.ind.79\"\n",
     "board.toml:2:6: fault[0].on: \"nas.ind.79\" is no crossing; the service sends no such indication"},
    {"fault_on_unknown_indication_of_the_mobile_ap", "[[fault]]\non = \"oxmap.ind.\"\n",
     "board.toml:2:6: fault[0].on: \"oxmap.ind.\" is no crossing; the service sends no such indication"},
    {"fault_clears_unknown_flag_of_an_indication", "[[fault]]\non = \"nas.ind.81\"\nclear = [\"tx_valid\"]\n",
     "board.toml:3:10: fault[0].clear[0]: \"tx_valid\" is no validity flag of nas.ind.81"},
    {"fault_clears_of_any_call", "[[fault]]\non = \"any\"\nclear = [\"tx_valid\"]\n",
     "board.toml:3:10: fault[0].clear[0]: \"tx_valid\" is no validity flag of the response to any"},
    {"fault_of_an_unknown_modem", "[[fault]]\non = \"any\"\nmodem = \"off\"\n",
     "board.toml:3:9: fault[0].modem: \"off\" is none of up, down, restart"},
    {"fault_clears_unknown_flag", "[[fault]]\non = \"nas.79\"\nclear = [\"lte_sig_info_valid\", \"lte_valid\"]\n",
     "board.toml:3:32: fault[0].clear[1]: \"lte_valid\" is no validity flag of the response to nas.79"},
    {"fault_clears_of_no_message", "[[fault]]\non = \"oxmap.IsReady\"\nclear = [\"x\"]\n",
     "board.toml:3:10: fault[0].clear[0]: \"x\" is no validity flag of the response to oxmap.IsReady"},
    {"times_below_forever", "[[fault]]\non = \"nas.79\"\ntimes = -2\n",
     "board.toml:3:9: fault[0].times: -2 is out of range (from -1)"},
    {"event_after_nothing_known", "[[at]]\nafter = \"nas.1000\"\nmodem = \"up\"\n",
     "board.toml:2:9: at[0].after: \"nas.1000\" is no crossing; the service answers no such message"},
    {"the_first_of_two_errors", "[scan]\nstatus = -1\n[board]\nseed = -1\n",
     "board.toml:2:10: scan.status: -1 is out of range (from 0 to 4294967295)"},
    {"line_breaks_do_not_break_the_message", "\"a\\nb\" = 1\n",
     "board.toml:1:1: a b: unknown key; the keys here are board, nas, sys_info, lte, nr5g, endc, scan, wwan, mtpe, "
     "location, at, fault, trace"},
};

INSTANTIATE_TEST_SUITE_P(errors, sim_scenario_error_test, testing::ValuesIn(errors),
                         [](const testing::TestParamInfo<wrong> &of) { return of.param.name; });

// Times.

struct time_key {
  const char *name, *before, *after = "";
  bool never = false; /**< -1 is allowed */
};

void PrintTo(const time_key &of, std::ostream *out) {
  *out << of.name;
}

class sim_scenario_time_test : public testing::TestWithParam<time_key> {
 protected:
  static std::string with(const char *value) { return GetParam().before + std::string(value) + GetParam().after; }
};

TEST_P(sim_scenario_time_test, is_at_most_a_day) {
  read(with("0"));
  read(with("0.001"));
  read(with("86400000"));
  for (const char *value : {"86400001", "86400000.5", "1e300", "9223372036854775807", "inf", "nan"}) {
    EXPECT_NE(error_of(with(value)).find(" is out of range ("), std::string::npos) << value;
  }
}

TEST_P(sim_scenario_time_test, is_not_negative_unless_minus_1_means_never) {
  for (const char *value : {"-0.5", "-1e-300", "-0.999", "-1.5", "-2", "-7", "-inf"}) {
    EXPECT_NE(error_of(with(value)).find(" is out of range ("), std::string::npos) << value;
  }
  if (GetParam().never) {
    read(with("-1"));
    read(with("-1.0"));
    EXPECT_NE(error_of(with("-7")).find(": -7 is out of range (-1, or from 0 to 86400000)"), std::string::npos);
    EXPECT_NE(error_of(with("true")).find(": a boolean, where a number (-1, or from 0 to 86400000) is allowed"),
              std::string::npos);
  } else {
    EXPECT_NE(error_of(with("-1")).find(": -1 is out of range (from 0 to 86400000)"), std::string::npos);
  }
}

constexpr time_key times[] = {
    {.name = "nas_available_after", .before = "nas.available_after_ms = "},
    {.name = "scan_answer", .before = "scan.answer_ms = ", .never = true},
    {.name = "qos_answer", .before = "wwan.qos.answer_ms = ", .never = true},
    {.name = "mtpe_configured", .before = "mtpe.configured_ms = ", .never = true},
    {.name = "mtpe_duration", .before = "mtpe.duration_ms = ", .never = true},
    {.name = "capabilities", .before = "location.capabilities_ms = ", .never = true},
    {.name = "fix", .before = "location.fix_ms = ", .never = true},
    {.name = "late", .before = "location.late_ms = "},
    {.name = "later_fix", .before = "at = [{ location = { fix_ms = ", .after = " } }]", .never = true},
    {.name = "at", .before = "at = [{ modem = \"up\", ms = ", .after = " }]"},
    {.name = "every", .before = "at = [{ modem = \"up\", every_ms = ", .after = " }]"},
    {.name = "fault_delay", .before = "fault = [{ on = \"nas.79\", delay_ms = ", .after = " }]"},
};

INSTANTIATE_TEST_SUITE_P(times, sim_scenario_time_test, testing::ValuesIn(times),
                         [](const testing::TestParamInfo<time_key> &of) { return of.param.name; });

TEST(sim_scenario_test, an_entry_may_repeat_for_a_day) {
  EXPECT_EQ(read("[[at]]\nevery_ms = 86400\nmodem = \"up\"\nrepeat = 1001\n").at[0].repeat, 1001);
  EXPECT_EQ(read("[[at]]\nmodem = \"up\"\nrepeat = 100000000\n").at[0].repeat, 100000000);
}

TEST(sim_scenario_test, a_trace_is_at_the_slowest_a_row_a_day) {
  EXPECT_EQ(read("[trace]\nspeed = 0.000011575\n").trace.speed, 0.000011575);
  EXPECT_NE(error_of("[trace]\nspeed = 0.000011574\n").find("trace.speed: 1.1574e-05 is out of range"),
            std::string::npos);
  EXPECT_EQ(read("[trace]\nspeed = 1000000000\n").trace.speed, 1e9);
}

// Capacities.

struct capacity {
  const char *name, *before, *entry, *after, *path;
  int most;
};

void PrintTo(const capacity &of, std::ostream *out) {
  *out << of.name;
}

class sim_scenario_capacity_test : public testing::TestWithParam<capacity> {};

TEST_P(sim_scenario_capacity_test, takes_so_many_and_refuses_one_more) {
  const capacity &of = GetParam();
  read(of.before + entries(of.entry, of.most) + of.after);
  const std::string most = std::to_string(of.most), more = std::to_string(of.most + 1);
  EXPECT_NE(error_of(of.before + entries(of.entry, of.most + 1) + of.after)
                .find(std::string(of.path) + ": " + more + " entries, at most " + most + " are allowed"),
            std::string::npos);
}

constexpr capacity capacities[] = {
    {"lte_neighbour", "lte.neighbour = [", "{}", "]", "lte.neighbour", 5},
    {"lte_neighbour_plmn", "lte.neighbour = [{ plmn = [", "{}", "] }]", "lte.neighbour[0].plmn", 4},
    {"lte_cqi", "lte.cqi = [", "[]", "]", "lte.cqi", 7},
    {"lte_codewords", "lte.cqi = [[", "1", "]]", "lte.cqi[0]", 4},
    {"lte_dl_mod", "lte.dl_mod = [", "1", "]", "lte.dl_mod", 2},
    {"lte_ul_mod", "lte.ul_mod = [", "1", "]", "lte.ul_mod", 2},
    {"lte_rf_bandwidth", "lte.rf_bandwidth = [", "1", "]", "lte.rf_bandwidth", 16},
    {"lte_cell_lock", "lte.cell_lock = [", "{}", "]", "lte.cell_lock", 60},
    {"nr5g_neighbour", "nr5g.neighbour = [", "{}", "]", "nr5g.neighbour", 10},
    {"nr5g_neighbour_cgi", "nr5g.neighbour = [{ cgi = [", "1", "] }]", "nr5g.neighbour[0].cgi", 11},
    {"nr5g_neighbour_plmn", "nr5g.neighbour = [{ plmn = [", "{}", "] }]", "nr5g.neighbour[0].plmn", 12},
    {"nr5g_cqi", "nr5g.cqi = [", "[]", "]", "nr5g.cqi", 12},
    {"nr5g_lock", "nr5g.cell_lock.list = [", "{}", "]", "nr5g.cell_lock.list", 32},
    {"profile", "wwan.profile = [", "{}", "]", "wwan.profile", 60},
    {"install", "at = [{ install_measurement = [", "{}", "] }]", "at[0].install_measurement", 16},
};

INSTANTIATE_TEST_SUITE_P(capacities, sim_scenario_capacity_test, testing::ValuesIn(capacities),
                         [](const testing::TestParamInfo<capacity> &of) { return of.param.name; });

TEST(sim_scenario_test, an_apn_has_at_most_100_octets) {
  EXPECT_EQ(read("wwan.profile = [{ apn = \"" + std::string(100, 'a') + "\" }]").wwan.profile[0].apn.size(), 100U);
  EXPECT_EQ(error_of("wwan.profile = [{ apn = \"" + std::string(101, 'a') + "\" }]"),
            "board.toml:1:25: wwan.profile[0].apn: a text of 101 octets, at most 100 are allowed");
}

// With a trace.

class sim_scenario_trace_test : public testing::Test {
 protected:
  void SetUp() override {
    folder_ = std::filesystem::temp_directory_path() / ("sim_scenario_test." + std::to_string(getpid()));
    std::filesystem::create_directories(folder_);
    std::ofstream(folder_ / "drive.csv")
        << "Timestamp,Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n"
           "2020.02.14_07.29.00,-8.4,51.9,36,LTE,-90,-8,5.0,10,9CBA,11016962,-95.0,-10.0\n";
    std::ofstream(folder_ / "text.csv") << "hello\n";
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }
  std::string folder() const { return folder_.string(); }

 private:
  std::filesystem::path folder_;
};

TEST_F(sim_scenario_trace_test, a_trace_is_read_with_the_scenario_and_from_its_folder) {
  std::ofstream(folder() + "/board.toml") << "[trace]\nfile = \"drive.csv\"\nspeed = 2000\n";
  std::string error;
  const std::optional<sim_scenario> board = sim_scenario_load(folder() + "/board.toml", error);
  ASSERT_TRUE(board) << error;
  EXPECT_EQ(board->rows.size(), 1U);
  EXPECT_EQ(board->trace.file, folder() + "/drive.csv");
  EXPECT_EQ(board->trace.speed, 2000);
}

TEST_F(sim_scenario_trace_test, a_trace_that_cannot_be_used_is_an_error_of_its_key) {
  EXPECT_EQ(error_of("[trace]\nfile = \"none.csv\"\n", folder()),
            "board.toml:2:8: trace.file: " + folder() + "/none.csv: cannot be read: No such file or directory");
  EXPECT_EQ(
      error_of("[trace]\nfile = \"text.csv\"\n", folder()),
      "board.toml:2:8: trace.file: " + folder() + "/text.csv:1: not a drive test: no header line with its columns");
}

TEST_F(sim_scenario_trace_test, the_timeline_cannot_set_what_the_trace_owns) {
  const std::string trace = "[trace]\nfile = \"drive.csv\"\n";
  for (const char *owned :
       {"sys_info = { lte = \"limited\" }", "sys_info = { nr5g = \"service\" }", "sys_info = { nr5g_pci = 1 }",
        "lte = { rsrp = -1 }", "lte = { rsrq = -1 }", "lte = { snr = 1 }", "lte = { cqi = [] }", "lte = { cgi = 1 }",
        "lte = { tac = 1 }", "lte = { neighbour = [] }", "nr5g = { rsrp = -1 }", "nr5g = { rsrq = -1 }",
        "nr5g = { snr = -1 }", "location = { latitude = 1 }", "location = { longitude = 1 }",
        "location = { speed = 1 }", "location = { timestamp = 1 }"}) {
    const std::string at = "[[at]]\n" + std::string(owned) + "\n";
    read(at);
    EXPECT_NE(error_of(at + trace, folder()).find("the trace owns this value"), std::string::npos) << owned;
  }
  EXPECT_EQ(error_of("[[at]]\nlte = { pci = 1, rsrp = -101 }\n" + trace, folder()),
            "board.toml:2:25: at[0].lte.rsrp: the trace owns this value, the timeline cannot set it");
}

TEST_F(sim_scenario_trace_test, the_timeline_sets_what_the_trace_does_not_own) {
  std::string error;
  EXPECT_TRUE(
      sim_scenario_parse("[[at]]\nsys_info = { lte_domain = 1, nr5g_capability = 2 }\nlte = { pci = 1, tx_power = 5 "
                         "}\nnr5g = { cqi = [] }\nlocation = { fix_ms = -1 }\nmodem = \"down\"\n"
                         "[trace]\nfile = \"drive.csv\"\n",
                         "board.toml", folder(), error))
      << error;
}

// Whatever the text.

TEST(sim_scenario_test, a_key_of_hostile_depth_is_refused_with_its_line) {
  EXPECT_EQ(error_of("[lte]\n" + repeated("a.", 500000) + "a = 1"), "board.toml:2:1: a key of more than 100 parts");
  EXPECT_EQ(error_of('[' + repeated("\"a\" . ", 500000) + "a]"), "board.toml:1:1: a key of more than 100 parts");
  EXPECT_NE(error_of(repeated("a.", 99) + "a = 1").find("a: unknown key"), std::string::npos);
  read("# " + repeated(".", 1000) + "\n# " + repeated(". ", 1000) + "\n#" + repeated("1.5, ", 1000) + "\n");
}

TEST(sim_scenario_test, byte_order_mark_and_carriage_returns_are_tolerated) {
  EXPECT_EQ(read("\xEF\xBB\xBF[board]\r\nseed = 7\r\n").board.seed, 7U);
}

TEST(sim_scenario_test, other_encodings_than_utf_8_are_refused) {
  EXPECT_EQ(error_of("\xFF\xFE[\x01"), "board.toml:1:1: Encountered invalid utf-8 sequence");
  EXPECT_NE(error_of("[[wwan.profile]]\napn = \"\xE4\"\n").find("board.toml:2:"), std::string::npos);
}

TEST(sim_scenario_test, letters_beyond_ascii_are_refused_outside_of_texts_and_comments) {
  for (const char *letter : {"\xC2\xA1", "\xC3\xA9", "\xE2\xBB\xBF", "\xEF\xBB\xBE"}) {
    EXPECT_NE(error_of("[board]\nse" + std::string(letter) + "d = 1\n").find("board.toml:2:3:"), std::string::npos);
    EXPECT_NE(error_of("[board]\nseed = " + std::string(letter)).find("board.toml:2:8:"), std::string::npos);
    EXPECT_EQ(read("# " + std::string(letter) + "\n[board]\nseed = 7\n").board.seed, 7U);
  }
}

TEST(sim_scenario_test, whatever_the_bytes_are_reading_ends_with_a_board_or_one_line) {
  for (int first = 0; first < 256; ++first) {
    for (const char *rest : {"", "\n", "=1", "[lte]", "\xFF\xFE", "\"\"\""}) {
      std::string error;
      const std::string text = std::string(1, static_cast<char>(first)) + rest;
      const bool read = sim_scenario_parse(text, "board.toml", ".", error).has_value();
      EXPECT_EQ(error.find("board.toml:"), read ? std::string::npos : 0U) << text;
      EXPECT_EQ(error.find('\n'), std::string::npos);
    }
  }
}

}  // namespace
