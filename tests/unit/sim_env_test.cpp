/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The three environment variables of the simulated board, each in a process of its own: they are read once, at the
 * first platform call.
 */
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "diag_service.h"
#include "nas_service_v01.h"

namespace {

using testing::ExitedWithCode;

void log_text(uint32_t level, const char *text) {
  static diag_msg_record_t record = {65, 0, "%s, %d", "some_file.cpp", 120};
  record.level = level;
  msg_sprintf(&record, text, 7);
}

std::string read_file(const std::string &name) {
  std::stringstream text;
  text << std::ifstream(name).rdbuf();
  return text.str();
}

struct sim_env : testing::Test {
  std::string folder;

  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    // The child of a threadsafe death test comes here too: it must find the same folder.
    const char *given = getenv("SIM_ENV_TEST_FOLDER");
    char name[] = "/tmp/sim_env_XXXXXX";
    folder = given ? given : mkdtemp(name);
    setenv("SIM_ENV_TEST_FOLDER", folder.c_str(), 1);
  }

  void TearDown() override {
    unsetenv("SIM_ENV_TEST_FOLDER");
    std::filesystem::remove_all(folder);
  }

  std::string file(const char *name) const { return folder + '/' + name; }

  /** The first platform call with a scenario of this text. */
  void start_with(const char *scenario) const {
    std::ofstream(file("scenario.toml")) << scenario;
    setenv("LYN_SIM_SCENARIO", file("scenario.toml").c_str(), 1);
    nas_get_service_object_internal_v01(1, 388, 6);
    _exit(0);
  }
};

TEST_F(sim_env, a_scenario_that_cannot_be_used_ends_the_process_with_status_2_and_one_line) {
  EXPECT_EXIT(start_with("[board]\nnoize_db = 1\n"), ExitedWithCode(2), "^/[^\n]*scenario.toml:2:[0-9]+: [^\n]+\n$");
  EXPECT_EXIT(start_with("[board\n"), ExitedWithCode(2), "^/[^\n]*scenario.toml:1:[0-9]+: [^\n]+\n$");
  EXPECT_EXIT(start_with("[trace]\nfile = \"absent.csv\"\n"), ExitedWithCode(2), "^[^\n]*absent.csv[^\n]*\n$");
  EXPECT_EXIT(start_with("[board]\nnoise_db = 1\n"), ExitedWithCode(0), "^$");
}

TEST_F(sim_env, a_scenario_file_that_cannot_be_read_ends_the_process_with_status_2) {
  const auto start = [](const char *name) {
    setenv("LYN_SIM_SCENARIO", name, 1);
    Diag_LSM_Init(nullptr);
  };
  EXPECT_EXIT(start("/nowhere/at.all"), ExitedWithCode(2), "^/nowhere/at.all: [^\n]+\n$");
  EXPECT_EXIT(start("/proc/self/mem"), ExitedWithCode(2), "^/proc/self/mem: cannot be read: Input/output error\n$");
}

TEST_F(sim_env, a_journal_that_cannot_be_written_ends_the_process_with_status_2) {
  const auto start = [] {
    setenv("LYN_SIM_JOURNAL", "/nowhere/journal", 1);
    Diag_LSM_Init(nullptr);
  };
  EXPECT_EXIT(start(), ExitedWithCode(2), "^/nowhere/journal: [^\n]+\n$");
}

/** A drive of one row. */
constexpr char drive[] =
    "Longitude,Latitude,Speed,NetworkMode,RSRP,RSRQ,SNR,CQI,LACHEX,RAWCELLID,NRxRSRP,NRxRSRQ\n0,0,0,LTE,-90,-9,5,9,1,1,"
    "-95,-9\n";

struct sim_env_files : sim_env {
  const std::string scenario = "[trace]\nfile = \"drive.csv\"\n";

  void SetUp() override {
    sim_env::SetUp();
    if (std::filesystem::exists(file("scenario.toml"))) {
      return;  // a child: its parent has made them
    }
    std::ofstream(file("drive.csv")) << drive;
    std::ofstream(file("scenario.toml")) << scenario;
    std::ofstream(file("old")) << "old\n";
    for (const char *name : {"scenario.toml", "drive.csv", "old"}) {
      std::filesystem::create_symlink(name, file(name) + ".symbolic");
      std::filesystem::create_hard_link(file(name), file(name) + ".hard");
    }
  }

  /** The first platform call with these files; in the folder, so that a name may be relative. */
  void start(const std::string &journal, const std::string &diag) const {
    if (chdir(folder.c_str()) != 0) {
      _exit(1);
    }
    setenv("LYN_SIM_SCENARIO", file("scenario.toml").c_str(), 1);
    setenv("LYN_SIM_JOURNAL", journal.c_str(), 1);
    setenv("LYN_SIM_DIAG", diag.c_str(), 1);
    log_text(DIAG_LEVEL_HIGH, "text");
    _exit(0);
  }

  void expect_files_as_they_were() const {
    EXPECT_EQ(read_file(file("scenario.toml")), scenario);
    EXPECT_EQ(read_file(file("drive.csv")), drive);
  }
};

TEST_F(sim_env_files, nothing_is_written_over_the_scenario_or_the_trace_whatever_it_is_called) {
  for (const std::string read : {"scenario.toml", "drive.csv"}) {
    const std::string part = read == "drive.csv" ? "trace" : "scenario";
    for (const std::string &name : {read, file(read.c_str()), "./" + read, read + ".symbolic", read + ".hard"}) {
      const std::string is_part = ", it is the " + part + " \\(/[^\n]*/" + read + "\\)\n$";
      EXPECT_EXIT(start(name, ""), ExitedWithCode(2), "^" + name + ": cannot be the journal" + is_part);
      EXPECT_EXIT(start("", name), ExitedWithCode(2), "^" + name + ": cannot be the diagnostic log" + is_part);
    }
  }
  expect_files_as_they_were();
}

TEST_F(sim_env_files, journal_and_diagnostic_log_are_two_files) {
  for (const char *name : {"old", "./old", "old.symbolic", "old.hard"}) {
    EXPECT_EXIT(start("old", name), ExitedWithCode(2),
                "^" + std::string(name) + ": cannot be the diagnostic log, it is the journal \\(old\\)\n$");
  }
  EXPECT_EXIT(start("/dev/null", "/dev/null"), ExitedWithCode(0), "^$") << "where nothing is lost they may meet";
}

TEST_F(sim_env_files, what_was_written_before_is_replaced) {
  EXPECT_EXIT(start("old", "diag"), ExitedWithCode(0), "^$");
  EXPECT_EQ(read_file(file("old")).find("{\"t\": "), 0U);
  EXPECT_EQ(read_file(file("diag")), "HIGH some_file.cpp:120 text, 7\n");
  expect_files_as_they_were();
}

TEST_F(sim_env_files, a_board_that_is_refused_leaves_the_older_files_as_they_are) {
  std::ofstream(file("scenario.toml")) << "[board\n";
  EXPECT_EXIT(start("old", "old.hard"), ExitedWithCode(2), "scenario.toml:1:");
  EXPECT_EQ(read_file(file("old")), "old\n");
}

TEST_F(sim_env, diagnostic_records_are_written_one_a_line) {
  const auto log = [this] {
    setenv("LYN_SIM_DIAG", file("diag").c_str(), 1);
    log_text(DIAG_LEVEL_HIGH, "two\nlines");
    log_text(DIAG_LEVEL_ERROR, "");
    _exit(0);
  };
  EXPECT_EXIT(log(), ExitedWithCode(0), "");
  EXPECT_EQ(read_file(file("diag")), "HIGH some_file.cpp:120 two\\nlines, 7\nERROR some_file.cpp:120 , 7\n");
}

TEST_F(sim_env, a_minus_sends_diagnostic_records_to_standard_error) {
  const auto log = [] {
    setenv("LYN_SIM_DIAG", "-", 1);
    log_text(DIAG_LEVEL_HIGH, "text");
    _exit(0);
  };
  EXPECT_EXIT(log(), ExitedWithCode(0), "^HIGH some_file.cpp:120 text, 7\n$");
}

TEST_F(sim_env, without_the_variable_diagnostic_records_are_dropped) {
  const auto log = [] {
    log_text(DIAG_LEVEL_ERROR, "text");
    _exit(0);
  };
  EXPECT_EXIT(log(), ExitedWithCode(0), "^$");
}

TEST_F(sim_env, the_journal_has_every_line_of_a_process_that_is_killed) {
  const auto run = [this] {
    setenv("LYN_SIM_JOURNAL", file("journal").c_str(), 1);
    Diag_LSM_Init(nullptr);
    nas_get_service_object_internal_v01(1, 388, 6);
    raise(SIGKILL);
  };
  EXPECT_EXIT(run(), testing::KilledBySignal(SIGKILL), "");
  std::istringstream lines(read_file(file("journal")));
  std::vector<std::string> found;
  for (std::string line; std::getline(lines, line);) {
    found.push_back(line.substr(line.find("\"lib\"")));
  }
  EXPECT_EQ(found, (std::vector<std::string>{
                       R"("lib": "diag", "dir": "call", "name": "Diag_LSM_Init", "fields": {}})",
                       R"("lib": "diag", "dir": "return", "name": "Diag_LSM_Init", "fields": {"ok": true}})",
                       R"("lib": "yrp", "dir": "call", "name": "nas_get_service_object_internal_v01", )"
                       R"("fields": {"major": 1, "minor": 388, "tool": 6}})",
                       R"("lib": "yrp", "dir": "return", "name": "nas_get_service_object_internal_v01", )"
                       R"("fields": {"available": true}})"}));
}

}  // namespace
