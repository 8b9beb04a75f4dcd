#include "platform/linux/x11/ScreenGrabber.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "platform/capture/ScreenCapture.h"
#include "platform/linux/x11/X11Content.h"
#include "platform/linux/x11/X11Error.h"
#include "support/PrivateDisplay.h"

using namespace std::chrono_literals;

namespace quillbeam {
namespace {

std::unique_ptr<ScreenGrabber> grabberOf(const PrivateDisplay& display, int width, int height) {
  const auto content = readShareableContent(display.name());
  EXPECT_TRUE(content);
  auto grabber = ScreenGrabber::create({.displayName = display.name(),
                                        .displayId = content->displays.front().displayId,
                                        .width = width,
                                        .height = height});
  EXPECT_TRUE(grabber) << grabber.error().fullDescription();
  return *std::move(grabber);
}

/// The server tells the grabber soon, not at once.
bool becomes(ScreenGrabber& grabber, ScreenState expected) {
  for (int attempt = 0; attempt < 2000; ++attempt) {
    const auto state = grabber.poll();
    if (!state) return false;
    if (*state == expected) return true;
    std::this_thread::sleep_for(5ms);
  }
  return false;
}

std::shared_ptr<const PixelBuffer> grabbed(ScreenGrabber& grabber) {
  auto picture = grabber.grab();
  EXPECT_TRUE(picture) << picture.error().fullDescription();
  return *picture;
}

int lumaAt(const PixelBuffer& picture, int x, int y) { return picture.y().data[picture.y().stride * y + x]; }

constexpr PrivateDisplay::Color white{255, 255, 255};
constexpr PrivateDisplay::Color grey{128, 128, 128};
constexpr PrivateDisplay::Color red{255, 0, 0};
constexpr int whiteLuma = 235;
constexpr int greyLuma = 126;
constexpr int redLuma = 81;
constexpr int tolerance = 2;

TEST(ScreenGrabber, readsTheColoursOfTheScreen) {
  for (const auto& options : {std::vector<std::string>{}, {"-extension", "MIT-SHM"}}) {
    SCOPED_TRACE(options.empty() ? "through shared memory" : "over the connection");
    PrivateDisplay display(640, 360, 24, options);
    QB_NEEDS_DISPLAY(display);
    display.paintAll(white);
    display.paint(100, 50, 200, 100, red);
    const auto grabber = grabberOf(display, 640, 360);
    const auto picture = grabbed(*grabber);
    EXPECT_NEAR(lumaAt(*picture, 10, 10), whiteLuma, tolerance);
    EXPECT_NEAR(lumaAt(*picture, 150, 100), redLuma, tolerance);
    EXPECT_NEAR(picture->u().data[picture->u().stride * 50 + 75], 90, tolerance);
    EXPECT_NEAR(picture->v().data[picture->v().stride * 50 + 75], 240, tolerance);
  }
}

TEST(ScreenGrabber, seesOnlyChangesSinceThePictureBeforeAndKeepsTheRest) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  display.paintAll(white);
  const auto grabber = grabberOf(display, 640, 360);
  ASSERT_TRUE(becomes(*grabber, ScreenState::changed)) << "a first picture is always due";
  const auto first = grabbed(*grabber);
  // The painting before may still be reported; after that nothing is.
  while (*grabber->poll() == ScreenState::changed) grabbed(*grabber);
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(*grabber->poll(), ScreenState::unchanged);

  display.paint(300, 200, 20, 20, red);
  ASSERT_TRUE(becomes(*grabber, ScreenState::changed));
  const auto second = grabbed(*grabber);
  EXPECT_EQ(*grabber->poll(), ScreenState::unchanged);
  EXPECT_NEAR(lumaAt(*first, 310, 210), whiteLuma, tolerance) << "a picture handed out never changes";
  EXPECT_NEAR(lumaAt(*second, 310, 210), redLuma, tolerance);
  EXPECT_NEAR(lumaAt(*second, 310, 190), whiteLuma, tolerance);
  EXPECT_NEAR(lumaAt(*second, 310, 350), whiteLuma, tolerance);

  display.paint(0, 0, 10, 2, grey);
  display.paint(0, 358, 10, 2, grey);
  ASSERT_TRUE(becomes(*grabber, ScreenState::changed));
  const auto third = grabbed(*grabber);
  EXPECT_NEAR(lumaAt(*third, 5, 0), greyLuma, tolerance);
  EXPECT_NEAR(lumaAt(*third, 5, 359), greyLuma, tolerance);
  EXPECT_NEAR(lumaAt(*third, 310, 210), redLuma, tolerance);
}

TEST(ScreenGrabber, alwaysCountsAScreenAsChangedWhereTheServerDoesNotTellWhatWasDrawn) {
  PrivateDisplay display(640, 360, 24, {"-extension", "DAMAGE"});
  QB_NEEDS_DISPLAY(display);
  const auto grabber = grabberOf(display, 640, 360);
  grabbed(*grabber);
  EXPECT_EQ(*grabber->poll(), ScreenState::changed);
}

TEST(ScreenGrabber, followsAModeChangeInPicturesOfTheSameSize) {
  PrivateDisplay display(640, 360);
  QB_NEEDS_DISPLAY(display);
  display.paintAll(white);
  const auto grabber = grabberOf(display, 640, 360);
  grabbed(*grabber);
  ASSERT_TRUE(display.changeMode(320, 320));
  display.paintAll(red);
  ASSERT_TRUE(becomes(*grabber, ScreenState::changed));
  // The painting may come after the change of mode.
  std::shared_ptr<const PixelBuffer> picture;
  for (int attempt = 0; attempt < 1000 && (!picture || lumaAt(*picture, 320, 180) > 100); ++attempt) {
    std::this_thread::sleep_for(10ms);
    if (*grabber->poll() == ScreenState::changed) picture = grabbed(*grabber);
  }
  ASSERT_TRUE(picture);
  EXPECT_EQ(picture->width(), 640);
  EXPECT_NEAR(lumaAt(*picture, 320, 180), redLuma, tolerance);
  EXPECT_EQ(lumaAt(*picture, 20, 180), 16) << "the square screen stands between black bars";
}

TEST(ScreenGrabber, saysThatADisplayIsSwitchedOffAndComesBack) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  const auto grabber = grabberOf(display, 640, 360);
  grabbed(*grabber);
  ASSERT_TRUE(display.switchOff());
  ASSERT_TRUE(becomes(*grabber, ScreenState::absent));
  EXPECT_EQ(grabbed(*grabber), nullptr);
  ASSERT_TRUE(display.xrandr({"--output", "screen", "--auto"}));
  ASSERT_TRUE(becomes(*grabber, ScreenState::changed));
  EXPECT_NE(grabbed(*grabber), nullptr);
}

TEST(ScreenGrabber, reportsADeadServerAsALostConnection) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  const auto polled = grabberOf(display, 640, 360);
  const auto grabbing = grabberOf(display, 640, 360);
  display.kill();
  const auto picture = grabbing->grab();
  ASSERT_FALSE(picture);
  EXPECT_TRUE(picture.error().is(ScreenCaptureError::connectionLost));
  const auto state = polled->poll();
  ASSERT_FALSE(state);
  EXPECT_TRUE(state.error().is(ScreenCaptureError::connectionLost));
}

TEST(ScreenGrabber, refusesWhatItCannotCapture) {
  PrivateDisplay display;
  QB_NEEDS_DISPLAY(display);
  const auto unknown =
      ScreenGrabber::create({.displayName = display.name(), .displayId = 4711, .width = 64, .height = 36});
  ASSERT_FALSE(unknown);
  EXPECT_TRUE(unknown.error().is(ScreenCaptureError::displayGone));

  PrivateDisplay shallow(640, 360, 16);
  QB_NEEDS_DISPLAY(shallow);
  const auto content = readShareableContent(shallow.name());
  const auto highColour = ScreenGrabber::create(
      {.displayName = shallow.name(), .displayId = content->displays.front().displayId, .width = 64, .height = 36});
  ASSERT_FALSE(highColour);
  EXPECT_TRUE(highColour.error().is(X11Error::unsupportedPixels));
}

}  // namespace
}  // namespace quillbeam
