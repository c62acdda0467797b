// Documents come zipped from most cameras. A library of its own (orv::genicam_zip), since it needs minizip, which the
// producer itself must not depend on.
#pragma once

#include <GenICam/error.h>

#include <cstddef>
#include <span>
#include <string>

namespace GenICam {

// Whether the bytes begin like a zip archive.
[[nodiscard]] bool is_zipped(std::span<const std::byte> bytes) noexcept;

// The first member whose name ends in ".xml" in any case, else the first member. invalid_document for what is no sound
// archive, buffer_too_small for a text beyond `limit` bytes (which also stops archives made to fill the memory).
[[nodiscard]] result<std::string> inflate_document(std::span<const std::byte> archive,
                                                   std::size_t limit = std::size_t{64} << 20);

} // namespace GenICam
