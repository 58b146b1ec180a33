/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any bytes as an indication to a running module: the first octet draws the indication, the rest is its message. Ends
 * with an error where the outcome is neither a decoded record nor the indication's logged failure.
 */
#include "../unit/ind_bytes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool quiet = freopen("/dev/null", "w", stdout) != nullptr; /* the module prints at each test status */
  static const ox_lyn_hndl_t hndl = quiet ? ind_bytes_start() : 0;
  if (hndl == 0 || size == 0) {
    return hndl == 0 ? abort(), -1 : 0;
  }
  const ind_bytes_kind &kind = ind_bytes_kinds[data[0] % std::size(ind_bytes_kinds)];
  bool decoded = false;
  const std::string wrong = ind_bytes_feed(kind, data + 1, size - 1, &decoded);
  if (!wrong.empty() || ind_bytes_beyond != 0) {
    fprintf(stderr, "%u: %s\n", kind.id, wrong.empty() ? "delivered out of its range" : wrong.c_str());
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
