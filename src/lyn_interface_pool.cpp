/*
 * Places of posted events: see lyn_interface_pool.h.
 *
 * Who posts takes places of the open batch under the gate, in turn. Who gives one back only counts; the one that gives
 * back the last place of a batch that was handed out whole owns it and puts it aside. So the open batch is the only one
 * that the pool points to, and one that is in use is kept by its places alone.
 */
#include "lyn_interface_pool.h"

#include <atomic>

typedef struct lyn_pool_batch_t lyn_pool_batch_t;

/** The part of a batch that is the consumer's. */
typedef struct {
  uint32_t given; /**< atomic: places given back */
  lyn_pool_batch_t *batch;
  yrp_async_data places[LYN_POOL_BATCH];
} lyn_pool_events_t;

struct lyn_pool_batch_t {
  lyn_cmd_batch_t batch;
  lyn_pool_events_t *events;
};

static lyn_pool_batch_t *lyn_pool_open;  // under the gate; null when its last place was taken
static std::atomic<lyn_pool_batch_t *> lyn_pool_spare{nullptr};

static void lyn_pool_free(lyn_pool_batch_t *pool) {
  if (pool == nullptr)
    return;
  free(pool->events);
  free(pool->batch.node);
  free(pool);
}

/** A block of a batch; null, and logged, without memory. */
template <class T>
static T *lyn_pool_block() {
  auto *block = static_cast<T *>(malloc(sizeof(T)));
  if (block == nullptr)
    LYN_LOG_ERROR("Memory allocation failure");
  return block;
}

static int32_t lyn_pool_new(lyn_pool_batch_t **made) {
  lyn_block_t<lyn_pool_batch_t> pool(lyn_pool_block<lyn_pool_batch_t>());
  if (!pool)
    return OX_LYN_ERR_NO_MEMORY;
  pool->events = lyn_pool_block<lyn_pool_events_t>();
  if (pool->events == nullptr)
    return OX_LYN_ERR_FAILURE;
  pool->events->given = 0;
  pool->events->batch = pool.get();
  pool->batch = {.cmd = {.execute_f = lyn_process_async_event, .free_f = lyn_free_async_event, .data = nullptr},
                 .node = nullptr,
                 .items = pool->events->places,
                 .item_size = sizeof(yrp_async_data),
                 .ahead = offsetof(yrp_async_data, msg_data),
                 .filled = 0,
                 .taken = 0};
  *made = pool.release();
  return OX_LYN_SUCCESS;
}

/** Count places as given back; the last ones of a batch take the batch with them. */
static void lyn_pool_count(lyn_pool_events_t *events, uint32_t places) {
  if (std::atomic_ref(events->given).fetch_add(places, std::memory_order_acq_rel) + places < LYN_POOL_BATCH)
    return;
  lyn_pool_batch_t *pool = events->batch;
  pool->batch.filled = 0;
  pool->batch.taken = 0;
  events->given = 0;
  lyn_pool_free(lyn_pool_spare.exchange(pool, std::memory_order_acq_rel));
}

void lyn_pool_keep_order(const lyn_cmdq_t *cmdq) {
  lyn_pool_batch_t *pool = lyn_pool_open;
  if (pool == nullptr || lyn_cmdq_may_put(cmdq, &pool->batch))
    return;
  lyn_pool_open = nullptr;
  lyn_pool_count(pool->events, LYN_POOL_BATCH - pool->batch.filled);
}

int32_t lyn_pool_next(lyn_cmd_batch_t **batch, yrp_async_data **event) {
  if (lyn_pool_open == nullptr)
    lyn_pool_open = lyn_pool_spare.exchange(nullptr, std::memory_order_acquire);
  if (lyn_pool_open == nullptr) {
    const int32_t status = lyn_pool_new(&lyn_pool_open);
    if (status != OX_LYN_SUCCESS)
      return status;
  }
  lyn_pool_batch_t *pool = lyn_pool_open;
  if (pool->batch.node == nullptr)
    pool->batch.node = static_cast<lyn_dll_node *>(malloc(sizeof(lyn_dll_node)));
  const uint32_t index = pool->batch.filled;
  *batch = &pool->batch;
  *event = &pool->events->places[index];
  (*event)->place = index + 1;
  return OX_LYN_SUCCESS;
}

void lyn_pool_take() {
  if (lyn_pool_open->batch.filled == LYN_POOL_BATCH)
    lyn_pool_open = nullptr;
}

void lyn_pool_give(yrp_async_data *event) {
  char *places = reinterpret_cast<char *>(event - (event->place - 1));
  auto *events = reinterpret_cast<lyn_pool_events_t *>(places - offsetof(lyn_pool_events_t, places));
  lyn_pool_count(events, 1);
}

/** Whether no place of the open batch is in use. Call with the gate held. */
static bool lyn_pool_is_idle() {
  const uint32_t given = std::atomic_ref(lyn_pool_open->events->given).load(std::memory_order_acquire);
  return given == lyn_pool_open->batch.filled;
}

void lyn_pool_trim() {
  if (lyn_pool_open != nullptr && lyn_pool_is_idle()) {
    lyn_pool_free(lyn_pool_open);
    lyn_pool_open = nullptr;
  }
  lyn_pool_free(lyn_pool_spare.exchange(nullptr, std::memory_order_acq_rel));
}
