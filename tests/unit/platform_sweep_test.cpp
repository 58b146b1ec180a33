/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Every call of the platform goes wrong once, in every way that a fault rule of a scenario can tell: each public
 * operation is run on a board that is well, which shows what it crosses the boundary for, and then once for each of
 * these crossings and each fault: no transport, a refusal, an answer that lacks one of its parts, comes late or slowly,
 * a modem that goes or restarts just before, service that is lost just before; and indications that are lost, cut off
 * or lack a part. Each time the operation returns a status that the header states. Afterwards, with the board mended, a
 * good call succeeds, and so does the same operation if it had failed.
 *
 * Where LYN_LONG is not set, sanitizer builds try every seventh fault, and of lists of one metric, which cross the
 * boundary as the metric alone does, every third one is tried.
 */
#include <sys/wait.h>

#include <map>

#include "allocated.h"
#include "diag_service.h"
#include "sim_core.h"
#include "sim_crossing.h"
#include "sim_state.h"
#include "sweep.h"
#include "watchdog.h"

namespace {

/* Crossings */

/** One passing of the boundary: its name, and how many of that name, and of all calls, were before it. */
struct crossing {
  std::string name;
  int64_t number, of_any;
};

/** The name of what a line of the journal tells, as fault rules give it; empty: no crossing. */
std::string crossing_of(const nlohmann::json &row) {
  const std::string lib = row["lib"], dir = row["dir"];
  if (dir == "call") {
    return lib + '.' + row["name"].get<std::string>();
  }
  if (dir == "request") {
    return text_of("nas.", row["id"].get<uint32_t>());
  }
  return dir == "indication" ? text_of(lib, ".ind.", row["id"].get<uint32_t>()) : "";
}

/** All crossings so far, in their order. */
std::vector<crossing> crossings() {
  std::vector<crossing> all;
  std::map<std::string, int64_t> passed;
  int64_t calls = 0;
  for (const std::string &line : sim_board_journal()) {
    const std::string name = crossing_of(nlohmann::json::parse(line));
    if (!name.empty()) {
      const bool is_call = name.find(".ind.") == std::string::npos;
      all.push_back({name, passed[name]++, is_call ? calls++ : -1});
    }
  }
  return all;
}

/* Faults */

struct fault {
  std::string name;
  std::string rule; /**< what stands in the table behind `on` and `skip` */
};

constexpr char lost_service[] = "sys_info = { lte = 'no_service', nr5g = 'no_service', nr5g_pci = -1 }\n";

/** One for each flag that a message has, and all at once. */
void add_clears(const sim_message &message, std::vector<fault> &all) {
  std::string every;
  for (const sim_part &part : message.parts) {
    if (part.valid_name != nullptr) {
      all.push_back({text_of("without ", part.valid_name), text_of("clear = ['", part.valid_name, "']\n")});
      every += text_of("'", part.valid_name, "', ");
    }
  }
  if (!every.empty()) {
    all.push_back({"without any part", "clear = [" + every + "]\n"});
  }
}

/** What can go wrong with a crossing of this name. */
std::vector<fault> faults_of(const std::string &name) {
  std::vector<fault> all = {{"fails", ""},
                            {"fails from then on", "times = -1\n"},
                            {"fails with a code of its own", "transport = -77\n"},
                            {"slow", "delay_ms = 1\n"},
                            {"modem down", "modem = 'down'\n"},
                            {"modem restarts", "modem = 'restart'\n"},
                            {"service lost", lost_service}};
  const sim_message *message = sim_crossing_message(name);
  if (message == nullptr) {
    all.push_back({"refused", "result = 1\nerror = 33\n"});
    return all;
  }
  add_clears(*message, all);
  if (message->direction == sim_direction::indication) {
    for (const int octets : {0, 1, 4, 9}) {
      all.push_back({text_of("cut to ", octets), text_of("truncate = ", octets, "\n")});
    }
    return all;
  }
  all.push_back({"refused", "result = 1\nerror = 46\n"});
  all.push_back({"refused without a reason", "result = 1\nerror = 0\n"});
  all.push_back({"late", "late = true\n"});
  all.push_back({"late from then on", "times = -1\nlate = true\n"});
  return all;
}

/** Whether so many passed, and one more. */
bool has_passed(const std::string &on, int64_t skip) {
  const std::lock_guard guard(sim_lock());
  return sim_board_raw().passings[on].entered > skip;
}

std::string rule_text(const std::string &on, int64_t skip, const std::string &effect) {
  return text_of("[[fault]]\non = '", on, "'\nskip = ", skip, "\n", effect);
}

/** A list of services that is never there is waited for without end, as the header says. */
bool waits_for_ever(const crossing &at, const fault &what) {
  return at.name == "yrp.get_service_list" && what.name == "fails from then on";
}

/* Runs */

struct tally {
  size_t cases = 0, crossings = 0, faults = 0, failed = 0;
};
std::map<std::string, tally> tallies;

/** What was done, in the end. */
struct summary : testing::Environment {
  void TearDown() override {
    constexpr char row[] = "%-24s %9zu %9zu %9zu %9zu\n";
    printf("%-24s %9s %9s %9s %9s\n", "faults below", "cases", "crossings", "faults", "failed");
    tally sum;
    for (const auto &[group, counted] : tallies) {
      printf(row, group.c_str(), counted.cases, counted.crossings, counted.faults, counted.failed);
      sum.cases += counted.cases;
      sum.crossings += counted.crossings;
      sum.faults += counted.faults;
      sum.failed += counted.failed;
    }
    printf(row, "in all", sum.cases, sum.crossings, sum.faults, sum.failed);
  }
};
testing::Environment *const printed_summary = testing::AddGlobalTestEnvironment(new summary);

/** Nothing goes wrong any more; the modem is up, with the settings and the service that the case's board had. */
void mend_board(const sweep_case &one) {
  std::string error;
  const std::optional<sim_scenario> well = sim_scenario_parse(one.toml, "", ".", error);
  const std::lock_guard guard(sim_lock());
  sim_board_raw().scenario.fault.clear();
  sim_nas_reset();
  sim_ev_change change;
  change.sys_info = true;
  change.apply = [&well](sim_radio &radio) { radio.sys_info = well->radio.sys_info; };
  sim_timeline_happen(change);
  sim_timeline_happen(sim_ev_modem{true});
}

/** Run the case on its board with `rules` besides, which are to be met; then mend the board, and all has to work. */
void run(const sweep_case &one, const std::string &what, const std::string &rules,
         const std::function<bool()> &met = {}) {
  SCOPED_TRACE(one.name + ": " + what + '\n' + rules);
  watchdog(one.name + ": " + what);
  sweep_case faulty = one;
  faulty.toml += rules;
  ox_lyn_hndl_t hndl = 0;
  EXPECT_EQ(sweep_prepare(faulty, &hndl), "");
  int32_t status;
  bool was_met;
  {
    const sweep_printing elsewhere;
    status = faulty.act(&hndl);
    sweep_settle();
    was_met = !met || met();
    mend_board(one);
    sweep_settle();
  }
  EXPECT_TRUE(was_met);
  const bool stated = one.states(status) && status != OX_LYN_ERR_NO_MEMORY; /* of which there is enough */
  EXPECT_TRUE(stated) << status;
  EXPECT_EQ(sweep_prove_good(one, &hndl, status), "");
  std::string line = what;
  std::ranges::replace(line, '\n', ' ');
  sweep_tried(one.name, line, text_of(status, stated ? "" : " is not stated"));
  tally &counted = tallies[one.group];
  counted.faults++;
  counted.failed += status != one.good;
}

/** What the case has crossed the boundary for when it begins, on a board that is well. It goes on as `rest` says. */
std::vector<crossing> crossings_until(const sweep_case &one, const std::function<void(ox_lyn_hndl_t *)> &rest = {}) {
  watchdog(one.name);
  ox_lyn_hndl_t hndl = 0;
  sim_board_journal_keep(true);
  EXPECT_EQ(sweep_prepare(one, &hndl), "");
  std::vector<crossing> all = crossings();
  if (rest) {
    rest(&hndl);
  }
  sim_board_journal_keep(false);
  EXPECT_EQ(sweep_prove_good(one, &hndl, one.good), "");
  return all;
}

/** What it crosses the boundary for itself. */
std::vector<crossing> crossings_of(const sweep_case &one) {
  std::vector<crossing> all;
  int32_t status = one.good;
  const auto act = [&](ox_lyn_hndl_t *hndl) {
    const sweep_printing elsewhere;
    status = one.act(hndl);
    sweep_settle();
    all = crossings();
  };
  const size_t before = crossings_until(one, act).size();
  EXPECT_EQ(status, one.good);
  all.erase(all.begin(), all.begin() + static_cast<ptrdiff_t>(before));
  return all;
}

/** Which of many are tried: all of them where that is wanted, else of each group so many, others in each case. */
bool is_turn(const std::string &group) {
  static const bool all = getenv("LYN_LONG") != nullptr && *getenv("LYN_LONG") != '\0';
  static std::map<std::string, size_t> turns;
  const size_t of = ALLOCATED_SANITIZED != 0 ? 7 : group == "list" ? 3 : 1;
  return all || ++turns[group] % of == 0;
}

/** The case with one fault at a crossing, in its turn. */
void run_in_turn(const sweep_case &one, const std::string &on, int64_t skip, const fault &what) {
  if (is_turn(one.group)) {
    run(one, text_of(on == sim_crossing_any ? "call" : on, " ", skip, " ", what.name), rule_text(on, skip, what.rule),
        [&] { return has_passed(on, skip); });
  }
}

/** Each fault at each crossing, and a modem that restarts before each call, counted among all. */
void sweep(const sweep_case &one) {
  tally &counted = tallies[one.group];
  counted.cases++;
  for (const crossing &at : crossings_of(one)) {
    counted.crossings++;
    for (const fault &what : faults_of(at.name)) {
      if (!waits_for_ever(at, what)) {
        run_in_turn(one, at.name, at.number, what);
      }
    }
    if (at.of_any >= 0) {
      run_in_turn(one, sim_crossing_any, at.of_any, {"modem restarts", "modem = 'restart'\n"});
    }
  }
  watchdog("the next case");
}

struct platform_sweep : testing::TestWithParam<sweep_case> {};

TEST_P(platform_sweep, each_fault_has_a_stated_outcome) {
  sweep(GetParam());
}

/** Every operation; the first start of a process is another matter. */
std::vector<sweep_case> all_operations() {
  std::vector<sweep_case> all;
  for (const operation &one : operations()) {
    all.push_back(sweep_case_of(one));
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(operation, platform_sweep, testing::ValuesIn(all_operations()),
                         [](const auto &test) { return sweep_test_name(test.param); });

/* Boards that are well and give no service, or answers of another kind */

/** The case on another board, where what comes before it may fail, too. */
void run_on(sweep_case one, const std::string &what, const std::string &toml) {
  one.toml = toml;
  one.again = false;
  if (one.before.size() > 1) {
    one.act = [before = one.before, act = one.act](ox_lyn_hndl_t *hndl) {
      for (size_t i = 1; i < before.size(); i++) {
        operation_call(before[i], hndl);
      }
      return act(hndl);
    };
    one.before.resize(1);
  }
  run(one, what, "");
}

TEST(platform_sweep_boards, each_operation_has_a_stated_outcome_at_each_registration_status) {
  for (const sweep_case &one : all_operations()) {
    for (uint32_t status = OX_LYN_REG_NO_SERVICE_E; status <= OX_LYN_REG_NR5G_E; status++) {
      run_on(one, text_of("registration status ", status), operation_board(status));
    }
  }
}

/** What the receiver and the mobile AP can also do. */
constexpr const char *other_answers[] = {
    "location.response = 1\n",
    "location.response = 2\nlocation.fix_when_refused = true\nlocation.fix_ms = 0\n",
    "location.response = 3\n",
    "location.response = 4\nlocation.fix_ms = 0\n",
    "location.response = 4294967295\n",
    "location.fix_ms = -1\n",
    "location.fix_ms = 0\nlocation.repeat_fix = 3\n",
    "location.late_ms = 2\n",
    "location.batch = 0\n",
    "location.batch = 300\nlocation.batch_status = 1\n",
    "location.batch_status = 0\n",
    "location.batch_status = 2\n",
    "location.batch_status = -7\n",
    "location.capabilities = 0\n",
    "mtpe.duration_ms = 1\nmtpe.result = 'completed'\n",
    "mtpe.duration_ms = 1\nmtpe.result = 'failed'\n",
    "mtpe.duration_ms = 1\nmtpe.result = 'aborted'\n",
    "scan.status = 1\n",
    "wwan.profile = []\n",
    "wwan.profile = [{}, {}]\n",
};

/** Operations that start what these answer, and stop it. */
bool is_answered_later(const operation &one) {
  constexpr uint32_t metrics[] = {OX_LYN_GET_LTE_NBR_EARFCN_E,     OX_LYN_GET_NR5G_NBR_EARFCN_E,
                                  OX_LYN_GET_WWAN_PROFILE_INDEX_E, OX_LYN_GET_IPV4_STATS_E,
                                  OX_LYN_GET_IPV6_STATS_E,         OX_LYN_GET_MTPE_LTE_INFO_E,
                                  OX_LYN_GET_LOC_SINGLE_SHOT_E,    OX_LYN_GET_LOC_ROUTINE_BATCHING_E};
  return (one.kind == operation_kind::get && std::ranges::find(metrics, one.id) != std::end(metrics)) ||
         !operation_before(one).empty();
}

TEST(platform_sweep_boards, each_request_that_is_answered_later_has_a_stated_outcome_whatever_the_answer) {
  for (const operation &one : operations()) {
    for (const char *answer : other_answers) {
      sweep_case made = sweep_case_of(one);
      if (is_answered_later(one)) {
        made.act = [act = made.act](ox_lyn_hndl_t *hndl) {
          const int32_t status = act(hndl);
          std::this_thread::sleep_for(std::chrono::milliseconds(5)); /* what comes a little later */
          return status;
        };
        run_on(made, answer, answer + operation_board(one));
      }
    }
  }
}

/* Indications */

/** A message as it is sent, with all or nearly all of its parts. */
std::vector<uint8_t> sample(const sim_message &message) {
  std::vector<uint8_t> longest;
  for (uint64_t seed = 0; seed < 20; seed++) {
    std::vector<uint8_t> bytes = sim_board_sample(message.lib == sim_lib::nas ? "nas" : "oxmap", message.id, seed);
    if (bytes.size() > longest.size()) {
      longest = std::move(bytes);
    }
  }
  return longest;
}

bool decodes(const sim_message &message, const std::vector<uint8_t> &bytes) {
  std::vector<uint64_t> record(message.size / sizeof(uint64_t) + 1); /* aligned for any struct */
  return sim_message_decode(message, bytes.data(), bytes.size(), record.data()) == YRP_NO_ERR;
}

std::string hexadecimal(const std::vector<uint8_t> &bytes) {
  std::string digits;
  for (const uint8_t octet : bytes) {
    constexpr char of[] = "0123456789abcdef";
    digits += {of[octet >> 4], of[octet & 15]};
  }
  return digits;
}

/** An entry that sends the bytes when a call of the test's own passes. */
std::string raw_entry(const sim_message &message, const std::vector<uint8_t> &bytes) {
  return text_of("[[at]]\nafter = 'diag.Diag_LSM_Init'\nskip = 1\nraw = { lib = '",
                 message.lib == sim_lib::nas ? "nas" : "oxmap", "', id = ", message.id, ", bytes = '",
                 hexadecimal(bytes), "' }\n");
}

/** The module with all subscribed; then a call of the test's own passes. */
sweep_case sending_case(const sim_message &message) {
  sweep_case one;
  one.group = "indication";
  one.name = sim_crossing_indication(message.lib, message.id);
  one.toml = operation_board(OX_LYN_REG_LTE_NR5G_E);
  one.before = {{operation_kind::init}};
  for (uint32_t indication = 1; indication <= OPERATION_LAST_SUBSCRIBED; indication++) {
    one.before.push_back({operation_kind::subscribe, indication});
  }
  one.act = [](ox_lyn_hndl_t *) {
    diag_log_take();
    Diag_LSM_Init(nullptr);
    return 0;
  };
  one.states = [](int32_t status) { return status == OX_LYN_SUCCESS; };
  return one;
}

/** How many of its indications come before. */
int64_t sent_before(const sweep_case &one) {
  int64_t sent = 0;
  for (const crossing &at : crossings_until(one)) {
    sent += at.name == one.name;
  }
  return sent;
}

/** Lines of the log at error level, once the entries and rules were met. */
size_t errors_of(const sweep_case &one, const std::string &what, const std::string &rules) {
  size_t errors = 0;
  sweep_case counts = one;
  counts.act = [&errors, act = one.act](ox_lyn_hndl_t *hndl) {
    const int32_t status = act(hndl);
    sweep_settle();
    errors = diag_log_texts("ERROR").size();
    return status;
  };
  run(counts, what, rules);
  return errors;
}

struct indication {
  const sim_message *message;
};

std::ostream &operator<<(std::ostream &out, const indication &one) {
  return out << sim_crossing_indication(one.message->lib, one.message->id);
}

struct platform_sweep_indication : testing::TestWithParam<indication> {};

TEST_P(platform_sweep_indication, each_cut_and_each_wrong_octet_is_logged_or_tolerated) {
  const sim_message &message = *GetParam().message;
  const std::vector<uint8_t> whole = sample(message);
  const sweep_case one = sending_case(message);
  const int64_t before = sent_before(one);
  std::string cuts, wrongs;
  size_t bad_cuts = 0, bad_wrongs = 0;
  for (size_t at = 0; at < whole.size(); at++) {
    const std::vector<uint8_t> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(at));
    std::vector<uint8_t> wrong = whole;
    wrong[at] ^= 0xFF;
    cuts += raw_entry(message, whole) +
            rule_text(one.name, before + static_cast<int64_t>(at), text_of("truncate = ", at, "\n"));
    wrongs += raw_entry(message, wrong);
    bad_cuts += !decodes(message, cut);
    bad_wrongs += !decodes(message, wrong);
  }
  tallies[one.group].cases++;
  EXPECT_GT(bad_cuts + bad_wrongs, 0U);
  EXPECT_GE(errors_of(one, text_of("cut at each of ", whole.size(), " octets"), cuts), bad_cuts);
  EXPECT_GE(errors_of(one, text_of("each of ", whole.size(), " octets wrong"), wrongs), bad_wrongs);
}

std::vector<indication> all_indications() {
  std::vector<indication> all;
  for (const sim_message &message : sim_messages()) {
    if (message.direction == sim_direction::indication) {
      all.push_back({&message});
    }
  }
  return all;
}

INSTANTIATE_TEST_SUITE_P(of, platform_sweep_indication, testing::ValuesIn(all_indications()),
                         [](const auto &test) { return sweep_test_name(sending_case(*test.param.message)); });

/* The first start of a process */

enum { started_well = 10, started_before = 11, started_badly = 12 };

/** The first start, with a fault at the n-th of all calls; ends the process. */
[[noreturn]] void start_and_exit(const fault &what, int64_t number) {
  const sweep_case one = sweep_case_of({operation_kind::init});
  const std::string name = text_of("call ", number, " ", what.name);
  watchdog(name);
  sweep_case faulty = one;
  faulty.toml += rule_text("any", number, what.rule);
  ox_lyn_hndl_t hndl = 0;
  std::string wrong = sweep_prepare(faulty, &hndl);
  const int32_t status = one.act(&hndl);
  sweep_settle();
  const bool met = sim_board_raw().passings[sim_crossing_any].entered > number;
  mend_board(one);
  sweep_settle();
  wrong += one.states(status) && status != OX_LYN_ERR_NO_MEMORY ? "" : text_of(status, " is not stated");
  wrong += sweep_prove_good(one, &hndl, status);
  if (met) {
    sweep_tried("first init", name, wrong.empty() ? text_of(status) : wrong);
  }
  exit(!wrong.empty() ? started_badly : met ? started_well : started_before);
}

TEST(platform_sweep_first_init, a_fault_at_each_call_of_the_first_start_has_a_stated_outcome) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  constexpr int64_t calls = 20; /* and more than there are */
  const fault faults[] = {{"fails", ""},
                          {"refused", "result = 1\n"},
                          {"late", "late = true\n"},
                          {"modem down", "modem = 'down'\n"},
                          {"modem restarts", "modem = 'restart'\n"},
                          {"service lost", lost_service}};
  static size_t well, before; /* in this process, by how the others ended */
  tally &counted = tallies["first init"];
  counted.cases++;
  for (const fault &what : faults) {
    for (int64_t number = 0; number < calls; number++) {
      if (!is_turn("first init")) {
        continue;
      }
      watchdog(text_of("first init, ", what.name, " at call ", number));
      const auto ended = [](int status) {
        well += WIFEXITED(status) && WEXITSTATUS(status) == started_well;
        before += WIFEXITED(status) && WEXITSTATUS(status) == started_before;
        return WIFEXITED(status) && (WEXITSTATUS(status) == started_well || WEXITSTATUS(status) == started_before);
      };
      EXPECT_EXIT(start_and_exit(what, number), ended, "") << what.name << " at call " << number;
    }
  }
  EXPECT_GT(well, 0U);
  EXPECT_GT(before, 0U) << "there may be more calls";
  counted.faults += well;
}

}  // namespace
