#pragma once

// Names for Clang's thread-safety analysis (clang.llvm.org/docs/ThreadSafetyAnalysis.html). Other compilers see
// nothing.

#if defined(__clang__)
#define NOX_TSA(x) __attribute__((x))
#else
#define NOX_TSA(x)
#endif

#define CAPABILITY(x) NOX_TSA(capability(x))
#define SCOPED_CAPABILITY NOX_TSA(scoped_lockable)
#define GUARDED_BY(x) NOX_TSA(guarded_by(x))
#define PT_GUARDED_BY(x) NOX_TSA(pt_guarded_by(x))
#define REQUIRES(...) NOX_TSA(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) NOX_TSA(acquire_capability(__VA_ARGS__))
#define RELEASE(...) NOX_TSA(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) NOX_TSA(try_acquire_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS NOX_TSA(no_thread_safety_analysis)
