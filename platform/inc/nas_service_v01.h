/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Network access service (NAS) of the modem: message ids and structs of its YRP interface.
 *
 * A field `x_valid` says whether the optional field `x` behind it is present. `_len` is the number of entries used in
 * the list behind it. Units: RSRP dBm, RSRQ dB, SNR 0.1 dB. Enumerated values are the platform's own; the module
 * numbers most of them differently.
 */
#ifndef NAS_SERVICE_V01_H
#define NAS_SERVICE_V01_H

#include <stdint.h>

#include "yrp_client.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The service object for interface version `major`.`minor` and library version `tool`; null when not available. */
yrp_service_object_type nas_get_service_object_internal_v01(int32_t major, int32_t minor, int32_t tool);

/** Message ids. */
enum {
  YRP_NAS_INDICATION_REGISTER = 3,
  YRP_NAS_GET_RF_BAND_INFO = 49,
  YRP_NAS_GET_CELL_LOCATION_INFO = 67,
  YRP_NAS_GET_SYS_INFO = 77,
  YRP_NAS_SYS_INFO_IND = 78,
  YRP_NAS_GET_SIG_INFO = 79,
  YRP_NAS_SIG_INFO_IND = 81,
  YRP_NAS_GET_TX_RX_INFO = 90,
  YRP_NAS_CONFIG_SIG_INFO = 108,
  YRP_NAS_INCREMENTAL_NETWORK_SCAN = 133, /**< request, response and indication */
  YRP_NAS_GET_CPHY_CA_INFO = 172,
  YRP_NAS_GET_RRC_STATE = 210,
  YRP_NAS_SET_LTE_CELL_LOCK_LIST = 216,
  YRP_NAS_SET_NR5G_CELL_LOCK_LIST = 270,
  YRP_NAS_GET_NR5G_CELL_LOCK_LIST = 271,
  YRP_NAS_SET_PPS_CONFIG = 277,
  YRP_NAS_PPS_IND = 278,
  YRP_NAS_SET_PPS_CHANGE_STATUS = 279,
  YRP_NAS_SET_NR5G_DEPRIORITIZE = 295,
  YRP_NAS_GET_CQI_INFO = 307,
  YRP_NAS_SET_INSTALL_MODE = 333,
  YRP_NAS_INSTALL_FREQ_IND = 334,
  YRP_NAS_INSTALL_STATUS_IND = 335,
  YRP_NAS_GET_LTE_CELL_LOCK_LIST = 346
};

/** Capacities of the lists. */
enum {
  YRP_NAS_RF_BAND_MAX = 16,
  YRP_NAS_MOD_MAX = 2,
  YRP_NAS_LTE_CC_MAX = 7,
  YRP_NAS_NR5G_CC_MAX = 12,
  YRP_NAS_CW_MAX = 4,
  YRP_NAS_LTE_LOCK_SET_MAX = 120,
  YRP_NAS_LTE_LOCK_GET_MAX = 60,
  YRP_NAS_NR5G_LOCK_MAX = 32,
  YRP_NAS_FREQ_MAX = 16,
  YRP_NAS_LTE_NBR_MAX = 5,
  YRP_NAS_NR5G_NBR_MAX = 10,
  YRP_NAS_LTE_PLMN_MAX = 4,
  YRP_NAS_NR5G_PLMN_MAX = 12,
  YRP_NAS_NR5G_CGI_MAX = 11
};

/** srv_status. */
enum {
  YRP_NAS_SRV_NO_SERVICE = 0,
  YRP_NAS_SRV_LIMITED = 1,
  YRP_NAS_SRV_SERVICE = 2,
  YRP_NAS_SRV_LIMITED_REGIONAL = 3,
  YRP_NAS_SRV_POWER_SAVE = 4
};

/** radio_if of message 90. */
enum { YRP_NAS_RADIO_IF_LTE = 8, YRP_NAS_RADIO_IF_NR5G = 12 };

/** radio_if of message 307. */
enum { YRP_NAS_CQI_RADIO_NR5G = 0, YRP_NAS_CQI_RADIO_LTE = 1 };

/** network_type and scan_type of message 133. */
enum { YRP_NAS_NETWORK_TYPE_LTE = 4, YRP_NAS_NETWORK_TYPE_NR5G = 16, YRP_NAS_SCAN_TYPE_PCI_EXT = 5 };

/** Request without fields: one octet, 0. */
typedef struct {
  uint8_t reserved;
} yrp_nas_empty_req_t;

/** Response without fields. */
typedef struct {
  yrp_response_type_v01 resp;
} yrp_nas_resp_t;

/** Response of messages 277 and 333. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t status_valid;
  uint32_t status;
} yrp_nas_status_resp_t; /* = 16 */

/** Message 3: which indications the client wants, 1 on, 0 off; a field that is not valid leaves its setting alone. */
typedef struct {
  uint8_t sys_info_valid, sys_info;                                 /**< 78 */
  uint8_t sig_info_valid, sig_info;                                 /**< 81 */
  uint8_t reg_panel_pos_change_ind_valid, reg_panel_pos_change_ind; /**< 278 */
  uint8_t reg_install_meas_ind_valid, reg_install_meas_ind;         /**< 334 */
  uint8_t reg_install_status_ind_valid, reg_install_status_ind;     /**< 335 */
} yrp_nas_indication_register_req_t;

/** Message 49. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_rf_bandwidth_valid;
  uint32_t lte_rf_bandwidth_len;
  uint32_t lte_rf_bandwidth[YRP_NAS_RF_BAND_MAX];
  uint8_t nr5g_rf_bandwidth_valid;
  uint32_t nr5g_rf_bandwidth_len;
  uint32_t nr5g_rf_bandwidth[YRP_NAS_RF_BAND_MAX];
} yrp_nas_rf_band_info_resp_t;

/** Message 67. PLMN and TAC octets are in the order of the air interface. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_intra_valid;
  struct {
    uint16_t earfcn, pci, tac;
    uint32_t cgi;
    uint8_t plmn_id[3];
    int16_t rsrp, rsrq;
  } lte_intra;
  uint8_t nr5g_arfcn_valid;
  uint64_t nr5g_arfcn;
  uint8_t nr5g_serving_cell_info_valid;
  struct {
    uint16_t pci;
    uint64_t cgi;
    int16_t rsrp, rsrq, snr;
    uint8_t plmn_id[3], tac[3];
  } nr5g_serving_cell_info;
} yrp_nas_cell_location_info_resp_t;

/** Service state of one radio, inside messages 77 and 78. */
typedef struct {
  uint32_t srv_status, srv_domain, srv_capability;
} yrp_nas_srv_status_info_t;

/** Message 77. nr5g_pci is reported with the LTE system information (EN-DC). */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_srv_status_info_valid;
  yrp_nas_srv_status_info_t lte_srv_status_info;
  uint8_t nr5g_srv_status_info_valid;
  yrp_nas_srv_status_info_t nr5g_srv_status_info;
  uint8_t nr5g_pci_valid;
  uint16_t nr5g_pci;
  uint8_t endc_available_valid, endc_available;
  uint8_t restrict_dcnr_valid, restrict_dcnr;
  uint8_t nr5g_scs_valid;
  uint32_t nr5g_scs; /**< 0: 15 kHz, doubling up to 4: 240 kHz */
} yrp_nas_sys_info_resp_t;

/** Record 78, system information. */
typedef struct {
  uint8_t lte_srv_status_info_valid;
  yrp_nas_srv_status_info_t lte_srv_status_info;
  uint8_t nr5g_srv_status_info_valid;
  yrp_nas_srv_status_info_t nr5g_srv_status_info;
  uint8_t nr5g_pci_valid;
  uint16_t nr5g_pci;
} yrp_nas_sys_info_ind_t;

/** Message 79. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_sig_info_valid;
  struct {
    int8_t rssi, rsrq;
    int16_t rsrp, snr;
  } lte_sig_info;
  uint8_t nr5g_sig_info_valid;
  struct {
    int16_t rsrp, snr;
  } nr5g_sig_info;
  uint8_t nr5g_rsrq_valid;
  int16_t nr5g_rsrq;
} yrp_nas_sig_info_resp_t;

/** Record 81, signal information. */
typedef struct {
  uint8_t lte_sig_info_valid;
  struct {
    int16_t rsrp, snr;
    int8_t rsrq;
  } lte_sig_info;
  uint8_t nr5g_sig_info_valid;
  struct {
    int16_t rsrp, snr;
  } nr5g_sig_info;
  uint8_t nr5g_rsrq_valid;
  int16_t nr5g_rsrq;
} yrp_nas_sig_info_ind_t;

/** Message 90. */
typedef struct {
  uint32_t radio_if; /**< YRP_NAS_RADIO_IF_LTE or _NR5G */
} yrp_nas_tx_rx_info_req_t;

/** Message 90. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t tx_valid;
  int32_t tx_pwr; /**< 0.1 dBm */
  uint8_t downlink_mod_valid;
  uint32_t downlink_mod_len;
  uint32_t downlink_mod[YRP_NAS_MOD_MAX]; /**< one per stream */
  uint8_t uplink_mod_valid;
  uint32_t uplink_mod_len;
  uint32_t uplink_mod[YRP_NAS_MOD_MAX];
} yrp_nas_tx_rx_info_resp_t;

/** Message 108: reporting steps of indication 81; a delta that is not valid switches the value's reports off. */
typedef struct {
  uint8_t lte_snr_delta_valid;
  uint16_t lte_snr_delta; /**< 0.1 dB */
  uint8_t lte_rsrq_delta_valid;
  uint16_t lte_rsrq_delta; /**< dB */
  uint8_t lte_rsrp_delta_valid;
  uint16_t lte_rsrp_delta; /**< dB */
  uint8_t nr5g_snr_delta_valid;
  uint16_t nr5g_snr_delta; /**< 0.1 dB */
  uint8_t nr5g_rsrp_delta_valid;
  uint16_t nr5g_rsrp_delta; /**< dB */
  uint8_t nr5g_rsrq_delta_valid;
  uint16_t nr5g_rsrq_delta; /**< dB */
} yrp_nas_config_sig_info_req_t;

/** Message 133. */
typedef struct {
  uint8_t network_type_valid, network_type;
  uint8_t scan_type_valid;
  uint32_t scan_type;
} yrp_nas_incremental_scan_req_t;

/** One PLMN as the platform writes it, inside record 133. */
typedef struct {
  uint16_t plmn_mcc, plmn_mnc;
  uint8_t plmn_mnc_includes_pcs_digit;
} yrp_nas_plmn_t;

/** Record 133, incremental scan result. */
typedef struct {
  uint32_t scan_status; /**< 0 success */
  uint8_t lte_nbr_info_valid;
  uint32_t lte_nbr_count;
  struct {
    uint32_t earfcn;
    uint16_t pci;
    uint32_t cgi, plmn_count;
    yrp_nas_plmn_t plmn[YRP_NAS_LTE_PLMN_MAX];
  } lte_nbr[YRP_NAS_LTE_NBR_MAX];
  struct {
    uint32_t earfcn;
    uint16_t pci;
    int16_t rsrp, rsrq;
  } lte_highest_signal_nbr; /**< comes with the LTE neighbour information */
  uint8_t nr5g_nbr_info_valid;
  uint32_t nr5g_nbr_count;
  struct {
    int16_t rsrp;
    uint32_t earfcn;
    uint16_t pci;
    uint32_t cgi_count;
    uint64_t cgi[YRP_NAS_NR5G_CGI_MAX];
    uint32_t plmn_count;
    yrp_nas_plmn_t plmn[YRP_NAS_NR5G_PLMN_MAX];
  } nr5g_nbr[YRP_NAS_NR5G_NBR_MAX];
} yrp_nas_incremental_scan_ind_t;

/** Message 172. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t dl_bandwidth_valid;
  uint32_t dl_bandwidth; /**< code 0 to 5 of the primary cell's downlink bandwidth */
} yrp_nas_cphy_ca_info_resp_t;

/** Message 210. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_rrc_state_valid;
  uint32_t lte_rrc_state; /**< 1 to 5 */
  uint8_t nr5g_rrc_state_valid;
  uint32_t nr5g_rrc_state; /**< 0 to 2 */
} yrp_nas_rrc_state_resp_t;

/** One LTE cell of a lock list. */
typedef struct {
  uint16_t pci, freq;
} yrp_nas_lte_lock_cell_t;

/** One frequency of an NR 5G lock; scs 0 to 4. */
typedef struct {
  uint32_t arfcn, scs;
} yrp_nas_nr5g_lock_arfcn_t;

/** Message 216. */
typedef struct {
  uint32_t lte_cell_list_len;
  yrp_nas_lte_lock_cell_t lte_cell_list[YRP_NAS_LTE_LOCK_SET_MAX];
  uint8_t enforce_valid, enforce;
} yrp_nas_set_lte_cell_lock_list_req_t;

/** Message 270. type: 0 one cell, 1 list of ARFCNs, 2 unlock. */
typedef struct {
  uint32_t type;
  uint8_t cell_identity_valid;
  struct {
    uint16_t pci;
    uint32_t scs, arfcn;
    uint8_t blocks[4][16]; /**< band mask, bands 1 to 512 */
  } cell_identity;
  uint8_t arfcn_list_valid;
  uint32_t arfcn_list_len;
  yrp_nas_nr5g_lock_arfcn_t arfcn_list[YRP_NAS_NR5G_LOCK_MAX];
} yrp_nas_set_nr5g_cell_lock_list_req_t;

/** Message 271. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t type_valid;
  uint32_t type;
  uint8_t cell_identity_valid;
  struct {
    uint16_t pci;
    uint32_t arfcn, scs;
  } cell_identity;
  uint8_t arfcn_identity_valid;
  uint32_t arfcn_list_len;
  yrp_nas_nr5g_lock_arfcn_t arfcn_list[YRP_NAS_NR5G_LOCK_MAX];
} yrp_nas_nr5g_cell_lock_list_resp_t;

/** Message 346. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_cell_list_valid;
  uint32_t lte_cell_list_len;
  yrp_nas_lte_lock_cell_t lte_cell_list[YRP_NAS_LTE_LOCK_GET_MAX];
} yrp_nas_lte_cell_lock_list_resp_t;

/** One frequency of messages 277 and 333; scs 0 to 4. */
typedef struct {
  uint32_t arfcn, band, scs;
} yrp_nas_freq_t;

/** Message 277. */
typedef struct {
  uint8_t position_index, pps_mode_enabled;
  uint8_t freq_list_valid;
  uint32_t freq_list_len;
  yrp_nas_freq_t freq_list[YRP_NAS_FREQ_MAX];
} yrp_nas_set_pps_config_req_t;

/** Record 278, panel position. mode_index: 0 to 3. */
typedef struct {
  uint8_t position_index, position_changed;
  uint32_t mode_index;
} yrp_nas_pps_ind_t; /* = 8 */

/** Message 279: the two octets stand in the other order than in the module's record. pps_mode: 0 to 2. */
typedef struct {
  uint8_t position_index, position_changed;
  uint32_t pps_mode;
} yrp_nas_set_pps_change_status_req_t;

/** Message 295: 1 de-prioritises NR 5G. */
typedef struct {
  uint8_t deprioritize;
} yrp_nas_set_nr5g_deprioritize_req_t;

/** Message 307. */
typedef struct {
  uint8_t radio_if_valid;
  uint32_t radio_if; /**< YRP_NAS_CQI_RADIO_LTE or _NR5G */
} yrp_nas_cqi_info_req_t;

/** CQI of one component carrier, inside message 307. */
typedef struct {
  uint32_t cw_cqi_len;
  uint8_t cw_cqi[YRP_NAS_CW_MAX]; /**< one per codeword, 0 to 15 */
} yrp_nas_cc_cqi_t;

/** Message 307. */
typedef struct {
  yrp_response_type_v01 resp;
  uint8_t lte_cc_cqi_valid;
  uint32_t lte_cc_cqi_len;
  yrp_nas_cc_cqi_t lte_cc_cqi[YRP_NAS_LTE_CC_MAX];
  uint8_t nr5g_cc_cqi_valid;
  uint32_t nr5g_cc_cqi_len;
  yrp_nas_cc_cqi_t nr5g_cc_cqi[YRP_NAS_NR5G_CC_MAX];
} yrp_nas_cqi_info_resp_t;

/** Message 333. mode: 0 start, 1 stop. */
typedef struct {
  uint32_t mode;
  uint8_t freq_list_valid;
  uint32_t freq_list_len;
  yrp_nas_freq_t freq_list[YRP_NAS_FREQ_MAX];
} yrp_nas_set_install_mode_req_t;

/** Record 334, install measurement. The list may be filled where freq_valid is 0. scs 0 to 4. */
typedef struct {
  uint8_t freq_valid;
  uint32_t freq_len;
  struct {
    uint32_t arfcn, band, scs;
    int16_t rsrp, snr;
  } freqs[YRP_NAS_FREQ_MAX];
} yrp_nas_install_freq_ind_t;

/** Record 335, install status. */
typedef struct {
  uint8_t valid;
  uint32_t status;
} yrp_nas_install_status_ind_t; /* = 8 */

#ifdef __cplusplus
static_assert(sizeof(yrp_nas_resp_t) == 8);
static_assert(sizeof(yrp_nas_status_resp_t) == 16);
static_assert(sizeof(yrp_nas_pps_ind_t) == 8);
static_assert(sizeof(yrp_nas_install_status_ind_t) == 8);
}
#endif

#endif
