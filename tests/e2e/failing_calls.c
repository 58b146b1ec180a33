/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Preloaded into a client, it makes calls of the operating system and of libraries fail: FAIL_name="first count error"
 * in the environment, the first call being 1, or the first since there is a file FAIL_SINCE. A count of 0 is all from
 * there on. Other programs are left alone; so is, with FAIL_ONLY, all but the process or thread of that name.
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

/** Whether this call fails; errno is set then. */
static int fails(const char *name, atomic_int *calls) {
  char variable[64];
  snprintf(variable, sizeof(variable), "FAIL_%s", name);
  const char *wanted = getenv(variable);
  int first = 0;
  int count = 0;
  int error = 0;
  if (wanted == NULL || strncmp(program_invocation_short_name, "lyn_", 4) != 0 ||
      sscanf(wanted, "%d %d %d", &first, &count, &error) != 3) {
    return 0;
  }
  const char *only = getenv("FAIL_ONLY");
  char own[16] = "";
  prctl(PR_GET_NAME, own);
  if (only != NULL && strcmp(only, own) != 0) {
    return 0;
  }
  const char *since = getenv("FAIL_SINCE");
  if (since != NULL && access(since, F_OK) != 0) {
    errno = 0;
    return 0;
  }
  const int call = ++*calls;
  if (call < first || (count != 0 && call >= first + count)) {
    return 0;
  }
  errno = error;
  return 1;
}

#define CALL(type, name, parameters, arguments, failed)      \
  type name parameters {                                     \
    static atomic_int calls;                                 \
    static type(*real) parameters;                           \
    if (real == NULL) {                                      \
      *(void **)&real = dlsym(RTLD_NEXT, #name);             \
    }                                                        \
    return fails(#name, &calls) ? (failed) : real arguments; \
  }

typedef void *(*entry_t)(void *);

CALL(int, pthread_create, (pthread_t * thread, const pthread_attr_t *with, entry_t entry, void *argument),
     (thread, with, entry, argument), errno)
CALL(pid_t, fork, (void), (), -1)
CALL(int, pipe2, (int ends[2], int flags), (ends, flags), -1)
CALL(void *, mmap, (void *at, size_t size, int access, int flags, int fd, off_t from),
     (at, size, access, flags, fd, from),
     (flags & MAP_SHARED) != 0 ? MAP_FAILED : real(at, size, access, flags, fd, from))
CALL(int, signalfd, (int fd, const sigset_t *signals, int flags), (fd, signals, flags), -1)
CALL(int, socket, (int family, int type, int protocol), (family, type, protocol), -1)
CALL(int, listen, (int fd, int waiting), (fd, waiting), -1)
CALL(int, accept4, (int fd, struct sockaddr *address, socklen_t *size, int flags), (fd, address, size, flags), -1)
CALL(ssize_t, recv, (int fd, void *data, size_t size, int flags), (fd, data, size, flags), -1)
CALL(ssize_t, read, (int fd, void *data, size_t size), (fd, data, size), -1)
CALL(ssize_t, write, (int fd, const void *data, size_t size), (fd, data, size), -1)
/** A wait for output has a name of its own. */
int poll(struct pollfd *entries, nfds_t number, int patience) {
  static atomic_int calls[2];
  const int output = number == 1 && (entries[0].events & POLLOUT) != 0;
  return fails(output ? "poll_out" : "poll", &calls[output])
             ? -1
             : ppoll(entries, number,
                     patience < 0 ? NULL : &(struct timespec){patience / 1000, patience % 1000 * 1000000}, NULL);
}
CALL(int, ppoll, (struct pollfd * entries, nfds_t number, const struct timespec *patience, const sigset_t *mask),
     (entries, number, patience, mask), -1)
CALL(int, gethostname, (char *name, size_t size), (name, size), -1)
CALL(int, isatty, (int fd), (fd), 0)
CALL(int, tcgetattr, (int fd, struct termios *settings), (fd, settings), -1)
CALL(FILE *, fdopen, (int fd, const char *mode), (fd, mode), NULL)
CALL(FILE *, fopen, (const char *path, const char *mode), (path, mode), NULL)

/* Of libedit */
CALL(void *, el_init, (const char *name, FILE *in, FILE *out, FILE *complaints), (name, in, out, complaints), NULL)
CALL(void *, history_winit, (void), (), NULL)
