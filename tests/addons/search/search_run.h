// A random run: operations of the store and of the search, in any order. After each of them a
// search is compared with the truth.

#ifndef TESTS_ADDONS_SEARCH_SEARCH_RUN_H_
#define TESTS_ADDONS_SEARCH_SEARCH_RUN_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "addons/search/message_search.h"
#include "tests/addons/search/truth.h"
#include "tests/addons/search/vocabulary.h"

namespace corvan_test {

class SearchRun {
 public:
  // Works on the store in this folder, which is open.
  SearchRun(std::string folder, uint64_t seed);
  ~SearchRun();

  // Returns a complaint, with the steps before it, or an empty text.
  std::string run(std::size_t steps);

 private:
  using Step = std::string (SearchRun::*)();
  struct Choice {
    std::size_t weight;
    const char* name;
    Step step;
  };
  static const std::vector<Choice>& choices();

  const Choice& choose();
  std::string finish();

  // Each returns a complaint or an empty text.
  std::string save_one();
  std::string save_batch();
  std::string complete_own();
  std::string move_time();
  std::string edit();
  std::string edit_unannounced();
  std::string remove_some();
  std::string remove_by_uids();
  std::string clear_room();
  std::string clear_old();
  std::string skip_ids();
  std::string reopen_store();
  std::string reopen_search();
  std::string catch_up();
  std::string sweep();
  std::string find();
  std::string find_in_pages();
  std::string look_at_progress();

  int64_t some_id();
  std::string room() { return "room" + std::to_string(words_.below(4)); }
  Corvan::SessionType room_kind() { return static_cast<Corvan::SessionType>(1 + words_.below(3)); }
  std::string kind() { return words_.one_in(3) ? "CV:ImgMsg" : "CV:TxtMsg"; }
  std::string user() { return "u" + std::to_string(words_.below(3)); }
  int64_t time();
  Corvan::SearchOptions options();
  Ids unannounced() const;
  void change_text(int64_t id);

  std::string folder_;
  std::string file_;
  Vocabulary words_;
  std::unique_ptr<Corvan::MessageSearch> search_;
  std::vector<std::string> history_;
  int64_t next_uid_ = 1;
  std::size_t step_ = 0;
  std::map<int64_t, std::size_t>
      edited_;             // unannounced edits, and the steps at which they happened
  bool sweeping_ = false;  // whether a pass is under way, and when it began
  std::size_t pass_began_ = 0;
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_SEARCH_RUN_H_
