#include <GenICam/document_url.h>

#include <algorithm>
#include <charconv>

namespace GenICam {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool starts_with_any_case(std::string_view text, std::string_view prefix) {
    return text.size() >= prefix.size() && std::ranges::equal(text.substr(0, prefix.size()), prefix, {}, lower, lower);
}

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

std::optional<uint64_t> parse_hex(std::string_view text) {
    text = trimmed(text);
    if (starts_with_any_case(text, "0x")) text.remove_prefix(2);
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
    if (error != std::errc{} || end != text.data() + text.size()) return {};
    return value;
}

// Decimal numbers with a separator between them, `least` to three of them; all zero for anything else.
std::array<uint32_t, 3> parse_version(std::string_view text, char separator, std::size_t least) {
    std::array<uint32_t, 3> version{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < version.size(); ++i) {
        if (i >= least && at == end) return version;
        if (i > 0 && (at == end || *at++ != separator)) return {};
        const auto [next, error] = std::from_chars(at, end, version[i]);
        if (error != std::errc{}) return {};
        at = next;
    }
    return at == end ? version : std::array<uint32_t, 3>{};
}

std::array<uint32_t, 3> version_of_schema(std::string_view query) {
    constexpr std::string_view key = "SchemaVersion=";
    while (!query.empty()) {
        const std::string_view parameter = query.substr(0, query.find('&'));
        if (starts_with_any_case(parameter, key)) return parse_version(trimmed(parameter.substr(key.size())), '.', 2);
        query.remove_prefix(std::min(parameter.size() + 1, query.size()));
    }
    return {};
}

std::array<uint32_t, 3> version_of_file(std::string_view file_name) {
    const std::string_view stem = file_name.substr(0, file_name.rfind('.'));
    std::size_t start = stem.size();
    for (int i = 0; i < 3; ++i) {
        if (start == 0) return {};
        start = stem.rfind('_', start - 1);
        if (start == std::string_view::npos) return {};
    }
    return parse_version(stem.substr(start + 1), '_', 3);
}

std::optional<url_scheme> take_scheme(std::string_view& text) {
    constexpr std::pair<std::string_view, url_scheme> schemes[]{
        {"local:", url_scheme::local}, {"http:", url_scheme::http}, {"file:", url_scheme::file}};
    for (const auto& [prefix, scheme] : schemes) {
        if (!starts_with_any_case(text, prefix)) continue;
        text.remove_prefix(prefix.size());
        return scheme;
    }
    return {};
}

// "name.ext;ADDRESS;LENGTH"
bool take_registers(std::string_view& rest, document_url& to) {
    const auto first = rest.find(';');
    const auto second = first == std::string_view::npos ? first : rest.find(';', first + 1);
    if (second == std::string_view::npos) return false;
    const auto address = parse_hex(rest.substr(first + 1, second - first - 1));
    const auto size = parse_hex(rest.substr(second + 1));
    if (!address || !size) return false;
    to.address = *address;
    to.size = *size;
    rest = rest.substr(0, first);
    return true;
}

bool parse_into(std::string_view text, document_url& to) {
    std::string_view rest = text;
    const auto scheme = take_scheme(rest);
    if (!scheme) return false;
    const std::string_view with_query = rest;
    std::string_view query;
    if (const auto question = rest.find('?'); question != std::string_view::npos) {
        query = rest.substr(question + 1);
        rest = rest.substr(0, question);
    }
    if (*scheme != url_scheme::http && rest.starts_with("///")) rest.remove_prefix(*scheme == url_scheme::file ? 2 : 3);
    if (*scheme == url_scheme::local && !take_registers(rest, to)) return false;
    if (rest.find_first_not_of('/') == std::string_view::npos) return false; // no name
    to.name = *scheme == url_scheme::http ? "http:" + std::string{with_query} : std::string{rest};
    to.scheme = scheme;
    to.schema_version = version_of_schema(query);
    to.file_version = version_of_file(to.file_name());
    return true;
}

} // namespace

std::string_view document_url::file_name() const noexcept {
    std::string_view path = name;
    if (scheme == url_scheme::http) path = path.substr(0, path.find('?'));
    return path.substr(path.find_last_of("/\\") + 1);
}

bool document_url::zipped() const noexcept {
    constexpr std::string_view ending = ".zip";
    const std::string_view file = file_name();
    return file.size() >= ending.size() && starts_with_any_case(file.substr(file.size() - ending.size()), ending);
}

document_url parse_document_url(std::string_view text) {
    document_url parsed;
    if (!parse_into(text, parsed)) parsed = {};
    parsed.url = text;
    return parsed;
}

} // namespace GenICam
