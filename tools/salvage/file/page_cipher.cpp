#include "tools/salvage/file/page_cipher.h"

#include <sqlite3.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "addons/encryption/keying.h"
#include "tools/platform/files.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

int make_file(const std::string& path, std::string beginning) {
  const int file = create_file(path);
  beginning.resize(PageCipher::kSalt);
  if (file < 0 || !write_at(file, 0, beginning.data(), beginning.size())) {
    throw ToolError(path + ": " + std::strerror(errno) + "; make room there, or set TMPDIR");
  }
  return file;
}

}  // namespace

PageCipher::PageCipher(const Corvan::StoreKey& key, std::size_t page_size, std::string beginning)
    : page_size_(page_size),
      path_(folder_.path() + "page"),
      file_(make_file(path_, std::move(beginning))) {
  open(key);
  // A cipher that works above the file would hand out the encrypted bytes.
  std::string noise(page_size_, '\xa5');
  if (decrypt(2, noise)) throw ToolError("salvage cannot use this SQLite's cipher");
}

PageCipher::~PageCipher() {
  close_file(file_);
}

void PageCipher::CloseConnection::operator()(sqlite3* connection) const {
  sqlite3_close_v2(connection);
}

void PageCipher::open(const Corvan::StoreKey& key) {
  sqlite3* connection = nullptr;
  const int rc = sqlite3_open_v2(path_.c_str(), &connection, SQLITE_OPEN_READWRITE, nullptr);
  connection_.reset(connection);
  const auto result = rc == SQLITE_OK ? Corvan::encryption::give_key(connection, key)
                                      : Corvan::encryption::Unlocking{};
  if (rc != SQLITE_OK || result.refusal != Corvan::KeyRefusal::kNone) {
    throw ToolError(path_ + ": " + sqlite3_errstr(rc != SQLITE_OK ? rc : result.code));
  }
  const std::string size = "pragma page_size=" + std::to_string(page_size_);
  sqlite3_exec(connection, size.c_str(), nullptr, nullptr, nullptr);
}

std::size_t PageCipher::reserved() const {
  int bytes = -1;  // asks for the number
  sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_RESERVE_BYTES, &bytes);
  return bytes < 0 ? 0 : static_cast<std::size_t>(bytes);
}

// Makes the page the only content of the file.
bool PageCipher::put(PageNumber page, const std::string& bytes) const {
  const std::uint64_t place = (page - std::uint64_t{1}) * page_size_;
  return set_file_size(file_, 0) && write_at(file_, place, bytes.data(), bytes.size());
}

bool PageCipher::decrypt(PageNumber page, std::string& bytes) const {
  if (page == 0 || bytes.size() != page_size_ || !put(page, bytes)) return false;
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (file == nullptr || file->pMethods == nullptr) return false;
  const sqlite3_int64 place = (sqlite3_int64{page} - 1) * static_cast<sqlite3_int64>(page_size_);
  return file->pMethods->xRead(file, bytes.data(), static_cast<int>(page_size_), place) ==
         SQLITE_OK;
}

}  // namespace corvan_tool
