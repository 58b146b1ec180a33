/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The table of messages in Markdown, for docs/simulator.md: one row a part. A test holds the document to it.
 */
#include <algorithm>

#include "sim_message.h"

namespace {

const char *direction_name(sim_direction direction) {
  switch (direction) {
    case sim_direction::request:
      return "request";
    case sim_direction::response:
      return "response";
    case sim_direction::indication:
      return "indication";
  }
  return "";
}

const char *kind_name(sim_kind kind) {
  switch (kind) {
    case sim_kind::u8:
      return "u8";
    case sim_kind::u16:
      return "u16";
    case sim_kind::u32:
      return "u32";
    case sim_kind::u64:
      return "u64";
    case sim_kind::i8:
      return "i8";
    case sim_kind::i16:
      return "i16";
    case sim_kind::i32:
      return "i32";
    case sim_kind::record:
      break;
  }
  return "";
}

std::string field_text(const sim_field &field);

std::string fields_text(std::span<const sim_field> fields) {
  std::string text;
  for (const sim_field &field : fields) {
    text += (text.empty() ? "" : ", ") + field_text(field);
  }
  return text;
}

/** `name` u16; `name` { ... }; up to 16 `name` of either. */
std::string field_text(const sim_field &field) {
  const std::string name = std::string("`") + field.name + "` ";
  const std::string of =
      field.kind == sim_kind::record ? "{ " + fields_text(field.fields) + " }" : kind_name(field.kind);
  if (field.capacity == 1 && !field.count_name) {
    return name + of;
  }
  const char *amount = field.count_name ? "up to " : "";
  return name + amount + std::to_string(field.capacity) + " x " + of;
}

std::string type_text(uint8_t type) {
  static const char digits[] = "0123456789abcdef";
  return std::string("0x") + digits[type >> 4] + digits[type & 15];
}

/** Flag, mandatory, or optional without a flag. */
std::string presence_text(const sim_part &part) {
  if (part.valid_name) {
    return std::string("`") + part.valid_name + '`';
  }
  return part.type < sim_first_optional ? "mandatory" : "optional";
}

void add_message(std::string &text, const sim_message &message) {
  const std::string head =
      "| " + std::to_string(message.id) + " | " + message.name + " | " + direction_name(message.direction) + " | ";
  if (message.parts.empty()) {
    text += head + "| | |\n";
  }
  for (const sim_part &part : message.parts) {
    text += head + type_text(part.type) + " | " + presence_text(part) + " | " + fields_text(part.fields) + " |\n";
  }
}

void add_library(std::string &text, sim_lib lib, const char *title) {
  text += std::string(title) + "\n\n| id | name | direction | type | present | fields |\n|---|---|---|---|---|---|\n";
  for (const sim_message &message : sim_messages()) {
    if (message.lib == lib) {
      add_message(text, message);
    }
  }
}

}  // namespace

std::string sim_message_table_markdown() {
  std::string text;
  add_library(text, sim_lib::nas, "NAS service:");
  text += '\n';
  add_library(text, sim_lib::oxmap, "Mobile access point:");
  return text;
}
