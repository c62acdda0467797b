// The virtual register space of a software module: addresses that call back into the module.
//
// Numbers stand in host order, which is little-endian. Not synchronised: a map is filled before its first access, and
// the callbacks take the locks of their module.
#pragma once

#include <gentl_producer/Error.h>

#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace GenTL::Producer::Util {

// One register. `offset` counts from its start; `*size` is in-out, the caller's memory may be unaligned.
class RegisterMapEntry {
public:
    virtual ~RegisterMapEntry() = default;
    virtual Error Read(uint64_t offset, void* dst, size_t* size) = 0;
    virtual Error Write(uint64_t offset, const void* src, size_t* size) = 0;
};

template <class T>
using ValueGetter = std::function<std::expected<T, Error>()>;
template <class T>
using ValueSetter = std::function<Error(T)>;
// Fills the span, which it may read as a NUL-terminated text afterwards.
using TextGetter = std::function<Error(std::span<char>)>;

// T is uint32_t, float, int64_t, uint64_t or bool (4 bytes wide). A missing function makes that direction
// GC_ERR_ACCESS_DENIED.
template <class T>
std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<T> getter, ValueSetter<T> setter = {});
// The variable must outlive the entry; T is uint32_t, int64_t, uint64_t or bool.
template <class T>
std::unique_ptr<RegisterMapEntry> make_variable_entry(T* variable, std::function<void()> on_change = {});
// Text that cannot be written; it must outlive the entry.
std::unique_ptr<RegisterMapEntry> make_text_entry(const std::string* text);
// Strings are cut to max_length; shorter ones are followed by zero bytes.
std::unique_ptr<RegisterMapEntry> make_string_entry(ValueGetter<std::string> getter, ValueSetter<std::string> setter,
                                                    size_t max_length);
std::unique_ptr<RegisterMapEntry> make_string_entry(TextGetter getter, size_t max_length);
// Write-only; the written value is not used.
std::unique_ptr<RegisterMapEntry> make_command_entry(std::function<Error()> command);

class RegisterMap {
public:
    // `exact` refuses every access but that of the whole register.
    void add(uint64_t address, size_t length, std::unique_ptr<RegisterMapEntry> entry, bool exact);
    void clear() { entries.clear(); }

    Error Read(uint64_t address, void* dst, size_t* size) const;
    Error Write(uint64_t address, const void* src, size_t* size) const;

private:
    struct Slot {
        uint64_t address;
        size_t length;
        std::unique_ptr<RegisterMapEntry> entry;
        bool exact;
    };
    [[nodiscard]] const Slot* find(uint64_t address) const;
    static Error check(const Slot* slot, uint64_t address, size_t size);

    std::vector<Slot> entries;
};

} // namespace GenTL::Producer::Util
