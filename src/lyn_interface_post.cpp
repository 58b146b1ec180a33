/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Posting: from an event's block to the command queue, whose command frees it again.
 *
 * Any thread posts, and never waits for the module lock: whether the module is up is what the queue's gate tells.
 */
#include <stdlib.h>

#include "lyn_event.h"
#include "lyn_interface.h"

void lyn_free_event_data(uint32_t msg_id, void *msg_data) {
  if (msg_id == LYN_EVENT_LOC_BATCH && msg_data != nullptr) {
    free(static_cast<ox_lyn_loc_batch_t *>(msg_data)->locations);
  }
  free(msg_data);
}

/** The command of every event that is posted; its record stands in the queue beside it. */
static lyn_cmd lyn_event_cmd = {.execute_f = lyn_process_async_event, .free_f = lyn_free_async_event, .data = nullptr};

void lyn_free_async_event(lyn_cmd *cmd, void *data) {
  auto *event = static_cast<yrp_async_data *>(data);
  if (event != nullptr) {
    lyn_free_event_data(event->msg_id, event->msg_data);
  }
  if (cmd == &lyn_event_cmd) {
    return;
  }
  free(event);
  free(cmd);
}

/** What a post that was not queued comes to; what failed in the queue itself is logged there. */
static int32_t lyn_refuse_event(lyn_cmdq_post_e result) {
  switch (result) {
    case LYN_CMDQ_SHUT:
      lyn_not_initialised();
      return OX_LYN_ERR_FAILURE;
    case LYN_CMDQ_NO_CHUNK:
    case LYN_CMDQ_NO_ITEMS:
      LYN_LOG_ERROR("Memory allocation failure");
      return result == LYN_CMDQ_NO_CHUNK ? OX_LYN_ERR_NO_MEMORY : OX_LYN_ERR_FAILURE;
    case LYN_CMDQ_QUEUED:
    case LYN_CMDQ_QUEUED_FAILED:
    case LYN_CMDQ_NO_NODE:
    case LYN_CMDQ_FAILED:
      break;
  }
  return OX_LYN_ERR_FAILURE;
}

int32_t lyn_post_async_event(uint32_t yrp_msg_id, void *yrp_msg_data) {
  if (yrp_msg_data == nullptr) {
    LYN_LOG_ERROR("Invalid params - yrp_msg_id[%u], yrp_msg_data[%p]", yrp_msg_id, yrp_msg_data);
    return OX_LYN_ERR_INVALID_PARAM;
  }
  const yrp_async_data event = {.msg_id = yrp_msg_id, .msg_data = yrp_msg_data};
  const lyn_cmdq_post_e result = lyn_cmdq_post(&lyn_gate, &lyn_event_cmd, &event);
  if (result == LYN_CMDQ_QUEUED) {
    return OX_LYN_SUCCESS;
  }
  if (result != LYN_CMDQ_QUEUED_FAILED) {
    lyn_free_event_data(yrp_msg_id, yrp_msg_data);
  }
  return lyn_refuse_event(result);
}
