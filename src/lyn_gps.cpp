/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Location client: starts and stops at the board's location service, and its results as events.
 *
 * The service calls back on its own threads, possibly late, twice or after lyn_gps_deinit. So the callbacks touch only
 * the three atomics below and post; the client pointer belongs to the starts and stops, which the module lock
 * serialises. A stored response decides whether a location that follows is delivered.
 *
 * What is logged when posting failed says "posted": deliberate, these texts are written on that path only.
 */
#include "lyn_gps.h"

#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "location_client_api.h"
#include "lyn_block.h"
#include "lyn_event.h"
#include "lyn_log.h"

using location_client::BatchingStatus;
using location_client::Location;
using location_client::LocationCapabilitiesMask;
using location_client::LocationClientApi;
using location_client::LocationResponse;

/** The one client; null before lyn_gps_init and after lyn_gps_deinit. */
static LocationClientApi *lyn_gps_client;

/** The service has told its capabilities. */
static std::atomic<bool> lyn_gps_capable{false};

/** Last response to a single shot and to a batching start; OX_LYN_LOC_RESPONSE_INVALID_E: deliver no location. */
static std::atomic<int32_t> lyn_gps_single_shot_response{0};
static std::atomic<int32_t> lyn_gps_batching_response{0};

// Codes of the service go to the user as they come.
static_assert(static_cast<int>(OX_LYN_LOC_RESPONSE_SUCCESS_E) ==
              static_cast<int>(location_client::LOCATION_RESPONSE_SUCCESS));
static_assert(static_cast<int>(OX_LYN_LOC_RESPONSE_TIMEOUT_E) ==
              static_cast<int>(location_client::LOCATION_RESPONSE_TIMEOUT));
static_assert(static_cast<int>(OX_LYN_LOC_BATCH_LOCATIONS_E) ==
              static_cast<int>(location_client::BATCHING_STATUS_LOCATIONS));

/** A text of the service, empty where there is no memory for it: no exception may pass a callback. */
template <typename Text>
static std::string lyn_gps_text(Text text) noexcept {
  try {
    return text();
  } catch (...) {
    return {};
  }
}

/** Make a call of the service that tells whether it succeeded; an exception is a failure. */
template <typename Call>
static bool lyn_gps_try(Call call) noexcept {
  try {
    return call();
  } catch (...) {
    return false;
  }
}

/** A location is delivered after a response of success, and of a time-out: then it is of lesser quality. */
static bool lyn_gps_is_accepted(int32_t response) {
  return response == location_client::LOCATION_RESPONSE_SUCCESS ||
         response == location_client::LOCATION_RESPONSE_TIMEOUT;
}

/** Member by member: the service's class may hold more than the API's struct. */
static ox_lyn_location_t lyn_gps_copy(const Location &from) {
  return {.flags = from.flags,
          .timestamp = from.timestamp,
          .latitude = from.latitude,
          .longitude = from.longitude,
          .altitude = from.altitude,
          .speed = from.speed,
          .bearing = from.bearing,
          .horizontal_accuracy = from.horizontalAccuracy,
          .vertical_accuracy = from.verticalAccuracy,
          .speed_accuracy = from.speedAccuracy,
          .bearing_accuracy = from.bearingAccuracy,
          .tech_mask = from.techMask,
          .extra_time = {from.extraTime[0], from.extraTime[1]}};
}

/* Callbacks */

static void onCapabilitiesCb(LocationCapabilitiesMask mask) noexcept {
  lyn_gps_capable = true;
  const std::string text = lyn_gps_text([mask] { return LocationClientApi::capabilitiesToString(mask); });
  LYN_LOG_HIGH("%s: mask string=%s capability flag is %d", __func__, text.c_str(), lyn_gps_capable.load());
}

/** Post a result for the callback `name`. False: it could not be posted; without memory nothing is posted. */
static bool lyn_gps_post_single_shot(const char *name, const ox_lyn_loc_single_shot_t &result) {
  auto block = lyn_zeroed_block<ox_lyn_loc_single_shot_t>();
  if (!block) {
    LYN_LOG_ERROR("%s: Memory allocation failure\n", name);
    return true;
  }
  *block = result;
  return lyn_post_async_event(LYN_EVENT_LOC_SINGLE_SHOT, block.release()) == 0;
}

static void single_shot_response_callback(LocationResponse response) noexcept {
  LYN_LOG_HIGH("%s: response %u\n", __func__, static_cast<unsigned int>(response));
  const auto code = static_cast<int32_t>(response);
  if (lyn_gps_is_accepted(code)) {  // deliberately also a time-out, which is not posted: its location may follow
    lyn_gps_single_shot_response = code;
    LYN_LOG_HIGH("%s: single_shot_response is %d \n", __func__, code);
    return;
  }
  lyn_gps_single_shot_response = OX_LYN_LOC_RESPONSE_INVALID_E;
  if (!lyn_gps_post_single_shot(__func__, {.kind = OX_LYN_LOC_KIND_RESULT_E, .response = response, .location = {}})) {
    LYN_LOG_ERROR("%s: single_shot_loc_response  posted \n", __func__);
  }
}

static void single_shot_location_callback(const Location &location) noexcept {
  const int32_t response = lyn_gps_single_shot_response;
  const std::string text = lyn_gps_text([&location] { return location.toString(); });
  LYN_LOG_HIGH("%s: %s response %d\n", __func__, text.c_str(), response);
  if (!lyn_gps_is_accepted(response)) {
    return;
  }
  const ox_lyn_loc_single_shot_t result = {.kind = OX_LYN_LOC_KIND_RESULT_E,
                                           .response = static_cast<uint32_t>(response),
                                           .location = lyn_gps_copy(location)};
  if (!lyn_gps_post_single_shot(__func__, result)) {
    LYN_LOG_ERROR("%s: single_shot_loc_info posted \n", __func__);
    lyn_gps_single_shot_response = OX_LYN_LOC_RESPONSE_INVALID_E;
  }
}

static void single_shot_response_stop_callback(LocationResponse response) noexcept {
  LYN_LOG_HIGH("%s: response %u\n", __func__, static_cast<unsigned int>(response));
  if (response != location_client::LOCATION_RESPONSE_SUCCESS) {
    return;
  }
  if (!lyn_gps_post_single_shot(
          __func__, {.kind = OX_LYN_LOC_KIND_STOP_E, .response = OX_LYN_LOC_RESPONSE_SUCCESS_E, .location = {}})) {
    LYN_LOG_ERROR("%s: single_shot_loc_stop_info posted \n", __func__);
  }
}

static void batching_response_callback(LocationResponse response) noexcept {
  LYN_LOG_HIGH("%s: response %u\n", __func__, static_cast<unsigned int>(response));
  const auto code = static_cast<int32_t>(response);
  if (response == location_client::LOCATION_RESPONSE_SUCCESS) {
    lyn_gps_batching_response = code;
    LYN_LOG_HIGH("%s: batching_response  is %d \n", __func__, code);
    return;
  }
  auto batch = lyn_zeroed_block<ox_lyn_loc_batch_t>();
  if (!batch) {
    LYN_LOG_ERROR("%s: Memory allocation failure \n", __func__);
    return;
  }
  batch->response = code;
  if (lyn_post_async_event(LYN_EVENT_LOC_BATCH, batch.release()) != 0) {
    LYN_LOG_ERROR("%s: batching_response  posted \n", __func__);
  }
}

/** Copies of the first `count` locations; one entry where there are none. Null without memory. */
static lyn_block_t<ox_lyn_location_t> lyn_gps_copy_batch(const char *name, const std::vector<Location> &locations,
                                                         uint8_t count) {
  auto copies = lyn_zeroed_block<ox_lyn_location_t>(std::max<size_t>(count, 1));
  for (size_t i = 0; copies && i < count; i++) {
    const std::string text = lyn_gps_text([&] { return locations[i].toString(); });
    LYN_LOG_HIGH("%s: %s\n", name, text.c_str());
    copies.get()[i] = lyn_gps_copy(locations[i]);
  }
  return copies;
}

static void batching_routine_location_callback(const std::vector<Location> &locations, BatchingStatus status) noexcept {
  // The block's count is a byte: what goes beyond is not delivered.
  const auto count = static_cast<uint8_t>(std::min<size_t>(locations.size(), UINT8_MAX));
  LYN_LOG_HIGH("%s: batching status: %d, total locations %d\n", __func__, static_cast<int>(status),
               static_cast<int>(locations.size()));
  LYN_LOG_HIGH("%s: batching status: %d, location cnt %d\n", __func__, static_cast<int>(status), count);
  auto batch = lyn_zeroed_block<ox_lyn_loc_batch_t>();
  lyn_block_t<ox_lyn_location_t> copies;
  if (batch && status == location_client::BATCHING_STATUS_LOCATIONS) {
    copies = lyn_gps_copy_batch(__func__, locations, count);
  }
  if (!batch || (status == location_client::BATCHING_STATUS_LOCATIONS && !copies)) {
    LYN_LOG_ERROR("%s: Memory allocation failure \n", __func__);
    return;
  }
  *batch = {.status = status,
            .response = lyn_gps_batching_response,
            .locations = copies.get(),
            .count = copies ? count : uint8_t{0}};
  static_cast<void>(copies.release());  // released with the batch from here on
  if (lyn_post_async_event(LYN_EVENT_LOC_BATCH, batch.release()) != 0) {
    LYN_LOG_ERROR("%s: location batch posted\n", __func__);
    lyn_gps_batching_response = OX_LYN_LOC_RESPONSE_INVALID_E;
  }
}

/* Life cycle */

static void lyn_gps_delete_client() {
  delete lyn_gps_client;
  lyn_gps_client = nullptr;
}

int32_t lyn_gps_init(void) {
  lyn_gps_delete_client();  // left over where the module failed to come up the last time
  lyn_gps_capable = false;
  lyn_gps_try([] {
    lyn_gps_client = new (std::nothrow) LocationClientApi(onCapabilitiesCb);
    return true;
  });
  if (lyn_gps_client == nullptr) {
    LYN_LOG_ERROR("%s:location client object is NULL,capability flag %d\n", __func__, lyn_gps_capable.load());
    return -1;
  }
  LYN_LOG_HIGH("%s: Success, capability flag is %d \n", __func__, lyn_gps_capable.load());
  return 0;
}

int32_t lyn_gps_deinit(void) {
  lyn_gps_delete_client();
  lyn_gps_capable = false;
  LYN_LOG_HIGH("%s:Success, capability flag is %d \n", __func__, 0);
  return 0;
}

/* Starts and stops */

static bool lyn_gps_is_ready() {
  return lyn_gps_client != nullptr && lyn_gps_capable;
}

/** Log what became of an operation and turn it into a status. */
static int32_t lyn_gps_conclude(const char *name, bool succeeded) {
  if (!succeeded) {
    LYN_LOG_ERROR("%s:Failure \n", name);
    return -1;
  }
  LYN_LOG_HIGH("%s:Success \n", name);
  return 0;
}

/** Put a request for one position in the place of the running one. */
static bool lyn_gps_request_position(uint32_t timeout_ms, float accuracy, location_client::LocationCb location_cb,
                                     location_client::ResponseCb response_cb) {
  return lyn_gps_try([&] {
    lyn_gps_client->getSinglePosition(timeout_ms, accuracy, std::move(location_cb), std::move(response_cb));
    return true;
  });
}

int32_t lyn_gps_get_single_shot_location_info(const ox_lyn_loc_single_shot_req_t *req) {
  LYN_LOG_HIGH("%s:Capabality_flag %d \n", __func__, lyn_gps_capable.load());
  if (req == nullptr) {
    LYN_LOG_ERROR("%s:Failure starting single shot \n", __func__);
    return -1;
  }
  return lyn_gps_conclude(
      __func__,
      lyn_gps_is_ready() && lyn_gps_request_position(req->timeout_ms, req->horizontal_accuracy,
                                                     single_shot_location_callback, single_shot_response_callback));
}

int32_t lyn_gps_set_single_shot_location_stop(void) {
  return lyn_gps_conclude(
      __func__, lyn_gps_is_ready() && lyn_gps_request_position(0, 0, nullptr, single_shot_response_stop_callback));
}

int32_t lyn_gps_start_batching_info(const ox_lyn_loc_batching_req_t *req) {
  if (req == nullptr) {
    LYN_LOG_ERROR("%s:Failure starting routine batching \n", __func__);
    return -1;
  }
  LYN_LOG_HIGH("%s:Capabality_flag %d \n", __func__, lyn_gps_capable.load());
  if (!lyn_gps_is_ready()) {
    LYN_LOG_ERROR("%s:Failure stating routine batching\n", __func__);
    return -1;
  }
  const bool started = lyn_gps_try([req] {
    return lyn_gps_client->startRoutineBatchingSession(req->min_interval_ms, 0, batching_routine_location_callback,
                                                       batching_response_callback);
  });
  if (!started) {
    LYN_LOG_ERROR("%s:Failure stating routine batching \n", __func__);
    return -1;
  }
  return 0;
}

int32_t lyn_gps_set_batch_location_stop(void) {
  LYN_LOG_HIGH("%s:Capabality_flag %d \n", __func__, lyn_gps_capable.load());
  return lyn_gps_conclude(__func__, lyn_gps_is_ready() && lyn_gps_try([] {
                                      lyn_gps_client->stopBatchingSession();
                                      return true;
                                    }));
}
