#include <gentl_producer/Buffer.h>
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/Library.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>
#include <new>
#include <optional>
#include <span>
#include <utility>
#include <vector>

namespace GenTL::Producer {

namespace {

Error no_chunk_data() { return {GC_ERR_NO_DATA, "The buffer does not contain chunk data"}; }

Error invalid_pointer() { return {GC_ERR_NOT_AVAILABLE, "The buffer's pointer is invalid"}; }

constexpr std::align_val_t block_alignment{4096};
struct block_deleter {
    void operator()(std::byte* block) const { ::operator delete(block, block_alignment); }
};
using memory_block = std::unique_ptr<std::byte, block_deleter>;

memory_block allocate_block(size_t size) {
    // Rounded up to the alignment inside the allocation, a size beyond this would wrap to a small block.
    if (size > static_cast<size_t>(PTRDIFF_MAX)) throw std::bad_alloc{};
    return memory_block{static_cast<std::byte*>(::operator new(size, block_alignment))};
}

// Equal in layout to the published record, so that entries are copied out as they stand.
struct ChunkEntry {
    uint64_t chunk_id;
    ptrdiff_t offset; // from the start of the buffer
    size_t length;
};
static_assert(sizeof(ChunkEntry) == sizeof(SINGLE_CHUNK_DATA));

class Buffer_with_internal_memory final : public Buffer {
public:
    Buffer_with_internal_memory(memory_block block, size_t bytes, void* consumer_data)
        : Buffer(block.get(), bytes, consumer_data, false), memory(std::move(block)) {}

private:
    memory_block memory;
};

class Buffer_with_trailing_chunk_data : public Buffer {
public:
    Buffer_with_trailing_chunk_data(uint32_t big_endian, void* block, size_t bytes, void* consumer_data,
                                    bool memory_of_consumer)
        : Buffer(block, bytes, consumer_data, memory_of_consumer), big_endian_trailer(big_endian) {
        chunks.reserve(64);
    }

    Error GetChunkData(SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks) override;
    void reset() override;
    void retire() override;

private:
    size_t end_of_chunks() const;
    Error parse_trailing_chunks();

    const uint32_t big_endian_trailer;
    std::mutex chunk_mutex;            // guards what follows: two consumer threads may ask for the chunks at once
    std::optional<Error> parse_result; // empty until this frame was parsed
    std::vector<ChunkEntry> chunks;
    bool is_retired = false; // for good
};

class Buffer_with_trailing_chunk_data_and_internal_memory final : public Buffer_with_trailing_chunk_data {
public:
    Buffer_with_trailing_chunk_data_and_internal_memory(uint32_t big_endian, memory_block block, size_t bytes,
                                                        void* consumer_data)
        : Buffer_with_trailing_chunk_data(big_endian, block.get(), bytes, consumer_data, false),
          memory(std::move(block)) {}

private:
    memory_block memory;
};

void Buffer_with_trailing_chunk_data::reset() {
    {
        const std::lock_guard guard{chunk_mutex};
        parse_result.reset();
    }
    Buffer::reset();
}

void Buffer_with_trailing_chunk_data::retire() {
    const std::lock_guard guard{chunk_mutex}; // waits for a parse under way
    is_retired = true;                        // an error would take memory, which a close must do without
}

Error Buffer_with_trailing_chunk_data::GetChunkData(SINGLE_CHUNK_DATA* pChunkData, size_t* piNumChunks) {
    const std::lock_guard guard{chunk_mutex};
    // Outside the consumer's hands the frame's fields and bytes are somebody else's, and what is parsed from them now
    // must not answer for the next frame.
    if (status.load(std::memory_order_acquire) != BufferStatus::Announced || !contains_chunk_data) {
        return no_chunk_data();
    }
    if (is_retired) return invalid_pointer();
    if (!parse_result) {
        try {
            parse_result = parse_trailing_chunks();
        } catch (const std::bad_alloc&) {
            return Error{GC_ERR_OUT_OF_MEMORY};
        }
        if (!parse_result->failed() && chunks.empty()) parse_result = no_chunk_data();
    }
    if (parse_result->failed()) return *parse_result;
    if (pChunkData == nullptr) {
        *piNumChunks = chunks.size();
        return success();
    }
    if (*piNumChunks < chunks.size()) {
        *piNumChunks = chunks.size();
        return Error{GC_ERR_BUFFER_TOO_SMALL};
    }
    std::memcpy(pChunkData, chunks.data(), chunks.size() * sizeof(ChunkEntry));
    return success();
}

// A camera may fill its last packet up with zeros. The frame then ends where its trailer says, or, where that is of no
// use, where it was announced to end. A frame that really is longer ends with a chunk's words.
size_t Buffer_with_trailing_chunk_data::end_of_chunks() const {
    if (base == nullptr || fill_state != FillState::complete) return size_filled;
    for (const size_t end : {chunk_length, data_size}) {
        if (end == 0 || end >= size_filled) continue;
        const std::span behind{static_cast<const std::byte*>(base) + end, size_filled - end};
        if (std::ranges::all_of(behind, [](std::byte each) { return each == std::byte{}; })) return end;
    }
    return size_filled;
}

// Every chunk carries its id and length behind its data, so the walk goes from the end to the start.
Error Buffer_with_trailing_chunk_data::parse_trailing_chunks() {
    constexpr ptrdiff_t trailer_size = 8;
    auto pos = static_cast<ptrdiff_t>(end_of_chunks());
    if (pos % 4 != 0) return {GC_ERR_NOT_AVAILABLE, "The buffer's chunk data looks misaligned"};
    if (base == nullptr) return invalid_pointer();
    // The last trailer was cut off or is missing, and what stands at the end are bytes of an image.
    const bool cut_off = data_size > size_filled && size_filled >= size;
    if (cut_off || (fill_state == FillState::incomplete && size_filled != data_size))
        return {GC_ERR_NOT_AVAILABLE, "The buffer's chunk data couldn't be parsed"};
    chunks.clear();
    while (pos > trailer_size) {
        uint32_t words[2];
        std::memcpy(words, static_cast<const std::byte*>(base) + pos - trailer_size, sizeof words);
        if (big_endian_trailer != 0) {
            words[0] = __builtin_bswap32(words[0]);
            words[1] = __builtin_bswap32(words[1]);
        }
        const ptrdiff_t length = words[1];
        if (length > pos - trailer_size) {
            return {GC_ERR_NOT_AVAILABLE, "The buffer's chunk data couldn't be parsed"};
        }
        chunks.push_back({words[0], pos - length - trailer_size, static_cast<size_t>(length)});
        pos -= length + trailer_size;
    }
    std::ranges::reverse(chunks);
    return success();
}

template <class Make>
std::expected<std::shared_ptr<Buffer>, Error> catch_out_of_memory(size_t size, Make&& make) {
    try {
        return make();
    } catch (const std::bad_alloc&) {
        return std::unexpected(Error{GC_ERR_OUT_OF_MEMORY, "Failed to allocate {} bytes for GenTL::Buffer.", size});
    }
}

} // namespace

Error Buffer::GetChunkData(SINGLE_CHUNK_DATA*, size_t*) { return no_chunk_data(); }

void Buffer::reset() {
    fill_state = FillState::no_frame;
    size_filled = 0;
}

void Buffer::set_status(BufferStatus new_status) {
    status.store(new_status, std::memory_order_release);
    if (auto* logger = trace_logger(trace_buffers, spdlog::level::trace)) {
        logger->trace("  buf={} status={}", fmt::ptr(this), static_cast<int32_t>(new_status));
    }
}

Error Buffer::get_info(BUFFER_INFO_CMD iInfoCmd, INFO_DATATYPE* piType, void* pBuffer, size_t* piSize) const {
    const auto size_answer = [&](size_t value) { return answer_sizet(piType, pBuffer, piSize, value); };
    const auto number = [&](uint64_t value) { return answer_uint64(piType, pBuffer, piSize, value); };
    const auto flag = [&](bool value) { return answer_bool8(piType, pBuffer, piSize, value); };
    const BufferStatus now = status.load(std::memory_order_acquire);
    switch (iInfoCmd) {
    case BUFFER_INFO_BASE:
        return answer_ptr(piType, pBuffer, piSize, base);
    case BUFFER_INFO_SIZE:
        return size_answer(size);
    case BUFFER_INFO_USER_PTR:
        return answer_ptr(piType, pBuffer, piSize, user_ptr);
    case BUFFER_INFO_TIMESTAMP:
        return number(timestamp);
    case BUFFER_INFO_NEW_DATA:
        return flag(fill_state != FillState::no_frame);
    case BUFFER_INFO_IS_QUEUED:
        return flag(now != BufferStatus::Announced);
    case BUFFER_INFO_IS_ACQUIRING:
        return flag(now == BufferStatus::Filling);
    case BUFFER_INFO_IS_INCOMPLETE:
        return flag(fill_state == FillState::incomplete);
    case BUFFER_INFO_SIZE_FILLED:
        return size_answer(size_filled);
    case BUFFER_INFO_WIDTH:
        return size_answer(width);
    case BUFFER_INFO_HEIGHT:
        return size_answer(height);
    case BUFFER_INFO_XOFFSET:
        return size_answer(0);
    case BUFFER_INFO_YOFFSET:
        return size_answer(0);
    case BUFFER_INFO_XPADDING:
        return size_answer(x_padding);
    case BUFFER_INFO_YPADDING:
        return size_answer(0);
    case BUFFER_INFO_FRAMEID:
        return number(frame_id);
    case BUFFER_INFO_IMAGEPRESENT:
        return flag(data_size > 0);
    case BUFFER_INFO_IMAGEOFFSET:
        return size_answer(0);
    case BUFFER_INFO_PAYLOADTYPE:
        return size_answer(PAYLOAD_TYPE_IMAGE);
    case BUFFER_INFO_PIXELFORMAT:
        return number(pixel_format);
    case BUFFER_INFO_PIXELFORMAT_NAMESPACE:
        return number(pixel_format_namespace);
    case BUFFER_INFO_DELIVERED_IMAGEHEIGHT:
        return size_answer(height);
    case BUFFER_INFO_CHUNKLAYOUTID:
        return number(chunk_layout_id);
    case BUFFER_INFO_PIXEL_ENDIANNESS:
        return answer_int32(piType, pBuffer, piSize, PIXELENDIANNESS_LITTLE);
    case BUFFER_INFO_DATA_SIZE:
        return size_answer(data_size);
    case BUFFER_INFO_TIMESTAMP_NS:
        return number(timestamp);
    case BUFFER_INFO_DATA_LARGER_THAN_BUFFER:
        return flag(data_size > size);
    case BUFFER_INFO_CONTAINS_CHUNKDATA:
        return flag(contains_chunk_data);
    default:
        return Error{GC_ERR_NOT_IMPLEMENTED};
    }
}

std::expected<std::shared_ptr<Buffer>, Error> make_buffer(void* base, size_t size, void* user_ptr) {
    return catch_out_of_memory(size, [&]() -> std::shared_ptr<Buffer> {
        if (base != nullptr) return std::make_shared<Buffer>(base, size, user_ptr, true);
        return std::make_shared<Buffer_with_internal_memory>(allocate_block(size), size, user_ptr);
    });
}

std::expected<std::shared_ptr<Buffer>, Error> make_chunk_buffer(uint32_t big_endian_trailer, void* base, size_t size,
                                                                void* user_ptr) {
    return catch_out_of_memory(size, [&]() -> std::shared_ptr<Buffer> {
        if (base != nullptr) {
            return std::make_shared<Buffer_with_trailing_chunk_data>(big_endian_trailer, base, size, user_ptr, true);
        }
        return std::make_shared<Buffer_with_trailing_chunk_data_and_internal_memory>(
            big_endian_trailer, allocate_block(size), size, user_ptr);
    });
}

} // namespace GenTL::Producer
