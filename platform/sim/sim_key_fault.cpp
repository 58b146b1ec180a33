/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [[fault]].
 */
#include "sim_crossing.h"
#include "sim_key_types.h"

namespace {

constexpr sim_key_type flags() {
  sim_key_type type = sim_key_plain<&sim_fault_rule::clear>(sim_key_kind::flags);
  type.range = "flags of the message";
  return type;
}

constexpr sim_key_word modem_words[] = {{"up"}, {"down"}, {"restart"}};

/** What becomes of the modem, if anything. */
constexpr sim_key_type modem() {
  sim_key_type type = sim_key_plain<&sim_fault_rule::modem>(sim_key_kind::word);
  type.most = sim_key_longest_text;
  type.words = modem_words;
  return type;
}

/** A change of service, like that of the timeline. */
constexpr sim_key_type sys_info() {
  sim_key_type type = {.kind = sim_key_kind::table, .keys = sim_keys_sys_info, .patch = true};
  type.fill = [](void *record, const std::vector<sim_key_change> &changes) {
    sim_ev_change &change = static_cast<sim_fault_rule *>(record)->sys_info.emplace();
    change.sys_info = true;
    change.apply = [changes](sim_radio &radio) { sim_key_fill_table<&sim_radio::sys_info>(&radio, changes); };
  };
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
     .text = "the status that the call returns; 0 where the rule names another effect instead"},
    {.name = "result", .type = sim_key_given<&sim_fault_rule::result>(), .text = "result in the response"},
    {.name = "error", .type = sim_key_given<&sim_fault_rule::error>(), .text = "error code in the response"},
    {.name = "clear",
     .type = flags(),
     .initial = "[]",
     .text = "validity flags of the response, or of an indication, that are cleared"},
    {.name = "delay_ms", .type = given_time(), .text = "the call takes so much longer; 0 where it is not given"},
    {.name = "late",
     .type = sim_key_boolean<&sim_fault_rule::late>(),
     .initial = "false",
     .text = "true: a NAS request is carried out, but its answer comes behind the time-out, which is not waited for: "
             "transport -3"},
    {.name = "truncate",
     .type = sim_key_given<&sim_fault_rule::truncate>(),
     .text = "so many octets of an indication are left"},
    {.name = "modem",
     .type = modem(),
     .text = "just before the call, as at a [time](#timeline); \"restart\": down and up again"},
    {.name = "sys_info", .type = sys_info(), .text = "exactly these change just before the call; sends indication 78"},
};

}  // namespace

sim_keys sim_keys_fault() {
  return fault_keys;
}

std::optional<sim_key_wrong> sim_key_wrong_fault(const sim_fault_rule &rule) {
  const sim_message *message = sim_crossing_message(rule.on);
  for (size_t at = 0; at < rule.clear.size(); ++at) {
    if (!message || !sim_message_has_flag(*message, rule.clear[at])) {
      const bool sent = message && message->direction == sim_direction::indication;
      return sim_key_wrong{
          "clear", at,
          '"' + rule.clear[at] + "\" is no validity flag of " + (sent ? "" : "the response to ") + rule.on};
    }
  }
  return {};
}
