#include "tools/salvage/tree_walk.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "tools/store/schema.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr IdRange kAll = {std::numeric_limits<std::int64_t>::min(),
                          std::numeric_limits<std::int64_t>::max()};

// How often a page is read along pointers, and how many pages may be read as continuations of rows
// for each that is there. A sound file needs one reading; a damaged one, in which wrong pointers
// and old copies of pages lead to the same place, needs a few.
constexpr std::uint8_t kMostReadings = 16;
constexpr std::uint64_t kSomePages = 100;

constexpr std::uint64_t kLongestRow = std::numeric_limits<std::int32_t>::max();  // of SQLite

bool is_within(std::int64_t key, const IdRange& range) {
  return key > range.first && key <= range.second;
}

// What of a cell's record lies on its page.
std::string_view held_part(std::string_view page, const Cell& cell) {
  return page.substr(cell.at, cell.held);
}

// The record's values as far as its page holds them.
bool parse_start(std::string_view page, const Cell& cell, std::vector<Value>& values) {
  return parse_record(held_part(page, cell), cell.size, values);
}

bool starts_with_shape(std::string_view page, const Cell& cell, const std::string& shape,
                       bool exactly, std::size_t more) {
  std::vector<Value> values;
  return parse_start(page, cell, values) && has_shape(values, shape, exactly, more);
}

bool is_zero(std::string_view bytes) {
  return bytes.find_first_not_of('\0') == std::string_view::npos;
}

}  // namespace

SalvageWalk::SalvageWalk(const DamagedFile& file, const SalvageSchema& schema, SalvageStore& store)
    : file_(file),
      schema_(schema),
      store_(store),
      uses_(file.pages_there().count(), Use::kUnknown),
      visits_(file.pages_there().count(), 0),
      continuations_left_(kMostReadings * file.pages_there().count() + kSomePages),
      states_(schema.tables.size()),
      added_columns_(schema.tables.size(), 0),
      index_is_whole_(schema.indexes.size(), false),
      progress_("pages", file.pages_there().count()) {}

void SalvageWalk::run() {
  find_free_pages();
  read_schema();
  walk_tables();
  walk_indexes();
  look_at_other_pages();
  look_at_lost_commits();
}

SalvageWalk::Use SalvageWalk::use(PageNumber page) const {
  if (const auto place = file_.pages_there().place_of(page)) return uses_[*place];
  const auto found = hole_uses_.find(page);
  return found == hole_uses_.end() ? Use::kUnknown : found->second;
}

void SalvageWalk::set_use(PageNumber page, Use use) {
  if (const auto place = file_.pages_there().place_of(page)) {
    uses_[*place] = use;
  } else if (page <= file_.pages_in_file()) {
    hole_uses_[page] = use;
  }
}

bool SalvageWalk::may_go_to(PageNumber page, PageNumber parent, const std::string& name) {
  const auto place = file_.pages_there().place_of(page);
  if (place && uses_[*place] != Use::kTree && visits_[*place] < kMostReadings) {
    ++visits_[*place];
    return true;
  }
  note_unread(page, parent, name);
  return false;
}

// A page that something else leads to is not bad itself.
void SalvageWalk::note_unread(PageNumber page, PageNumber parent, const std::string& name) {
  note(is_page(page) && use(page) == Use::kTree ? parent : page, parent, name);
}

void SalvageWalk::note(PageNumber page, PageNumber parent, const std::string& what) {
  const bool is_there = file_.pages_there().place_of(page).has_value();
  const bool is_named =
      is_there || (page > 0 && page <= std::max(file_.page_count(), file_.declared_pages()) &&
                   noted_missing_ <= file_.pages_there().count() + kSomePages);
  if (is_named) {
    bad_.add(page, (is_page(page) ? "" : "beyond the end: ") + what);
    if (!is_there) ++noted_missing_;
  } else if (parent > 0) {
    bad_.add(parent, what + ", damaged in part");
  }
}

std::uint64_t SalvageWalk::zero_pages() const {
  auto count = static_cast<std::uint64_t>(std::count(uses_.begin(), uses_.end(), Use::kZero));
  for (const PageRange& hole : file_.pages_there().gaps(1, file_.pages_in_file())) {
    count += hole.last - hole.first + std::uint64_t{1};
  }
  return count - hole_uses_.size();
}

void SalvageWalk::find_free_pages() {
  const std::string what = "the list of free pages";
  std::string bytes;
  PageNumber before = 0;
  for (PageNumber trunk = file_.first_free(); trunk != 0;) {
    if (!is_page(trunk) || use(trunk) == Use::kFree || !file_.read(trunk, bytes)) {
      note(trunk, before, what);
      return;
    }
    const std::uint64_t count = number_at(bytes, 4, 4);
    if (count > file_.usable() / 4 - 2) {
      note(trunk, before, what);
      return;
    }
    set_use(trunk, Use::kFree);
    for (std::size_t i = 0; i < count; ++i) {
      const auto page = static_cast<PageNumber>(number_at(bytes, 8 + 4 * i, 4));
      if (is_page(page)) set_use(page, Use::kFree);
    }
    before = trunk;
    trunk = static_cast<PageNumber>(number_at(bytes, 0, 4));
  }
}

std::optional<Page> SalvageWalk::parse(PageNumber number, std::string_view bytes) const {
  return parse_page(bytes.substr(0, file_.held(number)), file_.usable(), number == 1);
}

std::optional<Page> SalvageWalk::enter(PageNumber number, PageNumber parent, bool is_table_tree,
                                       const std::string& name, std::string& bytes) {
  std::optional<Page> page;
  if (use(number) != Use::kTree && file_.read(number, bytes)) page = parse(number, bytes);
  if (page && is_table(page->type) == is_table_tree) {
    if (!page->sound) note(number, parent, name + ", damaged in part");
    return page;
  }
  note_unread(number, parent, name);
  return std::nullopt;
}

void SalvageWalk::compare_with_log(const Page& page, const Step& step) {
  const bool are_of_both =
      step.parent != 0 && file_.is_in_log(step.page) != file_.is_in_log(step.parent);
  if (!are_of_both || page.cells.empty()) return;
  const bool fits = std::any_of(page.cells.begin(), page.cells.end(), [&step](const Cell& cell) {
    return is_within(cell.key, step.keys);
  });
  if (!fits) log_contradicts_ = true;
}

// The children of an inner page. A key that does not rise is not believed.
std::vector<SalvageWalk::Step> SalvageWalk::steps_from(const Page& page, const Step& from,
                                                       bool& in_order) const {
  const std::size_t count = page.cells.size();
  std::vector<bool> is_good(count, true);
  std::vector<std::int64_t> keys;
  for (const Cell& cell : page.cells) keys.push_back(cell.key);
  for (const std::size_t place : out_of_order(keys)) is_good[place] = false;
  for (std::size_t i = 0; i < count; ++i) {
    if (!is_within(keys[i], from.keys)) is_good[i] = false;
  }
  in_order = std::find(is_good.begin(), is_good.end(), false) == is_good.end();

  std::vector<Step> steps(count + 1);
  Step bounds = from;
  for (std::size_t i = 0; i <= count; ++i) {
    steps[i].page = i < count ? page.cells[i].child : page.last_child;
    steps[i].parent = from.page;
    steps[i].keys.first = bounds.keys.first;
    steps[i].around.first = bounds.around.first;
    if (i == count || !is_good[i]) continue;
    bounds.around.first = bounds.keys.first;
    bounds.keys.first = keys[i];
  }
  for (std::size_t i = count + 1; i-- > 0;) {
    if (i < count && is_good[i]) {
      bounds.around.second = bounds.keys.second;
      bounds.keys.second = keys[i];
    }
    steps[i].keys.second = bounds.keys.second;
    steps[i].around.second = bounds.around.second;
  }
  return steps;
}

void SalvageWalk::walk_table(const Tree& tree, TableState& state, const ReadLeaf& read) {
  const std::string what = "a page of " + shortened(tree.name);
  state.is_whole = true;
  const auto miss = [&state](const IdRange& range) {
    state.is_whole = false;
    state.missing.add(range);
  };
  std::vector<Step> steps;
  const auto go_to = [&](const Step& step) {
    if (may_go_to(step.page, step.parent, what)) {
      steps.push_back(step);
    } else {
      miss(step.around);
    }
  };
  go_to({tree.root, 0, kAll, kAll});
  std::string bytes;
  while (!steps.empty()) {
    const Step step = steps.back();
    steps.pop_back();
    const auto page = enter(step.page, step.parent, true, what, bytes);
    if (!page) {
      miss(step.around);
      continue;
    }
    compare_with_log(*page, step);
    if (!is_inner(page->type)) {
      if (read({*page, bytes, step.page, step.keys})) {
        set_use(step.page, Use::kTree);
        progress_.advance();
        if (!page->sound) miss(step.around);
      } else {
        note(step.page, step.parent, what + ", or what leads to it");
        miss(step.around);
      }
      continue;
    }
    set_use(step.page, Use::kTree);
    progress_.advance();
    bool in_order = true;
    const std::vector<Step> children = steps_from(*page, step, in_order);
    if (!in_order) note(step.page, step.parent, what + ", damaged in part");
    if (!in_order || !page->sound) miss(step.around);
    std::for_each(children.rbegin(), children.rend(), go_to);
  }
}

bool SalvageWalk::walk_index(const Tree& tree, const SalvageIndex* index) {
  const std::string what = "a page of index " + shortened(tree.name);
  bool is_whole = true;
  std::vector<std::pair<PageNumber, PageNumber>> pages;
  const auto go_to = [&](PageNumber page, PageNumber parent) {
    if (may_go_to(page, parent, what)) {
      pages.emplace_back(page, parent);
    } else {
      is_whole = false;
    }
  };
  go_to(tree.root, 0);
  std::string bytes;
  while (!pages.empty()) {
    const auto [number, parent] = pages.back();
    pages.pop_back();
    const auto page = enter(number, parent, false, what, bytes);
    is_whole = is_whole && page && page->sound;
    if (!page) continue;
    set_use(number, Use::kTree);
    progress_.advance();
    if (!read_entries(*page, bytes, index)) is_whole = false;
    if (!is_inner(page->type)) continue;
    for (const Cell& cell : page->cells) go_to(cell.child, number);
    go_to(page->last_child, number);
  }
  return is_whole;
}

// Whether all of them could be read.
bool SalvageWalk::read_entries(const Page& page, std::string_view bytes,
                               const SalvageIndex* index) {
  bool all = true;
  std::string record;
  std::vector<Value> values;
  for (const Cell& cell : page.cells) {
    const bool is_read =
        read_record(bytes, cell, true, record) && parse_record(record, record.size(), values);
    if (index == nullptr) continue;
    if (!is_read || values.size() != index->shape.size() || values.back().kind != Value::kInteger) {
      all = false;
    } else if (has_shape(values, index->shape, true)) {
      store_.name(*index, values);
    } else {
      store_.name(index->table, values.back().integer);
    }
  }
  return all;
}

bool SalvageWalk::read_record(std::string_view page, const Cell& cell, bool is_reached,
                              std::string& record) {
  record.assign(held_part(page, cell));
  if (cell.continuation == 0 && cell.held == cell.size) return true;
  const std::uint64_t most = std::uint64_t{file_.pages_there().count()} * file_.page_size();
  if (cell.size > std::min<std::uint64_t>(most, kLongestRow)) return false;
  std::vector<PageNumber> chain;
  std::string bytes;
  PageNumber next = cell.continuation;
  while (record.size() < cell.size) {
    const bool is_taken =
        !is_page(next) || use(next) == Use::kTree || (is_reached && use(next) == Use::kOverflow);
    const auto part = static_cast<std::size_t>(
        std::min<std::uint64_t>(file_.usable() - 4, cell.size - record.size()));
    if (continuations_left_ == 0) return false;
    --continuations_left_;
    if (is_taken || file_.held(next) < 4 + part || !file_.read(next, bytes)) {
      note(is_page(next) && is_taken ? 0 : next, 0, "the continuation of a row");
      return false;
    }
    chain.push_back(next);
    record.append(bytes, 4, part);
    next = static_cast<PageNumber>(number_at(bytes, 0, 4));
  }
  if (next != 0) {
    note(chain.back(), 0, "the continuation of a row");
    return false;
  }
  for (const PageNumber page_number : chain) set_use(page_number, Use::kOverflow);
  progress_.advance(chain.size());
  return true;
}

void SalvageWalk::read_schema() {
  static const std::string kSchemaShape = "tttit";
  const auto read = [this](const Leaf& leaf) {
    std::string record;
    std::vector<Value> values;
    for (const Cell& cell : leaf.page.cells) {
      const bool is_read = read_record(leaf.bytes, cell, true, record) &&
                           parse_record(record, record.size(), values) &&
                           has_shape(values, kSchemaShape, false) &&
                           values[3].kind == Value::kInteger;
      if (!is_read) {
        states_[schema_.sequences].missing.add(kAll);
        continue;
      }
      leave_out(values);
      const bool is_index = values[0].bytes == "index";
      if (!is_index && values[0].bytes != "table") continue;
      const std::int64_t root = values[3].integer;
      trees_.push_back({root > 0 && root <= file_.page_count() ? static_cast<PageNumber>(root) : 0,
                        is_index, std::string(values[1].bytes), std::string(values[4].bytes)});
    }
    return true;
  };
  if (file_.page_count() == 0) return;
  TableState& state = states_[schema_.sequences];
  walk_table({1, false, "the schema", ""}, state, read);
  schema_is_whole_ = state.is_whole && state.missing.empty();
}

void SalvageWalk::leave_out(const std::vector<Value>& schema_row) {
  const std::string name(schema_row[1].bytes);
  const auto is_of_name = [&name](const auto& known) { return known.name == name; };
  const bool is_known = name.rfind("sqlite_", 0) == 0 ||
                        std::any_of(schema_.tables.begin(), schema_.tables.end(), is_of_name) ||
                        std::any_of(schema_.indexes.begin(), schema_.indexes.end(), is_of_name);
  if (!is_known) left_out_.push_back(std::string(schema_row[0].bytes) + " " + name);
}

void SalvageWalk::find_added_columns(std::size_t table, const Tree& tree) {
  const SalvageTable& known = schema_.tables[table];
  if (is_same_statement(known.sql, tree.sql)) return;
  const std::vector<std::string> columns = columns_made_by(tree.sql);
  const std::size_t count = known.shape.size();
  for (std::size_t i = count; i < columns.size(); ++i) {
    left_out_.push_back("column " + known.name + "." + columns[i]);
  }
  if (columns.size() > count) added_columns_[table] = columns.size() - count;
}

void SalvageWalk::walk_tables() {
  std::vector<bool> is_found(schema_.tables.size(), false);
  for (const Tree& tree : trees_) {
    if (tree.is_index) continue;
    const auto found =
        std::find_if(schema_.tables.begin(), schema_.tables.end(),
                     [&tree](const SalvageTable& table) { return table.name == tree.name; });
    if (found == schema_.tables.end()) {
      TableState ignored;
      if (tree.root > 1) walk_table(tree, ignored, [](const Leaf& /*leaf*/) { return true; });
      continue;
    }
    const auto table = static_cast<std::size_t>(found - schema_.tables.begin());
    if (!is_found[table]) find_added_columns(table, tree);
    walk_table(tree, states_[table],
               [this, table](const Leaf& leaf) { return read_rows(table, leaf); });
    is_found[table] = true;
  }
  for (std::size_t table = 0; table < schema_.tables.size(); ++table) {
    if (is_found[table]) continue;
    states_[table] = {};
    states_[table].is_whole = schema_is_whole_;
    if (!schema_is_whole_) states_[table].missing.add(kAll);
  }
}

void SalvageWalk::walk_indexes() {
  for (const Tree& tree : trees_) {
    if (!tree.is_index || tree.root < 2) continue;
    const auto found = std::find_if(
        schema_.indexes.begin(), schema_.indexes.end(), [&tree](const SalvageIndex& index) {
          return index.name == tree.name && is_same_statement(index.sql, tree.sql);
        });
    // Where the rows were read whole nobody asks an index.
    const bool is_asked = found != schema_.indexes.end() && !states_[found->table].is_whole;
    const bool is_whole = walk_index(tree, is_asked ? &*found : nullptr);
    if (!is_asked || !is_whole) continue;
    index_is_whole_[static_cast<std::size_t>(found - schema_.indexes.begin())] = true;
    if (found->has_all_rows) states_[found->table].has_all_names = true;
  }
}

void SalvageWalk::read_sequence(std::string_view record) {
  std::vector<Value> values;
  if (!parse_record(record, record.size(), values) ||
      !has_shape(values, schema_.tables[schema_.sequences].shape, true)) {
    return;
  }
  if (values[0].bytes == schema_.tables[schema_.messages].name && values[1].integer >= 0) {
    store_.set_sequence(values[1].integer);
  }
}

// False when the page is none of this table's, or of another place in its tree.
bool SalvageWalk::read_rows(std::size_t table, const Leaf& leaf) {
  const auto belongs = [&](const Cell& cell) {
    return is_within(cell.key, leaf.keys) &&
           starts_with_shape(leaf.bytes, cell, schema_.tables[table].shape, false, kAnyMore);
  };
  const std::vector<Cell>& cells = leaf.page.cells;
  if (!cells.empty() && std::none_of(cells.begin(), cells.end(), belongs)) return false;
  add_rows(table, leaf, true, Doubt::kNone);
  return true;
}

void SalvageWalk::add_rows(std::size_t table, const Leaf& leaf, bool is_reached, Doubt doubt) {
  const std::vector<Cell>& cells = leaf.page.cells;
  if (table == schema_.sequences) {
    for (const Cell& cell : cells) read_sequence(held_part(leaf.bytes, cell));
    return;
  }
  std::vector<std::int64_t> keys;
  keys.reserve(cells.size());
  for (const Cell& cell : cells) keys.push_back(cell.key);
  std::vector<Doubt> doubts(cells.size(), doubt);
  if (doubt == Doubt::kNone) {
    for (const std::size_t place : out_of_order(keys)) doubts[place] = Doubt::kPlace;
  }
  for (std::size_t i = 0; i < cells.size(); ++i) {
    add_row(table, leaf, cells[i], is_reached, doubts[i]);
  }
}

void SalvageWalk::add_row(std::size_t table, const Leaf& leaf, const Cell& cell, bool is_reached,
                          Doubt doubt) {
  FoundRow row;
  row.id = cell.key;
  row.is_reached = is_reached;
  row.is_in_log = leaf.number != 0 && file_.is_in_log(leaf.number);
  row.doubt = doubt;
  if (doubt == Doubt::kNone && !is_reached && !is_missing(table, cell.key)) {
    row.doubt = Doubt::kUnreached;
  }
  const std::string& shape = schema_.tables[table].shape;
  const std::size_t more = is_reached ? kAnyMore : added_columns_[table];
  std::string record;
  std::vector<Value> values;
  const bool is_on_page = cell.continuation == 0;
  const bool is_read = (leaf.number != 0 || is_on_page) &&
                       starts_with_shape(leaf.bytes, cell, shape, false, more) &&
                       read_record(leaf.bytes, cell, is_reached, record) &&
                       parse_record(record, record.size(), values);
  if (!is_read) {
    if (row.doubt == Doubt::kNone || is_reached) lose_row(table, cell);
    return;
  }
  values.resize(shape.size());
  row.values = &values;
  if (row.doubt == Doubt::kNone) row.doubt = doubt_about(schema_.tables[table], row.id, values);
  store_.add(table, row);
}

void SalvageWalk::lose_row(std::size_t table, const Cell& cell) {
  store_.name(table, cell.key);
  states_[table].is_whole = false;
  if (cell.key > kAll.first) states_[table].missing.add({cell.key - 1, cell.key});
}

bool SalvageWalk::is_missing(std::size_t table, std::int64_t row_id) const {
  return states_[table].missing.has(row_id);
}

// The table that most of the page's records are of the shape of. The version's single text is no
// shape to tell anything by.
std::optional<std::size_t> SalvageWalk::table_by_shape(const Page& page,
                                                       std::string_view bytes) const {
  std::optional<std::size_t> best;
  std::ptrdiff_t most = 0;
  for (std::size_t table = 0; table < schema_.tables.size(); ++table) {
    if (table == schema_.versions) continue;
    const std::ptrdiff_t count =
        std::count_if(page.cells.begin(), page.cells.end(), [&](const Cell& cell) {
          return starts_with_shape(bytes, cell, schema_.tables[table].shape, true,
                                   added_columns_[table]);
        });
    if (count <= most) continue;
    most = count;
    best = table;
  }
  return best;
}

const SalvageIndex* SalvageWalk::index_by_shape(const Page& page, std::string_view bytes) const {
  for (const SalvageIndex& index : schema_.indexes) {
    const auto place = static_cast<std::size_t>(&index - schema_.indexes.data());
    const bool is_wanted =
        index.is_told_by_shape && !index_is_whole_[place] && !states_[index.table].is_whole;
    if (is_wanted && !page.cells.empty() &&
        starts_with_shape(bytes, page.cells.front(), index.shape, true, 0)) {
      return &index;
    }
  }
  return nullptr;
}

void SalvageWalk::look_at_other_page(PageNumber number, std::string_view bytes) {
  const bool is_free = use(number) == Use::kFree;
  if (is_zero(bytes)) {
    if (!is_free) set_use(number, Use::kZero);
    return;
  }
  const auto page = parse(number, bytes);
  if (!page) return;
  if (!is_free && page->sound) set_use(number, Use::kRecognised);
  if (page->type == PageType::kTableLeaf) {
    look_at_other_leaf({*page, bytes, number, kAll}, is_free);
  } else if (!is_table(page->type) && !is_free) {
    const SalvageIndex* const index = index_by_shape(*page, bytes);
    if (index != nullptr) read_entries(*page, bytes, index);
  }
}

void SalvageWalk::look_at_other_leaf(const Leaf& leaf, bool is_free) {
  const auto table = table_by_shape(leaf.page, leaf.bytes);
  if (!table) return;
  if (*table == schema_.sequences && (is_free || states_[*table].is_whole)) return;
  add_rows(*table, leaf, false, is_free ? Doubt::kFree : Doubt::kNone);
  if (is_free || leaf.page.sound) return;
  note(leaf.number, 0, "a page of " + schema_.tables[*table].name + ", damaged in part");
  set_use(leaf.number, Use::kRecognised);
}

void SalvageWalk::look_at_other_pages() {
  std::string bytes;
  file_.pages_there().each([&](PageNumber number) {
    if (use(number) != Use::kUnknown && use(number) != Use::kFree) return;
    progress_.advance();
    if (file_.read(number, bytes)) look_at_other_page(number, bytes);
  });
  // Only now: the continuation of a row may lie before its page.
  file_.pages_there().each([&](PageNumber number) {
    if (use(number) == Use::kUnknown) note(number, 0, "not recognised");
  });
  if (file_.page_count() == file_.pages_in_file()) return;
  for (const PageRange& range :
       file_.pages_there().gaps(file_.pages_in_file() + 1, file_.page_count())) {
    bad_.add(range, "neither in the file nor in the log");
  }
}

// Nothing is read there that continues on another page, which may be of another moment.
void SalvageWalk::look_at_lost_commits() {
  file_.each_unusable([this](std::string_view bytes) {
    const auto page = parse_page(bytes, file_.usable(), false);
    if (!page || page->type != PageType::kTableLeaf) return;
    const auto table = table_by_shape(*page, bytes);
    if (!table) return;
    add_rows(*table, {*page, bytes, 0, kAll}, false, Doubt::kLog);
  });
}

}  // namespace corvan_tool
