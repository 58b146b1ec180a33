/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Diagnostic logging (of the module).
 *
 * Every message goes to the board's diagnostic service: formatted here into a bounded buffer and emitted with a static
 * record of its call site. Formats are literals and taken apart when they are compiled. High level is for progress and
 * successes, error level for failures. The compiler checks the arguments against the format. Callable from any thread;
 * a failure is logged once, where it is known best.
 *
 *   LYN_LOG_ERROR("Retrieving YRP NAS service list failed with status[%d]", status);
 *
 * A record names a source file: a function of a header takes the record of its caller's place and logs with LYN_LOG_OF.
 *
 *   auto event = lyn_new_block<ox_lyn_qos_flow_t>(LYN_LOG_ERROR_HERE);
 */
#ifndef LYN_LOG_H
#define LYN_LOG_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <type_traits>

#include "diag_service.h"

/** Subsystem id of the module's records. */
inline constexpr uint32_t LYN_LOG_SUBSYSTEM = 65;

/** Longest text with its terminator; what goes beyond is cut. */
inline constexpr uint32_t LYN_LOG_TEXT_LEN = 512;

/** Connect to the diagnostic service. False when it refuses; records are written all the same. */
bool lyn_log_init();

/** Disconnect from it. */
void lyn_log_deinit();

/** Lets the compiler check arguments against a format; never called. */
int lyn_log_check(const char *format, ...) __attribute__((format(printf, 1, 2)));

/** What stands behind a run of literal characters. */
enum class lyn_log_conversion : uint8_t { end, i16, i32, i64, u16, u32, u64, x16, x32, x64, pointer, string };

/** The conversion of `letter` with so many 'h' (negative) or 'l' before it. What is not in use ends the format. */
constexpr lyn_log_conversion lyn_log_conversion_of(char letter, int length) {
  using enum lyn_log_conversion;
  const auto pick = [length](lyn_log_conversion narrow, lyn_log_conversion plain, lyn_log_conversion wide) {
    return length < 0 ? narrow : length == 0 ? plain : wide;
  };
  switch (letter) {
    case 'd':
    case 'i':
      return pick(i16, i32, i64);
    case 'u':
      return pick(u16, u32, u64);
    case 'x':
      return pick(x16, x32, x64);
    case 'p':
      return pick(end, pointer, end);
    case 's':
      return pick(end, string, end);
    default:
      return end;
  }
}

/**
 * Take a format apart into `program`: the length of a run of literal characters, the run, the conversion behind it, and
 * so on until a conversion that is the end. It is at most one octet longer than the format with its end. False when a
 * conversion is not known or a run has more than 255 characters.
 */
constexpr bool lyn_log_parse(const char *format, uint8_t *program) {
  for (uint8_t *run = program;; run = program) {
    *program++ = 0;
    for (; *format != '\0' && (*format != '%' || format[1] == '%'); format++) {
      format += *format == '%';
      *program++ = static_cast<uint8_t>(*format);
      if (++*run == 0) {
        return false;
      }
    }
    if (*format == '\0') {
      break;
    }
    int length = 0;
    for (format++; *format == 'h' || *format == 'l'; format++) {
      length += *format == 'h' ? -1 : 1;
    }
    const lyn_log_conversion conversion = lyn_log_conversion_of(*format, length);
    if (conversion == lyn_log_conversion::end) {
      return false;
    }
    *program++ = static_cast<uint8_t>(conversion);
    format++;
  }
  *program = static_cast<uint8_t>(lyn_log_conversion::end);
  return true;
}

/** Never defined: a call of it is no constant, so that the format that leads there does not compile. */
void lyn_log_format_is_not_known();

/** The program of a literal format. */
template <size_t LEN>
consteval std::array<uint8_t, LEN + 1> lyn_log_compile(const char (&format)[LEN]) {
  std::array<uint8_t, LEN + 1> program{};
  if (!lyn_log_parse(format, program.data())) {
    lyn_log_format_is_not_known();
  }
  return program;
}

/** An argument as the formatter takes it: a word whose low bits are the argument's. */
template <class Argument>
uint64_t lyn_log_word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>) {
    return reinterpret_cast<uintptr_t>(argument);
  } else if constexpr (std::is_null_pointer_v<Argument>) {
    return 0;
  } else {
    return static_cast<uint64_t>(argument);
  }
}

/** Longest number: the digits of 2^64 - 1, with a sign or a prefix. */
inline constexpr size_t LYN_LOG_NUMBER_LEN = 24;

/** Room for the text of a message: a number that begins within it is written whole and cut then. */
typedef char lyn_log_text_t[LYN_LOG_TEXT_LEN + LYN_LOG_NUMBER_LEN];

/** The text of a message, cut to LYN_LOG_TEXT_LEN as vsnprintf does. `words` may be null where nothing is converted. */
void lyn_log_format(lyn_log_text_t &text, const uint8_t *program, const uint64_t *words);

/** Format and emit one record; use the macros below. */
void lyn_log_emit(const diag_msg_record_t *record, const uint8_t *program, const uint64_t *words);

/** Inlined, so that the format, which the program stands for, is not kept. */
template <class... Arguments>
[[gnu::always_inline]] inline void lyn_log_write(const diag_msg_record_t *record, const uint8_t *program, const char *,
                                                 Arguments... arguments) {
  if constexpr (sizeof...(arguments) == 0) {
    lyn_log_emit(record, program, nullptr);
  } else {
    const uint64_t words[] = {lyn_log_word(arguments)...};
    lyn_log_emit(record, program, words);
  }
}

#define LYN_LOG_FIRST(first, ...) first

/** The record of the place where it stands. */
#define LYN_LOG_RECORD(mask) \
  static constexpr diag_msg_record_t lyn_log_record = {LYN_LOG_SUBSYSTEM, mask, "%s", __FILE_NAME__, __LINE__}

/** alignas(1): without it a program takes up to 31 octets more, as the compiler aligns arrays of that size. */
#define LYN_LOG_TEXT(record, ...)                                                                   \
  alignas(1) static constexpr auto lyn_log_program = lyn_log_compile(LYN_LOG_FIRST(__VA_ARGS__, )); \
  static_cast<void>(sizeof(lyn_log_check(__VA_ARGS__))), lyn_log_write(record, lyn_log_program.data(), __VA_ARGS__)

#define LYN_LOG_AT(mask, ...)                   \
  do {                                          \
    LYN_LOG_RECORD(mask);                       \
    LYN_LOG_TEXT(&lyn_log_record, __VA_ARGS__); \
  } while (0)

#define LYN_LOG_HIGH(...) LYN_LOG_AT(DIAG_LEVEL_HIGH, __VA_ARGS__)
#define LYN_LOG_ERROR(...) LYN_LOG_AT(DIAG_LEVEL_ERROR, __VA_ARGS__)

/** The same with a record that was handed in. */
#define LYN_LOG_OF(record, ...)        \
  do {                                 \
    LYN_LOG_TEXT(record, __VA_ARGS__); \
  } while (0)

#define LYN_LOG_HERE(mask)             \
  ([]() -> const diag_msg_record_t * { \
    LYN_LOG_RECORD(mask);              \
    return &lyn_log_record;            \
  }())

/** Address of the record of this place, to be handed to a function of a header. */
#define LYN_LOG_HIGH_HERE LYN_LOG_HERE(DIAG_LEVEL_HIGH)
#define LYN_LOG_ERROR_HERE LYN_LOG_HERE(DIAG_LEVEL_ERROR)

/** A handle as "%p" shows it: "(nil)" for 0. */
inline const void *lyn_log_handle(uint32_t hndl) {
  return reinterpret_cast<const void *>(static_cast<uintptr_t>(hndl));
}

#endif
