#include "tools/salvage/tree_walk.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "tools/ui/utf8.h"

namespace corvan_tool {

// A page to read, and the keys that can be on it.
struct TreeWalk::Step {
  PageNumber page = 0;
  PageNumber parent = 0;
  IdRange keys;  // according to its parents
  // The keys of its neighbours as well. All of these count as missing if the page cannot be read,
  // because a key in the parent may be wrong.
  IdRange around;
};

// The way through one tree.
struct TreeWalk::Way {
  std::string what;  // what the report calls a page of the tree
  TableCoverage& coverage;
  std::vector<Step> steps;  // the steps that are left; the last one is the next

  void miss(const IdRange& keys) {
    coverage.is_whole = false;
    coverage.missing.add(keys);
  }
};

namespace {

// For each cell whether its key fits between the others and within the parents' keys.
std::vector<bool> good_keys(const std::vector<Cell>& cells, const IdRange& keys) {
  std::vector<bool> is_good = keys_in_order(cells);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    is_good[i] = is_good[i] && is_within(cells[i].key, keys);
  }
  return is_good;
}

}  // namespace

TreeWalk::TreeWalk(const DamagedFile& file, PageMap& pages, Progress& progress)
    : file_(file), pages_(pages), progress_(progress) {}

// Reads and parses a page of a tree. If it is not one, notes that and returns nothing.
std::optional<Page> TreeWalk::enter(PageNumber number, PageNumber parent, bool is_table_tree,
                                    const std::string& what, std::string& bytes) {
  std::optional<Page> page;
  if (pages_.use(number) != PageMap::Use::kTree && file_.read(number, bytes)) {
    page = file_.parse(number, bytes);
  }
  if (page && is_table(page->type) == is_table_tree) {
    if (!page->sound) pages_.note(number, parent, what + ", damaged in part");
    return page;
  }
  pages_.note_unread(number, parent, what);
  return std::nullopt;
}

void TreeWalk::mark(PageNumber page) {
  pages_.set_use(page, PageMap::Use::kTree);
  progress_.advance();
}

void TreeWalk::compare_with_log(const Page& page, const Step& step) {
  const bool are_of_both =
      step.parent != 0 && file_.is_in_log(step.page) != file_.is_in_log(step.parent);
  if (!are_of_both || page.cells.empty()) return;
  const bool fits = std::any_of(page.cells.begin(), page.cells.end(), [&step](const Cell& cell) {
    return is_within(cell.key, step.keys);
  });
  if (!fits) log_contradicts_ = true;
}

// The steps to the children of an inner page. Cells whose key is not good are ignored: the children
// on both sides of such a key then share a range.
std::vector<TreeWalk::Step> TreeWalk::steps_from(const std::vector<bool>& is_good, const Page& page,
                                                 const Step& from) {
  const std::vector<Cell>& cells = page.cells;
  const std::size_t count = cells.size();
  std::vector<Step> steps(count + 1);
  Step bounds = from;
  for (std::size_t i = 0; i <= count; ++i) {
    steps[i].page = i < count ? cells[i].child : page.last_child;
    steps[i].parent = from.page;
    steps[i].keys.first = bounds.keys.first;
    steps[i].around.first = bounds.around.first;
    if (i == count || !is_good[i]) continue;
    bounds.around.first = std::exchange(bounds.keys.first, cells[i].key);
  }
  for (std::size_t i = count + 1; i-- > 0;) {
    if (i < count && is_good[i]) {
      bounds.around.second = std::exchange(bounds.keys.second, cells[i].key);
    }
    steps[i].keys.second = bounds.keys.second;
    steps[i].around.second = bounds.around.second;
  }
  return steps;
}

void TreeWalk::plan(const Step& step, Way& way) {
  if (pages_.may_read(step.page, step.parent, way.what)) {
    way.steps.push_back(step);
  } else {
    way.miss(step.around);
  }
}

void TreeWalk::follow_table(const Tree& tree, TableCoverage& coverage, const ReadLeaf& read) {
  coverage.is_whole = true;
  Way way{"a page of " + shortened(tree.name), coverage, {}};
  plan({tree.root, 0, kAllIds, kAllIds}, way);
  while (!way.steps.empty()) {
    const Step step = way.steps.back();
    way.steps.pop_back();
    follow_step(step, read, way);
  }
}

void TreeWalk::follow_step(const Step& step, const ReadLeaf& read, Way& way) {
  std::string bytes;
  const auto page = enter(step.page, step.parent, true, way.what, bytes);
  if (!page) {
    way.miss(step.around);
    return;
  }
  compare_with_log(*page, step);
  if (is_inner(page->type)) {
    descend(step, *page, way);
  } else {
    read_leaf(step, *page, bytes, read, way);
  }
}

void TreeWalk::read_leaf(const Step& step, const Page& page, std::string_view bytes,
                         const ReadLeaf& read, Way& way) {
  if (!read({page, bytes, step.page, step.keys})) {
    pages_.note(step.page, step.parent, way.what + ", or the page that points to it");
    way.miss(step.around);
    return;
  }
  mark(step.page);
  if (!page.sound) way.miss(step.around);
}

void TreeWalk::descend(const Step& step, const Page& page, Way& way) {
  mark(step.page);
  const std::vector<bool> is_good = good_keys(page.cells, step.keys);
  const bool are_all_good = std::find(is_good.begin(), is_good.end(), false) == is_good.end();
  if (!are_all_good) pages_.note(step.page, step.parent, way.what + ", damaged in part");
  if (!are_all_good || !page.sound) way.miss(step.around);
  const std::vector<Step> children = steps_from(is_good, page, step);
  std::for_each(children.rbegin(), children.rend(),
                [this, &way](const Step& child) { plan(child, way); });
}

bool TreeWalk::follow_index(const Tree& tree, const ReadEntries& read) {
  TableCoverage coverage;
  coverage.is_whole = true;
  Way way{"a page of index " + shortened(tree.name), coverage, {}};
  plan({tree.root, 0, kAllIds, kAllIds}, way);
  while (!way.steps.empty()) {
    const Step step = way.steps.back();
    way.steps.pop_back();
    follow_index_step(step, read, way);
  }
  return coverage.is_whole;
}

void TreeWalk::follow_index_step(const Step& step, const ReadEntries& read, Way& way) {
  std::string bytes;
  const auto page = enter(step.page, step.parent, false, way.what, bytes);
  if (!page) {
    way.miss(step.around);
    return;
  }
  mark(step.page);
  if (!read(*page, bytes) || !page->sound) way.miss(step.around);
  if (!is_inner(page->type)) return;
  for (const Cell& cell : page->cells) plan({cell.child, step.page, kAllIds, kAllIds}, way);
  plan({page->last_child, step.page, kAllIds, kAllIds}, way);
}

}  // namespace corvan_tool
