/* The public header in C++20, included first so that it must stand alone, against the same header in C11. */
#include "ox_lyn.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <type_traits>

#include "ox_lyn_header_c.h"

namespace {

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
