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
    balanced = other.balanced;
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
    balanced = std::exchange(other.balanced, true);
    return *this;
}

bool compiled_formula_data::append(const token& next) {
    if (next.what == kind::binary && count != 0) {
        token& last = (heap ? heap.get() : local)[count - 1];
        if (last.what <= kind::variable) {
            --height;
            last.what = last.what == kind::integer ? kind::binary_integer
                        : last.what == kind::real  ? kind::binary_real
                                                   : kind::binary_variable;
            last.operation = next.operation;
            count_stack(last);
            return true;
        }
    }
    if (count == maximum_size) return false;
    if (count == capacity) {
        auto larger = std::make_unique_for_overwrite<token[]>(capacity * 2);
        std::copy(begin(), end(), larger.get());
        heap = std::move(larger);
        capacity *= 2;
    }
    (heap ? heap.get() : local)[count++] = next;
    count_stack(next);
    return true;
}

void compiled_formula_data::count_stack(const token& next) noexcept {
    const auto take = [this](uint32_t values, uint32_t results) {
        if (height < values) balanced = false;
        height = std::max(height, values) - values + results;
    };
    switch (next.what) {
    case kind::integer:
    case kind::real:
    case kind::variable:
        take(0, 1);
        break;
    case kind::unary:
    case kind::binary_integer:
    case kind::binary_real:
    case kind::binary_variable:
        take(1, 1);
        break;
    case kind::binary:
        take(2, 1);
        break;
    case kind::conditional:
        take(3, 1);
        break;
    }
    depth = std::max(depth, height);
}

} // namespace math_parser
