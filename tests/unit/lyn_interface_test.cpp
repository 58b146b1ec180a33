/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Life cycle of the module as its callers meet it, on the simulated board: what ox_lyn_init and ox_lyn_deinit check,
 * what they call and in which order, what a failure leaves behind, and how they end whatever the other threads do.
 */
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <iterator>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "board.h"

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

constexpr char not_initialised[] = "ERROR Device Manager module is not initialized!!";

/** What the user's callback does with a record before it frees it; null: nothing. */
std::atomic<void (*)()> on_record{nullptr};
std::atomic<uint32_t> records{0};

void user_cb(ox_lyn_hndl_t, ox_lyn_dm_info_t *dm_info, uint32_t) {
  records++;
  if (void (*act)() = on_record) {
    act();
  }
  free(dm_info);
}

/** What the module asked of the board: "lib.name" of calls, "nas.id" of requests. */
std::vector<std::string> crossings() {
  std::vector<std::string> names;
  for (const std::string &line : sim_board_journal()) {
    const auto row = nlohmann::json::parse(line);
    const std::string lib = row["lib"];
    if (row["dir"] == "request") {
      names.push_back(lib + "." + std::to_string(row["id"].get<int>()));
    } else if (row["dir"] == "call" && row["name"] != "message_decode") {  // on the threads of the indications
      names.push_back(lib + "." + row["name"].get<std::string>());
    }
  }
  return names;
}

size_t times_called(const std::string &name) {
  return static_cast<size_t>(std::ranges::count(crossings(), name));
}

/** Whether the last that happened to the mobile AP client is its end; a new one takes the place of an old one. */
bool mobile_ap_is_taken_down() {
  std::string last;
  for (const std::string &name : crossings()) {
    if (name.starts_with("oxmap.")) {
      last = name;
    }
  }
  return last == "oxmap.~OXMAP_Client";
}

std::string handle_text(ox_lyn_hndl_t hndl) {
  char text[32];
  snprintf(text, sizeof text, "%p", reinterpret_cast<void *>(static_cast<uintptr_t>(hndl)));
  return hndl == 0 ? "(nil)" : text;
}

struct lyn_interface : testing::Test {
  ox_lyn_hndl_t hndl = 0;

  /** A fresh board at rest with `toml` behind it; log and journal begin here. */
  static void board(const std::string &toml = "") {
    board_load(toml);
    diag_log_lines();
  }

  int32_t init() { return ox_lyn_init(&hndl, 7, user_cb); }

  /** Up on a fresh board, with log and journal forgotten. */
  void up(const std::string &toml = "") {
    board(toml);
    ASSERT_EQ(init(), OX_LYN_SUCCESS);
    ASSERT_TRUE(sim_board_wait_idle(5000));
    forget();
  }

  static void forget() {
    diag_log_lines();
    sim_board_journal_keep(true);
  }

  void subscribe_modem_status() {
    ox_lyn_dm_ind_info_t ind = {};
    ind.record_type = OX_LYN_RECORD_IND_E;
    ind.indication = OX_LYN_IND_MODEM_STATUS_E;
    ASSERT_EQ(ox_lyn_set_ind_info(hndl, &ind), OX_LYN_SUCCESS);
  }

  void SetUp() override {
    on_record = nullptr;
    records = 0;
  }

  /** Whatever a test left: half a teardown is mended by a start and a stop. */
  void TearDown() override {
    if (ox_lyn_deinit(hndl) == OX_LYN_ERR_NOT_INITIALIZED && init() == OX_LYN_SUCCESS) {
      ox_lyn_deinit(hndl);
    }
    diag_log_lines();
  }
};

int32_t post_modem_status() {
  return lyn_post_async_event(LYN_EVENT_MODEM_DOWN, calloc(1, 1));
}

size_t threads_of_this_process() {
  namespace fs = std::filesystem;
  return static_cast<size_t>(std::distance(fs::directory_iterator("/proc/self/task"), fs::directory_iterator()));
}

bool is_long_run() {
  const char *wanted = getenv("LYN_LONG");
  return wanted != nullptr && *wanted != '\0';
}

/** Every operation but ox_lyn_init, with arguments that are good where the handle is. */
struct operation {
  const char *name;
  int32_t (*call)(ox_lyn_hndl_t hndl);
};

const operation operations[] = {
    {"ox_lyn_deinit", ox_lyn_deinit},
    {"ox_lyn_get_info",
     [](ox_lyn_hndl_t hndl) {
       ox_lyn_dm_info_t info = {};
       info.record_type = OX_LYN_RECORD_GET_E;
       info.metric = OX_LYN_GET_REG_STATUS_E;
       return ox_lyn_get_info(hndl, &info);
     }},
    {"ox_lyn_get_info_list",
     [](ox_lyn_hndl_t hndl) {
       ox_lyn_dm_info_t info = {};
       info.record_type = OX_LYN_RECORD_GET_E;
       info.metric = OX_LYN_GET_REG_STATUS_E;
       return ox_lyn_get_info_list(hndl, &info, 1);
     }},
    {"ox_lyn_set_info",
     [](ox_lyn_hndl_t hndl) {
       ox_lyn_dm_ctrl_info_t ctrl = {};
       return ox_lyn_set_info(hndl, &ctrl);
     }},
    {"ox_lyn_set_ind_info",
     [](ox_lyn_hndl_t hndl) {
       ox_lyn_dm_ind_info_t ind = {};
       ind.record_type = OX_LYN_RECORD_IND_E;
       ind.indication = OX_LYN_IND_MODEM_STATUS_E;
       return ox_lyn_set_ind_info(hndl, &ind);
     }},
    {"ox_lyn_get_ind_count",
     [](ox_lyn_hndl_t hndl) {
       uint32_t count = 0;
       return ox_lyn_get_ind_count(hndl, &count);
     }},
    {"ox_lyn_get_ind_list",
     [](ox_lyn_hndl_t hndl) {
       uint32_t list[1] = {};
       return ox_lyn_get_ind_list(hndl, list, 1);
     }},
    {"ox_lyn_clear_ind_list",
     [](ox_lyn_hndl_t hndl) {
       uint32_t list[1] = {OX_LYN_IND_MODEM_STATUS_E};
       return ox_lyn_clear_ind_list(hndl, list, 1);
     }},
};

/* Arguments, order, handle */

TEST_F(lyn_interface, init_refuses_null_arguments_and_asks_nothing_of_the_board) {
  board();
  EXPECT_EQ(ox_lyn_init(nullptr, 0, user_cb), OX_LYN_ERR_INVALID_PARAM);
  char with_cb[96];
  snprintf(with_cb, sizeof with_cb, "ERROR Invalid params - hndl[(nil)], user_cb_fn[%p]",
           reinterpret_cast<void *>(user_cb));
  EXPECT_THAT(diag_log_lines(), ElementsAre(with_cb));

  hndl = 5;
  EXPECT_EQ(ox_lyn_init(&hndl, 0, nullptr), OX_LYN_ERR_INVALID_PARAM);
  char with_hndl[96];
  snprintf(with_hndl, sizeof with_hndl, "ERROR Invalid params - hndl[%p], user_cb_fn[(nil)]",
           static_cast<void *>(&hndl));
  EXPECT_THAT(diag_log_lines(), ElementsAre(with_hndl));
  EXPECT_EQ(hndl, 5U);
  EXPECT_THAT(crossings(), IsEmpty());
}

TEST_F(lyn_interface, init_and_deinit_call_the_board_in_their_order) {
  board();
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_THAT(crossings(),
              ElementsAre("diag.Diag_LSM_Init", "yrp.nas_get_service_object_internal_v01", "yrp.notifier_init",
                          "yrp.get_service_list", "yrp.get_service_list", "yrp.register_notify_cb",
                          "yrp.nas_get_service_object_internal_v01", "yrp.init_instance", "nas.3", "oxmap.OXMAP_Client",
                          "oxmap.IsReady", "oxmap.EnableMobileAP_Ext", "nas.77", "location.LocationClientApi"));
  EXPECT_THAT(diag_log_lines(), Contains("HIGH Device Manager module successfully initialized!!"));
  ASSERT_TRUE(sim_board_wait_idle(5000));
  forget();

  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  EXPECT_THAT(crossings(),
              ElementsAre("yrp.release", "yrp.release", "location.~LocationClientApi", "diag.Diag_LSM_DeInit"))
      << "the mobile AP client is never taken down: deliberate";
  EXPECT_EQ(diag_log_lines().back(), "HIGH Device Manager module successfully de-initialized!!");
}

TEST_F(lyn_interface, first_handle_of_a_process_is_the_first_value_of_rand) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");  // a process that has not drawn any yet
  const auto draw = [] {
    ox_lyn_hndl_t first = 0;
    if (ox_lyn_init(&first, 0, user_cb) != OX_LYN_SUCCESS) {
      _exit(1);
    }
    srand(1);  // what an unseeded rand() starts from
    _exit(first == static_cast<ox_lyn_hndl_t>(rand()) ? 0 : 2);
  };
  EXPECT_EXIT(draw(), testing::ExitedWithCode(0), "");
}

TEST_F(lyn_interface, second_init_is_refused_and_the_first_handle_stays_valid) {
  up();
  ox_lyn_hndl_t second = 3;
  EXPECT_EQ(ox_lyn_init(&second, 0, user_cb), OX_LYN_ERR_ALREADY_INITIALIZED);
  EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Device Mmanager module already initialized!!"));
  EXPECT_THAT(crossings(), IsEmpty());
  EXPECT_EQ(second, 3U);
  uint32_t count = 9;
  EXPECT_EQ(ox_lyn_get_ind_count(hndl, &count), OX_LYN_SUCCESS);
  EXPECT_EQ(count, 0U);
}

TEST_F(lyn_interface, of_two_inits_at_once_one_succeeds) {
  board();
  for (int round = 0; round < 20; round++) {
    int32_t statuses[2];
    ox_lyn_hndl_t handles[2] = {};
    std::thread other([&] { statuses[1] = ox_lyn_init(&handles[1], 0, user_cb); });
    statuses[0] = ox_lyn_init(&handles[0], 0, user_cb);
    other.join();
    EXPECT_THAT(statuses, testing::UnorderedElementsAre(OX_LYN_SUCCESS, OX_LYN_ERR_ALREADY_INITIALIZED));
    ASSERT_EQ(ox_lyn_deinit(handles[0] != 0 ? handles[0] : handles[1]), OX_LYN_SUCCESS);
  }
}

TEST_F(lyn_interface, deinit_refuses_every_handle_but_its_own) {
  up();
  const ox_lyn_hndl_t own = hndl;
  for (const ox_lyn_hndl_t wrong : {0U, own + 1, ~own}) {
    EXPECT_EQ(ox_lyn_deinit(wrong), OX_LYN_ERR_INVALID_PARAM);
    EXPECT_THAT(diag_log_lines(), ElementsAre("ERROR Invalid params - hndl[" + handle_text(wrong) + "]"));
  }
  EXPECT_THAT(crossings(), IsEmpty());

  ASSERT_EQ(ox_lyn_deinit(own), OX_LYN_SUCCESS);
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  ASSERT_NE(hndl, own);
  EXPECT_EQ(ox_lyn_deinit(own), OX_LYN_ERR_INVALID_PARAM) << "a stale handle of the life before";
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface, after_deinit_every_operation_refuses_any_handle_as_invalid) {
  up();
  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  forget();
  for (const operation &each : operations) {
    for (const ox_lyn_hndl_t any : {hndl, 0U, 1U}) {
      EXPECT_EQ(each.call(any), OX_LYN_ERR_INVALID_PARAM) << each.name;
      EXPECT_THAT(diag_log_lines(), ElementsAre(StartsWith("ERROR Invalid params - hndl[" + handle_text(any) + "]")))
          << each.name;
    }
  }
  EXPECT_THAT(crossings(), IsEmpty());
}

TEST_F(lyn_interface, before_the_first_init_every_operation_refuses_any_handle_as_invalid) {
  for (const operation &each : operations) {
    EXPECT_EQ(each.call(0), OX_LYN_ERR_INVALID_PARAM) << each.name;
    EXPECT_EQ(each.call(1), OX_LYN_ERR_INVALID_PARAM) << each.name;
  }
}

/* Starts that fail */

struct failed_start {
  const char *name;
  const char *fault; /**< the [[fault]] that makes it fail once */
  std::vector<std::string> errors;
  const char *console; /**< what goes to standard output all the same */
  size_t nas_releases; /**< handles of the NAS client released on the way out */
  bool nas_is_left_up; /**< a retry finds the NAS client connected */
};

struct lyn_interface_failed_start : lyn_interface, testing::WithParamInterface<failed_start> {};

TEST_P(lyn_interface_failed_start, leaves_the_module_down_and_can_be_repeated) {
  const failed_start &expected = GetParam();
  board(std::string("[[fault]]\n") + expected.fault);
  hndl = 5;
  testing::internal::CaptureStdout();
  EXPECT_EQ(init(), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected.console);
  EXPECT_EQ(hndl, 5U) << "no handle is given out";

  std::vector<std::string> errors;
  for (const diag_log_record &record : diag_log_take()) {
    if (record.level == "ERROR") {
      errors.push_back(record.text);
    }
  }
  EXPECT_EQ(errors, expected.errors);
  EXPECT_EQ(times_called("yrp.release"), expected.nas_releases);
  EXPECT_FALSE(mobile_ap_is_taken_down());
  EXPECT_EQ(times_called("diag.Diag_LSM_DeInit"), 0U);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_ERR_INVALID_PARAM) << "the module is down";
  EXPECT_EQ(post_modem_status(), OX_LYN_ERR_FAILURE);

  forget();
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_EQ(times_called("yrp.init_instance"), expected.nas_is_left_up ? 0U : 1U);
  EXPECT_EQ(times_called("yrp.notifier_init"), expected.nas_is_left_up ? 0U : 1U);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

constexpr char ap_enabled[] = "\nMobileAP Enable succeeds.";

const failed_start failed_starts[] = {
    {"no_service_object",
     "on = \"yrp.nas_get_service_object_internal_v01\"\n",
     {"NAS service object is not available!"},
     "",
     0,
     false},
    {"no_service_object_for_the_client",
     "on = \"yrp.nas_get_service_object_internal_v01\"\nskip = 1\n",
     {"YRP NAS service object not available"},
     "",
     1,
     false},
    {"no_notifier",
     "on = \"yrp.notifier_init\"\n",
     {"Initializing notifier with a service object failed with status[-1]"},
     "",
     0,
     false},
    {"no_service_list",
     "on = \"yrp.get_service_list\"\nskip = 1\ntransport = -7\n",
     {"Retrieving YRP NAS service list failed with status[-7]"},
     "",
     1,
     false},
    {"no_service_events",
     "on = \"yrp.register_notify_cb\"\n",
     {"Registering callback for YRP NAS service events failed with status[-1]"},
     "",
     1,
     false},
    {"no_instance",
     "on = \"yrp.init_instance\"\n",
     {"YRP NAS client initialization failed with status[-1]"},
     "",
     1,
     false},
    {"registration_is_refused",
     "on = \"nas.3\"\nresult = 1\nerror = 46\n",
     {"YRP NAS indication register request failed - error[0], response[1/46]"},
     "",
     2,
     false},
    {"registration_is_not_sent",
     "on = \"nas.3\"\ntransport = -4\n",
     {"YRP NAS indication register request failed - error[-4], response[0/0]"},
     "",
     2,
     false},
    {"no_mobile_ap_client", "on = \"oxmap.OXMAP_Client\"\n", {}, "\nCouldn't setup OxMapClient..exiting", 0, true},
    {"mobile_ap_is_not_ready", "on = \"oxmap.IsReady\"\n", {}, "\nCouldn't setup OxMapClient..exiting", 0, true},
    {"mobile_ap_is_not_enabled",
     "on = \"oxmap.EnableMobileAP_Ext\"\nerror = 26\n",
     {},
     "\nMobileAP Enable fails, Error: 0x1a",
     0,
     true},
    {"no_system_information",
     "on = \"nas.77\"\nresult = 1\nerror = 3\n",
     {"Retrieving system info failed - error[0], response[1/3]"},
     ap_enabled,
     2,
     false},
};

INSTANTIATE_TEST_SUITE_P(by_fault, lyn_interface_failed_start, testing::ValuesIn(failed_starts),
                         [](const auto &row) { return row.param.name; });

TEST_F(lyn_interface, refused_diagnostic_service_is_reported_with_perror_and_the_start_goes_on) {
  board("[[fault]]\non = \"diag.Diag_LSM_Init\"\n");
  testing::internal::CaptureStderr();
  EXPECT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), testing::MatchesRegex("Diag initialization failed!!: [^\n]+\n"));
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface, init_seeds_the_network_status) {
  up("[sys_info]\nlte = \"limited\"\nnr5g_pci = -1\n");
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = OX_LYN_GET_LTE_SERV_RSRP_E;
  EXPECT_EQ(ox_lyn_get_info(hndl, &info), OX_LYN_ERR_SERVICE_UNAVAILABLE);
  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  up("[sys_info]\nlte = \"service\"\n");
  EXPECT_EQ(ox_lyn_get_info(hndl, &info), OX_LYN_SUCCESS);
}

TEST_F(lyn_interface, init_waits_until_the_service_is_offered) {
  board("[nas]\navailable_after_ms = 30\n");
  EXPECT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_GE(times_called("yrp.yrp_cci_os_signal_wait"), 1U) << "an old signal may let one wait through";
  EXPECT_THAT(diag_log_lines(), Contains(StartsWith("ERROR Retrieving YRP NAS service list failed with status[")));
}

/* Stops that fail */

struct failed_stop {
  const char *name;
  const char *fault;
  const char *error;
};

struct lyn_interface_failed_stop : lyn_interface, testing::WithParamInterface<failed_stop> {};

TEST_P(lyn_interface_failed_stop, counts_as_down_until_the_next_init) {
  up(std::string("[[fault]]\n") + GetParam().fault);
  const size_t threads = threads_of_this_process();
  const ox_lyn_hndl_t first = hndl;
  EXPECT_EQ(ox_lyn_deinit(first), OX_LYN_ERR_FAILURE);
  EXPECT_THAT(diag_log_lines(), ElementsAre(std::string("ERROR ") + GetParam().error));
  EXPECT_EQ(times_called("diag.Diag_LSM_DeInit"), 0U);

  for (const operation &each : operations) {
    EXPECT_EQ(each.call(first), OX_LYN_ERR_NOT_INITIALIZED) << each.name;
    EXPECT_THAT(diag_log_lines(), ElementsAre(not_initialised)) << each.name;
    EXPECT_EQ(each.call(first + 1), OX_LYN_ERR_INVALID_PARAM) << each.name;
    diag_log_lines();
  }
  EXPECT_EQ(post_modem_status(), OX_LYN_ERR_FAILURE);
  EXPECT_EQ(records, 0U);

  forget();
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  EXPECT_NE(hndl, first);
  EXPECT_EQ(threads_of_this_process(), threads) << "the command thread of before is joined, one takes its place";
  EXPECT_EQ(ox_lyn_deinit(first), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
  EXPECT_EQ(times_called("yrp.release"), 2U) << "notifier and client";
  EXPECT_EQ(threads_of_this_process(), threads - 1);
}

TEST_P(lyn_interface_failed_stop, leaves_a_module_that_hears_of_a_restart_of_the_modem_after_the_next_init) {
  up(std::string("[[at]]\nafter = \"nas.108\"\nmodem = \"down\"\n[[at]]\nafter = \"nas.108\"\nms = 10\n") +
     "modem = \"up\"\n[[fault]]\n" + GetParam().fault);
  ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_ERR_FAILURE);
  ASSERT_EQ(init(), OX_LYN_SUCCESS);
  diag_log_lines();
  subscribe_modem_status();
  for (int ms = 0; ms < 5000 && records < 2; ms++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(records, 2U);
  EXPECT_TRUE(sim_board_wait_idle(5000));
  const std::vector<std::string> log = diag_log_lines({"lyn_yrp_nas.cpp"});
  EXPECT_EQ(std::ranges::count(log, "HIGH SSR - Modem down indication event[1]"), 1) << "each is heard of once";
  EXPECT_EQ(std::ranges::count(log, "HIGH SSR - Modem up indication event[0]"), 1);
}

const failed_stop failed_stops[] = {
    {"notifier_is_not_released", "on = \"yrp.release\"\n",
     "Releasing the YRP NAS notifier handle failed with status[-1]"},
    {"client_is_not_released", "on = \"yrp.release\"\nskip = 1\ntransport = -9\n",
     "Releasing the YRP NAS client handle failed with status[-9]"},
};

INSTANTIATE_TEST_SUITE_P(by_fault, lyn_interface_failed_stop, testing::ValuesIn(failed_stops),
                         [](const auto &row) { return row.param.name; });

/* Stops while other threads are at work */

/** A callback that waits until it is let go. */
struct gate {
  std::mutex lock;
  std::condition_variable changed;
  bool entered = false, open = false;

  void pass() {
    std::unique_lock guard(lock);
    entered = true;
    changed.notify_all();
    changed.wait(guard, [this] { return open; });
  }
  void wait_entered() {
    std::unique_lock guard(lock);
    changed.wait(guard, [this] { return entered; });
  }
  void let_go() {
    const std::lock_guard guard(lock);
    open = true;
    changed.notify_all();
  }
};

gate *callback_gate;

TEST_F(lyn_interface, init_checks_its_arguments_before_it_takes_the_lock) {
  up();
  subscribe_modem_status();
  gate running;
  callback_gate = &running;
  on_record = [] { callback_gate->pass(); };
  ASSERT_EQ(post_modem_status(), OX_LYN_SUCCESS);
  running.wait_entered();  // the command thread holds the lock from here on
  auto refused = std::async(std::launch::async, [] { return ox_lyn_init(nullptr, 0, user_cb); });
  const bool returned = refused.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  running.let_go();
  EXPECT_TRUE(returned);
  EXPECT_EQ(refused.get(), OX_LYN_ERR_INVALID_PARAM);
  EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS) << "the callback leaves the gate before it goes";
}

TEST_F(lyn_interface, deinit_waits_for_the_callback_that_runs_and_none_runs_after_it) {
  up();
  subscribe_modem_status();
  gate running;
  callback_gate = &running;
  on_record = [] { callback_gate->pass(); };
  for (int i = 0; i < 200; i++) {
    ASSERT_EQ(post_modem_status(), OX_LYN_SUCCESS);
  }
  running.wait_entered();

  std::atomic<bool> returned{false};
  std::atomic<int32_t> status{1};
  std::thread stopper([&] {
    status = ox_lyn_deinit(hndl);
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_FALSE(returned) << "it cannot end before the callback";
  running.let_go();
  stopper.join();
  EXPECT_EQ(status, OX_LYN_SUCCESS);
  const uint32_t delivered = records;
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(records, delivered);
  EXPECT_GE(delivered, 1U);
  EXPECT_LE(delivered, 200U);
}

TEST_F(lyn_interface, deinit_ends_while_the_command_thread_waits_for_the_lock) {
  up("[[fault]]\non = \"nas.79\"\ntimes = -1\ndelay_ms = 30\ntransport = 0\n");
  for (int round = 0; round < 10; round++) {
    subscribe_modem_status();
    forget();
    std::thread holder([this] {
      ox_lyn_dm_info_t info = {};
      info.record_type = OX_LYN_RECORD_GET_E;
      info.metric = OX_LYN_GET_LTE_SERV_RSRP_E;
      ox_lyn_get_info(hndl, &info);
    });
    while (times_called("nas.79") == 0) {
      std::this_thread::yield();
    }
    for (int i = 0; i < 10; i++) {
      EXPECT_EQ(post_modem_status(), OX_LYN_SUCCESS);
    }
    EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    const uint32_t delivered = records;
    holder.join();
    EXPECT_EQ(records, delivered);
    ASSERT_EQ(init(), OX_LYN_SUCCESS);
  }
}

TEST_F(lyn_interface, pairs_of_init_and_deinit_end_while_others_post) {
  board("[[at]]\nms = 0\nlte = { rsrp = -90 }\n");
  std::atomic<bool> done{false};
  std::vector<std::thread> posters;
  for (int i = 0; i < 2; i++) {
    posters.emplace_back([&done] {
      while (!done) {
        (void)post_modem_status();
        std::this_thread::yield();
      }
    });
  }
  const int pairs = is_long_run() ? 1000 : 100;
  for (int i = 0; i < pairs; i++) {
    ASSERT_EQ(init(), OX_LYN_SUCCESS);
    if (i % 2 == 0) {
      subscribe_modem_status();
    }
    ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    const uint32_t delivered = records;
    std::this_thread::yield();
    ASSERT_EQ(records, delivered);
  }
  done = true;
  for (std::thread &poster : posters) {
    poster.join();
  }
}

TEST_F(lyn_interface, quick_pairs_of_init_and_deinit_leave_nothing_behind) {
  up();
  const size_t threads = threads_of_this_process();
  const int pairs = is_long_run() ? 1000 : 200;
  for (int i = 0; i < pairs; i++) {
    ASSERT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    sim_board_journal_keep(false);
    ASSERT_EQ(init(), OX_LYN_SUCCESS);
  }
  EXPECT_EQ(threads_of_this_process(), threads);
}

}  // namespace
