/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A long drive, second by second of the board's time, which takes as long as its work: all recorded drives in a loop, a
 * row a second, everything subscribed, a neighbour scan, a fix and a reading of the statistics every second, a modem
 * that restarts every hour. After each second what the callback got is what the board sent, in its order; memory,
 * threads and descriptors stay what they are.
 *
 * 1,200 seconds; with LYN_LONG as many as half a minute has room for; with LYN_SOAK=N so many, at most a day.
 * `tools/soak` runs it. LYN_DRIVES names the folder of the recorded drives; without it the tree's own are driven.
 */
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "allocated.h"
#include "drive_rows.h"
#include "mobile_board.h"

namespace {

using nlohmann::json;
using std::chrono::steady_clock;

constexpr size_t hour = 3600, day = 24 * hour;

// How long ------------------------------------------------------------------------------------------------------------

struct soak_length {
  size_t seconds;                   /* of the board's time, at most */
  steady_clock::time_point give_up; /* of the machine's */
};

soak_length length() {
  const char *seconds = getenv("LYN_SOAK"), *longer = getenv("LYN_LONG");
  if (seconds != nullptr && *seconds != '\0') {
    return {std::min<size_t>(strtoul(seconds, nullptr, 10), day), steady_clock::time_point::max()};
  }
  if (longer != nullptr && *longer != '\0') {
    return {day, steady_clock::now() + std::chrono::seconds(30)};
  }
  return {1200, steady_clock::time_point::max()};
}

// The board -----------------------------------------------------------------------------------------------------------

std::vector<std::string> drives() {
  const char *folder = getenv("LYN_DRIVES");
  if (folder == nullptr || *folder == '\0') {
    return {source_path("tests/data/drive.csv"), source_path("scenarios/motorway_drive.csv")};
  }
  std::set<std::string> found;
  for (const auto &entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".csv") {
      found.insert(entry.path());
    }
  }
  return {found.begin(), found.end()};
}

/** One drive of so many rows that has all of them, again and again. */
void write_drive(const std::string &path, size_t count) {
  std::vector<drive_row> rows;
  for (const std::string &drive : drives()) {
    std::ranges::copy(drive_rows(drive), std::back_inserter(rows));
  }
  ASSERT_FALSE(rows.empty());
  std::set<std::string> names;
  for (const drive_row &one : rows) {
    for (const auto &[name, value] : one) {
      names.insert(name);
    }
  }
  std::ofstream out(path);
  const char *before = "";
  for (const std::string &name : names) {
    out << std::exchange(before, ",") << name;
  }
  for (size_t i = 0; i < count; i++) {
    before = "\n";
    for (const std::string &name : names) {
      const auto value = rows[i % rows.size()].find(name);
      out << std::exchange(before, ",") << (value != rows[i % rows.size()].end() ? value->second : "");
    }
  }
  out << "\n";
}

/** Every second restart takes the answer of a scan with it: they come 200 ms behind the second. */
std::string restarts() {
  std::string toml;
  for (const double down : {900.1, 900.3 + hour}) {
    for (const auto &[state, at] : {std::pair("down", down), std::pair("up", down + 2.3)}) {
      toml += text_of("[[at]]\nms = ", at * 1000, "\nevery_ms = ", 2 * hour * 1000, "\nrepeat = 12\nmodem = \"", state,
                      "\"\n");
    }
  }
  return toml;
}

// What has to come ----------------------------------------------------------------------------------------------------

constexpr struct {
  uint32_t indication;
  const char *part, *member; /* null: the part is the value */
} signals[] = {{OX_LYN_IND_LTE_RSRP_E, "lte_sig_info", "rsrp"}, {OX_LYN_IND_LTE_RSRQ_E, "lte_sig_info", "rsrq"},
               {OX_LYN_IND_LTE_SINR_E, "lte_sig_info", "snr"},  {OX_LYN_IND_NR5G_RSRP_E, "nr5g_sig_info", "rsrp"},
               {OX_LYN_IND_NR5G_RSRQ_E, "nr5g_rsrq", nullptr},  {OX_LYN_IND_NR5G_SINR_E, "nr5g_sig_info", "snr"}};

constexpr int in_service = 2;

/** LTE or nothing: these drives have NR 5G beside LTE at most. */
uint32_t registration(const json &fields) {
  const bool lte = fields.contains("lte_srv_status_info") && fields["lte_srv_status_info"]["srv_status"] == in_service;
  if (!lte) {
    return OX_LYN_REG_NO_SERVICE_E;
  }
  return fields.contains("nr5g_pci") ? OX_LYN_REG_LTE_NR5G_E : OX_LYN_REG_LTE_E;
}

std::string number_line(uint32_t indication, int64_t value) {
  return text_of("indication ", indication, ": ", value);
}

std::string cell_text(int64_t channel, int64_t pci) {
  return text_of(" ", channel, "/", pci);
}

/** The library's services deliver on threads of their own: two sequences. */
struct sequences {
  lines modem, receiver;
};

/**
 * What the module owes its user, by what crossed the board's boundary: the states of the modem; a registration status
 * that no query saw first; of the signal what is another value than the one delivered last, which is 0 at first; each
 * answer to a scan and each fix.
 */
class contract {
 public:
  bool scan_pending = false;
  uint32_t status = OX_LYN_REG_NO_SERVICE_E; /* as indications and queries told it last */
  uint32_t scan_metric = 0;                  /* asked for last */
  size_t rows = 0, restarts = 0;
  std::map<std::string, size_t> sent; /* indications and fixes by their names */

  sequences owed_for(const std::vector<std::string> &journal) {
    owed_ = {};
    for (const std::string &line : journal) {
      if (line.find("\"message_decode\"") == std::string::npos) {
        read(json::parse(line));
      }
    }
    return std::exchange(owed_, {});
  }

 private:
  sequences owed_;
  std::map<uint32_t, int64_t> delivered_;

  void read(const json &line) {
    const std::string dir = line["dir"], name = line["name"];
    const json &fields = line["fields"];
    if (dir == "indication" || (dir == "event" && line["lib"] != "sim")) {
      sent[name]++;
    }
    if (name == "trace_row") {
      rows++;
    } else if (name == "service_event") {
      modem(fields["event"] == YRP_SERVICE_UP);
    } else if (name == "sys_info_ind") {
      system_information(registration(fields));
    } else if (dir == "response" && name == "get_sys_info" && fields["transport"] == 0) {
      status = registration(fields);
    } else if (name == "sig_info_ind") {
      signal(fields);
    } else if (name == "incremental_network_scan_ind") {
      scan_pending = false;
      owed_.modem.push_back(scan(fields));
    } else if (line["lib"] == "location" && name == "location") {
      owed_.receiver.push_back(text_of("fix at ", fields["latitude"].get<double>(), " ",
                                       fields["longitude"].get<double>(), " of ", fields["timestamp"].get<uint64_t>()));
    }
  }

  void modem(bool up) {
    restarts += up;
    owed_.modem.push_back(number_line(OX_LYN_IND_MODEM_STATUS_E, up ? OX_LYN_MODEM_UP_E : OX_LYN_MODEM_DOWN_E));
  }

  void system_information(uint32_t now) {
    if (std::exchange(status, now) != now) {
      owed_.modem.push_back(number_line(OX_LYN_IND_REG_STATUS_E, now));
    }
  }

  void signal(const json &fields) {
    for (const auto &[indication, part, member] : signals) {
      if (!fields.contains(part)) {
        continue;
      }
      const int64_t value = member != nullptr ? fields[part][member] : fields[part];
      if (std::exchange(delivered_[indication], value) != value) {
        owed_.modem.push_back(number_line(indication, value));
      }
    }
  }

  std::string scan(const json &fields) const {
    const bool lte = scan_metric % 2 == 0;
    const char *list = lte ? "lte_nbr" : "nr5g_nbr";
    const bool strongest = scan_metric == OX_LYN_GET_LTE_NBR_RSRP_E || scan_metric == OX_LYN_GET_LTE_NBR_RSRQ_E;
    std::string text = lte ? "LTE scan:" : "NR 5G scan:";
    for (const json &cell : fields.contains(list) && !strongest ? fields[list] : json::array()) {
      text += cell_text(cell["earfcn"], cell["pci"]);
    }
    if (strongest && fields.contains("lte_highest_signal_nbr")) {
      const bool rsrp = scan_metric == OX_LYN_GET_LTE_NBR_RSRP_E;
      text += text_of(" strongest ", fields["lte_highest_signal_nbr"][rsrp ? "rsrp" : "rsrq"].get<int>());
    }
    return text;
  }
};

// What came -----------------------------------------------------------------------------------------------------------

std::string lte_scan_line(const ox_lyn_lte_nbr_info_t &info) {
  std::string text = "LTE scan:";
  for (const ox_lyn_lte_nbr_t &cell : info.cells) {
    text += cell.present != 0 ? cell_text(cell.earfcn, cell.pci) : "";
  }
  if (info.serving.rsrp_valid != 0 || info.serving.rsrq_valid != 0) {
    text += text_of(" strongest ", info.serving.rsrp_valid != 0 ? info.serving.rsrp : info.serving.rsrq);
  }
  return text;
}

std::string nr5g_scan_line(const ox_lyn_nr5g_nbr_info_t &info) {
  std::string text = "NR 5G scan:";
  for (const ox_lyn_nr5g_nbr_t &cell : info.cells) {
    text += cell.present != 0 ? cell_text(cell.earfcn, cell.pci) : "";
  }
  return text;
}

std::string fix_line(const ox_lyn_loc_single_shot_t &shot) {
  return text_of("fix at ", shot.location.latitude, " ", shot.location.longitude, " of ", shot.location.timestamp);
}

bool is_fix(const delivered &one) {
  return one.record_type == OX_LYN_RECORD_ASYNC_E && one.id == OX_LYN_ASYNC_LOC_SINGLE_SHOT_E;
}

std::string line_of(const delivered &one) {
  if (one.record_type == OX_LYN_RECORD_IND_E) {
    return number_line(one.id, one.value);
  }
  switch (one.id) {
    case OX_LYN_ASYNC_LTE_NBR_INFO_E:
      return lte_scan_line(one.as<ox_lyn_lte_nbr_info_t>());
    case OX_LYN_ASYNC_NR5G_NBR_INFO_E:
      return nr5g_scan_line(one.as<ox_lyn_nr5g_nbr_info_t>());
    case OX_LYN_ASYNC_LOC_SINGLE_SHOT_E:
      return fix_line(one.as<ox_lyn_loc_single_shot_t>());
    default:
      return text_of("asynchronous response ", one.id);
  }
}

sequences sequences_of(const std::vector<delivered> &all) {
  sequences came;
  for (const delivered &one : all) {
    (is_fix(one) ? came.receiver : came.modem).push_back(line_of(one));
  }
  return came;
}

// What it takes -------------------------------------------------------------------------------------------------------

size_t entries(const char *folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/** Resident octets, in KiB. */
size_t resident() {
  std::ifstream in("/proc/self/statm");
  size_t pages = 0;
  in >> pages >> pages;
  return pages * 4;
}

struct usage {
  size_t allocated, resident, threads, descriptors;
};

usage used() {
  return {.allocated = allocated(),
          .resident = resident(),
          .threads = entries("/proc/self/task"),
          .descriptors = entries("/proc/self/fd")};
}

// The drive -----------------------------------------------------------------------------------------------------------

/** The C library keeps some freed blocks of each size for every thread, and counts them as allocated. */
constexpr size_t allocated_slack = 64UL << 10;
/** What the C library holds back of what is freed. */
constexpr size_t resident_slack_kib = 4096;

class soak {
 public:
  contract due;
  size_t second = 0;

  void start(const std::string &drive) {
    board.start(text_of("trace.file = \"", drive,
                        "\"\nwwan.stats = [{}, { ip_family = 6 }]\nlocation.capabilities_ms = 0\n", restarts()));
    board.subscribe_all();
    begin();
  }

  /** One more second; whether all was as it has to be. */
  bool run() {
    second++;
    sim_board_advance(1000);
    if (!agree("at its begin")) {
      return false;
    }
    scan(static_cast<uint32_t>(OX_LYN_GET_LTE_NBR_EARFCN_E + second % 11));
    fix();
    statistics(second % 2 == 0 ? OX_LYN_GET_IPV4_STATS_E : OX_LYN_GET_IPV6_STATS_E);
    return agree("after its calls") && !testing::Test::HasFailure();
  }

  void report() const {
    printf("%zu s of the board's time: %zu rows, %zu restarts of the modem\n", second, due.rows, due.restarts);
    for (const auto &[name, number] : due.sent) {
      printf("%10zu sent, %s\n", number, name.c_str());
    }
    for (const auto &[what, number] : counts_) {
      printf("%10zu %s\n", number, what.c_str());
    }
  }

 private:
  static constexpr ox_lyn_loc_single_shot_req_t shot_ = {.timeout_ms = 60000, .horizontal_accuracy = 25.5F};
  std::map<std::string, size_t> counts_;

  /** Which of the first reports comes behind which subscription is left open; of each value one is delivered. */
  void begin() {
    sequences came = sequences_of(board.settled()), owed = due.owed_for(sim_board_journal());
    board_forget();
    std::ranges::sort(came.modem);
    std::ranges::sort(owed.modem);
    EXPECT_EQ(came.modem, owed.modem) << "what subscribing brings";
  }

  bool agree(const char *when) {
    const std::vector<delivered> all = board.settled();
    const sequences came = sequences_of(all), owed = due.owed_for(sim_board_journal());
    board_forget();
    for (const delivered &one : all) {
      counts_[text_of("delivered, ", one.record_type == OX_LYN_RECORD_IND_E ? "indication " : "response ", one.id)]++;
    }
    EXPECT_EQ(came.modem, owed.modem) << "second " << second << ", " << when;
    EXPECT_EQ(came.receiver, owed.receiver) << "second " << second << ", " << when;
    return !testing::Test::HasFailure();
  }

  /** What the call just made has to return, as it needs service: by what the modem told it. */
  static int32_t service_status() {
    json told;
    for (const json &answer : board_journal("nas", "response")) {
      told = answer["id"] == YRP_NAS_GET_SYS_INFO ? answer["fields"] : told;
    }
    if (told["transport"] != 0) {
      return OX_LYN_ERR_FAILURE;
    }
    return registration(told) < OX_LYN_REG_LTE_E ? OX_LYN_ERR_SERVICE_UNAVAILABLE : OX_LYN_SUCCESS;
  }

  void count(const char *what, int32_t status, int32_t expected) {
    EXPECT_EQ(status, expected) << what << " in second " << second;
    counts_[text_of(what, ", status ", status)]++;
  }

  /** An answer that went with the modem leaves the scan pending; a list of anything sends it again. */
  void scan(uint32_t metric) {
    const int32_t status = board.get(metric), service = service_status();
    if (service == OX_LYN_SUCCESS && due.scan_pending) {
      count("scan", status, OX_LYN_ERR_BUSY);
      count("scan again", board.get_list({OX_LYN_GET_REG_STATUS_E}), OX_LYN_SUCCESS);
      return;
    }
    if (service == OX_LYN_SUCCESS) {
      due.scan_metric = metric;
      due.scan_pending = true;
    }
    count("scan", status, service);
  }

  void fix() {
    const int32_t status = board.get(OX_LYN_GET_LOC_SINGLE_SHOT_E, &shot_);
    count("fix", status, service_status());
  }

  void statistics(uint32_t metric) {
    ox_lyn_dm_info_t info = metric_request(metric);
    info.value.i64 = 1; /* the profile */
    const int32_t status = ox_lyn_get_info(board.hndl, &info);
    count("statistics", status, service_status());
    if (status == OX_LYN_SUCCESS) {
      const mobile_block<ox_lyn_wwan_stats_t> stats(static_cast<ox_lyn_wwan_stats_t *>(info.value.ptr));
      statistics_read(*stats);
    }
  }

  void statistics_read(const ox_lyn_wwan_stats_t &stats) {
    const auto rows = board_journal("oxmap", "return");
    ASSERT_EQ(rows.back()["name"], "GetWWANStatistics");
    EXPECT_EQ(stats.bytes_rx, rows.back()["fields"]["bytes_rx"]) << "second " << second;
    EXPECT_EQ(stats.bytes_tx, rows.back()["fields"]["bytes_tx"]) << "second " << second;
  }
};

/** Looks at what the process takes on the way; the first quarter is warm-up. */
class flatness {
 public:
  static constexpr size_t look_s = 50;

  flatness() { looks_.reserve(day / look_s + 1); }

  void look() { looks_.push_back(used()); }

  void check() const {
    ASSERT_GE(looks_.size(), 8U);
    const size_t warm = looks_.size() / 4;
    for (size_t i = warm; i < looks_.size() && !testing::Test::HasFailure(); i++) {
      SCOPED_TRACE(text_of("after ", (i + 1) * look_s, " s"));
      compare(looks_[warm], looks_[i]);
    }
  }

  void report() const {
    for (const usage &one : {looks_[looks_.size() / 4], looks_.back()}) {
      printf("%10zu octets allocated, %zu KiB resident, %zu threads, %zu descriptors\n", one.allocated, one.resident,
             one.threads, one.descriptors);
    }
  }

 private:
  std::vector<usage> looks_;

  static void compare(const usage &warm, const usage &now) {
    EXPECT_EQ(now.threads, warm.threads);
    EXPECT_EQ(now.descriptors, warm.descriptors);
    EXPECT_LE(now.allocated, warm.allocated + allocated_slack);
    if (!ALLOCATED_SANITIZED) {
      EXPECT_LE(now.resident, warm.resident + resident_slack_kib);
    }
  }
};

using lyn_soak = board_test;

TEST_F(lyn_soak, what_the_board_sends_arrives_in_its_order_and_nothing_grows) {
  const soak_length long_ = length();
  const std::string drive = testing::TempDir() + text_of("soak.", getpid(), ".csv");
  write_drive(drive, long_.seconds + 1);
  soak ride;
  ride.start(drive);
  std::filesystem::remove(drive);
  flatness flat;
  while (ride.second < long_.seconds && steady_clock::now() < long_.give_up && ride.run()) {
    if (ride.second % flatness::look_s == 0) {
      flat.look();
    }
  }
  flat.check();
  ride.report();
  flat.report();
}

}  // namespace
