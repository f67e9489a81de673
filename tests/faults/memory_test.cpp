// Every allocation of SQLite, of the store and of the platform facilities fails in turn, in every
// operation, in forked processes. With CORVAN_MEMORY_SHARE=N one allocation in N is tried;
// CORVAN_MEMORY_SEED chooses which.
//
// When SQLite runs out of memory, operations return what SQLite's results require. When the store
// does, they return the same or throw std::bad_alloc. Either way nothing is left open, the store
// stays usable, and the rows are those that the completed statements wrote.

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "base/pathname.h"
#include "tests/faults/memory_child.h"
#include "tests/faults/memory_faults.h"
#include "tests/faults/scene.h"
#include "tests/support/bounds.h"
#include "tests/support/store_library.h"
#include "tests/support/store_test.h"
#include "tests/support/uncounted.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

// ---- Every operation ----------------------------------------------------------------------------

// What SQLite refuses at the same time.
enum class Trouble {
  kNone,
  kMessagesRefused,       // the steps that write messages fail
  kConversationsRefused,  // those that write conversations and sync times
  kReadsDenied,           // queries cannot be prepared
  kWritesDenied,          // writes cannot be prepared
  kEndsDenied,            // commits and rollbacks cannot be prepared
  kDamaged,               // the file is not a database
};

// A way in which memory runs out.
struct End {
  std::string name;
  Memory memory;
  std::vector<bool> once;  // whether only one allocation fails
  Trouble trouble = Trouble::kNone;
};

void PrintTo(const End& end, std::ostream* out) {
  *out << end.name;
}

const End kEnds[] = {
    {"SqliteOnce", Memory::kSqlite, {true}},
    {"SqliteFromThenOn", Memory::kSqlite, {false}},
    {"OwnOnce", Memory::kOwn, {true}},
    {"OwnFromThenOn", Memory::kOwn, {false}},
    {"BothFromThenOn", Memory::kBoth, {false}},
    {"OwnWhileMessagesAreRefused", Memory::kOwn, {true, false}, Trouble::kMessagesRefused},
    {"OwnWhileConversationsAreRefused",
     Memory::kOwn,
     {true, false},
     Trouble::kConversationsRefused},
    {"OwnWhileReadsAreDenied", Memory::kOwn, {true, false}, Trouble::kReadsDenied},
    {"OwnWhileWritesAreDenied", Memory::kOwn, {true, false}, Trouble::kWritesDenied},
    {"OwnWhileEndsAreDenied", Memory::kOwn, {true, false}, Trouble::kEndsDenied},
    {"OwnWhileTheFileIsDamaged", Memory::kOwn, {true, false}, Trouble::kDamaged},
};

// Temporary triggers that refuse all writes to the table.
void refuse_writes(CvDbSingleton& store, const std::string& table) {
  for (const char* event : {"insert", "update", "delete"}) {
    store.execute_none_query("create temp trigger refuse_" + table + event + " before " + event +
                             " on " + table + " begin select raise(abort,'refused'); end");
  }
}

void stop_refusing(CvDbSingleton& store, const std::string& table) {
  for (const char* event : {"insert", "update", "delete"}) {
    store.execute_none_query("drop trigger if exists refuse_" + table + event);
  }
}

constexpr std::array<const char*, 3> kTables = {"t_message", "t_session", "t_sync"};

bool denies(Trouble trouble) {
  return trouble == Trouble::kReadsDenied || trouble == Trouble::kWritesDenied ||
         trouble == Trouble::kEndsDenied;
}

bool denied(Trouble trouble, int action, const char* detail) {
  switch (trouble) {
    case Trouble::kReadsDenied:
      return action == SQLITE_SELECT;
    case Trouble::kWritesDenied:
      return action == SQLITE_INSERT || action == SQLITE_UPDATE || action == SQLITE_DELETE;
    case Trouble::kEndsDenied:
      return action == SQLITE_TRANSACTION && std::string(detail) != "BEGIN";
    default:
      return false;
  }
}

extern "C" int authorize(void* trouble, int action, const char* detail, const char*, const char*,
                         const char*) {
  const Uncounted uncounted;
  return denied(*static_cast<Trouble*>(trouble), action, detail) ? SQLITE_DENY : SQLITE_OK;
}

const std::string kNoise(8192, 'x');

// A cheap hash that chooses points.
uint64_t mixed(uint64_t a, uint64_t b) {
  return (a * 0x9E3779B97F4A7C15ULL ^ b) * 0xD1B54A32D192ED03ULL >> 33;
}

class OutOfMemory : public testing::TestWithParam<End> {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }
  static void TearDownTestSuite() { print("memory", tally_); }

  OutOfMemory() { set_clock(1000000); }

  // Whether this trouble can be caused for the call.
  bool applies(const Call& call) const {
    const bool closed = call.start != Call::kOpen;
    switch (GetParam().trouble) {
      case Trouble::kNone:
        return true;
      case Trouble::kDamaged:  // if it is encrypted, no operation can run on it
        return call.start == Call::kClosed ||
               (call.start == Call::kOpen && !stores_are_encrypted());
      default:
        return !closed;
    }
  }

  // The call, with preparations that also cause the trouble.
  Call in_trouble(Call call) {
    const auto prepare = call.prepare;
    call.prepare = [this, prepare](CvDbSingleton& store) {
      if (prepare) prepare(store);
      const Trouble trouble = GetParam().trouble;
      if (trouble == Trouble::kMessagesRefused) refuse_writes(store, kTables[0]);
      if (trouble == Trouble::kConversationsRefused) {
        refuse_writes(store, kTables[1]);
        refuse_writes(store, kTables[2]);
      }
      if (trouble != Trouble::kDamaged) return;
      store.close_db();
      damage();
      store.open_db();
    };
    return call;
  }

  std::string file() const { return scene_.folder() + "corvan"; }
  void damage() const { write_file(file(), kNoise); }

  // A damaged file that is encrypted is not opened, and kept. Removes it.
  std::string remove_damaged(CvDbSingleton& store) const {
    if (store.init_open_db(cvrtc::Pathname(scene_.folder()), "", "me"))
      return "opens a damaged file";
    if (!file_exists(file()) || read_file(file()) != kNoise) return "does not keep the file";
    std::filesystem::remove(file());
    return "";
  }

  // Called right before the call and right after it.
  void arm(const Call& call, uint64_t nth, bool once) {
    const End& end = GetParam();
    if (end.trouble == Trouble::kDamaged && call.start == Call::kClosed) damage();
    // An authorizer makes SQLite prepare idle statements again.
    if (store_connection() != nullptr && denies(end.trouble)) {
      sqlite3_set_authorizer(store_connection(), authorize, &trouble_);
    }
    arm_memory(end.memory, nth, once);
  }
  void disarm() {
    disarm_memory();
    if (store_connection() != nullptr) {
      sqlite3_set_authorizer(store_connection(), nullptr, nullptr);
    }
  }

  // Checks that the store still saves and reads. A caller whose opening failed, or may be
  // incomplete, opens it again.
  std::string go_on(const Call& call, CvDbSingleton& store) const {
    if (call.start != Call::kOpen || GetParam().trouble == Trouble::kDamaged) {
      store.close_db();
    }
    if (GetParam().trouble == Trouble::kDamaged && stores_are_encrypted()) {
      const std::string complaint = remove_damaged(store);
      if (!complaint.empty()) return complaint;
    }
    const cvrtc::Pathname folder(scene_.folder());
    // The first opening may find the file damaged, and delete it.
    for (int i = 0; i < 2 && store_connection() == nullptr; ++i) {
      if (!store.init_open_db(folder, "", "me")) return "does not open";
    }
    for (const char* table : kTables) stop_refusing(store, table);
    const int64_t id = save(store, NewMessage().in("next", Corvan::CV_GROUP).named("next1"));
    MessageResponse read;
    read.server_uid_ = "next1";
    if (id <= 0 || !store.get_message_by_uid(read) || read.msg_id_ != id ||
        read.session_id_ != "next" || read.content_ != "hello") {
      return "does not go on";
    }
    if (in_transaction() && !store.commit_transaction()) return "does not commit";
    return "";
  }

  // One run, in which the nth allocation fails; `idle`: with the call's statements idle.
  ChildReport run(const Call& call, uint64_t nth, bool once, bool idle) {
    ChildReport report;
    scene_.begin_with_idle_statements(idle);
    report.complaint = scene_
                           .run(
                               in_trouble(call), [&] { arm(call, nth, once); }, [&] { disarm(); },
                               GetParam().memory == Memory::kSqlite ? Certain::kEverything
                                                                    : Certain::kAllButTheResult,
                               [&](CvDbSingleton& store) { return go_on(call, store); })
                           .complaint;
    report.failed = failed_allocations() > 0;
    return report;
  }

  // One allocation in this many is tried. Of the store's own allocations, which are few, more are
  // tried.
  uint64_t one_of() const { return GetParam().memory == Memory::kOwn ? (share_ + 9) / 10 : share_; }

  // The numbers of the allocations that the seed chooses, up to `last`.
  std::vector<uint64_t> chosen(uint64_t seed, uint64_t last, bool once) const {
    std::vector<uint64_t> points;
    for (uint64_t nth = 1; nth <= last; ++nth) {
      if (mixed(seed, nth * 2 + (once ? 1 : 0)) % one_of() == 0) points.push_back(nth);
    }
    return points;
  }

  void try_each(uint64_t seed) {
    uint64_t index = 0;
    for (const Call& call : scene_.calls()) {
      ++index;
      if (!applies(call)) continue;
      // Runs in this process, so that the children inherit the rows that the scene has computed.
      EXPECT_EQ(run(call, 0, true, false).complaint, "") << call.name << " without a failure";
      // A run makes the same allocations as this one until one fails.
      const uint64_t last = allocations();
      for (const bool once : GetParam().once) {
        const std::vector<uint64_t> points = chosen(seed + index, last, once);
        try_points(call, points, once, false);
        if (statements_are_kept()) try_points(call, points, once, true);
        if (HasFailure()) {
          ADD_FAILURE() << "CORVAN_MEMORY_SEED=" << seed << " CORVAN_MEMORY_SHARE=" << share_;
        }
        if (tally_.lost + tally_.aborted > 20) return;
      }
    }
  }

  void try_points(const Call& call, const std::vector<uint64_t>& points, bool once, bool idle) {
    const std::vector<ChildReport> reports =
        in_children(points, [&](uint64_t nth) { return run(call, nth, once, idle); });
    for (std::size_t i = 0; i < points.size(); ++i) {
      note(reports[i]);
      if (reports[i].complaint.empty()) continue;
      ADD_FAILURE() << call.name << ", " << GetParam().name << ", allocation " << points[i]
                    << (once ? " once" : " and from then on")
                    << (idle ? ", statements idle: " : ": ") << reports[i].complaint;
    }
  }

  void note(const ChildReport& report) {
    ++tally_.points;
    if (report.failed) ++tally_.faults;
    if (report.aborted) {
      ++tally_.aborted;
    } else if (!report.complaint.empty()) {
      ++tally_.lost;
    }
  }

  Scene scene_;
  Trouble trouble_ = GetParam().trouble;
  const uint64_t share_ = bound("CORVAN_MEMORY_SHARE", 200, 1);
  static inline Tally tally_;
};

TEST_P(OutOfMemory, OperationsReturnOrThrowAndTheStoreStaysUsable) {
  const TimeLimit limit;
  uint64_t seed = setting("CORVAN_MEMORY_SEED", 1);
  try_each(seed);
  while (one_of() > 1 && limit.given() && !limit.passed() && !HasFailure()) try_each(++seed);
}

std::string end_name(const testing::TestParamInfo<End>& info) {
  return info.param.name;
}
INSTANTIATE_TEST_SUITE_P(Memory, OutOfMemory, testing::ValuesIn(kEnds), end_name);

}  // namespace
}  // namespace corvan_test
