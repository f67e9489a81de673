#ifndef BENCH_SUPPORT_BENCH_STORE_H_
#define BENCH_SUPPORT_BENCH_STORE_H_

#include <map>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

// A store in a temporary folder, initially closed. Only one can be open at a time.
class BenchStore {
 public:
  BenchStore() = default;
  BenchStore(const BenchStore&) = delete;
  BenchStore& operator=(const BenchStore&) = delete;
  ~BenchStore() { close(); }

  // Throws std::runtime_error if it cannot be opened, std::logic_error if another one is open.
  void open();
  void close();

  // Changes the indexes of the new, closed store: `replaced` maps an index's name to its statement;
  // an empty statement drops the index.
  void replace_indexes(const std::map<std::string, std::string>& replaced) const;

  Corvan::CvDbSingleton* operator->() const { return Corvan::CvDbSingleton::get_instance(); }
  std::string file() const { return folder_.file("corvan"); }
  // The first column of a query's only row, read through a separate connection.
  double number(const std::string& sql) const;

 private:
  static BenchStore* open_store_;

  corvan_test::TemporaryFolder folder_;
};

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_BENCH_STORE_H_
