/*
 * The scenario reader. A scenario is described by tables with one row per key: its name and a function that reads its
 * value. What a value may be follows from the member that it is stored in (its wire type gives the range, sizes of
 * lists are the capacities of the messages).
 *
 * A row does not store: it returns the change that stores. So the same rows serve the tables of the scenario and the
 * entries of the timeline, which give any of a table's keys and apply them later.
 *
 * Reading goes on after an error; the one that stands first in the file is reported. toml++ stays inside this file.
 */
#include "sim_scenario.h"

#include <toml++/toml.h>
#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <limits>
#include <type_traits>
#include <utility>

#include "nas_service_v01.h"
#include "oxmap_client.h"
#include "sim_file.h"
#include "sim_message.h"

namespace {

struct traced_key {
  toml::source_position at;
  std::string path;
};

struct reader {
  std::string error; /**< without origin; empty: none so far */
  toml::source_position at = {};
  bool timeline = false;               /**< inside an [[at]] */
  std::vector<traced_key> trace_owned; /**< keys of the timeline that a trace does not leave to it */
};

template <typename record>
using change = std::function<void(record &)>;

/** One key of a table that is stored in a `record`. */
template <typename record>
struct key_row {
  std::string_view name;
  change<record> (*read)(reader &, const std::string &path, const toml::node &);
  bool required = false;
  bool traced = false; /**< a trace owns the value */
};

bool stands_before(const toml::source_position &a, const toml::source_position &b) {
  return a.line != b.line ? a.line < b.line : a.column < b.column;
}

void fail(reader &in, const toml::source_position &at, const std::string &text) {
  if (!in.error.empty() && !stands_before(at, in.at))
    return;
  in.error = text;
  in.at = at;
}

void fail(reader &in, const toml::node &node, const std::string &path, const std::string &text) {
  fail(in, node.source().begin, path + ": " + text);
}

std::string type_text(const toml::node &node) {
  switch (node.type()) {
    case toml::node_type::none:
      return "nothing";
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a number with a fraction";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::date:
    case toml::node_type::time:
    case toml::node_type::date_time:
      return "a date or time";
  }
  return "nothing";
}

void fail_type(reader &in, const toml::node &node, const std::string &path, const std::string &wanted) {
  fail(in, node, path, type_text(node) + ", where " + wanted + " is allowed");
}

std::string number_text(double value) {
  char text[32];
  const std::to_chars_result end = std::to_chars(text, text + sizeof(text), value);
  return std::string(text, end.ptr);
}

// Numbers. Limits are int64_t, as TOML's own integers are; wider wire fields are limited by those.

constexpr int64_t no_minimum = std::numeric_limits<int64_t>::min();
constexpr int64_t no_maximum = std::numeric_limits<int64_t>::max();

template <typename number>
constexpr int64_t lowest() {
  if constexpr (std::is_floating_point_v<number>)
    return no_minimum;
  else
    return static_cast<int64_t>(std::numeric_limits<number>::min());
}

template <typename number>
constexpr int64_t highest() {
  if constexpr (std::is_floating_point_v<number> || sizeof(number) == sizeof(int64_t))
    return no_maximum;
  else
    return static_cast<int64_t>(std::numeric_limits<number>::max());
}

std::string range_text(int64_t min, int64_t max) {
  if (min == no_minimum && max == no_maximum)
    return "any";
  if (max == no_maximum)
    return "from " + std::to_string(min);
  return "from " + std::to_string(min) + " to " + std::to_string(max);
}

std::optional<int64_t> read_integer(reader &in, const std::string &path, const toml::node &node, int64_t min,
                                    int64_t max) {
  if (!node.is_integer()) {
    fail_type(in, node, path, "an integer (" + range_text(min, max) + ")");
    return {};
  }
  const int64_t value = node.as_integer()->get();
  if (value >= min && value <= max)
    return value;
  fail(in, node, path, std::to_string(value) + " is out of range (" + range_text(min, max) + ")");
  return {};
}

/** `allowed` says in words what `is_allowed` asks. */
template <typename check>
std::optional<double> read_real(reader &in, const std::string &path, const toml::node &node, const std::string &allowed,
                                const check &is_allowed) {
  if (!node.is_number()) {
    fail_type(in, node, path, "a number (" + allowed + ")");
    return {};
  }
  const double value =
      node.is_integer() ? static_cast<double>(node.as_integer()->get()) : node.as_floating_point()->get();
  if (is_allowed(value))
    return value;
  fail(in, node, path, number_text(value) + " is out of range (" + allowed + ")");
  return {};
}

template <typename number>
std::optional<number> read_number(reader &in, const std::string &path, const toml::node &node,
                                  int64_t min = lowest<number>(), int64_t max = highest<number>()) {
  if constexpr (std::is_floating_point_v<number>) {
    const auto is_allowed = [min, max](double value) {
      const bool above = min == no_minimum || value >= static_cast<double>(min);
      const bool below = max == no_maximum || value <= static_cast<double>(max);
      return above && below && std::fabs(value) <= static_cast<double>(std::numeric_limits<number>::max());
    };
    const std::optional<double> value = read_real(in, path, node, range_text(min, max), is_allowed);
    return value ? std::optional(static_cast<number>(*value)) : std::nullopt;
  } else {
    const std::optional<int64_t> value = read_integer(in, path, node, std::max(min, lowest<number>()), max);
    return value ? std::optional(static_cast<number>(*value)) : std::nullopt;
  }
}

std::optional<std::string> read_text(reader &in, const std::string &path, const toml::node &node, size_t longest) {
  if (!node.is_string()) {
    fail_type(in, node, path, "a text");
    return {};
  }
  const std::string &value = node.as_string()->get();
  if (value.size() > longest) {
    fail(in, node, path,
         "a text of " + std::to_string(value.size()) + " octets, at most " + std::to_string(longest) + " are allowed");
    return {};
  }
  if (value.find('\0') != std::string::npos) {
    fail(in, node, path, "a text that holds the character 0");
    return {};
  }
  return value;
}

/** The list, when it is one of at most `most` entries. */
const toml::array *read_list(reader &in, const std::string &path, const toml::node &node, size_t most) {
  const toml::array *list = node.as_array();
  if (!list) {
    fail_type(in, node, path, "a list");
    return nullptr;
  }
  if (list->size() <= most)
    return list;
  fail(in, node, path, std::to_string(list->size()) + " entries, at most " + std::to_string(most) + " are allowed");
  return nullptr;
}

template <typename number>
std::optional<std::vector<number>> read_numbers(reader &in, const std::string &path, const toml::node &node,
                                                size_t most) {
  const toml::array *list = read_list(in, path, node, most);
  if (!list)
    return {};
  std::vector<number> values;
  for (const toml::node &entry : *list) {
    const std::optional<number> value =
        read_number<number>(in, path + '[' + std::to_string(values.size()) + ']', entry);
    values.push_back(value.value_or(number()));
  }
  return values;
}

// Tables.

template <typename record>
std::string key_names(std::span<const key_row<record>> rows) {
  std::string names;
  for (const key_row<record> &row : rows)
    names.append(names.empty() ? "" : ", ").append(row.name);
  return names;
}

template <typename record>
void require_keys(reader &in, const std::string &path, const toml::table &table,
                  std::span<const key_row<record>> rows) {
  for (const key_row<record> &row : rows) {
    if (row.required && !table.contains(row.name)) {
      fail(in, table, path, "the key " + std::string(row.name) + " is missing");
    }
  }
}

/** All that a table changes, in the order of its rows. */
template <typename record>
change<record> read_table(reader &in, const std::string &path, const toml::node &node,
                          std::span<const key_row<record>> rows) {
  const toml::table *table = node.as_table();
  if (!table) {
    fail_type(in, node, path, "a table with the keys " + key_names(rows));
    return {};
  }
  const std::string prefix = path.empty() ? "" : path + '.';
  for (const auto &[key, value] : *table) {
    const std::string_view name = key.str();
    const bool known = std::any_of(rows.begin(), rows.end(), [name](const auto &row) { return row.name == name; });
    if (known)
      continue;
    fail(in, key.source().begin, prefix + std::string(name) + ": unknown key; the keys here are " + key_names(rows));
  }
  require_keys(in, path, *table, rows);
  std::vector<change<record>> changes;
  for (const key_row<record> &row : rows) {
    const toml::node *value = table->get(row.name);
    if (!value)
      continue;
    const std::string key_path = prefix + std::string(row.name);
    if (in.timeline && row.traced)
      in.trace_owned.push_back({value->source().begin, key_path});
    if (change<record> made = row.read(in, key_path, *value))
      changes.push_back(std::move(made));
  }
  return [changes = std::move(changes)](record &to) {
    for (const change<record> &made : changes)
      made(to);
  };
}

// What a row can be: templates over the member that stores the value.

template <typename owner, typename value>
owner owner_type(value owner::*);
template <typename owner, typename value>
value value_type(value owner::*);

template <auto member>
using owner_of = decltype(owner_type(member));
template <auto member>
using value_of = std::remove_reference_t<decltype(std::declval<owner_of<member> &>().*member)>;

template <auto member, typename value>
change<owner_of<member>> store(std::optional<value> read) {
  if (!read)
    return {};
  return [read = *std::move(read)](owner_of<member> &to) { to.*member = read; };
}

template <auto member, int64_t min = lowest<value_of<member>>(), int64_t max = highest<value_of<member>>()>
change<owner_of<member>> number(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_number<value_of<member>>(in, path, node, min, max));
}

/** A number that the scenario need not give. */
template <auto member>
change<owner_of<member>> given(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_number<typename value_of<member>::value_type>(in, path, node));
}

/** A day: what is longer is a slip, and would look like a board that hangs. */
constexpr int64_t longest_ms = 86'400'000;

/** A time. */
template <auto member>
change<owner_of<member>> milliseconds(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_number<double>(in, path, node, 0, longest_ms));
}

/** The same, or -1: never. No other negative number says so, it would be a slip. */
template <auto member>
change<owner_of<member>> milliseconds_or_never(reader &in, const std::string &path, const toml::node &node) {
  const auto is_allowed = [](double ms) { return ms == -1 || (ms >= 0 && ms <= longest_ms); };
  return store<member>(read_real(in, path, node, "-1, or " + range_text(0, longest_ms), is_allowed));
}

/** A measured value: what the wire's type holds, or "absent". */
template <auto member, typename wire>
change<owner_of<member>> measured(reader &in, const std::string &path, const toml::node &node) {
  if (node.is_string() && node.as_string()->get() == "absent") {
    return [](owner_of<member> &to) { (to.*member).reset(); };
  }
  if (!node.is_integer()) {
    fail_type(in, node, path, "an integer (" + range_text(lowest<wire>(), highest<wire>()) + ") or \"absent\"");
    return {};
  }
  return store<member>(read_number<wire>(in, path, node));
}

template <auto member>
change<owner_of<member>> boolean(reader &in, const std::string &path, const toml::node &node) {
  if (!node.is_boolean()) {
    fail_type(in, node, path, "a boolean");
    return {};
  }
  return store<member>(std::optional(node.as_boolean()->get()));
}

template <auto member, size_t longest = 4096>
change<owner_of<member>> text(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_text(in, path, node, longest));
}

/** One of a few words. */
template <typename value>
struct word {
  std::string_view name;
  value meaning;
};

template <auto member, const auto &words>
change<owner_of<member>> choice(reader &in, const std::string &path, const toml::node &node) {
  std::string allowed;
  for (const auto &row : words)
    allowed.append(allowed.empty() ? "" : ", ").append(row.name);
  if (!node.is_string()) {
    fail_type(in, node, path, "one of the texts " + allowed);
    return {};
  }
  const std::optional<std::string> name = read_text(in, path, node, 4096);
  if (!name)
    return {};
  for (const auto &row : words) {
    if (row.name == *name)
      return store<member>(std::optional(value_of<member>(row.meaning)));
  }
  fail(in, node, path, "\"" + *name + "\" is none of " + allowed);
  return {};
}

/** A list of numbers, at most `most`. */
template <auto member, size_t most>
change<owner_of<member>> numbers(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_numbers<typename value_of<member>::value_type>(in, path, node, most));
}

/** An array: exactly as many numbers as it has. */
template <auto member>
change<owner_of<member>> array(reader &in, const std::string &path, const toml::node &node) {
  using number_type = std::remove_extent_t<value_of<member>>;
  constexpr size_t count = std::extent_v<value_of<member>>;
  std::optional<std::vector<number_type>> values = read_numbers<number_type>(in, path, node, count);
  if (!values)
    return {};
  if (values->size() != count) {
    fail(in, node, path, std::to_string(values->size()) + " entries, " + std::to_string(count) + " are needed");
    return {};
  }
  return [values = *std::move(values)](owner_of<member> &to) {
    std::copy(values.begin(), values.end(), std::begin(to.*member));
  };
}

/** CQI: a list of component carriers, each the list of its codewords. */
template <auto member, size_t most>
change<owner_of<member>> carriers(reader &in, const std::string &path, const toml::node &node) {
  const toml::array *list = read_list(in, path, node, most);
  if (!list)
    return {};
  value_of<member> values;
  for (const toml::node &entry : *list) {
    const std::string place = path + '[' + std::to_string(values.size()) + ']';
    values.push_back(read_numbers<uint8_t>(in, place, entry, YRP_NAS_CW_MAX).value_or(std::vector<uint8_t>()));
  }
  return store<member>(std::optional(std::move(values)));
}

/** A table inside the table; keys that it does not give stay as they are. */
template <auto member, const auto &keys>
change<owner_of<member>> record(reader &in, const std::string &path, const toml::node &node) {
  change<value_of<member>> inner = read_table<value_of<member>>(in, path, node, keys);
  if (!inner)
    return {};
  return [inner = std::move(inner)](owner_of<member> &to) { inner(to.*member); };
}

/** A key whose value is stored in a struct inside the record. */
template <auto member, auto read>
change<owner_of<member>> within(reader &in, const std::string &path, const toml::node &node) {
  change<value_of<member>> inner = read(in, path, node);
  if (!inner)
    return {};
  return [inner = std::move(inner)](owner_of<member> &to) { inner(to.*member); };
}

template <typename entry>
void any_entry(reader &, const std::string &, const toml::node &, const entry &) {}

/** A list of tables; it replaces the default. `check` sees each entry whole. */
template <typename entry, const auto &keys, auto check = any_entry<entry>>
std::optional<std::vector<entry>> read_records(reader &in, const std::string &path, const toml::node &node,
                                               size_t most) {
  const toml::array *list = read_list(in, path, node, most);
  if (!list)
    return {};
  std::vector<entry> entries;
  for (const toml::node &item : *list) {
    const std::string place = path + '[' + std::to_string(entries.size()) + ']';
    entry made;
    if (const change<entry> fill = read_table<entry>(in, place, item, keys)) {
      fill(made);
      check(in, place, item, made);
    }
    entries.push_back(std::move(made));
  }
  return entries;
}

constexpr size_t unlimited = std::numeric_limits<size_t>::max();

template <auto member, size_t most, const auto &keys, auto check = any_entry<typename value_of<member>::value_type>>
change<owner_of<member>> records(reader &in, const std::string &path, const toml::node &node) {
  return store<member>(read_records<typename value_of<member>::value_type, keys, check>(in, path, node, most));
}

// Names of crossings.

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

/** The id of "nas.79", when the service answers such a message. */
std::optional<uint32_t> nas_message(std::string_view name) {
  if (!name.starts_with("nas."))
    return {};
  const std::string_view digits = name.substr(4);
  uint32_t id = 0;
  const std::from_chars_result end = std::from_chars(digits.data(), digits.data() + digits.size(), id);
  if (end.ec != std::errc() || end.ptr != digits.data() + digits.size() || digits.front() == '0')
    return {};
  if (!sim_message_find(sim_lib::nas, sim_direction::response, id))
    return {};
  return id;
}

std::string wrong_crossing(const std::string &name) {
  for (const library_calls &library : libraries) {
    if (!name.starts_with(std::string(library.lib) + '.'))
      continue;
    std::string wrong = "\"" + name + "\" is no crossing; those of ";
    wrong.append(library.lib);
    const char *before = " are ";
    for (const std::string_view call : library.calls) {
      wrong.append(before).append(call);
      before = ", ";
    }
    return wrong;
  }
  if (name.starts_with("nas."))
    return "\"" + name + "\" is no crossing; the service answers no such message";
  return "\"" + name + "\" is no crossing (" + crossing_forms + ")";
}

bool is_crossing(const std::string &name) {
  if (nas_message(name))
    return true;
  for (const library_calls &library : libraries) {
    if (!name.starts_with(std::string(library.lib) + '.'))
      continue;
    const std::string_view call = std::string_view(name).substr(library.lib.size() + 1);
    return std::find(library.calls.begin(), library.calls.end(), call) != library.calls.end();
  }
  return false;
}

template <auto member, bool may_be_empty>
change<owner_of<member>> crossing(reader &in, const std::string &path, const toml::node &node) {
  const std::optional<std::string> name = read_text(in, path, node, 4096);
  if (!name)
    return {};
  if (!(may_be_empty && name->empty()) && !is_crossing(*name))
    fail(in, node, path, wrong_crossing(*name));
  return store<member>(name);
}

// The tables.

using board_t = decltype(sim_scenario::board);
constexpr key_row<board_t> board_keys[] = {
    {.name = "seed", .read = number<&board_t::seed, 0>},
    {.name = "noise_db", .read = number<&board_t::noise_db, 0, 1000>},
    {.name = "tick_ms", .read = number<&board_t::tick_ms, 1, longest_ms>},
};

using nas_t = decltype(sim_scenario::nas);
constexpr key_row<nas_t> nas_keys[] = {
    {.name = "available", .read = boolean<&nas_t::available>},
    {.name = "available_after_ms", .read = milliseconds<&nas_t::available_after_ms>},
};

constexpr word<sim_srv> srv_words[] = {
    {"absent", sim_srv::absent},         {"no_service", sim_srv::no_service},
    {"limited", sim_srv::limited},       {"service", sim_srv::service},
    {"power_save", sim_srv::power_save}, {"limited_regional", sim_srv::limited_regional}};

constexpr key_row<sim_sys_info> sys_info_keys[] = {
    {.name = "lte", .read = choice<&sim_sys_info::lte, srv_words>, .traced = true},
    {.name = "nr5g", .read = choice<&sim_sys_info::nr5g, srv_words>, .traced = true},
    {.name = "nr5g_pci", .read = number<&sim_sys_info::nr5g_pci, -1, UINT16_MAX>, .traced = true},
    {.name = "lte_domain", .read = number<&sim_sys_info::lte_domain>},
    {.name = "lte_capability", .read = number<&sim_sys_info::lte_capability>},
    {.name = "nr5g_domain", .read = number<&sim_sys_info::nr5g_domain>},
    {.name = "nr5g_capability", .read = number<&sim_sys_info::nr5g_capability>},
};

constexpr key_row<sim_plmn> plmn_keys[] = {
    {.name = "mcc", .read = number<&sim_plmn::mcc>},
    {.name = "mnc", .read = number<&sim_plmn::mnc>},
    {.name = "pcs_digit", .read = number<&sim_plmn::pcs_digit>},
};

constexpr key_row<sim_lte_nbr> lte_nbr_keys[] = {
    {.name = "earfcn", .read = number<&sim_lte_nbr::earfcn>},
    {.name = "pci", .read = number<&sim_lte_nbr::pci>},
    {.name = "cgi", .read = number<&sim_lte_nbr::cgi>},
    {.name = "rsrp", .read = number<&sim_lte_nbr::rsrp>},
    {.name = "rsrq", .read = number<&sim_lte_nbr::rsrq>},
    {.name = "plmn", .read = records<&sim_lte_nbr::plmn, YRP_NAS_LTE_PLMN_MAX, plmn_keys>},
};

constexpr key_row<sim_lock_cell> lock_cell_keys[] = {
    {.name = "pci", .read = number<&sim_lock_cell::pci>},
    {.name = "freq", .read = number<&sim_lock_cell::freq>},
};

constexpr key_row<sim_lte> lte_keys[] = {
    {.name = "earfcn", .read = number<&sim_lte::earfcn>},
    {.name = "pci", .read = number<&sim_lte::pci>},
    {.name = "tac", .read = measured<&sim_lte::tac, uint16_t>, .traced = true},
    {.name = "cgi", .read = measured<&sim_lte::cgi, uint32_t>, .traced = true},
    {.name = "plmn", .read = array<&sim_lte::plmn>},
    {.name = "rsrp", .read = measured<&sim_lte::rsrp, int16_t>, .traced = true},
    {.name = "rsrq", .read = measured<&sim_lte::rsrq, int8_t>, .traced = true},
    {.name = "snr", .read = measured<&sim_lte::snr, int16_t>, .traced = true},
    {.name = "rssi", .read = number<&sim_lte::rssi>},
    {.name = "tx_power", .read = number<&sim_lte::tx_power>},
    {.name = "rrc_state", .read = number<&sim_lte::rrc_state>},
    {.name = "cqi", .read = carriers<&sim_lte::cqi, YRP_NAS_LTE_CC_MAX>, .traced = true},
    {.name = "dl_mod", .read = numbers<&sim_lte::dl_mod, YRP_NAS_MOD_MAX>},
    {.name = "ul_mod", .read = numbers<&sim_lte::ul_mod, YRP_NAS_MOD_MAX>},
    {.name = "rf_bandwidth", .read = numbers<&sim_lte::rf_bandwidth, YRP_NAS_RF_BAND_MAX>},
    {.name = "ca_dl_bandwidth", .read = number<&sim_lte::ca_dl_bandwidth>},
    {.name = "cell_lock", .read = records<&sim_lte::cell_lock, YRP_NAS_LTE_LOCK_GET_MAX, lock_cell_keys>},
    {.name = "neighbour", .read = records<&sim_lte::neighbour, YRP_NAS_LTE_NBR_MAX, lte_nbr_keys>, .traced = true},
};

constexpr key_row<sim_nr5g_nbr> nr5g_nbr_keys[] = {
    {.name = "arfcn", .read = number<&sim_nr5g_nbr::arfcn>},
    {.name = "pci", .read = number<&sim_nr5g_nbr::pci>},
    {.name = "rsrp", .read = number<&sim_nr5g_nbr::rsrp>},
    {.name = "cgi", .read = numbers<&sim_nr5g_nbr::cgi, YRP_NAS_NR5G_CGI_MAX>},
    {.name = "plmn", .read = records<&sim_nr5g_nbr::plmn, YRP_NAS_NR5G_PLMN_MAX, plmn_keys>},
};

constexpr key_row<sim_nr5g_lock_arfcn> lock_arfcn_keys[] = {
    {.name = "arfcn", .read = number<&sim_nr5g_lock_arfcn::arfcn>},
    {.name = "scs", .read = number<&sim_nr5g_lock_arfcn::scs>},
};

constexpr key_row<sim_nr5g_lock> nr5g_lock_keys[] = {
    {.name = "type", .read = number<&sim_nr5g_lock::type>},
    {.name = "pci", .read = number<&sim_nr5g_lock::pci>},
    {.name = "arfcn", .read = number<&sim_nr5g_lock::arfcn>},
    {.name = "scs", .read = number<&sim_nr5g_lock::scs>},
    {.name = "list", .read = records<&sim_nr5g_lock::list, YRP_NAS_NR5G_LOCK_MAX, lock_arfcn_keys>},
};

constexpr key_row<sim_nr5g> nr5g_keys[] = {
    {.name = "arfcn", .read = number<&sim_nr5g::arfcn, 0>},
    {.name = "pci", .read = number<&sim_nr5g::pci>},
    {.name = "cgi", .read = number<&sim_nr5g::cgi, 0>},
    {.name = "tac", .read = array<&sim_nr5g::tac>},
    {.name = "plmn", .read = array<&sim_nr5g::plmn>},
    {.name = "rsrp", .read = measured<&sim_nr5g::rsrp, int16_t>, .traced = true},
    {.name = "rsrq", .read = measured<&sim_nr5g::rsrq, int16_t>, .traced = true},
    {.name = "snr", .read = measured<&sim_nr5g::snr, int16_t>, .traced = true},
    {.name = "tx_power", .read = number<&sim_nr5g::tx_power>},
    {.name = "rrc_state", .read = number<&sim_nr5g::rrc_state>},
    {.name = "scs", .read = number<&sim_nr5g::scs>},
    {.name = "cqi", .read = carriers<&sim_nr5g::cqi, YRP_NAS_NR5G_CC_MAX>},
    {.name = "dl_mod", .read = numbers<&sim_nr5g::dl_mod, YRP_NAS_MOD_MAX>},
    {.name = "ul_mod", .read = numbers<&sim_nr5g::ul_mod, YRP_NAS_MOD_MAX>},
    {.name = "rf_bandwidth", .read = numbers<&sim_nr5g::rf_bandwidth, YRP_NAS_RF_BAND_MAX>},
    {.name = "cell_lock", .read = record<&sim_nr5g::cell_lock, nr5g_lock_keys>},
    {.name = "neighbour", .read = records<&sim_nr5g::neighbour, YRP_NAS_NR5G_NBR_MAX, nr5g_nbr_keys>},
};

constexpr key_row<sim_endc> endc_keys[] = {
    {.name = "available", .read = number<&sim_endc::available>},
    {.name = "restrict_dcnr", .read = number<&sim_endc::restrict_dcnr>},
};

constexpr int64_t batch_max = 300;

template <auto member, int64_t min = lowest<value_of<member>>(), int64_t max = highest<value_of<member>>()>
constexpr auto of_fix = within<&sim_location::fix, number<member, min, max>>;

using fix_t = location_client::Location;
constexpr key_row<sim_location> location_keys[] = {
    {.name = "capabilities_ms", .read = milliseconds_or_never<&sim_location::capabilities_ms>},
    {.name = "capabilities", .read = number<&sim_location::capabilities>},
    {.name = "response", .read = number<&sim_location::response>},
    {.name = "fix_ms", .read = milliseconds_or_never<&sim_location::fix_ms>},
    {.name = "repeat_fix", .read = number<&sim_location::repeat_fix, 0, 1000>},
    {.name = "fix_when_refused", .read = boolean<&sim_location::fix_when_refused>},
    {.name = "late_ms", .read = milliseconds<&sim_location::late_ms>},
    {.name = "batch", .read = number<&sim_location::batch, 0, batch_max>},
    {.name = "batch_status", .read = number<&sim_location::batch_status>},
    {.name = "flags", .read = of_fix<&fix_t::flags>},
    {.name = "timestamp", .read = of_fix<&fix_t::timestamp, 0>, .traced = true},
    {.name = "latitude", .read = of_fix<&fix_t::latitude, -90, 90>, .traced = true},
    {.name = "longitude", .read = of_fix<&fix_t::longitude, -180, 180>, .traced = true},
    {.name = "altitude", .read = of_fix<&fix_t::altitude>},
    {.name = "speed", .read = of_fix<&fix_t::speed>, .traced = true},
    {.name = "bearing", .read = of_fix<&fix_t::bearing>},
    {.name = "horizontal_accuracy", .read = of_fix<&fix_t::horizontalAccuracy>},
    {.name = "vertical_accuracy", .read = of_fix<&fix_t::verticalAccuracy>},
    {.name = "speed_accuracy", .read = of_fix<&fix_t::speedAccuracy>},
    {.name = "bearing_accuracy", .read = of_fix<&fix_t::bearingAccuracy>},
    {.name = "tech_mask", .read = of_fix<&fix_t::techMask>},
    {.name = "extra_time", .read = within<&sim_location::fix, array<&fix_t::extraTime>>},
};

using scan_t = decltype(sim_scenario::scan);
constexpr key_row<scan_t> scan_keys[] = {
    {.name = "answer_ms", .read = milliseconds_or_never<&scan_t::answer_ms>},
    {.name = "status", .read = number<&scan_t::status>},
};

constexpr size_t apn_longest = sizeof(oxmap_wwan_policy_t::apn_name) - 2;
constexpr size_t profile_max = 60;  // more than a policy list holds, to show what that does with them

constexpr key_row<sim_wwan_profile> profile_keys[] = {
    {.name = "index", .read = number<&sim_wwan_profile::index>},
    {.name = "subscription", .read = number<&sim_wwan_profile::subscription>},
    {.name = "technology", .read = number<&sim_wwan_profile::technology>},
    {.name = "ip_family", .read = number<&sim_wwan_profile::ip_family>},
    {.name = "id_3gpp", .read = number<&sim_wwan_profile::id_3gpp>},
    {.name = "id_3gpp2", .read = number<&sim_wwan_profile::id_3gpp2>},
    {.name = "apn", .read = text<&sim_wwan_profile::apn, apn_longest>},
};

constexpr int64_t fastest = 1'000'000'000'000;  // octets a second

constexpr key_row<sim_wwan_stats> stats_keys[] = {
    {.name = "handle", .read = number<&sim_wwan_stats::handle>},
    {.name = "ip_family", .read = number<&sim_wwan_stats::ip_family>},
    {.name = "bytes_rx", .read = number<&sim_wwan_stats::bytes_rx, 0>},
    {.name = "bytes_tx", .read = number<&sim_wwan_stats::bytes_tx, 0>},
    {.name = "pkts_rx", .read = number<&sim_wwan_stats::pkts_rx>},
    {.name = "pkts_tx", .read = number<&sim_wwan_stats::pkts_tx>},
    {.name = "dropped_rx", .read = number<&sim_wwan_stats::dropped_rx>},
    {.name = "dropped_tx", .read = number<&sim_wwan_stats::dropped_tx>},
    {.name = "rx_rate", .read = number<&sim_wwan_stats::rx_rate, 0, fastest>},
    {.name = "tx_rate", .read = number<&sim_wwan_stats::tx_rate, 0, fastest>},
};

using wwan_t = decltype(sim_scenario::wwan);
using qos_t = decltype(wwan_t::qos);
constexpr key_row<qos_t> qos_keys[] = {
    {.name = "bearer", .read = number<&qos_t::bearer>},
    {.name = "tx_5qi", .read = number<&qos_t::tx_5qi>},
    {.name = "rx_5qi", .read = number<&qos_t::rx_5qi>},
    {.name = "answer_ms", .read = milliseconds_or_never<&qos_t::answer_ms>},
};

constexpr key_row<wwan_t> wwan_keys[] = {
    {.name = "profile", .read = records<&wwan_t::profile, profile_max, profile_keys>},
    {.name = "stats", .read = records<&wwan_t::stats, unlimited, stats_keys>},
    {.name = "qos", .read = record<&wwan_t::qos, qos_keys>},
};

constexpr word<std::string_view> mtpe_results[] = {
    {"completed", "completed"}, {"failed", "failed"}, {"aborted", "aborted"}};

using mtpe_t = decltype(sim_scenario::mtpe);
constexpr key_row<mtpe_t> mtpe_keys[] = {
    {.name = "configured_ms", .read = milliseconds_or_never<&mtpe_t::configured_ms>},
    {.name = "duration_ms", .read = milliseconds_or_never<&mtpe_t::duration_ms>},
    {.name = "result", .read = choice<&mtpe_t::result, mtpe_results>},
    {.name = "failure_reason", .read = number<&mtpe_t::failure_reason>},
    {.name = "peak_rate_kbps", .read = number<&mtpe_t::peak_rate_kbps>},
    {.name = "bandwidth_kbps", .read = number<&mtpe_t::bandwidth_kbps>},
    {.name = "mtu", .read = number<&mtpe_t::mtu>},
};

// The timeline.

constexpr key_row<sim_ev_panel> panel_keys[] = {
    {.name = "index", .read = number<&sim_ev_panel::index>},
    {.name = "changed", .read = number<&sim_ev_panel::changed>},
    {.name = "mode", .read = number<&sim_ev_panel::mode>},
};

constexpr key_row<sim_install_freq> install_freq_keys[] = {
    {.name = "arfcn", .read = number<&sim_install_freq::arfcn>},
    {.name = "band", .read = number<&sim_install_freq::band>},
    {.name = "scs", .read = number<&sim_install_freq::scs>},
    {.name = "rsrp", .read = number<&sim_install_freq::rsrp>},
    {.name = "snr", .read = number<&sim_install_freq::snr>},
};

constexpr key_row<sim_ev_qos_flow> qos_flow_keys[] = {
    {.name = "bearer", .read = number<&sim_ev_qos_flow::bearer>},
    {.name = "tx_5qi", .read = number<&sim_ev_qos_flow::tx_5qi>},
    {.name = "rx_5qi", .read = number<&sim_ev_qos_flow::rx_5qi>},
};

constexpr word<std::string_view> raw_libs[] = {{"nas", "nas"}, {"oxmap", "oxmap"}};

std::optional<uint8_t> hex_digit(char digit) {
  if (digit >= '0' && digit <= '9')
    return static_cast<uint8_t>(digit - '0');
  if (digit >= 'a' && digit <= 'f')
    return static_cast<uint8_t>(digit - 'a' + 10);
  if (digit >= 'A' && digit <= 'F')
    return static_cast<uint8_t>(digit - 'A' + 10);
  return {};
}

std::optional<std::vector<uint8_t>> hex_bytes(std::string_view digits) {
  if (digits.size() % 2)
    return {};
  std::vector<uint8_t> bytes;
  for (size_t at = 0; at < digits.size(); at += 2) {
    const std::optional<uint8_t> high = hex_digit(digits[at]), low = hex_digit(digits[at + 1]);
    if (!high || !low)
      return {};
    bytes.push_back(static_cast<uint8_t>(*high << 4 | *low));
  }
  return bytes;
}

change<sim_ev_raw> bytes(reader &in, const std::string &path, const toml::node &node) {
  const std::optional<std::string> digits = read_text(in, path, node, unlimited);
  if (!digits)
    return {};
  const std::optional<std::vector<uint8_t>> read = hex_bytes(*digits);
  if (!read)
    fail(in, node, path, "two hexadecimal digits are needed for each octet");
  return store<&sim_ev_raw::bytes>(read);
}

constexpr key_row<sim_ev_raw> raw_keys[] = {
    {.name = "lib", .read = choice<&sim_ev_raw::lib, raw_libs>, .required = true},
    {.name = "id", .read = number<&sim_ev_raw::id>, .required = true},
    {.name = "bytes", .read = bytes, .required = true},
};

/**
 * What changes part of the radio: the same rows as the scenario's own table. An event that is wrong is one all the
 * same: what is wrong with it is to be said.
 */
template <auto member, const auto &keys, bool sim_ev_change::*effect>
change<sim_timeline_entry> patch(reader &in, const std::string &path, const toml::node &node) {
  change<sim_radio> apply = record<member, keys>(in, path, node);
  return [apply = std::move(apply)](sim_timeline_entry &entry) {
    if (entry.events.empty())
      entry.events.push_back(sim_ev_change());
    sim_ev_change &all = std::get<sim_ev_change>(entry.events.front());
    if constexpr (effect != nullptr)
      all.*effect = true;
    change<sim_radio> before = std::move(all.apply);
    all.apply = [before = std::move(before), apply](sim_radio &radio) {
      if (before)
        before(radio);
      if (apply)
        apply(radio);
    };
  };
}

change<sim_timeline_entry> add_event(sim_event event) {
  return [event = std::move(event)](sim_timeline_entry &entry) { entry.events.push_back(event); };
}

template <typename event, const auto &keys>
change<sim_timeline_entry> event_table(reader &in, const std::string &path, const toml::node &node) {
  event made;
  const change<event> fill = read_table<event>(in, path, node, keys);
  if (fill)
    fill(made);
  return add_event(made);
}

constexpr word<bool> modem_words[] = {{"up", true}, {"down", false}};

change<sim_timeline_entry> modem_event(reader &in, const std::string &path, const toml::node &node) {
  sim_ev_modem event;
  const change<sim_ev_modem> fill = choice<&sim_ev_modem::up, modem_words>(in, path, node);
  if (fill)
    fill(event);
  return add_event(event);
}

change<sim_timeline_entry> install_status_event(reader &in, const std::string &path, const toml::node &node) {
  return add_event(sim_ev_install_status{read_number<uint32_t>(in, path, node).value_or(0)});
}

change<sim_timeline_entry> install_measurement_event(reader &in, const std::string &path, const toml::node &node) {
  sim_ev_install_measurement event;
  event.freqs = read_records<sim_install_freq, install_freq_keys>(in, path, node, YRP_NAS_FREQ_MAX)
                    .value_or(std::vector<sim_install_freq>());
  return add_event(event);
}

constexpr bool sim_ev_change::*no_effect = nullptr;

constexpr int64_t most_repeats = 100'000'000;  // one each millisecond of a day, and more

/** The events in the order in which they happen. */
constexpr key_row<sim_timeline_entry> at_keys[] = {
    {.name = "ms", .read = within<&sim_timeline_entry::when, milliseconds<&sim_when::ms>>},
    {.name = "after", .read = within<&sim_timeline_entry::when, crossing<&sim_when::after, true>>},
    {.name = "skip", .read = within<&sim_timeline_entry::when, number<&sim_when::skip, 0>>},
    {.name = "repeat", .read = number<&sim_timeline_entry::repeat, 1, most_repeats>},
    {.name = "every_ms", .read = milliseconds<&sim_timeline_entry::every_ms>},
    {.name = "sys_info", .read = patch<&sim_radio::sys_info, sys_info_keys, &sim_ev_change::sys_info>},
    {.name = "lte", .read = patch<&sim_radio::lte, lte_keys, &sim_ev_change::measurement>},
    {.name = "nr5g", .read = patch<&sim_radio::nr5g, nr5g_keys, &sim_ev_change::measurement>},
    {.name = "endc", .read = patch<&sim_radio::endc, endc_keys, no_effect>},
    {.name = "location", .read = patch<&sim_radio::location, location_keys, &sim_ev_change::location>},
    {.name = "modem", .read = modem_event},
    {.name = "panel", .read = event_table<sim_ev_panel, panel_keys>},
    {.name = "install_status", .read = install_status_event},
    {.name = "install_measurement", .read = install_measurement_event},
    {.name = "qos_flow", .read = event_table<sim_ev_qos_flow, qos_flow_keys>},
    {.name = "raw", .read = event_table<sim_ev_raw, raw_keys>},
};

void check_at(reader &in, const std::string &path, const toml::node &node, const sim_timeline_entry &entry) {
  if (entry.events.empty())
    fail(in, node, path, "an entry without an event");
  const double last_ms = static_cast<double>(entry.repeat - 1) * entry.every_ms;
  if (last_ms > longest_ms) {
    fail(in, *node.as_table()->get("repeat"), path + ".repeat",
         std::to_string(entry.repeat) + " times, " + number_text(entry.every_ms) + " ms apart, take more than " +
             std::to_string(longest_ms) + " ms");
  }
}

change<sim_scenario> timeline(reader &in, const std::string &path, const toml::node &node) {
  in.timeline = true;
  change<sim_scenario> read = records<&sim_scenario::at, unlimited, at_keys, check_at>(in, path, node);
  in.timeline = false;
  return read;
}

// Faults.

change<sim_fault_rule> clear_list(reader &in, const std::string &path, const toml::node &node) {
  const toml::array *list = read_list(in, path, node, unlimited);
  if (!list)
    return {};
  std::vector<std::string> flags;
  for (const toml::node &entry : *list) {
    flags.push_back(read_text(in, path + '[' + std::to_string(flags.size()) + ']', entry, 4096).value_or(""));
  }
  return store<&sim_fault_rule::clear>(std::optional(std::move(flags)));
}

constexpr key_row<sim_fault_rule> fault_keys[] = {
    {.name = "on", .read = crossing<&sim_fault_rule::on, false>, .required = true},
    {.name = "skip", .read = number<&sim_fault_rule::skip, 0>},
    {.name = "times", .read = number<&sim_fault_rule::times, -1>},
    {.name = "transport", .read = given<&sim_fault_rule::transport>},
    {.name = "result", .read = given<&sim_fault_rule::result>},
    {.name = "error", .read = given<&sim_fault_rule::error>},
    {.name = "clear", .read = clear_list},
    {.name = "delay_ms", .read = milliseconds<&sim_fault_rule::delay_ms>},
};

void check_fault(reader &in, const std::string &path, const toml::node &node, const sim_fault_rule &rule) {
  const std::optional<uint32_t> id = nas_message(rule.on);
  for (size_t at = 0; at < rule.clear.size(); ++at) {
    if (id && sim_message_has_flag(*id, rule.clear[at]))
      continue;
    const toml::node &entry = *node.as_table()->get("clear")->as_array()->get(at);
    fail(in, entry, path + ".clear[" + std::to_string(at) + ']',
         "\"" + rule.clear[at] + "\" is no validity flag of the response to " + rule.on);
  }
}

/** From a row a day on: slower, and the trace would seem to have stopped. */
change<sim_trace_cfg> speed(reader &in, const std::string &path, const toml::node &node) {
  const auto is_allowed = [](double rows) { return rows == 0 || (rows >= 1000.0 / longest_ms && rows <= 1e9); };
  return store<&sim_trace_cfg::speed>(
      read_real(in, path, node, "0, or from 1/86400, a row a day, to 1000000000", is_allowed));
}

constexpr key_row<sim_trace_cfg> trace_keys[] = {
    {.name = "file", .read = text<&sim_trace_cfg::file>},
    {.name = "speed", .read = speed},
    {.name = "after", .read = crossing<&sim_trace_cfg::after, true>},
    {.name = "skip", .read = number<&sim_trace_cfg::skip, 0>},
};

constexpr key_row<sim_scenario> scenario_keys[] = {
    {.name = "board", .read = record<&sim_scenario::board, board_keys>},
    {.name = "nas", .read = record<&sim_scenario::nas, nas_keys>},
    {.name = "sys_info", .read = within<&sim_scenario::radio, record<&sim_radio::sys_info, sys_info_keys>>},
    {.name = "lte", .read = within<&sim_scenario::radio, record<&sim_radio::lte, lte_keys>>},
    {.name = "nr5g", .read = within<&sim_scenario::radio, record<&sim_radio::nr5g, nr5g_keys>>},
    {.name = "endc", .read = within<&sim_scenario::radio, record<&sim_radio::endc, endc_keys>>},
    {.name = "scan", .read = record<&sim_scenario::scan, scan_keys>},
    {.name = "wwan", .read = record<&sim_scenario::wwan, wwan_keys>},
    {.name = "mtpe", .read = record<&sim_scenario::mtpe, mtpe_keys>},
    {.name = "location", .read = within<&sim_scenario::radio, record<&sim_radio::location, location_keys>>},
    {.name = "at", .read = timeline},
    {.name = "fault", .read = records<&sim_scenario::fault, unlimited, fault_keys, check_fault>},
    {.name = "trace", .read = record<&sim_scenario::trace, trace_keys>},
};

// Whole scenarios.

constexpr size_t longest_scenario = 16 << 20;  // octets of a file

/** The parts of a key, "a.b.c", become tables within tables, and the parser has no limit to them but the stack. */
constexpr size_t most_parts = 100;

/** The line of a key with more parts. */
std::optional<toml::source_index> deep_key(std::string_view text) {
  toml::source_index line = 1;
  size_t parts = 0;
  bool named = false;  // the part has begun
  for (const char octet : text) {
    const bool of_name = isalnum(static_cast<unsigned char>(octet)) || strchr("-_\"'", octet);
    if (octet == '.' && named && ++parts >= most_parts)
      return line;
    if (octet != '.' && octet != ' ' && octet != '\t' && !of_name)
      parts = 0;
    if (octet != ' ' && octet != '\t')
      named = of_name;
    if (octet == '\n')
      ++line;
  }
  return {};
}

std::string located(const std::string &origin, const toml::source_position &at, std::string_view text) {
  std::string place = origin;
  if (at.line)
    place += ':' + std::to_string(at.line) + ':' + std::to_string(at.column);
  return sim_one_line(place + ": " + std::string(text));
}

void load_trace(reader &in, const toml::table &root, const std::string &folder, sim_scenario &scenario) {
  if (scenario.trace.file.empty())
    return;
  for (const traced_key &key : in.trace_owned) {
    fail(in, key.at, key.path + ": the trace owns this value, the timeline cannot set it");
  }
  if (!in.error.empty())
    return;
  scenario.trace.file = (std::filesystem::path(folder) / scenario.trace.file).string();
  std::string error;
  std::optional<std::vector<sim_trace_row>> rows = sim_trace_load(scenario.trace.file, error);
  if (rows)
    scenario.rows = *std::move(rows);
  else
    fail(in, *root["trace"]["file"].node(), "trace.file", error);
}

std::optional<sim_scenario> read_scenario(std::string_view text, const std::string &origin, const std::string &folder,
                                          std::string &error) {
  if (const std::optional<toml::source_index> line = deep_key(text)) {
    error = located(origin, {*line, 1}, "a key of more than " + std::to_string(most_parts) + " parts");
    return {};
  }
  const toml::table root = toml::parse(text, origin);
  reader in;
  const change<sim_scenario> fill = read_table<sim_scenario>(in, "", root, scenario_keys);
  sim_scenario scenario = sim_scenario_default();
  scenario.origin = origin;
  if (in.error.empty())
    fill(scenario);
  if (const toml::node *file = root["trace"]["file"].node(); file && file->is_string()) {
    scenario.trace.file = file->as_string()->get();  // also where another key is wrong: the first error counts
    load_trace(in, root, folder, scenario);
  }
  if (in.error.empty())
    return scenario;
  error = located(origin, in.at, in.error);
  return {};
}

}  // namespace

sim_scenario sim_scenario_default() {
  sim_scenario scenario;
  scenario.radio.lte.neighbour.emplace_back();
  scenario.radio.nr5g.neighbour.emplace_back();
  scenario.wwan.profile.emplace_back();
  scenario.wwan.stats.emplace_back();
  return scenario;
}

std::optional<sim_scenario> sim_scenario_parse(std::string_view text, const std::string &origin,
                                               const std::string &folder, std::string &error) {
  try {
    return read_scenario(text, origin, folder, error);
  } catch (const toml::parse_error &broken) {
    error = located(origin, broken.source().begin, broken.description());
  } catch (const std::exception &other) {
    error = located(origin, {}, other.what());
  }
  return {};
}

std::optional<sim_scenario> sim_scenario_load(const std::string &file, std::string &error) {
  try {
    const std::optional<std::string> text = sim_file_read(file, longest_scenario, error);
    if (text)
      return sim_scenario_parse(*text, file, std::filesystem::path(file).parent_path().string(), error);
  } catch (const std::exception &other) {
    error = sim_one_line(file + ": " + other.what());
  }
  return {};
}
