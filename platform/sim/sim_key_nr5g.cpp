/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [nr5g] and its neighbours.
 */
#include "sim_key_types.h"

namespace {

constexpr sim_key neighbour_keys[] = {
    {.name = "arfcn", .type = sim_key_number<&sim_nr5g_nbr::arfcn>(), .initial = "636000"},
    {.name = "pci", .type = sim_key_number<&sim_nr5g_nbr::pci>(), .initial = "501"},
    {.name = "rsrp", .type = sim_key_number<&sim_nr5g_nbr::rsrp>(), .initial = "-104", .text = "dBm"},
    {.name = "cgi", .type = sim_key_integers<&sim_nr5g_nbr::cgi>(YRP_NAS_NR5G_CGI_MAX), .initial = "[68719476737]"},
    {.name = "plmn",
     .type = sim_key_tables<&sim_nr5g_nbr::plmn>(sim_keys_plmn, YRP_NAS_NR5G_PLMN_MAX),
     .initial = "[{}]"},
};

constexpr sim_key lock_arfcn_keys[] = {
    {.name = "arfcn", .type = sim_key_number<&sim_nr5g_lock_arfcn::arfcn>(), .initial = "0"},
    {.name = "scs", .type = sim_key_number<&sim_nr5g_lock_arfcn::scs>(), .initial = "0"},
};

constexpr sim_key lock_keys[] = {
    {.name = "type", .type = sim_key_number<&sim_nr5g_lock::type>(), .initial = "0"},
    {.name = "pci", .type = sim_key_number<&sim_nr5g_lock::pci>(), .initial = "0"},
    {.name = "arfcn", .type = sim_key_number<&sim_nr5g_lock::arfcn>(), .initial = "0"},
    {.name = "scs", .type = sim_key_number<&sim_nr5g_lock::scs>(), .initial = "0"},
    {.name = "list",
     .type = sim_key_tables<&sim_nr5g_lock::list>(sim_keys_of<lock_arfcn_keys>, YRP_NAS_NR5G_LOCK_MAX),
     .initial = "[]"},
};

constexpr sim_key nr5g_keys[] = {
    {.name = "arfcn", .type = sim_key_number<&sim_nr5g::arfcn>(0), .initial = "636000"},
    {.name = "pci", .type = sim_key_number<&sim_nr5g::pci>(), .initial = "500"},
    {.name = "cgi",
     .type = sim_key_number<&sim_nr5g::cgi>(0),
     .initial = "68719476736",
     .text = "64 bits on the wire; TOML counts to 2^63 - 1"},
    {.name = "tac", .type = sim_key_array<&sim_nr5g::tac>(), .initial = "[0x00, 0x1A, 0x2B]"},
    {.name = "plmn",
     .type = sim_key_array<&sim_nr5g::plmn>(),
     .initial = "[0x72, 0xF2, 0x10]",
     .text = "in the order of the air interface"},
    {.name = "rsrp",
     .type = sim_key_measured<int16_t, &sim_nr5g::rsrp>(),
     .initial = "-98",
     .text = "dBm",
     .traced = true},
    {.name = "rsrq",
     .type = sim_key_measured<int16_t, &sim_nr5g::rsrq>(),
     .initial = "-11",
     .text = "dB",
     .traced = true},
    {.name = "snr",
     .type = sim_key_measured<int16_t, &sim_nr5g::snr>(),
     .initial = "150",
     .text = "0.1 dB",
     .traced = true},
    {.name = "tx_power", .type = sim_key_number<&sim_nr5g::tx_power>(), .initial = "150", .text = "0.1 dBm"},
    {.name = "rrc_state", .type = sim_key_number<&sim_nr5g::rrc_state>(), .initial = "2"},
    {.name = "scs", .type = sim_key_number<&sim_nr5g::scs>(), .initial = "1"},
    {.name = "cqi",
     .type = sim_key_carriers<&sim_nr5g::cqi>(YRP_NAS_NR5G_CC_MAX),
     .initial = "[[13, 12]]",
     .text = "per component carrier its codewords; []: part not valid"},
    {.name = "dl_mod",
     .type = sim_key_integers<&sim_nr5g::dl_mod>(YRP_NAS_MOD_MAX),
     .initial = "[3, 4]",
     .text = "modulation of each stream"},
    {.name = "ul_mod",
     .type = sim_key_integers<&sim_nr5g::ul_mod>(YRP_NAS_MOD_MAX),
     .initial = "[2]",
     .text = "modulation of each stream"},
    {.name = "rf_bandwidth", .type = sim_key_integers<&sim_nr5g::rf_bandwidth>(YRP_NAS_RF_BAND_MAX), .initial = "[10]"},
    {.name = "cell_lock",
     .type = sim_key_table<&sim_nr5g::cell_lock>(sim_keys_of<lock_keys>),
     .text = "the lock at the start"},
    {.name = "neighbour",
     .type = sim_key_tables<&sim_nr5g::neighbour>(sim_keys_of<neighbour_keys>, YRP_NAS_NR5G_NBR_MAX),
     .initial = "[{}]"},
};

}  // namespace

sim_keys sim_keys_nr5g() {
  return nr5g_keys;
}
