/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [lte] and its neighbours.
 */
#include "sim_key_types.h"

namespace {

constexpr sim_key neighbour_keys[] = {
    {.name = "earfcn", .type = sim_key_number<&sim_lte_nbr::earfcn>(), .initial = "1300"},
    {.name = "pci", .type = sim_key_number<&sim_lte_nbr::pci>(), .initial = "301"},
    {.name = "cgi", .type = sim_key_number<&sim_lte_nbr::cgi>(), .initial = "10607299"},
    {.name = "rsrp", .type = sim_key_number<&sim_lte_nbr::rsrp>(), .initial = "-101", .text = "dBm"},
    {.name = "rsrq", .type = sim_key_number<&sim_lte_nbr::rsrq>(), .initial = "-14", .text = "dB"},
    {.name = "plmn",
     .type = sim_key_tables<&sim_lte_nbr::plmn>(sim_keys_plmn, YRP_NAS_LTE_PLMN_MAX),
     .initial = "[{}]"},
};

constexpr sim_key lock_cell_keys[] = {
    {.name = "pci", .type = sim_key_number<&sim_lock_cell::pci>(), .initial = "0"},
    {.name = "freq", .type = sim_key_number<&sim_lock_cell::freq>(), .initial = "0"},
};

constexpr sim_key lte_keys[] = {
    {.name = "earfcn", .type = sim_key_number<&sim_lte::earfcn>(), .initial = "1300", .text = "serving cell"},
    {.name = "pci", .type = sim_key_number<&sim_lte::pci>(), .initial = "214", .text = "serving cell"},
    {.name = "tac", .type = sim_key_measured<uint16_t, &sim_lte::tac>(), .initial = "6699", .traced = true},
    {.name = "cgi", .type = sim_key_measured<uint32_t, &sim_lte::cgi>(), .initial = "10607298", .traced = true},
    {.name = "plmn",
     .type = sim_key_array<&sim_lte::plmn>(),
     .initial = "[0x72, 0xF2, 0x10]",
     .text = "in the order of the air interface"},
    {.name = "rsrp",
     .type = sim_key_measured<int16_t, &sim_lte::rsrp>(),
     .initial = "-95",
     .text = "dBm",
     .traced = true},
    {.name = "rsrq",
     .type = sim_key_measured<int8_t, &sim_lte::rsrq>(),
     .initial = "-11",
     .text = "dB",
     .traced = true},
    {.name = "snr",
     .type = sim_key_measured<int16_t, &sim_lte::snr>(),
     .initial = "130",
     .text = "0.1 dB",
     .traced = true},
    {.name = "rssi", .type = sim_key_number<&sim_lte::rssi>(), .initial = "-65", .text = "dBm"},
    {.name = "tx_power", .type = sim_key_number<&sim_lte::tx_power>(), .initial = "120", .text = "0.1 dBm"},
    {.name = "rrc_state", .type = sim_key_number<&sim_lte::rrc_state>(), .initial = "3"},
    {.name = "cqi",
     .type = sim_key_carriers<&sim_lte::cqi>(YRP_NAS_LTE_CC_MAX),
     .initial = "[[12, 11]]",
     .text = "per component carrier its codewords; []: part not valid",
     .traced = true},
    {.name = "dl_mod",
     .type = sim_key_integers<&sim_lte::dl_mod>(YRP_NAS_MOD_MAX),
     .initial = "[2, 3]",
     .text = "modulation of each stream"},
    {.name = "ul_mod",
     .type = sim_key_integers<&sim_lte::ul_mod>(YRP_NAS_MOD_MAX),
     .initial = "[1]",
     .text = "modulation of each stream"},
    {.name = "rf_bandwidth", .type = sim_key_integers<&sim_lte::rf_bandwidth>(YRP_NAS_RF_BAND_MAX), .initial = "[3]"},
    {.name = "ca_dl_bandwidth", .type = sim_key_number<&sim_lte::ca_dl_bandwidth>(), .initial = "3"},
    {.name = "cell_lock",
     .type = sim_key_tables<&sim_lte::cell_lock>(sim_keys_of<lock_cell_keys>, YRP_NAS_LTE_LOCK_GET_MAX),
     .initial = "[]",
     .text = "the lock list at the start; later changes are the client's"},
    {.name = "neighbour",
     .type = sim_key_tables<&sim_lte::neighbour>(sim_keys_of<neighbour_keys>, YRP_NAS_LTE_NBR_MAX),
     .initial = "[{}]",
     .text = "the first has the highest signal; []: part of a scan not valid",
     .traced = true},
};

}  // namespace

sim_keys sim_keys_lte() {
  return lte_keys;
}
