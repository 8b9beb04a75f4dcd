#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "base/Value.h"
#include "channels/MethodCall.h"

namespace quillbeam {

/// The right, and the duty, to answer one call. Move it to wherever the answer comes from; answer once, on the
/// channel's queue. The first answer counts; a second one is a fault of ours that debug builds report. So is dropping
/// it unanswered, and then the caller gets the error "NO_REPLY", so that it never waits for ever.
class MethodResult {
 public:
  using Answer = std::move_only_function<void(MethodReply)>;

  MethodResult(std::string method, Answer answer) : method_(std::move(method)), answer_(std::move(answer)) {}
  MethodResult(MethodResult&& other) noexcept;
  MethodResult& operator=(MethodResult&&) = delete;
  ~MethodResult();

  void success(Value value = {}) { reply(std::move(value)); }
  void error(std::string code, std::optional<std::string> message = {}, Value details = {}) {
    reply(MethodError{std::move(code), std::move(message), std::move(details)});
  }
  void notImplemented() { reply(NotImplemented()); }
  void reply(MethodReply reply);

  const std::string& method() const { return method_; }

 private:
  void report(std::string_view fault) const;

  std::string method_;
  Answer answer_;  ///< empty once answered or moved away
};

}  // namespace quillbeam
