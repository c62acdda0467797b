#include "document_http.h"

#include <GenICam/document_url.h>
#include <gds_shared/gigecam_error.h>

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/read.hpp>
#include <asio/read_until.hpp>
#include <asio/streambuf.hpp>
#include <asio/write.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <functional>
#include <optional>
#include <utility>

namespace gvcp_master {

namespace {

using GenICam::largest_document;

constexpr std::size_t max_headers = 16U << 10;

struct address_parts {
    std::string host;
    uint16_t port = 80;
    std::string path; // with the query
};

std::optional<address_parts> split(std::string_view url) {
    const auto scheme_end = url.find(':');
    if (scheme_end == std::string_view::npos || url.find_first_of("\r\n \t") != std::string_view::npos) return {};
    std::string_view rest = url.substr(scheme_end + 1);
    while (rest.starts_with('/')) rest.remove_prefix(1);
    const auto end = std::min(rest.find_first_of("/?"), rest.size());
    address_parts parts{std::string{rest.substr(0, end)}, 80, std::string{rest.substr(end)}};
    if (!parts.path.starts_with('/')) parts.path.insert(0, "/");
    if (const auto colon = parts.host.find(':'); colon != std::string::npos) {
        const char* const last = parts.host.data() + parts.host.size();
        const auto [at, error] = std::from_chars(parts.host.data() + colon + 1, last, parts.port);
        if (error != std::errc{} || at != last || parts.port == 0) return {};
        parts.host.resize(colon);
    }
    return parts;
}

// Every step of the exchange ends by one deadline, or when it is stopped.
class exchange {
public:
    exchange(milliseconds timeout, std::stop_token stopped)
        : deadline{std::chrono::steady_clock::now() + timeout}, stop{std::move(stopped)}, on_stop{stop, [this] {
                                                                                                      context.stop();
                                                                                                  }} {}

    template <class Start>
    [[nodiscard]] std::error_code step(Start start) {
        std::optional<std::error_code> result;
        start([&](std::error_code error, auto...) {
            // Clients know the system's own category only.
            if (error.category() == asio::error::get_system_category())
                error.assign(error.value(), std::system_category());
            result = error;
        });
        context.restart(); // undoes a stop that came before
        if (!stop.stop_requested()) context.run_until(deadline);
        if (result) return *result;
        std::error_code ignored;
        socket.close(ignored);
        while (!result) { // the handler is still to come, and a stop may come before it
            context.restart();
            context.run();
        }
        return stop.stop_requested() ? std::make_error_code(std::errc::operation_canceled)
                                     : make_error_code(gds_shared::gigecam_errc::timeout);
    }

    asio::io_context context;
    asio::ip::tcp::socket socket{context};

private:
    const std::chrono::steady_clock::time_point deadline;
    const std::stop_token stop;
    const std::stop_callback<std::function<void()>> on_stop; // last: it uses the context at once
};

struct header_lines {
    unsigned status = 0;
    std::optional<std::size_t> length;
    bool encoded = false;
};

bool is(std::string_view name, std::string_view wanted) {
    return std::ranges::equal(name, wanted, [](char a, char b) { return (a >= 'A' && a <= 'Z' ? a + 32 : a) == b; });
}

std::optional<header_lines> parse_headers(std::string_view text) {
    header_lines result;
    auto line = text.substr(0, text.find("\r\n"));
    const auto space = line.find(' ');
    if (!line.starts_with("HTTP/") || space == std::string_view::npos) return {};
    const char* const last = line.data() + line.size();
    if (std::from_chars(line.data() + space + 1, last, result.status).ec != std::errc{}) return {};
    for (text.remove_prefix(line.size()); text.starts_with("\r\n"); text.remove_prefix(line.size())) {
        text.remove_prefix(2);
        line = text.substr(0, text.find("\r\n"));
        const auto colon = std::min(line.find(':'), line.size());
        const auto name = line.substr(0, colon);
        auto value = line.substr(std::min(colon + 1, line.size()));
        while (value.starts_with(' ')) value.remove_prefix(1);
        if (is(name, "transfer-encoding") || is(name, "content-encoding")) result.encoded = !is(value, "identity");
        if (!is(name, "content-length")) continue;
        std::size_t length = 0;
        if (std::from_chars(value.data(), value.data() + value.size(), length).ec != std::errc{}) return {};
        result.length = length;
    }
    return result;
}

} // namespace

std::expected<std::string, std::error_code> fetch_http(std::string_view url, uint32_t only_host, milliseconds timeout,
                                                       std::stop_token stop) {
    const auto failed = [](std::errc why) { return std::unexpected(std::make_error_code(why)); };
    const auto parts = split(url);
    if (!parts) return failed(std::errc::invalid_argument);
    if (parts->host != gige::to_string(only_host)) return failed(std::errc::operation_not_permitted);

    exchange with{timeout, std::move(stop)};
    const asio::ip::tcp::endpoint peer{asio::ip::address_v4{only_host}, parts->port};
    if (const auto error = with.step([&](auto done) { with.socket.async_connect(peer, done); }))
        return std::unexpected(error);
    const std::string request =
        "GET " + parts->path + " HTTP/1.0\r\nHost: " + parts->host + "\r\nConnection: close\r\n\r\n";
    if (const auto error = with.step([&](auto done) { asio::async_write(with.socket, asio::buffer(request), done); }))
        return std::unexpected(error);

    asio::streambuf headers{max_headers};
    if (const auto error =
            with.step([&](auto done) { asio::async_read_until(with.socket, headers, "\r\n\r\n", done); }))
        return error == asio::error::not_found || error == asio::error::eof
                   ? std::expected<std::string, std::error_code>{failed(std::errc::bad_message)}
                   : std::unexpected(error);
    const std::string_view received{static_cast<const char*>(headers.data().data()), headers.size()};
    const auto end = received.find("\r\n\r\n");
    const auto parsed = parse_headers(received.substr(0, end));
    if (!parsed) return failed(std::errc::bad_message);
    if (parsed->status == 404) return failed(std::errc::no_such_file_or_directory);
    if (parsed->status != 200 || parsed->encoded) return failed(std::errc::protocol_error);
    if (parsed->length.value_or(0) > largest_document) return failed(std::errc::file_too_large);

    std::string content{received.substr(end + 4)};
    std::array<char, 16384> piece;
    while (content.size() <= parsed->length.value_or(largest_document)) {
        if (parsed->length && content.size() == *parsed->length) return content;
        std::size_t count = 0;
        const auto error = with.step([&](auto done) {
            with.socket.async_read_some(asio::buffer(piece), [&count, done](std::error_code failure, std::size_t got) {
                count = got;
                done(failure);
            });
        });
        content.append(piece.data(), count);
        if (error == asio::error::eof) {
            if (parsed->length && content.size() != *parsed->length) return failed(std::errc::bad_message);
            return content;
        }
        if (error) return std::unexpected(error);
    }
    return parsed->length ? failed(std::errc::bad_message) : failed(std::errc::file_too_large);
}

} // namespace gvcp_master
