/* SPDX-License-Identifier: Apache-2.0 */
/*
 * YRP client library of the board (closed): the messaging protocol between the application processor and the services
 * of the modem.
 *
 * Declarations only; the simulated board or the board's own library implements them. A message is described by its id;
 * requests and responses are handed over as the plain structs of the service's header, indications arrive encoded and
 * are decoded with yrp_client_message_decode. Calls may be made from any thread; callbacks run on the library's
 * threads.
 */
#ifndef YRP_CLIENT_H
#define YRP_CLIENT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Handle of a client or notifier: opaque, null when there is none. */
typedef struct yrp_client_s *yrp_client_type;

/** Describes one service: its messages and its interface version. Owned by the library. */
typedef const struct yrp_service_object_s *yrp_service_object_type;

/** Where one instance of a service is reached. */
typedef struct {
  uint32_t service_id;
  uint32_t instance;
  uint32_t address[2];
} yrp_service_info;

/** Signalling object between the library and a waiting client: zeroed by its owner, filled by the library. */
typedef struct {
  uint32_t signal; /**< events signalled and not yet waited for */
  uint32_t timed_out;
} yrp_client_os_params;

/** Status of every call: 0 success, negative failure. */
typedef int32_t yrp_client_error_type;

enum {
  YRP_NO_ERR = 0,
  YRP_INTERNAL_ERR = -1, /**< also: the modem is down */
  YRP_SERVICE_ERR = -2,  /**< the service is not offered */
  YRP_TIMEOUT_ERR = -3,
  YRP_DECODE_ERR = -4,      /**< duplicate, truncated or wrong-length part, or a count above its capacity */
  YRP_MISSING_TLV_ERR = -5, /**< a mandatory part is absent */
  YRP_BUFFER_ERR = -6,      /**< the struct's size is not the message's */
  YRP_UNKNOWN_MESSAGE_ERR = -7,
  YRP_INVALID_PARAM_ERR = -8
};

/** Error code inside a response; 0 none. */
typedef uint32_t yrp_error_type_v01;

/** Head of every response: result 0 success, 1 failure with the error code. */
typedef struct {
  uint32_t result;
  yrp_error_type_v01 error;
} yrp_response_type_v01;

/** Message types of yrp_client_message_decode. */
enum { YRP_MSG_REQUEST = 0, YRP_MSG_RESPONSE = 1, YRP_MSG_INDICATION = 2 };

/** Service events of yrp_client_notify_cb. */
enum { YRP_SERVICE_UP = 0, YRP_SERVICE_DOWN = 1 };

/** Any instance of a service. */
enum { YRP_INSTANCE_ANY = 0xffff };

/** Indication callback: `buf` is the encoded message of `len` octets, the library's own, valid during the call. */
typedef void (*yrp_client_ind_cb)(yrp_client_type user_handle, unsigned int msg_id, void *buf, unsigned int len,
                                  void *cb_data);

/** Service-event callback. */
typedef void (*yrp_client_notify_cb)(yrp_client_type user_handle, yrp_service_object_type service_object,
                                     int32_t service_event, void *cb_data);

/** Create a notifier that watches the availability of a service; `os_params` is signalled when it changes. */
yrp_client_error_type yrp_client_notifier_init(yrp_service_object_type service_object, yrp_client_os_params *os_params,
                                               yrp_client_type *user_handle);

/**
 * List the instances that offer a service. With null `service_info` and `num_entries` only `num_services` is written.
 * `num_entries`: in, capacity of service_info; out, entries written. Fails while the service is not offered.
 */
yrp_client_error_type yrp_client_get_service_list(yrp_service_object_type service_object,
                                                  yrp_service_info *service_info, unsigned int *num_entries,
                                                  unsigned int *num_services);

/** Wait until `os_params` is signalled, at most `timeout_ms`; 0 waits without limit. */
void yrp_cci_os_signal_wait(yrp_client_os_params *os_params, unsigned int timeout_ms);

/** Have `notify_cb` called for the service events of a notifier. */
yrp_client_error_type yrp_client_register_notify_cb(yrp_client_type user_handle, yrp_client_notify_cb notify_cb,
                                                    void *cb_data);

/** Connect to a service; indications that the client registers for go to `ind_cb`. */
yrp_client_error_type yrp_client_init_instance(yrp_service_object_type service_object, unsigned int instance,
                                               yrp_client_ind_cb ind_cb, void *ind_cb_data,
                                               yrp_client_os_params *os_params, unsigned int timeout_ms,
                                               yrp_client_type *user_handle);

/** Send a request and wait for its response, at most `timeout_ms`. Buffers are the structs of the service's header. */
yrp_client_error_type yrp_client_send_msg_sync(yrp_client_type user_handle, unsigned int msg_id, void *req,
                                               unsigned int req_len, void *resp, unsigned int resp_len,
                                               unsigned int timeout_ms);

/** Decode `buf` (`len` octets) of message `msg_id` into the struct `out` of `out_len` octets, which is zeroed first. */
yrp_client_error_type yrp_client_message_decode(yrp_client_type user_handle, unsigned int msg_type, unsigned int msg_id,
                                                const void *buf, unsigned int len, void *out, unsigned int out_len);

/** Release a client or notifier; its callback is not called any more once this has returned. */
yrp_client_error_type yrp_client_release(yrp_client_type user_handle);

#ifdef __cplusplus
}
#endif

#endif
