/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [sys_info] and [endc], and of what LTE and NR 5G share.
 */
#include "sim_key_types.h"

namespace {

constexpr sim_key_word srv_words[] = {{"absent", static_cast<int>(sim_srv::absent)},
                                      {"no_service", static_cast<int>(sim_srv::no_service)},
                                      {"limited", static_cast<int>(sim_srv::limited)},
                                      {"service", static_cast<int>(sim_srv::service)},
                                      {"power_save", static_cast<int>(sim_srv::power_save)},
                                      {"limited_regional", static_cast<int>(sim_srv::limited_regional)}};

constexpr sim_key sys_info_keys[] = {
    {.name = "lte",
     .type = sim_key_choice<srv_words, &sim_sys_info::lte>(),
     .initial = "\"service\"",
     .text = "service status of LTE; absent: part not valid",
     .traced = true},
    {.name = "nr5g",
     .type = sim_key_choice<srv_words, &sim_sys_info::nr5g>(),
     .initial = "\"absent\"",
     .text = "the same of NR 5G",
     .traced = true},
    {.name = "nr5g_pci",
     .type = sim_key_number<&sim_sys_info::nr5g_pci>(-1, UINT16_MAX),
     .initial = "500",
     .text = "NR 5G cell beside LTE (EN-DC); -1: not valid",
     .traced = true},
    {.name = "lte_domain",
     .type = sim_key_number<&sim_sys_info::lte_domain>(),
     .initial = "3",
     .text = "service domain of LTE"},
    {.name = "lte_capability",
     .type = sim_key_number<&sim_sys_info::lte_capability>(),
     .initial = "3",
     .text = "service capability of LTE"},
    {.name = "nr5g_domain",
     .type = sim_key_number<&sim_sys_info::nr5g_domain>(),
     .initial = "3",
     .text = "service domain of NR 5G"},
    {.name = "nr5g_capability",
     .type = sim_key_number<&sim_sys_info::nr5g_capability>(),
     .initial = "3",
     .text = "service capability of NR 5G"},
};

constexpr sim_key endc_keys[] = {
    {.name = "available", .type = sim_key_number<&sim_endc::available>(), .initial = "1"},
    {.name = "restrict_dcnr", .type = sim_key_number<&sim_endc::restrict_dcnr>(), .initial = "0"},
};

constexpr sim_key plmn_keys[] = {
    {.name = "mcc", .type = sim_key_number<&sim_plmn::mcc>(), .initial = "272"},
    {.name = "mnc", .type = sim_key_number<&sim_plmn::mnc>(), .initial = "1"},
    {.name = "pcs_digit", .type = sim_key_number<&sim_plmn::pcs_digit>(), .initial = "0"},
};

}  // namespace

sim_keys sim_keys_sys_info() {
  return sys_info_keys;
}

sim_keys sim_keys_endc() {
  return endc_keys;
}

sim_keys sim_keys_plmn() {
  return plmn_keys;
}
