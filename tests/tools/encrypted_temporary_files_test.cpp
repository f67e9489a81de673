// SQLite does not encrypt its temporary files, so no command may make any for an encrypted store.

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>

#include "tests/tools/encrypted_fixture.h"

namespace corvan_test {
namespace {

// Notes the files that are created in a folder, even if they are deleted at once.
class FolderWatch {
 public:
  explicit FolderWatch(const std::string& folder) : fd_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (fd_ < 0 || inotify_add_watch(fd_, folder.c_str(), IN_CREATE) < 0) {
      throw std::runtime_error("cannot watch a folder");
    }
  }
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;
  ~FolderWatch() { close(fd_); }

  int created() const {
    std::array<char, 65536> events{};
    int count = 0;
    ssize_t size = 0;
    while ((size = read(fd_, events.data(), events.size())) > 0) {
      for (std::size_t at = 0; at < static_cast<std::size_t>(size); ++count) {
        inotify_event event = {};
        std::memcpy(&event, events.data() + at, sizeof event);
        at += sizeof event + event.len;
      }
    }
    return count;
  }

 private:
  const int fd_;
};

class EncryptedTemporaryFilesTest : public EncryptedTest {
 protected:
  void SetUp() override {
    EncryptedTest::SetUp();
    std::filesystem::create_directory(temporary("sqlite"));
    variables = {"SQLITE_TMPDIR=" + temporary("sqlite")};
  }

  // More rows than SQLite sorts in memory.
  void add_rows() const {
    plant(
        "with recursive n(i) as (select 1 union all select i+1 from n where i<6000) "
        "insert into t_message(session_id,session_type,object_name,content,sender,sent_time,"
        "client_uid,server_uid,direction,sent_status,read_status,is_mention) "
        "select 'planted-room-'||(i%300)||hex(zeroblob(300)),2,'CV:TxtMsg','planted','u01',"
        "1700000000000+i,i,'planted-uid-'||i,2,0,0,0 from n");
    plant("drop index t_message_session");
  }
};

TEST_F(EncryptedTemporaryFilesTest, AreUsedForAPlainStore) {
  make_plain_store();
  for (const std::string& one : {store(), new_store()}) forget_key(one);
  add_rows();
  const FolderWatch watch(temporary("sqlite"));
  EXPECT_LE(run({"salvage", store(), new_store()}).status, 1);
  EXPECT_GT(watch.created(), 0);
}

TEST_F(EncryptedTemporaryFilesTest, AreNotUsedForAnEncryptedStore) {
  make_store();
  add_rows();
  const FolderWatch watch(temporary("sqlite"));
  for (const Arguments& arguments : commands()) {
    const Outcome outcome = run_with(key(), arguments);
    EXPECT_LE(outcome.status, 1) << arguments[0] << outcome.err;
    EXPECT_EQ(watch.created(), 0) << arguments[0];
    if (arguments[0] == "rekey") break;
    std::filesystem::remove_all(new_store());
  }
  const std::string exported =
      write("all.jsonl", run_with(other(), {"export", store(), "--format", "jsonl"}).out);
  EXPECT_EQ(run_with(key(), {"restore", exported, new_store()}).status, 0);
  EXPECT_EQ(watch.created(), 0);
}

}  // namespace
}  // namespace corvan_test
