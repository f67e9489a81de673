// Times the operations on a client's hot path. Stores are in the folder named by TMPDIR.

#include <benchmark/benchmark.h>
#include <sqlite3.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"

namespace {

using Corvan::CvDbSingleton;

// A new store in its own folder, which is removed at the end.
class BenchStore {
 public:
  BenchStore() {
    std::string name = (std::filesystem::temp_directory_path() / "corvan-bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = name + "/";
    if (!CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder_), "", "me")) {
      throw std::runtime_error("the store cannot be opened");
    }
  }
  BenchStore(const BenchStore&) = delete;
  BenchStore& operator=(const BenchStore&) = delete;
  ~BenchStore() {
    CvDbSingleton::delete_instance();
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }

  CvDbSingleton* operator->() const { return CvDbSingleton::get_instance(); }

  // Saves the next received message, in one of 20 conversations.
  void save() {
    ++saved_;
    const int64_t id = CvDbSingleton::get_instance()->save_message(
        "conversation-" + std::to_string(saved_ % 20), Corvan::CV_GROUP, "CV:TxtMsg", "peer",
        "a message of some forty characters, or so", true, 0, 0, false, 1000 + saved_, 0,
        "server-" + std::to_string(saved_), false, false, true);
    if (id != saved_) throw std::runtime_error("a message was not stored");
  }

 private:
  std::string folder_;
  int64_t saved_ = 0;
};

void save_each_on_its_own(benchmark::State& state) {
  BenchStore store;
  for (auto _ : state) store.save();
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(save_each_on_its_own)->UseRealTime();

void save_in_one_transaction(benchmark::State& state) {
  BenchStore store;
  for (auto _ : state) {
    store->start_transaction();
    for (int64_t i = 0; i < state.range(0); ++i) store.save();
    if (!store->commit_transaction()) throw std::runtime_error("the commit failed");
  }
  state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(save_in_one_transaction)->Arg(10)->Arg(100)->Arg(1000)->UseRealTime();

void fill(BenchStore& store) {
  store->start_transaction();
  for (int i = 0; i < 20000; ++i) store.save();
  store->commit_transaction();
}

void history_page(benchmark::State& state) {
  BenchStore store;
  fill(store);
  for (auto _ : state) {
    std::vector<Corvan::MessageResponse> page;
    store->get_history_message_by_object_name("conversation-7", Corvan::CV_GROUP, {}, 0, 20, page,
                                              true);
    if (page.size() != 20) throw std::runtime_error("not a full page");
  }
}
BENCHMARK(history_page);

void list_page(benchmark::State& state) {
  BenchStore store;
  fill(store);
  for (auto _ : state) {
    std::vector<Corvan::SessionInfo> page;
    store->get_session_list_by_page({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, 0, 20, page);
    if (page.size() != 20) throw std::runtime_error("not a full page");
  }
}
BENCHMARK(list_page);

}  // namespace

int main(int argc, char** argv) {
  benchmark::AddCustomContext("sqlite", sqlite3_libversion());
  benchmark::AddCustomContext("stores in", std::filesystem::temp_directory_path().string());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
