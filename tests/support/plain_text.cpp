#include "tests/support/plain_text.h"

#include <filesystem>
#include <system_error>

#include "tests/support/encryption.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

bool has_plain_text(const std::string& bytes) {
  for (const char* const part : {"SQLite format 3", "t_message", "CV:TxtMsg"}) {
    if (bytes.find(part) != std::string::npos) return true;
  }
  return false;
}

std::string files_with_plain_text(const std::string& folder) {
  std::string names;
  if (!stores_are_encrypted()) return names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    std::error_code loop;
    if (!entry.is_regular_file(loop)) continue;
    if (has_plain_text(read_file(entry.path().string()))) {
      names += " " + entry.path().filename().string();
    }
  }
  return names;
}

}  // namespace corvan_test
