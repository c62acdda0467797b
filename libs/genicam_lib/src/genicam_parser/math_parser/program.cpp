// A compiled formula as a value: short ones in place, longer ones in memory of their own.
#include <math_parser/execute.h>

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
    runnable = other.runnable;
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
    runnable = std::exchange(other.runnable, 0);
    return *this;
}

bool compiled_formula_data::append(const token& next) {
    if (count == maximum_size) return false;
    if (count == capacity) {
        auto larger = std::make_unique_for_overwrite<token[]>(std::size_t{capacity} * 2);
        std::copy(begin(), end(), larger.get());
        heap = std::move(larger);
        capacity *= 2;
    }
    const uint32_t taken = next.takes();
    if (runnable == count && height >= taken) ++runnable;
    (heap ? heap.get() : local)[count++] = next;
    depth = std::max(depth, height + 1); // what takes nothing pushes before it pops a condition
    height = std::max(height, taken) - taken + 1;
    return true;
}

bool compiled_formula_data::append_constant(tValue value) {
    return append({operation::push, operands::constant, value.is_integer(), 0, value.payload()});
}

bool compiled_formula_data::append_variable(uint64_t id) {
    return append({operation::push, operands::variable, false, 0, static_cast<int64_t>(id)});
}

bool compiled_formula_data::ends_with_load(operands from) const noexcept {
    return count != 0 && data()[count - 1].what == operation::push && data()[count - 1].from == from;
}

compiled_formula_data::token compiled_formula_data::drop_last() noexcept {
    --height;
    --runnable;
    return data()[--count];
}

// The last two loads become operands. Functions of a constant are computed now. Where values are lacking, all stays as
// it is: the loads must be seen to happen before the failure.
bool compiled_formula_data::append_operation(operation what) {
    const bool is_one = is_unary(what);
    token next{what, is_one ? operands::top : operands::top_two, false, 0, 0};
    if (runnable != count || height < next.takes()) return append(next);
    if (ends_with_load(operands::constant)) {
        const token right = drop_last();
        if (is_one) return append_constant(detail::apply_unary(what, right.constant()));
        next.from = operands::top_constant;
        next.is_integer = right.is_integer;
        next.payload = right.payload;
    } else if (ends_with_load(operands::variable)) {
        next.from = is_one ? operands::variable : operands::top_variable;
        next.payload = drop_last().payload;
    }
    if (!is_one && next.from != operands::top_two && ends_with_load(operands::variable) &&
        std::in_range<int32_t>(data()[count - 1].payload)) {
        next.from = next.from == operands::top_constant ? operands::variable_constant : operands::variable_variable;
        next.left_variable = static_cast<int32_t>(drop_last().payload);
    }
    return append(next);
}

} // namespace math_parser
