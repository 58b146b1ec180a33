/* SPDX-License-Identifier: Apache-2.0 */
// The files of the page, as they lie in watch/page and, of Chart.js, in Debian's package; put into the program when it
// is built.
#ifndef LYN_WATCH_PAGE_H
#define LYN_WATCH_PAGE_H

#include <string_view>

struct lyn_watch_page_file_t {
  std::string_view path;  // on the server
  std::string_view type;
  std::string_view content;
};

/** Null: the page has no such file. */
const lyn_watch_page_file_t *lyn_watch_page_file(std::string_view path);

#endif
