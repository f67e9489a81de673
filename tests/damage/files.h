// The files of a store, and ways to damage them.

#ifndef TESTS_DAMAGE_FILES_H_
#define TESTS_DAMAGE_FILES_H_

#include <cstddef>
#include <map>
#include <random>
#include <string>

namespace Corvan {
class CvDbSingleton;
}

namespace corvan_test {

// The store of this process.
Corvan::CvDbSingleton& store();

// Contents by what follows "corvan" in the name: "", "-wal", "-shm", "-journal".
using Files = std::map<std::string, std::string>;

Files read_files(const std::string& folder);
void write_files(const std::string& folder, const Files& files);

constexpr std::size_t kPage = 4096;

// The same numbers on every platform, which the standard's distributions do not give.
class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  // From 0 to `count` - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(engine_() % count); }
  std::string bytes(std::size_t count);

 private:
  std::mt19937_64 engine_;
};

// `text` with `part` in place of what stands at `at`.
std::string overwritten(std::string text, std::size_t at, const std::string& part);

// A store of a few hundred messages in conversations of every kind, some larger than a page, as it
// lies in its folder after it was closed.
const Files& closed_store();

// The same with what was saved later, as a process leaves it that ended with the store open: the
// later rows are in "-wal" alone. "-shm" is among the files.
const Files& crashed_store();

// As crashed_store(), of another user, with other rows.
const Files& other_store();

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_FILES_H_
