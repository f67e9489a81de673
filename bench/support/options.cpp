#include "bench/support/options.h"

#include <cstdlib>
#include <iostream>

namespace corvan_bench {

Options parse_options(int argc, char** argv) {
  Options options;
  const std::string usage = "usage: " + std::string(argv[0]) + " [--quick|--full] [--json FILE]\n";
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--quick") {
      options.quick = true;
    } else if (argument == "--full") {
      options.full = true;
    } else if (argument == "--json" && i + 1 < argc) {
      options.json = argv[++i];
    } else if (argument == "--help") {
      std::cout << usage;
      std::exit(0);
    } else {
      std::cerr << argv[0] << ": unknown argument " << argument << "; " << usage;
      std::exit(2);
    }
  }
  return options;
}

}  // namespace corvan_bench
