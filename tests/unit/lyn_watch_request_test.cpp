/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Heads of requests: what is taken from a good one, and how a bad one is refused.
 */
#include "lyn_watch_request.h"

#include <gtest/gtest.h>

namespace {

const std::string host = "Host: localhost\r\n";

lyn_watch_status_e status_of(const std::string &head) {
  lyn_watch_request_t request;
  return lyn_watch_request_read(head, &request);
}

lyn_watch_request_t read(const std::string &head) {
  lyn_watch_request_t request;
  EXPECT_EQ(lyn_watch_request_read(head, &request), LYN_WATCH_OK) << head;
  return request;
}

TEST(lyn_watch_request, a_good_head_says_method_path_host_and_event_id) {
  const lyn_watch_request_t request =
      read("GET /api/events?x=/y HTTP/1.1\r\nhOST:  board:9750 \r\nLast-Event-ID: 17\r\nAccept: */*\r\n\r\n");
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.path, "/api/events");
  EXPECT_EQ(request.query, "x=/y");
  EXPECT_EQ(request.host, "board:9750");
  EXPECT_EQ(request.event_id, 17u);
  EXPECT_FALSE(request.last);
  EXPECT_FALSE(request.body);
}

TEST(lyn_watch_request, the_whole_address_names_the_host_in_place_of_the_field) {
  for (const auto &[target, path] : {std::pair("http://board/metrics?x", "/metrics"), std::pair("HTTP://board", "/")}) {
    const lyn_watch_request_t request = read("GET " + std::string(target) + " HTTP/1.1\r\n" + host + "\r\n");
    EXPECT_EQ(request.host, "board");
    EXPECT_EQ(request.path, path);
  }
}

TEST(lyn_watch_request, a_query_is_all_behind_the_first_question_mark) {
  for (const auto &[target, query] : {std::pair("/", ""), std::pair("/?", ""), std::pair("/?a?b=/", "a?b=/"),
                                      std::pair("http://board?x", "x"), std::pair("?x", "x")}) {
    EXPECT_EQ(read("GET " + std::string(target) + " HTTP/1.1\r\n" + host + "\r\n").query, query) << target;
  }
}

TEST(lyn_watch_request, the_connection_ends_when_asked_to_and_always_with_the_older_protocol) {
  EXPECT_TRUE(read("GET / HTTP/1.1\r\n" + host + "Connection: TE , Close\r\n\r\n").last);
  EXPECT_FALSE(read("GET / HTTP/1.1\r\n" + host + "Connection: keep-alive\r\n\r\n").last);
  EXPECT_TRUE(read("GET / HTTP/1.0\r\n\r\n").last);
}

TEST(lyn_watch_request, a_body_is_seen_by_its_length_or_its_coding) {
  EXPECT_FALSE(read("GET / HTTP/1.1\r\n" + host + "Content-Length: 0\r\n\r\n").body);
  EXPECT_TRUE(read("GET / HTTP/1.1\r\n" + host + "Content-Length: 1\r\n\r\n").body);
  EXPECT_TRUE(read("GET / HTTP/1.1\r\n" + host + "Transfer-Encoding: chunked\r\n\r\n").body);
}

TEST(lyn_watch_request, an_event_id_that_is_no_number_is_none) {
  for (const char *id : {"", "x", "1x", "-1", "+1", "1 2", "18446744073709551616"}) {
    EXPECT_EQ(read("GET / HTTP/1.1\r\n" + host + "Last-Event-ID: " + id + "\r\n\r\n").event_id, std::nullopt) << id;
  }
}

TEST(lyn_watch_request, what_is_malformed_is_a_bad_request) {
  for (const std::string &head : {
           std::string("\r\n\r\n"),
           std::string("GET\r\n\r\n"),
           std::string("GET / HTTP/1.0\r\n"),
           "GET /\r\n" + host + "\r\n",
           "GET  / HTTP/1.1\r\n" + host + "\r\n",
           "GET / HTTP/1.1 \r\n" + host + "\r\n",
           "GET / HTTP/1.2\r\n" + host + "\r\n",
           "GET / http/1.1\r\n" + host + "\r\n",
           "G\xC3T / HTTP/1.1\r\n" + host + "\r\n",
           " / HTTP/1.1\r\n" + host + "\r\n",
           "GET /\x7F HTTP/1.1\r\n" + host + "\r\n",
           "GET /\xFF HTTP/1.1\r\n" + host + "\r\n",
           std::string("GET / HTTP/1.1\r\n\r\n"),
           "GET / HTTP/1.1\r\n" + host + host + "\r\n",
           "GET / HTTP/1.1\r\n" + host + "no colon\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + ": no name\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + "a space : x\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + "X: folded\r\n line\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + std::string("X: \0\r\n\r\n", 8),
           "GET / HTTP/1.1\r\n" + host + "X: a\rb\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + "X: a\x7F\r\n\r\n",
           std::string("GET / HTTP/1.1\r\nHost: local\x7Fhost\r\n\r\n"),
           "GET / HTTP/1.1\r\n" + host + "Content-Length: -1\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + "Content-Length: 1, 1\r\n\r\n",
           "GET / HTTP/1.1\r\n" + host + "Content-Length: \r\n\r\n",
           "GET / HTTP/1.1\n" + host + "\n",
           "GET / HTTP/1.1\r\n" + host + "\n",
           std::string("GET / HTTP/1.1\r\nHost: localhost\n\n"),
       }) {
    EXPECT_EQ(status_of(head), LYN_WATCH_BAD_REQUEST) << head;
  }
}

TEST(lyn_watch_request, a_field_may_have_tabs_and_octets_beyond_ascii) {
  EXPECT_EQ(status_of("GET / HTTP/1.1\r\n" + host + "X: a\tb\xC3\xA9\r\n\r\n"), LYN_WATCH_OK);
}

TEST(lyn_watch_request, a_target_may_have_so_many_octets_and_no_more) {
  const std::string longest = "/" + std::string(LYN_WATCH_TARGET_SIZE - 1, 'a');
  EXPECT_EQ(status_of("GET " + longest + " HTTP/1.1\r\n" + host + "\r\n"), LYN_WATCH_OK);
  EXPECT_EQ(status_of("GET " + longest + "a HTTP/1.1\r\n" + host + "\r\n"), LYN_WATCH_URI_TOO_LONG);
}

TEST(lyn_watch_request, a_head_ends_behind_its_empty_line) {
  EXPECT_EQ(lyn_watch_request_end("GET / HTTP/1.1\r\n\r\nmore\r\n\r\n"), 18u);
  EXPECT_EQ(lyn_watch_request_end("a\n\nb"), 3u);
  EXPECT_EQ(lyn_watch_request_end("a\n\r\nb"), 4u);
  EXPECT_EQ(lyn_watch_request_end("a\r\nb\r\n"), std::string::npos);
  EXPECT_EQ(lyn_watch_request_end(""), std::string::npos);
}

TEST(lyn_watch_request, addresses_and_own_names_are_accepted_as_hosts) {
  for (const char *good : {"127.0.0.1", "127.0.0.1:9750", "192.168.1.7:80", "[::1]", "[fe80::1]:9750", "localhost",
                           "LocalHost:9750", "board", "BOARD:1", "board.lan:9750", "localhost:"}) {
    EXPECT_TRUE(lyn_watch_request_accepts(good, "board", "board.lan")) << good;
  }
}

TEST(lyn_watch_request, names_that_anybody_can_have_are_refused_as_hosts) {
  for (const char *bad : {"", ":80", "evil.example", "evil.example:9750", "board.evil.example",
                          "localhost.evil.example", "127.0.0.1.evil.example", "[evil.example]", "[::1]evil.example",
                          "[::1", "::1", "127.1", "[]", "localhost:80:80", "localhost:x", "board lan", "[127.0.0.1]"}) {
    EXPECT_FALSE(lyn_watch_request_accepts(bad, "board", "board.lan")) << bad;
  }
  EXPECT_FALSE(lyn_watch_request_accepts("", "", "")) << "a machine without a name";
}

}  // namespace
