// Properties that a document gives either as a constant or as a link to a node.
#pragma once

#include "eval_helper.h"
#include "node_base.h"

namespace GenICam::impl {

struct link_or_value {
    INode* node = nullptr; // null: the value counts
    math_parser::tValue value;
};

// The link wins over the value. Nothing when neither is there, or the one that counts is bad.
[[nodiscard]] std::optional<link_or_value> resolve_link_or_value_from_contents(const node_base_data& owner,
                                                                               pugi::xml_node value_element,
                                                                               pugi::xml_node link_element);

template <class T>
class node_or_const_value {
public:
    enum class mode_t : uint8_t { absent = 0, link = 1, constant = 2 };

    // Reads the two children and makes a link a source of the owner.
    void resolve(node_base_data& owner, const element_view& view, tag value_tag, tag link_tag) {
        const auto found = resolve_link_or_value_from_contents(owner, view[value_tag], view[link_tag]);
        if (!found) return;
        if (found->node != nullptr) {
            mode = mode_t::link;
            content.node = found->node;
            owner.add_source(found->node);
        } else {
            set(std::is_integral_v<T> ? static_cast<T>(found->value.to_integer())
                                      : static_cast<T>(found->value.to_double()));
        }
    }
    void set(T constant) noexcept {
        mode = mode_t::constant;
        content.value = constant;
    }

    [[nodiscard]] bool is_absent() const noexcept { return mode == mode_t::absent; }
    // not_implemented when absent.
    [[nodiscard]] result<T> get(unsigned flags) const {
        if (mode == mode_t::constant) return content.value;
        if (mode == mode_t::absent) return fail(genicam_errc::not_implemented);
        if constexpr (std::is_same_v<T, uint64_t>) {
            const auto value = get_eval_val<int64_t>(*content.node, flags);
            if (!value) return fail(value.error());
            return static_cast<uint64_t>(*value);
        } else {
            return get_eval_val<T>(*content.node, flags);
        }
    }

private:
    union {
        INode* node;
        T value;
    } content{};
    mode_t mode = mode_t::absent;
};

} // namespace GenICam::impl
