/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_terminal.h"

#include <gtest/gtest.h>

/** The keys that are found where octets are read in these pieces. */
static std::string keys_in(const std::vector<std::string> &pieces) {
  lyn_watch_keys_t keys;
  std::string found;
  for (const std::string &piece : pieces) {
    if (const char key = lyn_watch_keys_take(&keys, piece); key != '\0') {
      found += key;
    }
  }
  return found;
}

TEST(lyn_watch_keys, a_key_comes_alone) {
  EXPECT_EQ(keys_in({"h", "q"}), "hq");
  EXPECT_EQ(keys_in({"hq"}), "");
}

TEST(lyn_watch_keys, sequences_hold_no_keys_wherever_they_are_cut) {
  EXPECT_EQ(keys_in({"\033[A", "\033Oq", "\033q", "q"}), "q");
  EXPECT_EQ(keys_in({"\033", "[", "1", "5", "~", "q"}), "q");
  EXPECT_EQ(keys_in({"\033", "O", "q", "h"}), "h");
  EXPECT_EQ(keys_in({"\033", "q", "h"}), "h");
  EXPECT_EQ(keys_in({"\033[1\001", "q"}), "q") << "a control character ends it";
  EXPECT_EQ(keys_in({"\033[" + std::string(1000, '1'), "q"}), "q") << "no end, no sequence";
}

TEST(lyn_watch_keys, what_is_pasted_holds_no_keys_however_slowly_it_comes) {
  EXPECT_EQ(keys_in({"\033[200~", "q", "\033[A", "h", "\033[201~", "s"}), "s");
}

TEST(lyn_watch_keys, what_was_begun_lapses) {
  lyn_watch_keys_t keys;
  for (const char *begun : {"\033", "\033[", "\033[200~"}) {
    EXPECT_EQ(lyn_watch_keys_take(&keys, begun), '\0');
    lyn_watch_keys_lapse(&keys);
    EXPECT_EQ(lyn_watch_keys_take(&keys, "q"), 'q');
  }
}
