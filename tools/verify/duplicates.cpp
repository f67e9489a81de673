#include "tools/verify/duplicates.h"

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

// Both queries return a conversation's id and type, the duplicate value, and the message ids.
constexpr const char* kServerUidQuery =
    "select session_id,session_type,server_uid,group_concat(cast(id as integer)) "
    "from t_message "
    "where server_uid collate binary in("
    "select server_uid from t_message where server_uid<>'' "
    "group by server_uid collate binary having count(*)>1) "
    "group by server_uid collate binary,session_id collate binary,session_type";
constexpr const char* kClientKeyQuery =
    "select session_id,session_type,client_uid||' of '||sender,"
    "group_concat(cast(id as integer)) "
    "from t_message where client_uid>0 "
    "group by session_id collate binary,session_type,client_uid,sender collate binary "
    "having count(*)>1";

std::vector<int64_t> ids_of(const std::string& list) {
  std::vector<int64_t> ids;
  std::istringstream words(list);
  for (std::string id; std::getline(words, id, ',');) ids.push_back(std::stoll(id));
  std::sort(ids.begin(), ids.end());
  return ids;
}

void add_duplicates(StoreReader& store, const Rule& rule, const char* column, const char* sql) {
  const StatementProgress progress(store.connection().handle(),
                                   "million steps of looking for duplicates");
  store.each_row("t_message", sql, [&](const Row& row) {
    Finding& finding = store.findings().add(rule, {row.text(0), row.int64(1)}, column);
    finding.stored = row.text(2);
    finding.messages = ids_of(row.text(3));
  });
}

}  // namespace

void find_duplicates(StoreReader& store) {
  add_duplicates(store, CORVAN_RULE("server-uid-twice"), "server_uid", kServerUidQuery);
  add_duplicates(store, CORVAN_RULE("client-key-twice"), "client_uid", kClientKeyQuery);
}

}  // namespace corvan_tool
