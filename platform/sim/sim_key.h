/* SPDX-License-Identifier: Apache-2.0 */
/*
 * One row per key of a scenario: its name, what it may be, its default, where it is stored, and its line in
 * docs/simulator.md. The reader (sim_key_read.cpp), the document (sim_key_doc.cpp) and the tests walk the same rows.
 *
 * To add a key, add its row to the table of its subject (sim_key_SUBJECT.cpp) and the member to sim_scenario.h. What a
 * key may be follows from the member, unless the row narrows it: its wire type gives the range, sizes of lists are the
 * capacities of the messages.
 *
 * A row does not store when it is read: a table that is read becomes a change, which stores when it is applied to a
 * record. So the same rows serve the tables of the scenario and the entries of the timeline, which apply them later.
 */
#ifndef SIM_KEY_H
#define SIM_KEY_H

#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

enum class sim_key_kind {
  boolean,
  integer,
  real,
  time,     /**< a real number of milliseconds */
  measured, /**< an integer, or "absent" */
  text,
  word,     /**< one of a few texts */
  crossing, /**< its name, or "" where a row allows that */
  flags,    /**< names of validity flags */
  bytes,    /**< a text of hexadecimal digits */
  integers, /**< a list */
  carriers, /**< a list of component carriers, each the list of its codewords */
  table,    /**< keys that it does not give stay as they are */
  tables    /**< a list of tables; it replaces the default */
};

/** What a key holds; nothing: "absent", or a number that need not be given. */
using sim_key_value = std::variant<std::monostate, bool, int64_t, double, std::string, std::vector<int64_t>,
                                   std::vector<std::vector<int64_t>>, std::vector<std::string>>;

/** What a table that was read stores in a record. */
using sim_key_change = std::function<void(void *record)>;

/** One of a few texts, and what an enumeration calls it. */
struct sim_key_word {
  std::string_view name;
  int value = 0;
};

/** What is wrong with an entry that has only right values. */
struct sim_key_wrong {
  std::string_view key;
  std::optional<size_t> at; /**< of its list, when it is one */
  std::string text;
};

struct sim_key;
using sim_keys = std::span<const sim_key>;

/** Limits are int64_t, as TOML's own integers are; wider wire fields are limited by those. */
inline constexpr int64_t sim_key_no_minimum = std::numeric_limits<int64_t>::min();
inline constexpr int64_t sim_key_no_maximum = std::numeric_limits<int64_t>::max();

inline constexpr size_t sim_key_no_limit = std::numeric_limits<size_t>::max();

/** Octets of a text that has no limit of its own. */
inline constexpr size_t sim_key_longest_text = 4096;

/** A day: what is longer is a slip, and would look like a board that hangs. */
inline constexpr int64_t sim_key_longest_ms = 86'400'000;

struct sim_key_type {
  sim_key_kind kind;
  int64_t min = sim_key_no_minimum, max = sim_key_no_maximum; /**< of a number, and of each in a list */
  std::string_view wire = {};                                 /**< "u16": the limits are those of this wire type */
  double least = 0, most_real = 0; /**< of a real number: `min` and `max` to the last digit */
  std::optional<double> lone = {}; /**< a real number that is allowed beside the range */
  std::string_view range = {};     /**< in words, where `min` and `max` do not say it */
  size_t most = sim_key_no_limit;  /**< entries of a list, octets of a text */
  size_t fewest = 0;
  size_t most_inner = 0;                    /**< entries of each list in a list */
  std::span<const sim_key_word> words = {}; /**< of a word */
  sim_keys (*keys)() = nullptr;             /**< of a table, or of each in a list */
  bool patch = false;                       /**< a change of the board's own table of this name */
  /** Of values: to their member of a record, and back. */
  void (*store)(void *, const sim_key_value &) = nullptr;
  sim_key_value (*load)(const void *) = nullptr;
  /** Of tables: store what each gives; where the entries are; what is wrong with one as a whole. */
  void (*fill)(void *, const std::vector<sim_key_change> &) = nullptr;
  std::vector<const void *> (*entries)(const void *) = nullptr;
  std::optional<sim_key_wrong> (*check)(const sim_key_change &) = nullptr;
};

struct sim_key {
  std::string_view name;
  sim_key_type type;
  std::string_view initial = {}; /**< the default as TOML; empty: none, or that of the keys inside */
  std::string_view text = {};    /**< for the document */
  bool required = false;
  bool traced = false; /**< a trace owns the value */
  bool event = false;  /**< a table with such keys needs one of them */
};

/** The tables, each in the file of its subject. */
sim_keys sim_keys_scenario();
sim_keys sim_keys_board();
sim_keys sim_keys_nas();
sim_keys sim_keys_sys_info();
sim_keys sim_keys_lte();
sim_keys sim_keys_nr5g();
sim_keys sim_keys_endc();
sim_keys sim_keys_plmn();
sim_keys sim_keys_scan();
sim_keys sim_keys_wwan();
sim_keys sim_keys_mtpe();
sim_keys sim_keys_location();
sim_keys sim_keys_at();
sim_keys sim_keys_fault();
sim_keys sim_keys_trace();

/** "from 0 to 255", "from 0", "any". */
std::string sim_key_range_text(int64_t min, int64_t max);
/** The shortest text that is this number. */
std::string sim_key_number_text(double value);
/** What a real number may be: "-1, or from 0 to 86400000". */
std::string sim_key_real_range_text(const sim_key_type &type);
/** "a, b, c". */
std::string sim_key_names(sim_keys keys);
std::string sim_key_word_names(std::span<const sim_key_word> words);

/** The keys of these tables of a scenario in Markdown, as docs/simulator.md shows them. */
std::string sim_key_table_markdown(std::span<const std::string> tables);

#endif
