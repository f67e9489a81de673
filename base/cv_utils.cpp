#include "base/cv_utils.h"

#include <cstddef>

namespace Corvan {

void CvUtils::string_replace(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  std::size_t at = 0;
  while ((at = text.find(from, at)) != std::string::npos) {
    text.replace(at, from.size(), to);
    at += to.size();
  }
}

}  // namespace Corvan
