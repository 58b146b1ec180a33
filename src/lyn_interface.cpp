/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Life cycle of the Device Manager: brings the diagnostic service, the clients of the board and the command queue up
 * and down, and owns the module's state and its one lock.
 *
 * ox_lyn_deinit joins the command thread while it holds the module lock, so that thread does not wait for the lock of a
 * module that is down (see lyn_interface_lock.cpp). The mobile AP client is brought up but never taken down:
 * deliberate.
 */
#include "lyn_interface.h"

#include <stdio.h>
#include <string.h>

#include <atomic>

#include "lyn_gps.h"
#include "lyn_oxmap_interface.h"

/** In cache lines of their own: what the threads that post write is not what the command thread writes. */
alignas(64) lyn_state_t lyn_state;
alignas(64) lyn_cmdq_gate_t lyn_gate = LYN_CMDQ_GATE_INITIALIZER;

/** Pending commands beyond which the queue warns. */
static constexpr int32_t LYN_CMDQ_MAX = 100;

bool lyn_is_initialised() {
  return std::atomic_ref<uint8_t>(lyn_state.initialised).load() != 0;
}

int32_t lyn_not_initialised() {
  LYN_LOG_ERROR("Device Manager module is not initialized!!");
  return OX_LYN_ERR_NOT_INITIALIZED;
}

static void lyn_set_initialised(bool initialised) {
  std::atomic_ref<uint8_t>(lyn_state.initialised).store(initialised);
}

static void lyn_wipe_state() {
  memset(&lyn_state, 0, sizeof(lyn_state));
}

/** rand() is left unseeded: the first handle of a process is the C library's first value. */
static ox_lyn_hndl_t lyn_draw_handle() {
  ox_lyn_hndl_t hndl = 0;
  while (hndl == 0) {
    hndl = static_cast<ox_lyn_hndl_t>(rand());  // NOLINT(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
  }
  return hndl;
}

/** The sub-initialisations in their order; what a failure leaves up differs from step to step, deliberately. */
static int32_t lyn_init_clients() {
  int32_t status = lyn_yrp_nas_init();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  status = lyn_oxmap_init();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  lyn_nas_sys_info_t sys_info;  // asked for only to seed the network status
  status = lyn_yrp_nas_get_sys_info(&sys_info, 1);
  if (status != OX_LYN_SUCCESS) {
    lyn_yrp_nas_release();
    return status;
  }
  status = lyn_gps_init();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  if (lyn_cmdq_init_behind(&lyn_state.cmdq, LYN_CMDQ_MAX, &lyn_gate) != 0) {
    lyn_yrp_nas_release();
    LYN_LOG_ERROR("Initializing internal command queue for processing async commands failed");
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t ox_lyn_init(ox_lyn_hndl_t *hndl, uint32_t user_data, ox_lyn_user_cb_fn user_cb_fn) {
  if (hndl == nullptr || user_cb_fn == nullptr) {
    LYN_LOG_ERROR("Invalid params - hndl[%p], user_cb_fn[%p]", static_cast<void *>(hndl),
                  reinterpret_cast<void *>(user_cb_fn));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  lyn_module_guard_t lock;
  if (lyn_is_initialised()) {
    LYN_LOG_ERROR("Device Mmanager module already initialized!!");  // misspelt so, deliberately
    return OX_LYN_ERR_ALREADY_INITIALIZED;
  }
  if (!lyn_log_init()) {  // deliberately no reason to stop
    perror("Diag initialization failed!!");
  }
  if (lyn_state.cmdq.head != nullptr) {  // left by a teardown that failed half way, with or without a thread
    lyn_cmdq_deinit(&lyn_state.cmdq);
  }
  lyn_wipe_state();
  const int32_t status = lyn_init_clients();
  if (status != OX_LYN_SUCCESS) {
    lyn_wipe_state();
    return status;
  }
  lyn_state.user_cb_fn = user_cb_fn;
  lyn_state.user_data = user_data;
  lyn_state.hndl = lyn_draw_handle();
  *hndl = lyn_state.hndl;
  lyn_set_initialised(true);
  lyn_cmdq_open(&lyn_gate, &lyn_state.cmdq);
  LYN_LOG_HIGH("Device Manager module successfully initialized!!");
  return OX_LYN_SUCCESS;
}

/** The teardown in its order; stops at the first step that fails. */
static int32_t lyn_deinit_clients() {
  int32_t status = lyn_yrp_nas_release();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  status = lyn_gps_deinit();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  if (lyn_cmdq_deinit(&lyn_state.cmdq) != 0) {
    LYN_LOG_ERROR("De-initializing internal command queue for processing async commands failed");
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t ox_lyn_deinit(ox_lyn_hndl_t hndl) {
  lyn_module_guard_t lock;
  if (!lyn_is_handle(hndl)) {
    LYN_LOG_ERROR("Invalid params - hndl[%p]", lyn_log_handle(hndl));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised()) {
    return lyn_not_initialised();
  }
  lyn_set_initialised(false);  // before anything is torn down: a failed teardown counts as down, too
  lyn_cmdq_shut(&lyn_gate);
  lyn_lock_send_thread_off();
  const int32_t status = lyn_deinit_clients();
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  lyn_wipe_state();  // deliberately the handle, too: from here on any handle is a bad one
  LYN_LOG_HIGH("Device Manager module successfully de-initialized!!");
  lyn_log_deinit();
  return OX_LYN_SUCCESS;
}
