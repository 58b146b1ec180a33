/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Bands by channel: their edges, the gaps between them, and the frequencies that the NR 5G ones stand for.
 */
#include "lyn_watch_band.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/** The downlink NR-ARFCN of a frequency, TS 38.104 5.4.2.1. */
int64_t arfcn_of(double mhz) {
  if (mhz < 3000) {
    return static_cast<int64_t>(mhz * 1000 / 5);
  }
  return mhz < 24250.08 ? 600000 + static_cast<int64_t>((mhz - 3000) / 0.015)
                        : 2016667 + static_cast<int64_t>((mhz - 24250.08) / 0.06);
}

TEST(lyn_watch_band, lte_bands_begin_and_end_where_they_should) {
  EXPECT_THAT(lyn_watch_lte_bands(0), ElementsAre(1));
  EXPECT_THAT(lyn_watch_lte_bands(599), ElementsAre(1));
  EXPECT_THAT(lyn_watch_lte_bands(600), ElementsAre(2));
  EXPECT_THAT(lyn_watch_lte_bands(1949), ElementsAre(3));
  EXPECT_THAT(lyn_watch_lte_bands(6300), ElementsAre(20));
  EXPECT_THAT(lyn_watch_lte_bands(37750), ElementsAre(38));
  EXPECT_THAT(lyn_watch_lte_bands(41589), ElementsAre(41));
  EXPECT_THAT(lyn_watch_lte_bands(68586), ElementsAre(71));
}

TEST(lyn_watch_band, lte_channels_between_bands_have_none) {
  for (const int64_t channel : {-1, 4950, 5379 + 1, 10360, 35999, 60305, 65535, 70656, 262143}) {
    EXPECT_THAT(lyn_watch_lte_bands(channel), IsEmpty()) << channel;
  }
}

TEST(lyn_watch_band, an_lte_channel_is_in_one_band_at_most) {
  for (int64_t channel = 0; channel <= 71000; ++channel) {
    EXPECT_LE(lyn_watch_lte_bands(channel).size(), 1U) << channel;
  }
}

TEST(lyn_watch_band, nr5g_bands_hold_the_frequencies_that_name_them) {
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(2140)), ElementsAre(1, 65, 66));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(1842.5)), ElementsAre(3));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(778)), ElementsAre(28));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(2600)), ElementsAre(38, 41, 90));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(3500)), ElementsAre(77, 78));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(3600)), ElementsAre(48, 77, 78));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(4000)), ElementsAre(77));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(4700)), ElementsAre(79));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(26000)), ElementsAre(258));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(28000)), ElementsAre(257, 261));
  EXPECT_THAT(lyn_watch_nr5g_bands(arfcn_of(39000)), ElementsAre(260));
}

TEST(lyn_watch_band, nr5g_channels_outside_of_every_band_have_none) {
  for (const int64_t channel : {int64_t{-1}, int64_t{0}, int64_t{619999}, int64_t{733334}, int64_t{3279165}}) {
    EXPECT_THAT(lyn_watch_nr5g_bands(channel), IsEmpty()) << channel;
  }
}

}  // namespace
