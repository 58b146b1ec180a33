/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Where the live picture may be served.
 */
#include "lyn_watch_http.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

TEST(lyn_watch_http, an_address_to_serve_on_is_a_port_or_both) {
  for (const auto &[text, address, port] :
       {std::tuple("9750", "127.0.0.1", "9750"), std::tuple("0", "127.0.0.1", "0"),
        std::tuple("0.0.0.0:65535", "0.0.0.0", "65535"), std::tuple("[::1]:9750", "::1", "9750"),
        std::tuple("localhost:1", "localhost", "1")}) {
    lyn_watch_http_plan_t plan;
    EXPECT_TRUE(lyn_watch_http_parse(text, &plan)) << text;
    EXPECT_EQ(plan.address, address);
    EXPECT_EQ(plan.port, port);
  }
}

TEST(lyn_watch_http, anything_else_is_no_address_to_serve_on) {
  for (const char *text : {"", "x", "-1", "65536", "99999999999999999999", "9750x", " 9750", ":9750", "[]:9750",
                           "::1:9750", "[::1]", "[::1:9750", "::1]:9750", "localhost", "localhost:", "a:b:1"}) {
    lyn_watch_http_plan_t plan;
    EXPECT_FALSE(lyn_watch_http_parse(text, &plan)) << text;
  }
}

}  // namespace
