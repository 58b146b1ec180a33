/* SPDX-License-Identifier: Apache-2.0 */
/* The public header in C++20, included first so that it must stand alone, against the same header in C11. */
#include "ox_lyn.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <type_traits>
#include <vector>

#include "ox_lyn_header_c.h"

namespace {

using numbers = std::vector<int>;

TEST(ox_lyn_header, blocks_have_the_same_size_in_c_and_cxx) {
#define SIZE(type) {#type, sizeof(type)},
  const std::map<std::string, size_t> cxx_sizes = {HEADER_BLOCKS(SIZE)};
  size_t count = 0;
  const header_size_t *c_sizes = header_c_sizes(&count);
  EXPECT_EQ(count, cxx_sizes.size());
  for (size_t i = 0; i < count; ++i) {
    const auto found = cxx_sizes.find(c_sizes[i].name);
    ASSERT_NE(found, cxx_sizes.end()) << c_sizes[i].name;
    EXPECT_EQ(c_sizes[i].size, found->second) << c_sizes[i].name;
  }
}

TEST(ox_lyn_header, operations_have_c_linkage_types_that_a_c_caller_can_name) {
  EXPECT_TRUE((std::is_same_v<ox_lyn_hndl_t, uint32_t>));
  EXPECT_TRUE((std::is_same_v<ox_lyn_user_cb_fn, void (*)(uint32_t, ox_lyn_dm_info_t *, uint32_t)>));
  EXPECT_TRUE(std::is_trivial_v<ox_lyn_dm_info_t> && std::is_standard_layout_v<ox_lyn_dm_info_t>);
}

TEST(ox_lyn_header, deliberately_there_is_no_nr5g_neighbour_rsrq_behind_that_of_lte) {
  EXPECT_EQ(OX_LYN_GET_LTE_NBR_RSRQ_E, OX_LYN_GET_NR5G_NBR_RSRP_E + 1);
  EXPECT_EQ(OX_LYN_GET_LTE_CELL_LOCK_LIST_E, OX_LYN_GET_LTE_NBR_RSRQ_E + 1);
}

// Callers and the modem's answers go by the numbers: an enumerator may be added, none may move.
TEST(ox_lyn_header, values_of_the_radio_keep_their_numbers) {
  EXPECT_EQ((numbers{OX_LYN_SCS_INVALID_E, OX_LYN_SCS_UNKNOWN_E, OX_LYN_SCS_15_KHZ_E, OX_LYN_SCS_30_KHZ_E,
                     OX_LYN_SCS_60_KHZ_E, OX_LYN_SCS_120_KHZ_E, OX_LYN_SCS_240_KHZ_E}),
            (numbers{-1, 0, 1, 2, 3, 4, 5}));
  EXPECT_EQ(
      (numbers{OX_LYN_RRC_UNKNOWN_E, OX_LYN_RRC_LTE_1_E, OX_LYN_RRC_LTE_2_E, OX_LYN_RRC_LTE_3_E, OX_LYN_RRC_LTE_4_E,
               OX_LYN_RRC_LTE_5_E, OX_LYN_RRC_NR5G_IDLE_E, OX_LYN_RRC_NR5G_INACTIVE_E, OX_LYN_RRC_NR5G_CONNECTED_E}),
      (numbers{0, 2, 3, 4, 5, 6, 7, 8, 9}));
  EXPECT_EQ((numbers{OX_LYN_LTE_MOD_BPSK_E, OX_LYN_LTE_MOD_QPSK_E, OX_LYN_LTE_MOD_16QAM_E, OX_LYN_LTE_MOD_64QAM_E,
                     OX_LYN_LTE_MOD_256QAM_E, OX_LYN_LTE_MOD_1024QAM_E, OX_LYN_LTE_MOD_UNKNOWN_E}),
            (numbers{1, 2, 3, 4, 5, 6, 255}));
  EXPECT_EQ((numbers{OX_LYN_NR5G_MOD_PI_2_BPSK_E, OX_LYN_NR5G_MOD_QPSK_E, OX_LYN_NR5G_MOD_16QAM_E,
                     OX_LYN_NR5G_MOD_64QAM_E, OX_LYN_NR5G_MOD_256QAM_E, OX_LYN_NR5G_MOD_UNKNOWN_E}),
            (numbers{1, 2, 3, 4, 5, 255}));
  EXPECT_EQ((numbers{OX_LYN_CA_BANDWIDTH_UNKNOWN_E, OX_LYN_CA_BANDWIDTH_1_4_MHZ_E, OX_LYN_CA_BANDWIDTH_3_MHZ_E,
                     OX_LYN_CA_BANDWIDTH_5_MHZ_E, OX_LYN_CA_BANDWIDTH_10_MHZ_E, OX_LYN_CA_BANDWIDTH_15_MHZ_E,
                     OX_LYN_CA_BANDWIDTH_20_MHZ_E}),
            (numbers{0, 1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(
      (numbers{
          OX_LYN_RF_BANDWIDTH_LTE_1_4_MHZ_E,  OX_LYN_RF_BANDWIDTH_LTE_3_MHZ_E,    OX_LYN_RF_BANDWIDTH_LTE_5_MHZ_E,
          OX_LYN_RF_BANDWIDTH_LTE_10_MHZ_E,   OX_LYN_RF_BANDWIDTH_LTE_15_MHZ_E,   OX_LYN_RF_BANDWIDTH_LTE_20_MHZ_E,
          OX_LYN_RF_BANDWIDTH_NR5G_5_MHZ_E,   OX_LYN_RF_BANDWIDTH_NR5G_10_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_15_MHZ_E,
          OX_LYN_RF_BANDWIDTH_NR5G_20_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_25_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_30_MHZ_E,
          OX_LYN_RF_BANDWIDTH_NR5G_40_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_50_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_60_MHZ_E,
          OX_LYN_RF_BANDWIDTH_NR5G_80_MHZ_E,  OX_LYN_RF_BANDWIDTH_NR5G_100_MHZ_E, OX_LYN_RF_BANDWIDTH_NR5G_200_MHZ_E,
          OX_LYN_RF_BANDWIDTH_NR5G_400_MHZ_E, OX_LYN_RF_BANDWIDTH_UNKNOWN_E}),
      (numbers{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST(ox_lyn_header, values_of_controls_and_profiles_keep_their_numbers) {
  EXPECT_EQ((numbers{OX_LYN_LOCK_CELL_E, OX_LYN_LOCK_ARFCN_LIST_E, OX_LYN_LOCK_UNLOCK_E}), (numbers{1, 2, 3}));
  EXPECT_EQ(
      (numbers{OX_LYN_PPS_MODE_INVALID_E, OX_LYN_PPS_MODE_START_E, OX_LYN_PPS_MODE_MEASUREMENT_E, OX_LYN_PPS_MODE_3_E}),
      (numbers{0, 1, 2, 3}));
  EXPECT_EQ((numbers{OX_LYN_INSTALL_MODE_START_E, OX_LYN_INSTALL_MODE_STOP_E}), (numbers{1, 2}));
  EXPECT_EQ((numbers{OX_LYN_SUBSCRIPTION_NONE_E, OX_LYN_SUBSCRIPTION_DEFAULT_E, OX_LYN_SUBSCRIPTION_PRIMARY_E,
                     OX_LYN_SUBSCRIPTION_SECONDARY_E}),
            (numbers{0, 1, 2, 3}));
  EXPECT_EQ((numbers{OX_LYN_TECHNOLOGY_ANY_E, OX_LYN_TECHNOLOGY_3GPP_E, OX_LYN_TECHNOLOGY_3GPP2_E}),
            (numbers{0, 1, 2}));
  EXPECT_EQ((numbers{OX_LYN_IP_FAMILY_V4_E, OX_LYN_IP_FAMILY_V6_E, OX_LYN_IP_FAMILY_V4V6_E}), (numbers{4, 6, 10}));
}

TEST(ox_lyn_header, values_of_throughput_tests_and_locations_keep_their_numbers) {
  EXPECT_EQ((numbers{OX_LYN_MTPE_TYPE_UPLINK_E, OX_LYN_MTPE_TYPE_DOWNLINK_E, OX_LYN_MTPE_TYPE_BOTH_E}),
            (numbers{1, 2, 3}));
  EXPECT_EQ((numbers{OX_LYN_PROTOCOL_NONE_E, OX_LYN_PROTOCOL_TCP_E, OX_LYN_PROTOCOL_UDP_E}), (numbers{0, 1, 2}));
  EXPECT_EQ((numbers{OX_LYN_MTPE_STATUS_ABORTED_E, OX_LYN_MTPE_STATUS_CONFIGURED_E, OX_LYN_MTPE_STATUS_COMPLETED_E,
                     OX_LYN_MTPE_STATUS_FAILED_E}),
            (numbers{0, 1, 2, 3}));
  EXPECT_EQ((numbers{OX_LYN_MTPE_FAILURE_NONE_E, OX_LYN_MTPE_FAILURE_START_OR_TEARDOWN_E}), (numbers{0, 3}));
  EXPECT_EQ((numbers{OX_LYN_LOC_KIND_RESULT_E, OX_LYN_LOC_KIND_STOP_E}), (numbers{0, 1}));
  EXPECT_EQ((numbers{OX_LYN_LOC_RESPONSE_INVALID_E, OX_LYN_LOC_RESPONSE_SUCCESS_E, OX_LYN_LOC_RESPONSE_FAILURE_E,
                     OX_LYN_LOC_RESPONSE_NOT_SUPPORTED_E, OX_LYN_LOC_RESPONSE_PARAM_INVALID_E,
                     OX_LYN_LOC_RESPONSE_TIMEOUT_E}),
            (numbers{-1, 0, 1, 2, 3, 4}));
  EXPECT_EQ((numbers{OX_LYN_LOC_BATCH_INACTIVE_E, OX_LYN_LOC_BATCH_LOCATIONS_E, OX_LYN_LOC_BATCH_DONE_E}),
            (numbers{0, 1, 2}));
  EXPECT_EQ(
      (numbers{OX_LYN_LOC_FLAG_LAT_LONG_E, OX_LYN_LOC_FLAG_ALTITUDE_E, OX_LYN_LOC_FLAG_SPEED_E,
               OX_LYN_LOC_FLAG_BEARING_E, OX_LYN_LOC_FLAG_HORIZONTAL_ACCURACY_E, OX_LYN_LOC_FLAG_VERTICAL_ACCURACY_E,
               OX_LYN_LOC_FLAG_SPEED_ACCURACY_E, OX_LYN_LOC_FLAG_BEARING_ACCURACY_E, OX_LYN_LOC_FLAG_TIMESTAMP_E,
               OX_LYN_LOC_FLAG_EXTRA_TIME_0_E, OX_LYN_LOC_FLAG_EXTRA_TIME_1_E}),
      (numbers{0x1, 0x2, 0x4, 0x8, 0x10, 0x20, 0x40, 0x80, 0x100, 0x200, 0x400}));
}

TEST(ox_lyn_header, version_macros_make_one_comparable_number) {
  EXPECT_EQ(OX_LYN_VERSION, OX_LYN_VERSION_MAJOR * 0x10000 + OX_LYN_VERSION_MINOR * 0x100 + OX_LYN_VERSION_PATCH);
  EXPECT_GT(OX_LYN_VERSION, 0);
}

TEST(ox_lyn_header, first_example_reads_the_serving_cell_of_the_default_board) {
  int64_t rsrp = 0;
  EXPECT_EQ(header_c_example_session(&rsrp), OX_LYN_SUCCESS);
  EXPECT_GE(rsrp, -156);
  EXPECT_LE(rsrp, -31);
}

TEST(ox_lyn_header, other_examples_are_refused_while_the_module_is_down) {
  uint32_t value_type = 99;
  EXPECT_EQ(header_c_example_get_info(1, &value_type), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(header_c_example_set_info(1), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(header_c_example_set_ind_info(1), OX_LYN_ERR_INVALID_PARAM);
}

}  // namespace
