#include "fuzz/FuzzTargets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quillbeam::fuzz::FUZZ_TARGET({data, size});
  return 0;
}
