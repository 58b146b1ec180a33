/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Handles that the board gave to its callers, and what it tells them.
 */
#ifndef SIM_CLIENTS_H
#define SIM_CLIENTS_H

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "sim_measure.h"
#include "sim_message.h"

/** What one NAS client asked for. */
struct sim_registration {
  bool sys_info = false, sig_info = false, panel = false, install_meas = false, install_status = false;
  bool deltas_given = false; /**< message 108 came */
  std::array<std::optional<uint16_t>, SIM_VALUES> delta;
  sim_measured reported; /**< since that 108 */
};

enum class sim_client_kind { nas, oxmap, notifier };

/** What a handle stands for. The board keeps it until no callback runs, whoever releases it. */
struct sim_client {
  sim_client_kind kind = sim_client_kind::nas;
  bool closed = false;
  bool in_callback = false;
  std::thread::id callback_thread;
  yrp_client_ind_cb ind_cb = nullptr;
  yrp_client_notify_cb notify_cb = nullptr;
  void *data = nullptr;
  yrp_client_os_params *os_params = nullptr; /**< of a notifier; its owner's, used until it is closed */
  sim_registration nas;
};

/** Deliver to one client only. */
void sim_indicate_to(yrp_client_type handle, sim_lib lib, uint32_t id, const void *record);

/** All clients of a kind, by handle. With sim_lock. */
std::vector<std::pair<yrp_client_type, std::shared_ptr<sim_client>>> sim_clients_of(sim_client_kind kind);
std::shared_ptr<sim_client> sim_client_find(yrp_client_type handle, sim_client_kind kind);
/** Run `call` as the callback of a client, unless it is closed. Without sim_lock. */
void sim_call_back(const std::shared_ptr<sim_client> &client, const std::function<void()> &call);
/** Give every notifier's owner the signal that it may wait for. With sim_lock. */
void sim_signal_notifiers();

/** The same while the service is offered. With sim_lock. */
void sim_announce();
yrp_client_type sim_client_add(std::shared_ptr<sim_client> client);
/** Service event to all notifiers. Without sim_lock, on the NAS thread. */
void sim_notify(int32_t service_event);

#endif
