// Reference documents of standard features, used as templates for a module's document.
#pragma once

#include <genicam_gen/model.h>

#include <pugixml.hpp>

#include <cstddef>
#include <optional>
#include <string_view>

namespace genicam_gen {

struct reference_document {
    const char* text; // UTF-8
    std::size_t length;
};

enum class reference_id : std::size_t {
    camera_sfnc_2_6 = 0, // kept empty: nothing reads it
    camera_sfnc_1_2 = 1, // kept empty: nothing reads it
    data_stream = 2,
    device = 3,
    interface = 4,
    system = 5,
};

// The compiled-in text. Static storage.
[[nodiscard]] const reference_document& reference(reference_id id) noexcept;

// A parsed reference. A text that does not parse gives a template in which nothing is found.
class template_document {
public:
    explicit template_document(const reference_document& text);

    // The first element of the record's kind and this name in document order, groups included.
    template <class Record>
    [[nodiscard]] std::optional<Record> find(std::string_view name) const;

    // The first category that lists the feature, or an empty view. Valid while the template lives.
    [[nodiscard]] std::string_view find_category_of(std::string_view feature) const;

    // The category of this name in the model: the one there, else the reference's, else an empty one.
    Category& category_on_demand(document& model, std::string_view name) const;

private:
    pugi::xml_document xml;
    pugi::xml_node root;
};

} // namespace genicam_gen
