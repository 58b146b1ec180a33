/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Every allocation fails once: each public operation, each indication and each option of the demo client is run again
 * and again, first with its n-th allocation alone failing, then with all from the n-th on, for every n, in whatever
 * thread they are made. Each time the outcome is a status that the header states, and a success that something failed
 * under has a line in the log; afterwards the module is not locked, a good call succeeds, and the same operation
 * succeeds if it had failed. That nothing leaks is the address sanitizer's to say.
 *
 * A case is in by itself when an operation is in the table (operations.h) or an indication in the board's messages. The
 * demo client's callback and its options allocate with calloc and getline. The live picture is not here: its callback
 * and all else of it allocate with the throwing operator new alone, which has no way to fail but to end the program.
 */
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>

#include "../../demo/lyn_demo.h"
#include "alloc_fault.h"
#include "sim_message.h"
#include "sweep.h"
#include "watchdog.h"
#include "yrp_client.h"

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
ssize_t __real_getline(char **line, size_t *size, FILE *file);
ssize_t __real___getdelim(char **line, size_t *size, int end, FILE *file);

ssize_t __wrap_getline(char **line, size_t *size, FILE *file) {
  return alloc_fault_meets() ? -1 : __real_getline(line, size, file);
}
ssize_t __wrap___getdelim(char **line, size_t *size, int end, FILE *file) { /* what getline is with optimisation */
  return alloc_fault_meets() ? -1 : __real___getdelim(line, size, end, file);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

constexpr uint32_t from_there_on = UINT32_MAX;

/** What was done, by group: how many cases, how often nothing failed, one allocation, and all from one on. */
struct tally {
  size_t cases = 0, alone = 0, onwards = 0;
};
std::map<std::string, tally> tallies;

/** What the test itself allocates to wait neither counts nor fails. */
void settle() {
  const alloc_fault_own own;
  sweep_settle();
}

/** Whether the module lock stays taken, which an event under way has for a moment. */
bool module_locked(int patience_ms) {
  for (int ms = 0; ms < patience_ms; ms++) {
    if (lyn_lock_try()) {
      lyn_unlock();
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

/** What came of one run. */
struct outcome {
  int32_t status;
  bool met;    /**< an allocation failed */
  bool locked; /**< the module stays locked */
  bool told;   /**< the log has an error, or the demo client printed one */
};

/** The part of a run in which `times` allocations fail from number `pass` on. */
outcome act_without_memory(const sweep_case &one, ox_lyn_hndl_t *hndl, uint32_t pass, uint32_t times) {
  const sweep_printing elsewhere;
  diag_log_take();
  alloc_fault_arm(ALLOC_FAULT_ALL_THREADS, pass, times);
  outcome was = {};
  was.status = one.act(hndl);
  was.locked = module_locked(one.patience_ms);
  if (!was.locked) {
    settle();
  }
  was.met = alloc_fault_disarm();
  was.told =
      !diag_log_texts("ERROR").empty() || elsewhere.text().find("Memory allocation failure") != std::string::npos;
  return was;
}

std::string allocation_text(uint32_t pass, uint32_t times) {
  return text_of("allocation ", pass, times == 1 ? "" : " and on");
}

/** One run; false where no allocation was left to fail. */
bool run(const sweep_case &one, uint32_t pass, uint32_t times) {
  const std::string what = allocation_text(pass, times);
  const std::string name = one.name + ", " + what;
  SCOPED_TRACE(name);
  watchdog(name);
  ox_lyn_hndl_t hndl = 0;
  EXPECT_EQ(sweep_prepare(one, &hndl), "");
  const outcome was = act_without_memory(one, &hndl, pass, times);
  EXPECT_TRUE(one.states(was.status)) << was.status;
  EXPECT_FALSE(was.locked);
  if (was.met) {
    sweep_tried(one.name, what, text_of(was.status));
    EXPECT_TRUE(was.status != one.good || was.told) << "nothing tells of it";
  } else {
    EXPECT_EQ(was.status, one.good);
  }
  if (!was.locked) {
    EXPECT_EQ(sweep_prove_good(one, &hndl, was.status), "");
  }
  return was.met && !testing::Test::HasFailure();
}

/** Every allocation of a case. */
void sweep(const sweep_case &one) {
  tally &counted = tallies[one.group];
  counted.cases++;
  for (const uint32_t times : {1U, from_there_on}) {
    for (uint32_t pass = 0; run(one, pass, times); pass++) {
      (times == 1 ? counted.alone : counted.onwards)++;
    }
  }
  watchdog("the next case");
}

/** Metric 38 keeps the module locked where its block cannot be allocated, so that each run has a process of its own. */
bool keeps_lock(const operation &one) {
  return (one.kind == operation_kind::get || one.kind == operation_kind::list) && one.id == OX_LYN_GET_LTE_ENDC_MODE_E;
}

struct alloc_sweep : testing::TestWithParam<sweep_case> {};

/** What was done, in the end. */
struct summary : testing::Environment {
  void TearDown() override {
    printf("%-24s %6s %6s %6s\n", "allocations failed of", "cases", "alone", "all on");
    tally sum;
    for (const auto &[group, counted] : tallies) {
      printf("%-24s %6zu %6zu %6zu\n", group.c_str(), counted.cases, counted.alone, counted.onwards);
      sum.cases += counted.cases;
      sum.alone += counted.alone;
      sum.onwards += counted.onwards;
    }
    printf("%-24s %6zu %6zu %6zu\n", "in all", sum.cases, sum.alone, sum.onwards);
  }
};
testing::Environment *const printed_summary = testing::AddGlobalTestEnvironment(new summary);

TEST_P(alloc_sweep, each_failed_allocation_has_a_stated_outcome) {
  sweep(GetParam());
}

std::vector<sweep_case> all_operations() {
  std::vector<sweep_case> all;
  for (const operation &one : operations()) {
    if (!keeps_lock(one)) {
      all.push_back(sweep_case_of(one));
    }
  }
  return all;
}

/* Indications */

std::vector<operation> up_and_subscribed() {
  std::vector<operation> before = {{operation_kind::init}};
  for (uint32_t indication = 1; indication <= OPERATION_LAST_SUBSCRIBED; indication++) {
    before.push_back({operation_kind::subscribe, indication});
  }
  return before;
}

sweep_case indication(const std::string &name, ox_lyn_user_cb_fn on_event) {
  sweep_case made;
  made.group = on_event == event_ignored ? "indication" : "demo client's callback";
  made.name = name;
  made.toml = "board.noise_db = 0\nlocation.capabilities_ms = 0\nlocation.fix_ms = 0\nlocation.batch = 1\n";
  made.before = up_and_subscribed();
  made.states = [](int32_t status) { return status == OX_LYN_SUCCESS; };
  made.on_event = on_event;
  return made;
}

/** A message as the modem or the mobile AP sends it, with all of its parts, or nearly so. */
sweep_case message_case(const sim_message &message, ox_lyn_user_cb_fn on_event) {
  const std::string lib = message.lib == sim_lib::nas ? "nas" : "oxmap";
  sweep_case made = indication(lib + " " + std::to_string(message.id), on_event);
  made.act = [lib, id = message.id](ox_lyn_hndl_t *) {
    for (uint64_t seed = 1; seed <= 3; seed++) {
      sim_board_post(lib, id, sim_board_sample(lib, id, seed));
    }
    return 0;
  };
  return made;
}

/** The modem goes or comes when a call of the test's own passes. */
sweep_case service_case(const std::string &modem, ox_lyn_user_cb_fn on_event) {
  sweep_case made = indication("service " + modem, on_event);
  made.toml += "[[at]]\nafter = 'yrp.release'\nmodem = '" + modem + "'\n[[at]]\nafter = 'yrp.release'\nmodem = 'up'\n";
  made.act = [](ox_lyn_hndl_t *) {
    yrp_client_release(nullptr);
    return 0;
  };
  return made;
}

bool came(std::string_view callback) {
  const std::vector<std::string> lines = sim_board_journal();
  return std::ranges::any_of(lines, [callback](const std::string &line) { return line.find(callback) != line.npos; });
}

/** A fix, with the response before it. */
sweep_case fix_case(ox_lyn_user_cb_fn on_event) {
  const operation asked = {operation_kind::get, OX_LYN_GET_LOC_SINGLE_SHOT_E};
  sweep_case made = indication("single shot", on_event);
  made.states = [asked](int32_t status) { return operation_states(asked, status); };
  made.act = [asked](ox_lyn_hndl_t *hndl) { return operation_call(asked, hndl); };
  return made;
}

/** A batch of locations, and the request for it, which is met without memory, too. */
sweep_case batch_case(ox_lyn_user_cb_fn on_event) {
  const operation asked = {operation_kind::get, OX_LYN_GET_LOC_ROUTINE_BATCHING_E};
  sweep_case made = fix_case(on_event);
  made.name = "batch";
  made.act = [asked](ox_lyn_hndl_t *hndl) {
    operation_block block;
    block.put(ox_lyn_loc_batching_req_t{5});
    ox_lyn_dm_info_t info = metric_request(asked.id, block.words.data());
    sim_board_journal_keep(true);
    const int32_t status = ox_lyn_get_info(*hndl, &info);
    while (status == OX_LYN_SUCCESS && !came("\"name\": \"batch\"")) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return status;
  };
  return made;
}

std::vector<sweep_case> all_indications() {
  std::vector<sweep_case> all;
  for (const ox_lyn_user_cb_fn on_event : {event_ignored, lyn_demo_user_cb}) {
    for (const sim_message &message : sim_messages()) {
      if (message.direction == sim_direction::indication) {
        all.push_back(message_case(message, on_event));
      }
    }
    all.push_back(service_case("down", on_event));
    all.push_back(service_case("up", on_event));
    all.push_back(fix_case(on_event));
    all.push_back(batch_case(on_event));
  }
  return all;
}

/* The demo client */

/** Answers that end each sequence of questions; a metric or control that is not here gets ones. */
const char *typed_at(const std::string &line) {
  static const std::map<std::string, const char *> answers = {
      {"47", "4\n192.0.2.1\n"},
      {"48", "1\n1\n1\n4\n192.0.2.1\n0\n192.0.2.2\n1\n5001\n5002\n"},
      {"49", "1\n1\n1\n4\n192.0.2.1\n0\n192.0.2.2\n1\n5001\n5002\n"},
      {"50", "60000\n10\n"},
      {"51", "50\n"},
  };
  const auto found = answers.find(line.substr(line.rfind(' ') + 1));
  return found != answers.end() ? found->second
                                : "1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n1\n";
}

/** An option line at the client's prompt, the answers to its questions typed. */
int32_t run_option(std::string line, ox_lyn_hndl_t *hndl) {
  std::string answers = typed_at(line);
  FILE *terminal = stdin;
  int32_t options[LYN_DEMO_MAX_OPTIONS];
  uint32_t count = 0;
  stdin = fmemopen(answers.data(), answers.size(), "r");
  lyn_demo_hndl = *hndl;
  int32_t status = lyn_demo_parse_options(line.data(), options, &count);
  if (status == 0) {
    status = lyn_demo_process_options(options, count);
  }
  *hndl = lyn_demo_hndl;
  fclose(stdin);
  stdin = terminal;
  return status;
}

/** The option of the demo client that calls an operation. */
std::string option_line(const operation &one) {
  const std::string id = std::to_string(one.id);
  switch (one.kind) {
    case operation_kind::init:
      return "1";
    case operation_kind::deinit:
      return "2";
    case operation_kind::subscribe:
      return "3 " + id + " 1";
    case operation_kind::count:
      return "4";
    case operation_kind::indications:
      return "5 8";
    case operation_kind::unsubscribe:
      return "6 " + id;
    case operation_kind::unsubscribe_all:
      return "6 1 2 3 4 5 6 7 8";
    case operation_kind::get:
      return "7 " + id;
    case operation_kind::list:
      return "8 1 " + id;
    case operation_kind::set:
      return "9 " + id;
    case operation_kind::list_all:
      return "8 1 2 3 22 23 33 34 35 36 44";
  }
  return "";
}

std::vector<sweep_case> all_options() {
  std::vector<sweep_case> all;
  for (const operation &one : operations()) {
    sweep_case made = sweep_case_of(one);
    const std::string line = option_line(one);
    made.group = "demo client's option " + line.substr(0, line.find(' '));
    made.name = line;
    made.on_event = lyn_demo_user_cb;
    made.act = [line](ox_lyn_hndl_t *hndl) { return run_option(line, hndl); };
    if (!keeps_lock(one)) {
      all.push_back(made);
    }
  }
  return all;
}

/** Lines of a script are allocated by the C library: without memory for the next one it is at its end. */
TEST(alloc_sweep_script, a_script_whose_next_line_cannot_be_allocated_ends_there) {
  tally &counted = tallies["demo client's script"];
  counted.cases++;
  for (const uint32_t times : {1U, from_there_on}) {
    bool met = true;
    for (uint32_t pass = 0; met; pass++) {
      watchdog(text_of("script, allocation ", pass));
      std::string script = "# one\n# two\n4\n";
      std::string text;
      {
        const sweep_printing elsewhere;
        FILE *file = fmemopen(script.data(), script.size(), "r");
        lyn_demo_hndl = 0;
        alloc_fault_arm(ALLOC_FAULT_ALL_THREADS, pass, times);
        EXPECT_EQ(lyn_demo_main(file), 0);
        met = alloc_fault_disarm();
        text = elsewhere.text();
      }
      EXPECT_THAT(text, testing::HasSubstr("LYN DEMO APP : "));
      (times == 1 ? counted.alone : counted.onwards) += met;
    }
  }
}

/* The lock that is kept */

/** What a run with metric 38 tells by its exit status. */
enum { ended_well = 10, ended_locked = 11, ended_badly = 12 };

/** Whether the log has it that the block of the metric could not be allocated. */
bool block_was_missing() {
  const std::vector<std::string> errors = diag_log_placed("ERROR");
  return std::ranges::find(errors, "ERROR lyn_interface_get.cpp Memory allocation failure") != errors.end();
}

/** The call of a list, which does not come back where its own entry has kept the lock: the process ends then. */
int32_t call_that_may_hang(const sweep_case &one, ox_lyn_hndl_t *hndl) {
  std::promise<int32_t> returned;
  std::future<int32_t> status = returned.get_future();
  std::thread([act = one.act, hndl, &returned] { returned.set_value(act(hndl)); }).detach();
  while (status.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
    if (block_was_missing() && status.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready) {
      alloc_fault_disarm();  // what ends the process may allocate
      exit(ended_locked);
    }
  }
  return status.get();
}

/** Runs and ends the process; nothing of the module works where it stays locked. */
[[noreturn]] void run_and_exit(const sweep_case &one, const std::string &what, uint32_t pass, uint32_t times) {
  sweep_case made = one;
  made.patience_ms = 1000;
  if (one.group == "list") {
    made.act = [&one](ox_lyn_hndl_t *to) { return call_that_may_hang(one, to); };
  }
  watchdog(made.name + ", " + what);
  ox_lyn_hndl_t hndl = 0;
  std::string wrong = sweep_prepare(made, &hndl);
  const outcome was = act_without_memory(made, &hndl, pass, times);
  if (was.locked) {
    exit(wrong.empty() && was.met && was.told && was.status == OX_LYN_SUCCESS ? ended_locked : ended_badly);
  }
  wrong += made.states(was.status) && (!was.met || was.status != made.good) ? "" : "not stated";
  wrong += sweep_prove_good(made, &hndl, was.status);
  if (was.met) {
    sweep_tried(made.name, what, text_of(was.status));
  }
  exit(wrong.empty() ? ended_well : ended_badly);
}

struct alloc_sweep_lock : testing::TestWithParam<sweep_case> {};

TEST_P(alloc_sweep_lock, metric_38_keeps_the_lock_for_the_allocation_of_its_block_alone_and_fails_with_any_other) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr uint32_t allocations = 8; /* beyond the last one */
  static int ended;                   /* how the last process did, in this one */
  const sweep_case one = GetParam();
  tally &counted = tallies[one.group];
  counted.cases++;
  for (const uint32_t times : {1U, from_there_on}) {
    size_t locked = 0;
    for (uint32_t pass = 0; pass < allocations; pass++) {
      const std::string what = allocation_text(pass, times);
      watchdog(one.name + ", " + what);
      ended = 0;
      const auto ended_as_stated = [](int status) {
        ended = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
        return ended == ended_locked || ended == ended_well;
      };
      EXPECT_EXIT(run_and_exit(one, what, pass, times), ended_as_stated, "") << what;
      if (ended == ended_locked) {
        locked++;
        sweep_tried(one.name, what, "keeps the lock");
        (times == 1 ? counted.alone : counted.onwards) += pass + 1;
      }
    }
    EXPECT_EQ(locked, 1U);
  }
}

std::vector<sweep_case> all_that_keep_the_lock() {
  std::vector<sweep_case> all;
  for (const operation &one : operations()) {
    if (keeps_lock(one)) {
      all.push_back(sweep_case_of(one));
    }
  }
  return all;
}

const auto by_name = [](const auto &test) { return sweep_test_name(test.param); };
INSTANTIATE_TEST_SUITE_P(operation, alloc_sweep, testing::ValuesIn(all_operations()), by_name);
INSTANTIATE_TEST_SUITE_P(event, alloc_sweep, testing::ValuesIn(all_indications()), by_name);
INSTANTIATE_TEST_SUITE_P(metric_38, alloc_sweep_lock, testing::ValuesIn(all_that_keep_the_lock()), by_name);
INSTANTIATE_TEST_SUITE_P(option, alloc_sweep, testing::ValuesIn(all_options()), by_name);

}  // namespace
