// Any sequence of datagrams, times and commands, against one kind of receiver.
#pragma once

#include <cstddef>
#include <span>

namespace fuzz {

// Ends the process when a receiver writes outside a frame's buffer, hands a buffer back twice or not at all, asks for
// packets that no camera has, or counts wrongly.
//
// Input: a byte of choices (bits 0-1: size of the buffers, bit 2: only two buffers, bits 3-5: blocks that may be open,
// bits 6-7: retries), then records of a time step in microseconds (2 bytes, little-endian), a command, a length and so
// many bytes of a datagram. Commands: 0 none, 1 reset, 2 flush, 3 revoke the oldest buffer, 4 parameters from the
// datagram's first bytes, 5 an hour passes, 6 the clock goes back, 7 set up again; others are none.
void exercise_simple(std::span<const std::byte> input);
void exercise_resend(std::span<const std::byte> input);
void exercise_copy(std::span<const std::byte> input);

} // namespace fuzz
