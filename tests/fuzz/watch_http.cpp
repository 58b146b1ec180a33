/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any bytes as one connection to the live picture's server. Ends with an error where what it answers is not one
 * well-formed answer after the other, each of them 200 or a refusal; only to nothing may it answer nothing. The first
 * octet says how many octets come at once.
 */
#include <cstdio>
#include <cstdlib>

#include "../unit/watch_wire.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static lyn_watch_model_t *const model = [] {
    lyn_watch_model_t *made = watch_model(3).release();
    lyn_watch_model_end(made); /* so that streams of events end */
    return made;
  }();
  if (size == 0) {
    return 0;
  }
  watch_wire wire({reinterpret_cast<const char *>(data) + 1, size - 1});
  wire.at_once = data[0] == 0 ? SIZE_MAX : data[0];
  lyn_watch_talk(model, {}, &wire);
  std::string_view answers = wire.out;
  if (answers.empty() != (size == 1)) {
    abort();
  }
  while (!answers.empty()) {
    const watch_answer answer = watch_take_answer(&answers);
    if (answer.status != 200 && (answer.status < 400 || answer.status > 499)) {
      fprintf(stderr, "%d\n%s\n", answer.status, wire.out.c_str());
      abort();
    }
  }
  return 0;
}
