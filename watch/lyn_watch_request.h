/* SPDX-License-Identifier: Apache-2.0 */
// The head of an HTTP request, read strictly: what is not as RFC 9110 and RFC 9112 write it is refused, and nothing of
// it goes any further than what is in lyn_watch_request_t.
#ifndef LYN_WATCH_REQUEST_H
#define LYN_WATCH_REQUEST_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

enum {
  LYN_WATCH_HEAD_SIZE = 8192,   // octets of a head, its empty line included
  LYN_WATCH_TARGET_SIZE = 1024  // octets of a request target
};

/** Status codes of HTTP. */
enum lyn_watch_status_e {
  LYN_WATCH_OK = 200,
  LYN_WATCH_BAD_REQUEST = 400,
  LYN_WATCH_NOT_FOUND = 404,
  LYN_WATCH_METHOD_NOT_ALLOWED = 405,
  LYN_WATCH_REQUEST_TIMEOUT = 408,
  LYN_WATCH_CONTENT_TOO_LARGE = 413,
  LYN_WATCH_URI_TOO_LONG = 414,
  LYN_WATCH_MISDIRECTED = 421,
  LYN_WATCH_HEAD_TOO_LARGE = 431,
  LYN_WATCH_UNAVAILABLE = 503
};

struct lyn_watch_request_t {
  std::string method;
  std::string path;                  // without query
  std::string query;                 // behind the question mark
  bool http_1_0 = false;             // the protocol is HTTP/1.0
  std::optional<std::string> host;   // and port, as given
  bool last = false;                 // nothing follows on this connection
  bool body = false;                 // there is one, or may be
  std::optional<uint64_t> event_id;  // Last-Event-ID, where it is a number
};

/** Where the head ends, behind its empty line, also one of a client that ends lines wrongly; npos: not yet. */
size_t lyn_watch_request_end(std::string_view text);

/** Read a whole head. LYN_WATCH_OK, or what it is refused with. */
lyn_watch_status_e lyn_watch_request_read(std::string_view head, lyn_watch_request_t *request);

/**
 * Whether this Host may be answered. A page of another origin can have its own name lead to this address, and read the
 * answers; it cannot have an address for its name, nor a name that is this machine's.
 */
bool lyn_watch_request_accepts(const std::string &host, const std::string &own_name, const std::string &given_address);

#endif
