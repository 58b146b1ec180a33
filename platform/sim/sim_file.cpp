/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Files, by their descriptors: what is refused is told apart here, and nowhere else.
 */
#include "sim_file.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

struct descriptor {
  int number;

  explicit descriptor(int opened) : number(opened) {}
  descriptor(const descriptor &) = delete;
  descriptor &operator=(const descriptor &) = delete;
  ~descriptor() {
    if (number >= 0) {
      close(number);
    }
  }
};

std::string not_readable() {
  return std::string("cannot be read: ") + strerror(errno);
}

/** Why the file is none to read; empty: it is one. */
std::string wrong_kind(int file) {
  struct stat of = {};
  if (fstat(file, &of) != 0) {
    return not_readable();
  }
  if (S_ISDIR(of.st_mode)) {
    return "is a folder";
  }
  return S_ISREG(of.st_mode) ? "" : "is no regular file";
}

/** All that is in it; returns why it cannot be had, or nothing. */
std::string read_whole(int file, size_t most, std::string &text) {
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t got = read(file, block.data(), block.size());
    if (got == 0) {
      return {};
    }
    if (got > 0) {
      text.append(block.data(), static_cast<size_t>(got));
    } else if (errno != EINTR) {
      return not_readable();
    }
    if (text.size() > most) {
      return "holds more than " + std::to_string(most) + " octets";
    }
  }
}

/** For a descriptor that does not wait by itself. */
bool wait_for_room(int file) {
  pollfd of = {.fd = file, .events = POLLOUT, .revents = 0};
  return poll(&of, 1, -1) >= 0 || errno == EINTR;
}

/** Returns how much was written: all of it, or what fitted. */
size_t write_whole(int file, const std::string &text) {
  size_t done = 0;
  while (done < text.size()) {
    const ssize_t written = write(file, text.data() + done, text.size() - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
    } else if (written == 0 || (errno != EINTR && (errno != EAGAIN || !wait_for_room(file)))) {
      break;
    }
  }
  return done;
}

void take_back(int file, size_t octets) {
  struct stat of = {};
  if (fstat(file, &of) == 0 && S_ISREG(of.st_mode)) {
    (void)!ftruncate(file, of.st_size - static_cast<off_t>(octets));
  }
}

/** A file by another name is the same file. */
bool is_same(const struct stat &of, const std::string &name) {
  struct stat other = {};
  return stat(name.c_str(), &other) == 0 && other.st_dev == of.st_dev && other.st_ino == of.st_ino;
}

/** Why the file, open for writing, cannot be `part`; empty: it can, and then it is empty. */
std::string wrong_to_write(int file, const sim_file &what, std::vector<sim_file> &taken) {
  struct stat of = {};
  if (fstat(file, &of) != 0) {
    return strerror(errno);
  }
  if (!S_ISREG(of.st_mode)) {
    return {};  // nothing is lost on a terminal or in a pipe
  }
  const auto other =
      std::find_if(taken.begin(), taken.end(), [&of](const sim_file &used) { return is_same(of, used.name); });
  if (other != taken.end()) {
    return "cannot be " + what.part + ", it is " + other->part + " (" + other->name + ')';
  }
  taken.push_back(what);
  return ftruncate(file, 0) == 0 ? "" : strerror(errno);
}

}  // namespace

std::string sim_one_line(std::string text) {
  for (char &octet : text) {
    if (static_cast<unsigned char>(octet) < ' ' || octet == 0x7F) {
      octet = ' ';
    }
  }
  return text;
}

std::optional<std::string> sim_file_read(const std::string &name, size_t most, std::string &error) {
  // Without O_NONBLOCK a pipe that nobody writes to would be waited for.
  const descriptor file(open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  std::string text;
  std::string wrong = file.number < 0 ? not_readable() : wrong_kind(file.number);
  if (wrong.empty()) {
    wrong = read_whole(file.number, most, text);
  }
  if (wrong.empty()) {
    return text;
  }
  error = sim_one_line(name + ": " + wrong);
  return {};
}

int sim_file_create(const sim_file &what, std::vector<sim_file> &taken, std::string &error) {
  const int file = open(what.name.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
  const std::string wrong = file < 0 ? strerror(errno) : wrong_to_write(file, what, taken);
  if (wrong.empty()) {
    return file;
  }
  error = sim_one_line(what.name + ": " + wrong);
  if (file >= 0) {
    close(file);
  }
  return -1;
}

void sim_lines_add(sim_lines &lines, const std::string &line) {
  if (lines.file < 0) {
    return;
  }
  const size_t done = write_whole(lines.file, line);
  if (done == line.size()) {
    return;
  }
  const std::string wrong = strerror(errno);
  if (done > 0) {
    take_back(lines.file, done);
  }
  lines.file = -1;
  fprintf(stderr, "%s\n", sim_one_line(lines.what.name + ": " + wrong + ", " + lines.what.part + " ends here").c_str());
}
