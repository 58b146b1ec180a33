/* SPDX-License-Identifier: Apache-2.0 */
#include "lyn_watch_page.h"

#include <algorithm>
#include <iterator>

// The assembler reads a file that the build names, between two symbols.
#define LYN_WATCH_EMBED(name, path)                               \
  extern "C" const char lyn_watch_##name[];                       \
  extern "C" const char lyn_watch_##name##_end[];                 \
  __asm__(                                                        \
      ".section .rodata\n"                                        \
      ".global lyn_watch_" #name "\n.hidden lyn_watch_" #name     \
      "\n"                                                        \
      ".global lyn_watch_" #name "_end\n.hidden lyn_watch_" #name \
      "_end\n"                                                    \
      "lyn_watch_" #name ":\n.incbin \"" path                     \
      "\"\n"                                                      \
      "lyn_watch_" #name "_end:\n.previous\n")

LYN_WATCH_EMBED(index_html, "index.html");
LYN_WATCH_EMBED(page_css, "page.css");
LYN_WATCH_EMBED(page_js, "page.js");
LYN_WATCH_EMBED(chart_js, "chart.min.js");

static const lyn_watch_page_file_t lyn_watch_page_files[] = {
    {"/", "text/html; charset=utf-8", {lyn_watch_index_html, lyn_watch_index_html_end}},
    {"/page.css", "text/css; charset=utf-8", {lyn_watch_page_css, lyn_watch_page_css_end}},
    {"/page.js", "text/javascript; charset=utf-8", {lyn_watch_page_js, lyn_watch_page_js_end}},
    {"/chart.js", "text/javascript; charset=utf-8", {lyn_watch_chart_js, lyn_watch_chart_js_end}},
};

const lyn_watch_page_file_t *lyn_watch_page_file(std::string_view path) {
  const auto found = std::ranges::find(lyn_watch_page_files, path, &lyn_watch_page_file_t::path);
  return found == std::end(lyn_watch_page_files) ? nullptr : &*found;
}
