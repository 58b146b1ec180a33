/* SPDX-License-Identifier: Apache-2.0 */
// scan_and_lock [BAND]: scans for NR 5G neighbours, locks the modem to the strongest and lifts the lock again.
// BAND is the NR band of the neighbour, 78 by default.
#include <ox_lyn.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iterator>
#include <memory>
#include <utility>

using namespace std::chrono_literals;

// What the module hands out is released with free().
struct free_t {
  void operator()(void *block) const { free(block); }
};
using event_ptr = std::unique_ptr<ox_lyn_dm_info_t, free_t>;
using scan_ptr = std::unique_ptr<ox_lyn_nr5g_nbr_info_t, free_t>;

// Where the answer goes. Set before the scan is asked for, taken by the callback.
static std::promise<scan_ptr> *scan_answer = nullptr;

static const char *status_name(int32_t status) {
  switch (status) {
    case OX_LYN_SUCCESS:
      return "success";
    case OX_LYN_ERR_FAILURE:
      return "the modem refused, or does not do this in its present service";
    case OX_LYN_ERR_INVALID_PARAM:
      return "a value is out of range";
    case OX_LYN_ERR_NO_MEMORY:
      return "no memory";
    case OX_LYN_ERR_BUSY:
      return "a scan runs already";
    case OX_LYN_ERR_ALREADY_INITIALIZED:
      return "the module is up already";
    case OX_LYN_ERR_SERVICE_UNAVAILABLE:
      return "neither LTE nor NR 5G is in service";
    case OX_LYN_ERR_INFO_UNAVAILABLE:
      return "the modem does not know";
    default:
      return "unexpected";
  }
}

static bool succeeded(const char *what, int32_t status) {
  if (status != OX_LYN_SUCCESS) {
    fprintf(stderr, "%s: %s (%d)\n", what, status_name(status), static_cast<int>(status));
  }
  return status == OX_LYN_SUCCESS;
}

// What the block of an event that we have no use for leads to, and the block.
static void free_blocks(const ox_lyn_dm_info_t &event) {
  if (event.record_type == OX_LYN_RECORD_ASYNC_E && event.metric == OX_LYN_ASYNC_LOC_BATCH_E && event.value.ptr) {
    free(static_cast<ox_lyn_loc_batch_t *>(event.value.ptr)->locations);
  }
  const auto leads_to_block = {OX_LYN_IND_MTPE_STATUS_E, OX_LYN_IND_QOS_FLOW_E, OX_LYN_IND_PPS_CHANGE_E,
                               OX_LYN_IND_INSTALL_MODE_FREQ_INFO_E};
  if (event.record_type == OX_LYN_RECORD_ASYNC_E || std::ranges::count(leads_to_block, event.metric) != 0) {
    free(event.value.ptr);
  }
}

// Runs on the module's own thread, under its lock: it must not call any operation.
static void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *record, uint32_t) {
  const event_ptr event(record);
  if (event->record_type != OX_LYN_RECORD_ASYNC_E || event->metric != OX_LYN_ASYNC_NR5G_NBR_INFO_E || !scan_answer) {
    free_blocks(*event);
    return;
  }
  std::exchange(scan_answer, nullptr)->set_value(scan_ptr(static_cast<ox_lyn_nr5g_nbr_info_t *>(event->value.ptr)));
}

// One call for the three items, because they share one scan. Null: nothing was found out.
static scan_ptr scan(ox_lyn_hndl_t hndl, std::future<scan_ptr> answer) {
  ox_lyn_dm_info_t items[3] = {};
  items[0].metric = OX_LYN_GET_NR5G_NBR_EARFCN_E;
  items[1].metric = OX_LYN_GET_NR5G_NBR_PCI_E;
  items[2].metric = OX_LYN_GET_NR5G_NBR_RSRP_E;
  if (!succeeded("scan", ox_lyn_get_info_list(hndl, items, std::size(items)))) {
    return nullptr;
  }
  if (answer.wait_for(60s) != std::future_status::ready) {
    fprintf(stderr, "scan: no answer\n");
    return nullptr;
  }
  scan_ptr found = answer.get();
  if (!found) {
    fprintf(stderr, "scan: the modem could not scan\n");
  }
  return found;
}

// The neighbours are packed, and the first that is not present ends them. Null: there is none.
static const ox_lyn_nr5g_nbr_t *strongest(const ox_lyn_nr5g_nbr_info_t &found) {
  const ox_lyn_nr5g_nbr_t *best = nullptr;
  for (const ox_lyn_nr5g_nbr_t &cell : found.cells) {
    if (cell.present == 0) {
      break;
    }
    printf("neighbour: NR-ARFCN %u, PCI %u, RSRP %d dBm\n", cell.earfcn, cell.pci, cell.rsrp);
    if (best == nullptr || cell.rsrp > best->rsrp) {
      best = &cell;
    }
  }
  return best;
}

static bool set_lock(ox_lyn_hndl_t hndl, const char *what, ox_lyn_nr5g_cell_lock_t lock) {
  ox_lyn_dm_ctrl_info_t control = {};
  control.control = OX_LYN_SET_NR5G_CELL_LOCK_LIST_E;
  control.value.ptr = &lock;
  return succeeded(what, ox_lyn_set_info(hndl, &control));
}

// The neighbour is taken to have the serving cell's sub-carrier spacing, which a scan does not tell.
static bool lock_to(ox_lyn_hndl_t hndl, const ox_lyn_nr5g_nbr_t &cell, unsigned band) {
  ox_lyn_dm_info_t spacing = {};
  spacing.record_type = OX_LYN_RECORD_GET_E;
  spacing.metric = OX_LYN_GET_NR5G_SCS_E;
  if (!succeeded("sub-carrier spacing", ox_lyn_get_info(hndl, &spacing))) {
    return false;
  }
  ox_lyn_nr5g_cell_lock_t lock = {};
  lock.lock_type = OX_LYN_LOCK_CELL_E;
  lock.pci = cell.pci;
  lock.arfcn = cell.earfcn;
  lock.scs = spacing.value.u32;
  lock.band_mask[(band - 1) / 64] = uint64_t{1} << (band - 1) % 64;
  return set_lock(hndl, "lock", lock);
}

static bool unlock(ox_lyn_hndl_t hndl) {
  ox_lyn_nr5g_cell_lock_t lock = {};
  lock.lock_type = OX_LYN_LOCK_UNLOCK_E;
  return set_lock(hndl, "unlock", lock);
}

static bool scan_lock_and_unlock(ox_lyn_hndl_t hndl, std::future<scan_ptr> answer, unsigned band) {
  const scan_ptr found = scan(hndl, std::move(answer));
  if (!found) {
    return false;
  }
  const ox_lyn_nr5g_nbr_t *best = strongest(*found);
  if (best == nullptr) {
    printf("no neighbour\n");
    return true;
  }
  if (!lock_to(hndl, *best, band)) {
    return false;
  }
  printf("locked to PCI %u\n", best->pci);
  if (!unlock(hndl)) {
    return false;
  }
  printf("unlocked\n");
  return true;
}

int main(int argc, char **argv) {
  const int band = argc > 1 ? atoi(argv[1]) : 78;
  if (band < 1 || band > 512) {
    fprintf(stderr, "usage: scan_and_lock [BAND]; a band is 1 to 512\n");
    return 2;
  }
  std::promise<scan_ptr> promise;  // outlives the module, whose callback may come late
  scan_answer = &promise;
  ox_lyn_hndl_t hndl = 0;
  if (!succeeded("start", ox_lyn_init(&hndl, 0, on_event))) {
    return 1;
  }
  const bool done = scan_lock_and_unlock(hndl, promise.get_future(), static_cast<unsigned>(band));
  const bool down = succeeded("stop", ox_lyn_deinit(hndl));
  return done && down ? 0 : 1;
}
