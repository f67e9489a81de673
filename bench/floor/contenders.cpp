#include "bench/floor/contenders.h"

#include <array>

#include "bench/floor/direct.h"
#include "bench/floor/fixture.h"
#include "bench/floor/floor.h"
#include "bench/support/store_module.h"

namespace corvan_bench {

namespace {

template <typename Statements>
struct FloorHolder {
  explicit FloorHolder(const std::string& folder) : floor(folder + "corvan", kUser) {}
  Floor<Statements> floor;
};

template <typename Statements>
class FloorContender final : private FloorHolder<Statements>, public Direct<Floor<Statements>> {
 public:
  explicit FloorContender(const std::string& folder)
      : FloorHolder<Statements>(folder), Direct<Floor<Statements>>(this->floor) {}

  void run(const std::string& sql) override { this->floor.run(sql.c_str()); }
};

constexpr std::array kInModules = {Kind::kCachedStore, Kind::kBuiltStore, Kind::kBuiltCachedStore};

// The module of a contender that is not in the program; empty if it was not built.
std::string file_of(Kind kind) {
  switch (kind) {
    case Kind::kCachedStore:
      return module_file("floor_db_cached", ModuleSqlite::kInstalled);
    case Kind::kBuiltStore:
      return module_file("floor_db", ModuleSqlite::kBuilt);
    case Kind::kBuiltCachedStore:
      return module_file("floor_db_cached", ModuleSqlite::kBuilt);
    default:
      return "";
  }
}

std::unique_ptr<Contender> make_from_module(Kind kind, const std::string& folder) {
  const StoreModule module(file_of(kind));
  auto* const make = module.maker<Contender*(const std::string&)>();
  return std::unique_ptr<Contender>(make(folder));
}

}  // namespace

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kStore:
      return "store";
    case Kind::kFloor:
      return "floor";
    case Kind::kCachedFloor:
      return "floor, statements kept";
    case Kind::kCachedStore:
      return "db_cached";
    case Kind::kBuiltStore:
      return "db, built SQLite";
    case Kind::kBuiltCachedStore:
      return "db_cached, built SQLite";
  }
  return "";
}

std::vector<Kind> contenders() {
  std::vector<Kind> all = {Kind::kStore, Kind::kFloor, Kind::kCachedFloor};
  for (const Kind kind : kInModules) {
    if (!file_of(kind).empty()) all.push_back(kind);
  }
  return all;
}

std::unique_ptr<Contender> make_contender(Kind kind, const std::string& folder) {
  switch (kind) {
    case Kind::kStore:
      return make_store_contender(folder);
    case Kind::kFloor:
      return std::make_unique<FloorContender<PreparedEachTime>>(folder);
    case Kind::kCachedFloor:
      return std::make_unique<FloorContender<PreparedOnce>>(folder);
    default:
      return make_from_module(kind, folder);
  }
}

LinkedSqlite sqlite_of(Kind kind) {
  const std::string file = file_of(kind);
  return file.empty() ? linked_sqlite() : StoreModule(file).sqlite();
}

void print_contenders(Report& report) {
  std::vector<Report::Row> rows;
  for (const Kind kind : contenders()) {
    rows.push_back({name_of(kind), "SQLite " + sqlite_of(kind).version});
  }
  for (const Kind kind : kInModules) {
    if (file_of(kind).empty()) rows.push_back({name_of(kind), "LEFT OUT: not built"});
  }
  report.table("Contenders", {"contender", "on"}, rows);
}

}  // namespace corvan_bench
