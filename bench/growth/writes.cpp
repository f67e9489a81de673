// The measured writes of a fixed number of rows.

#include <memory>
#include <utility>

#include "bench/growth/calls.h"
#include "bench/growth/operations.h"
#include "bench/support/messages.h"

namespace corvan_bench {

using Corvan::MessageResponse;
using Corvan::SessionType;

std::vector<Operation> writes(FilledStore& filled, const Target& t) {
  FilledStore* const f = &filled;
  const std::string& id = t.session_id;
  const SessionType type = t.session_type;
  static uint64_t seed = 100;  // new server uids at each call
  const auto stream = std::make_shared<MessageStream>(++seed, 100, 4);
  const auto next = [=] {
    MessageResponse m = stream->next();
    m.session_id_ = id;
    m.session_type_ = type;
    m.sent_time_ += 1000000000;
    return m;
  };
  const auto save = [=] {
    const int64_t msg_id = save_live(next());
    verify(msg_id > 0, "a save");
    return msg_id;
  };
  return {
      {"set_sync_time",
       [=] { verify(store().set_sync_time(stream->next().sent_time_, true), "a later time"); }},
      {"save_message", [=] { save(); }},
      {"save_message of a batch of 20",
       [=] {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         for (int i = 0; i < 20; ++i) batch.push_back(std::make_unique<MessageResponse>(next()));
         verify(store().save_message(batch) && batch.back()->msg_id_ > 0, "a batch");
       }},
      {"set_send_time_for_dup_msg",
       [=] {
         const MessageResponse m = next();
         store().set_send_time_for_dup_msg(f->some_id(), m.sent_time_, m.server_uid_);
       }},
      {"set_send_time",
       [=] {
         const MessageResponse m = next();
         store().set_send_time(f->some_id(), m.sent_time_, m.server_uid_, id, type, 0);
       }},
      {"update_sent_status",
       [=] { verify(store().update_sent_status(f->some_id(), 2), "an update"); }},
      {"set_read_status", [=] { verify(store().set_read_status(f->some_id(), 1), "an update"); }},
      {"update_message_receipt_status, again",
       [=] { verify(store().update_message_receipt_status(id, type, kLatest), "an update"); }},
      {"set_message_content",
       [=] {
         verify(store().set_message_content(f->some_id(), "changed", "CV:TxtMsg"), "an update");
       }},
      {"save and delete_message by id",
       [=] { verify(store().delete_message(std::vector<int64_t>{save()}), "a deletion"); }},
      {"save and delete_message by server uid",
       [=] {
         const MessageResponse m = next();
         verify(save_live(m) > 0, "a save");
         store().delete_message(id, type, {m.server_uid_});
       }},
      {"clear_message_by_timestamp, none older",
       [] { verify(store().clear_message_by_timestamp(1, false), "a deletion"); }},
      {"clear_message of an empty conversation",
       [] { verify(store().clear_message("none", Corvan::CV_GROUP, false), "a deletion"); }},
      {"set_unread_readtime and update_message_status, none unread",
       [=] {
         store().set_unread_readtime(id, type, kLatest);
         verify(store().update_message_status(id, type), "an update");
       }},
      {"set_is_top", [=] { verify(store().set_is_top(id, type, true, false), "an update"); }},
      {"set_message_draft",
       [=] { verify(store().set_message_draft(id, type, "to do"), "an update"); }},
      {"set_silence", [=] { verify(store().set_silence(id, type, 0), "an update"); }},
      {"add_session and remove_session",
       [] {
         verify(store().add_session("new", Corvan::CV_GROUP, 5, -1, "", 0, 0), "a row");
         verify(store().remove_session("new", Corvan::CV_GROUP), "a deletion");
       }},
      {"set_session_time",
       [=] { store().set_session_time(id, type, 5, "CV:TxtMsg", t.middle_id, 0, 0, 0); }},
      {"set_sessiontime",
       [=] { store().set_sessiontime(stream->next().sent_time_ * 2, t.middle_id, id, type); }},
      {"set_message_latestid",
       [=] {
         verify(store().set_message_latestid(id, type, t.middle_id, stream->next().sent_time_),
                "an update");
       }},
      {"sync_unread", [=] { verify(store().sync_unread(id, type, 5), "an update"); }},
      {"clear_unread, none unread",
       [=] {
         verify(store().clear_unread(id, type), "an update");
         store().set_unread_readtime(id, type, kLatest);
       }},
      {"set_unread_by_value",
       [=] { verify(store().set_unread_by_value(id, type, 1, 1), "an update"); }},
      {"set_receipttime", [=] { store().set_receipttime(id, type, 5); }},
  };
}

}  // namespace corvan_bench
