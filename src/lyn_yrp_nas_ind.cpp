/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS client, indications: decodes what the modem sends unasked, logs it and posts it upward.
 *
 * One row per indication says how it is asked for, what it is decoded into and what is done with it. The lists of a
 * decoded record are cut to their room before anything walks them. Of system information only the network status goes
 * up, and only when it changed; all other records go up whole. Runs on the library's thread.
 */
#include "lyn_event.h"
#include "lyn_yrp_nas_priv.h"

/** Cut a list's length to its room. */
template <typename Entry, size_t LEN>
static void lyn_nas_cut(uint32_t &len, const Entry (&entries)[LEN]) {
  len = lyn_nas_clamp(len, entries, entries);
}

/* System information (78) */

/** Post the new status, which from here on is the one that the queries go by. */
static void lyn_nas_post_status(uint32_t status) {
  auto *posted = static_cast<uint32_t *>(malloc(sizeof(uint32_t)));
  if (posted == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return;
  }
  *posted = status;
  lyn_nas_network_status = status;
  (void)lyn_post_async_event(LYN_EVENT_SYS_INFO, posted);  // takes the block, also where it fails
}

/** A change that a query saw first has updated the status already and is not posted. */
static void lyn_nas_process_sys_info(yrp_nas_sys_info_ind_t &info) {
  const uint32_t status = lyn_nas_derive_status(info, LYN_LOG_HIGH_HERE);
  const uint32_t previous = lyn_nas_network_status;
  LYN_LOG_HIGH("System info indication - curr_network_status[%d], prev_network_status[%d]", status, previous);
  if (status != previous) {
    lyn_nas_post_status(status);
  }
}

/* Signal information (81) */

static void lyn_nas_process_sig_info(yrp_nas_sig_info_ind_t &info) {
  if (info.nr5g_sig_info_valid != 0) {
    LYN_LOG_HIGH("NR 5G signal info indication - rsrp[%hi]", info.nr5g_sig_info.rsrp);
    LYN_LOG_HIGH("NR 5G signal info indication - snr[%hi]", info.nr5g_sig_info.snr);
    LYN_LOG_HIGH("NR 5G signal info indication - nr5g_rsrq_valid[%u], nr5g_rsrq[%hi]", info.nr5g_rsrq_valid,
                 info.nr5g_rsrq);
  }
  if (info.lte_sig_info_valid != 0) {
    LYN_LOG_HIGH("LTE signal info indication - rsrp[%hi]", info.lte_sig_info.rsrp);
    LYN_LOG_HIGH("LTE signal info indication - snr[%hi]", info.lte_sig_info.snr);
    LYN_LOG_HIGH("LTE signal info indication - rsrq[%hi]", static_cast<int16_t>(info.lte_sig_info.rsrq));
  }
}

/* Panel position and install mode (278, 334, 335) */

static void lyn_nas_process_pps(yrp_nas_pps_ind_t &pps) {
  LYN_LOG_HIGH("NR 5g panel pos index indication - [%d]", pps.position_index);
  LYN_LOG_HIGH("NR 5g panel pos mode indication - [%d]", pps.mode_index);
}

/** The modem also fills the list of a record that it does not flag valid. */
static void lyn_nas_process_install_freq(yrp_nas_install_freq_ind_t &measured) {
  lyn_nas_cut(measured.freq_len, measured.freqs);
  if (measured.freq_valid != 0) {
    LYN_LOG_HIGH("NR 5g frequency is valid for install mode [%d]", measured.freq_valid);
    LYN_LOG_HIGH("NR 5g frequency length - [%d]", measured.freq_len);
  }
  for (uint32_t i = 0; i < measured.freq_len; i++) {
    LYN_LOG_HIGH("Install mode frequency of arfcn  - [%d]", measured.freqs[i].arfcn);
    LYN_LOG_HIGH("Install mode frequency of nr5g band - [%d]", measured.freqs[i].band);
    LYN_LOG_HIGH("Install mode frequency of scs  - [%d]", measured.freqs[i].scs);
    LYN_LOG_HIGH("Install mode value of RSRP  - [%d]", measured.freqs[i].rsrp);
    LYN_LOG_HIGH("Install mode Value of SNR  - [%d]", measured.freqs[i].snr);
  }
}

static void lyn_nas_process_install_status(yrp_nas_install_status_ind_t &install) {
  if (install.valid != 0) {
    LYN_LOG_HIGH(" install mode status[%d]", install.status);
  }
}

/* Incremental network scan (133) */

static void lyn_nas_cut_scan(yrp_nas_incremental_scan_ind_t &scan) {
  lyn_nas_cut(scan.lte_nbr_count, scan.lte_nbr);
  for (auto &nbr : scan.lte_nbr) {
    lyn_nas_cut(nbr.plmn_count, nbr.plmn);
  }
  lyn_nas_cut(scan.nr5g_nbr_count, scan.nr5g_nbr);
  for (auto &nbr : scan.nr5g_nbr) {
    lyn_nas_cut(nbr.cgi_count, nbr.cgi);
    lyn_nas_cut(nbr.plmn_count, nbr.plmn);
  }
}

static void lyn_nas_log_lte_scan(const yrp_nas_incremental_scan_ind_t &scan) {
  LYN_LOG_HIGH("LTE network scan indication - highest signal neighbor rsrp[%hi]", scan.lte_highest_signal_nbr.rsrp);
  LYN_LOG_HIGH("LTE network scan indication - highest signal neighbor rsrq[%hi]", scan.lte_highest_signal_nbr.rsrq);
  for (uint32_t i = 0; i < scan.lte_nbr_count; i++) {
    const auto &nbr = scan.lte_nbr[i];
    LYN_LOG_HIGH("LTE network scan indication - neighbor #%d earfcn[%u]", i, nbr.earfcn);
    LYN_LOG_HIGH("LTE network scan indication - neighbor #%d pci[%hu]", i, nbr.pci);
    LYN_LOG_HIGH("LTE network scan indication - neighbor #%d cgi[%u]", i, nbr.cgi);
    for (uint32_t k = 0; k < nbr.plmn_count; k++) {
      LYN_LOG_HIGH(
          "LTE network scan indication - neighbor #%d plmn_mcc[%hu] plmn_mnc[%hu], plmn_mnc_includes_pcs_digit[%u]", i,
          nbr.plmn[k].plmn_mcc, nbr.plmn[k].plmn_mnc, nbr.plmn[k].plmn_mnc_includes_pcs_digit);
    }
  }
}

static void lyn_nas_log_nr5g_scan(const yrp_nas_incremental_scan_ind_t &scan) {
  for (uint32_t i = 0; i < scan.nr5g_nbr_count; i++) {
    const auto &nbr = scan.nr5g_nbr[i];
    LYN_LOG_HIGH("NR 5G network scan indication - neighbor #%d rsrp[%hi]", i, nbr.rsrp);
    LYN_LOG_HIGH("NR 5G network scan indication - neighbor #%d earfcn[%u]", i, nbr.earfcn);
    LYN_LOG_HIGH("NR 5G network scan indication - neighbor #%d pci[%hu]", i, nbr.pci);
    for (uint32_t k = 0; k < nbr.cgi_count; k++) {
      LYN_LOG_HIGH("NR 5G network scan indication - neighbor #%d cgi[%llu]", i,
                   static_cast<unsigned long long>(nbr.cgi[k]));
    }
    for (uint32_t k = 0; k < nbr.plmn_count; k++) {
      LYN_LOG_HIGH(
          "NR 5G network scan indication - neighbor #%d plmn_mcc[%hu] plmn_mnc[%hu], plmn_mnc_includes_pcs_digit[%u]",
          i, nbr.plmn[k].plmn_mcc, nbr.plmn[k].plmn_mnc, nbr.plmn[k].plmn_mnc_includes_pcs_digit);
    }
  }
}

/** A scan asks for one radio; of an answer with both, only the LTE part is logged. */
static void lyn_nas_process_scan(yrp_nas_incremental_scan_ind_t &scan) {
  lyn_nas_cut_scan(scan);
  LYN_LOG_HIGH("Network incremental PCI extension scan status [%u]", scan.scan_status);
  if (scan.lte_nbr_info_valid != 0) {
    lyn_nas_log_lte_scan(scan);
  } else if (scan.nr5g_nbr_info_valid != 0) {
    lyn_nas_log_nr5g_scan(scan);
  }
}

/* The indications */

/** How the registration asks for an indication; null: for an indication that is not always wanted. */
typedef struct {
  uint8_t yrp_nas_indication_register_req_t::*valid;
  uint8_t yrp_nas_indication_register_req_t::*wanted;
} lyn_nas_ind_flag_t;

typedef struct {
  uint32_t msg_id;
  size_t size;                          // of the decoded record
  void (*log_failure)(int32_t status);  // of decoding
  void (*process)(void *record);
  bool posts_record;  // the record goes up whole
  lyn_nas_ind_flag_t flag;
} lyn_nas_ind_t;

/** `text` takes the status of decoding. */
#define LYN_NAS_IND_FAILURE(text) [](int32_t status) { LYN_LOG_ERROR(text, status); }

template <typename Record, void (*process)(Record &)>
static void lyn_nas_process(void *record) {
  process(*static_cast<Record *>(record));
}

/* That the scan shares the text of system information, and the install mode that of the panel, is deliberate: log
 * readers know them so. */
static constexpr lyn_nas_ind_t lyn_nas_inds[] = {
    {.msg_id = YRP_NAS_SYS_INFO_IND,
     .size = sizeof(yrp_nas_sys_info_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("System information change indication decoding failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_sys_info_ind_t, lyn_nas_process_sys_info>,
     .posts_record = false,
     .flag = {&yrp_nas_indication_register_req_t::sys_info_valid, &yrp_nas_indication_register_req_t::sys_info}},
    {.msg_id = YRP_NAS_SIG_INFO_IND,
     .size = sizeof(yrp_nas_sig_info_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("Signal strength change indication decoding failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_sig_info_ind_t, lyn_nas_process_sig_info>,
     .posts_record = true,
     .flag = {}},  // while one of its indications is subscribed
    {.msg_id = YRP_NAS_INCREMENTAL_NETWORK_SCAN,
     .size = sizeof(yrp_nas_incremental_scan_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("System information change indication decoding failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_incremental_scan_ind_t, lyn_nas_process_scan>,
     .posts_record = true,
     .flag = {}},  // an answer
    {.msg_id = YRP_NAS_PPS_IND,
     .size = sizeof(yrp_nas_pps_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("Panel position change indication failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_pps_ind_t, lyn_nas_process_pps>,
     .posts_record = true,
     .flag = {&yrp_nas_indication_register_req_t::reg_panel_pos_change_ind_valid,
              &yrp_nas_indication_register_req_t::reg_panel_pos_change_ind}},
    {.msg_id = YRP_NAS_INSTALL_FREQ_IND,
     .size = sizeof(yrp_nas_install_freq_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("Panel position change indication failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_install_freq_ind_t, lyn_nas_process_install_freq>,
     .posts_record = true,
     .flag = {&yrp_nas_indication_register_req_t::reg_install_meas_ind_valid,
              &yrp_nas_indication_register_req_t::reg_install_meas_ind}},
    {.msg_id = YRP_NAS_INSTALL_STATUS_IND,
     .size = sizeof(yrp_nas_install_status_ind_t),
     .log_failure = LYN_NAS_IND_FAILURE("Panel position change indication failed with status[%d]"),
     .process = lyn_nas_process<yrp_nas_install_status_ind_t, lyn_nas_process_install_status>,
     .posts_record = true,
     .flag = {&yrp_nas_indication_register_req_t::reg_install_status_ind_valid,
              &yrp_nas_indication_register_req_t::reg_install_status_ind}},
};

void lyn_nas_fill_registration(yrp_nas_indication_register_req_t &req) {
  for (const lyn_nas_ind_t &row : lyn_nas_inds) {
    if (row.flag.valid != nullptr) {
      req.*row.flag.valid = 1;
      req.*row.flag.wanted = 1;
    }
  }
}

/** Per row: a record that stayed here, because it did not decode or is not posted, for the next indication. */
static std::atomic<void *> lyn_nas_ind_spares[std::size(lyn_nas_inds)];

static void lyn_nas_handle_ind(const lyn_nas_ind_t &row, std::atomic<void *> &spare, yrp_client_type user_handle,
                               const void *buf, unsigned int len) {
  void *record = lyn_slot_take(spare, row.size);
  if (record == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return;
  }
  const int32_t status = yrp_client_message_decode(user_handle, YRP_MSG_INDICATION, row.msg_id, buf, len, record,
                                                   static_cast<unsigned int>(row.size));
  if (status != YRP_NO_ERR) {
    row.log_failure(status);
    lyn_slot_put(spare, record);
    return;
  }
  row.process(record);
  if (row.posts_record) {
    (void)lyn_post_async_event(row.msg_id, record);  // takes the record, also where it fails
  } else {
    lyn_slot_put(spare, record);
  }
}

static void lyn_nas_dispatch_ind(yrp_client_type user_handle, uint32_t msg_id, const void *buf, unsigned int len) {
  LYN_LOG_HIGH("Indication received from NAS service with msg_id[%d]", msg_id);
  const auto *row = std::find_if(std::begin(lyn_nas_inds), std::end(lyn_nas_inds),
                                 [msg_id](const lyn_nas_ind_t &ind) { return ind.msg_id == msg_id; });
  if (row != std::end(lyn_nas_inds)) {
    lyn_nas_handle_ind(*row, lyn_nas_ind_spares[row - lyn_nas_inds], user_handle, buf, len);
  }
}

void lyn_yrp_nas_ind_cb(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len, void *) {
  try {
    lyn_nas_dispatch_ind(user_handle, msg_id, buf, len);
  } catch (...) {  // nothing may unwind into the library
  }
}
