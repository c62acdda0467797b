#include "convert_command.h"

#include "../consumer/failure.h"
#include "../output/output.h"
#include "../pictures/picture_converter.h"
#include "../posix/atomic_file.h"

#include <fmt/format.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <stdexcept>
#include <vector>

namespace cli {

int convert_file(const convert_options& options) {
    const picture_format from = format_from_text(options.from), to = format_from_text(options.to);
    for (const picture_format& format : {from, to})
        if (!format.known()) throw failure(cause::arguments, fmt::format("'{}' is no pixel format.", format.name));
    std::ifstream file{options.file, std::ios::binary};
    std::vector<char> bytes{std::istreambuf_iterator<char>{file}, {}};
    if (!file.is_open() || file.bad()) throw std::runtime_error(fmt::format("Cannot read '{}'.", options.file));
    picture_converter converter{from, to};
    const auto converted = converter.convert(std::as_bytes(std::span{bytes}), options.width, options.height);
    std::filesystem::path path = options.output;
    if (path.empty()) path = std::filesystem::path{options.file}.replace_extension(to.name + ".raw");
    write_file(path, converted);
    if (options.json)
        print_json({{"file", path.string()}, {"pixel_format", to.name}, {"bytes", converted.size()}});
    else
        print("written: {}\n", path.string());
    return 0;
}

} // namespace cli
