/* SPDX-License-Identifier: Apache-2.0 */
// The readers behind every question of the demo client, and the kinds of question.
#include "lyn_demo_prompt.h"

#include <arpa/inet.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "lyn_demo_line.h"

static_assert(std::endian::native == std::endian::little, "a number is cut to its field by copying its low bytes");

bool lyn_demo_read_answer(char *buffer, int size, const char *prompt) {
  return lyn_demo_read_line(prompt, buffer, size) != LYN_DEMO_READ_END;
}

bool lyn_demo_read_number(int64_t *number, int size, const char *prompt) {
  char answer[LYN_DEMO_LONG_ANSWER_LEN];
  const bool read = lyn_demo_read_answer(answer, size, prompt);
  *number = strtoll(answer, nullptr, 10);
  return read;
}

int64_t lyn_demo_ask_number(const char *question) {
  int64_t number = 0;
  puts(question);
  lyn_demo_read_number(&number);
  return number;
}

bool lyn_demo_ask_count(const char *question, int64_t capacity, int64_t *count) {
  *count = lyn_demo_ask_number(question);
  return *count >= 0 && *count <= capacity;
}

bool lyn_demo_ask_until(const char *question, const char *again, bool (*valid)(int32_t), int32_t *answer) {
  int64_t number = 0;
  for (const char *text = question;; text = again) {
    if (!lyn_demo_read_number(&number, LYN_DEMO_ANSWER_LEN, text)) {
      return false;
    }
    *answer = static_cast<int32_t>(number);
    if (valid(*answer)) {
      return true;
    }
  }
}

static void lyn_demo_store_answer(const lyn_demo_question_t &question, const char *prompt, void *record) {
  char *field = static_cast<char *>(record) + question.offset;
  char answer[LYN_DEMO_ANSWER_LEN];
  lyn_demo_read_answer(answer, sizeof answer, prompt);
  if (question.real) {
    const float real = static_cast<float>(atof(answer));
    memcpy(field, &real, sizeof real);
  } else {
    const int64_t number = strtoll(answer, nullptr, 10);
    memcpy(field, &number, question.size);
  }
}

void lyn_demo_ask_all(std::span<const lyn_demo_question_t> questions, void *record) {
  for (const lyn_demo_question_t &question : questions) {
    if (question.lead != nullptr) {
      puts(question.lead);
    }
    if (!question.same_line) {
      puts(question.text);
    }
    lyn_demo_store_answer(question, question.same_line ? question.text : "", record);
  }
}

static const char *lyn_demo_address_question(int family) {
  if (family == AF_INET) {
    return "\n Please Enter V4 Address Value =>";
  }
  if (family == AF_INET6) {
    return "\n Please Enter V6 Address Value =>";
  }
  return "\n Please Enter Address Mask Value =>";
}

void lyn_demo_ask_address(int family, void *address) {
  char answer[LYN_DEMO_ADDRESS_LEN];
  for (;;) {
    if (!lyn_demo_read_answer(answer, sizeof answer, lyn_demo_address_question(family))) {
      return;
    }
    answer[strcspn(answer, "\n")] = '\0';
    if (inet_pton(family, answer, address) == 1) {
      return;
    }
    puts("\n Address not in presentation format");
  }
}

bool lyn_demo_have_record(const void *record) {
  if (record == nullptr) {
    puts("Invalid arguement ");
  }
  return record != nullptr;
}
