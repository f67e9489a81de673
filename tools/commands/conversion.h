// What the commands encrypt, decrypt and rekey share.

#ifndef TOOLS_COMMANDS_CONVERSION_H_
#define TOOLS_COMMANDS_CONVERSION_H_

#include <functional>
#include <string>

#include "addons/encryption/store_encryption.h"
#include "base/pathname.h"

namespace corvan_tool {

// What a command calls its conversion: "encrypted", and the command for the opposite case.
struct ConversionTexts {
  std::string done;
  std::string advice;  // after kNotEncrypted and kAlreadyEncrypted
};

// Converts the store in `folder` with `convert`, and reports the result. Returns the exit status.
// Throws ToolError if the store was not converted, which is then unchanged.
int convert_and_report(const std::string& folder, bool json, const ConversionTexts& texts,
                       const std::function<Corvan::Conversion(const cvrtc::Pathname&)>& convert);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_CONVERSION_H_
