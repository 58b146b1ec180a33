/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The throughput test: from its request to its last status. One test at a time, of one direction or of both in turn.
 *
 * A test is configured by its request; the mobile AP's status indications move it on. All of it runs with the module
 * lock held: the request on the caller's thread, the indications on the command thread.
 */
#include <utility>

#include "lyn_interface_event.h"
#include "lyn_oxmap_interface.h"

/** Deliberate: a test that cannot be configured reports success; its status comes as an indication. */
int32_t lyn_mtpe_begin(const ox_lyn_mtpe_req_t *req) {
  if (lyn_state.mtpe_ongoing != 0) {
    return OX_LYN_ERR_BUSY;
  }
  if (req == nullptr) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  lyn_state.mtpe_req = *req;
  if (lyn_oxmap_configure_mtpe(&lyn_state.mtpe_req) == 0) {
    lyn_state.mtpe_ongoing = 1;
  }
  return OX_LYN_SUCCESS;
}

/** Uplink has run: configure downlink, where client and server have changed their roles. */
static bool lyn_mtpe_second_direction() {
  ox_lyn_mtpe_req_t &req = lyn_state.mtpe_req;
  std::swap(req.src_port, req.dst_port);
  std::swap(req.src_ipv4, req.dst_ipv4);
  std::swap(req.src_ipv6, req.dst_ipv6);
  req.test_type = OX_LYN_MTPE_TYPE_DOWNLINK_E;
  return lyn_oxmap_configure_mtpe(&req) == 0;
}

/** Follow a test: start what is configured, tear down what has completed. A failure of either counts as a failed test.
 */
static void lyn_mtpe_follow(ox_lyn_mtpe_status_t *status) {
  bool done = true;
  if (status->test_status == OX_LYN_MTPE_STATUS_CONFIGURED_E) {
    done = lyn_oxmap_mtpe_start(1) != 0;
  } else if (status->test_status == OX_LYN_MTPE_STATUS_COMPLETED_E) {
    done = lyn_oxmap_mtpe_start(0) != 0;
  }
  if (!done) {
    status->failure_reason = OX_LYN_MTPE_FAILURE_START_OR_TEARDOWN_E;
    status->test_status = OX_LYN_MTPE_STATUS_FAILED_E;
  }
}

/** Whether a test still runs after this status; any status but these two ends it. */
static bool lyn_mtpe_goes_on(const ox_lyn_mtpe_status_t &status) {
  if (status.test_status == OX_LYN_MTPE_STATUS_CONFIGURED_E) {
    return true;
  }
  return status.test_status == OX_LYN_MTPE_STATUS_COMPLETED_E &&
         lyn_state.mtpe_req.test_type == OX_LYN_MTPE_TYPE_BOTH_E && lyn_mtpe_second_direction();
}

void lyn_event_mtpe_status(const void *data) {
  ox_lyn_mtpe_status_t status = *static_cast<const ox_lyn_mtpe_status_t *>(data);
  lyn_mtpe_follow(&status);
  if (!lyn_mtpe_goes_on(status)) {
    lyn_state.mtpe_ongoing = 0;
  }
  lyn_deliver_copy(LYN_LOG_ERROR_HERE, OX_LYN_RECORD_IND_E, OX_LYN_IND_MTPE_STATUS_E, OX_LYN_VALUE_INT64_E, status);
}
