#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

extern char** environ;

namespace quillbeam {

/// An X server of the test's own (Xvfb), on a free display number, with a brush to paint on its screen. It goes with
/// the test, also when that crashes: the server ends with its last client, and the brush is the first.
class PrivateDisplay {
 public:
  struct Color {
    std::uint8_t red = 0;
    std::uint8_t green = 0;
    std::uint8_t blue = 0;
  };

  explicit PrivateDisplay(int width = 640, int height = 360, int depth = 24, std::vector<std::string> options = {})
      : size_(std::to_string(width) + "x" + std::to_string(height)) {
    int numberPipe[2];
    if (::pipe2(numberPipe, O_CLOEXEC) != 0) return;
    std::vector<std::string> arguments{
        "Xvfb",      "-displayfd", std::to_string(childDescriptor),
        "-screen",   "0",          std::to_string(width) + "x" + std::to_string(height) + "x" + std::to_string(depth),
        "-nolisten", "tcp",        "-noreset",
        "-terminate"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    server_ = spawn(arguments, numberPipe[1]);
    ::close(numberPipe[1]);
    name_ = readNumber(numberPipe[0]);
    ::close(numberPipe[0]);
    if (!name_.empty()) connection_ = xcb_connect(name_.c_str(), nullptr);
  }
  PrivateDisplay(const PrivateDisplay&) = delete;
  PrivateDisplay& operator=(const PrivateDisplay&) = delete;
  ~PrivateDisplay() {
    if (connection_ != nullptr) xcb_disconnect(connection_);
    end(SIGTERM);
  }

  bool isRunning() const { return connection_ != nullptr && xcb_connection_has_error(connection_) == 0; }
  /// ":12"
  const std::string& name() const { return name_; }
  xcb_connection_t* connection() { return connection_; }
  xcb_screen_t& screen() { return *xcb_setup_roots_iterator(xcb_get_setup(connection_)).data; }

  /// Fills a rectangle of the screen; what is painted is visible when this returns.
  void paint(int x, int y, int width, int height, Color color) {
    const auto context = xcb_generate_id(connection_);
    const std::uint32_t values[] = {static_cast<std::uint32_t>(color.red << 16 | color.green << 8 | color.blue),
                                    XCB_SUBWINDOW_MODE_INCLUDE_INFERIORS};
    xcb_create_gc(connection_, context, screen().root, XCB_GC_FOREGROUND | XCB_GC_SUBWINDOW_MODE, values);
    const xcb_rectangle_t rectangle{static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                                    static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height)};
    xcb_poly_fill_rectangle(connection_, screen().root, context, 1, &rectangle);
    xcb_free_gc(connection_, context);
    synchronize();
  }
  void paintAll(Color color) { paint(0, 0, 0x7fff, 0x7fff, color); }
  void synchronize() { std::free(xcb_get_input_focus_reply(connection_, xcb_get_input_focus(connection_), nullptr)); }

  /// Runs the xrandr program on this display; false when it fails.
  bool xrandr(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"xrandr", "-display", name_});
    int status = -1;
    const pid_t child = spawn(arguments, -1);
    if (child > 0) ::waitpid(child, &status, 0);
    return status == 0;
  }
  bool changeMode(int width, int height) {
    const std::string mode = std::to_string(width) + "x" + std::to_string(height) + "_test";
    const auto number = [](int value) { return std::to_string(value); };
    xrandr({"--newmode", mode, "40", number(width), number(width + 40), number(width + 80), number(width + 120),
            number(height), number(height + 4), number(height + 8), number(height + 12)});
    xrandr({"--addmode", "screen", mode});
    return xrandr({"--output", "screen", "--mode", mode});
  }
  bool switchOff() { return xrandr({"--output", "screen", "--off", "--fb", size_}); }

  /// The server dies on the spot.
  void kill() { end(SIGKILL); }

 private:
  static constexpr int childDescriptor = 31;

  static pid_t spawn(const std::vector<std::string>& arguments, int inherited) {
    std::vector<char*> pointers;
    for (const auto& argument : arguments) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    if (inherited >= 0) posix_spawn_file_actions_adddup2(&actions, inherited, childDescriptor);
    pid_t child = -1;
    const int failed = ::posix_spawnp(&child, pointers.front(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failed != 0 ? -1 : child;
  }

  static std::string readNumber(int descriptor) {
    std::string text;
    pollfd readable{.fd = descriptor, .events = POLLIN, .revents = 0};
    for (char byte = 0; ::poll(&readable, 1, 10'000) > 0 && ::read(descriptor, &byte, 1) == 1 && byte != '\n';) {
      text += byte;
    }
    return text.empty() ? text : ":" + text;
  }

  void end(int signal) {
    if (server_ <= 0) return;
    ::kill(server_, signal);
    ::waitpid(std::exchange(server_, -1), nullptr, 0);
  }

  std::string size_;
  pid_t server_ = -1;
  std::string name_;
  xcb_connection_t* connection_ = nullptr;
};

/// The first line of a test (GoogleTest) that needs one: skips loudly where Xvfb is not installed.
#define QB_NEEDS_DISPLAY(display) \
  if (!(display).isRunning()) GTEST_SKIP() << "SKIPPED: no private X server could be started (is Xvfb installed?)"

}  // namespace quillbeam
