// What can be found in a store, and what was.

#ifndef TOOLS_VERIFY_FINDINGS_H_
#define TOOLS_VERIFY_FINDINGS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/ui/json.h"

namespace corvan_tool {

enum class Rank {
  kImpossible,  // no sequence of operations leaves it in a store that this library made
  kAllowed,     // they can leave it, and it disagrees with what it stands for
  kNote,        // ordinary use passes through it, or nothing tells
};
const char* rank_name(Rank rank);

// What --repair takes. A kind of finding names its word.
constexpr const char* kCounters = "counters";
constexpr const char* kLatest = "latest";
constexpr const char* kTimes = "times";
constexpr const char* kIndexes = "indexes";
constexpr const char* kSequence = "sequence";

// A kind of finding.
struct Kind {
  const char* code;  // never changes: programs know a kind by it
  Rank rank;
  const char* text;         // what is so
  const char* operations;   // members of CvDbSingleton that can leave it, "a, b"; empty for none
  const char* explanation;  // how they do, or what else can; one sentence
  const char* repair;       // the word that mends it, or null
};

namespace kind {
extern const Kind kFileDamaged, kRowsUnread, kTableDiffers, kSchemaExtra, kIndexMissing,
    kIndexDiffers, kVersionTwice, kVersionOther, kSetting, kSequenceBehind, kRowTwice, kColumnType,
    kCode, kMessageId, kSyncNegative;
extern const Kind kVersionMissing, kUserVersion, kJournalMode, kIndexOlder, kTextNull, kIntegerNull,
    kSessionType, kSentStatus, kCounterUnread, kCounterMention, kCounterNegative, kLatestMissing,
    kLatestForeign, kLatestOlder, kLatestNone, kSessionTime, kServerUidTwice, kClientKeyTwice,
    kTimeFuture, kTimeUnit;
extern const Kind kNotJudged, kCounterLow, kCounterUntold, kSessionTimeApart, kSending, kFailed,
    kDirectionCopied, kOwnUnread, kSessionEmpty, kSessionMissing, kSyncBehind, kTableExtra,
    kIndexExtra;
}  // namespace kind

// Every kind, in the order in which findings are told.
const std::vector<const Kind*>& all_kinds_of_finding();

struct ConversationKey {
  std::string id;
  int64_t type = 0;
  bool operator==(const ConversationKey& other) const {
    return id == other.id && type == other.type;
  }
};

// "room (group)"
std::string conversation_text(const ConversationKey& key);

// NOLINTNEXTLINE(bugprone-exception-escape): JSON values move without throwing, checks aside.
struct Finding {
  const Kind* kind = nullptr;
  std::optional<ConversationKey> conversation;
  std::vector<int64_t> messages;  // their ids, growing
  std::string name;               // the column, table, index, setting or user
  Json stored;                    // null when there is no single value
  Json derived;                   // what it should be by the rest of the store; null when unknown
  bool mended = false;            // by the kind's word of --repair
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_FINDINGS_H_
