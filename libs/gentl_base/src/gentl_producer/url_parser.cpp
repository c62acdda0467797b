#include <gentl_producer/Library.h>
#include <gentl_producer/Port.h>

#include <spdlog/logger.h>

#include <algorithm>
#include <cctype>
#include <charconv>

namespace GenTL::Producer {

namespace {

template <class T>
bool parse_whole(std::string_view text, int base, T& value) {
    if (base == 16 && (text.starts_with("0x") || text.starts_with("0X"))) text.remove_prefix(2);
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc{} && end == text.data() + text.size();
}

bool consume_scheme(std::string_view& text, std::string_view scheme) {
    if (text.size() <= scheme.size() || text[scheme.size()] != ':') return false;
    const auto same_letter = [](char lower, char any) {
        return std::tolower(static_cast<unsigned char>(any)) == lower;
    };
    if (!std::equal(scheme.begin(), scheme.end(), text.begin(), same_letter)) return false;
    text.remove_prefix(scheme.size() + 1);
    return true;
}

// "?SchemaVersion=a.b.c" behind the rest, taken off when present.
void take_schema_version(std::string_view& rest, UrlRecord& record) {
    const size_t question = rest.rfind('?');
    if (question == rest.npos) return;
    std::string_view query = rest.substr(question + 1);
    rest = rest.substr(0, question);
    constexpr std::string_view key = "SchemaVersion=";
    if (!query.starts_with(key)) return;
    query.remove_prefix(key.size());
    const size_t dot = query.find('.');
    if (dot == query.npos) return;
    const std::string_view minor = query.substr(dot + 1, query.find('.', dot + 1) - dot - 1);
    if (!parse_whole(query.substr(0, dot), 10, record.schema_major) || !parse_whole(minor, 10, record.schema_minor)) {
        record.schema_major = record.schema_minor = 0;
    }
}

// A stem of the form "name_a_b_c" tells the version of the file.
void take_file_version(std::string_view file_name, UrlRecord& record) {
    std::string_view stem = file_name.substr(0, file_name.rfind('.'));
    std::array<uint32_t, 3> version{};
    for (size_t i = version.size(); i-- > 0;) {
        const size_t underscore = stem.rfind('_');
        if (underscore == stem.npos || !parse_whole(stem.substr(underscore + 1), 10, version[i])) return;
        stem = stem.substr(0, underscore);
    }
    record.file_major = version[0];
    record.file_minor = version[1];
    record.file_subminor = version[2];
}

bool parse_into(std::string_view text, UrlRecord& record) {
    std::string_view rest = text;
    if (consume_scheme(rest, "local")) {
        record.scheme = URL_SCHEME_LOCAL;
    } else if (consume_scheme(rest, "file")) {
        record.scheme = URL_SCHEME_FILE;
    } else if (consume_scheme(rest, "http")) {
        record.scheme = URL_SCHEME_HTTP;
    } else {
        return false;
    }
    if (rest.starts_with("///")) rest.remove_prefix(3);
    take_schema_version(rest, record);
    if (record.scheme == URL_SCHEME_LOCAL) {
        const size_t first = rest.find(';');
        const size_t second = first == rest.npos ? rest.npos : rest.find(';', first + 1);
        if (second == rest.npos) return false;
        uint64_t address = 0;
        uint64_t size = 0;
        if (!parse_whole(rest.substr(first + 1, second - first - 1), 16, address) ||
            !parse_whole(rest.substr(second + 1), 16, size)) {
            return false;
        }
        record.address = address;
        record.size = size;
        rest = rest.substr(0, first);
    }
    if (rest.empty()) return false;
    const std::string_view file_name = rest.substr(rest.find_last_of("/\\") + 1);
    record.file_name = std::string{file_name};
    take_file_version(file_name, record);
    record.has_scheme = true;
    return true;
}

} // namespace

UrlRecord parse_url(std::string url) {
    UrlRecord record;
    record.url = std::move(url);
    if (parse_into(record.url, record)) return record;
    if (auto* logger = default_logger()) logger->warn("Failed to parse document URL '{}'.", record.url);
    UrlRecord bare;
    bare.url = std::move(record.url);
    return bare;
}

} // namespace GenTL::Producer
