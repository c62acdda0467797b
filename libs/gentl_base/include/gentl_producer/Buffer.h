// One announced memory block: where it is, what state it is in, what the last frame stored in it looks like.
#pragma once

#include <gentl_producer/Error.h>
#include <gentl_producer/ObjectTracker.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <memory>

namespace GenTL::Producer {

enum class BufferStatus : int32_t {
    Announced = 0, // known to the stream, in the consumer's hands
    Input = 1,     // waiting to be filled
    Filling = 2,   // in the receiver's hands
    Output = 3,    // filled, waiting for delivery
};

enum class FillState : uint8_t { no_frame = 0, incomplete = 1, complete = 2 };

// The frame's fields are written by the filling side in Filling and read by the consumer in Announced; the change of
// `status` is the hand-over. reset() leaves most of them, so an incomplete frame can show old width and height.
class Buffer : private Util::TrackedObject {
public:
    Buffer(void* memory, size_t bytes, void* consumer_data, bool memory_of_consumer)
        : TrackedObject("Buffer"),
          base(memory),
          size(bytes),
          user_ptr(consumer_data),
          user_memory(memory_of_consumer) {}

    // The table of chunks in buffer order. A null array asks for the count only. Thread-safe.
    virtual Error GetChunkData(SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks);
    // Called when the block is to take a new frame.
    virtual void reset();
    // Called when the block stops being the stream's: from then on its memory, which may be freed, is not read.
    virtual void retire() {}

    Error get_info(BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) const;
    void set_status(BufferStatus new_status);

    Buffer* next = nullptr; // link of the input stack
    std::atomic<BufferStatus> status{BufferStatus::Announced};
    void* base;
    size_t size; // bytes
    void* user_ptr;
    size_t size_filled = 0; // bytes written for the last frame
    uint64_t frame_id = 0;
    uint64_t timestamp = 0; // nanoseconds
    size_t width = 0;       // pixels
    size_t height = 0;      // lines
    uint32_t pixel_format = 0;
    uint32_t pixel_format_namespace = 0;
    size_t data_size = 0; // what the frame has or would have had; larger than `size` when it did not fit
    size_t x_padding = 0; // bytes behind each line
    uint64_t chunk_layout_id = 0;
    size_t chunk_length = 0; // what a camera says that picture and chunks are long; 0 when it does not
    FillState fill_state = FillState::no_frame;
    bool contains_chunk_data = false;
    bool user_memory;
};

// A null base allocates the block, 4 KiB aligned; GC_ERR_OUT_OF_MEMORY when that fails.
[[nodiscard]] std::expected<std::shared_ptr<Buffer>, Error> make_buffer(void* base, size_t size, void* user_ptr);
// For frames with trailing chunks, whose id and length words are in host order unless `big_endian_trailer` is not 0.
[[nodiscard]] std::expected<std::shared_ptr<Buffer>, Error> make_chunk_buffer(uint32_t big_endian_trailer, void* base,
                                                                              size_t size, void* user_ptr);

} // namespace GenTL::Producer
