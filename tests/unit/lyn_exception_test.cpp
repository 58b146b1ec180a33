/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A board whose C++ libraries throw: no exception passes an operation of the module or one of its callbacks.
 *
 * The program is linked with --wrap for what throws (tests/CMakeLists.txt).
 */
#include <atomic>
#include <new>
#include <string>

#include "mobile_board.h"

namespace {

enum what_throws { NOTHING, THE_MANAGER, TEXTS, REQUESTS };
std::atomic<what_throws> throwing{NOTHING};

void throw_if(what_throws what) {
  if (throwing == what) {
    throw std::bad_alloc();
  }
}

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
bool __real__ZN12OXMAP_Client7IsReadyEv(void *self);
bool __wrap__ZN12OXMAP_Client7IsReadyEv(void *self) {
  throw_if(THE_MANAGER);
  return __real__ZN12OXMAP_Client7IsReadyEv(self);
}

bool __real__ZN12OXMAP_Client19GetWWANPolicyListExEP24oxmap_wwan_policy_list_tPj(void *self, void *list,
                                                                                 unsigned *error);
bool __wrap__ZN12OXMAP_Client19GetWWANPolicyListExEP24oxmap_wwan_policy_list_tPj(void *self, void *list,
                                                                                 unsigned *error) {
  throw_if(REQUESTS);
  return __real__ZN12OXMAP_Client19GetWWANPolicyListExEP24oxmap_wwan_policy_list_tPj(self, list, error);
}

void __real__ZN15location_client17LocationClientApi19stopBatchingSessionEv(void *self);
void __wrap__ZN15location_client17LocationClientApi19stopBatchingSessionEv(void *self) {
  throw_if(REQUESTS);
  __real__ZN15location_client17LocationClientApi19stopBatchingSessionEv(self);
}
// NOLINTEND(bugprone-reserved-identifier)
}

/* A C++ type is returned: the linker's names are told apart from C's. */
std::string real_text(unsigned mask) asm(
    "__real__ZN15location_client17LocationClientApi20capabilitiesToStringB5cxx11Ej");
std::string wrapped_text(unsigned mask) asm(
    "__wrap__ZN15location_client17LocationClientApi20capabilitiesToStringB5cxx11Ej");
std::string wrapped_text(unsigned mask) {
  throw_if(TEXTS);
  return real_text(mask);
}

namespace {

struct lyn_exception : board_test {
  void TearDown() override {
    throwing = NOTHING;
    board_test::TearDown();
  }
};

TEST_F(lyn_exception, a_manager_that_throws_is_none) {
  board_load("");
  throwing = THE_MANAGER;
  EXPECT_NE(ox_lyn_init(&board.hndl, 0, [](ox_lyn_hndl_t, ox_lyn_dm_info_t *, uint32_t) {}), OX_LYN_SUCCESS);
  throwing = NOTHING;
  mobile.start();
}

TEST_F(lyn_exception, a_text_that_cannot_be_made_is_empty) {
  throwing = TEXTS;
  board_load("location.capabilities_ms = 0\n");
  board.up();
  EXPECT_TRUE(mobile.logged("onCapabilitiesCb: mask string= capability flag is 1"));
}

TEST_F(lyn_exception, a_request_that_throws_has_failed_and_the_next_one_does_not) {
  mobile.start("location.fix_ms = 1\n");
  const ox_lyn_loc_batching_req_t batching = {.min_interval_ms = 1000};
  EXPECT_EQ(board.get(OX_LYN_GET_LOC_ROUTINE_BATCHING_E, &batching), OX_LYN_SUCCESS);
  throwing = REQUESTS;
  EXPECT_NE(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E), OX_LYN_SUCCESS);
  EXPECT_NE(board.get(OX_LYN_GET_WWAN_PROFILE_INDEX_E), OX_LYN_SUCCESS);
  throwing = NOTHING;
  EXPECT_EQ(board.set(OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E), OX_LYN_SUCCESS);
  ox_lyn_dm_info_t profiles = metric_request(OX_LYN_GET_WWAN_PROFILE_INDEX_E);
  EXPECT_EQ(ox_lyn_get_info(board.hndl, &profiles), OX_LYN_SUCCESS);
  free(profiles.value.ptr);
}

}  // namespace
