// A zip archive in memory, of a stranger: every size is checked against a limit before it is believed.
#pragma once

#include <cstddef>
#include <expected>
#include <memory>
#include <span>
#include <string>
#include <system_error>

namespace gvcp_master {

class zip_archive final {
public:
    // std::errc::bad_message for what is no archive. The bytes must outlive the object.
    [[nodiscard]] static std::expected<zip_archive, std::error_code> open(std::span<const std::byte> bytes);
    zip_archive(zip_archive&&) noexcept;
    ~zip_archive();

    // A member's content, its checksum tested. bad_message for a damaged one, file_too_large for more than `limit`
    // bytes, which also stops archives made to fill the memory, no_such_file_or_directory for a name that is not there.
    [[nodiscard]] std::expected<std::string, std::error_code> read_first(std::size_t limit);
    [[nodiscard]] std::expected<std::string, std::error_code> read(const std::string& name, std::size_t limit);

private:
    struct state;
    explicit zip_archive(std::unique_ptr<state> opened);
    [[nodiscard]] std::expected<std::string, std::error_code> read_current(std::size_t limit);
    std::unique_ptr<state> p;
};

} // namespace gvcp_master
