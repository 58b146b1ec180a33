/* SPDX-License-Identifier: Apache-2.0 */
/* The table of all operations: each one has a board on which it does what the table says. */
#include "operations.h"

#include "board.h"

namespace {

class operations_on_their_board : public testing::TestWithParam<operation> {};

INSTANTIATE_TEST_SUITE_P(all, operations_on_their_board, testing::ValuesIn(operations()), [](const auto &test) {
  std::string name = operation_name(test.param);
  std::ranges::replace(name, ' ', '_');
  return name;
});

TEST_P(operations_on_their_board, operation_gives_its_good_status) {
  const operation one = GetParam();
  ASSERT_EQ(sim_board_load(operation_board(one)), "");
  ox_lyn_hndl_t hndl = 0;
  if (one.kind != operation_kind::init) {
    ASSERT_EQ(operation_call({operation_kind::init}, &hndl), OX_LYN_SUCCESS);
    ASSERT_TRUE(sim_board_wait_idle(5000)); /* the location service is ready */
  }
  for (const operation &before : operation_before(one)) {
    ASSERT_EQ(operation_call(before, &hndl), OX_LYN_SUCCESS);
  }
  const int32_t status = operation_call(one, &hndl);
  EXPECT_EQ(status, operation_good(one));
  EXPECT_TRUE(operation_states(one, status));
  if (one.kind != operation_kind::deinit) {
    EXPECT_EQ(operation_call({operation_kind::deinit}, &hndl), OX_LYN_SUCCESS);
  }
  EXPECT_FALSE(operation_states(one, OX_LYN_ERR_INVALID_PARAM));
  EXPECT_EQ(operation_states_unheld(one, OX_LYN_ERR_INVALID_PARAM), one.kind != operation_kind::init);
}

TEST(operations, are_in_the_table_once_each_and_named_apart) {
  std::vector<std::string> names;
  for (const operation &one : operations()) {
    names.push_back(operation_name(one));
  }
  std::ranges::sort(names);
  EXPECT_EQ(std::ranges::adjacent_find(names), names.end());
  EXPECT_EQ(names.size(), 2U * (OX_LYN_GET_COUNT - 1) + (OX_LYN_SET_COUNT - 1) + 2U * (OX_LYN_IND_COUNT - 1) + 6);
}

}  // namespace
