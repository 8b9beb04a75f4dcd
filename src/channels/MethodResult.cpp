#include "channels/MethodResult.h"

#include <cstdio>
#include <utility>

namespace quillbeam {

MethodResult::MethodResult(MethodResult&& other) noexcept
    : method_(other.method_), answer_(std::exchange(other.answer_, nullptr)) {}

MethodResult::~MethodResult() {
  // A moved-from result has no answer left to give either.
  if (!answer_) return;
  report("was dropped without an answer");
  error("NO_REPLY", "The handler of \"" + method_ + "\" ended without an answer");
}

void MethodResult::reply(MethodReply reply) {
  if (!answer_) return report("was answered again");
  std::exchange(answer_, nullptr)(std::move(reply));
}

void MethodResult::report([[maybe_unused]] std::string_view fault) const {
#ifndef NDEBUG
  std::fprintf(stderr, "Method call \"%s\" %.*s\n", method_.c_str(), static_cast<int>(fault.size()), fault.data());
#endif
}

}  // namespace quillbeam
