/* SPDX-License-Identifier: Apache-2.0 */
/*
 * What a query costs above the modem: ox_lyn_get_info beside the bare platform calls that it must make for the same
 * metric, on the same board; a list beside its entries; and the same metric from a daemon behind D-Bus.
 *
 * The module runs with LTE and NR 5G in service, where the metrics ask most; the board drops the diagnostic log and
 * keeps no journal. --only=mN.module and --only=mN.bare run --events calls of one side for callgrind, which tells how
 * many instructions stand behind a ratio.
 */
#include <sys/wait.h>
#include <unistd.h>

#include <iterator>

#include "bench.h"
#include "nas_service_v01.h"
#include "ox_lyn.h"
#include "sim_board.h"

#if BENCH_HAS_SYSTEMD
#include <systemd/sd-bus.h>
#endif

namespace {

constexpr unsigned int timeout_ms = 50000;

ox_lyn_hndl_t module_handle;
yrp_client_type bare_client;

/** The largest buffer that a metric wants of its caller. */
ox_lyn_nr5g_cell_lock_t result_buffer;

/* The bare calls */

template <typename request, typename response>
void bare_send(uint32_t id, request req) {
  response resp = {};
  const auto status = yrp_client_send_msg_sync(bare_client, id, &req, sizeof req, &resp, sizeof resp, timeout_ms);
  bench_require(status == YRP_NO_ERR && resp.resp.result == 0, "a bare call failed");
}

template <typename response>
void bare_query(uint32_t id) {
  bare_send<yrp_nas_empty_req_t, response>(id, {});
}

void bare_gate() {
  bare_query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
}

void bare_signal() {
  bare_gate();
  bare_query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
}

void bare_cqi() {
  bare_gate();
  for (const uint32_t radio : {YRP_NAS_CQI_RADIO_LTE, YRP_NAS_CQI_RADIO_NR5G}) {
    bare_send<yrp_nas_cqi_info_req_t, yrp_nas_cqi_info_resp_t>(YRP_NAS_GET_CQI_INFO, {1, radio});
  }
}

void bare_locks() {
  bare_gate();
  bare_query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST);
  bare_query<yrp_nas_nr5g_cell_lock_list_resp_t>(YRP_NAS_GET_NR5G_CELL_LOCK_LIST);
}

struct metric_row {
  const char *name;
  uint32_t metric;
  void (*bare)();
};

constexpr metric_row metrics[] = {
    {"m1", OX_LYN_GET_REG_STATUS_E, bare_gate},
    {"m10", OX_LYN_GET_LTE_SERV_RSRP_E, bare_signal},
    {"m16", OX_LYN_GET_LTE_SERV_CQI_E, bare_cqi},
    {"m33", OX_LYN_GET_LTE_CELL_LOCK_LIST_E, bare_locks},
};

/* The module */

ox_lyn_dm_info_t request_of(uint32_t metric) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  info.value.ptr = &result_buffer;
  return info;
}

void module_get(uint32_t metric) {
  ox_lyn_dm_info_t info = request_of(metric);
  bench_require(ox_lyn_get_info(module_handle, &info) == OX_LYN_SUCCESS, "a query failed");
}

void bring_up() {
  bench_require(sim_board_load("[board]\nnoise_db = 0\n").empty(), "the board does not load");
  const auto drop = [](ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) { free(info); };
  bench_require(ox_lyn_init(&module_handle, 0, drop) == OX_LYN_SUCCESS, "the module does not come up");
  static yrp_client_os_params os_params;
  const auto ignore = [](yrp_client_type, unsigned int, void *, unsigned int, void *) {};
  bench_require(yrp_client_init_instance(nas_get_service_object_internal_v01(1, 388, 6), YRP_INSTANCE_ANY, ignore,
                                         nullptr, &os_params, timeout_ms, &bare_client) == YRP_NO_ERR,
                "no client for the bare calls");
}

/** Microseconds a call. */
template <typename Call>
double us_of(size_t calls, Call &&call) {
  return bench_seconds([&] {
           for (size_t i = 0; i < calls; i++) {
             call();
           }
         }) *
         1e6 / static_cast<double>(calls);
}

/* The figures */

void run_metric(const bench_options &options, const metric_row &row) {
  const size_t calls = options.smoke ? 10 : 5000;
  std::vector<double> ours, theirs;
  for (size_t round = 0; round < options.rounds * 2; round++) {
    const auto module_side = [&] { ours.push_back(us_of(calls, [&row] { module_get(row.metric); })); };
    const auto bare_side = [&] { theirs.push_back(us_of(calls, row.bare)); };
    if (round % 2 == 0) {
      module_side();
    }
    bare_side();
    if (round % 2 != 0) {
      module_side();
    }
  }
  bench_report(options, std::string("query.") + row.name, ours, theirs, "us/query");
}

double list_us(size_t length, size_t entries) {
  std::vector<ox_lyn_dm_info_t> infos(length, request_of(OX_LYN_GET_LTE_SERV_RSRP_E));
  return us_of(entries / length, [&infos] {
    bench_require(
        ox_lyn_get_info_list(module_handle, infos.data(), static_cast<uint32_t>(infos.size())) == OX_LYN_SUCCESS,
        "a list failed");
  });
}

/** A list of 50 beside fifty lists of one. */
void run_list(const bench_options &options) {
  const size_t entries = options.smoke ? 50 : 10000;
  std::vector<double> fifty, ones;
  for (size_t round = 0; round < options.rounds * 2; round++) {
    if (round % 2 == 0) {
      fifty.push_back(list_us(50, entries));
    }
    ones.push_back(50 * list_us(1, entries));
    if (round % 2 != 0) {
      fifty.push_back(list_us(50, entries));
    }
  }
  bench_report(options, "list.growth", fifty, ones, "us/50 entries");
}

#if BENCH_HAS_SYSTEMD
/* D-Bus: a service that knows the answer already, on a bus of its own. */

constexpr char dbus_name[] = "bench.Modem", dbus_path[] = "/bench/Modem";

int dbus_answer(sd_bus_message *message, void *, sd_bus_error *) {
  return sd_bus_reply_method_return(message, "x", int64_t{-95});
}

const sd_bus_vtable dbus_table[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GetMetric", "u", "x", dbus_answer, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

/** Start the bus; its address, which a peer finds in the environment too. Empty without a dbus-daemon. */
std::string dbus_start(pid_t *daemon) {
  int out[2];
  bench_require(pipe(out) == 0, "no pipe");
  *daemon = fork();
  if (*daemon == 0) {
    dup2(out[1], STDOUT_FILENO);
    close(out[0]);
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nopidfile", "--nosyslog", "--print-address=1",
           nullptr);
    _exit(127);
  }
  close(out[1]);
  char address[512] = "";
  const ssize_t length = read(out[0], address, sizeof address - 1);
  close(out[0]);
  return length > 0 ? std::string(address, strcspn(address, "\n")) : std::string();
}

[[noreturn]] void dbus_serve(const std::string &address) {
  sd_bus *bus = nullptr;
  setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  if (sd_bus_open_user(&bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr, dbus_path, dbus_name, dbus_table, nullptr) < 0 ||
      sd_bus_request_name(bus, dbus_name, 0) < 0) {
    _exit(1);
  }
  for (;;) {
    if (sd_bus_process(bus, nullptr) == 0) {
      sd_bus_wait(bus, UINT64_MAX);
    }
  }
}

bool dbus_get(sd_bus *bus, int64_t *value) {
  sd_bus_message *reply = nullptr;
  const bool called = sd_bus_call_method(bus, dbus_name, dbus_path, dbus_name, "GetMetric", nullptr, &reply, "u",
                                         OX_LYN_GET_LTE_SERV_RSRP_E) >= 0;
  const bool answered = called && sd_bus_message_read(reply, "x", value) >= 0;
  sd_bus_message_unref(reply);
  return answered;
}

sd_bus *dbus_connect(const std::string &address) {
  sd_bus *bus = nullptr;
  setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  bench_require(sd_bus_open_user(&bus) >= 0, "no connection to the bus");
  int64_t value = 0;
  for (int i = 0; i < 500 && !dbus_get(bus, &value); i++) {  // until the service is there
    usleep(10000);
  }
  bench_require(value == -95, "the service does not answer");
  return bus;
}

void stop_process(pid_t pid) {
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
}

struct dbus_peer {
  pid_t daemon = 0, service = 0;
  std::string address;
};

/** Before the module has threads: what follows forks. */
dbus_peer dbus_bring_up() {
  dbus_peer peer;
  peer.address = dbus_start(&peer.daemon);
  if (peer.address.empty()) {
    waitpid(peer.daemon, nullptr, 0);
    printf("query.vs_dbus: dbus-daemon is not installed, nothing is compared with it\n");
    return peer;
  }
  peer.service = fork();
  if (peer.service == 0) {
    dbus_serve(peer.address);
  }
  return peer;
}

void run_dbus(const bench_options &options, const dbus_peer &peer) {
  if (peer.address.empty()) {
    return;
  }
  const size_t calls = options.smoke ? 10 : 2000;
  sd_bus *bus = dbus_connect(peer.address);
  std::vector<double> ours, theirs;
  for (size_t round = 0; round < options.rounds; round++) {
    int64_t value = 0;
    theirs.push_back(us_of(calls, [&] { bench_require(dbus_get(bus, &value), "the service does not answer"); }));
    ours.push_back(us_of(calls, [] { module_get(OX_LYN_GET_LTE_SERV_RSRP_E); }));
  }
  sd_bus_unref(bus);
  stop_process(peer.service);
  stop_process(peer.daemon);
  bench_report(options, "query.vs_dbus", ours, theirs, "us/query");
}
#else
struct dbus_peer {};
dbus_peer dbus_bring_up() {
  return {};
}
void run_dbus(const bench_options &, const dbus_peer &) {}
#endif

/** One side of one metric, for callgrind. */
void run_side(const bench_options &options) {
  for (const metric_row &row : metrics) {
    const bool module_side = std::string(row.name) + ".module" == options.only;
    const bool bare_side = std::string(row.name) + ".bare" == options.only;
    for (size_t i = 0; i < options.events && module_side; i++) {
      module_get(row.metric);
    }
    for (size_t i = 0; i < options.events && bare_side; i++) {
      row.bare();
    }
  }
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  dbus_peer peer;
  if (bench_wants(options, "dbus")) {
    peer = dbus_bring_up();
  }
  bring_up();
  if (options.only != nullptr) {
    run_side(options);
  }
  for (const metric_row &row : metrics) {
    if (bench_wants(options, "metrics")) {
      run_metric(options, row);
    }
  }
  if (bench_wants(options, "list")) {
    run_list(options);
  }
  if (bench_wants(options, "dbus")) {
    run_dbus(options, peer);
  }
  bench_require(yrp_client_release(bare_client) == YRP_NO_ERR, "the bare client is not released");
  bench_require(ox_lyn_deinit(module_handle) == OX_LYN_SUCCESS, "the module does not go down");
  return 0;
}
