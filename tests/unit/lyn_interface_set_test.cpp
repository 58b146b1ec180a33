/* SPDX-License-Identifier: Apache-2.0 */
/* Set info: each control at each network status, from the caller's block to the request on the wire and the log. */
#include "board.h"

using nlohmann::json;
using testing::ElementsAre;

namespace {

using lyn_interface_set = board_test;

const json lte_lock_fields = json::parse(
    R"({"lte_cell_list_len": 2, "lte_cell_list": [{"pci": 214, "freq": 1300}, {"pci": 65535, "freq": 1}],
        "enforce_valid": 1, "enforce": 1})");
const json nr5g_lock_fields = json::parse(
    R"({"type": 0, "cell_identity_valid": 1, "cell_identity": {"pci": 500, "scs": 2, "arfcn": 636000, "blocks": [
        [1, 2, 3, 4, 5, 6, 7, 8, 0, 0, 0, 0, 0, 0, 0, 0], [0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0],
        [0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0], [0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 128]]}})");
const json pps_config_fields = json::parse(
    R"({"position_index": 3, "pps_mode_enabled": 1, "freq_list_valid": 1, "freq_list_len": 2,
        "freq_list": [{"arfcn": 2079167, "band": 261, "scs": 3}, {"arfcn": 2079168, "band": 260, "scs": 0}]})");
const json pps_change_fields = json::parse(R"({"position_index": 7, "position_changed": 1, "pps_mode": 1})");
const json install_fields = json::parse(
    R"({"mode": 0, "freq_list_valid": 1, "freq_list_len": 2,
        "freq_list": [{"arfcn": 2079167, "band": 261, "scs": 3}, {"arfcn": 2079168, "band": 260, "scs": 0}]})");

ox_lyn_lte_cell_lock_t lte_lock() {
  ox_lyn_lte_cell_lock_t lock = {};
  lock.count = 2;
  lock.cells[0] = {.pci = 214, .freq = 1300};
  lock.cells[1] = {.pci = 65535, .freq = 1};
  lock.enforce = 1;
  return lock;
}

ox_lyn_nr5g_cell_lock_t nr5g_lock() {
  ox_lyn_nr5g_cell_lock_t lock = {};
  lock.lock_type = 1;
  lock.pci = 500;
  lock.scs = OX_LYN_SCS_60_KHZ_E;
  lock.arfcn = 636000;
  lock.band_mask[0] = 0x0807060504030201;
  lock.band_mask[7] = 1ULL << 63;
  return lock;
}

ox_lyn_nr5g_cell_lock_t nr5g_list(uint32_t count) {
  ox_lyn_nr5g_cell_lock_t lock = {};
  lock.lock_type = 2;
  lock.arfcn_list_len = count;
  for (int i = 0; i < OX_LYN_NR5G_LOCK_LEN; i++) {
    lock.arfcn_list[i] = {.arfcn = 636000 + i, .scs = 1 + i % 5};
  }
  return lock;
}

constexpr ox_lyn_nr5g_freq_t two_freqs[] = {{.arfcn = 2079167, .band = 261, .scs = OX_LYN_SCS_120_KHZ_E},
                                            {.arfcn = 2079168, .band = 260, .scs = OX_LYN_SCS_15_KHZ_E}};

ox_lyn_pps_config_t pps_config() {
  ox_lyn_pps_config_t config = {};
  config.position_index = 3;
  config.pps_mode_enabled = 1;
  config.freq_count = 2;
  std::copy(std::begin(two_freqs), std::end(two_freqs), config.freqs);
  return config;
}

ox_lyn_pps_change_status_t pps_change() {
  return {.position_changed = 1, .position_index = 7, .reserved = 0, .pps_mode = 2};
}

ox_lyn_install_mode_t install_start() {
  ox_lyn_install_mode_t install = {};
  install.mode = 1;
  install.freq_count = 2;
  std::copy(std::begin(two_freqs), std::end(two_freqs), install.freqs);
  return install;
}

/** What set info and the NAS client's configuration logged since the last look. */
std::vector<std::string> set_log() {
  return diag_log_lines({"lyn_interface_set.cpp", "lyn_yrp_nas_config.cpp"});
}

/** Carries out control 3 to 8 with the values above. */
int32_t set_default(uint32_t control) {
  auto lte = lte_lock();
  auto nr5g = nr5g_lock();
  auto config = pps_config();
  auto change = pps_change();
  auto install = install_start();
  uint8_t one = 1; /* control 5 has no block: its first octet is the value */
  void *const blocks[] = {nullptr, nullptr, nullptr, &lte, &nr5g, nullptr, &config, &change, &install};
  if (control != OX_LYN_SET_NR5G_DEPRIORITIZE_E) {
    return board.set(control, blocks[control]);
  }
  ox_lyn_dm_ctrl_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.control = control;
  info.value.u8 = one;
  return ox_lyn_set_info(board.hndl, &info);
}

/** What a control sends and returns at one network status. */
struct expectation {
  int32_t status;
  board_requests requests;
};

const expectation failure = {OX_LYN_ERR_FAILURE, {}};

/** Controls 3 to 8 at the network statuses 1 to 7. */
expectation expected(uint32_t control, uint32_t network_status) {
  const bool lte_only = network_status == OX_LYN_REG_LTE_E, nr5g_only = network_status == OX_LYN_REG_NR5G_E;
  const bool both = network_status == OX_LYN_REG_LTE_NR5G_E;
  switch (control) {
    case OX_LYN_SET_LTE_CELL_LOCK_LIST_E:
      return {lte_only ? 0 : -1, lte_only || both ? board_requests{{216, lte_lock_fields}} : board_requests{}};
    case OX_LYN_SET_NR5G_CELL_LOCK_LIST_E:
      return nr5g_only ? expectation{0, {{270, nr5g_lock_fields}}} : failure;
    case OX_LYN_SET_NR5G_DEPRIORITIZE_E:
      return both || nr5g_only ? expectation{0, {{295, {{"deprioritize", 1}}}}} : failure;
    case OX_LYN_SET_MMW_PPS_CONFIG_E:
      return {0, {{277, pps_config_fields}}};
    case OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E:
      return {0, {{279, pps_change_fields}}};
    default:
      return {0, {{333, install_fields}}};
  }
}

std::string refuses(int id) {
  return "[[fault]]\non = \"nas." + std::to_string(id) + "\"\ntimes = -1\nresult = 1\nerror = 46\n";
}

}  // namespace

TEST_F(lyn_interface_set, each_control_sends_its_request_at_the_network_statuses_that_allow_it) {
  for (uint32_t status = OX_LYN_REG_NO_SERVICE_E; status <= OX_LYN_REG_NR5G_E; status++) {
    for (uint32_t control = OX_LYN_SET_LTE_CELL_LOCK_LIST_E; control <= OX_LYN_SET_INSTALL_MODE_E; control++) {
      board.start(status);
      const expectation want = expected(control, status);
      EXPECT_EQ(set_default(control), want.status) << "control " << control << " at " << status;
      EXPECT_EQ(board.asked(), want.requests) << "control " << control << " at " << status;
      board.stop();
    }
  }
}

TEST_F(lyn_interface_set, deliberately_the_lte_lock_is_accepted_and_then_fails_where_there_is_nr5g_too) {
  board.start(OX_LYN_REG_LTE_NR5G_E);
  EXPECT_EQ(set_default(OX_LYN_SET_LTE_CELL_LOCK_LIST_E), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(board.asked(), (board_requests{{216, lte_lock_fields}}));
  EXPECT_THAT(
      set_log(),
      ElementsAre("HIGH LTE multi-lock cell list - lte_cell_list_valid[1]",
                  "HIGH LTE multi-lock cell list #0 - pci[214]", "HIGH LTE multi-lock cell list #0 - freq[1300]",
                  "HIGH LTE multi-lock cell list #1 - pci[65535]", "HIGH LTE multi-lock cell list #1 - freq[1]",
                  "HIGH LTE Celllock list enforce is enabled \\n", "HIGH NR 5G multi-lock cell list - type 0 valid 0",
                  "ERROR Invalid NR5g configuration\\n", "ERROR LTE/NR5G Set NAS Cell lock list failed\\n"));
  ox_lyn_lte_cell_lock_t stored = {};
  EXPECT_EQ(board.get(OX_LYN_GET_LTE_CELL_LOCK_LIST_E, &stored), OX_LYN_SUCCESS);
  EXPECT_EQ(stored.count, 2);
}

TEST_F(lyn_interface_set, deliberately_the_nr5g_lock_fails_wherever_there_is_lte) {
  for (const uint32_t status : {OX_LYN_REG_LTE_E, OX_LYN_REG_LTE_NR5G_E}) {
    board.start(status);
    EXPECT_EQ(set_default(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E), OX_LYN_ERR_FAILURE);
    EXPECT_TRUE(board.asked().empty());
    EXPECT_THAT(set_log(),
                ElementsAre("HIGH LTE multi-lock cell list - lte_cell_list_valid[0]",
                            "ERROR Invalid LTE configuration\\n", "ERROR LTE/NR5G Set NAS Cell lock list failed\\n"));
    board.stop();
  }
}

TEST_F(lyn_interface_set, without_a_cell_to_lock_the_failure_alone_is_logged) {
  board.start(OX_LYN_REG_LIMITED_E);
  EXPECT_EQ(set_default(OX_LYN_SET_LTE_CELL_LOCK_LIST_E), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(set_log(), ElementsAre("ERROR LTE/NR5G Set NAS Cell lock list failed\\n"));
}

TEST_F(lyn_interface_set, deliberately_an_lte_unlock_is_refused_before_anything_is_sent) {
  for (const uint32_t status : {OX_LYN_REG_LTE_E, OX_LYN_REG_LTE_NR5G_E}) {
    board.start(status);
    auto lock = lte_lock();
    lock.count = 0;
    EXPECT_EQ(board.set(OX_LYN_SET_LTE_CELL_LOCK_LIST_E, &lock), OX_LYN_ERR_FAILURE);
    EXPECT_TRUE(board.asked().empty());
    board.stop();
  }
}

TEST_F(lyn_interface_set, deliberately_locks_beyond_sixty_cells_are_dropped_silently) {
  board.start(OX_LYN_REG_LTE_E);
  for (const int count : {1, 60, 61, 255}) {
    auto lock = lte_lock();
    lock.count = static_cast<uint8_t>(count);
    for (int i = 0; i < OX_LYN_LTE_LOCK_LEN; i++) {
      lock.cells[i] = {.pci = static_cast<uint16_t>(i), .freq = static_cast<uint16_t>(1000 + i)};
    }
    board.forget();
    EXPECT_EQ(board.set(OX_LYN_SET_LTE_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
    const int sent = std::min(count, 60);
    const json fields = board.asked().at(0).second;
    EXPECT_EQ(fields["lte_cell_list_len"], sent);
    EXPECT_EQ(fields["lte_cell_list"].size(), static_cast<size_t>(sent));
    EXPECT_EQ(fields["lte_cell_list"][static_cast<size_t>(sent) - 1], json({{"pci", sent - 1}, {"freq", 999 + sent}}));
    for (const auto &line : set_log()) {
      EXPECT_EQ(line.rfind("HIGH ", 0), 0U) << line;
    }
    ox_lyn_lte_cell_lock_t stored = {};
    stored.enforce = 77;
    EXPECT_EQ(board.get(OX_LYN_GET_LTE_CELL_LOCK_LIST_E, &stored), OX_LYN_SUCCESS);
    EXPECT_EQ(stored.count, sent);
    EXPECT_EQ(stored.cells[sent - 1].freq, 999 + sent);
    EXPECT_EQ(stored.enforce, 77);
  }
}

TEST_F(lyn_interface_set, an_lte_lock_without_enforcement_carries_no_enforce_value) {
  board.start(OX_LYN_REG_LTE_E);
  auto lock = lte_lock();
  lock.enforce = 0;
  EXPECT_EQ(board.set(OX_LYN_SET_LTE_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
  EXPECT_FALSE(board.asked().at(0).second.contains("enforce"));
  lock.enforce = 255;
  EXPECT_EQ(board.set(OX_LYN_SET_LTE_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
  EXPECT_EQ(board.asked().at(0).second["enforce"], 255);
}

TEST_F(lyn_interface_set, a_locked_nr5g_cell_is_given_back_and_logged) {
  board.start(OX_LYN_REG_NR5G_E);
  EXPECT_EQ(set_default(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E), OX_LYN_SUCCESS);
  EXPECT_THAT(set_log(), ElementsAre("HIGH NR 5G multi-lock cell list - type 1 valid 1",
                                     "HIGH NR 5G multi-lock cell list - "
                                     "type[1],cell_identity_valid [1],pci[500],arfcn[636000],scs[3]"));
  ox_lyn_nr5g_cell_lock_t stored = {};
  EXPECT_EQ(board.get(OX_LYN_GET_NR5G_CELL_LOCK_LIST_E, &stored), OX_LYN_SUCCESS);
  EXPECT_EQ(stored.lock_type, 1U);
  EXPECT_EQ(stored.pci, 500);
  EXPECT_EQ(stored.scs, static_cast<uint32_t>(OX_LYN_SCS_60_KHZ_E));
  EXPECT_EQ(stored.arfcn, 636000U);
  EXPECT_EQ(stored.band_mask[0], 0U);
}

TEST_F(lyn_interface_set, deliberately_arfcn_locks_beyond_thirty_two_are_dropped_silently) {
  board.start(OX_LYN_REG_NR5G_E);
  for (const uint32_t count : {1U, 32U, 33U, 255U, 65535U, 65537U, 0xffffffffU}) {
    auto lock = nr5g_list(count);
    board.forget();
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
    const uint32_t sent = std::min(count, 32U);
    const json fields = board.asked().at(0).second;
    EXPECT_EQ(fields["type"], 1);
    EXPECT_EQ(fields["arfcn_list_valid"], 1);
    EXPECT_EQ(fields["arfcn_list_len"], sent);
    EXPECT_EQ(fields["arfcn_list"].size(), sent);
    EXPECT_EQ(fields["arfcn_list"][sent - 1], json({{"arfcn", 636000 + sent - 1}, {"scs", (sent - 1) % 5}}));
    EXPECT_FALSE(fields.contains("cell_identity_valid"));
    const std::string length = std::to_string(sent);
    EXPECT_THAT(
        set_log(),
        ElementsAre("HIGH NR 5G multi-lock cell list - type 2 valid 0",
                    "HIGH NR 5G multi-lock cell list - arfcn_list_len[" + length + "]",
                    "HIGH NR 5G multi-lock cell list - type[2],arfcn list valid  [1],arfcn list len [" + length + "]"));
    ox_lyn_nr5g_cell_lock_t stored = {};
    EXPECT_EQ(board.get(OX_LYN_GET_NR5G_CELL_LOCK_LIST_E, &stored), OX_LYN_SUCCESS);
    EXPECT_EQ(stored.lock_type, 2U);
    EXPECT_EQ(stored.arfcn_list_len, sent);
    EXPECT_EQ(stored.arfcn_list[sent - 1].arfcn, static_cast<int32_t>(636000 + sent - 1));
    EXPECT_EQ(stored.arfcn_list[sent - 1].scs, static_cast<int32_t>(1 + (sent - 1) % 5));
  }
}

TEST_F(lyn_interface_set, an_nr5g_lock_that_names_nothing_is_sent_only_as_an_unlock) {
  board.start(OX_LYN_REG_NR5G_E);
  auto lock = nr5g_lock();
  lock.pci = 0; /* no cell */
  EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_ERR_FAILURE);
  lock.scs = 99; /* of no cell */
  EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_ERR_FAILURE);
  lock = nr5g_list(0);
  EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_ERR_FAILURE);
  for (const uint32_t type : {0U, 4U, 0xffffffffU}) {
    lock = nr5g_lock();
    lock.lock_type = type;
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_ERR_FAILURE) << type;
  }
  EXPECT_TRUE(board.asked().empty());
  board.forget();
  lock.lock_type = 3; /* whatever else the block holds is left out */
  lock.scs = 99;
  EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &lock), OX_LYN_SUCCESS);
  EXPECT_EQ(board.asked(), (board_requests{{270, {{"type", 2}}}}));
  EXPECT_THAT(set_log(), ElementsAre("HIGH NR 5G multi-lock cell list - type 3 valid 0",
                                     "HIGH NR 5G cell lock list unlocked , All parames are cleared\\n"));
  ox_lyn_nr5g_cell_lock_t stored = {};
  EXPECT_EQ(board.get(OX_LYN_GET_NR5G_CELL_LOCK_LIST_E, &stored), OX_LYN_SUCCESS);
  EXPECT_EQ(stored.lock_type, 3U);
}

TEST_F(lyn_interface_set, an_unknown_spacing_is_refused_in_every_list_and_nothing_is_sent) {
  board.start(OX_LYN_REG_NR5G_E);
  for (const uint32_t scs : {6U, 0xffffffffU}) {
    auto cell = nr5g_lock();
    cell.scs = scs;
    auto list = nr5g_list(32);
    list.arfcn_list[31].scs = static_cast<int32_t>(scs);
    auto config = pps_config();
    config.freqs[1].scs = scs;
    auto install = install_start();
    install.freqs[1].scs = scs;
    board.forget();
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &cell), OX_LYN_ERR_INVALID_PARAM);
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &list), OX_LYN_ERR_INVALID_PARAM);
    EXPECT_EQ(board.set(OX_LYN_SET_MMW_PPS_CONFIG_E, &config), OX_LYN_ERR_INVALID_PARAM);
    EXPECT_EQ(board.set(OX_LYN_SET_INSTALL_MODE_E, &install), OX_LYN_ERR_INVALID_PARAM);
    EXPECT_TRUE(board.asked().empty());
    EXPECT_THAT(
        set_log(),
        ElementsAre("ERROR LTE/NR5G Set NAS Cell lock list failed\\n",
                    "ERROR LTE/NR5G Set NAS Cell lock list failed\\n", "ERROR mmW pps config request is failed\\n",
                    "HIGH  Install request return success\\n", "ERROR Safe install mode config request is failed\\n"));
  }
}

TEST_F(lyn_interface_set, each_known_spacing_is_sent_in_the_modems_numbering) {
  board.start(OX_LYN_REG_NR5G_E);
  const int codes[] = {0, 0, 1, 2, 3, 4};
  for (uint32_t scs = 0; scs <= OX_LYN_SCS_240_KHZ_E; scs++) {
    auto cell = nr5g_lock();
    cell.scs = scs;
    auto list = nr5g_list(1);
    list.arfcn_list[0].scs = static_cast<int32_t>(scs);
    auto config = pps_config();
    config.freqs[1].scs = scs;
    auto install = install_start();
    install.freqs[1].scs = scs;
    board.forget();
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &cell), OX_LYN_SUCCESS);
    EXPECT_EQ(board.set(OX_LYN_SET_NR5G_CELL_LOCK_LIST_E, &list), OX_LYN_SUCCESS);
    EXPECT_EQ(board.set(OX_LYN_SET_MMW_PPS_CONFIG_E, &config), OX_LYN_SUCCESS);
    EXPECT_EQ(board.set(OX_LYN_SET_INSTALL_MODE_E, &install), OX_LYN_SUCCESS);
    const board_requests asked = board.asked();
    ASSERT_EQ(asked.size(), 4U);
    EXPECT_EQ(asked[0].second["cell_identity"]["scs"], codes[scs]);
    EXPECT_EQ(asked[1].second["arfcn_list"][0]["scs"], codes[scs]);
    EXPECT_EQ(asked[2].second["freq_list"][1]["scs"], codes[scs]);
    EXPECT_EQ(asked[3].second["freq_list"][1]["scs"], codes[scs]);
  }
}

TEST_F(lyn_interface_set, pps_and_install_lists_hold_sixteen_and_more_is_refused) {
  board.start(OX_LYN_REG_NR5G_E);
  for (const uint32_t count : {0U, 1U, 16U, 17U, 255U, 65535U, 65537U}) {
    auto config = pps_config();
    auto install = install_start();
    for (uint32_t i = 0; i < OX_LYN_FREQ_LEN; i++) {
      config.freqs[i] = install.freqs[i] = {.arfcn = i, .band = 250 + i, .scs = 1};
    }
    config.freq_count = count;
    install.freq_count = static_cast<uint16_t>(count); /* 65537 is 1 in this block */
    const bool fits = count <= 16, install_fits = install.freq_count <= 16;
    board.forget();
    EXPECT_EQ(board.set(OX_LYN_SET_MMW_PPS_CONFIG_E, &config), fits ? OX_LYN_SUCCESS : OX_LYN_ERR_INVALID_PARAM);
    const board_requests pps_asked = board.asked();
    ASSERT_EQ(pps_asked.size(), fits ? 1U : 0U);
    if (fits) {
      const json fields = pps_asked[0].second;
      EXPECT_EQ(fields.contains("freq_list_valid"), count > 0);
      EXPECT_EQ(fields.value("freq_list_len", 0U), count);
      EXPECT_EQ(fields.value("freq_list", json::array()).size(), count);
      EXPECT_EQ(sim_board_nas_settings().pps_freqs, count);
    }
    EXPECT_EQ(board.set(OX_LYN_SET_INSTALL_MODE_E, &install), install_fits ? OX_LYN_SUCCESS : OX_LYN_ERR_INVALID_PARAM);
    const board_requests install_asked = board.asked();
    ASSERT_EQ(install_asked.size(), install_fits ? 1U : 0U);
    if (install_fits) {
      EXPECT_EQ(install_asked[0].second.value("freq_list", json::array()).size(), install.freq_count);
      EXPECT_EQ(sim_board_nas_settings().install_freqs, install.freq_count);
    }
  }
}

TEST_F(lyn_interface_set, deliberately_the_octets_of_a_panel_change_are_swapped_and_those_of_the_config_are_not) {
  board.start(OX_LYN_REG_NR5G_E);
  EXPECT_EQ(set_default(OX_LYN_SET_MMW_PPS_CONFIG_E), OX_LYN_SUCCESS);
  EXPECT_EQ(set_default(OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E), OX_LYN_SUCCESS);
  EXPECT_THAT(set_log(), ElementsAre("HIGH is pps mode enabled  1\\n"));
  const sim_board_settings kept = sim_board_nas_settings();
  EXPECT_EQ(kept.pps_position_index, 3); /* octet 0 of its block */
  EXPECT_EQ(kept.pps_mode_enabled, 1);   /* octet 1 */
  EXPECT_EQ(kept.pps_freqs, 2U);
  EXPECT_EQ(kept.pps_change_index, 7);   /* octet 1 of its block */
  EXPECT_EQ(kept.pps_change_changed, 1); /* octet 0 */
  EXPECT_EQ(kept.pps_change_mode, 1U);
}

TEST_F(lyn_interface_set, a_pps_mode_of_0_or_above_3_is_refused_and_the_three_modes_are_translated) {
  board.start(OX_LYN_REG_NR5G_E);
  for (const uint32_t mode : {0U, 1U, 2U, 3U, 4U, 0x7fffffffU}) {
    auto change = pps_change();
    change.pps_mode = mode;
    board.forget();
    const bool known = mode >= 1 && mode <= 3;
    EXPECT_EQ(board.set(OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E, &change), known ? OX_LYN_SUCCESS : OX_LYN_ERR_FAILURE);
    const board_requests asked = board.asked();
    ASSERT_EQ(asked.size(), known ? 1U : 0U);
    if (known) {
      EXPECT_EQ(asked[0].second["pps_mode"], mode - 1);
    } else {
      EXPECT_THAT(set_log(), ElementsAre("ERROR PPS mode is " + std::to_string(mode) + " is invalid\\n.",
                                         "ERROR mmW pps change status is failed\\n"));
    }
  }
}

TEST_F(lyn_interface_set, deprioritisation_sends_the_first_octet_of_the_value) {
  for (const int value : {0, 1, 2, 255}) {
    board.start(OX_LYN_REG_LTE_NR5G_E);
    ox_lyn_dm_ctrl_info_t info = {};
    info.control = OX_LYN_SET_NR5G_DEPRIORITIZE_E; /* the record type is not looked at */
    info.value.i64 = 0x1122334455667700 + value;
    EXPECT_EQ(ox_lyn_set_info(board.hndl, &info), OX_LYN_SUCCESS);
    EXPECT_EQ(board.asked(), (board_requests{{295, {{"deprioritize", value}}}}));
    board.stop();
  }
}

TEST_F(lyn_interface_set, deprioritisation_changes_the_service_that_the_board_reports) {
  board.start(OX_LYN_REG_LTE_NR5G_E);
  const auto reported = [] {
    ox_lyn_dm_info_t info = {};
    info.record_type = OX_LYN_RECORD_GET_E;
    info.metric = OX_LYN_GET_REG_STATUS_E;
    EXPECT_EQ(ox_lyn_get_info(board.hndl, &info), OX_LYN_SUCCESS);
    return info.value.u32;
  };
  EXPECT_EQ(reported(), static_cast<uint32_t>(OX_LYN_REG_LTE_NR5G_E));
  EXPECT_EQ(set_default(OX_LYN_SET_NR5G_DEPRIORITIZE_E), OX_LYN_SUCCESS);
  EXPECT_EQ(reported(), static_cast<uint32_t>(OX_LYN_REG_LTE_E));
  board.forget();
  EXPECT_EQ(set_default(OX_LYN_SET_NR5G_DEPRIORITIZE_E), OX_LYN_ERR_FAILURE); /* there is no NR 5G any more */
  EXPECT_TRUE(board.asked().empty());
  EXPECT_THAT(set_log(), ElementsAre("ERROR NR5G Service is not available \\n"));
}

TEST_F(lyn_interface_set, install_mode_is_measured_until_it_is_stopped) {
  board.start(OX_LYN_REG_NR5G_E, "");
  EXPECT_EQ(set_default(OX_LYN_SET_INSTALL_MODE_E), OX_LYN_SUCCESS);
  EXPECT_TRUE(sim_board_nas_settings().installing);
  EXPECT_THAT(set_log(), ElementsAre("HIGH Install mode nr5g_earfcn 2079167\\n", "HIGH Install mode band  261\\n",
                                     "HIGH Install mode scs  4\\n", "HIGH Install mode nr5g_earfcn 2079168\\n",
                                     "HIGH Install mode band  260\\n", "HIGH Install mode scs  1\\n",
                                     "HIGH  Install request return success\\n"));
  ox_lyn_install_mode_t stop = {};
  stop.mode = 2;
  EXPECT_EQ(board.set(OX_LYN_SET_INSTALL_MODE_E, &stop), OX_LYN_SUCCESS);
  EXPECT_FALSE(sim_board_nas_settings().installing);
  EXPECT_EQ(board.asked().back(), (board_request{333, {{"mode", 1}}}));
}

TEST_F(lyn_interface_set, what_the_modem_refuses_fails_with_its_own_and_the_controls_log) {
  struct refusal {
    uint32_t control, network_status;
    int id;
    std::vector<std::string> logged; /* at error level; install mode alone also has a line at high level */
  };
  const refusal refusals[] = {
      {3,
       OX_LYN_REG_LTE_E,
       216,
       {"Retrieving LTE cell lock list failed - error[0], response[1/46]",
        "LTE/NR5G Set NAS Cell lock list failed\\n"}},
      {4,
       OX_LYN_REG_NR5G_E,
       270,
       {"Retrieving NR 5G cell lock list failed - error[0], response[1/46]",
        "LTE/NR5G Set NAS Cell lock list failed\\n"}},
      {5, OX_LYN_REG_NR5G_E, 295, {"Retrieving NR 5G de_prioritization is failed - error[0], response[1/46]"}},
      {6,
       OX_LYN_REG_NR5G_E,
       277,
       {"Retrieving pps config request  failed - error[0], response[1/46]", "mmW pps config request is failed\\n"}},
      {7,
       OX_LYN_REG_NR5G_E,
       279,
       {"Retrieving pps change status request  failed - error[0], response[1/46]",
        "mmW pps change status is failed\\n"}},
      {8,
       OX_LYN_REG_NR5G_E,
       333,
       {"Retrieving set install mode request - error[0], response[1/46]",
        "Safe install mode config request is failed\\n"}},
  };
  for (const refusal &row : refusals) {
    board.start(row.network_status, refuses(row.id));
    EXPECT_EQ(set_default(row.control), OX_LYN_ERR_FAILURE);
    EXPECT_EQ(board.asked().size(), 1U);
    std::vector<std::string> errors;
    size_t install_lines = 0;
    for (const std::string &line : set_log()) {
      if (line.rfind("ERROR ", 0) == 0) {
        errors.push_back(line.substr(6));
      }
      install_lines += line == "HIGH  Install request return success\\n";
    }
    EXPECT_EQ(errors, row.logged);
    EXPECT_EQ(install_lines, row.control == OX_LYN_SET_INSTALL_MODE_E ? 1U : 0U);
    board.stop();
  }
}

TEST_F(lyn_interface_set, a_modem_that_is_down_is_logged_with_the_transport_status) {
  board.start(OX_LYN_REG_NR5G_E, "[[fault]]\non = \"nas.277\"\ntransport = -1\n");
  EXPECT_EQ(set_default(OX_LYN_SET_MMW_PPS_CONFIG_E), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(set_log(), ElementsAre("HIGH is pps mode enabled  1\\n",
                                     "ERROR Retrieving pps config request  failed - error[-1], response[0/0]",
                                     "ERROR mmW pps config request is failed\\n"));
}

TEST_F(lyn_interface_set, a_null_block_is_refused_without_a_word_where_one_is_needed) {
  board.start(OX_LYN_REG_LTE_NR5G_E);
  for (const uint32_t control : {3U, 4U, 6U, 7U, 8U}) {
    EXPECT_EQ(board.set(control, nullptr), OX_LYN_ERR_INVALID_PARAM) << control;
  }
  EXPECT_TRUE(board.asked().empty());
  EXPECT_TRUE(set_log().empty());
}

TEST_F(lyn_interface_set, controls_outside_1_to_8_are_not_supported) {
  board.start(OX_LYN_REG_LTE_E);
  for (const uint32_t control : {0U, 9U, 0xffffffffU}) {
    EXPECT_EQ(board.set(control, &board), OX_LYN_ERR_NOT_SUPPORTED);
    EXPECT_THAT(set_log(), ElementsAre("ERROR Setting diagnostic control information for metric[" +
                                       std::to_string(control) + "] - not supported!!"));
  }
}

TEST_F(lyn_interface_set, stops_without_a_session_are_refused) {
  board.start(OX_LYN_REG_LTE_E);
  EXPECT_EQ(board.set(OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E, nullptr), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E, nullptr), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(set_log(), ElementsAre("ERROR ox_lyn_set_info : No gps single shot request ongoing 0 !",
                                     "ERROR No Gps batching request ongoing 0 "));
}

TEST_F(lyn_interface_set, deliberately_the_single_shot_stop_leaves_the_request_ongoing_until_it_was_answered) {
  board.start(OX_LYN_REG_LTE_E, "[location]\ncapabilities_ms = 0\nfix_ms = -1\n");
  ox_lyn_loc_single_shot_req_t req = {.timeout_ms = 60000, .horizontal_accuracy = 1.0F};
  ASSERT_EQ(board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &req), OX_LYN_SUCCESS);
  {
    const held_delivery held;
    EXPECT_EQ(board.set(OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E, nullptr), OX_LYN_SUCCESS);
    EXPECT_EQ(board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &req), OX_LYN_ERR_BUSY);
    EXPECT_EQ(board.set(OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E, nullptr), OX_LYN_SUCCESS);
  }
  for (const delivered &answer : board.take(2)) {
    EXPECT_EQ(answer.id, static_cast<uint32_t>(OX_LYN_ASYNC_LOC_SINGLE_SHOT_E));
  }
  /* The call waits for the module lock, hence for the end of the delivery. */
  EXPECT_EQ(board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &req), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface_set, a_stopped_batching_can_be_started_again_and_a_failed_stop_leaves_it_running) {
  board.start(OX_LYN_REG_LTE_E, "[location]\ncapabilities_ms = 0\n");
  ox_lyn_loc_batching_req_t req = {.min_interval_ms = 60000};
  for (int round = 0; round < 2; round++) {
    ASSERT_EQ(board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &req), OX_LYN_SUCCESS);
    EXPECT_EQ(board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &req), OX_LYN_ERR_BUSY);
    EXPECT_EQ(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E, nullptr), OX_LYN_SUCCESS);
    EXPECT_EQ(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E, nullptr), OX_LYN_ERR_FAILURE);
  }
}

TEST_F(lyn_interface_set, bad_parameters_are_refused_before_anything_else) {
  ox_lyn_dm_ctrl_info_t info = {};
  EXPECT_EQ(ox_lyn_set_info(0, &info), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(ox_lyn_set_info(1, &info), OX_LYN_ERR_INVALID_PARAM);
  board.start(OX_LYN_REG_LTE_E);
  EXPECT_EQ(ox_lyn_set_info(0, &info), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(ox_lyn_set_info(board.hndl + 1, &info), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(ox_lyn_set_info(board.hndl, nullptr), OX_LYN_ERR_INVALID_PARAM);
  const auto lines = set_log();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0].rfind("ERROR Invalid params - hndl[(nil)], dm_ctrl_info[0x", 0), 0U) << lines[0];
  EXPECT_EQ(lines[2].substr(lines[2].find(", ")), ", dm_ctrl_info[(nil)]");
  const ox_lyn_hndl_t old = board.hndl;
  board.stop();
  EXPECT_EQ(ox_lyn_set_info(old, &info), OX_LYN_ERR_INVALID_PARAM);
}

TEST_F(lyn_interface_set, after_a_teardown_that_failed_half_way_controls_are_refused_as_not_initialised) {
  board.start(OX_LYN_REG_LTE_E, "[[fault]]\non = \"yrp.release\"\n");
  ASSERT_EQ(ox_lyn_deinit(board.hndl), OX_LYN_ERR_FAILURE);
  diag_log_take();
  EXPECT_EQ(board.set(OX_LYN_SET_INVALID_E, nullptr), OX_LYN_ERR_NOT_INITIALIZED); /* before the range */
  EXPECT_THAT(diag_log_lines({"lyn_interface.cpp"}), ElementsAre("ERROR Device Manager module is not initialized!!"));
  board.start(OX_LYN_REG_LTE_E);
}
