/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_terminal.h"

#include <errno.h>
#include <fcntl.h>
#include <locale.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

// Else their macros take names from everybody.
#define NCURSES_NOMACROS
#include <curses.h>
#include <term.h>

#include <atomic>
#include <cstdio>
#include <iterator>
#include <new>
#include <utility>

enum { LYN_WATCH_KEPT_TEXT = 16 << 10, LYN_WATCH_LONGEST_SEQUENCE = 16 };

// How long the end waits for a terminal that takes no output; then it is left to the child.
static constexpr lyn_watch_ms_t LYN_WATCH_OUTPUT_PATIENCE = std::chrono::seconds(1);

/** What process and child share. */
struct lyn_watch_loan_t {
  std::atomic<bool> open = false;  // the picture is on the screen
  std::atomic<bool> done = false;  // the process has ended as it should
  termios found = {};              // settings to restore
  termios drawn = {};              // settings while the picture is up
};

struct lyn_watch_terminal_t {
  lyn_watch_loan_t *loan = nullptr;
  pid_t keeper = -1;
  int terminal = -1;  // what was standard output
  int errors = -1;    // what was standard error; -1: it still is
  int signals = -1;
  SCREEN *screen = nullptr;
  lyn_watch_keys_t keys;
};

static lyn_watch_terminal_t *const lyn_watch_terminal = new lyn_watch_terminal_t;

/* Sequences that ncurses does not send by itself, and those of the child */

static std::string lyn_watch_sequence;

static int lyn_watch_collect(int c) {
  lyn_watch_sequence += static_cast<char>(c);
  return c;
}

static void lyn_watch_write(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(fd, text.data(), text.size());
    if (count < 0 && errno != EINTR) {
      return;
    }
    text.remove_prefix(count < 0 ? 0 : static_cast<size_t>(count));
  }
}

// A capability as terminfo has it; nothing where the terminal has none.
static void lyn_watch_collect_capability(const char *name) {
  const char *capability = tigetstr(name);
  // tigetstr says by the pointer -1 that there is no such name.
  if (capability != nullptr && reinterpret_cast<intptr_t>(capability) != -1) {
    tputs(capability, 1, lyn_watch_collect);
  }
}

static void lyn_watch_send_capability(const char *name) {
  lyn_watch_sequence.clear();
  lyn_watch_collect_capability(name);
  lyn_watch_write(lyn_watch_terminal->terminal, lyn_watch_sequence);
}

// Pasted text in brackets, so that it is not taken for keys.
static constexpr const char *LYN_WATCH_BRACKETS_ON = "BE";
static constexpr const char *LYN_WATCH_BRACKETS_OFF = "BD";

/* The child */

// Whether the settings are still the picture's to take back: a shell that has come to the front has its own.
static bool lyn_watch_keeper_owns_settings(int terminal) {
  termios now;
  const termios &drawn = lyn_watch_terminal->loan->drawn;
  return tcgetpgrp(terminal) == getpgrp() ||
         (tcgetattr(terminal, &now) == 0 && now.c_lflag == drawn.c_lflag && now.c_iflag == drawn.c_iflag);
}

static void lyn_watch_keeper_restore() {
  const int terminal = lyn_watch_terminal->terminal;
  if (lyn_watch_keeper_owns_settings(terminal)) {
    tcsetattr(terminal, TCSANOW, &lyn_watch_terminal->loan->found);
  }
  lyn_watch_sequence.clear();
  lyn_watch_collect_capability(LYN_WATCH_BRACKETS_OFF);
  for (const char *name : {"sgr0", "cnorm"}) {
    lyn_watch_collect_capability(name);
  }
  winsize size;
  if (ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_row > 0) {
    tputs(tparm(tigetstr("cup"), size.ws_row - 1, 0), 1, lyn_watch_collect);
  }
  lyn_watch_collect_capability("rmcup");
  lyn_watch_write(terminal, lyn_watch_sequence + "\r");
}

// Reads until the process is gone, and gives the last of what was read.
static std::string lyn_watch_keeper_read(int pipe) {
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t count = read(pipe, piece, sizeof(piece));
    if (count == 0 || (count < 0 && errno != EINTR)) {
      return text;
    }
    text.append(piece, count < 0 ? 0 : static_cast<size_t>(count));
    if (text.size() > LYN_WATCH_KEPT_TEXT) {
      text.erase(0, text.size() - LYN_WATCH_KEPT_TEXT);
    }
  }
}

// All signals are blocked here: none but SIGKILL ends it before its time, and none stops it.
[[noreturn]] static void lyn_watch_keeper_main(int pipe, int errors) {
  // Whoever ends the program by its name does not mean the child.
  prctl(PR_SET_NAME, "lyn_watch_tty");
  const std::string text = lyn_watch_keeper_read(pipe);
  if (lyn_watch_terminal->loan->open) {
    lyn_watch_keeper_restore();
  }
  if (!lyn_watch_terminal->loan->done) {
    lyn_watch_write(errors, text);
  }
  _exit(EXIT_SUCCESS);
}

/* Borrowing */

static int lyn_watch_terminal_refuse(int status, const char *why) {
  const char *name = getenv("TERM");
  fprintf(stderr, "lyn_watch: the terminal '%s' %s; see --json\n", name == nullptr ? "" : name, why);
  return status;
}

static int lyn_watch_terminal_check() {
  if (isatty(STDOUT_FILENO) == 0) {
    fputs("lyn_watch: standard output is no terminal; use --json, or --serve [ADDR:]PORT\n", stderr);
    return LYN_WATCH_NOT_A_TERMINAL;
  }
  int error = 0;
  if (setupterm(nullptr, STDOUT_FILENO, &error) != OK) {
    return lyn_watch_terminal_refuse(LYN_WATCH_NO_TERMINAL, "is not known, TERM names none that is");
  }
  const char *cup = tigetstr("cup");
  if (cup == nullptr || reinterpret_cast<intptr_t>(cup) == -1) {
    return lyn_watch_terminal_refuse(LYN_WATCH_NO_TERMINAL, "has no cursor that can be placed");
  }
  return 0;
}

static lyn_watch_loan_t *lyn_watch_terminal_share() {
  void *memory = mmap(nullptr, sizeof(lyn_watch_loan_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return memory == MAP_FAILED ? nullptr : new (memory) lyn_watch_loan_t;
}

// Whoever prints into the pipe waits for nobody.
static void lyn_watch_terminal_divert(int pipe) {
  fcntl(pipe, F_SETFL, O_NONBLOCK);
  lyn_watch_terminal->terminal = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  dup2(pipe, STDOUT_FILENO);
  setvbuf(stdout, nullptr, _IONBF, 0);
  if (isatty(STDERR_FILENO) != 0) {
    lyn_watch_terminal->errors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    dup2(pipe, STDERR_FILENO);
  }
}

// The child has the terminal and standard error as they were, so it comes before these are diverted.
static bool lyn_watch_terminal_fork(const int pipe[2]) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  lyn_watch_terminal->keeper = fork();
  if (lyn_watch_terminal->keeper == 0) {
    lyn_watch_terminal->terminal = STDOUT_FILENO;
    close(pipe[1]);
    lyn_watch_keeper_main(pipe[0], STDERR_FILENO);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return lyn_watch_terminal->keeper > 0;
}

// The signals of a terminal are read as its keys are, by who draws.
static bool lyn_watch_terminal_read_signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGWINCH, SIGTSTP, SIGCONT}) {
    sigaddset(&signals, signal);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  lyn_watch_terminal->signals = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  return lyn_watch_terminal->signals >= 0;
}

int lyn_watch_terminal_borrow() {
  setlocale(LC_CTYPE, "");
  if (const int status = lyn_watch_terminal_check(); status != 0) {
    return status;
  }
  int ends[2];
  lyn_watch_terminal->loan = lyn_watch_terminal_share();
  if (lyn_watch_terminal->loan == nullptr || !lyn_watch_terminal_read_signals() || pipe2(ends, O_CLOEXEC) != 0 ||
      !lyn_watch_terminal_fork(ends)) {
    perror("lyn_watch: the terminal cannot be borrowed");
    return LYN_WATCH_NO_TERMINAL;
  }
  del_curterm(cur_term);
  lyn_watch_terminal_divert(ends[1]);
  close(ends[0]);
  close(ends[1]);
  return 0;
}

/* Drawing */

// As large as the terminal is now; where it does not say so, ncurses has looked elsewhere.
static void lyn_watch_terminal_resize() {
  winsize size;
  if (ioctl(lyn_watch_terminal->terminal, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
    resize_term(size.ws_row, size.ws_col);
  }
}

// A process that may not draw now, because it is in the background, is stopped here until it may.
static void lyn_watch_terminal_take_turn() {
  lyn_watch_loan_t *loan = lyn_watch_terminal->loan;
  tcgetattr(lyn_watch_terminal->terminal, &loan->found);
  tcsetattr(lyn_watch_terminal->terminal, TCSANOW, &loan->found);
  loan->drawn = loan->found;
  loan->open = true;
}

bool lyn_watch_terminal_open() {
  FILE *output = fdopen(lyn_watch_terminal->terminal, "w");
  lyn_watch_terminal_take_turn();
  struct sigaction stop;
  sigaction(SIGTSTP, nullptr, &stop);
  use_tioctl(TRUE);
  lyn_watch_terminal->screen = output == nullptr ? nullptr : newterm(nullptr, output, stdin);
  // ncurses has put in a handler of its own.
  sigaction(SIGTSTP, &stop, nullptr);
  if (lyn_watch_terminal->screen == nullptr) {
    lyn_watch_terminal->loan->open = false;
    return false;
  }
  cbreak();
  noecho();
  curs_set(0);
  tcgetattr(lyn_watch_terminal->terminal, &lyn_watch_terminal->loan->drawn);
  lyn_watch_send_capability(LYN_WATCH_BRACKETS_ON);
  lyn_watch_terminal_resize();
  return true;
}

static bool lyn_watch_terminal_wait_for_output(lyn_watch_ms_t patience) {
  pollfd terminal = {.fd = lyn_watch_terminal->terminal, .events = POLLOUT, .revents = 0};
  return poll(&terminal, 1, static_cast<int>(patience.count())) > 0;
}

bool lyn_watch_terminal_takes_output() {
  return lyn_watch_terminal_wait_for_output({});
}

void lyn_watch_terminal_close() {
  if (!lyn_watch_terminal_wait_for_output(LYN_WATCH_OUTPUT_PATIENCE)) {
    return;
  }
  endwin();
  lyn_watch_send_capability(LYN_WATCH_BRACKETS_OFF);
  lyn_watch_terminal->loan->open = false;
}

void lyn_watch_terminal_return(bool well) {
  lyn_watch_terminal->loan->done = well;
  dup2(lyn_watch_terminal->terminal, STDOUT_FILENO);
  if (lyn_watch_terminal->errors >= 0) {
    dup2(lyn_watch_terminal->errors, STDERR_FILENO);
  }
  // One that still has the screen to restore waits for the terminal.
  if (!lyn_watch_terminal->loan->open) {
    waitpid(lyn_watch_terminal->keeper, nullptr, 0);
  }
}

bool lyn_watch_terminal_has_colours() {
  const char *refused = getenv("NO_COLOR");
  return (refused == nullptr || *refused == '\0') && has_colors();
}

/* Keys */

static lyn_watch_keys_t::state_e lyn_watch_keys_after_escape(char octet) {
  return octet == '['   ? lyn_watch_keys_t::SEQUENCE
         : octet == 'O' ? lyn_watch_keys_t::SHIFTED
                        : lyn_watch_keys_t::GROUND;
}

static void lyn_watch_keys_continue(lyn_watch_keys_t *keys, char octet) {
  keys->sequence += octet;
  const bool parameter = octet >= ' ' && octet < '@';
  if (!parameter || keys->sequence.size() > LYN_WATCH_LONGEST_SEQUENCE) {
    keys->pasting = keys->sequence == "200~" || (keys->pasting && keys->sequence != "201~");
    keys->state = lyn_watch_keys_t::GROUND;
  }
}

static char lyn_watch_keys_take_octet(lyn_watch_keys_t *keys, char octet) {
  switch (keys->state) {
    case lyn_watch_keys_t::GROUND:
      if (octet != '\033') {
        return keys->pasting ? '\0' : octet;
      }
      keys->state = lyn_watch_keys_t::ESCAPE;
      keys->sequence.clear();
      break;
    case lyn_watch_keys_t::ESCAPE:
      keys->state = lyn_watch_keys_after_escape(octet);
      break;
    case lyn_watch_keys_t::SHIFTED:
      keys->state = lyn_watch_keys_t::GROUND;
      break;
    case lyn_watch_keys_t::SEQUENCE:
      lyn_watch_keys_continue(keys, octet);
      break;
  }
  return '\0';
}

char lyn_watch_keys_take(lyn_watch_keys_t *keys, std::string_view octets) {
  char key = '\0';
  for (const char octet : octets) {
    key = lyn_watch_keys_take_octet(keys, octet);
  }
  return octets.size() == 1 ? key : '\0';
}

void lyn_watch_keys_lapse(lyn_watch_keys_t *keys) {
  *keys = {};
}

/* Waiting */

// As any process does: it may be told to ignore it, or have nobody who would let it go on.
static void lyn_watch_terminal_stop() {
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTSTP);
  lyn_watch_terminal_close();
  raise(SIGTSTP);
  pthread_sigmask(SIG_UNBLOCK, &stop, nullptr);
  pthread_sigmask(SIG_BLOCK, &stop, nullptr);
  lyn_watch_terminal_take_turn();
  def_shell_mode();
}

// Everything is drawn anew, with the settings of the picture: others may have drawn in the meantime.
static void lyn_watch_terminal_go_on() {
  reset_prog_mode();
  tcgetattr(lyn_watch_terminal->terminal, &lyn_watch_terminal->loan->drawn);
  lyn_watch_send_capability(LYN_WATCH_BRACKETS_ON);
}

// Gives whether everything is to be drawn anew.
static bool lyn_watch_terminal_take_signals() {
  bool redraw = false;
  signalfd_siginfo signal;
  while (read(lyn_watch_terminal->signals, &signal, sizeof(signal)) == sizeof(signal)) {
    if (signal.ssi_signo == SIGTSTP) {
      lyn_watch_terminal_stop();
    }
    if (signal.ssi_signo != SIGWINCH) {
      lyn_watch_terminal_go_on();
    }
    redraw = true;
  }
  if (redraw) {
    lyn_watch_terminal_resize();
    clearok(curscr, TRUE);
  }
  return redraw;
}

static void lyn_watch_terminal_take_keys(lyn_watch_input_t *input) {
  char octets[256];
  const ssize_t count = read(STDIN_FILENO, octets, sizeof(octets));
  if (count > 0) {
    input->key = lyn_watch_keys_take(&lyn_watch_terminal->keys, {octets, static_cast<size_t>(count)});
  }
  input->ended = count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN);
}

lyn_watch_input_t lyn_watch_terminal_wait(lyn_watch_ms_t timeout) {
  pollfd sources[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                      {.fd = lyn_watch_terminal->signals, .events = POLLIN, .revents = 0}};
  lyn_watch_input_t input;
  if (poll(sources, std::size(sources), static_cast<int>(timeout.count())) == 0) {
    lyn_watch_keys_lapse(&lyn_watch_terminal->keys);
  }
  if (sources[1].revents != 0) {
    input.redraw = lyn_watch_terminal_take_signals();
  } else if (sources[0].revents != 0) {
    lyn_watch_terminal_take_keys(&input);
  }
  return input;
}
