#include "platform/NotificationCenter.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sim/SimDispatch.h"

namespace quillbeam {
namespace {

using testing::ElementsAre;

// Everything here runs on the main queue, which the analysis cannot see in a test's body.
auto observe(NotificationCenter& center, std::string_view name,
             NotificationCenter::Observer observer) NO_THREAD_ANALYSIS {
  return center.observe(name, std::move(observer));
}
void post(NotificationCenter& center, std::string_view name, const ValueMap& info = {}) NO_THREAD_ANALYSIS {
  center.post(name, info);
}

TEST(NotificationCenter, observersMayComeAndGoWhileItPosts) {
  SimDispatch dispatch;
  NotificationCenter center(dispatch.main());
  std::vector<std::string> heard;
  std::unique_ptr<NotificationCenter::Observation> self;
  std::unique_ptr<NotificationCenter::Observation> later;
  std::unique_ptr<NotificationCenter::Observation> added;
  self = observe(center, "n", [&](const ValueMap&) {
    heard.push_back("self");
    self.reset();
    later.reset();
    added = observe(center, "n", [&](const ValueMap&) { heard.push_back("added"); });
  });
  later = observe(center, "n", [&](const ValueMap&) { heard.push_back("later"); });
  post(center, "n");
  EXPECT_THAT(heard, ElementsAre("self"));
  post(center, "n");
  EXPECT_THAT(heard, ElementsAre("self", "added"));
}

}  // namespace
}  // namespace quillbeam
