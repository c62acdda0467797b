// From XML to nodes: which element becomes what, what is found by name, what a faulty document leaves behind.
#include "support.h"

#include "genicam_boolean.h"
#include "genicam_category.h"
#include "genicam_command.h"
#include "genicam_converter.h"
#include "genicam_enumeration.h"
#include "genicam_float.h"
#include "genicam_float_reg.h"
#include "genicam_int_reg.h"
#include "genicam_integer.h"
#include "genicam_masked_int_reg.h"
#include "genicam_port.h"
#include "genicam_register.h"
#include "genicam_string.h"
#include "genicam_stringreg.h"
#include "genicam_swissknife.h"
#include "impl/element_view.h"

#include <pugixml.hpp>

namespace GenICam::testing {
namespace {

struct class_case {
    const char* name;
    const char* element;
    const char* children;
    bool (*is_expected)(IEval*);
};

template <class T>
bool is(IEval* eval) {
    return dynamic_cast<T*>(eval) != nullptr;
}

constexpr const char* register_head = "<Address>0</Address><Length>4</Length>";

const class_case class_cases[] = {
    {"IntConverter", "IntConverter", "", is<impl::int_converter_type>},
    {"IntSwissKnife", "IntSwissKnife", "", is<impl::int_swissknife_type>},
    {"Converter", "Converter", "", is<impl::float_converter_type>},
    {"SwissKnife", "SwissKnife", "", is<impl::float_swissknife_type>},
    {"Category", "Category", "", is<impl::category_type>},
    {"IntegerConstant", "Integer", "<Value>1</Value><ImposedAccessMode>RO</ImposedAccessMode>",
     is<impl::integer_constant_value_type>},
    {"IntegerValue", "Integer", "<Value>1</Value>", is<impl::integer_floating_value_type>},
    {"IntegerValueImposedWO", "Integer", "<Value>1</Value><ImposedAccessMode>WO</ImposedAccessMode>",
     is<impl::integer_floating_value_type>},
    {"IntegerValueBeatsPValue", "Integer", "<pValue>A</pValue><Value>1</Value>", is<impl::integer_floating_value_type>},
    {"IntegerCopy", "Integer", "<pValue>A</pValue><pValueCopy>B</pValueCopy><pIndex>C</pIndex>",
     is<impl::integer_pValueCopy_type>},
    {"IntegerIndexBeatsPValue", "Integer", "<pValue>A</pValue><pIndex>B</pIndex>", is<impl::integer_pIndex_type>},
    {"IntegerPValue", "Integer", "<pValue>A</pValue>", is<impl::integer_pValue_type>},
    {"FloatConstant", "Float", "<Value>1</Value><ImposedAccessMode>RO</ImposedAccessMode>",
     is<impl::float_constant_value_type>},
    {"FloatValue", "Float", "<Value>1</Value><pIndex>B</pIndex>", is<impl::float_floating_value_type>},
    {"FloatIndex", "Float", "<pIndex>B</pIndex><pValue>A</pValue>", is<impl::float_pIndex_type>},
    {"FloatPValue", "Float", "<pValue>A</pValue>", is<impl::float_pValue_type>},
    {"BooleanPValueBeatsValue", "Boolean", "<Value>1</Value><pValue>A</pValue>", is<impl::boolean_pValue_type>},
    {"BooleanValue", "Boolean", "<Value>1</Value>", is<impl::boolean_Value_type>},
    {"CommandValueBeatsPValue", "Command", "<pValue>A</pValue><Value>1</Value>", is<impl::command_Value_type>},
    {"CommandPValue", "Command", "<pValue>A</pValue>", is<impl::command_pValue_type>},
    {"EnumerationValue", "Enumeration", "<pValue>A</pValue><Value>1</Value>", is<impl::enumeration_Value_type>},
    {"EnumerationPValue", "Enumeration", "<pValue>A</pValue>", is<impl::enumeration_pValue_type>},
    {"String", "String", "", is<impl::string_type>},
    {"FloatRegConst", "FloatReg", register_head, is<impl::float_reg_type_const_address>},
    {"FloatRegDynLength", "FloatReg", "<Address>0</Address><pLength>A</pLength>", is<impl::float_reg_type_dyn>},
    {"FloatRegNoLength", "FloatReg", "<Address>0</Address>", is<impl::float_reg_type_dyn>},
    {"IntRegConst", "IntReg", register_head, is<impl::int_reg_type_const_address>},
    {"IntRegPAddress", "IntReg", "<Address>0</Address><Length>4</Length><pAddress>A</pAddress>",
     is<impl::int_reg_type_dyn>},
    {"IntRegIndex", "IntReg", "<Address>0</Address><Length>4</Length><pIndex>A</pIndex>", is<impl::int_reg_type_dyn>},
    {"IntRegKnife", "IntReg", "<Address>0</Address><Length>4</Length><IntSwissKnife Name=\"K\"/>",
     is<impl::int_reg_type_dyn>},
    {"IntRegNoAddress", "IntReg", "<Length>4</Length>", is<impl::int_reg_type_dyn>},
    {"Register", "Register", "", is<impl::register_type>},
    {"MaskedConst", "MaskedIntReg", "<Address>0</Address>", is<impl::masked_int_reg_type_const_address>},
    {"MaskedConstWithPLength", "MaskedIntReg", "<Address>0</Address><pLength>A</pLength>",
     is<impl::masked_int_reg_type_const_address>},
    {"MaskedDyn", "MaskedIntReg", "<pAddress>A</pAddress>", is<impl::masked_int_reg_type_dyn_address>},
    {"StringReg", "StringReg", register_head, is<impl::string_reg_type>},
    {"StructEntry", "StructEntry", "", is<impl::struct_entry_type>},
    {"Port", "Port", "", is<impl::port_device_type>},
};

class NodeClass : public ::testing::TestWithParam<class_case> {};

TEST_P(NodeClass, IsChosenByTheChildren) {
    const auto& [name, element, children, is_expected] = GetParam();
    const std::string tag{element};
    const document sut{"<" + tag + " Name=\"N\">" + children + "</" + tag + ">"};
    INode* node = sut.doc->find_node("N");
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(is_expected(node->as_eval()));
}

INSTANTIATE_TEST_SUITE_P(All, NodeClass, ::testing::ValuesIn(class_cases), case_name{});

TEST(ElementNames, AreToldApartFromEverythingNearThem) {
    using impl::tag;
    using impl::tag_of;
    const std::string_view names[] = {
#define NAME(name) #name,
        GENICAM_ELEMENT_NAMES(NAME)
#undef NAME
    };
    ASSERT_EQ(std::size(names), impl::tag_count);
    for (std::size_t i = 0; i < std::size(names); ++i) {
        const tag own{static_cast<uint8_t>(i)};
        const std::string name{names[i]};
        EXPECT_EQ(tag_of(name), own) << name;
        EXPECT_NE(tag_of(name + "x"), own) << name;
        EXPECT_NE(tag_of(name.substr(1)), own) << name;
        EXPECT_NE(tag_of(name.substr(0, name.size() - 1)), own) << name;
        for (std::size_t at = 0; at < name.size(); ++at) {
            std::string other = name;
            other[at] = '_';
            EXPECT_EQ(tag_of(other), tag::none) << other;
        }
    }
    for (const char* unknown : {"", "x", "DisplayName", "ToolTip"}) EXPECT_EQ(tag_of(unknown), tag::none);
}

TEST(Build, ElementsWithoutAClassAreIgnoredWithoutAWord) {
    log_capture log;
    const document sut{"<Integer Name=\"A\"/><Float Name=\"B\"/><Boolean Name=\"C\"/><Command Name=\"D\"/>"
                       "<Enumeration Name=\"E\"/><ConfRom Name=\"F\"/><x/><!-- a comment -->text"};
    int nodes = 0;
    sut.doc->for_each_node([&](INode*) { ++nodes; });
    EXPECT_EQ(nodes, 1); // the port
    EXPECT_THAT(log.lines, ::testing::IsEmpty());
}

TEST(Build, GroupsAndStructuresAreWalkedThrough) {
    const document sut{"<Group><Group><Category Name=\"C\"/></Group><Group/><StructReg><Address>4</Address>"
                       "<Length>4</Length><pPort>Device</pPort><StructEntry Name=\"E1\"><Bit>0</Bit></StructEntry>"
                       "<StructEntry Name=\"E2\"><Bit>1</Bit></StructEntry></StructReg></Group>"
                       "<Integer Name=\"After\"><Value>1</Value></Integer>"};
    std::vector<std::string> names;
    sut.doc->for_each_node([&](INode* node) { names.emplace_back(node->get_name()); });
    EXPECT_THAT(names, ::testing::ElementsAre("C", "E1", "E2", "After", "Device"));
}

TEST(Build, KnivesInsideRegistersAreNodes) {
    for (const std::string element : {"FloatReg", "IntReg", "Register", "MaskedIntReg", "StringReg", "StructEntry"}) {
        const document sut{"<" + element + " Name=\"R\"><Address>0</Address><IntSwissKnife Name=\"K\">" +
                           "<Formula>40 + 2</Formula></IntSwissKnife></" + element + ">"};
        EXPECT_THAT(sut.integer("K").get_val(0), Gives(42)) << element;
    }
}

TEST(Build, AnEmptyDocumentIsValid) {
    for (const char* text : {"<RegisterDescription/>", "<RegisterDescription></RegisterDescription>", "<x>y</x>"}) {
        const auto doc = create_document(std::string_view{text});
        ASSERT_NE(doc, nullptr) << text;
        EXPECT_EQ(doc->get_root_category(), nullptr);
        EXPECT_TRUE(doc->get_root_features().empty());
        EXPECT_TRUE(doc->get_streamable_nodes().empty());
        EXPECT_EQ(doc->find_node("", NodeType_t::Integer), nullptr);
        EXPECT_EQ(doc->find_node(""), nullptr);
        EXPECT_EQ(doc->get_document_url(), "");
    }
}

TEST(Build, MalformedTextIsRefusedWithItsPlace) {
    struct bad_text {
        std::string_view text;
        const char* message;
    };
    for (const auto& [text, message] :
         {bad_text{"<a><b></a>", "1 The XML document does contain errors : Start-end tags mismatch @ offset=8."},
          bad_text{"", "1 The XML document does contain errors : No document element found @ offset=0."},
          bad_text{"no xml", "1 The XML document does contain errors : No document element found @ offset=6."}}) {
        log_capture log;
        EXPECT_EQ(create_document(text), nullptr);
        EXPECT_THAT(log.lines, ::testing::ElementsAre(message));
    }
}

TEST(Build, AnExistingDocumentIsTakenOver) {
    pugi::xml_document xml;
    xml.load_string("<RegisterDescription ModelName=\"M\"><Integer Name=\"I\"><Value>5</Value></Integer>"
                    "</RegisterDescription>");
    const auto doc = create_document(std::move(xml));
    EXPECT_THAT(doc->find<IInteger>("I")->get_val(0), Gives(5));
    EXPECT_EQ(doc->get_document_info().model_name, "M");
    EXPECT_NE(create_document(pugi::xml_document{}), nullptr);
}

TEST(Build, OtherEncodingsAreDetected) {
    const std::string_view text = "<RegisterDescription><Integer Name=\"I\"><Value>5</Value></Integer>"
                                  "</RegisterDescription>";
    std::string utf16{"\xFF\xFE"};
    for (const char c : text) utf16 += {c, '\0'};
    const auto doc = create_document(std::string_view{utf16});
    ASSERT_NE(doc, nullptr);
    EXPECT_THAT(doc->find<IInteger>("I")->get_val(0), Gives(5));
}

TEST(Build, NamesTakenKeepTheFirstAndPortsAreFoundAnyway) {
    log_capture log;
    const auto doc = create_document(std::string_view{
        "<RegisterDescription><Category Name=\"Device\"/><Integer Name=\"I\"><Value>1</Value></Integer>"
        "<Float Name=\"I\"><Value>2</Value></Float><Port Name=\"Device\"/></RegisterDescription>"});
    EXPECT_THAT(log.lines,
                ::testing::ElementsAre("1 Failed to insert element 'Float' in lookup-map because an element with the "
                                       "same name is already registered.",
                                       "1 Failed to insert element 'Port' in lookup-map because an element with the "
                                       "same name is already registered."));
    EXPECT_EQ(doc->find_node("Device")->node_type(), NodeType_t::Category);
    ASSERT_NE(doc->find_node("Device", NodeType_t::Port), nullptr);
    EXPECT_EQ(doc->find_node("Device", NodeType_t::Port)->node_type(), NodeType_t::Port);
    EXPECT_EQ(doc->find_node("I")->node_type(), NodeType_t::Integer);
    EXPECT_EQ(doc->find_node("I", NodeType_t::Float), nullptr);
    int nodes = 0;
    doc->for_each_node([&](INode*) { ++nodes; });
    EXPECT_EQ(nodes, 4);
}

TEST(Build, FindByTypeAsksForTheType) {
    const document sut{"<Float Name=\"X\"><Value>1</Value></Float>"};
    EXPECT_EQ(sut.doc->find_node("X", NodeType_t::Integer), nullptr);
    EXPECT_NE(sut.doc->find_node("X", NodeType_t::Float), nullptr);
    EXPECT_NE(sut.doc->find_node("X"), nullptr);
}

TEST(Build, ManyNamesAreFound) {
    std::string nodes;
    for (int i = 0; i < 3000; ++i)
        nodes += "<Integer Name=\"N" + std::to_string(i) + "\"><Value>" + std::to_string(i) + "</Value></Integer>";
    const document sut{nodes};
    for (int i = 0; i < 3000; i += 7) EXPECT_THAT(sut.integer("N" + std::to_string(i)).get_val(0), Gives(i));
    EXPECT_EQ(sut.doc->find_node("N3000"), nullptr);
}

TEST(Build, StreamableNodesAreListed) {
    log_capture log;
    const document sut{"<Integer Name=\"A\"><Value>1</Value><Streamable>Yes</Streamable></Integer>"
                       "<Integer Name=\"B\"><Value>1</Value><Streamable>No</Streamable></Integer>"
                       "<Integer Name=\"C\"><Value>1</Value><Streamable>Maybe</Streamable></Integer>"
                       "<Float Name=\"D\"><Value>1</Value><Streamable> Yes </Streamable></Float>"};
    std::vector<std::string> names;
    for (INode* node : sut.doc->get_streamable_nodes()) names.emplace_back(node->get_name());
    EXPECT_THAT(names, ::testing::ElementsAre("A", "D"));
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 C. Failed to parse 'Streamable' xml node contents 'Maybe'."));
}

TEST(DocumentInfo, ComesFromTheRoot) {
    const auto doc = create_document(std::string_view{
        "<RegisterDescription ModelName=\"M\" VendorName=\"V\" ToolTip=\"T\" StandardNameSpace=\"GEV\" "
        "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\" SchemaSubMinorVersion=\"0x1\" MajorVersion=\"0X10\" "
        "MinorVersion=\"bad\" SubMinorVersion=\"7\"/>"});
    const document_info info = doc->get_document_info();
    EXPECT_EQ(info.model_name, "M");
    EXPECT_EQ(info.vendor_name, "V");
    EXPECT_EQ(info.tool_tip, "T");
    EXPECT_EQ(info.standard_name_space, StandardNameSpace_t::GEV);
    EXPECT_EQ(info.schema_minor, 0u);
    EXPECT_EQ(info.schema_sub_minor, 1u);
    EXPECT_EQ(info.major, 16u);
    EXPECT_EQ(info.minor, 0u);
    EXPECT_EQ(info.sub_minor, 7u);
    const document_info none = create_document(std::string_view{"<R/>"})->get_document_info();
    EXPECT_EQ(none.schema_major, 1u);
    EXPECT_EQ(none.schema_minor, 1u);
    EXPECT_EQ(none.schema_sub_minor, 0u);
    EXPECT_EQ(none.standard_name_space, StandardNameSpace_t::None);
}

// Only a text with its dashes at 8, 12, 16 and 20 is a GUID here; the usual grouping comes back as zeros.
TEST(DocumentInfo, GuidsHaveTheirDashesAt8_12_16_20) {
    const auto guid = [](const std::string& text) {
        const auto doc = create_document("<R ProductGuid=\"" + text + "\" VersionGuid=\"" + text + "\"/>");
        EXPECT_EQ(doc->get_document_info().product_guid, doc->get_document_info().version_guid);
        return doc->get_document_info().product_guid;
    };
    const std::array<char, 36> zeros{};
    EXPECT_EQ(guid("01234567-89ab-cdef-0123-456789abcdef"), zeros);
    EXPECT_EQ(guid("01234567-9ab-def-123-56789012345678"), zeros); // one short
    const std::string good = "01234567-9ab-def-123-5678901234567890";
    EXPECT_EQ(std::string_view(guid(good).data(), 36), std::string_view(good).substr(0, 36));
}

} // namespace
} // namespace GenICam::testing
