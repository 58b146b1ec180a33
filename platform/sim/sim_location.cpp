/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The location library of the board: requests, their answers and fixes, all delivered on the board's location thread.
 *
 * Where the receiver is and how it answers stands in the radio's state, so that the timeline and a trace move it. A
 * client lives as long as work for it is queued; once it is closed nothing is called, and closing waits for a call in
 * flight.
 */
#include "location_client_api.h"

#include <algorithm>
#include <charconv>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "sim_core.h"

namespace location_client {
namespace {

using fields = nlohmann::ordered_json;

/** One object of the class. Guarded by sim_lock. */
struct client {
  bool closed = false;
  bool inert = false;     /**< its construction met a fault: it never hears of capabilities */
  bool expected = false;  /**< capabilities are on their way */
  bool announced = false; /**< it was told capabilities */
  LocationCapabilitiesMask capabilities = 0;
  CapabilitiesCb capabilities_cb;

  uint64_t shot = 0; /**< number of the single shot in force; a new one replaces it */
  bool shot_runs = false;
  ResponseCb shot_response_cb;

  uint64_t session = 0; /**< number of the batching session in force */
  bool session_runs = false;
  uint32_t interval_ms = 0;
  BatchingCb batching_cb;
  std::vector<Location> batch;

  std::thread::id in_callback; /**< the thread on which a callback of it runs */
};

using client_ptr = std::shared_ptr<client>;

struct library {
  std::vector<client_ptr> clients;
  std::condition_variable callback_ended;
};

library &lib() {
  static library &all = *new library;  // never destroyed: the board's threads outlive main
  return all;
}

sim_location &receiver() {
  return sim_radio_now().location;
}

/** Run one callback of a client, and journal it as an event; without sim_lock. */
template <typename call>
void call_back(const client_ptr &to, const char *event, const fields &journaled, const call &callback) {
  {
    const std::lock_guard guard(sim_lock());
    if (to->closed) {
      return;
    }
    to->in_callback = std::this_thread::get_id();
  }
  sim_journal("location", "event", event, journaled);
  try {
    callback();
  } catch (...) {
    sim_journal("sim", "event", "callback_threw", fields::object());
  }
  const std::lock_guard guard(sim_lock());
  to->in_callback = {};
  lib().callback_ended.notify_all();
}

/** Have `work` run `ms` from now and the receiver's lateness on top. With sim_lock. */
template <typename work>
void later(double ms, work what) {
  sim_schedule(sim_thread::location, ms + receiver().late_ms, std::move(what));
}

fields location_fields(const Location &of) {
  return {{"flags", of.flags},
          {"timestamp", of.timestamp},
          {"latitude", of.latitude},
          {"longitude", of.longitude},
          {"altitude", of.altitude},
          {"speed", of.speed},
          {"bearing", of.bearing},
          {"horizontalAccuracy", of.horizontalAccuracy},
          {"verticalAccuracy", of.verticalAccuracy},
          {"speedAccuracy", of.speedAccuracy},
          {"bearingAccuracy", of.bearingAccuracy},
          {"techMask", of.techMask},
          {"extraTime", of.extraTime}};
}

void respond(const client_ptr &to, const ResponseCb &response_cb, uint32_t response) {
  if (!response_cb) {
    return;
  }
  call_back(to, "response", {{"response", response}}, [&] { response_cb(static_cast<LocationResponse>(response)); });
}

// Capabilities.

LocationCapabilitiesMask capabilities_of(const client &of) {
  return of.announced ? of.capabilities : 0;
}

/** What ran and cannot go on without the capabilities that are left, ends. */
void end_without_capabilities(const client_ptr &to) {
  ResponseCb shot_response;
  BatchingCb batching;
  {
    const std::lock_guard guard(sim_lock());
    if (to->shot_runs && !(to->capabilities & LOCATION_CAPS_SINGLE_SHOT)) {
      to->shot_runs = false;
      shot_response = to->shot_response_cb;
    }
    if (to->session_runs && !(to->capabilities & LOCATION_CAPS_TIME_BASED_BATCHING)) {
      to->session_runs = false;
      batching = to->batching_cb;
    }
  }
  respond(to, shot_response, LOCATION_RESPONSE_FAILURE);
  if (!batching) {
    return;
  }
  call_back(to, "batch", {{"status", BATCHING_STATUS_INACTIVE}, {"locations", fields::array()}},
            [&] { batching({}, BATCHING_STATUS_INACTIVE); });
}

void announce_capabilities(const client_ptr &to) {
  LocationCapabilitiesMask mask;
  CapabilitiesCb capabilities_cb;
  {
    const std::lock_guard guard(sim_lock());
    mask = receiver().capabilities;
    if (to->closed || (to->announced && to->capabilities == mask)) {
      return;
    }
    to->announced = true;
    to->capabilities = mask;
    capabilities_cb = to->capabilities_cb;
  }
  if (capabilities_cb) {
    call_back(to, "capabilities", {{"mask", mask}}, [&] { capabilities_cb(mask); });
  }
  end_without_capabilities(to);
}

/** The first announcement, unless the receiver never has capabilities. With sim_lock. */
void expect_capabilities(const client_ptr &to) {
  if (to->inert || to->expected || receiver().capabilities_ms < 0) {
    return;
  }
  to->expected = true;
  later(receiver().capabilities_ms, [to] { announce_capabilities(to); });
}

// Single shots.

bool accepted(uint32_t response) {
  return response == LOCATION_RESPONSE_SUCCESS || response == LOCATION_RESPONSE_TIMEOUT;
}

/** The fix of a single shot is there. */
void deliver_fix(const client_ptr &to, uint64_t shot, const LocationCb &location_cb) {
  uint32_t times;
  Location fix;
  {
    const std::lock_guard guard(sim_lock());
    if (to->shot != shot || !to->shot_runs) {
      return;
    }
    to->shot_runs = false;
    times = receiver().repeat_fix;
    fix = receiver().fix;
  }
  for (uint32_t time = 0; time < times; ++time) {
    call_back(to, "location", location_fields(fix), [&] { location_cb(fix); });
  }
}

void give_up_fix(const client_ptr &to, uint64_t shot) {
  ResponseCb response_cb;
  {
    const std::lock_guard guard(sim_lock());
    if (to->shot != shot || !to->shot_runs) {
      return;
    }
    to->shot_runs = false;
    response_cb = to->shot_response_cb;
  }
  respond(to, response_cb, LOCATION_RESPONSE_TIMEOUT);
}

/** Schedule what follows the response. With sim_lock. */
void await_fix(const client_ptr &to, uint32_t timeout_ms, LocationCb location_cb) {
  const double fix_ms = receiver().fix_ms;
  const uint64_t shot = to->shot;
  to->shot_runs = true;
  if (fix_ms >= 0 && fix_ms <= timeout_ms) {
    later(fix_ms, [to, shot, location_cb = std::move(location_cb)] { deliver_fix(to, shot, location_cb); });
  } else {
    later(timeout_ms, [to, shot] { give_up_fix(to, shot); });
  }
}

bool refused(const sim_fault_hit &fault) {
  return fault.fails || sim_fault_status(fault) != 0 || (fault.has_result && fault.result != 0);
}

/** The answer to a request that needs `capability`, the fault that it met included. With sim_lock. */
uint32_t answer_to(const client &from, LocationCapabilitiesMask capability, const sim_fault_hit &fault) {
  if (fault.has_error) {
    return fault.error;
  }
  if (refused(fault)) {
    return LOCATION_RESPONSE_FAILURE;
  }
  if (!(capabilities_of(from) & capability)) {
    return LOCATION_RESPONSE_NOT_SUPPORTED;
  }
  return receiver().response;
}

void start_single_shot(const client_ptr &to, const sim_fault_hit &fault, uint32_t timeout_ms, LocationCb location_cb,
                       ResponseCb response_cb) {
  const std::lock_guard guard(sim_lock());
  const uint32_t response = answer_to(*to, LOCATION_CAPS_SINGLE_SHOT, fault);
  ++to->shot;
  to->shot_runs = false;
  to->shot_response_cb = response_cb;
  later(0, [to, response_cb = std::move(response_cb), response] { respond(to, response_cb, response); });
  if (!location_cb) {
    return;  // a stop: it has taken the place of what ran
  }
  if (accepted(response) || receiver().fix_when_refused) {
    await_fix(to, timeout_ms, std::move(location_cb));
  }
}

// Batching.

/** Time stamps of one batching session advance by its interval, unless the trace gives them. With sim_lock. */
Location batch_location(const client &of, uint64_t count) {
  Location location = receiver().fix;
  if (!sim_trace_now()) {
    location.timestamp += count * of.interval_ms;
  }
  return location;
}

void deliver_batch(const client_ptr &to, const BatchingCb &batching_cb, const std::vector<Location> &locations,
                   int32_t status) {
  fields journaled = {{"status", status}, {"locations", fields::array()}};
  if (sim_journal_on()) {
    for (const Location &location : locations) {
      journaled["locations"].push_back(location_fields(location));
    }
  }
  call_back(to, "batch", journaled, [&] { batching_cb(locations, static_cast<BatchingStatus>(status)); });
}

/** One interval has passed. */
void batching_tick(const client_ptr &to, uint64_t session, uint64_t count) {
  std::vector<Location> full;
  BatchingCb batching_cb;
  int32_t status;
  {
    const std::lock_guard guard(sim_lock());
    if (to->closed || to->session != session || !to->session_runs) {
      return;
    }
    const uint32_t size = receiver().batch;
    if (size > 0) {
      to->batch.push_back(batch_location(*to, count));
    }
    status = receiver().batch_status;
    if (to->batch.size() >= size) {
      full.swap(to->batch);
      batching_cb = to->batching_cb;
    }
    sim_schedule(sim_thread::location, to->interval_ms,
                 [to, session, count] { batching_tick(to, session, count + 1); });
  }
  if (batching_cb) {
    deliver_batch(to, batching_cb, full, status);
  }
}

void start_batching(const client_ptr &to, const sim_fault_hit &fault, uint32_t interval_ms, BatchingCb batching_cb,
                    ResponseCb response_cb) {
  const std::lock_guard guard(sim_lock());
  const uint32_t response = answer_to(*to, LOCATION_CAPS_TIME_BASED_BATCHING, fault);
  ++to->session;
  to->session_runs = accepted(response) && batching_cb;
  to->interval_ms = std::max<uint32_t>(interval_ms, 1);
  to->batching_cb = std::move(batching_cb);
  to->batch.clear();
  later(0, [to, response_cb = std::move(response_cb), response] { respond(to, response_cb, response); });
  if (!to->session_runs) {
    return;
  }
  later(to->interval_ms, [to, session = to->session] { batching_tick(to, session, 1); });
}

// Texts, the same under every locale.

template <typename number>
void append_number(std::string &text, const char *name, number value) {
  char digits[64];
  const std::to_chars_result end = std::to_chars(digits, digits + sizeof(digits), value);
  if (!text.empty()) {
    text += ' ';
  }
  text.append(name).append("=").append(digits, end.ptr);
}

struct capability_name {
  LocationCapabilitiesMask bit;
  const char *name;
};

constexpr capability_name capability_names[] = {{LOCATION_CAPS_SINGLE_SHOT, "SINGLE_SHOT"},
                                                {LOCATION_CAPS_TIME_BASED_BATCHING, "TIME_BASED_BATCHING"},
                                                {LOCATION_CAPS_DISTANCE_BASED_BATCHING, "DISTANCE_BASED_BATCHING"}};

std::string capabilities_text(LocationCapabilitiesMask mask) {
  std::string text;
  for (const capability_name &row : capability_names) {
    if (mask & row.bit) {
      text.append(text.empty() ? "" : " ").append(row.name);
    }
  }
  return text.empty() ? "NONE" : text;
}

std::string location_text(const Location &of) {
  std::string text;
  append_number(text, "flags", of.flags);
  append_number(text, "timestamp", of.timestamp);
  append_number(text, "latitude", of.latitude);
  append_number(text, "longitude", of.longitude);
  append_number(text, "altitude", of.altitude);
  append_number(text, "speed", of.speed);
  append_number(text, "bearing", of.bearing);
  append_number(text, "horizontalAccuracy", of.horizontalAccuracy);
  append_number(text, "verticalAccuracy", of.verticalAccuracy);
  append_number(text, "speedAccuracy", of.speedAccuracy);
  append_number(text, "bearingAccuracy", of.bearingAccuracy);
  append_number(text, "techMask", of.techMask);
  return text;
}

}  // namespace

struct LocationClientApi::impl {
  client_ptr self = std::make_shared<client>();
};

LocationClientApi::LocationClientApi(CapabilitiesCb capabilities_cb) : impl_(new impl) {
  const sim_fault_hit fault = sim_call("location", "LocationClientApi", fields::object());
  const client_ptr &self = impl_->self;
  {
    const std::lock_guard guard(sim_lock());
    self->capabilities_cb = std::move(capabilities_cb);
    self->inert = refused(fault);
    lib().clients.push_back(self);
    const double after_ms = receiver().capabilities_ms;
    if (!self->inert && after_ms >= 0) {
      later(after_ms, [self = self] { announce_capabilities(self); });
    }
  }
  sim_call_return("location", "LocationClientApi", {{"ok", !refused(fault)}});
}

LocationClientApi::~LocationClientApi() {
  sim_call("location", "~LocationClientApi", fields::object());
  const client_ptr self = impl_->self;
  {
    std::unique_lock guard(sim_lock());
    self->closed = true;
    std::erase(lib().clients, self);
    lib().callback_ended.wait(guard, [&self] {
      return self->in_callback == std::thread::id() || self->in_callback == std::this_thread::get_id();
    });
  }
  delete impl_;
  sim_call_return("location", "~LocationClientApi", fields::object());
}

void LocationClientApi::getSinglePosition(uint32_t timeout_ms, float horizontal_accuracy, LocationCb location_cb,
                                          ResponseCb response_cb) {
  const sim_fault_hit fault = sim_call("location", "getSinglePosition",
                                       {{"timeout_ms", timeout_ms},
                                        {"horizontal_accuracy", horizontal_accuracy},
                                        {"location_cb", static_cast<bool>(location_cb)}});
  start_single_shot(impl_->self, fault, timeout_ms, std::move(location_cb), std::move(response_cb));
  sim_call_return("location", "getSinglePosition", fields::object());
}

bool LocationClientApi::startRoutineBatchingSession(uint32_t min_interval_ms, uint32_t min_distance_m,
                                                    BatchingCb batching_cb, ResponseCb response_cb) {
  const sim_fault_hit fault = sim_call("location", "startRoutineBatchingSession",
                                       {{"min_interval_ms", min_interval_ms}, {"min_distance_m", min_distance_m}});
  const bool ok = !fault.fails && sim_fault_status(fault) == 0;
  if (ok) {
    start_batching(impl_->self, fault, min_interval_ms, std::move(batching_cb), std::move(response_cb));
  }
  sim_call_return("location", "startRoutineBatchingSession", {{"ok", ok}});
  return ok;
}

void LocationClientApi::stopBatchingSession() {
  const sim_fault_hit fault = sim_call("location", "stopBatchingSession", fields::object());
  if (!refused(fault)) {
    const std::lock_guard guard(sim_lock());
    impl_->self->session_runs = false;
    impl_->self->batch.clear();
  }
  sim_call_return("location", "stopBatchingSession", fields::object());
}

std::string LocationClientApi::capabilitiesToString(LocationCapabilitiesMask mask) {
  sim_call("location", "capabilitiesToString", {{"mask", mask}});
  std::string text = capabilities_text(mask);
  sim_call_return("location", "capabilitiesToString", {{"text", text}});
  return text;
}

std::string Location::toString() const {
  sim_call("location", "toString", fields::object());
  std::string text = location_text(*this);
  sim_call_return("location", "toString", {{"text", text}});
  return text;
}

}  // namespace location_client

void sim_location_changed() {
  using namespace location_client;
  const std::lock_guard guard(sim_lock());
  for (const client_ptr &to : lib().clients) {
    if (to->announced) {
      later(0, [to] { announce_capabilities(to); });
    } else {
      expect_capabilities(to);
    }
  }
}
