/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The scenario: what the simulated board is, what happens on it and when, and what goes wrong.
 *
 * A scenario file is TOML; every default below is the board without a file. The reader checks every key, type and range
 * (a value must fit its wire field) and reports the first thing that is wrong with file, line and column. Enumerated
 * values are the platform's. Plain data: the reader fills it, the board copies what it changes.
 */
#ifndef SIM_SCENARIO_H
#define SIM_SCENARIO_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "location_client_api.h"

/** srv_status on the wire; absent: the part is not valid. */
enum class sim_srv : int {
  absent = -1,
  no_service = 0,
  limited = 1,
  service = 2,
  limited_regional = 3,
  power_save = 4
};

struct sim_sys_info {
  sim_srv lte = sim_srv::service;
  sim_srv nr5g = sim_srv::absent;
  int nr5g_pci = 500; /**< -1: not valid */
  uint32_t lte_domain = 3, lte_capability = 3, nr5g_domain = 3,
           nr5g_capability = 3; /**< as the platform numbers them */
};

struct sim_plmn {
  uint16_t mcc = 272, mnc = 1;
  uint8_t pcs_digit = 0;
};

struct sim_lte_nbr {
  uint32_t earfcn = 1300;
  uint16_t pci = 301;
  uint32_t cgi = 10607299;
  int16_t rsrp = -101, rsrq = -14;
  std::vector<sim_plmn> plmn = {{}}; /**< up to 4 */
};

struct sim_lock_cell {
  uint16_t pci = 0, freq = 0;
};

/** The LTE serving cell and what is measured on it. A value without one is not measured: its part is not valid. */
struct sim_lte {
  uint16_t earfcn = 1300, pci = 214;
  std::optional<uint16_t> tac = 6699;
  std::optional<uint32_t> cgi = 10607298;
  uint8_t plmn[3] = {0x72, 0xF2, 0x10};
  std::optional<int> rsrp = -95, rsrq = -11, snr = 130; /**< dBm, dB, 0.1 dB */
  int8_t rssi = -65;
  int32_t tx_power = 120;
  uint32_t rrc_state = 3;
  std::vector<std::vector<uint8_t>> cqi = {{12, 11}};  /**< per component carrier (up to 7) its codewords (up to 4) */
  std::vector<uint32_t> dl_mod = {2, 3}, ul_mod = {1}; /**< up to 2 */
  std::vector<uint32_t> rf_bandwidth = {3};            /**< up to 16 */
  uint32_t ca_dl_bandwidth = 3;
  std::vector<sim_lock_cell> cell_lock; /**< up to 60 */
  std::vector<sim_lte_nbr> neighbour;   /**< up to 5; the first has the highest signal */
  bool neighbour_measured = true;       /**< false: the LTE part of a scan result is not valid */
};

struct sim_nr5g_nbr {
  uint32_t arfcn = 636000;
  uint16_t pci = 501;
  int16_t rsrp = -104;
  std::vector<uint64_t> cgi = {68719476737}; /**< up to 11 */
  std::vector<sim_plmn> plmn = {{}};         /**< up to 12 */
};

struct sim_nr5g_lock_arfcn {
  uint32_t arfcn = 0, scs = 0;
};

struct sim_nr5g_lock {
  uint32_t type = 0;
  uint16_t pci = 0;
  uint32_t arfcn = 0, scs = 0;
  std::vector<sim_nr5g_lock_arfcn> list; /**< up to 32 */
};

/** The NR 5G cell and what is measured on it. */
struct sim_nr5g {
  uint64_t arfcn = 636000;
  uint16_t pci = 500;
  uint64_t cgi = 68719476736;
  uint8_t tac[3] = {0x00, 0x1A, 0x2B};
  uint8_t plmn[3] = {0x72, 0xF2, 0x10};
  std::optional<int> rsrp = -98, rsrq = -11, snr = 150;
  int32_t tx_power = 150;
  uint32_t rrc_state = 2;
  uint32_t scs = 1;
  std::vector<std::vector<uint8_t>> cqi = {{13, 12}}; /**< up to 12 component carriers */
  std::vector<uint32_t> dl_mod = {3, 4}, ul_mod = {2};
  std::vector<uint32_t> rf_bandwidth = {10};
  sim_nr5g_lock cell_lock;
  std::vector<sim_nr5g_nbr> neighbour; /**< up to 10 */
};

struct sim_endc {
  uint8_t available = 1, restrict_dcnr = 0;
};

/** The receiver: how it answers, and where it is. */
struct sim_location {
  double capabilities_ms = 10; /**< -1: never */
  uint32_t capabilities = location_client::LOCATION_CAPS_SINGLE_SHOT |
                          location_client::LOCATION_CAPS_TIME_BASED_BATCHING |
                          location_client::LOCATION_CAPS_DISTANCE_BASED_BATCHING;
  uint32_t response = 0;
  double fix_ms = 500;           /**< -1: never */
  uint32_t repeat_fix = 1;       /**< how often one fix is delivered */
  bool fix_when_refused = false; /**< a fix follows although the response refused the request */
  double late_ms = 0;            /**< how much after its time every callback comes */
  uint32_t batch = 4;            /**< up to 300 */
  int32_t batch_status = 1;
  location_client::Location fix = {.flags = 0x1FF,
                                   .timestamp = 1767225600000, /**< 2026-01-01 */
                                   .latitude = 51.897463,
                                   .longitude = -8.480187,
                                   .altitude = 36,
                                   .horizontalAccuracy = 5,
                                   .verticalAccuracy = 8,
                                   .speedAccuracy = 0.5F,
                                   .bearingAccuracy = 10,
                                   .techMask = 1};
};

/** What a timeline entry or a trace row may change while the board runs. */
struct sim_radio {
  sim_sys_info sys_info;
  sim_lte lte;
  sim_nr5g nr5g;
  sim_endc endc;
  sim_location location;
};

struct sim_wwan_profile {
  uint32_t index = 1, subscription = 0, technology = 1, ip_family = 4;
  uint8_t id_3gpp = 1, id_3gpp2 = 0;
  std::string apn = "internet"; /**< at most 100 octets */
};

struct sim_wwan_stats {
  uint32_t handle = 1, ip_family = 4;
  uint64_t bytes_rx = 0, bytes_tx = 0;
  uint32_t pkts_rx = 0, pkts_tx = 0, dropped_rx = 0, dropped_tx = 0;
  double rx_rate = 125000, tx_rate = 12500; /**< octets a second; a packet is 1250 octets */
};

/** When something becomes due: `ms` after time 0, or after the `skip`+1-th passing of the crossing `after`. */
struct sim_when {
  double ms = 0;
  std::string after; /**< "nas.108", "location.getSinglePosition", ...; empty: time 0 */
  int64_t skip = 0;
};

struct sim_ev_panel {
  uint8_t index = 0, changed = 0;
  uint32_t mode = 0;
};
struct sim_ev_install_status {
  uint32_t status = 0;
};
struct sim_install_freq {
  uint32_t arfcn = 0, band = 0, scs = 0;
  int16_t rsrp = 0, snr = 0;
};
struct sim_ev_install_measurement {
  std::vector<sim_install_freq> freqs; /**< up to 16 */
};
struct sim_ev_qos_flow {
  uint8_t bearer = 0;
  uint32_t tx_5qi = 0, rx_5qi = 0;
};
struct sim_ev_modem {
  bool up = true;
};
/** Any bytes under any indication id of a service ("nas" or "oxmap"). */
struct sim_ev_raw {
  std::string lib;
  uint32_t id = 0;
  std::vector<uint8_t> bytes;
};
/** A change of state: `apply` sets exactly the keys that the entry gives. */
struct sim_ev_change {
  std::function<void(sim_radio &)> apply;
  bool sys_info = false;    /**< indication 78 goes out */
  bool measurement = false; /**< a new measurement of LTE or NR 5G */
  bool location = false;    /**< sim_location_changed is to be called, without sim_lock */
};

using sim_event = std::variant<sim_ev_change, sim_ev_modem, sim_ev_panel, sim_ev_install_status,
                               sim_ev_install_measurement, sim_ev_qos_flow, sim_ev_raw>;

/** One [[at]] table; an entry with several keys becomes several events, due together in the order of this variant. */
struct sim_timeline_entry {
  sim_when when;
  int64_t repeat = 1;
  double every_ms = 0;
  std::vector<sim_event> events;
};

/** One [[fault]] rule; the first that matches a crossing wins. */
struct sim_fault_rule {
  std::string on;              /**< "nas.79", "yrp.init_instance", "oxmap.StartMTPE", "nas.ind.81", "any", ... */
  int64_t skip = 0, times = 1; /**< times -1: from then on */
  std::optional<int32_t> transport;
  std::optional<uint32_t> result, error;
  std::vector<std::string> clear; /**< validity flags, checked against the message when the rule is read */
  std::optional<double> delay_ms;
  bool late = false;                     /**< served, and answered behind the time-out */
  std::optional<uint32_t> truncate;      /**< octets of an indication that are left */
  std::optional<std::string> modem;      /**< "up", "down", "restart": before the call */
  std::optional<sim_ev_change> sys_info; /**< before the call */
};

struct sim_trace_cfg {
  std::string file;   /**< as resolved against the scenario's folder; empty: no trace */
  double speed = 1.0; /**< rows a second; 0: as fast as the board can */
  std::string after;
  int64_t skip = 0;
};

/** One row of a drive test; what was not measured has no value. */
struct sim_trace_row {
  sim_srv lte = sim_srv::no_service;
  bool nr5g_cell = false;             /**< NetworkMode 5G */
  std::optional<int> rsrp, rsrq, snr; /**< dBm, dB, 0.1 dB */
  std::optional<int> nbr_rsrp, nbr_rsrq;
  std::optional<uint8_t> cqi;
  std::optional<uint32_t> cgi;
  std::optional<uint16_t> tac;
  std::optional<int> nr_rsrp, nr_rsrq, nr_snr;
  std::optional<double> longitude, latitude, speed; /**< degrees, degrees, m/s */
  int64_t timestamp_ms = 0;                         /**< as recorded, 0 where unreadable; paces nothing */
};

struct sim_scenario {
  std::string origin = "default board"; /**< file name, for messages */
  struct {
    uint64_t seed = 1;
    double noise_db = 2;
    uint32_t tick_ms = 1000;
  } board;
  struct {
    bool available = true;
    double available_after_ms = 0;
  } nas;
  sim_radio radio; /**< [sys_info], [lte], [nr5g], [endc], [location]; neighbour lists default to one entry each */
  struct {
    double answer_ms = 200; /**< -1: never */
    uint32_t status = 0;
  } scan;
  struct {
    std::vector<sim_wwan_profile> profile; /**< up to 60; default one */
    std::vector<sim_wwan_stats> stats;     /**< default one */
    struct {
      uint8_t bearer = 5;
      uint32_t tx_5qi = 7, rx_5qi = 7;
      double answer_ms = 100;
    } qos;
  } wwan;
  struct {
    double configured_ms = 100, duration_ms = 1000; /**< duration 0: as asked for */
    std::string result = "completed";               /**< failed, aborted */
    uint32_t failure_reason = 1;
    uint32_t peak_rate_kbps = 93000;
    int32_t bandwidth_kbps = 100000, mtu = 1500;
  } mtpe;
  std::vector<sim_timeline_entry> at;
  std::vector<sim_fault_rule> fault;
  sim_trace_cfg trace;
  std::vector<sim_trace_row> rows; /**< of trace.file, read with the scenario */
};

/**
 * Read a scenario. `origin` names it in messages; relative file names in it are resolved against `folder`.
 * Returns the scenario, or nothing and in `error` one line: "ORIGIN:LINE:COLUMN: what is wrong" (line and column where
 * TOML knows them).
 */
std::optional<sim_scenario> sim_scenario_parse(std::string_view text, const std::string &origin,
                                               const std::string &folder, std::string &error);
std::optional<sim_scenario> sim_scenario_load(const std::string &file, std::string &error);

/** The default board: an empty scenario. */
sim_scenario sim_scenario_default();

/** Read a drive test. Returns the rows (at least one), or nothing and in `error` one line: "FILE:LINE: what is wrong".
 */
std::optional<std::vector<sim_trace_row>> sim_trace_load(const std::string &file, std::string &error);

/** Put one row in force: what a trace owns of the radio, and nothing else. `nr5g_pci`: of the cell that `5G` means. */
void sim_trace_apply(const sim_trace_row &row, int nr5g_pci, sim_radio &radio);

/** The receiver's part of the radio was changed: its clients hear of other capabilities. Call without sim_lock. */
void sim_location_changed();

#endif
