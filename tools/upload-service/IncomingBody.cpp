#include "IncomingBody.h"

#include <algorithm>
#include <exception>

namespace quillbeam::service {

namespace {

/// Where a fault strikes. Early: what the service leaves unread then fits less into the buffers of both kernels, and a
/// client can see that its bytes stand still.
constexpr std::uint64_t latestStrike = 64 * 1024;

}  // namespace

void IncomingBody::read(const Fault& fault, const std::function<void(std::string_view)>& take) {
  wasRead_ = true;
  const auto strike = std::min(request_.get_header_value<std::uint64_t>("Content-Length") / 2, latestStrike);
  bool hasStruck = false;
  std::exception_ptr problem;
  const bool isWhole = reader_([&](const char* bytes, std::size_t size) {
    exchange_.addBytes(size);
    try {
      if (!problem) take({bytes, size});
    } catch (...) {
      problem = std::current_exception();  // told when the rest has come, where the client looks for an answer
    }
    if (!hasStruck && exchange_.bytes() >= strike) {
      hasStruck = true;
      meet(fault);
    }
    return !exchange_.connection().isBroken();
  });
  if (!isWhole || fault.close) throw BrokenOff();
  if (problem) std::rethrow_exception(problem);
}

void IncomingBody::meet(const Fault& fault) {
  exchange_.connection().pause(fault.stall);
  if (fault.close) exchange_.connection().breakOff();
}

void IncomingBody::discard() {
  if (!wasRead_) read({}, [](std::string_view) {});
}

}  // namespace quillbeam::service
