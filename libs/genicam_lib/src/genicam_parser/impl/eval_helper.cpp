#include "eval_helper.h"

#include "eval_scope.h"
#include "log.h"

#include <GenICam/value_nodes.h>

#include <type_traits>

namespace GenICam::impl {

using math_parser::tValue;

namespace {

template <class T>
T converted(tValue value) noexcept {
    if constexpr (std::is_same_v<T, tValue>) {
        return value;
    } else if constexpr (std::is_same_v<T, bool>) {
        return value.to_bool();
    } else if constexpr (std::is_same_v<T, int64_t>) {
        return value.to_integer();
    } else {
        return value.to_double();
    }
}

template <class T, class From>
result<T> converted(const result<From>& value) noexcept {
    if (!value) return fail(value.error());
    if constexpr (std::is_same_v<T, From>) {
        return *value;
    } else if constexpr (std::is_same_v<From, bool>) {
        return converted<T>(tValue{int64_t{*value}});
    } else {
        return converted<T>(tValue{*value});
    }
}

template <class T>
int64_t for_integer_node(T value) noexcept {
    if constexpr (std::is_same_v<T, double>) {
        return math_parser::truncate_to_integer(value);
    } else if constexpr (std::is_same_v<T, tValue>) {
        return value.to_integer();
    } else {
        return value;
    }
}

template <class T>
tValue as_value(T value) noexcept {
    if constexpr (std::is_same_v<T, bool>) {
        return tValue{int64_t{value}};
    } else {
        return tValue{value};
    }
}

} // namespace

template <class T>
result<T> get_eval_val(INode& node, unsigned flags) {
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return converted<T>(static_cast<IInteger&>(node).get_val(flags));
    case NodeType_t::Float:
        return converted<T>(static_cast<IFloat&>(node).get_val(flags));
    case NodeType_t::Boolean:
        return converted<T>(static_cast<IBoolean&>(node).get_val(flags));
    case NodeType_t::Enumeration:
        return converted<T>(static_cast<IEnumeration&>(node).get_val(flags));
    default:
        break;
    }
    log(level_fault, "{}, Get value on a ({}) node_type seems to be futile ...", "GenICam::impl::get_eval_val",
        static_cast<int>(node.node_type()));
    return fail(genicam_errc::not_implemented);
}

template <class T>
std::error_code set_eval_val(INode& node, T value, unsigned flags) {
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return static_cast<IInteger&>(node).set_val(for_integer_node(value), flags);
    case NodeType_t::Float:
        return static_cast<IFloat&>(node).set_val(as_value(value).to_double(), flags);
    case NodeType_t::Boolean:
        return static_cast<IBoolean&>(node).set_val(as_value(value).to_bool(), flags);
    case NodeType_t::Enumeration: {
        auto& enumeration = static_cast<IEnumeration&>(node);
        const tValue wanted = as_value(value);
        constexpr std::size_t entries_in_a_step = 16; // compared in the time of one
        if (!eval_scope::take(enumeration.get_entries().size() / entries_in_a_step))
            return genicam_errc::invalid_document;
        IEnumEntry* entry = wanted.is_integer() ? enumeration.find_entry_by_value(wanted.to_integer())
                                                : enumeration.find_nearest_entry(wanted.to_double());
        return enumeration.set_selected_entry(entry, flags);
    }
    default:
        break;
    }
    log(level_fault, "{}, Set value on a ({}) node_type seems to be futile ...", "GenICam::impl::set_eval_val",
        static_cast<int>(node.node_type()));
    return genicam_errc::not_implemented;
}

template <class T>
result<T> get_eval_limit(INode& node, limit which, unsigned flags) {
    const auto read = [&](const auto& number) {
        switch (which) {
        case limit::min:
            return converted<T>(number.get_min(flags));
        case limit::max:
            return converted<T>(number.get_max(flags));
        case limit::inc:
            break;
        }
        return converted<T>(number.get_inc(flags));
    };
    switch (node.node_type()) {
    case NodeType_t::Integer:
        return read(static_cast<const IInteger&>(node));
    case NodeType_t::Float:
        return read(static_cast<const IFloat&>(node));
    default:
        return fail(genicam_errc::not_implemented);
    }
}

template result<int64_t> get_eval_val(INode&, unsigned);
template result<double> get_eval_val(INode&, unsigned);
template result<bool> get_eval_val(INode&, unsigned);
template result<tValue> get_eval_val(INode&, unsigned);
template std::error_code set_eval_val(INode&, int64_t, unsigned);
template std::error_code set_eval_val(INode&, double, unsigned);
template std::error_code set_eval_val(INode&, bool, unsigned);
template std::error_code set_eval_val(INode&, tValue, unsigned);
template result<int64_t> get_eval_limit(INode&, limit, unsigned);
template result<double> get_eval_limit(INode&, limit, unsigned);
template result<tValue> get_eval_limit(INode&, limit, unsigned);

} // namespace GenICam::impl
