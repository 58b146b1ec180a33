/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Ends a test program that hangs, and says what it was at. One text, one alarm: of the last call.
 *
 *   watchdog("get 10, allocation 3");
 *   ...                                 // ended after a minute, unless the next call comes
 */
#ifndef WATCHDOG_H
#define WATCHDOG_H

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

inline char watchdog_text[256];

inline void watchdog(const std::string &text, unsigned int seconds = 60) {
  alarm(0);
  snprintf(watchdog_text, sizeof watchdog_text, "hangs: %s\n", text.c_str());
  signal(SIGALRM, [](int) {
    (void)!write(STDERR_FILENO, watchdog_text, strlen(watchdog_text));
    _exit(3);
  });
  alarm(seconds);
}

#endif
