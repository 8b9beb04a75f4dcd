#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

namespace quillbeam {

/// A sound server of a test's own: a null sink "speakers" as the default output, and a virtual microphone "microphone"
/// that hears what is played into the sink "voice". Ended with the object, its files removed.
class PrivateSoundServer {
 public:
  PrivateSoundServer() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sound-server-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    start();
  }
  ~PrivateSoundServer() {
    stop();
    std::filesystem::remove_all(folder_);
  }
  PrivateSoundServer(const PrivateSoundServer&) = delete;
  PrivateSoundServer& operator=(const PrivateSoundServer&) = delete;

  static bool isInstalled() { return std::system("command -v pulseaudio pactl >/dev/null") == 0; }

  /// As PULSE_SERVER takes it.
  std::string address() const { return "unix:" + socket(); }

  /// Runs pactl against this server and answers whether it went well.
  bool control(const std::string& arguments) const {
    return std::system(("PULSE_SERVER=" + address() + " pactl " + arguments + " >/dev/null 2>&1").c_str()) == 0;
  }

  void start() {
    writeScript();
    const std::string script = folder_ + "/script.pa";
    process_ = fork();
    if (process_ == 0) runServer(script.c_str());
    for (int attempt = 0; attempt < 100 && !control("get-default-source"); ++attempt) pause(50);
  }

  void stop() {
    if (process_ <= 0) return;
    kill(process_, SIGTERM);
    for (int attempt = 0; attempt < 60; ++attempt, pause(50)) {
      if (waitpid(process_, nullptr, WNOHANG) == process_) break;
      if (attempt == 59) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
      }
    }
    process_ = -1;
    std::filesystem::remove(socket());
  }

 private:
  std::string socket() const { return folder_ + "/pulse.sock"; }
  static void pause(int milliseconds) { std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds)); }

  void writeScript() const {
    // norewinds keeps the null sinks at blocks of 50 ms; otherwise they render seconds ahead.
    const std::string sink = "load-module module-null-sink rate=48000 channels=2 norewinds=1 ";
    std::ofstream(folder_ + "/script.pa")
        << "load-module module-native-protocol-unix auth-anonymous=1 socket=" << socket() << "\n"
        << sink << "sink_name=speakers sink_properties=device.description=Speakers\n"
        << sink << "sink_name=headphones sink_properties=device.description=Headphones\n"
        << sink << "sink_name=voice sink_properties=device.description=Voice\n"
        << "load-module module-remap-source source_name=microphone master=voice.monitor channels=2 "
        << "source_properties=device.description=Microphone\n"
        << "load-module module-suspend-on-idle timeout=1\n"
        << "set-default-sink speakers\nset-default-source microphone\n";
  }

  [[noreturn]] void runServer(const char* script) const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    setenv("HOME", folder_.c_str(), 1);
    setenv("XDG_RUNTIME_DIR", folder_.c_str(), 1);
    setenv("PULSE_RUNTIME_PATH", folder_.c_str(), 1);
    unsetenv("PULSE_SERVER");
    unsetenv("DISPLAY");
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
    const int log = open((folder_ + "/log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    dup2(log, 1);
    dup2(log, 2);
    execlp("pulseaudio", "pulseaudio", "-n", "-F", script, "--daemonize=no", "--use-pid-file=no", "--exit-idle-time=-1",
           "--disallow-exit", "--high-priority=no", "--realtime=no", "--log-target=stderr",
           static_cast<char*>(nullptr));
    _exit(127);
  }

  std::string folder_;
  pid_t process_ = -1;
};

}  // namespace quillbeam
