/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of the mobile AP: [wwan] and [mtpe].
 */
#include "oxmap_client.h"
#include "sim_key_types.h"

namespace {

constexpr size_t apn_longest = sizeof(oxmap_wwan_policy_t::apn_name) - 2;
constexpr size_t profile_max = 60;  // more than a policy list holds, to show what that does with them

constexpr sim_key profile_keys[] = {
    {.name = "index", .type = sim_key_number<&sim_wwan_profile::index>(), .initial = "1"},
    {.name = "subscription",
     .type = sim_key_number<&sim_wwan_profile::subscription>(),
     .initial = "0",
     .text = "0 default, 1 primary, 2 secondary"},
    {.name = "technology",
     .type = sim_key_number<&sim_wwan_profile::technology>(),
     .initial = "1",
     .text = "0 any, 1 3GPP, 2 3GPP2"},
    {.name = "ip_family",
     .type = sim_key_number<&sim_wwan_profile::ip_family>(),
     .initial = "4",
     .text = "4, 6, 10 both"},
    {.name = "id_3gpp", .type = sim_key_number<&sim_wwan_profile::id_3gpp>(), .initial = "1"},
    {.name = "id_3gpp2", .type = sim_key_number<&sim_wwan_profile::id_3gpp2>(), .initial = "0"},
    {.name = "apn", .type = sim_key_text<&sim_wwan_profile::apn>(apn_longest), .initial = "\"internet\""},
};

constexpr int64_t fastest = 1'000'000'000'000;  // octets a second

constexpr sim_key stats_keys[] = {
    {.name = "handle",
     .type = sim_key_number<&sim_wwan_stats::handle>(),
     .initial = "1",
     .text = "handle 0: read before any handle was selected"},
    {.name = "ip_family", .type = sim_key_number<&sim_wwan_stats::ip_family>(), .initial = "4"},
    {.name = "bytes_rx",
     .type = sim_key_number<&sim_wwan_stats::bytes_rx>(0),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "bytes_tx",
     .type = sim_key_number<&sim_wwan_stats::bytes_tx>(0),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "pkts_rx",
     .type = sim_key_number<&sim_wwan_stats::pkts_rx>(),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "pkts_tx",
     .type = sim_key_number<&sim_wwan_stats::pkts_tx>(),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "dropped_rx",
     .type = sim_key_number<&sim_wwan_stats::dropped_rx>(),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "dropped_tx",
     .type = sim_key_number<&sim_wwan_stats::dropped_tx>(),
     .initial = "0",
     .text = "counter at the start"},
    {.name = "rx_rate",
     .type = sim_key_number<&sim_wwan_stats::rx_rate>(0, fastest),
     .initial = "125000",
     .text = "octets a second from the first platform call on; a packet has 1250"},
    {.name = "tx_rate",
     .type = sim_key_number<&sim_wwan_stats::tx_rate>(0, fastest),
     .initial = "12500",
     .text = "octets a second"},
};

using wwan_t = decltype(sim_scenario::wwan);
using qos_t = decltype(wwan_t::qos);
constexpr sim_key qos_keys[] = {
    {.name = "bearer", .type = sim_key_number<&qos_t::bearer>(), .initial = "5"},
    {.name = "tx_5qi", .type = sim_key_number<&qos_t::tx_5qi>(), .initial = "7"},
    {.name = "rx_5qi", .type = sim_key_number<&qos_t::rx_5qi>(), .initial = "7"},
    {.name = "answer_ms",
     .type = sim_key_time_or_never<&qos_t::answer_ms>(),
     .initial = "100",
     .text = "-1: never; a second query before the answer is refused with error 118"},
};

constexpr sim_key wwan_keys[] = {
    {.name = "profile",
     .type = sim_key_tables<&wwan_t::profile>(sim_keys_of<profile_keys>, profile_max),
     .initial = "[{}]",
     .text = "a policy list holds the first 50; the preferred profile is the first"},
    {.name = "stats",
     .type = sim_key_tables<&wwan_t::stats>(sim_keys_of<stats_keys>),
     .initial = "[{}]",
     .text = "one entry per profile handle and IP family"},
    {.name = "qos",
     .type = sim_key_table<&wwan_t::qos>(sim_keys_of<qos_keys>),
     .text = "what a QoS flow query is answered with"},
};

constexpr sim_key_word mtpe_results[] = {{"completed"}, {"failed"}, {"aborted"}};

using mtpe_t = decltype(sim_scenario::mtpe);
constexpr sim_key mtpe_keys[] = {
    {.name = "configured_ms",
     .type = sim_key_time_or_never<&mtpe_t::configured_ms>(),
     .initial = "100",
     .text = "from the configuration to status 1 (configured); -1: never"},
    {.name = "duration_ms",
     .type = sim_key_time_or_never<&mtpe_t::duration_ms>(),
     .initial = "1000",
     .text = "of a test; 0: the duration asked for, in seconds; -1: it never ends"},
    {.name = "result",
     .type = sim_key_choice<mtpe_results, &mtpe_t::result>(),
     .initial = "\"completed\"",
     .text = "status 2, 3 or 4 at the end"},
    {.name = "failure_reason",
     .type = sim_key_number<&mtpe_t::failure_reason>(),
     .initial = "1",
     .text = "comes with status 3"},
    {.name = "peak_rate_kbps",
     .type = sim_key_number<&mtpe_t::peak_rate_kbps>(),
     .initial = "93000",
     .text = "comes with status 2"},
    {.name = "bandwidth_kbps",
     .type = sim_key_number<&mtpe_t::bandwidth_kbps>(),
     .initial = "100000",
     .text = "test information"},
    {.name = "mtu", .type = sim_key_number<&mtpe_t::mtu>(), .initial = "1500", .text = "test information"},
};

}  // namespace

sim_keys sim_keys_wwan() {
  return wwan_keys;
}

sim_keys sim_keys_mtpe() {
  return mtpe_keys;
}
