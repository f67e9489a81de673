// The path type: a folder, a base name and an extension, each of which can be replaced alone.

#ifndef BASE_PATHNAME_H_
#define BASE_PATHNAME_H_

#include <string>

namespace cvrtc {

// Purely textual: nothing here looks at the file system. `pathname()` is always
// `folder()` + `basename()` + `extension()`.
class Pathname {
 public:
  static constexpr char kFolderDelimiter = '/';
  static constexpr char kExtensionDelimiter = '.';

  Pathname() = default;

  // As SetPathname: "/a/b" is the file "b" in the folder "/a/", "/a/b/" is a folder alone.
  explicit Pathname(const std::string& pathname) { SetPathname(pathname); }

  // As SetFolder and SetFilename: `folder` is a folder with or without its last delimiter.
  Pathname(const std::string& folder, const std::string& filename);

  // The full text; empty when nothing is set.
  std::string pathname() const { return folder_ + basename_ + extension_; }
  // The folder with its last delimiter, or empty.
  const std::string& folder() const { return folder_; }
  // Base name and extension together.
  std::string filename() const { return basename_ + extension_; }
  // The file name up to its last dot. A dot that starts the name, as in ".profile", and the names
  // "." and ".." belong to the base name.
  const std::string& basename() const { return basename_; }
  // With its dot, or empty.
  const std::string& extension() const { return extension_; }

  bool empty() const { return folder_.empty() && basename_.empty() && extension_.empty(); }
  void clear();

  // Replaces everything: what follows the last delimiter is the file name. A text that ends with
  // the delimiter is a folder.
  void SetPathname(const std::string& pathname);

  // Replaces the folder and adds the delimiter where it is missing; the empty text leaves none.
  void SetFolder(const std::string& folder);

  // Replaces base name and extension. False, with nothing changed, when `filename` holds the folder
  // delimiter.
  bool SetFilename(const std::string& filename);

  // Replaces the extension, given with or without its dot; the empty text removes it. False, with
  // nothing changed, when `extension` holds the folder delimiter.
  bool SetExtension(const std::string& extension);

 private:
  std::string folder_;
  std::string basename_;
  std::string extension_;
};

}  // namespace cvrtc

#endif  // BASE_PATHNAME_H_
