// SIGINT, SIGTERM and SIGHUP end a session in order.
#pragma once

#include <functional>
#include <stdexcept>

namespace kov::cam {

/// Thrown out of a wait when a signal asks for the end.
class Interrupted : public std::runtime_error {
public:
    Interrupted() : std::runtime_error("interrupted") {}
};

/// Takes the three signals, and SIGUSR1, away from every thread. Called first in `main`, before any thread exists. From
/// then on a second signal of the three ends the process at once.
void watchSignals();
/// The signal that asked for the end, or 0. Any thread.
int endSignal();
/// Forgets it: what it asked for was the ordinary end, as it is a server's.
void forgetSignal();
/// What is called, on a thread of its own, with each signal that comes; one at a time, the last that was set. It may do
/// anything but call this. An empty one for none; when this returns the one before is not called any more.
void onSignal(std::function<void(int)> handler);

}  // namespace kov::cam
