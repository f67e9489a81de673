// Grapheme clusters: what a reader takes for one character.

#ifndef ADDONS_SEARCH_CLUSTER_H_
#define ADDONS_SEARCH_CLUSTER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Corvan::search {

// A cluster, or its first part if it is very long, or a byte that is not valid UTF-8.
class Cluster {
 public:
  static constexpr std::size_t kMostCodePoints = 32;

  // Reads the first cluster of the text, which must not be empty.
  explicit Cluster(std::string_view text);

  std::size_t bytes() const { return bytes_; }

  // The code points; none if the first byte is not valid.
  std::size_t size() const { return size_; }
  char32_t operator[](std::size_t i) const { return static_cast<char32_t>(points_[i]); }

 private:
  friend class FoldedCluster;

  std::array<int32_t, kMostCodePoints> points_;
  std::size_t size_ = 0;
  std::size_t bytes_ = 0;
};

// The cluster's code points after normalization to NFKC and case folding, without code points that
// are ignorable by default. Each cluster is folded on its own, so that parts of texts fold like the
// texts.
class FoldedCluster {
 public:
  explicit FoldedCluster(const Cluster& cluster);

  std::size_t size() const { return size_; }
  char32_t operator[](std::size_t i) const { return static_cast<char32_t>(points_[i]); }

 private:
  static constexpr std::size_t kMostFromOne = 18;  // U+FDFA

  void decompose(const Cluster& cluster);
  void sort_marks();
  void drop_marks_of_space();

  std::array<int32_t, kMostFromOne * Cluster::kMostCodePoints> points_;
  std::size_t size_ = 0;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CLUSTER_H_
