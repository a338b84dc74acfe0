// Linking AllocationCounter.cpp into a binary replaces the global allocator with one that
// counts, so a test or benchmark can measure what an operation allocates.
#pragma once

namespace alloccount {

// Allocations made through operator new since the program started.
long long allocations();
// Bytes held right now (as the allocator sized the blocks).
long long liveBytes();
// The most bytes held at once since the last resetPeak() (or the start).
long long peakBytes();
void resetPeak();

}  // namespace alloccount
