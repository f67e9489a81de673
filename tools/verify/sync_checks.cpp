#include "tools/verify/sync_checks.h"

#include <fmt/format.h>

#include <array>
#include <map>
#include <string>

#include "tools/verify/values.h"

namespace corvan_tool {

namespace {

constexpr std::array<const char*, 2> kMarks = {"receive_time", "sent_time"};

class SyncCheck {
 public:
  SyncCheck(bool are_messages_complete, const Contents& contents, Findings& findings)
      : are_messages_complete_(are_messages_complete), contents_(contents), findings_(findings) {}

  void take(const Row& row) {
    // Read the type before the text: reading a blob as text changes its type.
    const std::string type = type_name(row, 0);
    const std::string user = row.text(0);
    if (type != "text") {
      add(text_type_rule(type), user, "user_id").stored = type;
    } else if (++rows_[user] == 2) {
      add(CORVAN_RULE("row-twice"), user, "user_id");
    }
    const bool is_good = check_integers(row, 1, kMarks, [&](const char* column, const char* bad) {
      add(number_type_rule(bad), user, column).stored = bad;
    });
    if (!is_good) return;
    check_mark(user, kMarks[0], row.int64(1), contents_.newest_received_time);
    check_mark(user, kMarks[1], row.int64(2), contents_.newest_own_time);
  }

 private:
  Finding& add(const Rule& rule, const std::string& user, const char* column) {
    return findings_.add(rule, fmt::format("t_sync.{} of {}", column, user));
  }

  void check_mark(const std::string& user, const char* column, int64_t mark, int64_t newest) {
    if (const Rule* const broken = broken_rule(mark); broken != nullptr) {
      add(*broken, user, column).stored = mark;
    } else if (are_messages_complete_ && mark < newest) {
      Finding& finding = add(CORVAN_RULE("sync-behind"), user, column);
      finding.stored = mark;
      finding.derived = newest;
    }
  }

  const Rule* broken_rule(int64_t mark) const {
    if (mark < 0) return &CORVAN_RULE("sync-negative");
    return mark == 0 ? nullptr : wrong_time(mark, now_);  // 0: never set
  }

  const bool are_messages_complete_;
  const Contents& contents_;
  Findings& findings_;
  const int64_t now_ = time_now();
  std::map<std::string, int> rows_;  // by user
};

}  // namespace

void check_sync(StoreReader& store, const Contents& contents) {
  SyncCheck check(store.is_complete(), contents, store.findings());
  store.each_row("t_sync", "select user_id,receive_time,sent_time from t_sync not indexed",
                 [&check](const Row& row) { check.take(row); });
}

}  // namespace corvan_tool
