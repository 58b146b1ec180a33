/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The text of a log message: the module's formatter beside vsnprintf and beside a well-kept library's, for texts as the
 * module writes most of them. Every side writes into a buffer of the module's size and cuts what does not fit; that all
 * write the same is checked before.
 *
 * --only=format.SIDE writes --events texts with one side, for callgrind, which tells instructions.
 */
#include <stdarg.h>

#include <iterator>

#include "bench.h"
#include "lyn_log.h"

#if BENCH_HAS_FMT
#include <fmt/format.h>
#endif

namespace {

lyn_log_text_t text;

/** What the texts show; read anew for each, as it would be from a modem's answer. */
volatile struct {
  uint32_t valid = 1, cgi = 10607298, plmn[3] = {0x72, 0xf2, 0x10};
  int16_t rsrp = -95;
  uint16_t earfcn = 1300;
} shown;
const char *volatile shown_name = "LTE";
void *volatile shown_pointer = &text;

__attribute__((format(printf, 1, 2))) void by_vsnprintf(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, LYN_LOG_TEXT_LEN, format, arguments);
  va_end(arguments);
}

template <class... Arguments>
void by_module(const uint8_t *program, Arguments... arguments) {
  if constexpr (sizeof...(arguments) == 0) {
    lyn_log_format(text, program, nullptr);
  } else {
    const uint64_t words[] = {lyn_log_word(arguments)...};
    lyn_log_format(text, program, words);
  }
}

#if BENCH_HAS_FMT
template <class Format, class... Arguments>
void by_fmt(Format format, Arguments... arguments) {
  *fmt::format_to_n(text, LYN_LOG_TEXT_LEN - 1, format, arguments...).out = '\0';
}
#define BY_FMT(format, ...) , [] { by_fmt(FMT_STRING(format) __VA_OPT__(, ) __VA_ARGS__); }
#else
#define BY_FMT(...)
#endif

enum { side_module, side_vsnprintf, side_fmt, sides };
constexpr const char *side_names[] = {"module", "vsnprintf", "fmt"};
constexpr int sides_built = BENCH_HAS_FMT ? sides : side_fmt;

/** A text, by each side. */
struct text_row {
  void (*write[sides])();
};

#define TEXT(format, fmt_format, ...)                                                                           \
  {                                                                                                             \
    {                                                                                                           \
      [] {                                                                                                      \
        alignas(1) static constexpr auto program = lyn_log_compile(format);                                     \
        by_module(program.data() __VA_OPT__(, ) __VA_ARGS__);                                                   \
      },                                                                                                        \
          [] { by_vsnprintf(format __VA_OPT__(, ) __VA_ARGS__); } BY_FMT(fmt_format __VA_OPT__(, ) __VA_ARGS__) \
    }                                                                                                           \
  }

const text_row texts[] = {
    TEXT("LTE signal info - lte_sig_info_valid[%u]", "LTE signal info - lte_sig_info_valid[{}]", +shown.valid),
    TEXT("LTE signal info - rsrp[%hi]", "LTE signal info - rsrp[{}]", static_cast<int16_t>(shown.rsrp)),
    TEXT("LTE serving cell info - earfcn[%hu]", "LTE serving cell info - earfcn[{}]",
         static_cast<uint16_t>(shown.earfcn)),
    TEXT("LTE serving cell info - cgi[%u]", "LTE serving cell info - cgi[{}]", +shown.cgi),
    TEXT("LTE serving cell info - plmn_id[0x%x 0x%x 0x%x]", "LTE serving cell info - plmn_id[0x{:x} 0x{:x} 0x{:x}]",
         +shown.plmn[0], +shown.plmn[1], +shown.plmn[2]),
    TEXT("%s metric query - result[%p]", "{} metric query - result[{}]", +shown_name, +shown_pointer),
    TEXT("Device Manager module successfully initialized!!", "Device Manager module successfully initialized!!"),
};

void check_texts() {
  for (const text_row &row : texts) {
    row.write[side_vsnprintf]();
    const std::string expected = text;
    for (int side = 0; side < sides_built; side++) {
      memset(text, 'x', sizeof text);
      row.write[side]();
      bench_require(text == expected, "the sides write different texts");
    }
  }
}

void write_texts(int side, size_t count) {
  for (size_t i = 0; i < count; i++) {
    texts[i % std::size(texts)].write[side]();
  }
}

void run(const bench_options &options) {
  const size_t count = options.smoke ? 100 : 200000;
  std::vector<double> ns[sides];
  for (size_t round = 0; round < options.rounds; round++) {
    for (size_t i = 0; i < sides_built; i++) {
      const size_t side = (round + i) % sides_built;
      const double seconds = bench_seconds([=] { write_texts(static_cast<int>(side), count); });
      ns[side].push_back(seconds * 1e9 / static_cast<double>(count));
    }
  }
  for (int side = side_vsnprintf; side < sides_built; side++) {
    bench_report(options, std::string("log.format.") + side_names[side], ns[side_module], ns[side], "ns/text");
  }
}

}  // namespace

int main(int argc, char **argv) {
  const bench_options options = bench_begin(argc, argv);
  check_texts();
  for (int side = 0; side < sides_built && options.only != nullptr; side++) {
    if (std::string("format.") + side_names[side] == options.only) {
      write_texts(side, options.events);
    }
  }
  if (bench_wants(options, "format")) {
    run(options);
  }
  return 0;
}
