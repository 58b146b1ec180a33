/*
 * What a metric costs above the modem: ox_lyn_get_info against the bare platform calls that it must make for the same
 * metric, on the same board, in one run; and a list against its length.
 *
 * The module runs with LTE and NR 5G in service, where the metrics ask most. `metric` times the call; its counter
 * `ratio` is the call's time over that of the bare calls, both measured here, in turn. `list` times
 * ox_lyn_get_info_list with so many entries; items per second counts entries, and stays the same where the time grows
 * linearly.
 */
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <vector>

#include "nas_service_v01.h"
#include "ox_lyn.h"

namespace {

using bench_clock = std::chrono::steady_clock;

constexpr unsigned int timeout_ms = 50000;

void bench_drop_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  free(info);
}

/** The module, brought up once and left up. */
ox_lyn_hndl_t bench_module() {
  static const ox_lyn_hndl_t hndl = [] {
    setenv("LYN_SIM_SCENARIO", "/dev/null", 1); /* the default board */
    ox_lyn_hndl_t drawn = 0;
    if (ox_lyn_init(&drawn, 0, bench_drop_event) != OX_LYN_SUCCESS)
      abort();
    return drawn;
  }();
  return hndl;
}

/** A client of the benchmark's own for the bare calls. */
yrp_client_type bench_client() {
  static const yrp_client_type client = [] {
    static yrp_client_os_params os_params;
    const auto ignore = [](yrp_client_type, unsigned int, void *, unsigned int, void *) {};
    yrp_client_type handle = nullptr;
    if (yrp_client_init_instance(nas_get_service_object_internal_v01(1, 388, 6), YRP_INSTANCE_ANY, ignore, nullptr,
                                 &os_params, timeout_ms, &handle) != YRP_NO_ERR)
      abort();
    return handle;
  }();
  return client;
}

template <typename request, typename response>
void bench_send(uint32_t id, request req) {
  response resp = {};
  if (yrp_client_send_msg_sync(bench_client(), id, &req, sizeof req, &resp, sizeof resp, timeout_ms) != YRP_NO_ERR ||
      resp.resp.result != 0)
    abort();
  benchmark::DoNotOptimize(resp);
}

template <typename response>
void bench_query(uint32_t id) {
  bench_send<yrp_nas_empty_req_t, response>(id, {});
}

void bench_gate() {
  bench_query<yrp_nas_sys_info_resp_t>(YRP_NAS_GET_SYS_INFO);
}

void bench_signal() {
  bench_gate();
  bench_query<yrp_nas_sig_info_resp_t>(YRP_NAS_GET_SIG_INFO);
}

void bench_cqi() {
  bench_gate();
  for (const uint32_t radio : {YRP_NAS_CQI_RADIO_LTE, YRP_NAS_CQI_RADIO_NR5G})
    bench_send<yrp_nas_cqi_info_req_t, yrp_nas_cqi_info_resp_t>(YRP_NAS_GET_CQI_INFO, {1, radio});
}

void bench_locks() {
  bench_gate();
  bench_query<yrp_nas_lte_cell_lock_list_resp_t>(YRP_NAS_GET_LTE_CELL_LOCK_LIST);
  bench_query<yrp_nas_nr5g_cell_lock_list_resp_t>(YRP_NAS_GET_NR5G_CELL_LOCK_LIST);
}

struct bench_row {
  uint32_t metric;
  void (*bare)();
};

constexpr bench_row rows[] = {
    {OX_LYN_GET_REG_STATUS_E, bench_gate},
    {OX_LYN_GET_LTE_SERV_RSRP_E, bench_signal},
    {OX_LYN_GET_LTE_SERV_CQI_E, bench_cqi},
    {OX_LYN_GET_LTE_CELL_LOCK_LIST_E, bench_locks},
};

/** The largest buffer that a metric wants of its caller. */
ox_lyn_nr5g_cell_lock_t bench_buffer;

ox_lyn_dm_info_t bench_request(uint32_t metric) {
  ox_lyn_dm_info_t info = {};
  info.record_type = OX_LYN_RECORD_GET_E;
  info.metric = metric;
  info.value.ptr = &bench_buffer;
  return info;
}

void bench_get(uint32_t metric) {
  ox_lyn_dm_info_t info = bench_request(metric);
  if (ox_lyn_get_info(bench_module(), &info) != OX_LYN_SUCCESS)
    abort();
  benchmark::DoNotOptimize(info);
}

template <typename function>
double bench_seconds(function &&work) {
  const auto start = bench_clock::now();
  work();
  return std::chrono::duration<double>(bench_clock::now() - start).count();
}

/** One iteration is `calls` of each kind in turn, so that both meet the same machine; the time is the module's. */
void metric(benchmark::State &state) {
  constexpr int calls = 64;
  const bench_row &row = *std::find_if(std::begin(rows), std::end(rows), [&state](const bench_row &candidate) {
    return candidate.metric == static_cast<uint32_t>(state.range(0));
  });
  bench_module();
  bench_client();
  double through_module = 0, bare = 0;
  for (auto _ : state) {
    const double seconds = bench_seconds([&row] {
      for (int i = 0; i < calls; i++)
        bench_get(row.metric);
    });
    through_module += seconds;
    bare += bench_seconds([&row] {
      for (int i = 0; i < calls; i++)
        row.bare();
    });
    state.SetIterationTime(seconds);
  }
  const double each = static_cast<double>(state.iterations()) * calls / 1e9;
  state.counters["call_ns"] = through_module / each;
  state.counters["bare_ns"] = bare / each;
  state.counters["ratio"] = through_module / bare;
}
BENCHMARK(metric)->ArgName("id")->Arg(1)->Arg(10)->Arg(16)->Arg(33)->UseManualTime();

void list(benchmark::State &state) {
  std::vector<ox_lyn_dm_info_t> infos(static_cast<size_t>(state.range(0)), bench_request(OX_LYN_GET_LTE_SERV_RSRP_E));
  bench_module();
  for (auto _ : state) {
    if (ox_lyn_get_info_list(bench_module(), infos.data(), static_cast<uint32_t>(infos.size())) != OX_LYN_SUCCESS)
      abort();
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(list)->ArgName("entries")->Arg(1)->Arg(10)->Arg(50);

}  // namespace
