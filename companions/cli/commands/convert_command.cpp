#include "convert_command.h"

#include "../failure/failure.h"
#include "../output/output.h"
#include "../pictures/picture_converter.h"
#include "../posix/atomic_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace cli {

namespace {

// Of any kind of file, a pipe's too, up to this size.
std::string read_picture(const std::string& path, size_t size) {
    errno = 0;
    std::ifstream file{path, std::ios::binary};
    std::string bytes;
    std::vector<char> part(65536);
    while (bytes.size() < size && file) {
        file.read(part.data(), static_cast<std::streamsize>(std::min(part.size(), size - bytes.size())));
        bytes.append(part.data(), static_cast<size_t>(file.gcount()));
    }
    if (!file.is_open() || file.bad())
        throw failure(cause::arguments,
                      fmt::format("Cannot read '{}': {}.", path, std::generic_category().message(errno)));
    return bytes;
}

} // namespace

int convert_file(const convert_options& options) {
    const picture_format from = format_from_text(options.from), to = format_from_text(options.to);
    for (const picture_format& format : {from, to})
        if (!format.known()) throw failure(cause::arguments, fmt::format("'{}' is no pixel format.", format.name));
    std::string bytes;
    std::optional<picture_converter> converter;
    std::span<const std::byte> converted;
    try {
        converter.emplace(from, to);
        bytes = read_picture(options.file, converter->picture_size(options.width, options.height));
        converted = converter->convert(std::as_bytes(std::span{bytes}), options.width, options.height);
    } catch (const failure&) {
        throw;
    } catch (const std::runtime_error& unfit) { // size or formats, which the command line named
        throw failure(cause::arguments, fmt::format("'{}': {}", options.file, unfit.what()));
    }
    std::filesystem::path path = options.output;
    std::error_code ignored;
    if (path.empty() && !std::filesystem::is_regular_file(options.file, ignored))
        throw failure(cause::arguments,
                      fmt::format("'{}' is no regular file: name the file to write with --output.", options.file));
    if (path.empty()) path = std::filesystem::path{options.file}.replace_extension(to.name + ".raw");
    write_file(path, converted);
    if (options.json)
        print_json({{"file", path.string()}, {"pixel_format", to.name}, {"bytes", converted.size()}});
    else
        print("written: {}\n", path.string());
    return 0;
}

} // namespace cli
