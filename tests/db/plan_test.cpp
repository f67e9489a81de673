// How SQLite runs each statement of the ledger: which index it takes, and that it neither reads a
// whole table nor sorts but where the list here says why. Without statistics a plan depends on the
// schema alone, and, between equals, on the order in which its indexes were made: so plans are
// looked at with other orders, too. That nothing depends on what a store holds is checked on
// several shapes.

#include <algorithm>
#include <set>

#include "base/cv_database.h"
#include "tests/db/ledger_entries.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

// What every statement with this fragment is to be run with; of several the first counts.
struct Rule {
  const char* fragment;
  const char* plan;
};

constexpr const char* kNoPlan = "";
constexpr const char* kByRowId = "SEARCH t_message USING INTEGER PRIMARY KEY (rowid=?)";
constexpr const char* kSessionKey =
    "SEARCH t_session USING INDEX sqlite_autoindex_t_session_1 (session_id=? AND session_type=?)";

const std::vector<Rule>& rules() {
  static const std::vector<Rule> rules = {
      // Reads a table or an index from end to end, each for its reason.
      // The store's one version row.
      {"from t_version", "SCAN t_version"},
      // One row a table or index of the schema.
      {"sqlite_master", "SCAN sqlite_master"},
      // A sum over conversations: their counters lie together in an index. With one kind as its
      // only condition it finds the conversations of that kind in the list, and looks each up.
      {"sum(mention_count) from t_session where session_type in(2)",
       "SCAN t_session USING INDEX t_session_list"},
      {"select sum(unread_count) from t_session where session_type in(2)",
       "SCAN t_session USING INDEX t_session_list"},
      {"sum(unread_count)", "SCAN t_session USING COVERING INDEX t_session_latest_id"},
      // The list is walked in its order until the page is full.
      {"and session_time<? and is_top=0",
       "SEARCH t_session USING INDEX t_session_list (is_top=? AND session_time<?)"},
      {"order by is_top desc,session_time desc", "SCAN t_session USING INDEX t_session_list"},
      // Conversations of some kinds: no index begins with the kind, since the list would take it.
      {"delete from t_session where session_type in", "SCAN t_session USING INDEX t_session_list"},

      {"from t_session where latest_id in",
       "SEARCH t_session USING INDEX t_session_latest_id (latest_id=?)"},
      {"select 1 from t_session",
       "SEARCH t_session USING COVERING INDEX sqlite_autoindex_t_session_1 "
       "(session_id=? AND session_type=?)"},
      {"from t_session where session_id=? and session_type=?", kSessionKey},
      {"update t_session", kSessionKey},
      {"insert into t_session", kNoPlan},

      {"from t_sync", "SEARCH t_sync USING INDEX sqlite_autoindex_t_sync_1 (user_id=?)"},
      {"replace into t_sync", kNoPlan},

      {"where id=?", kByRowId},
      {"where id in(", kByRowId},
      {"select 1 from t_message where server_uid=?",
       "SEARCH t_message USING COVERING INDEX t_message_server_uid (server_uid=?)"},
      {"select server_uid from t_message where server_uid in",
       "SEARCH t_message USING COVERING INDEX t_message_server_uid (server_uid=?)"},
      {"where server_uid", "SEARCH t_message USING INDEX t_message_server_uid (server_uid=?)"},
      {"and client_uid=?",
       "SEARCH t_message USING INDEX t_message_client_uid "
       "(session_id=? AND session_type=? AND client_uid=? AND sender=?)"},
      {"where sent_status=1", "SEARCH t_message USING INDEX t_message_sending (sent_status=?)"},
      {"where sent_time<?", "SEARCH t_message USING INDEX t_message_sent_time (sent_time<?)"},
      {"from t_message where session_type in",
       "SEARCH t_message USING INDEX t_message_session_type (session_type=?)"},

      // Within one conversation.
      {"and is_mention=1 and direction=2",
       "SEARCH t_message USING INDEX t_message_unread "
       "(session_id=? AND session_type=? AND direction=?)"},
      {"and read_status=0 and direction=2",
       "SEARCH t_message USING COVERING INDEX t_message_unread "
       "(session_id=? AND session_type=? AND direction=? AND sent_time>?)"},
      {"and sent_time>? and sent_time<=? and direction=0 and sent_status=0",
       "SEARCH t_message USING INDEX t_message_uncovered "
       "(session_id=? AND session_type=? AND direction=? AND sent_status=? AND sent_time>? AND sent_time<?)"},
      {"and sent_time<=? and direction=0 and sent_status=0",
       "SEARCH t_message USING INDEX t_message_uncovered "
       "(session_id=? AND session_type=? AND direction=? AND sent_status=? AND sent_time<?)"},
      {"select id from t_message where session_id=? and session_type=? order by id",
       "SEARCH t_message USING COVERING INDEX t_message_session_type "
       "(session_type=? AND session_id=?)"},
      {"order by id",
       "SEARCH t_message USING INDEX t_message_session_type (session_type=? AND session_id=?)"},
      {"select count(id)",
       "SEARCH t_message USING COVERING INDEX t_message_session_type "
       "(session_type=? AND session_id=?)"},
      {"delete from t_message where session_id=? and session_type=?",
       "SEARCH t_message USING INDEX t_message_session_type (session_type=? AND session_id=?)"},
      {"select 1 from t_message where session_id=? and session_type=? and sent_time>?",
       "SEARCH t_message USING COVERING INDEX t_message_session "
       "(session_id=? AND session_type=? AND sent_time>?)"},
      {"and sent_time>?",
       "SEARCH t_message USING INDEX t_message_session "
       "(session_id=? AND session_type=? AND sent_time>?)"},
      {"and sent_time<?",
       "SEARCH t_message USING INDEX t_message_session "
       "(session_id=? AND session_type=? AND sent_time<?)"},
      {"select client_uid from t_message where session_id=?",
       "SEARCH t_message USING INDEX t_message_session (session_id=? AND session_type=?)"},
      {"order by sent_time desc limit 1",
       "SEARCH t_message USING COVERING INDEX t_message_session (session_id=? AND session_type=?)"},
      {"insert into t_message", kNoPlan},

      {"pragma", kNoPlan},
      {"VACUUM", kNoPlan},
      {"transaction", kNoPlan},
  };
  return rules;
}

// The ledger's statements, each once.
std::vector<std::string> statements() {
  std::set<std::string> texts = {kMarkFailed};
  for (const auto& part : {ledger_of_frame(), ledger_of_saving(), ledger_of_state(),
                           ledger_of_deleting(), ledger_of_queries(), ledger_of_sessions(),
                           ledger_of_session_list(), ledger_of_counters()}) {
    for (const LedgerEntry& entry : part) texts.insert(entry.texts.begin(), entry.texts.end());
  }
  return {texts.begin(), texts.end()};
}

bool contains(const std::string& text, const char* fragment) {
  return text.find(fragment) != std::string::npos;
}

bool has_no_plan(const std::string& text) {
  // Refused: a column that no table has, a value too many, a list with a broken text, a database
  // that is not attached, no statement at all.
  for (const char* fragment :
       {"draft_message", "insert into t_session(draft,", "in('it's')", " odb.", "no such"}) {
    if (contains(text, fragment)) return true;
  }
  // A list without items holds for no row: SQLite ends before the scan that its plan shows.
  return contains(text, " in()");
}

struct Shape {
  std::string name;
  std::string sql;  // what is planted
};

void PrintTo(const Shape& shape, std::ostream* out) {
  *out << shape.name;
}

std::string shape_name(const testing::TestParamInfo<Shape>& shape) {
  return shape.param.name;
}

const Shape kEmpty = {"Empty", ""};

std::vector<Shape> shapes() {
  const std::string c =
      "with recursive c(i) as (select 1 union all select i+1 from c where i<5000) ";
  return {
      kEmpty,
      {"OneConversationHoldsAll",
       "insert into t_session(session_id,session_type,session_time) values('room',2,9);" + c +
           "insert into t_message(session_id,session_type,direction,sent_time,server_uid,"
           "object_name) select 'room',2,1,i,'s'||i,'CV:TxtMsg' from c"},
      {"OneMessageAConversation",
       c +
           "insert into t_session(session_id,session_type,session_time,latest_id,is_top) "
           "select 'c'||i,1+i%5,i,i,i<20 from c;" +
           c +
           "insert into t_message(session_id,session_type,direction,sent_time) "
           "select 'c'||i,1+i%5,1,i from c"},
      {"OwnMessagesOnly",
       c + "insert into t_message(session_id,session_type,direction,sent_status,sent_time,"
           "client_uid,sender) select 'room',2,0,i%4,i,i,'me' from c"},
      {"UnreadMentionsOfAnOlderStore",
       c + "insert into t_message(session_id,session_type,direction,is_mention,sent_time) "
           "select 'c'||i%3,2,2,i%2,i from c"},
      {"EqualTimesAndNoIds",
       c + "insert into t_message(session_id,session_type) select '',1 from c"},
      {"AllPinned",
       c + "insert into t_session(session_id,session_type,is_top) select i,1+i%2,1 from c"},
  };
}

class Plan : public StoreTest, public testing::WithParamInterface<Shape> {
 protected:
  std::string plan(const std::string& text) const {
    std::string plan;
    for (const std::string& row : rows("explain query plan " + text)) {
      if (!plan.empty()) plan += "; ";
      plan += row.substr(row.find('|', row.find('|', row.find('|') + 1) + 1) + 1);
    }
    return plan;
  }

  void expect_plans() const {
    for (const std::string& text : statements()) {
      if (has_no_plan(text)) continue;
      const auto rule = std::find_if(rules().begin(), rules().end(), [&text](const Rule& each) {
        return contains(text, each.fragment);
      });
      if (rule == rules().end()) {
        ADD_FAILURE() << "no plan is given for: " << text;
      } else {
        EXPECT_EQ(plan(text), rule->plan) << text;
      }
    }
  }

  void make_indexes_in_another_order(unsigned seed) const {
    std::vector<std::string> indexes;
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
      if (sql.find("create index") != 0) continue;
      plant("drop index " + name);
      indexes.push_back(sql);
    }
    // Not std::shuffle, whose result differs from library to library.
    for (std::size_t i = indexes.size() - 1; i > 0; --i) {
      seed = seed * 1664525 + 1013904223;
      std::swap(indexes[i], indexes[(seed >> 16) % (i + 1)]);
    }
    for (const std::string& sql : indexes) plant(sql);
  }
};

TEST_P(Plan, EveryStatementIsRunAsExpected) {
  plant(GetParam().sql);
  expect_plans();
}

INSTANTIATE_TEST_SUITE_P(Shapes, Plan, testing::ValuesIn(shapes()), shape_name);

class PlanWithOtherIndexOrder : public Plan {};

TEST_P(PlanWithOtherIndexOrder, EveryStatementIsRunAsExpected) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    make_indexes_in_another_order(seed);
    expect_plans();
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, PlanWithOtherIndexOrder, testing::Values(kEmpty), shape_name);

// A list of rules that no statement meets any more would hide a change.
TEST(PlanRules, EachIsMetByAStatement) {
  std::set<const char*> met;
  for (const std::string& text : statements()) {
    for (const Rule& rule : rules()) {
      if (!contains(text, rule.fragment)) continue;
      met.insert(rule.fragment);
      break;
    }
  }
  for (const Rule& rule : rules()) EXPECT_EQ(met.count(rule.fragment), 1U) << rule.fragment;
}

}  // namespace
}  // namespace corvan_test
