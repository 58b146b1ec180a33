/* SPDX-License-Identifier: Apache-2.0 */
// Questions and answers on standard input, in scripted runs too.
//
// Every answer is a line of lyn_demo_line.h; what of it does not fit is left for the next question. Numbers are
// converted as far as they go (no digits: 0), clamped to 64 bits and cut to the width of the field that they fill. At
// the end of input a single question reads 0, a question that is repeated until its answer is valid gives up, and an
// address stays cleared. At a terminal an end of file (Ctrl-D) is not the end of input but an empty answer.
#ifndef LYN_DEMO_PROMPT_H
#define LYN_DEMO_PROMPT_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "ox_lyn.h"

enum {
  LYN_DEMO_ANSWER_LEN = 100,      // most answers, terminator included, as all of these
  LYN_DEMO_YES_NO_LEN = 50,       // the de-prioritise question
  LYN_DEMO_ADDRESS_LEN = 50,      // an IP address
  LYN_DEMO_LONG_ANSWER_LEN = 300  // a profile handle, a server URL
};

// One row of a sequence: question, conversion, field of the record that the answers fill.
struct lyn_demo_question_t {
  const char *lead = nullptr;  // said on a line of its own before the question
  const char *text;
  bool same_line = false;  // the answer is typed behind the question
  bool real = false;       // converted with atof into a float
  size_t offset;
  size_t size;
};

#define LYN_DEMO_FIELD(type, member) .offset = offsetof(type, member), .size = sizeof(type::member)

// The next line of standard input, typed behind the prompt. False at the end of input.
bool lyn_demo_read_answer(char *buffer, int size, const char *prompt = "");
// The next answer as a number. False at the end of input; the number is 0 then.
bool lyn_demo_read_number(int64_t *number, int size = LYN_DEMO_ANSWER_LEN, const char *prompt = "");

// One question on its own line, and its number.
int64_t lyn_demo_ask_number(const char *question);
// A list length. False unless it is 0 to capacity, judged as typed.
bool lyn_demo_ask_count(const char *question, int64_t capacity, int64_t *count);
// Asks until the answer, cut to 32 bits, is valid. False at the end of input.
bool lyn_demo_ask_until(const char *question, const char *again, bool (*valid)(int32_t), int32_t *answer);
// Asks row after row and fills the record's fields.
void lyn_demo_ask_all(std::span<const lyn_demo_question_t> questions, void *record);
// Asks until the answer is an address of the family; network byte order. At the end of input it stays as it is.
void lyn_demo_ask_address(int family, void *address);

// True; false with a complaint for a null record, which no caller gives.
bool lyn_demo_have_record(const void *record);

// The prompts of the get metrics.
uint32_t lyn_demo_ask_profile_handle(const char *question);
// False: abandoned, which the two location sequences never are.
bool lyn_demo_ask_mtpe_client(ox_lyn_mtpe_net_params_t *params);
bool lyn_demo_ask_mtpe_test(ox_lyn_mtpe_req_t *req);
bool lyn_demo_ask_single_shot(ox_lyn_loc_single_shot_req_t *req);
bool lyn_demo_ask_batching(ox_lyn_loc_batching_req_t *req);

#endif
