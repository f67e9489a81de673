// The two stores on which the steps of each operation are counted: one holds ten times as much as
// the other. They agree in everything that may affect the steps: the newest messages of each
// conversation, how many of them are unread, and the first conversations in the list.

#ifndef TESTS_SUPPORT_OPERATIONS_FILLED_STORE_H_
#define TESTS_SUPPORT_OPERATIONS_FILLED_STORE_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/store_test.h"

namespace corvan_test {

constexpr int kMessages = 600;  // of the small store
constexpr int kConversations = 60;
constexpr int kFactor = 10;  // the large store holds this many times as much

constexpr int64_t kFirstTime = 200000;  // no time equals a message's id
constexpr int64_t kAfterAll = 900000;   // later than every time
constexpr int kTinyMessages = 10;
constexpr int kUnread = 4;     // this many of a conversation's newest messages are unread
constexpr int kNewOnes = 5;    // messages that are newer than the read and the receipt time
constexpr int kMentions = 12;  // of direction 2
constexpr int kPage = 8;       // of the conversation list: more than the pinned conversations

// Conversations of kind 2. In the first two, received and own messages alternate; the peer's
// receipt covers the own messages.
constexpr const char* kLargest = "largest";  // a tenth of all messages
constexpr const char* kTiny = "tiny";        // ten messages, spread over all times
// Each of these holds a twentieth of all messages.
constexpr const char* kOwn = "own";               // own messages that no receipt covers
constexpr const char* kReceived = "received";     // received messages
constexpr const char* kOlder = "older";           // direction 2; the newest are unread mentions
constexpr const char* kCovered = "covered";       // own messages that a receipt covers
constexpr const char* kOlderRead = "older_read";  // direction 2, read
// Of kind 5, ten messages.
constexpr const char* kSystem = "system";

inline const std::vector<Corvan::SessionType> kTwoKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP};
// Kinds that no conversation has.
inline const std::vector<Corvan::SessionType> kNoKinds = {Corvan::CV_CHATROOM,
                                                          Corvan::CV_RECEPTION};

struct StoredMessage {
  int64_t id = 0;
  int64_t time = 0;
  std::string uid;
};

// The conversation that an operation is run on.
struct Room {
  std::string id;
  Corvan::SessionType type = Corvan::CV_GROUP;
  int messages = 0;
  StoredMessage newest;
  StoredMessage middle;
};

// A conversation that is not stored yet.
Room new_room();

std::string quoted(const std::string& text);

// One of the two stores, open. Only the steps of calls through store() are counted.
class FilledStore : public StoreTest {
 public:
  using StoreTest::file;
  using StoreTest::rows;
  using StoreTest::save;
  using StoreTest::store;

  void plant(const std::string& sql) const;

  // The first row; empty if there is none.
  std::string row(const std::string& sql) const;
  std::string session(const Room& room, const std::string& columns) const;
  std::string message(int64_t id, const std::string& columns) const;
  int count(const std::string& from) const;
  int count_in(const Room& room, const std::string& condition = "1") const;

 protected:
  void SetUp() override;

  void open_small();
  void open_large();
  Room room(const std::string& id) const;

  // The steps that SQLite takes for the store while `run` runs on this conversation.
  StepCounts steps_of(const std::function<void(FilledStore&, const Room&)>& run,
                      const std::string& room_id);

 private:
  void open_copy(const std::string& filled);
  StoredMessage message_at(const std::string& id, int offset) const;
};

// The client key of a stored message.
Corvan::UpdateValue key_of(const FilledStore& s, const Room& room, int64_t id);

using OnFilledStore = std::function<void(FilledStore&, const Room&)>;

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_FILLED_STORE_H_
