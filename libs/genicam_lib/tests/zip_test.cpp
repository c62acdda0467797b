// Zipped documents, of which each part is broken.
#include <GenICam/zip.h>

#include "support.h"

#include <camera_sim/zip_writer.h>

namespace GenICam::testing {
namespace {

struct member {
    std::string name, text;
};

std::string archive_of(const std::vector<member>& members) {
    std::vector<camera_sim::zip_member> files;
    for (const auto& [name, text] : members) files.push_back({name, std::as_bytes(std::span{text})});
    const auto bytes = camera_sim::zip_files(files);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

result<std::string> inflate_text(const std::string& archive, std::size_t limit = 1 << 20) {
    auto opened = zip_archive::open(std::as_bytes(std::span{archive}));
    if (!opened) return fail(opened.error());
    return opened->read_document(limit);
}

std::string damage(const std::string& archive, std::size_t limit = 1 << 20) {
    const auto outcome = inflate_text(archive, limit);
    if (outcome) return "none";
    return outcome.error() == std::errc::file_too_large ? "large"
           : outcome.error() == std::errc::bad_message  ? "bad"
                                                        : "?";
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
    EXPECT_EQ(damage(good, text.size() - 1), "large");
    EXPECT_EQ(damage(""), "bad");
    EXPECT_EQ(damage("PK\3\4"), "bad");
    EXPECT_EQ(damage(archive_of({})), "bad");

    // The size that an archive says of its member decides nothing.
    const std::size_t directory = good.rfind("PK\1\2");
    const auto says = [&](uint32_t size) {
        std::string changed = good;
        for (const std::size_t at : {std::size_t{22}, directory + 24})
            for (int i = 0; i < 4; ++i) changed[at + i] = static_cast<char>(size >> (8 * i));
        return changed;
    };
    EXPECT_EQ(damage(says(100'000)), "none");
    EXPECT_EQ(damage(says(0xFFFFFFF0), 99'999), "large");
    for (const uint32_t size : {100U, 99'999U, 100'001U}) EXPECT_EQ(damage(says(size)), "bad") << size;
}

TEST(Zip, ReadsMembersByTheirName) {
    const std::string archive = archive_of({{"a.xml", "first"}, {"b", "second"}});
    auto opened = zip_archive::open(std::as_bytes(std::span{archive}));
    ASSERT_TRUE(opened);
    EXPECT_THAT(opened->read("b", 6), Gives("second"));
    EXPECT_THAT(opened->read("a.xml", 5), Gives("first"));
    EXPECT_EQ(opened->read("A.xml", 5).error(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(opened->read("b", 5).error(), std::errc::file_too_large);
}

// Memory of a camera is longer than the text in it.
TEST(Zip, TextEndsAtTheFirstNul) {
    using namespace std::string_literals;
    EXPECT_THAT(document_text("<R/>\0\0garbage"s), Gives("<R/>"));
    EXPECT_THAT(document_text("<\0R\0/\0>\0"s), Gives("<\0R\0/\0>\0"s)) << "two bytes a letter";
    EXPECT_THAT(document_text(archive_of({{"readme", "no"}, {"a.xml", "<R/>"}})), Gives("<R/>"));
    EXPECT_EQ(document_text("<R/>  ", 5).error(), std::errc::file_too_large);
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
