// The store that an import saves into.

#ifndef TOOLS_IMPORT_STORE_H_
#define TOOLS_IMPORT_STORE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/import_line.h"
#include "tools/open_store.h"

namespace corvan_tool {

class Connection;
struct ImportOptions;

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
  // Makes the folder if it is missing, and opens the store. `options` must live longer. Throws
  // ToolError if the folder holds something else, or the store cannot be opened or written.
  explicit ImportStore(const ImportOptions& options);

  // Saves the entries in one transaction and adds to `counts` what is stored. Returns an empty
  // list, or, with nothing stored, the positions of the entries that are missing after their save,
  // as when a trigger drops them. Throws ToolError if the store fails; `counts` is right then, too,
  // unless the error says that it is not known what is stored. Call nothing afterwards.
  std::vector<std::size_t> save(const std::vector<ImportEntry>& batch, ImportCounts& counts);

 private:
  // An entry that the store answered with an id.
  struct Saved {
    std::size_t entry = 0;
    int64_t id = 0;
    bool completed = false;
  };

  // Looks messages up by id, through the store's own connection.
  class LookUp;

  OpenStore& store() { return *store_; }
  void read_newest_id();
  std::vector<std::size_t> save_each(const std::vector<ImportEntry>& batch, ImportCounts& counts);
  int64_t save_one(const ImportMessage& message);
  bool may_complete(const ImportMessage& message) const;
  bool is_there(const LookUp& look_up, const ImportMessage& message, const Saved& saved) const;
  void roll_back(int64_t newest_id);
  [[noreturn]] void fail_to_save(const std::vector<ImportEntry>& batch, std::size_t entry);
  [[noreturn]] void fail_to_commit(const std::vector<ImportEntry>& batch, const ImportCounts& saved,
                                   ImportCounts& counts);
  bool is_batch_there(const Connection& connection, const std::vector<ImportEntry>& batch) const;
  std::string failure();

  const ImportOptions& options_;
  const std::string file_;
  std::optional<OpenStore> store_;
  int64_t newest_id_ = 0;
  std::vector<Saved> saved_;  // of the batch in hand
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_STORE_H_
