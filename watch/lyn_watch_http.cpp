/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_http.h"

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <set>
#include <utility>

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

// How long a connection that we end stays open for what the other side still sends: closed at once, our last answer may
// be lost to it.
static constexpr milliseconds LYN_WATCH_LINGER = seconds(1);

/* Sockets */

static int lyn_watch_left_ms(lyn_watch_time_t until) {
  const auto left = std::chrono::ceil<milliseconds>(until - steady_clock::now()).count();
  return static_cast<int>(std::clamp<int64_t>(left, 0, INT_MAX));
}

// Whether one of these events comes until then.
static bool lyn_watch_await(int fd, short events, lyn_watch_time_t until) {
  pollfd entry = {.fd = fd, .events = events, .revents = 0};
  int count = 0;
  do {
    count = poll(&entry, 1, lyn_watch_left_ms(until));
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

class lyn_watch_socket_t : public lyn_watch_wire_t {
 public:
  explicit lyn_watch_socket_t(int fd) : fd_(fd) {}

  ssize_t read(char *data, size_t size, lyn_watch_time_t until) override {
    if (!lyn_watch_await(fd_, POLLIN, until)) {
      return -1;
    }
    return std::max<ssize_t>(recv(fd_, data, size, 0), 0);
  }

  bool write(const char *data, size_t size, lyn_watch_time_t until) override {
    while (size != 0) {
      if (!lyn_watch_await(fd_, POLLOUT, until)) {
        return false;
      }
      const ssize_t count = send(fd_, data, size, MSG_NOSIGNAL);
      if (count < 0) {
        return false;
      }
      data += count;
      size -= static_cast<size_t>(count);
    }
    return true;
  }

  bool gone() const override { return lyn_watch_await(fd_, POLLRDHUP, steady_clock::now()); }

 private:
  int fd_;
};

/* The server */

struct lyn_watch_server_t {
  lyn_watch_model_t *model = nullptr;
  lyn_watch_http_plan_t plan;
  int listener = -1;

  std::mutex mutex;  // of all below
  std::condition_variable changed;
  std::set<int> clients;  // their sockets
  bool ending = false;
  bool ended = false;  // nobody is let in any more
};

// Never destroyed: its threads may run until the process has ended.
static lyn_watch_server_t *const lyn_watch_server = new lyn_watch_server_t;

static void lyn_watch_linger(int fd) {
  shutdown(fd, SHUT_WR);
  const lyn_watch_time_t until = steady_clock::now() + LYN_WATCH_LINGER;
  lyn_watch_socket_t socket(fd);
  char data[2048];
  while (socket.read(data, sizeof(data), until) > 0 && steady_clock::now() < until) {
  }
}

static void *lyn_watch_client_main(void *argument) {
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(argument));
  try {
    lyn_watch_socket_t socket(fd);
    lyn_watch_talk(lyn_watch_server->model, lyn_watch_server->plan, &socket);
  } catch (...) {  // out of memory
  }
  lyn_watch_linger(fd);
  const std::lock_guard lock(lyn_watch_server->mutex);
  lyn_watch_server->clients.erase(fd);
  close(fd);
  lyn_watch_server->changed.notify_all();
  return nullptr;
}

static bool lyn_watch_start_thread(void *(*main)(void *), void *argument) {
  static constexpr size_t stack = 512 * 1024;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stack);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int error = pthread_create(&thread, &attributes, main, argument);
  pthread_attr_destroy(&attributes);
  return error == 0;
}

// false: there are too many already, or no thread.
static bool lyn_watch_admit(int fd) {
  const std::lock_guard lock(lyn_watch_server->mutex);
  if (lyn_watch_server->ending || lyn_watch_server->clients.size() >= lyn_watch_server->plan.clients ||
      !lyn_watch_start_thread(lyn_watch_client_main, reinterpret_cast<void *>(static_cast<intptr_t>(fd)))) {
    return false;
  }
  lyn_watch_server->clients.insert(fd);
  return true;
}

/* Who is not let in gets an answer and some time to read it, without a thread */

struct lyn_watch_refused_t {
  int fd;
  lyn_watch_time_t until;
};

static void lyn_watch_refuse(int fd, std::deque<lyn_watch_refused_t> *refused) {
  static const auto *const text = new std::string(lyn_watch_talk_refusal());
  static constexpr size_t most = 16;
  send(fd, text->data(), text->size(), MSG_NOSIGNAL);
  shutdown(fd, SHUT_WR);
  refused->push_back({.fd = fd, .until = steady_clock::now() + LYN_WATCH_LINGER});
  if (refused->size() > most) {
    close(refused->front().fd);
    refused->pop_front();
  }
}

static void lyn_watch_drop_refused(std::deque<lyn_watch_refused_t> *refused) {
  const lyn_watch_time_t now = steady_clock::now();
  std::erase_if(*refused, [now](const lyn_watch_refused_t &client) {
    char data[2048];
    const ssize_t count = recv(client.fd, data, sizeof(data), 0);
    const bool over = now >= client.until || count == 0 || (count < 0 && errno != EAGAIN);
    return over && close(client.fd) == 0;
  });
}

static void lyn_watch_accept(std::deque<lyn_watch_refused_t> *refused) {
  static constexpr milliseconds calm(100);
  const int fd = accept4(lyn_watch_server->listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
  if (fd >= 0) {
    if (!lyn_watch_admit(fd)) {
      lyn_watch_refuse(fd, refused);
    }
  } else if (errno != ECONNABORTED && errno != EAGAIN) {
    usleep(std::chrono::microseconds(calm).count());  // no descriptor or memory to be had: who waits goes on waiting
  }
}

// Until someone comes, or one of the refused has sent something or had its time; false: it is to end.
static bool lyn_watch_await_client(const std::deque<lyn_watch_refused_t> &refused) {
  std::vector<pollfd> entries = {{.fd = lyn_watch_server->listener, .events = POLLIN, .revents = 0}};
  for (const lyn_watch_refused_t &client : refused) {
    entries.push_back({.fd = client.fd, .events = POLLIN, .revents = 0});
  }
  poll(entries.data(), entries.size(), refused.empty() ? -1 : lyn_watch_left_ms(refused.front().until));
  const std::lock_guard lock(lyn_watch_server->mutex);
  return !lyn_watch_server->ending;
}

static void *lyn_watch_server_main(void *) {
  std::deque<lyn_watch_refused_t> refused;
  while (lyn_watch_await_client(refused)) {
    lyn_watch_drop_refused(&refused);
    lyn_watch_accept(&refused);
  }
  const std::lock_guard lock(lyn_watch_server->mutex);
  lyn_watch_server->ended = true;
  lyn_watch_server->changed.notify_all();
  return nullptr;
}

/* Where it listens */

bool lyn_watch_http_parse(const std::string &text, lyn_watch_http_plan_t *plan) {
  const size_t colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? text : text.substr(colon + 1);
  if (port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos ||
      std::stoul(port) > UINT16_MAX) {
    return false;
  }
  if (colon != std::string::npos) {
    const bool brackets = text.starts_with('[') && colon > 2 && text[colon - 1] == ']';
    const std::string address = brackets ? text.substr(1, colon - 2) : text.substr(0, colon);
    if (address.empty() || (!brackets && address.find_first_of(":[]") != std::string::npos)) {
      return false;
    }
    plan->address = address;
  }
  plan->port = port;
  return true;
}

// Accepted sockets have these, too. A small buffer, so that who does not read is noticed; who is not there any more,
// too.
static void lyn_watch_set_options(int fd) {
  const struct {
    int level;
    int name;
    int value;
  } options[] = {{SOL_SOCKET, SO_REUSEADDR, 1},
                 {SOL_SOCKET, SO_SNDBUF, 16 * 1024},
                 {IPPROTO_TCP, TCP_NODELAY, 1},
                 {IPPROTO_TCP, TCP_USER_TIMEOUT, 30 * 1000}};
  for (const auto &option : options) {
    setsockopt(fd, option.level, option.name, &option.value, sizeof(option.value));
  }
}

// -1: errno says why not.
static int lyn_watch_listen(const addrinfo &address) {
  const int fd = socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol);
  if (fd < 0) {
    return -1;
  }
  lyn_watch_set_options(fd);
  if (bind(fd, address.ai_addr, address.ai_addrlen) == 0 && listen(fd, SOMAXCONN) == 0) {
    return fd;
  }
  const int error = errno;
  close(fd);
  errno = error;
  return -1;
}

// The first of the address's numbers that can be had; -1, and why not.
static int lyn_watch_open(const lyn_watch_http_plan_t &plan, const char **reason) {
  addrinfo wanted = {};
  wanted.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  wanted.ai_socktype = SOCK_STREAM;
  addrinfo *found = nullptr;
  const int error = getaddrinfo(plan.address.c_str(), plan.port.c_str(), &wanted, &found);
  if (error != 0) {
    *reason = gai_strerror(error);
    return -1;
  }
  int fd = -1;
  for (const addrinfo *address = found; fd < 0 && address != nullptr; address = address->ai_next) {
    fd = lyn_watch_listen(*address);
  }
  *reason = strerror(errno);
  freeaddrinfo(found);
  return fd;
}

// "127.0.0.1:9750", of an open socket.
static std::string lyn_watch_authority(int fd) {
  sockaddr_storage storage = {};
  socklen_t size = sizeof(storage);
  auto *address = reinterpret_cast<sockaddr *>(&storage);
  char host[NI_MAXHOST] = "";
  char port[NI_MAXSERV] = "";
  getsockname(fd, address, &size);
  getnameinfo(address, size, host, sizeof(host), port, sizeof(port), NI_NUMERICHOST | NI_NUMERICSERV);
  return address->sa_family == AF_INET6 ? "[" + std::string(host) + "]:" + port : std::string(host) + ":" + port;
}

/* Start and end */

std::string lyn_watch_http_open(const lyn_watch_http_plan_t &plan) {
  const char *reason = nullptr;
  const int fd = lyn_watch_open(plan, &reason);
  if (fd < 0) {
    fprintf(stderr, "lyn_watch: cannot serve on %s, port %s: %s\n", plan.address.c_str(), plan.port.c_str(), reason);
    return "";
  }
  lyn_watch_server->plan = plan;
  lyn_watch_server->listener = fd;
  std::string address = "http://" + lyn_watch_authority(fd) + "/";
  fprintf(stderr, "lyn_watch: serving %s\n", address.c_str());
  return address;
}

bool lyn_watch_http_start(lyn_watch_model_t *model) {
  lyn_watch_server->model = model;
  return lyn_watch_start_thread(lyn_watch_server_main, nullptr);
}

bool lyn_watch_http_stop(milliseconds patience) {
  std::unique_lock lock(lyn_watch_server->mutex);
  if (lyn_watch_server->listener < 0) {
    return true;
  }
  lyn_watch_server->ending = true;
  shutdown(lyn_watch_server->listener, SHUT_RDWR);
  for (const int fd : lyn_watch_server->clients) {
    shutdown(fd, SHUT_RDWR);
  }
  return lyn_watch_server->changed.wait_for(
      lock, patience, [] { return lyn_watch_server->ended && lyn_watch_server->clients.empty(); });
}
