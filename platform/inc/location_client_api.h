/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Location service of the board (closed): client class, location record and callbacks.
 *
 * Declarations only; the simulated board or the board's own library implements them. Operations may be called from any
 * thread; callbacks run on the library's own threads and may come late.
 */
#ifndef LOCATION_CLIENT_API_H
#define LOCATION_CLIENT_API_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace location_client {

/** What the receiver can do, one bit each. */
using LocationCapabilitiesMask = uint32_t;

enum : LocationCapabilitiesMask {
  LOCATION_CAPS_SINGLE_SHOT = 1u << 0,
  LOCATION_CAPS_TIME_BASED_BATCHING = 1u << 1,
  LOCATION_CAPS_DISTANCE_BASED_BATCHING = 1u << 2
};

/** Answer to a request. */
enum LocationResponse : uint32_t {
  LOCATION_RESPONSE_SUCCESS = 0,
  LOCATION_RESPONSE_FAILURE = 1,
  LOCATION_RESPONSE_NOT_SUPPORTED = 2,
  LOCATION_RESPONSE_PARAM_INVALID = 3,
  LOCATION_RESPONSE_TIMEOUT = 4 /**< a location of lesser quality may follow */
};

/** State of a batching session. */
enum BatchingStatus : int32_t {
  BATCHING_STATUS_INACTIVE = 0,
  BATCHING_STATUS_LOCATIONS = 1, /**< locations come with it */
  BATCHING_STATUS_DONE = 2
};

/** Which members of a location are meaningful. */
enum LocationFlags : uint32_t {
  LOCATION_HAS_LAT_LONG = 0x1,
  LOCATION_HAS_ALTITUDE = 0x2,
  LOCATION_HAS_SPEED = 0x4,
  LOCATION_HAS_BEARING = 0x8,
  LOCATION_HAS_HORIZONTAL_ACCURACY = 0x10,
  LOCATION_HAS_VERTICAL_ACCURACY = 0x20,
  LOCATION_HAS_SPEED_ACCURACY = 0x40,
  LOCATION_HAS_BEARING_ACCURACY = 0x80,
  LOCATION_HAS_TIMESTAMP = 0x100,
  LOCATION_HAS_EXTRA_TIME_0 = 0x200,
  LOCATION_HAS_EXTRA_TIME_1 = 0x400
};

/** One location. */
struct Location {
  uint32_t flags = 0;
  uint64_t timestamp = 0; /**< ms since 1970-01-01 UTC */
  double latitude = 0;    /**< degrees, WGS 84 */
  double longitude = 0;   /**< degrees, WGS 84 */
  double altitude = 0;    /**< m above the ellipsoid */
  float speed = 0;        /**< m/s */
  float bearing = 0;      /**< degrees clockwise from north */
  float horizontalAccuracy = 0;
  float verticalAccuracy = 0;
  float speedAccuracy = 0;
  float bearingAccuracy = 0;
  uint32_t techMask = 0;
  uint64_t extraTime[2] = {0, 0};

  std::string toString() const;
};

using CapabilitiesCb = std::function<void(LocationCapabilitiesMask mask)>;
using LocationCb = std::function<void(const Location &location)>;
using BatchingCb = std::function<void(const std::vector<Location> &locations, BatchingStatus status)>;
using ResponseCb = std::function<void(LocationResponse response)>;

class LocationClientApi {
 public:
  /** `capabilities_cb` is called once the receiver is ready, and again whenever its capabilities change. */
  explicit LocationClientApi(CapabilitiesCb capabilities_cb);
  virtual ~LocationClientApi();
  LocationClientApi(const LocationClientApi &) = delete;
  LocationClientApi &operator=(const LocationClientApi &) = delete;

  /** One position within `timeout_ms`, better than `horizontal_accuracy` m where possible. Replaces a running one. */
  void getSinglePosition(uint32_t timeout_ms, float horizontal_accuracy, LocationCb location_cb,
                         ResponseCb response_cb);

  /** Locations every `min_interval_ms`, delivered in batches. Returns whether the session started. */
  bool startRoutineBatchingSession(uint32_t min_interval_ms, uint32_t min_distance_m, BatchingCb batching_cb,
                                   ResponseCb response_cb);
  void stopBatchingSession();

  static std::string capabilitiesToString(LocationCapabilitiesMask mask);

 private:
  struct impl;
  impl *impl_;
};

}  // namespace location_client

#endif
