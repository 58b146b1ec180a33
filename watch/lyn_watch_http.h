/* SPDX-License-Identifier: Apache-2.0 */
// The model over HTTP: metrics, a snapshot, events as they come, and whether the modem is there. Nothing that a client
// sends changes anything, costs the modem a request or makes anybody wait.
//
// One thread takes connections. Each has a thread of its own as long as it lives; there are so many of them and no
// more, and every wait on the other side has an end.
#ifndef LYN_WATCH_HTTP_H
#define LYN_WATCH_HTTP_H

#include <string>

#include "lyn_watch_model.h"
#include "lyn_watch_talk.h"

/** "9750", "ADDRESS:9750", "[IPV6]:9750"; false: it is no such thing. */
bool lyn_watch_http_parse(const std::string &text, lyn_watch_http_plan_t *plan);

/** Serve, and say on standard error where, or why not. There is one server; the model must live as long as it. */
bool lyn_watch_http_start(lyn_watch_model_t *model, const lyn_watch_http_plan_t &plan);

/** End all connections; false: one of them did not end in time. */
bool lyn_watch_http_stop(lyn_watch_ms_t patience);

#endif
