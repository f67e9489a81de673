// A user's client: what stands between the network and the store.

#ifndef EXAMPLES_CLIENT_DEVICE_H_
#define EXAMPLES_CLIENT_DEVICE_H_

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "examples/client/server.h"

namespace example {

// The store is one object a process with one file open at a time, so the two clients of the example
// take turns: each call of start() is a user's sign-in, each stop() the sign-out.
class Device {
 public:
  Device(std::string folder, std::string user, std::string peer, Server* server, Network* network);

  // Opens the user's store. False when it cannot be opened.
  bool start();
  void stop();

  // Between start() and stop():

  // Fetches what came since the last time and sends again what was not answered.
  void reconnect();
  // Takes the events that the network carries.
  void hear();
  void send(const std::string& text);
  // The user looks at the conversation to its end.
  void read();

  // What differs between the store and what the server knows, a line each; empty for nothing.
  std::vector<std::string> differences();
  // What does not fit between the conversation and its messages, in the same form.
  std::vector<std::string> contradictions();

  const std::string& folder() const { return folder_; }
  const std::string& user() const { return user_; }
  // What the last turn did, in a few words.
  std::string summary() const;

 private:
  using Messages = std::vector<Corvan::MessageResponse>;

  bool save_fetched(const std::vector<Letter>& page);
  bool move_mark(int64_t time, bool is_receive);
  int64_t save(const Letter& letter, bool insert_only);
  bool took(int64_t id, const Letter& letter);
  void complete_own(const std::vector<Letter>& page);
  void settle();
  void hear_letter(const Letter& letter);
  void hear_answer(int64_t msg_id, const Answer& answer);
  void apply_receipt(int64_t time);
  void post(int64_t msg_id, int64_t client_uid, const std::string& text);
  void keep_refusal(int64_t client_uid);
  int64_t own_message(int64_t client_uid);
  int64_t client_uid_of(int64_t msg_id);
  Messages all_messages();

  Corvan::CvDbSingleton* store_;
  const std::string folder_;
  const std::string user_;
  const std::string peer_;  // also the id of the conversation
  Server* server_;
  Network* network_;
  std::set<int64_t> refused_;  // numbers of own messages not to be sent again, as on disk

  struct {
    int fetched = 0;
    int stored = 0;
    int repeated = 0;
    int late = 0;
    int sent = 0;
    int sent_again = 0;
    int unanswered = 0;
  } turn_;
};

}  // namespace example

#endif  // EXAMPLES_CLIENT_DEVICE_H_
