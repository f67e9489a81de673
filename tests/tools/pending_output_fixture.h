// A folder for output that a command has not finished yet.

#ifndef TESTS_TOOLS_PENDING_OUTPUT_FIXTURE_H_
#define TESTS_TOOLS_PENDING_OUTPUT_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>

#include "tests/tools/program.h"

namespace corvan_test {

class PendingOutputTest : public testing::Test {
 protected:
  std::string place(const std::string& name) const { return folder.file(name); }
  Rows content() const {
    Rows names;
    for (const auto& [name, state] : listing(folder.path())) names.push_back(name);
    return names;
  }
  const TemporaryFolder folder;
};

class InterruptTest : public ToolTest {};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_PENDING_OUTPUT_FIXTURE_H_
