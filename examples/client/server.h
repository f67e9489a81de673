// The other side of the example: a server with one private conversation of two users, and a network
// that loses, repeats and reorders what they exchange.

#ifndef EXAMPLES_CLIENT_SERVER_H_
#define EXAMPLES_CLIENT_SERVER_H_

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace example {

// A message as stored by the server.
struct Letter {
  std::string uid;  // the server's id
  std::string sender;
  int64_t client_uid = 0;  // the sender's number
  int64_t time = 0;        // the server's; no two letters share one
  std::string text;
};

// The server's answer to a message that a client sent.
struct Answer {
  int64_t client_uid = 0;
  int32_t fail_reason = 0;  // 0: accepted
  std::string uid;          // of an accepted message
  int64_t time = 0;         // of an accepted message
};

// What the server pushes to a client. A dropped event is not repeated: the client fetches dropped
// messages from the history and asks for the receipts.
struct Event {
  enum Kind { kLetter, kAnswer, kReceipt };
  Kind kind = kLetter;
  Letter letter;
  Answer answer;
  int64_t receipt = 0;  // the peer has read up to this time
};

class Server {
 public:
  // The next moment, in milliseconds since the Unix epoch. Client and server share the clock here.
  int64_t now() { return ++clock_; }

  // Accepts a message. A repeated one, recognised by the sender's number, gets the same answer as
  // before. A text that begins with "spam" is refused.
  Answer post(const std::string& sender, const std::string& peer, int64_t client_uid,
              const std::string& text);

  // `reader` has read up to `time`. Notifies `peer`, the sender.
  void take_receipt(const std::string& reader, const std::string& peer, int64_t time);

  // Up to `limit` letters later than `time`, oldest first: one page of history.
  std::vector<Letter> letters_after(int64_t time, size_t limit) const;
  int64_t receipt_of(const std::string& reader) const;
  const std::vector<Letter>& letters() const { return letters_; }

  // Removes and returns the events waiting for a user, oldest first.
  std::vector<Event> take_events(const std::string& user);

 private:
  int64_t clock_ = 1'700'000'000'000;
  std::vector<Letter> letters_;
  std::map<std::string, int64_t> receipts_;
  std::map<std::string, std::vector<Event>> waiting_;
};

// An unreliable network. The same seed fails at the same points.
class Network {
 public:
  explicit Network(uint32_t seed) : random_(seed) {}

  // From now on nothing fails.
  void calm_down() { calm_ = true; }

  // Whether a request or its answer is lost; true for one in four.
  bool loses() { return happens(4); }

  // Drops one event in five, repeats one in five, and shuffles.
  std::vector<Event> carry(const std::vector<Event>& events);

  // A random number from 0 to `count` - 1.
  size_t any(size_t count) { return random_() % count; }

 private:
  bool happens(size_t one_in) { return !calm_ && any(one_in) == 0; }

  std::mt19937 random_;
  bool calm_ = false;
};

}  // namespace example

#endif  // EXAMPLES_CLIENT_SERVER_H_
