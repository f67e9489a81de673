#include "addons/search/store_reader.h"

#include "addons/search/folded_text.h"

namespace Corvan::search {

namespace {

// Automatic ids go on after the largest one ever used, which sqlite_sequence holds. Stores made by
// other programs may lack it; there, the id of the deleted newest message is used again.
const char* newest_id_query(const Connection& store) {
  if (store.number("select count(*) from sqlite_master where name='sqlite_sequence'") == 0) {
    return "select max(id) from t_message";
  }
  return "select max(coalesce((select max(cast(seq as integer)) from sqlite_sequence "
         "where name='t_message' collate nocase),0),coalesce((select max(id) from t_message),0))";
}

constexpr const char* kTimeIndexQuery =
    "select count(*) from pragma_index_list('t_message') l,pragma_index_info(l.name) i "
    "where l.partial=0 and i.seqno=0 and i.name='sent_time'";

// Texts and blobs are larger than numbers.
constexpr const char* kOddTimeQuery =
    "select exists(select 1 from t_message where sent_time is null) or "
    "exists(select 1 from t_message where sent_time>9223372036854775807)";

// Statements of another program may be preparing the file.
const Connection& ready(const Connection& store) {
  sqlite3_busy_timeout(store.handle(), 100);
  return store;
}

}  // namespace

StoreReader::StoreReader(const std::string& file)
    : identity_(identity_of(file)),
      connection_(file, SQLITE_OPEN_READONLY, SearchStatus::kStoreError, SearchStatus::kNoStore),
      messages_(ready(connection_),
                "select id,content from t_message where id between ? and ? order by id limit ?"),
      sample_(connection_,
              "select substr(content,1,256) from t_message where id between ? and ? limit ?"),
      content_(connection_, "select content from t_message where id=?"),
      newest_id_(connection_, newest_id_query(connection_)),
      has_odd_time_(connection_, kOddTimeQuery),
      has_time_index_(connection_.number(kTimeIndexQuery) > 0),
      time_blocks_(connection_) {
  connection_.require(sqlite3_create_function_v2(connection_.handle(), "wanted", 1, SQLITE_UTF8,
                                                 this, ask_wanted, nullptr, nullptr, nullptr));
}

// No exception may pass through SQLite.
void StoreReader::ask_wanted(sqlite3_context* context, int /*count*/,
                             sqlite3_value** values) noexcept {
  auto& reader = *static_cast<StoreReader*>(sqlite3_user_data(context));
  try {
    sqlite3_result_int(context, reader.wanted_(sqlite3_value_int64(values[0])) ? 1 : 0);
  } catch (...) {
    reader.failure_ = std::current_exception();
    sqlite3_result_error(context, "wanted", -1);
  }
}

void StoreReader::rethrow() {
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
}

bool StoreReader::next_message() {
  if (!messages_.row()) return false;
  const int64_t id = messages_.integer(0);
  if (id < next_id_) connection_.fail(SQLITE_CORRUPT);
  next_id_ = id + 1;
  return true;
}

std::vector<std::string> StoreReader::sample(int64_t first, int64_t ids) {
  constexpr int64_t kPlaces = 8;
  constexpr int64_t kMessages = 512;  // at each place
  std::vector<std::string> texts;
  ids = std::min(ids, newest_id() - first + 1);
  for (int64_t place = 0; place < kPlaces; ++place) {
    const int64_t begin = first + place * ids / kPlaces;
    sample_.bind(begin, first + (place + 1) * ids / kPlaces - 1, kMessages);
    while (sample_.row()) texts.push_back(FoldedText(sample_.text(0)).text());
  }
  return texts;
}

std::optional<std::string_view> StoreReader::content(int64_t id) {
  if (!content_.bind(id).row()) return std::nullopt;
  text_ = content_.text(0);
  content_.reset();  // a statement with a row keeps its snapshot of the store
  return text_;
}

bool StoreReader::has_time_order() {
  if (!has_time_index_) return false;
  const bool has_odd_time = has_odd_time_.bind().row() && has_odd_time_.integer(0) != 0;
  has_odd_time_.reset();
  return !has_odd_time;
}

int64_t StoreReader::newest_id() {
  const int64_t id = newest_id_.bind().row() ? newest_id_.integer(0) : 0;
  newest_id_.reset();
  return id;
}

}  // namespace Corvan::search
