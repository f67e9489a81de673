#include "tests/faults/power_scenarios.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <stdexcept>

#include "tests/faults/disk_images.h"
#include "tests/support/operations/small_store.h"
#include "tests/support/store_test.h"

namespace corvan_test {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

namespace {

NewMessage numbered(int number) {
  const std::string text = std::to_string(number);
  return NewMessage()
      .in("room" + std::to_string(number % 3), Corvan::CV_GROUP)
      .at(1000 + number)
      .named("uid" + text)
      .text("message " + text);
}

}  // namespace

void save_each(Recording& recording, int first, int count) {
  for (int i = first; i < first + count; ++i) {
    recording.run([i](CvDbSingleton& store) { EXPECT_GT(save(store, numbered(i)), 0); });
  }
}

namespace {

// Saves these messages in the caller's transaction, if there is one.
void save_all(CvDbSingleton& store, int first, int count) {
  for (int i = first; i < first + count; ++i) EXPECT_GT(save(store, numbered(i)), 0);
}

}  // namespace

void execute(CvDbSingleton& store, const std::string& sql) {
  const int32_t rc = store.execute_none_query(sql);
  EXPECT_TRUE(rc == SQLITE_DONE || rc == SQLITE_ROW) << sql;
}

namespace {

// The folder of a closed store that `fill` has filled.
template <typename Fill>
DiskImage store_image(const Fill& fill) {
  set_clock(1000000);
  const TemporaryFolder folder;
  EXPECT_TRUE(open_store(folder.path()));
  fill(*CvDbSingleton::get_instance());
  CvDbSingleton::delete_instance();
  return read_folder(folder.path());
}

}  // namespace

DiskImage no_store() {
  return {};
}

DiskImage standard_store() {
  static const DiskImage image = store_image(fill_ledger_store);
  return image;
}

namespace {

DiskImage larger_store() {
  static const DiskImage image = store_image([](CvDbSingleton& store) {
    store.start_transaction();
    save_all(store, 0, 100);
    EXPECT_TRUE(store.commit_transaction());
  });
  return image;
}

DiskImage sending_store() {
  static const DiskImage image = store_image([](CvDbSingleton& store) {
    fill_ledger_store(store);
    save(store, NewMessage().own(7).at(400).status(1));
    EXPECT_TRUE(store.update_sent_status(2, 1));
  });
  return image;
}

// The standard store and an older one, "older". Some rows are in both, some in one of them.
DiskImage store_and_older() {
  static const DiskImage image = [] {
    DiskImage both = standard_store();
    both["older"] = store_image([](CvDbSingleton& store) {
      save(store, NewMessage().at(50).named("o1"));
      save_all(store, 0, 10);
      store.set_sync_time(77, true);
      execute(store, "pragma user_version=7");
    })["corvan"];
    return both;
  }();
  return image;
}

}  // namespace

Scenario of_statements(const Statements& statements) {
  return {statements.name, standard_store, [run = statements.run](Recording& recording) {
            recording.open();
            recording.run(run);
          }};
}

std::vector<Scenario> scenarios_of_operations() {
  std::vector<Scenario> scenarios;
  for (const Statements& each : all_cases(&Operation::statements)) {
    scenarios.push_back(of_statements(each));
  }
  return scenarios;
}

namespace {

// Keeps so few pages in memory that a transaction writes to the log long before it commits.
void spill(CvDbSingleton& store) {
  execute(store, "pragma cache_size=5");
  execute(store, "pragma cache_spill=1");
}

std::vector<std::unique_ptr<MessageResponse>> batch(int size) {
  std::vector<std::unique_ptr<MessageResponse>> messages;
  for (int i = 0; i < size; ++i) {
    messages.push_back(std::make_unique<MessageResponse>());
    messages.back()->msg_id_ = -1;
    messages.back()->is_store_ = true;
    messages.back()->session_id_ = "room";
    messages.back()->content_ = "batch " + std::to_string(i);
  }
  return messages;
}

}  // namespace

void play_saves(Recording& recording) {
  recording.open();
  save_each(recording, 0, 5);
}

namespace {

void play_automatic_checkpoints(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) { execute(store, "pragma wal_autocheckpoint=25"); });
  save_each(recording, 0, 8);
}

// Checkpoints of every kind, each followed by saves, which restart the log.
void play_checkpoints(Recording& recording) {
  recording.open();
  save_each(recording, 0, 2);
  int number = 2;
  for (const std::string mode : {"passive", "full", "restart", "truncate"}) {
    recording.run(
        [&](CvDbSingleton& store) { execute(store, "pragma wal_checkpoint(" + mode + ")"); });
    save_each(recording, number, 2);
    number += 2;
  }
}

void save_in_transaction(Recording& recording) {
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.start_transaction()); });
  recording.run([](CvDbSingleton& store) { save_all(store, 0, 50); });
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.commit_transaction()); });
}

}  // namespace

void play_transaction(Recording& recording) {
  recording.open();
  save_in_transaction(recording);
}

void play_spilling_transaction(Recording& recording) {
  recording.open();
  save_each(recording, 100, 2);
  recording.run(spill);
  save_in_transaction(recording);
}

namespace {

void play_rollback(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    spill(store);
    EXPECT_TRUE(store.start_transaction());
    save_all(store, 0, 20);
    execute(store, "rollback transaction");
  });
  save_each(recording, 100, 2);
}

void play_closing(Recording& recording) {
  recording.open();
  save_each(recording, 0, 2);
  recording.run([](CvDbSingleton& store) { store.close_db(); });
  recording.open();
  save_each(recording, 2, 2);
  recording.run([](CvDbSingleton& store) { store.close_db(); });
}

void play_closing_inside_transaction(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    spill(store);
    EXPECT_TRUE(store.start_transaction());
    save_all(store, 0, 20);
    store.close_db();
  });
  recording.open();
  save_each(recording, 100, 2);
}

void play_compaction(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.clear_message("room1", Corvan::CV_GROUP, true));
  });
  save_each(recording, 200, 1);
  recording.run(
      [](CvDbSingleton& store) { EXPECT_TRUE(store.clear_message_by_timestamp(5000, true)); });
  recording.run([](CvDbSingleton& store) { execute(store, "pragma wal_checkpoint(truncate)"); });
  save_each(recording, 201, 1);
}

void play_copy(Recording& recording) {
  recording.open();
  recording.run([&recording](CvDbSingleton& store) {
    execute(store, "attach '" + recording.file("older") + "' as odb");
  });
  recording.run([](CvDbSingleton& store) { store.createdb_copydata(); });
  EXPECT_EQ(recording.store().get_pragma("pragma user_version"), 7);
  EXPECT_EQ(recording.store().get_pragma("select count(*) from t_message"), 11);
  recording.run([](CvDbSingleton& store) { execute(store, "detach odb"); });
}

void play_batches(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.save_message(batch(5))); });
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.start_transaction());
    EXPECT_TRUE(store.save_message(batch(20)));
    EXPECT_TRUE(store.commit_transaction());
  });
}

void play_long_texts(Recording& recording) {
  constexpr std::size_t kSize = 15000;  // several pages
  recording.open();
  for (const char letter : {'a', 'b'}) {
    recording.run([letter](CvDbSingleton& store) {
      EXPECT_GT(save(store, NewMessage().at(900).text(std::string(kSize, letter))), 0);
    });
  }
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.delete_message(std::vector<int64_t>{4}));
    EXPECT_TRUE(store.set_message_content(5, std::string(kSize / 2, 'c'), ""));
  });
}

void play_opening(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    EXPECT_GT(save(store, NewMessage().own(8).at(500).status(1)), 0);
  });
  recording.open();
}

}  // namespace

std::vector<Scenario> own_scenarios() {
  return {
      {"NewStore", no_store, play_saves},
      {"NewStoreClosed", no_store, play_closing},
      {"Saves", standard_store, play_saves},
      {"Closing", standard_store, play_closing},
      {"ClosingInsideTransaction", standard_store, play_closing_inside_transaction},
      {"AutomaticCheckpoints", standard_store, play_automatic_checkpoints},
      {"Checkpoints", standard_store, play_checkpoints},
      {"Transaction", standard_store, play_transaction},
      {"SpillingTransaction", standard_store, play_spilling_transaction},
      {"Rollback", standard_store, play_rollback},
      {"Compaction", larger_store, play_compaction},
      {"CopyOfOlderStore", store_and_older, play_copy},
      {"Batches", standard_store, play_batches},
      {"LongTexts", standard_store, play_long_texts},
      {"MessagesBeingSent", sending_store, play_opening},
      {"AfterPowerLoss", store_after_power_loss, play_closing},
  };
}

History record(const Scenario& scenario, DiskRecorder::Syncs syncs) {
  const DiskImage start = scenario.start();
  set_clock(1000000);
  Recording recording(start, syncs);
  scenario.play(recording);
  return recording.finish();
}

DiskImage store_after_power_loss() {
  static const DiskImage image = [] {
    const History history = record({"", standard_store, play_spilling_transaction});
    const std::size_t commit = history.states.back().event;
    const std::size_t before = history.states.at(history.states.size() - 2).event;
    Disk disk(history.record);
    while (disk.events() < (before + commit) / 2) disk.advance();
    return disk.image(disk.all_kept());
  }();
  return image;
}

Scenario named(const std::string& name, const std::vector<Scenario>& scenarios) {
  const auto found = std::find_if(scenarios.begin(), scenarios.end(),
                                  [&name](const Scenario& one) { return one.name == name; });
  if (found == scenarios.end()) throw std::runtime_error("no scenario " + name);
  return *found;
}

}  // namespace corvan_test
