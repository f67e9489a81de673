/// @file
/// The schema provider: the statements that create a new store file.

#ifndef BASE_CV_DATABASE_H_
#define BASE_CV_DATABASE_H_

#include <map>
#include <string>

namespace Corvan {

/// The schema provider.
class CvDatabase {
 public:
  /// The schema: one complete SQL statement per entry, under the name of what it creates. Run the
  /// statements in key order: each table comes before its indexes. The version row comes last, so
  /// that a file whose creation was interrupted counts as new again. Running all statements on a
  /// file that has the whole schema changes nothing.
  static std::map<std::string, std::string> table_index();
};

}  // namespace Corvan

#endif  // BASE_CV_DATABASE_H_
