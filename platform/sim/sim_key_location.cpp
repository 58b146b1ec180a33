/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [location].
 */
#include "sim_key_types.h"

namespace {

constexpr int64_t batch_max = 300;

using fix_t = location_client::Location;
constexpr auto fix = &sim_location::fix;

constexpr sim_key location_keys[] = {
    {.name = "capabilities_ms",
     .type = sim_key_time_or_never<&sim_location::capabilities_ms>(),
     .initial = "10",
     .text = "from construction of a client to its capabilities; -1: never"},
    {.name = "capabilities",
     .type = sim_key_number<&sim_location::capabilities>(),
     .initial = "7",
     .text = "mask: 1 single shot, 2 time-based batching, 4 distance-based batching"},
    {.name = "response",
     .type = sim_key_number<&sim_location::response>(),
     .initial = "0",
     .text = "to a single shot, a stop, a batching start"},
    {.name = "fix_ms",
     .type = sim_key_time_or_never<&sim_location::fix_ms>(),
     .initial = "500",
     .text = "from a request to its fix; -1: never"},
    {.name = "repeat_fix",
     .type = sim_key_number<&sim_location::repeat_fix>(0, 1000),
     .initial = "1",
     .text = "how often one fix is delivered"},
    {.name = "fix_when_refused",
     .type = sim_key_boolean<&sim_location::fix_when_refused>(),
     .initial = "false",
     .text = "true: the fix comes although the response refused the request"},
    {.name = "late_ms",
     .type = sim_key_time<&sim_location::late_ms>(),
     .initial = "0",
     .text = "how much later than due each callback comes"},
    {.name = "batch",
     .type = sim_key_number<&sim_location::batch>(0, batch_max),
     .initial = "4",
     .text = "locations in one batch, one every interval; 0: an empty batch every interval"},
    {.name = "batch_status",
     .type = sim_key_number<&sim_location::batch_status>(),
     .initial = "1",
     .text = "comes with every batch"},
    {.name = "flags",
     .type = sim_key_number<fix, &fix_t::flags>(),
     .initial = "0x1FF",
     .text = "which members are meaningful"},
    {.name = "timestamp",
     .type = sim_key_number<fix, &fix_t::timestamp>(0),
     .initial = "1767225600000",
     .text = "ms since 1970; fixed, so that runs can be compared; batched locations add their interval",
     .traced = true},
    {.name = "latitude",
     .type = sim_key_number<fix, &fix_t::latitude>(-90, 90),
     .initial = "51.897463",
     .text = "degrees",
     .traced = true},
    {.name = "longitude",
     .type = sim_key_number<fix, &fix_t::longitude>(-180, 180),
     .initial = "-8.480187",
     .text = "degrees",
     .traced = true},
    {.name = "altitude", .type = sim_key_number<fix, &fix_t::altitude>(), .initial = "36", .text = "m"},
    {.name = "speed", .type = sim_key_number<fix, &fix_t::speed>(), .initial = "0", .text = "m/s", .traced = true},
    {.name = "bearing", .type = sim_key_number<fix, &fix_t::bearing>(), .initial = "0", .text = "degrees"},
    {.name = "horizontal_accuracy",
     .type = sim_key_number<fix, &fix_t::horizontalAccuracy>(),
     .initial = "5",
     .text = "m"},
    {.name = "vertical_accuracy", .type = sim_key_number<fix, &fix_t::verticalAccuracy>(), .initial = "8", .text = "m"},
    {.name = "speed_accuracy", .type = sim_key_number<fix, &fix_t::speedAccuracy>(), .initial = "0.5", .text = "m/s"},
    {.name = "bearing_accuracy",
     .type = sim_key_number<fix, &fix_t::bearingAccuracy>(),
     .initial = "10",
     .text = "degrees"},
    {.name = "tech_mask", .type = sim_key_number<fix, &fix_t::techMask>(), .initial = "1"},
    {.name = "extra_time", .type = sim_key_array<fix, &fix_t::extraTime>(), .initial = "[0, 0]"},
};

}  // namespace

sim_keys sim_keys_location() {
  return location_keys;
}
