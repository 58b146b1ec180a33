/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Encoding and decoding of every message of the table, and what malformed bytes get. The document's table is held to
 * the same rows.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>

#include "nas_service_v01.h"
#include "oxmap_client.h"
#include "sim_board.h"
#include "sim_client.h"
#include "sim_message.h"

namespace {

using bytes = std::vector<uint8_t>;

const sim_message &message_of(sim_lib lib, sim_direction direction, uint32_t id) {
  const sim_message *message = sim_message_find(lib, direction, id);
  EXPECT_NE(message, nullptr);
  return *message;
}

const sim_message &sig_info() {
  return message_of(sim_lib::nas, sim_direction::indication, YRP_NAS_SIG_INFO_IND);
}
const sim_message &scan() {
  return message_of(sim_lib::nas, sim_direction::indication, YRP_NAS_INCREMENTAL_NETWORK_SCAN);
}
const sim_message &mtpe() {
  return message_of(sim_lib::oxmap, sim_direction::indication, OXMAP_MTPE_STATUS_IND);
}

template <typename record>
int32_t decode(const sim_message &message, const bytes &in, record &out) {
  EXPECT_EQ(sizeof out, message.size);
  return sim_message_decode(message, in.data(), in.size(), &out);
}

// A record with a value everywhere, by the table.

void fill(const sim_field &field, uint8_t *base, std::mt19937_64 &random) {
  uint32_t count = field.capacity;
  if (field.count_name) {
    count = static_cast<uint32_t>(random() % (field.capacity + 1));
    memcpy(base + field.count_offset, &count, sizeof count);
  }
  for (uint32_t i = 0; i < count; i++) {
    uint8_t *entry = base + field.offset + i * field.size;
    for (const sim_field &inner : field.fields) {
      fill(inner, entry, random);
    }
    if (!field.fields.empty()) {
      continue;
    }
    const uint64_t value = random();
    memcpy(entry, &value, field.size);
  }
}

bytes random_record(const sim_message &message, std::mt19937_64 &random) {
  bytes record(message.size);
  for (const sim_part &part : message.parts) {
    const bool present = !part.valid_name || random() % 2;
    if (part.valid_name) {
      record[part.valid_offset] = present;
    }
    for (const sim_field &field : part.fields) {
      if (present) {
        fill(field, record.data(), random);
      }
    }
  }
  return record;
}

TEST(sim_codec, every_message_comes_back_as_it_was_encoded) {
  std::mt19937_64 random(1);
  for (const sim_message &message : sim_messages()) {
    for (int i = 0; i < 200; i++) {
      const bytes record = random_record(message, random);
      bytes wire, back(message.size);
      ASSERT_TRUE(sim_message_encode(message, record.data(), wire)) << message.name;
      ASSERT_EQ(sim_message_decode(message, wire.data(), wire.size(), back.data()), 0) << message.name;
      ASSERT_EQ(back, record) << message.name;
    }
  }
}

/** Parts in a struct overlap when a field is described twice or with a wrong size. */
TEST(sim_codec, no_two_parts_of_a_message_share_a_type_and_all_flags_are_distinct) {
  for (const sim_message &message : sim_messages()) {
    std::set<uint8_t> types;
    std::set<uint32_t> flags;
    for (const sim_part &part : message.parts) {
      EXPECT_TRUE(types.insert(part.type).second) << message.name;
      EXPECT_TRUE(!part.valid_name || flags.insert(part.valid_offset).second) << message.name;
      EXPECT_TRUE(!part.valid_name || part.type >= sim_first_optional) << message.name;
    }
  }
}

TEST(sim_codec, every_request_has_a_response_that_begins_with_its_result) {
  for (const sim_message &message : sim_messages()) {
    if (message.direction != sim_direction::request) {
      continue;
    }
    const sim_message &response = message_of(message.lib, sim_direction::response, message.id);
    EXPECT_STREQ(response.name, message.name);
    EXPECT_STREQ(response.parts[0].fields[0].name, "resp");
  }
}

TEST(sim_codec, values_are_little_endian_and_packed) {
  yrp_nas_sig_info_ind_t ind = {};
  ind.lte_sig_info_valid = 1;
  ind.lte_sig_info = {-95, 130, -11};
  bytes wire;
  ASSERT_TRUE(sim_message_encode(sig_info(), &ind, wire));
  EXPECT_EQ(wire, (bytes{0x10, 5, 0, 0xA1, 0xFF, 130, 0, 0xF5}));
}

TEST(sim_codec, an_absent_optional_part_is_not_valid) {
  yrp_nas_sig_info_ind_t out;
  memset(&out, 0xFF, sizeof out);
  EXPECT_EQ(decode(sig_info(), {}, out), 0);
  EXPECT_EQ(out.lte_sig_info_valid, 0);
  EXPECT_EQ(out.nr5g_rsrq_valid, 0);
}

TEST(sim_codec, an_unknown_type_is_skipped) {
  yrp_nas_sig_info_ind_t out;
  EXPECT_EQ(decode(sig_info(), {0x77, 3, 0, 1, 2, 3, 0x12, 2, 0, 0xF5, 0xFF, 0x01, 0, 0}, out), 0);
  EXPECT_EQ(out.nr5g_rsrq_valid, 1);
  EXPECT_EQ(out.nr5g_rsrq, -11);
}

struct malformed {
  const char *what;
  bytes wire;
};

TEST(sim_codec, malformed_parts_fail_and_leave_nothing) {
  const malformed cases[] = {
      {"duplicate", {0x12, 2, 0, 1, 0, 0x12, 2, 0, 1, 0}},
      {"truncated value", {0x12, 2, 0, 1}},
      {"truncated head", {0x12, 2}},
      {"truncated unknown", {0x77, 4, 0, 1, 2, 3}},
      {"too short", {0x12, 1, 0, 1}},
      {"too long", {0x12, 3, 0, 1, 0, 0}},
      {"good part, then a bad one", {0x12, 2, 0, 1, 0, 0x11, 3, 0, 1, 0, 0}},
  };
  for (const malformed &bad : cases) {
    yrp_nas_sig_info_ind_t out;
    memset(&out, 0xFF, sizeof out);
    EXPECT_EQ(decode(sig_info(), bad.wire, out), YRP_DECODE_ERR) << bad.what;
    const yrp_nas_sig_info_ind_t zero = {};
    EXPECT_EQ(memcmp(&out, &zero, sizeof out), 0) << bad.what;
  }
}

TEST(sim_codec, a_missing_mandatory_part_fails) {
  oxmap_mtpe_status_ind_t out;
  EXPECT_EQ(decode(mtpe(), {0x10, 4, 0, 1, 0, 0, 0}, out), YRP_MISSING_TLV_ERR);
  EXPECT_EQ(decode(mtpe(), {0x01, 4, 0, 1, 0, 0, 0}, out), 0);
}

TEST(sim_codec, a_count_above_the_capacity_fails_also_inside_a_list) {
  yrp_nas_incremental_scan_ind_t out;
  bytes cells = {0x01, 4, 0, 0, 0, 0, 0, 0x11, 1, 0, YRP_NAS_NR5G_NBR_MAX + 1};
  EXPECT_EQ(decode(scan(), cells, out), YRP_DECODE_ERR);
  // One neighbour: rsrp, earfcn, pci, then 12 CGIs where 11 fit.
  bytes cgis = {0x01, 4, 0, 0, 0, 0, 0, 0x11, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, YRP_NAS_NR5G_CGI_MAX + 1};
  cgis.resize(cgis.size() + 8 * (YRP_NAS_NR5G_CGI_MAX + 1) + 1);
  cgis[8] = static_cast<uint8_t>(cgis.size() - 10);
  EXPECT_EQ(decode(scan(), cgis, out), YRP_DECODE_ERR);
}

TEST(sim_codec, a_struct_with_a_count_above_the_capacity_is_not_encoded) {
  yrp_nas_install_freq_ind_t ind = {};
  ind.freq_len = YRP_NAS_FREQ_MAX + 1;
  bytes wire;
  EXPECT_FALSE(
      sim_message_encode(message_of(sim_lib::nas, sim_direction::indication, YRP_NAS_INSTALL_FREQ_IND), &ind, wire));
}

TEST(sim_codec, the_list_of_an_install_measurement_may_come_where_its_flag_is_0) {
  yrp_nas_install_freq_ind_t ind = {}, out;
  ind.freq_len = 2;
  ind.freqs[1].arfcn = 7;
  const sim_message &message = message_of(sim_lib::nas, sim_direction::indication, YRP_NAS_INSTALL_FREQ_IND);
  bytes wire;
  ASSERT_TRUE(sim_message_encode(message, &ind, wire));
  ASSERT_EQ(decode(message, wire, out), 0);
  EXPECT_EQ(out.freq_valid, 0);
  EXPECT_EQ(out.freq_len, 2U);
  EXPECT_EQ(out.freqs[1].arfcn, 7U);
}

TEST(sim_codec, mutated_and_random_bytes_decode_within_the_capacities_or_fail) {
  std::mt19937_64 random(7);
  size_t decoded = 0, failed = 0;
  for (const sim_message &message : sim_messages()) {
    for (int i = 0; i < 5000; i++) {
      bytes wire;
      ASSERT_TRUE(sim_message_encode(message, random_record(message, random).data(), wire));
      if (i % 4 == 0) {
        wire.resize(random() % 64);
      }
      for (uint64_t hits = random() % 4; hits > 0 && !wire.empty(); hits--) {
        wire[random() % wire.size()] = static_cast<uint8_t>(random());
      }
      if (i % 3 == 0 && !wire.empty()) {
        wire.resize(random() % wire.size());
      }
      const bytes exact(wire);  // its own block, so that a read behind it is seen
      bytes record(message.size), again;
      if (sim_message_decode(message, exact.data(), exact.size(), record.data()) != 0) {
        failed++;
        continue;
      }
      decoded++;
      ASSERT_TRUE(sim_message_encode(message, record.data(), again)) << message.name;
    }
  }
  EXPECT_GT(decoded, 1000U);
  EXPECT_GT(failed, 1000U);
}

TEST(sim_codec, samples_for_mutation_decode) {
  for (uint64_t seed = 0; seed < 100; seed++) {
    yrp_nas_incremental_scan_ind_t out;
    EXPECT_EQ(decode(scan(), sim_board_sample("nas", YRP_NAS_INCREMENTAL_NETWORK_SCAN, seed), out), 0);
  }
  EXPECT_TRUE(sim_board_sample("nas", 9999, 1).empty());
}

TEST(sim_codec, what_is_not_present_is_not_printed) {
  yrp_nas_incremental_scan_ind_t ind = {};
  ind.lte_nbr_info_valid = 1;
  ind.lte_nbr_count = 1;
  ind.lte_nbr[0].plmn_count = 1;
  ind.lte_nbr[0].plmn[0] = {272, 1, 0};
  EXPECT_EQ(sim_message_json(scan(), &ind),
            R"("scan_status": 0, "lte_nbr_info_valid": 1, "lte_nbr_count": 1, "lte_nbr": [{"earfcn": 0, "pci": 0, )"
            R"("cgi": 0, "plmn_count": 1, "plmn": [{"plmn_mcc": 272, "plmn_mnc": 1, )"
            R"("plmn_mnc_includes_pcs_digit": 0}]}], "lte_highest_signal_nbr": {"earfcn": 0, "pci": 0, "rsrp": 0, )"
            R"("rsrq": 0})");
}

TEST(sim_codec, a_band_mask_is_printed_in_its_rows) {
  yrp_nas_set_nr5g_cell_lock_list_req_t req = {};
  req.cell_identity_valid = 1;
  const std::string text =
      sim_message_json(message_of(sim_lib::nas, sim_direction::request, YRP_NAS_SET_NR5G_CELL_LOCK_LIST), &req);
  EXPECT_NE(text.find(R"("blocks": [[0, 0,)"), std::string::npos);
  EXPECT_NE(text.find("0], [0"), std::string::npos);
}

TEST(sim_codec, flags_are_cleared_by_name) {
  yrp_nas_sig_info_ind_t ind = {};
  ind.nr5g_rsrq_valid = 1;
  EXPECT_TRUE(sim_message_clear(sig_info(), "nr5g_rsrq_valid", &ind));
  EXPECT_EQ(ind.nr5g_rsrq_valid, 0);
  EXPECT_FALSE(sim_message_clear(sig_info(), "no_such_flag", &ind));
  EXPECT_TRUE(sim_message_has_flag(sig_info(), "lte_sig_info_valid"));
  EXPECT_FALSE(sim_message_has_flag(sig_info(), "tx_valid"));
}

// What the client library makes of the same bytes.

struct sim_decode : sim_board_test {
  template <typename record>
  int32_t decode_as(uint32_t type, uint32_t id, const bytes &in, record &out, size_t out_len) {
    return yrp_client_message_decode(client.handle, type, id, in.data(), static_cast<unsigned int>(in.size()), &out,
                                     static_cast<unsigned int>(out_len));
  }
};

TEST_F(sim_decode, the_wrong_struct_size_an_unknown_id_and_a_stale_handle_fail) {
  board("");
  yrp_nas_sig_info_ind_t out = {};
  EXPECT_EQ(decode_as(YRP_MSG_INDICATION, YRP_NAS_SIG_INFO_IND, {}, out, sizeof out), 0);
  EXPECT_EQ(decode_as(YRP_MSG_INDICATION, YRP_NAS_SIG_INFO_IND, {}, out, sizeof out - 1), YRP_BUFFER_ERR);
  EXPECT_EQ(decode_as(YRP_MSG_INDICATION, 9999, {}, out, sizeof out), YRP_UNKNOWN_MESSAGE_ERR);
  EXPECT_EQ(decode_as(YRP_MSG_RESPONSE, YRP_NAS_SIG_INFO_IND, {}, out, sizeof out), YRP_UNKNOWN_MESSAGE_ERR);
  EXPECT_EQ(decode_as(7, YRP_NAS_SIG_INFO_IND, {}, out, sizeof out), YRP_INVALID_PARAM_ERR);
  client.release();
  EXPECT_EQ(decode_as(YRP_MSG_INDICATION, YRP_NAS_SIG_INFO_IND, {}, out, sizeof out), YRP_INVALID_PARAM_ERR);
  client.handle = nullptr;
}

}  // namespace
