#include "tools/verify/findings.h"

#include "tools/ui/names.h"

namespace corvan_tool {

const char* rank_name(Rank rank) {
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

namespace kind {

constexpr Rank kImpossible = Rank::kImpossible;
constexpr Rank kAllowed = Rank::kAllowed;
constexpr Rank kNote = Rank::kNote;
constexpr const char* kByAnother = "another program, or damage to the file";

const Kind kFileDamaged = {
    "file-damaged",
    kImpossible,
    "SQLite's integrity check does not pass",
    "",
    "a broken disk, a failed copy, or a log of another store; 'corvan salvage' brings out what can "
    "be read",
    nullptr};
const Kind kRowsUnread = {"rows-unread",
                          kImpossible,
                          "rows cannot be looked at, so what follows from them is not told",
                          "",
                          "damage to the file, or a table without its columns",
                          nullptr};
const Kind kTableDiffers = {
    "table-differs", kImpossible, "a table is not as a new store has it", "", kByAnother, nullptr};
const Kind kSchemaExtra = {"schema-extra",    kImpossible, "a trigger or a view", "",
                           "another program", nullptr};
const Kind kIndexMissing = {"index-missing",
                            kImpossible,
                            "an index of a new store is not there",
                            "",
                            "an older library that did not make it, or another program",
                            kIndexes};
const Kind kIndexDiffers = {"index-differs",
                            kImpossible,
                            "an index is made by another statement than a new store's",
                            "",
                            "an older library that made it so, or another program",
                            kIndexes};
const Kind kVersionTwice = {"version-twice", kImpossible, "t_version has several rows", "",
                            kByAnother,      nullptr};
const Kind kVersionOther = {"version-other",
                            kImpossible,
                            "the schema's version is not a new store's",
                            "",
                            "another library's store, or another program",
                            nullptr};
const Kind kSetting = {"setting-other",
                       kImpossible,
                       "a setting of the file is not the store's",
                       "",
                       "a file that another program made",
                       nullptr};
const Kind kSequenceBehind = {
    "sequence-behind",
    kImpossible,
    "ids that were given could be given again once the newest messages are deleted",
    "",
    "another program that wrote t_message or sqlite_sequence",
    kSequence};
const Kind kRowTwice = {"row-twice",
                        kImpossible,
                        "several rows for one conversation or user",
                        "",
                        "a table without its key, or damage to the file",
                        nullptr};
const Kind kColumnType = {
    "column-type",
    kImpossible,
    "a value of another type than its column's",
    "",
    "another program, or damage to the file; createdb_copydata brings it from a store that has it",
    nullptr};
const Kind kCode = {"code-impossible",
                    kImpossible,
                    "a code that no operation writes",
                    "",
                    "another program; direction is 0 or 1 (2 when copied), is_mention and is_top "
                    "0 or 1, any code a number of 32 bits; createdb_copydata brings it from a "
                    "store that has it",
                    nullptr};
const Kind kMessageId = {"id-impossible",
                         kImpossible,
                         "a message id below 1",
                         "",
                         "another program that inserted the id itself; createdb_copydata brings "
                         "it from a store that has it",
                         nullptr};
const Kind kSyncNegative = {"sync-negative",
                            kImpossible,
                            "a sync mark below 0",
                            "",
                            "another program: marks start at 0 and only grow",
                            nullptr};

const Kind kVersionMissing = {
    "version-missing",
    kAllowed,
    "t_version has no row",
    "init_open_db",
    "an opening in which a statement of the schema failed, as on a full disk, leaves it; the next opening completes it",
    nullptr};
const Kind kUserVersion = {"user-version",
                           kAllowed,
                           "user_version is not 1",
                           "createdb_copydata",
                           "it takes over the number of the older store",
                           nullptr};
const Kind kJournalMode = {
    "journal-mode",
    kAllowed,
    "the file is not in write-ahead mode",
    "init_open_db",
    "it asks for the mode and goes on where it cannot be had, as while another process has the file open, or where files cannot be shared in memory; the next opening asks again",
    nullptr};
const Kind kIndexOlder = {"index-older",
                          kAllowed,
                          "an index from an older set",
                          "createdb_copydata",
                          "it makes the older store's indexes, as an older library did",
                          kIndexes};
const Kind kTextNull = {
    "text-null",
    kAllowed,
    "SQL NULL in a text column",
    "save_message, add_session, set_message_content, set_sendtime, set_send_time, set_message_draft, createdb_copydata",
    "a text beyond SQLite's limit, 1,000,000,000 bytes, is not bound, and the save goes on; a copy brings rows of an older store as they are",
    nullptr};
const Kind kIntegerNull = {"integer-null",
                           kAllowed,
                           "SQL NULL in a column of numbers, which reads as 0",
                           "createdb_copydata",
                           "a copy brings rows of an older store as they are; or another program",
                           nullptr};
const Kind kSessionType = {
    "kind-unknown",
    kAllowed,
    "a kind of conversation outside 1 to 5, which no list shows",
    "save_message, set_is_top, add_session",
    "they store the number that the caller passes; a batch record's own is 0",
    nullptr};
const Kind kSentStatus = {"status-unknown",
                          kAllowed,
                          "sent_status outside 0 to 3",
                          "save_message, update_sent_status",
                          "any integer is written, as the caller passes it",
                          nullptr};
const Kind kCounterUnread = {
    "counter-unread",
    kAllowed,
    "unread_count is more than the messages can come to",
    "save_message, update_message_status, set_read_status, delete_message, clear_message, clear_message_by_timestamp, set_unread_by_value, createdb_copydata",
    "update_message_status, deleting by server uid and clearing messages leave the counter as it is, and so does set_read_status with a number below 0; an own message may be saved with is_count; a copy brings counters and messages of two stores together",
    kCounters};
const Kind kCounterMention = {
    "counter-mention",
    kAllowed,
    "mention_count is more than the mentions can come to",
    "update_message_status, set_read_status, set_message_content, delete_message, clear_message, clear_message_by_timestamp, createdb_copydata",
    "mentions that are read already lower no counter when they are deleted or marked, a new object name takes the mark alone, and what leaves unread_count too high does so here",
    kCounters};
const Kind kCounterNegative = {
    "counter-negative",
    kAllowed,
    "a counter below 0",
    "set_read_status, delete_message, set_unread_by_value",
    "they lower a counter for a message that it no longer counted; nothing stops it at 0",
    kCounters};
const Kind kLatestMissing = {
    "latest-missing",
    kAllowed,
    "latest_id names a message that is not there",
    "delete_message, clear_message_by_timestamp, set_send_time, set_message_latestid, createdb_copydata",
    "deleting by server uid in another conversation's name or by time leaves it; a confirmation for a message that is gone names it again; a copy may bring the row of a store without its messages",
    kLatest};
const Kind kLatestForeign = {
    "latest-foreign",
    kAllowed,
    "latest_id names a message of another conversation",
    "set_send_time, set_sessiontime, set_message_latestid, add_session, createdb_copydata",
    "the caller named a conversation that the message is not in, or a copy put messages of an older store under the ids of these",
    kLatest};
const Kind kLatestOlder = {
    "latest-older",
    kAllowed,
    "latest_id names a message that is not the newest",
    "save_message, set_send_time, set_send_time_for_dup_msg, set_message_latestid, createdb_copydata",
    "an older message saved live becomes the latest one; a batch and insert_only leave the latest one, a confirmation can move times without the conversation, and a copy brings messages and the older store's row",
    kLatest};
const Kind kLatestNone = {
    "latest-none",
    kAllowed,
    "latest_id names none though the conversation has messages",
    "set_is_top, save_message, clear_message, set_message_latestid, set_send_time, createdb_copydata",
    "a conversation that was pinned or cleared, then a batch; a confirmation for message 0; or a copy that brings messages to such a row",
    kLatest};
const Kind kSessionTime = {
    "session-time",
    kAllowed,
    "session_time is before the time of the message that latest_id names",
    "save_message, set_send_time_for_dup_msg, set_sendtime, set_send_time, set_sessiontime, set_message_latestid, createdb_copydata",
    "an old CV:QbNtf moves the time alone, a confirmation the message's alone, and set_sessiontime and set_message_latestid store the time that the caller passes",
    kTimes};
const Kind kServerUidTwice = {
    "server-uid-twice",
    kAllowed,
    "messages of one server uid",
    "save_message, set_send_time, set_send_time_for_dup_msg",
    "a batch makes no test, a confirmation takes any uid, and two saves at once both pass the test",
    nullptr};
const Kind kClientKeyTwice = {
    "client-key-twice",
    kAllowed,
    "messages of one conversation, client uid and sender",
    "save_message",
    "history, insert_only and a batch make no test, and an own message is looked for under the "
    "signed-in user's id whatever sender it is stored with",
    nullptr};
const Kind kTimeFuture = {
    "time-future",
    kAllowed,
    "a time more than a day ahead of this computer's clock",
    "save_message, set_send_time, add_session, set_message_draft, set_is_top, sync_unread, clear_unread, update_message_receipt_status, set_receipttime, set_sync_time",
    "they store the time that the caller passes, or this computer's when its clock was ahead; clear_unread the newest message's; a mark ahead keeps the client from fetching what comes before it",
    nullptr};
const Kind kTimeUnit = {
    "time-unit",
    kAllowed,
    "a time that is no plausible number of milliseconds",
    "save_message, set_send_time, add_session, set_message_draft, set_is_top, sync_unread, clear_unread, update_message_receipt_status, set_receipttime, set_sync_time",
    "they store what the caller passes: 0 or less from a batch, seconds, or microseconds; or this computer's time when its clock was wrong, and clear_unread the newest message's",
    nullptr};

const Kind kNotJudged = {
    "not-judged",
    kNote,
    "columns that are not judged",
    "",
    "what they follow from is of another type than its column's, or the conversation has several rows: see column-type, text-null and row-twice",
    nullptr};
const Kind kCounterLow = {
    "counter-low",
    kNote,
    "a counter below the unread messages, or mentions, that came in order since the last clearing",
    "save_message, set_message_draft, set_read_status, delete_message, set_unread_by_value, sync_unread, set_unread_readtime, delete_session, createdb_copydata",
    "is_count=false and a batch count nothing, nor does history that was not newer than its conversation, as after a draft or a newer message that is deleted; set_read_status and deleting lower it also for a message that it did not count; sync_unread counts direction 2 alone, set_unread_readtime nothing, a conversation made anew what comes after; no row tells this from a counter that was lost",
    kCounters};
const Kind kCounterUntold = {
    "counter-untold",
    kNote,
    "a counter that may be right, with the least and the most that it can be",
    "save_message, set_read_status, sync_unread, set_unread_readtime",
    "no row tells whether a message that is not newer than those before it came live or as history, whether one from before read_time was marked unread since, and which messages a chat room counted",
    nullptr};
const Kind kSessionTimeApart = {
    "session-time-apart",
    kNote,
    "session_time is not the latest message's time, as drafts and own messages leave it",
    "set_message_draft, save_message, set_send_time, set_sendtime, set_send_time_for_dup_msg",
    "storing a draft moves the conversation, and taking it back leaves the time; completing an own message moves the message's time alone, and a confirmation moves the conversation only forward",
    kTimes};
const Kind kSending = {"sending",
                       kNote,
                       "messages being sent",
                       "save_message, update_sent_status",
                       "the next opening marks them as failed",
                       nullptr};
const Kind kFailed = {"failed",
                      kNote,
                      "messages that could not be sent",
                      "init_open_db, set_send_time, update_sent_status",
                      "a refusal, or a send that the last run did not finish",
                      nullptr};
const Kind kDirectionCopied = {"direction-copied",
                               kNote,
                               "messages of direction 2",
                               "createdb_copydata",
                               "they come from an older store; mention list and recount look at "
                               "them alone",
                               nullptr};
const Kind kOwnUnread = {
    "own-unread",
    kNote,
    "own messages that are unread",
    "set_read_status, save_message",
    "one was marked so, or a batch gave the number; clear_unread marks received messages alone",
    nullptr};
const Kind kSessionEmpty = {"session-empty",
                            kNote,
                            "a conversation without messages",
                            "set_is_top, clear_message, delete_message, clear_message_by_timestamp",
                            "pinned before its first message, or all of them deleted",
                            nullptr};
const Kind kSessionMissing = {"session-missing",
                              kNote,
                              "messages without a conversation's row",
                              "remove_session, delete_session, save_message",
                              "a conversation taken from the list keeps its messages; a batch "
                              "makes no conversation",
                              nullptr};
const Kind kSyncBehind = {"sync-behind",
                          kNote,
                          "a sync mark older than the newest message",
                          "save_message, set_sync_time",
                          "what was not fetched from the server does not move it; the client "
                          "fetches from there again",
                          nullptr};
const Kind kTableExtra = {"table-extra",
                          kNote,
                          "a table that is not the store's",
                          "createdb_copydata",
                          "it makes the older store's tables; or another program did",
                          nullptr};
const Kind kIndexExtra = {"index-extra",
                          kNote,
                          "an index that is not the store's",
                          "createdb_copydata",
                          "it makes the older store's indexes; or somebody added it, and 'corvan "
                          "index --drop-others' drops it",
                          nullptr};

}  // namespace kind

const std::vector<const Kind*>& all_kinds_of_finding() {
  using namespace kind;
  static const std::vector<const Kind*> all = {
      &kFileDamaged,     &kRowsUnread,      &kTableDiffers,   &kSchemaExtra,      &kIndexMissing,
      &kIndexDiffers,    &kVersionTwice,    &kVersionOther,   &kSetting,          &kSequenceBehind,
      &kRowTwice,        &kColumnType,      &kCode,           &kMessageId,        &kSyncNegative,
      &kVersionMissing,  &kUserVersion,     &kJournalMode,    &kIndexOlder,       &kTextNull,
      &kIntegerNull,     &kSessionType,     &kSentStatus,     &kCounterUnread,    &kCounterMention,
      &kCounterNegative, &kLatestMissing,   &kLatestForeign,  &kLatestOlder,      &kLatestNone,
      &kSessionTime,     &kServerUidTwice,  &kClientKeyTwice, &kTimeFuture,       &kTimeUnit,
      &kNotJudged,       &kCounterLow,      &kCounterUntold,  &kSessionTimeApart, &kSending,
      &kFailed,          &kDirectionCopied, &kOwnUnread,      &kSessionEmpty,     &kSessionMissing,
      &kSyncBehind,      &kTableExtra,      &kIndexExtra};
  return all;
}

std::string conversation_text(const ConversationKey& key) {
  const bool known = key.type >= Corvan::CV_PRIVATE && key.type <= Corvan::CV_SYSTEM;
  return key.id + " (" +
         (known ? kind_name(static_cast<int32_t>(key.type)) : std::to_string(key.type)) + ")";
}

}  // namespace corvan_tool
