#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

/// What stands between a program and the system: named calls fail, at a rate and with errors that a
/// test sets while the program runs.
namespace Faults {

/// Where a call acts; a fault has a set of these.
enum Where : std::uint32_t {
    nowhere = 0,
    cache = 1,    ///< a path below the first folder of OSTRAND_FAULTS_FOLDERS
    log = 2,      ///< below the second
    clients = 4,  ///< a connection that was accepted
    outgoing = 8, ///< a connection to somebody else
    process = 16, ///< calls that have no place: starts of tools and threads, waits
};

/// One kind of fault in the shared file. The test makes the entry and sets it; the program counts.
struct Fault {
    char name[16];                         ///< as the calls ask for it
    std::atomic<std::uint32_t> perMillion; ///< of the calls that are in its places; 0 is off
    std::atomic<std::uint32_t> where;      ///< places, see Where
    std::atomic<std::int32_t> errors[4];   ///< one of them at random; 0 ends the list
    std::atomic<std::uint64_t> seen;       ///< calls in its places while it was on
    std::atomic<std::uint64_t> struck;     ///< of these, those that were made to fail
    std::uint64_t unused;
};

/// The shared file: this, and `count` entries behind it.
struct Table {
    std::uint64_t magic;
    std::atomic<std::uint32_t> on;            ///< all faults but the clock's are off while it is 0
    std::uint32_t count;                      ///< entries
    std::atomic<std::int64_t> clockSeconds;   ///< is added to the time of day
    std::uint64_t seed;                       ///< of the chances
    std::atomic<std::uint32_t> attached;      ///< 1 as soon as the program uses the table
    std::atomic<std::uint32_t> delayMicros;   ///< what a call in a place of "delay" takes longer
    std::atomic<std::uint64_t> clockReadings; ///< readings of the time of day that were shifted
    std::uint64_t unused[2];
};

static_assert(sizeof(Table) == 64 && sizeof(Fault) == 64, "tests read the file by these offsets");

/// A kind of fault, found by its name once. Any thread.
class Kind {
public:
    explicit constexpr Kind(const char* kindName) : name(kindName) {}

    /// The error with which a call that acts in `place` is to fail; 0 for one that is to be made.
    int strike(std::uint32_t place);

    const char* const name;

private:
    std::atomic<Fault*> entry{nullptr};
    std::atomic<bool> looked{false};
};

/// The table; null where no test has given one, or in a program other than the one under test.
Table* table();

/// Sleeps where the fault "delay" strikes in `place`.
void delay(std::uint32_t place);

/// A number below `limit`, which is not 0.
std::uint64_t chance(std::uint64_t limit);

/// Like `strike`, for a call that reports by -1 and errno: true if it is to fail so.
bool fails(Kind& kind, std::uint32_t place);

/// The next definition of the call `name`, the one that this library hides.
void* nextCall(const char* name);

/// The real call of the name, looked up once.
template <typename Function>
class Real {
public:
    explicit constexpr Real(const char* callName) : name(callName) {}

    Function* get() {
        Function* known = found.load(std::memory_order_acquire);
        if (!known) {
            known = reinterpret_cast<Function*>(nextCall(name));
            found.store(known, std::memory_order_release);
        }
        return known;
    }

private:
    const char* const name;
    std::atomic<Function*> found{nullptr};
};

} // namespace Faults

/// Marks what takes the place of a call of the system.
#define OSTRAND_CALL extern "C" __attribute__((visibility("default")))
