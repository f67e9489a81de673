// Letter case as SQL compares names: only A to Z have two cases.

#ifndef TOOLS_UI_LETTER_CASE_H_
#define TOOLS_UI_LETTER_CASE_H_

#include <algorithm>
#include <string>

namespace corvan_tool {

inline char lower_case(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lower_case(c); });
  return text;
}

}  // namespace corvan_tool

#endif  // TOOLS_UI_LETTER_CASE_H_
