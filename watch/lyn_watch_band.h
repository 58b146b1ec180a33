/* SPDX-License-Identifier: Apache-2.0 */
// Which band a channel number belongs to: tables of 3GPP TS 36.101 (5.7.3) and TS 38.104 (5.4.2.3, 5.4.3). LTE's
// numbers name one band each; an NR-ARFCN names a frequency, which may lie in several.
#ifndef LYN_WATCH_BAND_H
#define LYN_WATCH_BAND_H

#include <cstdint>
#include <vector>

/** The band of a downlink EARFCN; empty: none has it. */
std::vector<double> lyn_watch_lte_bands(int64_t earfcn);

/** All bands that a downlink NR-ARFCN lies in, the lowest number first; empty: none. */
std::vector<double> lyn_watch_nr5g_bands(int64_t arfcn);

#endif
