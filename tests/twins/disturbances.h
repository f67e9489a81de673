// What happens between the operations of a sequence: changes by another program, settings, texts of
// the host, damage.

#ifndef TESTS_TWINS_DISTURBANCES_H_
#define TESTS_TWINS_DISTURBANCES_H_

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/twins/outside.h"

namespace corvan_test {

class Disturbances {
 public:
  Disturbances(std::string folder, uint64_t seed);

  // Makes one at random. Returns what it was and what it returned. The store is opened again only
  // for `user`, the model's: for another one the model would not close it, and its connection would
  // leak.
  std::string one(const std::string& user);

  // Ends the other program: its locks are released.
  void end();

 private:
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  std::string of(std::initializer_list<const char*> values) {
    return *(values.begin() + below(values.size()));
  }
  std::string table() { return of({"t_message", "t_session", "t_session", "t_sync"}); }

  // A statement of the other program, and one of the host on the store's connection.
  std::string outside(const std::string& sql);
  std::string inside(const std::string& sql);
  std::string inside_all(const std::vector<std::string>& texts);
  std::string either(const std::string& sql) { return below(2) == 0 ? outside(sql) : inside(sql); }

  std::string change_tables();
  std::string create_what_is_missing();
  std::string use_own_table();
  std::string change_indexes();
  std::string refuse_or_allow();
  std::string lock_or_unlock();
  std::string fill_or_free_the_disk();
  std::string set();
  std::string run_text_of_host();
  std::string use_a_text_twice();
  std::string look_into_the_file();
  std::string copy_older_store();
  std::string reopen();
  std::string damage();

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }

  std::string folder_;
  std::string user_;
  std::mt19937_64 random_;
  std::unique_ptr<Outside> other_;  // opened at its first use
};

}  // namespace corvan_test

#endif  // TESTS_TWINS_DISTURBANCES_H_
