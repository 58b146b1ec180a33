/* SPDX-License-Identifier: Apache-2.0 */
// Prompt sequences for the get metrics that take parameters: WWAN statistics, throughput tests (MTPE) and location.
#include <arpa/inet.h>

#include <cstdio>
#include <cstring>
#include <iterator>

#include "lyn_demo_prompt.h"

// One end of a throughput test: the request's source or its destination.
struct lyn_demo_end_t {
  uint32_t *ipv4;
  uint8_t *ipv6;
  uint16_t *port;
};

uint32_t lyn_demo_ask_profile_handle(const char *question) {
  int64_t number = 0;
  puts(question);
  lyn_demo_read_number(&number, LYN_DEMO_LONG_ANSWER_LEN);
  return static_cast<uint32_t>(number);
}

static bool lyn_demo_ask_ip_family(uint32_t *ip_family) {
  static constexpr const char *QUESTION = "\nPlease input IP Family 4:IPv4 6:IPv6 :- ";
  int32_t answer = 0;
  if (!lyn_demo_ask_until(
          QUESTION, QUESTION,
          [](int32_t family) { return family == OX_LYN_IP_FAMILY_V4_E || family == OX_LYN_IP_FAMILY_V6_E; }, &answer)) {
    return false;
  }
  *ip_family = static_cast<uint32_t>(answer);
  return true;
}

bool lyn_demo_ask_mtpe_client(ox_lyn_mtpe_net_params_t *params) {
  if (!lyn_demo_have_record(params)) {
    return false;
  }
  *params = {};
  if (!lyn_demo_ask_ip_family(&params->ip_family)) {
    return false;
  }
  puts("\nPlease input client's public IP address");
  lyn_demo_ask_address(params->ip_family == OX_LYN_IP_FAMILY_V4_E ? AF_INET : AF_INET6, params->client_addr);
  return true;
}

static bool lyn_demo_ask_test_type(uint32_t *test_type) {
  int32_t answer = 0;
  // The question is shorter when it is repeated, deliberately.
  if (!lyn_demo_ask_until(
          "\nPlease input throughput estimation test type 1:Uplink 2:Downlink, 3:both :- ",
          "\nPlease throughput estimation test type 1:Uplink 2:Downlink :- ",
          [](int32_t type) { return type >= OX_LYN_MTPE_TYPE_UPLINK_E && type <= OX_LYN_MTPE_TYPE_BOTH_E; }, &answer)) {
    return false;
  }
  *test_type = static_cast<uint32_t>(answer);
  return true;
}

static void lyn_demo_ask_duration(uint32_t *duration) {
  int64_t number = 0;
  lyn_demo_read_number(&number, LYN_DEMO_ANSWER_LEN, "\nPlease input test duration in seconds :- ");
  *duration = static_cast<uint32_t>(number);
}

// The menu of one offers UDP as 1, which is not the request's code.
static bool lyn_demo_ask_protocol(uint32_t *protocol) {
  static constexpr const char *QUESTION = "\nPlease input Protocol 1:UDP :- ";
  int32_t answer = 0;
  if (!lyn_demo_ask_until(
          QUESTION, QUESTION, [](int32_t choice) { return choice == 1; }, &answer)) {
    return false;
  }
  *protocol = OX_LYN_PROTOCOL_UDP_E;
  return true;
}

static void lyn_demo_ask_end_address(uint32_t ip_family, const lyn_demo_end_t &end) {
  if (ip_family == OX_LYN_IP_FAMILY_V4_E) {
    lyn_demo_ask_address(AF_INET, end.ipv4);
  } else {
    lyn_demo_ask_address(AF_INET6, end.ipv6);
  }
}

static void lyn_demo_ask_server(ox_lyn_mtpe_req_t *req, const lyn_demo_end_t &server) {
  const int64_t by_url = lyn_demo_ask_number("\nUse IP address or URL for Server: 0:IP Address 1:URL :- ");
  if (static_cast<int32_t>(by_url) != 0) {
    puts("\nPlease input test server's URL");
    lyn_demo_read_answer(req->server_url, sizeof req->server_url);
    req->server_url[strcspn(req->server_url, "\n")] = '\0';
    return;
  }
  puts("\nPlease input test server's public IP address");
  lyn_demo_ask_end_address(req->ip_family, server);
  req->external_server =
      static_cast<uint32_t>(lyn_demo_ask_number("\n Please select option is it external server? 1 - Yes, 0 - No"));
}

// Judged as the 16 bits that are kept: 65536 is no port.
static bool lyn_demo_ask_port(const char *question, uint16_t *port) {
  int32_t answer = 0;
  if (!lyn_demo_ask_until(
          question, question, [](int32_t number) { return static_cast<uint16_t>(number) != 0; }, &answer)) {
    return false;
  }
  *port = static_cast<uint16_t>(answer);
  return true;
}

// What the operator's own test server has to be told for the downlink.
static constexpr lyn_demo_question_t lyn_demo_mtpe_limits[] = {
    {.text = "Please Provide bandwidth (kbps): ", LYN_DEMO_FIELD(ox_lyn_mtpe_req_t, bandwidth)},
    {.text = "Please Provide MTU: ", LYN_DEMO_FIELD(ox_lyn_mtpe_req_t, mtu)},
};

bool lyn_demo_ask_mtpe_test(ox_lyn_mtpe_req_t *req) {
  if (!lyn_demo_have_record(req)) {
    return false;
  }
  *req = {};
  if (!lyn_demo_ask_test_type(&req->test_type)) {
    return false;
  }
  lyn_demo_ask_duration(&req->duration);
  if (!lyn_demo_ask_protocol(&req->protocol) || !lyn_demo_ask_ip_family(&req->ip_family)) {
    return false;
  }

  const lyn_demo_end_t src = {.ipv4 = &req->src_ipv4, .ipv6 = req->src_ipv6, .port = &req->src_port};
  const lyn_demo_end_t dst = {.ipv4 = &req->dst_ipv4, .ipv6 = req->dst_ipv6, .port = &req->dst_port};
  const bool downlink = req->test_type == OX_LYN_MTPE_TYPE_DOWNLINK_E;
  const lyn_demo_end_t &client = downlink ? dst : src;
  const lyn_demo_end_t &server = downlink ? src : dst;

  puts("\nPlease input client's public IP address");
  lyn_demo_ask_end_address(req->ip_family, client);
  lyn_demo_ask_server(req, server);
  if (!lyn_demo_ask_port("\nPlease input client's port :- ", client.port) ||
      !lyn_demo_ask_port("\nPlease input server's port :- ", server.port)) {
    return false;
  }
  if (req->external_server != 1 && req->test_type != OX_LYN_MTPE_TYPE_UPLINK_E) {
    lyn_demo_ask_all(lyn_demo_mtpe_limits, req);
  }
  return true;
}

static constexpr lyn_demo_question_t lyn_demo_single_shot_questions[] = {
    {.text = " Enter timeout in millisecond : ",
     .same_line = true,
     LYN_DEMO_FIELD(ox_lyn_loc_single_shot_req_t, timeout_ms)},
    {.text = " Enter Horizontal qos : ",
     .same_line = true,
     .real = true,
     LYN_DEMO_FIELD(ox_lyn_loc_single_shot_req_t, horizontal_accuracy)},
};

bool lyn_demo_ask_single_shot(ox_lyn_loc_single_shot_req_t *req) {
  if (!lyn_demo_have_record(req)) {
    return false;
  }
  lyn_demo_ask_all(lyn_demo_single_shot_questions, req);
  printf("User input  timeout msec %d, horQoS %f \n", static_cast<int>(req->timeout_ms),
         static_cast<double>(req->horizontal_accuracy));
  return true;
}

// The words of the single shot's question, although the value is the interval between two locations; deliberate.
static constexpr lyn_demo_question_t lyn_demo_batching_questions[] = {
    {.text = " Enter timeout in millisecond : ",
     .same_line = true,
     LYN_DEMO_FIELD(ox_lyn_loc_batching_req_t, min_interval_ms)},
};

bool lyn_demo_ask_batching(ox_lyn_loc_batching_req_t *req) {
  if (!lyn_demo_have_record(req)) {
    return false;
  }
  lyn_demo_ask_all(lyn_demo_batching_questions, req);
  printf("User input  Batching interval  msec %d \n", static_cast<int>(req->min_interval_ms));
  return true;
}
