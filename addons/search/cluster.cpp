#include "addons/search/cluster.h"

#include <utf8proc.h>

#include <algorithm>

#include "addons/search/code_point.h"

namespace Corvan::search {

namespace {

constexpr auto kFolding = static_cast<utf8proc_option_t>(
    UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);

int combining_class(int32_t point) {
  return utf8proc_get_property(point)->combining_class;
}

}  // namespace

Cluster::Cluster(std::string_view text) {
  char32_t point = 0;
  bytes_ = decode(text, point);
  if (bytes_ == 0) {
    bytes_ = 1;
    return;
  }
  points_[size_++] = static_cast<int32_t>(point);
  int32_t state = 0;
  while (bytes_ < text.size() && size_ < kMostCodePoints) {
    const std::size_t more = decode(text.substr(bytes_), point);
    if (more == 0) return;
    const auto next = static_cast<int32_t>(point);
    if (utf8proc_grapheme_break_stateful(points_[size_ - 1], next, &state)) return;
    points_[size_++] = next;
    bytes_ += more;
  }
}

FoldedCluster::FoldedCluster(const Cluster& cluster) {
  decompose(cluster);
  sort_marks();
  const auto size = static_cast<utf8proc_ssize_t>(size_);
  const auto composed = utf8proc_normalize_utf32(points_.data(), size, kFolding);
  if (composed >= 0) size_ = static_cast<std::size_t>(composed);
  drop_marks_of_space();
}

// U+00B4, which many write for an apostrophe, folds to a space with an accent. It separates words.
void FoldedCluster::drop_marks_of_space() {
  if (size_ > 1 && points_[0] == ' ' && combining_class(points_[1]) > 0) size_ = 1;
}

void FoldedCluster::decompose(const Cluster& cluster) {
  for (std::size_t i = 0; i < cluster.size(); ++i) {
    const auto room = static_cast<utf8proc_ssize_t>(points_.size() - size_);
    int unused = 0;
    const auto count = utf8proc_decompose_char(cluster.points_[i], points_.data() + size_, room,
                                               kFolding, &unused);
    if (count < 0 || count > room) return;
    size_ += static_cast<std::size_t>(count);
  }
}

// The canonical order: marks by their combining class. The sort is stable.
void FoldedCluster::sort_marks() {
  for (std::size_t i = 1; i < size_; ++i) {
    const int32_t point = points_[i];
    const int rank = combining_class(point);
    std::size_t to = i;
    while (rank > 0 && to > 0 && combining_class(points_[to - 1]) > rank) {
      points_[to] = points_[to - 1];
      --to;
    }
    points_[to] = point;
  }
}

}  // namespace Corvan::search
