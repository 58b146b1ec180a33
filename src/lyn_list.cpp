/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Doubly linked list with a sentinel head and a tail that the caller keeps: see lyn_list.h for the rules.
 *
 * Operations that take off a node go through lyn_dll_unlink, the only place that joins a node's neighbours. Null
 * arguments are refused everywhere; only the three read-only operations log them.
 */
#include "lyn_list.h"

#include <stdint.h>
#include <stdlib.h>

#include "lyn_log.h"

/** Low 32 bits of an address, as the "0x%x" of the log texts shows it. */
static unsigned int lyn_dll_low_word(const void *address) {
  return static_cast<unsigned int>(reinterpret_cast<uintptr_t>(address));
}

/** Whether `tail` is the caller's tail pointer and leads to a last node. */
static bool lyn_dll_tail_is_sound(lyn_dll_node *const *tail) {
  return tail != nullptr && *tail != nullptr && (*tail)->next == nullptr;
}

/** Join the neighbours of an element and detach it; its data stay. */
static void lyn_dll_unlink(lyn_dll_node *node) {
  node->prev->next = node->next;
  if (node->next != nullptr) {
    node->next->prev = node->prev;
  }
  node->next = nullptr;
  node->prev = nullptr;
}

static lyn_dll_node *lyn_dll_find(lyn_dll_node *head, void *key, lyn_dll_compare_fn compare) {
  lyn_dll_node *node = head->next;
  while (node != nullptr && compare(key, node->data) != 0) {
    node = node->next;
  }
  return node;
}

lyn_dll_node *lyn_dll_init(lyn_dll_node *node) {
  if (node == nullptr) {
    node = static_cast<lyn_dll_node *>(malloc(sizeof *node));
  }
  if (node != nullptr) {
    *node = {};
  }
  return node;
}

lyn_dll_node *lyn_dll_insert(lyn_dll_node *list, lyn_dll_node *node, void *data) {
  if (list == nullptr) {
    return nullptr;
  }
  if (node == nullptr) {
    node = lyn_dll_init(nullptr);
  }
  if (node == nullptr) {
    return nullptr;
  }
  lyn_dll_node *last = list;
  while (last->next != nullptr) {
    last = last->next;
  }
  *node = {.next = nullptr, .prev = last, .data = data};
  last->next = node;
  return node;
}

lyn_dll_node *lyn_dll_delete_head(lyn_dll_node *list, lyn_dll_node **tail, void **data) {
  if (list == nullptr || data == nullptr) {
    return nullptr;
  }
  lyn_dll_node *sentinel = list;
  while (sentinel->prev != nullptr) {
    sentinel = sentinel->prev;
  }
  lyn_dll_node *first = sentinel->next;
  if (first == nullptr) {
    return nullptr;
  }
  lyn_dll_unlink(first);
  if (sentinel->next == nullptr && tail != nullptr) {
    *tail = sentinel;
  }
  *data = first->data;
  first->data = nullptr;
  return first;
}

lyn_dll_node *lyn_dll_delete(lyn_dll_node **head, lyn_dll_node **tail, void *key, lyn_dll_compare_fn compare) {
  if (head == nullptr || *head == nullptr || !lyn_dll_tail_is_sound(tail) || compare == nullptr) {
    return nullptr;
  }
  lyn_dll_node *node = lyn_dll_find(*head, key, compare);
  if (node == nullptr) {
    return nullptr;
  }
  if (node == *tail) {
    // The tail was sound on entry; only a compare function that changes the list brings a call here.
    if (node->next != nullptr) {
      LYN_LOG_ERROR("lyn_dll_delete: already tail! node->next:[0x%x]", lyn_dll_low_word(node->next));
      return nullptr;
    }
    *tail = node->prev;
  }
  lyn_dll_unlink(node);
  return node;
}

void lyn_dll_delete_node(lyn_dll_node *head, lyn_dll_node **tail, lyn_dll_node *node) {
  if (node == nullptr || head == nullptr || !lyn_dll_tail_is_sound(tail)) {
    return;
  }
  // Without a predecessor it is the sentinel or in no list.
  if (node == head || node->prev == nullptr) {
    return;
  }
  if (node == *tail) {
    // Deliberately kept although the tail was found sound above: a second guard before the tail moves.
    if (node->next != nullptr) {
      LYN_LOG_ERROR("lyn_dll_delete_node: already tail! node->next:[0x%x]", lyn_dll_low_word(node->next));
      return;
    }
    *tail = node->prev;
  }
  lyn_dll_unlink(node);
}

lyn_dll_node *lyn_dll_search(lyn_dll_node *head, void *key, lyn_dll_compare_fn compare) {
  if (head == nullptr) {
    LYN_LOG_ERROR("lyn_dll_search: Bad Param head NULL");
    return nullptr;
  }
  return compare != nullptr ? lyn_dll_find(head, key, compare) : nullptr;
}

lyn_dll_node *lyn_dll_next(lyn_dll_node *node, void **data) {
  if (node == nullptr) {
    LYN_LOG_ERROR("lyn_dll_next: Bad Param node NULL");
    return nullptr;
  }
  if (node->next != nullptr && data != nullptr) {
    *data = node->next->data;
  }
  return node->next;
}

void *lyn_dll_data(lyn_dll_node *node) {
  if (node == nullptr) {
    LYN_LOG_ERROR("lyn_dll_data: Bad Param node NULL");
    return nullptr;
  }
  return node->data;
}
