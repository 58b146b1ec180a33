/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The files that the board reads, a scenario or a drive: what cannot be read to its end is refused by name, and nothing
 * keeps the board waiting.
 */
#include "sim_file.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "sim_scenario.h"

namespace {

/** Why a reader of the board refuses a file. */
using refusal = std::string (*)(const std::string &name);

std::string of_scenario(const std::string &name) {
  std::string error;
  EXPECT_FALSE(sim_scenario_load(name, error));
  return error;
}

std::string of_trace(const std::string &name) {
  std::string error;
  EXPECT_FALSE(sim_trace_load(name, error));
  return error;
}

struct sim_file_test : testing::TestWithParam<refusal> {
  std::filesystem::path folder;

  void SetUp() override {
    folder = std::filesystem::temp_directory_path() / ("sim_file_test." + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  std::string file(const char *name) const { return (folder / name).string(); }
};

TEST_P(sim_file_test, a_file_that_is_not_there_or_a_folder_is_named) {
  EXPECT_EQ(GetParam()("/no/such.file"), "/no/such.file: cannot be read: No such file or directory");
  EXPECT_EQ(GetParam()("/tmp"), "/tmp: is a folder");
}

TEST_P(sim_file_test, an_error_while_reading_is_not_taken_for_the_end) {
  EXPECT_EQ(GetParam()("/proc/self/mem"), "/proc/self/mem: cannot be read: Input/output error");
}

TEST_P(sim_file_test, what_has_no_end_is_not_read) {
  EXPECT_EQ(GetParam()("/dev/zero"), "/dev/zero: is no regular file");
  ASSERT_EQ(mkfifo(file("pipe").c_str(), 0600), 0);
  EXPECT_EQ(GetParam()(file("pipe")), file("pipe") + ": is no regular file") << "without a wait for its writer";
}

TEST_P(sim_file_test, a_file_of_hostile_size_is_refused_before_it_fills_the_memory) {
  std::ofstream(file("huge")) << "x";
  std::filesystem::resize_file(file("huge"), uintmax_t{1} << 40);
  const std::string error = GetParam()(file("huge"));
  EXPECT_EQ(error.find(file("huge") + ": holds more than "), 0U) << error;
}

TEST_P(sim_file_test, a_name_with_a_line_break_is_named_on_one_line) {
  EXPECT_EQ(GetParam()("/no/such\nfile"), "/no/such file: cannot be read: No such file or directory");
}

INSTANTIATE_TEST_SUITE_P(readers, sim_file_test, testing::Values(of_scenario, of_trace),
                         [](const testing::TestParamInfo<refusal> &of) {
                           return std::string(of.param == of_scenario ? "scenario" : "trace");
                         });

TEST(sim_file_read_test, a_file_is_read_up_to_the_limit) {
  const std::string name =
      (std::filesystem::temp_directory_path() / "sim_file_read_test.").string() + std::to_string(getpid());
  std::ofstream(name) << std::string(200000, 'a');
  std::string error;
  EXPECT_EQ(sim_file_read(name, 200000, error), std::string(200000, 'a'));
  EXPECT_FALSE(sim_file_read(name, 199999, error));
  EXPECT_EQ(error, name + ": holds more than 199999 octets");
  std::filesystem::remove(name);
}

}  // namespace
