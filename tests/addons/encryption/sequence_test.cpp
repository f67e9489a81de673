// Random sequences of what a client can do with the keys of two stores, in every order, against a
// model that knows whether an opening must succeed.

#include <filesystem>
#include <optional>
#include <random>

#include "tests/addons/encryption/keys_fixture.h"
#include "tests/support/bounds.h"

namespace corvan_test {

namespace {

// What is known of a folder: nothing, that it is encrypted, or its key.
enum class Known { kNothing, kExpected, kKey };
// What its file holds.
enum class Stored { kNothing, kPlain, kEncrypted };

struct StoreModel {
  Known known = Known::kNothing;
  unsigned key = 0;
  Stored stored = Stored::kNothing;
  unsigned stored_key = 0;
  std::vector<std::string> saved;

  KeyRefusal refusal() const {
    if (known == Known::kExpected) return KeyRefusal::kNoKey;
    if (known == Known::kNothing) {
      return stored == Stored::kEncrypted ? KeyRefusal::kNoKey : KeyRefusal::kNone;
    }
    if (stored == Stored::kPlain) return KeyRefusal::kNotEncrypted;
    const bool is_wrong = stored == Stored::kEncrypted && key != stored_key;
    return is_wrong ? KeyRefusal::kWrongKey : KeyRefusal::kNone;
  }

  void note_opened() {
    if (stored != Stored::kNothing) return;
    stored = known == Known::kKey ? Stored::kEncrypted : Stored::kPlain;
    stored_key = key;
  }
};

class KeySequence : public Keys {
 protected:
  static constexpr int kUsers = 2;
  static constexpr unsigned kKeys = 3;

  void SetUp() override { CORVAN_NEED_CIPHER(); }

  void begin(uint64_t seed) {
    random_.seed(seed);
    for (int user = 0; user < kUsers; ++user) {
      std::filesystem::remove_all(place(user));
      std::filesystem::create_directory(place(user));
      models_[user] = StoreModel();
    }
    open_.reset();
    trace_ = "seed " + std::to_string(seed) + ":";
  }
  void end() {
    close();
    for (int user = 0; user < kUsers; ++user) StoreKeys::forget(path(place(user)));
  }

  void step() {
    const int user = static_cast<int>(random_() % kUsers);
    const auto action = random_() % 14;
    trace_ += " " + std::to_string(user) + "/" + std::to_string(action);
    act(user, models_[user], action);
    if (open_ == user || random_() % 4 == 0) check(user);
  }

  std::string trace_;

 private:
  std::string place(int user) const { return folder.path() + "user" + std::to_string(user) + "/"; }

  void act(int user, StoreModel& model, uint_fast64_t action) {
    switch (action) {
      case 0:
      case 1:
        return set_key(user, model, model.stored_key);
      case 2:
        return set_key(user, model, static_cast<unsigned>(random_() % kKeys));
      case 3:
        StoreKeys::clear(path(place(user)));
        if (model.known == Known::kKey) model.known = Known::kExpected;
        return;
      case 4:
        StoreKeys::forget(path(place(user)));
        model.known = Known::kNothing;
        return;
      case 5:
        EXPECT_TRUE(StoreKeys::expect(path(place(user))));
        if (model.known == Known::kNothing) model.known = Known::kExpected;
        return;
      case 6:
        EXPECT_TRUE(StoreKeys::install());
        return;
      case 7:
        close();
        open_.reset();
        return;
      case 8:
        return kill();
      case 9:
      case 10:
        return save_one();
      default:
        return open_user(user, model);
    }
  }

  void set_key(int user, StoreModel& model, unsigned number) {
    EXPECT_TRUE(StoreKeys::set(path(place(user)), key(number)));
    model.known = Known::kKey;
    model.key = number;
  }

  void open_user(int user, StoreModel& model) {
    open_.reset();
    close();
    Files before = files_in(place(user));
    const bool opened = open(place(user), std::to_string(user));
    const KeyRefusal expected = model.refusal();
    EXPECT_EQ(opened, expected == KeyRefusal::kNone) << trace_;
    if (!opened) {
      EXPECT_STREQ(to_text(StoreKeys::last_refusal()), to_text(expected)) << trace_;
      before["corvan"];  // it may have been created empty
      EXPECT_TRUE(files_in(place(user)) == before) << trace_;
      return;
    }
    open_ = user;
    model.note_opened();
    EXPECT_EQ(messages(), model.saved) << trace_;
  }

  void save_one() {
    if (!open_) return;
    EXPECT_TRUE(save(next_)) << trace_;
    models_[*open_].saved.push_back(text(next_++));
  }

  // The process that has the store open dies: its files stay as they are at this moment.
  void kill() {
    if (!open_) return;
    const Files files = files_in(place(*open_));
    close();
    put_files(place(*open_), files);
    open_.reset();
  }

  // Looks into a copy of the files with the right key, whatever the table knows.
  void check(int user) {
    const StoreModel& model = models_[user];
    const Files files = files_in(place(user));
    if (model.stored == Stored::kNothing) return;
    ASSERT_EQ(files.count("corvan"), 1U) << trace_;
    const TemporaryFolder copy;
    for (const auto& [name, content] : files)
      write_file(copy.file("copy" + name.substr(6)), content);
    const Connection connection(copy.file("copy"));
    if (model.stored == Stored::kEncrypted) {
      EXPECT_EQ(plaintext_below(place(user)), "") << trace_;
      EXPECT_EQ(StoreKeys::unlock(connection.get(), key(model.stored_key)), KeyRefusal::kNone);
    }
    EXPECT_EQ(connection.texts("select content from t_message order by id"), model.saved) << trace_;
  }

  std::mt19937_64 random_;
  StoreModel models_[kUsers];
  std::optional<int> open_;
  int next_ = 0;
};

TEST_F(KeySequence, AgreesWithModel) {
  const uint64_t first = setting("CORVAN_KEYS_SEED", 1);
  const uint64_t sequences = bound("CORVAN_KEYS_SEQUENCES", 12, 400);
  const uint64_t length = setting("CORVAN_KEYS_LENGTH", 120);
  const TimeLimit limit;
  for (uint64_t seed = first; seed < first + sequences || (limit.given() && !limit.passed());
       ++seed) {
    begin(seed);
    for (uint64_t i = 0; i < length && !HasFailure(); ++i) step();
    end();
    EXPECT_EQ(plaintext_elsewhere(), "");
    ASSERT_FALSE(HasFailure()) << trace_;
  }
  EXPECT_EQ(log.take().empty(), false);
}

}  // namespace

}  // namespace corvan_test
