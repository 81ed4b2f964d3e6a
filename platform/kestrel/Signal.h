#pragma once

namespace Kestrel {

/// Kind of a signal as the program sees it. Only one is in use: 0, termination.
using SignalType = int;

/// The process's termination signals, SIGTERM and SIGINT, as a call of a handler object.
///
/// takeOver() blocks both for the whole process and reads them on a thread of its own, so a
/// handler runs as ordinary code, on that thread. A signal that finds no handler is remembered and
/// handed over at the next registration: one that comes before the main thread waits is not lost,
/// and none ever ends the process by the system's default.
class Signal {
public:
    /// What is to be done when the signal comes.
    class SignalHandler {
    public:
        virtual ~SignalHandler() = default;

        /// Called once for each signal, on the signal thread. Must not block.
        virtual void handleSignal() = 0;
    };

    /// The one instance; usable at any time, static initialisation included.
    static Signal the;

    /// Takes the signals from here on, and ignores SIGPIPE. Called first thing in main, before any
    /// thread starts, since threads inherit the mask. A second call does nothing.
    void takeOver();

    /// Sets the handler of `type`, which stays the caller's. A signal that came before is
    /// delivered at once, on the calling thread.
    void addSignalHandler(SignalType type, SignalHandler& handler);

    /// Takes the handler away; after the return it is not called any more. Does nothing where
    /// there is none.
    void removeSignalHandler(SignalType type);
};

} // namespace Kestrel
