/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Any content of the live picture's model, as any answers of the module make it. Ends with an error where a record of
 * it is not one line of JSON, or is not as its schema says.
 */
#include "lyn_watch_json.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>

#include "../unit/source_dir.h"
#include "fuzz_bytes.h"
#include "json_schema.h"

namespace {

const json_schema &schema() {
  static const auto *const read =
      new json_schema{nlohmann::json::parse(std::ifstream(source_path("docs/lyn_watch.schema.json")))};
  return *read;
}

void hold_record(const std::string &line, const nlohmann::json &of) {
  fuzz_hold(line.find('\n') == line.npos, "a record is one line", line);
  const nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
  fuzz_hold(!record.is_discarded(), "a record is JSON", line);
  const json_schema_wrong wrong = schema().wrong(of, record);
  fuzz_hold(wrong.empty(), "a record is as the schema says", wrong + '\n' + line);
}

/** What the header states of a number that is not any. */
int64_t stated(uint32_t metric, int64_t value) {
  switch (metric) {
    case OX_LYN_GET_LTE_SERV_CGI_E:
      return value & 0xFFFFFFF;
    case OX_LYN_GET_NR5G_SERV_CGI_E:
      return value & 0xFFFFFFFFF;
    case OX_LYN_GET_LTE_SERV_TAC_E:
    case OX_LYN_GET_LTE_SERV_EARFCN_E:
    case OX_LYN_GET_LTE_SERV_PCI_E:
    case OX_LYN_GET_NR5G_SERV_PCI_E:
      return value & UINT16_MAX;
    case OX_LYN_GET_NR5G_SERV_EARFCN_E:
      return value & UINT32_MAX;
    case OX_LYN_GET_LTE_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_PLMN_E:
    case OX_LYN_GET_NR5G_SERV_TAC_E:
      return value & UINT8_MAX;
    default:
      return value;
  }
}

constexpr int most_steps = 24;

constexpr lyn_watch_ms_t day = std::chrono::hours(24);

struct board {
  fuzz_bytes &in;
  lyn_watch_model_t model;
  lyn_watch_time_t now{std::chrono::hours(1)};
  union {
    lyn_watch_buffer_t buffer;
    ox_lyn_nr5g_nbr_info_t largest;
  };

  explicit board(fuzz_bytes &from) : in(from), buffer() { lyn_watch_model_init(&model, in.text()); }

  /** A record with a block of any octets, but for the counts that lists of blocks state. */
  ox_lyn_dm_info_t record(uint32_t metric, bool block) {
    ox_lyn_dm_info_t info = {};
    info.metric = metric;
    if (block) {
      in.fill(&largest, sizeof largest);
      info.value.ptr = &largest;
      return info;
    }
    for (int64_t &value : std::span(info.value.i64_array).first(3)) {
      value = stated(metric, in.take<int64_t>());
    }
    info.count = in.take<uint8_t>();
    return info;
  }

  void put_item() {
    const lyn_watch_key_t key = in.pick(lyn_watch_keys());
    const lyn_watch_item_t &item = lyn_watch_items[key.item];
    const lyn_watch_taken_t &taken = item.of[key.radio];
    const ox_lyn_dm_info_t info = record(taken.metric, item.block != LYN_WATCH_IN_RECORD);
    const int32_t status = in.take<int8_t>();
    lyn_watch_model_put(&model, key, status == 0 ? taken.take(info) : lyn_watch_value_t(), status, now);
  }

  void put_event() {
    const lyn_watch_event_kind_t &kind = in.pick(lyn_watch_event_kinds);
    ox_lyn_dm_info_t info = record(OX_LYN_GET_INVALID_E, kind.block);
    if (kind.item != nullptr && kind.radio == LYN_WATCH_BOARD) { /* the registration status */
      info.value.u32 = OX_LYN_REG_NO_SERVICE_E + info.value.u32 % OX_LYN_REG_NR5G_E;
    }
    lyn_watch_model_put_event(&model, &kind, kind.take(info), in.moment(), now);
  }

  void put_neighbours() {
    lyn_watch_neighbours_t found = {.cells = {}, .at = now};
    for (int left = in.take<uint8_t>() % 6; left > 0; --left) {
      lyn_watch_neighbour_t &cell = found.cells.emplace_back();
      cell.channel = in.take<uint32_t>();
      cell.pci = in.take<uint16_t>();
      cell.rsrp = in.take<int16_t>();
      cell.cgis.assign(in.take<uint8_t>() % 3, in.take<uint32_t>());
      for (int plmns = in.take<uint8_t>() % 3; plmns > 0; --plmns) {
        const std::string plmn = lyn_watch_plmn(in.take<ox_lyn_plmn_t>());
        if (!plmn.empty()) {
          cell.plmns.push_back(plmn);
        }
      }
    }
    lyn_watch_model_put_neighbours(&model, in.take<uint8_t>() % 2 == 0 ? LYN_WATCH_LTE : LYN_WATCH_NR5G, found);
  }

  void put_profiles() {
    std::vector<lyn_watch_profile_t> profiles;
    for (int left = in.take<uint8_t>() % 4; left > 0; --left) {
      lyn_watch_profile_t &profile = profiles.emplace_back();
      profile.index = in.take<uint8_t>();
      profile.apn = lyn_watch_utf8(in.text());
      for (auto &traffic : profile.traffic) {
        if (in.take<uint8_t>() % 2 == 0) {
          traffic = {.stats = in.take<ox_lyn_wwan_stats_t>(), .rx_rate = {}, .tx_rate = {}, .at = now};
        }
      }
    }
    lyn_watch_model_put_profiles(&model, profiles);
  }

  /** The source lets only those through that are somewhere. */
  void put_location() {
    auto location = in.take<ox_lyn_location_t>();
    location.flags |= OX_LYN_LOC_FLAG_LAT_LONG_E;
    if (std::isfinite(location.latitude) && std::isfinite(location.longitude)) {
      lyn_watch_model_put_location(&model, location, now);
    }
  }

  void step() {
    switch (in.take<uint8_t>() % 10) {
      case 0:
        return lyn_watch_model_set_state(&model, static_cast<lyn_watch_state_e>(in.take<uint8_t>() % 3));
      case 1:
        return lyn_watch_model_plan(&model, lyn_watch_ms_t(in.take<uint32_t>()), now);
      case 2:
        now += lyn_watch_ms_t(in.take<uint32_t>()) % day;
        return;
      case 3:
        lyn_watch_model_count_request(&model, "rsrp", in.take<int8_t>(), std::chrono::milliseconds(in.take<uint16_t>()),
                                      now);
        return lyn_watch_model_end_reading(&model, in.take<uint8_t>() % 2 == 0);
      case 4:
        return put_neighbours();
      case 5:
        return put_profiles();
      case 6:
        return put_location();
      case 7:
      case 8:
        return put_event();
      default:
        return put_item();
    }
  }

  void hold_records() {
    lyn_watch_picture_t picture = lyn_watch_model_picture(&model, now);
    picture.time = in.moment();
    hold_record(lyn_watch_json_snapshot(picture), schema().root["$defs"]["snapshot"]);
    hold_record(lyn_watch_json_missed(picture, uint64_t{1} + in.take<uint32_t>()), schema().root["$defs"]["missed"]);
    hold_record(lyn_watch_json_history(&model, picture), schema().root["$defs"]["history"]);
    for (const lyn_watch_event_t &event : lyn_watch_model_events(&model, 0, most_steps).events) {
      hold_record(lyn_watch_json_event(picture.board, event), schema().root["$defs"]["event"]);
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  fuzz_bytes in{data, size};
  board of(in);
  for (int steps = 0; steps < most_steps && !in.ended(); ++steps) {
    of.step();
  }
  of.hold_records();
  return 0;
}
