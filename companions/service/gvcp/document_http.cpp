#include "device_document.h"

#include <asio/ip/tcp.hpp>

namespace gvcp_master {

std::expected<std::string, std::error_code> fetch_http(std::string_view url, milliseconds timeout) {
    const auto invalid = [] { return std::unexpected(std::make_error_code(std::errc::invalid_argument)); };
    const auto colon = url.find(':');
    if (colon == std::string_view::npos) return invalid();
    std::string_view rest = url.substr(colon + 1);
    while (rest.starts_with('/')) rest.remove_prefix(1);
    const auto slash = std::min(rest.find('/'), rest.size());
    std::string host{rest.substr(0, slash)};
    const std::string path = slash < rest.size() ? std::string{rest.substr(slash)} : "/";
    std::string port = "80";
    if (const auto at = host.rfind(':'); at != std::string::npos) {
        port = host.substr(at + 1);
        host.resize(at);
    }
    if (host.empty() || url.find_first_of("\r\n ") != std::string_view::npos) return invalid();

    asio::ip::tcp::iostream stream;
    stream.expires_after(timeout);
    stream.connect(host, port);
    if (!stream) return std::unexpected(stream.error());
    stream << "GET " << path << " HTTP/1.0\r\nHost: " << host << "\r\nConnection: close\r\n\r\n" << std::flush;
    std::string protocol;
    unsigned code = 0;
    std::string line;
    if (!(stream >> protocol >> code) || !std::getline(stream, line)) {
        return std::unexpected(stream.error() ? stream.error() : std::make_error_code(std::errc::bad_message));
    }
    if (!protocol.starts_with("HTTP/") || code != 200)
        return std::unexpected(
            std::make_error_code(code == 404 ? std::errc::no_such_file_or_directory : std::errc::protocol_error));
    while (std::getline(stream, line) && line != "\r" && !line.empty()) {
    }
    std::string content;
    char buffer[16384];
    while (stream.read(buffer, sizeof buffer) || stream.gcount() > 0) {
        content.append(buffer, static_cast<std::size_t>(stream.gcount()));
        if (content.size() > max_document) return std::unexpected(std::make_error_code(std::errc::file_too_large));
    }
    if (stream.error() && stream.error() != asio::error::eof) return std::unexpected(stream.error());
    return content;
}

} // namespace gvcp_master
