#include "zip_archive.h"

#include "device_document.h"

#include <unzip.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace gvcp_master {

namespace {

// minizip's file functions over memory.
struct memory_file {
    std::span<const std::byte> content;
    std::size_t position = 0;
};

voidpf open_memory(voidpf opaque, const void*, int) { return opaque; }

uLong read_memory(voidpf, voidpf stream, void* to, uLong size) {
    auto& file = *static_cast<memory_file*>(stream);
    const std::size_t count = std::min<std::size_t>(size, file.content.size() - file.position);
    if (count != 0) std::memcpy(to, file.content.data() + file.position, count);
    file.position += count;
    return static_cast<uLong>(count);
}

uLong write_memory(voidpf, voidpf, const void*, uLong) { return 0; }

ZPOS64_T tell_memory(voidpf, voidpf stream) { return static_cast<memory_file*>(stream)->position; }

long seek_memory(voidpf, voidpf stream, ZPOS64_T offset, int origin) {
    auto& file = *static_cast<memory_file*>(stream);
    ZPOS64_T base = 0;
    if (origin == ZLIB_FILEFUNC_SEEK_CUR) base = file.position;
    if (origin == ZLIB_FILEFUNC_SEEK_END) base = file.content.size();
    if (offset > file.content.size() || base + offset > file.content.size()) return -1;
    file.position = static_cast<std::size_t>(base + offset);
    return 0;
}

int close_memory(voidpf, voidpf) { return 0; }
int error_memory(voidpf, voidpf) { return 0; }

std::unexpected<std::error_code> damaged() { return std::unexpected(std::make_error_code(std::errc::bad_message)); }

} // namespace

struct zip_archive::state {
    memory_file file;
    unzFile handle = nullptr;
    ~state() {
        if (handle != nullptr) ::unzClose(handle);
    }
};

zip_archive::zip_archive(std::unique_ptr<state> opened) : p{std::move(opened)} {}
zip_archive::zip_archive(zip_archive&&) noexcept = default;
zip_archive::~zip_archive() = default;

std::expected<zip_archive, std::error_code> zip_archive::open(std::span<const std::byte> bytes) {
    auto opened = std::make_unique<state>();
    opened->file.content = bytes;
    zlib_filefunc64_def functions{open_memory, read_memory,  write_memory, tell_memory,
                                  seek_memory, close_memory, error_memory, &opened->file};
    opened->handle = ::unzOpen2_64("", &functions);
    if (opened->handle == nullptr) return damaged();
    return zip_archive{std::move(opened)};
}

std::expected<std::string, std::error_code> zip_archive::read_first(std::size_t limit) {
    if (::unzGoToFirstFile(p->handle) != UNZ_OK) return damaged();
    return read_current(limit);
}

std::expected<std::string, std::error_code> zip_archive::read(const std::string& name, std::size_t limit) {
    constexpr int case_matters = 1;
    if (::unzLocateFile(p->handle, name.c_str(), case_matters) != UNZ_OK)
        return std::unexpected(std::make_error_code(std::errc::no_such_file_or_directory));
    return read_current(limit);
}

std::expected<std::string, std::error_code> zip_archive::read_current(std::size_t limit) {
    unz_file_info64 info{};
    if (::unzGetCurrentFileInfo64(p->handle, &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK) return damaged();
    if (::unzOpenCurrentFile(p->handle) != UNZ_OK) return damaged();
    // As it comes: the size in the archive is a claim.
    std::string content;
    std::array<char, 16384> piece;
    int count = 0;
    while ((count = ::unzReadCurrentFile(p->handle, piece.data(), piece.size())) > 0) {
        content.append(piece.data(), static_cast<std::size_t>(count));
        if (content.size() > limit) return std::unexpected(std::make_error_code(std::errc::file_too_large));
    }
    // Closing checks the sum, but not of what ended early.
    if (::unzCloseCurrentFile(p->handle) != UNZ_OK || count < 0 || content.size() != info.uncompressed_size)
        return damaged();
    return content;
}

std::expected<std::string, std::error_code> unzip_first_file(std::string archive) {
    auto opened = zip_archive::open(std::as_bytes(std::span{archive}));
    if (!opened) return std::unexpected(opened.error());
    return opened->read_first(max_document);
}

} // namespace gvcp_master
