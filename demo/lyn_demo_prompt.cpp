/* SPDX-License-Identifier: Apache-2.0 */
// The readers behind every question of the demo client, and the kinds of question.
#include "lyn_demo_prompt.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>

static_assert(std::endian::native == std::endian::little, "a number is cut to its field by copying its low bytes");

// A terminal that has hung up since is none any more: there, as on a pipe, the end stays.
static bool lyn_demo_pass_ctrl_d() {
  if (feof(stdin) == 0 || isatty(STDIN_FILENO) == 0) {
    return false;
  }
  clearerr(stdin);
  return true;
}

lyn_demo_read_e lyn_demo_read_line(char *buffer, int size) {
  memset(buffer, 0, static_cast<size_t>(size));
  fflush(stdout);
  const bool read = fgets(buffer, size, stdin) != nullptr;
  const bool ctrl_d = lyn_demo_pass_ctrl_d();
  if (read) {
    return LYN_DEMO_READ_LINE;
  }
  buffer[0] = '\0';
  return ctrl_d ? LYN_DEMO_READ_NOTHING : LYN_DEMO_READ_END;
}

bool lyn_demo_read_answer(char *buffer, int size) {
  return lyn_demo_read_line(buffer, size) != LYN_DEMO_READ_END;
}

bool lyn_demo_read_number(int64_t *number, int size) {
  char answer[LYN_DEMO_LONG_ANSWER_LEN];
  const bool read = lyn_demo_read_answer(answer, size);
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
    fputs(text, stdout);
    if (!lyn_demo_read_number(&number)) {
      return false;
    }
    *answer = static_cast<int32_t>(number);
    if (valid(*answer)) {
      return true;
    }
  }
}

static void lyn_demo_store_answer(const lyn_demo_question_t &question, void *record) {
  char *field = static_cast<char *>(record) + question.offset;
  char answer[LYN_DEMO_ANSWER_LEN];
  lyn_demo_read_answer(answer, sizeof answer);
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
    if (question.same_line) {
      fputs(question.text, stdout);
    } else {
      puts(question.text);
    }
    lyn_demo_store_answer(question, record);
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
    fputs(lyn_demo_address_question(family), stdout);
    if (!lyn_demo_read_answer(answer, sizeof answer)) {
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
