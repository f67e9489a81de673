// Decrypts single pages of an encrypted file.

#ifndef TOOLS_SALVAGE_FILE_PAGE_CIPHER_H_
#define TOOLS_SALVAGE_FILE_PAGE_CIPHER_H_

#include <cstddef>
#include <memory>
#include <string>

#include "addons/encryption/store_keys.h"
#include "tools/salvage/file/page.h"
#include "tools/store/temporary_folder.h"

struct sqlite3;

namespace corvan_tool {

// Each page is encrypted and authenticated separately, with its number. So a page can be decrypted
// although others are damaged, and a page of a write-ahead log as well. SQLite does it: the
// encrypted page is put at its place in a temporary file, and read through the connection's file.
// Only the encrypted bytes are written, and only one page at a time.
class PageCipher {
 public:
  // The bytes at the beginning of a file, from which a passphrase's key is derived.
  static constexpr std::size_t kSalt = 16;

  // `beginning` is the beginning of the file; it may be too short or damaged. Throws ToolError if
  // the cipher cannot decrypt single pages.
  PageCipher(const Corvan::StoreKey& key, std::size_t page_size, std::string beginning);
  PageCipher(const PageCipher&) = delete;
  PageCipher& operator=(const PageCipher&) = delete;
  ~PageCipher();

  // The bytes at the end of each page that hold its nonce and its authentication code.
  std::size_t reserved() const;

  // Replaces an encrypted page by its content. False if the page is not whole, was not encrypted
  // with this key as the page of that number, or was damaged since.
  bool decrypt(PageNumber page, std::string& bytes) const;

 private:
  void open(const Corvan::StoreKey& key);
  bool put(PageNumber page, const std::string& bytes) const;

  struct CloseConnection {
    void operator()(sqlite3* connection) const;
  };

  const std::size_t page_size_;
  const TemporaryFolder folder_;
  const std::string path_;
  const int file_;
  std::unique_ptr<sqlite3, CloseConnection> connection_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_PAGE_CIPHER_H_
