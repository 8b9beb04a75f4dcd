#pragma once

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

namespace quillbeam {

/// A message bus of a test's own. Ended with the object, its files removed.
class PrivateBus {
 public:
  PrivateBus() {
    std::string pattern = (std::filesystem::temp_directory_path() / "message-bus-XXXXXX").string();
    folder_ = mkdtemp(pattern.data());
    process_ = fork();
    if (process_ == 0) runBus();
    using namespace std::chrono_literals;
    for (int wait = 0; wait < 100 && !std::filesystem::exists(socket()); ++wait) std::this_thread::sleep_for(50ms);
  }
  ~PrivateBus() {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    std::filesystem::remove_all(folder_);
  }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  std::string address() const { return "unix:path=" + socket(); }

 private:
  std::string socket() const { return folder_ + "/bus"; }

  [[noreturn]] void runBus() const {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const std::string address = "--address=" + this->address();
    execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--nosyslog", address.c_str(),
           static_cast<char*>(nullptr));
    _exit(127);
  }

  std::string folder_;
  pid_t process_ = -1;
};

}  // namespace quillbeam
