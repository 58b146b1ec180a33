/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [[fault]].
 */
#include "sim_crossing.h"
#include "sim_key_types.h"
#include "sim_message.h"

namespace {

constexpr sim_key_type flags() {
  sim_key_type type = sim_key_plain<&sim_fault_rule::clear>(sim_key_kind::flags);
  type.range = "flags of the response";
  return type;
}

/** The times that a rule need not give. */
constexpr sim_key_type given_time() {
  return sim_key_as_time(sim_key_plain<&sim_fault_rule::delay_ms>(sim_key_kind::time));
}

constexpr sim_key fault_keys[] = {
    {.name = "on",
     .type = sim_key_crossing<&sim_fault_rule::on>(false),
     .text = "the call that goes wrong",
     .required = true},
    {.name = "skip",
     .type = sim_key_number<&sim_fault_rule::skip>(0),
     .initial = "0",
     .text = "let so many pass first"},
    {.name = "times",
     .type = sim_key_number<&sim_fault_rule::times>(-1),
     .initial = "1",
     .text = "then meet so many; -1: from then on"},
    {.name = "transport",
     .type = sim_key_given<&sim_fault_rule::transport>(),
     .text = "the status that the call returns; 0 where the rule names `result`, `clear` or `delay_ms` instead"},
    {.name = "result", .type = sim_key_given<&sim_fault_rule::result>(), .text = "result in the response"},
    {.name = "error", .type = sim_key_given<&sim_fault_rule::error>(), .text = "error code in the response"},
    {.name = "clear", .type = flags(), .initial = "[]", .text = "validity flags that are cleared"},
    {.name = "delay_ms", .type = given_time(), .text = "the call takes so much longer; 0 where it is not given"},
};

}  // namespace

sim_keys sim_keys_fault() {
  return fault_keys;
}

std::optional<sim_key_wrong> sim_key_wrong_fault(const sim_fault_rule &rule) {
  const std::optional<uint32_t> id = sim_crossing_message(rule.on);
  for (size_t at = 0; at < rule.clear.size(); ++at) {
    if (!id || !sim_message_has_flag(*id, rule.clear[at])) {
      return sim_key_wrong{"clear", at, '"' + rule.clear[at] + "\" is no validity flag of the response to " + rule.on};
    }
  }
  return {};
}
