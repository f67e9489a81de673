/// @file
/// The path type: a folder, a base name and an extension, each of which can be replaced alone.

#ifndef BASE_PATHNAME_H_
#define BASE_PATHNAME_H_

#include <string>

namespace cvrtc {

/// A path as text; no operation accesses the file system. `pathname()` is always
/// `folder()` + `basename()` + `extension()`.
///
/// A delimiter ends a folder: on Windows '/' or '\', elsewhere only '/'. Added delimiters are '/'.
/// Drives have no rule of their own: "C:a" is a file name. Windows itself does not accept '/' in
/// paths that begin with "\\?\", so give such a folder with its last '\'.
///
/// The text is UTF-8 on Windows, because SQLite and Filesystem take UTF-8 there. Elsewhere it can
/// be any bytes.
class Pathname {
 public:
  static constexpr char kFolderDelimiter = '/';     ///< the delimiter that operations add
  static constexpr char kExtensionDelimiter = '.';  ///< begins an extension

  /// The empty path.
  Pathname() = default;

  /// Calls SetPathname(): "/a/b" is the file "b" in the folder "/a/", "/a/b/" is only a folder.
  explicit Pathname(const std::string& pathname) { SetPathname(pathname); }

  /// Calls SetFolder() and SetFilename(): `folder` may lack its last delimiter.
  Pathname(const std::string& folder, const std::string& filename);

  /// The full text; empty if nothing is set.
  std::string pathname() const { return folder_ + basename_ + extension_; }
  /// The folder with its last delimiter, or empty.
  const std::string& folder() const { return folder_; }
  /// Base name and extension together.
  std::string filename() const { return basename_ + extension_; }
  /// The file name up to its last dot. A dot that starts the name, as in ".profile", and the names
  /// "." and ".." belong to the base name.
  const std::string& basename() const { return basename_; }
  /// The extension with its dot, or empty.
  const std::string& extension() const { return extension_; }

  /// Whether nothing is set.
  bool empty() const { return folder_.empty() && basename_.empty() && extension_.empty(); }
  /// Empties the path.
  void clear();

  /// Replaces everything: the text after the last delimiter is the file name. A text that ends with
  /// a delimiter is a folder.
  void SetPathname(const std::string& pathname);

  /// Replaces the folder and adds a delimiter if the text does not end with one. An empty text
  /// removes the folder.
  void SetFolder(const std::string& folder);

  /// Replaces base name and extension. False, with nothing changed, if `filename` contains a
  /// delimiter.
  bool SetFilename(const std::string& filename);

  /// Replaces the extension, given with or without its dot; an empty text removes it. False, with
  /// nothing changed, if `extension` contains a delimiter.
  bool SetExtension(const std::string& extension);

 private:
  std::string folder_;
  std::string basename_;
  std::string extension_;
};

}  // namespace cvrtc

#endif  // BASE_PATHNAME_H_
