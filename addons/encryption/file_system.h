// The system's calls on the file of a store that is being converted. Paths are UTF-8. The functions
// throw ConversionFailure if the system refuses a call.

#ifndef ADDONS_ENCRYPTION_FILE_SYSTEM_H_
#define ADDONS_ENCRYPTION_FILE_SYSTEM_H_

#include <cstdint>
#include <string>

namespace Corvan::encryption {

// Whether a file can be replaced while this process has it open.
extern const bool kReplacesOpenFiles;

// Whether hard links give the file other names.
bool has_other_names(const std::string& file);

// Does nothing if there is no such file.
void remove_file(const std::string& file);

// Bytes that this process can write to the file's file system.
std::uintmax_t free_space(const std::string& file);

// Creates an empty file with the permissions of `model` and, if the system allows it, its owner.
void create_like(const std::string& file, const std::string& model);

void sync_file(const std::string& file);

// Renames `from` to `to`, replacing an existing file.
void rename_over(const std::string& from, const std::string& to);

// Syncs a folder. Returns an empty text on success, or if the system has no such call; otherwise
// the error. Throws nothing.
std::string sync_folder(const std::string& folder);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_FILE_SYSTEM_H_
