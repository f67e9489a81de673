// Writes or prints a store. If builds for two systems print the same, they read the store alike.
//
// Usage: store_exchange write FOLDER         fills a new store in FOLDER and closes it
//        store_exchange write-open FOLDER    the same, but ends without closing it, so that the
//                                            write-ahead log stays
//        store_exchange print FOLDER OUTPUT  writes everything in the store to the file OUTPUT

#include <sqlite3.h>

#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/exchange/print.h"
#include "tests/exchange/write.h"

namespace {

using Corvan::CvDbSingleton;

CvDbSingleton& open_store(const std::string& folder, const std::string& user) {
  CvDbSingleton* store = CvDbSingleton::get_instance();
  if (!store->init_open_db(cvrtc::Pathname(folder + "/"), "", user) ||
      store->get_pragma("select 1") != 1) {
    throw std::runtime_error("cannot open the store in " + folder);
  }
  return *store;
}

void write(const std::string& folder) {
  std::filesystem::create_directories(std::filesystem::u8path(folder));
  if (!open_store(folder, "另一个").set_sync_time(5, true)) throw std::runtime_error("not written");
  CvDbSingleton::delete_instance();
  exchange::write_rows(open_store(folder, "我"));
}

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};

// The second connection is open before the store and until the end, so that neither takes over the
// other one's write-ahead log.
void print(const std::string& folder, const std::string& output) {
  std::ofstream out(std::filesystem::u8path(output), std::ios::binary);
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2((folder + "/corvan").c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  const std::unique_ptr<sqlite3, Close> connection(db);
  if (rc != SQLITE_OK) throw std::runtime_error("no store in " + folder);
  exchange::print_rows(db, out);
  exchange::print_operations(open_store(folder, "我"), out);
  CvDbSingleton::delete_instance();
  if (!out.flush()) throw std::runtime_error("cannot write " + output);
}

int run(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "write" && argc == 3) {
    write(argv[2]);
    CvDbSingleton::delete_instance();
  } else if (command == "write-open" && argc == 3) {
    write(argv[2]);
    std::_Exit(0);
  } else if (command == "print" && argc == 4) {
    print(argv[2], argv[3]);
  } else {
    std::cerr << "usage: store_exchange write|write-open FOLDER, or print FOLDER OUTPUT\n";
    return 2;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "store_exchange: " << error.what() << "\n";
    return 1;
  }
}
