#pragma once

#include <chrono>

namespace test {

/// What the IPMI library gets to see of the system in a program that this is linked into: its calendar clock, and the
/// network. The program's own functions take the place of the C library's. Any thread.
struct SeenByLibrary {
    /// The calendar clock goes wrong by @p offset from now on.
    static void SetClockOffset(std::chrono::seconds offset);
    /// The calendar clock is set by @p step after each look at it.
    static void SetStepAtEachLook(std::chrono::seconds step);
    /// How often the clock was looked at.
    static long CountLooks();

    /// How many packets were sent, lost ones included, since the last call.
    static int TakeSentPackets();
    /// The next packets get lost on their way.
    static void LosePackets(int count);
    /// Sending fails with this error number; 0: it does not.
    static void SetSendError(int error);

    /// What happens to packets that come in.
    struct Spoiling {
        double turned = 0;     ///< share of those of which one to eight bits are turned
        double truncated = 0;  ///< share of those that are cut to a random length
        double repeated = 0;   ///< share of those that come again in the place of the next
    };
    /// The faults follow from @p seed and the order of the packets.
    static void SpoilReceivedPackets(const Spoiling& spoiling, unsigned int seed);
    static long CountSpoiled();

    /// All as it is without.
    static void Reset();
};

}  // namespace test
