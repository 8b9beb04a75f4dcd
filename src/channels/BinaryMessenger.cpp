#include "channels/BinaryMessenger.h"

#include <utility>

namespace quillbeam {

std::string describe(MessengerError error) {
  switch (error) {
    case MessengerError::peerGone:
      return "The other side is gone";
    case MessengerError::messageTooLarge:
      return "The message is too large";
  }
  std::unreachable();
}

}  // namespace quillbeam
