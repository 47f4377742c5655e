// A record, as lines of text, of everything that crosses a boundary during a test.
#pragma once

#include <initializer_list>
#include <string>
#include <vector>

namespace kov::test {

using Lines = std::vector<std::string>;

/// Both, one after the other.
inline Lines operator+(Lines left, const Lines& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

/// The lines that begin with one of the `prefixes`.
Lines only(Lines lines, std::initializer_list<const char*> prefixes);

/// The lines with none of the `parts` in them.
Lines without(Lines lines, std::initializer_list<const char*> parts);

/// printf into a string.
std::string text(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Collects calls, messages and log lines in the order in which they happen. Fakes write to it from any thread. One
/// lives at a time; while none lives, lines are dropped.
///
/// Log lines are recorded as "I ShotSingle: message" with the priority's letter (D, I, W, E); a process id in
/// "pid=%d" is recorded as "pid=PID". A newline at the end of the message is recorded as "\n" (two characters).
class Recorder {
public:
    Recorder();
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// All lines so far; forgets them.
    Lines take();
    /// As `take`, only the lines that begin with `prefix`; forgets all.
    Lines take(const std::string& prefix);

private:
    int mLogSink;
};

/// Adds a line to the living recorder. Any thread.
void record(std::string line);

}  // namespace kov::test
