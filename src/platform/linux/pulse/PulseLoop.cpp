#include "platform/linux/pulse/PulseLoop.h"

#include "base/Check.h"

namespace quillbeam {

PulseLoop::PulseLoop() : loop_(pa_threaded_mainloop_new()) {
  QB_CHECK(loop_ != nullptr);
  pa_threaded_mainloop_set_name(loop_, "sound server");
  // Without its thread the loop runs no callback: the server then looks like one that never answers.
  (void)pa_threaded_mainloop_start(loop_);
}

PulseLoop::~PulseLoop() {
  pa_threaded_mainloop_stop(loop_);
  pa_threaded_mainloop_free(loop_);
}

}  // namespace quillbeam
