/* SPDX-License-Identifier: Apache-2.0 */
// Borrows the terminal for a picture and gives it back as it was found, however the process ends: a small child process
// waits for that, and restores what the process could not. Module and board print to standard output and error; while
// the terminal is borrowed that goes to the child, which keeps the last of it for the end that nobody expected.
//
//     if (const int status = lyn_watch_terminal_borrow(); status != 0) {  // before any thread is started
//       return status;
//     }
//     lyn_watch_terminal_open();                                          // from here on ncurses draws
//     ...
//     lyn_watch_terminal_close();
//     lyn_watch_terminal_return(true);
//
// All of it is called from one thread.
#ifndef LYN_WATCH_TERMINAL_H
#define LYN_WATCH_TERMINAL_H

#include <string>
#include <string_view>

#include "lyn_watch_model.h"

enum { LYN_WATCH_NO_TERMINAL = 1, LYN_WATCH_NOT_A_TERMINAL = 2 };

/**
 * Look whether standard output is a terminal that can be drawn on, start the child, and take standard output and, where
 * that is a terminal, standard error. Blocks the signals that a terminal sends but those that end the process.
 *
 * 0, or the status to end with: one line on standard error says why.
 */
int lyn_watch_terminal_borrow();

/** Let ncurses draw. false: it cannot. */
bool lyn_watch_terminal_open();

/** The screen as it was before, the settings as they were. */
void lyn_watch_terminal_close();

/** Standard output and error as they were, too; the child ends, and shows what it has kept unless all went `well`. */
void lyn_watch_terminal_return(bool well);

/** Whether the terminal takes output; while it was told to stop, who writes to it waits. */
bool lyn_watch_terminal_takes_output();

bool lyn_watch_terminal_has_colours();

/** What came from the terminal. */
struct lyn_watch_input_t {
  char key = 0;         // that was pressed; 0: none
  bool redraw = false;  // the size or all that is on the screen may have changed
  bool ended = false;   // nothing follows
};

/** Wait for something, and stop the process where the terminal asks for it. */
lyn_watch_input_t lyn_watch_terminal_wait(lyn_watch_ms_t timeout);

/** Tells keys from what else a terminal sends: sequences of cursor keys and the like, and text that was pasted. */
struct lyn_watch_keys_t {
  enum state_e { GROUND, ESCAPE, SHIFTED, SEQUENCE } state = GROUND;
  std::string sequence;
  bool pasting = false;
};

/** The key in what was read at once; 0: none. A key comes alone, a hand is not faster. */
char lyn_watch_keys_take(lyn_watch_keys_t *keys, std::string_view octets);

/** Nothing has come for a while: what was begun does not go on. */
void lyn_watch_keys_lapse(lyn_watch_keys_t *keys);

#endif
