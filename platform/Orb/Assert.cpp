#include "Orb/Assert.h"

#include <cxxabi.h>
#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace Orb::Impl {

namespace {

// A report of bounded size that needs no heap; what does not fit is cut off, the line end is always kept.
class Report {
 public:
  Report& operator<<(std::string_view text) {
    size_t const fits = std::min(text.size(), sizeof buffer_ - 1 - used_);
    std::memcpy(buffer_ + used_, text.data(), fits);
    used_ += fits;
    return *this;
  }

  void number(uintptr_t value, unsigned base) {
    char digits[24];
    char* first = digits + sizeof digits;
    do {
      *--first = "0123456789abcdef"[value % base];
      value /= base;
    } while (value != 0);
    *this << std::string_view(first, static_cast<size_t>(digits + sizeof digits - first));
  }

  [[noreturn]] void writeAndAbort() {
    buffer_[used_++] = '\n';
    // Nothing can be done about a failed or short write: the process ends either way.
    [[maybe_unused]] ssize_t const written = ::write(STDERR_FILENO, buffer_, used_);
    std::abort();
  }

 private:
  char buffer_[4096] = {};
  size_t used_ = 0;
};

[[noreturn]] void report(std::string_view fault, char const* expression, SourceLocation where) {
  Report report;
  report << fault << expression << ", function " << where.function << ", " << where.file << ":";
  report.number(where.line, 10);
  report.writeAndAbort();
}

}  // namespace

void assertionFailed(char const* expression, SourceLocation where) {
  report("assertion failed: ", expression, where);
}

void nullReference(char const* expression, SourceLocation where) {
  report("null Orb::Ptr dereferenced: ", expression, where);
}

void nullDereference(char const* function) {
  // A call of a function that does not return may be the last instruction of its caller, so the address
  // behind it can belong to the next function; the byte before it does not.
  char const* const call = static_cast<char const*>(__builtin_return_address(0)) - 1;
  Report report;
  report << "null Orb::Ptr dereferenced: " << function << ", called from ";
  Dl_info info{};
  if (::dladdr(call, &info) == 0 || info.dli_fname == nullptr) {
    report << "0x";
    report.number(reinterpret_cast<uintptr_t>(call), 16);
    report.writeAndAbort();
  }
  if (info.dli_sname != nullptr) {
    int status = 0;
    char const* const readable = abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status);
    report << (status == 0 ? readable : info.dli_sname) << " ";
  }
  report << "(" << info.dli_fname << "+0x";
  report.number(static_cast<uintptr_t>(call - static_cast<char const*>(info.dli_fbase)), 16);
  report << ")";
  report.writeAndAbort();
}

}  // namespace Orb::Impl
