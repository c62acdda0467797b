#include "atomic_file.h"

#include "../failure/failure.h"

#include <fmt/format.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace cli {

namespace {

namespace fs = std::filesystem;

failure cannot_write(const fs::path& path, int error) {
    return {cause::output, fmt::format("Cannot write '{}': {}.", path.string(), std::system_category().message(error))};
}

// 0, or errno. Closing reports what a remote disk found out late.
int write_whole(const char* path, int flags, std::span<const std::byte> data) {
    const int file = ::open(path, flags | O_WRONLY | O_CLOEXEC, 0666);
    if (file < 0) return errno;
    while (!data.empty()) {
        const ssize_t written = ::write(file, data.data(), data.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            const int error = written < 0 ? errno : EIO;
            ::close(file);
            return error;
        }
        data = data.subspan(static_cast<size_t>(written));
    }
    return ::close(file) == 0 ? 0 : errno;
}

} // namespace

void write_file(const fs::path& path, std::span<const std::byte> data) {
    std::error_code ignored;
    const fs::file_status status = fs::status(path, ignored);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        if (const int error = write_whole(path.c_str(), 0, data)) throw cannot_write(path, error);
        return;
    }
    // In the same folder, where a rename is one step. A link keeps pointing: the file behind it is the one replaced.
    fs::path target = fs::exists(status) ? fs::canonical(path, ignored) : path;
    if (target.empty()) target = path;
    const fs::path draft = target.parent_path() / fmt::format(".{}.{}", target.filename().string(), getpid());
    int error = write_whole(draft.c_str(), O_CREAT | O_TRUNC, data);
    if (error == 0 && std::rename(draft.c_str(), target.c_str()) != 0) error = errno;
    if (error == 0) return;
    ::unlink(draft.c_str());
    throw cannot_write(path, error);
}

void write_file(const fs::path& path, std::string_view text) { write_file(path, std::as_bytes(std::span{text})); }

void make_folder(const fs::path& path) {
    std::error_code error;
    fs::create_directories(path, error);
    if (error)
        throw failure(cause::output, fmt::format("Cannot make folder '{}': {}.", path.string(), error.message()));
}

} // namespace cli
