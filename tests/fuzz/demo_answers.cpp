/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any lines as the answers to the questions of options 7, 8 and 9; the first line is the option line. Ends with an
 * error where what is then asked of the module has a value that the questions do not let through; where a sequence that
 * was abandoned asks all the same, or another does not; and where answers are taken otherwise than line by line.
 *
 * The program is linked with --wrap for the three operations: what they answer is drawn from the input, too.
 */
#include <algorithm>
#include <cstring>
#include <random>
#include <vector>

#include "../../demo/lyn_demo.h"
#include "../../demo/lyn_demo_prompt.h"
#include "fuzz.h"

namespace {

std::minstd_rand drawn; /* what the module answers */

/* Questions */

void hold_family(uint32_t family) {
  fuzz_hold(family == OX_LYN_IP_FAMILY_V4_E || family == OX_LYN_IP_FAMILY_V6_E, "an IP family is 4 or 6");
}

void hold_mtpe_client(const ox_lyn_mtpe_net_params_t &params) {
  hold_family(params.ip_family);
  const auto *behind = params.client_addr + (params.ip_family == OX_LYN_IP_FAMILY_V4_E ? 4 : 16);
  fuzz_hold(std::all_of(behind, std::end(params.client_addr), [](uint8_t octet) { return octet == 0; }),
            "an IPv4 address has four octets");
}

void hold_mtpe_test(const ox_lyn_mtpe_req_t &req) {
  hold_family(req.ip_family);
  fuzz_hold(req.test_type >= OX_LYN_MTPE_TYPE_UPLINK_E && req.test_type <= OX_LYN_MTPE_TYPE_BOTH_E,
            "a test has a type");
  fuzz_hold(req.protocol == OX_LYN_PROTOCOL_UDP_E, "a test is one of UDP");
  fuzz_hold(req.src_port != 0 && req.dst_port != 0, "a test has ports");
  const size_t length = strnlen(req.server_url, sizeof req.server_url);
  fuzz_hold(length < sizeof req.server_url && memchr(req.server_url, '\n', length) == nullptr, "a URL is one line");
  fuzz_hold(length == 0 || req.external_server == 0, "a server with a URL is not asked for its owner");
  const bool limited = req.external_server != 1 && req.test_type != OX_LYN_MTPE_TYPE_UPLINK_E;
  fuzz_hold(limited || (req.bandwidth == 0 && req.mtu == 0), "limits are those of a downlink from the own server");
  const bool v4 = req.ip_family == OX_LYN_IP_FAMILY_V4_E;
  fuzz_hold(v4 || (req.src_ipv4 == 0 && req.dst_ipv4 == 0), "addresses are of the family");
}

void hold_lte_lock(const ox_lyn_lte_cell_lock_t &lock) {
  fuzz_hold(lock.count <= OX_LYN_LTE_LOCK_LEN, "an LTE lock has a list's length");
  const auto *behind = lock.cells + lock.count;
  fuzz_hold(std::all_of(behind, std::end(lock.cells), [](auto cell) { return cell.pci == 0 && cell.freq == 0; }),
            "an LTE lock ends with its list");
}

void hold_nr5g_lock(const ox_lyn_nr5g_cell_lock_t &lock) {
  const auto masks =
      std::count_if(std::begin(lock.band_mask), std::end(lock.band_mask), [](auto mask) { return mask != 0; });
  fuzz_hold(masks <= 1, "one band mask is given");
  fuzz_hold(lock.lock_type == OX_LYN_LOCK_CELL_E || (lock.pci == 0 && lock.scs == 0 && lock.arfcn == 0 && masks == 0),
            "a cell is that of a lock on it");
  fuzz_hold(lock.arfcn_list_len <= (lock.lock_type == OX_LYN_LOCK_ARFCN_LIST_E ? OX_LYN_NR5G_LOCK_LEN : 0),
            "a list is that of a lock on it");
}

void hold_pps_config(const ox_lyn_pps_config_t &config) {
  fuzz_hold(config.freq_count <= OX_LYN_FREQ_LEN, "frequencies have a list's length");
}

void hold_pps_change(const ox_lyn_pps_change_status_t &change) {
  fuzz_hold(change.pps_mode != OX_LYN_PPS_MODE_INVALID_E, "a mode is given");
}

void hold_install(const ox_lyn_install_mode_t &install) {
  fuzz_hold(install.mode != 0, "a mode is given");
  const bool start = install.mode == OX_LYN_INSTALL_MODE_START_E;
  fuzz_hold(install.freq_count <= (start ? OX_LYN_FREQ_LEN : 0), "frequencies are those of a start");
  fuzz_hold(!start || (install.freq_count > 0 && install.freqs[install.freq_count - 1].scs != 0),
            "a start has frequencies, the last with its spacing");
}

template <typename block>
const block &at(const void *ptr) {
  fuzz_hold(ptr != nullptr, "a block is handed in");
  return *static_cast<const block *>(ptr);
}

void hold_request(const ox_lyn_dm_info_t &info) {
  fuzz_hold(info.record_type == OX_LYN_RECORD_GET_E && info.metric < OX_LYN_GET_COUNT, "a request is one for a metric");
  switch (info.metric) {
    case OX_LYN_GET_IPV4_STATS_E:
    case OX_LYN_GET_IPV6_STATS_E:
      return fuzz_hold(info.value.i64 >= 0 && info.value.i64 <= UINT32_MAX, "a handle has 32 bits");
    case OX_LYN_GET_MTPE_SERVER_CONFIG_E:
      return hold_mtpe_client(at<ox_lyn_mtpe_net_params_t>(info.value.ptr));
    case OX_LYN_GET_MTPE_LTE_INFO_E:
    case OX_LYN_GET_MTPE_NR5G_INFO_E:
      return hold_mtpe_test(at<ox_lyn_mtpe_req_t>(info.value.ptr));
    default:
      return;
  }
}

void hold_control(const ox_lyn_dm_ctrl_info_t &ctrl) {
  switch (ctrl.control) {
    case OX_LYN_SET_LTE_CELL_LOCK_LIST_E:
      return hold_lte_lock(at<ox_lyn_lte_cell_lock_t>(ctrl.value.ptr));
    case OX_LYN_SET_NR5G_CELL_LOCK_LIST_E:
      return hold_nr5g_lock(at<ox_lyn_nr5g_cell_lock_t>(ctrl.value.ptr));
    case OX_LYN_SET_NR5G_DEPRIORITIZE_E:
      return fuzz_hold(ctrl.value.u8 <= 1, "an answer is yes or no");
    case OX_LYN_SET_MMW_PPS_CONFIG_E:
      return hold_pps_config(at<ox_lyn_pps_config_t>(ctrl.value.ptr));
    case OX_LYN_SET_MMW_PPS_CHANGE_STATUS_E:
      return hold_pps_change(at<ox_lyn_pps_change_status_t>(ctrl.value.ptr));
    case OX_LYN_SET_INSTALL_MODE_E:
      return hold_install(at<ox_lyn_install_mode_t>(ctrl.value.ptr));
    default:
      return;
  }
}

/* Answers */

template <typename block>
void draw(block *to) {
  auto *octets = reinterpret_cast<uint8_t *>(to);
  std::generate(octets, octets + sizeof(block), [] { return static_cast<uint8_t>(drawn() >> 8); });
}

template <typename block>
block *drawn_block() {
  auto *made = static_cast<block *>(calloc(1, sizeof(block)));
  draw(made);
  return made;
}

void *drawn_profiles() {
  auto *list = drawn_block<ox_lyn_wwan_profile_list_t>();
  for (ox_lyn_wwan_profile_t &profile : list->profiles) {
    profile.apn_name[sizeof profile.apn_name - 1] = '\0';
  }
  list->count %= OX_LYN_WWAN_PROFILE_LEN + 2;
  return list;
}

/** Fill in what the client gave room for, hand over a block, or give a number. */
void answer(ox_lyn_dm_info_t *info) {
  if (info->metric >= OX_LYN_GET_LTE_NBR_EARFCN_E && info->metric <= OX_LYN_GET_LTE_NBR_RSRQ_E) {
    return;
  }
  switch (info->metric) {
    case OX_LYN_GET_LTE_SERV_CQI_E:
      return draw(static_cast<ox_lyn_lte_cqi_t *>(info->value.ptr));
    case OX_LYN_GET_NR5G_SERV_CQI_E:
      return draw(static_cast<ox_lyn_nr5g_cqi_t *>(info->value.ptr));
    case OX_LYN_GET_LTE_CELL_LOCK_LIST_E:
      return draw(static_cast<ox_lyn_lte_cell_lock_t *>(info->value.ptr));
    case OX_LYN_GET_NR5G_CELL_LOCK_LIST_E:
      draw(static_cast<ox_lyn_nr5g_cell_lock_t *>(info->value.ptr));
      static_cast<ox_lyn_nr5g_cell_lock_t *>(info->value.ptr)->lock_type %= 4;
      return;
    case OX_LYN_GET_LTE_MCS_E:
    case OX_LYN_GET_NR5G_MCS_E:
      info->value.ptr = drawn_block<ox_lyn_mcs_t>();
      return;
    case OX_LYN_GET_LTE_ENDC_MODE_E:
      info->value.ptr = drawn() % 4 == 0 ? nullptr : drawn_block<ox_lyn_endc_mode_t>();
      return;
    case OX_LYN_GET_WWAN_PROFILE_INDEX_E:
      info->value.ptr = drawn_profiles();
      return;
    case OX_LYN_GET_IPV4_STATS_E:
    case OX_LYN_GET_IPV6_STATS_E:
      info->value.ptr = drawn_block<ox_lyn_wwan_stats_t>();
      return;
    case OX_LYN_GET_MTPE_SERVER_CONFIG_E:
      info->value.ptr = drawn_block<ox_lyn_mtpe_server_config_t>();
      return;
    default:
      break;
  }
  if (info->metric < OX_LYN_GET_WWAN_PROFILE_INDEX_E) {
    draw(&info->value);
    draw(&info->count);
  }
}

/** Nobody can answer a record without its block, as one is whose questions were abandoned, or none at all. */
bool can_be_answered(const ox_lyn_dm_info_t &info) {
  const bool filled = info.metric == OX_LYN_GET_LTE_SERV_CQI_E || info.metric == OX_LYN_GET_NR5G_SERV_CQI_E ||
                      info.metric == OX_LYN_GET_LTE_CELL_LOCK_LIST_E || info.metric == OX_LYN_GET_NR5G_CELL_LOCK_LIST_E;
  const bool told = info.metric >= OX_LYN_GET_MTPE_SERVER_CONFIG_E && info.metric <= OX_LYN_GET_LOC_ROUTINE_BATCHING_E;
  return info.record_type == OX_LYN_RECORD_GET_E && ((!filled && !told) || info.value.ptr != nullptr);
}

/** In a list entries of one kind share their block: one whose questions were abandoned leaves half an answer to all. */
bool shares_block(const ox_lyn_dm_info_t &info, const ox_lyn_dm_info_t &other) {
  const auto kind = [](const ox_lyn_dm_info_t &of) {
    return of.metric == OX_LYN_GET_MTPE_NR5G_INFO_E ? static_cast<uint32_t>(OX_LYN_GET_MTPE_LTE_INFO_E) : of.metric;
  };
  return kind(info) == kind(other);
}

void hold_requests(const ox_lyn_dm_info_t *infos, uint32_t count) {
  const ox_lyn_dm_info_t *end = infos + count;
  const ox_lyn_dm_info_t *abandoned = std::find_if_not(infos, end, can_be_answered);
  for (const ox_lyn_dm_info_t *info = infos; info < abandoned; ++info) {
    if (abandoned == end || !shares_block(*info, *abandoned)) {
      hold_request(*info);
    }
  }
}

/** One by one up to the first that fails, which hands over a block all the same where it is an uplink's. */
int32_t answer_all(ox_lyn_dm_info_t *infos, uint32_t count) {
  hold_requests(infos, count);
  for (uint32_t i = 0; i < count; ++i) {
    if (!can_be_answered(infos[i])) {
      return OX_LYN_ERR_INVALID_PARAM;
    }
    const bool fails = drawn() % 8 == 0;
    const bool uplink = infos[i].metric == OX_LYN_GET_LTE_MCS_E || infos[i].metric == OX_LYN_GET_NR5G_MCS_E;
    if (!fails || uplink) {
      answer(&infos[i]);
    }
    if (fails) {
      return OX_LYN_ERR_FAILURE;
    }
  }
  return OX_LYN_SUCCESS;
}

/** How often the option asked, and what it was told. */
struct {
  int times;
  int32_t status;
} asked;

int32_t told(int32_t status) {
  ++asked.times;
  asked.status = status;
  return status;
}

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL in the place of SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int32_t __wrap_ox_lyn_get_info(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info) {
  fuzz_hold(can_be_answered(*dm_info), "a request is whole");
  return told(answer_all(dm_info, 1));
}
int32_t __wrap_ox_lyn_get_info_list(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info_list, uint32_t dm_info_list_cnt) {
  return told(answer_all(dm_info_list, dm_info_list_cnt));
}
int32_t __wrap_ox_lyn_set_info(ox_lyn_hndl_t, ox_lyn_dm_ctrl_info_t *dm_ctrl_info) {
  hold_control(*dm_ctrl_info);
  return told(drawn() % 8 == 0 ? OX_LYN_ERR_FAILURE : OX_LYN_SUCCESS);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

/** Answers are lines, and what of one does not fit into the shortest answer. */
void hold_taken(std::string_view answers, size_t taken) {
  const size_t begin = answers.substr(0, taken).rfind('\n') + 1;
  fuzz_hold(taken <= answers.size() &&
                (begin == taken || taken == answers.size() || taken - begin >= LYN_DEMO_YES_NO_LEN - 1),
            "answers are taken line by line", answers);
}

void hold_outcome(int32_t option, uint32_t count, int32_t status, std::string_view printed) {
  const bool abandoned = count >= 2 && asked.times == 0;
  fuzz_hold(asked.times <= (count >= 2 ? 1 : 0), "an option asks once", printed);
  fuzz_hold(!abandoned || option != 8, "a list is sent whatever was abandoned", printed);
  fuzz_hold(!abandoned || printed.find("failed to ") != printed.npos, "an abandoned sequence says so", printed);
  fuzz_hold(status == (abandoned ? -1 : asked.status), "an option gives the status of its request", printed);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  static const bool started = (fuzz_take_stdio(), true);
  const std::string_view text = fuzz_text(data, started ? size : 0);
  std::string line(text.substr(0, text.find('\n')));
  const std::string_view answers = text.substr(std::min(text.size(), line.size() + 1));
  int32_t options[LYN_DEMO_MAX_OPTIONS] = {};
  uint32_t count = 0;
  if (lyn_demo_parse_options(line.data(), options, &count) != 0 || count == 0 || options[0] < 7 || options[0] > 9) {
    return 0;
  }
  fuzz_printed();
  asked = {};
  drawn.seed(static_cast<uint32_t>(std::hash<std::string_view>()(text)));
  const fuzz_typed typed(answers);
  const int32_t status = lyn_demo_process_options(options, count);
  hold_taken(answers, static_cast<size_t>(ftell(stdin)));
  hold_outcome(options[0], count, status, fuzz_printed());
  return 0;
}
