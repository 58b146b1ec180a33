/* SPDX-License-Identifier: Apache-2.0 */
/* Neighbour scans, from the metric to the delivered block: one scan at a time, LTE before NR 5G, flags clear at the
 * end. */
#include <algorithm>
#include <cstring>
#include <thread>

#include "board.h"

using nlohmann::json;
using testing::ElementsAre;

namespace {

using lyn_scan = board_test;

constexpr char never[] = "[scan]\nanswer_ms = -1\n";
constexpr char at_once[] = "[scan]\nanswer_ms = 0\n";

const board_request lte_scan = {
    133, {{"network_type_valid", 1}, {"network_type", 4}, {"scan_type_valid", 1}, {"scan_type", 5}}};
const board_request nr5g_scan = {
    133, {{"network_type_valid", 1}, {"network_type", 16}, {"scan_type_valid", 1}, {"scan_type", 5}}};

/** As many neighbours as fit, each with all that it can have. */
std::string full_neighbourhood() {
  const auto repeated = [](int count, const std::string &one) {
    std::string all;
    for (int i = 0; i < count; i++) {
      all += (i == 0 ? "" : ", ") + one;
    }
    return all;
  };
  std::string toml = "[scan]\nanswer_ms = 0\n";
  for (int i = 0; i < 5; i++) {
    const std::string n = std::to_string(i);
    toml += "[[lte.neighbour]]\nearfcn = 130" + n + "\npci = 30" + n + "\ncgi = 429496729" + n + "\nrsrp = -10" + n +
            "\nrsrq = -1" + n + "\nplmn = [" + repeated(i == 4 ? 4 : i, "{ mcc = 999, mnc = 65535, pcs_digit = 1 }") +
            "]\n";
  }
  for (int i = 0; i < 10; i++) {
    const std::string n = std::to_string(i);
    toml += "[[nr5g.neighbour]]\narfcn = 63600" + n + "\npci = 50" + n + "\nrsrp = -12" + n + "\ncgi = [" +
            repeated(i == 9 ? 11 : 1, "68719476737") + "]\nplmn = [" +
            repeated(i == 9 ? 12 : 1, "{ mcc = 272, mnc = 1, pcs_digit = 0 }") + "]\n";
  }
  return toml;
}

/** Both groups all zero: nothing pending, nothing in flight, no item asked for. */
bool flags_clear() {
  const lyn_module_guard_t held;
  const lyn_scan_group_t none = {};
  return memcmp(&lyn_state.lte_scan, &none, sizeof none) == 0 && memcmp(&lyn_state.nr5g_scan, &none, sizeof none) == 0;
}

std::vector<uint32_t> ids(const std::vector<delivered> &answers) {
  std::vector<uint32_t> found;
  for (const delivered &answer : answers) {
    found.push_back(answer.id);
  }
  return found;
}

ox_lyn_lte_nbr_info_t lte_of(const delivered &answer) {
  return answer.as<ox_lyn_lte_nbr_info_t>();
}

ox_lyn_nr5g_nbr_info_t nr5g_of(const delivered &answer) {
  return answer.as<ox_lyn_nr5g_nbr_info_t>();
}

bool is_lte_metric(uint32_t metric) {
  return metric % 2 == 0;
}

/** Ten thousand; a tenth under a sanitizer, unless time does not matter. */
int scan_rounds() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  const char *wanted = getenv("LYN_LONG");
  return wanted != nullptr && *wanted != '\0' ? 10000 : 1000;
#else
  return 10000;
#endif
}

/** One passing of a call that the modem refuses, behind so many that it lets through. */
std::string refused(const std::string &call, int skip = 0) {
  return "[[fault]]\non = \"" + call + "\"\nskip = " + std::to_string(skip) + "\nresult = 1\nerror = 46\n";
}

/** The module behind a list that has failed after a neighbour metric of either radio. */
void leave_both_radios_pending() {
  board.start(OX_LYN_REG_LTE_NR5G_E, std::string(at_once) + refused("nas.79"));
  EXPECT_EQ(board.get_list({OX_LYN_GET_LTE_NBR_EARFCN_E, OX_LYN_GET_NR5G_NBR_RSRP_E, OX_LYN_GET_LTE_SERV_RSRP_E}),
            OX_LYN_ERR_FAILURE);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  board.forget();
}

/** Nothing more comes. */
void expect_quiet() {
  EXPECT_THAT(board.settled(), testing::IsEmpty());
}

}  // namespace

TEST_F(lyn_scan, each_metric_alone_scans_its_radio_and_fills_its_item_only) {
  board.start(OX_LYN_REG_LTE_NR5G_E, full_neighbourhood());
  for (uint32_t metric = OX_LYN_GET_LTE_NBR_EARFCN_E; metric <= OX_LYN_GET_LTE_NBR_RSRQ_E; metric++) {
    SCOPED_TRACE(metric);
    EXPECT_EQ(board.get(metric), OX_LYN_SUCCESS);
    const auto answers = board.take(1);
    EXPECT_TRUE(flags_clear());
    EXPECT_EQ(board.asked(), (board_requests{is_lte_metric(metric) ? lte_scan : nr5g_scan}));
    ASSERT_EQ(answers.size(), 1U);
    if (!is_lte_metric(metric)) {
      EXPECT_EQ(answers[0].id, static_cast<uint32_t>(OX_LYN_ASYNC_NR5G_NBR_INFO_E));
      EXPECT_EQ(answers[0].value_type, static_cast<uint32_t>(OX_LYN_VALUE_NR5G_NBR_E));
      for (uint32_t i = 0; i < 10; i++) {
        const ox_lyn_nr5g_nbr_t cell = nr5g_of(answers[0]).cells[i];
        EXPECT_EQ(cell.present, 1);
        EXPECT_EQ(cell.index, i + 1);
        EXPECT_EQ(cell.earfcn, 636000 + i);
        EXPECT_EQ(cell.pci, 500 + i);
        EXPECT_EQ(cell.rsrp_valid, metric == OX_LYN_GET_NR5G_NBR_RSRP_E);
        EXPECT_EQ(cell.rsrp, metric == OX_LYN_GET_NR5G_NBR_RSRP_E ? -120 - static_cast<int>(i) : 0);
        EXPECT_EQ(cell.cgi_valid, metric == OX_LYN_GET_NR5G_NBR_CGI_E);
        EXPECT_EQ(cell.plmn_valid, metric == OX_LYN_GET_NR5G_NBR_PLMN_E);
      }
      continue;
    }
    EXPECT_EQ(answers[0].id, static_cast<uint32_t>(OX_LYN_ASYNC_LTE_NBR_INFO_E));
    EXPECT_EQ(answers[0].value_type, static_cast<uint32_t>(OX_LYN_VALUE_LTE_NBR_E));
    const bool signal = metric >= OX_LYN_GET_LTE_NBR_RSRP_E;
    for (uint32_t i = 0; i < 5; i++) {
      const ox_lyn_lte_nbr_t cell = lte_of(answers[0]).cells[i];
      EXPECT_EQ(cell.present, !signal);
      EXPECT_EQ(cell.index, signal ? 0 : i + 1);
      EXPECT_EQ(cell.earfcn, signal ? 0 : 1300 + i);
      EXPECT_EQ(cell.pci, signal ? 0 : 300 + i);
      EXPECT_EQ(cell.cgi_valid, metric == OX_LYN_GET_LTE_NBR_CGI_E);
      EXPECT_EQ(cell.cgi, metric == OX_LYN_GET_LTE_NBR_CGI_E ? 4294967290U + i : 0U);
      EXPECT_EQ(cell.plmn_valid, metric == OX_LYN_GET_LTE_NBR_PLMN_E);
      EXPECT_EQ(cell.plmn_count, metric == OX_LYN_GET_LTE_NBR_PLMN_E ? i : 0);
    }
    const auto serving = lte_of(answers[0]).serving;
    EXPECT_EQ(serving.valid, signal);
    EXPECT_EQ(serving.earfcn, signal ? 1300U : 0U);
    EXPECT_EQ(serving.pci, signal ? 300 : 0);
    EXPECT_EQ(serving.rsrp_valid, metric == OX_LYN_GET_LTE_NBR_RSRP_E);
    EXPECT_EQ(serving.rsrp, metric == OX_LYN_GET_LTE_NBR_RSRP_E ? -100 : 0);
    EXPECT_EQ(serving.rsrq_valid, metric == OX_LYN_GET_LTE_NBR_RSRQ_E);
    EXPECT_EQ(serving.rsrq, metric == OX_LYN_GET_LTE_NBR_RSRQ_E ? -10 : 0);
  }
}

TEST_F(lyn_scan, full_lists_are_delivered_to_their_last_place) {
  board.start(OX_LYN_REG_LTE_NR5G_E, full_neighbourhood());
  EXPECT_EQ(board.get_list({OX_LYN_GET_LTE_NBR_PLMN_E, OX_LYN_GET_NR5G_NBR_PLMN_E, OX_LYN_GET_NR5G_NBR_CGI_E}), 0);
  const auto answers = board.take(2);
  ASSERT_THAT(ids(answers), ElementsAre(1, 2));
  const ox_lyn_plmn_t lte_plmn = lte_of(answers[0]).cells[4].plmn[3];
  EXPECT_EQ(lte_of(answers[0]).cells[4].plmn_count, 4U);
  EXPECT_EQ(lte_plmn.mcc, 999);
  EXPECT_EQ(lte_plmn.mnc, 65535);
  EXPECT_EQ(lte_plmn.includes_pcs_digit, 1);
  const ox_lyn_nr5g_nbr_t last = nr5g_of(answers[1]).cells[9];
  EXPECT_EQ(last.plmn_count, 12U);
  EXPECT_EQ(last.plmn[11].mcc, 272);
  EXPECT_EQ(last.cgi_count, 11U);
  EXPECT_EQ(last.cgi[10], 68719476737U);
}

TEST_F(lyn_scan, a_second_scan_of_either_radio_is_refused_while_one_runs) {
  struct pair {
    uint32_t running;
    const char *logged;
  };
  const pair pairs[] = {{OX_LYN_GET_LTE_NBR_PCI_E,
                         "ERROR Neighbor cells scan request ongoing nr5g[0]/lte[1] - wait for "
                         "completion!!"},
                        {OX_LYN_GET_NR5G_NBR_PCI_E,
                         "ERROR Neighbor cells scan request ongoing nr5g[1]/lte[0] - wait "
                         "for completion!!"}};
  for (const pair &row : pairs) {
    board.start(OX_LYN_REG_LTE_NR5G_E, never);
    EXPECT_EQ(board.get(row.running), OX_LYN_SUCCESS);
    board.forget();
    for (uint32_t metric = OX_LYN_GET_LTE_NBR_EARFCN_E; metric <= OX_LYN_GET_LTE_NBR_RSRQ_E; metric++) {
      EXPECT_EQ(board.get(metric), OX_LYN_ERR_BUSY);
      EXPECT_THAT(diag_log_lines({"lyn_interface_scan.cpp"}), ElementsAre(row.logged));
      EXPECT_EQ(board.get_list({OX_LYN_GET_LTE_SERV_PCI_E, metric}), OX_LYN_ERR_BUSY);
      EXPECT_THAT(diag_log_lines({"lyn_interface_scan.cpp"}), ElementsAre(row.logged));
    }
    EXPECT_TRUE(board.asked().empty()); /* the other entry of the list was not reached either */
    expect_quiet();
    board.stop();
  }
}

TEST_F(lyn_scan, both_radios_in_a_list_are_scanned_lte_first_and_never_at_once) {
  board.start(OX_LYN_REG_LTE_NR5G_E, at_once);
  EXPECT_EQ(board.get_list({22, 23, 30}), OX_LYN_SUCCESS);
  const auto answers = board.take(2);
  ASSERT_THAT(ids(answers), ElementsAre(1, 2));
  EXPECT_EQ(board.asked(), (board_requests{lte_scan, nr5g_scan}));
  EXPECT_EQ(lte_of(answers[0]).cells[0].earfcn, 1300U);
  EXPECT_EQ(lte_of(answers[0]).serving.rsrp_valid, 1);
  EXPECT_EQ(lte_of(answers[0]).serving.rsrq_valid, 0);
  EXPECT_EQ(lte_of(answers[0]).cells[0].cgi_valid, 0);
  EXPECT_EQ(nr5g_of(answers[1]).cells[0].earfcn, 636000U);
  EXPECT_EQ(nr5g_of(answers[1]).cells[0].rsrp_valid, 0);
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, between_the_two_answers_both_radios_are_busy) {
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get_list({22, 23}), OX_LYN_SUCCESS);
  board.forget();
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_lines({"lyn_interface_scan.cpp"}),
              ElementsAre("ERROR Neighbor cells scan request ongoing nr5g[1]/lte[1] - wait for completion!!"));
  sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
  EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
  EXPECT_EQ(board.asked(), (board_requests{nr5g_scan}));
  board.forget();
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_lines({"lyn_interface_scan.cpp"}),
              ElementsAre("ERROR Neighbor cells scan request ongoing nr5g[1]/lte[0] - wait for completion!!"));
  sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
  EXPECT_THAT(ids(board.take(1)), ElementsAre(2));
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, an_unknown_entry_takes_the_scan_before_it_back) {
  board.start(OX_LYN_REG_LTE_NR5G_E, at_once);
  for (const uint32_t unknown : {0U, 52U, 53U, 54U, 0xffffffffU}) {
    EXPECT_EQ(board.get_list({22, unknown}), OX_LYN_ERR_NOT_SUPPORTED);
    EXPECT_EQ(board.get_list({22, 23, unknown}), OX_LYN_ERR_NOT_SUPPORTED);
    EXPECT_TRUE(board.asked().empty());
    EXPECT_TRUE(flags_clear());
    EXPECT_EQ(board.get_list({unknown, 22}), OX_LYN_SUCCESS); /* behind it, the scan goes out */
    EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
    EXPECT_EQ(board.asked(), (board_requests{lte_scan}));
  }
  expect_quiet();
}

TEST_F(lyn_scan, deliberately_a_failing_entry_leaves_the_scan_before_it_pending_and_unsent) {
  board.start(OX_LYN_REG_LTE_NR5G_E, std::string(at_once) + refused("nas.79"));
  EXPECT_EQ(board.get_list({22, OX_LYN_GET_LTE_SERV_RSRP_E, 23}), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(board.asked().size(), 1U); /* the signal query; no scan */
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_EARFCN_E), OX_LYN_ERR_BUSY);
  EXPECT_EQ(board.get(OX_LYN_GET_NR5G_NBR_EARFCN_E), OX_LYN_ERR_BUSY);
  expect_quiet();
}

TEST_F(lyn_scan, neighbours_that_were_left_pending_are_scanned_for_by_the_next_list_that_succeeds) {
  leave_both_radios_pending();
  EXPECT_EQ(board.get_list({OX_LYN_GET_LTE_SERV_PCI_E}), OX_LYN_SUCCESS);
  const auto answers = board.take(2);
  ASSERT_THAT(ids(answers), ElementsAre(1, 2));
  EXPECT_EQ(lte_of(answers[0]).cells[0].earfcn, 1300U);
  EXPECT_EQ(nr5g_of(answers[1]).cells[0].rsrp_valid, 1);
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, neighbours_that_were_left_pending_are_taken_back_by_a_list_with_an_unknown_entry) {
  leave_both_radios_pending();
  EXPECT_EQ(board.get_list({0}), OX_LYN_ERR_NOT_SUPPORTED);
  EXPECT_TRUE(flags_clear());
  EXPECT_TRUE(board.asked().empty());
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
}

TEST_F(lyn_scan, nr5g_neighbours_that_were_left_pending_take_an_answer_that_nobody_asked_for) {
  leave_both_radios_pending();
  sim_board_post("nas", 133, sim_board_sample("nas", 133, 7));
  EXPECT_THAT(ids(board.take(1)), ElementsAre(2));
  board.forget();
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  EXPECT_THAT(diag_log_lines({"lyn_interface_scan.cpp"}),
              ElementsAre("ERROR Neighbor cells scan request ongoing nr5g[0]/lte[1] - wait for completion!!"));
}

TEST_F(lyn_scan,
       deliberately_a_list_without_neighbours_sends_a_running_scan_again_and_the_second_answer_is_one_of_nr5g) {
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_RSRP_E), OX_LYN_SUCCESS);
  EXPECT_EQ(board.get_list({OX_LYN_GET_REG_STATUS_E}), OX_LYN_SUCCESS);
  EXPECT_EQ(board.asked(), (board_requests{lte_scan, lte_scan}));
  for (int i = 0; i < 2; i++) {
    sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
  }
  EXPECT_THAT(ids(board.take(2)), ElementsAre(1, 2));
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, deliberately_a_list_fails_and_forgets_a_running_scan_that_it_cannot_send_again) {
  board.start(OX_LYN_REG_LTE_NR5G_E, std::string(never) + refused("nas.133", 1));
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_RSRP_E), OX_LYN_SUCCESS);
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_REG_STATUS_E);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 1), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(info.value.u32, static_cast<uint32_t>(OX_LYN_REG_LTE_NR5G_E)) << "the entry was answered";
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, deliberately_an_unknown_entry_forgets_a_running_scan_whose_answer_is_then_one_of_nr5g) {
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  EXPECT_EQ(board.get_list({0}), OX_LYN_ERR_NOT_SUPPORTED);
  EXPECT_TRUE(flags_clear());
  sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
  EXPECT_THAT(ids(board.take(1)), ElementsAre(2));
}

TEST_F(lyn_scan, neighbour_entries_of_a_list_are_looked_at_for_their_metric_only) {
  board.start(OX_LYN_REG_LTE_NR5G_E, at_once);
  ox_lyn_dm_info_t info;
  memset(&info, 0x5A, sizeof info);
  info.metric = OX_LYN_GET_LTE_NBR_PCI_E;
  const ox_lyn_dm_info_t before = info;
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 1), OX_LYN_SUCCESS);
  EXPECT_EQ(memcmp(&info, &before, sizeof info), 0);
  EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
}

TEST_F(lyn_scan, a_scan_that_cannot_start_leaves_nothing_pending) {
  const char *const faults[] = {"[[fault]]\non = \"nas.133\"\ntimes = 2\nresult = 1\nerror = 46\n",
                                "[[fault]]\non = \"nas.133\"\ntimes = 2\ntransport = -1\n"};
  for (const char *fault : faults) {
    board.start(OX_LYN_REG_LTE_NR5G_E, std::string(at_once) + fault);
    EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_FAILURE);
    EXPECT_TRUE(flags_clear());
    EXPECT_EQ(board.get_list({24, 25, 29}), OX_LYN_ERR_FAILURE);
    EXPECT_TRUE(flags_clear());
    EXPECT_EQ(board.get(OX_LYN_GET_NR5G_NBR_PCI_E), OX_LYN_SUCCESS);
    EXPECT_THAT(ids(board.take(1)), ElementsAre(2));
    board.stop();
  }
}

TEST_F(lyn_scan, a_second_radio_that_cannot_start_delivers_nothing_and_leaves_nothing_pending) {
  board.start(OX_LYN_REG_LTE_NR5G_E,
              std::string(at_once) + "[[fault]]\non = \"nas.133\"\nskip = 1\nresult = 1\nerror = 46\n");
  EXPECT_EQ(board.get_list({22, 23}), OX_LYN_SUCCESS);
  EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
  expect_quiet();
  EXPECT_TRUE(flags_clear());
  EXPECT_EQ(board.get(OX_LYN_GET_NR5G_NBR_EARFCN_E), OX_LYN_SUCCESS);
  EXPECT_THAT(ids(board.take(1)), ElementsAre(2));
}

TEST_F(lyn_scan, deinit_waits_for_the_request_that_the_command_thread_sends_for_an_event) {
  board.start(OX_LYN_REG_LTE_NR5G_E, std::string(at_once) + "[[fault]]\non = \"nas.133\"\nskip = 1\ndelay_ms = 100\n");
  EXPECT_EQ(board.get_list({22, 23}), OX_LYN_SUCCESS);
  const auto scans = [](const char *direction) {
    const auto rows = board_journal("nas", direction);
    return std::ranges::count_if(rows, [](const json &row) { return row["id"] == 133; });
  };
  while (scans("request") < 2) {
    std::this_thread::yield();
  }
  EXPECT_EQ(ox_lyn_deinit(board.hndl), OX_LYN_SUCCESS);
  board.hndl = 0;
  EXPECT_EQ(scans("response"), 2);
}

TEST_F(lyn_scan, an_answer_with_an_error_is_delivered_without_a_value_and_ends_the_scan) {
  board.start(OX_LYN_REG_LTE_NR5G_E, "[scan]\nanswer_ms = 0\nstatus = 3\n");
  EXPECT_EQ(board.get_list({22, 32, 23}), OX_LYN_SUCCESS);
  const auto answers = board.take(2);
  ASSERT_THAT(ids(answers), ElementsAre(1, 2));
  EXPECT_EQ(answers[0].value_type, 0U);
  EXPECT_EQ(answers[1].value_type, 0U);
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, an_unanswered_scan_stays_pending_until_the_module_is_brought_down) {
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  expect_quiet();
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  board.stop();
  board.start(OX_LYN_REG_LTE_NR5G_E, at_once);
  EXPECT_TRUE(flags_clear());
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
}

TEST_F(lyn_scan, an_answer_that_nobody_asked_for_is_delivered_as_one_of_nr5g) {
  board.start(OX_LYN_REG_LTE_NR5G_E, full_neighbourhood());
  sim_board_post("nas", 133, sim_board_sample("nas", 133, 7));
  sim_board_post("nas", 133, {0x01, 0x04, 0x00, 0, 0, 0, 0});
  const auto answers = board.take(2);
  EXPECT_THAT(ids(answers), ElementsAre(2, 2));
  EXPECT_EQ(answers[1].value_type, static_cast<uint32_t>(OX_LYN_VALUE_NR5G_NBR_E));
  EXPECT_EQ(nr5g_of(answers[1]).cells[0].present, 0);
  EXPECT_TRUE(flags_clear());
  EXPECT_TRUE(board.asked().empty());
}

TEST_F(lyn_scan, an_answer_that_does_not_decode_is_dropped_and_the_scan_goes_on) {
  const std::vector<uint8_t> ok = {0x01, 0x04, 0x00, 0, 0, 0, 0};
  const auto with = [&ok](std::vector<uint8_t> more) {
    std::vector<uint8_t> bytes = ok;
    bytes.insert(bytes.end(), more.begin(), more.end());
    return bytes;
  };
  /* A cell of LTE and of NR 5G without PLMN and CGI, as they stand on the wire: 4 + 2 + 4 + 1 and 2 + 4 + 2 + 1 + 1. */
  const auto cells = [&with](uint8_t type, uint8_t count, size_t size, size_t behind) {
    const size_t length = 1 + count * size + behind;
    std::vector<uint8_t> part = {type, static_cast<uint8_t>(length & 0xff), static_cast<uint8_t>(length >> 8), count};
    part.resize(3 + length);
    return with(part);
  };
  const std::vector<std::vector<uint8_t>> broken = {
      {},
      {0x01, 0x04, 0x00, 0, 0, 0},    /* truncated */
      {0x01, 0x03, 0x00, 0, 0, 0},    /* wrong length */
      with(ok),                       /* twice */
      cells(0x10, 6, 11, 10),         /* six LTE cells */
      cells(0x11, 11, 10, 0),         /* eleven NR 5G cells */
      with({0x10, 0xff, 0xff, 1}),    /* longer than the message */
      with({0x11, 0x01, 0x00, 0x05}), /* five cells that are not there */
  };
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_SUCCESS);
  for (const auto &bytes : broken) {
    sim_board_post("nas", 133, bytes);
    expect_quiet();
    EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_PCI_E), OX_LYN_ERR_BUSY);
  }
  /* The same parts are taken where they fit. */
  sim_board_post("nas", 133, cells(0x10, 5, 11, 10));
  const auto answers = board.take(1);
  ASSERT_THAT(ids(answers), ElementsAre(1));
  EXPECT_EQ(lte_of(answers[0]).cells[4].present, 1);
  EXPECT_TRUE(flags_clear());
}

TEST_F(lyn_scan, without_a_cell_in_its_list_an_answer_tells_nothing_of_the_strongest_one) {
  board.start(OX_LYN_REG_LTE_NR5G_E, never);
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_NBR_RSRP_E), OX_LYN_SUCCESS);
  sim_board_post("nas", 133, {0x01, 4, 0, 0, 0, 0, 0, 0x10, 11, 0, 0, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7});
  const auto answers = board.take(1);
  ASSERT_THAT(ids(answers), ElementsAre(1));
  const auto serving = lte_of(answers[0]).serving;
  EXPECT_EQ(serving.valid, 1);
  EXPECT_EQ(serving.earfcn, 0U);
  EXPECT_EQ(serving.rsrp_valid, 0);
  EXPECT_EQ(serving.rsrp, 0);
}

TEST_F(lyn_scan, without_service_a_neighbour_metric_is_refused_but_one_of_a_list_is_not) {
  for (uint32_t status = OX_LYN_REG_NO_SERVICE_E; status <= OX_LYN_REG_LIMITED_REGIONAL_E; status++) {
    board.start(status, at_once);
    for (uint32_t metric = OX_LYN_GET_LTE_NBR_EARFCN_E; metric <= OX_LYN_GET_LTE_NBR_RSRQ_E; metric++) {
      EXPECT_EQ(board.get(metric), OX_LYN_ERR_SERVICE_UNAVAILABLE);
    }
    EXPECT_TRUE(board.asked().empty());
    /* A list asks nobody about the service: its scan goes out. */
    EXPECT_EQ(board.get_list({22}), OX_LYN_SUCCESS);
    EXPECT_THAT(ids(board.take(1)), ElementsAre(1));
    board.stop();
  }
}

TEST_F(lyn_scan, many_scans_in_a_row_are_all_answered_each_with_its_own_radio) {
  board.start(OX_LYN_REG_LTE_NR5G_E, at_once);
  sim_board_journal_keep(false);
  const uint32_t metrics[] = {22, 23, 24, 25, 26, 27, 28, 29, 30, 31, 32};
  const int rounds = scan_rounds();
  for (int i = 0; i < rounds; i++) {
    const uint32_t metric = metrics[static_cast<size_t>(i) % std::size(metrics)];
    if (i % 3 == 2) { /* a list of both radios, its answers in their order */
      ASSERT_EQ(board.get_list({metric, is_lte_metric(metric) ? 23U : 22U}), OX_LYN_SUCCESS) << i;
      ASSERT_THAT(ids(board.take(2)), ElementsAre(1, 2)) << i;
    } else {
      ASSERT_EQ(board.get(metric), OX_LYN_SUCCESS) << i;
      const auto answers = board.take(1);
      ASSERT_EQ(answers.size(), 1U) << i;
      ASSERT_EQ(answers[0].id, is_lte_metric(metric) ? 1U : 2U) << i;
      ASSERT_EQ(answers[0].value_type, is_lte_metric(metric) ? 9U : 10U) << i;
      const auto found = [&answers, metric] {
        return is_lte_metric(metric) ? lte_of(answers[0]).cells[0].present | lte_of(answers[0]).serving.valid
                                     : nr5g_of(answers[0]).cells[0].present;
      };
      ASSERT_EQ(found(), 1) << i;
    }
  }
  expect_quiet();
  EXPECT_TRUE(flags_clear());
}
