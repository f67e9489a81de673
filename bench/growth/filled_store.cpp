#include "bench/growth/filled_store.h"

#include <sqlite3.h>

#include <array>
#include <memory>
#include <stdexcept>

#include "bench/support/messages.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;

// Loads in large transactions, with a larger cache than a client would use.
class Loader {
 public:
  explicit Loader(const std::string& file) {
    sqlite3* db = nullptr;
    const int rc = sqlite3_open(file.c_str(), &db);
    db_.reset(db);
    if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + file);
    run("pragma cache_size=-4000000");
    run("pragma wal_autocheckpoint=0");
    run("begin");
    sqlite3_stmt* insert = nullptr;
    sqlite3_prepare_v2(db,
                       "insert into t_message(session_id,session_type,object_name,content,sender,"
                       "direction,sent_status,read_status,is_mention,sent_time,client_uid,"
                       "server_uid) values(?,?,?,?,?,?,?,?,?,?,?,?)",
                       -1, &insert, nullptr);
    insert_.reset(insert);
  }

  void add(const MessageResponse& m, int direction, bool is_mention) {
    int column = 0;
    const auto text = [&](const std::string& value) {
      sqlite3_bind_text(insert_.get(), ++column, value.c_str(), -1, SQLITE_STATIC);
    };
    const auto number = [&](int64_t value) { sqlite3_bind_int64(insert_.get(), ++column, value); };
    text(m.session_id_);
    number(m.session_type_);
    text(m.object_name_);
    text(m.content_);
    text(m.sender_);
    number(direction);
    number(m.sent_status_);
    number(m.read_status_);
    number(is_mention ? 1 : 0);
    number(m.sent_time_);
    number(m.client_uid_);
    text(m.server_uid_);
    Report::verify(sqlite3_step(insert_.get()) == SQLITE_DONE, "a message is loaded");
    sqlite3_reset(insert_.get());
    if (++loaded_ % 1000000 == 0) {
      run("commit");
      run("pragma wal_checkpoint(truncate)");
      run("begin");
    }
  }

  void finish() {
    insert_.reset();
    run("insert into t_session(session_id,session_type,session_time,latest_id,unread_count,"
        "mention_count) select session_id,session_type,max(sent_time),max(id),count(*)%5,"
        "count(*)%2 from t_message group by session_id,session_type");
    run("update t_session set is_top=1 where rowid%(select count(*)/5 from t_session)=0");
    run("commit");
    run("pragma wal_checkpoint(truncate)");
  }

 private:
  struct Close {
    void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
  };
  struct Finalize {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
  };

  void run(const char* sql) {
    if (sqlite3_exec(db_.get(), sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(db_.get()));
    }
  }

  std::unique_ptr<sqlite3, Close> db_;
  std::unique_ptr<sqlite3_stmt, Finalize> insert_;
  int64_t loaded_ = 0;
};

struct Special {
  const char* session_id;
  int direction;
  int sent_status;
};
constexpr std::array<Special, 5> kSpecials = {
    {{"own", 0, 0}, {"covered", 0, 3}, {"received", 1, 0}, {"older", 2, 0}, {"older-read", 2, 0}}};

}  // namespace

FilledStore::FilledStore(int64_t messages, int conversations) {
  store_.open();
  store_.close();
  fill(messages, conversations);
  messages_ = static_cast<int64_t>(store_.number("select count(*) from t_message"));
  conversations_ = static_cast<int64_t>(store_.number("select count(*) from t_session"));
  largest_ = target("largest", MessageStream::largest_id(), MessageStream::kLargestType);
  tiny_ = target("tiny", "tiny", Corvan::CV_GROUP);
}

void FilledStore::fill(int64_t messages, int conversations) {
  Loader loader(store_.file());
  MessageStream stream(11, conversations, 4);
  for (int64_t i = 0; i < messages; ++i) {
    MessageResponse m = stream.next();
    int direction = m.is_receive_ ? 1 : 0;
    bool is_mention = false;
    const auto place = static_cast<std::size_t>(i % 100);
    if (place < kSpecials.size()) {
      const Special& special = kSpecials.at(place);
      m.session_id_ = special.session_id;
      m.session_type_ = Corvan::CV_GROUP;
      m.sent_status_ = special.sent_status;
      direction = special.direction;
      if (direction == 1) m.client_uid_ = 0;  // as docs/guide.md requires
      is_mention = place == 3 && i >= messages - 2000;
      if (is_mention) m.read_status_ = 0;
    } else if (i / (messages / 10) < 10 && i % (messages / 10) == 50) {
      m.session_id_ = "tiny";
      m.session_type_ = Corvan::CV_GROUP;
    }
    loader.add(m, direction, is_mention);
  }
  loader.finish();
}

Target FilledStore::target(const std::string& name, const std::string& session_id,
                           int session_type) const {
  Target target;
  target.name = name;
  target.session_id = session_id;
  target.session_type = static_cast<Corvan::SessionType>(session_type);
  const std::string where = " from t_message where session_id='" + session_id +
                            "' and session_type=" + std::to_string(session_type);
  target.messages = static_cast<int64_t>(store_.number("select count(*)" + where));
  target.newest_time = static_cast<int64_t>(store_.number("select max(sent_time)" + where));
  const std::string middle =
      " order by sent_time limit 1 offset " + std::to_string(target.messages / 2);
  target.middle_id = static_cast<int64_t>(store_.number("select id" + where + middle));
  target.middle_time = static_cast<int64_t>(store_.number("select sent_time" + where + middle));
  target.middle_server_uid =
      corvan_test::rows(store_.file(), "select server_uid" + where + middle).at(0);
  return target;
}

int64_t FilledStore::some_id() {
  random_ = random_ * 6364136223846793005U + 1442695040888963407U;
  return 1 + static_cast<int64_t>((random_ >> 20U) % static_cast<uint64_t>(messages_));
}

}  // namespace corvan_bench
