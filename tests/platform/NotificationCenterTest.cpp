#include "platform/NotificationCenter.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sim/SimDispatch.h"

namespace quillbeam {
namespace {

using testing::ElementsAre;

TEST(NotificationCenter, tellsObserversOfTheNameInOrderAndAtOnce) {
  SimDispatch dispatch;
  NotificationCenter center(dispatch.main());
  std::vector<std::string> heard;
  const auto first = center.observe(
      "started", [&](const ValueMap& info) { heard.push_back("first " + *info.find("id")->asString()); });
  const auto other = center.observe("stopped", [&](const ValueMap&) { heard.push_back("other"); });
  const auto second = center.observe("started", [&](const ValueMap&) { heard.push_back("second"); });
  center.post("started", {{"id", "7"}});
  EXPECT_THAT(heard, ElementsAre("first 7", "second"));
}

TEST(NotificationCenter, observersMayComeAndGoWhileItPosts) {
  SimDispatch dispatch;
  NotificationCenter center(dispatch.main());
  std::vector<std::string> heard;
  std::unique_ptr<NotificationCenter::Observation> self;
  std::unique_ptr<NotificationCenter::Observation> later;
  std::unique_ptr<NotificationCenter::Observation> added;
  self = center.observe("n", [&](const ValueMap&) {
    heard.push_back("self");
    self.reset();
    later.reset();
    added = center.observe("n", [&](const ValueMap&) { heard.push_back("added"); });
  });
  later = center.observe("n", [&](const ValueMap&) { heard.push_back("later"); });
  center.post("n", {});
  EXPECT_THAT(heard, ElementsAre("self"));
  center.post("n", {});
  EXPECT_THAT(heard, ElementsAre("self", "added"));
}

}  // namespace
}  // namespace quillbeam
