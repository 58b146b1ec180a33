/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any bytes as an indication to a running module, straight into the callback of its NAS or its mobile AP client; what
 * becomes of them is checked against the library's own decoder. Shared by the test of random bytes and the fuzz target.
 *
 * The module's log is replaced: it is formatted as always, but only a thread's last texts are kept.
 */
#ifndef IND_BYTES_H
#define IND_BYTES_H

#include <stdarg.h>
#include <stdio.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "event_release.h"
#include "lyn_log.h"
#include "lyn_oxmap_interface.h"
#include "lyn_yrp_nas.h"
#include "ox_lyn.h"
#include "oxmap_client.h"
#include "sim_board.h"
#include "sim_message.h"

extern yrp_client_type yrp_nas_clnt_handle; /* the NAS client's own */

/* In place of the module's lyn_log.cpp. */

/* The last of this thread. */
inline thread_local std::string ind_bytes_failure;
inline thread_local std::string ind_bytes_said; /* also a failure, but not that the queue is long */

bool lyn_log_init() {
  return true;
}
void lyn_log_deinit() {}
void lyn_log_emit(const diag_msg_record_t *record, const uint8_t *program, const uint64_t *words) {
  lyn_log_text_t text;
  lyn_log_format(text, program, words);
  if (record->level == DIAG_LEVEL_ERROR) {
    ind_bytes_failure = text;
  }
  if (std::string_view(record->file).find("lyn_cmdq") == std::string_view::npos) {
    ind_bytes_said = text;
  }
}

/* What the mobile AP client says last of a record. */

inline std::string ind_bytes_say_state(const void *record) {
  const auto &ind = *static_cast<const oxmap_mobile_ap_state_ind_t *>(record);
  if (ind.state != 1 && ind.state != 2) {
    return "";
  }
  return std::string("oxmap_msgr_yrp_oxmap_ind: Mobile AP ") + (ind.state == 1 ? "Connected..." : "Disconnected...");
}

inline std::string ind_bytes_say_flow(const void *) {
  return "Received GLOBAL_QOS_FLOW_IND \n";
}

inline std::string ind_bytes_hexadecimal(uint32_t value) {
  char text[16];
  snprintf(text, sizeof text, "0x%x", value);
  return text;
}

inline std::string ind_bytes_say_test(const void *record) {
  const auto &ind = *static_cast<const oxmap_mtpe_status_ind_t *>(record);
  switch (ind.test_status) {
    case 1:
      return "MTPE Test has successfully been configured and is ready to Start\n";
    case 2:
      return "Peak rate calculated: " + std::to_string(ind.peak_rate) + "(kbps)\n";
    case 3:
      return "MTPE Test Failed. Failure reason: " + ind_bytes_hexadecimal(ind.failure_reason) + "\n";
    case 4:
      return "MTPE Test was aborted before test duration ended\n";
    default:
      return "Invalid test status received: " + ind_bytes_hexadecimal(ind.test_status) + "\n";
  }
}

/** One kind of indication, and what comes of it. */
struct ind_bytes_kind {
  sim_lib lib;
  uint32_t id;
  size_t size;
  const char *failure;                        /* logged when it does not decode; %d: why */
  uint32_t delivered = 0;                     /* as what each decoded one is delivered; 0: not each is */
  std::string (*say)(const void *) = nullptr; /* logged last of a decoded one; null: anything but a failure */
  const char *prints = "";                    /* on standard output, whether it decodes or not */
  uint32_t few = 0;                           /* how many values, from 0, the module tells apart in ... */
  std::array<uint8_t, 2> codes = {};          /* ... the 32-bit numbers at these places of a whole message; 0: none */
};

/** Index of a response among what is delivered; indications have their own number. */
inline constexpr uint32_t ind_bytes_response = 16;

/* The fuzz target's inputs have the index: new ones go to the end. */
inline constexpr ind_bytes_kind ind_bytes_kinds[] = {
    {.lib = sim_lib::nas,
     .id = YRP_NAS_SYS_INFO_IND,
     .size = sizeof(yrp_nas_sys_info_ind_t),
     .failure = "System information change indication decoding failed with status[%d]"},
    {.lib = sim_lib::nas,
     .id = YRP_NAS_SIG_INFO_IND,
     .size = sizeof(yrp_nas_sig_info_ind_t),
     .failure = "Signal strength change indication decoding failed with status[%d]"},
    {.lib = sim_lib::nas,
     .id = YRP_NAS_INCREMENTAL_NETWORK_SCAN,
     .size = sizeof(yrp_nas_incremental_scan_ind_t),
     .failure = "System information change indication decoding failed with status[%d]",
     .delivered = ind_bytes_response + OX_LYN_ASYNC_NR5G_NBR_INFO_E,
     .few = 1, /* success, which has a list */
     .codes = {3}},
    {.lib = sim_lib::nas,
     .id = YRP_NAS_PPS_IND,
     .size = sizeof(yrp_nas_pps_ind_t),
     .failure = "Panel position change indication failed with status[%d]",
     .delivered = OX_LYN_IND_PPS_CHANGE_E},
    {.lib = sim_lib::nas,
     .id = YRP_NAS_INSTALL_FREQ_IND,
     .size = sizeof(yrp_nas_install_freq_ind_t),
     .failure = "Panel position change indication failed with status[%d]",
     .delivered = OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E},
    {.lib = sim_lib::nas,
     .id = YRP_NAS_INSTALL_STATUS_IND,
     .size = sizeof(yrp_nas_install_status_ind_t),
     .failure = "Panel position change indication failed with status[%d]",
     .delivered = OX_LYN_IND_INSTALL_MODE_STATUS_E},
    {.lib = sim_lib::oxmap,
     .id = OXMAP_MOBILE_AP_STATE_IND,
     .size = sizeof(oxmap_mobile_ap_state_ind_t),
     .failure = "oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d",
     .say = ind_bytes_say_state,
     .few = 4,
     .codes = {3}},
    {.lib = sim_lib::oxmap,
     .id = OXMAP_QOS_FLOW_IND,
     .size = sizeof(oxmap_qos_flow_ind_t),
     .failure = "oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d\n",
     .delivered = OX_LYN_IND_QOS_FLOW_E,
     .say = ind_bytes_say_flow,
     .few = 10,
     .codes = {7, 14}},
    {.lib = sim_lib::oxmap,
     .id = OXMAP_MTPE_STATUS_IND,
     .size = sizeof(oxmap_mtpe_status_ind_t),
     .failure = "oxmap_msgr_yrp_oxmap_ind: yrp_client_message_decode error %d\n",
     .delivered = OX_LYN_IND_MTPE_STATUS_E,
     .say = ind_bytes_say_test,
     .prints = "Modem Throughput Configuration successfull",
     .few = 6,
     .codes = {3}},
};

inline std::array<std::atomic<size_t>, 32> ind_bytes_delivered; /* by indication and response */
inline std::array<size_t, 32> ind_bytes_decoded;                /* what is to be delivered, likewise */
inline std::atomic<size_t> ind_bytes_beyond; /* deliveries with a count above its list's room, or no code of the API */

inline bool ind_bytes_within(const ox_lyn_nr5g_nbr_info_t &info) {
  return std::all_of(std::begin(info.cells), std::end(info.cells), [](const ox_lyn_nr5g_nbr_t &cell) {
    return cell.plmn_count <= OX_LYN_NR5G_NBR_PLMN_LEN && cell.cgi_count <= OX_LYN_NR5G_NBR_CGI_LEN;
  });
}

inline bool ind_bytes_within(const ox_lyn_dm_info_t &info) {
  const void *block = info.value.ptr;
  if (info.record_type == OX_LYN_RECORD_ASYNC_E) {
    return info.value_type != OX_LYN_VALUE_NR5G_NBR_E ||
           ind_bytes_within(*static_cast<const ox_lyn_nr5g_nbr_info_t *>(block));
  }
  if (info.metric == OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E) {
    return static_cast<const ox_lyn_install_freq_list_t *>(block)->count <= OX_LYN_FREQ_LEN;
  }
  if (info.metric == OX_LYN_IND_MTPE_STATUS_E) {
    return static_cast<const ox_lyn_mtpe_status_t *>(block)->test_status <= 3;
  }
  if (info.metric == OX_LYN_IND_QOS_FLOW_E) {
    const auto *flow = static_cast<const ox_lyn_qos_flow_t *>(block);
    return flow->tx_5g_qci <= 7 && flow->rx_5g_qci <= 7;
  }
  return true;
}

inline void ind_bytes_on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  ind_bytes_beyond += !ind_bytes_within(*info);
  ind_bytes_delivered[info->metric + (info->record_type == OX_LYN_RECORD_ASYNC_E ? ind_bytes_response : 0)]++;
  event_release(info);
}

/** The module up on a quiet board, everything subscribed; 0 where that failed. */
inline ox_lyn_hndl_t ind_bytes_start() {
  ox_lyn_hndl_t hndl = 0;
  if (!sim_board_load("[board]\nnoise_db = 0\n").empty() ||
      ox_lyn_init(&hndl, 0, ind_bytes_on_event) != OX_LYN_SUCCESS) {
    return 0;
  }
  for (uint32_t ind = OX_LYN_IND_MODEM_STATUS_E; ind <= OX_LYN_IND_NR5G_SINR_E; ind++) {
    ox_lyn_dm_ind_info_t info = {OX_LYN_RECORD_IND_E, ind, OX_LYN_VALUE_INT64_E, 1};
    if (ox_lyn_set_ind_info(hndl, &info) != OX_LYN_SUCCESS) {
      return 0;
    }
  }
  sim_board_wait_idle(5000);
  return hndl;
}

/** A handle that decodes what `lib` sends; the mobile AP client's own is out of reach. */
inline yrp_client_type ind_bytes_handle(sim_lib lib) {
  static const yrp_client_type oxmap = sim_client_open(sim_lib::oxmap, nullptr, nullptr);
  return lib == sim_lib::nas ? yrp_nas_clnt_handle : oxmap;
}

/** Call the client's callback as the library does. */
inline void ind_bytes_indicate(sim_lib lib, uint32_t id, std::vector<uint8_t> &bytes) {
  const auto size = static_cast<unsigned int>(bytes.size());
  if (lib == sim_lib::nas) {
    lyn_yrp_nas_ind_cb(ind_bytes_handle(lib), id, bytes.data(), size, nullptr);
  } else {
    lyn_oxmap_ind_cb(ind_bytes_handle(lib), id, bytes.data(), size);
  }
}

/**
 * Indicate bytes. Returns what is wrong about the outcome, or an empty text: what the library decodes must pass without
 * a failure, or be told apart as the kind's `say` does; all else must be logged as the kind's failure. `decoded` tells
 * which.
 */
inline std::string ind_bytes_feed(const ind_bytes_kind &kind, const uint8_t *data, size_t size, bool *decoded) {
  std::vector<uint8_t> bytes(data, data + size); /* its own block, so that a read behind it is seen */
  std::vector<uint64_t> record(kind.size / sizeof(uint64_t) + 1);
  const int32_t status =
      yrp_client_message_decode(ind_bytes_handle(kind.lib), YRP_MSG_INDICATION, kind.id, bytes.data(),
                                static_cast<unsigned int>(size), record.data(), static_cast<unsigned int>(kind.size));
  ind_bytes_failure.clear();
  ind_bytes_said.clear();
  ind_bytes_indicate(kind.lib, kind.id, bytes);
  *decoded = status == YRP_NO_ERR;
  ind_bytes_decoded[kind.delivered] += *decoded;
  std::string expected;
  if (!*decoded) {
    expected = kind.failure;
    expected.replace(expected.find("%d"), 2, std::to_string(status));
  } else if (kind.say != nullptr) {
    expected = kind.say(record.data());
  }
  const std::string &logged = *decoded && kind.say != nullptr ? ind_bytes_said : ind_bytes_failure;
  return logged == expected ? "" : "logged \"" + logged + "\" instead of \"" + expected + "\"";
}

/** Wait until what decoded is delivered. Returns what is wrong, or an empty text. */
inline std::string ind_bytes_settle() {
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    const auto &delivered = ind_bytes_delivered[kind.delivered];
    const size_t decoded = ind_bytes_decoded[kind.delivered];
    for (int ms = 0; kind.delivered != 0 && ms < 60000 && delivered < decoded; ms++) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    if (kind.delivered != 0 && delivered != decoded) {
      return std::to_string(kind.id) + ": " + std::to_string(delivered) + " of " + std::to_string(decoded) +
             " delivered";
    }
  }
  return ind_bytes_beyond == 0 ? "" : std::to_string(ind_bytes_beyond) + " out of their range delivered";
}

/** Whether the module still answers, and delivers. */
inline bool ind_bytes_answers(ox_lyn_hndl_t hndl) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = OX_LYN_GET_LTE_SERV_RSRP_E;
  return ox_lyn_get_info(hndl, &info) == OX_LYN_SUCCESS && info.value.i64 == -95;
}

#endif
