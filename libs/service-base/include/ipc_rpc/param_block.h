// Encoding of arguments and results: the plain concatenation of items in order, without tags or padding.
//
// A record says how it travels in one of two ways: `using wire_packed = void;` for raw bytes, or
// `static constexpr auto wire_members = std::tuple{&T::first, ...};` for its members in order.
#pragma once

#include <ipc_rpc/status.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <expected>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <tuple>
#include <type_traits>
#include <vector>

namespace ipc_rpc {

class rpc_connection_client;
class client_object_handle;

class param_writer final {
public:
    void put_raw(const void* data, std::size_t size) {
        const auto* first = static_cast<const std::byte*>(data);
        bytes.insert(bytes.end(), first, first + size);
    }
    [[nodiscard]] std::vector<std::byte>& buffer() noexcept { return bytes; }

private:
    std::vector<std::byte> bytes;
};

// Reads a block that it does not own. A read that fails leaves the position where it was.
class param_reader final {
public:
    explicit param_reader(std::span<const std::byte> block, std::weak_ptr<rpc_connection_client> from = {}) noexcept
        : bytes(block), connection(std::move(from)) {}

    [[nodiscard]] bool get_raw(void* data, std::size_t size) noexcept {
        if (size > remaining()) return false;
        if (size != 0) std::memcpy(data, bytes.data() + position, size);
        position += size;
        return true;
    }
    [[nodiscard]] std::size_t remaining() const noexcept { return bytes.size() - position; }
    void step_back(std::size_t size) noexcept { position -= std::min(size, position); }
    // The connection that object handles in this block belong to.
    [[nodiscard]] const std::weak_ptr<rpc_connection_client>& origin() const noexcept { return connection; }

private:
    std::span<const std::byte> bytes;
    std::size_t position = 0;
    std::weak_ptr<rpc_connection_client> connection;
};

template <class T>
concept wire_packed_record = requires {
    typename T::wire_packed;
}
&&std::is_trivially_copyable_v<T>;
template <class T>
concept wire_member_record = requires {
    T::wire_members;
};
template <class T>
concept wire_scalar = (std::is_integral_v<T> || std::is_enum_v<T> ||
                       std::is_same_v<T, double>)&&!std::is_same_v<T, bool> &&
                      (sizeof(T) == 4 || sizeof(T) == 8);

template <class T>
struct param_codec;

template <class T>
void encode(param_writer& out, const T& value) {
    param_codec<T>::encode(out, value);
}
template <class T>
[[nodiscard]] bool decode(param_reader& in, T& value) {
    return param_codec<T>::decode(in, value);
}

template <class T>
requires wire_scalar<T> || wire_packed_record<T>
struct param_codec<T> {
    static void encode(param_writer& out, const T& value) { out.put_raw(&value, sizeof value); }
    static bool decode(param_reader& in, T& value) { return in.get_raw(&value, sizeof value); }
};

template <>
struct param_codec<bool> {
    static void encode(param_writer& out, bool value) {
        const std::uint8_t byte = value ? 1 : 0;
        out.put_raw(&byte, 1);
    }
    static bool decode(param_reader& in, bool& value) {
        std::uint8_t byte = 0;
        if (!in.get_raw(&byte, 1)) return false;
        value = byte != 0;
        return true;
    }
};

inline void encode_counted(param_writer& out, const void* data, std::size_t size) {
    const auto length = static_cast<std::uint32_t>(size);
    out.put_raw(&length, sizeof length);
    if (size != 0) out.put_raw(data, size);
}

template <>
struct param_codec<std::string> {
    static void encode(param_writer& out, std::string_view value) { encode_counted(out, value.data(), value.size()); }
    static bool decode(param_reader& in, std::string& value) {
        std::uint32_t length = 0;
        if (!in.get_raw(&length, sizeof length)) return false;
        if (length > in.remaining()) {
            in.step_back(sizeof length);
            return false;
        }
        value.resize(length);
        return in.get_raw(value.data(), length);
    }
};

template <class T>
struct param_codec<std::vector<T>> {
    static constexpr bool raw = std::is_same_v<T, std::byte> || std::is_same_v<T, std::uint8_t>;

    static void encode(param_writer& out, std::span<const T> value) {
        if constexpr (raw) {
            encode_counted(out, value.data(), value.size());
        } else {
            const auto count = static_cast<std::uint32_t>(value.size());
            out.put_raw(&count, sizeof count);
            for (const T& item : value) param_codec<T>::encode(out, item);
        }
    }
    static bool decode(param_reader& in, std::vector<T>& value) {
        std::uint32_t count = 0;
        if (!in.get_raw(&count, sizeof count)) return false;
        // No item is empty, so a count above the bytes left is a lie; it must not size the vector either.
        if (count > in.remaining()) {
            in.step_back(sizeof count);
            return false;
        }
        value.clear();
        if constexpr (raw) {
            value.resize(count);
            return in.get_raw(value.data(), count);
        } else {
            for (std::uint32_t i = 0; i < count; ++i) {
                if (!param_codec<T>::decode(in, value.emplace_back())) return false;
            }
            return true;
        }
    }
};

template <wire_member_record T>
struct param_codec<T> {
    static void encode(param_writer& out, const T& value) {
        std::apply([&](auto... member) { (ipc_rpc::encode(out, value.*member), ...); }, T::wire_members);
    }
    static bool decode(param_reader& in, T& value) {
        return std::apply([&](auto... member) { return (ipc_rpc::decode(in, value.*member) && ...); }, T::wire_members);
    }
};

template <>
struct param_codec<std::error_code> {
    static void encode(param_writer& out, const std::error_code& value) {
        const wire_error error = to_wire(value);
        ipc_rpc::encode(out, error.value);
        ipc_rpc::encode(out, error.category_id);
    }
    static bool decode(param_reader& in, std::error_code& value) {
        wire_error error;
        if (!ipc_rpc::decode(in, error.value) || !ipc_rpc::decode(in, error.category_id)) return false;
        value = from_wire(error);
        return true;
    }
};

// A zero error word is followed by the value, another one by its category id and nothing else.
template <class T>
struct param_codec<std::expected<T, std::error_code>> {
    static void encode(param_writer& out, const std::expected<T, std::error_code>& value) {
        if (value) {
            ipc_rpc::encode(out, std::uint64_t{0});
            if constexpr (!std::is_void_v<T>) param_codec<T>::encode(out, *value);
        } else {
            // An error that is none would be read as a value.
            const std::error_code none = make_error_code(status::unregistered_error_category);
            param_codec<std::error_code>::encode(out, value.error() ? value.error() : none);
        }
    }
    static bool decode(param_reader& in, std::expected<T, std::error_code>& value) {
        wire_error error;
        if (!ipc_rpc::decode(in, error.value)) return false;
        if (error.value != 0) {
            if (!ipc_rpc::decode(in, error.category_id)) return false;
            const std::error_code code = from_wire(error);
            value = std::unexpected(code);
            return static_cast<bool>(code); // a word that is zero only as an int is neither error nor value
        }
        if constexpr (std::is_void_v<T>) {
            value = {};
            return true;
        } else {
            return param_codec<T>::decode(in, value.emplace());
        }
    }
};

template <>
struct param_codec<client_object_handle> {
    static void encode(param_writer& out, const client_object_handle& value);
    static bool decode(param_reader& in, client_object_handle& value);
};

} // namespace ipc_rpc
