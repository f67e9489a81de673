// Salvages a store that a test has damaged.

#ifndef TESTS_TOOLS_SALVAGE_FIXTURE_H_
#define TESTS_TOOLS_SALVAGE_FIXTURE_H_

#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {

inline const std::vector<std::string> kStoreTables = {"t_message", "t_session", "t_sync",
                                                      "t_version"};

class SalvageTest : public ToolTest {
 protected:
  using Ids = std::set<int64_t>;

  SalvageTest() : salvaged(folder.file("salvaged")) {}

  // Makes a store of 1,500 messages in 30 conversations, some of them longer than a page; five are
  // deleted again. It is imported only once.
  void SetUp() override;

  std::string new_file() const { return salvaged + "/corvan"; }
  Rows new_rows(const std::string& sql) const { return corvan_test::rows(new_file(), sql); }
  static Ids ids(const Rows& rows);

  // Salvages the files in the store's folder and returns the report. They must stay as they are,
  // and the new store must be sound.
  Json salvage(int status, const Arguments& more = {});

  // Every salvaged message must be equal to the sound file's message of that id.
  void expect_equal_messages() const;

  // Salvages `damaged`, in which these pages were overwritten. Every row on other pages must be
  // recovered, and the reported losses must agree with the real ones.
  Json expect_best(const std::string& damaged, const std::set<std::size_t>& bad, int status = 1);

  // The pages of a table of the sound file.
  StorePages store_pages_of(const std::string& table) const;

  // Overwrites the pages that hold rows of a table.
  void overwrite_rows(std::string& content, const std::string& table) const;

  // Runs statements on a file in write-ahead mode and returns the log, which alone has their
  // effect. The file itself stays as it is.
  static std::string log_of(const std::string& path, const std::string& sql);

  std::string sound;     // the content of the store's file
  std::string salvaged;  // the new store's folder
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_SALVAGE_FIXTURE_H_
