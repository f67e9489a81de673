// The last step of the example: verifies the stores with the tool.

#ifndef EXAMPLES_CLIENT_VERIFY_H_
#define EXAMPLES_CLIENT_VERIFY_H_

#include <string>

namespace example {

// Runs `tool verify folder` and prints its output with an explanation below each line. Returns true
// if the tool found no problem and every line has an explanation.
bool verify(const std::string& tool, const std::string& folder);

}  // namespace example

#endif  // EXAMPLES_CLIENT_VERIFY_H_
