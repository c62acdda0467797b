// docs/formats.md is what the tables and orv-gentl say. ORV_WRITE_FORMATS_PAGE=1 writes it anew.
#include <cli/pictures/picture_converter.h>
#include <support/test_system.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace img_pipe;

namespace {

std::string text_of(std::uint32_t id) {
    std::string text = "`";
    for (int i = 0; i < 4; ++i) text += static_cast<char>(id >> (8 * i) & 0xFF);
    return text + '`';
}

std::string list_of(const std::uint32_t (&ids)[8]) {
    std::string list;
    for (const std::uint32_t id : ids)
        if (id != 0) list += (list.empty() ? "" : ", ") + text_of(id);
    return list;
}

// All that the standard names, in the order of its numbers, then what only the pipeline's vocabulary has.
std::vector<cli::picture_format> all_formats() {
    std::vector<cli::picture_format> all;
    for (const std::uint32_t kind : {0x01000000U, 0x02000000U}) // one channel; more
        for (std::uint32_t bits = 1; bits < 256; ++bits)
            for (std::uint32_t number = 0; number < 0x200; ++number)
                if (const std::uint32_t pfnc = kind | bits << 16 | number; pfnc_name(pfnc) != "UnknownPixelFormat")
                    all.push_back(cli::format_from_pfnc(pfnc));
    for (std::uint32_t place = 0; format_at(place) != 0; ++place)
        if (pfnc_from_fcc(format_at(place)) == 0)
            all.push_back(cli::format_from_text(std::string{fcc_name(format_at(place))}));
    return all;
}

std::string name_of(const cli::picture_format& format) {
    const std::string id = text_of(format.id);
    return format.pfnc != 0 ? format.name : id.substr(1, id.size() - 2);
}

std::string page() {
    std::ostringstream out;
    out << "# Formats and conversions\n\nWritten by a test from the tables of `libs/img_pipe` and what `orv-gentl` "
           "makes of them; do not edit.\n\n"
           "## Formats\n\n| PFNC name | Id | Name | Bits | Reachable |\n| --- | --- | --- | --- "
           "| --- |\n";
    for (std::uint32_t place = 0; format_at(place) != 0; ++place) {
        const std::uint32_t id = format_at(place);
        const std::uint32_t pfnc = pfnc_from_fcc(id);
        std::string reachable;
        for (const std::uint32_t to : find_transform_outputs(id))
            reachable += (reachable.empty() ? "" : ", ") + text_of(to);
        out << "| " << (pfnc == 0 ? "" : pfnc_name(pfnc)) << " | " << text_of(id) << " | " << fcc_name(id) << " | "
            << format_description(id).bits_per_pixel << " | " << reachable << " |\n";
    }
    out << "\n## Conversions, in the order of search\n\n| Sources | Destinations | Conversion |\n| --- | --- | --- |\n";
    for (const conversion_row& row : conversion_table())
        out << "| " << list_of(row.sources) << " | " << list_of(row.destinations) << " | " << row.function << " |\n";
    out << "\n## Changes in place\n\n| Formats | Change |\n| --- | --- |\n";
    for (const in_place_row& row : in_place_table())
        out << "| " << list_of(row.formats) << " | " << row.function << " |\n";
    out << "\n## What `orv-gentl convert` takes and gives\n\n`grab --format` gives the same. Formats that the standard "
           "has "
           "no number for go by their four characters.\n\n| From | To |\n| --- | --- |\n";
    std::vector<std::pair<std::string, std::string>> lines; // sources of the same targets share one
    for (const cli::picture_format& from : all_formats()) {
        std::string to;
        for (const std::string& name : cli::reachable_formats(from, true)) to += (to.empty() ? "" : ", ") + name;
        if (to.empty()) continue;
        const auto line = std::ranges::find(lines, to, &std::pair<std::string, std::string>::second);
        if (line == lines.end())
            lines.emplace_back(name_of(from), to);
        else
            line->first += ", " + name_of(from);
    }
    for (const auto& [from, to] : lines) out << "| " << from << " | " << to << " |\n";
    return out.str();
}

} // namespace

TEST(Formats, PageIsWhatTheTablesSay) {
    if (std::getenv("ORV_WRITE_FORMATS_PAGE") != nullptr) std::ofstream{FORMATS_PAGE, std::ios::binary} << page();
    EXPECT_EQ(test_support::read_file(FORMATS_PAGE), page());
}

// Every target that is named can be asked for by that name, and a picture comes out.
TEST(Formats, NamedConversionsConvert) {
    const std::vector<std::byte> bytes(8 * 8 * 16);
    std::size_t count = 0;
    for (const cli::picture_format& from : all_formats())
        for (const std::string& name : cli::reachable_formats(from, true)) {
            SCOPED_TRACE(name_of(from) + " to " + name);
            const cli::picture_format to = cli::format_from_text(name);
            const std::size_t need = to.pfnc != 0 ? to.bits * 8 : image_size(to.id, 8, 8);
            ASSERT_NO_THROW({
                cli::picture_converter converter(from, to);
                ASSERT_EQ(converter.convert(bytes, 8, 8).size(), need);
            });
            ++count;
        }
    EXPECT_GT(count, 0U);
}
