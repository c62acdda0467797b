#include "numeric_feature.h"

#include "log.h"

namespace GenICam::impl {

template <class T>
std::error_code refused_value(std::string_view node, T value, std::error_code error) {
    if (sink_for(level_notice) != nullptr)
        log(level_notice, "{}. Failed range check for parameter value={}. Err: {}.", node, value, error.message());
    return error;
}

bool is_absent(const std::error_code& error) noexcept {
    return error == genicam_errc::not_implemented || error == genicam_errc::node_not_implemented;
}

namespace {

template <class T>
std::error_code check_range(const number_interface<T>& node, T value, const result<T>& lowest, const result<T>& highest,
                            T tolerance) {
    for (const result<T>* limit : {&lowest, &highest}) {
        if (!*limit && !is_absent(limit->error())) return refused_value(node.get_name(), value, limit->error());
    }
    bool outside = false;
    if constexpr (std::is_integral_v<T>) {
        outside = (lowest && value < *lowest) || (highest && value > *highest);
    } else {
        outside = (lowest && *lowest - value >= tolerance) || (highest && value - *highest >= tolerance);
    }
    return outside ? refused_value<T>(node.get_name(), value, genicam_errc::value_out_of_range) : std::error_code{};
}

} // namespace

template <>
std::error_code check_value<int64_t>(const IInteger& node, int64_t value, unsigned flags) {
    if (flags & access_flags::no_range_check) return {};
    const auto set = node.get_valid_value_set(flags);
    if (!set && !is_absent(set.error())) return refused_value(node.get_name(), value, set.error());
    if (set && std::ranges::find(*set, value) == set->end())
        return refused_value(node.get_name(), value, genicam_errc::not_in_value_set);
    const auto lowest = node.get_min(flags);
    if (const auto error = check_range<int64_t>(node, value, lowest, node.get_max(flags), 0)) return error;
    if (const auto inc = node.get_inc(flags); inc && *inc != 0) {
        // Counted from the minimum, as cameras count: a region from 15 in steps of 2 holds 15 and not 16. The type's
        // extreme is no minimum.
        const int64_t from = lowest && *lowest != std::numeric_limits<int64_t>::min() ? *lowest : 0;
        // Unsigned, where neither |-2^63| nor a distance beyond 2^63 is special.
        const auto magnitude = [](int64_t a, int64_t b) {
            return a < b ? static_cast<uint64_t>(b) - static_cast<uint64_t>(a)
                         : static_cast<uint64_t>(a) - static_cast<uint64_t>(b);
        };
        if (magnitude(value, from) % magnitude(*inc, 0) != 0)
            return refused_value(node.get_name(), value, genicam_errc::not_on_increment);
    }
    return {};
}

template <>
std::error_code check_value<double>(const IFloat& node, double value, unsigned flags) {
    if (flags & access_flags::no_range_check) return {};
    // Compares with no limit, and is 0 for an integer that is to hold it.
    if (std::isnan(value)) return refused_value(node.get_name(), value, genicam_errc::value_out_of_range);
    return check_range<double>(node, value, node.get_min(flags), node.get_max(flags), limit_tolerance);
}

template <class T>
result<std::vector<T>> valid_values_of(INode& node, unsigned flags) {
    const auto converted = [](const auto& values) -> result<std::vector<T>> {
        if (!values) return fail(values.error());
        if constexpr (std::is_same_v<decltype(*values), const std::vector<T>&>) {
            return *values;
        } else {
            std::vector<T> out;
            out.reserve(values->size());
            for (const auto value : *values) {
                if constexpr (std::is_integral_v<T>) {
                    out.push_back(math_parser::round_to_integer(value));
                } else {
                    out.push_back(static_cast<T>(value));
                }
            }
            return out;
        }
    };
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return converted(static_cast<IInteger&>(node).get_valid_value_set(flags));
    case NodeType_t::Float:
        return converted(static_cast<IFloat&>(node).get_valid_value_set(flags));
    default:
        return fail(genicam_errc::not_implemented);
    }
}

IncMode_t inc_mode_of(INode& node) {
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return static_cast<IInteger&>(node).get_inc_mode();
    case NodeType_t::Float:
        return static_cast<IFloat&>(node).get_inc_mode();
    default:
        return IncMode_t::None;
    }
}

std::string_view unit_of(INode& node) {
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return static_cast<IInteger&>(node).get_unit();
    case NodeType_t::Float:
        return static_cast<IFloat&>(node).get_unit();
    case NodeType_t::Enumeration:
        return static_cast<IEnumeration&>(node).get_unit();
    default:
        return {};
    }
}

IntRepresentation_t int_representation_of(INode& node) {
    if (const auto* integer = node_cast<IInteger>(&node)) return integer->get_representation();
    if (const auto* real = node_cast<IFloat>(&node)) {
        switch (real->get_representation()) {
        case FloatRepresentation_t::Linear:
            return IntRepresentation_t::Linear;
        case FloatRepresentation_t::Logarithmic:
            return IntRepresentation_t::Logarithmic;
        case FloatRepresentation_t::PureNumber:
            break;
        }
    }
    return IntRepresentation_t::PureNumber;
}

FloatRepresentation_t float_representation_of(INode& node) {
    if (const auto* real = node_cast<IFloat>(&node)) return real->get_representation();
    if (const auto* integer = node_cast<IInteger>(&node)) {
        switch (integer->get_representation()) {
        case IntRepresentation_t::Linear:
            return FloatRepresentation_t::Linear;
        case IntRepresentation_t::Logarithmic:
            return FloatRepresentation_t::Logarithmic;
        default:
            break;
        }
    }
    return FloatRepresentation_t::PureNumber;
}

DisplayNotation_t display_notation_of(INode& node) {
    const auto* real = node_cast<IFloat>(&node);
    return real != nullptr ? real->get_display_notation() : DisplayNotation_t::Automatic;
}

int64_t display_precision_of(INode& node) {
    const auto* real = node_cast<IFloat>(&node);
    return real != nullptr ? real->get_display_precision() : get_element_DisplayPrecision({}, node.get_name());
}

template std::error_code refused_value(std::string_view, int64_t, std::error_code);
template std::error_code refused_value(std::string_view, double, std::error_code);
template result<std::vector<int64_t>> valid_values_of(INode&, unsigned);
template result<std::vector<double>> valid_values_of(INode&, unsigned);

} // namespace GenICam::impl
