// The sound server's library is not built with the thread sanitizer, which therefore takes its lock-free memory pools
// for races. Read by the sanitizer; nothing calls it otherwise.
extern "C" const char* __tsan_default_suppressions() {
  return "called_from_lib:libpulse.so\ncalled_from_lib:libpulsecommon\nrace:libpulse.so\nrace:libpulsecommon\n";
}
