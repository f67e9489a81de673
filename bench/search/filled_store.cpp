#include "bench/search/filled_store.h"

#include "base/cv_database.h"
#include "bench/search/database.h"
#include "bench/support/messages.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;

bool creates_index(const std::string& sql) {
  return sql.rfind("create index", 0) == 0;
}

void drop_indexes(Database& database) {
  for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
    if (creates_index(sql)) database.run("drop index if exists " + name);
  }
}

void create_indexes(Database& database) {
  for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
    if (creates_index(sql)) database.run(sql);
  }
}

void insert_message(Statement& insert, const MessageResponse& m) {
  insert.bind(1, m.session_id_);
  insert.bind(2, int64_t{m.session_type_});
  insert.bind(3, m.object_name_);
  insert.bind(4, m.content_);
  insert.bind(5, m.sender_);
  insert.bind(6, int64_t{m.is_receive_ ? 1 : 0});
  insert.bind(7, m.sent_time_);
  insert.bind(8, m.client_uid_);
  insert.bind(9, m.server_uid_);
  insert.step();
  insert.reset();
}

}  // namespace

FilledStore::FilledStore(MessageSource& source, int64_t at_most) {
  store_.open();  // creates the file
  store_.close();
  insert(source, at_most);
  store_.open();
  const double stored = store_.number("select count(*) from t_message");
  Report::verify(messages_ > 0 && stored == static_cast<double>(messages_),
                 "the store has all messages");
}

void FilledStore::insert(MessageSource& source, int64_t at_most) {
  Database database(file());
  database.run("pragma journal_mode=off;pragma synchronous=off;pragma cache_size=-500000");
  drop_indexes(database);
  database.run("begin");
  {
    Statement insert(database,
                     "insert into t_message(session_id,session_type,object_name,content,sender,"
                     "direction,read_status,sent_time,client_uid,server_uid) "
                     "values(?,?,?,?,?,?,1,?,?,?)");
    MessageResponse message;
    while (messages_ < at_most && source.next(message)) {
      insert_message(insert, message);
      ++messages_;
      newest_time_ = message.sent_time_;
    }
  }
  create_indexes(database);
  database.run(
      "insert into t_session(session_id,session_type,session_time,latest_id) "
      "select session_id,session_type,max(sent_time),max(id) from t_message "
      "group by session_id,session_type order by min(id);"
      "commit;pragma journal_mode=wal");
}

void FilledStore::save_live(MessageResponse message) {
  message.sent_time_ = ++newest_time_;
  message.server_uid_ = "live-" + std::to_string(newest_time_);
  message.client_uid_ = 0;
  message.is_receive_ = true;
  Report::verify(corvan_bench::save_live(message) > 0, "a save");
  ++messages_;
}

}  // namespace corvan_bench
