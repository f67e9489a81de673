// A thread that reads and writes while others do.

#ifndef TESTS_THREADS_WORKER_H_
#define TESTS_THREADS_WORKER_H_

#include <cstdint>
#include <string>

#include "tests/threads/keyed_messages.h"

namespace corvan_test {

// One of the threads that read and write at the same time. It writes to its own conversations, so
// that it knows their content, and also reads those of the next worker.
class Worker {
 public:
  Worker(Corvan::CvDbSingleton& store, uint64_t run, uint64_t number, uint64_t next)
      : store_(store), run_(run), number_(number), next_(next) {}

  void work(uint64_t rounds, uint64_t seed);

  // Checks that its conversations contain every row that it wrote, once, and nothing else.
  void check(const std::string& file) const;

  const Expected& expected() const { return expected_; }

 private:
  std::string room(const std::string& name) const { return room(name, number_); }
  std::string room(const std::string& name, uint64_t worker) const;
  std::string key(const std::string& name) const;
  int64_t client_uid() const;
  int64_t time() const { return static_cast<int64_t>(1000 + round_); }

  bool store_message(const NewMessage& m);

  // The row id of a server uid. The id that a save returns can be that of another thread's insert.
  int64_t id_of(const std::string& uid);

  // The work of one round. Each function has its own conversations.
  void receive();
  void send();
  void batch();
  void change();
  void remove();
  void converse();
  void count();
  void read();

  // The number of messages, and the counters, of one of its conversations.
  std::string messages(const std::string& file, const std::string& name,
                       const std::string& condition) const;
  std::string session(const std::string& file, const std::string& name) const;

  Corvan::CvDbSingleton& store_;
  const uint64_t run_;
  const uint64_t number_;
  const uint64_t next_;
  uint64_t round_ = 0;
  Expected expected_;
};

}  // namespace corvan_test

#endif  // TESTS_THREADS_WORKER_H_
