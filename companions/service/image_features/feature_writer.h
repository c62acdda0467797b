// Builds feature nodes over software registers. Registers are never cached: reading one costs no camera access, and
// other clients and the automatic functions change them.
#pragma once

#include "registers.h"

#include <genicam_gen/model.h>

#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

namespace image_features {

struct feature_text {
    std::string_view name;
    std::string_view display_name;
    std::string_view tool_tip;
    std::string_view unit{};
    genicam_gen::visibility visibility = genicam_gen::visibility::beginner;
};

class feature_writer final {
public:
    using name_test = std::function<bool(std::string_view)>;
    // `taken`: whether the camera uses a name. `streamable`: whether it marks features that are to be saved.
    feature_writer(name_test taken, bool streamable) : is_taken(std::move(taken)), marks_streamable(streamable) {}

    // Features that follow belong to it. A category without any is left out.
    void begin_category(const feature_text& text);
    // Each says whether it was added. Limits, type and access come from the register.
    bool flag(const feature_text& text, std::size_t offset);
    bool number(const feature_text& text, std::size_t offset, bool writable = true);
    bool choice(const feature_text& text, std::size_t offset, std::initializer_list<std::string_view> entries);
    bool command(const feature_text& text, std::size_t offset);
    // A selector that lives in the document, and what it selects: registers `distance` bytes apart, the first of each
    // value at its offset.
    struct selected_value {
        feature_text text;
        std::size_t offset;
    };
    bool selected(const feature_text& selector, std::initializer_list<std::string_view> entries,
                  std::initializer_list<selected_value> values, std::size_t distance, bool writable);

    // With the categories, the features of which stand below `root`. Empty when no feature was added.
    [[nodiscard]] genicam_gen::document finish(const feature_text& root);

private:
    [[nodiscard]] bool usable(std::string_view name) const { return !is_taken(name) && model.find(name) == nullptr; }
    std::string register_of(std::size_t offset, std::string_view selector = {}, std::size_t distance = 0);
    template <class Record>
    Record described(const feature_text& text) const;
    void listed(std::string_view name) { categories.back().p_features.emplace_back(name); }

    const name_test is_taken;
    const bool marks_streamable;
    mutable genicam_gen::document model;
    std::vector<genicam_gen::Category> categories;
};

} // namespace image_features
