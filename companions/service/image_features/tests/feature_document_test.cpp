// Documents that would make the merged one a burden for the service, or one that nobody takes: they are served as they
// are.
#include "../feature_document.h"

#include <gtest/gtest.h>

#include <string>

using namespace image_features;

namespace {

// With this among its nodes.
std::string document_with(const std::string& more) {
    return "<RegisterDescription><Category Name=\"Root\"><pFeature>A</pFeature></Category><Port Name=\"Device\"/>" +
           more + "</RegisterDescription>";
}

std::string nested(int levels) {
    std::string text;
    for (int i = 0; i < levels; ++i) text += "<Group>";
    for (int i = 0; i < levels; ++i) text += "</Group>";
    return text;
}

} // namespace

// Each level is a tab on each line of the levels below.
TEST(FeatureDocument, WhatIsNestedDeeplyIsServedAsItIs) {
    const auto sound = merge_features(document_with(nested(20)), {});
    ASSERT_TRUE(sound.text) << sound.reason;
    EXPECT_NE(sound.text->find("SoftwareImageProcessing"), std::string::npos);
    const auto hostile = merge_features(document_with(nested(20'000)), {});
    EXPECT_FALSE(hostile.text);
    EXPECT_EQ(hostile.reason, "it is nested too deeply");
}

TEST(FeatureDocument, WhatWouldBecomeTooLargeIsServedAsItIs) {
    const std::string without = document_with("<!---->");
    const std::string largest = document_with("<!--" + std::string(most_document_bytes - without.size(), 'x') + "-->");
    ASSERT_EQ(largest.size(), most_document_bytes);
    const auto merged = merge_features(largest, {});
    EXPECT_FALSE(merged.text);
    EXPECT_EQ(merged.reason, "it is too large with them");
}
