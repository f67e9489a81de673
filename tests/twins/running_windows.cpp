#include <process.h>

#include "tests/twins/running.h"

namespace corvan_test {

int run_program(const std::string& program, const std::vector<std::string>& arguments) {
  std::vector<std::string> words{'"' + program + '"'};
  for (const std::string& argument : arguments) words.push_back('"' + argument + '"');
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  pointers.push_back(nullptr);
  return static_cast<int>(_spawnv(_P_WAIT, program.c_str(), pointers.data()));
}

}  // namespace corvan_test
