/*
 * The text of a log message. It is formatted for every step of every request, and for every event behind a backlog,
 * whether the board keeps it or not. So its format is taken apart by the compiler, and the conversions that the
 * module's texts have are written here, as vsnprintf writes them.
 *
 * Each function writes at `at`, cuts what goes beyond `end`, and returns where it has stopped.
 */
#include <string.h>

#include <algorithm>

#include "lyn_log.h"

static char *lyn_log_put(char *at, const char *end, const char *text, size_t length) {
  const size_t fits = std::min(length, static_cast<size_t>(end - at));
  memcpy(at, text, fits);
  return at + fits;
}

/** Put literal characters of a program: whole chunks are read and written, of which what is too much is written over.
 */
static inline char *lyn_log_put_run(char *at, const char *end, const uint8_t *run, size_t length) {
  const size_t fits = std::min(length, static_cast<size_t>(end - at));
  size_t done = 0;
  do {
    memcpy(at + done, run + done, LYN_LOG_CHUNK);
    done += LYN_LOG_CHUNK;
  } while (done < fits);
  return at + fits;
}

/** Digits of a number. */
template <unsigned base>
static size_t lyn_log_digits(uint64_t value) {
  constexpr unsigned second = base * base, third = second * base, fourth = third * base;
  size_t count = 1;
  for (; value >= fourth; value /= fourth)
    count += 4;
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

/** Write the digits of a number so that the last is before `end`. */
template <unsigned base, class Number>
static void lyn_log_write_digits(char *end, Number value) {
  if constexpr (base == 10) {
    for (; value >= 100; value /= 100)
      memcpy(end -= 2, &lyn_log_pairs[value % 100 * 2], 2);
  }
  do {
    *--end = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0);
}

static inline char *lyn_log_put_char(char *at, const char *end, char c) {
  if (at == end)
    return at;
  *at = c;
  return at + 1;
}

/** A number that does not fit: its first digits. */
template <unsigned base>
static char *lyn_log_cut_number(char *at, const char *end, uint64_t value, size_t count) {
  char digits[24] = {};
  lyn_log_write_digits<base>(digits + count, value);
  return lyn_log_put(at, end, digits, count);
}

template <unsigned base>
static char *lyn_log_put_number(char *at, const char *end, uint64_t value) {
  const size_t count = lyn_log_digits<base>(value);
  if (count > static_cast<size_t>(end - at))
    return lyn_log_cut_number<base>(at, end, value, count);
  if (value <= UINT32_MAX)  // narrow divisions are the cheaper ones
    lyn_log_write_digits<base>(at + count, static_cast<uint32_t>(value));
  else
    lyn_log_write_digits<base>(at + count, value);
  return at + count;
}

/** A decimal number; flags, counts and most codes have one digit. */
static inline char *lyn_log_put_decimal(char *at, const char *end, uint64_t value) {
  return value < 10 ? lyn_log_put_char(at, end, static_cast<char>('0' + value))
                    : lyn_log_put_number<10>(at, end, value);
}

static inline char *lyn_log_put_signed(char *at, const char *end, int64_t value) {
  if (value >= 0)
    return lyn_log_put_decimal(at, end, static_cast<uint64_t>(value));
  at = lyn_log_put_char(at, end, '-');
  return lyn_log_put_number<10>(at, end, 0 - static_cast<uint64_t>(value));
}

static char *lyn_log_put_pointer(char *at, const char *end, uint64_t address) {
  if (address == 0)
    return lyn_log_put(at, end, "(nil)", 5);
  at = lyn_log_put(at, end, "0x", 2);
  return lyn_log_put_number<16>(at, end, address);
}

static char *lyn_log_put_string(char *at, const char *end, const char *text) {
  if (text == nullptr)
    text = "(null)";
  return lyn_log_put(at, end, text, strnlen(text, static_cast<size_t>(end - at)));
}

/** Put a word as its conversion asks for; what the conversion is narrower by is cut off, as va_arg does. */
static inline char *lyn_log_convert(char *at, const char *end, lyn_log_conversion conversion, uint64_t word) {
  switch (conversion) {
    case lyn_log_conversion::i16:
      return lyn_log_put_signed(at, end, static_cast<int16_t>(word));
    case lyn_log_conversion::i32:
      return lyn_log_put_signed(at, end, static_cast<int32_t>(word));
    case lyn_log_conversion::i64:
      return lyn_log_put_signed(at, end, static_cast<int64_t>(word));
    case lyn_log_conversion::u16:
      return lyn_log_put_decimal(at, end, static_cast<uint16_t>(word));
    case lyn_log_conversion::u32:
      return lyn_log_put_decimal(at, end, static_cast<uint32_t>(word));
    case lyn_log_conversion::u64:
      return lyn_log_put_decimal(at, end, word);
    case lyn_log_conversion::x16:
      return lyn_log_put_number<16>(at, end, static_cast<uint16_t>(word));
    case lyn_log_conversion::x32:
      return lyn_log_put_number<16>(at, end, static_cast<uint32_t>(word));
    case lyn_log_conversion::x64:
      return lyn_log_put_number<16>(at, end, word);
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
  const char *const end = text + LYN_LOG_TEXT_LEN - 1;
  for (;;) {
    const size_t length = *program++;
    at = lyn_log_put_run(at, end, program, length);
    program += length;
    const auto conversion = static_cast<lyn_log_conversion>(*program++);
    if (conversion == lyn_log_conversion::end)
      break;
    at = lyn_log_convert(at, end, conversion, *words++);
  }
  *at = '\0';
}
