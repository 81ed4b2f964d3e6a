#pragma once

namespace Kestrel {

/// Kind of a signal as the program sees it. Only one is in use: 0, termination.
using SignalType = int;

/// The process's termination signals, SIGTERM and SIGINT, as a call of a handler object.
///
/// takeOver() blocks both for the whole process and reads them on a thread of its own, so a
/// handler runs as ordinary code, on that thread. A signal that finds no handler is remembered and
/// handed over at the next registration: one that comes before the main thread waits is not lost,
/// and none ever ends the process by the system's default. Signals that come before one has been
/// handed over count as one.
///
/// Any thread may add and remove a handler. Handlers are called one at a time with no lock held, so
/// a handler may remove itself.
class Signal {
public:
    /// What is to be done when the signal comes.
    class SignalHandler {
    public:
        virtual ~SignalHandler() = default;

        /// Called once for each signal, on the signal thread or, for one that came earlier, in
        /// addSignalHandler(). Must not block and must not throw.
        virtual void handleSignal() = 0;
    };

    /// The one instance; usable at any time, static initialisation included.
    static Signal the;

    /// Takes the signals from here on, ignores SIGPIPE and sets SIGCHLD back to its default. Called
    /// first thing in main, before any thread starts, since threads inherit the mask. A second call
    /// does nothing. Throws std::system_error where the system gives no thread.
    void takeOver();

    /// Sets the handler of `type`, which stays the caller's, in place of an earlier one. A signal
    /// that came before is delivered at once, on the calling thread. Types but 0 never come.
    void addSignalHandler(SignalType type, SignalHandler& handler);

    /// Takes the handler away; after the return it is not called any more and may be destroyed.
    /// Does nothing where there is none. Later signals wait for the next handler.
    void removeSignalHandler(SignalType type);
};

} // namespace Kestrel
