// One operation: picks its arguments and runs it in the store and in the model.

#ifndef TESTS_MODEL_STEP_H_
#define TESTS_MODEL_STEP_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <limits>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/model/model.h"
#include "tests/model/second_connection.h"
#include "tests/model/values.h"
#include "tests/support/numbers.h"

namespace corvan_test {

class Step {
 public:
  // `number` seeds all picks; `folder` holds the store's file, which `second` is connected to.
  Step(Corvan::CvDbSingleton& store, Model& model, SecondConnection& second,
       const std::string& folder, uint64_t number);

  // Runs the operation in both, each with its own copy of the arguments.
  template <typename Call, typename... Args>
  void both(const char* name, Call call, const std::tuple<Args...>& args) {
    call_ = [name, args] { return std::string(name) + "(" + text(args) + ")"; };
    auto actual = outcome(store_, call, args);
    auto expected = outcome(model_, call, args);
    agrees_ = same(actual, expected);
    actual_ = [actual = std::move(actual)] { return text(actual); };
    expected_ = [expected = std::move(expected)] { return text(expected); };
  }

  // Add rows through the second connection, unless the store has a transaction open.
  void plant_messages();
  void plant_session();
  void plant_page();

  void open(const std::string& user);
  void close();
  void set_time();

  // The operation with its arguments.
  std::string call() const { return call_(); }

  // Whether both returned the same result and left the same arguments; what the store and the model
  // returned and left.
  bool agrees() const { return agrees_; }
  std::string actual() const { return actual_(); }
  std::string expected() const { return expected_(); }

  // Picks

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool one_in(std::size_t count) { return below(count) == 0; }
  bool flag() { return one_in(2); }
  template <typename Value>
  Value of(std::initializer_list<Value> values) {
    return *(values.begin() + below(values.size()));
  }
  template <typename Pick>
  auto some(Pick pick) {
    std::vector<decltype(pick())> values;
    for (std::size_t left = below(5); left > 0; --left) {
      values.push_back(pick());
      if (one_in(4)) values.push_back(values.back());
    }
    return values;
  }

  // Mostly the conversation that the operation is about.
  std::string room() { return one_in(5) ? any_room() : room_; }
  Corvan::SessionType kind() { return one_in(5) ? any_kind() : kind_; }
  int32_t kind_number() { return kind(); }
  std::vector<Corvan::SessionType> kinds() {
    return some([this] { return kind(); });
  }
  // Kinds for a list in which the order of the rows is defined.
  std::vector<Corvan::SessionType> listed_kinds();
  std::string kind_list();

  int64_t id();
  int64_t planted_id();
  std::vector<int64_t> ids() {
    return some([this] { return id(); });
  }
  std::string id_list();

  int64_t time();
  // The time of a message to save; the store uses the clock if it is below 1.
  int64_t new_time() { return one_in(3) ? of({int64_t{0}, int64_t{-1}}) : time(); }
  // In half of the cases the conversation's receipt time or the one after it.
  int64_t receipt_time();
  int64_t cursor();
  std::string server_uid();
  // A list of server uids as a caller pastes it, correctly quoted or not.
  std::string server_uid_list();
  int64_t client_uid() { return like_ ? like_->client_uid : of({0, 0, -1, 1, 1, 2, 2}); }
  std::string sender();
  std::string object_name();
  std::string body();
  std::string user();
  int32_t code() {
    if (one_in(8)) return of({kMaxInt, kMinInt, -1, 9});
    return of({0, 0, 1, 2, 3});
  }
  int32_t count() { return of({0, 1, 1, 2, 3, 3, 1000000, -1, kMaxInt, kMinInt}); }
  // A stored integer, sometimes above 32 bits.
  int64_t wide(std::initializer_list<int64_t> values) {
    return one_in(6)
               ? of({kWide, kWide, kWide + 1, int64_t{kMaxInt}, int64_t{kMinInt}, int64_t{-1}})
               : of(values);
  }

  Corvan::MessageResponse message();
  std::vector<Corvan::MessageResponse> messages() {
    if (!one_in(4)) return {};
    return some([this] { return message(); });
  }
  Corvan::Session session();
  std::vector<Corvan::Session> sessions() {
    if (!one_in(3)) return {};
    return some([this] { return session(); });
  }
  Corvan::SessionInfo session_info();
  Corvan::UpdateValue update();
  std::vector<Corvan::UpdateValue> updates() {
    return some([this] { return update(); });
  }

  Model& model() { return model_; }
  uint64_t number() const { return number_; }

 private:
  std::string any_room();
  Corvan::SessionType any_kind();
  void choose_conversation();

  // A stored row, preferably of the conversation; null if there is none.
  const MessageRow* stored_message();
  const SessionRow* stored_session();
  // The row of the conversation, or null.
  const SessionRow* own_session() const;

  void plant(const char* name, const std::vector<MessageRow>& messages,
             const std::vector<SessionRow>& sessions);

  // The result, if there is one, and all arguments after the call.
  template <typename Target, typename Call, typename... Args>
  static auto outcome(Target& target, Call call, std::tuple<Args...> args) {
    using Result = decltype(call(target, std::declval<Args&>()...));
    if constexpr (std::is_void_v<Result>) {
      std::apply([&](auto&... each) { call(target, each...); }, args);
      return args;
    } else {
      Result result = std::apply([&](auto&... each) { return call(target, each...); }, args);
      return std::tuple_cat(std::tuple(std::move(result)), std::move(args));
    }
  }

  void tell(std::string call) {
    call_ = [call = std::move(call)] { return call; };
  }

  Corvan::CvDbSingleton& store_;
  Model& model_;
  SecondConnection& second_;
  const std::string& folder_;
  const uint64_t number_;
  std::mt19937_64 random_;
  std::string room_;
  Corvan::SessionType kind_ = Corvan::SessionType(0);
  std::optional<MessageRow> like_;  // a stored message that the operation takes values from
  std::function<std::string()> call_ = [] { return std::string("no operation yet"); };
  bool agrees_ = true;
  std::function<std::string()> actual_ = [] { return std::string(); };
  std::function<std::string()> expected_ = actual_;
};

}  // namespace corvan_test

#endif  // TESTS_MODEL_STEP_H_
