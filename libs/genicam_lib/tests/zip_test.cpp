// Zipped documents: made here byte by byte (stored members), so that each part can be broken.
#include <GenICam/zip.h>

#include "support.h"

#include <zlib.h>

namespace GenICam::testing {
namespace {

void put(std::string& out, uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i) out += static_cast<char>(value >> (8 * i));
}

struct member {
    std::string name;
    std::string text;
};

// An archive of deflated members.
std::string archive_of(const std::vector<member>& members) {
    std::string out;
    std::string directory;
    for (const auto& [name, text] : members) {
        std::string packed(text.size() + 100, '\0');
        z_stream stream{};
        EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
        std::string input = text;
        stream.next_in = reinterpret_cast<Bytef*>(input.data());
        stream.avail_in = static_cast<uInt>(input.size());
        stream.next_out = reinterpret_cast<Bytef*>(packed.data());
        stream.avail_out = static_cast<uInt>(packed.size());
        EXPECT_EQ(deflate(&stream, Z_FINISH), Z_STREAM_END);
        packed.resize(stream.total_out);
        deflateEnd(&stream);
        const auto sum = static_cast<uint32_t>(
            crc32(0, reinterpret_cast<const Bytef*>(text.data()), static_cast<uInt>(text.size())));
        std::string common; // shared by both headers
        put(common, 20, 2);
        put(common, 0, 2);
        put(common, 8, 2); // deflated
        put(common, 0, 4);
        put(common, sum, 4);
        put(common, static_cast<uint32_t>(packed.size()), 4);
        put(common, static_cast<uint32_t>(text.size()), 4);
        put(common, static_cast<uint32_t>(name.size()), 2);
        put(common, 0, 2);
        directory += std::string{"PK\1\2"};
        put(directory, 20, 2);
        directory += common;
        put(directory, 0, 2); // comment
        put(directory, 0, 2); // disk
        put(directory, 0, 2); // internal attributes
        put(directory, 0, 4); // external attributes
        put(directory, static_cast<uint32_t>(out.size()), 4);
        directory += name;
        out += std::string{"PK\3\4"} + common + name + packed;
    }
    const auto start = static_cast<uint32_t>(out.size());
    out += directory + "PK\5\6";
    put(out, 0, 4);
    put(out, static_cast<uint32_t>(members.size()), 2);
    put(out, static_cast<uint32_t>(members.size()), 2);
    put(out, static_cast<uint32_t>(directory.size()), 4);
    put(out, start, 4);
    put(out, 0, 2);
    return out;
}

result<std::string> inflate_text(const std::string& archive, std::size_t limit = 1 << 20) {
    return inflate_document(std::as_bytes(std::span{archive}), limit);
}

TEST(Zip, TakesTheDocumentOfTheArchive) {
    const std::string text = "<RegisterDescription/>" + std::string(100'000, ' ');
    EXPECT_THAT(inflate_text(archive_of({{"camera.xml", text}})), Gives(text));
    EXPECT_THAT(inflate_text(archive_of({{"readme.txt", "no"}, {"CAMERA.XML", text}})), Gives(text));
    EXPECT_THAT(inflate_text(archive_of({{"camera", text}})), Gives(text));
    const std::string small = archive_of({{"a", "b"}});
    EXPECT_TRUE(is_zipped(std::as_bytes(std::span{small})));
    EXPECT_FALSE(is_zipped(std::as_bytes(std::span{text})));
    EXPECT_FALSE(is_zipped({}));
}

TEST(Zip, RefusesWhatIsTooLargeOrBroken) {
    const std::string text(100'000, 'x');
    const std::string good = archive_of({{"a.xml", text}});
    EXPECT_THAT(inflate_text(good, text.size()), Gives(text));
    EXPECT_THAT(inflate_text(good, text.size() - 1), Fails(buffer_too_small));
    EXPECT_THAT(inflate_text(""), Fails(invalid_document));
    EXPECT_THAT(inflate_text("PK\3\4"), Fails(invalid_document));
    EXPECT_THAT(inflate_text(archive_of({})), Fails(invalid_document));
}

// No cut and no changed byte of a small archive gives a text other than its own, or a crash.
TEST(Zip, EveryDamageIsNoticed) {
    const std::string text = "<R><Integer Name=\"I\"><Value>1</Value></Integer></R>";
    const std::string good = archive_of({{"a.xml", text}});
    for (std::size_t at = 0; at < good.size(); ++at) {
        if (const auto outcome = inflate_text(good.substr(0, at))) {
            EXPECT_EQ(*outcome, text) << at; // only the end record lacks something
            EXPECT_GT(at, good.size() - 5);
        }
        std::string changed = good;
        changed[at] = static_cast<char>(changed[at] ^ 0x55);
        if (const auto outcome = inflate_text(changed)) {
            EXPECT_EQ(*outcome, text) << at;
        }
    }
}

} // namespace
} // namespace GenICam::testing
