/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Where the live picture may be served, and what becomes of those who come.
 *
 * The program is linked with --wrap for the call that takes a connection (tests/CMakeLists.txt).
 */
#include "lyn_watch_http.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>
#include <tuple>

namespace {

std::atomic<int> accepts{0};

}  // namespace

extern "C" {

// The names are the linker's: --wrap=SYMBOL calls __wrap_SYMBOL and offers the original as __real_SYMBOL.
// NOLINTBEGIN(bugprone-reserved-identifier)
int __real_accept4(int fd, sockaddr *address, socklen_t *size, int flags);
int __wrap_accept4(int fd, sockaddr *address, socklen_t *size, int flags) {
  accepts++;
  return __real_accept4(fd, address, size, flags);
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

using testing::HasSubstr;

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

/** A server with room for two. A process has one, which does not begin again once it has ended. */
class lyn_watch_http_server : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    static lyn_watch_model_t *const model = new lyn_watch_model_t;
    lyn_watch_model_init(model, "board");
    lyn_watch_http_plan_t plan;
    plan.port = "0";
    plan.clients = 2;
    const std::string place = lyn_watch_http_open(plan);
    port = static_cast<uint16_t>(std::stoul(place.substr(place.rfind(':') + 1)));
    ASSERT_TRUE(lyn_watch_http_start(model));
  }
  static void TearDownTestSuite() { EXPECT_TRUE(lyn_watch_http_stop(std::chrono::seconds(60))); }

  static inline uint16_t port = 0;

  static int unconnected() {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    const timeval patience = {.tv_sec = 60, .tv_usec = 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    return fd;
  }

  static int connect_to_it(int fd) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return fd;
  }

  /** What comes up to the end of the connection. */
  static std::string read_to_end(int fd) {
    std::string text;
    char piece[4096];
    for (ssize_t count = 0; (count = read(fd, piece, sizeof piece)) > 0;) {
      text.append(piece, static_cast<size_t>(count));
    }
    return text;
  }

  static std::string ask(int fd) {
    const std::string request = "GET /health HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    EXPECT_EQ(write(fd, request.data(), request.size()), static_cast<ssize_t>(request.size()));
    return read_to_end(fd);
  }

  static long descriptors() {
    const std::filesystem::directory_iterator open("/proc/self/fd");
    return std::distance(begin(open), end(open));
  }

  static void wait_for_descriptors(long number) {
    for (int ms = 0; ms < 60000 && descriptors() != number; ms++) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(descriptors(), number);
  }
};

TEST_F(lyn_watch_http_server, who_finds_no_place_is_told_so_and_let_go) {
  const long before = descriptors();
  const int places[] = {connect_to_it(unconnected()), connect_to_it(unconnected())};
  wait_for_descriptors(before + 4);  // either end
  const int calls = accepts;
  for (int i = 0; i < 20; i++) {
    const int refused = connect_to_it(unconnected());
    EXPECT_THAT(read_to_end(refused), HasSubstr("HTTP/1.1 503 "));
    close(refused);
  }
  wait_for_descriptors(before + 4);
  const int stays = connect_to_it(unconnected());
  EXPECT_THAT(read_to_end(stays), HasSubstr("HTTP/1.1 503 "));
  wait_for_descriptors(before + 5);  // its own end alone
  EXPECT_LT(accepts - calls, 200) << "between events nothing is done";
  close(stays);
  close(places[0]);
  close(places[1]);
  wait_for_descriptors(before);
  const int later = connect_to_it(unconnected());
  EXPECT_THAT(ask(later), HasSubstr("HTTP/1.1 503 ")) << "there is no modem";
  close(later);
}

TEST_F(lyn_watch_http_server, a_connection_may_have_any_number) {
  const int input = dup(STDIN_FILENO);
  const int client = unconnected();
  close(STDIN_FILENO);
  EXPECT_THAT(ask(connect_to_it(client)), HasSubstr("\"state\""));
  close(client);
  for (int ms = 0; ms < 60000 && fcntl(STDIN_FILENO, F_GETFD) >= 0; ms++) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  dup2(input, STDIN_FILENO);
  close(input);
}

}  // namespace
