#include "tests/damage/files.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "db/cv_db_singleton.h"
#include "tests/support/clock.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

using Corvan::CvDbSingleton;
using Corvan::SessionType;

void open(const TemporaryFolder& folder) {
  if (!store().init_open_db(cvrtc::Pathname(folder.path()), "", "me")) {
    throw std::runtime_error("the store does not open");
  }
}

// Message number N: every fourth is the user's own, every ninth fills several pages.
void save(int number, const std::string& prefix) {
  const bool own = number % 4 == 0;
  const auto kind = static_cast<SessionType>(1 + number % 5);
  const std::string conversation = prefix + std::to_string(number % 5 + 5 * (number % 3));
  const std::string sender = own ? "me" : "user" + std::to_string(number % 7);
  const auto length = static_cast<std::size_t>(number % 9 == 0 ? 9000 + number * 20 : number % 200);
  const std::string text = prefix + std::to_string(number) + ":" +
                           std::string(length, static_cast<char>('a' + number % 26));
  const std::string uid = number % 10 == 0 ? "" : prefix + "uid" + std::to_string(number);
  const int32_t sent_status = own ? number / 4 % 4 : 0;
  store().save_message(conversation, kind, number % 6 == 0 ? "CV:ImgMsg" : "CV:TxtMsg", sender,
                       text, !own, sent_status, 0, number % 11 == 0, 1000 + number, 500 + number,
                       uid, false, false, !own);
}

// Saves messages `first` to `last` - 1 and some settings of their conversations.
void fill(int first, int last, const std::string& prefix) {
  store().start_transaction();
  for (int number = first; number < last; ++number) save(number, prefix);
  store().commit_transaction();
  store().set_is_top(prefix + "1", Corvan::CV_GROUP, true, true);
  store().set_message_draft(prefix + "2", Corvan::CV_CHATROOM, prefix + std::to_string(first));
  store().set_silence(prefix + "0", Corvan::CV_PRIVATE, 2);
  store().set_sync_time(first + 10000, true);
  store().set_sync_time(first + 10000, false);
  store().delete_message(std::vector<int64_t>{first + 3, first + 12});
}

// Reads the whole file at once, because each point of the random test reads a file.
std::string content_of(const std::string& file) {
  std::string content(static_cast<std::size_t>(std::filesystem::file_size(file)), '\0');
  std::ifstream in(file, std::ios::binary);
  if (!in.read(content.data(), static_cast<std::streamsize>(content.size()))) {
    throw std::runtime_error("cannot read " + file);
  }
  return content;
}

struct Stores {
  Files closed;
  Files crashed;
};

Stores make_stores(const std::string& prefix) {
  const TemporaryFolder folder;
  set_clock(1000000);
  Stores stores;
  open(folder);
  fill(0, 240, prefix);
  store().close_db();
  stores.closed = read_files(folder.path());
  open(folder);
  fill(240, 320, prefix);
  stores.crashed = read_files(folder.path());
  store().close_db();
  return stores;
}

const Stores& own_stores() {
  static const Stores stores = make_stores("room");
  return stores;
}

}  // namespace

CvDbSingleton& store() {
  return *CvDbSingleton::get_instance();
}

Files read_files(const std::string& folder) {
  Files files;
  std::error_code none;
  for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
    const std::string name = folder + "corvan" + suffix;
    if (std::filesystem::is_regular_file(name, none)) files[suffix] = content_of(name);
  }
  return files;
}

void write_files(const std::string& folder, const Files& files) {
  for (const auto& [suffix, content] : files) write_file(folder + "corvan" + suffix, content);
}

std::string Random::bytes(std::size_t count) {
  std::string text(count, '\0');
  for (char& byte : text) byte = static_cast<char>(below(256));
  return text;
}

std::string overwritten(std::string text, std::size_t at, const std::string& part) {
  return text.replace(at, part.size(), part);
}

const Files& closed_store() {
  return own_stores().closed;
}

const Files& crashed_store() {
  return own_stores().crashed;
}

const Files& other_store() {
  // Ids as long as those of the own store, so that both have the same trees on the same pages.
  static const Files files = make_stores("peer").crashed;
  return files;
}

}  // namespace corvan_test
