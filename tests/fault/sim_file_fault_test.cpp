/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board's files on a disk that fails or is full: the linker has every read(), write() and poll() of the program
 * come here.
 */
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <utility>
#include <vector>

#include "sim_file.h"
#include "sim_scenario.h"

namespace {

/** So many calls read, the next `times` fail with `error`. */
struct {
  int pass = 0, times = 0, error = 0;
} disk;

/** The file whose writes do as the steps say, one after the other, and behind them as ever. */
struct write_step {
  size_t most; /**< so many octets are taken; 0: none, for `error` */
  int error;
};
struct {
  int file = -1;
  std::vector<write_step> steps;
  int waits = 0;
} full;

}  // namespace

extern "C" ssize_t __real_write(int file, const void *block, size_t size);
extern "C" ssize_t __wrap_write(int file, const void *block, size_t size);
extern "C" int __wrap_poll(pollfd *files, nfds_t count, int ms);

extern "C" ssize_t __wrap_write(int file, const void *block, size_t size) {
  if (file != full.file || full.steps.empty()) {
    return __real_write(file, block, size);
  }
  const write_step step = full.steps.front();
  full.steps.erase(full.steps.begin());
  if (step.most == 0) {
    errno = step.error;
    return -1;
  }
  return __real_write(file, block, std::min(step.most, size));
}

extern "C" int __wrap_poll(pollfd *files, nfds_t count, int) {
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(files->events, POLLOUT);
  full.waits++;
  return 1;
}

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

/** Lines that are added while their file does as the steps say, and what they left. */
class sim_lines_fault : public sim_file_fault {
 protected:
  sim_lines lines;

  void SetUp() override {
    std::vector<sim_file> taken;
    lines.what = {"the journal", name};
    lines.file = sim_file_create(lines.what, taken, error);
    ASSERT_GE(lines.file, 0) << error;
    full = {.file = lines.file, .steps = {}, .waits = 0};
    opened = lines.file;
  }
  void TearDown() override {
    EXPECT_TRUE(full.steps.empty()) << "the fault was not met";
    full = {};
    close(opened);
    sim_file_fault::TearDown();
  }

  std::string add(const std::string &line, std::vector<write_step> steps = {}) {
    full.steps = std::move(steps);
    testing::internal::CaptureStderr();
    sim_lines_add(lines, line);
    return testing::internal::GetCapturedStderr();
  }

  std::string text() const {
    std::ifstream file(name);
    return {std::istreambuf_iterator<char>(file), {}};
  }

 private:
  int opened = -1;
};

TEST_F(sim_lines_fault, on_a_full_disk_the_lines_end_with_a_whole_one_and_it_is_said_once) {
  EXPECT_EQ(add("first\n"), "");
  EXPECT_EQ(add("second\n", {{3, 0}, {0, ENOSPC}}), name + ": No space left on device, the journal ends here\n");
  EXPECT_EQ(text(), "first\n");
  EXPECT_EQ(add("third\n"), "") << "there is room again, but a line is missing";
  EXPECT_EQ(text(), "first\n");
}

TEST_F(sim_lines_fault, a_disk_that_takes_nothing_leaves_what_there_is) {
  EXPECT_EQ(add("first\n"), "");
  EXPECT_EQ(add("second\n", {{0, EDQUOT}}), name + ": Disk quota exceeded, the journal ends here\n");
  EXPECT_EQ(text(), "first\n");
}

TEST_F(sim_lines_fault, a_line_that_goes_out_in_pieces_is_whole) {
  EXPECT_EQ(add("first\n", {{2, 0}, {0, EINTR}, {1, 0}}), "");
  EXPECT_EQ(text(), "first\n");
  EXPECT_EQ(full.waits, 0);
}

TEST_F(sim_lines_fault, a_reader_that_is_slow_is_waited_for) {
  EXPECT_EQ(add("first\n", {{2, 0}, {0, EAGAIN}, {0, EAGAIN}}), "");
  EXPECT_EQ(text(), "first\n");
  EXPECT_EQ(full.waits, 2);
}

TEST_F(sim_lines_fault, what_went_into_a_pipe_is_not_taken_back) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const int file = std::exchange(lines.file, ends[1]);
  full.file = ends[1];
  EXPECT_EQ(add("first\n", {{3, 0}, {0, EPIPE}}), name + ": Broken pipe, the journal ends here\n");
  char got[8] = {};
  EXPECT_EQ(__real_read(ends[0], got, sizeof got), 3);
  close(ends[0]);
  close(ends[1]);
  lines.file = file;
}

}  // namespace
