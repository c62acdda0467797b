// What the drivers of colour kernels share.
#pragma once
#include "plain/adjust_rows.h"
#include "sample_lines.h"

namespace img_pipe {
namespace {

// Pixels of a block, whose lines stay in the first cache: a multiple of every group of pixels. Where groups matter, the
// last block takes up to `block_rest` more, so that none holds a cut group alone.
constexpr std::int32_t block_pixels = 1024, block_rest = 8;

// A block's line of samples from *at, which is moved on.
template <class T>
void take_block(std::byte*& at, T*& line) {
    line = reinterpret_cast<T*>(at);
    at += (block_pixels + block_rest + 32) * static_cast<std::ptrdiff_t>(sizeof(T));
}

} // namespace
} // namespace img_pipe
