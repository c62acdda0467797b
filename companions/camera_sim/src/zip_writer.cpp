#include <camera_sim/zip_writer.h>

#include <zlib.h>

#include <cstdint>
#include <stdexcept>

namespace camera_sim {

namespace {

struct little_endian {
    std::vector<std::byte>& to;
    void put(uint32_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) to.push_back(static_cast<std::byte>(value >> 8 * i));
    }
    void put(std::span<const std::byte> bytes) { to.insert(to.end(), bytes.begin(), bytes.end()); }
};

std::vector<std::byte> deflate_raw(std::span<const std::byte> content) {
    z_stream stream{};
    if (::deflateInit2(&stream, Z_BEST_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) != Z_OK)
        throw std::runtime_error{"deflate does not start"};
    std::vector<std::byte> packed(::deflateBound(&stream, content.size()));
    std::vector<std::byte> source{content.begin(), content.end()};
    stream.next_in = reinterpret_cast<Bytef*>(source.data());
    stream.avail_in = static_cast<uInt>(source.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    const int result = ::deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    ::deflateEnd(&stream);
    if (result != Z_STREAM_END) throw std::runtime_error{"deflate does not end"};
    return packed;
}

} // namespace

std::vector<std::byte> zip_one_file(std::string_view name, std::span<const std::byte> content) {
    const zip_member member{name, content};
    return zip_files({&member, 1});
}

std::vector<std::byte> zip_files(std::span<const zip_member> members) {
    std::vector<std::byte> archive;
    std::vector<std::byte> directory;
    for (const auto& [name, content] : members) {
        const auto packed = deflate_raw(content);
        const auto crc = static_cast<uint32_t>(
            ::crc32(0, reinterpret_cast<const Bytef*>(content.data()), static_cast<uInt>(content.size())));
        const auto start = static_cast<uint32_t>(archive.size());
        // Version, flags, method, time, date, checksum, sizes: the same in the local and the central header.
        const auto common = [&](little_endian out) {
            out.put(20, 2);
            out.put(0, 2);
            out.put(8, 2);
            out.put(0, 2);
            out.put(0x21, 2);
            out.put(crc, 4);
            out.put(static_cast<uint32_t>(packed.size()), 4);
            out.put(static_cast<uint32_t>(content.size()), 4);
            out.put(static_cast<uint32_t>(name.size()), 2);
            out.put(0, 2);
        };
        little_endian local{archive};
        local.put(0x04034B50, 4);
        common(local);
        local.put(std::as_bytes(std::span{name}));
        local.put(packed);
        little_endian central{directory};
        central.put(0x02014B50, 4);
        central.put(20, 2);
        common(central);
        central.put(0, 2);
        central.put(0, 2);
        central.put(0, 2);
        central.put(0, 4);
        central.put(start, 4);
        central.put(std::as_bytes(std::span{name}));
    }
    const auto start = static_cast<uint32_t>(archive.size());
    little_endian out{archive};
    out.put(directory);
    out.put(0x06054B50, 4);
    out.put(0, 4);
    out.put(static_cast<uint32_t>(members.size()), 2);
    out.put(static_cast<uint32_t>(members.size()), 2);
    out.put(static_cast<uint32_t>(directory.size()), 4);
    out.put(start, 4);
    out.put(0, 2);
    return archive;
}

} // namespace camera_sim
