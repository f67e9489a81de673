// A store with temporary copies around it that a killed process may have left behind.

#ifndef TESTS_TOOLS_ABANDONED_COPIES_H_
#define TESTS_TOOLS_ABANDONED_COPIES_H_

#include <filesystem>
#include <string>

#include "tests/tools/hostile_files.h"

namespace corvan_test {

class AbandonedCopyTest : public HostileFilesTest {
 protected:
  // Creates a temporary folder with a file in it.
  std::string make_copy(const std::string& name) const {
    std::string path = copies() + "/" + name;
    std::filesystem::create_directory(path);
    write_file(path + "/corvan", "messages");
    return path;
  }
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_ABANDONED_COPIES_H_
