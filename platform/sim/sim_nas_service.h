/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The NAS service as the rest of the board sees it. Call with sim_lock held.
 */
#ifndef SIM_NAS_SERVICE_H
#define SIM_NAS_SERVICE_H

#include <functional>
#include <vector>

#include "nas_service_v01.h"
#include "sim_clients.h"
#include "sim_timeline.h"

/** What the NAS service was told and gives back or acts upon. */
struct sim_nas_config {
  std::vector<yrp_nas_lte_lock_cell_t> lte_lock;
  yrp_nas_nr5g_cell_lock_list_resp_t nr5g_lock = {};
  yrp_nas_set_pps_config_req_t pps = {};
  yrp_nas_set_pps_change_status_req_t pps_change = {};
  yrp_nas_set_install_mode_req_t install = {};
  bool installing = false;
  bool deprioritized = false;
  sim_clock::time_point scan_free; /**< when the last scan asked for will have been answered */
};

void sim_nas_reset();
/** One request that arrived whole; what it causes is posted by `then`, after the response. */
void sim_nas_answer(sim_client &client, yrp_client_type handle, uint32_t id, const void *req, void *resp,
                    std::vector<std::function<void()>> &then);
bool sim_nas_answers(uint32_t id);
/** System information as the board reports it, de-prioritisation included. */
sim_sys_info sim_nas_sys_info();
bool sim_lte_on();
bool sim_nr5g_on();
void sim_nas_send_sys_info();
void sim_nas_send_panel(const sim_ev_panel &event);
void sim_nas_send_install_status(uint32_t status);
void sim_nas_send_install_measurement(const std::vector<sim_install_freq> &freqs, bool valid);
void sim_nas_install_tick();

#endif
