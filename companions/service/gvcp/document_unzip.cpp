#include "device_document.h"

#include <unzip.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace gvcp_master {

namespace {

// minizip's file functions over a string.
struct memory_file {
    std::string content;
    std::size_t position = 0;
};

voidpf open_memory(voidpf opaque, const void*, int) { return opaque; }

uLong read_memory(voidpf, voidpf stream, void* to, uLong size) {
    auto& file = *static_cast<memory_file*>(stream);
    const std::size_t count = std::min<std::size_t>(size, file.content.size() - file.position);
    std::memcpy(to, file.content.data() + file.position, count);
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

struct closer {
    void operator()(void* archive) const { ::unzClose(archive); }
};

} // namespace

std::expected<std::string, std::error_code> unzip_first_file(std::string archive) {
    const auto damaged = [] { return std::unexpected(std::make_error_code(std::errc::bad_message)); };
    memory_file file{std::move(archive)};
    zlib_filefunc64_def functions{open_memory, read_memory,  write_memory, tell_memory,
                                  seek_memory, close_memory, error_memory, &file};
    const std::unique_ptr<void, closer> opened{::unzOpen2_64("", &functions)};
    if (!opened) return damaged();
    unz_file_info64 info{};
    if (::unzGoToFirstFile(opened.get()) != UNZ_OK ||
        ::unzGetCurrentFileInfo64(opened.get(), &info, nullptr, 0, nullptr, 0, nullptr, 0) != UNZ_OK)
        return damaged();
    if (info.uncompressed_size > max_document) return std::unexpected(std::make_error_code(std::errc::file_too_large));
    if (::unzOpenCurrentFile(opened.get()) != UNZ_OK) return damaged();
    // As it comes: the size is what the archive claims.
    std::string content;
    std::array<char, 16384> piece;
    int count = 0;
    while ((count = ::unzReadCurrentFile(opened.get(), piece.data(), piece.size())) > 0) {
        content.append(piece.data(), static_cast<std::size_t>(count));
        if (content.size() > info.uncompressed_size) return damaged();
    }
    // Closing checks the sum.
    if (::unzCloseCurrentFile(opened.get()) != UNZ_OK || count < 0 || content.size() != info.uncompressed_size)
        return damaged();
    return content;
}

} // namespace gvcp_master
