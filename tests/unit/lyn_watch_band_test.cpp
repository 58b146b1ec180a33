/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Bands by channel: their edges, the gaps between them, and the frequencies that the NR 5G ones stand for.
 */
#include "lyn_watch_band.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;

/** The downlink NR-ARFCN of a frequency, not rounded: TS 38.104 5.4.2.1. */
double raster_of(double mhz) {
  if (mhz < 3000) {
    return mhz / 0.005;
  }
  return mhz < 24250.08 ? 600000 + (mhz - 3000) / 0.015 : 2016667 + (mhz - 24250.08) / 0.06;
}

int64_t arfcn_of(double mhz) {
  return static_cast<int64_t>(raster_of(mhz));
}

/** A band's downlink, MHz, and where its channels of 100 kHz begin to count: TS 36.101 5.7.3. */
struct lte_band {
  double band, from, to;
  int64_t offset;
};

constexpr lte_band lte_bands[] = {
    {1, 2110, 2170, 0},        {2, 1930, 1990, 600},    {3, 1805, 1880, 1200},      {4, 2110, 2155, 1950},
    {5, 869, 894, 2400},       {6, 875, 885, 2650},     {7, 2620, 2690, 2750},      {8, 925, 960, 3450},
    {9, 1844.9, 1879.9, 3800}, {10, 2110, 2170, 4150},  {11, 1475.9, 1495.9, 4750}, {12, 729, 746, 5010},
    {13, 746, 756, 5180},      {14, 758, 768, 5280},    {17, 734, 746, 5730},       {18, 860, 875, 5850},
    {19, 875, 890, 6000},      {20, 791, 821, 6150},    {21, 1495.9, 1510.9, 6450}, {22, 3510, 3590, 6600},
    {23, 2180, 2200, 7500},    {24, 1525, 1559, 7700},  {25, 1930, 1995, 8040},     {26, 859, 894, 8690},
    {27, 852, 869, 9040},      {28, 758, 803, 9210},    {29, 717, 728, 9660},       {30, 2350, 2360, 9770},
    {31, 462.5, 467.5, 9870},  {32, 1452, 1496, 9920},  {33, 1900, 1920, 36000},    {34, 2010, 2025, 36200},
    {35, 1850, 1910, 36350},   {36, 1930, 1990, 36950}, {37, 1910, 1930, 37550},    {38, 2570, 2620, 37750},
    {39, 1880, 1920, 38250},   {40, 2300, 2400, 38650}, {41, 2496, 2690, 39650},    {42, 3400, 3600, 41590},
    {43, 3600, 3800, 43590},   {44, 703, 803, 45590},   {45, 1447, 1467, 46590},    {46, 5150, 5925, 46790},
    {47, 5855, 5925, 54540},   {48, 3550, 3700, 55240}, {49, 3550, 3700, 56740},    {50, 1432, 1517, 58240},
    {51, 1427, 1432, 59090},   {52, 3300, 3400, 59140}, {53, 2483.5, 2495, 60140},  {54, 1670, 1675, 60255},
    {65, 2110, 2200, 65536},   {66, 2110, 2200, 66436}, {67, 738, 758, 67336},      {68, 753, 783, 67536},
    {69, 2570, 2620, 67836},   {70, 1995, 2020, 68336}, {71, 617, 652, 68586},      {72, 461, 466, 68936},
    {73, 460, 465, 68986},     {74, 1475, 1518, 69036}, {75, 1432, 1517, 69466},    {76, 1427, 1432, 70316},
    {85, 728, 746, 70366},     {87, 420, 425, 70546},   {88, 422, 427, 70596},      {103, 757, 758, 70646}};

TEST(lyn_watch_band, each_lte_band_has_the_channels_of_its_frequencies) {
  for (const lte_band &each : lte_bands) {
    const auto count = static_cast<int64_t>(std::lround((each.to - each.from) * 10));
    EXPECT_THAT(lyn_watch_lte_bands(each.offset), ElementsAre(each.band));
    EXPECT_THAT(lyn_watch_lte_bands(each.offset + count - 1), ElementsAre(each.band));
    EXPECT_THAT(lyn_watch_lte_bands(each.offset - 1), Not(Contains(each.band)));
    EXPECT_THAT(lyn_watch_lte_bands(each.offset + count), Not(Contains(each.band)));
  }
}

/** A band's downlink, MHz: TS 38.104 5.2. */
struct nr5g_band {
  double band, from, to;
};

constexpr nr5g_band nr5g_bands[] = {
    {1, 2110, 2170},     {2, 1930, 1990},     {3, 1805, 1880},     {5, 869, 894},       {7, 2620, 2690},
    {8, 925, 960},       {12, 729, 746},      {13, 746, 756},      {14, 758, 768},      {18, 860, 875},
    {20, 791, 821},      {24, 1525, 1559},    {25, 1930, 1995},    {26, 859, 894},      {28, 758, 803},
    {29, 717, 728},      {30, 2350, 2360},    {31, 462.5, 467.5},  {34, 2010, 2025},    {38, 2570, 2620},
    {39, 1880, 1920},    {40, 2300, 2400},    {46, 5150, 5925},    {47, 5855, 5925},    {48, 3550, 3700},
    {50, 1432, 1517},    {51, 1427, 1432},    {53, 2483.5, 2495},  {54, 1670, 1675},    {65, 2110, 2200},
    {66, 2110, 2200},    {67, 738, 758},      {70, 1995, 2020},    {71, 617, 652},      {72, 461, 466},
    {74, 1475, 1518},    {75, 1432, 1517},    {76, 1427, 1432},    {77, 3300, 4200},    {78, 3300, 3800},
    {79, 4400, 5000},    {85, 728, 746},      {90, 2496, 2690},    {91, 1427, 1432},    {92, 1432, 1517},
    {93, 1427, 1432},    {94, 1432, 1517},    {96, 5925, 7125},    {100, 919.4, 925},   {101, 1900, 1910},
    {102, 5925, 6425},   {104, 6425, 7125},   {105, 612, 652},     {257, 26500, 29500}, {258, 24250.08, 27500},
    {259, 39500, 43500}, {260, 37000, 40000}, {261, 27500, 28350}, {262, 47200, 48200}};

TEST(lyn_watch_band, each_nr5g_band_has_the_channels_of_its_frequencies) {
  for (const nr5g_band &each : nr5g_bands) {
    const auto first = static_cast<int64_t>(std::ceil(raster_of(each.from) - 1e-6));
    const auto last = static_cast<int64_t>(std::floor(raster_of(each.to) + 1e-6));
    EXPECT_THAT(lyn_watch_nr5g_bands(first), Contains(each.band));
    EXPECT_THAT(lyn_watch_nr5g_bands(last), Contains(each.band));
    EXPECT_THAT(lyn_watch_nr5g_bands(first - 1), Not(Contains(each.band))) << each.band;
    EXPECT_THAT(lyn_watch_nr5g_bands(last + 1), Not(Contains(each.band))) << each.band;
  }
}

/** Channels of these two are counted in steps, and none stands at every end of their frequencies. */
TEST(lyn_watch_band, nr5g_bands_whose_channels_stand_in_steps_end_with_the_last_one) {
  EXPECT_THAT(lyn_watch_nr5g_bands(499199), Not(Contains(41)));
  EXPECT_THAT(lyn_watch_nr5g_bands(499200), Contains(41));
  EXPECT_THAT(lyn_watch_nr5g_bands(537999), Contains(41));
  EXPECT_THAT(lyn_watch_nr5g_bands(538000), Not(Contains(41)));
  EXPECT_THAT(lyn_watch_nr5g_bands(2564082), IsEmpty());
  EXPECT_THAT(lyn_watch_nr5g_bands(2564083), ElementsAre(263));
  EXPECT_THAT(lyn_watch_nr5g_bands(2794249), ElementsAre(263));
  EXPECT_THAT(lyn_watch_nr5g_bands(2794250), IsEmpty());
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
