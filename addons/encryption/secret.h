// Bytes that must not outlive their use, nor reach the disk.

#ifndef ADDONS_ENCRYPTION_SECRET_H_
#define ADDONS_ENCRYPTION_SECRET_H_

#include <cstddef>
#include <string_view>

namespace Corvan::encryption {

// Overwrites memory with zeros. The compiler does not optimise it away.
void wipe(void* bytes, std::size_t size);

// A text in pages of its own, which are wiped before they are released. Where the system allows it,
// they are locked in memory and, except on Windows, left out of core dumps. The text begins empty
// and grows by append() up to the size given to the constructor.
class Secret {
 public:
  // Throws std::bad_alloc.
  explicit Secret(std::size_t capacity);
  Secret(const Secret&) = delete;
  Secret& operator=(const Secret&) = delete;
  ~Secret();

  // Does nothing beyond the capacity, which callers compute.
  void append(std::string_view text);
  void append_hex(const unsigned char* bytes, std::size_t count);

  // A zero byte follows the text.
  const char* c_str() const { return text_; }
  std::string_view view() const { return {text_, size_}; }

 private:
  char* text_;
  std::size_t size_ = 0;
  const std::size_t allocated_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_SECRET_H_
