// The small stores that the operations of the table are called on.

#ifndef TESTS_SUPPORT_OPERATIONS_SMALL_STORE_H_
#define TESTS_SUPPORT_OPERATIONS_SMALL_STORE_H_

#include <string>

#include "db/cv_db_singleton.h"

namespace corvan_test {

// Makes the store that each Call runs on, in `folder`, and closes it:
//  - conversation "room" of kind 2, with message 1 (received, unread, a mention, time 100, server
//    uid "s1"), 2 (own, client uid 5, time 200, "s2") and 3 (own, client uid 6, time 300, being
//    sent, no server uid);
//  - "peer" of kind 1, with sixty received messages from id 4 and time 1000 on, enough to fill
//    several pages of the file;
//  - "old", pinned, of kind 3, without a message;
//  - sync times 3 and 4 of the user "me".
// Beside it makes the file "older", a store that createdb_copydata() can copy once it is attached.
void fill_store(const std::string& folder);

constexpr auto kRoom = Corvan::CV_GROUP;
constexpr auto kPeer = Corvan::CV_PRIVATE;
constexpr int kPeerMessages = 60;

// Its rows, as results.h shows them.
inline const std::string kMessage1 = "1:room:2:u01:CV:TxtMsg:hello:s1:100:100";
inline const std::string kMessage2 = "2:room:2:me:CV:TxtMsg:hello:s2:010:200";
inline const std::string kMessage3 = "3:room:2:me:CV:TxtMsg:hello::012:300";
inline const std::string kRoomEntry = "room:2:0:300:1:1:3:hello";
inline const std::string kPeerEntry = "peer:1:0:1059:60:0:63:xxxxx";
inline const std::string kPinnedEntry = "old:3:1:1000000:0:0:-1:";
std::string peer_message(int i);

// Saves the messages that the Statements of an operation start from into an open, empty store.
void fill_ledger_store(Corvan::CvDbSingleton& store);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_SMALL_STORE_H_
