#pragma once

/// Clang's thread-safety analysis with a queue as the capability: state is CONFINED_TO a queue, functions RUNS_ON it,
/// and `queue.assertCurrent()` tells the analysis (and checks at run time) that a closure runs there. No-ops elsewhere.
#if defined(__clang__)
#define QB_ANNOTATION(x) __attribute__((x))
#else
#define QB_ANNOTATION(x)
#endif

#define QUEUE_CAPABILITY QB_ANNOTATION(capability("queue"))
#define LOCK_CAPABILITY QB_ANNOTATION(capability("mutex"))
#define CONFINED_TO(x) QB_ANNOTATION(guarded_by(x))
#define GUARDED_BY(x) QB_ANNOTATION(guarded_by(x))
#define RUNS_ON(...) QB_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_LOCK(...) QB_ANNOTATION(requires_capability(__VA_ARGS__))
#define ASSERTS_QUEUE(...) QB_ANNOTATION(assert_capability(__VA_ARGS__))
#define ACQUIRES(...) QB_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASES(...) QB_ANNOTATION(release_capability(__VA_ARGS__))
#define SCOPED_LOCK QB_ANNOTATION(scoped_lockable)
#define NO_THREAD_ANALYSIS QB_ANNOTATION(no_thread_safety_analysis)
