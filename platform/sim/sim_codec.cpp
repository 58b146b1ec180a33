/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Encoding, decoding and printing of platform messages by their table (sim_messages.cpp): nothing here knows a message.
 *
 * The platform's structs are read and written by offset. Bytes from outside are only ever read through sim_reader,
 * which stops at the end of the part it was given.
 */
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "sim_message.h"

namespace {

struct sim_reader {
  const uint8_t *at;
  size_t left;

  bool take(uint8_t *to, size_t octets) {
    if (octets > left) {
      return false;
    }
    memcpy(to, at, octets);
    at += octets;
    left -= octets;
    return true;
  }
};

size_t wire_size(sim_kind kind) {
  switch (kind) {
    case sim_kind::u8:
    case sim_kind::i8:
      return 1;
    case sim_kind::u16:
    case sim_kind::i16:
      return 2;
    case sim_kind::u32:
    case sim_kind::i32:
      return 4;
    case sim_kind::u64:
      return 8;
    case sim_kind::record:
      break;
  }
  return 0;
}

uint32_t load_u32(const uint8_t *at) {
  uint32_t value;
  memcpy(&value, at, sizeof value);
  return value;
}

/** Entries used of a field in the struct at `base`; may be above the capacity in a struct that a client filled. */
uint32_t entries(const sim_field &field, const uint8_t *base) {
  return field.count_name ? load_u32(base + field.count_offset) : field.capacity;
}

/** The struct fields are little-endian as the wire is. */
bool put_field(const sim_field &field, const uint8_t *base, std::vector<uint8_t> &out) {
  const uint32_t count = entries(field, base);
  if (count > field.capacity) {
    return false;
  }
  if (field.count_name) {
    out.push_back(static_cast<uint8_t>(count));
  }
  const uint8_t *entry = base + field.offset;
  for (uint32_t i = 0; i < count; i++, entry += field.size) {
    if (field.kind != sim_kind::record) {
      out.insert(out.end(), entry, entry + wire_size(field.kind));
      continue;
    }
    for (const sim_field &inner : field.fields) {
      if (!put_field(inner, entry, out)) {
        return false;
      }
    }
  }
  return true;
}

bool take_field(const sim_field &field, sim_reader &reader, uint8_t *base) {
  uint32_t count = field.capacity;
  if (field.count_name) {
    uint8_t wire_count;
    if (!reader.take(&wire_count, 1) || wire_count > field.capacity) {
      return false;
    }
    count = wire_count;
    memcpy(base + field.count_offset, &count, sizeof count);
  }
  uint8_t *entry = base + field.offset;
  for (uint32_t i = 0; i < count; i++, entry += field.size) {
    if (field.kind != sim_kind::record) {
      if (!reader.take(entry, wire_size(field.kind))) {
        return false;
      }
      continue;
    }
    for (const sim_field &inner : field.fields) {
      if (!take_field(inner, reader, entry)) {
        return false;
      }
    }
  }
  return true;
}

/** A part without a flag of its own is there unless all its lists are empty. */
bool part_present(const sim_part &part, const uint8_t *base) {
  if (part.type < sim_first_optional) {
    return true;
  }
  if (part.valid_name) {
    return base[part.valid_offset] != 0;
  }
  return std::any_of(part.fields.begin(), part.fields.end(),
                     [base](const sim_field &field) { return entries(field, base) > 0; });
}

bool take_part(const sim_part &part, sim_reader value, uint8_t *base) {
  for (const sim_field &field : part.fields) {
    if (!take_field(field, value, base)) {
      return false;
    }
  }
  if (part.valid_name) {
    base[part.valid_offset] = 1;
  }
  return value.left == 0;
}

yrp_client_error_type take_message(const sim_message &message, sim_reader reader, uint8_t *out) {
  bool seen[0x100] = {};
  while (reader.left > 0) {
    uint8_t head[3];
    if (!reader.take(head, sizeof head)) {
      return YRP_DECODE_ERR;
    }
    const size_t length = static_cast<size_t>(head[1] | head[2] << 8);
    if (length > reader.left) {
      return YRP_DECODE_ERR;
    }
    const sim_reader value{reader.at, length};
    reader = {reader.at + length, reader.left - length};

    const auto part = std::find_if(message.parts.begin(), message.parts.end(),
                                   [type = head[0]](const sim_part &row) { return row.type == type; });
    if (part == message.parts.end()) {
      continue;
    }
    if (seen[part->type] || !take_part(*part, value, out)) {
      return YRP_DECODE_ERR;
    }
    seen[part->type] = true;
  }
  const bool complete = std::all_of(message.parts.begin(), message.parts.end(), [&seen](const sim_part &part) {
    return part.type >= sim_first_optional || seen[part.type];
  });
  return complete ? YRP_NO_ERR : YRP_MISSING_TLV_ERR;
}

template <typename number>
number load(const uint8_t *at) {
  number value;
  memcpy(&value, at, sizeof value);
  return value;
}

std::string number_text(sim_kind kind, const uint8_t *at) {
  switch (kind) {
    case sim_kind::u8:
      return std::to_string(*at);
    case sim_kind::u16:
      return std::to_string(load<uint16_t>(at));
    case sim_kind::u32:
      return std::to_string(load<uint32_t>(at));
    case sim_kind::u64:
      return std::to_string(load<uint64_t>(at));
    case sim_kind::i8:
      return std::to_string(load<int8_t>(at));
    case sim_kind::i16:
      return std::to_string(load<int16_t>(at));
    case sim_kind::i32:
      return std::to_string(load<int32_t>(at));
    case sim_kind::record:
      break;
  }
  return {};
}

void add_member(std::string &text, const char *name, const std::string &value) {
  if (!text.empty()) {
    text += ", ";
  }
  text += '"';
  text += name;
  text += "\": ";
  text += value;
}

void add_field(std::string &text, const sim_field &field, const uint8_t *base);

std::string entry_text(const sim_field &field, const uint8_t *entry) {
  if (field.kind != sim_kind::record) {
    return number_text(field.kind, entry);
  }
  std::string members;
  for (const sim_field &inner : field.fields) {
    add_field(members, inner, entry);
  }
  return '{' + members + '}';
}

std::string list_text(const sim_field &field, const uint8_t *entry, uint32_t count) {
  std::string text = "[";
  for (uint32_t i = 0; i < count; i++, entry += field.size) {
    if (i > 0) {
      text += ", ";
    }
    if (field.columns > 0 && i % field.columns == 0) {
      text += '[';
    }
    text += entry_text(field, entry);
    if (field.columns > 0 && (i + 1) % field.columns == 0) {
      text += ']';
    }
  }
  return text + ']';
}

void add_field(std::string &text, const sim_field &field, const uint8_t *base) {
  if (field.capacity == 1 && !field.count_name) {
    add_member(text, field.name, entry_text(field, base + field.offset));
    return;
  }
  const uint32_t count = entries(field, base);
  if (field.count_name) {
    add_member(text, field.count_name, std::to_string(count));
  }
  add_member(text, field.name, list_text(field, base + field.offset, std::min(count, field.capacity)));
}

}  // namespace

bool sim_message_encode(const sim_message &message, const void *record, std::vector<uint8_t> &out) {
  const uint8_t *base = static_cast<const uint8_t *>(record);
  out.clear();
  for (const sim_part &part : message.parts) {
    if (!part_present(part, base)) {
      continue;
    }
    const size_t head = out.size();
    out.insert(out.end(), {part.type, 0, 0});
    for (const sim_field &field : part.fields) {
      if (!put_field(field, base, out)) {
        return false;
      }
    }
    const size_t length = out.size() - head - 3;
    out[head + 1] = static_cast<uint8_t>(length);
    out[head + 2] = static_cast<uint8_t>(length >> 8);
  }
  return true;
}

yrp_client_error_type sim_message_decode(const sim_message &message, const void *buf, size_t len, void *out) {
  memset(out, 0, message.size);
  const sim_reader reader{static_cast<const uint8_t *>(buf), len};
  const yrp_client_error_type status = take_message(message, reader, static_cast<uint8_t *>(out));
  if (status != YRP_NO_ERR) {
    memset(out, 0, message.size);
  }
  return status;
}

std::string sim_message_json(const sim_message &message, const void *record) {
  const uint8_t *base = static_cast<const uint8_t *>(record);
  std::string text;
  for (const sim_part &part : message.parts) {
    if (!part_present(part, base)) {
      continue;
    }
    if (part.valid_name) {
      add_member(text, part.valid_name, std::to_string(base[part.valid_offset]));
    }
    for (const sim_field &field : part.fields) {
      add_field(text, field, base);
    }
  }
  return text;
}

bool sim_message_clear(const sim_message &message, std::string_view flag, void *record) {
  bool found = false;
  for (const sim_part &part : message.parts) {
    if (!part.valid_name || flag != part.valid_name) {
      continue;
    }
    static_cast<uint8_t *>(record)[part.valid_offset] = 0;
    found = true;
  }
  return found;
}
