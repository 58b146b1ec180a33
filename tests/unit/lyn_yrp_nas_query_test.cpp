/* The NAS client's queries: what is asked when, what comes back, translated and limited. */
#include <functional>

#include "lyn_yrp_nas_board.h"

using testing::ElementsAre;

namespace {

/** One query, its result behind a plain call. */
struct nas_query {
  std::string name; /* in its invalid-parameter text */
  std::function<int32_t(bool null_record, bool &empty)> ask;
  std::vector<int> lte_only, both, nr5g_only; /* messages at status 5, 6 and 7 */
  std::vector<std::string> failures;          /* texts in front of error[..], in the order of `both` or `lte_only` */
  bool any_status = false;                    /* asked whatever the status */
};

template <typename Result>
std::function<int32_t(bool, bool &)> asking(int32_t (*query)(Result *)) {
  return [query](bool null_record, bool &empty) {
    Result result;
    memset(&result, 0xee, sizeof(result));
    const int32_t status = query(null_record ? nullptr : &result);
    empty = nas_all_zero(result);
    return status;
  };
}

int32_t get_sys_info(lyn_nas_sys_info_t *sys_info) {
  return lyn_yrp_nas_get_sys_info(sys_info, 0);
}

const std::vector<nas_query> &queries() {
  static const std::vector<nas_query> rows = {
      {"sys_info", asking(get_sys_info), {77}, {77}, {77}, {"Retrieving system info failed - "}, true},
      {"cell_info", asking(lyn_yrp_nas_get_cell_info), {67}, {67}, {67}, {"Retrieving cell info failed - "}, true},
      {"sig_info", asking(lyn_yrp_nas_get_sig_info), {79}, {79}, {79}, {"Retrieving signal info failed - "}, true},
      {"tx_pwr_info",
       asking(lyn_yrp_nas_get_tx_pwr_info),
       {90},
       {90, 90},
       {90},
       {"Retrieving TX/RX power info failed - ", "Retrieving TX/RX power info failed - "}},
      {"get_mcs_info",
       asking(lyn_yrp_nas_get_mcs_info),
       {90},
       {90, 90},
       {90},
       {"Retrieving to MCS info  info failed - ", "Retrieving MCS NR5G info failed - "}},
      {"get_rrc_status",
       asking(lyn_yrp_nas_get_rrc_state),
       {210},
       {210, 210},
       {210},
       {"Retrieving to RRC state  info failed - ", "Retrieving RRC state info failed - "}},
      {"get_endc_mode_info",
       asking(lyn_yrp_nas_get_endc_mode),
       {77},
       {},
       {},
       {"Retrieving to ENDC mode info failed - "}},
      {"get_sub_carr_space_info",
       asking(lyn_yrp_nas_get_scs_info),
       {},
       {77},
       {77},
       {"Retrieving to CPHY CA info info failed - "}},
      {"get_cphy_ca_info",
       asking(lyn_yrp_nas_get_cphy_ca_info),
       {172},
       {},
       {},
       {"Retrieving to CPHY CA info info failed - "}},
      {"get_rf_bw_status",
       asking(lyn_yrp_nas_get_rf_bw_info),
       {49},
       {49, 49},
       {49},
       {"Retrieving to Rf bw  info failed - ", "Retrieving RF bandwdth info failed - "}},
      {"cqi_info",
       asking(lyn_yrp_nas_get_cqi_info),
       {307},
       {307, 307},
       {307},
       {"Retrieving CQI info failed - ", "Retrieving CQI info failed - "}},
      {"cell_lock_list",
       asking(lyn_yrp_nas_get_cell_lock_list),
       {346},
       {346, 271},
       {271},
       {"Retrieving LTE cell lock list failed - ", "Retrieving NR 5G cell lock list failed - "}},
  };
  return rows;
}

/** Status at which a query asks most. */
uint32_t busiest(const nas_query &query) {
  return query.both.empty() ? OX_LYN_REG_LTE_E : OX_LYN_REG_LTE_NR5G_E;
}

const std::vector<int> &asked_at(const nas_query &query, uint32_t network_status) {
  static const std::vector<int> none;
  switch (network_status) {
    case OX_LYN_REG_LTE_E:
      return query.lte_only;
    case OX_LYN_REG_LTE_NR5G_E:
      return query.both;
    case OX_LYN_REG_NR5G_E:
      return query.nr5g_only;
    default:
      return query.any_status ? query.lte_only : none;
  }
}

std::string number(uint32_t value) {
  return std::to_string(value);
}

}  // namespace

TEST_F(lyn_yrp_nas, when_the_status_says_which_radios_are_there_then_only_these_are_asked) {
  for (uint32_t network_status = 1; network_status <= 7; network_status++) {
    for (const auto &query : queries()) {
      SCOPED_TRACE(query.name + " at " + number(network_status));
      nas_connect(network_status);
      bool empty = false;
      EXPECT_EQ(query.ask(false, empty), 0);
      EXPECT_EQ(nas_requests(), asked_at(query, network_status));
      EXPECT_TRUE(!asked_at(query, network_status).empty() || empty);
    }
  }
}

TEST_F(lyn_yrp_nas, when_a_record_is_null_then_nothing_is_asked) {
  nas_connect(OX_LYN_REG_LTE_E);
  for (const auto &query : queries()) {
    bool empty = false;
    EXPECT_EQ(query.ask(true, empty), -2);
    EXPECT_THAT(nas_log(), ElementsAre("ERROR Invalid params - " + query.name + "[(nil)]"));
  }
  EXPECT_TRUE(nas_requests().empty());
}

TEST_F(lyn_yrp_nas, when_not_connected_then_queries_are_refused_and_their_records_left_alone) {
  nas_connect(OX_LYN_REG_LTE_E);
  ASSERT_EQ(lyn_yrp_nas_release(), 0);
  diag_log_take();
  for (const auto &query : queries()) {
    bool empty = true;
    EXPECT_EQ(query.ask(false, empty), -12);
    EXPECT_FALSE(empty);
    EXPECT_THAT(nas_log(), ElementsAre("ERROR YRP NAS module not initialized - yrp_nas_clnt_handle[(nil)]"));
  }
}

TEST_F(lyn_yrp_nas, when_the_modem_fails_a_step_then_the_query_ends_with_the_text_of_that_step) {
  for (const auto &query : queries()) {
    for (size_t step = 0; step < query.failures.size(); step++) {
      const auto &ids = asked_at(query, busiest(query));
      /* the connection itself has asked 77 once */
      size_t skip = ids[step] == 77 ? 1 : 0;
      skip += static_cast<size_t>(std::count(ids.begin(), ids.begin() + static_cast<long>(step), ids[step]));
      const std::string rule =
          "[[fault]]\non = \"nas." + std::to_string(ids[step]) + "\"\nskip = " + std::to_string(skip) + "\n";
      const std::string head = query.failures[step] + "error[";
      const std::string blank = query.name == "cell_info" ? " " : "";
      SCOPED_TRACE(head);
      bool empty = false;
      nas_connect(busiest(query), rule + "transport = -3\n");
      EXPECT_EQ(query.ask(false, empty), -1);
      EXPECT_EQ(empty, step == 0);
      EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(head + "-3], response" + blank + "[0/0]"));
      nas_connect(busiest(query), rule + "result = 1\nerror = 46\n");
      EXPECT_EQ(query.ask(false, empty), -1);
      EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(head + "0], response" + blank + "[1/46]"));
    }
  }
}

TEST_F(lyn_yrp_nas, when_the_update_flag_is_set_then_later_queries_go_by_the_new_status) {
  for (const uint8_t update : {uint8_t{0}, uint8_t{1}}) {
    nas_connect(OX_LYN_REG_LTE_E, "[[fault]]\non = \"nas.77\"\nskip = 1\nclear = [\"lte_srv_status_info_valid\"]\n");
    lyn_nas_sys_info_t sys_info;
    EXPECT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, update), 0);
    EXPECT_EQ(sys_info.network_status, static_cast<uint32_t>(OX_LYN_REG_NO_SERVICE_E));
    lyn_nas_tx_pwr_info_t tx_pwr;
    EXPECT_EQ(lyn_yrp_nas_get_tx_pwr_info(&tx_pwr), 0);
    EXPECT_EQ(nas_requests(), update != 0 ? std::vector<int>({77}) : std::vector<int>({77, 90}));
  }
}

TEST_F(lyn_yrp_nas, when_there_is_an_nr5g_cell_then_system_information_has_its_pci) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E);
  lyn_nas_sys_info_t sys_info;
  EXPECT_EQ(lyn_yrp_nas_get_sys_info(&sys_info, 0), 0);
  EXPECT_EQ(sys_info.nr5g_pci_info_valid, 1);
  EXPECT_EQ(sys_info.nr5g_pci_valid, 1);
  EXPECT_EQ(sys_info.nr5g_pci, 500);
  EXPECT_EQ(nas_log().back(), "HIGH NR 5G PCI information - nr5g_pci_valid[1], nr5g_pci[500]");
}

TEST_F(lyn_yrp_nas, when_rrc_states_are_read_then_both_radios_share_one_numbering) {
  for (uint32_t code = 0; code <= 6; code++) {
    nas_connect(OX_LYN_REG_LTE_NR5G_E,
                "[lte]\nrrc_state = " + number(code) + "\n[nr5g]\nrrc_state = " + number(code) + "\n");
    lyn_nas_rrc_state_t rrc;
    EXPECT_EQ(lyn_yrp_nas_get_rrc_state(&rrc), 0);
    EXPECT_EQ(rrc.lte_valid, 1U);
    EXPECT_EQ(rrc.nr5g_valid, 1);
    EXPECT_EQ(rrc.lte_state, (std::vector<uint32_t>{0, 2, 3, 4, 5, 6, 0}[code]));
    EXPECT_EQ(rrc.nr5g_state, (std::vector<uint32_t>{7, 8, 9, 0, 0, 0, 0}[code]));
    EXPECT_THAT(nas_log(),
                ElementsAre("HIGH LTE  rrc state valid [1]", "HIGH LTE  rrc state [" + number(code) + "]",
                            "HIGH NR5G  rrc state valid [1]", "HIGH NR5G  rrc state [" + number(code) + "]"));
  }
}

TEST_F(lyn_yrp_nas, when_modulations_are_read_then_unknown_ones_are_255) {
  for (uint32_t code = 0; code <= 7; code++) {
    const std::string modes = "dl_mod = [" + number(code) + ", 0]\nul_mod = [" + number(code) + "]\n";
    nas_connect(OX_LYN_REG_LTE_NR5G_E, "[lte]\n" + modes + "[nr5g]\n" + modes);
    lyn_nas_mcs_info_t mcs;
    EXPECT_EQ(lyn_yrp_nas_get_mcs_info(&mcs), 0);
    const uint32_t lte = code <= 5 ? code + 1 : 255;
    const uint32_t nr5g = code <= 4 ? code + 1 : 255;
    EXPECT_EQ(mcs.lte.dl_len, 2U);
    EXPECT_EQ(mcs.lte.dl_mod[0], lte);
    EXPECT_EQ(mcs.lte.dl_mod[1], 1U);
    EXPECT_EQ(mcs.lte.ul_len, 1U);
    EXPECT_EQ(mcs.lte.ul_mod[0], lte);
    EXPECT_EQ(mcs.nr5g.dl_mod[0], nr5g);
    EXPECT_EQ(mcs.nr5g.ul_mod[0], nr5g);
  }
}

TEST_F(lyn_yrp_nas, when_lte_lists_are_not_valid_then_each_is_reported_and_nr5g_ones_are_not) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E,
              "[[fault]]\non = \"nas.90\"\ntimes = 2\nclear = [\"downlink_mod_valid\", \"uplink_mod_valid\"]\n");
  lyn_nas_mcs_info_t mcs;
  EXPECT_EQ(lyn_yrp_nas_get_mcs_info(&mcs), 0);
  EXPECT_TRUE(nas_all_zero(mcs));
  EXPECT_EQ(diag_log_texts("ERROR").size(), 2U);
}

TEST_F(lyn_yrp_nas, when_spacings_and_bandwidths_are_read_then_both_bounds_hold) {
  for (uint32_t code = 0; code <= 20; code++) {
    nas_connect(OX_LYN_REG_NR5G_E, "[nr5g]\nscs = " + number(code) + "\nrf_bandwidth = [" + number(code) + "]\n");
    lyn_nas_scs_info_t scs;
    EXPECT_EQ(lyn_yrp_nas_get_scs_info(&scs), 0);
    EXPECT_EQ(scs.valid, 1);
    EXPECT_EQ(scs.scs, code <= 4 ? code + 1 : 0);
    lyn_nas_rf_bw_info_t rf_bw;
    EXPECT_EQ(lyn_yrp_nas_get_rf_bw_info(&rf_bw), 0);
    EXPECT_EQ(rf_bw.len, 1U);
    EXPECT_EQ(rf_bw.bw[0], code <= 18 ? code + 1 : 20);
    nas_connect(OX_LYN_REG_LTE_E, "[lte]\nca_dl_bandwidth = " + number(code) + "\n");
    lyn_nas_ca_info_t ca;
    EXPECT_EQ(lyn_yrp_nas_get_cphy_ca_info(&ca), 0);
    EXPECT_EQ(ca.dl_bandwidth, code <= 5 ? code + 1 : 0);
  }
}

TEST_F(lyn_yrp_nas, when_both_radios_have_rf_bandwidths_then_the_nr5g_list_replaces_the_lte_one) {
  nas_connect(OX_LYN_REG_LTE_NR5G_E, "[lte]\nrf_bandwidth = [1, 2, 3]\n[nr5g]\nrf_bandwidth = [7]\n");
  lyn_nas_rf_bw_info_t rf_bw;
  EXPECT_EQ(lyn_yrp_nas_get_rf_bw_info(&rf_bw), 0);
  EXPECT_EQ(rf_bw.len, 1U);
  EXPECT_EQ(rf_bw.bw[0], 8U);
  EXPECT_EQ(rf_bw.bw[1], 0U);
}

TEST_F(lyn_yrp_nas, deliberately_the_dcnr_flag_is_one_whatever_the_modem_says) {
  nas_connect(OX_LYN_REG_LTE_E, "[[fault]]\non = \"nas.77\"\nskip = 1\nclear = [\"restrict_dcnr_valid\"]\n");
  ox_lyn_endc_mode_t endc;
  EXPECT_EQ(lyn_yrp_nas_get_endc_mode(&endc), 0);
  EXPECT_EQ(endc.valid, 1);
  EXPECT_EQ(endc.restrict_dcnr_valid, 1);
}

TEST_F(lyn_yrp_nas, when_locks_are_read_then_spacings_are_translated) {
  for (uint32_t code = 0; code <= 5; code++) {
    const uint32_t scs = code <= 4 ? code + 1 : 0;
    const std::string lte = "[lte]\ncell_lock = [{ pci = 214, freq = 1300 }]\n";
    lyn_nas_cell_lock_list_t locks;
    nas_connect(OX_LYN_REG_LTE_NR5G_E,
                lte + "[nr5g]\ncell_lock = { type = 1, pci = 9, arfcn = 636000, scs = " + number(code) + " }\n");
    EXPECT_EQ(lyn_yrp_nas_get_cell_lock_list(&locks), 0);
    EXPECT_EQ(locks.count, 1U);
    EXPECT_EQ(locks.cells[0].freq, 1300);
    EXPECT_EQ(locks.cell_identity_valid, 1);
    EXPECT_EQ(locks.scs, scs);
    nas_connect(OX_LYN_REG_LTE_NR5G_E,
                "[nr5g]\ncell_lock = { type = 2, list = [{ arfcn = 636001, scs = " + number(code) + " }] }\n");
    EXPECT_EQ(lyn_yrp_nas_get_cell_lock_list(&locks), 0);
    ASSERT_EQ(locks.arfcn_list_len, 1U);
    EXPECT_EQ(locks.arfcn_list[0].arfcn, 636001);
    EXPECT_EQ(locks.arfcn_list[0].scs, static_cast<int32_t>(scs));
  }
}

TEST_F(lyn_yrp_nas, deliberately_the_lock_type_is_not_translated) {
  for (uint32_t type = 0; type <= 3; type++) {
    nas_connect(OX_LYN_REG_NR5G_E, "[nr5g]\ncell_lock = { type = " + number(type) + " }\n");
    lyn_nas_cell_lock_list_t locks;
    EXPECT_EQ(lyn_yrp_nas_get_cell_lock_list(&locks), 0);
    EXPECT_EQ(locks.type_valid, 1);
    EXPECT_EQ(locks.type, type);
  }
}
