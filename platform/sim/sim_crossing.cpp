/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The calls of each library of the platform that have a name in a scenario.
 */
#include "sim_crossing.h"

#include <algorithm>
#include <charconv>
#include <span>

namespace {

struct library_calls {
  std::string_view lib;
  std::span<const std::string_view> calls;
};

constexpr std::string_view yrp_calls[] = {"nas_get_service_object_internal_v01",
                                          "notifier_init",
                                          "get_service_list",
                                          "yrp_cci_os_signal_wait",
                                          "register_notify_cb",
                                          "init_instance",
                                          "message_decode",
                                          "release"};
constexpr std::string_view oxmap_calls[] = {"OXMAP_Client",
                                            "~OXMAP_Client",
                                            "IsReady",
                                            "EnableMobileAP_Ext",
                                            "ConfigureMTPE",
                                            "StartMTPE",
                                            "TeardownMTPE",
                                            "GetMTPETestInfo",
                                            "GetWWANStatistics",
                                            "SetWWANProfileHandlePreference",
                                            "GetGlobalQoSFlowInfo",
                                            "GetWWANPolicyListEx",
                                            "GetWWANProfilePreference"};
constexpr std::string_view location_calls[] = {
    "LocationClientApi",   "~LocationClientApi",   "getSinglePosition", "startRoutineBatchingSession",
    "stopBatchingSession", "capabilitiesToString", "toString"};
constexpr std::string_view diag_calls[] = {"Diag_LSM_Init", "Diag_LSM_DeInit"};

constexpr library_calls libraries[] = {
    {"yrp", yrp_calls}, {"oxmap", oxmap_calls}, {"location", location_calls}, {"diag", diag_calls}};

constexpr char crossing_forms[] =
    "nas.ID, yrp.CALL, oxmap.METHOD, location.METHOD or diag.FUNCTION; nas.ind.ID or oxmap.ind.ID; any";

/** A row of names that end in the id of a message. */
struct message_names {
  std::string_view prefix;
  sim_lib lib;
  sim_direction direction;
  const char *none; /**< what is said of an id that has no such message */
};

constexpr char no_indication[] = "; the service sends no such indication";

/** Longer prefixes come first. */
constexpr message_names messages[] = {
    {"nas.ind.", sim_lib::nas, sim_direction::indication, no_indication},
    {"oxmap.ind.", sim_lib::oxmap, sim_direction::indication, no_indication},
    {"nas.", sim_lib::nas, sim_direction::response, "; the service answers no such message"},
};

const message_names *message_names_of(std::string_view name) {
  const auto *found = std::find_if(std::begin(messages), std::end(messages),
                                   [name](const message_names &row) { return name.starts_with(row.prefix); });
  return found != std::end(messages) ? found : nullptr;
}

std::string no_crossing(const std::string &name) {
  return "\"" + name + "\" is no crossing";
}

/** `name` begins with the library's own. */
std::optional<std::string> wrong_call(const library_calls &library, const std::string &name) {
  const std::string_view call = std::string_view(name).substr(library.lib.size() + 1);
  if (std::find(library.calls.begin(), library.calls.end(), call) != library.calls.end()) {
    return {};
  }
  std::string wrong = no_crossing(name) + "; those of ";
  wrong.append(library.lib);
  const char *before = " are ";
  for (const std::string_view known : library.calls) {
    wrong.append(before).append(known);
    before = ", ";
  }
  return wrong;
}

}  // namespace

const sim_message *sim_crossing_message(std::string_view name) {
  const message_names *row = message_names_of(name);
  if (!row) {
    return nullptr;
  }
  const std::string_view digits = name.substr(row->prefix.size());
  uint32_t id = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size() || digits.front() == '0') {
    return nullptr;
  }
  return sim_message_find(row->lib, row->direction, id);
}

std::string sim_crossing_indication(sim_lib lib, uint32_t id) {
  return (lib == sim_lib::nas ? "nas.ind." : "oxmap.ind.") + std::to_string(id);
}

std::optional<std::string> sim_crossing_wrong(const std::string &name) {
  if (name == sim_crossing_any || sim_crossing_message(name)) {
    return {};
  }
  if (const message_names *row = message_names_of(name)) {
    return no_crossing(name) + row->none;
  }
  for (const library_calls &library : libraries) {
    if (name.starts_with(std::string(library.lib) + '.')) {
      return wrong_call(library, name);
    }
  }
  return no_crossing(name) + " (" + crossing_forms + ")";
}
