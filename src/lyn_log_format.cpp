/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The text of a log message. It is formatted for every step of every request, and for every event behind a backlog,
 * whether the board keeps it or not. So its format is taken apart by the compiler, and the conversions that the
 * module's texts have are written here, as vsnprintf writes them.
 *
 * Each function writes at `at` and returns where it has stopped. Literal characters and strings are cut at `end`;
 * numbers are cut behind their conversion, since a text has room for one behind its end.
 */
#include <string.h>

#include <algorithm>

#include "lyn_log.h"

static char *lyn_log_put(char *at, const char *end, const char *text, size_t length) {
  const size_t fits = std::min(length, static_cast<size_t>(end - at));
  memcpy(at, text, fits);
  return at + fits;
}

/** Digits of a number. */
template <unsigned base>
static size_t lyn_log_digits(uint64_t value) {
  constexpr unsigned second = base * base, third = second * base, fourth = third * base;
  size_t count = 1;
  for (; value >= fourth; value /= fourth) {
    count += 4;
  }
  return count + (value >= base) + (value >= second) + (value >= third);
}

/** The digits of the numbers below 100, two each. */
static constexpr auto lyn_log_pairs = [] {
  std::array<char, 200> pairs{};
  for (size_t i = 0; i < 100; i++) {
    pairs[2 * i] = static_cast<char>('0' + i / 10);
    pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
  }
  return pairs;
}();

/** The digits are counted first, so that each is written where it stays. */
template <unsigned base>
static char *lyn_log_put_number(char *at, uint64_t value) {
  char *const behind = at + lyn_log_digits<base>(value);
  at = behind;
  if constexpr (base == 10) {
    for (; value >= 100; value /= 100) {
      memcpy(at -= 2, &lyn_log_pairs[value % 100 * 2], 2);
    }
  }
  do {
    *--at = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0);
  return behind;
}

/** A decimal number; flags, counts and most codes have one digit. */
static inline char *lyn_log_put_decimal(char *at, uint64_t value) {
  if (value >= 10) {
    return lyn_log_put_number<10>(at, value);
  }
  *at = static_cast<char>('0' + value);
  return at + 1;
}

static inline char *lyn_log_put_signed(char *at, int64_t value) {
  if (value >= 0) {
    return lyn_log_put_decimal(at, static_cast<uint64_t>(value));
  }
  *at = '-';
  return lyn_log_put_number<10>(at + 1, 0 - static_cast<uint64_t>(value));
}

static char *lyn_log_put_pointer(char *at, const char *end, uint64_t address) {
  if (address == 0) {
    return lyn_log_put(at, end, "(nil)", 5);
  }
  *at++ = '0';
  *at++ = 'x';
  return lyn_log_put_number<16>(at, address);
}

static char *lyn_log_put_string(char *at, const char *end, const char *text) {
  if (text == nullptr) {
    text = "(null)";
  }
  return lyn_log_put(at, end, text, strnlen(text, static_cast<size_t>(end - at)));
}

/** Put a word as its conversion asks for; what the conversion is narrower by is cut off, as va_arg does. */
static inline char *lyn_log_convert(char *at, const char *end, lyn_log_conversion conversion, uint64_t word) {
  switch (conversion) {
    case lyn_log_conversion::i16:
      return lyn_log_put_signed(at, static_cast<int16_t>(word));
    case lyn_log_conversion::i32:
      return lyn_log_put_signed(at, static_cast<int32_t>(word));
    case lyn_log_conversion::i64:
      return lyn_log_put_signed(at, static_cast<int64_t>(word));
    case lyn_log_conversion::u16:
      return lyn_log_put_decimal(at, static_cast<uint16_t>(word));
    case lyn_log_conversion::u32:
      return lyn_log_put_decimal(at, static_cast<uint32_t>(word));
    case lyn_log_conversion::u64:
      return lyn_log_put_decimal(at, word);
    case lyn_log_conversion::x16:
      return lyn_log_put_number<16>(at, static_cast<uint16_t>(word));
    case lyn_log_conversion::x32:
      return lyn_log_put_number<16>(at, static_cast<uint32_t>(word));
    case lyn_log_conversion::x64:
      return lyn_log_put_number<16>(at, word);
    case lyn_log_conversion::pointer:
      return lyn_log_put_pointer(at, end, word);
    case lyn_log_conversion::string:
      return lyn_log_put_string(at, end, reinterpret_cast<const char *>(word));
    case lyn_log_conversion::end:
      break;
  }
  return at;
}

void lyn_log_format(lyn_log_text_t &text, const uint8_t *program, const uint64_t *words) {
  char *at = text;
  char *const end = text + LYN_LOG_TEXT_LEN - 1;
  for (;;) {
    const size_t length = *program++;
    at = lyn_log_put(at, end, reinterpret_cast<const char *>(program), length);
    program += length;
    const auto conversion = static_cast<lyn_log_conversion>(*program++);
    if (conversion == lyn_log_conversion::end) {
      break;
    }
    at = std::min(lyn_log_convert(at, end, conversion, *words++), end);
  }
  *at = '\0';
}
