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

// Contents of the files by the suffix of their names after "corvan": "", "-wal", "-shm",
// "-journal".
using Files = std::map<std::string, std::string>;

Files read_files(const std::string& folder);
void write_files(const std::string& folder, const Files& files);

constexpr std::size_t kPage = 4096;

// A random generator whose numbers are the same on every platform, unlike those of the standard
// distributions.
class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  // From 0 to `count` - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(engine_() % count); }
  std::string bytes(std::size_t count);

 private:
  std::mt19937_64 engine_;
};

// `text` with the bytes at `at` overwritten by `part`.
std::string overwritten(std::string text, std::size_t at, const std::string& part);

// The files of a closed store: a few hundred messages in conversations of every kind, some messages
// larger than a page.
const Files& closed_store();

// The same store after further saves by a process that ended without closing it: the later rows are
// only in "-wal". Includes "-shm".
const Files& crashed_store();

// Like crashed_store(), but of another user and with other rows.
const Files& other_store();

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_FILES_H_
