/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The keys of [[at]]: when something happens, and the events.
 */
#include "sim_key_types.h"

namespace {

// Events. They happen in the order of the rows.

constexpr sim_key panel_keys[] = {
    {.name = "index", .type = sim_key_number<&sim_ev_panel::index>(), .initial = "0"},
    {.name = "changed", .type = sim_key_number<&sim_ev_panel::changed>(), .initial = "0"},
    {.name = "mode", .type = sim_key_number<&sim_ev_panel::mode>(), .initial = "0"},
};

constexpr sim_key install_freq_keys[] = {
    {.name = "arfcn", .type = sim_key_number<&sim_install_freq::arfcn>(), .initial = "0"},
    {.name = "band", .type = sim_key_number<&sim_install_freq::band>(), .initial = "0"},
    {.name = "scs", .type = sim_key_number<&sim_install_freq::scs>(), .initial = "0"},
    {.name = "rsrp", .type = sim_key_number<&sim_install_freq::rsrp>(), .initial = "0"},
    {.name = "snr", .type = sim_key_number<&sim_install_freq::snr>(), .initial = "0"},
};

constexpr sim_key qos_flow_keys[] = {
    {.name = "bearer", .type = sim_key_number<&sim_ev_qos_flow::bearer>(), .initial = "0"},
    {.name = "tx_5qi", .type = sim_key_number<&sim_ev_qos_flow::tx_5qi>(), .initial = "0"},
    {.name = "rx_5qi", .type = sim_key_number<&sim_ev_qos_flow::rx_5qi>(), .initial = "0"},
};

constexpr sim_key_word raw_libs[] = {{"nas"}, {"oxmap"}};

constexpr sim_key raw_keys[] = {
    {.name = "lib", .type = sim_key_choice<raw_libs, &sim_ev_raw::lib>(), .required = true},
    {.name = "id", .type = sim_key_number<&sim_ev_raw::id>(), .text = "any indication id", .required = true},
    {.name = "bytes",
     .type = sim_key_plain<&sim_ev_raw::bytes>(sim_key_kind::bytes),
     .text = "any bytes",
     .required = true},
};

sim_timeline_entry &entry_of(void *record) {
  return *static_cast<sim_timeline_entry *>(record);
}

/** The first event of a kind in an entry. */
template <typename event>
const event *find_event(const void *record) {
  for (const sim_event &one : static_cast<const sim_timeline_entry *>(record)->events) {
    if (const event *found = std::get_if<event>(&one)) {
      return found;
    }
  }
  return nullptr;
}

/** What changes part of the radio: the keys of the board's own table. All of an entry are one event, its first. */
template <auto member, bool sim_ev_change::*effect>
void fill_patch(void *record, const std::vector<sim_key_change> &changes) {
  sim_timeline_entry &entry = entry_of(record);
  if (entry.events.empty()) {
    entry.events.push_back(sim_ev_change());
  }
  sim_ev_change &all = std::get<sim_ev_change>(entry.events.front());
  if constexpr (effect != nullptr) {
    all.*effect = true;
  }
  all.apply = [before = std::move(all.apply), changes](sim_radio &radio) {
    if (before) {
      before(radio);
    }
    sim_key_fill_table<member>(&radio, changes);
  };
}

constexpr bool sim_ev_change::*no_effect = nullptr;

template <auto member, bool sim_ev_change::*effect>
constexpr sim_key_type patch(sim_keys (*keys)()) {
  return {.kind = sim_key_kind::table, .keys = keys, .patch = true, .fill = fill_patch<member, effect>};
}

template <typename event>
std::vector<const void *> event_entry(const void *record) {
  const event *found = find_event<event>(record);
  return found ? std::vector<const void *>{found} : std::vector<const void *>();
}

/** An event with keys of its own. */
template <typename event>
constexpr sim_key_type event_table(sim_keys (*keys)()) {
  sim_key_type type = {.kind = sim_key_kind::table, .keys = keys};
  type.fill = [](void *record, const std::vector<sim_key_change> &changes) {
    event made;
    for (const sim_key_change &change : changes) {
      change(&made);
    }
    entry_of(record).events.emplace_back(std::in_place_type<event>, std::move(made));
  };
  type.entries = event_entry<event>;
  return type;
}

constexpr sim_key_type install_measurement() {
  sim_key_type type = {.kind = sim_key_kind::tables, .most = YRP_NAS_FREQ_MAX, .keys = sim_keys_of<install_freq_keys>};
  type.fill = [](void *record, const std::vector<sim_key_change> &changes) {
    entry_of(record).events.push_back(sim_ev_install_measurement{sim_key_made<sim_install_freq>(changes)});
  };
  type.entries = [](const void *record) {
    const sim_ev_install_measurement *found = find_event<sim_ev_install_measurement>(record);
    return found ? sim_key_addresses(found->freqs) : std::vector<const void *>();
  };
  return type;
}

/** An event that is one value, stored and loaded as a member of the event. */
template <typename event, auto store, auto load>
constexpr sim_key_type event_value(sim_key_type type) {
  type.store = [](void *record, const sim_key_value &value) {
    event made;
    store(&made, value);
    entry_of(record).events.push_back(made);
  };
  type.load = [](const void *record) {
    const event *found = find_event<event>(record);
    return found ? load(found) : sim_key_value();
  };
  return type;
}

constexpr sim_key_word modem_words[] = {{"up", true}, {"down", false}};

constexpr sim_key_type modem() {
  constexpr auto up = &sim_ev_modem::up;
  return event_value<sim_ev_modem, sim_key_store_word<modem_words, up>, sim_key_load_word<modem_words, up>>(
      sim_key_choice<modem_words, up>());
}

constexpr sim_key_type install_status() {
  constexpr auto status = &sim_ev_install_status::status;
  return event_value<sim_ev_install_status, sim_key_store<status>, sim_key_load<status>>(sim_key_number<status>());
}

constexpr int64_t most_repeats = 100'000'000;  // one each millisecond of a day, and more

constexpr sim_key at_keys[] = {
    {.name = "ms",
     .type = sim_key_time<&sim_timeline_entry::when, &sim_when::ms>(),
     .initial = "0",
     .text = "when: counted from time 0, or from the call named by `after`"},
    {.name = "after",
     .type = sim_key_crossing<&sim_timeline_entry::when, &sim_when::after>(true),
     .initial = "\"\"",
     .text = "wait for this call"},
    {.name = "skip",
     .type = sim_key_number<&sim_timeline_entry::when, &sim_when::skip>(0),
     .initial = "0",
     .text = "let so many of these calls pass first"},
    {.name = "repeat",
     .type = sim_key_number<&sim_timeline_entry::repeat>(1, most_repeats),
     .initial = "1",
     .text = "so many times; from the first to the last at most a day"},
    {.name = "every_ms",
     .type = sim_key_time<&sim_timeline_entry::every_ms>(),
     .initial = "0",
     .text = "so far apart; 0: one right after the other"},
    {.name = "sys_info",
     .type = patch<&sim_radio::sys_info, &sim_ev_change::sys_info>(sim_keys_sys_info),
     .text = "exactly these change; sends indication 78",
     .event = true},
    {.name = "lte",
     .type = patch<&sim_radio::lte, &sim_ev_change::measurement>(sim_keys_lte),
     .text = "exactly these change; a new measurement",
     .event = true},
    {.name = "nr5g",
     .type = patch<&sim_radio::nr5g, &sim_ev_change::measurement>(sim_keys_nr5g),
     .text = "exactly these change; a new measurement",
     .event = true},
    {.name = "endc",
     .type = patch<&sim_radio::endc, no_effect>(sim_keys_endc),
     .text = "exactly these change",
     .event = true},
    {.name = "location",
     .type = patch<&sim_radio::location, &sim_ev_change::location>(sim_keys_location),
     .text = "exactly these change; changes the receiver",
     .event = true},
    {.name = "modem",
     .type = modem(),
     .text = "\"down\": NAS requests fail with transport -1, no NAS indication is sent, and service events tell; "
             "\"up\": it answers again, registrations survive",
     .event = true},
    {.name = "panel",
     .type = event_table<sim_ev_panel>(sim_keys_of<panel_keys>),
     .text = "indication 278",
     .event = true},
    {.name = "install_status", .type = install_status(), .text = "indication 335", .event = true},
    {.name = "install_measurement", .type = install_measurement(), .text = "indication 334", .event = true},
    {.name = "qos_flow",
     .type = event_table<sim_ev_qos_flow>(sim_keys_of<qos_flow_keys>),
     .text = "indication 258",
     .event = true},
    {.name = "raw",
     .type = event_table<sim_ev_raw>(sim_keys_of<raw_keys>),
     .text = "any bytes under any indication id",
     .event = true},
};

}  // namespace

sim_keys sim_keys_at() {
  return at_keys;
}

std::optional<sim_key_wrong> sim_key_wrong_at(const sim_timeline_entry &entry) {
  const double last_ms = static_cast<double>(entry.repeat - 1) * entry.every_ms;
  if (last_ms <= sim_key_longest_ms) {
    return {};
  }
  return sim_key_wrong{"repeat",
                       {},
                       std::to_string(entry.repeat) + " times, " + sim_key_number_text(entry.every_ms) +
                           " ms apart, take more than " + std::to_string(sim_key_longest_ms) + " ms"};
}
