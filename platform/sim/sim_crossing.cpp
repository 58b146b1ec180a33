/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The calls of each library of the platform that have a name in a scenario.
 */
#include "sim_crossing.h"

#include <algorithm>
#include <charconv>
#include <span>

#include "sim_message.h"

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

constexpr char crossing_forms[] = "nas.ID, yrp.CALL, oxmap.METHOD, location.METHOD or diag.FUNCTION";

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

std::optional<uint32_t> sim_crossing_message(std::string_view name) {
  if (!name.starts_with("nas.")) {
    return {};
  }
  const std::string_view digits = name.substr(4);
  uint32_t id = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size() || digits.front() == '0') {
    return {};
  }
  if (!sim_message_find(sim_lib::nas, sim_direction::response, id)) {
    return {};
  }
  return id;
}

std::optional<std::string> sim_crossing_wrong(const std::string &name) {
  if (sim_crossing_message(name)) {
    return {};
  }
  for (const library_calls &library : libraries) {
    if (name.starts_with(std::string(library.lib) + '.')) {
      return wrong_call(library, name);
    }
  }
  if (name.starts_with("nas.")) {
    return no_crossing(name) + "; the service answers no such message";
  }
  return no_crossing(name) + " (" + crossing_forms + ")";
}
