/*
 * Any bytes as an indication of the modem to a running module, straight into the NAS client's callback; what becomes of
 * them is checked against the library's own decoder. Shared by the test of random bytes and the fuzz target.
 *
 * The module's log is replaced: it is formatted as always, but only failures are kept.
 */
#ifndef IND_BYTES_H
#define IND_BYTES_H

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "lyn_log.h"
#include "lyn_yrp_nas.h"
#include "ox_lyn.h"
#include "sim_board.h"

extern yrp_client_type yrp_nas_clnt_handle; /* the NAS client's own */

/* In place of the module's lyn_log.cpp. */

inline thread_local std::string ind_bytes_failure; /* the last one of this thread */

bool lyn_log_init() {
  return true;
}
void lyn_log_deinit() {}
void lyn_log_emit(const diag_msg_record_t *record, const uint8_t *program, const uint64_t *words) {
  lyn_log_text_t text;
  lyn_log_format(text, program, words);
  if (record->level == DIAG_LEVEL_ERROR)
    ind_bytes_failure = text;
}

/** One kind of indication: its record and what is logged when it does not decode. */
struct ind_bytes_kind {
  uint32_t id;
  size_t size;
  const char *failure;
  uint32_t delivered; /* as what each decoded one is delivered; 0: not each is */
};

/** Index of a response among what is delivered; indications have their own number. */
inline constexpr uint32_t ind_bytes_response = 16;

inline constexpr ind_bytes_kind ind_bytes_kinds[] = {
    {78, sizeof(yrp_nas_sys_info_ind_t), "System information change indication decoding failed with status[", 0},
    {81, sizeof(yrp_nas_sig_info_ind_t), "Signal strength change indication decoding failed with status[", 0},
    {133, sizeof(yrp_nas_incremental_scan_ind_t), "System information change indication decoding failed with status[",
     ind_bytes_response + OX_LYN_ASYNC_NR5G_NBR_INFO_E},
    {278, sizeof(yrp_nas_pps_ind_t), "Panel position change indication failed with status[", OX_LYN_IND_PPS_CHANGE_E},
    {334, sizeof(yrp_nas_install_freq_ind_t), "Panel position change indication failed with status[",
     OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E},
    {335, sizeof(yrp_nas_install_status_ind_t), "Panel position change indication failed with status[",
     OX_LYN_IND_INSTALL_MODE_STATUS_E},
};

inline std::array<std::atomic<size_t>, 32> ind_bytes_delivered; /* by indication and response */
inline std::atomic<size_t> ind_bytes_beyond;                    /* deliveries with a count above its list's room */

inline bool ind_bytes_within(const ox_lyn_nr5g_nbr_info_t &info) {
  return std::all_of(std::begin(info.cells), std::end(info.cells), [](const ox_lyn_nr5g_nbr_t &cell) {
    return cell.plmn_count <= OX_LYN_NR5G_NBR_PLMN_LEN && cell.cgi_count <= OX_LYN_NR5G_NBR_CGI_LEN;
  });
}

inline void ind_bytes_on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  const bool async = info->record_type == OX_LYN_RECORD_ASYNC_E;
  bool within = true;
  if (async && info->value_type == OX_LYN_VALUE_NR5G_NBR_E)
    within = ind_bytes_within(*static_cast<ox_lyn_nr5g_nbr_info_t *>(info->value.ptr));
  else if (!async && info->metric == OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E)
    within = static_cast<ox_lyn_install_freq_list_t *>(info->value.ptr)->count <= OX_LYN_FREQ_LEN;
  ind_bytes_beyond += !within;
  ind_bytes_delivered[info->metric + (async ? ind_bytes_response : 0)]++;
  if (async ? info->value_type != 0
            : info->metric == OX_LYN_IND_PPS_CHANGE_E || info->metric == OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E)
    free(info->value.ptr);
  free(info);
}

/** The module up on a quiet board, everything subscribed; 0 where that failed. */
inline ox_lyn_hndl_t ind_bytes_start() {
  ox_lyn_hndl_t hndl = 0;
  if (!sim_board_load("[board]\nnoise_db = 0\n").empty() || ox_lyn_init(&hndl, 0, ind_bytes_on_event) != OX_LYN_SUCCESS)
    return 0;
  for (uint32_t ind = OX_LYN_IND_MODEM_STATUS_E; ind <= OX_LYN_IND_NR5G_SINR_E; ind++) {
    ox_lyn_dm_ind_info_t info = {OX_LYN_RECORD_IND_E, ind, OX_LYN_VALUE_INT64_E, 1};
    if (ox_lyn_set_ind_info(hndl, &info) != OX_LYN_SUCCESS)
      return 0;
  }
  sim_board_wait_idle(5000);
  return hndl;
}

/**
 * Hand bytes to the callback as the library does. Returns what is wrong about it, or an empty text: what the library
 * decodes must pass without a failure, all else must be logged as the indication's failure. `decoded` tells which.
 */
inline std::string ind_bytes_feed(const ind_bytes_kind &kind, const uint8_t *data, size_t size, bool *decoded) {
  std::vector<uint8_t> bytes(data, data + size); /* its own block, so that a read behind it is seen */
  std::vector<uint64_t> record(kind.size / sizeof(uint64_t) + 1);
  const int32_t status =
      yrp_client_message_decode(yrp_nas_clnt_handle, YRP_MSG_INDICATION, kind.id, bytes.data(),
                                static_cast<unsigned int>(size), record.data(), static_cast<unsigned int>(kind.size));
  ind_bytes_failure.clear();
  lyn_yrp_nas_ind_cb(yrp_nas_clnt_handle, kind.id, bytes.data(), static_cast<unsigned int>(size), nullptr);
  *decoded = status == YRP_NO_ERR;
  const std::string expected = *decoded ? "" : kind.failure + std::to_string(status) + "]";
  return ind_bytes_failure == expected ? "" : "logged \"" + ind_bytes_failure + "\" instead of \"" + expected + "\"";
}

/** Whether the module still answers, and delivers. */
inline bool ind_bytes_answers(ox_lyn_hndl_t hndl) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = OX_LYN_GET_LTE_SERV_RSRP_E;
  return ox_lyn_get_info(hndl, &info) == OX_LYN_SUCCESS && info.value.i64 == -95;
}

#endif
