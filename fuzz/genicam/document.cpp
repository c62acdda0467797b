#include "exercise.h"

#include <cstdint>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    fuzz::exercise_document(std::as_bytes(std::span{data, size}));
    return 0;
}
