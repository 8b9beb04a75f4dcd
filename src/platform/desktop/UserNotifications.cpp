#include "platform/desktop/UserNotifications.h"

#include <utility>

namespace quillbeam {

std::string describe(UserNotificationError error) {
  switch (error) {
    case UserNotificationError::noService:
      return "No notification service runs on this desktop";
    case UserNotificationError::refused:
      return "The notification service refused the notification";
  }
  std::unreachable();
}

}  // namespace quillbeam
