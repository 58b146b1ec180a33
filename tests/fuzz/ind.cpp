/*
 * Any bytes as an indication of the modem to a running module: the first octet draws the indication, the rest is its
 * message. Ends with an error where the outcome is neither a decoded record nor the indication's logged failure.
 */
#include "../unit/ind_bytes.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const ox_lyn_hndl_t hndl = ind_bytes_start();
  if (hndl == 0 || size == 0)
    return hndl == 0 ? abort(), -1 : 0;
  const ind_bytes_kind &kind = ind_bytes_kinds[data[0] % std::size(ind_bytes_kinds)];
  bool decoded = false;
  const std::string wrong = ind_bytes_feed(kind, data + 1, size - 1, &decoded);
  if (!wrong.empty() || ind_bytes_beyond != 0) {
    fprintf(stderr, "%u: %s\n", kind.id, wrong.c_str());
    abort();
  }
  /* The queue must not outgrow the memory. */
  static size_t fed;
  if (++fed % 1000 == 0 && !ind_bytes_answers(hndl))
    abort();
  return 0;
}
