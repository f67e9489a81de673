#ifndef TESTS_DB_LEDGER_ENTRIES_H_
#define TESTS_DB_LEDGER_ENTRIES_H_

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace corvan_test {

using Texts = std::vector<std::string>;

// What one call, or a few, hand to SQLite: every text in its order, word for word.
struct LedgerEntry {
  std::string name;
  // Runs on a store with a conversation "room" of kind 2: message 1 is received, unread and a
  // mention, 2 is own and named, 3 own and not named yet.
  std::function<void(Corvan::CvDbSingleton&)> run;
  Texts texts;
};

void PrintTo(const LedgerEntry& entry, std::ostream* out);

std::vector<LedgerEntry> ledger_of_frame();
std::vector<LedgerEntry> ledger_of_saving();
std::vector<LedgerEntry> ledger_of_state();
std::vector<LedgerEntry> ledger_of_deleting();
std::vector<LedgerEntry> ledger_of_queries();
std::vector<LedgerEntry> ledger_of_sessions();
std::vector<LedgerEntry> ledger_of_session_list();
std::vector<LedgerEntry> ledger_of_counters();

// Texts of opening and of transactions.
inline const char* const kBegin = "begin transaction";
inline const char* const kCommit = "commit transaction";
inline const char* const kMarkFailed = "update t_message set sent_status=2 where sent_status=1";
inline const char* const kVersionTable =
    "select name from sqlite_master where type='table' and name='t_version'";
inline const char* const kVersion = "select database_version from t_version";

}  // namespace corvan_test

#endif  // TESTS_DB_LEDGER_ENTRIES_H_
