// Finds messages of the client's store.

#ifndef EXAMPLES_CLIENT_SEARCHING_H_
#define EXAMPLES_CLIENT_SEARCHING_H_

#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace example {

// Indexes what was saved, searches for words that users write, and compares what is found with
// `stored`, all messages of the open store in the folder. Returns one line per difference. Without
// the library Corvan::search, nothing is searched.
std::vector<std::string> search_differences(const std::string& folder,
                                            const std::vector<Corvan::MessageResponse>& stored);

}  // namespace example

#endif  // EXAMPLES_CLIENT_SEARCHING_H_
