#include <cstdlib>

#include "tests/twins/running.h"

namespace corvan_test {

// The program can be an emulator with its arguments.
int run_program(const std::string& program, const std::vector<std::string>& arguments) {
  std::string command = program;
  for (const std::string& argument : arguments) command += " '" + argument + "'";
  return std::system(command.c_str());
}

}  // namespace corvan_test
