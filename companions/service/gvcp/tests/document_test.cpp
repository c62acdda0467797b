#include "test_cameras.h"

#include <gvcp/device_document.h>
#include <gvcp/document_http.h>
#include <support/temporary_folder.h>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace {

using namespace gvcp_master;

TEST(GvcpDocument, files_are_those_of_the_folder_and_of_none_by_default) {
    const auto cam = start(small_camera(1));
    const auto device = open(*cam);
    const test_support::temporary_folder temporary;
    const auto folder = temporary.path / "allowed";
    std::filesystem::create_directories(folder / "sub");
    std::ofstream{folder / "cam.xml"} << "<a/>";
    std::ofstream{folder / "sub" / "cam.xml"} << "<b/>";
    std::ofstream{folder / "text.zip"} << "<a/>";
    std::ofstream{temporary.path / "secret.xml"} << "<secret/>";
    std::ofstream{temporary.path / "allowed.xml"} << "<secret/>";
    std::filesystem::create_symlink(temporary.path / "secret.xml", folder / "link.xml");
    std::filesystem::create_directory_symlink(temporary.path, folder / "up");
    ASSERT_EQ(::mkfifo((folder / "fifo.xml").c_str(), 0600), 0);
    std::ofstream{folder / "huge.xml"} << "x";
    std::filesystem::resize_file(folder / "huge.xml", GenICam::largest_document + 1);

    const auto fetch = [&](const std::string& url, const std::string& allowed) {
        return fetch_document(*device, parse_document_url(url), {allowed, false});
    };
    const std::string full = folder.string();
    struct {
        std::string url;
        const char* content; // null: refused
    } const cases[]{
        {"file:cam.xml", "<a/>"},
        {"File:///" + full.substr(1) + "/cam.xml", "<a/>"},
        {"file://" + full + "/sub/cam.xml", "<b/>"},
        {"file:sub//cam.xml", "<b/>"},
        {"file:///" + temporary.path.string().substr(1) + "/secret.xml", nullptr},
        {"file:///" + full.substr(1) + ".xml", nullptr},
        {"file:../secret.xml", nullptr},
        {"file:sub/../../secret.xml", nullptr},
        {"file:///" + full.substr(1) + "/../secret.xml", nullptr},
        {"file:link.xml", nullptr},
        {"file:up/secret.xml", nullptr},
        {"file:fifo.xml", nullptr},
        {"file:sub", nullptr},
        {"file:text.zip", nullptr}, // what its name promises is not in it
        {"file:huge.xml", nullptr},
        {"file:none.xml", nullptr},
        {"file:///dev/zero", nullptr},
    };
    for (const auto& [url, content] : cases) {
        const auto got = fetch(url, full);
        EXPECT_EQ(got.value_or("refused"), content != nullptr ? content : "refused") << url;
        EXPECT_EQ(fetch(url, "").error(), std::errc::operation_not_permitted) << url;
        EXPECT_EQ(fetch(url, full + "/").has_value(), got.has_value()) << url;
    }
    EXPECT_FALSE(fetch("file:cam.xml", full + "/none"));
}

// A server that gives one connection after the other what the test wants; its last words are cut off where they end.
class one_way_server {
public:
    explicit one_way_server(uint32_t address, std::string says)
        : acceptor{context, {asio::ip::address_v4{address}, 0}}, answer{std::move(says)}, thread{[this] { run(); }} {}
    ~one_way_server() {
        if (thread.joinable()) static_cast<void>(request());
    }
    [[nodiscard]] uint16_t port() const { return acceptor.local_endpoint().port(); }
    [[nodiscard]] const std::string& request() { // after the exchange
        {                                        // for one whose client never came
            std::error_code error;
            asio::ip::tcp::socket{context}.connect(acceptor.local_endpoint(), error);
        }
        thread.join();
        return received;
    }

private:
    void run() {
        auto peer = acceptor.accept();
        asio::streambuf got;
        std::error_code error;
        asio::read_until(peer, got, "\r\n\r\n", error);
        received = {static_cast<const char*>(got.data().data()), got.size()};
        if (answer.empty()) asio::read(peer, got, error); // silent until the other one gives up
        asio::write(peer, asio::buffer(answer), error);
    }
    asio::io_context context;
    asio::ip::tcp::acceptor acceptor;
    std::string answer;
    std::string received;
    std::thread thread;
};

TEST(GvcpDocument, http_is_the_cameras_own_and_keeps_its_bounds) {
    const uint32_t camera = own_address(1);
    const std::string good = "HTTP/1.1 200 OK\r\nContent-Type: text/xml\r\n";
    struct {
        std::string answer;
        const char* content; // null: an error
    } const cases[]{
        {good + "\r\n<b/>\n", "<b/>\n"},
        {good + "content-LENGTH: 4\r\n\r\n<b/>", "<b/>"},
        {good + "Content-Length: 5\r\n\r\n<b/>", nullptr},
        {good + "Content-Length: 3\r\n\r\n<b/>", nullptr},
        {good + "Content-Length: 99999999999\r\n\r\n<b/>", nullptr},
        {good + "Content-Length: -1\r\n\r\n<b/>", nullptr},
        {good + "Transfer-Encoding: chunked\r\n\r\n4\r\n<b/>\r\n0\r\n\r\n", nullptr},
        {good + "X: " + std::string(20000, 'x') + "\r\n\r\n<b/>", nullptr},
        {"HTTP/1.1 404 No\r\n\r\n<b/>", nullptr},
        {"HTTP/1.1 302 Found\r\nLocation: /a\r\n\r\n", nullptr},
        {"<b/>", nullptr},
        {"", nullptr},
    };
    for (const auto& [answer, content] : cases) {
        one_way_server server{camera, answer};
        const auto url = "http://" + gige::to_string({camera, server.port()}) + "/cam.xml?id=3&SchemaVersion=1.1.0";
        const auto limit = milliseconds{answer.empty() ? 2000 : 10'000};
        EXPECT_EQ(fetch_http(parse_document_url(url).name, camera, limit).value_or("error"),
                  content != nullptr ? content : "error")
            << answer.substr(0, 100);
        EXPECT_TRUE(server.request().starts_with("GET /cam.xml?id=3&SchemaVersion=1.1.0 HTTP/1.0\r\n"));
    }
    for (const std::string host : {"127.0.0.1", "localhost", "127.1", "2130706433", ""})
        EXPECT_EQ(fetch_http("http://" + host + "/", camera, milliseconds{100}).error(),
                  std::errc::operation_not_permitted)
            << host;
    EXPECT_EQ(fetch_http("http:" + gige::to_string(camera) + ":1:2/", camera, milliseconds{100}).error(),
              std::errc::invalid_argument);

    const auto cam = start(small_camera(1));
    const auto device = open(*cam);
    const auto url = parse_document_url("http://" + gige::to_string(camera) + "/cam.zip?x=1");
    EXPECT_TRUE(url.zipped());
    EXPECT_EQ(fetch_document(*device, url, {}).error(), std::errc::operation_not_permitted);
    EXPECT_EQ(fetch_document(*device, url, {"", true}).error(), std::errc::connection_refused) << "nobody serves";
}

} // namespace
