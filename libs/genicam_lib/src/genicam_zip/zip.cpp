#include <GenICam/zip.h>

#include <minizip/unzip.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <string_view>

namespace GenICam {

namespace {

// minizip's file functions over bytes in memory. The stream is the object itself.
struct memory_file {
    std::span<const std::byte> bytes;
    std::size_t at = 0;
};

memory_file& file_of(voidpf stream) { return *static_cast<memory_file*>(stream); }

voidpf open_file(voidpf opaque, const void*, int) { return opaque; }

uLong read_file(voidpf, voidpf stream, void* to, uLong size) {
    memory_file& file = file_of(stream);
    const std::size_t count = std::min<std::size_t>(size, file.bytes.size() - file.at);
    if (count != 0) std::memcpy(to, file.bytes.data() + file.at, count);
    file.at += count;
    return count;
}

uLong write_file(voidpf, voidpf, const void*, uLong) { return 0; }

ZPOS64_T tell_file(voidpf, voidpf stream) { return file_of(stream).at; }

long seek_file(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
    memory_file& file = file_of(stream);
    const std::size_t from = origin == ZLIB_FILEFUNC_SEEK_CUR   ? file.at
                             : origin == ZLIB_FILEFUNC_SEEK_END ? file.bytes.size()
                                                                : 0;
    if (offset > file.bytes.size() - from) return -1;
    file.at = from + offset;
    return 0;
}

int close_file(voidpf, voidpf) { return 0; }
int error_of_file(voidpf, voidpf) { return 0; }

struct close_archive {
    void operator()(unzFile archive) const noexcept { unzClose(archive); }
};
using archive_ptr = std::unique_ptr<std::remove_pointer_t<unzFile>, close_archive>;

bool is_xml_name(std::string_view name) noexcept {
    constexpr std::string_view ending = ".xml";
    if (name.size() < ending.size()) return false;
    return std::ranges::equal(name.substr(name.size() - ending.size()), ending,
                              [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
}

// Leaves the archive at the member to read.
bool select_member(unzFile archive) {
    for (int outcome = unzGoToFirstFile(archive); outcome == UNZ_OK; outcome = unzGoToNextFile(archive)) {
        char name[512] = "";
        if (unzGetCurrentFileInfo64(archive, nullptr, name, sizeof name - 1, nullptr, 0, nullptr, 0) != UNZ_OK)
            return false;
        if (is_xml_name(name)) return true;
    }
    return unzGoToFirstFile(archive) == UNZ_OK;
}

} // namespace

bool is_zipped(std::span<const std::byte> bytes) noexcept {
    constexpr unsigned char signature[] = {'P', 'K', 3, 4};
    return bytes.size() >= sizeof signature && std::memcmp(bytes.data(), signature, sizeof signature) == 0;
}

result<std::string> inflate_document(std::span<const std::byte> archive_bytes, std::size_t limit) {
    memory_file file{archive_bytes};
    zlib_filefunc64_def functions{open_file, read_file,  write_file,    tell_file,
                                  seek_file, close_file, error_of_file, &file};
    const archive_ptr archive{unzOpen2_64("", &functions)};
    if (!archive || !select_member(archive.get()) || unzOpenCurrentFile(archive.get()) != UNZ_OK)
        return fail(genicam_errc::invalid_document);
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(archive.get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return fail(genicam_errc::invalid_document);
    std::string text;
    for (;;) {
        constexpr std::size_t step = std::size_t{64} << 10;
        const std::size_t before = text.size();
        text.resize(before + step);
        const int count = unzReadCurrentFile(archive.get(), text.data() + before, static_cast<unsigned>(step));
        if (count < 0) return fail(genicam_errc::invalid_document);
        text.resize(before + static_cast<std::size_t>(count));
        if (text.size() > limit) return fail(genicam_errc::buffer_too_small);
        if (count == 0) break;
    }
    // The checksum is compared on closing, though only for a member that was read to its end.
    if (text.size() != info.uncompressed_size || unzCloseCurrentFile(archive.get()) != UNZ_OK)
        return fail(genicam_errc::invalid_document);
    return text;
}

} // namespace GenICam
