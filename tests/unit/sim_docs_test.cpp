/*
 * docs/simulator.md says what the board does: its table of messages is the board's own, and no key is missing.
 */
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "sim_message.h"
#include "sim_scenario.h"
#include "source_dir.h"

namespace {

std::string document() {
  std::ifstream in(source_path("docs/simulator.md"));
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(sim_docs_test, the_table_of_messages_is_up_to_date) {
  const std::string text = document(), begin = "<!-- messages:begin -->\n", end = "<!-- messages:end -->";
  const size_t from = text.find(begin), to = text.find(end);
  ASSERT_NE(from, std::string::npos);
  ASSERT_NE(to, std::string::npos);
  EXPECT_EQ(text.substr(from + begin.size(), to - from - begin.size()), sim_message_table_markdown())
      << "put this between the two marks";
}

/** The keys that a table takes, as the reader's own message lists them. */
std::vector<std::string> keys_of(const std::string &with_unknown_key) {
  std::string error;
  EXPECT_FALSE(sim_scenario_parse(with_unknown_key, "x", ".", error));
  const std::string before = "the keys here are ";
  const size_t from = error.find(before);
  EXPECT_NE(from, std::string::npos) << error;
  std::istringstream list(error.substr(from + before.size()));
  std::vector<std::string> keys;
  for (std::string key; std::getline(list, key, ',');)
    keys.push_back(key.substr(key.find_first_not_of(' ')));
  return keys;
}

TEST(sim_docs_test, every_key_is_documented) {
  const std::string text = document();
  for (const char *table :
       {"q=0", "[board]\nq=0", "[nas]\nq=0", "[sys_info]\nq=0", "[lte]\nq=0", "[[lte.neighbour]]\nq=0", "[nr5g]\nq=0",
        "[[nr5g.neighbour]]\nq=0", "[endc]\nq=0", "[scan]\nq=0", "[wwan]\nq=0", "[[wwan.profile]]\nq=0",
        "[[wwan.stats]]\nq=0", "[wwan.qos]\nq=0", "[mtpe]\nq=0", "[location]\nq=0", "[[at]]\nmodem=\"up\"\nq=0",
        "[[fault]]\non=\"nas.3\"\nq=0", "[trace]\nq=0"}) {
    for (const std::string &key : keys_of(table)) {
      const std::string forms[] = {'`' + key + '`', '.' + key + '`', '`' + key + '.', '.' + key + '.',
                                   "[[" + key + "]]"};
      const bool named = std::any_of(std::begin(forms), std::end(forms),
                                     [&text](const std::string &form) { return text.find(form) != std::string::npos; });
      EXPECT_TRUE(named) << key << " of " << table;
    }
  }
}

}  // namespace
