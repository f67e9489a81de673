// The search for plain text that suites do with encrypted stores.

#include "tests/support/plain_text.h"

#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using PlainText = StoreTest;

TEST_F(PlainText, IsFoundInTheFileUnlessStoresAreEncrypted) {
  store().close_db();
  EXPECT_EQ(has_plain_text(read_file(file())), !stores_are_encrypted());
}

TEST_F(PlainText, IsFoundInTheLogUnlessStoresAreEncrypted) {
  ASSERT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(has_plain_text(read_file(folder.file("corvan-wal"))), !stores_are_encrypted());
}

TEST_F(PlainText, IsFoundBesideAnEncryptedStore) {
  write_file(folder.file("beside"), "kind: CV:TxtMsg");
  EXPECT_EQ(files_with_plain_text(folder.path()), stores_are_encrypted() ? " beside" : "");
}

}  // namespace
}  // namespace corvan_test
