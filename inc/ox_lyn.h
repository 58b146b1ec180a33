/* SPDX-License-Identifier: Apache-2.0 */
/*
 * LYN Device Manager: the public API (of the caller).
 *
 * The module gathers LTE and NR 5G radio metrics, locations and data-path figures from a cellular modem board,
 * configures radio features, and delivers indications and asynchronous results to one callback.
 *
 *   ox_lyn_hndl_t hndl;
 *   if (ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS) {
 *     ox_lyn_dm_info_t info = {.record_type = OX_LYN_RECORD_GET_E, .metric = OX_LYN_GET_LTE_SERV_RSRP_E};
 *     if (ox_lyn_get_info(hndl, &info) == OX_LYN_SUCCESS)
 *       printf("LTE RSRP %lld dBm\n", (long long)info.value.i64);
 *     ox_lyn_deinit(hndl);
 *   }
 *
 * Threads: every operation may be called from any thread but the callback's. Operations are serialised by one lock, in
 * the order of their coming with at most one event in between, and hold it while they talk to the modem: a call may
 * block for up to 50 s per modem request (the request's time-out; a metric, a control or a subscription is at most
 * three), and before that for as long as the calls and the event ahead of it need. The mobile AP and location services
 * have time-outs of their own. The callback runs on the module's own command thread, one event at a time, in the order
 * in which the events happened; it runs under the same lock and must not call any operation. The same thread, under the
 * same lock, sends what an event asks of the module itself: the NR 5G scan behind an LTE one (up to 50 s), the start,
 * teardown and second configuration of a throughput test.
 *
 * Memory: records and parameter blocks handed in belong to the caller and are not kept. Blocks that the module hands
 * out are made with malloc or calloc and released by their receiver with free(); each declaration says which ones.
 *
 * Statuses that every operation but ox_lyn_init shares: OX_LYN_ERR_INVALID_PARAM for a handle of 0 or one that is not
 * the module's, and OX_LYN_ERR_NOT_INITIALIZED where the handle still matches but the module is down, which is
 * seen only after a de-initialisation that failed half way. Both checks come first, in this order.
 *
 * This is a C header (C11); it compiles as C++20 too. Sizes and offsets of all blocks are part of the interface and are
 * asserted here for 64-bit little-endian Linux.
 *
 * History
 *   0.1  first version
 */
#ifndef OX_LYN_H
#define OX_LYN_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Raised when programs that were built before would break. */
#define OX_LYN_VERSION_MAJOR 0
/** Raised when something is added. */
#define OX_LYN_VERSION_MINOR 1
/** Raised when something is mended. */
#define OX_LYN_VERSION_PATCH 0
/** One comparable number: 0x00MMmmpp. */
#define OX_LYN_VERSION ((OX_LYN_VERSION_MAJOR << 16) | (OX_LYN_VERSION_MINOR << 8) | OX_LYN_VERSION_PATCH)

/* Vocabulary */

/** Module handle: drawn by ox_lyn_init, never 0 while valid. There is one module per process. */
typedef uint32_t ox_lyn_hndl_t;

/** Status of every operation. Other negative values of the modem's clients are passed up unchanged. */
typedef enum {
  OX_LYN_SUCCESS = 0,                   /**< done; for an asynchronous metric: accepted */
  OX_LYN_ERR_FAILURE = -1,              /**< a request to the modem, an allocation or the queue failed */
  OX_LYN_ERR_INVALID_PARAM = -2,        /**< bad handle, null or wrong record, missing buffer, value out of range */
  OX_LYN_ERR_NO_MEMORY = -3,            /**< a request buffer could not be allocated */
  OX_LYN_ERR_INSUFFICIENT_BUFFER = -4,  /**< the caller's list is too short */
  OX_LYN_ERR_BUSY = -5,                 /**< a request of the same kind is still ongoing */
  OX_LYN_ERR_NOT_SUPPORTED = -7,        /**< metric, control or indication outside the catalogue */
  OX_LYN_ERR_NOT_INITIALIZED = -12,     /**< the module (or its modem client) is down */
  OX_LYN_ERR_ALREADY_INITIALIZED = -13, /**< ox_lyn_init on a module that is up */
  OX_LYN_ERR_SERVICE_UNAVAILABLE = -16, /**< neither LTE nor NR 5G is in service */
  OX_LYN_ERR_INFO_UNAVAILABLE = -17     /**< the modem's answer lacks the item asked for */
} ox_lyn_status_e;

/** First word of every record. */
typedef enum {
  OX_LYN_RECORD_GET_E = 1,   /**< get-info record, handed in */
  OX_LYN_RECORD_ASYNC_E = 2, /**< asynchronous response, delivered */
  OX_LYN_RECORD_IND_E = 3    /**< indication: subscription record handed in, or event delivered */
} ox_lyn_record_type_e;

/** What the value union of a record holds. The numbers are fixed; the gaps are unused. */
typedef enum {
  OX_LYN_VALUE_NONE_E = 0,      /**< not given: read the value as the metric's row below says */
  OX_LYN_VALUE_INT64_E = 2,     /**< i64; delivered indications 9, 10, 11 and 13 carry it too, with a block in ptr */
  OX_LYN_VALUE_UINT32_E = 4,    /**< u32, upper half of i64 zero */
  OX_LYN_VALUE_ARRAY_E = 6,     /**< i64_array, count elements */
  OX_LYN_VALUE_CQI_E = 7,       /**< ox_lyn_lte_cqi_t or ox_lyn_nr5g_cqi_t in the caller's buffer at ptr */
  OX_LYN_VALUE_CELL_LOCK_E = 8, /**< ox_lyn_lte_cell_lock_t or ox_lyn_nr5g_cell_lock_t in the caller's buffer at ptr */
  OX_LYN_VALUE_LTE_NBR_E = 9,   /**< ptr to an ox_lyn_lte_nbr_info_t */
  OX_LYN_VALUE_NR5G_NBR_E = 10, /**< ptr to an ox_lyn_nr5g_nbr_info_t */
  OX_LYN_VALUE_LOCATION_E = 12  /**< ptr to an ox_lyn_loc_single_shot_t or ox_lyn_loc_batch_t */
} ox_lyn_value_type_e;

/**
 * Registration status: the value of metric 1 and of indication 2. NR 5G in service decides, then LTE in service; 2 to 4
 * are those of a radio that is not in full service, LTE's before NR 5G's.
 */
typedef enum {
  OX_LYN_REG_NO_SERVICE_E = 1,
  OX_LYN_REG_POWER_SAVE_E = 2,
  OX_LYN_REG_LIMITED_E = 3,
  OX_LYN_REG_LIMITED_REGIONAL_E = 4,
  OX_LYN_REG_LTE_E = 5,      /**< LTE in service, no NR 5G cell attached */
  OX_LYN_REG_LTE_NR5G_E = 6, /**< LTE in service with an NR 5G cell (EN-DC) */
  OX_LYN_REG_NR5G_E = 7      /**< NR 5G in service */
} ox_lyn_reg_status_e;

/**
 * Metrics of ox_lyn_get_info. Behind each: value type, value and unit, and the modem message it comes from.
 *
 * Of metrics 2 to 21, 33 and 34 what the modem does not report is OX_LYN_ERR_INFO_UNAVAILABLE. From 16 on, but for 18
 * and 19, LTE is asked at registration status 5 and 6 and NR 5G at 6 and 7. Of a radio that is not asked, 16, 17, 20,
 * 21, 33 and 34 are unavailable, too, 35 and 36 are OX_LYN_ERR_FAILURE with a block of zeros, and 39 to 41 are 0.
 * Metrics 37 and 38 are asked for at status 5 only: at 6 and 7 they are 0 and a block of zeros. Metrics 42 and 43 share
 * one list: NR 5G's where the modem reports one, else LTE's.
 */
typedef enum {
  OX_LYN_GET_INVALID_E = 0,             /**< refused */
  OX_LYN_GET_REG_STATUS_E = 1,          /**< 4: u32, ox_lyn_reg_status_e (NAS 77) */
  OX_LYN_GET_LTE_SERV_EARFCN_E = 2,     /**< 2: EARFCN, 16 bits (NAS 67) */
  OX_LYN_GET_NR5G_SERV_EARFCN_E = 3,    /**< 2: NR-ARFCN (NAS 67) */
  OX_LYN_GET_LTE_SERV_PCI_E = 4,        /**< 2: PCI, 0 to 503 (NAS 67) */
  OX_LYN_GET_NR5G_SERV_PCI_E = 5,       /**< 2: PCI, 0 to 1007 (NAS 67; in EN-DC NAS 77) */
  OX_LYN_GET_LTE_SERV_CGI_E = 6,        /**< 2: E-UTRAN cell identity, 28 bits (NAS 67) */
  OX_LYN_GET_NR5G_SERV_CGI_E = 7,       /**< 2: NR cell identity, 36 bits (NAS 67) */
  OX_LYN_GET_LTE_SERV_PLMN_E = 8,       /**< 6: the three PLMN octets, 3GPP TS 24.008 coding (NAS 67) */
  OX_LYN_GET_NR5G_SERV_PLMN_E = 9,      /**< 6: the three PLMN octets (NAS 67) */
  OX_LYN_GET_LTE_SERV_RSRP_E = 10,      /**< 2: dBm (NAS 79) */
  OX_LYN_GET_NR5G_SERV_RSRP_E = 11,     /**< 2: dBm (NAS 79) */
  OX_LYN_GET_LTE_SERV_RSRQ_E = 12,      /**< 2: dB (NAS 79) */
  OX_LYN_GET_NR5G_SERV_RSRQ_E = 13,     /**< 2: dB (NAS 79) */
  OX_LYN_GET_LTE_SERV_SINR_E = 14,      /**< 2: 0.1 dB (NAS 79) */
  OX_LYN_GET_NR5G_SERV_SINR_E = 15,     /**< 2: 0.1 dB (NAS 79) */
  OX_LYN_GET_LTE_SERV_CQI_E = 16,       /**< 7: ox_lyn_lte_cqi_t, the caller's buffer at ptr (NAS 307) */
  OX_LYN_GET_NR5G_SERV_CQI_E = 17,      /**< 7: ox_lyn_nr5g_cqi_t, the caller's buffer at ptr (NAS 307) */
  OX_LYN_GET_LTE_SERV_TAC_E = 18,       /**< 2: TAC, 16 bits (NAS 67) */
  OX_LYN_GET_NR5G_SERV_TAC_E = 19,      /**< 6: the three TAC octets (NAS 67) */
  OX_LYN_GET_LTE_SERV_TX_POWER_E = 20,  /**< 2: as the modem reports it, 0.1 dBm (NAS 90) */
  OX_LYN_GET_NR5G_SERV_TX_POWER_E = 21, /**< 2: as the modem reports it, 0.1 dBm (NAS 90) */
  OX_LYN_GET_LTE_NBR_EARFCN_E = 22,     /**< 22 to 32: a neighbour scan (NAS 133), answered later by an */
  OX_LYN_GET_NR5G_NBR_EARFCN_E = 23,    /**< asynchronous response: OX_LYN_ASYNC_LTE_NBR_INFO_E for the LTE */
  OX_LYN_GET_LTE_NBR_PCI_E = 24,        /**< metrics, OX_LYN_ASYNC_NR5G_NBR_INFO_E for the NR 5G ones, with the */
  OX_LYN_GET_NR5G_NBR_PCI_E = 25,       /**< items asked for filled. There is no NR 5G neighbour RSRQ. */
  OX_LYN_GET_LTE_NBR_CGI_E = 26,
  OX_LYN_GET_NR5G_NBR_CGI_E = 27,
  OX_LYN_GET_LTE_NBR_PLMN_E = 28,
  OX_LYN_GET_NR5G_NBR_PLMN_E = 29,
  OX_LYN_GET_LTE_NBR_RSRP_E = 30,
  OX_LYN_GET_NR5G_NBR_RSRP_E = 31,
  OX_LYN_GET_LTE_NBR_RSRQ_E = 32,
  OX_LYN_GET_LTE_CELL_LOCK_LIST_E = 33,   /**< 8: ox_lyn_lte_cell_lock_t, the caller's buffer at ptr (NAS 346) */
  OX_LYN_GET_NR5G_CELL_LOCK_LIST_E = 34,  /**< 8: ox_lyn_nr5g_cell_lock_t, the caller's buffer at ptr (NAS 271) */
  OX_LYN_GET_LTE_MCS_E = 35,              /**< 0: ptr to an ox_lyn_mcs_t that the caller frees (NAS 90) */
  OX_LYN_GET_NR5G_MCS_E = 36,             /**< 0: ptr to an ox_lyn_mcs_t that the caller frees (NAS 90) */
  OX_LYN_GET_LTE_CA_STATS_E = 37,         /**< 2: ox_lyn_ca_bandwidth_e (NAS 172) */
  OX_LYN_GET_LTE_ENDC_MODE_E = 38,        /**< 0: ptr to an ox_lyn_endc_mode_t that the caller frees (NAS 77). Without
                                               memory for it the call is OX_LYN_SUCCESS all the same, ptr stays as it
                                               was (hand it in as null), and the module stays locked: every later call
                                               blocks for ever, and so does the list that the metric is in */
  OX_LYN_GET_LTE_RRC_STATE_E = 39,        /**< 0: u32, ox_lyn_rrc_state_e, of LTE (NAS 210) */
  OX_LYN_GET_NR5G_RRC_STATE_E = 40,       /**< 0: u32, ox_lyn_rrc_state_e, of NR 5G (NAS 210) */
  OX_LYN_GET_NR5G_SCS_E = 41,             /**< 0: u32, ox_lyn_scs_e (NAS 77) */
  OX_LYN_GET_LTE_RF_BANDWIDTH_E = 42,     /**< 0: i64_array, count (0 to 16) ox_lyn_rf_bandwidth_e (NAS 49) */
  OX_LYN_GET_NR5G_RF_BANDWIDTH_E = 43,    /**< 0: the same */
  OX_LYN_GET_WWAN_PROFILE_INDEX_E = 44,   /**< 0: ptr to an ox_lyn_wwan_profile_list_t that the caller frees */
  OX_LYN_GET_IPV4_STATS_E = 45,           /**< 0: in i64 the profile handle, a profile_index of metric 44, which the
                                               call selects on the mobile AP; out ptr to an ox_lyn_wwan_stats_t that
                                               the caller frees */
  OX_LYN_GET_IPV6_STATS_E = 46,           /**< 0: the same */
  OX_LYN_GET_MTPE_SERVER_CONFIG_E = 47,   /**< 0: in ptr to an ox_lyn_mtpe_net_params_t of the caller's; out ptr to an
                                               ox_lyn_mtpe_server_config_t that the caller frees */
  OX_LYN_GET_MTPE_LTE_INFO_E = 48,        /**< 0: ptr to an ox_lyn_mtpe_req_t; results follow as indications 9 */
  OX_LYN_GET_MTPE_NR5G_INFO_E = 49,       /**< 0: the same */
  OX_LYN_GET_LOC_SINGLE_SHOT_E = 50,      /**< 0: ptr to an ox_lyn_loc_single_shot_req_t; async 3 follows, but not where
                                               the time-out comes before a fix: stop it then (control 1) */
  OX_LYN_GET_LOC_ROUTINE_BATCHING_E = 51, /**< 0: ptr to an ox_lyn_loc_batching_req_t; async 4 follow. It runs until it
                                               is stopped (control 2), even where they report a refusal or an end */
  OX_LYN_GET_IPV4_QOS_TFT_E = 52,         /**< 0: no value; indication 10 follows */
  OX_LYN_GET_IPV6_QOS_TFT_E = 53          /**< 0: no value; indication 10 follows */
} ox_lyn_get_info_e;

/**
 * Controls of ox_lyn_set_info. Behind each: what the value union holds, and the modem message it becomes. Controls 3
 * to 5 depend on the registration status that the module saw last: at its start, in ox_lyn_get_info or in an event.
 */
typedef enum {
  OX_LYN_SET_INVALID_E = 0,                   /**< refused */
  OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E = 1,      /**< nothing; the request is over when async 3 has come */
  OX_LYN_SET_LOC_ROUTINE_BATCHING_STOP_E = 2, /**< nothing */
  OX_LYN_SET_LTE_CELL_LOCK_LIST_E = 3,        /**< ptr to an ox_lyn_lte_cell_lock_t (NAS 216). Done at status 5 only; at
                                                   6 the modem takes the list, and the call fails all the same */
  OX_LYN_SET_NR5G_CELL_LOCK_LIST_E = 4,       /**< ptr to an ox_lyn_nr5g_cell_lock_t (NAS 270). At status 7 only */
  OX_LYN_SET_NR5G_DEPRIORITIZE_E = 5,         /**< u8: 1 de-prioritises NR 5G, 0 restores it (NAS 295). At status 6
                                                   and 7 only */
  OX_LYN_SET_MMW_PPS_CONFIG_E = 6,            /**< ptr to an ox_lyn_pps_config_t (NAS 277) */
  OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E = 7,     /**< ptr to an ox_lyn_pps_change_status_t (NAS 279) */
  OX_LYN_SET_INSTALL_MODE_E = 8               /**< ptr to an ox_lyn_install_mode_t (NAS 333); indications 12 and 13
                                                   follow */
} ox_lyn_set_info_e;

/** Indications. 1 to 8 are delivered while subscribed; 9 to 13 whenever they happen. */
typedef enum {
  OX_LYN_IND_INVALID_E = 0,                /**< refused */
  OX_LYN_IND_MODEM_STATUS_E = 1,           /**< 4: u32, ox_lyn_modem_status_e */
  OX_LYN_IND_REG_STATUS_E = 2,             /**< 4: u32, ox_lyn_reg_status_e (NAS 78); not where ox_lyn_get_info saw the
                                                change first */
  OX_LYN_IND_LTE_RSRP_E = 3,               /**< 2: i64, dBm (NAS 81, as all up to 8) */
  OX_LYN_IND_NR5G_RSRP_E = 4,              /**< 2: i64, dBm */
  OX_LYN_IND_LTE_RSRQ_E = 5,               /**< 2: i64, dB */
  OX_LYN_IND_NR5G_RSRQ_E = 6,              /**< 2: i64, dB */
  OX_LYN_IND_LTE_SINR_E = 7,               /**< 2: i64, 0.1 dB */
  OX_LYN_IND_NR5G_SINR_E = 8,              /**< 2: i64, 0.1 dB */
  OX_LYN_IND_MTPE_STATUS_E = 9,            /**< 2: ptr to an ox_lyn_mtpe_status_t */
  OX_LYN_IND_QOS_FLOW_E = 10,              /**< 2: ptr to an ox_lyn_qos_flow_t */
  OX_LYN_IND_PPS_CHANGE_E = 11,            /**< 2: ptr to an ox_lyn_pps_ind_t (NAS 278) */
  OX_LYN_IND_INSTALL_MODE_STATUS_E = 12,   /**< 2: i64, install-mode status code of the modem (NAS 335) */
  OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E = 13 /**< 2: ptr to an ox_lyn_install_freq_list_t (NAS 334) */
} ox_lyn_ind_e;

/** Value of indication 1. */
typedef enum { OX_LYN_MODEM_DOWN_E = 8, OX_LYN_MODEM_UP_E = 9 } ox_lyn_modem_status_e;

/**
 * Asynchronous responses: the answers to metrics 22 to 32, 50 and 51. A scan's answer that nobody asked for comes as
 * OX_LYN_ASYNC_NR5G_NBR_INFO_E.
 */
typedef enum {
  OX_LYN_ASYNC_INVALID_E = 0,
  OX_LYN_ASYNC_LTE_NBR_INFO_E = 1,    /**< 9: ptr to an ox_lyn_lte_nbr_info_t; 0 without a block: the scan failed */
  OX_LYN_ASYNC_NR5G_NBR_INFO_E = 2,   /**< 10: ptr to an ox_lyn_nr5g_nbr_info_t; 0 without a block: the scan failed */
  OX_LYN_ASYNC_LOC_SINGLE_SHOT_E = 3, /**< 12: ptr to an ox_lyn_loc_single_shot_t */
  OX_LYN_ASYNC_LOC_BATCH_E = 4        /**< 12: ptr to an ox_lyn_loc_batch_t with a locations array of its own */
} ox_lyn_async_resp_e;

/*
 * Values of metrics, records and blocks. Their members are integers of a fixed width; each one's comment names its
 * enumeration. An item of the modem's for which only a range of codes is known has the names of 3GPP's list of the same
 * length, in its order, or where 3GPP has no such list the modem's code as its name.
 */

/** Sub-carrier spacing as the API numbers it. */
typedef enum {
  OX_LYN_SCS_INVALID_E = -1, /**< unknown in indication 13, whose u32 then is 0xFFFFFFFF */
  OX_LYN_SCS_UNKNOWN_E = 0,  /**< unknown; in a control 15 kHz */
  OX_LYN_SCS_15_KHZ_E = 1,
  OX_LYN_SCS_30_KHZ_E = 2,
  OX_LYN_SCS_60_KHZ_E = 3,
  OX_LYN_SCS_120_KHZ_E = 4,
  OX_LYN_SCS_240_KHZ_E = 5
} ox_lyn_scs_e;

/** RRC state, values of metrics 39 and 40: both radios share one numbering. NR 5G's are those of TS 38.331. */
typedef enum {
  OX_LYN_RRC_UNKNOWN_E = 0,
  OX_LYN_RRC_LTE_1_E = 2, /**< LTE: the modem's states 1 to 5 */
  OX_LYN_RRC_LTE_2_E = 3,
  OX_LYN_RRC_LTE_3_E = 4,
  OX_LYN_RRC_LTE_4_E = 5,
  OX_LYN_RRC_LTE_5_E = 6,
  OX_LYN_RRC_NR5G_IDLE_E = 7, /**< NR 5G: the modem's states 0 to 2 */
  OX_LYN_RRC_NR5G_INACTIVE_E = 8,
  OX_LYN_RRC_NR5G_CONNECTED_E = 9
} ox_lyn_rrc_state_e;

/** Modulation of an LTE stream, metric 35: the modem's code plus 1, in the order of TS 36.211. */
typedef enum {
  OX_LYN_LTE_MOD_BPSK_E = 1,
  OX_LYN_LTE_MOD_QPSK_E = 2,
  OX_LYN_LTE_MOD_16QAM_E = 3,
  OX_LYN_LTE_MOD_64QAM_E = 4,
  OX_LYN_LTE_MOD_256QAM_E = 5,
  OX_LYN_LTE_MOD_1024QAM_E = 6,
  OX_LYN_LTE_MOD_UNKNOWN_E = 255
} ox_lyn_lte_mod_e;

/** Modulation of an NR 5G stream, metric 36: the modem's code plus 1, in the order of the data channels of TS 38.211.
 */
typedef enum {
  OX_LYN_NR5G_MOD_PI_2_BPSK_E = 1,
  OX_LYN_NR5G_MOD_QPSK_E = 2,
  OX_LYN_NR5G_MOD_16QAM_E = 3,
  OX_LYN_NR5G_MOD_64QAM_E = 4,
  OX_LYN_NR5G_MOD_256QAM_E = 5,
  OX_LYN_NR5G_MOD_UNKNOWN_E = 255
} ox_lyn_nr5g_mod_e;

/** Downlink bandwidth of the primary LTE cell, metric 37: the modem's code plus 1, in the order of TS 36.331. */
typedef enum {
  OX_LYN_CA_BANDWIDTH_UNKNOWN_E = 0,
  OX_LYN_CA_BANDWIDTH_1_4_MHZ_E = 1,
  OX_LYN_CA_BANDWIDTH_3_MHZ_E = 2,
  OX_LYN_CA_BANDWIDTH_5_MHZ_E = 3,
  OX_LYN_CA_BANDWIDTH_10_MHZ_E = 4,
  OX_LYN_CA_BANDWIDTH_15_MHZ_E = 5,
  OX_LYN_CA_BANDWIDTH_20_MHZ_E = 6
} ox_lyn_ca_bandwidth_e;

/**
 * RF bandwidth, metrics 42 and 43: the modem's code plus 1. LTE's channel bandwidths, then those of NR 5G, frequency
 * ranges 1 and 2, that TS 38.331 began with.
 */
typedef enum {
  OX_LYN_RF_BANDWIDTH_LTE_1_4_MHZ_E = 1,
  OX_LYN_RF_BANDWIDTH_LTE_3_MHZ_E = 2,
  OX_LYN_RF_BANDWIDTH_LTE_5_MHZ_E = 3,
  OX_LYN_RF_BANDWIDTH_LTE_10_MHZ_E = 4,
  OX_LYN_RF_BANDWIDTH_LTE_15_MHZ_E = 5,
  OX_LYN_RF_BANDWIDTH_LTE_20_MHZ_E = 6,
  OX_LYN_RF_BANDWIDTH_NR5G_5_MHZ_E = 7,
  OX_LYN_RF_BANDWIDTH_NR5G_10_MHZ_E = 8,
  OX_LYN_RF_BANDWIDTH_NR5G_15_MHZ_E = 9,
  OX_LYN_RF_BANDWIDTH_NR5G_20_MHZ_E = 10,
  OX_LYN_RF_BANDWIDTH_NR5G_25_MHZ_E = 11,
  OX_LYN_RF_BANDWIDTH_NR5G_30_MHZ_E = 12,
  OX_LYN_RF_BANDWIDTH_NR5G_40_MHZ_E = 13,
  OX_LYN_RF_BANDWIDTH_NR5G_50_MHZ_E = 14,
  OX_LYN_RF_BANDWIDTH_NR5G_60_MHZ_E = 15,
  OX_LYN_RF_BANDWIDTH_NR5G_80_MHZ_E = 16,
  OX_LYN_RF_BANDWIDTH_NR5G_100_MHZ_E = 17,
  OX_LYN_RF_BANDWIDTH_NR5G_200_MHZ_E = 18,
  OX_LYN_RF_BANDWIDTH_NR5G_400_MHZ_E = 19,
  OX_LYN_RF_BANDWIDTH_UNKNOWN_E = 20
} ox_lyn_rf_bandwidth_e;

/** What an NR 5G cell lock names, control 4. */
typedef enum {
  OX_LYN_LOCK_CELL_E = 1,       /**< one cell */
  OX_LYN_LOCK_ARFCN_LIST_E = 2, /**< a list of NR-ARFCNs */
  OX_LYN_LOCK_UNLOCK_E = 3      /**< nothing: the lock is lifted */
} ox_lyn_lock_type_e;

/** mmW panel position (PPS) mode, control 7 and indication 11: the modem's mode plus 1. */
typedef enum {
  OX_LYN_PPS_MODE_INVALID_E = 0, /**< refused by the control; unknown in the indication */
  OX_LYN_PPS_MODE_START_E = 1,
  OX_LYN_PPS_MODE_MEASUREMENT_E = 2,
  OX_LYN_PPS_MODE_3_E = 3
} ox_lyn_pps_mode_e;

/** What control 8 does. The status of indication 12 is not this, but the modem's own. */
typedef enum { OX_LYN_INSTALL_MODE_START_E = 1, OX_LYN_INSTALL_MODE_STOP_E = 2 } ox_lyn_install_mode_e;

/** Subscription of a WWAN profile. */
typedef enum {
  OX_LYN_SUBSCRIPTION_NONE_E = 0, /**< not filled */
  OX_LYN_SUBSCRIPTION_DEFAULT_E = 1,
  OX_LYN_SUBSCRIPTION_PRIMARY_E = 2,
  OX_LYN_SUBSCRIPTION_SECONDARY_E = 3
} ox_lyn_subscription_e;

/** Technology of a WWAN profile. */
typedef enum {
  OX_LYN_TECHNOLOGY_ANY_E = 0,
  OX_LYN_TECHNOLOGY_3GPP_E = 1,
  OX_LYN_TECHNOLOGY_3GPP2_E = 2
} ox_lyn_technology_e;

/** IP family. */
typedef enum { OX_LYN_IP_FAMILY_V4_E = 4, OX_LYN_IP_FAMILY_V6_E = 6, OX_LYN_IP_FAMILY_V4V6_E = 10 } ox_lyn_ip_family_e;

/** Direction of a throughput test (MTPE). */
typedef enum {
  OX_LYN_MTPE_TYPE_UPLINK_E = 1,
  OX_LYN_MTPE_TYPE_DOWNLINK_E = 2,
  OX_LYN_MTPE_TYPE_BOTH_E = 3 /**< asked for only: uplink, then downlink with the roles swapped */
} ox_lyn_mtpe_type_e;

/** Transport protocol of a throughput test. */
typedef enum {
  OX_LYN_PROTOCOL_NONE_E = 0, /**< not given */
  OX_LYN_PROTOCOL_TCP_E = 1,
  OX_LYN_PROTOCOL_UDP_E = 2
} ox_lyn_protocol_e;

/** How a throughput test stands. */
typedef enum {
  OX_LYN_MTPE_STATUS_ABORTED_E = 0, /**< aborted, refused or unknown */
  OX_LYN_MTPE_STATUS_CONFIGURED_E = 1,
  OX_LYN_MTPE_STATUS_COMPLETED_E = 2,
  OX_LYN_MTPE_STATUS_FAILED_E = 3
} ox_lyn_mtpe_test_status_e;

/** Why a throughput test failed. */
typedef enum {
  OX_LYN_MTPE_FAILURE_NONE_E = 0,             /**< not failed, or for a reason of the modem's, which is logged only */
  OX_LYN_MTPE_FAILURE_START_OR_TEARDOWN_E = 3 /**< its start or teardown was refused */
} ox_lyn_mtpe_failure_e;

/** What asynchronous response 3 is. */
typedef enum {
  OX_LYN_LOC_KIND_RESULT_E = 0, /**< a location or a failed request */
  OX_LYN_LOC_KIND_STOP_E = 1    /**< the answer to a stop */
} ox_lyn_loc_kind_e;

/** Response of the location service. */
typedef enum {
  OX_LYN_LOC_RESPONSE_INVALID_E = -1, /**< of a batch: the one before it was lost */
  OX_LYN_LOC_RESPONSE_SUCCESS_E = 0,
  OX_LYN_LOC_RESPONSE_FAILURE_E = 1,
  OX_LYN_LOC_RESPONSE_NOT_SUPPORTED_E = 2,
  OX_LYN_LOC_RESPONSE_PARAM_INVALID_E = 3,
  OX_LYN_LOC_RESPONSE_TIMEOUT_E = 4 /**< a location of lesser quality may follow */
} ox_lyn_loc_response_e;

/** How batching stands, asynchronous response 4. */
typedef enum {
  OX_LYN_LOC_BATCH_INACTIVE_E = 0, /**< also with a bare response */
  OX_LYN_LOC_BATCH_LOCATIONS_E = 1,
  OX_LYN_LOC_BATCH_DONE_E = 2
} ox_lyn_loc_batch_status_e;

/** Which members of a location are meaningful, as the location service sets them. */
typedef enum {
  OX_LYN_LOC_FLAG_LAT_LONG_E = 0x1,
  OX_LYN_LOC_FLAG_ALTITUDE_E = 0x2,
  OX_LYN_LOC_FLAG_SPEED_E = 0x4,
  OX_LYN_LOC_FLAG_BEARING_E = 0x8,
  OX_LYN_LOC_FLAG_HORIZONTAL_ACCURACY_E = 0x10,
  OX_LYN_LOC_FLAG_VERTICAL_ACCURACY_E = 0x20,
  OX_LYN_LOC_FLAG_SPEED_ACCURACY_E = 0x40,
  OX_LYN_LOC_FLAG_BEARING_ACCURACY_E = 0x80,
  OX_LYN_LOC_FLAG_TIMESTAMP_E = 0x100,
  OX_LYN_LOC_FLAG_EXTRA_TIME_0_E = 0x200, /**< extra_time[0] */
  OX_LYN_LOC_FLAG_EXTRA_TIME_1_E = 0x400  /**< extra_time[1] */
} ox_lyn_loc_flag_e;

/** How many identifiers each group has, 0 and what is only delivered included: they run from 0 to one less. */
enum {
  OX_LYN_GET_COUNT = OX_LYN_GET_IPV6_QOS_TFT_E + 1,
  OX_LYN_SET_COUNT = OX_LYN_SET_INSTALL_MODE_E + 1,
  OX_LYN_IND_COUNT = OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E + 1,
  OX_LYN_ASYNC_COUNT = OX_LYN_ASYNC_LOC_BATCH_E + 1
};

/** Capacities of the lists below. */
enum {
  OX_LYN_I64_ARRAY_LEN = 20,
  OX_LYN_LTE_CQI_LEN = 7,
  OX_LYN_NR5G_CQI_LEN = 12,
  OX_LYN_LTE_LOCK_LEN = 60,
  OX_LYN_NR5G_LOCK_LEN = 32,
  OX_LYN_MCS_LEN = 2,
  OX_LYN_WWAN_PROFILE_LEN = 50,
  OX_LYN_FREQ_LEN = 16,
  OX_LYN_LTE_NBR_LEN = 5,
  OX_LYN_NR5G_NBR_LEN = 10,
  OX_LYN_LTE_NBR_PLMN_LEN = 4,
  OX_LYN_NR5G_NBR_PLMN_LEN = 12,
  OX_LYN_NR5G_NBR_CGI_LEN = 11
};

/* Records */

/**
 * Get-info record: the caller's own. As callback record: allocated zeroed by the module, freed by the user.
 * `value.u32` reads the low word of a value that was stored through i64 with a zero upper half.
 */
typedef struct {
  uint32_t record_type; /**< ox_lyn_record_type_e */
  uint32_t metric;      /**< ox_lyn_get_info_e going in; ox_lyn_async_resp_e or ox_lyn_ind_e in the callback */
  uint32_t value_type;  /**< ox_lyn_value_type_e, written by the module */
  union {
    int64_t i64;                             /**< one number */
    int64_t i64_array[OX_LYN_I64_ARRAY_LEN]; /**< `count` numbers */
    void *ptr;                               /**< a block, see each metric, response and indication */
    uint32_t u32;                            /**< one number, or a value of an enumeration */
  } value;                                   /**< as value_type says */
  uint32_t count; /**< valid elements of i64_array; written for metrics 8, 9, 19, 42 and 43 */
} ox_lyn_dm_info_t;

/** Set-info record: the caller's own. */
typedef struct {
  uint32_t record_type; /**< not read */
  uint32_t control;     /**< ox_lyn_set_info_e */
  uint32_t value_type;  /**< not read */
  union {
    uint8_t u8;  /**< control 5 */
    void *ptr;   /**< controls 3, 4, 6, 7, 8: a block of the caller's */
    int64_t i64; /**< not used */
  } value;       /**< what the control takes; nothing for 1 and 2 */
} ox_lyn_dm_ctrl_info_t;

/** Subscription record: the caller's own. */
typedef struct {
  uint32_t record_type; /**< OX_LYN_RECORD_IND_E */
  uint32_t indication;  /**< ox_lyn_ind_e, 1 to 8 */
  uint32_t value_type;  /**< OX_LYN_VALUE_INT64_E for indications 3 to 8; not read for 1 and 2 */
  int64_t threshold;    /**< indications 3 to 8: reporting step in the value's own unit, 1 to 65535; of more the low 16
                             bits are kept */
} ox_lyn_dm_ind_info_t;

/* Blocks of get info and set info */

/** CQI of one component carrier. */
typedef struct {
  uint32_t cw_cqi_len; /**< codewords in cw_cqi, 0 to 4 */
  uint8_t cw_cqi[4];   /**< CQI per codeword, 0 to 15 */
} ox_lyn_cqi_entry_t;

/** Result of metric 16: the buffer is the caller's own. */
typedef struct {
  uint8_t valid;                                  /**< 1 */
  uint32_t count;                                 /**< component carriers, 0 to 7 */
  ox_lyn_cqi_entry_t entries[OX_LYN_LTE_CQI_LEN]; /**< `count` of them */
} ox_lyn_lte_cqi_t;

/** Result of metric 17: the buffer is the caller's own. */
typedef struct {
  uint8_t valid;                                   /**< 1 */
  uint32_t count;                                  /**< component carriers, 0 to 12 */
  ox_lyn_cqi_entry_t entries[OX_LYN_NR5G_CQI_LEN]; /**< `count` of them */
} ox_lyn_nr5g_cqi_t;

/** One locked LTE cell. */
typedef struct {
  uint16_t pci;  /**< PCI, 0 to 503 */
  uint16_t freq; /**< EARFCN */
} ox_lyn_lte_lock_cell_t;

/**
 * LTE cell lock list, control 3 and metric 33: the caller's own. Metric 33 leaves `enforce` and the cells behind
 * `count` as the caller had them.
 */
typedef struct {
  uint8_t count; /**< metric 33: 0 to 60. Control 3: 1 to 60; 0 is refused with OX_LYN_ERR_FAILURE, entries beyond 60
                      are not sent */
  ox_lyn_lte_lock_cell_t cells[OX_LYN_LTE_LOCK_LEN]; /**< `count` of them */
  uint8_t enforce;                                   /**< non-zero: given to the modem, which is to use no other cell */
} ox_lyn_lte_cell_lock_t;

/** One entry of a frequency-based NR 5G lock. */
typedef struct {
  int32_t arfcn; /**< NR-ARFCN */
  int32_t scs;   /**< ox_lyn_scs_e */
} ox_lyn_nr5g_lock_arfcn_t;

/**
 * NR 5G cell lock, control 4 and metric 34: the caller's own. Metric 34 sets what the modem has not reported to 0;
 * masks, reserved words and the list behind its length stay as the caller had them.
 */
typedef struct {
  uint32_t lock_type;      /**< control 4: ox_lyn_lock_type_e. Metric 34: as the modem numbers it */
  uint32_t reserved0;      /**< neither read nor written */
  uint16_t pci;            /**< lock type 1; 0 is refused with OX_LYN_ERR_FAILURE */
  uint32_t scs;            /**< lock type 1: ox_lyn_scs_e */
  uint32_t arfcn;          /**< lock type 1: NR-ARFCN */
  uint32_t reserved1;      /**< neither read nor written */
  uint64_t band_mask[8];   /**< lock type 1: bands 1 to 512, bit 0 of [0] is band 1 */
  uint32_t arfcn_list_len; /**< lock type 2: 1 to 32; 0 is refused with OX_LYN_ERR_FAILURE, entries beyond 32 are not
                                sent */
  ox_lyn_nr5g_lock_arfcn_t arfcn_list[OX_LYN_NR5G_LOCK_LEN]; /**< lock type 2: arfcn_list_len of them */
} ox_lyn_nr5g_cell_lock_t;

/**
 * MCS, metrics 35 and 36: allocated by the module, freed by the caller. One modulation a stream, ox_lyn_lte_mod_e in
 * metric 35, ox_lyn_nr5g_mod_e in 36.
 */
typedef struct {
  uint32_t dl_mod[OX_LYN_MCS_LEN]; /**< downlink, dl_len of them */
  uint32_t ul_mod[OX_LYN_MCS_LEN]; /**< uplink, ul_len of them */
  uint32_t ul_len; /**< 0 to 2; with 0 the call returns OX_LYN_ERR_FAILURE and hands the block over all the same */
  uint32_t dl_len; /**< 0 to 2 */
} ox_lyn_mcs_t;

/** EN-DC mode, metric 38: allocated by the module, freed by the caller. All zero where `valid` is. */
typedef struct {
  uint8_t valid;               /**< 0 or 1 */
  uint8_t endc_available;      /**< as the modem reports it */
  uint8_t restrict_dcnr_valid; /**< 1 where `valid` is, whatever the modem says */
  uint8_t restrict_dcnr;       /**< as the modem reports it */
} ox_lyn_endc_mode_t;

/** One WWAN profile. */
typedef struct {
  uint32_t profile_index;   /**< the handle that metrics 45 and 46 take */
  uint32_t subscription;    /**< ox_lyn_subscription_e; not filled where a lone profile is reported */
  uint32_t technology;      /**< ox_lyn_technology_e */
  uint32_t ip_family;       /**< ox_lyn_ip_family_e */
  uint8_t profile_id_3gpp;  /**< number of the modem's 3GPP profile */
  uint8_t profile_id_3gpp2; /**< number of the modem's 3GPP2 profile */
  char apn_name[102];       /**< at most 100 octets, null-terminated */
} ox_lyn_wwan_profile_t;

/** WWAN profiles, metric 44: allocated by the module, freed by the caller. */
typedef struct {
  uint32_t count;    /**< 0, 2 to 50; 0: there is none or one, of which profiles[0].profile_index alone is filled */
  uint32_t reserved; /**< 0 */
  ox_lyn_wwan_profile_t profiles[OX_LYN_WWAN_PROFILE_LEN]; /**< `count` of them */
} ox_lyn_wwan_profile_list_t;

/** WWAN statistics, metrics 45 and 46: allocated by the module, freed by the caller. */
typedef struct {
  uint64_t bytes_rx;        /**< octets received, as the modem counts them */
  uint64_t bytes_tx;        /**< octets sent */
  uint32_t pkts_rx;         /**< packets received */
  uint32_t pkts_tx;         /**< packets sent */
  uint32_t pkts_dropped_rx; /**< packets dropped on receipt */
  uint32_t pkts_dropped_tx; /**< packets dropped instead of sent */
} ox_lyn_wwan_stats_t;

/**
 * Modem throughput estimation (MTPE) request, metrics 48 and 49: the caller's own; the module keeps a copy. Addresses
 * are in network byte order, ports in host byte order. For uplink and both directions the client is the source and the
 * server the destination; for downlink the roles are swapped.
 */
typedef struct {
  uint32_t external_server; /**< 1: the server is not the operator's test server */
  uint32_t test_type;       /**< ox_lyn_mtpe_type_e */
  uint32_t duration;        /**< s */
  uint32_t ip_family;       /**< OX_LYN_IP_FAMILY_V4_E or OX_LYN_IP_FAMILY_V6_E */
  uint32_t protocol;        /**< ox_lyn_protocol_e; any other: not given */
  uint16_t src_port;        /**< source port */
  uint16_t dst_port;        /**< destination port */
  char server_url[300];     /**< null-terminated; empty: the addresses are used */
  uint32_t src_ipv4;        /**< source address, IP family 4 */
  uint32_t dst_ipv4;        /**< destination address, IP family 4 */
  uint8_t src_ipv6[16];     /**< source address, IP family 6 */
  uint8_t dst_ipv6[16];     /**< destination address, IP family 6 */
  uint32_t bandwidth;       /**< kbps; given to the modem only together with mtu */
  uint32_t mtu;             /**< octets */
} ox_lyn_mtpe_req_t;

/** MTPE network parameters, metric 47 going in: the caller's own. */
typedef struct {
  uint32_t ip_family;      /**< OX_LYN_IP_FAMILY_V4_E or OX_LYN_IP_FAMILY_V6_E */
  uint8_t client_addr[16]; /**< network byte order; an IPv4 address is in the first four octets */
} ox_lyn_mtpe_net_params_t;

/** MTPE server configuration, metric 47 coming out: allocated by the module, freed by the caller. */
typedef struct {
  int32_t bandwidth_kbps; /**< kbps */
  int32_t mtu;            /**< octets */
} ox_lyn_mtpe_server_config_t;

/** Single-shot request, metric 50: the caller's own. */
typedef struct {
  uint32_t timeout_ms;       /**< ms; the receiver gives up after it, which nothing reports: see metric 50 */
  float horizontal_accuracy; /**< m, the quality that a fix should have */
} ox_lyn_loc_single_shot_req_t;

/** Batching request, metric 51: the caller's own. */
typedef struct {
  uint32_t min_interval_ms; /**< ms between two locations of a batch */
} ox_lyn_loc_batching_req_t;

/** One NR 5G frequency of the PPS and install-mode requests. */
typedef struct {
  uint32_t arfcn; /**< NR-ARFCN */
  uint32_t band;  /**< NR band number */
  uint32_t scs;   /**< ox_lyn_scs_e; above 5 the control is refused with OX_LYN_ERR_INVALID_PARAM */
} ox_lyn_nr5g_freq_t;

/** mmW panel position (PPS) configuration, control 6: the caller's own, copied whole. */
typedef struct {
  uint8_t position_index;                    /**< position of the panel, as the modem numbers it */
  uint8_t pps_mode_enabled;                  /**< 0 or 1 */
  uint16_t reserved;                         /**< not read */
  uint32_t freq_count;                       /**< 0 to 16; more is refused with OX_LYN_ERR_INVALID_PARAM */
  ox_lyn_nr5g_freq_t freqs[OX_LYN_FREQ_LEN]; /**< freq_count of them */
} ox_lyn_pps_config_t;

/** PPS change status, control 7: the caller's own, copied whole. */
typedef struct {
  uint8_t position_changed; /**< 0 or 1 */
  uint8_t position_index;   /**< position of the panel, as the modem numbers it */
  uint16_t reserved;        /**< not read */
  uint32_t pps_mode;        /**< ox_lyn_pps_mode_e, 1 to 3; anything else is refused with OX_LYN_ERR_FAILURE */
} ox_lyn_pps_change_status_t;

/** Install mode, control 8: the caller's own, copied whole. */
typedef struct {
  uint32_t mode;                             /**< ox_lyn_install_mode_e; any other starts, too */
  uint16_t freq_count;                       /**< 0 to 16; more is refused with OX_LYN_ERR_INVALID_PARAM */
  uint16_t reserved;                         /**< not read */
  ox_lyn_nr5g_freq_t freqs[OX_LYN_FREQ_LEN]; /**< freq_count of them */
} ox_lyn_install_mode_t;

/* Delivered blocks: allocated by the module, freed by the user */

/** One location. A member is meaningful where its flag is set. */
typedef struct {
  uint32_t flags;            /**< ox_lyn_loc_flag_e, one bit each */
  uint64_t timestamp;        /**< ms since 1970-01-01 UTC */
  double latitude;           /**< degrees WGS 84, north positive */
  double longitude;          /**< degrees WGS 84, east positive */
  double altitude;           /**< m above the WGS 84 ellipsoid */
  float speed;               /**< m/s over ground */
  float bearing;             /**< degrees clockwise from true north */
  float horizontal_accuracy; /**< m */
  float vertical_accuracy;   /**< m */
  float speed_accuracy;      /**< m/s */
  float bearing_accuracy;    /**< degrees */
  uint32_t tech_mask;        /**< which technologies contributed */
  uint64_t extra_time[2];    /**< each goes with a flag of its own */
} ox_lyn_location_t;

/** Async 3. */
typedef struct {
  uint32_t kind;              /**< ox_lyn_loc_kind_e */
  uint32_t response;          /**< ox_lyn_loc_response_e; a location follows only a success or a time-out */
  ox_lyn_location_t location; /**< zero unless this is a result with such a response */
} ox_lyn_loc_single_shot_t;

/** Async 4. `locations` is a block of its own, freed by the user as well: never null where status is
 * OX_LYN_LOC_BATCH_LOCATIONS_E, else always. */
typedef struct {
  int32_t status;               /**< ox_lyn_loc_batch_status_e */
  int32_t response;             /**< ox_lyn_loc_response_e */
  ox_lyn_location_t *locations; /**< `count` of them, in the order of the location service */
  uint8_t count;                /**< locations in the array, 0 to 255; of a larger batch the first 255 */
} ox_lyn_loc_batch_t;

/** Indication 9. */
typedef struct {
  uint32_t test_type;      /**< the direction that runs: OX_LYN_MTPE_TYPE_UPLINK_E or OX_LYN_MTPE_TYPE_DOWNLINK_E */
  uint32_t failure_reason; /**< ox_lyn_mtpe_failure_e */
  uint32_t test_status;    /**< ox_lyn_mtpe_test_status_e */
  uint32_t peak_rate;      /**< kbps, of a completed test */
} ox_lyn_mtpe_status_t;

/** Indication 10. */
typedef struct {
  uint32_t bearer_id; /**< the bearer that the flow runs over */
  uint32_t tx_5g_qci; /**< 5G QoS class identifier of what is sent, 0 to 7 */
  uint32_t rx_5g_qci; /**< 5G QoS class identifier of what is received, 0 to 7 */
} ox_lyn_qos_flow_t;

/** Indication 11. */
typedef struct {
  uint8_t position_index; /**< position of the panel, as the modem numbers it */
  uint32_t mode;          /**< ox_lyn_pps_mode_e */
} ox_lyn_pps_ind_t;

/** One measured install frequency. */
typedef struct {
  uint32_t arfcn; /**< NR-ARFCN */
  uint32_t band;  /**< NR band number */
  uint32_t scs;   /**< ox_lyn_scs_e, OX_LYN_SCS_INVALID_E where unknown */
  int16_t rsrp;   /**< dBm */
  int16_t snr;    /**< as the modem reports it */
} ox_lyn_install_freq_t;

/** Indication 13. */
typedef struct {
  uint16_t count;                                 /**< 0 to 16 */
  ox_lyn_install_freq_t entries[OX_LYN_FREQ_LEN]; /**< `count` of them */
} ox_lyn_install_freq_list_t;

/** One PLMN. */
typedef struct {
  uint16_t mcc;               /**< mobile country code */
  uint16_t mnc;               /**< mobile network code */
  uint8_t includes_pcs_digit; /**< the MNC has three digits */
} ox_lyn_plmn_t;

/** One LTE neighbour. */
typedef struct {
  uint8_t present;                             /**< 1; cells are packed, the first 0 ends the list */
  uint32_t index;                              /**< 1-based */
  uint32_t earfcn;                             /**< EARFCN */
  uint16_t pci;                                /**< PCI, 0 to 503 */
  uint8_t cgi_valid;                           /**< 1: metric 26 was asked for */
  uint32_t cgi;                                /**< E-UTRAN cell identity, 28 bits */
  uint8_t plmn_valid;                          /**< metric 28 was asked for */
  uint32_t plmn_count;                         /**< 0 to 4 */
  ox_lyn_plmn_t plmn[OX_LYN_LTE_NBR_PLMN_LEN]; /**< plmn_count of them */
} ox_lyn_lte_nbr_t;

/** Async 1. */
typedef struct {
  ox_lyn_lte_nbr_t cells[OX_LYN_LTE_NBR_LEN]; /**< filled when metric 22, 24, 26 or 28 was asked for */
  struct {
    uint8_t valid;      /**< 1: metric 30 or 32 was asked for; all else is 0 where there is no neighbour */
    uint32_t earfcn;    /**< EARFCN */
    uint16_t pci;       /**< PCI, 0 to 503 */
    uint8_t rsrp_valid; /**< metric 30 was asked for */
    int16_t rsrp;       /**< dBm */
    uint8_t rsrq_valid; /**< metric 32 was asked for */
    int16_t rsrq;       /**< dB */
  } serving;            /**< the neighbour with the highest signal */
} ox_lyn_lte_nbr_info_t;

/** One NR 5G neighbour. */
typedef struct {
  uint8_t present;                              /**< 1; cells are packed, the first 0 ends the list */
  uint32_t index;                               /**< 1-based */
  uint32_t earfcn;                              /**< NR-ARFCN */
  uint16_t pci;                                 /**< PCI, 0 to 1007 */
  uint8_t rsrp_valid;                           /**< metric 31 was asked for */
  int16_t rsrp;                                 /**< dBm */
  uint8_t plmn_valid;                           /**< metric 29 was asked for */
  uint32_t plmn_count;                          /**< 0 to 12 */
  ox_lyn_plmn_t plmn[OX_LYN_NR5G_NBR_PLMN_LEN]; /**< plmn_count of them */
  uint8_t cgi_valid;                            /**< metric 27 was asked for */
  uint32_t cgi_count;                           /**< 0 to 11 */
  uint64_t cgi[OX_LYN_NR5G_NBR_CGI_LEN];        /**< NR cell identities, 36 bits, cgi_count of them */
} ox_lyn_nr5g_nbr_t;

/** Async 2. */
typedef struct {
  ox_lyn_nr5g_nbr_t cells[OX_LYN_NR5G_NBR_LEN]; /**< in the order of the modem */
} ox_lyn_nr5g_nbr_info_t;

/* Operations */

/**
 * The user's callback, for every subscribed indication, every unsubscribable one and every asynchronous response.
 *
 * Runs on the command thread, one event at a time, in the order of the events, under the module's lock: it must return
 * soon and must not call any operation of this header (it would wait for itself). No call is made any more once
 * ox_lyn_deinit has returned. An event for which there is no memory is lost.
 *
 * hndl       the module's handle
 * dm_info    record of type 2 or 3; the user owns it and every block that its ptr leads to, and frees them with free():
 *            the record itself, the blocks of indications 9, 10, 11 and 13 and of asynchronous responses 1 to 4, and
 *            the locations array of response 4
 * user_data  as given to ox_lyn_init
 *
 *   void on_event(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *event, uint32_t user_data) {
 *     if (event->record_type == OX_LYN_RECORD_IND_E && event->metric == OX_LYN_IND_LTE_RSRP_E)
 *       printf("LTE RSRP now %lld dBm\n", (long long)event->value.i64);
 *     free(event);
 *   }
 */
typedef void (*ox_lyn_user_cb_fn)(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info, uint32_t user_data);

/* The operations are what the shared library exports. */
#pragma GCC visibility push(default)

/**
 * Bring the module up: diagnostic service, NAS client, mobile AP client, a first system-information query, location
 * client, command thread. The mobile AP client says on standard output how it fared, a refused diagnostic service on
 * standard error; without the latter the module comes up all the same.
 *
 * Blocks, without limit, until the modem offers its network access service, and with it every other operation.
 *
 * hndl        out: the handle; written on success only
 * user_data   handed to every callback; any value
 * user_cb_fn  the callback, not null
 *
 * OX_LYN_SUCCESS                  up
 * OX_LYN_ERR_INVALID_PARAM        hndl or user_cb_fn is null
 * OX_LYN_ERR_ALREADY_INITIALIZED  the module is up already; its handle stays valid
 * OX_LYN_ERR_NO_MEMORY            a request buffer could not be allocated
 * OX_LYN_ERR_FAILURE              a client of the board could not be brought up, or the command queue
 * After a failure the module is down and the call may be repeated.
 */
int32_t ox_lyn_init(ox_lyn_hndl_t *hndl, uint32_t user_data, ox_lyn_user_cb_fn user_cb_fn);

/**
 * Take the module down: releases the NAS and location clients and joins the command thread. Single shots, batching and
 * scans are over then; the mobile AP client stays up, and a throughput test goes on unheard. Events not yet delivered
 * are dropped; no callback runs once this has returned.
 *
 * Waits for the lock as every operation does: for the calls ahead of it and their modem requests, 50 s each, and for
 * the event that is being delivered, with its callback and what the module sends for it (see the top). Then only the
 * board's own releases take time.
 *
 * hndl  as ox_lyn_init gave it
 *
 * OX_LYN_SUCCESS              down; the handle is void
 * OX_LYN_ERR_INVALID_PARAM    hndl is 0 or not the module's
 * OX_LYN_ERR_NOT_INITIALIZED  down already, after a teardown that failed
 * OX_LYN_ERR_FAILURE          a client refused its release; the module counts as down, ox_lyn_init may follow
 */
int32_t ox_lyn_deinit(ox_lyn_hndl_t hndl);

/**
 * Read one metric, or start one that is answered through the callback; ox_lyn_get_info_e says what each gives.
 *
 * Asks the modem for its service state first. Metrics other than 1 need LTE or NR 5G service, also those that have
 * nothing to do with the radio.
 *
 * hndl     as ox_lyn_init gave it
 * dm_info  in: record_type OX_LYN_RECORD_GET_E, metric, and for metrics 16, 17, 33, 34 and 47 to 51 the address of the
 *          caller's block in ptr, for 45 and 46 the profile handle in i64; out: value_type, value and, where there is
 *          an array, count. After a failure value_type is 0 and all else as it was, but for metrics 35 and 36 (see
 *          ox_lyn_mcs_t); after a bad handle or record_type, or while the module is down, value_type is as it was, too.
 *          Metrics that are answered later, 22 to 32 and 48 to 53, leave the value and set value_type to 0.
 *
 * OX_LYN_SUCCESS                  answered, or accepted. Metrics 48 and 49: also when the test could not be
 *                                 configured, of which indication 9 with test_status 0 tells (without memory nothing
 *                                 does). Metric 38: also without memory for its block, see there.
 * OX_LYN_ERR_INVALID_PARAM        bad handle, null record, record_type not 1, a null ptr where metrics 16, 17, 33, 34,
 *                                 47, 48 or 49 need one
 * OX_LYN_ERR_NOT_INITIALIZED      the module is down
 * OX_LYN_ERR_SERVICE_UNAVAILABLE  registration status is not 5, 6 or 7; comes before OX_LYN_ERR_NOT_SUPPORTED
 * OX_LYN_ERR_NOT_SUPPORTED        metric outside 1 to 53
 * OX_LYN_ERR_INFO_UNAVAILABLE     the modem has no such value (metrics 2 to 21, 33, 34)
 * OX_LYN_ERR_BUSY                 metrics 22 to 32: a neighbour scan of either radio runs or is pending (see
 *                                 ox_lyn_get_info_list); 48, 49: a test runs; 50, 51: a request of the same kind runs;
 *                                 ptr is looked at behind that
 * OX_LYN_ERR_NO_MEMORY            a request buffer could not be allocated
 * OX_LYN_ERR_FAILURE              the modem, the mobile AP (44 to 47, 52, 53) or the location service (50, 51) refused
 *                                 or did not answer or is not ready; an earlier QoS query is not answered yet (52, 53);
 *                                 ptr is null (50, 51); a result block could not be allocated (but for 38); the uplink
 *                                 list is empty (35, 36)
 *
 *   ox_lyn_lte_cqi_t cqi;
 *   ox_lyn_dm_info_t info = {.record_type = OX_LYN_RECORD_GET_E, .metric = OX_LYN_GET_LTE_SERV_CQI_E};
 *   info.value.ptr = &cqi;
 *   int32_t status = ox_lyn_get_info(hndl, &info);
 */
int32_t ox_lyn_get_info(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info);

/**
 * Read several metrics in one call, in order; the neighbour metrics among them (22 to 32) share one scan, LTE before
 * NR 5G, which is sent when all entries have been handled. Other calls may come between two entries.
 *
 * Stops at the first entry that fails; records after it are not handled, and no scan is sent. Neighbour metrics before
 * it then stay pending: others are refused with OX_LYN_ERR_BUSY until a later list without any succeeds, which scans
 * for the pending ones, or takes them back with an entry that is not supported.
 *
 * While a scan of an earlier call runs, a list without neighbour metrics sends it again at its end. Two answers follow;
 * the second of an LTE scan comes as one of NR 5G (see ox_lyn_async_resp_e). Where the modem refuses that, the running
 * scan is forgotten and the list fails, although its entries were answered. An entry that is not supported forgets a
 * running scan, too: its answer then comes as one of NR 5G.
 *
 * hndl              as ox_lyn_init gave it
 * dm_info_list      dm_info_list_cnt records as for ox_lyn_get_info. Of neighbour metrics and of entries that are not
 *                   supported only `metric` is read, and nothing is written; their record_type and the registration
 *                   status are not looked at
 * dm_info_list_cnt  at least 1
 *
 * The status is that of the first entry that fails, or of the scan. Beyond the statuses of ox_lyn_get_info:
 * OX_LYN_ERR_INVALID_PARAM  null list or count 0
 * OX_LYN_ERR_NOT_SUPPORTED  the last entry is not supported: 0, 52, 53 or above. Elsewhere such an entry is passed by,
 *                           but it, too, takes back the neighbour metrics before it
 * OX_LYN_ERR_BUSY           an entry is a neighbour metric while a scan runs or is pending, or metric 50 while a single
 *                           shot runs; no entry was handled then
 * OX_LYN_ERR_FAILURE        an entry is metric 51 while batching runs; no entry was handled then
 */
int32_t ox_lyn_get_info_list(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *dm_info_list, uint32_t dm_info_list_cnt);

/**
 * Carry out one control; ox_lyn_set_info_e says what each takes. The modem has answered when it returns; that a single
 * shot was stopped (1) is told by asynchronous response 3, until which another one is refused with OX_LYN_ERR_BUSY.
 *
 * hndl          as ox_lyn_init gave it
 * dm_ctrl_info  control, and its value; not written
 *
 * OX_LYN_SUCCESS              done
 * OX_LYN_ERR_INVALID_PARAM    bad handle, null record, null ptr (controls 3, 4, 6, 7, 8), a sub-carrier spacing outside
 *                             0 to 5 of the locked cell or of an entry that is sent (4, 6, 8), more than 16
 *                             frequencies (6, 8)
 * OX_LYN_ERR_NOT_INITIALIZED  the module is down
 * OX_LYN_ERR_NOT_SUPPORTED    control outside 1 to 8
 * OX_LYN_ERR_NO_MEMORY        a request buffer could not be allocated
 * OX_LYN_ERR_FAILURE          the modem refused or did not answer. 1, 2: nothing to stop, or the location service is
 *                             not ready. 3: the list is empty, or the registration status is not 5. 4: the status is
 *                             not 7, the lock type is not 1 to 3, or a cell or list to be locked is not given. 5: the
 *                             status is not 6 or 7. 7: the PPS mode is not 1 to 3. Nothing was sent in any of these,
 *                             but for 3 at status 6: there the modem has taken the list
 *
 *   ox_lyn_dm_ctrl_info_t ctrl = {.control = OX_LYN_SET_NR5G_DEPRIORITIZE_E};
 *   ctrl.value.u8 = 1;
 *   int32_t status = ox_lyn_set_info(hndl, &ctrl);
 */
int32_t ox_lyn_set_info(ox_lyn_hndl_t hndl, ox_lyn_dm_ctrl_info_t *dm_ctrl_info);

/**
 * Subscribe one indication; subscribing it again replaces its threshold. The modem is told at once (NAS 3 and 108), and
 * the subscription changes only if it accepts; that it refuses 108, the thresholds, is not seen. The modem applies the
 * thresholds. A delivered value is not delivered again until it changes or is subscribed again, and a first value of 0
 * is not delivered. Nothing is told to a modem that has restarted (indication 1): subscribe again then.
 *
 * hndl         as ox_lyn_init gave it
 * dm_ind_info  record_type, indication and, for 3 to 8, value_type and threshold; not written
 *
 * OX_LYN_SUCCESS              subscribed
 * OX_LYN_ERR_INVALID_PARAM    bad handle, null record, record_type not 3; for 3 to 8 also value_type not 2 or a
 *                             threshold below 1
 * OX_LYN_ERR_NOT_INITIALIZED  the module is down
 * OX_LYN_ERR_NOT_SUPPORTED    indication outside 1 to 8
 * OX_LYN_ERR_NO_MEMORY        a request buffer could not be allocated
 * OX_LYN_ERR_FAILURE          the modem refused or did not answer
 *
 *   ox_lyn_dm_ind_info_t ind = {.record_type = OX_LYN_RECORD_IND_E, .indication = OX_LYN_IND_LTE_RSRP_E,
 *                               .value_type = OX_LYN_VALUE_INT64_E, .threshold = 2};
 *   int32_t status = ox_lyn_set_ind_info(hndl, &ind);
 */
int32_t ox_lyn_set_ind_info(ox_lyn_hndl_t hndl, ox_lyn_dm_ind_info_t *dm_ind_info);

/**
 * Count the subscribed indications.
 *
 * hndl        as ox_lyn_init gave it
 * dm_ind_cnt  out: 0 to 8
 *
 * OX_LYN_SUCCESS              counted
 * OX_LYN_ERR_INVALID_PARAM    bad handle, null dm_ind_cnt
 * OX_LYN_ERR_NOT_INITIALIZED  the module is down
 */
int32_t ox_lyn_get_ind_count(ox_lyn_hndl_t hndl, uint32_t *dm_ind_cnt);

/**
 * List the subscribed indications, in the fixed order 1, 2, 3, 5, 7, 4, 6, 8; entries beyond them become 0.
 *
 * hndl             as ox_lyn_init gave it
 * dm_ind_list      out: room for dm_ind_list_cnt ox_lyn_ind_e values
 * dm_ind_list_cnt  at least 1
 *
 * OX_LYN_SUCCESS                  listed
 * OX_LYN_ERR_INVALID_PARAM        bad handle, null list, count 0
 * OX_LYN_ERR_NOT_INITIALIZED      the module is down
 * OX_LYN_ERR_INSUFFICIENT_BUFFER  more are subscribed than the list holds; the list is untouched
 */
int32_t ox_lyn_get_ind_list(ox_lyn_hndl_t hndl, uint32_t *dm_ind_list, uint32_t dm_ind_list_cnt);

/**
 * Unsubscribe several indications, all or none; one that is not subscribed is no error. The modem is told as by
 * ox_lyn_set_ind_info.
 *
 * hndl                 as ox_lyn_init gave it
 * dm_clr_ind_list      dm_clr_ind_list_cnt ox_lyn_ind_e values, 1 to 8
 * dm_clr_ind_list_cnt  at least 1
 *
 * OX_LYN_SUCCESS              unsubscribed
 * OX_LYN_ERR_INVALID_PARAM    bad handle, null list, count 0
 * OX_LYN_ERR_NOT_INITIALIZED  the module is down
 * OX_LYN_ERR_NOT_SUPPORTED    a number outside 1 to 8; nothing was changed
 * OX_LYN_ERR_NO_MEMORY        a request buffer could not be allocated
 * OX_LYN_ERR_FAILURE          the modem refused or did not answer; nothing was changed
 */
int32_t ox_lyn_clear_ind_list(ox_lyn_hndl_t hndl, uint32_t *dm_clr_ind_list, uint32_t dm_clr_ind_list_cnt);

#pragma GCC visibility pop

/* Layouts */

#define OX_LYN_ASSERT_SIZE(type, size) static_assert(sizeof(type) == (size), #type " has changed its size")
#define OX_LYN_ASSERT_OFFSET(type, member, offset) \
  static_assert(offsetof(type, member) == (offset), #type "." #member " has moved")

OX_LYN_ASSERT_SIZE(ox_lyn_dm_info_t, 184);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_info_t, record_type, 0);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_info_t, metric, 4);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_info_t, value_type, 8);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_info_t, value, 16);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_info_t, count, 176);
OX_LYN_ASSERT_SIZE(ox_lyn_dm_ctrl_info_t, 24);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_ctrl_info_t, value, 16);
OX_LYN_ASSERT_SIZE(ox_lyn_dm_ind_info_t, 24);
OX_LYN_ASSERT_OFFSET(ox_lyn_dm_ind_info_t, threshold, 16);
OX_LYN_ASSERT_SIZE(ox_lyn_cqi_entry_t, 8);
OX_LYN_ASSERT_SIZE(ox_lyn_lte_cqi_t, 64);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_cqi_t, 104);
OX_LYN_ASSERT_SIZE(ox_lyn_lte_lock_cell_t, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_lte_cell_lock_t, 244);
OX_LYN_ASSERT_OFFSET(ox_lyn_lte_cell_lock_t, cells, 2);
OX_LYN_ASSERT_OFFSET(ox_lyn_lte_cell_lock_t, enforce, 242);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_lock_arfcn_t, 8);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_cell_lock_t, 352);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, lock_type, 0);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, pci, 8);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, scs, 12);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, arfcn, 16);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, band_mask, 24);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, arfcn_list_len, 88);
OX_LYN_ASSERT_OFFSET(ox_lyn_nr5g_cell_lock_t, arfcn_list, 92);
OX_LYN_ASSERT_SIZE(ox_lyn_mcs_t, 24);
OX_LYN_ASSERT_SIZE(ox_lyn_endc_mode_t, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_wwan_profile_t, 120);
OX_LYN_ASSERT_SIZE(ox_lyn_wwan_profile_list_t, 6008);
OX_LYN_ASSERT_OFFSET(ox_lyn_wwan_profile_list_t, profiles, 8);
OX_LYN_ASSERT_SIZE(ox_lyn_wwan_stats_t, 32);
OX_LYN_ASSERT_SIZE(ox_lyn_mtpe_req_t, 372);
OX_LYN_ASSERT_SIZE(ox_lyn_mtpe_net_params_t, 20);
OX_LYN_ASSERT_SIZE(ox_lyn_mtpe_server_config_t, 8);
OX_LYN_ASSERT_SIZE(ox_lyn_loc_single_shot_req_t, 8);
OX_LYN_ASSERT_SIZE(ox_lyn_loc_batching_req_t, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_freq_t, 12);
OX_LYN_ASSERT_SIZE(ox_lyn_pps_config_t, 200);
OX_LYN_ASSERT_SIZE(ox_lyn_pps_change_status_t, 8);
OX_LYN_ASSERT_OFFSET(ox_lyn_pps_change_status_t, pps_mode, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_install_mode_t, 200);
OX_LYN_ASSERT_SIZE(ox_lyn_location_t, 88);
OX_LYN_ASSERT_SIZE(ox_lyn_loc_single_shot_t, 96);
OX_LYN_ASSERT_SIZE(ox_lyn_loc_batch_t, 24);
OX_LYN_ASSERT_SIZE(ox_lyn_mtpe_status_t, 16);
OX_LYN_ASSERT_SIZE(ox_lyn_qos_flow_t, 12);
OX_LYN_ASSERT_SIZE(ox_lyn_pps_ind_t, 8);
OX_LYN_ASSERT_OFFSET(ox_lyn_pps_ind_t, mode, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_install_freq_t, 16);
OX_LYN_ASSERT_SIZE(ox_lyn_install_freq_list_t, 260);
OX_LYN_ASSERT_OFFSET(ox_lyn_install_freq_list_t, entries, 4);
OX_LYN_ASSERT_SIZE(ox_lyn_plmn_t, 6);
OX_LYN_ASSERT_SIZE(ox_lyn_lte_nbr_t, 52);
OX_LYN_ASSERT_SIZE(ox_lyn_lte_nbr_info_t, 280);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_nbr_t, 192);
OX_LYN_ASSERT_SIZE(ox_lyn_nr5g_nbr_info_t, 1920);

#ifdef __cplusplus
}
#endif

#endif
