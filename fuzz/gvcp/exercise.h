// What the network feeds the service, without the network. Each takes any bytes.
#pragma once

#include <cstddef>
#include <span>

namespace fuzz {

void exercise_ack(std::span<const std::byte> datagram);   // discovery and other acknowledges
void exercise_url(std::span<const std::byte> text);       // the URL registers
void exercise_zip(std::span<const std::byte> archive);    // zipped documents
void exercise_event(std::span<const std::byte> datagram); // the message channel

} // namespace fuzz
