#include <gentl_producer/RegisterMap.h>

#include <algorithm>
#include <cstring>
#include <type_traits>

namespace GenTL::Producer::Util {

namespace {

Error access_denied() { return Error{GC_ERR_ACCESS_DENIED}; }

// The form in which a value stands in the register space.
template <class T>
using wire_t = std::conditional_t<std::is_same_v<T, bool>, uint32_t, T>;

template <class T>
void store(T value, void* dst) {
    const auto wire = static_cast<wire_t<T>>(value);
    std::memcpy(dst, &wire, sizeof wire);
}

template <class T>
T load(const void* src) {
    wire_t<T> wire;
    std::memcpy(&wire, src, sizeof wire);
    return static_cast<T>(wire);
}

template <class T>
class ReadWrite final : public RegisterMapEntry {
public:
    ReadWrite(ValueGetter<T> get, ValueSetter<T> set) : getter(std::move(get)), setter(std::move(set)) {}
    Error Read(uint64_t, void* dst, size_t*) override {
        if (!getter) return access_denied();
        auto value = getter();
        if (!value) return std::move(value.error());
        store(*value, dst);
        return success();
    }
    Error Write(uint64_t, const void* src, size_t*) override { return setter ? setter(load<T>(src)) : access_denied(); }

private:
    ValueGetter<T> getter;
    ValueSetter<T> setter;
};

template <class T>
class ValueRef final : public RegisterMapEntry {
public:
    ValueRef(T* target, std::function<void()> changed) : variable(target), on_change(std::move(changed)) {}
    Error Read(uint64_t, void* dst, size_t*) override {
        store(*variable, dst);
        return success();
    }
    Error Write(uint64_t, const void* src, size_t*) override {
        *variable = load<T>(src);
        if (on_change) on_change();
        return success();
    }

private:
    T* variable;
    std::function<void()> on_change;
};

Error check_bounds(uint64_t offset, size_t size, size_t max_length) {
    if (offset > max_length) return Error{GC_ERR_INVALID_ADDRESS};
    if (size > max_length - offset) return Error{GC_ERR_BUFFER_TOO_SMALL};
    return success();
}

class TextRef final : public RegisterMapEntry {
public:
    explicit TextRef(const std::string* target) : text(target) {}
    Error Read(uint64_t offset, void* dst, size_t* size) override {
        if (Error error = check_bounds(offset, *size, text->size()); error.failed()) return error;
        std::memcpy(dst, text->data() + offset, *size);
        return success();
    }
    Error Write(uint64_t, const void*, size_t*) override { return access_denied(); }

private:
    const std::string* text;
};

// The access rule of all strings; `fill` writes a text into a span of any size up to max_length.
class StringEntry : public RegisterMapEntry {
public:
    explicit StringEntry(size_t max) : max_length(max) {}
    Error Read(uint64_t offset, void* dst, size_t* size) final {
        if (Error error = check_bounds(offset, *size, max_length); error.failed()) return error;
        if (offset == 0) return fill({static_cast<char*>(dst), *size});
        std::string whole(max_length, '\0');
        if (Error error = fill(whole); error.failed()) return error;
        *size = std::min(*size, max_length - offset);
        std::memcpy(dst, whole.data() + offset, *size);
        return success();
    }
    Error Write(uint64_t offset, const void* src, size_t* size) final {
        if (Error error = check_bounds(offset, *size, max_length); error.failed()) return error;
        std::string whole;
        if (offset != 0) {
            whole.assign(max_length, '\0');
            if (Error error = fill(whole); error.failed()) return error;
            whole.resize(offset);
        }
        whole.append(static_cast<const char*>(src), *size);
        whole.resize(strnlen(whole.data(), whole.size()));
        return store_text(std::move(whole));
    }

private:
    virtual Error fill(std::span<char> dst) = 0;
    virtual Error store_text(std::string text) = 0;
    const size_t max_length;
};

class ReadWriteString final : public StringEntry {
public:
    ReadWriteString(ValueGetter<std::string> get, ValueSetter<std::string> set, size_t max)
        : StringEntry(max), getter(std::move(get)), setter(std::move(set)) {}

private:
    Error fill(std::span<char> dst) override {
        if (!getter) return access_denied();
        auto text = getter();
        if (!text) return std::move(text.error());
        const size_t length = std::min(text->size(), dst.size());
        std::copy_n(text->begin(), length, dst.begin());
        std::fill(dst.begin() + static_cast<ptrdiff_t>(length), dst.end(), '\0');
        return success();
    }
    Error store_text(std::string text) override { return setter ? setter(std::move(text)) : access_denied(); }

    ValueGetter<std::string> getter;
    ValueSetter<std::string> setter;
};

class ReadWriteString_func final : public StringEntry {
public:
    ReadWriteString_func(TextGetter get, size_t max) : StringEntry(max), getter(std::move(get)), length(max) {}

private:
    // The getter answers only into room for its whole text and a NUL, whatever part of the register is asked for.
    Error fill(std::span<char> dst) override {
        std::string whole(length + 1, '\0');
        if (Error error = getter(whole); error.failed()) return error;
        std::copy_n(whole.begin(), std::min(dst.size(), length), dst.begin());
        return success();
    }
    Error store_text(std::string) override { return access_denied(); }

    TextGetter getter;
    const size_t length;
};

class Command final : public RegisterMapEntry {
public:
    explicit Command(std::function<Error()> run) : command(std::move(run)) {}
    Error Read(uint64_t, void*, size_t*) override { return access_denied(); }
    Error Write(uint64_t, const void*, size_t*) override { return command(); }

private:
    std::function<Error()> command;
};

} // namespace

template <class T>
std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<T> getter, ValueSetter<T> setter) {
    return std::make_unique<ReadWrite<T>>(std::move(getter), std::move(setter));
}
template std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<uint32_t>, ValueSetter<uint32_t>);
template std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<float>, ValueSetter<float>);
template std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<int64_t>, ValueSetter<int64_t>);
template std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<uint64_t>, ValueSetter<uint64_t>);
template std::unique_ptr<RegisterMapEntry> make_value_entry(ValueGetter<bool>, ValueSetter<bool>);

template <class T>
std::unique_ptr<RegisterMapEntry> make_variable_entry(T* variable, std::function<void()> on_change) {
    return std::make_unique<ValueRef<T>>(variable, std::move(on_change));
}
template std::unique_ptr<RegisterMapEntry> make_variable_entry(uint32_t*, std::function<void()>);
template std::unique_ptr<RegisterMapEntry> make_variable_entry(int64_t*, std::function<void()>);
template std::unique_ptr<RegisterMapEntry> make_variable_entry(uint64_t*, std::function<void()>);
template std::unique_ptr<RegisterMapEntry> make_variable_entry(bool*, std::function<void()>);

std::unique_ptr<RegisterMapEntry> make_text_entry(const std::string* text) { return std::make_unique<TextRef>(text); }

std::unique_ptr<RegisterMapEntry> make_string_entry(ValueGetter<std::string> getter, ValueSetter<std::string> setter,
                                                    size_t max_length) {
    return std::make_unique<ReadWriteString>(std::move(getter), std::move(setter), max_length);
}

std::unique_ptr<RegisterMapEntry> make_string_entry(TextGetter getter, size_t max_length) {
    return std::make_unique<ReadWriteString_func>(std::move(getter), max_length);
}

std::unique_ptr<RegisterMapEntry> make_command_entry(std::function<Error()> command) {
    return std::make_unique<Command>(std::move(command));
}

void RegisterMap::add(uint64_t address, size_t length, std::unique_ptr<RegisterMapEntry> entry, bool exact) {
    entries.push_back({address, length, std::move(entry), exact});
}

const RegisterMap::Slot* RegisterMap::find(uint64_t address) const {
    const auto found = std::ranges::find_if(
        entries, [&](const Slot& slot) { return address >= slot.address && address - slot.address < slot.length; });
    return found == entries.end() ? nullptr : &*found;
}

Error RegisterMap::check(const Slot* slot, uint64_t address, size_t size) {
    if (slot == nullptr) return Error{GC_ERR_INVALID_ADDRESS};
    if (slot->exact && (address != slot->address || size != slot->length)) return Error{GC_ERR_INVALID_PARAMETER};
    return success();
}

Error RegisterMap::Read(uint64_t address, void* dst, size_t* size) const {
    const Slot* slot = find(address);
    if (Error error = check(slot, address, *size); error.failed()) return error;
    return slot->entry->Read(address - slot->address, dst, size);
}

Error RegisterMap::Write(uint64_t address, const void* src, size_t* size) const {
    const Slot* slot = find(address);
    if (Error error = check(slot, address, *size); error.failed()) return error;
    return slot->entry->Write(address - slot->address, src, size);
}

} // namespace GenTL::Producer::Util
