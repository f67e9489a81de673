// Real conversations, replayed through the single save and read back page by page. They are not
// part of the project; without them the tests are skipped.

#include <fstream>
#include <map>
#include <optional>
#include <set>

#include "tests/support/store_test.h"
#include "tools/import/log_line.h"
#include "tools/store/connection.h"
#include "tools/verify/checks.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionInfo;
using Corvan::SessionType;

const std::vector<SessionType> kAllKinds = {Corvan::CV_PRIVATE, Corvan::CV_GROUP,
                                            Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
                                            Corvan::CV_SYSTEM};

// A message or a conversation, and its time.
struct Timed {
  std::string id;
  int64_t time = 0;
};
using TimedRows = std::vector<Timed>;

// "id|time" rows.
TimedRows timed(const Rows& rows) {
  TimedRows result;
  for (const std::string& row : rows) {
    const std::size_t bar = row.rfind('|');
    result.push_back({row.substr(0, bar), std::stoll(row.substr(bar + 1))});
  }
  return result;
}

// The rows that a pager must return, page after page, if all rows in its order are `all`. A page
// has up to `size` rows. The next page starts strictly beyond the time of the last row, so rows of
// that same time that did not fit are skipped.
template <typename Beyond>
Rows paged(const TimedRows& all, std::size_t size, const Beyond& beyond) {
  Rows result;
  std::size_t in_page = 0;
  std::optional<int64_t> anchor;
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (in_page == size) {
      anchor = all[i - 1].time;
      while (i < all.size() && !beyond(all[i].time, *anchor)) ++i;
      if (i == all.size()) break;
      in_page = 0;
    }
    result.push_back(all[i].id);
    ++in_page;
  }
  return result;
}

// Each row with a unique time must have been returned, and no row twice.
void expect_each_once(const TimedRows& all, const Rows& given) {
  const std::set<std::string> once(given.begin(), given.end());
  EXPECT_EQ(once.size(), given.size());
  std::map<int64_t, int> rows_at;
  for (const Timed& row : all) ++rows_at[row.time];
  for (const Timed& row : all) {
    if (rows_at[row.time] == 1) {
      EXPECT_EQ(once.count(row.id), 1U) << row.id;
    }
  }
}

struct Log {
  const char* file;
  const char* user;
};

// One log replayed into a store that all tests of it share.
class Replay {
 public:
  explicit Replay(const Log& log) : name_(std::string(CORVAN_DATA_DIR) + "/" + log.file) {
    present_ = file_exists(name_);
    if (!present_) return;
    set_clock(1);  // all times come from the log
    CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder_.path()), "", log.user);
    stored_ = import();
  }
  Replay(const Replay&) = delete;
  Replay& operator=(const Replay&) = delete;
  ~Replay() { CvDbSingleton::delete_instance(); }

  bool present() const { return present_; }
  const std::string& name() const { return name_; }
  int stored() const { return stored_; }
  std::string file() const { return folder_.file("corvan"); }
  Rows rows(const std::string& sql) const { return corvan_test::rows(file(), sql); }

  // Saves each message of the log, all in one transaction. Returns how many were stored.
  int import() const {
    CvDbSingleton& store = *CvDbSingleton::get_instance();
    corvan_tool::LineParser parser;
    corvan_tool::ImportMessage m;
    std::ifstream in(name_);
    std::string line;
    int stored = 0;
    EXPECT_TRUE(store.start_transaction());
    while (std::getline(in, line)) {
      const auto error = parser.parse(line, m);
      EXPECT_FALSE(error) << *error;
      const int64_t id =
          store.save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                             m.is_receive, m.sent_status, 0, m.is_mention, m.sent_time,
                             m.client_uid, m.server_uid, false, false, m.is_receive);
      stored += id > 0 ? 1 : 0;
    }
    EXPECT_TRUE(store.commit_transaction());
    take_ledger();
    return stored;
  }

 private:
  const std::string name_;
  TemporaryFolder folder_;
  bool present_ = false;
  int stored_ = 0;
};

// The checks for every log.
template <const Log* log>
class ReplayTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { replay_ = new Replay(*log); }
  static void TearDownTestSuite() {
    delete replay_;
    replay_ = nullptr;
  }
  void SetUp() override {
    if (!replay_->present()) GTEST_SKIP() << "no log at " << replay_->name();
  }

  static CvDbSingleton& store() { return *CvDbSingleton::get_instance(); }
  static const Replay& replay() { return *replay_; }

  static int32_t unread(const std::vector<SessionType>& kinds) {
    int32_t count = -1;
    EXPECT_TRUE(store().get_cate_unread_count(kinds, count, true));
    return count;
  }

  // Single saves must leave a store without findings.
  static void check_findings() {
    const corvan_tool::Report report =
        corvan_tool::check_store(corvan_tool::Connection(replay().file()), replay().file());
    EXPECT_TRUE(report.complete);
    EXPECT_EQ(report.messages, replay().stored());
    for (const corvan_tool::Finding& finding : report.findings) {
      ADD_FAILURE() << finding.rule->code << " " << finding.name << " " << finding.stored;
    }
  }

  static void check_list_pages(int32_t size) {
    const TimedRows all =
        timed(replay().rows("select s.session_type||' '||s.session_id,m.sent_time from t_session s "
                            "join t_message m on m.id=s.latest_id order by 2 desc"));
    std::vector<SessionInfo> list;
    int64_t cursor = 0;
    while (store().get_session_list_by_page(kAllKinds, cursor, size, list)) {
      cursor = list.back().session_time;
    }
    Rows given;
    for (const SessionInfo& s : list) {
      given.push_back(std::to_string(s.session_type_) + " " + s.session_id_);
      EXPECT_EQ(replay().rows("select session_id,session_type,content,sender from t_message "
                              "where id=" +
                              std::to_string(s.message_.msg_id_)),
                Rows{s.session_id_ + "|" + std::to_string(s.session_type_) + "|" +
                     s.message_.content_ + "|" + s.message_.sender_});
    }
    // No two conversations of these logs share a time.
    Rows ids;
    for (const Timed& row : all) ids.push_back(row.id);
    EXPECT_EQ(given, ids);
  }

  static void check_history_pages(int32_t size) {
    for (const std::string& session :
         replay().rows("select session_type||' '||session_id from t_session")) {
      SCOPED_TRACE(session);
      const auto kind = static_cast<SessionType>(std::stoi(session));
      const std::string id = session.substr(session.find(' ') + 1);
      const std::string of_session = "select id,sent_time from t_message where session_id='" + id +
                                     "' and session_type=" + std::to_string(kind);
      check_history(id, kind, size, true,
                    timed(replay().rows(of_session + " order by sent_time desc,id desc")));
      check_history(id, kind, size, false,
                    timed(replay().rows(of_session + " order by sent_time,id")));
    }
  }

 private:
  static void check_history(const std::string& id, SessionType kind, int32_t size, bool desc,
                            const TimedRows& all) {
    Rows given;
    int64_t anchor = desc ? 0 : -1;  // after the newest, or before the oldest
    while (true) {
      std::vector<MessageResponse> page;
      if (!store().get_history_message_by_object_name(id, kind, {}, anchor, size, page, desc)) {
        break;
      }
      for (const MessageResponse& m : page) given.push_back(std::to_string(m.msg_id_));
      anchor = page.back().msg_id_;
    }
    EXPECT_EQ(given, paged(all, static_cast<std::size_t>(size), [desc](int64_t time, int64_t from) {
                return desc ? time < from : time > from;
              }));
    expect_each_once(all, given);
  }

  static inline Replay* replay_ = nullptr;
};

constexpr Log kIrc = {"ubuntu-irc.jsonl", "ActionParsnip"};
constexpr Log kChats = {"kdconv-zh.jsonl", "kd-me"};
using IrcReplay = ReplayTest<&kIrc>;
using ChatReplay = ReplayTest<&kChats>;

TEST_F(IrcReplay, StoresEachMessageOnce) {
  EXPECT_EQ(replay().stored(), 57021);
  EXPECT_EQ(replay().rows("select count(*),sum(direction=0) from t_message"), Rows{"57021|2080"});
  EXPECT_EQ(replay().rows("select session_type,count(*) from t_session group by 1"),
            (Rows{"2|32", "3|4"}));
}

TEST_F(IrcReplay, Counters) {
  EXPECT_EQ(unread(kAllKinds), 54941);
  EXPECT_EQ(unread({Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_RECEPTION, Corvan::CV_SYSTEM}),
            40966);
  int32_t total = -1;
  int32_t mentions = -1;
  EXPECT_TRUE(store().get_unread_mention_count({}, total, mentions));
  EXPECT_EQ(total, 54941);
  EXPECT_EQ(mentions, 972);
}

TEST_F(IrcReplay, LeavesNothingForVerifyToReport) {
  check_findings();
}

TEST_F(IrcReplay, ListsConversationsInPagesOfSeven) {
  check_list_pages(7);
}

TEST_F(IrcReplay, ReadsHistoryInPagesOfFifty) {
  check_history_pages(50);
}

TEST_F(IrcReplay, SecondReplayStoresNothing) {
  EXPECT_EQ(replay().import(), 0);
  EXPECT_EQ(replay().rows("select count(*) from t_message"), Rows{"57021"});
  EXPECT_EQ(unread(kAllKinds), 54941);
}

TEST_F(ChatReplay, StoresEachMessageOnce) {
  EXPECT_EQ(replay().stored(), 19058);
  EXPECT_EQ(replay().rows("select count(*),sum(direction=0) from t_message"), Rows{"19058|9531"});
  EXPECT_EQ(replay().rows("select session_type,count(*) from t_session group by 1"), Rows{"1|900"});
}

TEST_F(ChatReplay, Counters) {
  EXPECT_EQ(unread(kAllKinds), 19058 - 9531);
}

TEST_F(ChatReplay, LeavesNothingForVerifyToReport) {
  check_findings();
}

TEST_F(ChatReplay, ListsConversationsInPagesOfSeven) {
  check_list_pages(7);
}

TEST_F(ChatReplay, ReadsHistoryInPagesOfFifty) {
  check_history_pages(50);
}

}  // namespace
}  // namespace corvan_test
