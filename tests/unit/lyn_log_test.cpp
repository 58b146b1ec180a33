/*
 * The log formatter, as the diagnostic service receives its records.
 */
#include "lyn_log.h"

#include <gtest/gtest.h>

#include <thread>

#include "diag_log.h"

namespace {

class lyn_log : public testing::Test {
 protected:
  void SetUp() override { diag_log_take(); }
};

TEST_F(lyn_log, a_record_carries_level_file_base_name_and_line) {
  const int line = __LINE__ + 1;
  LYN_LOG_HIGH("progress");
  LYN_LOG_ERROR("failure");
  const auto records = diag_log_take();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, "HIGH");
  EXPECT_EQ(records[1].level, "ERROR");
  EXPECT_EQ(records[0].file, "lyn_log_test.cpp");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[1].line, line + 1);
}

TEST_F(lyn_log, arguments_are_formatted_and_the_text_is_not_formatted_again) {
  LYN_LOG_HIGH("%s[%d] %p%%", "100%s %n", -7, lyn_log_handle(0));
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{"100%s %n[-7] (nil)%"});
}

TEST_F(lyn_log, a_handle_is_shown_as_a_pointer_of_32_bits) {
  LYN_LOG_HIGH("%p", lyn_log_handle(0xfedcba98));
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{"0xfedcba98"});
}

TEST_F(lyn_log, a_text_of_511_characters_is_whole_and_a_longer_one_is_cut_there) {
  const std::string fits(LYN_LOG_TEXT_LEN - 1, 'a');
  LYN_LOG_HIGH("%s", fits.c_str());
  LYN_LOG_HIGH("%s", (fits + "bc").c_str());
  EXPECT_EQ(diag_log_texts(), (std::vector<std::string>{fits, fits}));
}

TEST_F(lyn_log, records_of_several_threads_do_not_mix) {
  constexpr int each = 200;
  auto write = [](char letter) {
    for (int i = 0; i < each; i++) {
      LYN_LOG_HIGH("%s", std::string(300, letter).c_str());
    }
  };
  std::thread first(write, 'x'), second(write, 'y');
  first.join();
  second.join();
  int seen[2] = {};
  for (const std::string &text : diag_log_texts()) {
    ASSERT_TRUE(text == std::string(300, 'x') || text == std::string(300, 'y'));
    seen[text[0] == 'y']++;
  }
  EXPECT_EQ(seen[0], each);
  EXPECT_EQ(seen[1], each);
}

}  // namespace
