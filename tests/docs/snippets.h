// The C++ snippets of docs/guide.md as functions; CMakeLists.txt generates the unit that defines
// them.

#ifndef TESTS_DOCS_SNIPPETS_H_
#define TESTS_DOCS_SNIPPETS_H_

#include <ostream>
#include <string>
#include <vector>

namespace Corvan {
class CvDbSingleton;
}

namespace corvan_test {

struct Snippet {
  int line;          // of the guide, where its text begins
  std::string text;  // as the guide has it
  void (*run)(Corvan::CvDbSingleton* store);
};

inline void PrintTo(const Snippet& snippet, std::ostream* out) {
  *out << "docs/guide.md:" << snippet.line;
}

// In the order of the guide.
std::vector<Snippet> guide_snippets();

}  // namespace corvan_test

#endif  // TESTS_DOCS_SNIPPETS_H_
