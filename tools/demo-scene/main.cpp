#include <CLI/CLI.hpp>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "FlashAndBeep.h"
#include "Scene.h"
#include "SceneWindow.h"
#include "SoundOutput.h"
#include "TonePlayer.h"

namespace quillbeam::demo {

namespace {

std::atomic<bool> stopping = false;

int probe() {
  const bool display = SceneWindow::open() != nullptr;
  const bool sound = SoundOutput::open("", std::chrono::milliseconds(50)).has_value();
  std::printf("display: %s, sound: %s\n", display ? "yes" : "no", sound ? "yes" : "no");
  return display && sound ? 0 : 1;
}

/// Frame numbers from standard input, one a line; raw frames to standard output.
int render(Scene& scene, int width, int height) {
  std::vector<std::uint32_t> pixels(static_cast<std::size_t>(width) * height);
  Canvas canvas(pixels, width, height);
  scene.prepare(canvas);
  std::int64_t frame = 0;
  while (std::cin >> frame) {
    scene.draw(canvas, frame);
    if (std::fwrite(pixels.data(), 4, pixels.size(), stdout) != pixels.size()) return 1;
  }
  return 0;
}

void play(Scene& scene, SceneWindow& window) {
  using Clock = std::chrono::steady_clock;
  const std::vector<Rect> everything{window.canvas().all()};
  scene.prepare(window.canvas());
  scene.draw(window.canvas(), 0);
  window.show(everything);
  std::puts("ready");
  std::fflush(stdout);
  const auto changing = scene.changing(window.canvas());
  const auto start = Clock::now();
  while (!stopping) {
    // The frame that is due by the clock: a late one is skipped, the scene never lags behind.
    const auto due = (Clock::now() - start) * sceneFramesPerSecond / std::chrono::seconds(1) + 1;
    std::this_thread::sleep_until(start + due * std::chrono::nanoseconds(1'000'000'000 / sceneFramesPerSecond));
    if (changing.empty()) continue;
    scene.draw(window.canvas(), due);
    window.show(changing);
  }
}

int showScene(const std::string& name) {
  auto window = SceneWindow::open();
  if (!window) {
    std::fputs("demo-scene: no display with 24-bit colours and shared memory\n", stderr);
    return 3;
  }
  if (name == "flash") return FlashAndBeep(*window).run(stopping) ? 0 : 3;
  play(*makeScene(name), *window);
  return 0;
}

}  // namespace

}  // namespace quillbeam::demo

int main(int argumentCount, char** arguments) {
  using namespace quillbeam::demo;
  CLI::App app("Shows a known picture and plays known sounds until it is told to stop.");
  std::string name = "clock";
  std::vector<std::string> tones;
  bool onlyProbe = false;
  bool onlyRender = false;
  std::vector<int> size{1920, 1080};
  app.add_option("scene", name, "What to show")->check(CLI::IsMember({"clock", "meeting", "page", "colours", "flash"}));
  app.add_option("--tone", tones, "HERTZ[/s][@SINK]: a steady tone, or with /s a pulse each second; may be repeated");
  app.add_flag("--probe", onlyProbe, "Only say whether there is a display and a sound server");
  app.add_flag("--render", onlyRender, "Write the frames whose numbers come on standard input as raw BGRA");
  app.add_option("--size", size, "Width and height for --render")->expected(2);
  CLI11_PARSE(app, argumentCount, arguments);

  std::signal(SIGINT, [](int) { stopping = true; });
  std::signal(SIGTERM, [](int) { stopping = true; });
  if (onlyProbe) return probe();
  if (onlyRender) {
    auto scene = makeScene(name);
    return scene ? render(*scene, size[0], size[1]) : 2;
  }
  std::list<TonePlayer> players;
  for (const std::string& text : tones) {
    Tone tone;
    if (!Tone::parse(text, tone)) {
      std::fprintf(stderr, "demo-scene: \"%s\" is no tone\n", text.c_str());
      return 2;
    }
    players.emplace_back(tone);
  }
  return showScene(name);
}
