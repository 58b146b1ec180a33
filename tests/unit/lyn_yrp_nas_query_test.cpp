/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The NAS client's queries: what is asked at which network status, what comes back of it, translated and limited, what
 * is logged, and what stays in the record when a step fails.
 */
#include <functional>

#include "lyn_yrp_nas.h"
#include "metric_board.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using numbers = std::vector<int64_t>;

/* Records as rows of numbers: flag and values of what each step of a query reads, in the order of the steps. */

template <size_t n, typename number>
numbers first(const number (&from)[n], size_t count = n) {
  return {from, from + count};
}

numbers operator+(numbers a, const numbers &b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::vector<numbers> parts(const lyn_nas_sys_info_t &r) {
  return {{r.network_status, r.nr5g_pci_info_valid, r.nr5g_pci_valid, r.nr5g_pci}};
}

std::vector<numbers> parts(const lyn_nas_cell_info_t &r) {
  const numbers lte = numbers{r.lte_intra_valid, r.lte.earfcn, r.lte.pci, r.lte.tac, r.lte.cgi} + first(r.lte.plmn_id) +
                      numbers{r.lte.rsrp, r.lte.rsrq};
  const numbers nr5g = numbers{r.nr5g_serving_cell_info_valid,
                               r.nr5g_arfcn_valid,
                               static_cast<int64_t>(r.nr5g_arfcn),
                               r.nr5g.pci,
                               static_cast<int64_t>(r.nr5g.cgi),
                               r.nr5g.rsrp,
                               r.nr5g.rsrq,
                               r.nr5g.snr} +
                       first(r.nr5g.plmn_id) + first(r.nr5g.tac);
  return {lte + nr5g};
}

std::vector<numbers> parts(const lyn_nas_sig_info_t &r) {
  return {{r.lte_sig_info_valid, r.lte.rssi, r.lte.rsrq, r.lte.rsrp, r.lte.snr, r.nr5g_sig_info_valid, r.nr5g.rsrp,
           r.nr5g.snr, r.nr5g_rsrq_valid, r.nr5g_rsrq}};
}

std::vector<numbers> parts(const lyn_nas_tx_pwr_info_t &r) {
  return {{r.lte.tx_valid, r.lte.tx_pwr}, {r.nr5g.tx_valid, r.nr5g.tx_pwr}};
}

std::vector<numbers> parts(const lyn_nas_mcs_info_t &r) {
  const auto radio = [](const auto &from) {
    return numbers{from.dl_valid, from.dl_len} + first(from.dl_mod) + numbers{from.ul_valid, from.ul_len} +
           first(from.ul_mod);
  };
  return {radio(r.lte), radio(r.nr5g)};
}

std::vector<numbers> parts(const lyn_nas_rrc_state_t &r) {
  return {{r.lte_valid, r.lte_state}, {r.nr5g_valid, r.nr5g_state}};
}

std::vector<numbers> parts(const ox_lyn_endc_mode_t &r) {
  return {{r.valid, r.endc_available, r.restrict_dcnr_valid, r.restrict_dcnr}};
}

std::vector<numbers> parts(const lyn_nas_scs_info_t &r) {
  return {{r.valid, r.scs}};
}

std::vector<numbers> parts(const lyn_nas_ca_info_t &r) {
  return {{r.valid, r.dl_bandwidth}};
}

std::vector<numbers> parts(const lyn_nas_rf_bw_info_t &r) {
  return {numbers{r.valid, r.len} + first(r.bw)};
}

std::vector<numbers> parts(const lyn_nas_cqi_info_t &r) {
  const auto radio = [](uint8_t valid, uint32_t len, const auto &entries) {
    numbers part = {valid, len};
    for (const ox_lyn_cqi_entry_t &entry : entries) {
      part = part + numbers{entry.cw_cqi_len} + first(entry.cw_cqi);
    }
    return part;
  };
  return {radio(r.lte_cc_cqi_valid, r.lte_cc_cqi_len, r.lte), radio(r.nr5g_cc_cqi_valid, r.nr5g_cc_cqi_len, r.nr5g)};
}

std::vector<numbers> parts(const lyn_nas_cell_lock_list_t &r) {
  numbers lte = {r.lte_cell_list_valid, r.count};
  for (const ox_lyn_lte_lock_cell_t &cell : r.cells) {
    lte = lte + numbers{cell.pci, cell.freq};
  }
  numbers nr5g = {r.type_valid, r.type, r.cell_identity_valid,  r.pci,
                  r.arfcn,      r.scs,  r.arfcn_identity_valid, r.arfcn_list_len};
  for (const ox_lyn_nr5g_lock_arfcn_t &entry : r.arfcn_list) {
    nr5g = nr5g + numbers{entry.arfcn, entry.scs};
  }
  return {lte, nr5g};
}

/* The queries */

struct query_answer {
  int32_t status;
  bool untouched; /* the record still holds what was in it before the call */
  std::vector<numbers> parts;
};

using query_ask = std::function<query_answer(bool null_record)>;

template <typename record>
query_ask asking(int32_t (*query)(record *)) {
  return [query](bool null_record) {
    record before, result;
    memset(&before, 0xEE, sizeof before);
    memcpy(&result, &before, sizeof result);
    const int32_t status = query(null_record ? nullptr : &result);
    return query_answer{status, memcmp(&before, &result, sizeof result) == 0, parts(result)};
  };
}

/** One message of a query: at which statuses it is asked, and what it makes of the usual board. */
struct query_step {
  std::vector<uint32_t> at;
  int id;
  std::string fields;  /* of the request */
  std::string failure; /* log text up to "error[" */
  numbers part;        /* leading numbers; the rest of the part is 0 */
  std::vector<std::string> log;
};

struct query_row {
  std::string name; /* as its invalid-parameter text has it */
  query_ask ask;
  std::vector<query_step> steps;
  bool shared = false; /* all steps read into the same fields */
};

const std::vector<uint32_t> always = {1, 2, 3, 4, 5, 6, 7}, lte = {5, 6}, nr5g = {6, 7}, lte_only = {5};

const std::vector<std::string> cell_log = {
    "LTE serving cell info - lte_intra_valid[1]",
    "LTE serving cell info - earfcn[1301]",
    "LTE serving cell info - pci[214]",
    "LTE serving cell info - tac[6699]",
    "LTE serving cell info - cgi[10607298]",
    "LTE serving cell info - plmn_id[0x72 0xf2 0x10]",
    "LTE serving cell info - rsrp[-95]",
    "LTE serving cell info - rsrq[-11]",
    "NR 5G serving cell info - nr5g_serving_cell_info_valid[1]",
    "NR 5G serving cell info - nr5g_arfcn_valid[1]",
    "NR 5G serving cell info - nr5g_arfcn[636001]",
    "NR 5G serving cell info - pci[500]",
    "NR 5G serving cell info - cgi[68719476736]",
    "NR 5G serving cell info - rsrp[-98]",
    "NR 5G serving cell info - rsrq[-13]",
    "NR 5G serving cell info - snr[-15]",
    "NR 5G serving cell info - plmn_id[0x73 0xf3 0x20]",
    "NR 5G serving cell info - tac[0x0 0x1a 0xff]",
};

const std::vector<std::string> signal_log = {
    "LTE signal info - lte_sig_info_valid[1]",
    "LTE signal info - rssi[-65]",
    "LTE signal info - rsrq[-11]",
    "LTE signal info - rsrp[-95]",
    "LTE signal info - snr[130]",
    "NR 5G signal info - nr5g_sig_info_valid[1]",
    "NR 5G signal info - rsrp[-98]",
    "NR 5G signal info - snr[-15]",
    "NR 5G signal info - nr5g_rsrq_valid[1]",
    "NR 5G signal info - rsrq[-13]",
};

const std::vector<std::string> system_log = {
    "LTE system info indication - srv_status[2]",
    "LTE system info indication - srv_domain[3]",
    "LTE system info indication - srv_capability[3]",
    "LTE system info indication - nr5g_pci_valid[1], nr5g_pci[777]",
    "NR 5G PCI information - nr5g_pci_valid[1], nr5g_pci[777]",
};

const std::vector<std::string> lte_mcs_log = {
    "MCS info - LTE downlink valid[1]",      "MCS info -LTE  downlink length[2]",
    "MCS info local LTE- Downlink mode [3]", "MCS info local LTE- Downlink mode [4]",
    "MCS info - LTE uplink valid[1]",        "MCS info -LTE  uplink length[1]",
    "MCS info  info - LTE uplink mode [2]",
};

const std::vector<std::string> nr5g_mcs_log = {
    "MCS info - NR5G downlink valid[1]",
    "MCS info -NR5G  downlink length[1]",
    "NR5G MCS local info - NR5G Downlink mode [5]",
    "MCS info - NR5G uplink valid[1]",
    "MCS info -NR5G  uplink length[2]",
    "NR5G MCS info - NR5G  uplink mode [3]",
    "NR5G MCS info - NR5G  uplink mode [1]",
};

const std::vector<std::string> endc_log = {
    "Modem Metrics ENDC mode valid [1]",
    "Modem Metrics ENDC mode available [1]",
    "Modem Metrics ENDC mode restrict_dcnr_valid [1]",
    "Modem Metrics ENDC mode restrict_dcnr; [0]",
};

const std::vector<std::string> lte_lock_log = {
    "LTE multi-lock cell list - lte_cell_list_valid[1]",
    "LTE multi-lock cell list #0 - pci[214]",
    "LTE multi-lock cell list #0 - freq[1301]",
    "LTE multi-lock cell list #1 - pci[65535]",
    "LTE multi-lock cell list #1 - freq[0]",
};

const std::vector<std::string> nr5g_lock_log = {
    "NR 5G multi-lock cell list - type_valid[1], type[1]",
    "NR 5G multi-lock cell list - cell_identity_valid[1]",
    "NR 5G multi-lock cell list - pci[501]",
    "NR 5G multi-lock cell list - arfcn[636002]",
    "NR 5G multi-lock cell list - scs [2]",
    "NR 5G multi-lock cell list - arfcn_identity_valid[0]",
    "NR 5G multi-lock cell list - arfcn_list_len[0]",
};

int32_t get_sys_info(lyn_nas_sys_info_t *sys_info) {
  return lyn_yrp_nas_get_sys_info(sys_info, 0);
}

const std::vector<query_row> queries = {
    {"sys_info",
     asking(get_sys_info),
     {{always, 77, "", "Retrieving system info failed - ", {6, 1, 1, 777}, system_log}}},
    {"cell_info",
     asking(lyn_yrp_nas_get_cell_info),
     {{always,
       67,
       "",
       "Retrieving cell info failed - ",
       {1,      1301, 214,         6699, 10607298, 0x72, 0xF2, 0x10, -95,  -11, 1,    1,
        636001, 500,  68719476736, -98,  -13,      -15,  0x73, 0xF3, 0x20, 0,   0x1A, 0xFF},
       cell_log}}},
    {"sig_info",
     asking(lyn_yrp_nas_get_sig_info),
     {{always, 79, "", "Retrieving signal info failed - ", {1, -65, -11, -95, 130, 1, -98, -15, 1, -13}, signal_log}}},
    {"tx_pwr_info",
     asking(lyn_yrp_nas_get_tx_pwr_info),
     {{lte,
       90,
       " {radio_if: 8}",
       "Retrieving TX/RX power info failed - ",
       {1, -120},
       {"LTE transmit power info - tx_valid[1]", "LTE transmit power info - tx_pwr[-120]"}},
      {nr5g,
       90,
       " {radio_if: 12}",
       "Retrieving TX/RX power info failed - ",
       {1, 150},
       {"NR 5G transmit power info - tx_valid[1]", "NR 5G transmit power info - tx_pwr[150]"}}}},
    {"get_mcs_info",
     asking(lyn_yrp_nas_get_mcs_info),
     {{lte, 90, " {radio_if: 8}", "Retrieving to MCS info  info failed - ", {1, 2, 3, 4, 1, 1, 2, 0}, lte_mcs_log},
      {nr5g, 90, " {radio_if: 12}", "Retrieving MCS NR5G info failed - ", {1, 1, 5, 0, 1, 2, 3, 1}, nr5g_mcs_log}}},
    {"get_rrc_status",
     asking(lyn_yrp_nas_get_rrc_state),
     {{lte,
       210,
       "",
       "Retrieving to RRC state  info failed - ",
       {1, 4},
       {"LTE  rrc state valid [1]", "LTE  rrc state [3]"}},
      {nr5g,
       210,
       "",
       "Retrieving RRC state info failed - ",
       {1, 9},
       {"NR5G  rrc state valid [1]", "NR5G  rrc state [2]"}}}},
    {"get_endc_mode_info",
     asking(lyn_yrp_nas_get_endc_mode),
     {{lte_only, 77, "", "Retrieving to ENDC mode info failed - ", {1, 1, 1, 0}, endc_log}}},
    {"get_sub_carr_space_info",
     asking(lyn_yrp_nas_get_scs_info),
     {{nr5g,
       77,
       "",
       "Retrieving to CPHY CA info info failed - ",
       {1, 2},
       {"NR5G sub carrier spacing (SCS) valid[1]", "NR5G sub carrier spacing type [1]"}}}},
    {"get_cphy_ca_info",
     asking(lyn_yrp_nas_get_cphy_ca_info),
     {{lte_only,
       172,
       "",
       "Retrieving to CPHY CA info info failed - ",
       {1, 5},
       {"CPHY CA-stats - downlink bandwidth valid[1]", "CPHY CA-stats - downlink bandwidth type [4]"}}}},
    {"get_rf_bw_status",
     asking(lyn_yrp_nas_get_rf_bw_info),
     {{lte,
       49,
       "",
       "Retrieving to Rf bw  info failed - ",
       {1, 2, 4, 5},
       {"Modem Info - Rf Bandwidth valid [1]", "Modem Info - Rf Bandwidth length [2]",
        "Modem Info - Rf Bandwidth type  [4]", "Modem Info - Rf Bandwidth type  [5]"}},
      {nr5g,
       49,
       "",
       "Retrieving RF bandwdth info failed - ",
       {1, 1, 11},
       {"Modem Info - NR5G Rf Bandwidth valid [1]", "Modem Info -NR5G Rf Bandwidth length [1]",
        "Modem Info -NR5G Rf Bandwidth type [11]"}}},
     true},
    {"cqi_info",
     asking(lyn_yrp_nas_get_cqi_info),
     {{lte,
       307,
       " {radio_if: 1, radio_if_valid: 1}",
       "Retrieving CQI info failed - ",
       {1, 2, 2, 12, 11, 0, 0, 1, 9},
       {"LTE CQI info - lte_cc_cqi_valid[1]", "LTE CQI info - lte_cc_cqi_len[2]", "LTE CQI info #0 - lte_cw_cqi[12]",
        "LTE CQI info #0 - lte_cw_cqi[11]", "LTE CQI info #1 - lte_cw_cqi[9]"}},
      {nr5g,
       307,
       " {radio_if: 0, radio_if_valid: 1}",
       "Retrieving CQI info failed - ",
       {1, 1, 2, 14, 13},
       {"NR 5G CQI info - nr5g_cc_cqi_valid[1]", "NR 5G CQI info - nr5g_cc_cqi_len[1]",
        "NR 5G CQI info #0 - nr5g_cw_cqi[14]", "NR 5G CQI info #0 - nr5g_cw_cqi[13]"}}}},
    {"cell_lock_list",
     asking(lyn_yrp_nas_get_cell_lock_list),
     {{lte, 346, "", "Retrieving LTE cell lock list failed - ", {1, 2, 214, 1301, 65535, 0}, lte_lock_log},
      {nr5g, 271, "", "Retrieving NR 5G cell lock list failed - ", {1, 1, 1, 501, 636002, 3, 0, 0}, nr5g_lock_log}}},
};

const query_row &query_named(const std::string &name) {
  return *std::find_if(queries.begin(), queries.end(), [&name](const query_row &row) { return row.name == name; });
}

bool asked_at(const query_step &step, uint32_t network_status) {
  return std::count(step.at.begin(), step.at.end(), network_status) != 0;
}

/** A status at which the query asks all of its messages. */
uint32_t busiest(const query_row &query) {
  return asked_at(query.steps[0], 6) ? 6 : 5;
}

numbers padded(numbers part, size_t size) {
  part.resize(size, 0);
  return part;
}

/** The whole record after the first `done` steps, as large as `actual` is. */
std::vector<numbers> record_after(const query_row &query, size_t done, std::vector<numbers> actual) {
  for (numbers &part : actual) {
    part.assign(part.size(), 0);
  }
  for (size_t i = 0; i < done; i++) {
    numbers &part = actual[query.shared ? 0 : i];
    part = padded(query.steps[i].part, part.size());
  }
  return actual;
}

std::vector<std::string> log_of(const query_row &query, size_t steps) {
  std::vector<std::string> lines;
  for (size_t i = 0; i < steps; i++) {
    for (const std::string &line : query.steps[i].log) {
      lines.push_back("HIGH " + line);
    }
  }
  return lines;
}

/** How often a board has answered this message before the step of the query is asked: connecting asks 77 once. */
int passings_before(const query_row &query, size_t step) {
  int passings = query.steps[step].id == 77 ? 1 : 0;
  for (size_t i = 0; i < step; i++) {
    passings += query.steps[i].id == query.steps[step].id;
  }
  return passings;
}

/** A NAS client that knows the status of the board it is connected to. */
struct lyn_yrp_nas_query : testing::Test {
  static void SetUpTestSuite() {
    metric_board(OX_LYN_REG_LTE_NR5G_E);
    ASSERT_EQ(lyn_yrp_nas_init(), 0);
  }
  static void TearDownTestSuite() { ASSERT_EQ(lyn_yrp_nas_release(), 0); }

  static void board(uint32_t network_status, const metric_tables &tables = {}) {
    metric_board(network_status, tables);
    lyn_nas_sys_info_t sys_info = {};
    ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 1), 0);
    ASSERT_EQ(sys_info.network_status, network_status);
    board_forget();
  }

  /** Ask on a board with this fault: the record must be what the first `done` steps read. */
  static void expect_failure(const query_row &query, size_t step, const std::string &what, const std::string &error) {
    const query_step &asked = query.steps[step];
    board(busiest(query), metric_with(metric_fault(asked.id, passings_before(query, step), what)));
    const query_answer answer = query.ask(false);
    EXPECT_EQ(answer.status, -1);
    EXPECT_EQ(answer.parts, record_after(query, step, answer.parts));
    std::vector<std::string> log = log_of(query, step);
    log.push_back("ERROR " + asked.failure + error);
    EXPECT_THAT(diag_log_lines(), ElementsAreArray(log));
    EXPECT_EQ(metric_asked().size(), step + 1);
  }
};

/* What is asked */

TEST_F(lyn_yrp_nas_query, each_network_status_asks_its_radios_and_no_other) {
  for (uint32_t network_status = 1; network_status <= 7; network_status++) {
    board(network_status);
    for (const query_row &query : queries) {
      SCOPED_TRACE(query.name + " at " + std::to_string(network_status));
      board_forget();
      std::vector<std::string> wanted;
      for (const query_step &step : query.steps) {
        if (asked_at(step, network_status)) {
          wanted.push_back(std::to_string(step.id) + step.fields);
        }
      }
      const query_answer answer = query.ask(false);
      EXPECT_EQ(answer.status, 0);
      EXPECT_THAT(metric_asked(), ElementsAreArray(wanted));
      if (wanted.empty()) {
        EXPECT_EQ(answer.parts, record_after(query, 0, answer.parts));
        EXPECT_THAT(diag_log_lines(), IsEmpty());
      }
    }
  }
}

TEST_F(lyn_yrp_nas_query, each_answer_fills_its_whole_record_and_logs_every_value) {
  for (const query_row &query : queries) {
    SCOPED_TRACE(query.name);
    board(busiest(query));
    const query_answer answer = query.ask(false);
    EXPECT_EQ(answer.status, 0);
    EXPECT_EQ(answer.parts, record_after(query, query.steps.size(), answer.parts));
    EXPECT_THAT(diag_log_lines(), ElementsAreArray(log_of(query, query.steps.size())));
  }
}

TEST_F(lyn_yrp_nas_query, with_nr5g_alone_only_its_part_is_read) {
  board(OX_LYN_REG_NR5G_E);
  for (const query_row &query : queries) {
    if (query.steps.size() < 2) {
      continue;
    }
    SCOPED_TRACE(query.name);
    const query_answer answer = query.ask(false);
    const numbers &part = query.shared ? answer.parts[0] : answer.parts[1];
    EXPECT_EQ(part, padded(query.steps[1].part, part.size()));
    if (!query.shared) {
      EXPECT_EQ(answer.parts[0], numbers(answer.parts[0].size(), 0));
    }
  }
}

/* What goes wrong */

TEST_F(lyn_yrp_nas_query, null_record_is_refused_before_anything_is_asked) {
  board(OX_LYN_REG_LTE_NR5G_E);
  for (const query_row &query : queries) {
    EXPECT_EQ(query.ask(true).status, -2);
    EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Invalid params - " + query.name + "[(nil)]"));
  }
  EXPECT_THAT(metric_asked(), IsEmpty());
}

TEST_F(lyn_yrp_nas_query, queries_of_a_released_client_leave_their_records_alone) {
  board(OX_LYN_REG_LTE_NR5G_E);
  ASSERT_EQ(lyn_yrp_nas_release(), 0);
  board_forget();
  for (const query_row &query : queries) {
    const query_answer answer = query.ask(false);
    EXPECT_EQ(answer.status, -12);
    EXPECT_TRUE(answer.untouched);
    EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR YRP NAS module not initialized - yrp_nas_clnt_handle[(nil)]"));
    EXPECT_EQ(query.ask(true).status, -2);
    diag_log_lines();
  }
  EXPECT_THAT(metric_asked(), IsEmpty());
  ASSERT_EQ(lyn_yrp_nas_init(), 0);
}

TEST_F(lyn_yrp_nas_query, failed_step_ends_the_query_with_its_own_text_and_keeps_what_was_read_before) {
  for (const query_row &query : queries) {
    const std::string response = query.name == "cell_info" ? "], response [" : "], response[";
    for (size_t step = 0; step < query.steps.size(); step++) {
      SCOPED_TRACE(query.name + ", step " + std::to_string(step));
      expect_failure(query, step, "transport = -3", "error[-3" + response + "0/0]");
      expect_failure(query, step, "result = 1\nerror = 46", "error[0" + response + "1/46]");
      expect_failure(query, step, "result = 4294967295", "error[0" + response + "-1/0]");
    }
  }
}

/** One validity flag that the modem leaves clear: what is left of the record, and what the log then has in place. */
struct query_flag {
  std::string query;
  size_t step;
  std::string flags;
  numbers part;                 /* of that step */
  std::vector<std::string> log; /* in it, among others */
};

const std::vector<query_flag> cleared_flags = {
    {"sys_info",
     0,
     "\"nr5g_pci_valid\"",
     {5, 0, 0, 0},
     {"HIGH LTE system info indication - nr5g_pci_valid[0], nr5g_pci[777]"}},
    {"sys_info", 0, "\"lte_srv_status_info_valid\"", {1, 1, 1, 777}, {}},
    {"cell_info",
     0,
     "\"lte_intra_valid\"",
     {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 636001, 500, 68719476736, -98, -13, -15, 0x73, 0xF3, 0x20, 0, 0x1A, 0xFF},
     {"HIGH LTE serving cell info - lte_intra_valid[0]", "HIGH LTE serving cell info - earfcn[1301]"}},
    {"cell_info",
     0,
     "\"nr5g_arfcn_valid\"",
     {1, 1301, 214,         6699, 10607298, 0x72, 0xF2, 0x10, -95,  -11, 1,    0,
      0, 500,  68719476736, -98,  -13,      -15,  0x73, 0xF3, 0x20, 0,   0x1A, 0xFF},
     {"HIGH NR 5G serving cell info - nr5g_arfcn_valid[0]"}},
    {"cell_info",
     0,
     "\"nr5g_serving_cell_info_valid\"",
     {1, 1301, 214, 6699, 10607298, 0x72, 0xF2, 0x10, -95, -11, 0, 1, 636001},
     {"HIGH NR 5G serving cell info - nr5g_serving_cell_info_valid[0]"}},
    {"sig_info",
     0,
     "\"lte_sig_info_valid\"",
     {0, 0, 0, 0, 0, 1, -98, -15, 1, -13},
     {"HIGH LTE signal info - lte_sig_info_valid[0]", "HIGH LTE signal info - rsrp[-95]"}},
    {"sig_info",
     0,
     "\"nr5g_sig_info_valid\"",
     {1, -65, -11, -95, 130, 0, 0, 0, 1, -13},
     {"HIGH NR 5G signal info - nr5g_sig_info_valid[0]"}},
    {"sig_info",
     0,
     "\"nr5g_rsrq_valid\"",
     {1, -65, -11, -95, 130, 1, -98, -15, 0, 0},
     {"HIGH NR 5G signal info - nr5g_rsrq_valid[0]"}},
    {"tx_pwr_info", 0, "\"tx_valid\"", {}, {"HIGH LTE transmit power info - tx_valid[0]"}},
    {"tx_pwr_info", 1, "\"tx_valid\"", {}, {"HIGH NR 5G transmit power info - tx_valid[0]"}},
    {"get_mcs_info",
     0,
     "\"downlink_mod_valid\"",
     {0, 0, 0, 0, 1, 1, 2, 0},
     {"ERROR MCS info Failed not valid 0 length 2 \\n", "HIGH MCS info - LTE uplink valid[1]"}},
    {"get_mcs_info", 0, "\"uplink_mod_valid\"", {1, 2, 3, 4}, {"ERROR MCS info Failed not valid 0 length 1 \\n"}},
    {"get_mcs_info", 1, "\"downlink_mod_valid\"", {0, 0, 0, 0, 1, 2, 3, 1}, {"HIGH MCS info - NR5G downlink valid[0]"}},
    {"get_mcs_info", 1, "\"uplink_mod_valid\"", {1, 1, 5, 0}, {"HIGH MCS info - NR5G uplink valid[0]"}},
    {"get_rrc_status", 0, "\"lte_rrc_state_valid\"", {}, {"HIGH LTE  rrc state valid [0]", "HIGH LTE  rrc state [3]"}},
    {"get_rrc_status", 1, "\"nr5g_rrc_state_valid\"", {}, {"HIGH NR5G  rrc state valid [0]"}},
    {"get_endc_mode_info", 0, "\"endc_available_valid\"", {}, {"HIGH Modem Metrics ENDC mode valid [0]"}},
    {"get_sub_carr_space_info", 0, "\"nr5g_scs_valid\"", {}, {"HIGH NR5G sub carrier spacing (SCS) valid[0]"}},
    {"get_cphy_ca_info", 0, "\"dl_bandwidth_valid\"", {}, {"HIGH CPHY CA-stats - downlink bandwidth valid[0]"}},
    {"cqi_info", 0, "\"lte_cc_cqi_valid\"", {}, {"HIGH LTE CQI info - lte_cc_cqi_valid[0]"}},
    {"cqi_info", 1, "\"nr5g_cc_cqi_valid\"", {}, {"HIGH NR 5G CQI info - nr5g_cc_cqi_valid[0]"}},
    {"cell_lock_list", 0, "\"lte_cell_list_valid\"", {}, {"HIGH LTE multi-lock cell list - lte_cell_list_valid[0]"}},
    {"cell_lock_list",
     1,
     "\"type_valid\"",
     {0, 0, 1, 501, 636002, 3},
     {"HIGH NR 5G multi-lock cell list - type_valid[0], type[1]"}},
    {"cell_lock_list",
     1,
     "\"cell_identity_valid\"",
     {1, 1},
     {"HIGH NR 5G multi-lock cell list - cell_identity_valid[0]"}},
};

TEST_F(lyn_yrp_nas_query, part_without_its_validity_flag_stays_zero_and_the_other_parts_are_read) {
  for (const query_flag &cleared : cleared_flags) {
    SCOPED_TRACE(cleared.query + " without " + cleared.flags);
    const query_row &query = query_named(cleared.query);
    board(busiest(query), metric_with(metric_fault(query.steps[cleared.step].id, passings_before(query, cleared.step),
                                                   "clear = [" + cleared.flags + "]")));
    const query_answer answer = query.ask(false);
    EXPECT_EQ(answer.status, 0);
    std::vector<numbers> wanted = record_after(query, query.steps.size(), answer.parts);
    wanted[cleared.step] = padded(cleared.part, wanted[cleared.step].size());
    EXPECT_EQ(answer.parts, wanted);
    const std::vector<std::string> log = diag_log_lines();
    size_t errors = 0;
    for (const std::string &line : cleared.log) {
      EXPECT_THAT(log, testing::Contains(line));
      errors += line.starts_with("ERROR");
    }
    EXPECT_EQ(std::count_if(log.begin(), log.end(), [](const std::string &line) { return line.starts_with("ERROR"); }),
              static_cast<std::ptrdiff_t>(errors));
  }
}

TEST_F(lyn_yrp_nas_query, rf_bandwidths_of_one_radio_stand_when_the_other_has_none) {
  const query_row &query = query_named("get_rf_bw_status");
  board(6, metric_with(metric_fault(49, 1, "clear = [\"nr5g_rf_bandwidth_valid\"]")));
  query_answer answer = query.ask(false);
  EXPECT_EQ(answer.parts, record_after(query, 1, answer.parts));
  board(6, metric_with(metric_fault(49, 0, "clear = [\"lte_rf_bandwidth_valid\"]")));
  answer = query.ask(false);
  EXPECT_EQ(answer.parts, record_after(query, 2, answer.parts));
  board(5, metric_with(metric_fault(49, 0, "clear = [\"lte_rf_bandwidth_valid\"]")));
  answer = query.ask(false);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.parts, record_after(query, 0, answer.parts));
}

TEST_F(lyn_yrp_nas_query, empty_list_of_rf_bandwidths_is_read_as_missing) {
  const query_row &query = query_named("get_rf_bw_status");
  board(6, metric_with_nr5g("rf_bandwidth", "[]"));
  query_answer answer = query.ask(false);
  EXPECT_EQ(answer.parts, record_after(query, 1, answer.parts)) << "those of LTE stand";
  board(6, metric_with_lte("rf_bandwidth", "[]"));
  answer = query.ask(false);
  EXPECT_EQ(answer.parts, record_after(query, 2, answer.parts));
  board(6, metric_with_lte("rf_bandwidth", "[]", metric_with_nr5g("rf_bandwidth", "[]")));
  answer = query.ask(false);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.parts, record_after(query, 0, answer.parts));
}

TEST_F(lyn_yrp_nas_query, deliberately_a_missing_mcs_list_of_lte_is_reported_and_one_of_nr5g_is_not) {
  metric_tables tables = metric_with_lte("dl_mod", "[]", metric_with_lte("ul_mod", "[]"));
  tables = metric_with_nr5g("dl_mod", "[]", metric_with_nr5g("ul_mod", "[]", tables));
  board(6, tables);
  const query_row &query = query_named("get_mcs_info");
  const query_answer answer = query.ask(false);
  EXPECT_EQ(answer.status, 0);
  EXPECT_EQ(answer.parts, record_after(query, 0, answer.parts));
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("MCS info Failed not valid 1 length 0 \\n", "MCS info Failed not valid 1 length 0 \\n"));
}

TEST_F(lyn_yrp_nas_query, deliberately_the_dcnr_flag_is_one_whatever_the_modem_says) {
  board(5, metric_with(metric_fault(77, 1, "clear = [\"restrict_dcnr_valid\"]")));
  const query_answer answer = query_named("get_endc_mode_info").ask(false);
  EXPECT_EQ(answer.parts[0], (numbers{1, 1, 1, 0}));
  EXPECT_THAT(diag_log_lines(), testing::Contains("HIGH Modem Metrics ENDC mode restrict_dcnr_valid [0]"));
}

TEST_F(lyn_yrp_nas_query, deliberately_a_failed_spacing_query_logs_the_text_of_carrier_aggregation) {
  board(7, metric_with(metric_fault(77, 1, "result = 1\nerror = 46")));
  EXPECT_EQ(query_named("get_sub_carr_space_info").ask(false).status, -1);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Retrieving to CPHY CA info info failed - error[0], response[1/46]"));
}

TEST_F(lyn_yrp_nas_query, endc_flags_are_the_modems) {
  metric_tables tables;
  tables.endc = "available = 0\nrestrict_dcnr = 1\n";
  board(5, tables);
  EXPECT_EQ(query_named("get_endc_mode_info").ask(false).parts[0], (numbers{1, 0, 1, 1}));
}

/* Translation: every code of the modem's, one below and one above */

struct query_codes {
  std::string query;
  size_t part, at; /* where the value stands in the record */
  std::function<metric_tables(const std::string &code)> board;
  uint32_t network_status;
  std::vector<std::pair<uint32_t, int64_t>> codes;
};

using code_table = std::vector<std::pair<uint32_t, int64_t>>;

constexpr uint32_t below_zero = UINT32_MAX;

const code_table lte_rrc_codes = {{below_zero, 0}, {0, 0}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 0}};
const code_table nr5g_rrc_codes = {{below_zero, 0}, {0, 7}, {1, 8}, {2, 9}, {3, 0}};
const code_table scs_codes = {{below_zero, 0}, {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 0}, {7, 0}};
const code_table ca_codes = {{below_zero, 0}, {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 0}};
const code_table lte_mcs_codes = {{below_zero, 255}, {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {6, 255}};
const code_table nr5g_mcs_codes = {{below_zero, 255}, {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 255}};
const code_table bandwidth_codes = {{below_zero, 20}, {0, 1},   {1, 2},   {2, 3},   {3, 4},   {4, 5},
                                    {5, 6},           {6, 7},   {7, 8},   {8, 9},   {9, 10},  {10, 11},
                                    {11, 12},         {12, 13}, {13, 14}, {14, 15}, {15, 16}, {16, 17},
                                    {17, 18},         {18, 19}, {19, 20}, {20, 20}};

std::function<metric_tables(const std::string &)> lte_value(const std::string &key, const std::string &before = "",
                                                            const std::string &after = "") {
  return [=](const std::string &code) { return metric_with_lte(key, before + code + after); };
}
std::function<metric_tables(const std::string &)> nr5g_value(const std::string &key, const std::string &before = "",
                                                             const std::string &after = "") {
  return [=](const std::string &code) { return metric_with_nr5g(key, before + code + after); };
}

const std::vector<query_codes> translations = {
    {"get_rrc_status", 0, 1, lte_value("rrc_state"), 5, lte_rrc_codes},
    {"get_rrc_status", 1, 1, nr5g_value("rrc_state"), 7, nr5g_rrc_codes},
    {"get_sub_carr_space_info", 0, 1, nr5g_value("scs"), 7, scs_codes},
    {"get_cphy_ca_info", 0, 1, lte_value("ca_dl_bandwidth"), 5, ca_codes},
    {"get_rf_bw_status", 0, 3, lte_value("rf_bandwidth", "[0, ", "]"), 5, bandwidth_codes},
    {"get_rf_bw_status", 0, 3, nr5g_value("rf_bandwidth", "[0, ", "]"), 7, bandwidth_codes},
    {"get_mcs_info", 0, 2, lte_value("dl_mod", "[", ", 0]"), 5, lte_mcs_codes},
    {"get_mcs_info", 0, 3, lte_value("dl_mod", "[0, ", "]"), 5, lte_mcs_codes},
    {"get_mcs_info", 0, 6, lte_value("ul_mod", "[", "]"), 5, lte_mcs_codes},
    {"get_mcs_info", 1, 2, nr5g_value("dl_mod", "[", "]"), 7, nr5g_mcs_codes},
    {"get_mcs_info", 1, 7, nr5g_value("ul_mod", "[0, ", "]"), 7, nr5g_mcs_codes},
    {"cell_lock_list", 1, 5, nr5g_value("cell_lock", "{ type = 1, scs = ", " }"), 7, scs_codes},
    {"cell_lock_list", 1, 9, nr5g_value("cell_lock", "{ type = 2, list = [{ arfcn = 1, scs = ", " }] }"), 7, scs_codes},
};

TEST_F(lyn_yrp_nas_query, every_code_of_the_modem_and_its_neighbours_become_the_apis) {
  for (const query_codes &row : translations) {
    for (const auto &[code, wanted] : row.codes) {
      SCOPED_TRACE(row.query + " number " + std::to_string(row.at) + ": code " + std::to_string(code));
      board(row.network_status, row.board(std::to_string(code)));
      const query_answer answer = query_named(row.query).ask(false);
      EXPECT_EQ(answer.status, 0);
      EXPECT_EQ(answer.parts[row.part][0], 1) << "valid whatever the code";
      EXPECT_EQ(answer.parts[row.part][row.at], wanted);
    }
  }
}

TEST_F(lyn_yrp_nas_query, deliberately_the_rrc_states_of_both_radios_share_one_numbering) {
  board(6, metric_with_lte("rrc_state", "5", metric_with_nr5g("rrc_state", "0")));
  const query_answer answer = query_named("get_rrc_status").ask(false);
  EXPECT_EQ(answer.parts[0][1] + 1, answer.parts[1][1]) << "LTE ends at 6, NR 5G begins at 7";
}

TEST_F(lyn_yrp_nas_query, deliberately_the_nr5g_lock_type_is_the_modems) {
  for (const uint32_t type : {0U, 1U, 2U, 3U, 4U, UINT32_MAX}) {
    board(7, metric_with_nr5g("cell_lock", "{ type = " + std::to_string(type) + " }"));
    EXPECT_EQ(query_named("cell_lock_list").ask(false).parts[1][1], type);
  }
}

/* Lists */

TEST_F(lyn_yrp_nas_query, frequency_lock_is_logged_entry_by_entry_with_the_translated_spacing) {
  board(7, metric_with_nr5g("cell_lock",
                            "{ type = 2, list = [{ arfcn = 636000, scs = 0 }, { arfcn = 2079167, scs = 9 }] }"));
  const query_answer answer = query_named("cell_lock_list").ask(false);
  EXPECT_EQ(answer.parts[1], padded({1, 2, 0, 0, 0, 0, 1, 2, 636000, 1, 2079167, 0}, answer.parts[1].size()));
  std::vector<std::string> log = diag_log_lines();
  log.erase(log.begin(), log.begin() + 5);
  EXPECT_THAT(log, ElementsAre("HIGH NR 5G multi-lock cell list - arfcn_identity_valid[1]",
                               "HIGH NR 5G multi-lock cell list - arfcn_list_len[2]",
                               "HIGH NR 5G multi-lock cell list - #0 arfcn[636000]",
                               "HIGH NR 5G multi-lock cell list freq based - scs [1]",
                               "HIGH NR 5G multi-lock cell list - #1 arfcn[2079167]",
                               "HIGH NR 5G multi-lock cell list freq based - scs [0]"));
}

std::string repeated(const std::string &entry, size_t count) {
  std::string list = "[";
  for (size_t i = 0; i < count; i++) {
    list += (i == 0 ? "" : ", ") + entry;
  }
  return list + "]";
}

TEST_F(lyn_yrp_nas_query, lists_are_read_up_to_their_last_place) {
  metric_tables tables = metric_with_lte("cqi", repeated("[1, 2, 3, 4]", 7));
  tables = metric_with_lte("cell_lock", repeated("{ pci = 5, freq = 6 }", 60), tables);
  tables = metric_with_lte("rf_bandwidth", repeated("7", 16), tables);
  tables = metric_with_nr5g("cqi", repeated("[5, 6, 7, 8]", 12), tables);
  tables = metric_with_nr5g("cell_lock", "{ type = 2, list = " + repeated("{ arfcn = 9, scs = 4 }", 32) + " }", tables);
  tables = metric_with_nr5g("rf_bandwidth", repeated("18", 16), tables);
  board(6, tables);
  const query_answer cqi = query_named("cqi_info").ask(false);
  numbers wanted = {1, 7};
  for (int i = 0; i < 7; i++) {
    wanted = wanted + numbers{4, 1, 2, 3, 4};
  }
  EXPECT_EQ(cqi.parts[0], wanted);
  wanted = {1, 12};
  for (int i = 0; i < 12; i++) {
    wanted = wanted + numbers{4, 5, 6, 7, 8};
  }
  EXPECT_EQ(cqi.parts[1], wanted);
  const query_answer locks = query_named("cell_lock_list").ask(false);
  wanted = {1, 60};
  for (int i = 0; i < 60; i++) {
    wanted = wanted + numbers{5, 6};
  }
  EXPECT_EQ(locks.parts[0], wanted);
  wanted = {1, 2, 0, 0, 0, 0, 1, 32};
  for (int i = 0; i < 32; i++) {
    wanted = wanted + numbers{9, 5};
  }
  EXPECT_EQ(locks.parts[1], wanted);
  EXPECT_EQ(query_named("get_rf_bw_status").ask(false).parts[0], (numbers{1, 16} + numbers(16, 19)));
}

/* System information */

/** What the network status is for each state of the two radios. */
int64_t status_of(const std::string &lte_state, const std::string &nr5g_state, bool pci) {
  const auto restricted = [](const std::string &state, int64_t other) -> int64_t {
    if (state == "limited") {
      return 3;
    }
    if (state == "limited_regional") {
      return 4;
    }
    return state == "power_save" ? 2 : other;
  };
  if (nr5g_state == "service") {
    return 7;
  }
  if (lte_state == "service") {
    return pci ? 6 : 5;
  }
  return restricted(lte_state, restricted(nr5g_state, 1));
}

TEST_F(lyn_yrp_nas_query, network_status_follows_from_both_radios_with_nr5g_service_first) {
  const std::vector<std::string> states = {"absent",  "no_service",       "limited",
                                           "service", "limited_regional", "power_save"};
  for (const std::string &lte_state : states) {
    for (const std::string &nr5g_state : states) {
      for (const bool pci : {false, true}) {
        SCOPED_TRACE("lte " + lte_state + ", nr5g " + nr5g_state + (pci ? ", a PCI" : ""));
        ASSERT_EQ(sim_board_load("[board]\nnoise_db = 0\n[sys_info]\nlte = \"" + lte_state + "\"\nnr5g = \"" +
                                 nr5g_state + "\"\nnr5g_pci = " + (pci ? "777" : "-1") + "\n"),
                  "");
        const numbers wanted = {status_of(lte_state, nr5g_state, pci), pci, pci, pci ? 777 : 0};
        EXPECT_EQ(query_named("sys_info").ask(false).parts[0], wanted);
      }
    }
  }
}

TEST_F(lyn_yrp_nas_query, system_information_is_logged_as_of_the_query) {
  for (const char *nr5g_state : {"service", "limited"}) {
    ASSERT_EQ(sim_board_load(std::string("[sys_info]\nnr5g = \"") + nr5g_state + "\"\n"), "");
    diag_log_take();
    ASSERT_EQ(query_named("sys_info").ask(false).status, 0);
    EXPECT_THAT(diag_log_placed(), testing::Each(testing::StartsWith("HIGH lyn_yrp_nas_query.cpp ")));
  }
}

TEST_F(lyn_yrp_nas_query, system_information_changes_the_radios_that_are_asked_only_with_its_update_flag) {
  board(5);
  metric_board(7);
  lyn_nas_sys_info_t sys_info = {};
  ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 0), 0);
  EXPECT_EQ(sys_info.network_status, static_cast<uint32_t>(OX_LYN_REG_NR5G_E));
  board_forget();
  query_named("tx_pwr_info").ask(false);
  EXPECT_THAT(metric_asked(), ElementsAre("90 {radio_if: 8}"));
  ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 255), 0);
  board_forget();
  query_named("tx_pwr_info").ask(false);
  EXPECT_THAT(metric_asked(), ElementsAre("90 {radio_if: 12}"));
}

TEST_F(lyn_yrp_nas_query, failed_system_information_leaves_the_network_status_as_it_was) {
  board(5);
  metric_board(7, metric_with(metric_fault(77, 0, "transport = -1")));
  lyn_nas_sys_info_t sys_info = {};
  ASSERT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 1), -1);
  board_forget();
  query_named("tx_pwr_info").ask(false);
  EXPECT_THAT(metric_asked(), ElementsAre("90 {radio_if: 8}"));
}

TEST_F(lyn_yrp_nas_query, signed_and_wide_values_keep_sign_and_width) {
  metric_tables tables = metric_with_lte("tx_power", "-2147483648");
  tables = metric_with_lte("rsrp", "-32768", tables);
  tables = metric_with_lte("rsrq", "-128", tables);
  tables = metric_with_lte("rssi", "-128", tables);
  tables = metric_with_lte("earfcn", "65535", tables);
  tables = metric_with_lte("cgi", "4294967295", tables);
  tables = metric_with_nr5g("arfcn", "9223372036854775807", tables);
  tables = metric_with_nr5g("cgi", "9223372036854775807", tables);
  tables = metric_with_nr5g("rsrq", "-32768", tables);
  board(6, tables);
  const numbers cells = query_named("cell_info").ask(false).parts[0];
  EXPECT_EQ(cells[1], 65535);
  EXPECT_EQ(cells[4], 4294967295);
  EXPECT_EQ(cells[8], -32768);
  EXPECT_EQ(cells[12], INT64_MAX);
  EXPECT_EQ(cells[14], INT64_MAX);
  EXPECT_THAT(diag_log_lines(), testing::IsSupersetOf({"HIGH LTE serving cell info - earfcn[65535]",
                                                       "HIGH NR 5G serving cell info - nr5g_arfcn[4294967295]",
                                                       "HIGH NR 5G serving cell info - cgi[9223372036854775807]"}));
  EXPECT_EQ(query_named("sig_info").ask(false).parts[0], (numbers{1, -128, -128, -32768, 130, 1, -98, -15, 1, -32768}));
  EXPECT_EQ(query_named("tx_pwr_info").ask(false).parts[0], (numbers{1, INT32_MIN}));
}

}  // namespace
