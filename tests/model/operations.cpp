#include "tests/model/operations.h"

#include <algorithm>
#include <cstddef>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

namespace corvan_test {

using namespace std::string_literals;

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;

namespace {

// An operation's name, and its call on the store or on the model.
#define CALL(name) #name, [](auto& target, auto&... args) { return target.name(args...); }

// The batch save on records that can be copied, a duplicate among them being a record of its own.
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
std::string session_statement(CvDbSingleton&, const std::string& column) {
  return "update t_session set " + column + "=7 where session_id=? and session_type=?";
}
std::string session_statement(Model&, const std::string& column) {
  return column;
}

struct Operation {
  std::size_t weight;
  void (*run)(Step& s);
};

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      // Around the operations
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

      // Conversation rows and settings
      {3,
       [](Step& s) {
         s.both(CALL(set_is_top), std::tuple{s.room(), s.kind(), s.flag(), s.flag()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_message_draft), std::tuple{s.room(), s.kind(), s.flag() ? ""s : s.body()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_message_draft), std::tuple{s.room(), s.kind(), s.body()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_silence), std::tuple{s.room(), s.kind(), s.of({0, 1, 1, s.code()})});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(get_silence), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(remove_session), std::tuple{s.room(), s.kind()});
       }},
      {1, [](Step& s) { s.both(CALL(clear_session), std::tuple{s.kinds()}); }},
      {1,
       [](Step& s) {
         s.both(
             "common_session_operation",
             [](auto& target, const std::string& id, int32_t kind, const std::string& column) {
               return target.common_session_operation(id, kind, session_statement(target, column));
             },
             std::tuple{s.room(), s.kind_number(),
                        s.of({"is_top"s, "silence"s, "latest_id"s, "unread_count"s, "nonsense"s})});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(is_session_exist), std::tuple{s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(add_session),
                std::tuple{s.room(), s.kind(), s.time(), s.id(), s.body(), s.code(), s.code()});
       }},
      {5,
       [](Step& s) {
         s.both(CALL(set_session_time),
                std::tuple{s.room(), s.kind(), s.time(), s.object_name(), s.id(), s.code(),
                           s.code(), static_cast<uint32_t>(s.below(9))});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_sessiontime), std::tuple{s.time(), s.id(), s.room(), s.kind()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_sessiontime),
                std::tuple{s.room(), s.kind_number(), s.time(), s.id(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(delete_session), std::tuple{s.room(), s.kind_number()});
       }},

      // Conversation list
      {14,
       [](Step& s) {
         std::vector<SessionInfo> before;
         if (s.one_in(4)) before.push_back(s.session_info());
         s.both(CALL(get_session_list_by_page),
                std::tuple{s.listed_kinds(), s.cursor(), s.count(), before});
       }},
      {4, [](Step& s) { s.both(CALL(get_session), std::tuple{s.session_info()}); }},
      {4,
       [](Step& s) {
         s.both(CALL(load_session),
                std::tuple{s.sessions(), s.kind_list(), s.cursor(), s.count(), s.flag()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(load_session), std::tuple{s.session(), s.room(), s.kind_number()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(load_message), std::tuple{s.sessions(), s.id_list()});
       }},
      {1, [](Step& s) { s.both(CALL(load_message), std::tuple{s.session()}); }},
      {5,
       [](Step& s) {
         s.both(CALL(load_distinct_session_with_unread), std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         // Conversations of one latest_id come in any order.
         const auto sorted = [](auto& target, std::vector<Session>& found, std::string& ids) {
           const bool result = target.load_session_with_latestid(found, ids);
           std::sort(found.begin(), found.end(), [](const Session& a, const Session& b) {
             return std::tie(a.session_id_, a.session_type_) <
                    std::tie(b.session_id_, b.session_type_);
           });
           return result;
         };
         s.both("load_session_with_latestid", sorted, std::tuple{s.sessions(), s.id_list()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},
      {4,
       [](Step& s) {
         s.both(CALL(set_message_latestid),
                std::tuple{s.room(), s.kind_number(), s.id(), s.time()});
       }},

      // Counters, read and receipt times
      {4,
       [](Step& s) {
         s.both(CALL(sync_unread), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(clear_unread), std::tuple{s.room(), s.kind()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipt_time), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2, [](Step& s) { s.both(CALL(get_total_unread_count), std::tuple{s.code()}); }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_message_count), std::tuple{s.room(), s.kind(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(get_cate_unread_count), std::tuple{s.kinds(), s.code(), s.flag()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unread_mention_count), std::tuple{s.kinds(), s.code(), s.code()});
       }},
      {3,
       [](Step& s) {
         s.both(CALL(set_unread_by_value),
                std::tuple{s.room(), s.kind_number(), s.count(), s.count()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(get_unred_mention),
                std::tuple{s.room(), s.kind_number(), s.time(), s.code(), s.code()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(set_unread_readtime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {2,
       [](Step& s) {
         s.both(CALL(set_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
      {1,
       [](Step& s) {
         s.both(CALL(get_receipttime), std::tuple{s.room(), s.kind_number(), s.time()});
       }},
  };
  return all;
}

constexpr uint64_t kPlaces = 1 << 8;
constexpr uint64_t kNamed = kPlaces << 16;  // the numbers below name their operation

const Operation& chosen(Step& s) {
  const std::vector<Operation>& all = operations();
  if (s.number() < kNamed) return all[s.number() % kPlaces % all.size()];
  static const std::size_t total = [] {
    std::size_t sum = 0;
    for (const Operation& each : operations()) sum += each.weight;
    return sum;
  }();
  std::size_t at = s.below(total);
  for (const Operation& each : all) {
    if (at < each.weight) return each;
    at -= each.weight;
  }
  return all.front();  // not reached
}

}  // namespace

void run_operation(Step& step) {
  if (!step.model().is_open() && step.flag()) return step.open(step.user());
  chosen(step).run(step);
}

uint64_t operation_number(uint8_t place, uint16_t picks) {
  return place + picks * kPlaces;
}

}  // namespace corvan_test
