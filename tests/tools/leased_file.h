// A way to stop a program at the point where it opens a file.

#ifndef TESTS_TOOLS_LEASED_FILE_H_
#define TESTS_TOOLS_LEASED_FILE_H_

#include <string>

namespace corvan_test {

// While it lives, processes that open the file wait. Creates the file if it is missing.
class LeasedFile {
 public:
  explicit LeasedFile(const std::string& path);
  LeasedFile(const LeasedFile&) = delete;
  LeasedFile& operator=(const LeasedFile&) = delete;
  ~LeasedFile();

  // False if the file system or the system has no leases.
  bool is_held() const { return held_; }

  // Waits until a process opens the file. False if none does within five seconds.
  bool wait_for_opener() const;

 private:
  int fd_ = -1;
  bool held_ = false;
};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_LEASED_FILE_H_
