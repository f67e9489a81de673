// The operations on messages and sync times, and steps other than operations.

#include <algorithm>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "tests/model/operation_list.h"

namespace corvan_test {

using namespace std::string_literals;

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

namespace {

// The batch save on records that can be copied. A duplicate is a separate record.
template <typename Target>
bool save_batch(Target& target, std::vector<MessageResponse>& records) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (const MessageResponse& each : records) {
    batch.push_back(std::make_unique<MessageResponse>(each));
  }
  const bool result = target.save_message(batch);
  for (std::size_t i = 0; i < records.size(); ++i) records[i] = *batch[i];
  return result;
}

// The caller's statements: the store takes their text, the model the name of their column.
std::string statement(CvDbSingleton&, const std::string& column) {
  return "update t_message set " + column + "=? where id=?";
}
std::string statement(Model&, const std::string& column) {
  return column;
}

}  // namespace

std::vector<ModelOperation> operations_on_messages() {
  return {
      // Steps other than operations
      {6, [](Step& s) { s.plant_messages(); }},
      {10, [](Step& s) { s.plant_session(); }},
      {1, [](Step& s) { s.plant_page(); }},
      {1, [](Step& s) { s.close(); }},
      {2, [](Step& s) { s.open(s.model().user()); }},
      {3, [](Step& s) { s.close(), s.open(s.user()); }},
      {2, [](Step& s) { s.set_time(); }},
      {1, [](Step& s) { s.both(CALL(clear_sendstatus), std::tuple{s.flag()}); }},

      // Transactions and sync times
      {3, [](Step& s) { s.both(CALL(start_transaction), std::tuple<>{}); }},
      {3, [](Step& s) { s.both(CALL(commit_transaction), std::tuple<>{}); }},
      {3,
       [](Step& s) {
         s.both(CALL(set_sync_time), std::tuple{s.time(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(
             "get_sync_time",
             [](auto& target, int64_t& received, int64_t& sent, bool both) {
               return target.get_sync_time(&received, both ? &sent : nullptr);
             },
             std::tuple{s.time(), s.time(), s.flag()});
       }},

      // Saving messages
      {20,
       [](Step& s) {
         s.both(CALL(save_message),
                std::tuple{s.room(), s.kind(), s.object_name(), s.sender(), s.body(), s.flag(),
                           s.code(), s.code(), s.flag(), s.new_time(), s.client_uid(),
                           s.server_uid(), s.one_in(4), s.one_in(4), s.flag()});
       }},
      {4,
       [](Step& s) {
         s.both(
             "save_message",
             [](auto& target, auto& records) { return save_batch(target, records); },
             std::tuple{s.some([&s] { return s.message(); })});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(is_message_exist), std::tuple{s.room(), s.kind(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(
             "is_message_exist",
             [](auto& target, const std::string& list, std::vector<std::string>& uids) {
               const auto before = static_cast<std::ptrdiff_t>(uids.size());
               const bool result = target.is_message_exist(list, uids);
               std::sort(uids.begin() + before, uids.end());
               return result;
             },
             std::tuple{s.server_uid_list(),
                        s.one_in(3) ? std::vector{"before"s} : std::vector<std::string>{}});
       }},
      {3, [](Step& s) { s.both(CALL(is_message_exist), std::tuple{s.updates()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(set_send_time_for_dup_msg), std::tuple{s.id(), s.time(), s.server_uid()});
       }},
      {4, [](Step& s) { s.both(CALL(set_send_time_for_dup_msg), std::tuple{s.updates()}); }},
      {2, [](Step& s) { s.both(CALL(is_message_exist), std::tuple{s.server_uid()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(is_message_exist), std::tuple{s.client_uid(), s.sender(), s.room(),
                                                   s.kind_number(), s.id(), s.server_uid()});
       }},

      // Message state
      {5,
       [](Step& s) {
         s.both(CALL(set_send_time),
                std::tuple{s.id(), s.new_time(), s.server_uid(), s.room(), s.kind(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(update_sent_status), std::tuple{s.id(), s.code()});
       }},
      {5,
       [](Step& s) {
         s.both(CALL(set_read_status), std::tuple{s.id(), s.code()});
       }},
      {8,
       [](Step& s) {
         s.both(CALL(update_message_receipt_status),
                std::tuple{s.room(), s.kind(), s.receipt_time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_message_content), std::tuple{s.id(), s.body(), s.object_name()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_client_uid), std::tuple{s.room(), s.kind(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_client_uid), std::tuple{s.id(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_sendtime), std::tuple{s.id(), s.time(), s.server_uid(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(
             "common_message_int",
             [](auto& target, int64_t id, int32_t value, const std::string& column) {
               return target.common_message_int(id, value, statement(target, column));
             },
             std::tuple{
                 s.id(), s.code(),
                 s.of({"direction"s, "is_mention"s, "read_status"s, "sent_status"s, "nonsense"s})});
       }},
      {1,
       [](Step& s) {
         s.both(
             "common_message_text",
             [](auto& target, int64_t id, const std::string& value, const std::string& column) {
               return target.common_message_text(id, value, statement(target, column));
             },
             std::tuple{s.id(), s.sender(),
                        s.of({"object_name"s, "sender"s, "server_uid"s, "nonsense"s})});
       }},

      // Deleting and clearing messages
      {4, [](Step& s) { s.both(CALL(delete_message), std::tuple{s.ids()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(delete_message),
                std::tuple{s.room(), s.kind(), s.some([&s] { return s.server_uid(); })});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(clear_message), std::tuple{s.room(), s.kind(), s.one_in(4)});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(clear_message_by_timestamp),
                std::tuple{s.of({int64_t{0}, int64_t{2}, int64_t{5}, s.time()}), s.one_in(4)});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(delete_message), std::tuple{s.room(), s.kind_number()});
       }},

      // Message queries
      {1, [](Step& s) { s.both(CALL(get_message_by_id), std::tuple{s.message()}); }},
      {2, [](Step& s) { s.both(CALL(get_message_by_uid), std::tuple{s.message()}); }},
      {6,
       [](Step& s) {
         s.both(CALL(get_history_message_by_object_name),
                std::tuple{s.room(), s.kind(), s.some([&s] { return s.object_name(); }),
                           s.flag() ? 0 : s.id(), s.count(), s.messages(), s.flag()});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(get_history_message_by_time),
                std::tuple{s.room(), s.kind(), s.object_name(), s.flag() ? 0 : s.id(), s.count(),
                           s.messages(), s.flag()});
       }},
      {6,
       [](Step& s) {
         s.both(CALL(get_mention_message), std::tuple{s.room(), s.kind(), s.messages()});
       }},
      {6,
       [](Step& s) {
         s.both(CALL(get_matched_message),
                std::tuple{s.room(), s.kind(), s.of({s.id(), s.time(), s.cursor(), kMinLong}),
                           s.count(), s.count(), s.messages()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_max_time), std::tuple{s.time(), s.kind(), s.room(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_max_message_id), std::tuple{s.kind(), s.room(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(query_message), std::tuple{s.message(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_by_id),
                std::tuple{s.id(), s.room(), s.kind_number(), s.flag(), s.flag(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_maxtime), std::tuple{s.time(), s.kind(), s.room(), s.code()});
       }},

      // Read state and send time
      {2, [](Step& s) { s.both(CALL(get_send_time), std::tuple{s.id()}); }},
      {3,
       [](Step& s) {
         s.both(CALL(update_message_status), std::tuple{s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_readtime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},

  };
}

}  // namespace corvan_test
