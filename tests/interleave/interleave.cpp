/* SPDX-License-Identifier: Apache-2.0 */
/*
 * See interleave.h. Threads are numbered as they start, from 0, the body. A step is what a thread is about to do when
 * it stops here; it is done when the thread goes on. The search keeps the path from the first step to the last and, at
 * each place of it, which other threads have to be tried there: for each step in a race with the one taken, a thread
 * that what leads to that step can begin with (source sets).
 */
#include "interleave.h"

#include <malloc.h>
#include <pthread.h>
#include <sys/mman.h>
#include <ucontext.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <unordered_map>
#include <vector>

extern "C" void __real_free(void *block);  // NOLINT(bugprone-reserved-identifier): the linker's name

namespace {

constexpr size_t MOST_THREADS = 5;
constexpr size_t MOST_STEPS = 5000;
constexpr size_t STACK = 256 * 1024;

using clocks = std::array<uint32_t, MOST_THREADS>;

void join(clocks *into, const clocks &other) {
  std::transform(into->begin(), into->end(), other.begin(), into->begin(),
                 [](uint32_t a, uint32_t b) { return std::max(a, b); });
}

enum class step_kind : uint8_t { begin, read, write, lock, unlock, wait, wake, signal, join };

/** `object` is an atomic, a mutex or a condition; `mutex` goes with a wait. */
struct step {
  step_kind kind = step_kind::begin;
  const void *object = nullptr;
  const void *mutex = nullptr;
  size_t thread = 0; /**< that is joined */
};

bool takes(const step &one) {
  return one.kind == step_kind::lock || one.kind == step_kind::wake;
}

const void *mutex_of(const step &one) {
  return one.kind == step_kind::lock || one.kind == step_kind::unlock ? one.object : one.mutex;
}

const void *condition_of(const step &one) {
  return one.kind == step_kind::wait || one.kind == step_kind::wake || one.kind == step_kind::signal ? one.object
                                                                                                     : nullptr;
}

bool share(const void *a, const void *b) {
  return a != nullptr && a == b;
}

bool touch_the_same(const step &a, const step &b) {
  const auto touches = [](const step &one) { return one.kind == step_kind::read || one.kind == step_kind::write; };
  return touches(a) && touches(b) && a.object == b.object && (a.kind == step_kind::write || b.kind == step_kind::write);
}

/** Signals have no names: which of two comes first is seen by nobody. */
bool are_signals(const step &a, const step &b) {
  return a.kind == step_kind::signal && b.kind == step_kind::signal;
}

/** Whether it matters which of two steps comes first. */
bool depend(const step &a, const step &b) {
  return touch_the_same(a, b) || share(mutex_of(a), mutex_of(b)) ||
         (share(condition_of(a), condition_of(b)) && !are_signals(a, b));
}

/**
 * Whether either of two that depend could come first. Not where one of them holds the mutex that the other takes, and
 * not the signal that a thread wakes by.
 */
bool compete(const step &a, const step &b) {
  const bool wakes = a.kind == step_kind::wake || b.kind == step_kind::wake;
  return touch_the_same(a, b) || (share(mutex_of(a), mutex_of(b)) && takes(a) && takes(b)) ||
         (share(condition_of(a), condition_of(b)) && !are_signals(a, b) && !wakes);
}

struct fiber {
  std::function<void()> body;
  ucontext_t context = {};
  step next;
  bool ended = false, signalled = false;
  clocks order = {}; /**< what the search knows to come before its next step */
  clocks seen = {};  /**< what of the others' doings it may see: happened before */
};

/** One place of the path. */
struct place {
  size_t taken = 0;
  std::vector<step> next; /**< of each thread */
  std::set<size_t> able, wanted, tried, asleep;
  clocks order = {}; /**< of the step that was taken, itself included */
};

/** When each thread has last touched some octets of a word of memory. */
struct cell {
  uint8_t octets = 0; /**< a bit for each */
  bool freed = false;
  clocks read = {}, written = {}, atomic_read = {}, atomic_written = {};
};

constexpr uintptr_t WORD = 8;

class search {
 public:
  interleave_result run(const std::function<void()> &body);

  bool runs() const { return running_; }
  void start(std::function<void()> body);
  void fail(const std::string &why);
  void stop_at(const step &next);
  size_t threads() const { return fibers_.size(); }
  void access(const void *at, size_t size, bool writes, bool atomic);
  void free_block(void *block);
  void acquire(const void *object) { join(&fibers_[current_]->seen, released_[object]); }
  void release(const void *object, bool keeps);
  void break_release(const void *object) { released_.erase(object); }

 private:
  std::vector<std::unique_ptr<fiber>> fibers_;
  std::vector<void *> stacks_; /**< used again and again */
  std::vector<place> path_;
  size_t current_ = 0, depth_ = 0, known_ = 0; /**< known: places of the path that were there before */
  bool running_ = false, inside_ = false, repeats_ = false;
  ucontext_t home_ = {};
  std::string failure_;
  std::vector<std::pair<size_t, step>> steps_; /**< of this order */
  std::vector<void *> freed_;
  std::unordered_map<const void *, size_t> holder_;
  std::unordered_map<const void *, std::vector<size_t>> waiting_;
  std::unordered_map<const void *, clocks> released_;
  std::map<uintptr_t, std::vector<cell>> memory_; /**< by word */

  static void enter();
  bool is_race(const cell &touched, bool writes, bool atomic) const;
  void access_word(uintptr_t word, uint8_t octets, bool writes, bool atomic);
  void reset();
  bool can(const fiber &one) const;
  std::set<size_t> able() const;
  bool is_before(size_t earlier, const clocks &order) const;
  const step &done(size_t at) const { return path_[at].next[path_[at].taken]; }
  bool races(size_t earlier, const fiber &one) const;
  std::set<size_t> beginners(size_t behind, size_t thread) const;
  void note_races(size_t thread);
  size_t choose(const std::set<size_t> &able);
  void order_step(size_t thread);
  void take(size_t thread);
  void run_order(const std::function<void()> &body);
  bool next_order();
  std::string told() const;
};

search *now; /**< the one that runs */
bool refuses_threads;

void search::enter() {
  now->fibers_[now->current_]->body();
  now->fibers_[now->current_]->ended = true;
  swapcontext(&now->fibers_[now->current_]->context, &now->home_);
}

void search::start(std::function<void()> body) {
  const size_t number = fibers_.size();
  if (number == MOST_THREADS) {
    abort();
  }
  if (stacks_.size() == number) {
    stacks_.push_back(mmap(nullptr, STACK, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  }
  auto made = std::make_unique<fiber>();
  made->body = std::move(body);
  if (running_) {
    made->order = fibers_[current_]->order;
    made->seen = fibers_[current_]->seen;
    fibers_[current_]->seen[current_]++;
  }
  made->seen[number] = 1;
  getcontext(&made->context);
  made->context.uc_stack.ss_sp = stacks_[number];
  made->context.uc_stack.ss_size = STACK;
  made->context.uc_link = nullptr;
  makecontext(&made->context, enter, 0);
  fibers_.push_back(std::move(made));
}

void search::fail(const std::string &why) {
  failure_ = why + told();
  if (inside_) {
    swapcontext(&fibers_[current_]->context, &home_);  // for good
  }
}

void search::stop_at(const step &next) {
  fibers_[current_]->next = next;
  swapcontext(&fibers_[current_]->context, &home_);
}

bool search::can(const fiber &one) const {
  switch (one.next.kind) {
    case step_kind::lock:
      return !holder_.contains(one.next.object);
    case step_kind::wake:
      return one.signalled && !holder_.contains(one.next.mutex);
    case step_kind::join:
      return fibers_[one.next.thread]->ended;
    default:
      return true;
  }
}

std::set<size_t> search::able() const {
  std::set<size_t> found;
  for (size_t i = 0; i < fibers_.size(); i++) {
    if (!fibers_[i]->ended && can(*fibers_[i])) {
      found.insert(i);
    }
  }
  return found;
}

bool search::is_before(size_t earlier, const clocks &order) const {
  const place &at = path_[earlier];
  return at.order[at.taken] <= order[at.taken];
}

/** Whether the next step of a thread could have come before one on the path, and nothing in between says otherwise. */
bool search::races(size_t earlier, const fiber &one) const {
  if (!compete(done(earlier), one.next) || is_before(earlier, one.order)) {
    return false;
  }
  for (size_t i = earlier + 1; i < depth_; i++) {
    if (compete(done(i), one.next) && is_before(earlier, path_[i].order)) {
      return false;
    }
  }
  return true;
}

/** With which threads the steps can begin that lead to the next step of `thread` without the one at `behind`. */
std::set<size_t> search::beginners(size_t behind, size_t thread) const {
  const fiber &one = *fibers_[thread];
  std::set<size_t> met, found;
  std::vector<size_t> leading;
  for (size_t i = behind + 1; i < depth_; i++) {
    if (is_before(behind, path_[i].order)) {
      continue;
    }
    const bool first =
        std::none_of(leading.begin(), leading.end(), [&](size_t before) { return is_before(before, path_[i].order); });
    if (met.insert(path_[i].taken).second && first) {
      found.insert(path_[i].taken);
    }
    leading.push_back(i);
  }
  const bool first = std::none_of(leading.begin(), leading.end(), [&](size_t before) {
    return is_before(before, one.order) || depend(done(before), one.next);
  });
  if (!met.contains(thread) && first) {
    found.insert(thread);
  }
  return found;
}

/** The step that `thread` is about to take could have come before others on the path. */
void search::note_races(size_t thread) {
  for (size_t i = 0; i < depth_; i++) {
    if (path_[i].taken == thread || !races(i, *fibers_[thread])) {
      continue;
    }
    const std::set<size_t> possible = beginners(i, thread);
    place &at = path_[i];
    if (std::none_of(possible.begin(), possible.end(), [&at](size_t one) { return at.wanted.contains(one); })) {
      at.wanted.insert(*possible.begin());
    }
  }
}

/** The thread that goes on; MOST_THREADS: what comes was run before. */
size_t search::choose(const std::set<size_t> &able) {
  std::vector<step> next;
  next.reserve(fibers_.size());
  for (const auto &one : fibers_) {
    next.push_back(one->next);
  }
  if (depth_ < path_.size()) {
    path_[depth_].next = std::move(next);  // memory may lie elsewhere this time
    return path_[depth_].taken;
  }
  place made;
  made.next = std::move(next);
  made.able = able;
  if (depth_ > 0) {
    const place &before = path_[depth_ - 1];
    for (const size_t thread : before.asleep) {
      if (!depend(before.next[thread], before.next[before.taken])) {
        made.asleep.insert(thread);
      }
    }
  }
  const auto awake =
      std::find_if(able.begin(), able.end(), [&](size_t thread) { return !made.asleep.contains(thread); });
  if (awake == able.end()) {
    return MOST_THREADS;
  }
  made.taken = *awake;
  made.wanted.insert(made.taken);
  path_.push_back(std::move(made));
  return *awake;
}

/** The step depends on all before it that it competes or is ordered with. */
void search::order_step(size_t thread) {
  fiber &one = *fibers_[thread];
  if (depth_ + 1 >= known_) {
    note_races(thread);
  }
  for (size_t i = 0; i < depth_; i++) {
    if (depend(done(i), one.next)) {
      join(&one.order, path_[i].order);
    }
  }
  if (one.next.kind == step_kind::join) {
    join(&one.order, fibers_[one.next.thread]->order);
  }
  one.order[thread] = static_cast<uint32_t>(depth_ + 1);
  path_[depth_].order = one.order;
}

/** Do what the step says of mutexes and conditions, and let the thread go on to its next one. */
void search::take(size_t thread) {
  fiber &one = *fibers_[thread];
  const step &next = one.next;
  steps_.emplace_back(thread, next);
  current_ = thread;
  if (takes(next)) {
    holder_[mutex_of(next)] = thread;
    one.signalled = false;
    acquire(mutex_of(next));
  } else if (next.kind == step_kind::unlock || next.kind == step_kind::wait) {
    release(mutex_of(next), true);
    holder_.erase(mutex_of(next));
    if (next.kind == step_kind::wait) {
      waiting_[next.object].push_back(thread);
    }
  } else if (next.kind == step_kind::signal && !waiting_[next.object].empty()) {
    fiber &woken = *fibers_[waiting_[next.object].front()];
    waiting_[next.object].erase(waiting_[next.object].begin());
    woken.signalled = true;
    join(&woken.order, one.order);  // it cannot wake before
  } else if (next.kind == step_kind::join) {
    join(&one.seen, fibers_[next.thread]->seen);
  }
  inside_ = true;
  swapcontext(&home_, &one.context);
  inside_ = false;
}

void search::release(const void *object, bool keeps) {
  clocks &kept = released_[object];
  fiber &one = *fibers_[current_];
  if (keeps) {
    join(&kept, one.seen);
  } else {
    kept = one.seen;
  }
  one.seen[current_]++;
}

/** Whether somebody else has touched what this thread is about to touch, and nothing says that it was before. */
bool search::is_race(const cell &touched, bool writes, bool atomic) const {
  const clocks &seen = fibers_[current_]->seen;
  const auto unseen = [&seen, this](const clocks &when) {
    for (size_t i = 0; i < MOST_THREADS; i++) {
      if (i != current_ && when[i] > seen[i]) {
        return true;
      }
    }
    return false;
  };
  return unseen(touched.written) || (writes && unseen(touched.read)) || (!atomic && unseen(touched.atomic_written)) ||
         (!atomic && writes && unseen(touched.atomic_read));
}

void search::access_word(uintptr_t word, uint8_t octets, bool writes, bool atomic) {
  std::vector<cell> &cells = memory_[word];
  cell *own = nullptr;
  for (cell &each : cells) {
    if ((each.octets & octets) == 0) {
      continue;
    }
    if (each.freed || is_race(each, writes, atomic)) {
      fail(each.freed ? "a use of freed memory" : "a race");
    }
    own = each.octets == octets ? &each : own;
  }
  if (own == nullptr) {
    own = &cells.emplace_back();
    own->octets = octets;
  }
  clocks &kind = atomic ? (writes ? own->atomic_written : own->atomic_read) : (writes ? own->written : own->read);
  kind[current_] = fibers_[current_]->seen[current_];
}

void search::access(const void *at, size_t size, bool writes, bool atomic) {
  for (uintptr_t begin = reinterpret_cast<uintptr_t>(at), end = begin + size; begin < end;) {
    const uintptr_t word = begin / WORD, next = std::min(end, (word + 1) * WORD);
    access_word(word, static_cast<uint8_t>(((1U << (next - begin)) - 1) << begin % WORD), writes, atomic);
    begin = next;
  }
}

/** The block is nobody's any more. It is kept to the end of the order, so that no other one lies there. */
void search::free_block(void *block) {
  const size_t size = malloc_usable_size(block);
  access(block, size, true, false);
  const uintptr_t begin = reinterpret_cast<uintptr_t>(block) / WORD;
  for (uintptr_t word = begin; word < begin + size / WORD; word++) {
    memory_[word].back().freed = true;
  }
  freed_.push_back(block);
}

void search::reset() {
  fibers_.clear();
  holder_.clear();
  waiting_.clear();
  released_.clear();
  memory_.clear();
  steps_.clear();
  for (void *block : freed_) {
    __real_free(block);
  }
  freed_.clear();
  depth_ = 0;
  known_ = path_.size();
  repeats_ = false;
}

void search::run_order(const std::function<void()> &body) {
  reset();
  start(body);
  running_ = true;
  while (failure_.empty()) {
    const std::set<size_t> able_now = able();
    if (able_now.empty()) {
      break;
    }
    size_t thread = repeats_ ? *able_now.begin() : choose(able_now);
    if (thread == MOST_THREADS) {
      repeats_ = true;  // run to its end all the same, as it holds memory
      thread = *able_now.begin();
    }
    if (!repeats_) {
      order_step(thread);
      depth_++;
    }
    take(thread);
    if (steps_.size() > MOST_STEPS) {
      fail("it does not end");
    }
  }
  running_ = false;
  if (failure_.empty() && !std::all_of(fibers_.begin(), fibers_.end(), [](const auto &one) { return one->ended; })) {
    fail("a deadlock");
  }
}

/** Bring the path to the last place where another thread is to be tried. */
bool search::next_order() {
  for (; !path_.empty(); path_.pop_back()) {
    place &last = path_.back();
    last.tried.insert(last.taken);
    last.asleep.insert(last.taken);
    const auto open = std::find_if(last.wanted.begin(), last.wanted.end(), [&last](size_t thread) {
      return !last.tried.contains(thread) && !last.asleep.contains(thread);
    });
    if (open != last.wanted.end()) {
      last.taken = *open;
      return true;
    }
  }
  return false;
}

interleave_result search::run(const std::function<void()> &body) {
  interleave_result result;
  now = this;
  do {
    run_order(body);
    (repeats_ ? result.repeated : result.orders)++;
  } while (failure_.empty() && next_order());
  reset();
  now = nullptr;
  for (void *stack : stacks_) {
    munmap(stack, STACK);
  }
  result.failure = failure_;
  return result;
}

std::string search::told() const {
  static constexpr const char *names[] = {"begins", "reads", "writes",  "locks", "unlocks",
                                          "waits",  "wakes", "signals", "joins"};
  std::string text = ", in this order:";
  std::unordered_map<const void *, size_t> numbers;
  for (const auto &[thread, done] : steps_) {
    const size_t object = numbers.emplace(done.object, numbers.size()).first->second;
    text += "\n  thread " + std::to_string(thread) + " " + names[static_cast<size_t>(done.kind)] + " " +
            std::to_string(done.kind == step_kind::join ? done.thread : object);
  }
  return text;
}

bool runs() {
  return now != nullptr && now->runs();
}

}  // namespace

interleave_result interleave_all(const std::function<void()> &body) {
  search all;
  return all.run(body);
}

size_t interleave_start(std::function<void()> body) {
  now->start(std::move(body));
  return now->threads() - 1;
}

void interleave_join(size_t thread) {
  now->stop_at({step_kind::join, nullptr, nullptr, thread});
}

void interleave_refuse_threads(bool refuse) {
  refuses_threads = refuse;
}

void interleave_fail(const std::string &why) {
  now->fail(why);
}

/* What the code under test calls. The names are the linker's and the compiler's. */

// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" {

int __real_pthread_mutex_lock(pthread_mutex_t *mutex);
int __real_pthread_mutex_unlock(pthread_mutex_t *mutex);
int __real_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex);
int __real_pthread_cond_signal(pthread_cond_t *condition);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg);
int __real_pthread_join(pthread_t thread, void **result);

int __wrap_pthread_mutex_lock(pthread_mutex_t *mutex) {
  return runs() ? now->stop_at({step_kind::lock, mutex}), 0 : __real_pthread_mutex_lock(mutex);
}
int __wrap_pthread_mutex_unlock(pthread_mutex_t *mutex) {
  return runs() ? now->stop_at({step_kind::unlock, mutex}), 0 : __real_pthread_mutex_unlock(mutex);
}
int __wrap_pthread_cond_wait(pthread_cond_t *condition, pthread_mutex_t *mutex) {
  if (!runs()) {
    return __real_pthread_cond_wait(condition, mutex);
  }
  now->stop_at({step_kind::wait, condition, mutex});
  now->stop_at({step_kind::wake, condition, mutex});
  return 0;
}
int __wrap_pthread_cond_signal(pthread_cond_t *condition) {
  return runs() ? now->stop_at({step_kind::signal, condition}), 0 : __real_pthread_cond_signal(condition);
}
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attr, void *(*entry)(void *), void *arg) {
  if (!runs()) {
    return __real_pthread_create(thread, attr, entry, arg);
  }
  if (refuses_threads) {
    return EAGAIN;
  }
  *thread = now->threads();
  now->start([entry, arg] { entry(arg); });
  return 0;
}
int __wrap_pthread_join(pthread_t thread, void **result) {
  return runs() ? now->stop_at({step_kind::join, nullptr, nullptr, thread}), 0 : __real_pthread_join(thread, result);
}

void __wrap_free(void *block) {
  if (runs() && block != nullptr) {
    now->free_block(block);
  } else {
    __real_free(block);
  }
}

void __tsan_init() {}
void __tsan_func_entry(void *) {}
void __tsan_func_exit() {}

static void plain(const void *at, size_t size, bool writes) {
  if (runs()) {
    now->access(at, size, writes, false);
  }
}
void __tsan_read_range(const void *at, size_t size) {
  plain(at, size, false);
}
void __tsan_write_range(const void *at, size_t size) {
  plain(at, size, true);
}

#define INTERLEAVE_PLAIN(size)                        \
  void __tsan_read##size(const void *at) {            \
    plain(at, size, false);                           \
  }                                                   \
  void __tsan_write##size(const void *at) {           \
    plain(at, size, true);                            \
  }                                                   \
  void __tsan_unaligned_read##size(const void *at) {  \
    plain(at, size, false);                           \
  }                                                   \
  void __tsan_unaligned_write##size(const void *at) { \
    plain(at, size, true);                            \
  }
INTERLEAVE_PLAIN(1)
INTERLEAVE_PLAIN(2)
INTERLEAVE_PLAIN(4)
INTERLEAVE_PLAIN(8)
INTERLEAVE_PLAIN(16)

static bool acquires(int order) {
  return order == __ATOMIC_CONSUME || order == __ATOMIC_ACQUIRE || order == __ATOMIC_ACQ_REL ||
         order == __ATOMIC_SEQ_CST;
}
static bool releases(int order) {
  return order == __ATOMIC_RELEASE || order == __ATOMIC_ACQ_REL || order == __ATOMIC_SEQ_CST;
}

/** A step at an atomic: what it may see of others, and shows them. A store hides what was released before; a change
 * not. */
static void atomic(const volatile void *at, size_t size, bool reads, bool writes, int order) {
  const void *object = const_cast<const void *>(at);
  if (!runs()) {
    return;
  }
  now->stop_at({writes ? step_kind::write : step_kind::read, object});
  if (reads && acquires(order)) {
    now->acquire(object);
  }
  now->access(object, size, writes, true);
  if (writes && releases(order)) {
    now->release(object, reads);
  } else if (writes && !reads) {
    now->break_release(object);
  }
}

#define INTERLEAVE_ATOMIC(bits, type)                                              \
  type __tsan_atomic##bits##_load(const volatile type *at, int order) {            \
    atomic(at, sizeof *at, true, false, order);                                    \
    return *at;                                                                    \
  }                                                                                \
  void __tsan_atomic##bits##_store(volatile type *at, type value, int order) {     \
    atomic(at, sizeof *at, false, true, order);                                    \
    *at = value;                                                                   \
  }                                                                                \
  type __tsan_atomic##bits##_exchange(volatile type *at, type value, int order) {  \
    atomic(at, sizeof *at, true, true, order);                                     \
    const type before = *at;                                                       \
    *at = value;                                                                   \
    return before;                                                                 \
  }                                                                                \
  type __tsan_atomic##bits##_fetch_add(volatile type *at, type value, int order) { \
    atomic(at, sizeof *at, true, true, order);                                     \
    const type before = *at;                                                       \
    *at = static_cast<type>(before + value);                                       \
    return before;                                                                 \
  }
INTERLEAVE_ATOMIC(8, uint8_t)
INTERLEAVE_ATOMIC(32, uint32_t)
INTERLEAVE_ATOMIC(64, uint64_t)
}
// NOLINTEND(bugprone-reserved-identifier)
