#pragma once

#include <initializer_list>
#include <string_view>
#include <utility>
#include <vector>

#include "channels/MethodCall.h"
#include "channels/MethodResult.h"

namespace quillbeam {

enum class Dispatched { known, unknown };

/// Which member of `Owner` handles which method, compared exactly, in the order written:
///
///     const MethodTable<MacRecorderChannel> methods = {{"startMacRecording", &MacRecorderChannel::start},
///                                                      {"stopMacRecording", &MacRecorderChannel::stop}};
///     channel_.setCallHandler([this](MethodCall call, MethodResult result) {
///       methods.dispatch(*this, std::move(call), std::move(result));
///     });
template <class Owner>
class MethodTable {
 public:
  using Member = void (Owner::*)(Value arguments, MethodResult result);

  MethodTable(std::initializer_list<std::pair<std::string_view, Member>> methods) : methods_(methods) {}

  /// Calls the member; a method that is not in the table is answered with not implemented.
  Dispatched dispatch(Owner& owner, MethodCall call, MethodResult result) const {
    for (const auto& [name, member] : methods_) {
      if (name != call.method) continue;
      (owner.*member)(std::move(call.arguments), std::move(result));
      return Dispatched::known;
    }
    result.notImplemented();
    return Dispatched::unknown;
  }

 private:
  std::vector<std::pair<std::string_view, Member>> methods_;
};

}  // namespace quillbeam
