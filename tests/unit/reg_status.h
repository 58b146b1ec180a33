/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a scenario says of the radios, for each registration status.
 */
#ifndef REG_STATUS_H
#define REG_STATUS_H

#include <stdint.h>

#include <string>

/** The [sys_info] that means each registration status, from 1 on. */
inline constexpr const char *reg_status_sys_info[] = {
    "lte = \"no_service\"\n",
    "lte = \"power_save\"\n",
    "lte = \"limited\"\n",
    "lte = \"limited_regional\"\n",
    "lte = \"service\"\nnr5g_pci = -1\n",
    "lte = \"service\"\nnr5g_pci = 777\n",
    "lte = \"absent\"\nnr5g = \"service\"\nnr5g_pci = -1\n",
};

/** The scenario's table for a registration status. */
inline std::string board_status(uint32_t network_status) {
  return std::string("[sys_info]\n") + reg_status_sys_info[network_status - 1];
}

#endif
