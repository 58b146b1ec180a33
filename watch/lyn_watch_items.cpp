/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_items.h"

#include <algorithm>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string_view>

#include "lyn_watch_band.h"

/* Names of codes */

struct lyn_watch_name_t {
  int64_t code;
  const char *name;
};

static const char *lyn_watch_find_name(std::span<const lyn_watch_name_t> names, int64_t code) {
  const auto found = std::ranges::find(names, code, &lyn_watch_name_t::code);
  return found == names.end() ? nullptr : found->name;
}

// Null becomes "other": what is delivered is never kept back for want of a name.
static const char *lyn_watch_name_or_other(std::span<const lyn_watch_name_t> names, int64_t code) {
  const char *name = lyn_watch_find_name(names, code);
  return name == nullptr ? "other" : name;
}

static constexpr lyn_watch_name_t lyn_watch_statuses[] = {
    {OX_LYN_SUCCESS, "success"},
    {OX_LYN_ERR_FAILURE, "failure"},
    {OX_LYN_ERR_INVALID_PARAM, "invalid_param"},
    {OX_LYN_ERR_NO_MEMORY, "no_memory"},
    {OX_LYN_ERR_INSUFFICIENT_BUFFER, "insufficient_buffer"},
    {OX_LYN_ERR_BUSY, "busy"},
    {OX_LYN_ERR_NOT_SUPPORTED, "not_supported"},
    {OX_LYN_ERR_NOT_INITIALIZED, "not_initialized"},
    {OX_LYN_ERR_ALREADY_INITIALIZED, "already_initialized"},
    {OX_LYN_ERR_SERVICE_UNAVAILABLE, "service_unavailable"},
    {OX_LYN_ERR_INFO_UNAVAILABLE, "info_unavailable"},
};

static constexpr lyn_watch_name_t lyn_watch_registrations[] = {
    {OX_LYN_REG_NO_SERVICE_E, "no_service"},
    {OX_LYN_REG_POWER_SAVE_E, "power_save"},
    {OX_LYN_REG_LIMITED_E, "limited"},
    {OX_LYN_REG_LIMITED_REGIONAL_E, "limited_regional"},
    {OX_LYN_REG_LTE_E, "lte"},
    {OX_LYN_REG_LTE_NR5G_E, "lte_nr5g"},
    {OX_LYN_REG_NR5G_E, "nr5g"},
};

// As they are exposed, in the order of the rows above.
static constexpr const char *lyn_watch_registration_states[] = {
    "no_service", "power_save", "limited", "limited_regional", "lte", "lte_nr5g", "nr5g"};
static_assert(std::size(lyn_watch_registration_states) == std::size(lyn_watch_registrations));

static constexpr lyn_watch_name_t lyn_watch_rrc_states[] = {
    {OX_LYN_RRC_LTE_1_E, "state_1"},          {OX_LYN_RRC_LTE_2_E, "state_2"},
    {OX_LYN_RRC_LTE_3_E, "state_3"},          {OX_LYN_RRC_LTE_4_E, "state_4"},
    {OX_LYN_RRC_LTE_5_E, "state_5"},          {OX_LYN_RRC_NR5G_IDLE_E, "idle"},
    {OX_LYN_RRC_NR5G_INACTIVE_E, "inactive"}, {OX_LYN_RRC_NR5G_CONNECTED_E, "connected"},
};

static constexpr lyn_watch_name_t lyn_watch_lte_modulations[] = {
    {OX_LYN_LTE_MOD_BPSK_E, "BPSK"},     {OX_LYN_LTE_MOD_QPSK_E, "QPSK"},     {OX_LYN_LTE_MOD_16QAM_E, "16QAM"},
    {OX_LYN_LTE_MOD_64QAM_E, "64QAM"},   {OX_LYN_LTE_MOD_256QAM_E, "256QAM"}, {OX_LYN_LTE_MOD_1024QAM_E, "1024QAM"},
    {OX_LYN_LTE_MOD_UNKNOWN_E, "other"},
};

static constexpr lyn_watch_name_t lyn_watch_nr5g_modulations[] = {
    {OX_LYN_NR5G_MOD_PI_2_BPSK_E, "pi/2-BPSK"}, {OX_LYN_NR5G_MOD_QPSK_E, "QPSK"},
    {OX_LYN_NR5G_MOD_16QAM_E, "16QAM"},         {OX_LYN_NR5G_MOD_64QAM_E, "64QAM"},
    {OX_LYN_NR5G_MOD_256QAM_E, "256QAM"},       {OX_LYN_NR5G_MOD_UNKNOWN_E, "other"},
};

const char *lyn_watch_radio_name(lyn_watch_radio_e radio) {
  static constexpr const char *names[] = {"lte", "nr5g", ""};
  return names[radio];
}

const char *lyn_watch_status_name(int32_t status) {
  return lyn_watch_name_or_other(lyn_watch_statuses, status);
}

std::string lyn_watch_version() {
  return std::to_string(OX_LYN_VERSION_MAJOR) + "." + std::to_string(OX_LYN_VERSION_MINOR) + "." +
         std::to_string(OX_LYN_VERSION_PATCH);
}

/* PLMN and text */

std::string lyn_watch_plmn(const int64_t octets[3]) {
  const int64_t digits[] = {octets[0] & 0xF, octets[0] >> 4, octets[1] & 0xF,
                            octets[2] & 0xF, octets[2] >> 4, octets[1] >> 4};
  std::string plmn;
  for (size_t i = 0; i < std::size(digits); ++i) {
    const bool two_digit_mnc = i == 5 && digits[i] == 0xF;
    if (two_digit_mnc) {
      break;
    }
    if (digits[i] < 0 || digits[i] > 9) {
      return "";
    }
    plmn += i == 3 ? "-" : "";
    plmn += static_cast<char>('0' + digits[i]);
  }
  return plmn;
}

std::string lyn_watch_plmn(const ox_lyn_plmn_t &plmn) {
  constexpr uint16_t most = 999;
  if (plmn.mcc > most || plmn.mnc > most) {
    return "";
  }
  char text[16];
  snprintf(text, sizeof(text), plmn.includes_pcs_digit != 0 ? "%03u-%03u" : "%03u-%02u", plmn.mcc, plmn.mnc);
  return text;
}

// The well-formed characters of UTF-8: what the first octet and the second can be, and how many there are.
static constexpr struct {
  unsigned char first, last;
  unsigned char second_first, second_last;
  size_t length;
} lyn_watch_utf8_forms[] = {
    {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
    {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
    {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

// How many octets the character at the text's begin has; 0: it is none.
static size_t lyn_watch_utf8_length(std::string_view text) {
  const auto within = [text](size_t i, unsigned char first, unsigned char last) {
    return i < text.size() && first <= static_cast<unsigned char>(text[i]) &&
           static_cast<unsigned char>(text[i]) <= last;
  };
  for (const auto &form : lyn_watch_utf8_forms) {
    if (within(0, form.first, form.last)) {
      size_t i = 1;
      while (i < form.length && within(i, i == 1 ? form.second_first : 0x80, i == 1 ? form.second_last : 0xBF)) {
        ++i;
      }
      return i == form.length ? i : 0;
    }
  }
  return 0;
}

std::string lyn_watch_utf8(const std::string &text) {
  std::string clean;
  for (size_t i = 0; i < text.size();) {
    const size_t length = lyn_watch_utf8_length(std::string_view(text).substr(i));
    clean += length == 0 ? "\uFFFD" : text.substr(i, length);
    i += std::max<size_t>(length, 1);
  }
  return clean;
}

/* How items are taken from records. Codes that mean "unknown" are not measured. */

static lyn_watch_value_t lyn_watch_number(const ox_lyn_dm_info_t &record) {
  return record.value.i64;
}

static lyn_watch_value_t lyn_watch_name(std::span<const lyn_watch_name_t> names, int64_t code) {
  const char *name = lyn_watch_find_name(names, code);
  return name == nullptr ? lyn_watch_value_t() : std::string(name);
}

template <const auto &names>
static lyn_watch_value_t lyn_watch_code(const ox_lyn_dm_info_t &record) {
  return lyn_watch_name(names, record.value.u32);
}

template <std::vector<double> (*bands)(int64_t)>
static lyn_watch_value_t lyn_watch_take_bands(const ox_lyn_dm_info_t &record) {
  std::vector<double> found = bands(record.value.i64);
  return found.empty() ? lyn_watch_value_t() : std::move(found);
}

static lyn_watch_value_t lyn_watch_take_plmn(const ox_lyn_dm_info_t &record) {
  std::string plmn = lyn_watch_plmn(record.value.i64_array);
  return plmn.empty() ? lyn_watch_value_t() : std::move(plmn);
}

static lyn_watch_value_t lyn_watch_take_octets(const ox_lyn_dm_info_t &record) {
  const int64_t *octets = record.value.i64_array;
  return octets[0] << 16 | octets[1] << 8 | octets[2];
}

template <typename Block>
static const Block &lyn_watch_block(const ox_lyn_dm_info_t &record) {
  return *static_cast<const Block *>(record.value.ptr);
}

// The first `count` elements of an array, and no more than it has.
template <typename T, size_t N>
static std::span<const T> lyn_watch_first(const T (&array)[N], uint64_t count) {
  return std::span(array).first(std::min<uint64_t>(count, N));
}

template <typename Block>
static lyn_watch_value_t lyn_watch_take_cqi(const ox_lyn_dm_info_t &record) {
  const Block &cqi = lyn_watch_block<Block>(record);
  lyn_watch_cqi_t carriers;
  for (const ox_lyn_cqi_entry_t &entry : lyn_watch_first(cqi.entries, cqi.count)) {
    const auto codewords = lyn_watch_first(entry.cw_cqi, entry.cw_cqi_len);
    carriers.emplace_back(codewords.begin(), codewords.end());
  }
  return carriers.empty() ? lyn_watch_value_t() : std::move(carriers);
}

static lyn_watch_value_t lyn_watch_modulations(std::span<const lyn_watch_name_t> names,
                                               std::span<const uint32_t> codes) {
  std::vector<std::string> streams;
  for (const uint32_t code : codes) {
    streams.emplace_back(lyn_watch_name_or_other(names, code));
  }
  return streams.empty() ? lyn_watch_value_t() : std::move(streams);
}

template <const auto &names>
static lyn_watch_value_t lyn_watch_take_dl(const ox_lyn_dm_info_t &record) {
  const auto &mcs = lyn_watch_block<ox_lyn_mcs_t>(record);
  return lyn_watch_modulations(names, lyn_watch_first(mcs.dl_mod, mcs.dl_len));
}

template <const auto &names>
static lyn_watch_value_t lyn_watch_take_ul(const ox_lyn_dm_info_t &record) {
  const auto &mcs = lyn_watch_block<ox_lyn_mcs_t>(record);
  return lyn_watch_modulations(names, lyn_watch_first(mcs.ul_mod, mcs.ul_len));
}

static lyn_watch_value_t lyn_watch_take_lte_lock(const ox_lyn_dm_info_t &record) {
  const auto &lock = lyn_watch_block<ox_lyn_lte_cell_lock_t>(record);
  std::vector<std::string> cells;
  for (const ox_lyn_lte_lock_cell_t &cell : lyn_watch_first(lock.cells, lock.count)) {
    cells.push_back(std::to_string(cell.freq) + "/" + std::to_string(cell.pci));
  }
  return cells.empty() ? lyn_watch_value_t() : std::move(cells);
}

static lyn_watch_value_t lyn_watch_take_nr5g_lock(const ox_lyn_dm_info_t &record) {
  const auto &lock = lyn_watch_block<ox_lyn_nr5g_cell_lock_t>(record);
  std::vector<std::string> cells;
  if (lock.arfcn != 0) {
    cells.push_back(std::to_string(lock.arfcn) + "/" + std::to_string(lock.pci));
  }
  for (const ox_lyn_nr5g_lock_arfcn_t &entry : lyn_watch_first(lock.arfcn_list, lock.arfcn_list_len)) {
    cells.push_back(std::to_string(entry.arfcn));
  }
  return cells.empty() ? lyn_watch_value_t() : std::move(cells);
}

static lyn_watch_value_t lyn_watch_take_ca_bandwidth(const ox_lyn_dm_info_t &record) {
  static constexpr double mhz[] = {0, 1.4, 3, 5, 10, 15, 20};
  const auto code = static_cast<uint64_t>(record.value.i64);
  return code == OX_LYN_CA_BANDWIDTH_UNKNOWN_E || code >= std::size(mhz) ? lyn_watch_value_t() : mhz[code];
}

// One list serves both radios: the codes tell them apart.
static lyn_watch_value_t lyn_watch_bandwidths(const ox_lyn_dm_info_t &record, int64_t first, int64_t last) {
  static constexpr double mhz[] = {0, 1.4, 3, 5, 10, 15, 20, 5, 10, 15, 20, 25, 30, 40, 50, 60, 80, 100, 200, 400};
  std::vector<double> carriers;
  for (const int64_t code : lyn_watch_first(record.value.i64_array, record.count)) {
    if (first <= code && code <= last) {
      carriers.push_back(mhz[code]);
    }
  }
  return carriers.empty() ? lyn_watch_value_t() : std::move(carriers);
}

static lyn_watch_value_t lyn_watch_take_lte_bandwidth(const ox_lyn_dm_info_t &record) {
  return lyn_watch_bandwidths(record, OX_LYN_RF_BANDWIDTH_LTE_1_4_MHZ_E, OX_LYN_RF_BANDWIDTH_LTE_20_MHZ_E);
}

static lyn_watch_value_t lyn_watch_take_nr5g_bandwidth(const ox_lyn_dm_info_t &record) {
  return lyn_watch_bandwidths(record, OX_LYN_RF_BANDWIDTH_NR5G_5_MHZ_E, OX_LYN_RF_BANDWIDTH_NR5G_400_MHZ_E);
}

static lyn_watch_value_t lyn_watch_take_scs(const ox_lyn_dm_info_t &record) {
  const uint32_t code = record.value.u32;
  return code < OX_LYN_SCS_15_KHZ_E || code > OX_LYN_SCS_240_KHZ_E ? lyn_watch_value_t()
                                                                   : int64_t{15} << (code - OX_LYN_SCS_15_KHZ_E);
}

template <auto Flag>
static lyn_watch_value_t lyn_watch_take_endc(const ox_lyn_dm_info_t &record) {
  const auto &mode = lyn_watch_block<ox_lyn_endc_mode_t>(record);
  return mode.valid == 0 ? lyn_watch_value_t() : mode.*Flag != 0;
}

/* The items */

static constexpr lyn_watch_item_t lyn_watch_item_table[] = {
    {.name = "registration",
     .label = "Registration",
     .help = "Registration status of the modem.",
     .exposed = {"lyn_registration", {"state"}, lyn_watch_registration_states},
     .of = {{}, {}, {OX_LYN_GET_REG_STATUS_E, lyn_watch_code<lyn_watch_registrations>}}},
    {.name = "plmn",
     .label = "PLMN",
     .help = "PLMN of the serving cell.",
     .of = {{OX_LYN_GET_LTE_SERV_PLMN_E, lyn_watch_take_plmn}, {OX_LYN_GET_NR5G_SERV_PLMN_E, lyn_watch_take_plmn}}},
    {.name = "cgi",
     .label = "Cell",
     .help = "Identity of the serving cell: 28 bits, of NR 5G 36 bits.",
     .of = {{OX_LYN_GET_LTE_SERV_CGI_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_CGI_E, lyn_watch_number}}},
    {.name = "tac",
     .label = "TAC",
     .help = "Tracking area code of the serving cell.",
     .of = {{OX_LYN_GET_LTE_SERV_TAC_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_TAC_E, lyn_watch_take_octets}}},
    {.name = "pci",
     .label = "PCI",
     .help = "Physical cell identity of the serving cell.",
     .of = {{OX_LYN_GET_LTE_SERV_PCI_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_PCI_E, lyn_watch_number}}},
    {.name = "channel",
     .label = "Chan",
     .help = "EARFCN or NR-ARFCN of the serving cell.",
     .of = {{OX_LYN_GET_LTE_SERV_EARFCN_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_EARFCN_E, lyn_watch_number}}},
    {.name = "bands",
     .label = "Band",
     .help = "Bands that the channel lies in.",
     .prefix = {"B", "n", ""},
     .of = {{OX_LYN_GET_LTE_SERV_EARFCN_E, lyn_watch_take_bands<lyn_watch_lte_bands>},
            {OX_LYN_GET_NR5G_SERV_EARFCN_E, lyn_watch_take_bands<lyn_watch_nr5g_bands>}}},
    {.name = "rsrp",
     .unit = "dBm",
     .label = "RSRP",
     .help = "Reference signal received power of the serving cell.",
     .shown = "dBm",
     .history = true,
     .exposed = {"lyn_rsrp_dbm"},
     .of = {{OX_LYN_GET_LTE_SERV_RSRP_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_RSRP_E, lyn_watch_number}}},
    {.name = "rsrq",
     .unit = "dB",
     .label = "RSRQ",
     .help = "Reference signal received quality of the serving cell.",
     .shown = "dB",
     .history = true,
     .exposed = {"lyn_rsrq_db"},
     .of = {{OX_LYN_GET_LTE_SERV_RSRQ_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_RSRQ_E, lyn_watch_number}}},
    {.name = "sinr",
     .unit = "0.1 dB",
     .label = "SINR",
     .help = "Signal to interference and noise ratio of the serving cell.",
     .shown = "dB",
     .scale = 0.1,
     .history = true,
     .exposed = {"lyn_sinr_db"},
     .of = {{OX_LYN_GET_LTE_SERV_SINR_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_SINR_E, lyn_watch_number}}},
    {.name = "tx_power",
     .unit = "0.1 dBm",
     .label = "TX power",
     .help = "Transmit power.",
     .shown = "dBm",
     .scale = 0.1,
     .history = true,
     .less_is_best = true,
     .exposed = {"lyn_tx_power_dbm"},
     .of = {{OX_LYN_GET_LTE_SERV_TX_POWER_E, lyn_watch_number}, {OX_LYN_GET_NR5G_SERV_TX_POWER_E, lyn_watch_number}}},
    {.name = "cqi",
     .label = "CQI",
     .help = "Channel quality indicator, 0 to 15, per component carrier and codeword.",
     .block = LYN_WATCH_OURS,
     .exposed = {"lyn_cqi", {"carrier", "codeword"}},
     .of = {{OX_LYN_GET_LTE_SERV_CQI_E, lyn_watch_take_cqi<ox_lyn_lte_cqi_t>},
            {OX_LYN_GET_NR5G_SERV_CQI_E, lyn_watch_take_cqi<ox_lyn_nr5g_cqi_t>}}},
    {.name = "dl_modulation",
     .label = "DL mod",
     .help = "Downlink modulation per stream.",
     .block = LYN_WATCH_THEIRS,
     .exposed = {"lyn_dl_modulation", {"stream", "modulation"}},
     .of = {{OX_LYN_GET_LTE_MCS_E, lyn_watch_take_dl<lyn_watch_lte_modulations>},
            {OX_LYN_GET_NR5G_MCS_E, lyn_watch_take_dl<lyn_watch_nr5g_modulations>}}},
    {.name = "ul_modulation",
     .label = "UL mod",
     .help = "Uplink modulation per stream.",
     .block = LYN_WATCH_THEIRS,
     .exposed = {"lyn_ul_modulation", {"stream", "modulation"}},
     .of = {{OX_LYN_GET_LTE_MCS_E, lyn_watch_take_ul<lyn_watch_lte_modulations>},
            {OX_LYN_GET_NR5G_MCS_E, lyn_watch_take_ul<lyn_watch_nr5g_modulations>}}},
    {.name = "rrc",
     .label = "RRC",
     .help = "RRC state; of LTE as the modem numbers it.",
     .exposed = {"lyn_rrc", {"state"}},
     .of = {{OX_LYN_GET_LTE_RRC_STATE_E, lyn_watch_code<lyn_watch_rrc_states>},
            {OX_LYN_GET_NR5G_RRC_STATE_E, lyn_watch_code<lyn_watch_rrc_states>}}},
    {.name = "rf_bandwidth",
     .unit = "MHz",
     .label = "Bandwidth",
     .help = "RF bandwidth per carrier.",
     .shown = "MHz",
     .exposed = {"lyn_rf_bandwidth_mhz", {"carrier"}},
     .of = {{OX_LYN_GET_LTE_RF_BANDWIDTH_E, lyn_watch_take_lte_bandwidth},
            {OX_LYN_GET_NR5G_RF_BANDWIDTH_E, lyn_watch_take_nr5g_bandwidth}}},
    {.name = "ca_bandwidth",
     .unit = "MHz",
     .label = "CA",
     .help = "Downlink bandwidth of the primary cell under carrier aggregation.",
     .shown = "MHz",
     .exposed = {"lyn_ca_bandwidth_mhz"},
     .of = {{OX_LYN_GET_LTE_CA_STATS_E, lyn_watch_take_ca_bandwidth}}},
    {.name = "scs",
     .unit = "kHz",
     .label = "SCS",
     .help = "Sub-carrier spacing.",
     .shown = "kHz",
     .exposed = {"lyn_scs_khz"},
     .of = {{}, {OX_LYN_GET_NR5G_SCS_E, lyn_watch_take_scs}}},
    {.name = "endc_available",
     .label = "EN-DC",
     .help = "Whether the cell offers EN-DC.",
     .block = LYN_WATCH_THEIRS,
     .exposed = {"lyn_endc_available"},
     .of = {{OX_LYN_GET_LTE_ENDC_MODE_E, lyn_watch_take_endc<&ox_lyn_endc_mode_t::endc_available>}}},
    {.name = "dcnr_restricted",
     .label = "DCNR restr",
     .help = "Whether NR 5G as second radio is restricted.",
     .block = LYN_WATCH_THEIRS,
     .exposed = {"lyn_dcnr_restricted"},
     .of = {{OX_LYN_GET_LTE_ENDC_MODE_E, lyn_watch_take_endc<&ox_lyn_endc_mode_t::restrict_dcnr>}}},
    {.name = "cell_lock",
     .label = "Locked to",
     .help = "What the modem is locked to: CHANNEL/PCI, of NR 5G also channels.",
     .block = LYN_WATCH_OURS,
     .of = {{OX_LYN_GET_LTE_CELL_LOCK_LIST_E, lyn_watch_take_lte_lock},
            {OX_LYN_GET_NR5G_CELL_LOCK_LIST_E, lyn_watch_take_nr5g_lock}}},
};

const std::span<const lyn_watch_item_t> lyn_watch_items = lyn_watch_item_table;

static std::vector<lyn_watch_key_t> lyn_watch_all_keys() {
  std::vector<lyn_watch_key_t> keys;
  for (size_t item = 0; item < lyn_watch_items.size(); ++item) {
    for (const lyn_watch_radio_e radio : {LYN_WATCH_LTE, LYN_WATCH_NR5G, LYN_WATCH_BOARD}) {
      if (lyn_watch_items[item].of[radio].metric != OX_LYN_GET_INVALID_E) {
        keys.push_back({item, radio});
      }
    }
  }
  return keys;
}

const std::vector<lyn_watch_key_t> &lyn_watch_keys() {
  static const auto *const keys = new std::vector<lyn_watch_key_t>(lyn_watch_all_keys());
  return *keys;
}

lyn_watch_key_t lyn_watch_key(lyn_watch_radio_e radio, const char *name) {
  const auto found = std::ranges::find_if(
      lyn_watch_items, [name](const lyn_watch_item_t &item) { return strcmp(item.name, name) == 0; });
  assert(found != lyn_watch_items.end() && found->of[radio].metric != OX_LYN_GET_INVALID_E);
  return {static_cast<size_t>(found - lyn_watch_items.begin()), radio};
}

static std::vector<std::string> lyn_watch_all_metric_names() {
  std::vector<std::string> names(OX_LYN_GET_COUNT, "other");
  names[OX_LYN_GET_WWAN_PROFILE_INDEX_E] = "wwan_profiles";
  names[OX_LYN_GET_IPV4_STATS_E] = "ipv4_stats";
  names[OX_LYN_GET_IPV6_STATS_E] = "ipv6_stats";
  names[OX_LYN_GET_LOC_SINGLE_SHOT_E] = "location";
  names[OX_LYN_GET_LTE_NBR_EARFCN_E] = "neighbours";
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_item_t &item = lyn_watch_items[key.item];
    std::string &name = names[item.of[key.radio].metric];
    if (name == "other") {
      name = std::string(lyn_watch_radio_name(key.radio)) + (key.radio == LYN_WATCH_BOARD ? "" : "_") + item.name;
    }
  }
  return names;
}

const char *lyn_watch_metric_name(uint32_t metric) {
  static const auto *const names = new std::vector<std::string>(lyn_watch_all_metric_names());
  return (*names)[metric].c_str();
}

/* What can happen */

static lyn_watch_value_t lyn_watch_text(const char *text) {
  return std::string(text);
}

static std::vector<lyn_watch_field_t> lyn_watch_take_value(const ox_lyn_dm_info_t &record) {
  return {{"value", record.value.i64}};
}

static std::vector<lyn_watch_field_t> lyn_watch_take_modem(const ox_lyn_dm_info_t &record) {
  static constexpr lyn_watch_name_t names[] = {{OX_LYN_MODEM_DOWN_E, "down"}, {OX_LYN_MODEM_UP_E, "up"}};
  return {{"value", lyn_watch_text(lyn_watch_name_or_other(names, record.value.u32))}};
}

static std::vector<lyn_watch_field_t> lyn_watch_take_registration(const ox_lyn_dm_info_t &record) {
  return {{"value", lyn_watch_text(lyn_watch_name_or_other(lyn_watch_registrations, record.value.u32))}};
}

// A block that the module had no memory for carries nothing.
template <typename Block, std::vector<lyn_watch_field_t> (*take)(const Block &block)>
static std::vector<lyn_watch_field_t> lyn_watch_take_block(const ox_lyn_dm_info_t &record) {
  if (record.value.ptr == nullptr) {
    return {};
  }
  return take(lyn_watch_block<Block>(record));
}

static std::vector<lyn_watch_field_t> lyn_watch_mtpe_fields(const ox_lyn_mtpe_status_t &mtpe) {
  static constexpr lyn_watch_name_t directions[] = {{OX_LYN_MTPE_TYPE_UPLINK_E, "uplink"},
                                                    {OX_LYN_MTPE_TYPE_DOWNLINK_E, "downlink"}};
  static constexpr lyn_watch_name_t results[] = {{OX_LYN_MTPE_STATUS_ABORTED_E, "aborted"},
                                                 {OX_LYN_MTPE_STATUS_CONFIGURED_E, "configured"},
                                                 {OX_LYN_MTPE_STATUS_COMPLETED_E, "completed"},
                                                 {OX_LYN_MTPE_STATUS_FAILED_E, "failed"}};
  std::vector<lyn_watch_field_t> fields = {
      {"test", lyn_watch_text(lyn_watch_name_or_other(directions, mtpe.test_type))},
      {"value", lyn_watch_text(lyn_watch_name_or_other(results, mtpe.test_status))}};
  if (mtpe.test_status == OX_LYN_MTPE_STATUS_COMPLETED_E) {
    fields.emplace_back("peak_rate", int64_t{mtpe.peak_rate});
  }
  return fields;
}

static std::vector<lyn_watch_field_t> lyn_watch_qos_fields(const ox_lyn_qos_flow_t &flow) {
  return {
      {"bearer", int64_t{flow.bearer_id}}, {"tx_5qi", int64_t{flow.tx_5g_qci}}, {"rx_5qi", int64_t{flow.rx_5g_qci}}};
}

static std::vector<lyn_watch_field_t> lyn_watch_pps_fields(const ox_lyn_pps_ind_t &pps) {
  return {{"position", int64_t{pps.position_index}}, {"mode", int64_t{pps.mode}}};
}

static std::vector<lyn_watch_field_t> lyn_watch_install_fields(const ox_lyn_install_freq_list_t &list) {
  std::vector<double> channels;
  std::vector<double> rsrp;
  for (const ox_lyn_install_freq_t &entry : lyn_watch_first(list.entries, list.count)) {
    channels.push_back(entry.arfcn);
    rsrp.push_back(entry.rsrp);
  }
  return {{"channel", std::move(channels)}, {"rsrp", std::move(rsrp)}};
}

template <typename Info>
static std::vector<lyn_watch_field_t> lyn_watch_scan_fields(const Info &info) {
  int64_t cells = 0;
  for (const auto &cell : info.cells) {
    cells += cell.present != 0;
  }
  return {{"cells", cells}};
}

static constexpr lyn_watch_name_t lyn_watch_responses[] = {{OX_LYN_LOC_RESPONSE_INVALID_E, "invalid"},
                                                           {OX_LYN_LOC_RESPONSE_SUCCESS_E, "success"},
                                                           {OX_LYN_LOC_RESPONSE_FAILURE_E, "failure"},
                                                           {OX_LYN_LOC_RESPONSE_NOT_SUPPORTED_E, "not_supported"},
                                                           {OX_LYN_LOC_RESPONSE_PARAM_INVALID_E, "param_invalid"},
                                                           {OX_LYN_LOC_RESPONSE_TIMEOUT_E, "timeout"}};

static std::vector<lyn_watch_field_t> lyn_watch_shot_fields(const ox_lyn_loc_single_shot_t &shot) {
  const auto response = static_cast<int32_t>(shot.response);
  std::vector<lyn_watch_field_t> fields = {
      {"value", lyn_watch_text(lyn_watch_name_or_other(lyn_watch_responses, response))}};
  if ((shot.location.flags & OX_LYN_LOC_FLAG_LAT_LONG_E) != 0) {
    fields.emplace_back("latitude", shot.location.latitude);
    fields.emplace_back("longitude", shot.location.longitude);
  }
  return fields;
}

static std::vector<lyn_watch_field_t> lyn_watch_batch_fields(const ox_lyn_loc_batch_t &batch) {
  return {{"value", lyn_watch_text(lyn_watch_name_or_other(lyn_watch_responses, batch.response))},
          {"locations", int64_t{batch.count}}};
}

static constexpr lyn_watch_event_kind_t lyn_watch_event_kind_table[] = {
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_MODEM_STATUS_E,
     .name = "modem_status",
     .take = lyn_watch_take_modem},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_REG_STATUS_E,
     .name = "reg_status",
     .radio = LYN_WATCH_BOARD,
     .item = "registration",
     .take = lyn_watch_take_registration},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_LTE_RSRP_E,
     .name = "lte_rsrp",
     .radio = LYN_WATCH_LTE,
     .item = "rsrp",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_NR5G_RSRP_E,
     .name = "nr5g_rsrp",
     .radio = LYN_WATCH_NR5G,
     .item = "rsrp",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_LTE_RSRQ_E,
     .name = "lte_rsrq",
     .radio = LYN_WATCH_LTE,
     .item = "rsrq",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_NR5G_RSRQ_E,
     .name = "nr5g_rsrq",
     .radio = LYN_WATCH_NR5G,
     .item = "rsrq",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_LTE_SINR_E,
     .name = "lte_sinr",
     .radio = LYN_WATCH_LTE,
     .item = "sinr",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_NR5G_SINR_E,
     .name = "nr5g_sinr",
     .radio = LYN_WATCH_NR5G,
     .item = "sinr",
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_MTPE_STATUS_E,
     .name = "mtpe_status",
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_mtpe_status_t, lyn_watch_mtpe_fields>},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_QOS_FLOW_E,
     .name = "qos_flow",
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_qos_flow_t, lyn_watch_qos_fields>},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_PPS_CHANGE_E,
     .name = "pps_change",
     .radio = LYN_WATCH_NR5G,
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_pps_ind_t, lyn_watch_pps_fields>},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_INSTALL_MODE_STATUS_E,
     .name = "install_mode_status",
     .radio = LYN_WATCH_NR5G,
     .take = lyn_watch_take_value},
    {.record_type = OX_LYN_RECORD_IND_E,
     .id = OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E,
     .name = "install_mode_freq_info",
     .radio = LYN_WATCH_NR5G,
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_install_freq_list_t, lyn_watch_install_fields>},
    {.record_type = OX_LYN_RECORD_ASYNC_E,
     .id = OX_LYN_ASYNC_LTE_NBR_INFO_E,
     .name = "lte_nbr_info",
     .radio = LYN_WATCH_LTE,
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_lte_nbr_info_t, lyn_watch_scan_fields>},
    {.record_type = OX_LYN_RECORD_ASYNC_E,
     .id = OX_LYN_ASYNC_NR5G_NBR_INFO_E,
     .name = "nr5g_nbr_info",
     .radio = LYN_WATCH_NR5G,
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_nr5g_nbr_info_t, lyn_watch_scan_fields>},
    {.record_type = OX_LYN_RECORD_ASYNC_E,
     .id = OX_LYN_ASYNC_LOC_SINGLE_SHOT_E,
     .name = "loc_single_shot",
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_loc_single_shot_t, lyn_watch_shot_fields>},
    {.record_type = OX_LYN_RECORD_ASYNC_E,
     .id = OX_LYN_ASYNC_LOC_BATCH_E,
     .name = "loc_batch",
     .block = true,
     .take = lyn_watch_take_block<ox_lyn_loc_batch_t, lyn_watch_batch_fields>},
};
static_assert(std::size(lyn_watch_event_kind_table) == OX_LYN_IND_COUNT + OX_LYN_ASYNC_COUNT - 2);

const std::span<const lyn_watch_event_kind_t> lyn_watch_event_kinds = lyn_watch_event_kind_table;

const lyn_watch_event_kind_t *lyn_watch_event_kind(uint32_t record_type, uint32_t id) {
  const auto found = std::ranges::find_if(lyn_watch_event_kinds, [=](const lyn_watch_event_kind_t &kind) {
    return kind.record_type == record_type && kind.id == id;
  });
  return found == lyn_watch_event_kinds.end() ? nullptr : &*found;
}
