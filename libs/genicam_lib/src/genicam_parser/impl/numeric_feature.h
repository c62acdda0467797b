// What integer and float features share: limits, value sets, the check of a value before it is written, display data.
//
// A property is the node's own if the document gives one, else that of the node the value comes from (its "pValue"
// target, or the entry for the current index), else the standard value of its type.
#pragma once

#include "implement_inode.h"
#include "node_or_value.h"
#include "valid_value_set.h"
#include "xml_readers.h"

#include <GenICam/value_nodes.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace GenICam::impl {

// How far beyond a limit a float may be: values that went through a converter and back miss theirs by a rounding error.
inline constexpr double limit_tolerance = 1e-5;

// Values copied or compared, of a list, take less than a step.
inline constexpr std::size_t values_in_a_step = 16;

template <class T>
using number_interface = std::conditional_t<std::is_integral_v<T>, IInteger, IFloat>;

// Logs a refused value and gives the error back.
template <class T>
[[nodiscard]] std::error_code refused_value(std::string_view node, T value, std::error_code error);

// By the order value set, range, increment. A set or limit that there is and that cannot be read refuses the value with
// its error: what is out of range must not reach the device for a lost answer.
template <class T>
[[nodiscard]] std::error_code check_value(const number_interface<T>& node, T value, unsigned flags);

// Whether the error of a limit or set says that there is none: the node has none, or the camera does not implement it.
[[nodiscard]] bool is_absent(const std::error_code& error) noexcept;

// The target's set of values as T. not_implemented for anything but a number.
template <class T>
[[nodiscard]] result<std::vector<T>> valid_values_of(INode& node, unsigned flags);
[[nodiscard]] IncMode_t inc_mode_of(INode& node);
[[nodiscard]] std::string_view unit_of(INode& node);
[[nodiscard]] IntRepresentation_t int_representation_of(INode& node);
[[nodiscard]] FloatRepresentation_t float_representation_of(INode& node);
[[nodiscard]] DisplayNotation_t display_notation_of(INode& node);
[[nodiscard]] int64_t display_precision_of(INode& node);

template <class Base, class T>
class numeric_feature_common : public implement_inode<Base, number_interface<T>> {
    using base = implement_inode<Base, number_interface<T>>;

public:
    using base::base;

    [[nodiscard]] result<T> get_min(unsigned flags) const override {
        return get_limit(min, limit::min, std::numeric_limits<T>::lowest(), flags);
    }
    [[nodiscard]] result<T> get_max(unsigned flags) const override {
        return get_limit(max, limit::max, std::numeric_limits<T>::max(), flags);
    }
    [[nodiscard]] result<T> get_inc(unsigned flags) const override {
        const eval_scope steps;
        if (!steps) return eval_scope::error();
        if (!inc.is_absent()) return inc.get(flags);
        const auto from = value_source(flags);
        if (!from) return fail(from.error());
        if (*from != nullptr) return get_eval_limit<T>(**from, limit::inc, flags);
        if constexpr (std::is_integral_v<T>) {
            return 1;
        } else {
            return fail(genicam_errc::not_implemented);
        }
    }
    [[nodiscard]] std::string_view get_unit() const final {
        if (const pugi::xml_node own = this->child("Unit")) return own.child_value();
        const eval_scope steps;
        INode* from = display_source(steps);
        return from != nullptr ? unit_of(*from) : std::string_view{};
    }
    [[nodiscard]] IncMode_t get_inc_mode() const final {
        if (!value_set.values().empty()) return IncMode_t::List;
        const eval_scope steps;
        INode* from = display_source(steps);
        return from != nullptr ? inc_mode_of(*from) : IncMode_t::None;
    }
    [[nodiscard]] result<std::vector<T>> get_valid_value_set(unsigned flags) const final {
        const eval_scope steps;
        if (!steps) return eval_scope::error();
        std::vector<T> values;
        if (value_set.is_present()) {
            if (value_set.values().empty()) return fail(genicam_errc::not_implemented);
            if (!eval_scope::take(value_set.values().size() / values_in_a_step)) return eval_scope::error();
            values.assign(value_set.values().begin(), value_set.values().end());
        } else {
            const auto from = value_source(flags);
            if (!from) return fail(from.error());
            if (*from == nullptr) return fail(genicam_errc::not_implemented);
            auto theirs = valid_values_of<T>(**from, flags);
            if (!theirs) return theirs;
            if (!eval_scope::take(theirs->size() / values_in_a_step)) return eval_scope::error();
            values = std::move(*theirs);
        }
        const auto lowest = this->get_min(flags);
        if (!lowest) return fail(lowest.error());
        const auto highest = this->get_max(flags);
        if (!highest) return fail(highest.error());
        std::erase_if(values, [&](T value) { return value < *lowest || value > *highest; });
        return values;
    }

protected:
    using access_scope = node_base_data::access_scope;

    // The node the value comes from; null when this node holds it. An error when that cannot be told now: its limits
    // are not known then, which is not to have none.
    [[nodiscard]] virtual result<INode*> value_source(unsigned) const { return nullptr; }
    // The one to ask for what is only shown, for which no error counts.
    [[nodiscard]] INode* display_source(const eval_scope& steps) const {
        return steps ? value_source(0).value_or(nullptr) : nullptr;
    }

    void resolve_limits(const element_view& view) {
        min.resolve(*this, view, tag::Min, tag::pMin);
        max.resolve(*this, view, tag::Max, tag::pMax);
        inc.resolve(*this, view, tag::Inc, tag::pInc);
        value_set.resolve(*this, view);
        if constexpr (std::is_integral_v<T>) this->resolve_selected(view);
    }

    [[nodiscard]] result<T> get_limit(const node_or_const_value<T>& own, limit which, T extreme, unsigned flags) const {
        const eval_scope steps;
        if (!steps) return eval_scope::error();
        if (!own.is_absent()) return own.get(flags);
        const auto from = value_source(flags);
        if (!from) return fail(from.error());
        if (*from != nullptr) return get_eval_limit<T>(**from, which, flags);
        return extreme;
    }

    node_or_const_value<T> min;
    node_or_const_value<T> max;
    node_or_const_value<T> inc;
    valid_value_set_node value_set;
};

template <class Base>
class integer_feature : public numeric_feature_common<Base, int64_t> {
public:
    using numeric_feature_common<Base, int64_t>::numeric_feature_common;

    [[nodiscard]] IntRepresentation_t get_representation() const final {
        if (const pugi::xml_node own = this->child("Representation"))
            return get_element_IntRepresentation(own, this->name);
        const eval_scope steps;
        INode* from = this->display_source(steps);
        return from != nullptr ? int_representation_of(*from) : IntRepresentation_t::PureNumber;
    }
    [[nodiscard]] std::span<INode* const> get_selected() const noexcept final { return this->selected; }
};

template <class Base>
class float_feature : public numeric_feature_common<Base, double> {
public:
    using numeric_feature_common<Base, double>::numeric_feature_common;

    [[nodiscard]] FloatRepresentation_t get_representation() const final {
        if (const pugi::xml_node own = this->child("Representation"))
            return get_element_FloatRepresentation(own, this->name);
        const eval_scope steps;
        INode* from = this->display_source(steps);
        return from != nullptr ? float_representation_of(*from) : FloatRepresentation_t::PureNumber;
    }
    [[nodiscard]] DisplayNotation_t get_display_notation() const final {
        if (const pugi::xml_node own = this->child("DisplayNotation"))
            return get_element_DisplayNotation(own, this->name);
        const eval_scope steps;
        INode* from = this->display_source(steps);
        return from != nullptr ? display_notation_of(*from) : DisplayNotation_t::Automatic;
    }
    [[nodiscard]] int64_t get_display_precision() const final {
        if (const pugi::xml_node own = this->child("DisplayPrecision"))
            return get_element_DisplayPrecision(own, this->name);
        const eval_scope steps;
        INode* from = this->display_source(steps);
        return from != nullptr ? display_precision_of(*from) : get_element_DisplayPrecision({}, this->name);
    }
};

template <class Base, class T>
using numeric_feature = std::conditional_t<std::is_integral_v<T>, integer_feature<Base>, float_feature<Base>>;

} // namespace GenICam::impl
