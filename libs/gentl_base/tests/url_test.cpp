#include "fake_modules.h"

#include <GenICam/document_url.h>
#include <gentl_producer/Port.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

using GenTL::Producer::parse_url;

TEST(Url, RecordHoldsWhatTheTextSays) {
    const auto local = parse_url("Local:///cam_2_3_4.xml;F0000000;3E8?SchemaVersion=1.2.0");
    EXPECT_TRUE(local.has_scheme);
    EXPECT_EQ(local.scheme, 0);
    EXPECT_EQ(local.address, 0xF0000000U);
    EXPECT_EQ(local.size, 0x3E8U);
    EXPECT_EQ(local.file_name, "cam_2_3_4.xml");
    EXPECT_EQ(local.schema_major * 10 + local.schema_minor, 12U);
    EXPECT_EQ(local.file_major * 100 + local.file_minor * 10 + local.file_subminor, 234U);
    EXPECT_EQ(parse_url("http://host/dir/cam.xml").scheme, 1);
    EXPECT_EQ(parse_url("File:///dir/cam.xml").scheme, 2);
    EXPECT_FALSE(parse_url("file:///dir/cam.xml").address) << "no registers, so nothing to read there";
}

TEST(Url, WhatDoesNotParseKeepsOnlyItsText) {
    const auto record = parse_url("local:cam.xml;1G;20");
    EXPECT_EQ(record.url, "local:cam.xml;1G;20");
    EXPECT_FALSE(record.has_scheme || record.address || record.size || record.file_name);
}

TEST(Url, NothingIsReadBeyondTheLargestDocument) {
    for (const bool beyond : {false, true}) {
        const size_t size = GenICam::largest_document + (beyond ? 1 : 0);
        fake::documented_port port{{fmt::format("local:cam.xml;0;{:X}", size)}};
        EXPECT_EQ(port.read_document(0).has_value(), !beyond);
        EXPECT_EQ(port.asked, beyond ? std::nullopt : std::optional{size});
    }
}
