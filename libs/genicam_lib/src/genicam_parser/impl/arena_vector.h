// A vector of pointers and plain records for the arena of a document: the first few elements stand in place, more are
// moved to the arena. What it outgrows is freed with the document.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <span>
#include <type_traits>

namespace GenICam::impl {

template <class T, uint32_t inline_capacity>
class arena_vector {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    arena_vector() noexcept = default;
    arena_vector(const arena_vector&) = delete;
    arena_vector& operator=(const arena_vector&) = delete;

    void push_back(const T& value, std::pmr::memory_resource& memory) {
        if (count == capacity) grow(memory);
        items[count++] = value;
    }

    template <class Predicate>
    void erase_if(Predicate is_unwanted) {
        count = static_cast<uint32_t>(std::remove_if(items, items + count, is_unwanted) - items);
    }

    [[nodiscard]] std::span<T> view() noexcept { return {items, count}; }
    [[nodiscard]] std::span<const T> view() const noexcept { return {items, count}; }
    [[nodiscard]] bool empty() const noexcept { return count == 0; }
    [[nodiscard]] uint32_t size() const noexcept { return count; }

private:
    void grow(std::pmr::memory_resource& memory) {
        const uint32_t wider = capacity < 4 ? 4 : capacity * 2;
        T* const moved = std::pmr::polymorphic_allocator<T>{&memory}.allocate(wider);
        std::uninitialized_copy_n(items, count, moved);
        items = moved;
        capacity = wider;
    }

    T local[inline_capacity];
    T* items = local;
    uint32_t count = 0;
    uint32_t capacity = inline_capacity;
};

} // namespace GenICam::impl
