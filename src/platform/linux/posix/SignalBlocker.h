#pragma once

#include <pthread.h>
#include <signal.h>

namespace quillbeam {

/// Blocks every signal on the calling thread while it exists, so that a thread made meanwhile never receives one.
class SignalBlocker {
 public:
  SignalBlocker() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~SignalBlocker() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  SignalBlocker(const SignalBlocker&) = delete;
  SignalBlocker& operator=(const SignalBlocker&) = delete;

 private:
  sigset_t before_;
};

}  // namespace quillbeam
