/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The linked list without memory.
 */
#include <gtest/gtest.h>

#include <cstdlib>

#include "alloc_fault.h"
#include "lyn_list.h"

namespace {

TEST(lyn_list_fault, init_and_insert_without_memory_give_null_and_leave_the_list) {
  int data = 0;
  lyn_dll_node *head = lyn_dll_init(nullptr);
  alloc_fault_arm(ALLOC_FAULT_THIS_THREAD, 0, 2);
  lyn_dll_node *made = lyn_dll_init(nullptr);
  lyn_dll_node *inserted = lyn_dll_insert(head, nullptr, &data);
  EXPECT_EQ(alloc_fault_seen(), 2u);
  EXPECT_TRUE(alloc_fault_disarm());
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(inserted, nullptr);
  EXPECT_EQ(head->next, nullptr);
  free(head);
}

}  // namespace
