/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Doubly linked list (of the module) of untyped data, with a sentinel head and a tail that the caller keeps.
 *
 * The list owns neither the data nor, once it has handed them back, the nodes: a node that a delete operation returns
 * is freed by the caller. It takes no lock; the caller serialises access. In an empty list the tail is the sentinel.
 *
 *   lyn_dll_node *head = lyn_dll_init(nullptr), *tail = head;
 *   tail = lyn_dll_insert(tail, nullptr, data);
 *   free(lyn_dll_delete_head(head, &tail, &data));
 */
#ifndef LYN_LIST_H
#define LYN_LIST_H

/** The sentinel's prev and data are null; every element's prev is set; the last node's next is null. */
typedef struct lyn_dll_node {
  struct lyn_dll_node *next;
  struct lyn_dll_node *prev;
  void *data;
} lyn_dll_node;

static_assert(sizeof(lyn_dll_node) == 3 * sizeof(void *));

/** Compares a key with an element's data; 0 is a match. */
typedef int (*lyn_dll_compare_fn)(void *key, void *data);

/** Zero `node`, or a node allocated here when it is null. Returns it; null when the allocation fails. */
lyn_dll_node *lyn_dll_init(lyn_dll_node *node);

/**
 * Append `data` behind the last node reachable from `list`, in `node` or in one allocated here when it is null. Returns
 * the new node, which the caller makes its tail; null when `list` is null or the allocation fails.
 */
lyn_dll_node *lyn_dll_insert(lyn_dll_node *list, lyn_dll_node *node, void *data);

/**
 * Take off the first element of the list that `list` (any of its nodes) belongs to and write its data through `data`.
 * Sets `*tail` back to the sentinel when the list becomes empty, unless `tail` is null. Returns the node, zeroed, for
 * the caller to free; null when the list is empty, `data` then untouched.
 */
lyn_dll_node *lyn_dll_delete_head(lyn_dll_node *list, lyn_dll_node **tail, void **data);

/** Take off the first element that matches `key`. Returns the node with its data, for the caller to free, or null. */
lyn_dll_node *lyn_dll_delete(lyn_dll_node **head, lyn_dll_node **tail, void *key, lyn_dll_compare_fn compare);

/** Unlink a known element; the caller frees it. The sentinel and unlinked nodes are left as they are. */
void lyn_dll_delete_node(lyn_dll_node *head, lyn_dll_node **tail, lyn_dll_node *node);

/** The first element that matches `key`, or null. */
lyn_dll_node *lyn_dll_search(lyn_dll_node *head, void *key, lyn_dll_compare_fn compare);

/** The node behind `node`, its data written through `data`; null at the end, `data` then untouched. */
lyn_dll_node *lyn_dll_next(lyn_dll_node *node, void **data);

/** The data of `node`. */
void *lyn_dll_data(lyn_dll_node *node);

#endif
