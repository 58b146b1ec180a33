/*
 * Whatever bytes come as an indication, the module decodes them within its records' room or logs that it could not, and
 * goes on answering. Release builds take 100,000 random and 100,000 mutated messages of each id, sanitizer builds a
 * tenth unless LYN_LONG is set. The seed is printed with a failure; LYN_SEED repeats it.
 */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "ind_bytes.h"

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
  for (uint8_t &octet : bytes)
    octet = static_cast<uint8_t>(random());
  return bytes;
}

octets mutated(uint32_t id, std::mt19937_64 &random) {
  octets bytes = sim_board_sample("nas", id, random());
  if (id == YRP_NAS_INCREMENTAL_NETWORK_SCAN && random() % 2)
    std::fill_n(bytes.begin() + 3, 4, uint8_t{0}); /* the first part is the scan's status: success has a list */
  for (uint64_t hits = random() % 4; hits > 0 && !bytes.empty(); hits--)
    bytes[random() % bytes.size()] = static_cast<uint8_t>(random());
  if (random() % 4 == 0 && !bytes.empty())
    bytes.resize(random() % bytes.size());
  if (random() % 8 == 0) {
    const octets more = random() % 2 ? random_bytes(random) : octets(bytes); /* a part twice */
    bytes.insert(bytes.end(), more.begin(), more.end());
  }
  return bytes;
}

/** Wait until so many were delivered. */
bool delivered(uint32_t what, size_t count) {
  for (int ms = 0; ms < 60000 && ind_bytes_delivered[what] < count; ms++)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return ind_bytes_delivered[what] == count;
}

struct lyn_ind_bytes : testing::Test {
  ox_lyn_hndl_t hndl = 0;
  std::mt19937_64 random{seed()};

  void SetUp() override {
    hndl = ind_bytes_start();
    ASSERT_NE(hndl, 0U);
    for (auto &count : ind_bytes_delivered)
      count = 0;
  }
  void TearDown() override {
    EXPECT_TRUE(ind_bytes_answers(hndl)) << "LYN_SEED=" << seed();
    EXPECT_EQ(ox_lyn_deinit(hndl), OX_LYN_SUCCESS);
    EXPECT_EQ(ind_bytes_beyond, 0U) << "LYN_SEED=" << seed();
  }

  void feed_all(octets (*make)(uint32_t, std::mt19937_64 &), bool both) {
    for (const ind_bytes_kind &kind : ind_bytes_kinds) {
      size_t passed = 0;
      for (size_t i = 0; i < rounds(); i++) {
        const octets bytes = make(kind.id, random);
        bool decoded = false;
        const std::string wrong = ind_bytes_feed(kind, bytes.data(), bytes.size(), &decoded);
        ASSERT_EQ(wrong, "") << kind.id << ", LYN_SEED=" << seed();
        passed += decoded;
      }
      if (both) {
        EXPECT_GT(passed, rounds() / 20) << kind.id;
        EXPECT_LT(passed, rounds()) << kind.id;
      }
      if (kind.delivered == 0)
        continue;
      EXPECT_TRUE(delivered(kind.delivered, passed))
          << kind.id << ": " << ind_bytes_delivered[kind.delivered] << " of " << passed << ", LYN_SEED=" << seed();
    }
  }
};

TEST_F(lyn_ind_bytes, random_bytes_are_decoded_or_logged) {
  feed_all([](uint32_t, std::mt19937_64 &source) { return random_bytes(source); }, false);
}

TEST_F(lyn_ind_bytes, mutated_messages_are_decoded_or_logged) {
  feed_all(mutated, true);
}

TEST_F(lyn_ind_bytes, bytes_of_an_id_that_is_not_handled_are_ignored) {
  for (const uint32_t id : {0U, 3U, 79U, 132U, 333U, 65535U}) {
    octets bytes = random_bytes(random);
    ind_bytes_failure.clear();
    lyn_yrp_nas_ind_cb(yrp_nas_clnt_handle, id, bytes.data(), static_cast<unsigned int>(bytes.size()), nullptr);
    EXPECT_EQ(ind_bytes_failure, "");
  }
}

/** The fuzz target's seeds: first octet the kind, then a message. LYN_CORPUS names a folder to write them to. */
TEST_F(lyn_ind_bytes, the_fuzz_targets_seeds_are_real_messages) {
  const char *folder = getenv("LYN_TEST_DATA");
  ASSERT_NE(folder, nullptr);
  const auto corpus = std::filesystem::path(folder).parent_path() / "fuzz/corpus/ind";
  for (size_t kind = 0; kind < std::size(ind_bytes_kinds); kind++) {
    for (uint64_t number = 1; number <= 3; number++) {
      octets bytes = sim_board_sample("nas", ind_bytes_kinds[kind].id, number);
      bytes.insert(bytes.begin(), static_cast<uint8_t>(kind));
      const std::string name = std::to_string(ind_bytes_kinds[kind].id) + "-" + std::to_string(number);
      if (const char *target = getenv("LYN_CORPUS"))
        std::ofstream(std::filesystem::path(target) / name, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
      std::ifstream file(corpus / name, std::ios::binary);
      const octets kept{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
      EXPECT_EQ(kept, bytes) << name;
    }
  }
}

}  // namespace
