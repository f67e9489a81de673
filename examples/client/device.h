// A user's client: connects the network to the store.

#ifndef EXAMPLES_CLIENT_DEVICE_H_
#define EXAMPLES_CLIENT_DEVICE_H_

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "examples/client/server.h"

namespace example {

// A process has one store object with one open file, so the two clients of the example take turns:
// start() signs a user in, stop() signs the user out.
class Device {
 public:
  Device(std::string folder, std::string user, std::string peer, Server* server, Network* network);

  // Opens the user's store. Returns false if it cannot be opened for writing.
  bool start();
  void stop();

  // The next calls are allowed between start() and stop().

  // Fetches the messages after the sync mark and resends the unanswered ones.
  void reconnect();
  // Processes the events that the network delivers.
  void receive_events();
  void send(const std::string& text);
  // The user reads the whole conversation.
  void read();

  // One line per difference between the store and the server.
  std::vector<std::string> differences();
  // One line per contradiction between the conversation's row and its messages.
  std::vector<std::string> contradictions();
  // One line per search whose results differ from the store's messages.
  std::vector<std::string> search_differences();

  const std::string& folder() const { return folder_; }
  const std::string& user() const { return user_; }
  // One line about what the last turn did.
  std::string summary() const;

 private:
  using Messages = std::vector<Corvan::MessageResponse>;

  bool save_fetched(const std::vector<Letter>& page);
  bool move_mark(int64_t time, bool is_receive);
  int64_t save(const Letter& letter, bool insert_only);
  bool count_saved(int64_t id, const Letter& letter);
  void complete_own(const std::vector<Letter>& page);
  void settle();
  void take_letter(const Letter& letter);
  void take_answer(int64_t msg_id, const Answer& answer);
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
  std::set<int64_t> refused_;  // client uids of refused messages, as on disk

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
