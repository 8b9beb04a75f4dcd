// The HTTP library is not built with the thread sanitizer, which therefore does not see how its static variables are
// initialised under a lock. Read by the sanitizer, as its name says; nothing calls it otherwise.
extern "C" const char* __tsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "called_from_lib:libcpp-httplib\n";
}
