#include "document_file.h"

#include <GenICam/document_url.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace gvcp_master {

namespace {

class file_descriptor {
public:
    explicit file_descriptor(int opened) noexcept : handle{opened} {}
    ~file_descriptor() {
        if (handle >= 0) ::close(handle);
    }
    file_descriptor(file_descriptor&& other) noexcept : handle{std::exchange(other.handle, -1)} {}
    file_descriptor& operator=(file_descriptor&& other) noexcept {
        std::swap(handle, other.handle);
        return *this;
    }
    [[nodiscard]] int get() const noexcept { return handle; }

private:
    int handle;
};

std::unexpected<std::error_code> failed() { return std::unexpected(std::error_code{errno, std::generic_category()}); }

std::unexpected<std::error_code> failed(std::errc why) { return std::unexpected(std::make_error_code(why)); }

} // namespace

std::expected<std::string, std::error_code> read_file_below(const std::string& folder, std::string_view name) {
    if (name.find('\0') != std::string_view::npos) return failed(std::errc::invalid_argument);
    if (name.starts_with('/')) {
        std::string_view root = folder;
        while (root.ends_with('/')) root.remove_suffix(1);
        if (!name.starts_with(root) || !name.substr(root.size()).starts_with('/'))
            return failed(std::errc::operation_not_permitted);
        name.remove_prefix(root.size());
    }
    file_descriptor at{::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)};
    if (at.get() < 0) return failed();
    // Step by step, as no single call everywhere keeps a path below a folder.
    for (;;) {
        while (name.starts_with('/')) name.remove_prefix(1);
        const std::string step{name.substr(0, name.find('/'))};
        if (step.empty() || step == "." || step == "..") return failed(std::errc::operation_not_permitted);
        const bool last = step.size() == name.size();
        name.remove_prefix(step.size());
        // A FIFO must not block.
        const int flags = O_CLOEXEC | O_NOFOLLOW | (last ? O_RDONLY | O_NONBLOCK | O_NOCTTY : O_PATH | O_DIRECTORY);
        file_descriptor next{::openat(at.get(), step.c_str(), flags)};
        if (next.get() < 0) return failed();
        at = std::move(next);
        if (last) break;
    }
    struct stat about {};
    if (::fstat(at.get(), &about) != 0) return failed();
    if (!S_ISREG(about.st_mode)) return failed(std::errc::operation_not_permitted);
    std::string content;
    constexpr std::size_t step = 1U << 20;
    while (content.size() <= GenICam::largest_document) {
        const std::size_t before = content.size();
        content.resize(before + step);
        const auto count = ::read(at.get(), content.data() + before, step);
        if (count < 0) return failed();
        content.resize(before + static_cast<std::size_t>(count));
        if (count == 0) return content;
    }
    return failed(std::errc::file_too_large);
}

} // namespace gvcp_master
