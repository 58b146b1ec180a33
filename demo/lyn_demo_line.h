/* SPDX-License-Identifier: Apache-2.0 */
// Lines of standard input.
//
// Where a person types, at the menu of a terminal that can move its cursor, the line is edited by libedit, with what
// was typed before in reach of the arrow keys; built without LYN_LIBEDIT, on a pipe, in a scripted run, at TERM=dumb or
// at a terminal that does not echo it comes as the system gives it. Either way the reader gets the same lines.
#ifndef LYN_DEMO_LINE_H
#define LYN_DEMO_LINE_H

enum lyn_demo_read_e {
  LYN_DEMO_READ_LINE,
  LYN_DEMO_READ_NOTHING,  // Ctrl-D at a terminal
  LYN_DEMO_READ_END       // the end of input, or it could not be read
};

// Lets lines be edited from here on. Once, before anything was read.
void lyn_demo_edit_lines();
// Prints the prompt, flushes standard output and reads the next line, as fgets does: with its line break, and what does
// not fit is left for the next call. Of no line the buffer is empty.
lyn_demo_read_e lyn_demo_read_line(const char *prompt, char *buffer, int size);

#endif
