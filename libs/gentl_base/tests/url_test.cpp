#include <gentl_producer/Port.h>

#include <gtest/gtest.h>

using GenTL::Producer::parse_url;

TEST(Url, LocalForms) {
    struct row {
        const char* text;
        uint64_t address, size;
        const char* name;
        uint32_t schema_major;
        uint32_t file_major;
    };
    const row rows[] = {
        {"local:cam.xml;F0000000;3E8?SchemaVersion=1.1.0", 0xF0000000, 0x3E8, "cam.xml", 1, 0},
        {"Local:cam.zip;0x10;0x20", 0x10, 0x20, "cam.zip", 0, 0},
        {"LOCAL:///cam_2_3_4.xml;10;20", 0x10, 0x20, "cam_2_3_4.xml", 0, 2},
    };
    for (const row& r : rows) {
        const auto record = parse_url(r.text);
        EXPECT_TRUE(record.has_scheme) << r.text;
        EXPECT_EQ(record.scheme, 0) << r.text;
        EXPECT_EQ(record.address, r.address) << r.text;
        EXPECT_EQ(record.size, r.size) << r.text;
        EXPECT_EQ(record.file_name, r.name) << r.text;
        EXPECT_EQ(record.schema_major, r.schema_major) << r.text;
        EXPECT_EQ(record.file_major, r.file_major) << r.text;
    }
}

TEST(Url, OtherSchemesHaveNoRegisters) {
    EXPECT_EQ(parse_url("http://host/dir/cam.xml").scheme, 1);
    EXPECT_EQ(parse_url("File:///dir/cam.xml").scheme, 2);
    EXPECT_FALSE(parse_url("file:///dir/cam.xml").address);
}

TEST(Url, WhatDoesNotParseKeepsOnlyItsText) {
    for (const char* text : {"", "local:", "local:cam.xml", "local:cam.xml;10", "local:cam.xml;1G;20",
                             "local:cam.xml;10;", "ftp:cam.xml", "local:;10;20"}) {
        const auto record = parse_url(text);
        EXPECT_EQ(record.url, text);
        EXPECT_FALSE(record.has_scheme) << text;
        EXPECT_FALSE(record.address || record.file_name) << text;
    }
}
