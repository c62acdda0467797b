#include "archive_file.h"

#include "../failure/failure.h"
#include "../posix/atomic_file.h"
#include "../posix/this_process.h"

#include <archive.h>
#include <archive_entry.h>
#include <fmt/format.h>

#include <ctime>
#include <memory>

namespace cli {

namespace {

namespace fs = std::filesystem;

// Empty for a folder.
std::string stem_of_archive(const fs::path& path) {
    const std::string name = path.filename();
    for (const std::string_view ending : {".tar.gz", ".tgz"})
        if (name.size() > ending.size() && name.ends_with(ending)) return name.substr(0, name.size() - ending.size());
    return {};
}

la_ssize_t append(archive*, void* to, const void* data, size_t size) {
    static_cast<std::string*>(to)->append(static_cast<const char*>(data), size);
    return static_cast<la_ssize_t>(size);
}

std::string packed(const std::string& stem, const std::vector<named_content>& files) {
    const std::unique_ptr<archive, int (*)(archive*)> writer{archive_write_new(), archive_write_free};
    std::string bytes;
    const auto check = [&](int result) {
        if (result < ARCHIVE_OK)
            throw failure(cause::output,
                          fmt::format("Cannot pack the archive: {}.", archive_error_string(writer.get())));
    };
    check(archive_write_add_filter_gzip(writer.get()));
    check(archive_write_set_format_pax_restricted(writer.get()));
    check(archive_write_open2(writer.get(), &bytes, nullptr, append, nullptr, nullptr));
    for (const named_content& file : files) {
        const std::unique_ptr<archive_entry, void (*)(archive_entry*)> entry{archive_entry_new(), archive_entry_free};
        archive_entry_set_pathname(entry.get(), (stem + '/' + file.name).c_str());
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(file.content.size()));
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_mtime(entry.get(), std::time(nullptr), 0);
        check(archive_write_header(writer.get(), entry.get()));
        const la_ssize_t written = archive_write_data(writer.get(), file.content.data(), file.content.size());
        if (written != static_cast<la_ssize_t>(file.content.size())) check(ARCHIVE_FATAL);
    }
    check(archive_write_close(writer.get()));
    return bytes;
}

void write_folder(const fs::path& path, const std::vector<named_content>& files) {
    std::error_code error;
    if (fs::exists(path, error)) throw failure(cause::output, fmt::format("'{}' is there already.", path.string()));
    const fs::path draft = path.parent_path() / fmt::format(".{}.{}", path.filename().string(), process_id());
    try {
        for (const named_content& file : files) {
            make_folder((draft / file.name).parent_path());
            write_file(draft / file.name, file.content);
        }
        fs::rename(draft, path, error);
        if (error) throw failure(cause::output, fmt::format("Cannot write '{}': {}.", path.string(), error.message()));
    } catch (...) {
        fs::remove_all(draft, error);
        throw;
    }
}

} // namespace

void write_collection(const fs::path& path, const std::vector<named_content>& files) {
    const std::string stem = stem_of_archive(path);
    if (stem.empty())
        write_folder(path.has_filename() ? path : path.parent_path(), files);
    else
        write_file(path, packed(stem, files));
}

} // namespace cli
