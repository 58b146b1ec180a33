/* SPDX-License-Identifier: Apache-2.0 */
/*
 * An input as a source of values, for targets whose inputs are not bytes; behind its end all is 0.
 */
#ifndef FUZZ_BYTES_H
#define FUZZ_BYTES_H

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

struct fuzz_bytes {
  const uint8_t *data;
  size_t size;

  bool ended() const { return size == 0; }

  void fill(void *to, size_t count) {
    const size_t given = std::min(count, size);
    memset(to, 0, count);
    memcpy(to, data, given);
    data += given;
    size -= given;
  }

  template <typename value>
  value take() {
    value taken;
    fill(&taken, sizeof taken);
    return taken;
  }

  /** One of a list that is not empty. */
  template <typename list>
  const auto &pick(const list &all) {
    return all[take<uint8_t>() % std::size(all)];
  }

  /** Up to 255 octets. */
  std::string text() {
    std::string taken(take<uint8_t>(), '\0');
    taken.resize(std::min(taken.size(), size));
    fill(taken.data(), taken.size());
    return taken;
  }

  /** A time of day between 1970 and 2106. */
  std::chrono::system_clock::time_point moment() {
    return std::chrono::system_clock::time_point(std::chrono::milliseconds(take<uint32_t>() * int64_t{1000} + 7));
  }
};

#endif
