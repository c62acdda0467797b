// A file that is there whole or not at all.
#pragma once

#include <cstddef>
#include <filesystem>
#include <span>
#include <string_view>

namespace cli {

// Writes beside the path and renames: a reader sees the old content or the new one, and a full disk leaves the old one.
// What is no regular file, as /dev/stdout, is written directly. Throws failure(cause::output) with path and reason.
void write_file(const std::filesystem::path& path, std::span<const std::byte> data);
void write_file(const std::filesystem::path& path, std::string_view text);

// With all folders above it; the same failure.
void make_folder(const std::filesystem::path& path);

} // namespace cli
