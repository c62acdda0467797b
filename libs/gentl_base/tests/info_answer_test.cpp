#include <gentl_producer/InfoAnswer.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace GenTL;
using namespace GenTL::Producer;

TEST(InfoAnswer, StringsCountTheirTerminatorAndClearTheRest) {
    INFO_DATATYPE type = 0;
    char buffer[64];
    std::ranges::fill(buffer, 'x');
    size_t size = 3;
    EXPECT_EQ(answer_string(&type, buffer, &size, "abc").code, GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(buffer[0], 'x');
    size = sizeof buffer;
    EXPECT_EQ(answer_string(&type, buffer, &size, "abc").code, GC_ERR_SUCCESS);
    EXPECT_EQ(type, INFO_DATATYPE_STRING);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_TRUE(std::all_of(buffer + 3, buffer + 64, [](char c) { return c == 0; }));
    EXPECT_EQ(answer_string(&type, buffer, nullptr, "abc").message, "piSize == nullptr");
    EXPECT_EQ(answer_string(nullptr, buffer, &size, "abc").message, "piType == nullptr");
}

TEST(InfoAnswer, NumbersTellTheirWidthBeforeTheyFail) {
    INFO_DATATYPE type = 0;
    uint64_t value = 0;
    size_t size = 7;
    const Error error = answer_uint64(&type, &value, &size, 5);
    EXPECT_EQ(error.code, GC_ERR_BUFFER_TOO_SMALL);
    EXPECT_EQ(error.message, "Buffer too small");
    EXPECT_EQ(size, 8U);
    EXPECT_EQ(type, INFO_DATATYPE_UINT64);
    alignas(8) std::byte unaligned[16]{};
    EXPECT_EQ(answer_uint64(&type, unaligned + 1, &size, 5).code, GC_ERR_SUCCESS);
    EXPECT_EQ(unaligned[1], std::byte{5});
}

TEST(InfoAnswer, FlagsForgiveASizeOfZero) {
    INFO_DATATYPE type = 0;
    bool8_t value = 9;
    size_t size = 0;
    EXPECT_EQ(answer_bool8(&type, &value, &size, true).code, GC_ERR_SUCCESS);
    EXPECT_EQ(value, 9);
    EXPECT_EQ(size, 1U);
    EXPECT_EQ(answer_bool8(&type, &value, &size, true).code, GC_ERR_SUCCESS);
    EXPECT_EQ(value, 1);
}

TEST(InfoAnswer, ErrorTexts) {
    EXPECT_EQ(error_text(-1024), "Unknown Error ID: -1024");
    EXPECT_EQ(error_text(1), "Unknown Error ID: 1");
    EXPECT_EQ(error_text(GC_ERR_CUSTOM_ID), "Unknown Error ID: -10000");
    EXPECT_EQ(error_text(GC_ERR_AMBIGUOUS), "Ambiguous");
    EXPECT_EQ(Error{GC_ERR_IO}.text(), "IO Error");
}
