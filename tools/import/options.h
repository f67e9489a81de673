// The options of 'corvan import'.

#ifndef TOOLS_IMPORT_OPTIONS_H_
#define TOOLS_IMPORT_OPTIONS_H_

#include <cstddef>
#include <string>
#include <vector>

namespace corvan_tool {

struct ImportOptions {
  std::string folder;
  std::string user;
  std::vector<std::string> files;  // "-" is standard input
  std::size_t batch_size = 1000;   // lines per transaction
  bool history = false;
  bool insert_only = false;
  bool skip_bad = false;
  bool json = false;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_OPTIONS_H_
