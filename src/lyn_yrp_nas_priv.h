/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What the four files of the NAS client share and nobody else includes: the client's state, the one road of a request
 * to the modem, and the network status.
 *
 * A request is checked (record, connection, range), its buffers are allocated zeroed, it is sent and judged, and its
 * failure is logged with the request's own text:
 *
 *   lyn_nas_exchange_t<yrp_nas_empty_req_t, yrp_nas_rrc_state_resp_t> exchange;
 *   if (!lyn_nas_alloc(exchange)) return OX_LYN_ERR_NO_MEMORY;
 *   return lyn_nas_send(exchange, YRP_NAS_GET_RRC_STATE, LYN_NAS_FAILURE("... error[%d], response[%d/%d]"));
 */
#ifndef LYN_YRP_NAS_PRIV_H
#define LYN_YRP_NAS_PRIV_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <atomic>
#include <type_traits>

#include "lyn_block.h"
#include "lyn_log.h"
#include "lyn_yrp_nas.h"

/* State */

/** Client handle; null while not connected. Read and written under the module lock. */
extern yrp_client_type yrp_nas_clnt_handle;

/** Network status, ox_lyn_reg_status_e. Written by indication 78 and by the query that updates it; any thread. */
extern std::atomic<uint32_t> lyn_nas_network_status;

/** Connected? If not, that is logged. */
bool lyn_nas_connected(void);

/** Does this network status have an LTE cell? */
constexpr bool lyn_nas_has_lte(uint32_t status) {
  return status == OX_LYN_REG_LTE_E || status == OX_LYN_REG_LTE_NR5G_E;
}

/** Does this network status have an NR 5G cell? */
constexpr bool lyn_nas_has_nr5g(uint32_t status) {
  return status == OX_LYN_REG_LTE_NR5G_E || status == OX_LYN_REG_NR5G_E;
}

/* Indications: lyn_yrp_nas_ind.cpp */

/** Ask for the indications that the client always wants. */
void lyn_nas_fill_registration(yrp_nas_indication_register_req_t &req);

/* The road to the modem */

/** Log functions that the macros below make: each carries one text, its arguments checked by the compiler. */
typedef void (*lyn_nas_log_null_fn)(const void *record);
typedef void (*lyn_nas_log_failure_fn)(int32_t transport, uint32_t result, uint32_t error);

/** `text` takes the record's address. */
#define LYN_NAS_NULL(text) [](const void *record) { LYN_LOG_ERROR(text, record); }

/** `text` takes transport status, result and error code. */
#define LYN_NAS_FAILURE(text) \
  [](int32_t transport, uint32_t result, uint32_t error) { LYN_LOG_ERROR(text, transport, result, error); }

/** Request and response of one message, or of two in turn. Resp, or each member of it, begins with the response head.
 */
template <typename Req, typename Resp>
struct lyn_nas_exchange_t {
  static_assert(std::is_trivially_copyable_v<Req> && std::is_trivially_copyable_v<Resp>);
  lyn_block_t<Req> req;
  lyn_block_t<Resp> resp;
};

/** Allocate both buffers, zeroed. False when there is no memory, which the caller logs. */
template <typename Req, typename Resp>
bool lyn_nas_alloc(lyn_nas_exchange_t<Req, Resp> &exchange) {
  exchange.req = lyn_zeroed_block<Req>();
  exchange.resp = lyn_zeroed_block<Resp>();
  return exchange.req != nullptr && exchange.resp != nullptr;
}

/** The same for queries and configuration requests, logged as of the caller's `place`. */
template <typename Req, typename Resp>
bool lyn_nas_alloc_logged(lyn_nas_exchange_t<Req, Resp> &exchange, const diag_msg_record_t *place) {
  if (lyn_nas_alloc(exchange)) {
    return true;
  }
  LYN_LOG_OF(place, "Memory allocation failure");
  return false;
}

/** Zero both buffers for the next message. */
template <typename Req, typename Resp>
void lyn_nas_clear(lyn_nas_exchange_t<Req, Resp> &exchange) {
  memset(exchange.req.get(), 0, sizeof(Req));
  memset(exchange.resp.get(), 0, sizeof(Resp));
}

/** Send and wait for the response, at most 50 s. Returns the transport status; the response's result is not examined.
 */
int32_t lyn_nas_transport(uint32_t msg_id, void *req, size_t req_len, void *resp, size_t resp_len);

/** Send, judge transport and result, log a failure. 0 or -1. */
int32_t lyn_nas_send_raw(uint32_t msg_id, void *req, size_t req_len, void *resp, size_t resp_len,
                         lyn_nas_log_failure_fn log_failure);

/** The same for an exchange. The lengths are the message's own where the buffers serve more than one. */
template <typename Req, typename Resp>
int32_t lyn_nas_send(lyn_nas_exchange_t<Req, Resp> &exchange, uint32_t msg_id, lyn_nas_log_failure_fn log_failure,
                     size_t req_len = sizeof(Req), size_t resp_len = sizeof(Resp)) {
  return lyn_nas_send_raw(msg_id, exchange.req.get(), req_len, exchange.resp.get(), resp_len, log_failure);
}

/** The checks that open a request: record given (-2), connected (-12). */
int32_t lyn_nas_check(const void *record, lyn_nas_log_null_fn log_null);

/** `len` limited to the room in both lists. */
template <typename From, size_t FROM_LEN, typename To, size_t TO_LEN>
constexpr uint32_t lyn_nas_clamp(uint32_t len, const From (&)[FROM_LEN], const To (&)[TO_LEN]) {
  return std::min(len, static_cast<uint32_t>(std::min(FROM_LEN, TO_LEN)));
}

/* Network status */

/** Status that a radio's srv_status stands for while it is not in full service; `other` where it says nothing. */
constexpr uint32_t lyn_nas_restricted_status(uint32_t srv_status, uint32_t other) {
  switch (srv_status) {
    case YRP_NAS_SRV_LIMITED:
      return OX_LYN_REG_LIMITED_E;
    case YRP_NAS_SRV_LIMITED_REGIONAL:
      return OX_LYN_REG_LIMITED_REGIONAL_E;
    case YRP_NAS_SRV_POWER_SAVE:
      return OX_LYN_REG_POWER_SAVE_E;
    default:
      return other;
  }
}

/**
 * Network status of system information, from response 77 or record 78: full NR 5G service decides, then LTE. Logged as
 * of the caller's `place`.
 */
template <typename SysInfo>
uint32_t lyn_nas_derive_status(const SysInfo &info, const diag_msg_record_t *place) {
  uint32_t status = OX_LYN_REG_NO_SERVICE_E;
  if (info.nr5g_srv_status_info_valid != 0) {
    LYN_LOG_OF(place, "NR 5G system info indication - srv_status[%d]", info.nr5g_srv_status_info.srv_status);
    LYN_LOG_OF(place, "NR 5G system info indication - srv_domain[%d]", info.nr5g_srv_status_info.srv_domain);
    LYN_LOG_OF(place, "NR 5G system info indication - srv_capability[%d]", info.nr5g_srv_status_info.srv_capability);
    if (info.nr5g_srv_status_info.srv_status == YRP_NAS_SRV_SERVICE) {
      return OX_LYN_REG_NR5G_E;
    }
    status = lyn_nas_restricted_status(info.nr5g_srv_status_info.srv_status, status);
  }
  if (info.lte_srv_status_info_valid != 0) {
    LYN_LOG_OF(place, "LTE system info indication - srv_status[%d]", info.lte_srv_status_info.srv_status);
    LYN_LOG_OF(place, "LTE system info indication - srv_domain[%d]", info.lte_srv_status_info.srv_domain);
    LYN_LOG_OF(place, "LTE system info indication - srv_capability[%d]", info.lte_srv_status_info.srv_capability);
    LYN_LOG_OF(place, "LTE system info indication - nr5g_pci_valid[%d], nr5g_pci[%d]", info.nr5g_pci_valid,
               info.nr5g_pci);
    if (info.lte_srv_status_info.srv_status == YRP_NAS_SRV_SERVICE) {
      return info.nr5g_pci_valid != 0 ? OX_LYN_REG_LTE_NR5G_E : OX_LYN_REG_LTE_E;
    }
    status = lyn_nas_restricted_status(info.lte_srv_status_info.srv_status, status);
  }
  return status;
}

#endif
