#ifndef TESTS_SUPPORT_PLAIN_TEXT_H_
#define TESTS_SUPPORT_PLAIN_TEXT_H_

#include <string>

namespace corvan_test {

// Whether a part of a store that is not encrypted is in these bytes: the beginning of its file, its
// schema, or the kind that most messages of the tests have.
bool has_plain_text(const std::string& bytes);

// If the stores are encrypted, the names of the files in this folder that have plain text, each
// after a blank. Empty if there is none.
std::string files_with_plain_text(const std::string& folder);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_PLAIN_TEXT_H_
