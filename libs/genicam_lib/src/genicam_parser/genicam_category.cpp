#include "genicam_category.h"

#include "impl/log.h"

#include <unordered_set>

namespace GenICam::impl {

void category_type::do_resolve_references(document_services& services_, const element_view& view) {
    view.for_each(tag::pFeature, [&](pugi::xml_node element) {
        INode* feature = services_.find_node(text_of(element));
        if (feature == nullptr) {
            log(level_notice, "{}. Failed to resolve 'pFeature' name: {}.", name, text_of(element));
            return;
        }
        features.push_back(feature, services_.memory_resource());
    });
}

std::vector<INode*> category_type::get_all_features() const {
    std::vector<INode*> all;
    // Categories may contain each other; each is entered once.
    std::unordered_set<const INode*> seen{this};
    struct level {
        std::span<INode* const> features;
        std::size_t next;
    };
    std::vector<level> stack{{get_features(), 0}};
    while (!stack.empty()) {
        level& current = stack.back();
        if (current.next == current.features.size()) {
            stack.pop_back();
            continue;
        }
        INode* feature = current.features[current.next++];
        if (!seen.insert(feature).second) continue;
        if (const auto* category = node_cast<ICategory>(feature)) {
            stack.push_back({category->get_features(), 0});
        } else {
            all.push_back(feature);
        }
    }
    return all;
}

} // namespace GenICam::impl
