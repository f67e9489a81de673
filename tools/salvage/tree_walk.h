// The way through a damaged file: along its trees as far as they lead, then page by page.

#ifndef TOOLS_SALVAGE_TREE_WALK_H_
#define TOOLS_SALVAGE_TREE_WALK_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "tools/salvage/damaged_file.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/page_map.h"
#include "tools/salvage/rescued_store.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

class SalvageWalk {
 public:
  // All of them outlive this object.
  SalvageWalk(const DamagedFile& file, const SalvageSchema& schema, SalvageStore& store);

  // Gives every row and every entry of an index that can be read to the store.
  void run();

  const std::vector<TableState>& states() const { return states_; }
  // In order.
  std::vector<BadPages> bad_pages() const { return bad_.list(); }
  // Pages of zeros that nothing leads to: free ones, or lost ones.
  std::uint64_t zero_pages() const;
  // What the file's schema has beside a store's, as "table other" or "column t_message.more".
  const std::vector<std::string>& left_out() const { return left_out_; }
  // Whether a page in the log and one in the file, of which one leads to the other, have no key in
  // common: the log is then another file's.
  bool log_contradicts() const { return log_contradicts_; }

 private:
  enum class Use : std::uint8_t { kUnknown, kFree, kTree, kOverflow, kRecognised, kZero };

  // A tree of the file, by its row in the file's schema.
  struct Tree {
    PageNumber root = 0;
    bool is_index = false;
    std::string name;
    std::string sql;
  };

  // A page to go to, and the keys that its parents have for it.
  struct Step {
    PageNumber page = 0;
    PageNumber parent = 0;
    IdRange keys;
    IdRange around;  // with those of its neighbours, should a key be wrong
  };

  // A page of rows that was read.
  struct Leaf {
    const Page& page;
    std::string_view bytes;
    PageNumber number = 0;  // 0: of no place in the file
    IdRange keys;
  };
  using ReadLeaf = std::function<bool(const Leaf&)>;

  void find_free_pages();
  void read_schema();
  void leave_out(const std::vector<Value>& schema_row);
  void find_added_columns(std::size_t table, const Tree& tree);
  void walk_tables();
  void walk_indexes();
  void look_at_other_pages();
  void look_at_lost_commits();

  std::optional<Page> parse(PageNumber number, std::string_view bytes) const;
  // Reads a page of a tree that may_go_to() there; nothing, and the page is noted, when it is none.
  std::optional<Page> enter(PageNumber number, PageNumber parent, bool is_table,
                            const std::string& name, std::string& bytes);
  void walk_table(const Tree& tree, TableState& state, const ReadLeaf& read);
  void compare_with_log(const Page& page, const Step& step);
  std::vector<Step> steps_from(const Page& page, const Step& from, bool& in_order) const;
  // Whether the whole tree was read. Without an index its pages are only marked.
  bool walk_index(const Tree& tree, const SalvageIndex* index);
  bool read_entries(const Page& page, std::string_view bytes, const SalvageIndex* index);

  bool read_rows(std::size_t table, const Leaf& leaf);
  void add_row(std::size_t table, const Leaf& leaf, const Cell& cell, bool is_reached, Doubt doubt);
  void add_rows(std::size_t table, const Leaf& leaf, bool is_reached, Doubt doubt);
  void lose_row(std::size_t table, const Cell& cell);
  void read_sequence(std::string_view record);
  std::optional<std::size_t> table_by_shape(const Page& page, std::string_view bytes) const;
  const SalvageIndex* index_by_shape(const Page& page, std::string_view bytes) const;
  bool is_missing(std::size_t table, std::int64_t row_id) const;
  void look_at_other_page(PageNumber number, std::string_view bytes);
  void look_at_other_leaf(const Leaf& leaf, bool is_free);

  // A record with what lies on further pages. False when these cannot be it.
  bool read_record(std::string_view page, const Cell& cell, bool is_reached, std::string& record);

  Use use(PageNumber page) const;
  void set_use(PageNumber page, Use use);
  // Whether to go to a page that something leads to, now or later: it is there, and was not gone to
  // so often already that the file must have been made to be read without end. Else the page is
  // noted.
  bool may_go_to(PageNumber page, PageNumber parent, const std::string& name);
  void note_unread(PageNumber page, PageNumber parent, const std::string& name);
  bool is_page(PageNumber page) const { return page > 0 && page <= file_.page_count(); }
  void note(PageNumber page, PageNumber parent, const std::string& what);

  const DamagedFile& file_;
  const SalvageSchema& schema_;
  SalvageStore& store_;
  std::vector<Use> uses_;                          // of the pages that are there
  std::unordered_map<PageNumber, Use> hole_uses_;  // of those that lie in holes of the file
  std::vector<std::uint8_t> visits_;               // of the pages that are there
  std::uint64_t continuations_left_;  // how many pages may still be read as those of long rows
  std::vector<Tree> trees_;
  bool schema_is_whole_ = false;
  std::vector<TableState> states_;
  std::vector<std::size_t> added_columns_;  // behind the known ones, by table
  std::vector<std::string> left_out_;
  bool log_contradicts_ = false;
  std::vector<bool> index_is_whole_;
  BadPageList bad_;
  std::uint64_t noted_missing_ = 0;  // in it, of pages that are not there
  Progress progress_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_TREE_WALK_H_
