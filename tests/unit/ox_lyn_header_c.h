/* SPDX-License-Identifier: Apache-2.0 */
/* What ox_lyn_header_c.c shows to ox_lyn_header_test.cpp. */
#ifndef OX_LYN_HEADER_C_H
#define OX_LYN_HEADER_C_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Every block of the public header. */
#define HEADER_BLOCKS(X)          \
  X(ox_lyn_dm_info_t)             \
  X(ox_lyn_dm_ctrl_info_t)        \
  X(ox_lyn_dm_ind_info_t)         \
  X(ox_lyn_cqi_entry_t)           \
  X(ox_lyn_lte_cqi_t)             \
  X(ox_lyn_nr5g_cqi_t)            \
  X(ox_lyn_lte_lock_cell_t)       \
  X(ox_lyn_lte_cell_lock_t)       \
  X(ox_lyn_nr5g_lock_arfcn_t)     \
  X(ox_lyn_nr5g_cell_lock_t)      \
  X(ox_lyn_mcs_t)                 \
  X(ox_lyn_endc_mode_t)           \
  X(ox_lyn_wwan_profile_t)        \
  X(ox_lyn_wwan_profile_list_t)   \
  X(ox_lyn_wwan_stats_t)          \
  X(ox_lyn_mtpe_req_t)            \
  X(ox_lyn_mtpe_net_params_t)     \
  X(ox_lyn_mtpe_server_config_t)  \
  X(ox_lyn_loc_single_shot_req_t) \
  X(ox_lyn_loc_batching_req_t)    \
  X(ox_lyn_nr5g_freq_t)           \
  X(ox_lyn_pps_config_t)          \
  X(ox_lyn_pps_change_status_t)   \
  X(ox_lyn_install_mode_t)        \
  X(ox_lyn_location_t)            \
  X(ox_lyn_loc_single_shot_t)     \
  X(ox_lyn_loc_batch_t)           \
  X(ox_lyn_mtpe_status_t)         \
  X(ox_lyn_qos_flow_t)            \
  X(ox_lyn_pps_ind_t)             \
  X(ox_lyn_install_freq_t)        \
  X(ox_lyn_install_freq_list_t)   \
  X(ox_lyn_plmn_t)                \
  X(ox_lyn_lte_nbr_t)             \
  X(ox_lyn_lte_nbr_info_t)        \
  X(ox_lyn_nr5g_nbr_t)            \
  X(ox_lyn_nr5g_nbr_info_t)

typedef struct {
  const char *name;
  size_t size;
} header_size_t;

/* The blocks of the public header as a C compiler sees them; count receives their number. */
const header_size_t *header_c_sizes(size_t *count);

/* The examples of the public header, in the order in which they stand there. */
int32_t header_c_example_session(int64_t *rsrp);
int32_t header_c_example_get_info(uint32_t hndl, uint32_t *value_type);
int32_t header_c_example_set_info(uint32_t hndl);
int32_t header_c_example_set_ind_info(uint32_t hndl);

#ifdef __cplusplus
}
#endif

#endif
