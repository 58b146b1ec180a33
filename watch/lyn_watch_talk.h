/* SPDX-License-Identifier: Apache-2.0 */
// One connection to the live picture's server: requests in, answers out, wherever the octets come from. The library
// that answers is given only what is known to be good.
#ifndef LYN_WATCH_TALK_H
#define LYN_WATCH_TALK_H

#include <sys/types.h>

#include <string>

#include "lyn_watch_model.h"

struct lyn_watch_http_plan_t {
  std::string address = "127.0.0.1";                 // or a name
  std::string port;                                  // empty: nothing is served
  std::string machine;                               // its name, which clients may call it by
  size_t clients = 64;                               // at once
  lyn_watch_ms_t head = std::chrono::seconds(5);     // for a request's head, from its first octet
  lyn_watch_ms_t idle = std::chrono::seconds(75);    // without a request: who asks once a minute keeps the connection
  lyn_watch_ms_t answer = std::chrono::seconds(10);  // for an answer to be taken, and each piece of a stream
  lyn_watch_ms_t heartbeat = std::chrono::seconds(15);  // between two pieces of a stream of events
};

/** The two directions of one connection. */
struct lyn_watch_wire_t {
  virtual ~lyn_watch_wire_t() = default;

  /** What has come, at least one octet; 0: nothing follows; negative: nothing came until then. */
  virtual ssize_t read(char *data, size_t size, lyn_watch_time_t until) = 0;

  /** false: not all of it was taken until then. */
  virtual bool write(const char *data, size_t size, lyn_watch_time_t until) = 0;

  /** Nobody reads any more what is written. */
  virtual bool gone() const = 0;
};

/** Answer the requests of one connection until it or the model ends. */
void lyn_watch_talk(lyn_watch_model_t *model, const lyn_watch_http_plan_t &plan, lyn_watch_wire_t *wire);

/** What a connection is answered that is one too many. */
std::string lyn_watch_talk_refusal();

#endif
