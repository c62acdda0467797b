// From XML to nodes: which element becomes what, what is found by name, what a faulty document leaves behind.
#include "script.h"

#include "impl/element_view.h"

#include <pugixml.hpp>

namespace GenICam::testing {
namespace {

TEST(Build, MakesANodeOfEachElement) {
    const std::pair<NodeType_t, std::vector<std::string>> rows[] = {
        {NodeType_t::Integer, {"Integer", "IntConverter", "IntSwissKnife", "IntReg", "MaskedIntReg", "StructEntry"}},
        {NodeType_t::Float, {"Float", "Converter", "SwissKnife", "FloatReg"}},
        {NodeType_t::Boolean, {"Boolean"}},
        {NodeType_t::Command, {"Command"}},
        {NodeType_t::Enumeration, {"Enumeration"}},
        {NodeType_t::Category, {"Category"}},
        {NodeType_t::String, {"String", "StringReg"}},
        {NodeType_t::Register, {"Register"}},
        {NodeType_t::Port, {"Port"}},
    };
    for (const auto& [type, elements] : rows) {
        for (const std::string& element : elements) {
            const document sut{element + " N: Value 1"};
            INode* const node = sut.doc->find_node("N");
            ASSERT_NE(node, nullptr) << element;
            EXPECT_EQ(node->node_type(), type) << element;
            EXPECT_EQ(sut.doc->find_node("N", type), node) << element;
            const NodeType_t other = type == NodeType_t::Float ? NodeType_t::Integer : NodeType_t::Float;
            EXPECT_EQ(sut.doc->find_node("N", other), nullptr) << element;
        }
    }
}

const script_case precedence[] = {
    {"ANumbersOwnValueThenTheIndexThenTheTarget",
     "Integer A: Value 1 | Integer B: Value 2 | Integer V: pValue A, Value 7 | Integer X: pValue A, pIndex B, "
     "ValueDefault 9"
     " | Integer Copy: pValue A, pValueCopy B, pIndex B | Float F: Value 1.5, pIndex B, ValueDefault 9"
     " | Float G: pIndex B, pValue A, ValueDefault 9 | Enumeration E: EnumEntry@On {Value 4}, pValue A, Value 4",
     {"V = 7", "V := 8", "A = 1", "X = 9", "F = 1.5", "G = 9", "E = On", "Copy := 5", "A = 5", "B = 5"}},
    {"AMaskedRegisterTakesNoLengthFromANode",
     "Integer L: Value 8 | MaskedIntReg R: Address 0, pLength L, LSB 31, MSB 24",
     {"[0] := 01 02 03 04 05 06 07 08", "R = 4"}},
};
INSTANTIATE_TEST_SUITE_P(Precedence, Document, ::testing::ValuesIn(precedence), case_name{});

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
    EXPECT_EQ(names_of(nodes_of(*sut.doc)), "Device");
    EXPECT_THAT(log.lines, ::testing::IsEmpty());
}

TEST(Build, GroupsAndStructuresAreWalkedThrough) {
    const document sut{"<Group><Group><Category Name=\"C\"/></Group><Group/><StructReg><Address>4</Address>"
                       "<Length>4</Length><pPort>Device</pPort><StructEntry Name=\"E1\"><Bit>0</Bit></StructEntry>"
                       "<StructEntry Name=\"E2\"><Bit>1</Bit></StructEntry></StructReg></Group>"
                       "<Integer Name=\"After\"><Value>1</Value></Integer>"};
    EXPECT_EQ(names_of(nodes_of(*sut.doc)), "C E1 E2 After Device");
}

TEST(Build, KnivesInsideRegistersAreNodes) {
    for (const std::string element : {"FloatReg", "IntReg", "Register", "MaskedIntReg", "StringReg", "StructEntry"}) {
        const document sut{element + " R: Address 0, IntSwissKnife@K {Formula 40 + 2}"};
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
    const std::pair<std::string_view, std::string> rows[] = {
        {"<a><b></a>", "Start-end tags mismatch @ offset=8."},
        {"", "No document element found @ offset=0."},
        {"no xml", "No document element found @ offset=6."},
    };
    for (const auto& [text, problem] : rows) {
        log_capture log;
        EXPECT_EQ(create_document(text), nullptr);
        EXPECT_THAT(log.lines, ::testing::ElementsAre("1 The XML document does contain errors : " + problem));
    }
}

TEST(Build, OtherEncodingsAndExistingDocumentsAreTaken) {
    const std::string_view text = "<RegisterDescription ModelName=\"M\"><Integer Name=\"I\"><Value>5</Value></Integer>"
                                  "</RegisterDescription>";
    std::string utf16{"\xFF\xFE"};
    for (const char c : text) utf16 += {c, '\0'};
    pugi::xml_document xml;
    xml.load_string(text.data());
    for (const auto& doc : {create_document(std::string_view{utf16}), create_document(std::move(xml))}) {
        ASSERT_NE(doc, nullptr);
        EXPECT_THAT(doc->find<IInteger>("I")->get_val(0), Gives(5));
        EXPECT_EQ(doc->get_document_info().model_name, "M");
    }
    EXPECT_NE(create_document(pugi::xml_document{}), nullptr);
}

TEST(Build, NamesTakenKeepTheFirstAndPortsAreFoundAnyway) {
    log_capture log;
    document sut{"Category Device | Integer I: Value 1 | Float I: Value 2 | IntReg R: Address 0, Length 1"};
    const auto taken = [](const std::string& element) {
        return "1 Failed to insert element '" + element +
               "' in lookup-map because an element with the same name is already registered.";
    };
    EXPECT_THAT(log.lines, ::testing::ElementsAre(taken("Float"), taken("Port")));
    EXPECT_EQ(sut.doc->find_node("Device")->node_type(), NodeType_t::Category);
    EXPECT_EQ(sut.doc->find_node("I")->node_type(), NodeType_t::Integer);
    EXPECT_EQ(sut.doc->find_node("I", NodeType_t::Float), nullptr);
    EXPECT_EQ(names_of(nodes_of(*sut.doc)), "Device I I R Device");
    sut.device.put(0, {7});
    EXPECT_THAT(sut.integer("R").get_val(0), Gives(7));
}

TEST(Build, StreamableNodesAreListed) {
    log_capture log;
    const document sut{"Integer A: Value 1, Streamable Yes | Integer B: Value 1, Streamable No"
                       " | Integer C: Value 1, Streamable Maybe | Float D: Value 1, Streamable Yes"};
    EXPECT_EQ(names_of(sut.doc->get_streamable_nodes()), "A D");
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 C. Failed to parse 'Streamable' xml node contents 'Maybe'."));
}

// One document each, so that no other text of it makes the engine look for split ones.
TEST(Build, ASplitTextIsOneText) {
    const std::pair<const char*, int> formulas[] = {
        {"<Formula>1<!-- c -->+2</Formula>", 3},
        {"<Formula>1<!-- c -->+2<![CDATA[ << ]]>3</Formula>", (1 + 2) << 3}, // a shift binds looser than a sum
        {"<Formula>2 ><!-- c -->3</Formula>", 0},
        {"<Formula>2 > \n<!-- c -->1</Formula>", 1},
        {"<Formula A=\"<\">2 ><?x y?>1</Formula>", 1},
        {"<Formula><![CDATA[ 2 < 3 ]]> + 1</Formula>", 1},
        {"<Formula><![CDATA[4]]><!-- c --><![CDATA[0]]></Formula>", 40},
        {"<Formula>4<![CDATA[0]]></Formula>", 40},
        {"<Formula> <![CDATA[ 7 ]]>\n</Formula>", 7},
        {"<Formula><!-- > --><![CDATA[7]]></Formula>", 7},
    };
    for (const auto& [formula, value] : formulas) {
        const document sut{std::string{"<IntSwissKnife Name='K'>"} + formula + "</IntSwissKnife>"};
        EXPECT_THAT(sut.integer("K").get_val(0), Gives(value)) << formula;
    }
    const document sut{
        "<Integer Name=\"I\"><!-- a --><Value>1<!-- c -->2</Value><ToolTip>a<?x y?>b</ToolTip></Integer>"};
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(12));
    EXPECT_EQ(sut.integer("I").get_tool_tip(), "ab");
}

TEST(DocumentInfo, ComesFromTheRoot) {
    const auto doc = create_document(std::string_view{
        "<RegisterDescription ModelName=\"M\" VendorName=\"V\" ToolTip=\"T\" StandardNameSpace=\"GEV\" "
        "SchemaMajorVersion=\"1\" SchemaMinorVersion=\"0\" SchemaSubMinorVersion=\"0x1\" MajorVersion=\"0X10\" "
        "MinorVersion=\"bad\" SubMinorVersion=\"7\"/>"});
    const document_info info = doc->get_document_info();
    EXPECT_THAT((std::array{info.model_name, info.vendor_name, info.tool_tip}), ::testing::ElementsAre("M", "V", "T"));
    EXPECT_EQ(info.standard_name_space, StandardNameSpace_t::GEV);
    const auto schema = [](const document_info& of) {
        return std::array{of.schema_major, of.schema_minor, of.schema_sub_minor};
    };
    EXPECT_THAT(schema(info), ::testing::ElementsAre(1, 0, 1));
    EXPECT_THAT((std::array{info.major, info.minor, info.sub_minor}), ::testing::ElementsAre(16, 0, 7));
    const document_info none = create_document(std::string_view{"<R/>"})->get_document_info();
    EXPECT_THAT(schema(none), ::testing::ElementsAre(1, 1, 0));
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
