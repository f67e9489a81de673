#ifndef TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <string>

namespace corvan_test {

// A new empty folder. The destructor removes it with everything in it.
class TemporaryFolder {
 public:
  TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder();

  // Ends with "/".
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + name; }

 private:
  std::string path_;
};

// Makes new temporary folders in memory if there is room, for suites that write thousands of files.
// TMPDIR has precedence.
void prefer_memory();

bool file_exists(const std::string& path);
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_TEMPORARY_FOLDER_H_
