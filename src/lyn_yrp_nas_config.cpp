/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS client, configuration: what the module tells the modem to do.
 *
 * A request is a row: the range its record must keep, message, failure text, and how the record becomes the request.
 * The cell locks send two messages and the network scan checks no connection, so these two are written out. Records and
 * logs are in the API's numbering, requests in the modem's.
 */
#include "lyn_yrp_nas_priv.h"

/* Translation */

/* The modem's codes. */

/** Sub-carrier spacing, by ox_lyn_scs_e; "unknown" becomes the smallest. */
static constexpr uint32_t lyn_nas_scs_codes[] = {0, 0, 1, 2, 3, 4};
static_assert(std::size(lyn_nas_scs_codes) == OX_LYN_SCS_240_KHZ_E + 1);

/** Panel position mode, by ox_lyn_pps_mode_e; 0 is refused. */
static constexpr uint32_t lyn_nas_pps_modes[] = {0, 0, 1, 2};
static_assert(std::size(lyn_nas_pps_modes) == OX_LYN_PPS_MODE_3_E + 1);

/** Cell lock type, by ox_lyn_lock_type_e; 0 is refused. */
static constexpr uint32_t lyn_nas_lock_types[] = {0, 0, 1, 2};
static_assert(std::size(lyn_nas_lock_types) == OX_LYN_LOCK_UNLOCK_E + 1);

/** Install mode. */
enum : uint32_t { LYN_NAS_INSTALL_START = 0, LYN_NAS_INSTALL_STOP = 1 };

static constexpr bool lyn_nas_scs_known(uint32_t scs) {
  return scs < std::size(lyn_nas_scs_codes);
}

/** A list of frequencies that fits the request, each with a known spacing. */
static bool lyn_nas_freqs_in_range(uint32_t count, const ox_lyn_nr5g_freq_t (&freqs)[OX_LYN_FREQ_LEN]) {
  return count <= OX_LYN_FREQ_LEN &&
         std::all_of(freqs, freqs + count, [](const ox_lyn_nr5g_freq_t &freq) { return lyn_nas_scs_known(freq.scs); });
}

/** Both lists hold 16; the count is in range. */
static void lyn_nas_fill_freqs(uint32_t count, const ox_lyn_nr5g_freq_t (&freqs)[OX_LYN_FREQ_LEN],
                               yrp_nas_freq_t (&to)[YRP_NAS_FREQ_MAX]) {
  static_assert(static_cast<int>(OX_LYN_FREQ_LEN) == static_cast<int>(YRP_NAS_FREQ_MAX));
  std::transform(freqs, freqs + count, to, [](const ox_lyn_nr5g_freq_t &freq) {
    return yrp_nas_freq_t{.arfcn = freq.arfcn, .band = freq.band, .scs = lyn_nas_scs_codes[freq.scs]};
  });
}

/* The frame */

/** One request. A record out of range is refused without a message; `fill` logs why it refuses. */
template <typename Req, typename Resp, typename Record>
struct lyn_nas_config_t {
  lyn_nas_log_null_fn log_null;
  bool (*in_range)(const Record &record);
  int32_t (*fill)(const Record &record, Req &req);
  uint32_t msg_id;
  lyn_nas_log_failure_fn log_failure;
};

template <typename Req, typename Resp, typename Record>
static int32_t lyn_nas_configure(const Record *record, const lyn_nas_config_t<Req, Resp, Record> &config) {
  const int32_t checked = lyn_nas_check(record, config.log_null);
  if (checked != OX_LYN_SUCCESS) {
    return checked;
  }
  if (!config.in_range(*record)) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  lyn_nas_exchange_t<Req, Resp> exchange;
  if (!lyn_nas_alloc_logged(exchange, LYN_LOG_ERROR_HERE)) {
    return OX_LYN_ERR_NO_MEMORY;
  }
  const int32_t filled = config.fill(*record, *exchange.req);
  return filled == OX_LYN_SUCCESS ? lyn_nas_send(exchange, config.msg_id, config.log_failure) : filled;
}

template <typename Record>
static bool lyn_nas_any(const Record &) {
  return true;
}

/* Cell lock lists (216, 270) */

/** The two requests share one buffer. */
typedef union {
  yrp_nas_set_lte_cell_lock_list_req_t lte;
  yrp_nas_set_nr5g_cell_lock_list_req_t nr5g;
} lyn_nas_lock_req_t;

typedef lyn_nas_exchange_t<lyn_nas_lock_req_t, yrp_nas_resp_t> lyn_nas_lock_exchange_t;

/** Only the spacings that the request takes from the record: of the cell or, where none is named, of the list. */
static bool lyn_nas_lock_in_range(const lyn_nas_cell_lock_req_t &lock) {
  if (lock.cell_identity_valid != 0) {
    return lyn_nas_scs_known(lock.scs);
  }
  const uint32_t len =
      lock.arfcn_list_valid != 0 ? lyn_nas_clamp(lock.arfcn_list_len, lock.arfcn_list, lock.arfcn_list) : 0;
  return std::all_of(lock.arfcn_list, lock.arfcn_list + len, [](const ox_lyn_nr5g_lock_arfcn_t &entry) {
    return lyn_nas_scs_known(static_cast<uint32_t>(entry.scs));
  });
}

/** Cells beyond the record's room are not sent. */
static void lyn_nas_fill_lte_lock(const lyn_nas_cell_lock_req_t &lock, yrp_nas_set_lte_cell_lock_list_req_t &req) {
  req.lte_cell_list_len = lyn_nas_clamp(lock.lte_count, lock.lte_cells, req.lte_cell_list);
  for (uint32_t i = 0; i < req.lte_cell_list_len; i++) {
    req.lte_cell_list[i] = {.pci = lock.lte_cells[i].pci, .freq = lock.lte_cells[i].freq};
    LYN_LOG_HIGH("LTE multi-lock cell list #%d - pci[%hu]", i, req.lte_cell_list[i].pci);
    LYN_LOG_HIGH("LTE multi-lock cell list #%d - freq[%hu]", i, req.lte_cell_list[i].freq);
  }
  if (lock.lte_enforce != 0) {
    req.enforce_valid = 1;
    req.enforce = lock.lte_enforce;
    LYN_LOG_HIGH("LTE Celllock list enforce is enabled \n");
  }
}

/** Deliberate: refused requests log that "Retrieving" failed, here and below; a lock has the very text of its query. */
static int32_t lyn_nas_lock_lte(const lyn_nas_cell_lock_req_t &lock, lyn_nas_lock_exchange_t &exchange) {
  LYN_LOG_HIGH("LTE multi-lock cell list - lte_cell_list_valid[%d]", lock.lte_list_valid);
  if (lock.lte_list_valid == 0) {
    LYN_LOG_ERROR("Invalid LTE configuration\n");
    return OX_LYN_ERR_FAILURE;
  }
  lyn_nas_clear(exchange);
  lyn_nas_fill_lte_lock(lock, exchange.req->lte);
  return lyn_nas_send(exchange, YRP_NAS_SET_LTE_CELL_LOCK_LIST,
                      LYN_NAS_FAILURE("Retrieving LTE cell lock list failed - error[%d], response[%d/%d]"),
                      sizeof(exchange.req->lte));
}

static void lyn_nas_fill_lock_cell(const lyn_nas_cell_lock_req_t &lock, yrp_nas_set_nr5g_cell_lock_list_req_t &req) {
  static_assert(sizeof(req.cell_identity.blocks) == sizeof(lock.cell_blocks));
  req.cell_identity_valid = 1;
  req.cell_identity.pci = lock.pci;
  req.cell_identity.scs = lyn_nas_scs_codes[lock.scs];
  req.cell_identity.arfcn = lock.arfcn;
  memcpy(req.cell_identity.blocks, lock.cell_blocks, sizeof(req.cell_identity.blocks));
  LYN_LOG_HIGH("NR 5G multi-lock cell list - type[%d],cell_identity_valid [%d],pci[%d],arfcn[%d],scs[%d]",
               lock.nr5g_type, lock.cell_identity_valid, lock.pci, lock.arfcn, lock.scs);
}

/** Entries beyond the record's room are not sent. */
static void lyn_nas_fill_lock_arfcns(const lyn_nas_cell_lock_req_t &lock, yrp_nas_set_nr5g_cell_lock_list_req_t &req) {
  req.arfcn_list_valid = 1;
  req.arfcn_list_len = lyn_nas_clamp(lock.arfcn_list_len, lock.arfcn_list, req.arfcn_list);
  for (uint32_t i = 0; i < req.arfcn_list_len; i++) {
    req.arfcn_list[i] = {.arfcn = static_cast<uint32_t>(lock.arfcn_list[i].arfcn),
                         .scs = lyn_nas_scs_codes[lock.arfcn_list[i].scs]};
  }
  LYN_LOG_HIGH("NR 5G multi-lock cell list - arfcn_list_len[%d]", lock.arfcn_list_len);
  LYN_LOG_HIGH("NR 5G multi-lock cell list - type[%d],arfcn list valid  [%d],arfcn list len [%d]", lock.nr5g_type,
               lock.arfcn_list_valid, lock.arfcn_list_len);
}

/** False for a lock that names neither a cell nor frequencies and is no unlock, or whose type is unknown. */
static bool lyn_nas_fill_nr5g_lock(const lyn_nas_cell_lock_req_t &lock, yrp_nas_set_nr5g_cell_lock_list_req_t &req) {
  if (lock.nr5g_type == 0 || lock.nr5g_type >= std::size(lyn_nas_lock_types)) {
    return false;
  }
  req.type = lyn_nas_lock_types[lock.nr5g_type];
  if (lock.cell_identity_valid != 0) {
    lyn_nas_fill_lock_cell(lock, req);
    return true;
  }
  if (lock.arfcn_list_valid != 0) {
    lyn_nas_fill_lock_arfcns(lock, req);
    return true;
  }
  if (lock.nr5g_type == OX_LYN_LOCK_UNLOCK_E) {
    LYN_LOG_HIGH("NR 5G cell lock list unlocked , All parames are cleared\n");
    return true;
  }
  return false;
}

static int32_t lyn_nas_lock_nr5g(const lyn_nas_cell_lock_req_t &lock, lyn_nas_lock_exchange_t &exchange) {
  LYN_LOG_HIGH("NR 5G multi-lock cell list - type %d valid %d", lock.nr5g_type, lock.cell_identity_valid);
  lyn_nas_clear(exchange);
  if (!lyn_nas_fill_nr5g_lock(lock, exchange.req->nr5g)) {
    LYN_LOG_ERROR("Invalid NR5g configuration\n");
    return OX_LYN_ERR_FAILURE;
  }
  return lyn_nas_send(exchange, YRP_NAS_SET_NR5G_CELL_LOCK_LIST,
                      LYN_NAS_FAILURE("Retrieving NR 5G cell lock list failed - error[%d], response[%d/%d]"),
                      sizeof(exchange.req->nr5g));
}

int32_t lyn_yrp_nas_set_cell_lock_list(const lyn_nas_cell_lock_req_t *cell_lock_list) {
  const int32_t checked = lyn_nas_check(cell_lock_list, LYN_NAS_NULL("Invalid params - cell_lock_list[%p]"));
  if (checked != OX_LYN_SUCCESS) {
    return checked;
  }
  if (!lyn_nas_lock_in_range(*cell_lock_list)) {
    return OX_LYN_ERR_INVALID_PARAM;
  }
  lyn_nas_lock_exchange_t exchange;
  if (!lyn_nas_alloc_logged(exchange, LYN_LOG_ERROR_HERE)) {
    return OX_LYN_ERR_NO_MEMORY;
  }
  const uint32_t network_status = lyn_nas_network_status;
  int32_t status = OX_LYN_ERR_FAILURE;
  if (lyn_nas_has_lte(network_status)) {
    status = lyn_nas_lock_lte(*cell_lock_list, exchange);
    if (status != OX_LYN_SUCCESS) {
      return status;
    }
  }
  return lyn_nas_has_nr5g(network_status) ? lyn_nas_lock_nr5g(*cell_lock_list, exchange) : status;
}

/* NR 5G de-prioritisation (295) */

static int32_t lyn_nas_fill_deprioritize(const uint8_t &deprioritize, yrp_nas_set_nr5g_deprioritize_req_t &req) {
  if (!lyn_nas_has_nr5g(lyn_nas_network_status)) {
    LYN_LOG_ERROR("NR5G Service is not available \n");
    return OX_LYN_ERR_FAILURE;
  }
  req.deprioritize = deprioritize;
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_set_nr5g_deprioritize(uint8_t deprioritize) {
  static constexpr lyn_nas_config_t<yrp_nas_set_nr5g_deprioritize_req_t, yrp_nas_resp_t, uint8_t> config = {
      .log_null = nullptr,  // a value, not a record
      .in_range = lyn_nas_any,
      .fill = lyn_nas_fill_deprioritize,
      .msg_id = YRP_NAS_SET_NR5G_DEPRIORITIZE,
      .log_failure = LYN_NAS_FAILURE("Retrieving NR 5G de_prioritization is failed - error[%d], response[%d/%d]")};
  return lyn_nas_configure(&deprioritize, config);
}

/* Panel position configuration (277) */

static bool lyn_nas_pps_config_in_range(const ox_lyn_pps_config_t &pps_config) {
  return lyn_nas_freqs_in_range(pps_config.freq_count, pps_config.freqs);
}

static int32_t lyn_nas_fill_pps_config(const ox_lyn_pps_config_t &pps_config, yrp_nas_set_pps_config_req_t &req) {
  req.position_index = pps_config.position_index;
  req.pps_mode_enabled = pps_config.pps_mode_enabled;
  req.freq_list_valid = pps_config.freq_count != 0 ? 1 : 0;
  req.freq_list_len = pps_config.freq_count;
  lyn_nas_fill_freqs(pps_config.freq_count, pps_config.freqs, req.freq_list);
  LYN_LOG_HIGH("is pps mode enabled  %d\n", req.pps_mode_enabled);
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_set_pps_config(const ox_lyn_pps_config_t *pps_config) {
  static constexpr lyn_nas_config_t<yrp_nas_set_pps_config_req_t, yrp_nas_status_resp_t, ox_lyn_pps_config_t> config = {
      .log_null = LYN_NAS_NULL("Invalid params - pps config request [%p]"),
      .in_range = lyn_nas_pps_config_in_range,
      .fill = lyn_nas_fill_pps_config,
      .msg_id = YRP_NAS_SET_PPS_CONFIG,
      .log_failure = LYN_NAS_FAILURE("Retrieving pps config request  failed - error[%d], response[%d/%d]")};
  return lyn_nas_configure(pps_config, config);
}

/* Panel position change (279) */

/**
 * The two octets deliberately change places: the modem takes the index first here, as in its indication. So does the
 * text's full stop with its line break.
 */
static int32_t lyn_nas_fill_pps_change(const ox_lyn_pps_change_status_t &change,
                                       yrp_nas_set_pps_change_status_req_t &req) {
  if (change.pps_mode == OX_LYN_PPS_MODE_INVALID_E || change.pps_mode >= std::size(lyn_nas_pps_modes)) {
    LYN_LOG_ERROR("PPS mode is %d is invalid\n.", change.pps_mode);
    return OX_LYN_ERR_FAILURE;
  }
  req.position_index = change.position_index;
  req.position_changed = change.position_changed;
  req.pps_mode = lyn_nas_pps_modes[change.pps_mode];
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_set_pps_change_status(const ox_lyn_pps_change_status_t *pps_change_status) {
  static constexpr lyn_nas_config_t<yrp_nas_set_pps_change_status_req_t, yrp_nas_resp_t, ox_lyn_pps_change_status_t>
      config = {
          .log_null = LYN_NAS_NULL("Invalid params - pps change status request [%p]"),
          .in_range = lyn_nas_any,
          .fill = lyn_nas_fill_pps_change,
          .msg_id = YRP_NAS_SET_PPS_CHANGE_STATUS,
          .log_failure = LYN_NAS_FAILURE("Retrieving pps change status request  failed - error[%d], response[%d/%d]")};
  return lyn_nas_configure(pps_change_status, config);
}

/* Install mode (333) */

static bool lyn_nas_install_mode_in_range(const ox_lyn_install_mode_t &install_mode) {
  return lyn_nas_freqs_in_range(install_mode.freq_count, install_mode.freqs);
}

/** Modes other than start and stop are deliberately not refused: the request starts. */
static int32_t lyn_nas_fill_install_mode(const ox_lyn_install_mode_t &install_mode,
                                         yrp_nas_set_install_mode_req_t &req) {
  req.mode = install_mode.mode == OX_LYN_INSTALL_MODE_STOP_E ? LYN_NAS_INSTALL_STOP : LYN_NAS_INSTALL_START;
  req.freq_list_valid = install_mode.freq_count != 0 ? 1 : 0;
  req.freq_list_len = install_mode.freq_count;
  lyn_nas_fill_freqs(install_mode.freq_count, install_mode.freqs, req.freq_list);
  for (uint32_t i = 0; i < req.freq_list_len; i++) {
    const auto &freq = install_mode.freqs[i];
    LYN_LOG_HIGH("Install mode nr5g_earfcn %d\n", freq.arfcn);
    LYN_LOG_HIGH("Install mode band  %d\n", freq.band);
    LYN_LOG_HIGH("Install mode scs  %d\n", freq.scs);
  }
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_set_install_mode(const ox_lyn_install_mode_t *install_mode) {
  static constexpr lyn_nas_config_t<yrp_nas_set_install_mode_req_t, yrp_nas_status_resp_t, ox_lyn_install_mode_t>
      config = {.log_null = LYN_NAS_NULL("Invalid params - install mode config request [%p]"),
                .in_range = lyn_nas_install_mode_in_range,
                .fill = lyn_nas_fill_install_mode,
                .msg_id = YRP_NAS_SET_INSTALL_MODE,
                .log_failure = LYN_NAS_FAILURE("Retrieving set install mode request - error[%d], response[%d/%d]")};
  return lyn_nas_configure(install_mode, config);
}

/* Incremental network scan (133) */

static void lyn_nas_set_flag(uint8_t *flag, uint8_t value) {
  if (flag != nullptr) {
    *flag = value;
  }
}

/** LTE first: an NR 5G scan that is asked for as well is left to a later call. */
static void lyn_nas_fill_scan(uint32_t lte_scan_request, yrp_nas_incremental_scan_req_t &req) {
  req.network_type_valid = 1;
  req.network_type = lte_scan_request != 0 ? YRP_NAS_NETWORK_TYPE_LTE : YRP_NAS_NETWORK_TYPE_NR5G;
  req.scan_type_valid = 1;
  req.scan_type = YRP_NAS_SCAN_TYPE_PCI_EXT;
  LYN_LOG_HIGH("Performing incremental network scan request - network_type [%u]", req.network_type);
}

/** Deliberately without a check of the connection; the library refuses a null handle. */
int32_t lyn_yrp_nas_incremental_scan(uint32_t lte_scan_request, uint8_t *lte_scan_ongoing, uint32_t nr5g_scan_request,
                                     uint8_t *nr5g_scan_ongoing) {
  if ((lte_scan_request == 0 && nr5g_scan_request == 0) ||
      (lte_scan_ongoing == nullptr && nr5g_scan_ongoing == nullptr)) {
    LYN_LOG_ERROR(
        "Invalid params - lte_scan_request[%u], nr5g_scan_request[%u], lte_scan_ongoing[%p], nr5g_scan_ongoing[%p]",
        lte_scan_request, nr5g_scan_request, static_cast<void *>(lte_scan_ongoing),
        static_cast<void *>(nr5g_scan_ongoing));
    return OX_LYN_ERR_INVALID_PARAM;
  }
  lyn_nas_exchange_t<yrp_nas_incremental_scan_req_t, yrp_nas_resp_t> exchange;
  if (!lyn_nas_alloc_logged(exchange, LYN_LOG_ERROR_HERE)) {
    return OX_LYN_ERR_NO_MEMORY;
  }
  lyn_nas_set_flag(lte_scan_ongoing, 0);
  lyn_nas_set_flag(nr5g_scan_ongoing, 0);
  lyn_nas_fill_scan(lte_scan_request, *exchange.req);
  const int32_t status =
      lyn_nas_send(exchange, YRP_NAS_INCREMENTAL_NETWORK_SCAN,
                   LYN_NAS_FAILURE("Performing incremental network scan failed - error[%d], response[%d/%d]"));
  if (status == OX_LYN_SUCCESS) {
    lyn_nas_set_flag(lte_scan_request != 0 ? lte_scan_ongoing : nr5g_scan_ongoing, 1);
  }
  return status;
}
