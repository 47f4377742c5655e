// Settings for ThreadSanitizer in programs that use OpenCV. Debian builds it, and what it brings, without the
// sanitizer.

#include <opencv2/core/utility.hpp>

#if defined(__SANITIZE_THREAD__)
namespace {
// The sanitizer cannot see how worker threads of OpenCV synchronise. What is checked are our own threads.
[[maybe_unused]] const bool gOneThread = (cv::setNumThreads(1), true);
}  // namespace

// A library behind OpenCV's picture codecs takes its locks in both orders while it registers itself, on one thread.
// Races are still reported; the unit tests, which use no OpenCV, keep the check of lock orders.
extern "C" const char* __tsan_default_options() {
    return "detect_deadlocks=0";
}
#endif
