#include "tests/addons/search/search_run.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tests/addons/search/search_fixture.h"
#include "tests/support/rows.h"

namespace corvan_test {

using Corvan::MessageResponse;
using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchProgress;
using Corvan::SearchStatus;
using Corvan::SearchWork;
using std::chrono::microseconds;

namespace {

constexpr std::size_t kShownSteps = 25;

std::string failed(const char* call, SearchStatus status) {
  return std::string(call) + ": status " + std::to_string(static_cast<int>(status));
}

std::string limits_of(const SearchOptions& options) {
  std::string text = " limit " + std::to_string(options.limit) + ", time limit " +
                     std::to_string(options.time_limit.count()) + ", catch_up " +
                     std::to_string(options.catch_up.count());
  if (options.session_id) text += ", in " + *options.session_id;
  if (options.sender) text += ", from " + *options.sender;
  for (const auto type : options.session_types) text += ", type " + std::to_string(type);
  for (const auto& name : options.object_names) text += ", kind " + name;
  return text + ", times from " + std::to_string(options.from_time) + " to " +
         std::to_string(options.to_time);
}

}  // namespace

SearchRun::SearchRun(std::string folder, uint64_t seed)
    : folder_(std::move(folder)),
      file_(folder_ + "corvan"),
      words_(seed),
      search_(std::make_unique<MessageSearch>(cvrtc::Pathname(folder_))) {}

SearchRun::~SearchRun() = default;

const std::vector<SearchRun::Choice>& SearchRun::choices() {
  static const std::vector<Choice> list = {
      {30, "save_one", &SearchRun::save_one},
      {10, "save_batch", &SearchRun::save_batch},
      {5, "complete_own", &SearchRun::complete_own},
      {5, "move_time", &SearchRun::move_time},
      {8, "edit", &SearchRun::edit},
      {6, "edit_unannounced", &SearchRun::edit_unannounced},
      {8, "remove_some", &SearchRun::remove_some},
      {2, "remove_by_uids", &SearchRun::remove_by_uids},
      {1, "clear_room", &SearchRun::clear_room},
      {1, "clear_old", &SearchRun::clear_old},
      {2, "skip_ids", &SearchRun::skip_ids},
      {1, "reopen_store", &SearchRun::reopen_store},
      {2, "reopen_search", &SearchRun::reopen_search},
      {15, "catch_up", &SearchRun::catch_up},
      {12, "sweep", &SearchRun::sweep},
      {25, "find", &SearchRun::find},
      {8, "find_in_pages", &SearchRun::find_in_pages},
      {5, "look_at_progress", &SearchRun::look_at_progress},
  };
  return list;
}

const SearchRun::Choice& SearchRun::choose() {
  static const std::size_t sum = [] {
    std::size_t all = 0;
    for (const Choice& choice : choices()) all += choice.weight;
    return all;
  }();
  std::size_t at = words_.below(sum);
  for (const Choice& choice : choices()) {
    if (at < choice.weight) return choice;
    at -= choice.weight;
  }
  return choices().back();
}

std::string SearchRun::run(std::size_t steps) {
  std::string wrong;
  for (std::size_t i = 0; i < steps && wrong.empty(); ++i) {
    ++step_;
    const Choice& choice = choose();
    history_.emplace_back(choice.name);
    wrong = (this->*choice.step)();
    if (wrong.empty() && words_.one_in(2)) wrong = find();
  }
  if (wrong.empty()) wrong = finish();
  if (wrong.empty()) return wrong;
  wrong += "\nafter step " + std::to_string(step_) + ":";
  const std::size_t first = history_.size() - std::min(history_.size(), kShownSteps);
  for (std::size_t i = first; i < history_.size(); ++i) wrong += "\n  " + history_[i];
  return wrong;
}

// Whatever happened: nothing is missed after a whole pass, and the next pass finds nothing to mend.
std::string SearchRun::finish() {
  history_.emplace_back("finish");
  std::string wrong = mend_all(*search_);
  if (wrong.empty()) wrong = compare(*search_, Truth(file_), all_queries());
  if (!wrong.empty()) return wrong;
  const SearchWork again = search_->sweep(std::chrono::minutes(1));
  if (again.mended != 0) return "a second pass mended " + std::to_string(again.mended);
  return "";
}

// ---- The store ----------------------------------------------------------------------------------

int64_t SearchRun::time() {
  return static_cast<int64_t>(1 + words_.below(words_.one_in(3) ? 5 : 2000));
}

int64_t SearchRun::some_id() {
  const Rows ids = rows(file_, "select id from t_message");
  return ids.empty() ? 1 : std::stoll(ids[words_.below(ids.size())]);
}

std::string SearchRun::save_one() {
  Sent message{words_.text(), time(), room(), room_kind(), kind(), user()};
  if (words_.one_in(4)) message.server_uid = "s" + std::to_string(next_uid_++);
  return save(message) > 0 ? "" : "the store did not save";
}

std::string SearchRun::save_batch() {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  const std::size_t count = 1 + words_.below(words_.one_in(5) ? 150 : 20);
  for (std::size_t i = 0; i < count; ++i) {
    auto m = std::make_unique<MessageResponse>();
    m->session_id_ = room();
    m->session_type_ = room_kind();
    m->object_name_ = kind();
    m->sender_ = user();
    m->content_ = words_.text();
    m->sent_time_ = time();
    m->msg_id_ = -1;
    m->is_store_ = true;
    m->is_receive_ = true;
    batch.push_back(std::move(m));
  }
  const bool grouped = words_.one_in(2) && the_store().start_transaction();
  const bool saved = the_store().save_message(batch);
  if (grouped && !the_store().commit_transaction()) return "the store did not commit";
  return saved ? "" : "the store did not save";
}

// An own message, and its echo with the server's time.
std::string SearchRun::complete_own() {
  Sent own{words_.text(), time(), room(), room_kind(), kind(), "me"};
  own.client_uid = next_uid_++;
  const int64_t id = save(own);
  if (words_.one_in(2)) search_->catch_up(microseconds(1));
  own.time = time();
  own.server_uid = "s" + std::to_string(next_uid_++);
  // The store returns the lower half of the id.
  const bool is_same = static_cast<int32_t>(save(own)) == static_cast<int32_t>(id);
  return is_same ? "" : "the store did not complete the message";
}

std::string SearchRun::move_time() {
  the_store().set_send_time(some_id(), time(), "s" + std::to_string(next_uid_++), room(),
                            room_kind(), 0);
  return "";
}

void SearchRun::change_text(int64_t id) {
  the_store().set_message_content(id, words_.text(), words_.one_in(3) ? kind() : "");
}

std::string SearchRun::edit() {
  const int64_t id = some_id();
  change_text(id);
  const SearchStatus status = search_->changed(id);
  edited_.erase(id);
  return status == SearchStatus::kOk ? "" : failed("changed", status);
}

std::string SearchRun::edit_unannounced() {
  const int64_t id = some_id();
  change_text(id);
  edited_[id] = step_;
  return "";
}

std::string SearchRun::remove_some() {
  std::vector<int64_t> ids;
  for (std::size_t i = 1 + words_.below(4); i > 0; --i) ids.push_back(some_id());
  if (!the_store().delete_message(ids)) return "the store did not delete";
  if (words_.one_in(2)) return "";
  for (const int64_t id : ids) {
    const SearchStatus status = search_->changed(id);
    if (status != SearchStatus::kOk) return failed("changed", status);
  }
  return "";
}

std::string SearchRun::remove_by_uids() {
  const Rows uids = rows(file_, "select server_uid from t_message where server_uid<>'' limit 3");
  the_store().delete_message(room(), room_kind(), uids);
  return "";
}

std::string SearchRun::clear_room() {
  the_store().clear_message(room(), room_kind(), words_.one_in(2));
  return "";
}

std::string SearchRun::clear_old() {
  the_store().clear_message_by_timestamp(time() / 4, words_.one_in(2));
  return "";
}

// As if many messages had been saved and deleted: the next ids are in another part of the index.
std::string SearchRun::skip_ids() {
  constexpr int64_t kSteps[] = {200, 4000, 4096, 60000, 131072, 300000, int64_t{1} << 33};
  const int64_t step = kSteps[words_.below(words_.one_in(10) ? 7 : 6)];
  plant(file_,
        "update sqlite_sequence set seq=seq+" + std::to_string(step) + " where name='t_message'");
  return "";
}

std::string SearchRun::reopen_store() {
  search_.reset();
  the_store().close_db();
  const bool opened = open_store_in(folder_);
  search_ = std::make_unique<MessageSearch>(cvrtc::Pathname(folder_));
  return opened ? "" : "the store did not open";
}

std::string SearchRun::reopen_search() {
  search_.reset();
  search_ = std::make_unique<MessageSearch>(cvrtc::Pathname(folder_));
  if (words_.one_in(2)) return "";
  const SearchStatus status = search_->open();
  return status == SearchStatus::kOk ? "" : failed("open", status);
}

// ---- The search ---------------------------------------------------------------------------------

std::string SearchRun::catch_up() {
  const bool all = words_.one_in(2);
  const SearchWork work = search_->catch_up(all ? microseconds(std::chrono::minutes(1))
                                                : microseconds(words_.below(50)));
  if (work.status != SearchStatus::kOk) return failed("catch_up", work.status);
  if (all && !work.complete) return "catch_up is not complete after a minute";
  if (!work.complete) return "";
  const SearchProgress progress = search_->progress();
  return progress.waiting == 0 ? "" : "messages wait after catch_up";
}

std::string SearchRun::sweep() {
  const bool all = words_.one_in(2);
  if (!sweeping_) pass_began_ = step_;
  sweeping_ = true;
  const SearchWork work =
      search_->sweep(all ? microseconds(std::chrono::minutes(1)) : microseconds(words_.below(50)));
  if (work.status != SearchStatus::kOk) return failed("sweep", work.status);
  if (all && !work.complete) return "sweep is not complete after a minute";
  if (!work.complete) return "";
  sweeping_ = false;
  for (auto at = edited_.begin(); at != edited_.end();) {
    at = at->second < pass_began_ ? edited_.erase(at) : std::next(at);
  }
  return "";
}

SearchOptions SearchRun::options() {
  SearchOptions options;
  if (words_.one_in(3)) options.session_id = room();
  if (words_.one_in(4)) options.session_types = {room_kind()};
  if (words_.one_in(8)) options.session_types.push_back(room_kind());
  if (words_.one_in(4)) options.object_names = {kind()};
  if (words_.one_in(8)) options.object_names.emplace_back("CV:None");
  if (words_.one_in(4)) options.sender = user();
  if (words_.one_in(4)) options.from_time = time();
  if (words_.one_in(4)) options.to_time = std::max(options.from_time, time());
  constexpr int32_t kLimits[] = {1, 3, 20, 1000000};
  options.limit = kLimits[words_.below(4)];
  if (words_.one_in(4)) options.time_limit = microseconds(1 + words_.below(2000));
  if (words_.one_in(4)) options.catch_up = microseconds(1 + words_.below(1000));
  return options;
}

Ids SearchRun::unannounced() const {
  Ids ids;
  for (const auto& edited : edited_) ids.insert(edited.first);
  return ids;
}

std::string SearchRun::find() {
  const SearchOptions some = options();
  std::string wrong = compare(*search_, Truth(file_), words_.query(), some, unannounced());
  return wrong.empty() ? "" : wrong + "\n with" + limits_of(some);
}

// Pages of any size, and however short the time is, give the same list as one call. Messages whose
// edits were not announced may be in any of them.
std::string SearchRun::find_in_pages() {
  const std::string query = words_.query();
  SearchOptions some = options();
  some.catch_up = microseconds(0);
  some.time_limit = microseconds(0);
  some.limit = 1000000;
  const auto certain = [&] {
    Pages pages = find_all(*search_, query, some);
    const auto is_edited = [this](const auto& hit) { return edited_.count(hit.second) != 0; };
    pages.hits.erase(std::remove_if(pages.hits.begin(), pages.hits.end(), is_edited),
                     pages.hits.end());
    return pages;
  };
  const Pages whole = certain();
  for (const int32_t limit : {1, 3, 20}) {
    for (const microseconds time_limit : {microseconds(0), microseconds(1)}) {
      some.limit = limit;
      some.time_limit = time_limit;
      const Pages pages = certain();
      if (pages.hits == whole.hits && pages.fault == whole.fault) continue;
      return "pages of \"" + query + "\" differ: " + pages.fault + "\n with" + limits_of(some);
    }
  }
  return "";
}

std::string SearchRun::look_at_progress() {
  const SearchProgress progress = search_->progress();
  if (progress.status != SearchStatus::kOk) return failed("progress", progress.status);
  const auto stored = static_cast<int64_t>(Truth(file_).messages().size());
  if (progress.indexed < 0 || progress.waiting < 0) return "progress is negative";
  if (progress.indexed + progress.waiting < stored) return "progress leaves out messages";
  const bool swept = progress.swept >= 0 && progress.swept <= 1;
  return swept ? "" : "progress: swept " + std::to_string(progress.swept);
}

}  // namespace corvan_test
