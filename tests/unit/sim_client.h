/* SPDX-License-Identifier: Apache-2.0 */
/*
 * A client of the simulated board as tests of the board itself need it: connects, sends, and keeps what it is sent.
 */
#ifndef SIM_CLIENT_H
#define SIM_CLIENT_H

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstring>
#include <ctime>
#include <mutex>
#include <string>
#include <vector>

#include "nas_service_v01.h"
#include "sim_board.h"

struct sim_received {
  uint32_t id;
  std::vector<uint8_t> bytes;
};

/** One NAS client. The fixture of a test: the board is loaded first, then the client connects. */
struct sim_nas_client {
  yrp_client_type handle = nullptr, notifier = nullptr;
  yrp_client_os_params signal = {}, instance_signal = {};
  std::mutex lock;
  std::vector<sim_received> received;
  std::vector<int32_t> events;

  static void on_indication(yrp_client_type, unsigned int id, void *buf, unsigned int len, void *data) {
    sim_nas_client &self = *static_cast<sim_nas_client *>(data);
    const uint8_t *bytes = static_cast<const uint8_t *>(buf);
    const std::lock_guard guard(self.lock);
    self.received.push_back({id, {bytes, bytes + len}});
  }

  static void on_event(yrp_client_type, yrp_service_object_type, int32_t event, void *data) {
    sim_nas_client &self = *static_cast<sim_nas_client *>(data);
    const std::lock_guard guard(self.lock);
    self.events.push_back(event);
  }

  void connect() {
    const yrp_service_object_type service = nas_get_service_object_internal_v01(1, 388, 6);
    ASSERT_NE(service, nullptr);
    ASSERT_EQ(yrp_client_notifier_init(service, &signal, &notifier), 0);
    ASSERT_EQ(yrp_client_register_notify_cb(notifier, on_event, this), 0);
    ASSERT_EQ(yrp_client_init_instance(service, YRP_INSTANCE_ANY, on_indication, this, &instance_signal, 1000, &handle),
              0);
  }

  void release() {
    EXPECT_EQ(yrp_client_release(notifier), 0);
    EXPECT_EQ(yrp_client_release(handle), 0);
  }

  template <typename req_t, typename resp_t>
  int32_t send(uint32_t id, const req_t &req, resp_t &resp) {
    req_t copy = req;
    return yrp_client_send_msg_sync(handle, id, &copy, sizeof copy, &resp, sizeof resp, 5000);
  }

  /** A query's answer; fails the test when there is none. */
  template <typename resp_t>
  resp_t query(uint32_t id) {
    resp_t resp = {};
    EXPECT_EQ(send(id, yrp_nas_empty_req_t{}, resp), 0);
    EXPECT_EQ(resp.resp.result, 0U);
    return resp;
  }

  template <typename req_t>
  yrp_nas_resp_t command(uint32_t id, const req_t &req) {
    yrp_nas_resp_t resp = {};
    EXPECT_EQ(send(id, req, resp), 0);
    return resp;
  }

  void register_all() {
    yrp_nas_indication_register_req_t req = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(command(YRP_NAS_INDICATION_REGISTER, req).resp.result, 0U);
  }

  /** The indications of one id so far, decoded. */
  template <typename record>
  std::vector<record> indications(uint32_t id) {
    EXPECT_TRUE(sim_board_wait_idle(30000));
    const std::lock_guard guard(lock);
    std::vector<record> found;
    for (sim_received &message : received) {
      if (message.id != id) {
        continue;
      }
      record &out = found.emplace_back();
      EXPECT_EQ(yrp_client_message_decode(handle, YRP_MSG_INDICATION, id, message.bytes.data(),
                                          static_cast<unsigned int>(message.bytes.size()), &out, sizeof out),
                0);
    }
    return found;
  }

  /** Wait until so many indications of one id came. */
  bool wait_for(uint32_t id, size_t count, unsigned int timeout_ms = 5000) {
    size_t seen = 0, found = 0;
    for (unsigned int waited = 0; waited < timeout_ms; waited++) {
      {
        const std::lock_guard guard(lock);
        for (; seen < received.size(); seen++) {
          found += received[seen].id == id;
        }
        if (found >= count) {
          return true;
        }
      }
      timespec pause = {0, 1000000};
      nanosleep(&pause, nullptr);
    }
    return false;
  }
};

/** A board loaded from `text`, with one client connected. */
struct sim_board_test : testing::Test {
  sim_nas_client client;

  void board(const std::string &text) {
    sim_board_journal_keep(true);
    ASSERT_EQ(sim_board_load(text), "");
    client.connect();
  }

  void TearDown() override {
    if (client.handle) {
      client.release();
    }
    sim_board_journal_keep(false);
  }

  /** How many lines of the journal hold all of the texts. */
  static size_t journaled(std::initializer_list<const char *> texts) {
    size_t found = 0;
    for (const std::string &line : sim_board_journal()) {
      bool all = true;
      for (const char *text : texts) {
        all = all && line.find(text) != std::string::npos;
      }
      found += all;
    }
    return found;
  }
};

#endif
