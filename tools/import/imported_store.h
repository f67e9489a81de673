// The store that an import saves into.

#ifndef TOOLS_IMPORT_IMPORTED_STORE_H_
#define TOOLS_IMPORT_IMPORTED_STORE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/import/batch.h"
#include "tools/import/log_line.h"
#include "tools/import/options.h"
#include "tools/import/save_check.h"
#include "tools/store/library_store.h"

namespace corvan_tool {

class Connection;

// Numbers of lines.
struct ImportCounts {
  std::uint64_t stored = 0;     // as new messages
  std::uint64_t completed = 0;  // gave a stored own message its server uid
  std::uint64_t refused = 0;    // the message was already there
  std::uint64_t lines() const { return stored + completed + refused; }
  void add(const ImportCounts& other);
};

class ImportedStore {
 public:
  // Creates the folder if it is missing, and opens the store. `options` must outlive the object.
  // Throws ToolError if the folder holds something else, or if the store cannot be opened or
  // written.
  explicit ImportedStore(const ImportOptions& options);

  // Saves the entries in one transaction and adds what is stored to `counts`. Returns an empty list
  // on success. If entries are missing after their save, for example because a trigger drops them,
  // stores nothing and returns the positions of these entries.
  //
  // Throws ToolError if the store fails. `counts` is then still right, unless the error says that
  // the outcome is unknown. Do not call save() again after an exception.
  std::vector<std::size_t> save(const ImportBatch& batch, ImportCounts& counts);

 private:
  // An entry for which the library returned an id.
  struct Saved {
    std::size_t entry = 0;
    int64_t id = 0;
    bool completed = false;
  };
  // A row at the end of the batch.
  struct StoredRow {
    int64_t id = 0;
    std::string text;
  };

  LibraryStore& store() { return *store_; }
  bool has_failed() { return !store().failure().empty(); }
  void read_newest_id();
  int64_t save_one(const ImportMessage& message);
  bool may_complete(const ImportMessage& message) const;
  std::vector<std::size_t> save_all(const ImportBatch& batch, ImportCounts& saved,
                                    ImportCounts& counts);
  std::vector<std::size_t> save_each(const SaveCheck& check, const ImportBatch& batch,
                                     ImportCounts& saved, ImportCounts& counts);
  bool save_entry(const SaveCheck& check, const ImportBatch& batch, std::size_t entry,
                  ImportCounts& saved, ImportCounts& counts);
  bool is_there(const SaveCheck& check, const ImportBatch& batch, const Saved& saved) const;
  void read_rows(const SaveCheck& check);
  bool are_rows_there(const Connection& connection) const;
  [[noreturn]] void fail_without(const ImportBatch& batch, std::size_t entry);
  [[noreturn]] void fail_to_save(const SaveCheck& check, const ImportBatch& batch,
                                 std::size_t entry, int64_t id, ImportCounts& counts);
  [[noreturn]] void fail_to_commit(const ImportBatch& batch, const ImportCounts& saved,
                                   ImportCounts& counts);
  std::string failure();

  const ImportOptions& options_;
  const std::string file_;
  std::optional<LibraryStore> store_;
  int64_t newest_id_ = 0;
  // These belong to the current batch.
  int64_t newest_before_ = 0;
  std::vector<Saved> saved_;
  std::vector<StoredRow> rows_;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_IMPORTED_STORE_H_
