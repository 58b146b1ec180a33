/*
 * Diagnostic logging of the module.
 *
 * Every message goes to the board's diagnostic service: formatted here into a bounded buffer and emitted with a static
 * record of its call site. Formats are literals and taken apart when they are compiled. High level is for progress and
 * successes, error level for failures. The compiler checks the arguments against the format. Callable from any thread;
 * a failure is logged once, where it is known best.
 *
 *   LYN_LOG_ERROR("Retrieving YRP NAS service list failed with status[%d]", status);
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

/** What stands behind a literal part of a format. */
enum class lyn_log_conversion : uint8_t { end, percent, i16, i32, i64, u16, u32, u64, x16, x32, x64, pointer, string };

/** A part of a format: so many literal characters, and a conversion of so many. */
typedef struct {
  uint8_t literal;
  uint8_t directive;
  lyn_log_conversion conversion;
} lyn_log_piece_t;

/** Parts of a format; the last ends it. */
consteval size_t lyn_log_count(const char *format) {
  size_t count = 1;
  for (; *format != '\0'; format++)
    count += *format == '%';
  return count;
}

/** The conversion of `letter` with so many 'h' (negative) or 'l' before it. What is not in use does not compile. */
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
    case '%':
      return pick(end, percent, end);
    default:
      return end;
  }
}

/** Take a format apart. A part whose conversion is not known ends it with a `directive`, which no format may have. */
template <size_t N>
constexpr std::array<lyn_log_piece_t, N> lyn_log_parse(const char *format) {
  std::array<lyn_log_piece_t, N> pieces{};
  for (lyn_log_piece_t &piece : pieces) {
    const char *at = format;
    while (*at != '\0' && *at != '%')
      at++;
    piece.literal = static_cast<uint8_t>(at - format);
    if (*at == '\0')
      break;
    const char *letter = at + 1;
    int length = 0;
    for (; *letter == 'h' || *letter == 'l'; letter++)
      length += *letter == 'h' ? -1 : 1;
    piece.directive = static_cast<uint8_t>(letter - at + 1);
    piece.conversion = lyn_log_conversion_of(*letter, length);
    if (piece.conversion == lyn_log_conversion::end)
      break;
    format = letter + 1;
  }
  return pieces;
}

/** Whether the pieces make up the format: no part too long, no conversion unknown. */
template <size_t N>
constexpr bool lyn_log_is_whole(const std::array<lyn_log_piece_t, N> &pieces, size_t format_len) {
  for (const lyn_log_piece_t &piece : pieces) {
    const size_t part = size_t{piece.literal} + piece.directive;
    if (part > format_len || (piece.conversion == lyn_log_conversion::end && piece.directive != 0))
      return false;
    format_len -= part;
  }
  return format_len == 0;
}

/** Never defined: a call of it is no constant, so that the format that leads there does not compile. */
void lyn_log_format_is_not_known();

/** Take a literal format apart. A part of more than 255 characters, or an unknown conversion, does not compile. */
template <size_t N, size_t LEN>
consteval std::array<lyn_log_piece_t, N> lyn_log_compile(const char (&format)[LEN]) {
  const auto pieces = lyn_log_parse<N>(format);
  if (!lyn_log_is_whole(pieces, LEN - 1))
    lyn_log_format_is_not_known();
  return pieces;
}

/** An argument as the formatter takes it: a word whose low bits are the argument's. */
template <class Argument>
uint64_t lyn_log_word(Argument argument) {
  if constexpr (std::is_pointer_v<Argument>)
    return reinterpret_cast<uintptr_t>(argument);
  else if constexpr (std::is_null_pointer_v<Argument>)
    return 0;
  else
    return static_cast<uint64_t>(argument);
}

/** The text of a message, as vsnprintf writes it into as much room. `words` may be null where nothing is converted. */
void lyn_log_format(char (&text)[LYN_LOG_TEXT_LEN], const char *format, const lyn_log_piece_t *pieces,
                    const uint64_t *words);

/** Format and emit one record; use the macros below. */
void lyn_log_emit(const diag_msg_record_t *record, const char *format, const lyn_log_piece_t *pieces,
                  const uint64_t *words);

template <class... Arguments>
void lyn_log_write(const diag_msg_record_t *record, const lyn_log_piece_t *pieces, const char *format,
                   Arguments... arguments) {
  if constexpr (sizeof...(arguments) == 0) {
    lyn_log_emit(record, format, pieces, nullptr);
  } else {
    const uint64_t words[] = {lyn_log_word(arguments)...};
    lyn_log_emit(record, format, pieces, words);
  }
}

#define LYN_LOG_FIRST(first, ...) first

#define LYN_LOG_AT(mask, ...)                                                                                     \
  do {                                                                                                            \
    static constexpr diag_msg_record_t lyn_log_record = {LYN_LOG_SUBSYSTEM, mask, "%s", __FILE_NAME__, __LINE__}; \
    static constexpr auto lyn_log_pieces =                                                                        \
        lyn_log_compile<lyn_log_count(LYN_LOG_FIRST(__VA_ARGS__, ))>(LYN_LOG_FIRST(__VA_ARGS__, ));               \
    static_cast<void>(sizeof(lyn_log_check(__VA_ARGS__))),                                                        \
        lyn_log_write(&lyn_log_record, lyn_log_pieces.data(), __VA_ARGS__);                                       \
  } while (0)

#define LYN_LOG_HIGH(...) LYN_LOG_AT(DIAG_LEVEL_HIGH, __VA_ARGS__)
#define LYN_LOG_ERROR(...) LYN_LOG_AT(DIAG_LEVEL_ERROR, __VA_ARGS__)

/** A handle as "%p" shows it: "(nil)" for 0. */
inline const void *lyn_log_handle(uint32_t hndl) {
  return reinterpret_cast<const void *>(static_cast<uintptr_t>(hndl));
}

#endif
