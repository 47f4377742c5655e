// Keeps OpenCV to the calling thread under ThreadSanitizer.

#include <opencv2/core/utility.hpp>

#if defined(__SANITIZE_THREAD__)
namespace {
// Debian's OpenCV and its worker threads are built without the sanitizer, which therefore cannot see how they
// synchronise. What is tested here are our own threads.
[[maybe_unused]] const bool gOneThread = (cv::setNumThreads(1), true);
}  // namespace
#endif
