#include <gentl_producer/Buffer.h>

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

using namespace GenTL;
using namespace GenTL::Producer;

namespace {

void append_chunk(std::vector<uint32_t>& words, uint32_t id, uint32_t length_words, bool big_endian) {
    const auto order = [&](uint32_t value) { return big_endian ? __builtin_bswap32(value) : value; };
    words.insert(words.end(), length_words, 0xDDDDDDDD);
    words.push_back(order(id));
    words.push_back(order(length_words * 4));
}

std::shared_ptr<Buffer> buffer_with(std::vector<uint32_t>& words, bool big_endian) {
    auto buffer = *make_chunk_buffer(big_endian ? 1 : 0, words.data(), words.size() * 4, nullptr);
    buffer->size_filled = words.size() * 4;
    buffer->contains_chunk_data = true;
    return buffer;
}

} // namespace

TEST(Chunks, AreListedInBufferOrderInBothByteOrders) {
    for (const bool big_endian : {false, true}) {
        std::vector<uint32_t> words;
        append_chunk(words, 0x11, 10, big_endian);
        append_chunk(words, 0x22, 0, big_endian);
        append_chunk(words, 0x33, 2, big_endian);
        const auto buffer = buffer_with(words, big_endian);
        size_t count = 0;
        ASSERT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_SUCCESS);
        ASSERT_EQ(count, 3U);
        SINGLE_CHUNK_DATA chunks[3];
        count = 2;
        EXPECT_EQ(buffer->GetChunkData(chunks, &count).code, GC_ERR_BUFFER_TOO_SMALL);
        EXPECT_EQ(count, 3U);
        ASSERT_EQ(buffer->GetChunkData(chunks, &count).code, GC_ERR_SUCCESS);
        EXPECT_EQ(uint64_t{chunks[0].ChunkID}, 0x11U);
        EXPECT_EQ(ptrdiff_t{chunks[0].ChunkOffset}, 0);
        EXPECT_EQ(size_t{chunks[0].ChunkLength}, 40U);
        EXPECT_EQ(size_t{chunks[1].ChunkLength}, 0U);
        EXPECT_EQ(ptrdiff_t{chunks[2].ChunkOffset}, 56);
        EXPECT_EQ(uint64_t{chunks[2].ChunkID}, 0x33U);
    }
}

TEST(Chunks, BrokenTrailersGiveTheSameErrorUntilTheNextFrame) {
    std::vector<uint32_t> words;
    append_chunk(words, 1, 4, false);
    const auto buffer = buffer_with(words, false);
    words.back() = 20; // one word more than there is
    size_t count = 0;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).message, "The buffer's chunk data couldn't be parsed");
    words.back() = 16;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_NOT_AVAILABLE) << "parsed once per frame";
    buffer->reset();
    buffer->size_filled = words.size() * 4;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
    buffer->reset();
    buffer->size_filled = 6;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).message, "The buffer's chunk data looks misaligned");
    buffer->reset();
    buffer->size_filled = 8;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_NO_DATA);
    buffer->contains_chunk_data = false;
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).message, "The buffer does not contain chunk data");
}

// What stands at the end are pixels where the trailers lie behind what the buffer holds, and padding of a camera's last
// packet where more came than was announced.
TEST(Chunks, AreReadFromTheEndOfWhatWasSent) {
    std::vector<uint32_t> words;
    append_chunk(words, 1, 4, false);
    append_chunk(words, 2, 2, false);
    words.resize(16);
    const auto buffer = buffer_with(words, false);
    struct row {
        size_t filled, whole;
        FillState state;
        size_t chunks;     // 0: none are read
        size_t length = 0; // by the trailer
    };
    // A frame may be shorter than was announced: whole all the same, and where packets lack nobody knows.
    for (const row& r : {row{64, 64, FillState::complete, 2, 40},
                         {44, 64, FillState::complete, 2, 40},
                         {44, 44, FillState::complete, 2, 40},
                         {40, 40, FillState::complete, 2, 16}, // of the chunks alone
                         {40, 40, FillState::complete, 2, 64},
                         {64, 100, FillState::complete, 0},
                         {40, 100, FillState::complete, 2},
                         {40, 24, FillState::complete, 2},
                         {44, 40, FillState::complete, 2},
                         {64, 40, FillState::complete, 2},
                         {64, 40, FillState::incomplete, 0},
                         {40, 100, FillState::incomplete, 0},
                         {40, 64, FillState::incomplete, 0},
                         {40, 40, FillState::incomplete, 2}}) {
        SCOPED_TRACE(testing::Message() << r.filled << " of " << r.whole);
        buffer->reset();
        buffer->size_filled = r.filled;
        buffer->data_size = r.whole;
        buffer->chunk_length = r.length;
        buffer->fill_state = r.state;
        size_t count = 0;
        EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, r.chunks == 0 ? GC_ERR_NOT_AVAILABLE : GC_ERR_SUCCESS);
        EXPECT_EQ(count, r.chunks);
    }
}

TEST(Chunks, AreAnsweredOnlyInTheConsumersHandsAndAskingEarlyDoesNoHarm) {
    std::vector<uint32_t> words;
    append_chunk(words, 1, 4, false);
    const auto buffer = buffer_with(words, false);
    size_t count = 0;
    // A frame without chunks came before.
    buffer->contains_chunk_data = false;
    for (const auto status : {BufferStatus::Input, BufferStatus::Filling, BufferStatus::Output}) {
        if (status == BufferStatus::Filling) {
            buffer->reset();
            buffer->contains_chunk_data = true; // written before the frame's bytes are all there
        }
        buffer->set_status(status);
        EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_NO_DATA);
        buffer->size_filled = words.size() * 4;
    }
    buffer->set_status(BufferStatus::Announced);
    EXPECT_EQ(buffer->GetChunkData(nullptr, &count).code, GC_ERR_SUCCESS);
    EXPECT_EQ(count, 1U);
}
