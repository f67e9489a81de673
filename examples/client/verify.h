// The last step of the example: the tool looks at the stores that it left.

#ifndef EXAMPLES_CLIENT_VERIFY_H_
#define EXAMPLES_CLIENT_VERIFY_H_

#include <string>

namespace example {

// Runs `tool verify folder` and prints its answer, below each line what it means. True when the
// tool found the store sound and every line could be explained.
bool verify(const std::string& tool, const std::string& folder);

}  // namespace example

#endif  // EXAMPLES_CLIENT_VERIFY_H_
