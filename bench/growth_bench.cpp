/* SPDX-License-Identifier: Apache-2.0 */
/*
 * How fast a drive goes through the whole stack: a log of many rows, replayed as fast as the board can, from the
 * board's timeline over its indications, the NAS client's decoding and the queue to the user's callback, all six signal
 * subscriptions on. Every row changes the LTE RSRP, so that a lost or doubled row shows.
 */
#include <unistd.h>

#include <atomic>
#include <thread>

#include "bench.h"
#include "ox_lyn.h"
#include "sim_board.h"

namespace {

constexpr int rsrp_values = 40;

struct {
  std::atomic<size_t> rsrp{0}, all{0};
  std::atomic<size_t> gaps{0};
  int64_t last = 0;
} sink;

/** Each RSRP is the one before, less one, and starts again after the last. */
void on_event(ox_lyn_hndl_t, ox_lyn_dm_info_t *info, uint32_t) {
  if (info->metric == OX_LYN_IND_LTE_RSRP_E) {
    const int64_t expected = sink.last <= -70 - rsrp_values + 1 ? -70 : sink.last - 1;
    if (sink.rsrp > 0 && info->value.i64 != expected) {
      sink.gaps++;
    }
    sink.last = info->value.i64;
    sink.rsrp++;
  }
  sink.all++;
  free(info);
}

/** A drive of `rows` rows; its file's name. */
std::string write_drive(const std::string &folder, size_t rows) {
  const std::string path = folder + "/drive.csv";
  FILE *file = fopen(path.c_str(), "w");
  bench_require(file != nullptr, "the drive cannot be written");
  fprintf(file,
          "Timestamp,Longitude,Latitude,Speed,Operatorname,CellID,NetworkMode,RSRP,RSRQ,SNR,CQI,RSSI,DL_bitrate,"
          "UL_bitrate,State,PINGAVG,PINGMIN,PINGMAX,PINGSTDEV,PINGLOSS,CELLHEX,NODEHEX,LACHEX,RAWCELLID,NRxRSRP,"
          "NRxRSRQ\n");
  for (size_t row = 0; row < rows; row++) {
    const int step = static_cast<int>(row % rsrp_values);
    fprintf(file,
            "2025.03.14_10.20.20,11.56,48.14,24,Testnet,1,LTE,%d,%d,%d,12,-66,6011,601,I,-,-,-,-,-,1,53A10,2F3C,"
            "85594113,-87.0,-10.0\n",
            -70 - step, -5 - step % 10, step % 20);
  }
  fclose(file);
  return path;
}

void subscribe(ox_lyn_hndl_t hndl, uint32_t indication) {
  ox_lyn_dm_ind_info_t info = {};
  info.record_type = OX_LYN_RECORD_IND_E;
  info.indication = indication;
  info.value_type = OX_LYN_VALUE_INT64_E;
  info.threshold = 1;
  bench_require(ox_lyn_set_ind_info(hndl, &info) == OX_LYN_SUCCESS, "a subscription failed");
}

/** Rows a second through the whole stack. */
double replay(const std::string &folder, size_t rows) {
  const std::string scenario =
      "[board]\nnoise_db = 0\n[trace]\nfile = \"drive.csv\"\nspeed = 0\nafter = \"nas.108\"\nskip = 5\n";
  bench_require(sim_board_load(scenario, folder).empty(), "the drive does not load");
  sink.rsrp = 0;
  sink.all = 0;
  ox_lyn_hndl_t hndl = 0;
  bench_require(ox_lyn_init(&hndl, 0, on_event) == OX_LYN_SUCCESS, "the module does not come up");
  for (uint32_t indication = OX_LYN_IND_LTE_RSRP_E; indication < OX_LYN_IND_NR5G_SINR_E; indication++) {
    subscribe(hndl, indication);
  }
  const double seconds = bench_seconds([hndl, rows] {
    subscribe(hndl, OX_LYN_IND_NR5G_SINR_E);
    for (int idle = 0; sink.rsrp < rows && idle < 60000; idle++) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });
  bench_require(sink.rsrp == rows && sink.gaps == 0, "rows were lost, doubled or reordered");
  bench_require(ox_lyn_deinit(hndl) == OX_LYN_SUCCESS, "the module does not go down");
  return static_cast<double>(rows) / seconds;
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  char folder[] = "/tmp/lyn_bench.XXXXXX";
  bench_require(mkdtemp(folder) != nullptr, "no folder for the drive");
  const size_t rows = options.smoke ? 2000 : 200000;
  const std::string drive = write_drive(folder, rows);
  std::vector<double> speeds, goal;
  for (size_t round = 0; round < options.rounds; round++) {
    speeds.push_back(replay(folder, rows));
    goal.push_back(100000);
  }
  unlink(drive.c_str());
  rmdir(folder);
  bench_report(options, "replay.rows_per_s", speeds, goal, "rows/s, theirs the goal");
  return 0;
}
