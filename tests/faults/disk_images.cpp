#include "tests/faults/disk_images.h"

#include <algorithm>

namespace corvan_test {
namespace {

constexpr std::size_t kSector = 512;

KeptPart all_of(const DiskEvent& change) {
  return {0, change.kind == DiskEvent::kTruncate ? 1 : change.bytes.size()};
}
constexpr KeptPart kNothing = {0, 0};

void apply(const DiskEvent& change, const KeptPart& part, std::string& content) {
  if (part.begin == part.end) return;
  const auto offset = static_cast<std::size_t>(change.offset);
  if (change.kind == DiskEvent::kTruncate) {
    content.resize(offset);
    return;
  }
  if (content.size() < offset + part.end) content.resize(offset + part.end);
  content.replace(offset + part.begin, part.end - part.begin, change.bytes, part.begin,
                  part.end - part.begin);
}

// The offsets within a write at which a new sector begins.
std::vector<std::size_t> sector_boundaries(const DiskEvent& change) {
  std::vector<std::size_t> boundaries;
  std::size_t at = kSector - static_cast<std::size_t>(change.offset) % kSector;
  for (; at < change.bytes.size(); at += kSector) boundaries.push_back(at);
  return boundaries;
}

std::size_t random_below(std::size_t end, std::mt19937_64& random) {
  return std::uniform_int_distribution<std::size_t>(0, end - 1)(random);
}

bool one_in(std::size_t number, std::mt19937_64& random) {
  return random_below(number, random) == 0;
}

// The part before a boundary, or the part after it.
KeptPart torn(const DiskEvent& change, std::mt19937_64& random) {
  const std::vector<std::size_t> boundaries = sector_boundaries(change);
  if (boundaries.empty()) return all_of(change);
  const std::size_t at = boundaries[random_below(boundaries.size(), random)];
  return one_in(2, random) ? KeptPart{0, at} : KeptPart{at, change.bytes.size()};
}

}  // namespace

Disk::Disk(const DiskRecord& record) : record_(&record) {
  for (const auto& [name, content] : record.start) {
    entries_[name].durable = contents_.size();
    contents_.push_back(content);
  }
}

std::optional<Disk::File>& Disk::live(const std::string& name) {
  Entry& entry = entries_[name];
  return entry.pending.empty() ? entry.durable : entry.pending.back();
}

void Disk::advance() {
  const DiskEvent& event = record_->events.at(event_++);
  switch (event.kind) {
    case DiskEvent::kCreate:
      entries_[event.file].pending.emplace_back(contents_.size());
      contents_.emplace_back();
      break;
    case DiskEvent::kDelete:
      entries_[event.file].pending.emplace_back(std::nullopt);
      break;
    case DiskEvent::kWrite:
    case DiskEvent::kTruncate:
      changes_.push_back(&event);
      changed_.push_back(live(event.file).value());
      break;
    case DiskEvent::kSync:
      sync_content(live(event.file).value());
      break;
  }
  if (event.folder_synced) sync_folder();
}

void Disk::sync_content(File file) {
  std::vector<const DiskEvent*> changes;
  std::vector<File> changed;
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    if (changed_[i] == file) {
      apply(*changes_[i], all_of(*changes_[i]), contents_[file]);
    } else {
      changes.push_back(changes_[i]);
      changed.push_back(changed_[i]);
    }
  }
  changes_ = changes;
  changed_ = changed;
}

void Disk::sync_folder() {
  for (auto& [name, entry] : entries_) {
    entry.durable = live(name);
    entry.pending.clear();
  }
}

bool Disk::anything_pending() const {
  return !changes_.empty() || std::any_of(entries_.begin(), entries_.end(), [](const auto& entry) {
    return !entry.second.pending.empty();
  });
}

Fate Disk::fate(const char* name, bool keep_changes, bool keep_entries) const {
  Fate fate{name, {}, {}};
  for (const DiskEvent* change : changes_) {
    fate.changes.push_back(keep_changes ? all_of(*change) : kNothing);
  }
  for (const auto& [file, entry] : entries_) {
    fate.entries[file] = keep_entries ? entry.pending.size() : 0;
  }
  return fate;
}

Fate Disk::random_fate(std::mt19937_64& random) const {
  // Varies the share that is kept, a tenth, half or nine tenths: if much is pending, random halves
  // would all be alike.
  constexpr std::size_t kOutOf = 10;
  const std::size_t kept = 1 + 4 * random_below(3, random);
  const bool tear = one_in(2, random);

  Fate result = fate("a random subset kept", true, true);
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    if (random_below(kOutOf, random) >= kept) {
      result.changes[i] = kNothing;
    } else if (tear && one_in(4, random)) {
      result.changes[i] = torn(*changes_[i], random);
    }
  }
  if (tear && !changes_.empty()) result.changes.back() = torn(*changes_.back(), random);
  for (auto& [name, count] : result.entries) count = random_below(count + 1, random);
  return result;
}

std::vector<Fate> Disk::fates(const FateBounds& bounds, std::mt19937_64& random) const {
  std::vector<Fate> fates = {fate("all pending dropped", false, false)};
  if (!anything_pending()) return fates;
  fates.push_back(all_kept());
  fates.push_back(fate("content kept, entries dropped", true, false));
  fates.push_back(fate("content dropped, entries kept", false, true));
  if (!changes_.empty()) {
    fates.push_back(fate("all but the first kept", true, true));
    fates.back().changes.front() = kNothing;
    fates.push_back(fate("all but the last kept", true, true));
    fates.back().changes.back() = kNothing;

    std::vector<std::size_t> boundaries = sector_boundaries(*changes_.back());
    std::shuffle(boundaries.begin(), boundaries.end(), random);
    if (boundaries.size() > bounds.tears) {
      boundaries.resize(static_cast<std::size_t>(bounds.tears));
    }
    for (const std::size_t at : boundaries) {
      fates.push_back(fate("the last one torn", true, true));
      fates.back().changes.back() = {0, at};
    }
  }
  for (uint64_t i = 0; i < bounds.subsets; ++i) fates.push_back(random_fate(random));
  return fates;
}

DiskImage Disk::image(const Fate& fate) const {
  std::vector<std::string> contents = contents_;
  for (std::size_t i = 0; i < changes_.size(); ++i) {
    apply(*changes_[i], fate.changes[i], contents[changed_[i]]);
  }
  DiskImage image;
  for (const auto& [name, entry] : entries_) {
    const std::size_t kept = fate.entries.at(name);
    const std::optional<File> file = kept == 0 ? entry.durable : entry.pending[kept - 1];
    if (file.has_value()) image[name] = contents[*file];
  }
  return image;
}

}  // namespace corvan_test
