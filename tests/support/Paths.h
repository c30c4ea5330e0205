#pragma once

#include <string>
#include <string_view>

namespace TestSupport {

/// The absolute path of a file or folder of the source tree, `relative` to its root.
std::string sourcePath(std::string_view relative);

/// The content of that file.
std::string sourceText(std::string_view relative);

/// The absolute path of the program `qorevpn` that was built together with this test.
std::string programPath();

/// The absolute path of the module's shared library, for programs that load it at run time.
std::string modulePath();

/// An IPv4 loopback address that this process alone uses, another one for each `number` from 1 to 254. All
/// its ports are free.
std::string ownLoopback(unsigned number);

/// A folder of the test's own that anybody may enter, removed with everything in it.
class ScratchFolder {
 public:
  explicit ScratchFolder(std::string const& parent);
  /// Among the temporary files.
  ScratchFolder();
  ~ScratchFolder();
  ScratchFolder(ScratchFolder const&) = delete;
  ScratchFolder& operator=(ScratchFolder const&) = delete;

  std::string const& path() const { return path_; }

 private:
  std::string path_;
};

/// Changes one bit of the last of these bytes where a file holds them for the last time. A check fails if it
/// does not.
void damage(std::string const& path, std::string_view bytes);

}  // namespace TestSupport
