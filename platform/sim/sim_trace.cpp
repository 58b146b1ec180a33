/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The drive-test reader: CSV logs that a phone recorded, one measurement a row.
 *
 * Columns are found by the names of the header line. Such logs are dirty, and one rule holds for all of it: a field
 * that is not wholly a number within the range of its quantity was not measured. Nothing is guessed and no row is
 * dropped. A decimal text is rounded as text, half away from zero, since most of such halves have no exact double.
 */
#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <exception>
#include <string_view>

#include "sim_file.h"
#include "sim_scenario.h"

namespace {

enum column {
  COL_TIMESTAMP,
  COL_LONGITUDE,
  COL_LATITUDE,
  COL_SPEED,
  COL_NETWORK_MODE,
  COL_RSRP,
  COL_RSRQ,
  COL_SNR,
  COL_CQI,
  COL_LACHEX,
  COL_RAWCELLID,
  COL_NRXRSRP,
  COL_NRXRSRQ,
  COL_NR_RSRP,
  COL_NR_RSRQ,
  COL_NR_SNR,
  COLUMNS
};

struct column_row {
  std::string_view name;
  bool required;
};

constexpr column_row columns[] = {
    {.name = "Timestamp", .required = false},  // paces nothing
    {.name = "Longitude", .required = true},  {.name = "Latitude", .required = true},
    {.name = "Speed", .required = true},      {.name = "NetworkMode", .required = true},
    {.name = "RSRP", .required = true},       {.name = "RSRQ", .required = true},
    {.name = "SNR", .required = true},        {.name = "CQI", .required = true},
    {.name = "LACHEX", .required = true},     {.name = "RAWCELLID", .required = true},
    {.name = "NRxRSRP", .required = true},    {.name = "NRxRSRQ", .required = true},
    {.name = "NR_RSRP", .required = false},   {.name = "NR_RSRQ", .required = false},
    {.name = "NR_SNR", .required = false},
};
static_assert(std::size(columns) == COLUMNS);

// More than any drive has: a file beyond these is something else, and would take all memory before that shows.
constexpr size_t longest_file = 256 << 20;  // octets
constexpr size_t longest_line = 64 << 10;   // octets
constexpr size_t most_rows = 1'000'000;

/** What the phone writes where it knows nothing. */
constexpr double not_known = 2147483647;

std::string_view trim(std::string_view text) {
  const auto blank = [](char octet) { return octet == ' ' || octet == '\t' || octet == '\r'; };
  while (!text.empty() && blank(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && blank(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}

/** Lines with their numbers from 1; blank ones are passed over. */
struct line_reader {
  std::string_view rest;
  size_t number = 0;
  bool ended = true; /**< the line taken last has its line break */

  bool next(std::string_view &line) {
    while (!rest.empty()) {
      const size_t end = rest.find('\n');
      ended = end != std::string_view::npos;
      line = trim(rest.substr(0, end));
      rest.remove_prefix(ended ? end + 1 : rest.size());
      ++number;
      if (!line.empty()) {
        return true;
      }
    }
    return false;
  }
};

/** Take the first field off `line`; a comma inside quotes belongs to the field. */
std::string_view take_field(std::string_view &line, bool &more) {
  size_t end = 0;
  for (bool quoted = false; end < line.size() && (quoted || line[end] != ','); ++end) {
    if (line[end] == '"') {
      quoted = !quoted;
    }
  }
  std::string_view field = trim(line.substr(0, end));
  more = end < line.size();
  line.remove_prefix(more ? end + 1 : line.size());
  if (field.size() >= 2 && field.front() == '"' && field.back() == '"') {
    field = trim(field.substr(1, field.size() - 2));
  }
  return field;
}

void split(std::string_view line, std::vector<std::string_view> &fields) {
  fields.clear();
  for (bool more = true; more;) {
    fields.push_back(take_field(line, more));
  }
}

// Numbers.

/** A decimal number as text: its digits without sign, dot and exponent, and how many of them stand before the dot. */
struct decimal {
  bool negative = false;
  std::string_view whole, fraction;
  int exponent = 0;
  double value = 0;
};

bool is_digit(char octet) {
  return octet >= '0' && octet <= '9';
}

std::string_view take_digits(std::string_view &text) {
  const size_t count = static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_digit) - text.begin());
  const std::string_view digits = text.substr(0, count);
  text.remove_prefix(count);
  return digits;
}

/** Take one sign, where there is one; true: minus. */
bool take_sign(std::string_view &text) {
  const bool minus = text.starts_with('-');
  if (minus || text.starts_with('+')) {
    text.remove_prefix(1);
  }
  return minus;
}

bool take_exponent(std::string_view &text, int &exponent) {
  if (text.empty() || (text.front() != 'e' && text.front() != 'E')) {
    return true;
  }
  text.remove_prefix(1);
  const bool negative = take_sign(text);
  unsigned int size = 0;  // unsigned: a second sign is none
  const std::from_chars_result end = std::from_chars(text.data(), text.data() + text.size(), size);
  if (end.ec != std::errc() || size > 400) {
    return false;
  }
  exponent = negative ? -static_cast<int>(size) : static_cast<int>(size);
  text.remove_prefix(static_cast<size_t>(end.ptr - text.data()));
  return true;
}

/** Nothing for what is no plain number, and for the phone's way to say that it knows none. */
std::optional<decimal> read_decimal(std::string_view text) {
  decimal number;
  number.negative = take_sign(text);
  const std::string_view all = text;
  number.whole = take_digits(text);
  if (text.starts_with('.')) {
    text.remove_prefix(1);
    number.fraction = take_digits(text);
  }
  if (number.whole.empty() && number.fraction.empty()) {
    return {};
  }
  if (!take_exponent(text, number.exponent) || !text.empty()) {
    return {};
  }
  const std::from_chars_result end = std::from_chars(all.data(), all.data() + all.size(), number.value);
  if (number.negative) {
    number.value = -number.value;
  }
  if (end.ec != std::errc() || number.value == not_known) {
    return {};
  }
  return number;
}

/** The digit that stands `place` before the dot: 0 for the units, -1 for the tenths. */
int digit_at(const decimal &number, int place) {
  const int at = static_cast<int>(number.whole.size()) - 1 - (place - number.exponent);
  if (at < 0) {
    return 0;
  }
  const size_t index = static_cast<size_t>(at);
  if (index < number.whole.size()) {
    return number.whole[index] - '0';
  }
  const size_t behind = index - number.whole.size();
  return behind < number.fraction.size() ? number.fraction[behind] - '0' : 0;
}

/** `number` times ten to the `shift`, rounded half away from zero; for values that are known to fit. */
int64_t rounded(const decimal &number, int shift) {
  int64_t value = 0;
  for (int place = 12; place >= 0; --place) {
    value = value * 10 + digit_at(number, place - shift);
  }
  if (digit_at(number, -1 - shift) >= 5) {
    ++value;
  }
  return number.negative ? -value : value;
}

struct quantity {
  double min, max;
  int shift; /**< powers of ten from the log's unit to ours */
};

constexpr quantity rsrp_dbm = {.min = -156, .max = -31, .shift = 0};
constexpr quantity rsrq_db = {.min = -43, .max = 20, .shift = 0};
constexpr quantity snr_db = {.min = -40, .max = 50, .shift = 1};
constexpr quantity cqi_index = {.min = 0, .max = 15, .shift = 0};
constexpr quantity cell_id = {.min = 0, .max = UINT32_MAX, .shift = 0};

template <typename number>
std::optional<number> read_quantity(std::string_view field, const quantity &of) {
  const std::optional<decimal> read = read_decimal(field);
  if (!read || read->value < of.min || read->value > of.max) {
    return {};
  }
  return static_cast<number>(rounded(*read, of.shift));
}

std::optional<double> read_real(std::string_view field, double min, double max) {
  const std::optional<decimal> read = read_decimal(field);
  if (!read || read->value < min || read->value > max) {
    return {};
  }
  return read->value;
}

std::optional<uint16_t> read_hex(std::string_view field) {
  uint16_t value = 0;
  const std::from_chars_result end = std::from_chars(field.data(), field.data() + field.size(), value, 16);
  if (field.empty() || end.ec != std::errc() || end.ptr != field.data() + field.size()) {
    return {};
  }
  return value;
}

/** "2020.02.14_07.29.00", taken as UTC; 0 for anything else. */
int64_t read_timestamp(std::string_view field) {
  constexpr std::string_view form = "dddd.dd.dd_dd.dd.dd";
  if (field.size() != form.size()) {
    return 0;
  }
  std::array<int, 6> parts = {};
  size_t part = 0;
  for (size_t at = 0; at < form.size(); ++at) {
    if (form[at] != 'd') {
      if (field[at] != form[at]) {
        return 0;
      }
      ++part;
    } else {
      if (!is_digit(field[at])) {
        return 0;
      }
      parts[part] = parts[part] * 10 + (field[at] - '0');
    }
  }
  const auto [year, month, day, hour, minute, second] = parts;
  const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                         std::chrono::day(static_cast<unsigned>(day))};
  if (!date.ok() || hour > 23 || minute > 59 || second > 60) {
    return 0;
  }
  const std::chrono::sys_seconds at = std::chrono::sys_days(date) + std::chrono::hours(hour) +
                                      std::chrono::minutes(minute) + std::chrono::seconds(second);
  return at.time_since_epoch().count() * 1000;
}

// Rows.

constexpr size_t absent = SIZE_MAX;

struct layout {
  std::array<size_t, COLUMNS> place = {}; /**< where a column stands */
  size_t width = 0;                       /**< columns of the file */
};

bool read_header(std::string_view line, layout &of, std::string &what) {
  std::vector<std::string_view> names;
  split(line, names);
  of.width = names.size();
  size_t known = 0;
  std::string missing;
  for (size_t at = 0; at < COLUMNS; ++at) {
    const auto found = std::find(names.begin(), names.end(), columns[at].name);
    of.place[at] = found == names.end() ? absent : static_cast<size_t>(found - names.begin());
    if (found != names.end()) {
      ++known;
    } else if (columns[at].required) {
      missing.append(missing.empty() ? "" : ", ").append(columns[at].name);
    }
  }
  if (missing.empty()) {
    return true;
  }
  what = known ? "no column " + missing : "not a drive test: no header line with its columns";
  return false;
}

struct row_fields {
  const layout &of;
  const std::vector<std::string_view> &fields;

  std::string_view operator[](column name) const {
    const size_t place = of.place[name];
    return place < fields.size() ? fields[place] : std::string_view();
  }
};

constexpr double kmh_per_ms = 3.6;
constexpr double fastest_kmh = 1e6;

sim_trace_row read_row(const row_fields &of) {
  const std::string_view mode = of[COL_NETWORK_MODE];
  const std::optional<double> kmh = read_real(of[COL_SPEED], 0, fastest_kmh);
  return {.lte = mode == "LTE" || mode == "5G" ? sim_srv::service : sim_srv::no_service,
          .nr5g_cell = mode == "5G",
          .rsrp = read_quantity<int>(of[COL_RSRP], rsrp_dbm),
          .rsrq = read_quantity<int>(of[COL_RSRQ], rsrq_db),
          .snr = read_quantity<int>(of[COL_SNR], snr_db),
          .nbr_rsrp = read_quantity<int>(of[COL_NRXRSRP], rsrp_dbm),
          .nbr_rsrq = read_quantity<int>(of[COL_NRXRSRQ], rsrq_db),
          .cqi = read_quantity<uint8_t>(of[COL_CQI], cqi_index),
          .cgi = read_quantity<uint32_t>(of[COL_RAWCELLID], cell_id),
          .tac = read_hex(of[COL_LACHEX]),
          .nr_rsrp = read_quantity<int>(of[COL_NR_RSRP], rsrp_dbm),
          .nr_rsrq = read_quantity<int>(of[COL_NR_RSRQ], rsrq_db),
          .nr_snr = read_quantity<int>(of[COL_NR_SNR], snr_db),
          .longitude = read_real(of[COL_LONGITUDE], -180, 180),
          .latitude = read_real(of[COL_LATITUDE], -90, 90),
          .speed = kmh ? std::optional(*kmh / kmh_per_ms) : std::nullopt,
          .timestamp_ms = read_timestamp(of[COL_TIMESTAMP])};
}

std::string beyond_limits(std::string_view line, size_t row_count) {
  if (line.size() > longest_line) {
    return "a line of more than " + std::to_string(longest_line) + " octets";
  }
  return row_count > most_rows ? "more than " + std::to_string(most_rows) + " rows" : "";
}

/** The rows behind the header. */
std::optional<std::vector<sim_trace_row>> read_rows(std::string_view text, size_t &line_number, std::string &what) {
  if (text.starts_with("\xEF\xBB\xBF")) {
    text.remove_prefix(3);
  }
  line_reader lines = {.rest = text};
  std::string_view line;
  layout header;
  line_number = 1;
  if (!lines.next(line)) {
    what = "not a drive test: the file is empty";
    return {};
  }
  line_number = lines.number;
  what = beyond_limits(line, 0);
  if (!what.empty() || !read_header(line, header, what)) {
    return {};
  }

  std::vector<sim_trace_row> rows;
  std::vector<std::string_view> fields;
  while (lines.next(line)) {
    what = beyond_limits(line, rows.size() + 1);
    if (!what.empty()) {
      line_number = lines.number;
      return {};
    }
    split(line, fields);
    // Where the recording broke off within a line, its last field may be the beginning of a longer one.
    if (!lines.ended && fields.size() < header.width) {
      fields.pop_back();
    }
    rows.push_back(read_row({.of = header, .fields = fields}));
  }
  if (!rows.empty()) {
    return rows;
  }
  what = "no rows behind the header";
  return {};
}

// Putting a row in force.

void set_flag(uint32_t &flags, uint32_t flag, bool on) {
  flags = on ? flags | flag : flags & ~flag;
}

void apply_location(const sim_trace_row &row, location_client::Location &fix) {
  const bool placed = row.latitude && row.longitude;
  fix.latitude = placed ? *row.latitude : 0;
  fix.longitude = placed ? *row.longitude : 0;
  fix.speed = static_cast<float>(row.speed.value_or(0));
  fix.timestamp = static_cast<uint64_t>(std::max<int64_t>(row.timestamp_ms, 0));
  set_flag(fix.flags, location_client::LOCATION_HAS_LAT_LONG, placed);
  set_flag(fix.flags, location_client::LOCATION_HAS_SPEED, row.speed.has_value());
  set_flag(fix.flags, location_client::LOCATION_HAS_TIMESTAMP, row.timestamp_ms > 0);
}

void apply_neighbour(const sim_trace_row &row, sim_lte &lte) {
  lte.neighbour_measured = row.nbr_rsrp && row.nbr_rsrq;
  if (!lte.neighbour_measured) {
    return;
  }
  if (lte.neighbour.empty()) {
    lte.neighbour.emplace_back();
  }
  lte.neighbour.front().rsrp = static_cast<int16_t>(*row.nbr_rsrp);
  lte.neighbour.front().rsrq = static_cast<int16_t>(*row.nbr_rsrq);
}

void apply_lte(const sim_trace_row &row, sim_lte &lte) {
  lte.rsrp = row.rsrp;
  lte.rsrq = row.rsrq;
  lte.snr = row.snr;
  lte.tac = row.tac;
  lte.cgi = row.cgi;
  lte.cqi.clear();
  if (row.cqi) {
    lte.cqi = {{*row.cqi}};
  }
  apply_neighbour(row, lte);
}

/** A row without LTE: whatever its columns hold belongs to another technology. */
void clear_lte(sim_lte &lte) {
  apply_lte(sim_trace_row(), lte);
}

}  // namespace

std::optional<std::vector<sim_trace_row>> sim_trace_load(const std::string &file, std::string &error) {
  try {
    const std::optional<std::string> text = sim_file_read(file, longest_file, error);
    if (!text) {
      return {};
    }
    size_t line = 1;
    std::string what;
    std::optional<std::vector<sim_trace_row>> rows = read_rows(*text, line, what);
    if (!rows) {
      error = file + ':' + std::to_string(line) + ": " + what;
    }
    return rows;
  } catch (const std::exception &other) {
    error = file + ": " + other.what();
  }
  return {};
}

void sim_trace_apply(const sim_trace_row &row, int nr5g_pci, sim_radio &radio) {
  radio.sys_info.lte = row.lte;
  radio.sys_info.nr5g_pci = row.nr5g_cell ? nr5g_pci : -1;
  if (row.lte == sim_srv::service) {
    apply_lte(row, radio.lte);
  } else {
    clear_lte(radio.lte);
  }
  radio.nr5g.rsrp = row.nr_rsrp;
  radio.nr5g.rsrq = row.nr_rsrq;
  radio.nr5g.snr = row.nr_snr;
  apply_location(row, radio.location.fix);
}
