/* SPDX-License-Identifier: Apache-2.0 */
// The model as metrics in Prometheus' text format. Every scrape makes them anew out of one copy of the picture, so that
// no series outlives what it tells; what is not measured has none.
#ifndef LYN_WATCH_METRICS_H
#define LYN_WATCH_METRICS_H

#include <prometheus/metric_family.h>

#include <string>
#include <vector>

#include "lyn_watch_model.h"

/** The content type of the text. */
inline constexpr const char *const lyn_watch_metrics_type = "text/plain; version=0.0.4; charset=utf-8";

/** All families that have a series, the same order at each scrape. */
std::vector<prometheus::MetricFamily> lyn_watch_metrics_families(const lyn_watch_picture_t &picture);

std::string lyn_watch_metrics_text(const lyn_watch_picture_t &picture);

#endif
