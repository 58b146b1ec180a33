/* SPDX-License-Identifier: Apache-2.0 */
// The model over HTTP: a page, metrics, a snapshot, ten minutes, events as they come, and whether the modem is there.
// Nothing that a client sends changes anything, costs the modem a request or makes anybody wait.
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

/** Listen, and say on standard error where, or why not. There is one server. "http://ADDR:PORT/"; empty: it does not.
 */
std::string lyn_watch_http_open(const lyn_watch_http_plan_t &plan);

/** Answer who comes; the model must live as long as the process. false: there is no thread to be had. */
bool lyn_watch_http_start(lyn_watch_model_t *model);

/** End all connections; false: one of them did not end in time. */
bool lyn_watch_http_stop(lyn_watch_ms_t patience);

#endif
