#pragma once

#include <string>
#include <string_view>

namespace TestSupport {

/// The absolute path of a file or folder of the source tree, `relative` to its root.
std::string sourcePath(std::string_view relative);

/// The absolute path of the program `qorevpn` that was built together with this test.
std::string programPath();

/// The absolute path of the module's shared library, for programs that load it at run time.
std::string modulePath();

}  // namespace TestSupport
