/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The linked list: every edge of its operations, and random walks beside a std::vector that does the same.
 */
#include "lyn_list.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>

#include "diag_log.h"

namespace {

int elements[8] = {0, 1, 2, 3, 4, 5, 6, 7};

int compare_numbers(void *key, void *data) {
  return *static_cast<int *>(key) - *static_cast<int *>(data);
}

int never_matches(void *, void *) {
  ADD_FAILURE() << "nothing was to be compared";
  return 1;
}

/** A list with its caller's two pointers; frees its nodes. */
struct test_list {
  lyn_dll_node *head = lyn_dll_init(nullptr);
  lyn_dll_node *tail = head;

  explicit test_list(int count = 0) {
    for (int i = 0; i < count; i++) {
      append(&elements[i]);
    }
  }
  ~test_list() {
    while (head != nullptr) {
      lyn_dll_node *next = head->next;
      free(head);
      head = next;
    }
  }
  test_list(const test_list &) = delete;
  test_list &operator=(const test_list &) = delete;

  lyn_dll_node *append(void *data) { return tail = lyn_dll_insert(tail, nullptr, data); }
  lyn_dll_node *at(size_t index) const {
    lyn_dll_node *node = head;
    while (index-- > 0) {
      node = node->next;
    }
    return node;
  }
};

/** The list holds `data` in this order, its links agree in both directions, and the tail is its last node. */
void expect_list(const test_list &list, const std::vector<void *> &data) {
  EXPECT_EQ(list.head->prev, nullptr);
  EXPECT_EQ(list.head->data, nullptr);
  lyn_dll_node *node = list.head;
  for (void *expected : data) {
    ASSERT_NE(node->next, nullptr);
    EXPECT_EQ(node->next->prev, node);
    node = node->next;
    EXPECT_EQ(node->data, expected);
  }
  EXPECT_EQ(node->next, nullptr);
  EXPECT_EQ(list.tail, node);
}

void expect_detached(const lyn_dll_node *node) {
  EXPECT_EQ(node->next, nullptr);
  EXPECT_EQ(node->prev, nullptr);
}

class lyn_list : public testing::Test {
 protected:
  void SetUp() override { diag_log_take(); }
  void TearDown() override { EXPECT_EQ(diag_log_texts(), std::vector<std::string>{}); }
};

/* init */

TEST_F(lyn_list, init_zeroes_a_given_node_and_returns_it) {
  lyn_dll_node node = {&node, &node, &node};
  EXPECT_EQ(lyn_dll_init(&node), &node);
  expect_detached(&node);
  EXPECT_EQ(node.data, nullptr);
}

TEST_F(lyn_list, init_without_node_makes_a_zeroed_one) {
  lyn_dll_node *node = lyn_dll_init(nullptr);
  ASSERT_NE(node, nullptr);
  expect_detached(node);
  EXPECT_EQ(node->data, nullptr);
  free(node);
}

/* insert */

TEST_F(lyn_list, insert_appends_behind_the_tail_and_leaves_the_tail_to_the_caller) {
  test_list list;
  lyn_dll_node *tail = list.tail;
  lyn_dll_node *node = lyn_dll_insert(list.tail, nullptr, &elements[0]);
  EXPECT_EQ(list.tail, tail);
  list.tail = node;
  expect_list(list, {&elements[0]});
}

TEST_F(lyn_list, insert_given_the_sentinel_or_a_middle_node_appends_behind_the_last) {
  test_list list(3);
  list.tail = lyn_dll_insert(list.at(2), nullptr, &elements[3]);
  list.tail = lyn_dll_insert(list.head, nullptr, &elements[4]);
  expect_list(list, {&elements[0], &elements[1], &elements[2], &elements[3], &elements[4]});
}

TEST_F(lyn_list, insert_uses_a_given_node_and_overwrites_its_links) {
  test_list list(1);
  auto *node = static_cast<lyn_dll_node *>(malloc(sizeof(lyn_dll_node)));
  *node = {node, node, nullptr};
  EXPECT_EQ(lyn_dll_insert(list.tail, node, &elements[1]), node);
  list.tail = node;
  expect_list(list, {&elements[0], &elements[1]});
}

TEST_F(lyn_list, insert_into_no_list_is_refused) {
  lyn_dll_node node = {};
  EXPECT_EQ(lyn_dll_insert(nullptr, nullptr, &elements[0]), nullptr);
  EXPECT_EQ(lyn_dll_insert(nullptr, &node, &elements[0]), nullptr);
  EXPECT_EQ(node.data, nullptr);
}

/* delete head */

TEST_F(lyn_list, delete_head_of_an_empty_list_writes_nothing) {
  test_list list;
  void *data = &elements[7];
  EXPECT_EQ(lyn_dll_delete_head(list.head, &list.tail, &data), nullptr);
  EXPECT_EQ(data, &elements[7]);
  expect_list(list, {});
}

TEST_F(lyn_list, delete_head_takes_the_oldest_element_and_returns_its_node_zeroed) {
  test_list list(3);
  void *data = nullptr;
  lyn_dll_node *first = list.at(1);
  lyn_dll_node *node = lyn_dll_delete_head(list.head, &list.tail, &data);
  EXPECT_EQ(node, first);
  EXPECT_EQ(data, &elements[0]);
  expect_detached(node);
  EXPECT_EQ(node->data, nullptr);
  expect_list(list, {&elements[1], &elements[2]});
  free(node);
}

TEST_F(lyn_list, delete_head_of_the_last_element_sets_the_tail_back_to_the_sentinel) {
  test_list list(1);
  void *data = nullptr;
  free(lyn_dll_delete_head(list.head, &list.tail, &data));
  expect_list(list, {});
}

TEST_F(lyn_list, delete_head_without_a_tail_pointer_leaves_the_tail_stale) {
  test_list list(1);
  void *data = nullptr;
  lyn_dll_node *stale = list.tail;
  lyn_dll_node *node = lyn_dll_delete_head(list.head, nullptr, &data);
  EXPECT_EQ(node, stale);
  EXPECT_EQ(list.tail, stale);
  list.tail = list.head;
  expect_list(list, {});
  free(node);
}

TEST_F(lyn_list, delete_head_finds_the_first_element_from_any_node) {
  test_list list(4);
  void *data = nullptr;
  free(lyn_dll_delete_head(list.tail, &list.tail, &data));
  EXPECT_EQ(data, &elements[0]);
  free(lyn_dll_delete_head(list.at(2), &list.tail, &data));
  EXPECT_EQ(data, &elements[1]);
  free(lyn_dll_delete_head(list.at(1), &list.tail, &data));
  EXPECT_EQ(data, &elements[2]);
  expect_list(list, {&elements[3]});
}

TEST_F(lyn_list, delete_head_refuses_null_arguments) {
  test_list list(1);
  void *data = nullptr;
  EXPECT_EQ(lyn_dll_delete_head(nullptr, &list.tail, &data), nullptr);
  EXPECT_EQ(lyn_dll_delete_head(list.head, &list.tail, nullptr), nullptr);
  expect_list(list, {&elements[0]});
}

/* delete by key */

TEST_F(lyn_list, delete_takes_the_first_match_and_keeps_its_data) {
  test_list list(3);
  list.append(&elements[1]);
  lyn_dll_node *first_match = list.at(2);
  lyn_dll_node *node = lyn_dll_delete(&list.head, &list.tail, &elements[1], compare_numbers);
  EXPECT_EQ(node, first_match);
  expect_detached(node);
  EXPECT_EQ(node->data, &elements[1]);
  expect_list(list, {&elements[0], &elements[2], &elements[1]});
  free(node);
}

TEST_F(lyn_list, delete_of_the_tail_moves_the_tail_to_its_predecessor) {
  test_list list(2);
  free(lyn_dll_delete(&list.head, &list.tail, &elements[1], compare_numbers));
  expect_list(list, {&elements[0]});
  free(lyn_dll_delete(&list.head, &list.tail, &elements[0], compare_numbers));
  expect_list(list, {});
}

TEST_F(lyn_list, delete_without_a_match_changes_nothing) {
  test_list list(2);
  EXPECT_EQ(lyn_dll_delete(&list.head, &list.tail, &elements[5], compare_numbers), nullptr);
  expect_list(list, {&elements[0], &elements[1]});
}

TEST_F(lyn_list, delete_in_an_empty_list_compares_nothing) {
  test_list list;
  EXPECT_EQ(lyn_dll_delete(&list.head, &list.tail, &elements[0], never_matches), nullptr);
  expect_list(list, {});
}

TEST_F(lyn_list, delete_with_a_tail_that_has_a_successor_compares_nothing) {
  test_list list(3);
  lyn_dll_node *not_last = list.at(2);
  EXPECT_EQ(lyn_dll_delete(&list.head, &not_last, &elements[0], never_matches), nullptr);
  expect_list(list, {&elements[0], &elements[1], &elements[2]});
}

TEST_F(lyn_list, delete_refuses_null_arguments) {
  test_list list(1);
  lyn_dll_node *none = nullptr;
  EXPECT_EQ(lyn_dll_delete(nullptr, &list.tail, &elements[0], never_matches), nullptr);
  EXPECT_EQ(lyn_dll_delete(&none, &list.tail, &elements[0], never_matches), nullptr);
  EXPECT_EQ(lyn_dll_delete(&list.head, nullptr, &elements[0], never_matches), nullptr);
  EXPECT_EQ(lyn_dll_delete(&list.head, &none, &elements[0], never_matches), nullptr);
  EXPECT_EQ(lyn_dll_delete(&list.head, &list.tail, &elements[0], nullptr), nullptr);
  expect_list(list, {&elements[0]});
}

test_list *growing_list = nullptr;

/** A compare function that appends to the list it is called for. */
int append_then_match(void *, void *) {
  lyn_dll_insert(growing_list->tail, nullptr, &elements[1]);
  return 0;
}

TEST_F(lyn_list, delete_leaves_a_tail_that_grew_a_successor_while_comparing) {
  test_list list(1);
  growing_list = &list;
  EXPECT_EQ(lyn_dll_delete(&list.head, &list.tail, &elements[0], append_then_match), nullptr);
  char expected[80];
  snprintf(expected, sizeof expected, "lyn_dll_delete: already tail! node->next:[0x%x]",
           static_cast<unsigned>(reinterpret_cast<uintptr_t>(list.tail->next)));
  EXPECT_EQ(diag_log_texts("ERROR"), std::vector<std::string>{expected});
  list.tail = list.tail->next;
  expect_list(list, {&elements[0], &elements[1]});
}

TEST_F(lyn_list, delete_with_a_stale_tail_still_unlinks_the_true_last_node) {
  test_list list(2);
  lyn_dll_node elsewhere = {};
  lyn_dll_node *stale = &elsewhere;
  free(lyn_dll_delete(&list.head, &stale, &elements[1], compare_numbers));
  list.tail = list.at(1);
  expect_list(list, {&elements[0]});
}

/* delete node */

TEST_F(lyn_list, delete_node_unlinks_first_middle_and_last) {
  test_list list(4);
  for (size_t index : {2u, 3u, 1u, 1u}) {
    lyn_dll_node *node = list.at(index);
    void *data = node->data;
    lyn_dll_delete_node(list.head, &list.tail, node);
    expect_detached(node);
    EXPECT_EQ(node->data, data);
    free(node);
  }
  expect_list(list, {});
}

TEST_F(lyn_list, delete_node_leaves_the_sentinel_and_unlinked_nodes) {
  test_list list(2);
  lyn_dll_node unlinked = {};
  lyn_dll_delete_node(list.head, &list.tail, list.head);
  lyn_dll_delete_node(list.head, &list.tail, &unlinked);
  expect_list(list, {&elements[0], &elements[1]});
}

TEST_F(lyn_list, delete_node_refuses_null_arguments_and_a_tail_with_a_successor) {
  test_list list(2);
  lyn_dll_node *none = nullptr;
  lyn_dll_node *not_last = list.at(1);
  lyn_dll_delete_node(list.head, &list.tail, nullptr);
  lyn_dll_delete_node(nullptr, &list.tail, not_last);
  lyn_dll_delete_node(list.head, nullptr, not_last);
  lyn_dll_delete_node(list.head, &none, not_last);
  lyn_dll_delete_node(list.head, &not_last, not_last);
  expect_list(list, {&elements[0], &elements[1]});
}

/* search, next, data */

TEST_F(lyn_list, search_finds_the_first_match_whatever_the_tail) {
  test_list list(3);
  list.append(&elements[1]);
  EXPECT_EQ(lyn_dll_search(list.head, &elements[1], compare_numbers), list.at(2));
  EXPECT_EQ(lyn_dll_search(list.head, &elements[6], compare_numbers), nullptr);
  EXPECT_EQ(lyn_dll_search(list.head, &elements[1], nullptr), nullptr);
  test_list empty;
  EXPECT_EQ(lyn_dll_search(empty.head, &elements[0], never_matches), nullptr);
}

TEST_F(lyn_list, next_walks_the_elements_and_writes_nothing_at_the_end) {
  test_list list(2);
  void *data = nullptr;
  lyn_dll_node *node = lyn_dll_next(list.head, &data);
  EXPECT_EQ(data, &elements[0]);
  node = lyn_dll_next(node, &data);
  EXPECT_EQ(node, list.tail);
  EXPECT_EQ(data, &elements[1]);
  EXPECT_EQ(lyn_dll_next(node, &data), nullptr);
  EXPECT_EQ(data, &elements[1]);
  EXPECT_EQ(lyn_dll_next(list.head, nullptr), list.at(1));
}

TEST_F(lyn_list, data_returns_what_was_inserted) {
  test_list list(1);
  EXPECT_EQ(lyn_dll_data(list.tail), &elements[0]);
  EXPECT_EQ(lyn_dll_data(list.head), nullptr);
}

TEST_F(lyn_list, read_operations_log_a_null_list) {
  void *data = &elements[0];
  EXPECT_EQ(lyn_dll_next(nullptr, &data), nullptr);
  EXPECT_EQ(data, &elements[0]);
  EXPECT_EQ(lyn_dll_data(nullptr), nullptr);
  EXPECT_EQ(lyn_dll_search(nullptr, &elements[0], never_matches), nullptr);
  EXPECT_EQ(diag_log_texts("ERROR"),
            (std::vector<std::string>{"lyn_dll_next: Bad Param node NULL", "lyn_dll_data: Bad Param node NULL",
                                      "lyn_dll_search: Bad Param head NULL"}));
}

/* Random walks */

/** A list and the vector that it must equal. */
struct list_walk {
  test_list list;
  std::vector<void *> model;
  std::mt19937 random;

  size_t below(size_t limit) { return random() % limit; }
  lyn_dll_node *any_node() { return list.at(below(model.size() + 1)); }

  void insert() {
    void *data = &elements[below(8)];
    list.tail = lyn_dll_insert(any_node(), nullptr, data);
    model.push_back(data);
  }
  void delete_head() {
    void *data = nullptr;
    lyn_dll_node *node = lyn_dll_delete_head(any_node(), &list.tail, &data);
    ASSERT_EQ(node == nullptr, model.empty());
    if (node != nullptr) {
      EXPECT_EQ(data, model.front());
      model.erase(model.begin());
      free(node);
    }
  }
  void delete_key() {
    int key = static_cast<int>(below(8));
    auto expected = std::find(model.begin(), model.end(), &elements[key]);
    EXPECT_EQ(lyn_dll_search(list.head, &key, compare_numbers) != nullptr, expected != model.end());
    lyn_dll_node *node = lyn_dll_delete(&list.head, &list.tail, &key, compare_numbers);
    ASSERT_EQ(node != nullptr, expected != model.end());
    if (node != nullptr) {
      model.erase(expected);
      free(node);
    }
  }
  void delete_node() {
    size_t index = below(model.size() + 1);
    lyn_dll_node *node = list.at(index);
    lyn_dll_delete_node(list.head, &list.tail, node);
    if (index > 0) {
      model.erase(model.begin() + static_cast<std::ptrdiff_t>(index) - 1);
      free(node);
    }
  }
  void step() {
    switch (below(5)) {
      case 0:
        return delete_head();
      case 1:
        return delete_key();
      case 2:
        return delete_node();
      default:
        return insert();
    }
  }
};

TEST_F(lyn_list, random_walks_equal_a_vector) {
  // LYN_TEST_SEED repeats a walk that failed.
  const char *given = getenv("LYN_TEST_SEED");
  std::random_device source;
  for (int walk = 0; walk < 50; walk++) {
    const unsigned seed = given != nullptr ? static_cast<unsigned>(strtoul(given, nullptr, 10)) : source();
    SCOPED_TRACE("seed " + std::to_string(seed));
    list_walk state{.list = test_list(), .model = {}, .random = std::mt19937(seed)};
    for (int i = 0; i < 400 && !HasFatalFailure(); i++) {
      state.step();
      expect_list(state.list, state.model);
    }
  }
}

}  // namespace
