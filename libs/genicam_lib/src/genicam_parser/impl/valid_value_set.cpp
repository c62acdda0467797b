#include "valid_value_set.h"

#include "log.h"
#include "text_values.h"

#include <algorithm>

namespace GenICam::impl {

void valid_value_set_node::resolve(const node_base_data& owner, const element_view& view) {
    const pugi::xml_node element = view[tag::ValidValueSet];
    if (!element) return;
    present = true;
    const std::string_view text = text_of(element);
    std::vector<int64_t> found;
    constexpr std::size_t most_told = 65536; // bytes: each message holds the whole text
    std::size_t told = 0, not_told = 0;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::size_t end = std::min(rest.find(';'), rest.size());
        const std::string_view item = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        if (const auto value = parse_integer(item)) {
            found.push_back(*value);
        } else if (told += text.size(); told > most_told) {
            ++not_told;
        } else {
            log(level_fault, "ValidValueSet, node='{}'. Failed to parse integer in '{}' of ValidValueSet: '{}'.",
                owner.get_node_name(), item, text);
        }
    }
    if (not_told != 0)
        log(level_fault, "ValidValueSet, node='{}'. Failed to parse {} more items.", owner.get_node_name(), not_told);
    if (found.empty()) {
        log(level_fault, "ValidValueSet, node='{}'. Failed to parse ValidValueSet '{}'.", owner.get_node_name(), text);
        return;
    }
    std::ranges::sort(found);
    auto* kept = static_cast<int64_t*>(
        owner.document().memory_resource().allocate(found.size() * sizeof(int64_t), alignof(int64_t)));
    std::ranges::copy(found, kept);
    sorted = {kept, found.size()};
}

} // namespace GenICam::impl
