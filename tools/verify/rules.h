// The kinds of finding that verify knows. This table is the only list of them.

#ifndef TOOLS_VERIFY_RULES_H_
#define TOOLS_VERIFY_RULES_H_

#include <array>
#include <cstddef>
#include <stdexcept>
#include <string_view>
#include <type_traits>

namespace corvan_tool {

enum class Rank {
  kImpossible,  // no sequence of operations leaves this in a store that this library made
  kAllowed,     // operations can leave this, although it contradicts other rows
  kNote,        // ordinary use leaves this, or it cannot be checked
};
constexpr const char* rank_name(Rank rank) {
  switch (rank) {
    case Rank::kImpossible:
      return "impossible";
    case Rank::kAllowed:
      return "allowed";
    case Rank::kNote:
      break;
  }
  return "note";
}

// The words of --repair.
constexpr std::string_view kCounters = "counters";
constexpr std::string_view kLatest = "latest";
constexpr std::string_view kTimes = "times";
constexpr std::string_view kIndexes = "indexes";
constexpr std::string_view kSequence = "sequence";
inline constexpr std::array kRepairs = {kCounters, kLatest, kTimes, kIndexes, kSequence};

struct Rule {
  std::string_view code;  // never changes, because programs match it
  Rank rank;
  std::string_view repair;       // the word of --repair that repairs it; empty if none does
  std::string_view text;         // what is wrong
  std::string_view operations;   // members of CvDbSingleton that can leave it, "a, b"; may be empty
  std::string_view explanation;  // how they leave it, or who else does
};

inline constexpr std::string_view kNoRepair;
inline constexpr std::string_view kNoOperation;
inline constexpr std::string_view kByAnotherProgram = "another program, or damage to the file";

// In the order of the report. Every row has the same shape, which clang-format would not keep.
// clang-format off
inline constexpr std::array kRules = {
    Rule{"file-damaged", Rank::kImpossible, kNoRepair,
         "SQLite's integrity check fails",
         kNoOperation,
         "a broken disk, a failed copy, or the log of another store; 'corvan salvage' recovers "
         "what can be read"},
    Rule{"rows-unread", Rank::kImpossible, kNoRepair,
         "unreadable rows; checks that depend on them were skipped",
         kNoOperation,
         "damage to the file, or a table that lacks columns"},
    Rule{"table-differs", Rank::kImpossible, kNoRepair,
         "a table differs from a new store's",
         kNoOperation,
         kByAnotherProgram},
    Rule{"schema-extra", Rank::kImpossible, kNoRepair,
         "a trigger or a view",
         kNoOperation,
         "another program"},
    Rule{"index-missing", Rank::kImpossible, kIndexes,
         "an index of a new store is missing",
         kNoOperation,
         "an older library that did not create it, or another program"},
    Rule{"index-differs", Rank::kImpossible, kIndexes,
         "an index's statement differs from a new store's",
         kNoOperation,
         "an older library that created it this way, or another program"},
    Rule{"version-twice", Rank::kImpossible, kNoRepair,
         "t_version has several rows",
         kNoOperation,
         kByAnotherProgram},
    Rule{"version-other", Rank::kImpossible, kNoRepair,
         "the schema version is not that of a new store",
         kNoOperation,
         "another library's store, or another program"},
    Rule{"setting-other", Rank::kImpossible, kNoRepair,
         "a setting of the file is not the store's",
         kNoOperation,
         "a file that another program created"},
    Rule{"sequence-behind", Rank::kImpossible, kSequence,
         "used ids could be assigned again after the newest messages are deleted",
         kNoOperation,
         "another program that wrote to t_message or sqlite_sequence"},
    Rule{"row-twice", Rank::kImpossible, kNoRepair,
         "several rows for one conversation or user",
         kNoOperation,
         "a table without its key, or damage to the file"},
    Rule{"column-type", Rank::kImpossible, kNoRepair,
         "a value's type differs from its column's",
         kNoOperation,
         "another program, or damage to the file; createdb_copydata copies such values from an "
         "older store"},
    Rule{"code-impossible", Rank::kImpossible, kNoRepair,
         "a code that no operation writes",
         kNoOperation,
         "another program; direction is 0 or 1 (2 when copied), is_mention and is_top are 0 or "
         "1, and every code fits into 32 bits; createdb_copydata copies such values from an "
         "older store"},
    Rule{"id-impossible", Rank::kImpossible, kNoRepair,
         "a message id below 1",
         kNoOperation,
         "another program that inserted the id itself; createdb_copydata copies such ids from an "
         "older store"},
    Rule{"sync-negative", Rank::kImpossible, kNoRepair,
         "a sync mark below 0",
         kNoOperation,
         "another program: sync marks start at 0 and only grow"},

    Rule{"version-missing", Rank::kAllowed, kNoRepair,
         "t_version has no row",
         "init_open_db",
         "a statement of the schema failed during an opening, for example on a full disk; the "
         "next opening completes the schema"},
    Rule{"user-version", Rank::kAllowed, kNoRepair,
         "user_version is not 1",
         "createdb_copydata",
         "it takes over the number of the older store"},
    Rule{"journal-mode", Rank::kAllowed, kNoRepair,
         "the file is not in write-ahead mode",
         "init_open_db",
         "it continues without write-ahead mode if another process has the file open or if the "
         "file system does not support shared memory; the next opening tries again"},
    Rule{"index-older", Rank::kAllowed, kIndexes,
         "an index from an older set",
         "createdb_copydata",
         "it creates the older store's indexes; older libraries created them too"},
    Rule{"text-null", Rank::kAllowed, kNoRepair,
         "SQL NULL in a text column",
         "save_message, add_session, set_message_content, set_sendtime, set_send_time, "
         "set_message_draft, createdb_copydata",
         "a text longer than SQLite's limit of 1,000,000,000 bytes is not bound, and the save "
         "continues; createdb_copydata copies rows of an older store unchanged"},
    Rule{"integer-null", Rank::kAllowed, kNoRepair,
         "SQL NULL in a number column; it is read as 0",
         "createdb_copydata",
         "it copies rows of an older store unchanged; or another program wrote it"},
    Rule{"kind-unknown", Rank::kAllowed, kNoRepair,
         "a conversation type outside 1 to 5; no list shows it",
         "save_message, set_is_top, add_session",
         "they store the number that the caller passes; a batch record has 0 unless the caller "
         "sets it"},
    Rule{"status-unknown", Rank::kAllowed, kNoRepair,
         "sent_status outside 0 to 3",
         "save_message, update_sent_status",
         "they store the number that the caller passes"},
    Rule{"counter-unread", Rank::kAllowed, kCounters,
         "unread_count is higher than the messages allow",
         "save_message, update_message_status, set_read_status, delete_message, clear_message, "
         "clear_message_by_timestamp, set_unread_by_value, createdb_copydata",
         "update_message_status, deleting by server uid, clearing messages, and set_read_status "
         "with a negative number do not lower the counter; an own message can be saved with "
         "is_count; createdb_copydata mixes counters and messages of two stores"},
    Rule{"counter-mention", Rank::kAllowed, kCounters,
         "mention_count is higher than the mentions allow",
         "update_message_status, set_read_status, set_message_content, delete_message, "
         "clear_message, clear_message_by_timestamp, createdb_copydata",
         "deleting or marking a mention that is already read does not lower the counter, "
         "set_message_content with a new object name clears only is_mention, and whatever leaves "
         "unread_count too high does the same here"},
    Rule{"counter-negative", Rank::kAllowed, kCounters,
         "a counter below 0",
         "set_read_status, delete_message, set_unread_by_value",
         "they lower the counter for a message that it no longer counted; nothing stops it at 0"},
    Rule{"latest-missing", Rank::kAllowed, kLatest,
         "latest_id names a message that does not exist",
         "delete_message, clear_message_by_timestamp, set_send_time, set_message_latestid, "
         "createdb_copydata",
         "deleting by time, or by server uid with another conversation's name, keeps latest_id; "
         "confirming a message that is gone stores its id again; createdb_copydata can copy the "
         "row of a store without its messages"},
    Rule{"latest-foreign", Rank::kAllowed, kLatest,
         "latest_id names a message of another conversation",
         "set_send_time, set_sessiontime, set_message_latestid, add_session, createdb_copydata",
         "the caller named a conversation that does not contain the message, or "
         "createdb_copydata gave the ids of this store's messages to those of an older store"},
    Rule{"latest-older", Rank::kAllowed, kLatest,
         "latest_id names a message that is not the newest",
         "save_message, set_send_time, set_send_time_for_dup_msg, set_message_latestid, "
         "createdb_copydata",
         "an older message that is saved live becomes the latest one; a batch and insert_only "
         "keep the latest one; a confirmation can change a message's time without the "
         "conversation; createdb_copydata copies messages together with the older store's row"},
    Rule{"latest-none", Rank::kAllowed, kLatest,
         "latest_id names no message although the conversation has some",
         "set_is_top, save_message, clear_message, set_message_latestid, set_send_time, "
         "createdb_copydata",
         "the conversation was pinned or cleared before a batch was saved, message 0 was "
         "confirmed, or createdb_copydata copied messages into such a conversation"},
    Rule{"session-time", Rank::kAllowed, kTimes,
         "session_time is before the time of the message that latest_id names",
         "save_message, set_send_time_for_dup_msg, set_sendtime, set_send_time, set_sessiontime, "
         "set_message_latestid, createdb_copydata",
         "an old CV:QbNtf changes only session_time, a confirmation only the message's time; "
         "set_sessiontime and set_message_latestid store the time that the caller passes"},
    Rule{"server-uid-twice", Rank::kAllowed, kNoRepair,
         "several messages with one server uid",
         "save_message, set_send_time, set_send_time_for_dup_msg",
         "a batch does not check, a confirmation stores any uid, and two saves at the same time "
         "both pass the check"},
    Rule{"client-key-twice", Rank::kAllowed, kNoRepair,
         "several messages with one conversation, client uid and sender",
         "save_message",
         "history, insert_only and a batch do not check; own messages are looked up under the "
         "signed-in user's id instead of their sender"},
    Rule{"time-future", Rank::kAllowed, kNoRepair,
         "a time more than a day ahead of this computer's clock",
         "save_message, set_send_time, add_session, set_message_draft, set_is_top, sync_unread, "
         "clear_unread, update_message_receipt_status, set_receipttime, set_sync_time",
         "they store the time that the caller passes, or this computer's time while its clock "
         "was ahead; clear_unread stores the newest message's time; with a sync mark in the "
         "future the client does not fetch earlier messages"},
    Rule{"time-unit", Rank::kAllowed, kNoRepair,
         "a time that is not a plausible number of milliseconds",
         "save_message, set_send_time, add_session, set_message_draft, set_is_top, sync_unread, "
         "clear_unread, update_message_receipt_status, set_receipttime, set_sync_time",
         "they store the time that the caller passes: 0 or less in a batch, seconds, or "
         "microseconds; or this computer's time while its clock was wrong; clear_unread stores "
         "the newest message's time"},

    Rule{"not-judged", Rank::kNote, kNoRepair,
         "columns that cannot be checked",
         kNoOperation,
         "the values that they depend on have the wrong type, or the conversation has several "
         "rows: see column-type, integer-null, text-null and row-twice"},
    Rule{"counter-low", Rank::kNote, kCounters,
         "a counter is lower than the number of unread messages, or mentions, that arrived in "
         "order since the last clearing",
         "save_message, set_message_draft, set_read_status, delete_message, set_unread_by_value, "
         "sync_unread, set_unread_readtime, delete_session, createdb_copydata",
         "messages saved with is_count=false or in a batch are not counted, nor is history that "
         "is not newer than its conversation, for example after a draft or after a newer message "
         "was deleted; set_read_status and deleting also lower the counter for a message that "
         "was not counted; sync_unread counts only direction 2, set_unread_readtime counts "
         "nothing, and a conversation that is created again counts only what comes later; no row "
         "distinguishes this from a lost counter"},
    Rule{"counter-untold", Rank::kNote, kNoRepair,
         "the counter cannot be determined; its possible range is shown",
         "save_message, set_read_status, sync_unread, set_unread_readtime",
         "no row records whether a message that is not newer than earlier ones arrived live or "
         "as history, whether a message from before read_time was marked unread later, or which "
         "messages a chat room counted"},
    Rule{"session-time-apart", Rank::kNote, kTimes,
         "session_time is not the latest message's time, as drafts and own messages leave it",
         "set_message_draft, save_message, set_send_time, set_sendtime, set_send_time_for_dup_msg",
         "storing a draft changes session_time, and removing the draft does not restore it; "
         "completing an own message changes only the message's time, and a confirmation moves "
         "session_time only forward"},
    Rule{"sending", Rank::kNote, kNoRepair,
         "messages being sent",
         "save_message, update_sent_status",
         "the next opening marks them as failed"},
    Rule{"failed", Rank::kNote, kNoRepair,
         "messages that could not be sent",
         "init_open_db, set_send_time, update_sent_status",
         "the server refused them, or the last run did not finish sending them"},
    Rule{"direction-copied", Rank::kNote, kNoRepair,
         "messages with direction 2",
         "createdb_copydata",
         "they come from an older store; the list of mentions and the recount read only such "
         "messages"},
    Rule{"own-unread", Rank::kNote, kNoRepair,
         "own messages that are unread",
         "set_read_status, save_message",
         "set_read_status marked them as unread, or a batch stored the number; clear_unread marks only "
         "received messages"},
    Rule{"session-empty", Rank::kNote, kNoRepair,
         "a conversation without messages",
         "set_is_top, clear_message, delete_message, clear_message_by_timestamp",
         "it was pinned before its first message, or all its messages were deleted"},
    Rule{"session-missing", Rank::kNote, kNoRepair,
         "messages without a conversation row",
         "remove_session, delete_session, save_message",
         "removing a conversation from the list keeps its messages; a batch creates no "
         "conversation"},
    Rule{"sync-behind", Rank::kNote, kNoRepair,
         "a sync mark is older than the newest message",
         "save_message, set_sync_time",
         "a message that was not fetched from the server does not move the mark; the client "
         "fetches again from there"},
    Rule{"table-extra", Rank::kNote, kNoRepair,
         "a table that is not the store's",
         "createdb_copydata",
         "it creates the older store's tables; or another program did"},
    Rule{"index-extra", Rank::kNote, kNoRepair,
         "an index that is not the store's",
         "createdb_copydata",
         "it creates the older store's indexes; or someone added it, and 'corvan index "
         "--drop-others' drops it"},
};
// clang-format on

// The position in kRules of the rule with this code. Throws if there is none.
constexpr std::size_t rule_place(std::string_view code) {
  for (std::size_t i = 0; i < kRules.size(); ++i) {
    if (kRules[i].code == code) return i;
  }
  throw std::invalid_argument("no such rule");
}

// The rule with this code. A code that is not in the table does not compile.
#define CORVAN_RULE(code) kRules[std::integral_constant<std::size_t, rule_place(code)>::value]

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_RULES_H_
