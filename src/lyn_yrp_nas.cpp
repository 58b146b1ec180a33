/* SPDX-License-Identifier: Apache-2.0 */
/*
 * NAS client, life cycle: connecting to the modem's network access service, registering for its indications, service
 * events and release; and the one place where a request is sent.
 *
 * Connecting waits until the modem offers the service. The notifier watches the service and reports a restart of the
 * modem; nothing is connected or registered again then, that is for whoever receives the event.
 *
 * After a release that the library refused half way connecting again makes what is missing and nothing twice. A
 * connection that failed is forgotten whole.
 */
#include "lyn_event.h"
#include "lyn_yrp_nas_priv.h"

yrp_client_type yrp_nas_clnt_handle = nullptr;
constinit std::atomic<uint32_t> lyn_nas_network_status{OX_LYN_REG_NO_SERVICE_E};

static yrp_client_type yrp_nas_notifier = nullptr;
static yrp_client_os_params yrp_nas_os_params;

/** What the handles are for, guarded as they are: the notifier calls back, the client is sent its indications. */
static bool yrp_nas_watched = false;
static bool yrp_nas_registered = false;

/** Time-out of connecting and of every request. */
static constexpr unsigned int LYN_NAS_TIMEOUT_MS = 50000;

bool lyn_nas_connected(void) {
  if (yrp_nas_clnt_handle != nullptr) {
    return true;
  }
  LYN_LOG_ERROR("YRP NAS module not initialized - yrp_nas_clnt_handle[%p]",
                static_cast<const void *>(yrp_nas_clnt_handle));
  return false;
}

int32_t lyn_nas_check(const void *record, lyn_nas_log_null_fn log_null) {
  if (record == nullptr) {
    log_null(record);
    return OX_LYN_ERR_INVALID_PARAM;
  }
  return lyn_nas_connected() ? OX_LYN_SUCCESS : OX_LYN_ERR_NOT_INITIALIZED;
}

int32_t lyn_nas_transport(uint32_t msg_id, void *req, size_t req_len, void *resp, size_t resp_len) {
  return yrp_client_send_msg_sync(yrp_nas_clnt_handle, msg_id, req, static_cast<unsigned int>(req_len), resp,
                                  static_cast<unsigned int>(resp_len), LYN_NAS_TIMEOUT_MS);
}

int32_t lyn_nas_send_raw(uint32_t msg_id, void *req, size_t req_len, void *resp, size_t resp_len,
                         lyn_nas_log_failure_fn log_failure) {
  const int32_t transport = lyn_nas_transport(msg_id, req, req_len, resp, resp_len);
  const auto *head = static_cast<const yrp_response_type_v01 *>(resp);
  if (transport == YRP_NO_ERR && head->result == 0) {
    return OX_LYN_SUCCESS;
  }
  log_failure(transport, head->result, head->error);
  return OX_LYN_ERR_FAILURE;
}

static yrp_service_object_type lyn_nas_service_object() {
  return nas_get_service_object_internal_v01(1, 388, 6);
}

/* Registration */

typedef lyn_nas_exchange_t<yrp_nas_indication_register_req_t, yrp_nas_resp_t> lyn_nas_register_exchange_t;

static void lyn_nas_log_install_registration(const yrp_nas_indication_register_req_t &req) {
  LYN_LOG_HIGH("YRP NAS client install meas indications %d\n", req.reg_install_meas_ind);
  LYN_LOG_HIGH("YRP NAS client install  status indications %d\n", req.reg_install_status_ind);
}

static int32_t lyn_nas_send_registration(lyn_nas_register_exchange_t &exchange) {
  return lyn_nas_send(exchange, YRP_NAS_INDICATION_REGISTER,
                      LYN_NAS_FAILURE("YRP NAS indication register request failed - error[%d], response[%d/%d]"));
}

/** Register for everything but signal information. */
static int32_t lyn_nas_register_at_start(lyn_nas_register_exchange_t &exchange) {
  lyn_nas_fill_registration(*exchange.req);
  LYN_LOG_HIGH("YRP NAS client PPS mode reg_panel_pos_change_ind %d\n", exchange.req->reg_panel_pos_change_ind);
  LYN_LOG_HIGH("YRP NAS client PPS mode reg_panel_pos_change_ind_valid %d\n",
               exchange.req->reg_panel_pos_change_ind_valid);
  lyn_nas_log_install_registration(*exchange.req);
  const int32_t status = lyn_nas_send_registration(exchange);
  if (status != OX_LYN_SUCCESS) {
    return status;
  }
  yrp_nas_registered = true;
  LYN_LOG_HIGH("YRP NAS indication register request successful - sys_info[true]");
  LYN_LOG_HIGH("NAS service successfully initialized!");
  return OX_LYN_SUCCESS;
}

/** Message 3 with signal information on or off. */
static int32_t lyn_nas_register_sig_info(bool wanted) {
  lyn_nas_register_exchange_t exchange;
  if (!lyn_nas_alloc(exchange)) {
    LYN_LOG_ERROR("Memory allocation failed");
    return OX_LYN_ERR_NO_MEMORY;
  }
  lyn_nas_fill_registration(*exchange.req);
  exchange.req->sig_info_valid = 1;
  exchange.req->sig_info = wanted ? 1 : 0;
  lyn_nas_log_install_registration(*exchange.req);
  return lyn_nas_send_registration(exchange);
}

static void lyn_nas_fill_deltas(const lyn_ind_table_t &table, yrp_nas_config_sig_info_req_t &req) {
  req.lte_snr_delta_valid = table.lte_sinr.enabled;
  req.lte_snr_delta = table.lte_sinr.threshold;
  req.lte_rsrq_delta_valid = table.lte_rsrq.enabled;
  req.lte_rsrq_delta = table.lte_rsrq.threshold;
  req.lte_rsrp_delta_valid = table.lte_rsrp.enabled;
  req.lte_rsrp_delta = table.lte_rsrp.threshold;
  req.nr5g_snr_delta_valid = table.nr5g_sinr.enabled;
  req.nr5g_snr_delta = table.nr5g_sinr.threshold;
  req.nr5g_rsrp_delta_valid = table.nr5g_rsrp.enabled;
  req.nr5g_rsrp_delta = table.nr5g_rsrp.threshold;
  req.nr5g_rsrq_delta_valid = table.nr5g_rsrq.enabled;
  req.nr5g_rsrq_delta = table.nr5g_rsrq.threshold;
}

/** Message 108. Deliberately lenient: only the transport counts, the result inside the response is not examined. */
static int32_t lyn_nas_configure_sig_info(const lyn_ind_table_t &table) {
  lyn_nas_exchange_t<yrp_nas_config_sig_info_req_t, yrp_nas_resp_t> exchange;
  if (!lyn_nas_alloc(exchange)) {
    LYN_LOG_ERROR("Memory allocation failed");
    return OX_LYN_ERR_NO_MEMORY;
  }
  lyn_nas_fill_deltas(table, *exchange.req);
  const int32_t transport = lyn_nas_transport(YRP_NAS_CONFIG_SIG_INFO, exchange.req.get(), sizeof(*exchange.req),
                                              exchange.resp.get(), sizeof(*exchange.resp));
  if (transport != YRP_NO_ERR) {
    LYN_LOG_ERROR("YRP NAS signaling information request failed with status[%d]", transport);
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_register_ind(const lyn_ind_table_t *ind_info) {
  const int32_t checked = lyn_nas_check(ind_info, LYN_NAS_NULL("Invalid params - ind_info[%p]"));
  if (checked != OX_LYN_SUCCESS) {
    return checked;
  }
  const bool any_signal =
      (ind_info->lte_rsrp.enabled | ind_info->lte_rsrq.enabled | ind_info->lte_sinr.enabled |
       ind_info->nr5g_rsrp.enabled | ind_info->nr5g_rsrq.enabled | ind_info->nr5g_sinr.enabled) != 0;
  const int32_t registered = lyn_nas_register_sig_info(any_signal);
  return registered == OX_LYN_SUCCESS ? lyn_nas_configure_sig_info(*ind_info) : registered;
}

/* Service events */

/** Post an event that carries nothing but itself: one octet, 1. */
static void lyn_nas_post_modem_event(uint32_t event) {
  auto *flag = static_cast<uint8_t *>(malloc(1));
  if (flag == nullptr) {
    LYN_LOG_ERROR("Memory allocation failure");
    return;
  }
  *flag = 1;
  (void)lyn_post_async_event(event, flag);  // takes the octet, also where it fails
}

static void lyn_nas_handle_service_event(int32_t service_event) {
  LYN_LOG_HIGH("NAS service notification callback received service event[%d]", service_event);
  switch (service_event) {
    case YRP_SERVICE_UP:
      LYN_LOG_HIGH("SSR - Modem up indication event[%d]", service_event);
      lyn_nas_post_modem_event(LYN_EVENT_MODEM_UP);
      break;
    case YRP_SERVICE_DOWN:
      LYN_LOG_HIGH("SSR - Modem down indication event[%d]", service_event);
      lyn_nas_post_modem_event(LYN_EVENT_MODEM_DOWN);
      break;
    default:
      LYN_LOG_ERROR("NAS service event[%d] is not currently supported", service_event);
      break;
  }
}

void lyn_yrp_nas_svc_notify_cb(yrp_client_type, yrp_service_object_type, int32_t service_event, void *) {
  try {
    lyn_nas_handle_service_event(service_event);
  } catch (...) {  // nothing may unwind into the library
  }
}

/* Connecting */

static int32_t lyn_nas_open_client(yrp_service_object_type service) {
  if (yrp_nas_clnt_handle != nullptr) {
    return OX_LYN_SUCCESS;
  }
  static yrp_client_os_params os_params;  // static: the library may signal it for as long as the client lives
  os_params = {};
  const int32_t status = yrp_client_init_instance(service, YRP_INSTANCE_ANY, lyn_yrp_nas_ind_cb, nullptr, &os_params,
                                                  LYN_NAS_TIMEOUT_MS, &yrp_nas_clnt_handle);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("YRP NAS client initialization failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

int32_t lyn_yrp_nas_client_init(void) {
  if (yrp_nas_registered) {
    LYN_LOG_HIGH("YRP NAS client module already initialized");
    return OX_LYN_SUCCESS;
  }
  lyn_nas_register_exchange_t exchange;
  if (!lyn_nas_alloc(exchange)) {
    LYN_LOG_ERROR("Memory allocation failed");
    return OX_LYN_ERR_NO_MEMORY;
  }
  yrp_service_object_type service = lyn_nas_service_object();
  if (service == nullptr) {
    LYN_LOG_ERROR("YRP NAS service object not available");
    return OX_LYN_ERR_FAILURE;
  }
  const int32_t opened = lyn_nas_open_client(service);
  return opened == OX_LYN_SUCCESS ? lyn_nas_register_at_start(exchange) : opened;
}

/** Wait, without limit, until the service is offered. Returns how many instances offer it. */
static unsigned int lyn_nas_wait_for_service(yrp_service_object_type service) {
  for (;;) {
    unsigned int num_services = 0;
    const int32_t status = yrp_client_get_service_list(service, nullptr, nullptr, &num_services);
    if (status == YRP_NO_ERR) {
      return num_services;
    }
    LYN_LOG_ERROR("Retrieving YRP NAS service list failed with status[%d]", status);
    yrp_cci_os_signal_wait(&yrp_nas_os_params, 0);
  }
}

static int32_t lyn_nas_list_services(yrp_service_object_type service, unsigned int num_services) {
  const lyn_block_t<yrp_service_info> services = lyn_zeroed_block<yrp_service_info>(std::max(num_services, 1U));
  if (services == nullptr) {
    LYN_LOG_ERROR("Memory allocation failed");
    return OX_LYN_ERR_NO_MEMORY;
  }
  unsigned int num_entries = num_services;
  const int32_t status = yrp_client_get_service_list(service, services.get(), &num_entries, &num_services);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("Retrieving YRP NAS service list failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  LYN_LOG_HIGH("Retrieved YRP NAS service list - num_entries[%d], num_services[%d]", num_entries, num_services);
  return OX_LYN_SUCCESS;
}

static int32_t lyn_nas_open_notifier(yrp_service_object_type service) {
  const int32_t status = yrp_client_notifier_init(service, &yrp_nas_os_params, &yrp_nas_notifier);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("Initializing notifier with a service object failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  return OX_LYN_SUCCESS;
}

static int32_t lyn_nas_watch_service() {
  const int32_t status = yrp_client_register_notify_cb(yrp_nas_notifier, lyn_yrp_nas_svc_notify_cb, nullptr);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("Registering callback for YRP NAS service events failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  yrp_nas_watched = true;
  return OX_LYN_SUCCESS;
}

/** Every step of connecting; on failure the handles are left for the caller to release. */
static int32_t lyn_nas_connect() {
  yrp_service_object_type service = lyn_nas_service_object();
  if (service == nullptr) {
    LYN_LOG_ERROR("NAS service object is not available!");
    return OX_LYN_ERR_FAILURE;
  }
  int32_t status = lyn_nas_open_notifier(service);
  if (status == OX_LYN_SUCCESS) {
    status = lyn_nas_list_services(service, lyn_nas_wait_for_service(service));
  }
  if (status == OX_LYN_SUCCESS) {
    status = lyn_nas_watch_service();
  }
  return status == OX_LYN_SUCCESS ? lyn_yrp_nas_client_init() : status;
}

/** Release a handle, if there is one. Returns the library's status; where it refuses, all stays as it is. */
static int32_t lyn_nas_close(yrp_client_type &handle, bool &in_use) {
  const int32_t status = handle != nullptr ? yrp_client_release(handle) : static_cast<int32_t>(YRP_NO_ERR);
  if (status == YRP_NO_ERR) {
    handle = nullptr;
    in_use = false;
  }
  return status;
}

/** Release a handle, if there is one, and forget it even where the library refuses: deliberate. */
static void lyn_nas_drop(yrp_client_type &handle, bool &in_use) {
  (void)lyn_nas_close(handle, in_use);
  handle = nullptr;
  in_use = false;
}

int32_t lyn_yrp_nas_init(void) {
  if (yrp_nas_watched) {  // the last step but one: where the last one fails, it is undone
    LYN_LOG_HIGH("YRP NAS client module already initialized");
    return OX_LYN_SUCCESS;
  }
  const int32_t status = lyn_nas_connect();
  if (status != OX_LYN_SUCCESS) {
    lyn_nas_drop(yrp_nas_notifier, yrp_nas_watched);
    lyn_nas_drop(yrp_nas_clnt_handle, yrp_nas_registered);
  }
  return status;
}

/** The network status deliberately stays: it is what requests go by until the next system information. */
int32_t lyn_yrp_nas_release(void) {
  if (yrp_nas_clnt_handle == nullptr) {
    LYN_LOG_ERROR("YRP NAS client module not yet initialized - cannot be released!");
    return OX_LYN_ERR_FAILURE;
  }
  int32_t status = lyn_nas_close(yrp_nas_notifier, yrp_nas_watched);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("Releasing the YRP NAS notifier handle failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  status = lyn_nas_close(yrp_nas_clnt_handle, yrp_nas_registered);
  if (status != YRP_NO_ERR) {
    LYN_LOG_ERROR("Releasing the YRP NAS client handle failed with status[%d]", status);
    return OX_LYN_ERR_FAILURE;
  }
  LYN_LOG_HIGH("NAS service successfully released!");
  return OX_LYN_SUCCESS;
}
