// The store that an import saves into.

#ifndef TOOLS_IMPORT_IMPORTED_STORE_H_
#define TOOLS_IMPORT_IMPORTED_STORE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/import/log_line.h"
#include "tools/import/look_up.h"
#include "tools/store/library_store.h"

namespace corvan_tool {

class Connection;

struct ImportOptions {
  std::string folder;
  std::string user;
  std::vector<std::string> files;  // "-" is standard input
  std::size_t batch_size = 1000;   // lines read, checked and saved together, in one transaction
  bool history = false;
  bool insert_only = false;
  bool skip_bad = false;
  bool json = false;
};

struct ImportEntry {
  ImportMessage message;
  std::string place;  // of its line, as "file:line"
};

struct ImportCounts {
  std::uint64_t stored = 0;     // as new messages
  std::uint64_t completed = 0;  // own messages that were there and now have their server uid
  std::uint64_t refused = 0;    // there already
  std::uint64_t bad = 0;        // lines skipped
  std::uint64_t lines() const { return stored + completed + refused + bad; }
  void add(const ImportCounts& other);
};

class ImportStore {
 public:
  using Batch = std::vector<ImportEntry>;

  // Makes the folder if it is missing, and opens the store. `options` must live longer. Throws
  // ToolError if the folder holds something else, or the store cannot be opened or written.
  explicit ImportStore(const ImportOptions& options);

  // Saves the entries in one transaction and adds to `counts` what is stored. Returns an empty
  // list, or, with nothing stored, the positions of the entries that are missing after their save,
  // as when a trigger drops them. Throws ToolError if the store fails; `counts` is right then, too,
  // unless the error says that it is not known what is stored. Call nothing afterwards.
  std::vector<std::size_t> save(const Batch& batch, ImportCounts& counts);

 private:
  // An entry that the store answered with an id.
  struct Saved {
    std::size_t entry = 0;
    int64_t id = 0;
    bool completed = false;
  };
  // A row as the batch leaves it.
  struct Row {
    int64_t id = 0;
    std::string text;
  };

  OpenStore& store() { return *store_; }
  bool has_failed() { return !store().failure().empty(); }
  void read_newest_id();
  int64_t save_one(const ImportMessage& message);
  bool may_complete(const ImportMessage& message) const;
  std::vector<std::size_t> save_each(const ImportLookUp& look_up, const Batch& batch,
                                     ImportCounts& saved, ImportCounts& counts);
  bool is_there(const ImportLookUp& look_up, const Batch& batch, const Saved& saved) const;
  void read_rows(const ImportLookUp& look_up);
  bool are_rows_there(const Connection& connection) const;
  [[noreturn]] void fail_without(const Batch& batch, std::size_t entry);
  [[noreturn]] void fail_to_save(const ImportLookUp& look_up, const Batch& batch, std::size_t entry,
                                 int64_t id, ImportCounts& counts);
  [[noreturn]] void fail_to_commit(const Batch& batch, const ImportCounts& saved,
                                   ImportCounts& counts);
  std::string failure();

  const ImportOptions& options_;
  const std::string file_;
  std::optional<OpenStore> store_;
  int64_t newest_id_ = 0;
  int64_t newest_before_ = 0;  // the batch in hand
  std::vector<Saved> saved_;   // here and below: of the batch in hand
  std::vector<Row> rows_;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_IMPORTED_STORE_H_
