// Where a key comes from: a file, standard input, or the terminal.

#ifndef TOOLS_STORE_KEY_SOURCE_H_
#define TOOLS_STORE_KEY_SOURCE_H_

#include <string>

#include "addons/encryption/store_keys.h"

namespace corvan_tool {

// All buffers are wiped, and no error contains a character of the key.

// Reads a key from a file that holds 64 hexadecimal digits, with white space around them or
// without; "-" is standard input. Throws ToolError with the file's name if it holds anything else.
Corvan::StoreKey read_key_file(const std::string& file);

// Whether read_key_file() has read standard input, which then cannot be read as a command's input.
bool has_read_standard_input();

enum class Asking { kOnce, kTwice };

// Asks for a passphrase on the terminal, without echo. `name` is what to ask for, such as
// "passphrase". Throws ToolError if there is no terminal, if the user cancels, or if the two
// answers differ.
Corvan::StoreKey ask_passphrase(const std::string& name, Asking asking);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_KEY_SOURCE_H_
