/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The messages of the simulated board, described once: encoding, decoding, the journal and the documentation's table
 * all walk the same rows.
 *
 * On the wire a message is a row of parts: type u8, length u16, value, all little-endian and packed. Mandatory parts
 * have types from 0x01, optional ones from 0x10. A part holds one or more fields of the platform's struct in their
 * order; a list is its number of entries (u8) and the entries.
 *
 * A client of a library is a handle made by sim_client_open: yrp_client_message_decode takes it, and sim_indicate
 * delivers to every open client of its library, on that library's thread.
 */
#ifndef SIM_MESSAGE_H
#define SIM_MESSAGE_H

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "yrp_client.h"

enum class sim_lib { nas, oxmap };
enum class sim_direction { request = YRP_MSG_REQUEST, response = YRP_MSG_RESPONSE, indication = YRP_MSG_INDICATION };

enum class sim_kind { u8, u16, u32, u64, i8, i16, i32, record };

/** One field of a platform struct: a number, a struct, or a list of either. */
struct sim_field {
  const char *name;
  sim_kind kind;
  uint32_t offset;                   /**< within the struct that holds it */
  uint32_t size;                     /**< of one entry in memory */
  uint32_t capacity;                 /**< entries; 1: no list */
  uint32_t columns;                  /**< of a two-dimensional array, as the journal shows it; 0: none */
  const char *count_name;            /**< null: all entries are used */
  uint32_t count_offset;             /**< of the u32 that counts the entries used */
  std::span<const sim_field> fields; /**< of a record */
};

/** One TLV. */
struct sim_part {
  uint8_t type;
  const char *valid_name; /**< null: mandatory, or optional without a flag of its own */
  uint32_t valid_offset;
  std::span<const sim_field> fields;
};

struct sim_message {
  uint32_t id;
  sim_lib lib;
  sim_direction direction;
  const char *name;        /**< in the journal */
  const char *struct_name; /**< of the platform's header */
  uint32_t size;
  std::span<const sim_part> parts;
};

/** Types from here on may be absent. */
inline constexpr uint8_t sim_first_optional = 0x10;

std::span<const sim_message> sim_messages();
const sim_message *sim_message_find(sim_lib lib, sim_direction direction, uint32_t id);

/** Whether the message has the validity flag `flag` (what a fault rule may clear). */
bool sim_message_has_flag(const sim_message &message, std::string_view flag);

/** Clear a validity flag of a record; false when the message has none of that name. */
bool sim_message_clear(const sim_message &message, std::string_view flag, void *record);

/** Encode a record (`message.size` octets). False when a count is above its capacity: `out` is not usable then. */
bool sim_message_encode(const sim_message &message, const void *record, std::vector<uint8_t> &out);

/** Decode into `out` of `message.size` octets: 0, or why not; then `out` is all zero. */
yrp_client_error_type sim_message_decode(const sim_message &message, const void *buf, size_t len, void *out);

/** The fields that are present, as the members of a JSON object without its braces. */
std::string sim_message_json(const sim_message &message, const void *record);

/** The table of messages in Markdown, as docs/simulator.md shows it. */
std::string sim_message_table_markdown();

/** What gets the indications of an open client, on its library's thread. `data` as given when it was opened. */
using sim_client_ind_cb = yrp_client_ind_cb;

/** Open a client of `lib`; its indications go to `ind_cb` (null: nowhere). */
yrp_client_type sim_client_open(sim_lib lib, sim_client_ind_cb ind_cb, void *data);

/**
 * Close it: once this has returned its callback runs no more (a call in flight is waited for, unless it is the caller).
 * False when the handle is none. Call without sim_lock.
 */
bool sim_client_close(yrp_client_type handle);

/**
 * Encode the record of indication `id` and deliver it `ms` from now on the thread of `lib`, to all open clients; it is
 * journaled when it is delivered. One of the NAS service is dropped while the modem is down. May be called with or
 * without sim_lock.
 */
void sim_indicate(sim_lib lib, uint32_t id, const void *record, double ms = 0);

/** Deliver any bytes under any id. */
void sim_indicate_raw(sim_lib lib, uint32_t id, std::vector<uint8_t> bytes, double ms = 0);

#endif
