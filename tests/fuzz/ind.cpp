/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any bytes as an indication to a running module: the first octet draws the indication, the rest is its message. Ends
 * with an error where the outcome is neither a decoded record nor the indication's logged failure. Behind 255 stands an
 * event of the NAS service in place of a message.
 */
#include <string.h>

#include "../unit/ind_bytes.h"

/** What is wrong about the outcome, or an empty text: two are delivered, all others logged as a failure. */
static std::string feed_service_event(const uint8_t *data, size_t size) {
  int32_t event = 0;
  memcpy(&event, data, std::min(size, sizeof event));
  const bool known = event == YRP_SERVICE_UP || event == YRP_SERVICE_DOWN;
  ind_bytes_failure.clear();
  lyn_yrp_nas_svc_notify_cb(yrp_nas_clnt_handle, nullptr, event, nullptr);
  const auto &delivered = ind_bytes_delivered[OX_LYN_IND_MODEM_STATUS_E];
  static size_t expected;
  expected += known;
  for (int ms = 0; ms < 60000 && delivered < expected; ms++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  const std::string failure = "NAS service event[" + std::to_string(event) + "] is not currently supported";
  return delivered == expected && ind_bytes_failure == (known ? "" : failure) ? "" : failure;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool quiet = freopen("/dev/null", "w", stdout) != nullptr; /* the module prints at each test status */
  static const ox_lyn_hndl_t hndl = quiet ? ind_bytes_start() : 0;
  if (hndl == 0 || size == 0) {
    return hndl == 0 ? abort(), -1 : 0;
  }
  const ind_bytes_kind &kind = ind_bytes_kinds[data[0] % std::size(ind_bytes_kinds)];
  bool decoded = false;
  const std::string wrong = data[0] == UINT8_MAX ? feed_service_event(data + 1, size - 1)
                                                 : ind_bytes_feed(kind, data + 1, size - 1, &decoded);
  if (!wrong.empty() || ind_bytes_beyond != 0) {
    fprintf(stderr, "%u, %u: %s\n", data[0], kind.id, wrong.empty() ? "delivered out of its range" : wrong.c_str());
    abort();
  }
  /* The queue must not outgrow the memory. The first are looked at one by one: seeds, and what is repeated. */
  static size_t fed;
  if (fed++ >= 100 && fed % 1000 != 0) {
    return 0;
  }
  const std::string missing = ind_bytes_settle();
  if (!missing.empty() || !ind_bytes_answers(hndl)) {
    fprintf(stderr, "%s\n", missing.c_str());
    abort();
  }
  return 0;
}
