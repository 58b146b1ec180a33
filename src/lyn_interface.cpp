/*
 * Life cycle of the Device Manager: brings the diagnostic service, the clients of the board and the command queue up
 * and down, and owns the module's state and its one lock.
 *
 * ox_lyn_deinit joins the command thread while it holds the module lock, so that thread never waits for the lock
 * unconditionally (see lyn_interface_event.cpp). The mobile AP client is brought up but never taken down: deliberate.
 */
#include "lyn_interface.h"

#include <stdio.h>
#include <string.h>

#include <atomic>

#include "lyn_gps.h"
#include "lyn_interface_pool.h"
#include "lyn_oxmap_interface.h"

/** In cache lines of their own: what the threads that post write is not what the command thread writes. */
alignas(64) lyn_state_t lyn_state;
alignas(64) pthread_mutex_t lyn_module_lock = PTHREAD_MUTEX_INITIALIZER;
/** Held for a few instructions, so whoever finds it taken does not sleep at once. */
alignas(64) pthread_mutex_t lyn_gate = PTHREAD_ADAPTIVE_MUTEX_INITIALIZER_NP;

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
  lyn_guard_t gate(&lyn_gate);
  std::atomic_ref<uint8_t>(lyn_state.initialised).store(initialised);
}

/** Posting threads read the flag under the gate, so the wipe holds it too. No event is left: none keeps memory. */
static void lyn_wipe_state() {
  lyn_guard_t gate(&lyn_gate);
  memset(&lyn_state, 0, sizeof(lyn_state));
  lyn_pool_trim();
}

/** rand() is left unseeded: the first handle of a process is the C library's first value. */
static ox_lyn_hndl_t lyn_draw_handle() {
  ox_lyn_hndl_t hndl = 0;
  while (hndl == 0)
    hndl = static_cast<ox_lyn_hndl_t>(rand());  // NOLINT(cert-msc30-c,cert-msc50-cpp,concurrency-mt-unsafe)
  return hndl;
}

/** The sub-initialisations in their order; what a failure leaves up differs from step to step, deliberately. */
static int32_t lyn_init_clients() {
  int32_t status = lyn_yrp_nas_init();
  if (status != OX_LYN_SUCCESS)
    return status;
  status = lyn_oxmap_init();
  if (status != OX_LYN_SUCCESS)
    return status;
  lyn_nas_sys_info_t sys_info;  // asked for only to seed the network status
  status = lyn_yrp_nas_get_sys_info(&sys_info, 1);
  if (status != OX_LYN_SUCCESS) {
    lyn_yrp_nas_release();
    return status;
  }
  status = lyn_gps_init();
  if (status != OX_LYN_SUCCESS)
    return status;
  if (lyn_cmdq_init_under(&lyn_state.cmdq, LYN_CMDQ_MAX, &lyn_gate) != 0) {
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
  lyn_guard_t lock(&lyn_module_lock);
  if (lyn_is_initialised()) {
    LYN_LOG_ERROR("Device Mmanager module already initialized!!");  // misspelt so, deliberately
    return OX_LYN_ERR_ALREADY_INITIALIZED;
  }
  if (!lyn_log_init())  // deliberately no reason to stop
    perror("Diag initialization failed!!");
  if (lyn_state.cmdq.thread != 0)  // left alive by a teardown that failed half way
    lyn_cmdq_deinit(&lyn_state.cmdq);
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
  LYN_LOG_HIGH("Device Manager module successfully initialized!!");
  return OX_LYN_SUCCESS;
}

/** The teardown in its order; stops at the first step that fails. */
static int32_t lyn_deinit_clients() {
  int32_t status = lyn_yrp_nas_release();
  if (status != OX_LYN_SUCCESS)
    return status;
  status = lyn_gps_deinit();
  if (status != OX_LYN_SUCCESS)
    return status;
  if (lyn_cmdq_deinit(&lyn_state.cmdq) != 0) {
    LYN_LOG_ERROR("De-initializing internal command queue for processing async commands failed");
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t ox_lyn_deinit(ox_lyn_hndl_t hndl) {
  lyn_guard_t lock(&lyn_module_lock);
  if (!lyn_is_handle(hndl)) {
    LYN_LOG_ERROR("Invalid params - hndl[%p]", lyn_log_handle(hndl));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  if (!lyn_is_initialised())
    return lyn_not_initialised();
  lyn_set_initialised(false);  // before anything is torn down: a failed teardown counts as down, too
  const int32_t status = lyn_deinit_clients();
  if (status != OX_LYN_SUCCESS)
    return status;
  lyn_wipe_state();  // deliberately the handle, too: from here on any handle is a bad one
  LYN_LOG_HIGH("Device Manager module successfully de-initialized!!");
  lyn_log_deinit();
  return OX_LYN_SUCCESS;
}
