#include "fuzz/Images.h"

/// The input is a script of damage to a table's file; see `Images`. The file is then read in every way, and a
/// writer repairs it now and then. A row that was never written, or damage that outlives the repair, ends the
/// run as an exception that nobody catches.
extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
  static Images images;
  Images::Image const image = images.damaged({data, size});
  images.read(image);
  if (size != 0 && data[size - 1] % 16 == 0) images.repair(image);
  return 0;
}
