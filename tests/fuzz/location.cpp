/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any starts and stops of the location client, and any calls of the callbacks that it has given to the service, which
 * may come late, twice, or when the client is gone. Ends with an error where a status, or what is posted, is not what a
 * model of it says. The service here keeps callbacks and does nothing.
 */
#include <algorithm>
#include <cstdarg>
#include <optional>

#include "../unit/post_capture.h"
#include "fuzz.h"
#include "fuzz_bytes.h"
#include "location_client_api.h"
#include "lyn_gps.h"
#include "lyn_log.h"

/* In place of the module's lyn_log.cpp: texts are made as always, and forgotten. */

bool lyn_log_init() {
  return true;
}
void lyn_log_deinit() {}
void lyn_log_emit(const diag_msg_record_t *, const uint8_t *program, const uint64_t *words) {
  lyn_log_text_t text;
  lyn_log_format(text, program, words);
}

namespace {

using namespace location_client;

/** What the service was given last of each kind. */
struct given {
  CapabilitiesCb capabilities;
  LocationCb shot;
  ResponseCb shot_response, stop_response, batching_response;
  BatchingCb batching;
  bool refuses = false; /* a session of batching */
};
given *const service = new given;

}  // namespace

/* The service */

namespace location_client {

struct LocationClientApi::impl {};

LocationClientApi::LocationClientApi(CapabilitiesCb capabilities_cb) : impl_(nullptr) {
  service->capabilities = std::move(capabilities_cb);
}
LocationClientApi::~LocationClientApi() {
  delete impl_;
}

void LocationClientApi::getSinglePosition(uint32_t, float, LocationCb location_cb, ResponseCb response_cb) {
  (location_cb ? service->shot_response : service->stop_response) = std::move(response_cb);
  if (location_cb) {
    service->shot = std::move(location_cb);
  }
}
bool LocationClientApi::startRoutineBatchingSession(uint32_t, uint32_t, BatchingCb batching_cb,
                                                    ResponseCb response_cb) {
  service->batching = std::move(batching_cb);
  service->batching_response = std::move(response_cb);
  return !service->refuses;
}
void LocationClientApi::stopBatchingSession() {}
std::string LocationClientApi::capabilitiesToString(LocationCapabilitiesMask mask) {
  return std::to_string(mask);
}
std::string Location::toString() const {
  return std::to_string(latitude);
}

}  // namespace location_client

namespace {

/* The model */

struct model {
  bool client = false, capable = false;
  int32_t shot = 0, batching = 0; /* what decides on a location that follows */
};
model state;

bool ready() {
  return state.client && state.capable;
}

void hold_status(int32_t status, bool succeeds, const char *what) {
  fuzz_hold(status == (succeeds ? 0 : -1), what);
}

/** The one event since the last look, or none. */
std::optional<posted_event> posted(bool expected, uint32_t id) {
  const std::vector<posted_event> events = post_take();
  fuzz_hold(events.size() == (expected ? 1 : 0), "an event is posted where there is one",
            std::to_string(events.size()));
  fuzz_hold(!expected || events.front().id == id, "an event is posted as what it is");
  if (!expected || events.front().data == nullptr) { /* posting failed */
    return {};
  }
  return events.front();
}

template <typename number>
bool same(number one, number other) {
  return memcmp(&one, &other, sizeof one) == 0; /* no number is like itself, too */
}

bool is_copy(const ox_lyn_location_t &of, const Location &from) {
  return of.flags == from.flags && of.timestamp == from.timestamp && same(of.latitude, from.latitude) &&
         same(of.longitude, from.longitude) && same(of.altitude, from.altitude) && same(of.speed, from.speed) &&
         same(of.bearing, from.bearing) && same(of.horizontal_accuracy, from.horizontalAccuracy) &&
         same(of.vertical_accuracy, from.verticalAccuracy) && same(of.speed_accuracy, from.speedAccuracy) &&
         same(of.bearing_accuracy, from.bearingAccuracy) && of.tech_mask == from.techMask &&
         of.extra_time[0] == from.extraTime[0] && of.extra_time[1] == from.extraTime[1];
}

bool is_accepted(int32_t response) {
  return response == LOCATION_RESPONSE_SUCCESS || response == LOCATION_RESPONSE_TIMEOUT;
}

void hold_shot(bool expected, uint32_t kind, int32_t response, const Location &location) {
  const auto event = posted(expected, LYN_EVENT_LOC_SINGLE_SHOT);
  if (event) {
    const auto &block = event->as<ox_lyn_loc_single_shot_t>();
    fuzz_hold(block.kind == kind && block.response == static_cast<uint32_t>(response),
              "a single shot has its response");
    fuzz_hold(is_copy(block.location, location), "a location is copied");
  }
}

void hold_batch(bool expected, int32_t status, int32_t response, const std::vector<Location> &locations) {
  const auto event = posted(expected, LYN_EVENT_LOC_BATCH);
  if (!event) {
    return;
  }
  const auto &block = event->as<ox_lyn_loc_batch_t>();
  const bool listed = status == BATCHING_STATUS_LOCATIONS;
  fuzz_hold(block.status == status && block.response == response, "a batch has its status and response");
  fuzz_hold((block.locations != nullptr) == listed, "a batch of locations has their list, and no other");
  fuzz_hold(block.count == (listed ? std::min<size_t>(locations.size(), 255) : 0), "a batch counts what it has");
  for (size_t i = 0; i < block.count; ++i) {
    fuzz_hold(is_copy(block.locations[i], locations[i]), "a location of a batch is copied");
  }
}

/* What can happen */

struct step {
  fuzz_bytes &in;
  bool fails; /* posting */

  /** Codes of the service half of the time, any others else. */
  uint32_t code() { return in.take<uint8_t>() % 2 == 0 ? in.take<uint8_t>() % 6 : in.take<uint32_t>(); }

  Location location() {
    Location drawn;
    in.fill(&drawn, sizeof drawn);
    return drawn;
  }

  void life() {
    if (in.take<uint8_t>() % 2 == 0) {
      hold_status(lyn_gps_init(), true, "a client is made");
      state.client = true;
    } else {
      hold_status(lyn_gps_deinit(), true, "a client goes");
      state.client = false;
    }
    state.capable = false;
  }
  void start_shot() {
    const ox_lyn_loc_single_shot_req_t req = in.take<ox_lyn_loc_single_shot_req_t>();
    const bool given = in.take<uint8_t>() % 4 != 0;
    hold_status(lyn_gps_get_single_shot_location_info(given ? &req : nullptr), given && ready(), "a shot is started");
  }
  void stop_shot() { hold_status(lyn_gps_set_single_shot_location_stop(), ready(), "a shot is stopped"); }
  void start_batching() {
    const ox_lyn_loc_batching_req_t req = in.take<ox_lyn_loc_batching_req_t>();
    const bool given = in.take<uint8_t>() % 4 != 0;
    service->refuses = in.take<uint8_t>() % 4 == 0;
    hold_status(lyn_gps_start_batching_info(given ? &req : nullptr), given && ready() && !service->refuses,
                "batching is started");
  }
  void stop_batching() { hold_status(lyn_gps_set_batch_location_stop(), ready(), "batching is stopped"); }

  void capabilities() {
    if (service->capabilities) {
      service->capabilities(in.take<uint32_t>());
      state.capable = true; /* also of a client that is gone */
    }
  }
  void shot_response() {
    if (service->shot_response) {
      const auto response = static_cast<int32_t>(code());
      service->shot_response(static_cast<LocationResponse>(response));
      state.shot = is_accepted(response) ? response : -1;
      hold_shot(!is_accepted(response), OX_LYN_LOC_KIND_RESULT_E, response, {});
    }
  }
  void stop_response() {
    if (service->stop_response) {
      const auto response = static_cast<int32_t>(code());
      service->stop_response(static_cast<LocationResponse>(response));
      hold_shot(response == LOCATION_RESPONSE_SUCCESS, OX_LYN_LOC_KIND_STOP_E, response, {});
    }
  }
  void shot() {
    if (service->shot) {
      const Location drawn = location();
      service->shot(drawn);
      hold_shot(is_accepted(state.shot), OX_LYN_LOC_KIND_RESULT_E, state.shot, drawn);
      state.shot = fails && is_accepted(state.shot) ? -1 : state.shot;
    }
  }
  void batching_response() {
    if (service->batching_response) {
      const auto response = static_cast<int32_t>(code());
      service->batching_response(static_cast<LocationResponse>(response));
      state.batching = response == LOCATION_RESPONSE_SUCCESS ? response : state.batching;
      hold_batch(response != LOCATION_RESPONSE_SUCCESS, 0, response, {});
    }
  }
  void batching() {
    if (service->batching) {
      std::vector<Location> locations(in.take<uint16_t>() % 300);
      for (size_t i = 0; i < locations.size() && !in.ended(); ++i) {
        locations[i] = location();
      }
      const auto status = static_cast<int32_t>(code());
      service->batching(locations, static_cast<BatchingStatus>(status));
      hold_batch(true, status, state.batching, locations);
      state.batching = fails ? -1 : state.batching;
    }
  }
};

constexpr void (step::*steps[])() = {
    &step::life,          &step::start_shot,        &step::stop_shot,     &step::start_batching,
    &step::stop_batching, &step::capabilities,      &step::shot_response, &step::stop_response,
    &step::shot,          &step::batching_response, &step::batching};

/** A client that is ready and whose last requests were accepted, whatever an input before has left. */
void begin() {
  constexpr ox_lyn_loc_single_shot_req_t shot = {};
  constexpr ox_lyn_loc_batching_req_t batching = {};
  lyn_gps_init();
  service->capabilities(0);
  lyn_gps_get_single_shot_location_info(&shot);
  service->shot_response(LOCATION_RESPONSE_SUCCESS);
  service->refuses = false;
  lyn_gps_start_batching_info(&batching);
  service->batching_response(LOCATION_RESPONSE_SUCCESS);
  state = {.client = true, .capable = true};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz_bytes in{data, size};
  begin();
  while (!in.ended()) {
    const auto drawn = in.take<uint8_t>();
    step one{in, drawn >= 0xC0};
    post_fail(one.fails ? -1 : 0);
    (one.*steps[drawn % std::size(steps)])();
    post_clear();
  }
  return 0;
}
