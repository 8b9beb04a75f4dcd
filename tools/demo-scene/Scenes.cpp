#include "ClockScene.h"
#include "ColoursScene.h"
#include "MeetingScene.h"
#include "PageScene.h"
#include "Scene.h"

namespace quillbeam::demo {

std::unique_ptr<Scene> makeScene(std::string_view name) {
  if (name == "clock") return std::make_unique<ClockScene>();
  if (name == "meeting") return std::make_unique<MeetingScene>();
  if (name == "page") return std::make_unique<PageScene>();
  if (name == "colours") return std::make_unique<ColoursScene>();
  return nullptr;
}

}  // namespace quillbeam::demo
