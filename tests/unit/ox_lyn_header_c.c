/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The public header in strict C11, included before anything else so that it must stand alone. The functions are the
 * examples of its comments, word for word but for what frames them.
 */
#include "ox_lyn.h"

#include "ox_lyn_header_c.h"

#include <stdio.h>
#include <stdlib.h>

#define SIZE(type) {#type, sizeof(type)},
static const header_size_t sizes[] = {HEADER_BLOCKS(SIZE)};

const header_size_t *header_c_sizes(size_t *count) {
  *count = sizeof(sizes) / sizeof(sizes[0]);
  return sizes;
}

static void on_event(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *event, uint32_t user_data) {
  (void)hndl;
  (void)user_data;
  if (event->record_type == OX_LYN_RECORD_IND_E && event->metric == OX_LYN_IND_LTE_RSRP_E) {
    printf("LTE RSRP now %lld dBm\n", (long long)event->value.i64);
  }
  free(event);
}

int32_t header_c_example_session(int64_t *rsrp) {
  int32_t status = OX_LYN_ERR_FAILURE;
  ox_lyn_hndl_t hndl;
  if (ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS) {
    ox_lyn_dm_info_t info = {.record_type = OX_LYN_RECORD_GET_E, .metric = OX_LYN_GET_LTE_SERV_RSRP_E};
    status = ox_lyn_get_info(hndl, &info);
    if (status == OX_LYN_SUCCESS) {
      *rsrp = info.value.i64;
    }
    ox_lyn_deinit(hndl);
  }
  return status;
}

int32_t header_c_example_get_info(uint32_t hndl, uint32_t *value_type) {
  ox_lyn_lte_cqi_t cqi;
  ox_lyn_dm_info_t info = {.record_type = OX_LYN_RECORD_GET_E, .metric = OX_LYN_GET_LTE_SERV_CQI_E};
  info.value.ptr = &cqi;
  int32_t status = ox_lyn_get_info(hndl, &info);
  *value_type = info.value_type;
  return status;
}

int32_t header_c_example_set_info(uint32_t hndl) {
  ox_lyn_dm_ctrl_info_t ctrl = {.control = OX_LYN_SET_NR5G_DEPRIORITIZE_E};
  ctrl.value.u8 = 1;
  int32_t status = ox_lyn_set_info(hndl, &ctrl);
  return status;
}

int32_t header_c_example_set_ind_info(uint32_t hndl) {
  ox_lyn_dm_ind_info_t ind = {.record_type = OX_LYN_RECORD_IND_E,
                              .indication = OX_LYN_IND_LTE_RSRP_E,
                              .value_type = OX_LYN_VALUE_INT64_E,
                              .threshold = 2};
  int32_t status = ox_lyn_set_ind_info(hndl, &ind);
  return status;
}
