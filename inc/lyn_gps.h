/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Location client (of the module): single-shot positions and routine batching through the board's location service.
 *
 * Starts and stops are called under the module lock. Results come on the service's threads and are posted as events
 * LYN_EVENT_LOC_SINGLE_SHOT and LYN_EVENT_LOC_BATCH. Every start and stop needs the service's capabilities to have
 * arrived. All return 0 or -1.
 */
#ifndef LYN_GPS_H
#define LYN_GPS_H

#include <stdint.h>

#include "ox_lyn.h"

/** Create the client of the location service. -1: none could be made. */
int32_t lyn_gps_init(void);

/** Destroy the client. Always 0. */
int32_t lyn_gps_deinit(void);

/** Ask for one position. -1: null request, no client, no capabilities yet. */
int32_t lyn_gps_get_single_shot_location_info(const ox_lyn_loc_single_shot_req_t *req);

/** Stop the single shot by putting a request without location handler in its place. -1: no client or capabilities. */
int32_t lyn_gps_set_single_shot_location_stop(void);

/** Start batching. -1: null request, no client, no capabilities yet, or refused. */
int32_t lyn_gps_start_batching_info(const ox_lyn_loc_batching_req_t *req);

/** Stop batching. -1: no client or capabilities. */
int32_t lyn_gps_set_batch_location_stop(void);

#endif
