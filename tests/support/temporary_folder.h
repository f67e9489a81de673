#ifndef TESTS_SUPPORT_TEMPORARY_FOLDER_H_
#define TESTS_SUPPORT_TEMPORARY_FOLDER_H_

#include <string>

namespace corvan_test {

// A new empty folder, removed with all it holds when the object ends.
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

// Lets the folders made from now on lie in memory where there is room for that, for suites that
// write files by the thousand. TMPDIR, where it is set, wins.
void prefer_memory();

bool file_exists(const std::string& path);
std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_TEMPORARY_FOLDER_H_
