#include "tests/tools/salvage_fixture.h"

#include <filesystem>

namespace corvan_test {

namespace {

std::string sample_lines() {
  std::string lines;
  for (int i = 1; i <= 1500; ++i) {
    const std::string long_text(static_cast<std::size_t>(i % 100 == 0 ? 10000 : 20 + i % 60),
                                static_cast<char>('a' + i % 26));
    lines += line({{"session_id", "room-" + std::to_string(i % 30)},
                   {"session_type", 1 + i % 5},
                   {"content", long_text + " 你好"},
                   {"sent_time", 1700000000000 + i},
                   {"server_uid", "s" + std::to_string(i)}});
  }
  return lines;
}

}  // namespace

void SalvageTest::SetUp() {
  static std::string content;
  if (content.empty()) {
    import(sample_lines());
    plant(
        "update t_session set is_top=1,silence=rowid%2,title='T'||rowid,draft='d'||rowid;"
        "insert into t_sync values('me',5,6),('u01',-7,8);"
        "delete from t_message where id between 700 and 704");
    content = read_file(file());
  }
  sound = content;
  std::filesystem::create_directories(store());
  write_file(file(), sound);
}

SalvageTest::Ids SalvageTest::ids(const Rows& rows) {
  Ids result;
  for (const std::string& row : rows) result.insert(std::stoll(row));
  return result;
}

Json SalvageTest::salvage(int status, const Arguments& more) {
  std::filesystem::remove_all(salvaged);
  const Listing before = listing(store());
  Arguments arguments = {"salvage", store(), salvaged, "--json"};
  arguments.insert(arguments.end(), more.begin(), more.end());
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.status, status) << outcome.err << outcome.out;
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(listing(store()), before);
  Json report = Json::parse(outcome.out);
  if (report["folder"].is_null()) {
    EXPECT_FALSE(file_exists(salvaged));
  } else {
    EXPECT_EQ(new_rows("pragma integrity_check"), Rows{"ok"});
  }
  return report;
}

void SalvageTest::expect_equal_messages() const {
  const std::string original = folder.file("original");
  write_file(original, sound);
  const std::string columns =
      "session_id,session_type,object_name,content,sender,direction,sent_status,read_status,"
      "is_mention,sent_time,client_uid,server_uid";
  const Rows all = corvan_test::rows(original, "select id," + columns + " from t_message");
  const std::set<std::string> known(all.begin(), all.end());
  for (const std::string& row : new_rows("select id," + columns + " from t_message")) {
    EXPECT_EQ(known.count(row), 1U) << row;
  }
}

Json SalvageTest::expect_best(const std::string& damaged, const std::set<std::size_t>& bad,
                              int status) {
  const StorePages messages = store_pages_of("t_message");
  write_file(file(), damaged);
  Json report = salvage(status);
  Ids missed = rows_beside(messages, bad);
  const Ids found = ids(new_rows("select id from t_message"));
  for (const int64_t id : found) missed.erase(id);
  EXPECT_EQ(missed, Ids{});
  expect_equal_messages();

  const Json& counts = report["tables"]["t_message"];
  EXPECT_EQ(counts["recovered"], found.size());
  const std::size_t lost = 1495 - found.size();
  EXPECT_LE(counts["lost_at_least"], lost);
  // A row whose continuation was zeroed is left out as doubtful and does not count as lost.
  const std::size_t zeroed = counts["doubtful_by"].value("text", std::size_t{0});
  EXPECT_TRUE(counts["lost_at_most"].is_null() ||
              counts["lost_at_most"].get<std::size_t>() + zeroed >= lost)
      << counts;
  return report;
}

StorePages SalvageTest::store_pages_of(const std::string& table) const {
  const std::string original = folder.file("original");
  write_file(original, sound);
  return store_pages(original, table);
}

void SalvageTest::overwrite_rows(std::string& content, const std::string& table) const {
  for (const auto& [page, on_page] : store_pages_of(table).rows) {
    overwrite(content, page, 0, std::string(kPageSize, 'x'));
  }
}

std::string SalvageTest::log_of(const std::string& path, const std::string& sql) {
  const std::string content = read_file(path);
  std::string log;
  {
    const WriteAhead writer(path, sql);
    log = read_file(path + "-wal");
  }
  std::filesystem::remove(path + "-shm");
  write_file(path, content);
  return log;
}

}  // namespace corvan_test
