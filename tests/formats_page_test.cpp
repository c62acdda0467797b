// docs/formats.md is what the tables say. ORV_WRITE_FORMATS_PAGE=1 writes it anew.
#include <img_pipe/transform_pipe.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

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

std::string page() {
    std::ostringstream out;
    out << "# Formats and conversions\n\nWritten from the tables of `libs/img_pipe` by its test; do not edit.\n\n"
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
    return out.str();
}

} // namespace

TEST(Formats, PageIsWhatTheTablesSay) {
    if (std::getenv("ORV_WRITE_FORMATS_PAGE") != nullptr) std::ofstream{FORMATS_PAGE, std::ios::binary} << page();
    std::ifstream file{FORMATS_PAGE, std::ios::binary};
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>{file}, {}), page());
}
