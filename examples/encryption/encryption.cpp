// A client whose stores are encrypted: it starts, makes a key, encrypts a store that an earlier
// release left unencrypted, signs its user out and in again, and changes the key. Needs an SQLite
// with a cipher; without one, it says so and ends.

#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <random>
#include <string>

#include "addons/encryption/store_encryption.h"
#include "addons/encryption/store_keys.h"
#include "db/cv_db_singleton.h"

namespace {

using Corvan::ConversionResult;
using Corvan::CvDbSingleton;
using Corvan::KeyRefusal;
using Corvan::StoreKey;
using Corvan::StoreKeys;

const cvrtc::Pathname folder("store/");

// 32 bytes from the system's random number generator. An app asks its platform for them.
StoreKey::Bytes random_bytes() {
  std::random_device device;
  StoreKey::Bytes bytes;
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(device());
  return bytes;
}

// Stands for the platform's key store, which keeps bytes on the device where no other app reads
// them.
struct KeyStore {
  StoreKey::Bytes current = random_bytes();
  std::optional<StoreKey::Bytes> next;  // while the key is being changed
};
KeyStore& key_store() {
  static KeyStore kept;
  return kept;
}

// StoreKey overwrites the bytes that it is given: here a copy.
StoreKey key_of(StoreKey::Bytes bytes) {
  return StoreKey(bytes);
}

bool is_encrypted() {
  std::string head(15, '\0');
  std::ifstream("store/corvan", std::ios::binary).read(head.data(), 15);
  return head != "SQLite format 3";
}

// What an earlier release left.
void make_plain_store() {
  std::filesystem::remove_all("store");
  std::filesystem::create_directory("store");
  CvDbSingleton* store = CvDbSingleton::get_instance();
  store->init_open_db(folder, "", "me");
  store->save_message("team", Corvan::CV_GROUP, "CV:TxtMsg", "peer", "Hello!", true, 0, 0, false, 0,
                      0, "server-id-1", false, false, true);
  store->close_db();
}

// Before the first store is opened.
bool start() {
  return StoreKeys::install() && StoreKeys::expect(folder);
}

// Encrypts what an earlier release left. The key is in the key store already.
bool encrypt() {
  const auto conversion = Corvan::encrypt_store(folder, key_of(key_store().current));
  return conversion.result == ConversionResult::kDone;
}

// Finishes a change of the key that a killed process did not.
bool change_key_to_next() {
  if (!key_store().next) return true;
  const auto conversion =
      Corvan::rekey_store(folder, key_of(key_store().current), key_of(*key_store().next));
  if (conversion.result != ConversionResult::kDone &&
      conversion.result != ConversionResult::kAlreadyDone) {
    return false;
  }
  key_store().current = *key_store().next;
  key_store().next.reset();
  return true;
}

// Opens the store of the user who signs in. False if it stays closed.
bool sign_in() {
  if (!change_key_to_next()) return false;
  if (!StoreKeys::set(folder, key_of(key_store().current))) return false;
  if (CvDbSingleton::get_instance()->init_open_db(folder, "", "me")) return true;
  if (StoreKeys::last_refusal() != KeyRefusal::kNotEncrypted || !encrypt()) return false;
  return CvDbSingleton::get_instance()->init_open_db(folder, "", "me");
}

void sign_out() {
  CvDbSingleton::get_instance()->close_db();
  StoreKeys::clear(folder);
}

// The new key is in the key store before the store has it, and the old one until the store has the
// new one.
bool change_key() {
  CvDbSingleton::get_instance()->close_db();
  key_store().next = random_bytes();
  return change_key_to_next();
}

void print_messages() {
  int32_t unread = 0;
  CvDbSingleton::get_instance()->get_unread_count("team", Corvan::CV_GROUP, unread);
  std::cout << "encrypted: " << is_encrypted() << ", unread: " << unread << "\n";
}

}  // namespace

int main() {
  if (!StoreKeys::has_cipher()) {
    std::cout << "this SQLite has no cipher\n";
    return 0;
  }
  make_plain_store();
  if (!start() || !sign_in()) return 1;
  print_messages();
  sign_out();
  if (CvDbSingleton::get_instance()->init_open_db(folder, "", "me")) return 1;
  std::cout << "signed out: " << to_text(StoreKeys::last_refusal()) << "\n";
  if (!sign_in() || !change_key() || !sign_in()) return 1;
  print_messages();
  CvDbSingleton::delete_instance();
  return 0;
}
