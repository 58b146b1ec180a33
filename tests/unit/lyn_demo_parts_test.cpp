/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What of the demo client no menu leads to: arguments that nobody gives, a signal that it did not ask for, answers that
 * the module does not give, and lines without an editor.
 *
 * The program is linked with --wrap for the operations that register and that read metrics (tests/CMakeLists.txt).
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <unistd.h>

#include <string>

#include "../../demo/lyn_demo.h"
#include "../../demo/lyn_demo_line.h"
#include "../../demo/lyn_demo_prompt.h"

namespace {

/** Secondary carriers that metric 8 is answered with. */
uint32_t carriers = 2;

/** What the application was registered with. */
ox_lyn_user_cb_fn registered = nullptr;
uint32_t registered_data = 1;

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL in the place of SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int32_t __wrap_ox_lyn_init(ox_lyn_hndl_t *, uint32_t user_data, ox_lyn_user_cb_fn user_cb) {
  registered = user_cb;
  registered_data = user_data;
  return OX_LYN_SUCCESS;
}
int32_t __wrap_ox_lyn_get_info(ox_lyn_hndl_t, ox_lyn_dm_info_t *info) {
  info->count = carriers;
  info->value.i64_array[0] = 20;
  info->value.i64_array[1] = 15;
  info->value.i64_array[2] = 10;
  return OX_LYN_SUCCESS;
}
int32_t __wrap_ox_lyn_get_info_list(ox_lyn_hndl_t hndl, ox_lyn_dm_info_t *infos, uint32_t) {
  return __wrap_ox_lyn_get_info(hndl, infos);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

template <typename Call>
std::string printed(Call call) {
  testing::internal::CaptureStdout();
  call();
  fflush(stdout);
  return testing::internal::GetCapturedStdout();
}

TEST(lyn_demo_parts, a_signal_that_it_did_not_ask_for_is_told) {
  EXPECT_EQ(printed([] { lyn_demo_sigterm_handler(SIGUSR1); }),
            "Received unexpected signal " + std::to_string(SIGUSR1) + "\n");
}

TEST(lyn_demo_parts, lines_and_options_that_are_none_are_refused) {
  char line[] = "7 10";
  int32_t options[LYN_DEMO_MAX_OPTIONS];
  uint32_t count = 0;
  EXPECT_EQ(lyn_demo_parse_options(nullptr, options, &count), 1);
  EXPECT_EQ(lyn_demo_parse_options(line, nullptr, &count), 1);
  EXPECT_EQ(lyn_demo_parse_options(line, options, nullptr), 1);
  EXPECT_EQ(lyn_demo_process_options(nullptr, 1), 1);
  EXPECT_EQ(lyn_demo_process_options(options, 0), 1);
  EXPECT_EQ(lyn_demo_parse_options(line, options, &count), 0);
  EXPECT_EQ(count, 2U);
}

TEST(lyn_demo_parts, secondary_carriers_are_printed_behind_the_primary_one) {
  const int32_t options[] = {7, OX_LYN_GET_LTE_CA_STATS_E};
  EXPECT_THAT(printed([&] { EXPECT_EQ(lyn_demo_process_options(options, 2), 0); }),
              testing::HasSubstr("LYN DEMO APP : CA stats-cphy ca pcell info bandwidth - 20\n"
                                 "LYN DEMO APP : CA stats ca scell info list\tinstance-0\n"
                                 "LYN DEMO APP : CA stats scell bandwidth- 15\n\n"
                                 "LYN DEMO APP : CA stats ca scell info list\tinstance-1\n"
                                 "LYN DEMO APP : CA stats scell bandwidth- 10\n\n"));
}

TEST(lyn_demo_parts, secondary_carriers_of_a_list_have_a_blank_for_the_tabulator) {
  const int32_t options[] = {8, OX_LYN_GET_LTE_CA_STATS_E};
  EXPECT_THAT(printed([&] { EXPECT_EQ(lyn_demo_process_options(options, 2), 0); }),
              testing::HasSubstr("LYN DEMO APP : CA stats ca scell info list instance-1\n"
                                 "LYN DEMO APP : CA stats scell bandwidth- 10\n\n"));
}

TEST(lyn_demo_parts, no_more_secondary_carriers_are_printed_than_a_value_has_room_for) {
  const int32_t options[] = {7, OX_LYN_GET_LTE_CA_STATS_E};
  carriers = UINT32_MAX;
  const std::string text = printed([&] { EXPECT_EQ(lyn_demo_process_options(options, 2), 0); });
  carriers = 2;
  const std::string last = "instance-" + std::to_string(OX_LYN_I64_ARRAY_LEN - 2) + "\n";
  EXPECT_THAT(text, testing::HasSubstr(last));
  EXPECT_EQ(text.find("instance-", text.find(last) + 1), std::string::npos);
}

TEST(lyn_demo_parts, the_application_is_registered_with_its_callback_and_no_data) {
  const int32_t options[] = {1};
  EXPECT_THAT(printed([&] { EXPECT_EQ(lyn_demo_process_options(options, 1), 0); }),
              testing::HasSubstr("LYN DEMO APP : Application registered successfully.\n"));
  EXPECT_EQ(registered, lyn_demo_user_cb);
  EXPECT_EQ(registered_data, 0U);
}

TEST(lyn_demo_parts, prompts_without_a_record_ask_nothing_and_fail) {
  const auto refused = [](auto ask) { return printed([&] { EXPECT_FALSE(ask(nullptr)); }); };
  EXPECT_EQ(refused(lyn_demo_ask_mtpe_client), "Invalid arguement \n");
  EXPECT_EQ(refused(lyn_demo_ask_mtpe_test), "Invalid arguement \n");
  EXPECT_EQ(refused(lyn_demo_ask_single_shot), "Invalid arguement \n");
  EXPECT_EQ(refused(lyn_demo_ask_batching), "Invalid arguement \n");
}

TEST(lyn_demo_parts, an_address_of_no_family_is_a_mask) {
  ASSERT_NE(freopen("/dev/null", "r", stdin), nullptr);
  char address[16] = "";
  EXPECT_THAT(printed([&] { lyn_demo_ask_address(AF_UNSPEC, address); }),
              testing::HasSubstr("\n Please Enter Address Mask Value =>"));
}

TEST(lyn_demo_parts, without_an_editor_lines_are_read_as_they_are) {
  FILE *file = tmpfile();
  fputs("7 10\n", file);
  rewind(file);
  ASSERT_NE(dup2(fileno(file), STDIN_FILENO), -1);
  ASSERT_NE(freopen("/dev/stdin", "r", stdin), nullptr);
  lyn_demo_edit_lines();
  char line[LYN_DEMO_LINE_LEN];
  EXPECT_EQ(printed([&] { EXPECT_EQ(lyn_demo_read_line("Option > ", line, sizeof line), LYN_DEMO_READ_LINE); }),
            "Option > ");
  EXPECT_STREQ(line, "7 10\n");
  fclose(file);
}

}  // namespace
