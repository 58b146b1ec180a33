/* SPDX-License-Identifier: Apache-2.0 */
/*
 * docs/simulator.md says what the board does: its tables of messages and keys are the board's own. LYN_DOCS_UPDATE=1
 * writes them into the document.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

#include "sim_key.h"
#include "sim_message.h"
#include "source_dir.h"

namespace {

const std::string mark_begin = "<!-- ", mark_end = ":begin -->\n";

std::string document() {
  std::ifstream in(source_path("docs/simulator.md"));
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/** "keys board nas": the words of a mark. */
std::vector<std::string> words_of(const std::string &mark) {
  std::istringstream in(mark);
  return {std::istream_iterator<std::string>(in), {}};
}

/** What stands between the marks of this name. */
std::string generated(const std::string &mark) {
  const std::vector<std::string> words = words_of(mark);
  if (words.at(0) == "messages") {
    return sim_message_table_markdown();
  }
  EXPECT_EQ(words[0], "keys");
  return '\n' + sim_key_table_markdown(std::span(words).subspan(1)) + '\n';
}

std::string begin_of(const std::string &mark) {
  return mark_begin + mark + mark_end;
}

std::string end_of(const std::string &mark) {
  return mark_begin + mark + ":end -->";
}

/** The names of the marks, in their order. */
std::vector<std::string> marks_of(const std::string &text) {
  std::vector<std::string> marks;
  for (size_t end = text.find(mark_end); end != std::string::npos; end = text.find(mark_end, end + 1)) {
    const size_t begin = text.rfind(mark_begin, end) + mark_begin.size();
    marks.push_back(text.substr(begin, end - begin));
  }
  return marks;
}

/** The document with what is between its marks as it should be. */
std::string updated(std::string text) {
  for (const std::string &mark : marks_of(text)) {
    const std::string begin = begin_of(mark);
    const size_t from = text.find(begin) + begin.size();
    const size_t to = text.find(end_of(mark), from);
    EXPECT_NE(to, std::string::npos) << mark;
    text.replace(from, to - from, generated(mark));
  }
  return text;
}

TEST(sim_docs_test, the_tables_of_messages_and_keys_are_up_to_date) {
  const std::string text = document(), wanted = updated(text);
  if (getenv("LYN_DOCS_UPDATE")) {
    std::ofstream(source_path("docs/simulator.md")) << wanted;
  } else {
    EXPECT_EQ(text, wanted) << "LYN_DOCS_UPDATE=1 sim_docs_test writes the second one";
  }
}

TEST(sim_docs_test, every_table_is_in_the_document_once) {
  std::vector<std::string> shown, tables = {"messages"};
  for (const std::string &mark : marks_of(document())) {
    const std::vector<std::string> words = words_of(mark);
    shown.insert(shown.end(), words.begin() + (words.at(0) == "keys" ? 1 : 0), words.end());
  }
  for (const sim_key &table : sim_keys_scenario()) {
    tables.emplace_back(table.name);
  }
  std::sort(shown.begin(), shown.end());
  std::sort(tables.begin(), tables.end());
  EXPECT_EQ(shown, tables);
}

}  // namespace
