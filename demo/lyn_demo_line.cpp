/* SPDX-License-Identifier: Apache-2.0 */
// The one reader of standard input, and all that is known of libedit.
//
// While a line is edited the terminal is in a mode of the editor's. Whatever ends or stops the process meanwhile puts
// it back first: the handlers here for signals that would end it without a word, atexit for SIGTERM, which exits.
// libedit's own handlers are not used: they send the signal on to the whole process group.
#include "lyn_demo_line.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

// A terminal that has hung up since is none any more: there, as on a pipe, the end stays.
static bool lyn_demo_pass_ctrl_d() {
  if (feof(stdin) == 0 || isatty(STDIN_FILENO) == 0) {
    return false;
  }
  clearerr(stdin);
  return true;
}

static lyn_demo_read_e lyn_demo_read_plain(const char *prompt, char *buffer, int size) {
  fputs(prompt, stdout);
  fflush(stdout);
  const bool read = fgets(buffer, size, stdin) != nullptr;
  const bool ctrl_d = lyn_demo_pass_ctrl_d();
  if (read) {
    return LYN_DEMO_READ_LINE;
  }
  buffer[0] = '\0';
  return ctrl_d ? LYN_DEMO_READ_NOTHING : LYN_DEMO_READ_END;
}

#ifdef LYN_DEMO_LIBEDIT

#include <histedit.h>
#include <poll.h>
#include <signal.h>
#include <termios.h>

#include <cerrno>
#include <cstdlib>

static constexpr int LYN_DEMO_HISTORY_LEN = 100;
// Octets beyond ASCII are no characters in the C locale: in the editor they stand here, the octet in the low bits.
static constexpr wchar_t LYN_DEMO_RAW_OCTETS = 0xDC00;

struct lyn_demo_editor_t {
  EditLine *el;  // null: lines are not edited
  HistoryW *history;
  const char *prompt;
  const wchar_t *rest;  // of the edited line, not yet read; the editor's until the next one
  int rest_len;
  bool ended;     // no more characters came, other than by Ctrl-D
  termios found;  // the terminal's mode outside of the editor
};

static lyn_demo_editor_t lyn_demo_editor;
static volatile sig_atomic_t lyn_demo_editing;  // the terminal may be in the editor's mode
static volatile sig_atomic_t lyn_demo_changed;  // it may be no longer, or have another size

/* The terminal's mode */

// Runs at exit and in signal handlers, too. In the background the terminal is somebody else's; one that does not
// control the process has no foreground.
static void lyn_demo_put_back_terminal() {
  if (lyn_demo_editing == 0) {
    return;
  }
  const pid_t foreground = tcgetpgrp(STDIN_FILENO);
  if (foreground == -1 || foreground == getpgrp()) {
    tcsetattr(STDIN_FILENO, TCSANOW, &lyn_demo_editor.found);
  }
}

static void lyn_demo_on_change(int) {
  lyn_demo_changed = 1;
}

// The default action, which the signal has again already, ends the process or stops it until it is continued.
static void lyn_demo_on_stop(int signal_number) {
  const int number = errno;
  lyn_demo_put_back_terminal();
  sigset_t own;
  sigemptyset(&own);
  sigaddset(&own, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &own, nullptr);  // the thread sanitizer blocks all in a handler
  raise(signal_number);
  struct sigaction action = {};
  action.sa_handler = lyn_demo_on_stop;
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
  sigaction(signal_number, &action, nullptr);
  lyn_demo_changed = 1;
  errno = number;
}

struct lyn_demo_signal_t {
  int number;
  void (*handler)(int);
  unsigned flags;
};

static constexpr lyn_demo_signal_t lyn_demo_signals[] = {
    {SIGHUP, lyn_demo_on_stop, SA_RESETHAND | SA_NODEFER},
    {SIGINT, lyn_demo_on_stop, SA_RESETHAND | SA_NODEFER},
    {SIGQUIT, lyn_demo_on_stop, SA_RESETHAND | SA_NODEFER},
    {SIGTSTP, lyn_demo_on_stop, SA_RESETHAND | SA_NODEFER},
    {SIGCONT, lyn_demo_on_change, 0},
    {SIGWINCH, lyn_demo_on_change, 0},
};

// What is ignored stays ignored.
static void lyn_demo_handle_signals(bool handle) {
  for (const lyn_demo_signal_t &row : lyn_demo_signals) {
    struct sigaction action = {};
    sigaction(row.number, nullptr, &action);
    if (action.sa_handler == SIG_IGN) {
      continue;
    }
    action = {};
    action.sa_handler = handle ? row.handler : SIG_DFL;
    action.sa_flags = handle ? static_cast<int>(row.flags) : 0;
    sigaction(row.number, &action, nullptr);
  }
}

/* The editor */

static char *lyn_demo_editor_prompt(EditLine *) {
  return const_cast<char *>(lyn_demo_editor.prompt);  // libedit only reads it
}

static void lyn_demo_resume_editing(EditLine *el) {
  el_set(el, EL_PREP_TERM, 0);
  el_set(el, EL_PREP_TERM, 1);
  fputc('\r', stdout);
  el_resize(el);
  el_set(el, EL_REFRESH);
}

// One at a time: what comes behind the line is left to whoever reads next, with or without the editor. Changes are let
// in while it waits, so that none falls between the look at them and the wait.
static int lyn_demo_next_char(EditLine *el, wchar_t *next) {
  sigset_t changes;
  sigset_t before;
  sigemptyset(&changes);
  sigaddset(&changes, SIGCONT);
  sigaddset(&changes, SIGTSTP);
  sigaddset(&changes, SIGWINCH);
  pthread_sigmask(SIG_BLOCK, &changes, &before);
  unsigned char octet = 0;
  ssize_t got = -1;
  do {
    if (lyn_demo_changed != 0) {
      lyn_demo_changed = 0;
      lyn_demo_resume_editing(el);
    }
    pollfd input = {.fd = STDIN_FILENO, .events = POLLIN, .revents = 0};
    got = ppoll(&input, 1, nullptr, &before) < 0 ? -1 : read(STDIN_FILENO, &octet, 1);
  } while (got < 0 && errno == EINTR);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (got == 1) {
    *next = octet < 0x80 ? octet : LYN_DEMO_RAW_OCTETS + octet;
    return 1;
  }
  lyn_demo_editor.ended = got != 0 || isatty(STDIN_FILENO) == 0;
  return 0;
}

// Without these capabilities libedit cannot redraw a line, and TERM is unset, unknown or dumb.
static bool lyn_demo_moves_cursor(EditLine *el) {
  static constexpr const char *needed[] = {"up", "ce"};
  for (const char *capability : needed) {
    const char *sequence = nullptr;
    if (el_get(el, EL_GETTC, capability, &sequence, nullptr) != 0 || sequence == nullptr) {
      return false;
    }
  }
  return true;
}

static HistoryW *lyn_demo_new_history() {
  HistoryW *history = history_winit();
  HistEventW event = {};
  if (history != nullptr) {
    history_w(history, &event, H_SETSIZE, LYN_DEMO_HISTORY_LEN);
    history_w(history, &event, H_SETUNIQUE, 1);
  }
  return history;
}

static EditLine *lyn_demo_new_editor(FILE *complaints) {
  EditLine *el = el_init("lyn_demo", stdin, stdout, complaints);
  if (el == nullptr || !lyn_demo_moves_cursor(el)) {
    if (el != nullptr) {
      el_end(el);
    }
    return nullptr;
  }
  el_set(el, EL_EDITOR, "emacs");
  el_set(el, EL_BIND, "^I", "ed-insert", nullptr);
  el_set(el, EL_PROMPT, lyn_demo_editor_prompt);
  el_set(el, EL_GETCFN, lyn_demo_next_char);
  return el;
}

void lyn_demo_edit_lines() {
  lyn_demo_editor_t &editor = lyn_demo_editor;
  if (isatty(STDOUT_FILENO) == 0 || tcgetattr(STDIN_FILENO, &editor.found) != 0 || atexit(lyn_demo_put_back_terminal)) {
    return;
  }
  // Nothing is said on standard error, not even of an unknown TERM.
  FILE *complaints = fopen("/dev/null", "we");
  if (complaints == nullptr) {
    return;
  }
  lyn_demo_editing = 1;
  editor.el = lyn_demo_new_editor(complaints);
  lyn_demo_put_back_terminal();
  lyn_demo_editing = 0;
  if (editor.el == nullptr) {
    fclose(complaints);
    return;
  }
  editor.history = lyn_demo_new_history();
  if (editor.history != nullptr) {
    el_wset(editor.el, EL_HIST, history_w, editor.history);
  }
}

// Whoever has switched the echo off, or reads keys, wants no editor.
static bool lyn_demo_at_editable_terminal() {
  termios *found = &lyn_demo_editor.found;
  return lyn_demo_editor.el != nullptr && tcgetattr(STDIN_FILENO, found) == 0 &&
         (found->c_lflag & (ICANON | ECHO)) == (ICANON | ECHO);
}

static void lyn_demo_remember(const wchar_t *line, int length) {
  HistEventW event = {};
  if (length > 1 && lyn_demo_editor.history != nullptr) {
    history_w(lyn_demo_editor.history, &event, H_ENTER, line);
  }
}

// False: there was none.
static bool lyn_demo_edit_line(const char *prompt) {
  lyn_demo_editor_t &editor = lyn_demo_editor;
  const char *line_break = strrchr(prompt, '\n');
  editor.prompt = line_break == nullptr ? prompt : line_break + 1;
  fwrite(prompt, 1, static_cast<size_t>(editor.prompt - prompt), stdout);
  editor.ended = false;
  lyn_demo_editing = 1;
  lyn_demo_handle_signals(true);
  el_set(editor.el, EL_PREP_TERM, 1);  // before the prompt, behind which keys may come at once
  editor.rest = el_wgets(editor.el, &editor.rest_len);
  lyn_demo_put_back_terminal();
  lyn_demo_handle_signals(false);
  lyn_demo_editing = 0;
  if (editor.rest == nullptr || editor.rest_len <= 0) {
    editor.rest_len = 0;
    return false;
  }
  lyn_demo_remember(editor.rest, editor.rest_len);
  return true;
}

static void lyn_demo_take_rest(char *buffer, int size) {
  lyn_demo_editor_t &editor = lyn_demo_editor;
  char *end = buffer;
  do {
    *end++ = static_cast<char>(*editor.rest++);
    --editor.rest_len;
  } while (editor.rest_len > 0 && end[-1] != '\n' && end - buffer < size - 1);
}

// False: lines are not edited here.
static bool lyn_demo_read_edited(const char *prompt, char *buffer, int size, lyn_demo_read_e *read) {
  if (lyn_demo_editor.rest_len > 0) {
    fputs(prompt, stdout);
  } else if (!lyn_demo_at_editable_terminal()) {
    return false;
  } else if (!lyn_demo_edit_line(prompt)) {
    *read = lyn_demo_editor.ended ? LYN_DEMO_READ_END : LYN_DEMO_READ_NOTHING;
    return true;
  }
  lyn_demo_take_rest(buffer, size);
  *read = LYN_DEMO_READ_LINE;
  return true;
}

#else

void lyn_demo_edit_lines() {}

static bool lyn_demo_read_edited(const char *, const char *, int, const lyn_demo_read_e *) {
  return false;
}

#endif

lyn_demo_read_e lyn_demo_read_line(const char *prompt, char *buffer, int size) {
  lyn_demo_read_e read = LYN_DEMO_READ_END;
  memset(buffer, 0, static_cast<size_t>(size));
  return lyn_demo_read_edited(prompt, buffer, size, &read) ? read : lyn_demo_read_plain(prompt, buffer, size);
}
