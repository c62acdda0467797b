#include <GenICam/zip.h>

#include <minizip/unzip.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string_view>
#include <utility>

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

bool is_xml_name(std::string_view name) noexcept {
    constexpr std::string_view ending = ".xml";
    if (name.size() < ending.size()) return false;
    return std::ranges::equal(name.substr(name.size() - ending.size()), ending,
                              [](char a, char b) { return std::tolower(static_cast<unsigned char>(a)) == b; });
}

// Leaves the archive at the member to read.
bool select_document(unzFile archive) {
    for (int outcome = unzGoToFirstFile(archive); outcome == UNZ_OK; outcome = unzGoToNextFile(archive)) {
        char name[512] = "";
        if (unzGetCurrentFileInfo64(archive, nullptr, name, sizeof name - 1, nullptr, 0, nullptr, 0) != UNZ_OK)
            return false;
        if (is_xml_name(name)) return true;
    }
    return unzGoToFirstFile(archive) == UNZ_OK;
}

std::unexpected<std::error_code> failed(std::errc why) { return fail(std::make_error_code(why)); }

} // namespace

struct zip_archive::opened_file {
    explicit opened_file(std::span<const std::byte> bytes) : memory{bytes} {
        zlib_filefunc64_def functions{open_file, read_file,  write_file,    tell_file,
                                      seek_file, close_file, error_of_file, &memory};
        archive = unzOpen2_64("", &functions);
    }
    opened_file(const opened_file&) = delete;
    opened_file& operator=(const opened_file&) = delete;
    ~opened_file() {
        if (archive != nullptr) unzClose(archive);
    }

    memory_file memory;
    unzFile archive = nullptr;
};

zip_archive::zip_archive(std::unique_ptr<opened_file> opened) noexcept : file{std::move(opened)} {}
zip_archive::zip_archive(zip_archive&&) noexcept = default;
zip_archive& zip_archive::operator=(zip_archive&&) noexcept = default;
zip_archive::~zip_archive() = default;

result<zip_archive> zip_archive::open(std::span<const std::byte> bytes) {
    auto opened = std::make_unique<opened_file>(bytes);
    if (opened->archive == nullptr) return failed(std::errc::bad_message);
    return zip_archive{std::move(opened)};
}

result<std::string> zip_archive::read(const std::string& name, std::size_t limit) {
    constexpr int case_matters = 1;
    if (unzLocateFile(file->archive, name.c_str(), case_matters) != UNZ_OK)
        return failed(std::errc::no_such_file_or_directory);
    return read_current(limit);
}

result<std::string> zip_archive::read_document(std::size_t limit) {
    if (!select_document(file->archive)) return failed(std::errc::bad_message);
    return read_current(limit);
}

result<std::string> zip_archive::read_current(std::size_t limit) {
    unzFile const archive = file->archive;
    unz_file_info64 info{};
    if (unzGetCurrentFileInfo64(archive, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK ||
        unzOpenCurrentFile(archive) != UNZ_OK)
        return failed(std::errc::bad_message);
    // As it comes: the size in the archive is a claim.
    std::string content;
    for (;;) {
        constexpr std::size_t step = std::size_t{64} << 10;
        const std::size_t before = content.size();
        content.resize(before + step);
        const int count = unzReadCurrentFile(archive, content.data() + before, static_cast<unsigned>(step));
        if (count < 0) return failed(std::errc::bad_message);
        content.resize(before + static_cast<std::size_t>(count));
        if (content.size() > limit) return failed(std::errc::file_too_large);
        if (count == 0) break;
    }
    // The checksum is compared on closing, though only for a member that was read to its end.
    if (unzCloseCurrentFile(archive) != UNZ_OK || content.size() != info.uncompressed_size)
        return failed(std::errc::bad_message);
    return content;
}

bool is_zipped(std::span<const std::byte> bytes) noexcept {
    constexpr unsigned char signature[] = {'P', 'K', 3, 4};
    return bytes.size() >= sizeof signature && std::memcmp(bytes.data(), signature, sizeof signature) == 0;
}

result<std::string> document_text(std::string content, std::size_t limit) {
    const auto bytes = std::as_bytes(std::span{content});
    if (is_zipped(bytes)) {
        auto archive = zip_archive::open(bytes);
        if (!archive) return fail(archive.error());
        return archive->read_document(limit);
    }
    // Letters of two or four bytes have zeros from the start: that is no end.
    const std::size_t first_zero = content.find('\0');
    if (first_zero >= 4 && first_zero != std::string::npos) content.resize(first_zero);
    if (content.size() > limit) return failed(std::errc::file_too_large);
    return content;
}

} // namespace GenICam
