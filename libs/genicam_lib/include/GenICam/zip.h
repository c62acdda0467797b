// Documents come zipped from most cameras, firmware always. A library of its own (orv::genicam_zip), since it needs
// minizip, which the producer itself must not depend on.
#pragma once

#include <GenICam/document_url.h>
#include <GenICam/error.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>

namespace GenICam {

// A zip archive in memory, of a stranger: every size is checked against a limit before it is believed. Thread-bound.
// Errors are of the generic category: bad_message for what is no archive or a damaged member, file_too_large for a
// member of more than `limit` bytes, which also stops archives made to fill the memory.
class zip_archive final {
public:
    // The bytes must outlive the object.
    [[nodiscard]] static result<zip_archive> open(std::span<const std::byte> bytes);
    zip_archive(zip_archive&&) noexcept;
    zip_archive& operator=(zip_archive&&) noexcept;
    ~zip_archive();

    // A member's content, its checksum tested. no_such_file_or_directory for a name that is not there.
    [[nodiscard]] result<std::string> read(const std::string& name, std::size_t limit);
    // The first member whose name ends in ".xml" in any case, else the first member.
    [[nodiscard]] result<std::string> read_document(std::size_t limit = largest_document);

private:
    struct opened_file;
    explicit zip_archive(std::unique_ptr<opened_file> opened) noexcept;
    [[nodiscard]] result<std::string> read_current(std::size_t limit);
    std::unique_ptr<opened_file> file; // empty once moved from
};

// Whether the bytes begin like a zip archive.
[[nodiscard]] bool is_zipped(std::span<const std::byte> bytes) noexcept;

// The text in what a camera or a file holds: unpacked when it is an archive, else up to the first NUL, because memory
// is often longer than the text in it (a text in UTF-16 or UTF-32 stays whole). The errors of zip_archive.
[[nodiscard]] result<std::string> document_text(std::string content, std::size_t limit = largest_document);

} // namespace GenICam
