#include "bench/encryption/workload.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;

constexpr int kBatch = 1000;
constexpr int kTen = 10;
constexpr int kDeep = 40;

void save_batch(KeyedStore& store, const KeyedStore::Messages& messages) {
  store.begin();
  store.save_batch(messages);
  store.commit();
}

void save_ten(KeyedStore& store, const Feed& feed, int call) {
  store.begin();
  for (int i = 0; i < kTen; ++i) {
    store.save(feed.made(static_cast<std::size_t>(kTen * call + i)));
  }
  store.commit();
}

}  // namespace

Feed::Feed(const Sizes& sizes)
    : sizes_(sizes), stream_(20240301, sizes.conversations, /*burst=*/4) {}

// In batches and with a large cache, which is faster and leaves the trees as single saves would.
void Feed::fill(KeyedStore& store) {
  store.run("pragma cache_size=-1000000");
  while (count_ < sizes_.messages) {
    make(kBatch);
    remember(made_);
    save_batch(store, made_);
  }
  store.run(
      "insert into t_session(session_id,session_type,session_time,latest_id,unread_count) select "
      "session_id,session_type,max(sent_time),max(id),sum(direction) from t_message group by "
      "session_id,session_type order by min(id)");
}

void Feed::skip() {
  while (count_ < sizes_.messages) {
    make(kBatch);
    remember(made_);
  }
}

void Feed::make(int messages) {
  made_ = stream_.batch(messages);
}

// The ids of a new store are the numbers of its messages.
void Feed::remember(const KeyedStore::Messages& batch) {
  for (const auto& message : batch) {
    ++count_;
    if (++lengths_[message->session_id_] <= kDeep || message->is_receive_) continue;
    stored_.push_back(*message);
    stored_.back().msg_id_ = count_;
  }
}

// A large step, so that consecutive numbers give messages of different conversations.
const MessageResponse& Feed::stored(int number) const {
  constexpr std::size_t kStep = 7919;  // a prime
  return stored_.at(static_cast<std::size_t>(number) * kStep % stored_.size());
}

std::vector<Work> works() {
  return {
      {kHistory, 10, 0,
       [](KeyedStore& store, const Feed& feed, int call) {
         store.read_history(feed.stored(call));
       }},
      {kHistoryAgain, 10, 0,
       [](KeyedStore& store, const Feed& feed, int) { store.read_history(feed.stored(1)); }},
      {kList, 10, 0, [](KeyedStore& store, const Feed&, int) { store.read_list(); }},
      {kUnread, 10, 0, [](KeyedStore& store, const Feed&, int) { store.count_unread(); }},
      {kFind, 10, 0,
       [](KeyedStore& store, const Feed& feed, int call) { store.find(feed.stored(call)); }},
      {kSave, 20, 1,
       [](KeyedStore& store, const Feed& feed, int call) {
         store.save(feed.made(static_cast<std::size_t>(call)));
       }},
      {kSaveTen, 4, kTen, save_ten},
      {kSaveBatch, 1, kBatch,
       [](KeyedStore& store, const Feed& feed, int) { save_batch(store, feed.made()); }},
  };
}

void run_work(const Work& work, KeyedStore& store, Feed& feed, int round,
              const std::function<void(const std::function<void()>&)>& measure) {
  if (!work.reads()) feed.make(work.calls * work.messages);
  measure([&] {
    // Reads of each round look for other messages; saves have new ones.
    const int first = work.reads() ? round * work.calls : 0;
    for (int i = 0; i < work.calls; ++i) work.call(store, feed, first + i);
  });
}

}  // namespace corvan_bench
