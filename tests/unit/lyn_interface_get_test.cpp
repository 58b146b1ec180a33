/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Get info and get info list: every metric that the NAS client answers, from the modem's message to the record, the
 * checks in their order, what is refused, and lists.
 */
#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "metric_board.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

using texts = std::vector<std::string>;

constexpr uint32_t known_metrics = OX_LYN_GET_IPV6_QOS_TFT_E + 1;
constexpr uint8_t filler = 0x5A; /* what a record and a caller's buffer hold before a call */

/** The caller's buffers, with guards around each. */
struct caller_buffers {
  uint8_t guard0[32];
  ox_lyn_lte_cqi_t lte_cqi;
  uint8_t guard1[32];
  ox_lyn_nr5g_cqi_t nr5g_cqi;
  uint8_t guard2[32];
  ox_lyn_lte_cell_lock_t lte_lock;
  uint8_t guard3[32];
  ox_lyn_nr5g_cell_lock_t nr5g_lock;
  uint8_t guard4[32];

  caller_buffers() { memset(static_cast<void *>(this), filler, sizeof *this); }

  bool guards_intact() const {
    const auto intact = [](const uint8_t(&guard)[32]) {
      return std::all_of(std::begin(guard), std::end(guard), [](uint8_t octet) { return octet == filler; });
    };
    return intact(guard0) && intact(guard1) && intact(guard2) && intact(guard3) && intact(guard4);
  }

  void *of(uint32_t metric) {
    switch (metric) {
      case OX_LYN_GET_LTE_SERV_CQI_E:
        return &lte_cqi;
      case OX_LYN_GET_NR5G_SERV_CQI_E:
        return &nr5g_cqi;
      case OX_LYN_GET_LTE_CELL_LOCK_LIST_E:
        return &lte_lock;
      case OX_LYN_GET_NR5G_CELL_LOCK_LIST_E:
        return &nr5g_lock;
      default:
        return nullptr;
    }
  }
};

ox_lyn_dm_info_t record_for(uint32_t metric, caller_buffers *buffers = nullptr) {
  ox_lyn_dm_info_t info;
  memset(&info, filler, sizeof info);
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  if (buffers != nullptr && buffers->of(metric) != nullptr) {
    info.value.ptr = buffers->of(metric);
  }
  return info;
}

/** Whether a call wrote nothing but, perhaps, the value type. */
bool only_type_written(const ox_lyn_dm_info_t &info, const ox_lyn_dm_info_t &before) {
  ox_lyn_dm_info_t compared = info;
  compared.value_type = before.value_type;
  return memcmp(&compared, &before, sizeof compared) == 0;
}

/* Answers as texts, "type 2: 1301" */

template <typename range>
std::string listed(const range &numbers, size_t count) {
  std::string text = "[";
  for (size_t i = 0; i < count; i++) {
    text += (i == 0 ? "" : ", ") + std::to_string(numbers[i]);
  }
  return text + "]";
}

template <typename block>
std::string cqi_text(const block &cqi) {
  std::string text = cqi.valid == 1 ? "" : "not valid ";
  for (uint32_t i = 0; i < cqi.count; i++) {
    text += listed(cqi.entries[i].cw_cqi, cqi.entries[i].cw_cqi_len);
  }
  return text;
}

std::string lte_lock_text(const ox_lyn_lte_cell_lock_t &lock) {
  std::string text;
  for (uint32_t i = 0; i < lock.count; i++) {
    text += text_of("[", lock.cells[i].pci, " at ", lock.cells[i].freq, "]");
  }
  return text;
}

std::string nr5g_lock_text(const ox_lyn_nr5g_cell_lock_t &lock) {
  std::string text = text_of("lock ", lock.lock_type, ", ", lock.pci, " at ", lock.arfcn, " scs ", lock.scs, ", ");
  for (uint32_t i = 0; i < lock.arfcn_list_len; i++) {
    text += text_of("[", lock.arfcn_list[i].arfcn, " scs ", lock.arfcn_list[i].scs, "]");
  }
  return text;
}

/** A block that the module hands out is taken over here. */
template <typename block>
std::unique_ptr<block, void (*)(void *)> owned(const ox_lyn_dm_info_t &info) {
  return {static_cast<block *>(info.value.ptr), free};
}

std::string mcs_text(const ox_lyn_dm_info_t &info) {
  const auto mcs = owned<ox_lyn_mcs_t>(info);
  return "dl " + listed(mcs->dl_mod, mcs->dl_len) + " ul " + listed(mcs->ul_mod, mcs->ul_len);
}

std::string endc_text(const ox_lyn_dm_info_t &info) {
  const auto endc = owned<ox_lyn_endc_mode_t>(info);
  const int flags[] = {endc->valid, endc->endc_available, endc->restrict_dcnr_valid, endc->restrict_dcnr};
  return listed(flags, 4);
}

std::string value_text(const ox_lyn_dm_info_t &info) {
  switch (info.metric) {
    case OX_LYN_GET_LTE_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_TAC_E:
    case OX_LYN_GET_LTE_RF_BANDWIDTH_E:
    case OX_LYN_GET_NR5G_RF_BANDWIDTH_E:
      return listed(info.value.i64_array, info.count);
    case OX_LYN_GET_LTE_SERV_CQI_E:
      return cqi_text(*static_cast<const ox_lyn_lte_cqi_t *>(info.value.ptr));
    case OX_LYN_GET_NR5G_SERV_CQI_E:
      return cqi_text(*static_cast<const ox_lyn_nr5g_cqi_t *>(info.value.ptr));
    case OX_LYN_GET_LTE_CELL_LOCK_LIST_E:
      return lte_lock_text(*static_cast<const ox_lyn_lte_cell_lock_t *>(info.value.ptr));
    case OX_LYN_GET_NR5G_CELL_LOCK_LIST_E:
      return nr5g_lock_text(*static_cast<const ox_lyn_nr5g_cell_lock_t *>(info.value.ptr));
    case OX_LYN_GET_LTE_MCS_E:
    case OX_LYN_GET_NR5G_MCS_E:
      return mcs_text(info);
    case OX_LYN_GET_LTE_ENDC_MODE_E:
      return endc_text(info);
    default:
      return std::to_string(info.value.i64);
  }
}

/** Whether a call left something in the record that is to be read. */
bool has_value(int32_t status, uint32_t metric) {
  const bool mcs = metric == OX_LYN_GET_LTE_MCS_E || metric == OX_LYN_GET_NR5G_MCS_E;
  return status == OX_LYN_SUCCESS || (mcs && status == OX_LYN_ERR_FAILURE);
}

/* The catalogue */

/** One metric of the NAS client: its answers on the usual board at network status 5, 6 and 7. */
struct metric_row {
  uint32_t metric;
  std::string at_lte, at_both, at_nr5g;
  std::string missing; /* "<missing> information is not available!!" */
};

const std::vector<metric_row> metrics = {
    {1, "type 4: 5", "type 4: 6", "type 4: 7", ""},
    {2, "type 2: 1301", "type 2: 1301", "-17", "LTE serving cell EARFCN"},
    {3, "-17", "type 2: 636001", "type 2: 636001", "5G NR serving cell EARFCN"},
    {4, "type 2: 214", "type 2: 214", "-17", "LTE serving cell PCI"},
    {5, "-17", "type 2: 777", "type 2: 500", "NR 5G serving cell PCI"},
    {6, "type 2: 10607298", "type 2: 10607298", "-17", "LTE serving cell CGI"},
    {7, "-17", "type 2: 68719476736", "type 2: 68719476736", "NR 5G serving cell CGI"},
    {8, "type 6: [114, 242, 16]", "type 6: [114, 242, 16]", "-17", "LTE serving cell PLMN"},
    {9, "-17", "type 6: [115, 243, 32]", "type 6: [115, 243, 32]", "NR 5G serving cell PLMN"},
    {10, "type 2: -95", "type 2: -95", "-17", "LTE serving cell RSRP"},
    {11, "-17", "type 2: -98", "type 2: -98", "NR 5G serving cell RSRP"},
    {12, "type 2: -11", "type 2: -11", "-17", "LTE serving cell RSRQ"},
    {13, "-17", "type 2: -13", "type 2: -13", "NR 5G serving cell RSRQ"},
    {14, "type 2: 130", "type 2: 130", "-17", "LTE serving cell SINR"},
    {15, "-17", "type 2: -15", "type 2: -15", "NR 5G serving cell SINR"},
    {16, "type 7: [12, 11][9]", "type 7: [12, 11][9]", "-17", "LTE serving cell CQI"},
    {17, "-17", "type 7: [14, 13]", "type 7: [14, 13]", "NR 5G serving cell CQI"},
    {18, "type 2: 6699", "type 2: 6699", "-17", "LTE serving cell TAC"},
    {19, "-17", "type 6: [0, 26, 255]", "type 6: [0, 26, 255]", "NR 5G serving cell TAC"},
    {20, "type 2: -120", "type 2: -120", "-17", "LTE serving cell TX power"},
    {21, "-17", "type 2: 150", "type 2: 150", "NR 5G serving cell TX power"},
    {33, "type 8: [214 at 1301][65535 at 0]", "type 8: [214 at 1301][65535 at 0]", "-17", "LTE cell lock list"},
    {34, "-17", "type 8: lock 1, 501 at 636002 scs 3, ", "type 8: lock 1, 501 at 636002 scs 3, ",
     "NR 5G cell lock list"},
    {35, "type 0: dl [3, 4] ul [2]", "type 0: dl [3, 4] ul [2]", "-1 type 0: dl [] ul []", ""},
    {36, "-1 type 0: dl [] ul []", "type 0: dl [5] ul [3, 1]", "type 0: dl [5] ul [3, 1]", ""},
    {37, "type 2: 5", "type 2: 0", "type 2: 0", ""},
    {38, "type 0: [1, 1, 1, 0]", "type 0: [0, 0, 0, 0]", "type 0: [0, 0, 0, 0]", ""},
    {39, "type 0: 4", "type 0: 4", "type 0: 0", ""},
    {40, "type 0: 0", "type 0: 9", "type 0: 9", ""},
    {41, "type 0: 0", "type 0: 2", "type 0: 2", ""},
    {42, "type 0: [4, 5]", "type 0: [11]", "type 0: [11]", ""},
    {43, "type 0: [4, 5]", "type 0: [11]", "type 0: [11]", ""},
};

/** The messages behind the gate's own 77, per radio asked. */
texts messages(uint32_t metric, uint32_t network_status) {
  const bool lte = network_status != OX_LYN_REG_NR5G_E, nr5g = network_status != OX_LYN_REG_LTE_E;
  const auto per_radio = [=](const std::string &of_lte, const std::string &of_nr5g) {
    texts asked = {"77"};
    if (lte && !of_lte.empty()) {
      asked.push_back(of_lte);
    }
    if (nr5g && !of_nr5g.empty()) {
      asked.push_back(of_nr5g);
    }
    return asked;
  };
  switch (metric) {
    case 1:
      return {"77"};
    case 4:
    case 5:
      return lte && nr5g ? texts{"77", "67", "77"} : texts{"77", "67"};
    case 10:
    case 11:
    case 12:
    case 13:
    case 14:
    case 15:
      return {"77", "79"};
    case 16:
    case 17:
      return per_radio("307 {radio_if: 1, radio_if_valid: 1}", "307 {radio_if: 0, radio_if_valid: 1}");
    case 20:
    case 21:
    case 35:
    case 36:
      return per_radio("90 {radio_if: 8}", "90 {radio_if: 12}");
    case 33:
    case 34:
      return per_radio("346", "271");
    case 37:
      return nr5g ? texts{"77"} : texts{"77", "172"};
    case 38:
      return nr5g ? texts{"77"} : texts{"77", "77"};
    case 39:
    case 40:
      return per_radio("210", "210");
    case 41:
      return per_radio("", "77");
    case 42:
    case 43:
      return per_radio("49", "49");
    default:
      return {"77", "67"};
  }
}

/* The module on a board */

struct lyn_interface_get : board_test {
  void SetUp() override { start({}); }

  static void start(const metric_tables &tables) {
    metric_board(OX_LYN_REG_LTE_NR5G_E, tables);
    board.up();
    board_forget();
  }

  /** The module on a board with a receiver that is ready. */
  static void start_with_receiver(const std::string &location) {
    board.stop();
    metric_tables tables;
    tables.location = location;
    start(tables);
  }

  /** One metric: "type 2: 1301", "-17". Fails the test where a record or a guard was written that must not be. */
  std::string get(uint32_t metric) {
    caller_buffers buffers;
    const ox_lyn_dm_info_t before = record_for(metric, &buffers);
    ox_lyn_dm_info_t info = before;
    const int32_t status = ox_lyn_get_info(board.hndl, &info);
    EXPECT_TRUE(buffers.guards_intact()) << metric;
    EXPECT_EQ(info.record_type, before.record_type);
    EXPECT_EQ(info.metric, before.metric);
    const std::string code = status == 0 ? "" : std::to_string(status);
    if (!has_value(status, metric)) {
      EXPECT_EQ(info.value_type, 0U) << metric;
      EXPECT_TRUE(only_type_written(info, before)) << metric;
      return code;
    }
    return code + (code.empty() ? "" : " ") + "type " + std::to_string(info.value_type) + ": " + value_text(info);
  }

  int32_t get_list(std::vector<ox_lyn_dm_info_t> &list) {
    return ox_lyn_get_info_list(board.hndl, list.data(), static_cast<uint32_t>(list.size()));
  }

  /** A list of plain metrics; its records are kept in `infos`. */
  std::vector<ox_lyn_dm_info_t> infos;
  int32_t get_list(std::initializer_list<uint32_t> wanted) {
    infos.clear();
    for (const uint32_t metric : wanted) {
      infos.push_back(record_for(metric));
    }
    return get_list(infos);
  }
};

TEST_F(lyn_interface_get, every_metric_gives_its_value_type_and_value_at_each_status_in_service) {
  for (uint32_t network_status = 5; network_status <= 7; network_status++) {
    metric_board(network_status);
    for (const metric_row &row : metrics) {
      SCOPED_TRACE("metric " + std::to_string(row.metric) + " at " + std::to_string(network_status));
      board_forget();
      const std::string &wanted = network_status == 5 ? row.at_lte : network_status == 6 ? row.at_both : row.at_nr5g;
      EXPECT_EQ(get(row.metric), wanted);
      EXPECT_THAT(metric_asked(), ElementsAreArray(messages(row.metric, network_status)));
      if (wanted == "-17") {
        EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(row.missing + " information is not available!!"));
      }
    }
  }
}

TEST_F(lyn_interface_get, without_service_every_metric_but_the_status_is_refused_even_0_and_those_of_no_radio) {
  for (uint32_t network_status = 1; network_status <= 4; network_status++) {
    metric_board(network_status);
    EXPECT_EQ(get(1), "type 4: " + std::to_string(network_status));
    EXPECT_THAT(diag_log_texts("ERROR"), IsEmpty());
    const std::string text =
        "LTE and NR 5G service status unavailable [" + std::to_string(network_status) + "] - retry";
    for (uint32_t metric = 0; metric <= known_metrics + 1; metric++) {
      if (metric == 1) {
        continue;
      }
      board_forget();
      EXPECT_EQ(get(metric), "-16") << metric;
      EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(text));
      EXPECT_THAT(metric_asked(), ElementsAre("77"));
    }
    EXPECT_EQ(get(UINT32_MAX), "-16");
  }
}

TEST_F(lyn_interface_get, numbers_outside_the_catalogue_are_not_supported) {
  for (const uint32_t metric : {0U, known_metrics, known_metrics + 1, 99U, 0x80000001U, UINT32_MAX}) {
    board_forget();
    EXPECT_EQ(get(metric), "-7") << metric;
    EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Retrieving the diagnostic information for metric[" +
                                                     std::to_string(metric) + "] - not supported!!"));
    EXPECT_THAT(metric_asked(), ElementsAre("77"));
  }
}

TEST_F(lyn_interface_get, every_number_inside_the_catalogue_is_supported) {
  metric_board(6, metric_with("[scan]\nanswer_ms = -1\n[wwan.qos]\nanswer_ms = 3600000\n"));
  for (uint32_t metric = 1; metric < known_metrics; metric++) {
    ox_lyn_dm_info_t info = metric_request(metric);
    EXPECT_NE(ox_lyn_get_info(board.hndl, &info), OX_LYN_ERR_NOT_SUPPORTED) << metric;
    const std::set<uint32_t> with_block = {35, 36, 38, 44, 45, 46, 47};
    if (with_block.contains(metric)) {
      free(info.value.ptr);
    }
  }
}

/* Validity */

/** A flag that the modem leaves clear, and the metrics that then have no value at status 6. */
struct marker {
  int id, skip; /* of the messages behind the gate's own 77 */
  std::string flag;
  std::set<uint32_t> missing;
};

const std::vector<marker> markers = {
    {67, 0, "lte_intra_valid", {2, 4, 6, 8, 18}},
    {67, 0, "nr5g_arfcn_valid", {3}},
    {67, 0, "nr5g_serving_cell_info_valid", {7, 9, 19}}, /* 5 has its value of the system information */
    {77, 1, "nr5g_pci_valid", {5}},
    {79, 0, "lte_sig_info_valid", {10, 12, 14}},
    {79, 0, "nr5g_sig_info_valid", {11, 15}},
    {79, 0, "nr5g_rsrq_valid", {13}},
    {307, 0, "lte_cc_cqi_valid", {16}},
    {307, 1, "nr5g_cc_cqi_valid", {17}},
    {90, 0, "tx_valid", {20}},
    {90, 1, "tx_valid", {21}},
    {346, 0, "lte_cell_list_valid", {33}},
    {271, 0, "type_valid", {34}},
    {271, 0, "cell_identity_valid", {}},
};

TEST_F(lyn_interface_get, each_validity_marker_takes_away_its_own_metrics_and_no_other) {
  for (const marker &row : markers) {
    std::set<uint32_t> missing;
    for (const metric_row &metric : metrics) {
      metric_board(6, metric_with(metric_fault(row.id, row.skip, "clear = [\"" + row.flag + "\"]")));
      if (get(metric.metric) != "-17") {
        continue;
      }
      missing.insert(metric.metric);
      EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(metric.missing + " information is not available!!"));
    }
    EXPECT_EQ(missing, row.missing) << row.flag;
  }
}

TEST_F(lyn_interface_get, metrics_without_a_marker_show_a_missing_value_as_nothing_and_succeed) {
  metric_board(5, metric_with(metric_fault(172, 0, "clear = [\"dl_bandwidth_valid\"]") +
                              metric_fault(210, 0, "clear = [\"lte_rrc_state_valid\"]") +
                              metric_fault(49, 0, "clear = [\"lte_rf_bandwidth_valid\"]") +
                              metric_fault(77, 2, "clear = [\"endc_available_valid\"]")));
  EXPECT_EQ(get(37), "type 2: 0");
  EXPECT_EQ(get(38), "type 0: [0, 0, 0, 0]");
  EXPECT_EQ(get(39), "type 0: 0");
  EXPECT_EQ(get(42), "type 0: []");
  metric_board(7, metric_with(metric_fault(210, 0, "clear = [\"nr5g_rrc_state_valid\"]") +
                              metric_fault(77, 2, "clear = [\"nr5g_scs_valid\"]")));
  EXPECT_EQ(get(40), "type 0: 0");
  EXPECT_EQ(get(41), "type 0: 0");
}

/* Checks and their order */

TEST_F(lyn_interface_get, bad_parameters_are_refused_before_anything_is_asked) {
  ox_lyn_dm_info_t info = record_for(1);
  const auto text = [](uint32_t handle, const void *record) {
    char line[100];
    snprintf(line, sizeof line, "Invalid params - hndl[%p], dm_info[%p]",
             reinterpret_cast<const void *>(static_cast<uintptr_t>(handle)), record);
    return std::string(line);
  };
  board_forget();
  EXPECT_EQ(ox_lyn_get_info(0, &info), -2);
  EXPECT_EQ(ox_lyn_get_info(board.hndl + 1, &info), -2);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, nullptr), -2);
  texts wanted = {text(0, &info), text(board.hndl + 1, &info), text(board.hndl, nullptr)};
  for (const uint32_t type : {0U, 2U, 3U, 257U, UINT32_MAX}) {
    info.record_type = type;
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -2) << type;
    wanted.push_back(text(board.hndl, &info));
  }
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAreArray(wanted));
  EXPECT_THAT(metric_asked(), IsEmpty());
  const uint32_t untouched = record_for(1).value_type;
  EXPECT_EQ(info.value_type, untouched);
}

TEST_F(lyn_interface_get, after_a_teardown_that_failed_half_way_calls_are_refused_as_not_initialised) {
  metric_board(6, metric_with("[[fault]]\non = \"yrp.release\"\n"));
  ASSERT_NE(ox_lyn_deinit(board.hndl), 0);
  board_forget();
  ox_lyn_dm_info_t info = record_for(0);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -12);
  EXPECT_EQ(info.value_type, record_for(0).value_type);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 1), -12);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Device Manager module is not initialized!!", "Device Manager module is not initialized!!"));
  info.record_type = 0;
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -2) << "the parameters come first";
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 0), -2);
  EXPECT_THAT(metric_asked(), IsEmpty());
  board.up();
}

TEST_F(lyn_interface_get, failed_system_information_comes_before_the_gate_and_the_range) {
  for (const uint32_t metric : {0U, 1U, 10U, 44U, 99U}) {
    metric_board(1, metric_with(metric_fault(77, 0, "result = 1\nerror = 46")));
    EXPECT_EQ(get(metric), "-1");
    EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Retrieving system info failed - error[0], response[1/46]"));
  }
}

TEST_F(lyn_interface_get, missing_buffer_is_refused_silently_behind_the_gate_and_before_the_query) {
  for (const uint32_t metric : {16U, 17U, 33U, 34U, 47U, 48U, 49U}) {
    for (const uint32_t network_status : {6U, 1U}) {
      metric_board(network_status);
      ox_lyn_dm_info_t info = record_for(metric);
      info.value.ptr = nullptr;
      EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), network_status == 6 ? -2 : -16) << metric;
      EXPECT_EQ(info.value_type, 0U);
      EXPECT_EQ(diag_log_texts("ERROR").size(), network_status == 6 ? 0U : 1U);
      EXPECT_THAT(metric_asked(), ElementsAre("77"));
    }
  }
}

TEST_F(lyn_interface_get, failed_query_gives_its_status_and_leaves_the_record_but_for_its_value_type) {
  for (const metric_row &row : metrics) {
    for (uint32_t network_status = 5; network_status <= 7; network_status++) {
      const texts asked = messages(row.metric, network_status);
      std::map<int, int> passings;
      for (size_t i = 0; i < asked.size(); i++) {
        SCOPED_TRACE("metric " + std::to_string(row.metric) + ", message " + asked[i]);
        const int id = std::stoi(asked[i]);
        metric_board(network_status, metric_with(metric_fault(id, passings[id]++, "transport = -1")));
        EXPECT_EQ(ox_lyn_get_info(board.hndl, nullptr), -2);
        board_forget();
        caller_buffers buffers;
        const ox_lyn_dm_info_t before = record_for(row.metric, &buffers);
        ox_lyn_dm_info_t info = before;
        EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -1);
        EXPECT_EQ(info.value_type, 0U);
        EXPECT_TRUE(only_type_written(info, before));
        EXPECT_TRUE(buffers.guards_intact());
        EXPECT_EQ(metric_asked().size(), i + 1);
        EXPECT_EQ(diag_log_texts("ERROR").size(), 1U);
      }
    }
  }
}

/* Single metrics */

TEST_F(lyn_interface_get, in_endc_the_nr5g_pci_is_that_of_the_system_information_though_the_cell_has_none) {
  metric_board(6, metric_with(metric_fault(67, 0, "clear = [\"nr5g_serving_cell_info_valid\"]")));
  EXPECT_EQ(get(5), "type 2: 777");
  metric_board(6, metric_with(metric_fault(77, 1, "clear = [\"nr5g_pci_valid\"]")));
  EXPECT_EQ(get(4), "type 2: 214");
  metric_board(7, metric_with(metric_fault(67, 0, "clear = [\"nr5g_serving_cell_info_valid\"]")));
  EXPECT_EQ(get(5), "-17");
}

TEST_F(lyn_interface_get, cqi_buffer_is_cleared_whole_and_filled_up_to_its_last_place) {
  std::string carriers = "[[], [1], [1, 2], [1, 2, 3], [1, 2, 3, 4], [5], [6]]";
  metric_board(6, metric_with_lte("cqi", carriers));
  EXPECT_EQ(get(16), "type 7: [][1][1, 2][1, 2, 3][1, 2, 3, 4][5][6]");
  metric_board(5, metric_with_lte("cqi", "[[15]]"));
  caller_buffers buffers;
  ox_lyn_dm_info_t info = record_for(16, &buffers);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  ox_lyn_lte_cqi_t wanted;
  memset(&wanted, 0, sizeof wanted);
  wanted.valid = 1;
  wanted.count = 1;
  wanted.entries[0].cw_cqi_len = 1;
  wanted.entries[0].cw_cqi[0] = 15;
  EXPECT_EQ(memcmp(&buffers.lte_cqi, &wanted, sizeof wanted), 0);
  metric_board(7,
               metric_with_nr5g("cqi", "[[1], [2], [3], [4], [5], [6], [7], [8], [9], [10], [11], [12, 13, 14, 15]]"));
  EXPECT_EQ(get(17), "type 7: [1][2][3][4][5][6][7][8][9][10][11][12, 13, 14, 15]");
}

TEST_F(lyn_interface_get, lte_lock_list_leaves_the_callers_enforce_flag_and_the_places_behind_it) {
  caller_buffers buffers;
  ox_lyn_dm_info_t info = record_for(33, &buffers);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  EXPECT_EQ(buffers.lte_lock.count, 2);
  EXPECT_EQ(buffers.lte_lock.enforce, filler);
  EXPECT_EQ(buffers.lte_lock.cells[2].pci, filler << 8 | filler);
  std::string sixty = "[";
  std::string wanted = "type 8: ";
  for (int i = 0; i < 60; i++) {
    sixty += text_of("{ pci = ", i, ", freq = 7 },");
    wanted += text_of("[", i, " at 7]");
  }
  metric_board(5, metric_with_lte("cell_lock", sixty + "]"));
  EXPECT_EQ(get(33), wanted);
  metric_board(5, metric_with_lte("cell_lock", "[]"));
  EXPECT_EQ(get(33), "type 8: ");
}

TEST_F(lyn_interface_get, nr5g_lock_shows_the_modems_type_even_for_an_unlock_and_no_masks) {
  metric_board(7, metric_with_nr5g("cell_lock", "{ type = 3, pci = 9, arfcn = 8, scs = 1 }"));
  EXPECT_EQ(get(34), "type 8: lock 3, 0 at 0 scs 0, ");
  metric_board(
      7, metric_with_nr5g("cell_lock", "{ type = 2, list = [{ arfcn = 636000, scs = 1 }, { arfcn = 5, scs = 5 }] }"));
  EXPECT_EQ(get(34), "type 8: lock 2, 0 at 0 scs 0, [636000 scs 2][5 scs 0]");
  caller_buffers buffers;
  ox_lyn_dm_info_t info = record_for(34, &buffers);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  EXPECT_EQ(buffers.nr5g_lock.band_mask[0], 0x5A5A5A5A5A5A5A5AU);
  EXPECT_EQ(buffers.nr5g_lock.band_mask[7], 0x5A5A5A5A5A5A5A5AU);
}

TEST_F(lyn_interface_get, mcs_logs_its_lists_at_error_level_nr5g_only_the_lengths) {
  EXPECT_EQ(get(35), "type 0: dl [3, 4] ul [2]");
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("MCS LTE down mod type 3\\n", "MCS LTE down mod type 4\\n", "MCS LTE up mod type 2\\n",
                          "MCS downlink_mod_len  2\\n", "MCS uplink mod len  1\\n"));
  EXPECT_EQ(get(36), "type 0: dl [5] ul [3, 1]");
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("MCS downlink_mod_len  1\\n", "MCS uplink mod len  2\\n"));
}

TEST_F(lyn_interface_get, mcs_without_an_uplink_fails_and_hands_the_block_over_all_the_same) {
  metric_board(6, metric_with_lte("ul_mod", "[]", metric_with_nr5g("ul_mod", "[]")));
  EXPECT_EQ(get(35), "-1 type 0: dl [3, 4] ul []");
  EXPECT_EQ(get(36), "-1 type 0: dl [5] ul []");
  metric_board(6, metric_with_lte("dl_mod", "[]", metric_with_nr5g("dl_mod", "[]")));
  EXPECT_EQ(get(35), "type 0: dl [] ul [2]");
  EXPECT_EQ(get(36), "type 0: dl [] ul [3, 1]");
}

TEST_F(lyn_interface_get, rrc_states_are_logged_as_they_are_given) {
  EXPECT_EQ(get(39), "type 0: 4");
  EXPECT_EQ(diag_log_lines().back(), "HIGH LYN : LTE RRC state 4");
  EXPECT_EQ(get(40), "type 0: 9");
  EXPECT_EQ(diag_log_lines().back(), "HIGH LYN : NR5G RRC state 9");
}

TEST_F(lyn_interface_get, rf_bandwidths_are_those_of_lte_where_nr5g_has_an_empty_list) {
  metric_board(6, metric_with_nr5g("rf_bandwidth", "[]"));
  EXPECT_EQ(get(42), "type 0: [4, 5]");
  EXPECT_EQ(get(43), "type 0: [4, 5]");
}

TEST_F(lyn_interface_get, deliberately_endc_mode_and_ca_bandwidth_are_zero_wherever_there_is_nr5g) {
  for (const uint32_t network_status : {OX_LYN_REG_LTE_NR5G_E, OX_LYN_REG_NR5G_E}) {
    metric_board(network_status);
    EXPECT_EQ(get(37), "type 2: 0");
    EXPECT_EQ(get(38), "type 0: [0, 0, 0, 0]");
    EXPECT_THAT(metric_asked(), ElementsAre("77", "77")) << "the status alone is asked for";
  }
}

TEST_F(lyn_interface_get, deliberately_both_rf_bandwidth_metrics_give_one_list_that_of_nr5g_where_there_is_one) {
  for (const uint32_t metric : {42U, 43U}) {
    metric_board(6);
    EXPECT_EQ(get(metric), "type 0: [11]");
    metric_board(6, metric_with(metric_fault(49, 1, "clear = [\"nr5g_rf_bandwidth_valid\"]")));
    EXPECT_EQ(get(metric), "type 0: [4, 5]");
  }
}

TEST_F(lyn_interface_get, extremes_keep_their_sign_and_width) {
  metric_tables tables = metric_with_lte("earfcn", "65535", metric_with_lte("cgi", "4294967295"));
  tables = metric_with_lte("rsrp", "-32768", metric_with_lte("rsrq", "-128", tables));
  tables = metric_with_lte("snr", "32767", metric_with_lte("tx_power", "-2147483648", tables));
  tables = metric_with_nr5g("arfcn", "9223372036854775807", metric_with_nr5g("rsrq", "-32768", tables));
  tables = metric_with_lte("rf_bandwidth", "[0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 19]", tables);
  metric_board(6, tables);
  EXPECT_EQ(get(2), "type 2: 65535");
  EXPECT_EQ(get(3), "type 2: 9223372036854775807");
  EXPECT_EQ(get(6), "type 2: 4294967295");
  EXPECT_EQ(get(10), "type 2: -32768");
  EXPECT_EQ(get(12), "type 2: -128");
  EXPECT_EQ(get(13), "type 2: -32768");
  EXPECT_EQ(get(14), "type 2: 32767");
  EXPECT_EQ(get(20), "type 2: -2147483648");
  metric_board(5, tables);
  EXPECT_EQ(get(42), "type 0: [1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 20]");
}

/* Lists */

std::string checking(uint32_t metric) {
  return "SRS checking metric number " + std::to_string(metric) + "\\n";
}

std::string not_supported(uint32_t metric) {
  return "Retrieving the diagnostic information for metric[" + std::to_string(metric) + "] - not supported!!";
}

TEST_F(lyn_interface_get, list_forgets_the_refusal_of_an_unknown_entry_when_the_last_one_succeeds) {
  EXPECT_EQ(get_list({0, 2}), 0);
  EXPECT_EQ(infos[1].value.i64, 1301);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(checking(0), not_supported(0), checking(2)));
  EXPECT_EQ(get_list({2, 0}), -7);
  EXPECT_EQ(infos[0].value.i64, 1301);
  EXPECT_EQ(get_list({99, UINT32_MAX, 1}), 0);
}

TEST_F(lyn_interface_get, list_refuses_52_and_53_though_they_work_alone) {
  EXPECT_EQ(get_list({2, 53}), -7);
  EXPECT_EQ(infos[0].value.i64, 1301);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(checking(2), checking(53), not_supported(53)));
  EXPECT_EQ(get_list({52}), -7);
  EXPECT_EQ(get_list({52, 2}), 0);
  board_forget();
  EXPECT_EQ(get(52), "type 0: 6510615555426900570") << "the value is left as it was";
  EXPECT_THAT(diag_log_texts("ERROR"), IsEmpty());
}

TEST_F(lyn_interface_get, list_ends_at_the_first_entry_that_fails) {
  metric_board(6, metric_with(metric_fault(79, 0, "transport = -3")));
  EXPECT_EQ(get_list({2, 10, 4}), -1);
  EXPECT_EQ(infos[0].value.i64, 1301);
  EXPECT_EQ(infos[1].value_type, 0U);
  const ox_lyn_dm_info_t untouched = record_for(4);
  EXPECT_EQ(memcmp(&infos[2], &untouched, sizeof untouched), 0);
  EXPECT_THAT(metric_asked(), ElementsAre("77", "67", "77", "79"));
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre(checking(2), checking(10), "Retrieving signal info failed - error[-3], response[0/0]"));
  EXPECT_EQ(get_list({2, 10, 4}), 0) << "the lock was given back";
}

TEST_F(lyn_interface_get, list_gives_the_status_of_each_kind_of_failing_entry) {
  metric_board(5);
  EXPECT_EQ(get_list({2, 11, 4}), -17);
  std::vector<ox_lyn_dm_info_t> list = {record_for(2), record_for(10)};
  list[1].record_type = 2;
  EXPECT_EQ(get_list(list), -2);
  metric_board(1);
  EXPECT_EQ(get_list({1, 1, 2, 1}), -16);
  EXPECT_EQ(infos[1].value.i64, 1);
  EXPECT_EQ(infos[3].value_type, record_for(1).value_type);
}

TEST_F(lyn_interface_get, list_without_entries_records_or_a_handle_is_refused) {
  ox_lyn_dm_info_t info = record_for(1);
  const auto text = [](uint32_t handle, const void *list, int count) {
    char line[120];
    snprintf(line, sizeof line, "Invalid params - hndl[%p], dm_info_list[%p], dm_info_list_cnt[%d]",
             reinterpret_cast<const void *>(static_cast<uintptr_t>(handle)), list, count);
    return std::string(line);
  };
  board_forget();
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 0), -2);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, nullptr, 1), -2);
  EXPECT_EQ(ox_lyn_get_info_list(0, &info, 1), -2);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl + 1, &info, 1), -2);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre(text(board.hndl, &info, 0), text(board.hndl, nullptr, 1),
                                                   text(0, &info, 1), text(board.hndl + 1, &info, 1)));
  EXPECT_THAT(metric_asked(), IsEmpty());
}

TEST_F(lyn_interface_get, list_of_99_entries_answers_each_in_order) {
  std::vector<ox_lyn_dm_info_t> list;
  std::vector<std::unique_ptr<caller_buffers>> buffers;
  texts asked;
  for (size_t i = 0; i < 99; i++) {
    buffers.push_back(std::make_unique<caller_buffers>());
    const uint32_t metric = metrics[i % metrics.size()].metric;
    list.push_back(record_for(metric, buffers.back().get()));
    for (const std::string &message : messages(metric, 6)) {
      asked.push_back(message);
    }
  }
  EXPECT_EQ(get_list(list), 0);
  for (size_t i = 0; i < list.size(); i++) {
    EXPECT_EQ("type " + std::to_string(list[i].value_type) + ": " + value_text(list[i]),
              metrics[i % metrics.size()].at_both)
        << i;
    EXPECT_TRUE(buffers[i]->guards_intact());
  }
  EXPECT_THAT(metric_asked(), ElementsAreArray(asked));
}

/* Neighbour metrics in lists: the groups, not the answers */

constexpr char never_answered[] = "[scan]\nanswer_ms = -1\n";

texts scans(const texts &asked) {
  texts found;
  for (const std::string &message : asked) {
    if (message.starts_with("133")) {
      found.push_back(message);
    }
  }
  return found;
}

constexpr char lte_scan[] = "133 {network_type: 4, network_type_valid: 1, scan_type: 5, scan_type_valid: 1}";

TEST_F(lyn_interface_get, unknown_entry_takes_the_neighbour_metrics_before_it_back) {
  metric_board(6, metric_with(never_answered));
  EXPECT_EQ(get_list({22, 0}), -7);
  EXPECT_THAT(scans(metric_asked()), IsEmpty());
  EXPECT_EQ(get_list({0, 22}), 0);
  EXPECT_THAT(scans(metric_asked()), ElementsAre(lte_scan));
}

TEST_F(lyn_interface_get, neighbour_metrics_of_a_list_share_one_scan_and_a_second_list_is_refused) {
  metric_board(6, metric_with(never_answered));
  EXPECT_EQ(get_list({22, 23, 30}), 0);
  EXPECT_THAT(metric_asked(), ElementsAre(lte_scan));
  board_forget();
  EXPECT_EQ(get_list({2, 31}), -5);
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Neighbor cells scan request ongoing nr5g[1]/lte[1] - wait for completion!!"));
  EXPECT_THAT(metric_asked(), IsEmpty()) << "the entries are looked at before any is answered";
  EXPECT_EQ(get(32), "-5");
}

TEST_F(lyn_interface_get, failed_entry_leaves_the_neighbour_metrics_before_it_pending_without_a_scan) {
  metric_board(6, metric_with(std::string(never_answered) + metric_fault(79, 0, "transport = -1")));
  EXPECT_EQ(get_list({23, 10}), -1);
  EXPECT_THAT(scans(metric_asked()), IsEmpty());
  diag_log_lines();
  EXPECT_EQ(get(22), "-5");
  EXPECT_THAT(diag_log_texts("ERROR"),
              ElementsAre("Neighbor cells scan request ongoing nr5g[1]/lte[0] - wait for completion!!"));
}

TEST_F(lyn_interface_get, refused_scan_clears_the_groups_so_that_the_next_one_starts) {
  metric_board(6, metric_with(std::string(never_answered) + metric_fault(133, 0, "result = 1")));
  EXPECT_EQ(get_list({22, 23}), -1);
  EXPECT_EQ(get_list({22}), 0);
  EXPECT_EQ(scans(metric_asked()).size(), 2U);
}

/* What is ongoing */

TEST_F(lyn_interface_get, batching_that_runs_refuses_a_list_with_minus_1_and_a_single_call_with_minus_5) {
  start_with_receiver("capabilities_ms = 0\n");
  ox_lyn_loc_batching_req_t interval = {.min_interval_ms = 3600000};
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &interval);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  board_forget();
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -5);
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 1), -1);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Gps batching request ongoing 1 - wait for completion!!",
                                                   "Gps scan ongoing batching [1] - wait for completion!!"));
}

TEST_F(lyn_interface_get, metrics_that_are_answered_later_leave_all_but_the_value_type_of_their_records) {
  start_with_receiver("capabilities_ms = 0\n");
  ox_lyn_mtpe_req_t test = {};
  ox_lyn_loc_single_shot_req_t shot = {.timeout_ms = 3600000, .horizontal_accuracy = 10};
  ox_lyn_loc_batching_req_t interval = {.min_interval_ms = 3600000};
  const std::map<uint32_t, void *> metrics_and_blocks = {{OX_LYN_GET_LTE_NBR_PCI_E, &test},
                                                         {OX_LYN_GET_MTPE_LTE_INFO_E, &test},
                                                         {OX_LYN_GET_LOC_SINGLE_SHOT_E, &shot},
                                                         {OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &interval},
                                                         {OX_LYN_GET_IPV4_QOS_TFT_E, &test}};
  for (const auto &[metric, block] : metrics_and_blocks) {
    ox_lyn_dm_info_t info = record_for(metric);
    info.value.ptr = block;
    const ox_lyn_dm_info_t before = info;
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), 0) << metric;
    EXPECT_EQ(info.value_type, 0U) << metric;
    EXPECT_TRUE(only_type_written(info, before)) << metric;
  }
}

TEST_F(lyn_interface_get, single_shot_that_runs_refuses_a_list_and_a_single_call_with_minus_5) {
  start_with_receiver("capabilities_ms = 0\nfix_ms = -1\n");
  ox_lyn_loc_single_shot_req_t req = {.timeout_ms = 3600000, .horizontal_accuracy = 10};
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_LOC_SINGLE_SHOT_E, &req);
  ASSERT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  board_forget();
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -5);
  EXPECT_THAT(diag_log_lines(),
              testing::IsSupersetOf({"HIGH ox_lyn_get_info:OX_LYN_GET_LOC_SINGLE_SHOT_E 1",
                                     "ERROR Gps single shot request ongoing 1 - wait for completion!!"}));
  EXPECT_EQ(ox_lyn_get_info_list(board.hndl, &info, 1), -5);
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("Gps scan ongoing single_shot[1] - wait for completion!!"));
}

TEST_F(lyn_interface_get, throughput_test_that_cannot_start_reports_success_and_then_its_failure_as_an_indication) {
  metric_board(6, metric_with("[[fault]]\non = \"oxmap.ConfigureMTPE\"\n"));
  ox_lyn_mtpe_req_t req = {};
  req.test_type = 1;
  req.duration = 1;
  req.ip_family = 4;
  req.protocol = 2;
  ox_lyn_dm_info_t info = metric_request(OX_LYN_GET_MTPE_LTE_INFO_E, &req);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), 0);
  const auto events = board.take(1);
  ASSERT_EQ(events.size(), 1U);
  EXPECT_EQ(events[0].id, OX_LYN_IND_MTPE_STATUS_E);
  EXPECT_EQ(events[0].as<ox_lyn_mtpe_status_t>().test_status, 0U);
  info = metric_request(OX_LYN_GET_MTPE_NR5G_INFO_E, &req);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), 0) << "nothing is ongoing";
  board_forget();
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), -5);
  EXPECT_THAT(diag_log_texts("ERROR"), IsEmpty());
}

TEST_F(lyn_interface_get, deliberately_the_nr5g_arfcn_is_called_earfcn_and_its_text_alone_says_5g_nr) {
  metric_board(5);
  EXPECT_EQ(get(3), "-17");
  EXPECT_THAT(diag_log_texts("ERROR"), ElementsAre("5G NR serving cell EARFCN information is not available!!"));
}

/* Threads */

TEST_F(lyn_interface_get, calls_and_lists_of_several_threads_each_get_their_own_answers) {
  sim_board_journal_keep(false);
  std::atomic<int> wrong{0};
  const auto single = [&](uint32_t metric, int64_t wanted) {
    for (int i = 0; i < 50; i++) {
      ox_lyn_dm_info_t info = record_for(metric);
      wrong += ox_lyn_get_info(board.hndl, &info) != 0 || info.value.i64 != wanted;
    }
  };
  const auto lists = [&] {
    for (int i = 0; i < 20; i++) {
      ox_lyn_dm_info_t list[] = {record_for(2), record_for(11), record_for(20), record_for(0), record_for(5)};
      wrong += ox_lyn_get_info_list(board.hndl, list, 5) != 0 || list[0].value.i64 != 1301 ||
               list[1].value.i64 != -98 || list[2].value.i64 != -120 || list[4].value.i64 != 777;
    }
  };
  std::vector<std::thread> threads;
  threads.emplace_back(single, 10, -95);
  threads.emplace_back(single, 21, 150);
  threads.emplace_back(lists);
  threads.emplace_back(lists);
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(wrong, 0);
}

}  // namespace
