// Builds pages and logs of SQLite's file format with any content.

#ifndef TESTS_TOOLS_HOSTILE_PAGES_H_
#define TESTS_TOOLS_HOSTILE_PAGES_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace corvan_test {

// A number in `size` bytes.
std::string big_endian(std::uint64_t number, std::size_t size);

// A number in SQLite's variable length.
std::string varint(std::uint64_t number);

// A page of a tree with these cells at its end, and `pointers` further pointers to the last cell.
std::string tree_page(std::size_t size, char type, const std::vector<std::string>& cells,
                      std::size_t pointers = 0);

// The beginning, up to the content, and the whole size of a record of t_message with `content`
// bytes of content.
struct MessageRecord {
  std::string begin;
  std::uint64_t size = 0;
};
MessageRecord message_record(std::uint64_t content);

// A row of t_message whose record is on its page. The content repeats a letter.
std::string message_cell(std::int64_t id, char letter, std::size_t content);

struct LogFrame {
  std::uint32_t page;
  std::uint32_t committed;  // the file's pages after the commit that the frame ends, or 0
  std::string content;
};

// A write-ahead log with correct checksums.
class LogText {
 public:
  explicit LogText(std::size_t page_size);

  void add(const LogFrame& frame);

  const std::string& text() const { return text_; }

 private:
  std::string sums() const;
  void sum(const std::string& bytes);

  const std::size_t page_size_;
  std::string text_;
  std::uint32_t first_ = 0;
  std::uint32_t second_ = 0;
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_HOSTILE_PAGES_H_
