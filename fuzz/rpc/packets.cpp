#include <support/hostile_packets.h>

#include <cstddef>
#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    hostile::feed(std::as_bytes(std::span{data, size}));
    return 0;
}
