#pragma once

#include <httplib.h>

#include <cstdint>
#include <functional>
#include <string_view>

#include "Exchange.h"

namespace quillbeam::service {

/// The body of a request that is read as it comes.
class IncomingBody {
 public:
  IncomingBody(const httplib::Request& request, const httplib::ContentReader& reader, Exchange& exchange)
      : request_(request), reader_(reader), exchange_(exchange) {}

  /// The whole, in pieces. A fault that is due within the body comes there. Throws BrokenOff when the body does not
  /// come to its end.
  void read(const Fault& fault, const std::function<void(std::string_view)>& take);
  /// Reads what nobody wanted: the next request comes after it.
  void discard();

 private:
  void meet(const Fault& fault);

  const httplib::Request& request_;
  const httplib::ContentReader& reader_;
  Exchange& exchange_;
  bool wasRead_ = false;
};

}  // namespace quillbeam::service
