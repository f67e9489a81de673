#include <exception>

#include "db/cv_db_singleton.h"
#include "tests/damage/child.h"

namespace corvan_test {

// There is no fork(): works in this process, so a crash ends the program and all of its tests.
Ended in_child(const std::function<void(Outcome&)>& work) {
  Ended ended;
  try {
    work(ended.outcome);
  } catch (const std::exception& error) {
    complain(ended.outcome, std::string("exception: ") + error.what());
  }
  Corvan::CvDbSingleton::delete_instance();
  return ended;
}

}  // namespace corvan_test
