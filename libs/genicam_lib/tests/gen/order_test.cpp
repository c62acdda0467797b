// The order of elements that the GenApi 1.1 schema asks for, and the texts of numbers.
#include "records.h"

#include <genicam_gen/writer.h>

#include <gtest/gtest.h>

#include <algorithm>

using namespace records;

namespace {

std::string order_of(const node& record) {
    pugi::xml_document xml;
    pugi::xml_node target = xml.append_child("x");
    write_node(record, target);
    std::string order;
    std::string last;
    for (const auto& child : target.children()) {
        if (child.name() == last) continue; // repeated elements count once
        last = child.name();
        order += (order.empty() ? "" : " ") + last;
    }
    return order;
}

std::string written(const node& record) {
    pugi::xml_document xml;
    write_node(record, xml.append_child("x"));
    return serialize_to_string(xml);
}

const std::string common = "Extension ToolTip Description DisplayName Visibility DocuURL IsDeprecated EventID "
                           "pIsImplemented pIsAvailable pIsLocked pBlockPolling ImposedAccessMode pError pAlias "
                           "pCastAlias ";
const std::string reg = "Streamable Address pAddress pIndex Length AccessMode pPort Cachable PollingTime pInvalidator";

} // namespace

TEST(Order, EveryRecordFollowsTheSchema) {
    source all{1, true};
    const std::pair<node, std::string> rows[] = {
        {all.make<Boolean>(), "pInvalidator Streamable Value OnValue OffValue pSelected"},
        {all.make<Category>(), "pInvalidator pFeature"},
        {all.make<Command>(), "pInvalidator Value CommandValue PollingTime"},
        {all.make<Converter>(),
         "pInvalidator Streamable pVariable Constant Expression FormulaTo FormulaFrom pValue Unit "
         "Representation DisplayNotation DisplayPrecision Slope IsLinear"},
        {all.make<IntConverter>(), "pInvalidator Streamable pVariable Constant Expression FormulaTo FormulaFrom pValue "
                                   "Unit Representation Slope"},
        {all.make<SwissKnife>(), "pInvalidator Streamable pVariable Constant Expression Formula Unit Representation "
                                 "DisplayNotation DisplayPrecision"},
        {all.make<IntSwissKnife>(),
         "pInvalidator Streamable pVariable Constant Expression Formula Unit Representation"},
        {all.make<Enumeration>(), "pInvalidator Streamable EnumEntry Value pSelected PollingTime"},
        {all.make<Float>(), "pInvalidator Streamable Value Min Max Inc Unit Representation DisplayNotation "
                            "DisplayPrecision"},
        {all.make<Integer>(), "pInvalidator Streamable pValueCopy Value pValueCopy Min Max Inc Unit Representation "
                              "ValidValueSet pSelected"},
        {all.make<String>(), "pInvalidator Streamable Value"},
        {all.make<Port>(), "pInvalidator ChunkID CacheChunkData"},
        {all.make<Register>(), reg},
        {all.make<StringReg>(), reg},
        {all.make<IntReg>(), reg + " Sign Endianess Unit Representation pSelected"},
        {all.make<FloatReg>(), reg + " Endianess Unit Representation DisplayNotation DisplayPrecision"},
        {all.make<MaskedIntReg>(), reg + " LSB MSB Bit Sign Endianess Unit Representation pSelected"},
    };
    EXPECT_EQ(std::size(rows), std::variant_size_v<node>);
    for (const auto& [record, own] : rows) EXPECT_EQ(order_of(record), common + own);
}

TEST(Order, NumbersAndDefaultsHaveTheirForms) {
    const auto expect = [](const node& record, std::initializer_list<const char*> parts) {
        for (const char* part : parts) EXPECT_NE(written(record).find(part), std::string::npos) << part;
    };
    IntReg reg_record;
    reg_record.name = "R";
    expect(reg_record, {"<Address>0x0</Address>", "<pPort>Device</pPort>"});
    reg_record.reg.addresses = {-4, 16};
    reg_record.merge_priority = merge_priority::high;
    expect(reg_record, {"MergePriority=\"+1\"", "<Address>-4</Address>", "<Address>0x10</Address>"});
    Port port;
    port.name = "P";
    port.event_id = 0x4001;
    port.chunk_id = uint64_t{0xAB};
    expect(port, {"<EventID>4001</EventID>", "<ChunkID>AB</ChunkID>"});
    Boolean flag;
    flag.name = "B";
    flag.value = true;
    flag.streamable = true;
    expect(flag, {"<Value>1</Value>", "<Streamable>Yes</Streamable>"});
}

// Whoever asks for so much has no more memory to give; a text of exactly so much is whole.
TEST(Root, IsWrittenUpToALimit) {
    pugi::xml_document xml;
    pugi::xml_node at = xml.append_child("R");
    for (int i = 0; i < 60; ++i) at = at.append_child("Group");
    for (int i = 0; i < 10'000; ++i) at.append_child("x");
    const std::string whole = serialize_to_string(xml);
    EXPECT_GT(whole.size(), 500'000U);
    const std::string cut = serialize_to_string(xml, 10'000);
    EXPECT_GT(cut.size(), 10'000U);
    EXPECT_LT(cut.size(), 20'000U);
    EXPECT_TRUE(whole.starts_with(cut));
    EXPECT_EQ(serialize_to_string(xml, whole.size()), whole);
}

TEST(Root, CarriesCleanNamesAndOnlyWhatIsSet) {
    EXPECT_EQ(clean_name("3D Cam"), "z3D_Cam");
    EXPECT_EQ(clean_name("\xC3\xA4x"), "z__x");
    EXPECT_EQ(clean_name(""), "");
    document model;
    model.header.model_name = "3D Cam";
    model.header.product_guid = make_guid("short");
    const std::string text = serialize_to_string(write_document(model));
    EXPECT_NE(text.find("ModelName=\"z3D_Cam\""), std::string::npos);
    EXPECT_EQ(text.find("ToolTip"), std::string::npos);
    EXPECT_NE(text.find("ProductGuid=\"\""), std::string::npos);
    model.header.tool_tip = "a < b & \xFF\x01"; // a maker's name can hold anything
    pugi::xml_document back;
    const std::string odd = serialize_to_string(write_document(model));
    ASSERT_TRUE(back.load_buffer(odd.data(), odd.size()));
    EXPECT_STREQ(back.child("RegisterDescription").attribute("ToolTip").value(), "a < b & ??");
    EXPECT_EQ(document_url("TLPort", "", 0xF0000000),
              "local:TLPort_CBF29CE484222325.xml;F0000000;0?SchemaVersion=1.1.0");
}
