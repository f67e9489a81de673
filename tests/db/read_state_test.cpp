#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using ReadState = StoreTest;

TEST_F(ReadState, SendTimeOfMessage) {
  const int64_t id = save(NewMessage().at(4000000000000));
  EXPECT_EQ(store().get_send_time(id), 4000000000000);
}

}  // namespace
}  // namespace corvan_test
