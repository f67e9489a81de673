// An open file descriptor.

#ifndef ADDONS_ENCRYPTION_DESCRIPTOR_H_
#define ADDONS_ENCRYPTION_DESCRIPTOR_H_

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace Corvan::encryption {

// Closes the descriptor. What open() returned is kept as it is, -1 included.
class Descriptor {
 public:
  explicit Descriptor(int descriptor) : descriptor_(descriptor) {}
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() {
    if (is_open()) close(descriptor_);
  }

  bool is_open() const { return descriptor_ >= 0; }
  int get() const { return descriptor_; }

  // Whether everything written has reached the device.
  bool sync() const {
#if defined(F_FULLFSYNC)
    if (fcntl(descriptor_, F_FULLFSYNC) == 0) return true;
#endif
    return fsync(descriptor_) == 0;
  }

 private:
  int descriptor_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_DESCRIPTOR_H_
