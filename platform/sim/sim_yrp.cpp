/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The YRP client library of the simulated board: service object, notifier, service list, instances, requests and
 * decoding.
 *
 * A request goes to the NAS service on the caller's thread. What it causes (an indication, a change of service) is
 * queued after its response has been journaled, in one stretch under sim_lock, so that the journal tells the same story
 * in every run and no newer measurement overtakes an older one.
 */
#include "yrp_client.h"

#include <cstring>

#include "sim_state.h"

struct yrp_service_object_s {
  uint32_t service_id;
  int32_t major, minor, tool;
};

namespace {

constexpr yrp_service_object_s nas_service = {.service_id = 3, .major = 1, .minor = 388, .tool = 6};

/** A service list that failed though the service is there is announced again after this time. */
constexpr std::chrono::milliseconds announce_again(100);

using member = std::pair<const char *, int64_t>;

std::string members(std::initializer_list<member> list) {
  std::string text;
  if (!sim_journal_on()) {
    return text;
  }
  for (const auto &[name, value] : list) {
    if (!text.empty()) {
      text += ", ";
    }
    text += std::string("\"") + name + "\": " + std::to_string(value);
  }
  return text;
}

/** The frame of every call: journal, crossing, fault, journal. `work` returns the status. */
template <typename body>
yrp_client_error_type crossing(const char *name, const std::string &fields, body work) {
  const sim_fault_hit fault = sim_call_text("yrp", name, fields);
  yrp_client_error_type status = sim_fault_status(fault);
  if (status == YRP_NO_ERR) {
    status = work();
  }
  sim_call_return_text("yrp", name, members({{"status", status}}));
  return status;
}

bool wait_offered(sim_state &board, std::unique_lock<std::mutex> &guard, unsigned int timeout_ms) {
  const auto offered = [&board] { return board.offered; };
  if (timeout_ms == 0) {
    return offered();
  }
  return board.changed.wait_for(guard, std::chrono::milliseconds(timeout_ms), offered);
}

void copy_service_list(yrp_service_info *service_info, unsigned int *num_entries) {
  if (!service_info || !num_entries) {
    return;
  }
  if (*num_entries > 1) {
    *num_entries = 1;
  }
  if (*num_entries == 1) {
    service_info[0] = {nas_service.service_id, 0, {0, 1}};
  }
}

/** One request on its way through the board. */
struct request {
  yrp_client_type handle;
  uint32_t id;
  const void *req;
  unsigned int req_len;
  void *resp;
  unsigned int resp_len;
  const sim_message *asks = nullptr, *answers = nullptr;
};

/** Whether the request is one: 0, or the status that it fails with. */
yrp_client_error_type check(const request &what) {
  if (!what.asks || !what.answers || !sim_nas_answers(what.id)) {
    return YRP_UNKNOWN_MESSAGE_ERR;
  }
  if (!what.req || !what.resp) {
    return YRP_INVALID_PARAM_ERR;
  }
  if (what.req_len != what.asks->size || what.resp_len != what.answers->size) {
    return YRP_BUFFER_ERR;
  }
  std::vector<uint8_t> bytes;
  return sim_message_encode(*what.asks, what.req, bytes) ? YRP_NO_ERR : YRP_INVALID_PARAM_ERR;
}

const char *name_of(const request &what) {
  return what.asks ? what.asks->name : "unknown";
}

void journal_request(const request &what, bool whole) {
  if (!sim_journal_on()) {
    return;
  }
  sim_journal_text("nas", "request", name_of(what), whole ? sim_message_json(*what.asks, what.req) : std::string(),
                   what.id);
}

void journal_response(const request &what, yrp_client_error_type transport) {
  if (!sim_journal_on()) {
    return;
  }
  std::string fields = members({{"transport", transport}});
  if (transport == YRP_NO_ERR) {
    const yrp_response_type_v01 &head = *static_cast<const yrp_response_type_v01 *>(what.resp);
    fields += ", " + members({{"result", head.result}, {"error", head.error}});
    sim_message body = *what.answers;
    body.parts = body.parts.subspan(1);  // without the head
    const std::string rest = sim_message_json(body, what.resp);
    if (!rest.empty()) {
      fields += ", " + rest;
    }
  }
  sim_journal_text("nas", "response", name_of(what), fields, what.id);
}

void put_fault(const request &what, const sim_fault_hit &fault) {
  yrp_response_type_v01 &head = *static_cast<yrp_response_type_v01 *>(what.resp);
  if (fault.has_result) {
    head.result = fault.result;
  }
  if (fault.has_error) {
    head.error = fault.error;
  }
  if (!fault.clear) {
    return;
  }
  for (const std::string &flag : *fault.clear) {
    sim_message_clear(*what.answers, flag, what.resp);
  }
}

/** The request reaches the service, unless the service refuses it by a fault. */
yrp_client_error_type serve(const request &what, const sim_fault_hit &fault) {
  sim_state &board = sim_board();
  std::vector<std::function<void()>> then;
  const std::lock_guard guard(board.lock);
  const std::shared_ptr<sim_client> client = sim_client_find(what.handle, sim_client_kind::nas);
  yrp_client_error_type status = client && board.modem_up ? YRP_NO_ERR : YRP_INTERNAL_ERR;
  if (status == YRP_NO_ERR) {
    memset(what.resp, 0, what.resp_len);
    if (!fault.has_result || fault.result == 0) {
      sim_nas_answer(*client, what.handle, what.id, what.req, what.resp, then);
    }
    put_fault(what, fault);
  }
  if (status == YRP_NO_ERR && fault.late) {
    memset(what.resp, 0, what.resp_len);
    status = YRP_TIMEOUT_ERR;
  }
  journal_response(what, status);
  for (const std::function<void()> &next : then) {
    next();
  }
  return status;
}

bool is_client(yrp_client_type handle, sim_client_kind kind) {
  const std::lock_guard guard(sim_board().lock);
  return sim_client_find(handle, kind) != nullptr;
}

/** The status of a request whose checks passed; every way out has journaled the response. */
yrp_client_error_type exchange(const request &what, unsigned int timeout_ms, const std::string &name) {
  double delay_ms;
  const sim_fault_hit fault = sim_cross_enter(name, delay_ms);
  const bool late = timeout_ms > 0 && delay_ms > timeout_ms;
  sim_wait_ms(late ? timeout_ms : delay_ms);
  const yrp_client_error_type status = late ? YRP_TIMEOUT_ERR : sim_fault_status(fault);
  if (status == YRP_NO_ERR) {
    return serve(what, fault);
  }
  journal_response(what, status);
  return status;
}

yrp_client_error_type decode(yrp_client_type handle, unsigned int msg_type, unsigned int msg_id, const void *buf,
                             unsigned int len, void *out, unsigned int out_len) {
  if (!out || (!buf && len > 0) || msg_type > YRP_MSG_INDICATION) {
    return YRP_INVALID_PARAM_ERR;
  }
  const bool oxmap = is_client(handle, sim_client_kind::oxmap);
  if (!oxmap && !is_client(handle, sim_client_kind::nas)) {
    return YRP_INVALID_PARAM_ERR;
  }
  const sim_message *message =
      sim_message_find(oxmap ? sim_lib::oxmap : sim_lib::nas, static_cast<sim_direction>(msg_type), msg_id);
  if (!message) {
    return YRP_UNKNOWN_MESSAGE_ERR;
  }
  if (out_len != message->size) {
    return YRP_BUFFER_ERR;
  }
  return sim_message_decode(*message, buf, len, out);
}

}  // namespace

yrp_service_object_type nas_get_service_object_internal_v01(int32_t major, int32_t minor, int32_t tool) {
  static constexpr char name[] = "nas_get_service_object_internal_v01";
  const sim_fault_hit fault = sim_call_text("yrp", name, members({{"major", major}, {"minor", minor}, {"tool", tool}}));
  const bool known = major == nas_service.major && minor <= nas_service.minor && tool == nas_service.tool;
  const yrp_service_object_type object = known && sim_fault_status(fault) == 0 ? &nas_service : nullptr;
  sim_call_return_text("yrp", name, object ? "\"available\": true" : "\"available\": false");
  return object;
}

yrp_client_error_type yrp_client_notifier_init(yrp_service_object_type service_object, yrp_client_os_params *os_params,
                                               yrp_client_type *user_handle) {
  return crossing("notifier_init", "", [=] {
    if (service_object != &nas_service || !os_params || !user_handle) {
      return YRP_INVALID_PARAM_ERR;
    }
    auto client = std::make_shared<sim_client>();
    client->kind = sim_client_kind::notifier;
    client->os_params = os_params;
    *user_handle = sim_client_add(std::move(client));
    const std::lock_guard guard(sim_board().lock);
    if (sim_board().offered) {
      os_params->signal = 1;
    }
    return YRP_NO_ERR;
  });
}

yrp_client_error_type yrp_client_get_service_list(yrp_service_object_type service_object,
                                                  yrp_service_info *service_info, unsigned int *num_entries,
                                                  unsigned int *num_services) {
  const sim_fault_hit fault = sim_call_text("yrp", "get_service_list", "");
  yrp_client_error_type status = sim_fault_status(fault);
  if (service_object != &nas_service || !num_services) {
    status = YRP_INVALID_PARAM_ERR;
  }
  {
    const std::lock_guard guard(sim_board().lock);
    if (status == YRP_NO_ERR && !sim_board().offered) {
      status = YRP_SERVICE_ERR;
    } else if (status != YRP_NO_ERR) {
      sim_timeline_at(sim_clock::now() + announce_again, sim_announce);
    }
  }
  if (status == YRP_NO_ERR) {
    *num_services = 1;
    copy_service_list(service_info, num_entries);
  }
  sim_call_return_text("yrp", "get_service_list",
                       members({{"status", status}, {"num_services", status == YRP_NO_ERR ? 1 : 0}}));
  return status;
}

void yrp_cci_os_signal_wait(yrp_client_os_params *os_params, unsigned int timeout_ms) {
  static constexpr char name[] = "yrp_cci_os_signal_wait";
  sim_call_text("yrp", name, members({{"timeout_ms", timeout_ms}}));
  bool signalled = false;
  if (os_params) {
    sim_state &board = sim_board();
    std::unique_lock guard(board.lock);
    const auto given = [os_params] { return os_params->signal != 0; };
    if (timeout_ms == 0) {
      board.changed.wait(guard, given);
    } else {
      board.changed.wait_for(guard, std::chrono::milliseconds(timeout_ms), given);
    }
    signalled = given();
    os_params->signal = 0;
    os_params->timed_out = !signalled;
  }
  sim_call_return_text("yrp", name, members({{"timed_out", !signalled}}));
}

yrp_client_error_type yrp_client_register_notify_cb(yrp_client_type user_handle, yrp_client_notify_cb notify_cb,
                                                    void *cb_data) {
  return crossing("register_notify_cb", "", [=] {
    const std::lock_guard guard(sim_board().lock);
    const std::shared_ptr<sim_client> notifier = sim_client_find(user_handle, sim_client_kind::notifier);
    if (!notifier) {
      return YRP_INVALID_PARAM_ERR;
    }
    notifier->notify_cb = notify_cb;
    notifier->data = cb_data;
    return YRP_NO_ERR;
  });
}

yrp_client_error_type yrp_client_init_instance(yrp_service_object_type service_object, unsigned int instance,
                                               yrp_client_ind_cb ind_cb, void *ind_cb_data,
                                               yrp_client_os_params *os_params, unsigned int timeout_ms,
                                               yrp_client_type *user_handle) {
  const std::string fields = members({{"instance", instance}, {"timeout_ms", timeout_ms}});
  return crossing("init_instance", fields, [=] {
    if (service_object != &nas_service || !os_params || !user_handle) {
      return YRP_INVALID_PARAM_ERR;
    }
    {
      std::unique_lock guard(sim_board().lock);
      if (!wait_offered(sim_board(), guard, timeout_ms)) {
        return YRP_TIMEOUT_ERR;
      }
    }
    *user_handle = sim_client_open(sim_lib::nas, ind_cb, ind_cb_data);
    const std::lock_guard guard(sim_board().lock);
    sim_time0();
    return YRP_NO_ERR;
  });
}

yrp_client_error_type yrp_client_send_msg_sync(yrp_client_type user_handle, unsigned int msg_id, void *req,
                                               unsigned int req_len, void *resp, unsigned int resp_len,
                                               unsigned int timeout_ms) {
  request what = {user_handle, msg_id, req, req_len, resp, resp_len};
  what.asks = sim_message_find(sim_lib::nas, sim_direction::request, msg_id);
  what.answers = sim_message_find(sim_lib::nas, sim_direction::response, msg_id);
  yrp_client_error_type status = check(what);
  if (!is_client(user_handle, sim_client_kind::nas)) {
    status = YRP_INVALID_PARAM_ERR;
  }

  const bool whole = status == YRP_NO_ERR;
  journal_request(what, whole);
  const std::string name = "nas." + std::to_string(msg_id);
  if (whole) {
    status = exchange(what, timeout_ms, name);
  } else {
    journal_response(what, status);
  }
  sim_cross_leave(name);
  return status;
}

yrp_client_error_type yrp_client_message_decode(yrp_client_type user_handle, unsigned int msg_type, unsigned int msg_id,
                                                const void *buf, unsigned int len, void *out, unsigned int out_len) {
  if (out) {
    memset(out, 0, out_len);
  }
  const std::string fields = members({{"msg_type", msg_type}, {"msg_id", msg_id}, {"len", len}});
  return crossing("message_decode", fields,
                  [=] { return decode(user_handle, msg_type, msg_id, buf, len, out, out_len); });
}

yrp_client_error_type yrp_client_release(yrp_client_type user_handle) {
  return crossing("release", "", [=] { return sim_client_close(user_handle) ? YRP_NO_ERR : YRP_INVALID_PARAM_ERR; });
}

void sim_announce() {
  if (sim_board_raw().offered) {
    sim_signal_notifiers();
  }
}

void sim_notify(int32_t service_event) {
  sim_journal_text("yrp", "event", "service_event", members({{"event", service_event}}));
  std::vector<std::pair<std::shared_ptr<sim_client>, std::function<void()>>> calls;
  {
    const std::lock_guard guard(sim_board().lock);
    for (const auto &[handle, client] : sim_clients_of(sim_client_kind::notifier)) {
      if (!client->notify_cb) {
        continue;
      }
      calls.emplace_back(client, [to = handle, notify_cb = client->notify_cb, data = client->data, service_event] {
        notify_cb(to, &nas_service, service_event, data);
      });
    }
  }
  for (const auto &[client, call] : calls) {
    sim_call_back(client, call);
  }
}
