/*
 * Places of posted events: see lyn_interface_pool.h.
 *
 * Who posts takes places of the open batch under the gate, in turn. Who gives one back only counts; the one that gives
 * back the last place of a batch that was handed out whole owns it and puts it aside. So the open batch is the only one
 * that the pool points to, and one that is in use is kept by its places alone.
 */
#include "lyn_interface_pool.h"

#include <atomic>

/** The part of a batch that is the consumer's: the records, each with the way back to the batch, and their count. */
typedef struct {
  uint32_t given; /**< atomic */
  struct {
    yrp_async_data event; /**< first, so that one is the other */
    lyn_pool_batch_t *batch;
  } places[LYN_POOL_BATCH];
} lyn_pool_events_t;

struct lyn_pool_batch_t {
  uint32_t taken; /**< under the gate */
  lyn_pool_events_t *events;
  lyn_dll_node *nodes;
  lyn_cmd cmds[LYN_POOL_BATCH];
};

/* A large block makes malloc join all small ones that were freed, which are then to be split again. */
static_assert(sizeof(lyn_pool_batch_t) <= 1000 && sizeof(lyn_pool_events_t) <= 1000);

static lyn_pool_batch_t *lyn_pool_open; /* under the gate; null when its last place was taken */
static std::atomic<lyn_pool_batch_t *> lyn_pool_spare{nullptr};

static void lyn_pool_free(lyn_pool_batch_t *batch) {
  if (batch == nullptr)
    return;
  free(batch->events);
  free(batch->nodes);
  free(batch);
}

/** Commands without records and nodes; null, and logged, without memory. */
static lyn_pool_batch_t *lyn_pool_new() {
  auto *batch = static_cast<lyn_pool_batch_t *>(malloc(sizeof(lyn_pool_batch_t)));
  if (batch == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return nullptr;
  }
  batch->taken = 0;
  batch->events = nullptr;
  batch->nodes = nullptr;
  return batch;
}

static bool lyn_pool_add_events(lyn_pool_batch_t *batch) {
  batch->events = static_cast<lyn_pool_events_t *>(malloc(sizeof(lyn_pool_events_t)));
  if (batch->events == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return false;
  }
  batch->events->given = 0;
  return true;
}

/** Open the batch that was put aside, or a new one. */
static int32_t lyn_pool_open_batch() {
  if (lyn_pool_open == nullptr) {
    lyn_pool_open = lyn_pool_spare.exchange(nullptr, std::memory_order_acquire);
    if (lyn_pool_open == nullptr)
      lyn_pool_open = lyn_pool_new();
    if (lyn_pool_open == nullptr)
      return OX_LYN_ERR_NO_MEMORY;
  }
  if (lyn_pool_open->events == nullptr && !lyn_pool_add_events(lyn_pool_open)) {
    lyn_pool_trim();
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t lyn_pool_take(lyn_pool_place_t *place) {
  const int32_t status = lyn_pool_open_batch();
  if (status != OX_LYN_SUCCESS)
    return status;
  lyn_pool_batch_t *batch = lyn_pool_open;
  const uint32_t index = batch->taken++;
  auto &row = batch->events->places[index];
  row.batch = batch;
  *place = {.cmd = &batch->cmds[index], .event = &row.event, .batch = batch};
  if (batch->taken == LYN_POOL_BATCH)
    lyn_pool_open = nullptr;
  return OX_LYN_SUCCESS;
}

lyn_dll_node *lyn_pool_node(const lyn_pool_place_t *place) {
  lyn_pool_batch_t *batch = place->batch;
  if (batch->nodes == nullptr)
    batch->nodes = static_cast<lyn_dll_node *>(malloc(LYN_POOL_BATCH * sizeof(lyn_dll_node)));
  return batch->nodes != nullptr ? &batch->nodes[place->cmd - batch->cmds] : nullptr;
}

void lyn_pool_give(yrp_async_data *event) {
  using row_t = std::remove_reference_t<decltype(lyn_pool_events_t::places[0])>;
  lyn_pool_batch_t *batch = reinterpret_cast<row_t *>(event)->batch;
  const uint32_t given = std::atomic_ref(batch->events->given).fetch_add(1, std::memory_order_acq_rel) + 1;
  if (given < LYN_POOL_BATCH)
    return;
  batch->taken = 0;
  batch->events->given = 0;
  lyn_pool_free(lyn_pool_spare.exchange(batch, std::memory_order_acq_rel));
}

/** Whether no place of the open batch is in use. Call with the gate held. */
static bool lyn_pool_is_idle() {
  lyn_pool_events_t *events = lyn_pool_open->events;
  return events == nullptr || std::atomic_ref(events->given).load(std::memory_order_acquire) == lyn_pool_open->taken;
}

void lyn_pool_trim() {
  if (lyn_pool_open != nullptr && lyn_pool_is_idle()) {
    lyn_pool_free(lyn_pool_open);
    lyn_pool_open = nullptr;
  }
  lyn_pool_free(lyn_pool_spare.exchange(nullptr, std::memory_order_acq_rel));
}
