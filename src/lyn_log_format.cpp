/*
 * The text of a log message. It is formatted for every step of every request, and for every event behind a backlog,
 * whether the board keeps it or not. So its format is taken apart by the compiler, and the conversions that the
 * module's texts have are written here, as vsnprintf writes them.
 */
#include <string.h>

#include <algorithm>

#include "lyn_log.h"

/** Where the text is written; what goes beyond `end` is cut. */
typedef struct {
  char *at;
  char *end; /**< of the room without the terminator */
} lyn_log_out_t;

static size_t lyn_log_room(const lyn_log_out_t *out) {
  return static_cast<size_t>(out->end - out->at);
}

/** Copy a text of less than sixteen characters, which is not worth a call. */
static void lyn_log_copy_short(char *to, const char *from, size_t length) {
  if ((length & 8) != 0)
    memcpy(to, from, 8);
  if ((length & 4) != 0)
    memcpy(to + (length & 8), from + (length & 8), 4);
  if ((length & 2) != 0)
    memcpy(to + (length & 12), from + (length & 12), 2);
  if ((length & 1) != 0)
    to[length - 1] = from[length - 1];
}

static void lyn_log_put(lyn_log_out_t *out, const char *text, size_t length) {
  const size_t fits = std::min(length, lyn_log_room(out));
  if (fits < 16)
    lyn_log_copy_short(out->at, text, fits);
  else
    memcpy(out->at, text, fits);
  out->at += fits;
}

/** Digits of a number. */
template <unsigned base>
static size_t lyn_log_digits(unsigned long long value) {
  constexpr unsigned second = base * base, third = second * base, fourth = third * base;
  size_t count = 1;
  for (; value >= fourth; value /= fourth)
    count += 4;
  return count + (value >= base) + (value >= second) + (value >= third);
}

/** Write the digits of a number so that the last is before `end`. */
template <unsigned base, class Number>
static void lyn_log_write_digits(char *end, Number value) {
  do {
    *--end = "0123456789abcdef"[value % base];
    value /= base;
  } while (value != 0);
}

template <unsigned base>
static void lyn_log_put_number(lyn_log_out_t *out, unsigned long long value) {
  char cut[24];
  const size_t count = lyn_log_digits<base>(value);
  const bool fits = count <= lyn_log_room(out);
  char *to = fits ? out->at : cut;
  if (value <= UINT32_MAX)  // narrow divisions are the cheaper ones
    lyn_log_write_digits<base>(to + count, static_cast<uint32_t>(value));
  else
    lyn_log_write_digits<base>(to + count, value);
  if (fits)
    out->at += count;
  else
    lyn_log_put(out, cut, count);
}

static void lyn_log_put_signed(lyn_log_out_t *out, long long value) {
  const auto bits = static_cast<unsigned long long>(value);
  if (value < 0)
    lyn_log_put(out, "-", 1);
  lyn_log_put_number<10>(out, value < 0 ? 0 - bits : bits);
}

static void lyn_log_put_pointer(lyn_log_out_t *out, const void *pointer) {
  if (pointer == nullptr) {
    lyn_log_put(out, "(nil)", 5);
    return;
  }
  lyn_log_put(out, "0x", 2);
  lyn_log_put_number<16>(out, reinterpret_cast<uintptr_t>(pointer));
}

static void lyn_log_put_string(lyn_log_out_t *out, const char *text) {
  if (text == nullptr)
    text = "(null)";
  lyn_log_put(out, text, strnlen(text, static_cast<size_t>(out->end - out->at)));
}

/** Write a word as its conversion asks for; what the conversion is narrower by is cut off, as va_arg does. */
static void lyn_log_convert(lyn_log_out_t *out, lyn_log_conversion conversion, uint64_t word) {
  switch (conversion) {
    case lyn_log_conversion::i16:
      return lyn_log_put_signed(out, static_cast<int16_t>(word));
    case lyn_log_conversion::i32:
      return lyn_log_put_signed(out, static_cast<int32_t>(word));
    case lyn_log_conversion::i64:
      return lyn_log_put_signed(out, static_cast<int64_t>(word));
    case lyn_log_conversion::u16:
      return lyn_log_put_number<10>(out, static_cast<uint16_t>(word));
    case lyn_log_conversion::u32:
      return lyn_log_put_number<10>(out, static_cast<uint32_t>(word));
    case lyn_log_conversion::u64:
      return lyn_log_put_number<10>(out, word);
    case lyn_log_conversion::x16:
      return lyn_log_put_number<16>(out, static_cast<uint16_t>(word));
    case lyn_log_conversion::x32:
      return lyn_log_put_number<16>(out, static_cast<uint32_t>(word));
    case lyn_log_conversion::x64:
      return lyn_log_put_number<16>(out, word);
    case lyn_log_conversion::pointer:
      return lyn_log_put_pointer(out, reinterpret_cast<const void *>(word));
    case lyn_log_conversion::string:
      return lyn_log_put_string(out, reinterpret_cast<const char *>(word));
    case lyn_log_conversion::percent:
      return lyn_log_put(out, "%", 1);
    case lyn_log_conversion::end:
      return;
  }
}

void lyn_log_format(char (&text)[LYN_LOG_TEXT_LEN], const char *format, const lyn_log_piece_t *pieces,
                    const uint64_t *words) {
  lyn_log_out_t out = {.at = text, .end = text + sizeof text - 1};
  for (;; pieces++) {
    lyn_log_put(&out, format, pieces->literal);
    if (pieces->conversion == lyn_log_conversion::end)
      break;
    const bool takes_word = pieces->conversion != lyn_log_conversion::percent;
    lyn_log_convert(&out, pieces->conversion, takes_word ? *words++ : 0);
    format += size_t{pieces->literal} + pieces->directive;
  }
  *out.at = '\0';
}
