#include "genicam_port.h"

#include "impl/log.h"

#include <algorithm>
#include <cstring>
#include <mutex>

namespace GenICam::impl {

namespace {

// Reserved addresses of memory bindings.
constexpr int64_t memory_size_address = 0x7FFFFFFFFFFFFFF0;
constexpr int64_t zero_address = 0x7FFFFFFFFFFFFFFF;

} // namespace

port_device_type::port_device_type(document_services& services_, const element_view& view)
    : implement_inode(services_, view), cache_chunk_data(text_of(view[tag::CacheChunkData]) == "Yes") {}

void port_device_type::do_resolve_references(document_services&, const element_view& view) {
    if (view.has(tag::pChunkID)) {
        chunk_id.resolve(*this, view, tag::none, tag::pChunkID);
    } else if (const auto id = parse_hex(text_of(view[tag::ChunkID]))) {
        chunk_id.set(*id);
    }
}

result<std::size_t> port_device_type::memory_offset(int64_t address, std::size_t length) const {
    if (memory.empty()) return fail(genicam_errc::port_not_bound);
    std::size_t offset = static_cast<std::size_t>(address);
    if (address < 0) {
        const uint64_t from_end = 0 - static_cast<uint64_t>(address);
        if (from_end > memory.size()) return fail(genicam_errc::index_out_of_range);
        offset = memory.size() - from_end;
    }
    if (offset > memory.size() || length > memory.size() - offset) return fail(genicam_errc::index_out_of_range);
    return offset;
}

result<std::size_t> port_device_type::read(int64_t address, std::span<std::byte> data, unsigned flags) {
    const std::shared_lock guard{lock};
    if (device_port != nullptr) return device_port->read(address, data, flags);
    if (!memory_bound || memory.empty()) return fail(genicam_errc::port_not_bound);
    if (address == memory_size_address || address == zero_address) {
        const uint64_t answer = address == memory_size_address ? memory.size() : 0;
        if (data.size() != sizeof answer) return fail(genicam_errc::invalid_parameter);
        std::memcpy(data.data(), &answer, sizeof answer);
        return data.size();
    }
    const auto offset = memory_offset(address, data.size());
    if (!offset) return fail(offset.error());
    std::ranges::copy(memory.subspan(*offset, data.size()), data.begin());
    return data.size();
}

std::error_code port_device_type::write(int64_t address, std::span<const std::byte> data, unsigned flags) {
    const std::error_code error = transfer(address, data, flags);
    // Also after a failure: the device may have taken the bytes and its answer be lost.
    invalidate_range(address, data.size());
    return error;
}

std::error_code port_device_type::transfer(int64_t address, std::span<const std::byte> data, unsigned flags) {
    const std::shared_lock guard{lock};
    if (read_only) return genicam_errc::access_denied;
    if (device_port != nullptr) return device_port->write(address, data, flags);
    if (!memory_bound) return genicam_errc::port_not_bound;
    const auto offset = memory_offset(address, data.size());
    if (!offset) return offset.error();
    std::ranges::copy(data, memory.begin() + static_cast<std::ptrdiff_t>(*offset));
    return {};
}

std::error_code port_device_type::bind(IDevicePort* device, unsigned flags) {
    if (device == nullptr) return genicam_errc::invalid_parameter;
    {
        const std::unique_lock guard{lock};
        if (device_port != nullptr || memory_bound) {
            log(level_fault, "{}. Failed binding port because port was already bound.", name);
            return genicam_errc::access_denied;
        }
        device_port = device;
        read_only = false;
        cache_enabled.store(true, std::memory_order_relaxed);
    }
    after_binding(flags);
    return {};
}

std::error_code port_device_type::bind(std::span<std::byte> bytes, unsigned flags) {
    return bind_memory(bytes, true, flags);
}

std::error_code port_device_type::bind_readonly(std::span<const std::byte> bytes, unsigned flags) {
    return bind_memory(bytes, false, flags);
}

std::error_code port_device_type::bind_memory(std::span<const std::byte> bytes, bool writable, unsigned flags) {
    {
        const std::unique_lock guard{lock};
        if (device_port != nullptr) {
            log(level_fault, "{}. Failed to bind, because port is already bound to a device port.", name);
            return genicam_errc::access_denied;
        }
        read_only = !writable;
        memory_bound = true;
        const bool copy = (flags & bind_flags::copy) != 0 || cache_chunk_data;
        if (copy) {
            copied.assign(bytes.begin(), bytes.end());
            memory = copied;
        } else {
            memory = {const_cast<std::byte*>(bytes.data()), bytes.size()}; // read_only keeps it from being written
        }
        // Bytes of our own need no second copy.
        cache_enabled.store(!copy, std::memory_order_relaxed);
    }
    after_binding(flags);
    return {};
}

void port_device_type::unbind(unsigned flags) {
    {
        const std::unique_lock guard{lock};
        device_port = nullptr;
        memory = {};
        memory_bound = false;
        read_only = false;
    }
    after_binding(flags);
}

void port_device_type::after_binding(unsigned flags) {
    if (flags & bind_flags::clear_cache) invalidate_all();
    if (flags & bind_flags::invalidate) invalidate_dependents(false);
}

bool port_device_type::is_bound() const {
    const std::shared_lock guard{lock};
    return device_port != nullptr || memory_bound;
}

result<uint64_t> port_device_type::get_chunk_id(unsigned flags) const { return chunk_id.get(flags); }

std::error_code port_device_type::read_whole(int64_t address, std::span<std::byte> data, unsigned flags) {
    const auto count = read(address, data, flags);
    if (!count) return count.error();
    // Less than asked for would be decoded as a value nobody sent.
    return *count < data.size() ? make_error_code(genicam_errc::generic_error) : std::error_code{};
}

std::error_code port_device_type::read_cached(const caching_terms& how, int64_t address, std::span<std::byte> data,
                                              unsigned flags) {
    const bool cacheable = data.size() <= register_cache::maximum_length && how.mode != CachingMode_t::NoCache &&
                           !(flags & access_flags::bypass_cache) && cache_enabled.load(std::memory_order_relaxed);
    if (!cacheable) return read_whole(address, data, flags);
    uint64_t changes_before = 0;
    {
        const std::shared_lock guard{cache_lock};
        if (cache.read(address, data, how.since.load(std::memory_order_relaxed))) return {};
        changes_before = cache.changes();
    }
    if (flags & access_flags::cache_only) return genicam_errc::not_in_cache;
    if (const std::error_code error = read_whole(address, data, flags)) return error;
    const std::unique_lock guard{cache_lock};
    if (changes_before == cache.changes()) cache.store(address, data);
    return {};
}

uint64_t port_device_type::changes_so_far() const {
    const std::shared_lock guard{cache_lock};
    return cache.changes();
}

// Any write makes what overlaps it invalid, whether the register itself is cached or not: an overlapping one may be.
std::error_code port_device_type::write_cached(const caching_terms& how, int64_t address,
                                               std::span<const std::byte> data, unsigned flags) {
    if (data.size() > register_cache::maximum_length || !cache_enabled.load(std::memory_order_relaxed))
        return write(address, data, flags);
    if (flags & access_flags::cache_only) {
        const std::unique_lock guard{cache_lock};
        if (!cache.contains(address, data.size(), how.since.load(std::memory_order_relaxed)))
            return genicam_errc::not_in_cache;
        cache.invalidate(address, data.size());
        cache.store(address, data);
        return {};
    }
    if (how.mode != CachingMode_t::WriteThrough || (flags & access_flags::bypass_cache))
        return write(address, data, flags);
    const uint64_t changes_before = changes_so_far();
    const std::error_code error = transfer(address, data, flags);
    const std::unique_lock guard{cache_lock};
    // Of two writes at the same time nobody knows which came second.
    const bool is_alone = changes_before == cache.changes();
    cache.invalidate(address, data.size());
    if (!error && is_alone) cache.store(address, data);
    return error;
}

uint64_t port_device_type::invalidate_range(int64_t address, uint64_t length) {
    const std::unique_lock guard{cache_lock};
    cache.invalidate(address, length);
    return cache.changes();
}

uint64_t port_device_type::invalidate_all() {
    const std::unique_lock guard{cache_lock};
    cache.clear();
    return cache.changes();
}

void port_device_type::invalidate_text(text_entry& entry) {
    const std::unique_lock guard{cache_lock};
    cache.invalidate(entry);
}

std::error_code port_device_type::read_text(CachingMode_t mode, text_entry& entry, int64_t address, std::string& text,
                                            unsigned flags) {
    const auto bytes = std::as_writable_bytes(std::span{text});
    if (mode == CachingMode_t::NoCache || (flags & access_flags::bypass_cache) ||
        !cache_enabled.load(std::memory_order_relaxed))
        return read_whole(address, bytes, flags);
    uint64_t changes_before = 0;
    {
        const std::shared_lock guard{cache_lock};
        changes_before = cache.changes();
        if (entry.is_kept() && entry.address == address) {
            const bool ends = !(flags & access_flags::raw_string) && entry.bytes.find('\0') != std::string::npos;
            if (ends || entry.bytes.size() >= text.size()) {
                text = entry.bytes.substr(0, text.size());
                return {};
            }
        }
    }
    if (flags & access_flags::cache_only) return genicam_errc::not_in_cache;
    if (const std::error_code error = read_whole(address, bytes, flags)) return error;
    const std::unique_lock guard{cache_lock};
    if (changes_before == cache.changes()) cache.keep(entry, address, text);
    return {};
}

std::error_code port_device_type::write_text(CachingMode_t mode, text_entry& entry, int64_t address, std::string text,
                                             unsigned flags) {
    if (!cache_enabled.load(std::memory_order_relaxed)) {
        invalidate_text(entry);
        return write(address, std::as_bytes(std::span{text}), flags);
    }
    const bool here_only = (flags & access_flags::cache_only) != 0;
    const bool keep = here_only || (mode == CachingMode_t::WriteThrough && !(flags & access_flags::bypass_cache));
    const uint64_t changes_before = changes_so_far();
    std::error_code error;
    if (!here_only) error = transfer(address, std::as_bytes(std::span{text}), flags);
    const std::unique_lock guard{cache_lock};
    const bool is_alone = changes_before == cache.changes();
    cache.invalidate(address, text.size());
    if (keep && !error && is_alone) {
        cache.keep(entry, address, std::move(text));
    } else {
        cache.drop(entry);
    }
    return error;
}

} // namespace GenICam::impl
