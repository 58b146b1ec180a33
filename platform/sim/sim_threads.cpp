/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The board's threads: three that deliver to the clients, each with its queue, and the one of the timeline.
 *
 * A queue holds what is due now in order of arrival, and apart from it a heap of what is due later; whichever is due
 * first goes first. The threads are detached and block all signals, which belong to the program.
 */
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <deque>

#include "sim_crossing.h"
#include "sim_state.h"

namespace {

/** An indication, or any other work. */
struct sim_work {
  sim_clock::time_point at;
  uint64_t order;
  std::function<void()> work;
  yrp_client_type to = nullptr; /**< null: every client of `lib` */
  sim_lib lib = sim_lib::nas;
  uint32_t id = 0;
  std::vector<uint8_t> bytes;
};

bool later(const sim_work &a, const sim_work &b) {
  return a.at != b.at ? a.at > b.at : a.order > b.order;
}

struct sim_queue {
  std::condition_variable wake;
  std::deque<sim_work> ready;
  std::vector<sim_work> timed; /**< a heap */
  bool busy = false;
};

struct sim_queues {
  std::mutex lock;
  std::condition_variable rested;
  bool paused = false;
  uint64_t order = 0;
  sim_queue queue[3];
};

sim_queues &queues() {
  static sim_queues &all = *new sim_queues;
  return all;
}

sim_queue &queue_of(sim_thread thread) {
  return queues().queue[static_cast<int>(thread)];
}

sim_clock::duration from_ms(double ms) {
  return std::chrono::duration_cast<sim_clock::duration>(std::chrono::duration<double, std::milli>(ms));
}

void push(sim_thread thread, double ms, sim_work work) {
  sim_queues &all = queues();
  sim_queue &queue = queue_of(thread);
  const std::lock_guard guard(all.lock);
  if (all.paused) {
    return;  // sent by what the restart is waiting for
  }
  work.at = sim_clock::now();
  work.order = all.order++;
  if (ms > 0) {
    work.at += from_ms(ms);
    queue.timed.push_back(std::move(work));
    std::push_heap(queue.timed.begin(), queue.timed.end(), later);
  } else {
    queue.ready.push_back(std::move(work));
  }
  queue.wake.notify_one();
}

bool timed_is_first(const sim_queue &queue) {
  if (queue.timed.empty() || queue.timed.front().at > sim_clock::now()) {
    return false;
  }
  return queue.ready.empty() || later(queue.ready.front(), queue.timed.front());
}

sim_work take_timed(sim_queue &queue) {
  std::pop_heap(queue.timed.begin(), queue.timed.end(), later);
  sim_work work = std::move(queue.timed.back());
  queue.timed.pop_back();
  return work;
}

/** The next work; waits until there is some that is due. */
sim_work take(sim_queue &queue, std::unique_lock<std::mutex> &guard) {
  for (;;) {
    if (!queues().paused) {
      if (timed_is_first(queue)) {
        return take_timed(queue);
      }
      if (!queue.ready.empty()) {
        sim_work work = std::move(queue.ready.front());
        queue.ready.pop_front();
        return work;
      }
    }
    if (queue.timed.empty() || queues().paused) {
      queue.wake.wait(guard);
    } else {
      const sim_clock::time_point until = queue.timed.front().at;
      queue.wake.wait_until(guard, until);
    }
  }
}

std::string hex(const std::vector<uint8_t> &bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string text;
  for (const uint8_t octet : bytes) {
    text += digits[octet >> 4];
    text += digits[octet & 15];
  }
  return text;
}

/** Bytes that are no message stand in the journal as they are. */
void journal_indication(const sim_work &work) {
  if (!sim_journal_on()) {
    return;
  }
  const char *lib = work.lib == sim_lib::nas ? "nas" : "oxmap";
  const sim_message *message = sim_message_find(work.lib, sim_direction::indication, work.id);
  std::vector<uint64_t> record(message ? message->size / sizeof(uint64_t) + 1 : 0);  // aligned for any struct
  if (message && sim_message_decode(*message, work.bytes.data(), work.bytes.size(), record.data()) == YRP_NO_ERR) {
    sim_journal_text(lib, "indication", message->name, sim_message_json(*message, record.data()), work.id);
    return;
  }
  sim_journal_text(lib, "indication", message ? message->name : "unknown", "\"raw\": \"" + hex(work.bytes) + '"',
                   work.id);
}

std::vector<std::pair<yrp_client_type, std::shared_ptr<sim_client>>> receivers(const sim_work &work) {
  const sim_client_kind kind = work.lib == sim_lib::nas ? sim_client_kind::nas : sim_client_kind::oxmap;
  const std::lock_guard guard(sim_board().lock);
  if (!work.to) {
    return sim_clients_of(kind);
  }
  std::shared_ptr<sim_client> client = sim_client_find(work.to, kind);
  if (!client) {
    return {};
  }
  return {{work.to, std::move(client)}};
}

/** What does not decode has no flags. */
void clear_flags(sim_work &work, const std::vector<std::string> &flags) {
  const sim_message &message = *sim_message_find(work.lib, sim_direction::indication, work.id);
  std::vector<uint64_t> record(message.size / sizeof(uint64_t) + 1);  // aligned for any struct
  if (sim_message_decode(message, work.bytes.data(), work.bytes.size(), record.data()) != YRP_NO_ERR) {
    return;
  }
  for (const std::string &flag : flags) {
    sim_message_clear(message, flag, record.data());
  }
  work.bytes.clear();
  sim_message_encode(message, record.data(), work.bytes);
}

/** Pass the indication as the call that it is to the client; false: a fault has lost it. */
bool meet_fault(sim_work &work, const std::string &name) {
  double delay_ms;
  const sim_fault_hit fault = sim_cross_enter(name, delay_ms);
  sim_wait_ms(delay_ms);
  if (fault.clear) {
    clear_flags(work, *fault.clear);
  }
  if (fault.truncate && *fault.truncate < work.bytes.size()) {
    work.bytes.resize(*fault.truncate);
  }
  return sim_fault_status(fault) == 0;
}

void deliver(sim_work &work) {
  const auto clients = receivers(work);
  if (clients.empty()) {
    return;
  }
  const bool counted = sim_board_raw().counting_indications;
  const std::string name = counted ? sim_crossing_indication(work.lib, work.id) : std::string();
  if (counted && !meet_fault(work, name)) {
    return;
  }
  journal_indication(work);
  for (const auto &[handle, client] : clients) {
    sim_call_back(client, [&work, to = handle, &client = *client] {
      if (client.ind_cb) {
        client.ind_cb(to, work.id, work.bytes.data(), static_cast<unsigned int>(work.bytes.size()), client.data);
      }
    });
  }
  if (counted) {
    sim_cross_leave(name);
  }
}

/** A client's exception must not end the board. */
void run(sim_work &work) {
  try {
    if (work.work) {
      work.work();
    } else {
      deliver(work);
    }
  } catch (...) {
    sim_journal_text("sim", "event", "callback_threw", "");
  }
}

void serve(sim_queue &queue) {
  std::unique_lock guard(queues().lock);
  for (;;) {
    {
      sim_work work = take(queue, guard);
      queue.busy = true;
      guard.unlock();
      run(work);
    }  // the work's own memory goes before the thread counts as idle
    guard.lock();
    queue.busy = false;
    queues().rested.notify_all();
  }
}

template <typename body>
void start_thread(const char *name, body work) {
  std::thread thread(std::move(work));
  pthread_setname_np(thread.native_handle(), name);
  thread.detach();
}

bool nobody_busy() {
  return std::none_of(std::begin(queues().queue), std::end(queues().queue),
                      [](const sim_queue &queue) { return queue.busy; });
}

/** With the queues' lock. */
void wake_all(sim_queues &all) {
  for (sim_queue &queue : all.queue) {
    queue.wake.notify_one();
  }
}

}  // namespace

void sim_threads_start() {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // the new threads inherit it
  start_thread("sim-nas", [] { serve(queue_of(sim_thread::nas)); });
  start_thread("sim-location", [] { serve(queue_of(sim_thread::location)); });
  start_thread("sim-oxmap", [] { serve(queue_of(sim_thread::oxmap)); });
  start_thread("sim-timeline", sim_timeline_run);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void sim_schedule(sim_thread thread, double ms, std::function<void()> work) {
  sim_work item = {};
  item.work = std::move(work);
  push(thread, ms, std::move(item));
}

static void indicate(yrp_client_type to, sim_lib lib, uint32_t id, std::vector<uint8_t> bytes, double ms) {
  if (lib == sim_lib::nas && !sim_board_raw().modem_up) {
    return;  // the service is the modem's; the mobile AP's is not
  }
  sim_work item = {};
  item.to = to;
  item.lib = lib;
  item.id = id;
  item.bytes = std::move(bytes);
  push(lib == sim_lib::nas ? sim_thread::nas : sim_thread::oxmap, ms, std::move(item));
}

void sim_indicate_raw(sim_lib lib, uint32_t id, std::vector<uint8_t> bytes, double ms) {
  indicate(nullptr, lib, id, std::move(bytes), ms);
}

void sim_indicate(sim_lib lib, uint32_t id, const void *record, double ms) {
  std::vector<uint8_t> bytes;
  sim_message_encode(*sim_message_find(lib, sim_direction::indication, id), record, bytes);
  indicate(nullptr, lib, id, std::move(bytes), ms);
}

void sim_indicate_to(yrp_client_type handle, sim_lib lib, uint32_t id, const void *record) {
  std::vector<uint8_t> bytes;
  sim_message_encode(*sim_message_find(lib, sim_direction::indication, id), record, bytes);
  indicate(handle, lib, id, std::move(bytes), 0);
}

void sim_queues_pause(bool paused) {
  sim_queues &all = queues();
  std::unique_lock guard(all.lock);
  all.paused = paused;
  if (paused) {
    all.rested.wait(guard, nobody_busy);
    for (sim_queue &queue : all.queue) {
      queue.ready.clear();
      queue.timed.clear();
    }
  }
  wake_all(all);
}

void sim_queues_wake() {
  sim_queues &all = queues();
  const std::lock_guard guard(all.lock);
  wake_all(all);
}

bool sim_queues_idle() {
  sim_queues &all = queues();
  const std::lock_guard guard(all.lock);
  const sim_clock::time_point now = sim_clock::now();
  return nobody_busy() && std::all_of(std::begin(all.queue), std::end(all.queue), [now](const sim_queue &queue) {
           return queue.ready.empty() && (queue.timed.empty() || queue.timed.front().at > now);
         });
}
