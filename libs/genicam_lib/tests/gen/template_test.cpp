#include <genicam_gen/template_document.h>

#include <gtest/gtest.h>

using namespace genicam_gen;

namespace {

constexpr char text[] = R"(<RegisterDescription>
  <Category Name="First"><pFeature>Both</pFeature></Category>
  <Category Name="Second"><pFeature>Both</pFeature><pFeature>Inner</pFeature></Category>
  <Group Comment="g"><Integer Name="Inner"><Unit>ms</Unit><Nonsense>1</Nonsense></Integer></Group>
</RegisterDescription>)";

} // namespace

TEST(Template, LooksIntoGroupsAndTakesTheFirstCategory) {
    const template_document sut{{text, sizeof text - 1}};
    const auto inner = sut.find<Integer>("Inner");
    ASSERT_TRUE(inner);
    EXPECT_EQ(inner->unit, "ms");
    EXPECT_FALSE(sut.find<Float>("Inner")) << "another kind";
    EXPECT_EQ(sut.find_category_of("Both"), "First");
    EXPECT_EQ(sut.find_category_of("Inner"), "Second");
    EXPECT_EQ(sut.find_category_of("Nobody"), "");
    document model;
    EXPECT_EQ(sut.category_on_demand(model, "Second").p_features.size(), 2U);
    EXPECT_TRUE(sut.category_on_demand(model, "New").p_features.empty());
    EXPECT_EQ(model.nodes().size(), 2U);
}

TEST(Template, ABrokenTextHoldsNothing) {
    const template_document sut{{"<RegisterDescription", 20}};
    EXPECT_FALSE(sut.find<Integer>("Inner"));
    EXPECT_FALSE(template_document{reference(reference_id::camera_sfnc_2_6)}.find<Category>("Root"));
}

TEST(Template, TheFourModulesHaveTheirStandardFeatures) {
    EXPECT_TRUE(template_document{reference(reference_id::system)}.find<String>("TLVendorName"));
    EXPECT_TRUE(template_document{reference(reference_id::interface)}.find<Integer>("DeviceSelector"));
    const auto status = template_document{reference(reference_id::device)}.find<Enumeration>("DeviceAccessStatus");
    ASSERT_TRUE(status);
    EXPECT_EQ(status->entries.size(), 7U);
    EXPECT_EQ(status->entries[4].value, 4);
    EXPECT_EQ(template_document{reference(reference_id::data_stream)}.find_category_of("PayloadSize"),
              "BufferHandlingControl");
}
