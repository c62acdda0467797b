#include "exercise.h"

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    fuzz::exercise_transform(std::as_bytes(std::span{data, size}));
    return 0;
}
