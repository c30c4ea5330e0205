#include "support/Paths.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace TestSupport {

std::string sourcePath(std::string_view relative) {
  return std::string(QOREVPN_SOURCE_DIR "/").append(relative);
}

std::string sourceText(std::string_view relative) {
  std::ifstream file(sourcePath(relative));
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string ownLoopback(unsigned number) {
  static pid_t const pid = ::getpid();
  return "127." + std::to_string(64 + (pid >> 8) % 128) + '.' + std::to_string(pid & 255) + '.' +
         std::to_string(number);
}

std::string programPath() { return QOREVPN_PROGRAM; }

std::string modulePath() { return QOREVPN_MODULE; }

ScratchFolder::ScratchFolder(std::string const& parent) : path_(parent + "/qorevpn-test-XXXXXX") {
  if (::mkdtemp(path_.data()) == nullptr || ::chmod(path_.c_str(), 0755) != 0) std::abort();
}

ScratchFolder::ScratchFolder() : ScratchFolder(std::filesystem::temp_directory_path().string()) {}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

void damage(std::string const& path, std::string_view bytes) {
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  std::string const content(std::istreambuf_iterator<char>(file), {});
  size_t const found = content.rfind(bytes);
  ASSERT_NE(found, std::string::npos) << path;
  size_t const last = found + bytes.size() - 1;
  file.seekp(static_cast<std::streamoff>(last)).put(static_cast<char>(content[last] ^ 1)).flush();
}

}  // namespace TestSupport
