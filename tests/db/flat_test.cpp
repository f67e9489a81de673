// The work of an operation does not depend on how much is stored. The tests count the steps of
// SQLite's virtual machine, which are the same in every run, on two stores: one holds ten times as
// much as the other. The counts must be equal, because a step is one instruction, however deep the
// tree that it searches. Operations may take more steps if they return, change, count or skip more
// rows.

#include "tests/support/operations/operation.h"

namespace corvan_test {
namespace {

template <typename Each>
std::string case_name(const testing::TestParamInfo<Each>& info) {
  return info.param.name;
}

class Flat : public FilledStore, public testing::WithParamInterface<FlatCase> {};

TEST_P(Flat, StepsDoNotGrowWithTheStore) {
  const FlatCase& operation = GetParam();
  std::vector<StepCounts> small;
  open_small();
  for (const std::string& id : operation.rooms) small.push_back(steps_of(operation.run, id));
  open_large();
  for (std::size_t i = 0; i < operation.rooms.size(); ++i) {
    SCOPED_TRACE(operation.name + " on conversation " + operation.rooms[i]);
    const StepCounts in_small = small[i];
    const StepCounts in_large = steps_of(operation.run, operation.rooms[i]);
    EXPECT_GT(in_small.vm_steps, 0) << "no statement was counted";
    EXPECT_EQ(in_large.vm_steps, in_small.vm_steps);
    EXPECT_EQ(in_large.full_scan_steps, in_small.full_scan_steps);
    EXPECT_LE(in_large.full_scan_steps, operation.full_scan_steps);
    EXPECT_EQ(in_small.sorts, 0);
    EXPECT_EQ(in_large.sorts, 0);
  }
}

INSTANTIATE_TEST_SUITE_P(Operations, Flat, testing::ValuesIn(all_cases(&Operation::flat)),
                         case_name<FlatCase>);

class Growing : public FilledStore, public testing::WithParamInterface<GrowingCase> {};

// The steps may grow at most in proportion to the store, which rules out sorts. Conversations may
// be scanned, messages may not. A case whose steps do not grow belongs in the flat table.
TEST_P(Growing, StepsGrowAtMostInProportionToTheStore) {
  const GrowingCase& operation = GetParam();
  SCOPED_TRACE(operation.name + " grows with " + operation.grows_with);
  open_small();
  const StepCounts in_small = steps_of(operation.run, operation.room);
  open_large();
  const StepCounts in_large = steps_of(operation.run, operation.room);
  EXPECT_LE(in_large.vm_steps, (kFactor + 1) * in_small.vm_steps);
  EXPECT_GT(in_large.vm_steps, in_small.vm_steps);
  EXPECT_LE(in_large.full_scan_steps, kFactor * kConversations);
  EXPECT_EQ(in_small.sorts, 0);
  EXPECT_EQ(in_large.sorts, 0);
}

INSTANTIATE_TEST_SUITE_P(Operations, Growing, testing::ValuesIn(all_cases(&Operation::growing)),
                         case_name<GrowingCase>);

class FilledStores : public FilledStore {};

TEST_F(FilledStores, LargeStoreHoldsTenTimesTheRowsOfTheSmallStore) {
  open_small();
  const Rows kinds = rows("select distinct object_name from t_message");
  EXPECT_EQ(kinds.size(), 3U);
  EXPECT_EQ(count("t_message"), kMessages);
  EXPECT_EQ(count("t_session"), kConversations);
  EXPECT_EQ(room(kLargest).messages, kMessages / 10);
  EXPECT_EQ(room(kTiny).messages, kTinyMessages);
  open_large();
  EXPECT_EQ(count("t_message"), kFactor * kMessages);
  EXPECT_EQ(count("t_session"), kFactor * kConversations);
  EXPECT_EQ(room(kLargest).messages, kFactor * kMessages / 10);
  EXPECT_EQ(room(kTiny).messages, kTinyMessages);
  for (const char* id : {kOwn, kCovered, kReceived, kOlder, kOlderRead}) {
    EXPECT_EQ(room(id).messages, kFactor * kMessages / 20) << id;
  }
}

}  // namespace
}  // namespace corvan_test
