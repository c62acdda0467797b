// Every kind of register at every offset and size around its borders.
#include <gentl_producer/InfoAnswer.h>
#include <gentl_producer/RegisterMap.h>

#include <gtest/gtest.h>

#include <cstring>

using namespace GenTL;
using namespace GenTL::Producer::Util;

namespace {

constexpr uint64_t base = 0x1000;

class OneRegister {
public:
    OneRegister(size_t length, std::unique_ptr<RegisterMapEntry> entry, bool exact) {
        map.add(base, length, std::move(entry), exact);
    }
    Error read(uint64_t offset, size_t size) {
        std::memset(buffer, 'x', sizeof buffer);
        transferred = size;
        return map.Read(base + offset, buffer, &transferred);
    }
    Error write(uint64_t offset, const void* data, size_t size) {
        transferred = size;
        return map.Write(base + offset, data, &transferred);
    }
    template <class T>
    [[nodiscard]] T value() const {
        T got;
        std::memcpy(&got, buffer, sizeof got);
        return got;
    }
    RegisterMap map;
    char buffer[64]{};
    size_t transferred = 0;
};

} // namespace

TEST(RegisterMap, NumbersTakeWholeAccessesOnly) {
    uint64_t variable = 0x1122334455667788;
    int changes = 0;
    OneRegister sut{8, make_variable_entry(&variable, [&] { ++changes; }), true};
    for (size_t offset = 0; offset < 9; ++offset) {
        for (size_t size = 0; size < 10; ++size) {
            const GC_ERROR expected = offset == 8                ? GC_ERR_INVALID_ADDRESS
                                      : offset == 0 && size == 8 ? GC_ERR_SUCCESS
                                                                 : GC_ERR_INVALID_PARAMETER;
            EXPECT_EQ(sut.read(offset, size).code, expected) << offset << " " << size;
            EXPECT_EQ(sut.write(offset, &variable, size).code, expected) << offset << " " << size;
        }
    }
    EXPECT_EQ(changes, 1);
    EXPECT_EQ(sut.read(0, 8).code, GC_ERR_SUCCESS);
    EXPECT_EQ(sut.value<uint64_t>(), variable);
}

TEST(RegisterMap, MissingDirectionsAndErrorsComeThrough) {
    OneRegister read_only{4, make_value_entry<uint32_t>([]() -> std::expected<uint32_t, Error> { return 7U; }), true};
    const uint32_t four = 4;
    EXPECT_EQ(read_only.read(0, 4).code, GC_ERR_SUCCESS);
    EXPECT_EQ(read_only.value<uint32_t>(), 7U);
    EXPECT_EQ(read_only.write(0, &four, 4).code, GC_ERR_ACCESS_DENIED);

    bool flag = false;
    OneRegister boolean{4, make_variable_entry(&flag), true};
    EXPECT_EQ(boolean.write(0, &four, 4).code, GC_ERR_SUCCESS);
    EXPECT_TRUE(flag);
    EXPECT_EQ(boolean.read(0, 4).code, GC_ERR_SUCCESS);
    EXPECT_EQ(boolean.value<uint32_t>(), 1U);

    OneRegister failing{4, make_value_entry<uint32_t>([]() -> std::expected<uint32_t, Error> {
                            return std::unexpected(Error{GC_ERR_INVALID_INDEX, "Unexpected interface selector"});
                        }),
                        true};
    EXPECT_EQ(failing.read(0, 4).message, "Unexpected interface selector");

    int runs = 0;
    OneRegister command{4, make_command_entry([&] {
                            ++runs;
                            return success();
                        }),
                        true};
    EXPECT_EQ(command.read(0, 4).code, GC_ERR_ACCESS_DENIED);
    EXPECT_EQ(command.write(0, &four, 4).code, GC_ERR_SUCCESS);
    EXPECT_EQ(runs, 1);
}

// A text of the module's own, and one behind its info command, which refuses a buffer that does not hold the text and
// its NUL.
TEST(RegisterMap, StringsReadInAnyPieces) {
    constexpr size_t length = 8;
    for (size_t text_length = 0; text_length < 11; ++text_length) {
        const std::string text(text_length, 'a');
        for (const bool by_info : {false, true}) {
            if (by_info && text_length > length) continue;
            OneRegister sut{length,
                            by_info ? make_string_entry(
                                          [&](std::span<char> dst) {
                                              INFO_DATATYPE type = 0;
                                              size_t size = dst.size();
                                              return GenTL::Producer::answer_string(&type, dst.data(), &size, text);
                                          },
                                          length)
                                    : make_string_entry([&]() -> std::expected<std::string, Error> { return text; },
                                                        [](std::string) { return success(); }, length),
                            false};
            for (size_t offset = 0; offset <= length; ++offset) {
                for (size_t size = 0; size <= length + 1; ++size) {
                    const GC_ERROR expected = offset == length         ? GC_ERR_INVALID_ADDRESS
                                              : offset + size > length ? GC_ERR_BUFFER_TOO_SMALL
                                                                       : GC_ERR_SUCCESS;
                    ASSERT_EQ(sut.read(offset, size).code, expected) << by_info << ": " << offset << " " << size;
                    if (expected != GC_ERR_SUCCESS) continue;
                    EXPECT_EQ(sut.transferred, size);
                    for (size_t i = 0; i < size; ++i) {
                        ASSERT_EQ(sut.buffer[i], offset + i < text_length ? 'a' : '\0') << offset << " " << i;
                    }
                    EXPECT_EQ(sut.buffer[size], 'x') << "nothing behind the answer is touched";
                }
            }
        }
    }
}

TEST(RegisterMap, StringsAreWrittenUpToTheirTerminator) {
    std::string text = "before";
    OneRegister sut{8,
                    make_string_entry([&]() -> std::expected<std::string, Error> { return text; },
                                      [&](std::string written) {
                                          text = std::move(written);
                                          return success();
                                      },
                                      8),
                    false};
    EXPECT_EQ(sut.write(0, "ab\0cd", 5).code, GC_ERR_SUCCESS);
    EXPECT_EQ(text, "ab");
    EXPECT_EQ(sut.write(0, "abcdefgh", 8).code, GC_ERR_SUCCESS);
    EXPECT_EQ(text, "abcdefgh");
    EXPECT_EQ(sut.write(0, "abcdefghi", 9).code, GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(sut.write(2, "XY\0", 3).code, GC_ERR_SUCCESS);
    EXPECT_EQ(text, "abXY");
}

TEST(RegisterMap, TextReadsInPiecesAndIsNeverWritten) {
    const std::string text = "0123456789";
    OneRegister sut{text.size(), make_text_entry(&text), false};
    EXPECT_EQ(sut.read(3, 4).code, GC_ERR_SUCCESS);
    EXPECT_EQ(std::string(sut.buffer, 4), "3456");
    EXPECT_EQ(sut.read(3, 8).code, GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(sut.write(0, "x", 1).code, GC_ERR_ACCESS_DENIED);
}
