// The pages of a damaged file as its last commit left them.

#ifndef TOOLS_SALVAGE_FILE_DAMAGED_FILE_H_
#define TOOLS_SALVAGE_FILE_DAMAGED_FILE_H_

#include <algorithm>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "tools/salvage/file/page.h"
#include "tools/salvage/file/page_cipher.h"
#include "tools/salvage/file/page_set.h"
#include "tools/salvage/file/wal.h"
#include "tools/store/regular_file.h"

namespace corvan_tool {

// The file, with its pages replaced by the committed pages of its write-ahead log, as SQLite would
// see it if it were sound. With a used_key(), pages are decrypted in memory when they are read, and
// pages whose authentication fails cannot be read.
class DamagedFile {
 public:
  // With the log, the file itself may be missing; without it, the file is read as it is. Throws
  // ToolError if the file or its log cannot be opened, if the file is itself a log, or if
  // used_key() decrypts no page. Without a key, throws ToolError if all pages look encrypted.
  DamagedFile(const std::string& path, bool with_log);

  // The pages up to page_count() for which the file or its log has bytes. Of the others, those up
  // to pages_in_file() are in holes of the file and read as zeros; the rest do not exist.
  const PageSet& pages_there() const { return there_; }
  // The number of pages in the file itself, including those in holes.
  PageNumber pages_in_file() const { return std::min(pages_in_file_, page_count_); }
  // The last commit of the log can claim pages that do not exist.
  PageNumber page_count() const { return page_count_; }
  bool is_page(PageNumber page) const { return page > 0 && page <= page_count_; }

  std::size_t page_size() const { return page_size_; }
  // The page size without the bytes reserved at each page's end.
  std::size_t usable() const { return usable_; }

  // The page count in the file's header; 0 if the header does not state it.
  PageNumber declared_pages() const { return declared_pages_; }
  bool header_is_sound() const { return header_is_sound_; }
  // The first page of the list of free pages; 0 if it is empty.
  PageNumber first_free() const { return first_free_; }
  const WalSummary& log() const { return wal_.summary(); }

  // Returns false if the page does not exist or cannot be read. The missing part of a page that was
  // cut off is filled with zeros.
  bool read(PageNumber page, std::string& bytes) const;
  // How many bytes of the page exist: fewer than page_size() if the file ends within the page.
  std::size_t held(PageNumber page) const;
  // Parses the existing part of a page that was read.
  std::optional<Page> parse(PageNumber page, std::string_view bytes) const;
  bool is_in_log(PageNumber page) const { return wal_.has(page); }

  // As Wal::each_unusable(), without pages that cannot be decrypted.
  void each_unusable(const std::function<void(std::string_view bytes)>& read) const;

  // Whether the file or its log was written to after it was opened.
  bool has_changed() const { return main_.has_changed() || wal_.has_changed(); }

 private:
  void refuse_log(const std::string& path) const;
  void find_page_size();
  void find_pages();
  void find_key(const std::string& path);
  bool can_decrypt() const;
  void refuse_encrypted(const std::string& path) const;
  bool looks_encrypted() const;
  void read_header();
  void find_usable(std::size_t reserved);
  bool read_stored(PageNumber page, std::string& bytes) const;

  const ReadOnlyFile main_;
  Wal wal_;
  std::size_t page_size_ = 0;
  std::size_t usable_ = 0;
  PageNumber page_count_ = 0;
  PageNumber pages_in_file_ = 0;
  PageSet there_;
  PageNumber declared_pages_ = 0;
  PageNumber first_free_ = 0;
  bool header_is_sound_ = false;
  std::unique_ptr<const PageCipher> cipher_;  // null without a key
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_DAMAGED_FILE_H_
