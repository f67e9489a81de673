// Follows the trees of a damaged file as far as their pointers lead.

#ifndef TOOLS_SALVAGE_TREE_WALK_H_
#define TOOLS_SALVAGE_TREE_WALK_H_

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/damaged_file.h"
#include "tools/salvage/page_map.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

// A table or an index of the file, as the file's schema names it.
struct Tree {
  PageNumber root = 0;
  bool is_index = false;
  std::string name;
  std::string sql;
};

// A leaf page of a table.
struct Leaf {
  const Page& page;
  std::string_view bytes;
  PageNumber number = 0;  // 0 for a page of a lost commit
  IdRange keys;           // the row ids that can be on it, according to its parents
};

class TreeWalk {
 public:
  // The arguments must live longer.
  TreeWalk(const DamagedFile& file, PageMap& pages, Progress& progress);

  // Returns false if the leaf is not of this table, or of another place in its tree.
  using ReadLeaf = std::function<bool(const Leaf& leaf)>;
  // Calls `read` with each leaf of a table in the order of its keys. Sets `is_whole` and `missing`
  // in `coverage`.
  void follow_table(const Tree& tree, TableCoverage& coverage, const ReadLeaf& read);

  // Returns false if an entry of the page could not be read.
  using ReadEntries = std::function<bool(const Page& page, std::string_view bytes)>;
  // Calls `read` with each page of an index. Returns whether the whole index was read.
  bool follow_index(const Tree& tree, const ReadEntries& read);

  // Whether a page in the log and a page in the file contradict each other: one points to the
  // other, but no key fits. The log then belongs to another file.
  bool log_contradicts() const { return log_contradicts_; }

 private:
  struct Step;
  struct Way;

  static std::vector<Step> steps_from(const std::vector<bool>& is_good, const Page& page,
                                      const Step& from);

  std::optional<Page> enter(PageNumber number, PageNumber parent, bool is_table_tree,
                            const std::string& what, std::string& bytes);
  void plan(const Step& step, Way& way);
  void follow_step(const Step& step, const ReadLeaf& read, Way& way);
  void follow_index_step(const Step& step, const ReadEntries& read, Way& way);
  void read_leaf(const Step& step, const Page& page, std::string_view bytes, const ReadLeaf& read,
                 Way& way);
  void descend(const Step& step, const Page& page, Way& way);
  void compare_with_log(const Page& page, const Step& step);
  void mark(PageNumber page);

  const DamagedFile& file_;
  PageMap& pages_;
  Progress& progress_;
  bool log_contradicts_ = false;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_TREE_WALK_H_
