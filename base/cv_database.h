// The schema provider: what a new store file is created with.

#ifndef BASE_CV_DATABASE_H_
#define BASE_CV_DATABASE_H_

#include <map>
#include <string>

namespace Corvan {

class CvDatabase {
 public:
  // The schema, one complete SQL statement an entry, under the name of what it creates. Run in key
  // order: each table comes before its indexes, and the version row last, so that a file whose
  // creation was cut short is taken for new again. Running all of it on a complete file of this
  // schema changes nothing.
  static std::map<std::string, std::string> table_index();
};

}  // namespace Corvan

#endif  // BASE_CV_DATABASE_H_
