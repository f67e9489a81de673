/// @file
/// Text helpers of the client library that the store uses.

#ifndef BASE_CV_UTILS_H_
#define BASE_CV_UTILS_H_

#include <string>

namespace Corvan {

/// Text helpers.
class CvUtils {
 public:
  /// Replaces every occurrence of `from` in `text` by `to`, from left to right. Inserted text is
  /// not searched again. An empty `from` changes nothing. `from` and `to` must not be `text`
  /// itself.
  static void string_replace(std::string& text, const std::string& from, const std::string& to);
};

}  // namespace Corvan

#endif  // BASE_CV_UTILS_H_
