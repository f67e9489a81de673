#include "base/fatal_message.h"

#include <cstdlib>
#include <iostream>
#include <locale>

namespace cvrtc {

FatalMessage::FatalMessage(const char* file, int line) {
  stream_.imbue(std::locale::classic());
  stream_ << "Fatal error in " << file << ", line " << line << '\n';
}

FatalMessage::~FatalMessage() {
  std::cerr << stream_.str() << std::endl;
  std::abort();
}

}  // namespace cvrtc
