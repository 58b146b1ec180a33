/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS client (of the module): its link to the modem's network access service.
 *
 * Life cycle, subscriptions, queries and configuration requests are called under the module lock; each request blocks
 * for at most 50 s. Indications and service events come on the platform's threads, which decode, post events upward and
 * keep the network status. Statuses: 0; -1 the platform or the modem failed; -2 bad parameters; -3 no memory; -12 not
 * initialised. Each failure is logged here.
 */
#ifndef LYN_YRP_NAS_H
#define LYN_YRP_NAS_H

#include <stdint.h>

#include "nas_service_v01.h"
#include "ox_lyn.h"

/** One subscription of the table below. */
typedef struct {
  uint8_t enabled;
  uint16_t threshold; /**< reporting step in the value's own unit */
  int32_t last;       /**< value delivered last; not read by the NAS client */
} lyn_ind_group_t;

/** Subscription table: static, inside the module state; never on the heap. */
typedef struct {
  uint8_t modem_status, reg_status;
  lyn_ind_group_t lte_rsrp, lte_rsrq, lte_sinr, nr5g_rsrp, nr5g_rsrq, nr5g_sinr;
} lyn_ind_table_t;

static_assert(sizeof(lyn_ind_group_t) == 8);

/** Cell lock request from set info to the NAS client: a zeroed local of set info, freed by nobody. */
typedef struct {
  uint8_t lte_list_valid, lte_count;
  ox_lyn_lte_lock_cell_t lte_cells[OX_LYN_LTE_LOCK_LEN];
  uint8_t lte_enforce;
  uint8_t nr5g_type_valid;
  uint32_t nr5g_type; /**< ox_lyn_lock_type_e */
  uint8_t cell_identity_valid;
  uint16_t pci;
  uint32_t scs, arfcn;
  uint8_t cell_blocks[4][16];
  uint8_t arfcn_list_valid;
  uint32_t arfcn_list_len;
  ox_lyn_nr5g_lock_arfcn_t arfcn_list[OX_LYN_NR5G_LOCK_LEN];
} lyn_nas_cell_lock_req_t;

/* Results of the queries: each the query caller's own, zeroed by the query; a value counts when its flag is 1. */

/** System information. */
typedef struct {
  uint32_t network_status; /**< ox_lyn_reg_status_e */
  uint8_t nr5g_pci_info_valid, nr5g_pci_valid;
  uint16_t nr5g_pci;
} lyn_nas_sys_info_t;

/** Serving cells. */
typedef struct {
  uint8_t lte_intra_valid;
  struct {
    uint16_t earfcn, pci, tac;
    uint32_t cgi;
    uint8_t plmn_id[3];
    int16_t rsrp, rsrq;
  } lte;
  uint8_t nr5g_serving_cell_info_valid, nr5g_arfcn_valid;
  uint64_t nr5g_arfcn;
  struct {
    uint16_t pci;
    uint64_t cgi;
    int16_t rsrp, rsrq, snr;
    uint8_t plmn_id[3], tac[3];
  } nr5g;
} lyn_nas_cell_info_t;

/** Signal levels: dBm, dB, 0.1 dB. */
typedef struct {
  uint8_t lte_sig_info_valid;
  struct {
    int8_t rssi, rsrq;
    int16_t rsrp, snr;
  } lte;
  uint8_t nr5g_sig_info_valid;
  struct {
    int16_t rsrp, snr;
  } nr5g;
  uint8_t nr5g_rsrq_valid;
  int16_t nr5g_rsrq;
} lyn_nas_sig_info_t;

/** Transmit power, 0.1 dBm. */
typedef struct {
  struct {
    uint8_t tx_valid;
    int32_t tx_pwr;
  } lte, nr5g;
} lyn_nas_tx_pwr_info_t;

/** MCS: ox_lyn_lte_mod_e, ox_lyn_nr5g_mod_e. */
typedef struct {
  struct {
    uint8_t dl_valid;
    uint32_t dl_len;
    uint8_t ul_valid;
    uint32_t ul_len, dl_mod[OX_LYN_MCS_LEN], ul_mod[OX_LYN_MCS_LEN];
  } lte, nr5g;
} lyn_nas_mcs_info_t;

/** RRC states, ox_lyn_rrc_state_e. The LTE validity is 32 bits wide, unlike all others. */
typedef struct {
  uint32_t lte_valid, lte_state;
  uint8_t nr5g_valid;
  uint32_t nr5g_state;
} lyn_nas_rrc_state_t;

/** Sub-carrier spacing. */
typedef struct {
  uint8_t valid;
  uint32_t scs; /**< ox_lyn_scs_e */
} lyn_nas_scs_info_t;

/** Carrier aggregation. */
typedef struct {
  uint8_t valid;
  uint32_t dl_bandwidth; /**< ox_lyn_ca_bandwidth_e */
} lyn_nas_ca_info_t;

/** RF bandwidth, ox_lyn_rf_bandwidth_e. Both radios use the same fields. */
typedef struct {
  uint8_t valid;
  uint32_t len, bw[YRP_NAS_RF_BAND_MAX];
} lyn_nas_rf_bw_info_t;

/** CQI. */
typedef struct {
  uint8_t lte_cc_cqi_valid;
  uint32_t lte_cc_cqi_len;
  ox_lyn_cqi_entry_t lte[OX_LYN_LTE_CQI_LEN];
  uint8_t nr5g_cc_cqi_valid;
  uint32_t nr5g_cc_cqi_len;
  ox_lyn_cqi_entry_t nr5g[OX_LYN_NR5G_CQI_LEN];
} lyn_nas_cqi_info_t;

/** Cell lock lists. The type is the platform's own, unlike the spacing. */
typedef struct {
  uint8_t lte_cell_list_valid;
  uint32_t count;
  ox_lyn_lte_lock_cell_t cells[OX_LYN_LTE_LOCK_LEN];
  uint8_t type_valid;
  uint32_t type;
  uint8_t cell_identity_valid;
  uint16_t pci;
  uint32_t arfcn, scs;
  uint8_t arfcn_identity_valid;
  uint32_t arfcn_list_len;
  ox_lyn_nr5g_lock_arfcn_t arfcn_list[OX_LYN_NR5G_LOCK_LEN];
} lyn_nas_cell_lock_list_t;

/* Life cycle and service events */

/**
 * Connect; waits without limit until the modem offers the service. 0 when connected already. Behind a release that
 * failed half way only what is missing is made.
 */
int32_t lyn_yrp_nas_init(void);

/** Step of lyn_yrp_nas_init: create the client and register for indications 78, 278, 334 and 335 (message 3). */
int32_t lyn_yrp_nas_client_init(void);

/** Disconnect: notifier first, then client. -1 when not connected or the platform refuses. */
int32_t lyn_yrp_nas_release(void);

/** Register for the indications of the table (messages 3 and 108). The result inside response 108 is not examined. */
int32_t lyn_yrp_nas_register_ind(const lyn_ind_table_t *ind_info);

/** Service-event callback of the notifier. */
void lyn_yrp_nas_svc_notify_cb(yrp_client_type user_handle, yrp_service_object_type service_object,
                               int32_t service_event, void *cb_data);

/** Indication callback of the client. */
void lyn_yrp_nas_ind_cb(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len, void *cb_data);

/* Queries (message ids in brackets) */

/** Network status and NR 5G PCI [77]; with `update_status` the status becomes the module's. */
int32_t lyn_yrp_nas_get_sys_info(lyn_nas_sys_info_t *sys_info, uint8_t update_status);

/** Serving cells [67]. */
int32_t lyn_yrp_nas_get_cell_info(lyn_nas_cell_info_t *cell_info);

/** Signal levels [79]. */
int32_t lyn_yrp_nas_get_sig_info(lyn_nas_sig_info_t *sig_info);

/** Transmit power [90], LTE at status 5 and 6, NR 5G at 6 and 7. */
int32_t lyn_yrp_nas_get_tx_pwr_info(lyn_nas_tx_pwr_info_t *tx_pwr_info);

/** Modulation lists [90], LTE at status 5 and 6, NR 5G at 6 and 7. */
int32_t lyn_yrp_nas_get_mcs_info(lyn_nas_mcs_info_t *get_mcs_info);

/** RRC states [210], LTE at status 5 and 6, NR 5G at 6 and 7. */
int32_t lyn_yrp_nas_get_rrc_state(lyn_nas_rrc_state_t *get_rrc_status);

/** EN-DC mode [77], at status 5 only. */
int32_t lyn_yrp_nas_get_endc_mode(ox_lyn_endc_mode_t *get_endc_mode_info);

/** Sub-carrier spacing [77], at status 6 and 7. */
int32_t lyn_yrp_nas_get_scs_info(lyn_nas_scs_info_t *get_sub_carr_space_info);

/** Carrier aggregation [172], at status 5 only. */
int32_t lyn_yrp_nas_get_cphy_ca_info(lyn_nas_ca_info_t *get_cphy_ca_info);

/** RF bandwidths [49], LTE at status 5 and 6, NR 5G at 6 and 7 into the same fields. */
int32_t lyn_yrp_nas_get_rf_bw_info(lyn_nas_rf_bw_info_t *get_rf_bw_status);

/** CQI [307], LTE at status 5 and 6, NR 5G at 6 and 7. */
int32_t lyn_yrp_nas_get_cqi_info(lyn_nas_cqi_info_t *cqi_info);

/** Cell lock lists [346, 271], LTE at status 5 and 6, NR 5G at 6 and 7. */
int32_t lyn_yrp_nas_get_cell_lock_list(lyn_nas_cell_lock_list_t *cell_lock_list);

/* Configuration requests */

/** Set the lock lists [216 at status 5 and 6, 270 at 6 and 7]; -1 at any other status. */
int32_t lyn_yrp_nas_set_cell_lock_list(const lyn_nas_cell_lock_req_t *cell_lock_list);

/** De-prioritise NR 5G (1) or not (0) [295]; -1 unless the status is 6 or 7. */
int32_t lyn_yrp_nas_set_nr5g_deprioritize(uint8_t deprioritize);

/** Configure the mmW panel position service [277]. */
int32_t lyn_yrp_nas_set_pps_config(const ox_lyn_pps_config_t *pps_config);

/** Tell of a changed panel position [279]; -1 for a mode outside 1 to 3. */
int32_t lyn_yrp_nas_set_pps_change_status(const ox_lyn_pps_change_status_t *pps_change_status);

/** Start or stop install mode [333]. */
int32_t lyn_yrp_nas_set_install_mode(const ox_lyn_install_mode_t *install_mode);

/**
 * Start a neighbour scan [133], LTE where it is asked for, else NR 5G; its result comes as indication 133. The ongoing
 * byte of the radio that is scanned becomes 1, the other 0; both 0 where sending fails, untouched where a parameter
 * is bad (-2) or there is no memory (-3). At least one request and one byte.
 */
int32_t lyn_yrp_nas_incremental_scan(uint32_t lte_scan_request, uint8_t *lte_scan_ongoing, uint32_t nr5g_scan_request,
                                     uint8_t *nr5g_scan_ongoing);

#endif
