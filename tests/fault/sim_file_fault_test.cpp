/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board's files on a disk that fails: the linker has every read() of the program come here.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "sim_scenario.h"

namespace {

/** So many calls read, the next `times` fail with `error`. */
struct {
  int pass = 0, times = 0, error = 0;
} disk;

}  // namespace

extern "C" ssize_t __real_read(int file, void *block, size_t size);
extern "C" ssize_t __wrap_read(int file, void *block, size_t size);

extern "C" ssize_t __wrap_read(int file, void *block, size_t size) {
  if (disk.pass > 0) {
    --disk.pass;
  } else if (disk.times > 0) {
    --disk.times;
    errno = disk.error;
    return -1;
  }
  return __real_read(file, block, size);
}

namespace {

struct sim_file_fault : testing::Test {
  const std::string name =
      (std::filesystem::temp_directory_path() / ("sim_file_fault." + std::to_string(getpid()))).string();
  std::string error;

  void write(const std::string &text) const { std::ofstream(name) << text; }

  void TearDown() override {
    EXPECT_EQ(disk.times, 0) << "the fault was not met";
    disk = {};
    std::filesystem::remove(name);
  }
};

/** A scenario and a drive that are whole wherever a read of theirs ends. */
const std::string scenario_text = "[board]\nseed = 2\n" + std::string(100000, '\n') + "[scan]\nstatus = 3\n";
const std::string trace_text = [] {
  std::string text = "Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n";
  for (int row = 0; row < 5000; ++row) {
    text += "-8.4,51.9,36,LTE,-90,-8,5.0,10,9CBA,11016962,-95.0,-10.0\n";
  }
  return text;
}();

TEST_F(sim_file_fault, a_scenario_that_cannot_be_read_to_its_end_is_none) {
  write(scenario_text);
  disk = {.pass = 1, .times = 1, .error = EIO};
  EXPECT_FALSE(sim_scenario_load(name, error));
  EXPECT_EQ(error, name + ": cannot be read: Input/output error");
}

TEST_F(sim_file_fault, a_drive_that_cannot_be_read_to_its_end_is_none) {
  write(trace_text);
  disk = {.pass = 1, .times = 1, .error = EIO};
  EXPECT_FALSE(sim_trace_load(name, error));
  EXPECT_EQ(error, name + ": cannot be read: Input/output error");
}

TEST_F(sim_file_fault, a_read_that_a_signal_interrupts_goes_on) {
  write(scenario_text);
  disk = {.pass = 1, .times = 2, .error = EINTR};
  const std::optional<sim_scenario> board = sim_scenario_load(name, error);
  ASSERT_TRUE(board) << error;
  EXPECT_EQ(board->scan.status, 3U);
}

}  // namespace
