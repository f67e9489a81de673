#include "bench/support/bench_store.h"

#include <stdexcept>

namespace corvan_bench {

using Corvan::CvDbSingleton;

BenchStore* BenchStore::open_store_ = nullptr;

void BenchStore::open() {
  if (open_store_ != nullptr) throw std::logic_error("another store is open");
  const cvrtc::Pathname folder(folder_.path());
  if (!CvDbSingleton::get_instance()->init_open_db(folder, "", "me")) {
    throw std::runtime_error("the store cannot be opened");
  }
  open_store_ = this;
}

void BenchStore::close() {
  if (open_store_ != this) return;
  open_store_ = nullptr;
  CvDbSingleton::get_instance()->close_db();
}

void BenchStore::replace_indexes(const std::map<std::string, std::string>& replaced) const {
  std::string script;
  for (const auto& [name, sql] : replaced) {
    script += "drop index if exists " + name + ";" + sql + ";";
  }
  corvan_test::plant(file(), script);
}

double BenchStore::number(const std::string& sql) const {
  return std::stod(corvan_test::rows(file(), sql).at(0));
}

}  // namespace corvan_bench
