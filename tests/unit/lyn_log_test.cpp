/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The log formatter, as the diagnostic service receives its records.
 */
#include "lyn_log.h"

#include <gtest/gtest.h>
#include <stdio.h>

#include <climits>
#include <random>
#include <thread>

#include "diag_log.h"

namespace {

class lyn_log : public testing::Test {
 protected:
  void SetUp() override { diag_log_take(); }
};

/** One record of each level, the first of `line` of this file, the second of the next one. */
void expect_records_from(int line) {
  const auto records = diag_log_take();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].level, "HIGH");
  EXPECT_EQ(records[1].level, "ERROR");
  EXPECT_EQ(records[0].file, "lyn_log_test.cpp");
  EXPECT_EQ(records[0].line, line);
  EXPECT_EQ(records[1].line, line + 1);
}

TEST_F(lyn_log, a_record_carries_level_file_base_name_and_line) {
  const int line = __LINE__ + 1;
  LYN_LOG_HIGH("progress");
  LYN_LOG_ERROR("failure");
  expect_records_from(line);
}

/** What a function of a header logs. */
void log_for(const diag_msg_record_t *place) {
  LYN_LOG_OF(place, "asked of %d", 1);
}

TEST_F(lyn_log, a_function_that_is_handed_a_record_logs_as_of_its_caller) {
  const int line = __LINE__ + 1;
  log_for(LYN_LOG_HIGH_HERE);
  log_for(LYN_LOG_ERROR_HERE);
  expect_records_from(line);
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

/** Expects the text that vsnprintf writes, a line break escaped as the board does. */
template <class... Arguments>
void expect_as_vsnprintf(const std::string &format, Arguments... arguments) {
  static constexpr diag_msg_record_t record = {LYN_LOG_SUBSYSTEM, DIAG_LEVEL_HIGH, "%s", "file", 1};
  std::vector<uint8_t> program(format.size() + 2);
  ASSERT_TRUE(lyn_log_parse(format.c_str(), program.data())) << format;
  char expected[LYN_LOG_TEXT_LEN];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
  snprintf(expected, sizeof expected, format.c_str(), arguments...);
#pragma GCC diagnostic pop
  lyn_log_write(&record, program.data(), format.c_str(), arguments...);
  std::string escaped;
  for (const char *at = expected; *at != '\0'; at++) {
    escaped += *at == '\n' ? "\\n" : std::string(1, *at);
  }
  EXPECT_EQ(diag_log_texts(), std::vector<std::string>{escaped}) << format;
}

/** A value that is as often small as large, and often the end of some range. */
unsigned long long some_value(std::mt19937_64 &random) {
  const unsigned long long edges[] = {0,       1,        9,        10,        SHRT_MAX,   USHRT_MAX,
                                      INT_MAX, UINT_MAX, LONG_MAX, ULONG_MAX, 1ULL << 31, 1ULL << 63};
  const unsigned long long drawn = random();
  return drawn % 4 == 0 ? edges[random() % std::size(edges)] : drawn >> random() % 64;
}

constexpr const char *conversions[] = {"%d",  "%i",   "%hd", "%hi", "%ld", "%lld", "%u", "%hu",
                                       "%lu", "%llu", "%x",  "%hx", "%lx", "%llx", "%p", "%%"};

std::string some_text(std::mt19937_64 &random) {
  const size_t length = random() % 16 == 0 ? random() % 40 : random() % 20;  // runs stay below 256
  std::string text;
  for (size_t i = 0; i < length; i++) {
    text += static_cast<char>(random() % 128 < 32 || random() % 20 == 0 ? '\n' : 'a' + random() % 26);
  }
  return text;
}

TEST_F(lyn_log, any_text_is_the_one_that_vsnprintf_writes) {
  const char *chosen = getenv("LYN_SEED");
  const uint64_t seed = chosen != nullptr ? strtoull(chosen, nullptr, 10) : std::random_device()();
  SCOPED_TRACE("LYN_SEED=" + std::to_string(seed));
  std::mt19937_64 random(seed);
  for (int run = 0; run < 20000 && !HasFailure(); run++) {
    std::string format;
    for (size_t count = random() % 6; count > 0; count--) {
      format += some_text(random) + conversions[random() % std::size(conversions)];
    }
    format += some_text(random);
    // Arguments of a full word each: what a narrower conversion reads of it is the same for both.
    expect_as_vsnprintf(format, some_value(random), some_value(random), some_value(random), some_value(random),
                        some_value(random), some_value(random));
  }
}

TEST_F(lyn_log, any_string_is_the_one_that_vsnprintf_writes) {
  std::mt19937_64 random(1);
  for (int run = 0; run < 2000; run++) {
    const std::string first = some_text(random) + some_text(random), second(random() % 600, 'z');
    expect_as_vsnprintf("%s[%s] %d: %s", first.c_str(), second.c_str(), run, run % 7 == 0 ? nullptr : "text");
  }
}

TEST_F(lyn_log, a_number_that_does_not_fit_is_cut_where_vsnprintf_cuts_it) {
  for (size_t length = LYN_LOG_TEXT_LEN - 30; length < LYN_LOG_TEXT_LEN; length++) {
    const std::string before(length, 'a');
    expect_as_vsnprintf("%s%llu%%", before.c_str(), ULLONG_MAX);
    expect_as_vsnprintf("%s%lld", before.c_str(), LLONG_MIN);
    expect_as_vsnprintf("%s%d%u", before.c_str(), -7, 8U);
    expect_as_vsnprintf("%s%p", before.c_str(), lyn_log_handle(0xfedcba98));
    expect_as_vsnprintf("%s%p!", before.c_str(), nullptr);
  }
}

bool is_known(const std::string &format) {
  std::vector<uint8_t> program(format.size() + 2);
  return lyn_log_parse(format.c_str(), program.data());
}

TEST_F(lyn_log, a_format_with_an_unknown_conversion_or_too_long_a_run_is_found) {
  for (const char *format : {"%c", "%5d", "a %03u", "%hs", "%lp", "%"}) {
    EXPECT_FALSE(is_known(format)) << format;
  }
  for (const char *format : {"", "text", "%d", "100%% of %s", "%llu%p%hx", "%%%%%d%%"}) {
    EXPECT_TRUE(is_known(format)) << format;
  }
  EXPECT_TRUE(is_known(std::string(255, 'a')));
  EXPECT_TRUE(is_known(std::string(255, 'a') + "%d" + std::string(255, 'b')));
  EXPECT_FALSE(is_known(std::string(256, 'a')));
  EXPECT_FALSE(is_known("%d" + std::string(255, 'a') + "%%"));
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
