#include "tests/support/operations/operation.h"

#include <iterator>
#include <ostream>

namespace corvan_test {

void PrintTo(const Operation& operation, std::ostream* out) {
  *out << operation.name << operation.overload;
}
void PrintTo(const Statements& statements, std::ostream* out) {
  *out << statements.name;
}
void PrintTo(const Call& call, std::ostream* out) {
  *out << call.name;
}
void PrintTo(const FlatCase& flat, std::ostream* out) {
  *out << flat.name;
}
void PrintTo(const GrowingCase& growing, std::ostream* out) {
  *out << growing.name;
}

Operation outside_the_suites(const std::string& name, const std::string& reason,
                             const std::string& overload) {
  Operation operation(name, Commits::kNothing, overload);
  operation.outside = reason;
  return operation;
}

Operations all_operations(const std::string& folder) {
  Operations all = operations_of_lifecycle(folder);
  for (Operations (*section)() :
       {operations_of_transactions, operations_of_saving, operations_of_duplicate_tests,
        operations_of_message_state, operations_of_message_state_blocks, operations_of_deleting,
        operations_of_message_queries, operations_of_history, operations_of_read_state,
        operations_of_conversation_settings, operations_of_conversation_rows,
        operations_of_conversation_list, operations_of_conversation_list_blocks,
        operations_of_counters, operations_of_unread_sums, operations_of_statement_layer}) {
    Operations more = section();
    std::move(more.begin(), more.end(), std::back_inserter(all));
  }
  return all;
}

}  // namespace corvan_test
