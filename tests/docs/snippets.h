// The C++ snippets of docs/guide.md and docs/search.md as functions; CMakeLists.txt generates the
// units that define them.

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
  std::string document;
  int line;          // of the document, where its text begins
  std::string text;  // as the document has it
  void (*run)(Corvan::CvDbSingleton* store);
};

inline void PrintTo(const Snippet& snippet, std::ostream* out) {
  *out << snippet.document << ":" << snippet.line;
}

// In the order of the document.
std::vector<Snippet> guide_snippets();
std::vector<Snippet> search_snippets();

}  // namespace corvan_test

#endif  // TESTS_DOCS_SNIPPETS_H_
