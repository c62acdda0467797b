#include "test_cameras.h"

#include <gvcp/device_document.h>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>

#include <filesystem>
#include <fstream>

namespace {

using namespace gvcp_master;

TEST(gvcp_document, url_forms) {
    struct {
        const char* text;
        std::optional<url_scheme> scheme;
        const char* name;
        uint64_t address, size;
        std::array<uint32_t, 3> file, schema;
    } const cases[]{
        {"Local:cam.xml;1000;2F", url_scheme::local, "cam.xml", 0x1000, 0x2F, {}, {}},
        {"LOCAL:///cam_1_2_3.zip;0x1000;0X2f?SchemaVersion=1.1.0",
         url_scheme::local,
         "cam_1_2_3.zip",
         0x1000,
         0x2F,
         {1, 2, 3},
         {1, 1, 0}},
        {"local:a_b_2_0_11.XML;0;1", url_scheme::local, "a_b_2_0_11.XML", 0, 1, {2, 0, 11}, {}},
        {"file:///opt/cam_1_0_0.xml", url_scheme::file, "/opt/cam_1_0_0.xml", 0, 0, {1, 0, 0}, {}},
        {"File:cam.xml", url_scheme::file, "cam.xml", 0, 0, {}, {}},
        {"HTTP://host:8080/d/cam.xml", url_scheme::http, "http://host:8080/d/cam.xml", 0, 0, {}, {}},
        {"local:cam.xml", {}, "", 0, 0, {}, {}},
        {"local:cam.xml;xyz;10", {}, "", 0, 0, {}, {}},
        {"local:cam.xml;10;", {}, "", 0, 0, {}, {}},
        {"ftp://host/cam.xml", {}, "", 0, 0, {}, {}},
        {"", {}, "", 0, 0, {}, {}},
    };
    for (const auto& each : cases) {
        const auto got = parse_document_url(each.text);
        EXPECT_EQ(got.url, each.text);
        EXPECT_EQ(got.scheme, each.scheme) << each.text;
        EXPECT_EQ(got.name, each.name) << each.text;
        EXPECT_EQ(got.address, each.address) << each.text;
        EXPECT_EQ(got.size, each.size) << each.text;
        EXPECT_EQ(got.file_version, each.file) << each.text;
        EXPECT_EQ(got.schema_version, each.schema) << each.text;
    }
}

TEST(gvcp_document, comes_out_of_the_camera_plain_and_zipped) {
    for (const bool zipped : {false, true}) {
        auto options = small_camera(1);
        options.zipped_document = zipped;
        const auto cam = start(options);
        const auto device = open(*cam);
        ASSERT_TRUE(device);
        const auto list = read_url_list(*device);
        ASSERT_TRUE(list);
        ASSERT_EQ(list->size(), 1U) << "the second register is empty";
        EXPECT_EQ(list->front().zipped(), zipped);
        const auto document = fetch_document(*device);
        ASSERT_TRUE(document) << document.error().message();
        EXPECT_EQ(*document, cam->document());
    }
}

TEST(gvcp_document, damaged_archives_are_errors) {
    auto options = small_camera(1);
    options.zipped_document = true;
    const auto cam = start(options);
    const auto device = open(*cam);
    ASSERT_TRUE(device);
    const auto url = read_url_list(*device)->front();
    std::string archive(url.size, '\0');
    ASSERT_FALSE(device->read_memory(url.address, std::as_writable_bytes(std::span{archive})));
    ASSERT_TRUE(unzip_first_file(archive));
    EXPECT_FALSE(unzip_first_file(archive.substr(0, archive.size() / 2)));
    EXPECT_FALSE(unzip_first_file(""));
    std::string flipped = archive;
    flipped[flipped.size() / 2] = static_cast<char>(flipped[flipped.size() / 2] ^ 0x10);
    EXPECT_FALSE(unzip_first_file(flipped)) << "the checksum must have seen it";
}

TEST(gvcp_document, comes_from_a_file_and_over_http) {
    const auto cam = start(small_camera(1));
    const auto device = open(*cam);
    ASSERT_TRUE(device);
    const auto path = std::filesystem::temp_directory_path() / ("orv_document_" + std::to_string(::getpid()) + ".xml");
    std::ofstream{path} << "<a/>";
    EXPECT_EQ(fetch_document(*device, parse_document_url("file://" + path.string())).value_or(""), "<a/>");
    std::filesystem::remove(path);
    EXPECT_FALSE(fetch_document(*device, parse_document_url("file://" + path.string())));

    asio::io_context context;
    asio::ip::tcp::acceptor acceptor{context, {asio::ip::make_address("127.0.0.1"), 0}};
    const auto base = "http://127.0.0.1:" + std::to_string(acceptor.local_endpoint().port());
    std::thread server{[&] {
        for (const char* answer :
             {"HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n\r\n<b/>\n", "HTTP/1.1 404 No\r\n\r\n"}) {
            auto peer = acceptor.accept();
            asio::streambuf request;
            asio::read_until(peer, request, "\r\n\r\n");
            asio::write(peer, asio::buffer(std::string_view{answer}));
        }
    }};
    EXPECT_EQ(fetch_document(*device, parse_document_url(base + "/cam.xml")).value_or("none"), "<b/>\n");
    EXPECT_EQ(fetch_document(*device, parse_document_url(base + "/none.xml")).error(),
              std::errc::no_such_file_or_directory);
    server.join();
}

} // namespace
