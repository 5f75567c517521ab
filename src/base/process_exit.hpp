// What the SDK does when its process exits (exit(), a return from main)
// while its own threads may still be working.
//
// The C++ runtime and the libraries tear their state down at exit, in the
// reverse order it was made. Threads of the SDK that are still running then
// (an HTTP transfer, a pool task, the crash worker) would call into state
// already gone and crash the process, which crash capture would then record
// as a crash that never happened. So each part that owns threads adds a hook
// here that ends them, within a bound, and one exit handler runs the hooks
// before the runtime tears down what was made before the handler.
#pragma once

#include <chrono>
#include <functional>

namespace kiv::process_exit {

// How long each hook may wait for its threads; work still running then is
// left to the end of the process.
inline constexpr std::chrono::milliseconds kBound{1000};

// Adds `hook`, run once at exit, newest first. Any thread.
void addHook(std::function<void()> hook);

// Registers the exit handler that runs the hooks, the first time only. Made
// when the platform is installed: the libraries the SDK's threads call have
// made their own singletons by then (this also makes the ones made on first
// use), so the runtime tears those down after the hooks have run.
void armExitHandler();

}  // namespace kiv::process_exit
