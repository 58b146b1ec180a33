/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Whatever bytes come as an indication, the module decodes them within its records' room or logs that it could not, and
 * goes on answering. Release builds take 100,000 random and 100,000 mutated messages of each id, sanitizer builds a
 * tenth unless LYN_LONG is set. The seed is printed with a failure; LYN_SEED repeats it.
 */
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <random>

#include "ind_bytes.h"
#include "source_dir.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
static constexpr bool slow_build = true;
#else
static constexpr bool slow_build = false;
#endif

namespace {

using octets = std::vector<uint8_t>;

size_t rounds() {
  const char *wanted = getenv("LYN_LONG");
  return slow_build && (wanted == nullptr || *wanted == '\0') ? 10000 : 100000;
}

uint64_t seed() {
  const char *wanted = getenv("LYN_SEED");
  static const uint64_t drawn = wanted != nullptr ? strtoull(wanted, nullptr, 10) : std::random_device()();
  return drawn;
}

octets random_bytes(std::mt19937_64 &random) {
  octets bytes(random() % 64);
  for (uint8_t &octet : bytes) {
    octet = static_cast<uint8_t>(random());
  }
  return bytes;
}

octets sample(const ind_bytes_kind &kind, uint64_t number) {
  return sim_board_sample(kind.lib == sim_lib::nas ? "nas" : "oxmap", kind.id, number);
}

/** Put a value into the codes of a whole message. */
void set_codes(const ind_bytes_kind &kind, uint32_t value, octets &bytes) {
  for (const uint8_t at : kind.codes) {
    if (at != 0) {
      memcpy(&bytes[at], &value, sizeof value);
    }
  }
}

octets mutated(const ind_bytes_kind &kind, std::mt19937_64 &random) {
  octets bytes = sample(kind, random());
  if (kind.few != 0 && random() % 2) {
    set_codes(kind, static_cast<uint32_t>(random() % kind.few), bytes);
  }
  for (uint64_t hits = random() % 4; hits > 0 && !bytes.empty(); hits--) {
    bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
  }
  if (random() % 4 == 0 && !bytes.empty()) {
    bytes.resize(random() % bytes.size());
  }
  if (random() % 8 == 0) {
    const octets more = random() % 2 ? random_bytes(random) : octets(bytes); /* a part twice */
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  return bytes;
}

std::string repeated(const std::string &text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; i++) {
    all += text;
  }
  return all;
}

struct lyn_ind_bytes : testing::Test {
  ox_lyn_hndl_t hndl = 0;
  std::mt19937_64 random{seed()};

  void SetUp() override {
    hndl = ind_bytes_start();
    ASSERT_NE(hndl, 0U);
    for (auto &count : ind_bytes_delivered) {
      count = 0;
    }
    ind_bytes_decoded = {};
    ind_bytes_beyond = 0;
  }
  void TearDown() override {
    EXPECT_TRUE(ind_bytes_answers(hndl)) << "LYN_SEED=" << seed();
    EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    EXPECT_EQ(ind_bytes_settle(), "") << "LYN_SEED=" << seed(); /* nothing more has come */
  }

  /** Feed so many messages of `make`; returns how many decoded. */
  static size_t feed(const ind_bytes_kind &kind, size_t count, const std::function<octets(size_t)> &make) {
    size_t passed = 0, fed = 0;
    std::string wrong;
    testing::internal::CaptureStdout();
    while (fed < count && wrong.empty()) {
      const octets bytes = make(fed++);
      bool decoded = false;
      wrong = ind_bytes_feed(kind, bytes.data(), bytes.size(), &decoded);
      passed += decoded;
    }
    const bool printed = testing::internal::GetCapturedStdout() == repeated(kind.prints, fed);
    EXPECT_EQ(wrong, "") << kind.id << ", LYN_SEED=" << seed();
    EXPECT_TRUE(printed) << kind.id << ", LYN_SEED=" << seed();
    EXPECT_EQ(ind_bytes_settle(), "") << "LYN_SEED=" << seed();
    return passed;
  }
};

TEST_F(lyn_ind_bytes, random_bytes_are_decoded_or_logged) {
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    feed(kind, rounds(), [this](size_t) { return random_bytes(random); });
  }
}

TEST_F(lyn_ind_bytes, mutated_messages_are_decoded_or_logged) {
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    const size_t passed = feed(kind, rounds(), [&](size_t) { return mutated(kind, random); });
    EXPECT_GT(passed, rounds() / 20) << kind.id;
    EXPECT_LT(passed, rounds()) << kind.id;
  }
}

TEST_F(lyn_ind_bytes, every_beginning_of_a_message_is_decoded_or_logged) {
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    for (uint64_t number = 1; number <= 20; number++) {
      const octets whole = sample(kind, number);
      const auto first = whole.begin();
      feed(kind, whole.size(), [&](size_t size) { return octets(first, first + static_cast<ptrdiff_t>(size)); });
      EXPECT_EQ(feed(kind, 1, [&](size_t) { return whole; }), 1U) << kind.id;
    }
  }
}

/* Of a part that nobody knows only the length is looked at. */
TEST_F(lyn_ind_bytes, an_unknown_part_of_any_length_is_skipped_unless_its_end_is_missing) {
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    octets bytes = sample(kind, random());
    bytes.insert(bytes.end(), {0xfe, 0xff, 0xff});
    bytes.resize(bytes.size() + 0xffff, 0x01);
    EXPECT_EQ(feed(kind, 1, [&](size_t) { return bytes; }), 1U) << kind.id << ", LYN_SEED=" << seed();
    bytes.pop_back();
    EXPECT_EQ(feed(kind, 1, [&](size_t) { return bytes; }), 0U) << kind.id << ", LYN_SEED=" << seed();
  }
}

TEST_F(lyn_ind_bytes, bytes_of_an_id_that_the_client_does_not_handle_are_ignored) {
  const auto ignores = [this](sim_lib lib, uint32_t id) {
    octets bytes = random_bytes(random);
    ind_bytes_failure.clear();
    ind_bytes_indicate(lib, id, bytes);
    EXPECT_EQ(ind_bytes_failure, "") << id;
  };
  for (const uint32_t id : {0U, 3U, 79U, 132U, 333U, 65535U}) {
    ignores(sim_lib::nas, id);
    ignores(sim_lib::oxmap, id);
  }
  for (const ind_bytes_kind &kind : ind_bytes_kinds) {
    ignores(kind.lib == sim_lib::nas ? sim_lib::oxmap : sim_lib::nas, kind.id);
  }
}

/** Hold a file of the corpus to a kind and its message. LYN_CORPUS names a folder to write it to. */
void check_seed(const std::string &name, size_t kind, octets bytes) {
  bytes.insert(bytes.begin(), static_cast<uint8_t>(kind));
  if (const char *target = getenv("LYN_CORPUS")) {
    std::ofstream(std::filesystem::path(target) / name, std::ios::binary)
        .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  std::ifstream file(source_path("tests/fuzz/corpus/ind/" + name), std::ios::binary);
  const octets kept{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  EXPECT_EQ(kept, bytes) << name;
}

/** First octet the kind, then a message, or one whose last octet is missing. */
TEST_F(lyn_ind_bytes, the_fuzz_targets_seeds_are_made_of_real_messages) {
  for (size_t index = 0; index < std::size(ind_bytes_kinds); index++) {
    const ind_bytes_kind &kind = ind_bytes_kinds[index];
    for (uint64_t number = 1; number <= 3; number++) {
      check_seed(std::to_string(kind.id) + "-" + std::to_string(number), index, sample(kind, number));
    }
    octets cut = sample(kind, 3);
    ASSERT_FALSE(cut.empty()) << kind.id;
    cut.pop_back();
    check_seed(std::to_string(kind.id) + "-cut", index, cut);
    for (uint32_t code = 0; code < kind.few; code++) {
      octets bytes = sample(kind, 1);
      set_codes(kind, code, bytes);
      check_seed(std::to_string(kind.id) + "-code-" + std::to_string(code), index, bytes);
    }
  }
}

}  // namespace
