/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Handles: clients of the NAS service and of the mobile access point, and notifiers. A handle is a number that is never
 * given twice, so that a stale one is found out rather than followed.
 */
#include "sim_state.h"

namespace {

yrp_client_type new_handle(sim_state &board) {
  return reinterpret_cast<yrp_client_type>(++board.handles * 16);  // looks like the pointer that it passes for
}

}  // namespace

yrp_client_type sim_client_add(std::shared_ptr<sim_client> client) {
  sim_state &board = sim_board();
  const std::lock_guard guard(board.lock);
  const yrp_client_type handle = new_handle(board);
  board.clients.emplace(handle, std::move(client));
  return handle;
}

yrp_client_type sim_client_open(sim_lib lib, sim_client_ind_cb ind_cb, void *data) {
  auto client = std::make_shared<sim_client>();
  client->kind = lib == sim_lib::nas ? sim_client_kind::nas : sim_client_kind::oxmap;
  client->ind_cb = ind_cb;
  client->data = data;
  return sim_client_add(std::move(client));
}

bool sim_client_close(yrp_client_type handle) {
  sim_state &board = sim_board();
  std::unique_lock guard(board.lock);
  const auto found = board.clients.find(handle);
  if (found == board.clients.end() || found->second->closed) {
    return false;
  }
  const std::shared_ptr<sim_client> client = found->second;
  client->closed = true;
  board.changed.wait(
      guard, [&client] { return !client->in_callback || client->callback_thread == std::this_thread::get_id(); });
  board.clients.erase(handle);  // only now: a callback in flight decodes with its handle
  return true;
}

std::shared_ptr<sim_client> sim_client_find(yrp_client_type handle, sim_client_kind kind) {
  const auto &clients = sim_board_raw().clients;
  const auto found = clients.find(handle);
  return found != clients.end() && found->second->kind == kind ? found->second : nullptr;
}

std::vector<std::pair<yrp_client_type, std::shared_ptr<sim_client>>> sim_clients_of(sim_client_kind kind) {
  std::vector<std::pair<yrp_client_type, std::shared_ptr<sim_client>>> found;
  for (const auto &[handle, client] : sim_board_raw().clients) {
    if (client->kind == kind) {
      found.emplace_back(handle, client);
    }
  }
  return found;
}

void sim_call_back(const std::shared_ptr<sim_client> &client, const std::function<void()> &call) {
  sim_state &board = sim_board();
  {
    const std::lock_guard guard(board.lock);
    if (client->closed) {
      return;
    }
    client->in_callback = true;
    client->callback_thread = std::this_thread::get_id();
  }
  const auto ended = [&board, &client] {
    const std::lock_guard guard(board.lock);
    client->in_callback = false;
    board.changed.notify_all();
  };
  try {
    call();
  } catch (...) {
    ended();
    throw;
  }
  ended();
}

void sim_signal_notifiers() {
  for (const auto &[handle, client] : sim_board_raw().clients) {
    if (client->os_params && !client->closed) {
      client->os_params->signal = 1;
    }
  }
  sim_board_raw().changed.notify_all();
}
