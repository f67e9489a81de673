#include "addons/search/index_file.h"

#include "addons/search/hashing.h"

#include "addons/search/platform.h"
#include "addons/search/tokenizer.h"

namespace Corvan::search {

namespace {

constexpr int64_t kApplicationId = 0x43765378;
constexpr int64_t kFormat = 2;  // change it when an older index cannot be read any more

// Deleted terms are overwritten (secure_delete). synchronous=normal: after a loss of power, the
// last transactions may be missing, and the index is consistent.
constexpr const char* kSettings =
    "pragma secure_delete=on;"
    "pragma synchronous=normal;"
    "pragma journal_size_limit=1048576;"
    "pragma temp_store=memory";

constexpr const char* kSchema =
    "create table state(tokenizer text,highest integer,swept_to integer,"
    "verified_to integer,is_swept integer,next_number integer);"
    "create table shard(first_id integer primary key,number integer,messages integer,"
    "stale integer,unmerged integer,is_merging integer,building integer,built_to integer,"
    "stale_built integer,hash integer);"
    "create table fingerprint(first_id integer primary key,hashes blob);"
    "create table pair(number integer primary key,least integer,words blob,exceptions blob,hash integer);"
    "create table checksum(number integer,id integer,hash integer,"
    "primary key(number,id)) without rowid";

void execute(const Connection& index, const char* statements) {
  index.require(sqlite3_exec(index.handle(), statements, nullptr, nullptr, nullptr));
}

bool is_current(const Connection& index) {
  if (index.number("pragma application_id") != kApplicationId) return false;
  if (index.number("pragma user_version") != kFormat) return false;
  Statement tokenizer(index, "select tokenizer from state");
  return tokenizer.row() && tokenizer.text(0) == tokenizer_version();
}

bool is_empty(const Connection& index) {
  return index.number("select count(*) from sqlite_master") == 0;
}

void set_pragma(const Connection& index, const char* name, int64_t value) {
  index.run(joined({"pragma ", name, "=", std::to_string(value)}));
}

void create(const Connection& index) {
  execute(index, "pragma auto_vacuum=incremental;pragma journal_mode=wal");
  execute(index, kSettings);
  const Transaction transaction(index, "begin immediate");
  execute(index, kSchema);
  Statement(index, "insert into state values(?,0,0,?,0,1)")
      .bind(std::string_view(tokenizer_version()), Checksums::kEnd)
      .run();
  set_pragma(index, "application_id", kApplicationId);
  set_pragma(index, "user_version", kFormat);
  transaction.commit();
}

// Whether the file's header says that no SQLite may write it, though the system would allow it.
bool is_unwritable(const Connection& index) {
  return sqlite3_db_readonly(index.handle(), "main") == 1 && is_writable(index.file());
}

std::unique_ptr<Connection> connect(const std::string& file, int flags) {
  auto index = std::make_unique<Connection>(file, flags, SearchStatus::kIndexError,
                                            SearchStatus::kIndexError);
  sqlite3_busy_timeout(index->handle(), 250);
  const int code = register_tokenizer(index->handle());
  if (code == SQLITE_ERROR) fail_index(SQLITE_NOTFOUND, {file, ": SQLite has no FTS5"});
  index->require(code);
  return index;
}

// SQLite gave the log and its memory the permissions that the file had then. If the file could not
// be written at that time, but can be now, they get the present permissions.
void repair_log_permissions(const std::string& file) {
  for (const char* const ending : {"-wal", "-shm"}) repair_permissions(file + ending, file);
}

// Null if the file is not an index of this version.
std::unique_ptr<Connection> open_current(const std::string& file, const std::string& store) {
  create_like(file, store);  // who may read the store may read the index
  repair_log_permissions(file);
  auto index = connect(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  if (is_empty(*index)) {
    create(*index);
  } else if (!is_current(*index) || is_unwritable(*index)) {
    return nullptr;
  }
  execute(*index, kSettings);
  return index;
}

}  // namespace

std::string shard_table(int64_t number) {
  return "shard_" + std::to_string(number);
}

void fail_index(int code, std::initializer_list<std::string_view> text) {
  throw SqlError(SearchStatus::kIndexError, code, text);
}

bool is_damage(const SqlError& error) {
  switch (error.code()) {
    case SQLITE_ERROR:     // a table or column is missing, or a key does not fit
    case SQLITE_AUTH:      // there is no key for it
    case SQLITE_NOTFOUND:  // no FTS5, or a schema that cannot be read
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
      return true;
    default:
      return false;
  }
}

std::unique_ptr<Connection> open_index_for_writing(const std::string& file,
                                                   const std::string& store,
                                                   const IndexCloser& close_others) {
  try {
    if (auto index = open_current(file, store)) return index;
  } catch (const SqlError& error) {
    if (!is_damage(error)) throw;
  }
  delete_index(file, close_others);
  try {
    if (auto index = open_current(file, store)) return index;
  } catch (const SqlError& error) {
    if (error.code() == SQLITE_NOTFOUND) delete_index(file);  // it is empty
    throw;
  }
  fail_index(SQLITE_CANTOPEN, {file, ": cannot be replaced"});
}

std::unique_ptr<Connection> open_index_for_reading(const std::string& file) {
  try {
    auto index = connect(file, SQLITE_OPEN_READONLY);
    if (is_current(*index)) return index;
  } catch (const SqlError&) {
    return nullptr;
  }
  return nullptr;
}

// The log is deleted last: if the file cannot be deleted, it still needs the log.
bool delete_index(const std::string& file) {
  if (!delete_file(file)) return false;
  bool is_deleted = true;
  for (const char* const ending : {"-wal", "-shm", "-journal"}) {
    is_deleted = delete_file(file + ending) && is_deleted;
  }
  return is_deleted;
}

bool delete_index(const std::string& file, const IndexCloser& close_others) {
  if (delete_index(file)) return true;
  const std::unique_lock<std::mutex> lock = close_others();
  return delete_index(file);
}

const char* const kStateQuery =
    "select highest,swept_to,verified_to,is_swept,next_number from state";

namespace {

// Calculations with the numbers of a damaged file must not overflow.
void require_between(int64_t number, int64_t smallest, int64_t largest) {
  if (number < smallest || number > largest) {
    fail_index(SQLITE_CORRUPT, {"there are impossible numbers"});
  }
}

}  // namespace

State read_state(Statement* rows) {
  if (!rows->bind().row()) fail_index(SQLITE_CORRUPT, {"no state"});
  State state;
  state.highest = rows->integer(0);
  state.swept_to = rows->integer(1);
  state.verified_to = rows->integer(2);
  state.is_swept = rows->integer(3) != 0;
  state.next_number = rows->integer(4);
  rows->reset();
  require_between(state.highest, 0, kLastId);
  require_between(state.swept_to, 0, kLastId);
  return state;
}

namespace {

// How many of the shards' tables have this number.
int64_t count_tables(const std::vector<Shard>& shards, int64_t number) {
  int64_t count = 0;
  for (const Shard& shard : shards) {
    if (shard.number == number) ++count;
    if (shard.building == number) ++count;
  }
  return count;
}

// No checksum says which shard a table belongs to, and in which order the shards are.
void require_order(const std::vector<Shard>& shards) {
  constexpr int64_t kManyMessages = int64_t{1} << 32;
  const Shard* last = nullptr;
  for (const Shard& shard : shards) {
    require_between(shard.first_id, 1, kLastId);
    require_between(shard.messages, 0, kManyMessages);
    require_between(shard.built_to, 0, kLastId);
    if (last != nullptr && shard.first_id <= last->first_id) {
      fail_index(SQLITE_CORRUPT, {"the shards are out of order"});
    }
    last = &shard;
    if (count_tables(shards, shard.number) > 1 ||
        (shard.building != 0 && count_tables(shards, shard.building) > 1)) {
      fail_index(SQLITE_CORRUPT, {"two shards have one table"});
    }
  }
}

}  // namespace

std::array<int64_t, 10> Shard::row() const {
  std::array<int64_t, 10> row{};
  uint64_t hash = 0;
  std::size_t i = 0;
  for (const int64_t value : values()) {
    row[i++] = value;
    hash = mixed(hash, static_cast<uint64_t>(value)) + 1;
  }
  row[i] = static_cast<int64_t>(hash);
  return row;
}

const char* const kShardQuery =
    "select first_id,number,messages,stale,unmerged,is_merging,building,built_to,stale_built,"
    "hash from shard order by first_id";

std::vector<Shard> read_shards(Statement* rows) {
  std::vector<Shard> shards;
  for (rows->bind(); rows->row();) {
    const Shard shard{rows->integer(0), rows->integer(1), rows->integer(2),
                      rows->integer(3), rows->integer(4), rows->integer(5) != 0,
                      rows->integer(6), rows->integer(7), rows->integer(8)};
    if (rows->integer(9) != shard.row().back()) {
      fail_index(SQLITE_CORRUPT, {"a shard is damaged"});
    }
    shards.push_back(shard);
  }
  require_order(shards);
  return shards;
}

}  // namespace Corvan::search
