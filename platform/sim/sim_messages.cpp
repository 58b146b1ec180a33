/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The table of platform messages: every request, response and indication of the NAS service and the indications of the
 * mobile access point.
 *
 * To add a message, add a row to the table and describe its parts; names, offsets and kinds come from the platform's
 * struct itself. The macros are there for offsetof and # alone: each opens a scope in which `s` is the struct that its
 * members belong to, so that a row names its struct once.
 */
#include <algorithm>
#include <array>
#include <cstddef>
#include <type_traits>

#include "nas_service_v01.h"
#include "oxmap_client.h"
#include "sim_message.h"

namespace {

template <typename T>
using bare = std::remove_all_extents_t<T>;

template <typename T>
constexpr sim_kind kind_of() {
  if constexpr (std::is_class_v<T>) {
    return sim_kind::record;
  } else if constexpr (std::is_same_v<T, uint8_t>) {
    return sim_kind::u8;
  } else if constexpr (std::is_same_v<T, uint16_t>) {
    return sim_kind::u16;
  } else if constexpr (std::is_same_v<T, uint32_t>) {
    return sim_kind::u32;
  } else if constexpr (std::is_same_v<T, uint64_t>) {
    return sim_kind::u64;
  } else if constexpr (std::is_same_v<T, int8_t>) {
    return sim_kind::i8;
  } else if constexpr (std::is_same_v<T, int16_t>) {
    return sim_kind::i16;
  } else {
    static_assert(std::is_same_v<T, int32_t>);
    return sim_kind::i32;
  }
}

template <typename T>
constexpr sim_field field_of(const char *name, size_t offset, std::span<const sim_field> fields = {},
                             const char *count_name = nullptr, size_t count_offset = 0) {
  return {.name = name,
          .kind = kind_of<bare<T>>(),
          .offset = static_cast<uint32_t>(offset),
          .size = sizeof(bare<T>),
          // NOLINTNEXTLINE(bugprone-sizeof-expression): 1 where the field is no list
          .capacity = static_cast<uint32_t>(sizeof(T) / sizeof(bare<T>)),
          .columns = static_cast<uint32_t>(std::rank_v<T> == 2 ? std::extent_v<T, 1> : 0),
          .count_name = count_name,
          .count_offset = static_cast<uint32_t>(count_offset),
          .fields = fields};
}

/** Gives the rows that `make` returns a home, so that a message can be written in one piece. */
template <auto make>
constexpr auto rows = make();

// That an inner `s` hides the outer one is the point.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
// clang-format off
#define ROWS(type, ...) rows<[] { using s = type; return std::array{__VA_ARGS__}; }>

// Fields. VALUE: a number or a fixed array of them; LIST: as many entries as `count` says.
#define VALUE(member) field_of<decltype(s::member)>(#member, offsetof(s, member))
#define RECORD(member, ...) \
  field_of<decltype(s::member)>(#member, offsetof(s, member), ROWS(decltype(s::member), __VA_ARGS__))
#define LIST(member, count) field_of<decltype(s::member)>(#member, offsetof(s, member), {}, #count, offsetof(s, count))
#define RECORD_LIST(member, count, ...)                                                                         \
  field_of<decltype(s::member)>(#member, offsetof(s, member), ROWS(bare<decltype(s::member)>, __VA_ARGS__), #count, \
                                offsetof(s, count))

// Parts. PART: mandatory, or optional without a flag of its own; OPTIONAL: one value with its flag.
#define PART(tlv, ...) sim_part{.type = tlv, .valid_name = nullptr, .valid_offset = 0, .fields = ROWS(s, __VA_ARGS__)}
#define FLAGGED(tlv, flag, ...) \
  sim_part{.type = tlv, .valid_name = #flag, .valid_offset = offsetof(s, flag), .fields = ROWS(s, __VA_ARGS__)}
#define OPTIONAL(tlv, member) FLAGGED(tlv, member##_valid, VALUE(member))
#define HEAD PART(0x01, RECORD(resp, VALUE(result), VALUE(error)))

// Messages.
#define MESSAGE(number, of, way, title, type, ...)                                                                  \
  sim_message{.id = number, .lib = sim_lib::of, .direction = sim_direction::way, .name = title, .struct_name = #type, \
              .size = sizeof(type), .parts = ROWS(type, __VA_ARGS__)}
#define REQUEST(number, title, type, ...) MESSAGE(number, nas, request, title, type, __VA_ARGS__)
#define RESPONSE(number, title, type, ...) MESSAGE(number, nas, response, title, type, HEAD, __VA_ARGS__)
#define QUERY(number, title)                                                                            \
  sim_message{.id = number, .lib = sim_lib::nas, .direction = sim_direction::request, .name = title,    \
              .struct_name = "yrp_nas_empty_req_t", .size = sizeof(yrp_nas_empty_req_t), .parts = {}}
#define ACCEPTED(number, title) MESSAGE(number, nas, response, title, yrp_nas_resp_t, HEAD)

// What several messages share.
#define SRV_STATUS(tlv, member) \
  FLAGGED(tlv, member##_valid, RECORD(member, VALUE(srv_status), VALUE(srv_domain), VALUE(srv_capability)))
#define NR5G_SIG_INFO FLAGGED(0x11, nr5g_sig_info_valid, RECORD(nr5g_sig_info, VALUE(rsrp), VALUE(snr)))
#define LTE_CELL_LIST RECORD_LIST(lte_cell_list, lte_cell_list_len, VALUE(pci), VALUE(freq))
#define ARFCN_LIST RECORD_LIST(arfcn_list, arfcn_list_len, VALUE(arfcn), VALUE(scs))
#define FREQ_LIST \
  FLAGGED(0x10, freq_list_valid, RECORD_LIST(freq_list, freq_list_len, VALUE(arfcn), VALUE(band), VALUE(scs)))
#define CC_CQI(tlv, member) \
  FLAGGED(tlv, member##_valid, RECORD_LIST(member, member##_len, LIST(cw_cqi, cw_cqi_len)))
#define PLMN_LIST \
  RECORD_LIST(plmn, plmn_count, VALUE(plmn_mcc), VALUE(plmn_mnc), VALUE(plmn_mnc_includes_pcs_digit))

constexpr auto table = std::array{
  REQUEST(YRP_NAS_INDICATION_REGISTER, "indication_register", yrp_nas_indication_register_req_t,
          OPTIONAL(0x10, sys_info), OPTIONAL(0x11, sig_info), OPTIONAL(0x12, reg_panel_pos_change_ind),
          OPTIONAL(0x13, reg_install_meas_ind), OPTIONAL(0x14, reg_install_status_ind)),
  ACCEPTED(YRP_NAS_INDICATION_REGISTER, "indication_register"),

  QUERY(YRP_NAS_GET_RF_BAND_INFO, "get_rf_band_info"),
  RESPONSE(YRP_NAS_GET_RF_BAND_INFO, "get_rf_band_info", yrp_nas_rf_band_info_resp_t,
           FLAGGED(0x10, lte_rf_bandwidth_valid, LIST(lte_rf_bandwidth, lte_rf_bandwidth_len)),
           FLAGGED(0x11, nr5g_rf_bandwidth_valid, LIST(nr5g_rf_bandwidth, nr5g_rf_bandwidth_len))),

  QUERY(YRP_NAS_GET_CELL_LOCATION_INFO, "get_cell_location_info"),
  RESPONSE(YRP_NAS_GET_CELL_LOCATION_INFO, "get_cell_location_info", yrp_nas_cell_location_info_resp_t,
           FLAGGED(0x10, lte_intra_valid,
                   RECORD(lte_intra, VALUE(earfcn), VALUE(pci), VALUE(tac), VALUE(cgi), VALUE(plmn_id), VALUE(rsrp),
                          VALUE(rsrq))),
           OPTIONAL(0x11, nr5g_arfcn),
           FLAGGED(0x12, nr5g_serving_cell_info_valid,
                   RECORD(nr5g_serving_cell_info, VALUE(pci), VALUE(cgi), VALUE(rsrp), VALUE(rsrq), VALUE(snr),
                          VALUE(plmn_id), VALUE(tac)))),

  QUERY(YRP_NAS_GET_SYS_INFO, "get_sys_info"),
  RESPONSE(YRP_NAS_GET_SYS_INFO, "get_sys_info", yrp_nas_sys_info_resp_t,
           SRV_STATUS(0x10, lte_srv_status_info), SRV_STATUS(0x11, nr5g_srv_status_info), OPTIONAL(0x12, nr5g_pci),
           OPTIONAL(0x13, endc_available), OPTIONAL(0x14, restrict_dcnr), OPTIONAL(0x15, nr5g_scs)),
  MESSAGE(YRP_NAS_SYS_INFO_IND, nas, indication, "sys_info_ind", yrp_nas_sys_info_ind_t,
          SRV_STATUS(0x10, lte_srv_status_info), SRV_STATUS(0x11, nr5g_srv_status_info), OPTIONAL(0x12, nr5g_pci)),

  QUERY(YRP_NAS_GET_SIG_INFO, "get_sig_info"),
  RESPONSE(YRP_NAS_GET_SIG_INFO, "get_sig_info", yrp_nas_sig_info_resp_t,
           FLAGGED(0x10, lte_sig_info_valid,
                   RECORD(lte_sig_info, VALUE(rssi), VALUE(rsrq), VALUE(rsrp), VALUE(snr))),
           NR5G_SIG_INFO, OPTIONAL(0x12, nr5g_rsrq)),
  MESSAGE(YRP_NAS_SIG_INFO_IND, nas, indication, "sig_info_ind", yrp_nas_sig_info_ind_t,
          FLAGGED(0x10, lte_sig_info_valid, RECORD(lte_sig_info, VALUE(rsrp), VALUE(snr), VALUE(rsrq))),
          NR5G_SIG_INFO, OPTIONAL(0x12, nr5g_rsrq)),

  REQUEST(YRP_NAS_GET_TX_RX_INFO, "get_tx_rx_info", yrp_nas_tx_rx_info_req_t, PART(0x01, VALUE(radio_if))),
  RESPONSE(YRP_NAS_GET_TX_RX_INFO, "get_tx_rx_info", yrp_nas_tx_rx_info_resp_t,
           FLAGGED(0x10, tx_valid, VALUE(tx_pwr)),
           FLAGGED(0x11, downlink_mod_valid, LIST(downlink_mod, downlink_mod_len)),
           FLAGGED(0x12, uplink_mod_valid, LIST(uplink_mod, uplink_mod_len))),

  REQUEST(YRP_NAS_CONFIG_SIG_INFO, "config_sig_info", yrp_nas_config_sig_info_req_t,
          OPTIONAL(0x10, lte_snr_delta), OPTIONAL(0x11, lte_rsrq_delta), OPTIONAL(0x12, lte_rsrp_delta),
          OPTIONAL(0x13, nr5g_snr_delta), OPTIONAL(0x14, nr5g_rsrp_delta), OPTIONAL(0x15, nr5g_rsrq_delta)),
  ACCEPTED(YRP_NAS_CONFIG_SIG_INFO, "config_sig_info"),

  REQUEST(YRP_NAS_INCREMENTAL_NETWORK_SCAN, "incremental_network_scan", yrp_nas_incremental_scan_req_t,
          OPTIONAL(0x10, network_type), OPTIONAL(0x11, scan_type)),
  ACCEPTED(YRP_NAS_INCREMENTAL_NETWORK_SCAN, "incremental_network_scan"),
  MESSAGE(YRP_NAS_INCREMENTAL_NETWORK_SCAN, nas, indication, "incremental_network_scan_ind",
          yrp_nas_incremental_scan_ind_t,
          PART(0x01, VALUE(scan_status)),
          FLAGGED(0x10, lte_nbr_info_valid,
                  RECORD_LIST(lte_nbr, lte_nbr_count, VALUE(earfcn), VALUE(pci), VALUE(cgi), PLMN_LIST),
                  RECORD(lte_highest_signal_nbr, VALUE(earfcn), VALUE(pci), VALUE(rsrp), VALUE(rsrq))),
          FLAGGED(0x11, nr5g_nbr_info_valid,
                  RECORD_LIST(nr5g_nbr, nr5g_nbr_count, VALUE(rsrp), VALUE(earfcn), VALUE(pci), LIST(cgi, cgi_count),
                              PLMN_LIST))),

  QUERY(YRP_NAS_GET_CPHY_CA_INFO, "get_cphy_ca_info"),
  RESPONSE(YRP_NAS_GET_CPHY_CA_INFO, "get_cphy_ca_info", yrp_nas_cphy_ca_info_resp_t, OPTIONAL(0x10, dl_bandwidth)),

  QUERY(YRP_NAS_GET_RRC_STATE, "get_rrc_state"),
  RESPONSE(YRP_NAS_GET_RRC_STATE, "get_rrc_state", yrp_nas_rrc_state_resp_t,
           OPTIONAL(0x10, lte_rrc_state), OPTIONAL(0x11, nr5g_rrc_state)),

  REQUEST(YRP_NAS_SET_LTE_CELL_LOCK_LIST, "set_lte_cell_lock_list", yrp_nas_set_lte_cell_lock_list_req_t,
          PART(0x01, LTE_CELL_LIST), OPTIONAL(0x10, enforce)),
  ACCEPTED(YRP_NAS_SET_LTE_CELL_LOCK_LIST, "set_lte_cell_lock_list"),

  REQUEST(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, "set_nr5g_cell_lock_list", yrp_nas_set_nr5g_cell_lock_list_req_t,
          PART(0x01, VALUE(type)),
          FLAGGED(0x10, cell_identity_valid,
                  RECORD(cell_identity, VALUE(pci), VALUE(scs), VALUE(arfcn), VALUE(blocks))),
          FLAGGED(0x11, arfcn_list_valid, ARFCN_LIST)),
  ACCEPTED(YRP_NAS_SET_NR5G_CELL_LOCK_LIST, "set_nr5g_cell_lock_list"),

  QUERY(YRP_NAS_GET_NR5G_CELL_LOCK_LIST, "get_nr5g_cell_lock_list"),
  RESPONSE(YRP_NAS_GET_NR5G_CELL_LOCK_LIST, "get_nr5g_cell_lock_list", yrp_nas_nr5g_cell_lock_list_resp_t,
           OPTIONAL(0x10, type),
           FLAGGED(0x11, cell_identity_valid, RECORD(cell_identity, VALUE(pci), VALUE(arfcn), VALUE(scs))),
           FLAGGED(0x12, arfcn_identity_valid, ARFCN_LIST)),

  REQUEST(YRP_NAS_SET_PPS_CONFIG, "set_pps_config", yrp_nas_set_pps_config_req_t,
          PART(0x01, VALUE(position_index)), PART(0x02, VALUE(pps_mode_enabled)), FREQ_LIST),
  RESPONSE(YRP_NAS_SET_PPS_CONFIG, "set_pps_config", yrp_nas_status_resp_t, OPTIONAL(0x10, status)),

  MESSAGE(YRP_NAS_PPS_IND, nas, indication, "pps_ind", yrp_nas_pps_ind_t,
          PART(0x01, VALUE(position_index)), PART(0x02, VALUE(position_changed)), PART(0x03, VALUE(mode_index))),

  REQUEST(YRP_NAS_SET_PPS_CHANGE_STATUS, "set_pps_change_status", yrp_nas_set_pps_change_status_req_t,
          PART(0x01, VALUE(position_index)), PART(0x02, VALUE(position_changed)), PART(0x03, VALUE(pps_mode))),
  ACCEPTED(YRP_NAS_SET_PPS_CHANGE_STATUS, "set_pps_change_status"),

  REQUEST(YRP_NAS_SET_NR5G_DEPRIORITIZE, "set_nr5g_deprioritize", yrp_nas_set_nr5g_deprioritize_req_t,
          PART(0x01, VALUE(deprioritize))),
  ACCEPTED(YRP_NAS_SET_NR5G_DEPRIORITIZE, "set_nr5g_deprioritize"),

  REQUEST(YRP_NAS_GET_CQI_INFO, "get_cqi_info", yrp_nas_cqi_info_req_t, OPTIONAL(0x10, radio_if)),
  RESPONSE(YRP_NAS_GET_CQI_INFO, "get_cqi_info", yrp_nas_cqi_info_resp_t,
           CC_CQI(0x10, lte_cc_cqi), CC_CQI(0x11, nr5g_cc_cqi)),

  REQUEST(YRP_NAS_SET_INSTALL_MODE, "set_install_mode", yrp_nas_set_install_mode_req_t,
          PART(0x01, VALUE(mode)), FREQ_LIST),
  RESPONSE(YRP_NAS_SET_INSTALL_MODE, "set_install_mode", yrp_nas_status_resp_t, OPTIONAL(0x10, status)),

  // The flag is a value of its own here: the list may come where it is 0.
  MESSAGE(YRP_NAS_INSTALL_FREQ_IND, nas, indication, "install_freq_ind", yrp_nas_install_freq_ind_t,
          PART(0x10, VALUE(freq_valid)),
          PART(0x11, RECORD_LIST(freqs, freq_len, VALUE(arfcn), VALUE(band), VALUE(scs), VALUE(rsrp), VALUE(snr)))),

  MESSAGE(YRP_NAS_INSTALL_STATUS_IND, nas, indication, "install_status_ind", yrp_nas_install_status_ind_t,
          FLAGGED(0x10, valid, VALUE(status))),

  QUERY(YRP_NAS_GET_LTE_CELL_LOCK_LIST, "get_lte_cell_lock_list"),
  RESPONSE(YRP_NAS_GET_LTE_CELL_LOCK_LIST, "get_lte_cell_lock_list", yrp_nas_lte_cell_lock_list_resp_t,
           FLAGGED(0x10, lte_cell_list_valid, LTE_CELL_LIST)),

  MESSAGE(OXMAP_MOBILE_AP_STATE_IND, oxmap, indication, "mobile_ap_state_ind", oxmap_mobile_ap_state_ind_t,
          PART(0x01, VALUE(state))),
  MESSAGE(OXMAP_QOS_FLOW_IND, oxmap, indication, "qos_flow_ind", oxmap_qos_flow_ind_t,
          PART(0x01, VALUE(bearer_id)), PART(0x02, VALUE(tx_5g_qci)), PART(0x03, VALUE(rx_5g_qci))),
  MESSAGE(OXMAP_MTPE_STATUS_IND, oxmap, indication, "mtpe_status_ind", oxmap_mtpe_status_ind_t,
          PART(0x01, VALUE(test_status)), OPTIONAL(0x10, peak_rate), OPTIONAL(0x11, failure_reason)),
};
// clang-format on
#pragma GCC diagnostic pop

}  // namespace

std::span<const sim_message> sim_messages() {
  return table;
}

const sim_message *sim_message_find(sim_lib lib, sim_direction direction, uint32_t id) {
  const auto row = std::find_if(table.begin(), table.end(), [=](const sim_message &message) {
    return message.id == id && message.direction == direction && message.lib == lib;
  });
  return row == table.end() ? nullptr : &*row;
}

bool sim_message_has_flag(const sim_message &message, std::string_view flag) {
  return std::any_of(message.parts.begin(), message.parts.end(),
                     [flag](const sim_part &part) { return part.valid_name && flag == part.valid_name; });
}
