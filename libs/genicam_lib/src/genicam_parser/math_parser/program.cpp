#include <math_parser/math_parser.h>

#include <algorithm>
#include <utility>

namespace math_parser {

compiled_formula_data::compiled_formula_data() noexcept = default;

compiled_formula_data::compiled_formula_data(const compiled_formula_data& other) { *this = other; }

compiled_formula_data::compiled_formula_data(compiled_formula_data&& other) noexcept { *this = std::move(other); }

compiled_formula_data& compiled_formula_data::operator=(const compiled_formula_data& other) {
    if (this == &other) return *this;
    heap.reset();
    capacity = inline_capacity;
    if (other.count > inline_capacity) {
        heap = std::make_unique_for_overwrite<token[]>(other.count);
        capacity = other.count;
    }
    count = other.count;
    height = other.height;
    depth = other.depth;
    std::copy(other.begin(), other.end(), heap ? heap.get() : local);
    return *this;
}

compiled_formula_data& compiled_formula_data::operator=(compiled_formula_data&& other) noexcept {
    if (this == &other) return *this;
    if (!other.heap) std::copy(other.begin(), other.end(), local);
    heap = std::move(other.heap);
    count = std::exchange(other.count, 0);
    capacity = std::exchange(other.capacity, inline_capacity);
    height = std::exchange(other.height, 0);
    depth = std::exchange(other.depth, 0);
    return *this;
}

bool compiled_formula_data::append(const token& next) {
    if (count == maximum_size) return false;
    if (count == capacity) {
        auto larger = std::make_unique_for_overwrite<token[]>(capacity * 2);
        std::copy(begin(), end(), larger.get());
        heap = std::move(larger);
        capacity *= 2;
    }
    (heap ? heap.get() : local)[count++] = next;
    switch (next.what) {
    case kind::integer:
    case kind::real:
    case kind::variable:
        ++height;
        break;
    case kind::unary:
        break;
    // Taking more than there is fails in the run, at that very token.
    case kind::binary:
        height = std::max(height, 2u) - 1;
        break;
    case kind::conditional:
        height = std::max(height, 3u) - 2;
        break;
    }
    depth = std::max(depth, height);
    return true;
}

} // namespace math_parser
