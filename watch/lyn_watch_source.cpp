/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_source.h"

#include <pthread.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using std::chrono::system_clock;

// Between two tries to bring the module up; and the least between two readings, however many events ask for one.
static constexpr milliseconds LYN_WATCH_RETRY = seconds(1);
static constexpr milliseconds LYN_WATCH_CALM = milliseconds(100);

// A scan that was not answered by then is lost.
static constexpr milliseconds LYN_WATCH_SCAN_PATIENCE = seconds(50);

// A single shot that was not answered by then is stopped.
static constexpr milliseconds LYN_WATCH_SHOT_TIMEOUT = seconds(30);
static constexpr milliseconds LYN_WATCH_SHOT_PATIENCE = seconds(35);
static constexpr float LYN_WATCH_SHOT_ACCURACY = 50;  // m

// A receiver that has only just been started does not know yet what it can do: what fails then is asked for again.
static constexpr milliseconds LYN_WATCH_RECEIVER_START = seconds(2);
static constexpr milliseconds LYN_WATCH_SHOT_RETRY = milliseconds(200);

// Steps in which the modem reports, in each value's own unit: 1 dB, as SINR comes in 0.1 dB.
static constexpr struct {
  ox_lyn_ind_e indication;
  int64_t threshold;
} lyn_watch_subscriptions[] = {
    {OX_LYN_IND_MODEM_STATUS_E, 0}, {OX_LYN_IND_REG_STATUS_E, 0}, {OX_LYN_IND_LTE_RSRP_E, 1},
    {OX_LYN_IND_NR5G_RSRP_E, 1},    {OX_LYN_IND_LTE_RSRQ_E, 1},   {OX_LYN_IND_NR5G_RSRQ_E, 1},
    {OX_LYN_IND_LTE_SINR_E, 10},    {OX_LYN_IND_NR5G_SINR_E, 10},
};

struct lyn_watch_source_t {
  lyn_watch_model_t *model = nullptr;
  lyn_watch_plan_t plan{};

  std::mutex mutex;  // of all up to the blank line; never held while the module is called
  std::condition_variable woken;
  bool ending = false;
  bool ended = false;
  bool reread = false;  // something happened that makes all items worth reading
  bool scan_asked = false;
  uint64_t downs = 0;  // how often the modem was said to be gone

  ox_lyn_hndl_t hndl = 0;      // the thread's own, all below
  uint64_t reading_downs = 0;  // as the reading began
  bool subscribed[std::size(lyn_watch_subscriptions)] = {};
  uint64_t subscribed_downs = 0;
  lyn_watch_time_t scan_lost = lyn_watch_time_t::max();  // when a scan that is not answered is given up
  lyn_watch_time_t shot_lost = lyn_watch_time_t::max();
  uint64_t scan_downs = 0;  // as the scan was sent
  lyn_watch_time_t receiver_ready{};
};

// Never destroyed: the module's thread may call back until the process has ended.
static lyn_watch_source_t *const lyn_watch_source = new lyn_watch_source_t;

static void lyn_watch_source_wake(bool lyn_watch_source_t::*what) {
  const std::lock_guard lock(lyn_watch_source->mutex);
  lyn_watch_source->*what = true;
  lyn_watch_source->woken.notify_all();
}

static uint64_t lyn_watch_source_downs() {
  const std::lock_guard lock(lyn_watch_source->mutex);
  return lyn_watch_source->downs;
}

/* Requests */

// Calls, and counts what came of it. `name` lives for ever.
template <typename Call>
static int32_t lyn_watch_source_ask(const char *name, Call call) {
  const lyn_watch_time_t begin = steady_clock::now();
  const int32_t status = call();
  const lyn_watch_time_t end = steady_clock::now();
  lyn_watch_model_count_request(lyn_watch_source->model, name, status, end - begin, end);
  return status;
}

static int32_t lyn_watch_source_get(ox_lyn_dm_info_t *record) {
  return lyn_watch_source_ask(lyn_watch_metric_name(record->metric),
                              [record] { return ox_lyn_get_info(lyn_watch_source->hndl, record); });
}

static ox_lyn_dm_info_t lyn_watch_source_record(uint32_t metric) {
  ox_lyn_dm_info_t record = {};
  record.record_type = OX_LYN_RECORD_GET_E;
  record.metric = metric;
  return record;
}

/* What the callback brings */

static void lyn_watch_source_free(ox_lyn_dm_info_t *event, const lyn_watch_event_kind_t *kind) {
  if (kind != nullptr && kind->block && event->value.ptr != nullptr) {
    if (kind->record_type == OX_LYN_RECORD_ASYNC_E && kind->id == OX_LYN_ASYNC_LOC_BATCH_E) {
      free(static_cast<ox_lyn_loc_batch_t *>(event->value.ptr)->locations);
    }
    free(event->value.ptr);
  }
  free(event);
}

// Without those that are none.
static std::vector<std::string> lyn_watch_source_plmns(const ox_lyn_plmn_t *plmns, uint32_t count, size_t room) {
  std::vector<std::string> texts;
  for (size_t i = 0; i < std::min<size_t>(count, room); ++i) {
    texts.push_back(lyn_watch_plmn(plmns[i]));
  }
  std::erase(texts, "");
  return texts;
}

static lyn_watch_neighbour_t lyn_watch_source_cell(const ox_lyn_lte_nbr_t &cell) {
  lyn_watch_neighbour_t neighbour = {.channel = cell.earfcn, .pci = cell.pci};
  if (cell.cgi_valid != 0) {
    neighbour.cgis.push_back(cell.cgi);
  }
  if (cell.plmn_valid != 0) {
    neighbour.plmns = lyn_watch_source_plmns(cell.plmn, cell.plmn_count, OX_LYN_LTE_NBR_PLMN_LEN);
  }
  return neighbour;
}

static lyn_watch_neighbour_t lyn_watch_source_cell(const ox_lyn_nr5g_nbr_t &cell) {
  lyn_watch_neighbour_t neighbour = {.channel = cell.earfcn, .pci = cell.pci};
  if (cell.rsrp_valid != 0) {
    neighbour.rsrp = cell.rsrp;
  }
  if (cell.cgi_valid != 0) {
    neighbour.cgis.assign(cell.cgi, cell.cgi + std::min<uint32_t>(cell.cgi_count, OX_LYN_NR5G_NBR_CGI_LEN));
  }
  if (cell.plmn_valid != 0) {
    neighbour.plmns = lyn_watch_source_plmns(cell.plmn, cell.plmn_count, OX_LYN_NR5G_NBR_PLMN_LEN);
  }
  return neighbour;
}

template <typename Info>
static std::vector<lyn_watch_neighbour_t> lyn_watch_source_cells(const Info &info) {
  std::vector<lyn_watch_neighbour_t> cells;
  for (const auto &cell : info.cells) {
    if (cell.present == 0) {
      break;
    }
    cells.push_back(lyn_watch_source_cell(cell));
  }
  return cells;
}

// Of LTE's neighbours only the strongest is measured, and told apart from the list.
static void lyn_watch_source_add_strongest(const ox_lyn_lte_nbr_info_t &info,
                                           std::vector<lyn_watch_neighbour_t> *cells) {
  const auto &strongest = info.serving;
  if (strongest.valid == 0 || (strongest.rsrp_valid == 0 && strongest.rsrq_valid == 0)) {
    return;
  }
  auto cell = std::ranges::find_if(*cells, [&](const lyn_watch_neighbour_t &neighbour) {
    return neighbour.channel == strongest.earfcn && neighbour.pci == strongest.pci;
  });
  if (cell == cells->end()) {
    cell = cells->insert(cells->begin(), {.channel = strongest.earfcn, .pci = strongest.pci});
  }
  if (strongest.rsrp_valid != 0) {
    cell->rsrp = strongest.rsrp;
  }
  if (strongest.rsrq_valid != 0) {
    cell->rsrq = strongest.rsrq;
  }
}

static void lyn_watch_source_take_scan(const ox_lyn_dm_info_t &event, const lyn_watch_event_kind_t *kind,
                                       lyn_watch_time_t now) {
  lyn_watch_neighbours_t neighbours;
  if (event.value.ptr != nullptr) {
    neighbours.at = now;
    if (kind->radio == LYN_WATCH_LTE) {
      const auto &info = *static_cast<const ox_lyn_lte_nbr_info_t *>(event.value.ptr);
      neighbours.cells = lyn_watch_source_cells(info);
      lyn_watch_source_add_strongest(info, &neighbours.cells);
    } else {
      neighbours.cells = lyn_watch_source_cells(*static_cast<const ox_lyn_nr5g_nbr_info_t *>(event.value.ptr));
    }
  }
  lyn_watch_model_put_neighbours(lyn_watch_source->model, kind->radio, std::move(neighbours));
  // NR 5G's answer is the last of a scan.
  if (kind->radio == LYN_WATCH_NR5G) {
    lyn_watch_model_set_scanning(lyn_watch_source->model, false);
  }
}

static void lyn_watch_source_take_location(const ox_lyn_location_t &location, lyn_watch_time_t now) {
  if ((location.flags & OX_LYN_LOC_FLAG_LAT_LONG_E) != 0 && std::isfinite(location.latitude) &&
      std::isfinite(location.longitude)) {
    lyn_watch_model_put_location(lyn_watch_source->model, location, now);
  }
}

static void lyn_watch_source_take_async(const ox_lyn_dm_info_t &event, const lyn_watch_event_kind_t *kind,
                                        lyn_watch_time_t now) {
  switch (static_cast<ox_lyn_async_resp_e>(event.metric)) {
    case OX_LYN_ASYNC_LTE_NBR_INFO_E:
    case OX_LYN_ASYNC_NR5G_NBR_INFO_E:
      lyn_watch_source_take_scan(event, kind, now);
      break;
    case OX_LYN_ASYNC_LOC_SINGLE_SHOT_E:
      if (event.value.ptr != nullptr) {
        lyn_watch_source_take_location(static_cast<const ox_lyn_loc_single_shot_t *>(event.value.ptr)->location, now);
      }
      lyn_watch_model_set_locating(lyn_watch_source->model, false);
      break;
    case OX_LYN_ASYNC_LOC_BATCH_E:
    case OX_LYN_ASYNC_INVALID_E:
      break;
  }
}

static void lyn_watch_source_take_indication(const ox_lyn_dm_info_t &event) {
  if (event.metric == OX_LYN_IND_MODEM_STATUS_E && event.value.u32 == OX_LYN_MODEM_DOWN_E) {
    const std::lock_guard lock(lyn_watch_source->mutex);
    ++lyn_watch_source->downs;
    lyn_watch_model_set_state(lyn_watch_source->model, LYN_WATCH_DOWN);
  }
  if (event.metric == OX_LYN_IND_MODEM_STATUS_E || event.metric == OX_LYN_IND_REG_STATUS_E) {
    lyn_watch_source_wake(&lyn_watch_source_t::reread);
  }
}

static void lyn_watch_source_on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *event, uint32_t) {
  const lyn_watch_time_t now = steady_clock::now();
  const lyn_watch_event_kind_t *kind = lyn_watch_event_kind(event->record_type, event->metric);
  if (kind != nullptr) {
    if (event->record_type == OX_LYN_RECORD_ASYNC_E) {
      lyn_watch_source_take_async(*event, kind, now);
    } else {
      lyn_watch_source_take_indication(*event);
    }
    lyn_watch_model_put_event(lyn_watch_source->model, kind, kind->take(*event), system_clock::now(), now);
  }
  lyn_watch_source_free(event, kind);
}

/* One reading of everything */

// Every item that this metric's answer has. An answer from before the modem went says nothing of now.
static void lyn_watch_source_put(const ox_lyn_dm_info_t &record, int32_t status) {
  const lyn_watch_time_t now = steady_clock::now();
  const std::lock_guard lock(lyn_watch_source->mutex);
  if (status == OX_LYN_SUCCESS && lyn_watch_source->downs != lyn_watch_source->reading_downs) {
    status = OX_LYN_ERR_FAILURE;
  }
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_taken_t &taken = lyn_watch_items[key.item].of[key.radio];
    if (taken.metric == record.metric) {
      lyn_watch_model_put(lyn_watch_source->model, key,
                          status == OX_LYN_SUCCESS ? taken.take(record) : lyn_watch_value_t(), status, now);
    }
  }
}

static void lyn_watch_source_read_metric(uint32_t metric, lyn_watch_block_e block) {
  lyn_watch_buffer_t buffer;
  memset(&buffer, 0, sizeof(buffer));
  ox_lyn_dm_info_t record = lyn_watch_source_record(metric);
  record.value.ptr = block == LYN_WATCH_OURS ? &buffer : nullptr;
  int32_t status = lyn_watch_source_get(&record);
  if (block != LYN_WATCH_IN_RECORD && record.value.ptr == nullptr && status == OX_LYN_SUCCESS) {
    status = OX_LYN_ERR_NO_MEMORY;
  }
  lyn_watch_source_put(record, status);
  if (block == LYN_WATCH_THEIRS) {
    free(record.value.ptr);
  }
}

struct lyn_watch_stats_metric_t {
  uint32_t metric;
  uint32_t family;  // ox_lyn_ip_family_e
};
static constexpr lyn_watch_stats_metric_t lyn_watch_stats_metrics[LYN_WATCH_FAMILIES] = {
    {OX_LYN_GET_IPV4_STATS_E, OX_LYN_IP_FAMILY_V4_E}, {OX_LYN_GET_IPV6_STATS_E, OX_LYN_IP_FAMILY_V6_E}};

static std::optional<lyn_watch_traffic_t> lyn_watch_source_read_stats(uint32_t metric, uint32_t profile) {
  ox_lyn_dm_info_t record = lyn_watch_source_record(metric);
  record.value.i64 = profile;
  if (lyn_watch_source_get(&record) != OX_LYN_SUCCESS || record.value.ptr == nullptr) {
    return {};
  }
  const std::unique_ptr<ox_lyn_wwan_stats_t, decltype(&free)> stats(
      static_cast<ox_lyn_wwan_stats_t *>(record.value.ptr), free);
  return lyn_watch_traffic_t{.stats = *stats, .rx_rate = {}, .tx_rate = {}, .at = steady_clock::now()};
}

// Of a lone profile only the index is told, neither name nor family.
static lyn_watch_profile_t lyn_watch_source_read_profile(const ox_lyn_wwan_profile_t &profile, bool lone) {
  lyn_watch_profile_t read = {.index = profile.profile_index, .apn = {}, .traffic = {}};
  read.apn = lyn_watch_utf8({profile.apn_name, strnlen(profile.apn_name, sizeof(profile.apn_name))});
  for (size_t i = 0; i < LYN_WATCH_FAMILIES; ++i) {
    const lyn_watch_stats_metric_t &row = lyn_watch_stats_metrics[i];
    if (lone || profile.ip_family == row.family || profile.ip_family == OX_LYN_IP_FAMILY_V4V6_E) {
      read.traffic[i] = lyn_watch_source_read_stats(row.metric, profile.profile_index);
    }
  }
  return read;
}

static std::vector<lyn_watch_profile_t> lyn_watch_source_read_profiles() {
  ox_lyn_dm_info_t record = lyn_watch_source_record(OX_LYN_GET_WWAN_PROFILE_INDEX_E);
  const int32_t status = lyn_watch_source_get(&record);
  const std::unique_ptr<ox_lyn_wwan_profile_list_t, decltype(&free)> list(
      static_cast<ox_lyn_wwan_profile_list_t *>(record.value.ptr), free);
  std::vector<lyn_watch_profile_t> profiles;
  if (status == OX_LYN_SUCCESS && list != nullptr) {
    const bool lone = list->count == 0 && list->profiles[0].profile_index != 0;
    const uint32_t count = lone ? 1 : std::min<uint32_t>(list->count, OX_LYN_WWAN_PROFILE_LEN);
    for (uint32_t i = 0; i < count; ++i) {
      profiles.push_back(lyn_watch_source_read_profile(list->profiles[i], lone));
    }
  }
  return profiles;
}

static bool lyn_watch_source_subscribe_to(ox_lyn_ind_e indication, int64_t threshold) {
  ox_lyn_dm_ind_info_t record = {.record_type = OX_LYN_RECORD_IND_E,
                                 .indication = indication,
                                 .value_type = OX_LYN_VALUE_INT64_E,
                                 .threshold = threshold};
  return lyn_watch_source_ask("subscription", [&record] {
           return ox_lyn_set_ind_info(lyn_watch_source->hndl, &record);
         }) == OX_LYN_SUCCESS;
}

// What is not subscribed, and everything once the modem has been away: it may have restarted.
static void lyn_watch_source_subscribe() {
  if (std::exchange(lyn_watch_source->subscribed_downs, lyn_watch_source->reading_downs) !=
      lyn_watch_source->reading_downs) {
    std::ranges::fill(lyn_watch_source->subscribed, false);
  }
  for (size_t i = 0; i < std::size(lyn_watch_subscriptions); ++i) {
    const auto &row = lyn_watch_subscriptions[i];
    lyn_watch_source->subscribed[i] =
        lyn_watch_source->subscribed[i] || lyn_watch_source_subscribe_to(row.indication, row.threshold);
  }
}

// The registration status, which every reading begins with; 0: the modem does not answer.
static uint32_t lyn_watch_source_read_registration() {
  lyn_watch_source->reading_downs = lyn_watch_source_downs();
  ox_lyn_dm_info_t record = lyn_watch_source_record(OX_LYN_GET_REG_STATUS_E);
  const int32_t status = lyn_watch_source_get(&record);
  std::unique_lock lock(lyn_watch_source->mutex);
  const bool up = status == OX_LYN_SUCCESS && lyn_watch_source->reading_downs == lyn_watch_source->downs;
  lyn_watch_model_set_state(lyn_watch_source->model, up ? LYN_WATCH_UP : LYN_WATCH_DOWN);
  lock.unlock();
  lyn_watch_source_put(record, status);
  return up ? record.value.u32 : 0;
}

static bool lyn_watch_source_in_service(uint32_t registration) {
  return registration == OX_LYN_REG_LTE_E || registration == OX_LYN_REG_LTE_NR5G_E || registration == OX_LYN_REG_NR5G_E;
}

using lyn_watch_blocks_t = std::array<std::optional<lyn_watch_block_e>, OX_LYN_GET_COUNT>;

// Where each metric's answer stands, by its number; none: the table does not have it.
static lyn_watch_blocks_t lyn_watch_source_find_blocks() {
  lyn_watch_blocks_t blocks;
  for (const lyn_watch_key_t &key : lyn_watch_keys()) {
    const lyn_watch_item_t &item = lyn_watch_items[key.item];
    blocks[item.of[key.radio].metric] = item.block;
  }
  return blocks;
}

// Without service there is nothing else to ask for.
static void lyn_watch_source_read_metrics(bool in_service) {
  static const lyn_watch_blocks_t blocks = lyn_watch_source_find_blocks();
  for (uint32_t metric = OX_LYN_GET_REG_STATUS_E + 1; metric < OX_LYN_GET_COUNT; ++metric) {
    if (blocks[metric] && in_service) {
      lyn_watch_source_read_metric(metric, *blocks[metric]);
    } else if (blocks[metric]) {
      lyn_watch_source_put(lyn_watch_source_record(metric), OX_LYN_ERR_SERVICE_UNAVAILABLE);
    }
  }
}

static void lyn_watch_source_put_profiles(std::vector<lyn_watch_profile_t> profiles) {
  const std::lock_guard lock(lyn_watch_source->mutex);
  if (lyn_watch_source->downs != lyn_watch_source->reading_downs) {
    profiles.clear();
  }
  lyn_watch_model_put_profiles(lyn_watch_source->model, std::move(profiles));
}

// false: the modem does not answer.
static bool lyn_watch_source_read() {
  const uint32_t registration = lyn_watch_source_read_registration();
  if (registration != 0) {
    lyn_watch_source_subscribe();
  }
  const bool in_service = lyn_watch_source_in_service(registration);
  lyn_watch_source_read_metrics(in_service);
  lyn_watch_source_put_profiles(in_service ? lyn_watch_source_read_profiles() : std::vector<lyn_watch_profile_t>());
  return registration != 0;
}

/* What is answered through the callback */

static int32_t lyn_watch_source_get_list(const char *name, std::span<ox_lyn_dm_info_t> records) {
  return lyn_watch_source_ask(name, [records] {
    return ox_lyn_get_info_list(lyn_watch_source->hndl, records.data(), static_cast<uint32_t>(records.size()));
  });
}

static int32_t lyn_watch_source_ask_neighbours() {
  static constexpr uint32_t first = OX_LYN_GET_LTE_NBR_EARFCN_E;
  ox_lyn_dm_info_t records[OX_LYN_GET_LTE_NBR_RSRQ_E - first + 1];
  for (uint32_t i = 0; i < std::size(records); ++i) {
    records[i] = lyn_watch_source_record(first + i);
  }
  return lyn_watch_source_get_list(lyn_watch_metric_name(first), records);
}

// The module still waits for a scan that the modem has forgotten; at the end of any list it sends it again.
static int32_t lyn_watch_source_ask_neighbours_again() {
  ox_lyn_dm_info_t record = lyn_watch_source_record(OX_LYN_GET_REG_STATUS_E);
  return lyn_watch_source_get_list(lyn_watch_metric_name(OX_LYN_GET_LTE_NBR_EARFCN_E), {&record, 1});
}

// What was sent before the modem went is not answered any more.
static void lyn_watch_source_send_scan(lyn_watch_time_t now) {
  const uint64_t downs = lyn_watch_source_downs();
  if (lyn_watch_model_picture(lyn_watch_source->model, now).scanning && lyn_watch_source->scan_downs == downs) {
    return;
  }
  lyn_watch_source->scan_lost = now + LYN_WATCH_SCAN_PATIENCE;
  lyn_watch_source->scan_downs = downs;
  // Ahead of the call, behind which the answer may already have come.
  lyn_watch_model_set_scanning(lyn_watch_source->model, true);
  int32_t status = lyn_watch_source_ask_neighbours();
  if (status == OX_LYN_ERR_BUSY) {
    status = lyn_watch_source_ask_neighbours_again();
  }
  if (status != OX_LYN_SUCCESS) {
    lyn_watch_model_set_scanning(lyn_watch_source->model, false);
  }
}

static void lyn_watch_source_give_up_scan() {
  lyn_watch_source->scan_lost = lyn_watch_time_t::max();
  lyn_watch_model_set_scanning(lyn_watch_source->model, false);
}

// A shot that is still under way, and keeps the next one off, is stopped once it is lost. false: it was refused.
static bool lyn_watch_source_send_shot(lyn_watch_time_t now) {
  ox_lyn_loc_single_shot_req_t request = {.timeout_ms = static_cast<uint32_t>(LYN_WATCH_SHOT_TIMEOUT.count()),
                                          .horizontal_accuracy = LYN_WATCH_SHOT_ACCURACY};
  ox_lyn_dm_info_t record = lyn_watch_source_record(OX_LYN_GET_LOC_SINGLE_SHOT_E);
  record.value.ptr = &request;
  lyn_watch_source->shot_lost = now + LYN_WATCH_SHOT_PATIENCE;
  lyn_watch_model_set_locating(lyn_watch_source->model, true);
  const int32_t status = lyn_watch_source_get(&record);
  const bool sent = status == OX_LYN_SUCCESS || status == OX_LYN_ERR_BUSY;
  if (!sent) {
    lyn_watch_source->shot_lost = lyn_watch_time_t::max();
  }
  return sent;
}

static bool lyn_watch_source_is_locating(lyn_watch_time_t now) {
  return lyn_watch_model_picture(lyn_watch_source->model, now).locating;
}

// A receiver that gave up says nothing; its request is over once the answer to its stop has come.
static void lyn_watch_source_stop_shot(lyn_watch_time_t now) {
  lyn_watch_source->shot_lost = lyn_watch_time_t::max();
  if (!lyn_watch_source_is_locating(now)) {
    return;
  }
  lyn_watch_source->shot_lost = now + LYN_WATCH_SHOT_PATIENCE;
  ox_lyn_dm_ctrl_info_t control = {};
  control.control = OX_LYN_SET_LOC_SINGLE_SHOT_STOP_E;
  const int32_t status =
      lyn_watch_source_ask("location_stop", [&control] { return ox_lyn_set_info(lyn_watch_source->hndl, &control); });
  if (status != OX_LYN_SUCCESS) {
    lyn_watch_model_set_locating(lyn_watch_source->model, false);
  }
}

/* The thread */

// What is done again and again, or asked for. Zero: never by itself.
struct lyn_watch_errand_t {
  lyn_watch_ms_t every{};
  lyn_watch_time_t due{};
};

static lyn_watch_time_t lyn_watch_errand_due(const lyn_watch_errand_t &errand) {
  return errand.every == lyn_watch_ms_t::zero() ? lyn_watch_time_t::max() : errand.due;
}

// Whether it is due, which plans it anew; what was slept through is not made up for, and the beat is kept.
static bool lyn_watch_errand_take(lyn_watch_errand_t *errand, lyn_watch_time_t now) {
  if (now < lyn_watch_errand_due(*errand)) {
    return false;
  }
  errand->due += ((now - errand->due) / errand->every + 1) * errand->every;
  return true;
}

struct lyn_watch_errands_t {
  lyn_watch_errand_t reading;
  lyn_watch_errand_t scan;
  lyn_watch_errand_t location;
  bool up = false;                                   // the modem answered the last reading
  lyn_watch_time_t retry = lyn_watch_time_t::max();  // the next reading while it does not
  lyn_watch_time_t calm{};                           // when events may cause a reading again
};

static lyn_watch_time_t lyn_watch_source_due(const lyn_watch_errands_t &errands) {
  const lyn_watch_time_t due = std::min(
      {lyn_watch_errand_due(errands.reading), errands.retry, lyn_watch_source->scan_lost, lyn_watch_source->shot_lost});
  // What cannot be sent waits for the modem.
  return errands.up ? std::min({due, lyn_watch_errand_due(errands.scan), lyn_watch_errand_due(errands.location)}) : due;
}

// Sleep until something is due or asked for; false: the thread is to end.
static bool lyn_watch_source_sleep(const lyn_watch_errands_t &errands) {
  const lyn_watch_time_t due = lyn_watch_source_due(errands);
  std::unique_lock lock(lyn_watch_source->mutex);
  for (;;) {
    const lyn_watch_time_t until = lyn_watch_source->reread ? std::min(due, errands.calm) : due;
    if (lyn_watch_source->ending || lyn_watch_source->scan_asked || steady_clock::now() >= until) {
      return !lyn_watch_source->ending;
    }
    lyn_watch_source->woken.wait_until(lock, until);
  }
}

static void lyn_watch_source_run_reading(lyn_watch_errands_t *errands) {
  errands->up = lyn_watch_source_read();
  const lyn_watch_time_t now = steady_clock::now();
  errands->calm = now + LYN_WATCH_CALM;
  errands->retry = errands->up ? lyn_watch_time_t::max() : now + LYN_WATCH_RETRY;
}

// One that is to be asked for again counts as under way, but nothing was sent that could be lost.
static void lyn_watch_source_locate(lyn_watch_errand_t *errand, lyn_watch_time_t now) {
  if (lyn_watch_source_is_locating(now) && lyn_watch_source->shot_lost != lyn_watch_time_t::max()) {
    return;
  }
  if (!lyn_watch_source_send_shot(now)) {
    const bool again = now < lyn_watch_source->receiver_ready;
    errand->due = again ? now + LYN_WATCH_SHOT_RETRY : errand->due;
    lyn_watch_model_set_locating(lyn_watch_source->model, again);
  }
}

static void lyn_watch_source_send(lyn_watch_errands_t *errands, bool scan_asked, lyn_watch_time_t now) {
  if ((errands->up && lyn_watch_errand_take(&errands->scan, now)) || scan_asked) {
    lyn_watch_source_send_scan(now);
  }
  if (errands->up && lyn_watch_errand_take(&errands->location, now)) {
    lyn_watch_source_locate(&errands->location, now);
  }
  if (steady_clock::now() >= lyn_watch_source->scan_lost) {
    lyn_watch_source_give_up_scan();
  }
  if (steady_clock::now() >= lyn_watch_source->shot_lost) {
    lyn_watch_source_stop_shot(now);
  }
}

static void lyn_watch_source_run_errands(lyn_watch_errands_t *errands) {
  const lyn_watch_time_t now = steady_clock::now();
  std::unique_lock lock(lyn_watch_source->mutex);
  const bool reread = (now >= errands->calm && std::exchange(lyn_watch_source->reread, false)) || now >= errands->retry;
  const bool scan_asked = std::exchange(lyn_watch_source->scan_asked, false);
  lock.unlock();

  const bool planned = lyn_watch_errand_take(&errands->reading, now);
  if (planned || reread) {
    lyn_watch_source_run_reading(errands);
  }
  lyn_watch_source_send(errands, scan_asked, now);
  // Last, so that who sees the first reading's end knows what else is under way.
  if (planned || reread) {
    lyn_watch_model_end_reading(lyn_watch_source->model, planned);
  }
}

// false: the thread is to end.
static bool lyn_watch_source_bring_up() {
  while (lyn_watch_source_ask("init", [] {
           return ox_lyn_init(&lyn_watch_source->hndl, 0, lyn_watch_source_on_event);
         }) != OX_LYN_SUCCESS) {
    lyn_watch_model_set_state(lyn_watch_source->model, LYN_WATCH_DOWN);
    std::unique_lock lock(lyn_watch_source->mutex);
    if (lyn_watch_source->woken.wait_for(lock, LYN_WATCH_RETRY, [] { return lyn_watch_source->ending; })) {
      return false;
    }
  }
  return true;
}

static void *lyn_watch_source_main(void *) {
  if (lyn_watch_source_bring_up()) {
    const lyn_watch_time_t now = steady_clock::now();
    const lyn_watch_plan_t &plan = lyn_watch_source->plan;
    lyn_watch_model_plan(lyn_watch_source->model, plan.every, now);
    lyn_watch_source->receiver_ready = now + LYN_WATCH_RECEIVER_START;
    lyn_watch_errands_t errands = {.reading = {.every = plan.every, .due = now},
                                   .scan = {.every = plan.scan, .due = now},
                                   .location = {.every = plan.locate, .due = now}};
    while (lyn_watch_source_sleep(errands)) {
      lyn_watch_source_run_errands(&errands);
    }
    ox_lyn_deinit(lyn_watch_source->hndl);
  }
  lyn_watch_source_wake(&lyn_watch_source_t::ended);
  return nullptr;
}

bool lyn_watch_source_start(lyn_watch_model_t *model, const lyn_watch_plan_t &plan) {
  lyn_watch_source->model = model;
  lyn_watch_source->plan = plan;
  lyn_watch_model_plan(model, plan.every, {});
  pthread_t thread;
  if (pthread_create(&thread, nullptr, lyn_watch_source_main, nullptr) != 0) {
    return false;
  }
  pthread_detach(thread);
  return true;
}

void lyn_watch_source_scan() {
  lyn_watch_source_wake(&lyn_watch_source_t::scan_asked);
}

bool lyn_watch_source_stop(lyn_watch_ms_t patience) {
  lyn_watch_source_wake(&lyn_watch_source_t::ending);
  std::unique_lock lock(lyn_watch_source->mutex);
  return lyn_watch_source->woken.wait_for(lock, patience, [] { return lyn_watch_source->ended; });
}
