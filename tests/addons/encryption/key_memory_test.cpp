// Where keys are in the process's memory, while they are in use and afterwards.

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "addons/encryption/secret.h"
#include "addons/encryption/store_keys.h"
#include "db/cv_db_singleton.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

using Corvan::CvDbSingleton;
using Corvan::StoreKey;
using Corvan::StoreKeys;

constexpr unsigned char kMask = 0x5a;

// A text to search for. It is kept in another form, so that the search does not find it here.
class Hidden {
 public:
  void append(unsigned char byte) { masked_ += static_cast<char>(byte ^ kMask); }
  std::size_t size() const { return masked_.size(); }

  bool is_at(const unsigned char* place) const {
    for (std::size_t i = 0; i < masked_.size(); ++i) {
      if ((place[i] ^ kMask) != static_cast<unsigned char>(masked_[i])) return false;
    }
    return true;
  }
  std::size_t count_in(const unsigned char* bytes, std::size_t size) const {
    std::size_t found = 0;
    for (std::size_t i = 0; i + masked_.size() <= size; ++i) found += is_at(bytes + i) ? 1U : 0U;
    return found;
  }

 private:
  std::string masked_;
};

// Reads memory in pieces that overlap. Its own buffer is left out of the search.
class Memory {
 public:
  Memory()
      : buffer_(static_cast<unsigned char*>(
            mmap(nullptr, kBuffer, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))),
        file_(std::fopen("/proc/self/mem", "rb")) {
    std::setvbuf(file_, nullptr, _IONBF, 0);
  }
  Memory(const Memory&) = delete;
  Memory& operator=(const Memory&) = delete;
  ~Memory() {
    std::fclose(file_);
    munmap(buffer_, kBuffer);
  }

  std::size_t count(const Hidden& text) {
    std::ifstream maps("/proc/self/maps");
    std::string line;
    std::size_t found = 0;
    while (std::getline(maps, line)) {
      std::istringstream fields(line);
      uintptr_t begin = 0;
      uintptr_t end = 0;
      char dash = 0;
      std::string rights;
      fields >> std::hex >> begin >> dash >> end >> rights;
      const bool is_buffer = begin <= address() && address() < end;
      if (rights[1] != 'w' || line.find("[v") != std::string::npos) continue;
      // The kernel may join the buffer's mapping with its neighbours.
      if (!is_buffer) {
        found += count_in(begin, end, text);
      } else {
        found += count_in(begin, address(), text) + count_in(address() + kBuffer, end, text);
      }
    }
    return found;
  }

 private:
  static constexpr std::size_t kBuffer = std::size_t{1} << 20;
  static constexpr std::size_t kOverlap = 256;

  uintptr_t address() const { return reinterpret_cast<uintptr_t>(buffer_); }

  std::size_t count_in(uintptr_t begin, uintptr_t end, const Hidden& text) {
    std::size_t found = 0;
    for (uintptr_t place = begin; place < end; place += kBuffer - kOverlap) {
      const std::size_t wanted = std::min<std::size_t>(kBuffer, end - place);
      if (fseeko(file_, static_cast<off_t>(place), SEEK_SET) != 0) break;
      const std::size_t read = std::fread(buffer_, 1, wanted, file_);
      if (read == 0) break;
      // What begins in the overlap is counted with the next piece.
      const std::size_t last = place + wanted < end ? read - kOverlap + text.size() - 1 : read;
      found += text.count_in(buffer_, last);
    }
    return found;
  }

  unsigned char* buffer_;
  std::FILE* file_;
};

// The parts of a secret text. Memory that was released can be overwritten in part.
class HiddenParts {
 public:
  explicit HiddenParts(std::size_t part_size) : part_size_(part_size) {}
  void append(unsigned char byte) {
    if (parts_.empty() || parts_.back().size() == part_size_) parts_.emplace_back();
    parts_.back().append(byte);
  }
  // How often the part that is most frequent is in memory.
  std::size_t most(Memory& memory) const {
    std::size_t most = 0;
    for (const Hidden& part : parts_) most = std::max(most, memory.count(part));
    return most;
  }

 private:
  std::size_t part_size_;
  std::vector<Hidden> parts_;
};

class KeyMemory : public testing::Test {
 protected:
  ~KeyMemory() override { CvDbSingleton::delete_instance(); }

  static bool has_cipher() { return StoreKeys::has_cipher(); }

  StoreKey new_key(unsigned number) {
    StoreKey::Bytes bytes{};
    uint64_t state = 0x1234567 + number;
    for (unsigned char& byte : bytes) {
      state = state * 6364136223846793005U + 1442695040888963407U;
      byte = static_cast<unsigned char>(state >> 56U);
      raw.append(byte);
      hex.append(static_cast<unsigned char>("0123456789abcdef"[byte >> 4U]));
      hex.append(static_cast<unsigned char>("0123456789abcdef"[byte & 15U]));
    }
    return StoreKey(bytes);
  }
  std::string new_text(const char* begin) {
    std::string text;
    text.reserve(100);  // otherwise it leaves copies behind
    text = begin;
    for (char c = 'A'; c <= 'Z'; ++c) {
      for (const char letter : {c, static_cast<char>('z' - (c - 'A'))}) {
        text += letter;
        hex.append(static_cast<unsigned char>(letter));
      }
    }
    return text;
  }
  StoreKey new_passphrase() {
    std::string text = new_text("");
    return StoreKey::from_passphrase(text);
  }

  static bool open(const cvrtc::Pathname& place) {
    CvDbSingleton& store = *CvDbSingleton::get_instance();
    const bool opened = store.init_open_db(place, "", "me");
    for (int i = 0; opened && i < 20; ++i) {
      store.save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "text", true, 0, 0, false,
                         1 + i, 0, std::to_string(i), false, false, true);
    }
    store.close_db();
    return opened;
  }

  void expect_gone() {
    EXPECT_EQ(raw.most(memory), 0U);
    EXPECT_EQ(hex.most(memory), 0U);
  }

  TemporaryFolder folder;
  const cvrtc::Pathname path{folder.path()};
  HiddenParts raw{8};
  HiddenParts hex{16};
  Memory memory;
  LogCapture log;
};

TEST_F(KeyMemory, SearchFindsWhatIsThere) {
  const StoreKey key = new_key(0);
  EXPECT_EQ(hex.most(memory), 1U);
  const std::string copy(key.secret().view());
  EXPECT_EQ(hex.most(memory), 2U);
}

TEST_F(KeyMemory, KeyIsWipedWithItsLastCopy) {
  {
    StoreKey key = new_key(1);
    EXPECT_EQ(raw.most(memory), 0U);
    EXPECT_EQ(hex.most(memory), 1U);
    const StoreKey copy = key;
    key = StoreKey();
    EXPECT_EQ(hex.most(memory), 1U);
  }
  expect_gone();
}

TEST_F(KeyMemory, ForgottenKeyIsWiped) {
  StoreKeys::set(path, new_key(2));
  EXPECT_EQ(hex.most(memory), 1U);
  StoreKeys::forget(path);
  expect_gone();
}

TEST_F(KeyMemory, ClearedKeyIsWiped) {
  StoreKeys::set(path, new_key(3));
  StoreKeys::clear(path);
  expect_gone();
}

TEST_F(KeyMemory, ReplacedKeyIsWiped) {
  StoreKeys::set(path, new_key(4));
  StoreKey::Bytes other{};
  StoreKeys::set(path, StoreKey(other));
  expect_gone();
}

// After the connections are closed, only the library's own copy is left.
TEST_F(KeyMemory, NothingIsLeftOfUsedKey) {
  if (!has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  StoreKeys::set(path, new_key(5));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(open(path));
  EXPECT_EQ(raw.most(memory), 0U);
  EXPECT_EQ(hex.most(memory), 1U);
  StoreKeys::forget(path);
  expect_gone();
}

TEST_F(KeyMemory, NothingIsLeftOfRefusedKey) {
  if (!has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  StoreKey::Bytes right{};
  StoreKeys::set(path, StoreKey(right));
  EXPECT_TRUE(open(path));
  StoreKeys::set(path, new_key(6));
  EXPECT_FALSE(open(path));
  StoreKeys::forget(path);
  expect_gone();
}

TEST_F(KeyMemory, NothingIsLeftOfUsedPassphrase) {
  if (!has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  StoreKeys::set(path, new_passphrase());
  EXPECT_TRUE(open(path));
  EXPECT_EQ(hex.most(memory), 1U);
  StoreKeys::forget(path);
  expect_gone();
}

TEST_F(KeyMemory, RefusedPassphraseIsWiped) {
  std::string text = new_text("x'");
  EXPECT_FALSE(StoreKey::from_passphrase(text).is_valid());
  expect_gone();
}

// The flags of the mapping that contains an address, as /proc/self/smaps names them.
std::string mapping_flags(const void* address) {
  std::ifstream maps("/proc/self/smaps");
  std::string line;
  bool is_there = false;
  while (std::getline(maps, line)) {
    std::istringstream fields(line);
    uintptr_t begin = 0;
    uintptr_t end = 0;
    char dash = 0;
    if (fields >> std::hex >> begin >> dash >> end && dash == '-') {
      const auto place = reinterpret_cast<uintptr_t>(address);
      is_there = begin <= place && place < end;
    }
    if (is_there && line.rfind("VmFlags:", 0) == 0) return line + " ";
  }
  return "";
}

TEST_F(KeyMemory, SecretIsLockedAndLeftOutOfCoreDumps) {
  const StoreKey key = new_key(7);
  const std::string flags = mapping_flags(key.secret().c_str());
  EXPECT_NE(flags.find(" dd "), std::string::npos) << flags;
  StoreKey::Bytes page{};
  if (mlock(page.data(), page.size()) != 0) GTEST_SKIP() << "this process may not lock memory";
  EXPECT_NE(flags.find(" lo "), std::string::npos) << flags;
}

}  // namespace

}  // namespace corvan_test
