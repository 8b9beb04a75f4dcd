#include "platform/LocalSocket.h"

#include <utility>

namespace quillbeam {

std::string describe(LocalSocketError error) {
  switch (error) {
    case LocalSocketError::inUse:
      return "Another process already listens on the socket";
    case LocalSocketError::notListening:
      return "No process listens on the socket";
    case LocalSocketError::foreignPeer:
      return "The process at the other end of the socket belongs to another user";
    case LocalSocketError::pathTooLong:
      return "The socket's path is too long";
  }
  std::unreachable();
}

}  // namespace quillbeam
