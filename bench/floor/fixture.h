// The file that every contender starts from.

#ifndef BENCH_FLOOR_FIXTURE_H_
#define BENCH_FLOOR_FIXTURE_H_

#include <cstdint>
#include <string>

#include "db/cv_db_records.h"

namespace corvan_bench {

constexpr const char* kUser = "me";
constexpr Corvan::SessionType kConversationKind = Corvan::CV_GROUP;
constexpr int kConversations = 40;
constexpr int kMessages = 2000;  // with all later saves they fit in SQLite's page cache

std::string conversation(int number);

// Message `number`, in the fixture or after it: received, and newer than all before it.
Corvan::MessageResponse message(int number);

// Writes the fixture's file to `folder` through the store: messages distributed round-robin over
// the conversations, some of them pinned, muted or with a draft. Precondition: no store is open.
void write_fixture(const std::string& folder);

// Copies the fixture's file from one folder to another.
void copy_fixture(const std::string& from, const std::string& to);

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_FIXTURE_H_
