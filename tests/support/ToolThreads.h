/// The threads that a program has beside its own, because of how it was built.
#pragma once

/// Threads that ThreadSanitizer adds to a program: at first, and once the program has
/// become a daemon and made threads itself.
#if defined(__SANITIZE_THREAD__)
inline constexpr int kToolThreadsAtFirst = 1;
inline constexpr int kToolThreads = 2;
#else
inline constexpr int kToolThreadsAtFirst = 0;
inline constexpr int kToolThreads = 0;
#endif
