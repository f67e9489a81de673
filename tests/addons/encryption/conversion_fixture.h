// A closed store with messages, which the tests of the conversions encrypt and decrypt.

#ifndef TESTS_ADDONS_ENCRYPTION_CONVERSION_FIXTURE_H_
#define TESTS_ADDONS_ENCRYPTION_CONVERSION_FIXTURE_H_

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "addons/encryption/store_encryption.h"
#include "addons/encryption/store_keys.h"
#include "base/pathname.h"
#include "tests/addons/encryption/disk_search.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

// In every message of the store.
inline const std::string kPlanted = planted_word();

// Different numbers give different keys.
Corvan::StoreKey test_key(int number);
// The same key as 64 hexadecimal digits.
std::string test_key_digits(int number);

// What a store holds: the rows of its schema, its settings and its tables, each with its name in
// front. Opens the file as any program would. Throws std::runtime_error if it cannot be read.
std::vector<std::string> contents(const std::string& file);

// Saves messages, a draft and sync times through the store's class, and closes it.
void fill_store(const std::string& folder, int messages);

// Runs statements on the folder's file. Throws std::runtime_error if they fail.
void run_sql(const std::string& folder, const std::string& sql);

// The folder's files, and the files in the temporary folders, that contain the planted text.
std::string files_with_planted_text(const std::string& folder);

// All files of a folder by name.
std::map<std::string, std::string> files_of(const std::string& folder);

class ConversionTest : public testing::Test {
 protected:
  ConversionTest();
  ~ConversionTest() override;
  void SetUp() override;

  std::string store_folder() const { return folder.file("store/"); }
  std::string file() const { return store_folder() + "corvan"; }
  cvrtc::Pathname pathname() const { return cvrtc::Pathname(store_folder()); }
  std::vector<std::string> contents() const { return corvan_test::contents(file()); }
  bool opens() const;

  // Encrypts the store and expects that to succeed.
  void encrypt(int key = 1);

  TemporaryFolder folder;
  LogCapture log{cvrtc::LS_WARNING};
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_CONVERSION_FIXTURE_H_
