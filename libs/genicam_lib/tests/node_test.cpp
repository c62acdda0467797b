// What every node tells about itself, the readers behind it, and the error category.
#include "support.h"

#include "impl/text_values.h"
#include "impl/xml_readers.h"

#include <pugixml.hpp>

namespace GenICam::testing {
namespace {

TEST(Node, TellsItsStaticProperties) {
    const document sut{
        "<Integer Name=\"N\" NameSpace=\"Standard\" MergePriority=\"+1\" ExposeStatic=\"Yes\"><Value>1</Value>"
        "<Extension><Key>some</Key><Other/></Extension><ToolTip>tip</ToolTip><Description>text</Description>"
        "<DisplayName>Nice</DisplayName><Visibility>Guru</Visibility><DocuURL>http://x</DocuURL>"
        "<IsDeprecated>Yes</IsDeprecated><EventID>1F</EventID><pAlias>M</pAlias><pCastAlias>M</pCastAlias>"
        "<pBlockPolling>M</pBlockPolling><Unit>mm</Unit><Representation>HexNumber</Representation></Integer>"
        "<Integer Name=\"M\"><Value>2</Value></Integer>"};
    const IInteger& node = sut.integer("N");
    EXPECT_EQ(node.get_name(), "N");
    EXPECT_EQ(node.get_display_name(), "Nice");
    EXPECT_EQ(node.get_description(), "text");
    EXPECT_EQ(node.get_tool_tip(), "tip");
    EXPECT_EQ(node.get_name_space(), NameSpace_t::Standard);
    EXPECT_EQ(node.get_merge_priority(), MergePriority_t::High);
    EXPECT_EQ(node.get_expose_static(), true);
    EXPECT_EQ(node.get_docu_url(), "http://x");
    EXPECT_TRUE(node.is_deprecated());
    EXPECT_EQ(node.getVisibility(), Visibility_t::Guru);
    EXPECT_EQ(node.get_event_id(), 0x1Fu);
    INode* other = sut.doc->find_node("M");
    EXPECT_EQ(node.get_alias(), other);
    EXPECT_EQ(node.get_cast_alias(), other);
    EXPECT_EQ(node.get_block_polling(), other);
    EXPECT_EQ(node.get_unit(), "mm");
    EXPECT_EQ(node.get_representation(), IntRepresentation_t::HexNumber);
    ASSERT_EQ(node.get_extensions().size(), 2u);
    EXPECT_EQ(node.get_extensions()[0].key, "Key");
    EXPECT_EQ(node.get_extensions()[0].value, "some");
    EXPECT_EQ(node.get_extensions()[1].value, "");
}

TEST(Node, HasDefaultsForEverything) {
    const document sut{"<Integer><Value>1</Value></Integer><Float Name=\"F\"><Value>1</Value></Float>"};
    INode* node = nullptr;
    sut.doc->for_each_node([&](INode* each) { node = node != nullptr ? node : each; });
    EXPECT_EQ(node->get_name(), "");
    EXPECT_EQ(node->get_display_name(), "");
    EXPECT_EQ(node->get_name_space(), NameSpace_t::Custom);
    EXPECT_EQ(node->get_merge_priority(), MergePriority_t::Mid);
    EXPECT_EQ(node->get_expose_static(), std::nullopt);
    EXPECT_EQ(node->getVisibility(), Visibility_t::Beginner);
    EXPECT_EQ(node->get_event_id(), std::nullopt);
    EXPECT_EQ(node->get_alias(), nullptr);
    EXPECT_FALSE(node->is_deprecated());
    EXPECT_FALSE(node->is_streamable());
    EXPECT_TRUE(node->is_implemented());
    EXPECT_TRUE(node->is_available());
    EXPECT_FALSE(node->is_locked());
    EXPECT_EQ(node->get_access_mode(), Access_t::RW);
    EXPECT_TRUE(node->get_selecting_nodes().empty());
    EXPECT_EQ(node->get_is_locked_node(), nullptr);
    const IFloat& real = sut.real("F");
    EXPECT_EQ(real.get_representation(), FloatRepresentation_t::PureNumber);
    EXPECT_EQ(real.get_display_notation(), DisplayNotation_t::Automatic);
    EXPECT_EQ(real.get_display_precision(), 6);
}

struct message_case {
    const char* name;
    const char* nodes;
    std::vector<std::string> lines;
};

class BuildMessage : public ::testing::TestWithParam<message_case> {};

TEST_P(BuildMessage, NamesTheFault) {
    log_capture log;
    const document sut{GetParam().nodes};
    EXPECT_THAT(log.lines, ::testing::ElementsAreArray(GetParam().lines));
}

INSTANTIATE_TEST_SUITE_P(
    All, BuildMessage,
    ::testing::Values(
        message_case{"ImposedAccessMode",
                     "<Float Name=\"N\"><pValue>M</pValue><ImposedAccessMode>XX</ImposedAccessMode></Float>"
                     "<Float Name=\"M\"><Value>1</Value></Float>",
                     {"1 N. Failed to parse 'ImposedAccessMode' node contents: 'XX'."}},
        message_case{"MissingLink",
                     "<Integer Name=\"N\"><Value>1</Value><pIsLocked>Z</pIsLocked></Integer>",
                     {"1 N. Xml-node 'pIsLocked', failed to find link target 'Z'."}},
        message_case{"LinkToNoBoolean",
                     "<Integer Name=\"N\"><Value>1</Value><pIsAvailable>S</pIsAvailable></Integer><String Name=\"S\"/>",
                     {"1 N. Xml-node 'pIsAvailable', INode 'S' is not Boolean compatible."}},
        message_case{"Invalidator",
                     "<Integer Name=\"N\"><Value>1</Value><pInvalidator>Z</pInvalidator></Integer>",
                     {"1 N. Failed to resolve xml_node 'pInvalidator' contents 'Z' due no node with that name."}},
        message_case{"Selected",
                     "<Integer Name=\"N\"><Value>1</Value><pSelected>Z</pSelected></Integer>",
                     {"1 N. Failed to resolve 'pSelected' xml node contents 'Z'."}},
        message_case{"IntegerValue",
                     "<Integer Name=\"N\"><Value>abc</Value></Integer>",
                     {"1 N. Failed to parse or resolve 'Value' ('abc') xml element."}},
        message_case{"PValue",
                     "<Integer Name=\"N\"><pValue>Z</pValue></Integer>",
                     {"1 N. Failed to parse or resolve 'pValue' ('Z') xml element."}},
        message_case{"LinkAndValue",
                     "<Integer Name=\"N\"><Value>1</Value><Min>0</Min><pMin>M</pMin></Integer>"
                     "<Integer Name=\"M\"><Value>1</Value></Integer>",
                     {"1 N. XML element contains link and constant value nodes."}},
        message_case{"BadLimitLink",
                     "<Integer Name=\"N\"><Value>1</Value><pMax>Z</pMax></Integer>",
                     {"1 N. Failed to resolve link to 'Z'."}},
        message_case{"BadLimit",
                     "<Integer Name=\"N\"><Value>1</Value><Max>1O</Max></Integer>",
                     {"1 N. Failed to parse '1O' as tValue."}},
        message_case{"ValueSet",
                     "<Integer Name=\"N\"><Value>1</Value><ValidValueSet>1;x</ValidValueSet></Integer>"
                     "<Integer Name=\"M\"><Value>1</Value><ValidValueSet>-</ValidValueSet></Integer>",
                     {"1 ValidValueSet, node='N'. Failed to parse integer in 'x' of ValidValueSet: '1;x'.",
                      "1 ValidValueSet, node='M'. Failed to parse integer in '-' of ValidValueSet: '-'.",
                      "1 ValidValueSet, node='M'. Failed to parse ValidValueSet '-'."}},
        message_case{"Index",
                     "<Float Name=\"N\"><pIndex>S</pIndex></Float><String Name=\"S\"/>",
                     {"1 N. Invalid or no IInteger base 'pIndex' element."}},
        message_case{"IndexDefault",
                     "<Float Name=\"N\"><pIndex>I</pIndex></Float><Integer Name=\"I\"><Value>1</Value></Integer>",
                     {"1 N. Invalid or no 'pValueDefault'/'ValueDefault' element."}},
        message_case{"IndexItems",
                     "<Float Name=\"N\"><pIndex>I</pIndex><ValueDefault>1</ValueDefault>"
                     "<ValueIndexed Index=\"x\">1</ValueIndexed><ValueIndexed Index=\"1\">x</ValueIndexed>"
                     "<pValueIndexed Index=\"x\">I</pValueIndexed><pValueIndexed Index=\"1\">Z</pValueIndexed></Float>"
                     "<Integer Name=\"I\"><Value>1</Value></Integer>",
                     {"1 N. Failed to parse 'Index' attribute of 'pValueIndexed' element.",
                      "1 N. Failed to parse resolve contents of 'pValueIndexed' element.",
                      "1 N. Failed to parse 'Index' attribute of 'ValueIndexed' element.",
                      "1 N. Failed to parse resolve contents of 'ValueIndexed' element."}},
        message_case{"Boolean",
                     "<Boolean Name=\"N\"><Value>yes</Value></Boolean>",
                     {"1 N. Failed to parse or resolve 'Value' xml element."}},
        message_case{"Command",
                     "<Command Name=\"N\"><Value>x</Value></Command><Command Name=\"M\"><pValue>Z</pValue>"
                     "<CommandValue>1</CommandValue></Command>",
                     {"1 N. Failed to parse contents of 'Value' xml node.",
                      "1 N. Failed to parse contents of 'CommandValue'/'pCommandValue' xml node.",
                      "1 M. Failed to parse/resolve contents of 'pValue' xml node."}},
        message_case{"Enumeration",
                     "<Enumeration Name=\"N\"><Value>x</Value><EnumEntry Name=\"E\"/></Enumeration>"
                     "<Enumeration Name=\"M\"><pValue>Z</pValue></Enumeration>",
                     {"1 E. Failed to parse 'Value' xml node.", "1 N. Failed to parse 'Value' xml element.",
                      "1 M. Failed to parse/resolve 'pValue' xml element."}},
        message_case{"Category",
                     "<Category Name=\"N\"><pFeature>Z</pFeature></Category>",
                     {"2 N. Failed to resolve 'pFeature' name: Z."}},
        message_case{"String",
                     "<String Name=\"N\"><pValue>I</pValue></String><Integer Name=\"I\"><Value>1</Value></Integer>",
                     {"1 N. Failed to parse or resolve \"pValue\" xml node."}},
        message_case{"Register",
                     "<IntReg Name=\"N\"><Address>x</Address><pAddress>Z</pAddress><pIndex>Z</pIndex>"
                     "<pIndex Offset=\"x\" pOffset=\"Z\">I</pIndex><AccessMode>x</AccessMode><Endianess>x</Endianess>"
                     "<Cachable>x</Cachable><Sign>x</Sign><pPort>Z</pPort></IntReg>"
                     "<Integer Name=\"I\"><Value>1</Value></Integer>",
                     {"1 N. Invalid contents of 'Sign' node 'x'.", "1 N. Invalid contents of 'AccessMode' node 'x'.",
                      "1 N. Invalid contents of 'Endianess' node 'x'.", "1 N. Invalid contents of 'Cachable' node 'x'.",
                      "1 N. Failed to resolve port 'Z'.", "1 N. Node contains invalid 'Address' XML element.",
                      "1 N. Node contains invalid 'pAddress' XML element.",
                      "1 N. Node contains invalid 'pIndex' XML element.",
                      "1 N. Node contains invalid 'pIndex/@Offset' XML element.",
                      "1 N. Node contains invalid 'pIndex/@pOffset' XML element.",
                      "1 N. Node contains neither pLength nor Length XML elements."}},
        message_case{"RegisterLength",
                     "<IntReg Name=\"N\"><Address>0</Address><Length>x</Length><pPort>Device</pPort></IntReg>"
                     "<MaskedIntReg Name=\"M\"><Address>0</Address><Length>x</Length><pPort>Device</pPort>"
                     "</MaskedIntReg>",
                     {"1 N. Failed to parse 'Length' XML element.", "1 M. Failed to parse 'Length' XML element."}},
        message_case{"AccessModes",
                     "<IntReg Name=\"N\"><Address>0</Address><Length>4</Length><pPort>Device</pPort>"
                     "<AccessMode>RW</AccessMode><ImposedAccessMode>RO</ImposedAccessMode></IntReg>",
                     {"1 N. Tried to change access mode from ImposedAccessMode of 'RO' to 'RW'."}},
        message_case{"Converter",
                     "<Converter Name=\"A\"/><Converter Name=\"B\"><pValue>F</pValue></Converter>"
                     "<Converter Name=\"C\"><pValue>F</pValue><FormulaFrom>1</FormulaFrom></Converter>"
                     "<Converter Name=\"D\"><pValue>F</pValue><FormulaFrom>#</FormulaFrom><FormulaTo>1</FormulaTo>"
                     "<Slope>x</Slope><IsLinear>x</IsLinear></Converter><Float Name=\"F\"><Value>1</Value></Float>",
                     {"1 Converter ('A'). Failed due to missing pValue element.",
                      "1 Converter 'B'. Failed due to empty FormulaFrom expression.",
                      "1 Converter 'C'. Failed due to empty FormulaTo expression.",
                      "1 D. Invalid contents 'x' of 'Slope' xml node.", "1 D. Invalid contents of 'IsLinear' node 'x'.",
                      "1 km_parse_tree failed with result=2. Last token view: '#'.",
                      "1 Converter ('D'). failed to evaluate '#'."}},
        message_case{"SwissKnife",
                     "<SwissKnife Name=\"A\"/><SwissKnife Name=\"B\"><Formula>Q</Formula></SwissKnife>",
                     {"1 SwissKnife ('A'). Failed due to missing Formula member.",
                      "1 Failed to map variable 'Q' to either a constant or a pValue.",
                      "1 km_parse_tree failed with result=3. Last token view: 'Q'.",
                      "1 SwissKnife ('B'). failed to evaluate 'Q'."}},
        message_case{"Variables",
                     "<IntSwissKnife Name=\"A\"><Constant>1</Constant><Constant Name=\"C\">1.5</Constant>"
                     "<pVariable>S</pVariable><pVariable Name=\"V.Entry.X\">S</pVariable>"
                     "<pVariable Name=\"V.Entry.Y\">E</pVariable><pVariable Name=\"V.Max\">S</pVariable>"
                     "<pVariable Name=\"V.Inc\">S</pVariable><Expression>1</Expression>"
                     "<Expression Name=\"P\">#</Expression><Formula>1</Formula></IntSwissKnife>"
                     "<String Name=\"S\"/><Enumeration Name=\"E\"><Value>0</Value></Enumeration>",
                     {"1 GenICam::impl::converter::build_formula_name_lookup, failed to parse Constant "
                      "xml-node,because it has no 'Name' attribute content='1'.",
                      "1 GenICam::impl::converter::build_formula_name_lookup, failed to parse Constant named='C' "
                      "content='1.5'.",
                      "1 GenICam::impl::converter::build_formula_name_lookup, failed to parse pVariable xml-node, "
                      "because it has no 'Name' attribute.",
                      "1 GenICam::impl::converter::build_formula_name_lookup, did not find enumeration for pVariable "
                      "with '.Entry' specifier.",
                      "1 GenICam::impl::converter::build_formula_name_lookup, did not find entry in enumeration for "
                      "pVariable with '.Entry' specifier.",
                      "1 A, invalid node type for pVariable with '.Min' specifier.",
                      "1 A, invalid node type for pVariable with '.Inc' specifier.",
                      "1 A, failed to parse Expression xml-node, because it has no 'Name' attribute.",
                      "1 km_parse_tree failed with result=2. Last token view: '#'.",
                      "1 Failed to parse Constant named='P' content='#'."}}),
    case_name{});

TEST(Readers, DisplayPropertiesFallBackWithAMessage) {
    log_capture log;
    const document sut{"<Float Name=\"F\"><Value>1</Value><Representation>x</Representation>"
                       "<DisplayNotation>x</DisplayNotation><DisplayPrecision>x</DisplayPrecision>"
                       "<Visibility>x</Visibility></Float><Integer Name=\"I\"><Value>1</Value>"
                       "<Representation>x</Representation></Integer>"};
    EXPECT_EQ(sut.real("F").get_representation(), FloatRepresentation_t::PureNumber);
    EXPECT_EQ(sut.real("F").get_display_notation(), DisplayNotation_t::Automatic);
    EXPECT_EQ(sut.real("F").get_display_precision(), 6);
    EXPECT_EQ(sut.real("F").getVisibility(), Visibility_t::Beginner);
    EXPECT_EQ(sut.integer("I").get_representation(), IntRepresentation_t::PureNumber);
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 F. Invalid contents 'x' of 'FloatRepresentation' xml node.",
                                                  "1 F. Invalid contents 'x' of 'DisplayNotation' xml node.",
                                                  "1 F. Invalid contents 'x' of 'DisplayPrecision' xml node.",
                                                  "1 F. Failed to parse 'Visibility' xml node contents 'x'.",
                                                  "1 I. Invalid contents 'x' of 'IntRepresentation' xml node.)."));
}

TEST(Readers, ImposedAccessModeOfAnIntegerIsLookedAtTwice) {
    log_capture log;
    const document sut{"<Integer Name=\"N\"><Value>1</Value><ImposedAccessMode>XX</ImposedAccessMode></Integer>"};
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 N. Invalid contents of 'ImposedAccessMode' node 'XX'.",
                                                  "1 N. Failed to parse 'ImposedAccessMode' node contents: 'XX'."));
    EXPECT_EQ(sut.integer("N").get_access_mode(), Access_t::RW);
}

TEST(TextValues, Integers) {
    using impl::parse_integer;
    for (const char* bad :
         {"", " ", "+5", "0x", "5x", "1.0", "--1", "0x10000000000000000", "9223372036854775808", "-0x10", "1 2", "-"})
        EXPECT_EQ(parse_integer(bad), std::nullopt) << bad;
    EXPECT_EQ(parse_integer("-9223372036854775808"), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(parse_integer(" 42\n"), 42);
    EXPECT_EQ(parse_integer("0X1f"), 31);
    EXPECT_EQ(parse_integer("0xFFFFFFFFFFFFFFFF"), -1);
    EXPECT_EQ(parse_integer("010"), 10);
    EXPECT_EQ(parse_integer(std::string(1'000'000, '9')), std::nullopt);
}

TEST(TextValues, Floats) {
    using impl::parse_float;
    for (const char* bad : {"", "+", "inf", "nan", "-inf", "+-1", "--1", "0x10", "1,5", "1e999", "1.5 mm"})
        EXPECT_EQ(parse_float(bad), std::nullopt) << bad;
    EXPECT_EQ(parse_float("+1.5"), 1.5);
    EXPECT_EQ(parse_float("-1e3"), -1000.0);
    EXPECT_EQ(parse_float(".5"), 0.5);
    EXPECT_EQ(parse_float("7"), 7.0);
    EXPECT_EQ(parse_float("1." + std::string(1'000'000, '0')), 1.0);
}

TEST(TextValues, BooleansAndKinds) {
    EXPECT_EQ(impl::parse_bool("true"), true);
    EXPECT_EQ(impl::parse_bool("0"), false);
    EXPECT_EQ(impl::parse_bool("True"), std::nullopt);
    EXPECT_TRUE(impl::parse_value("0x10")->is_integer());
    EXPECT_FALSE(impl::parse_value("+10")->is_integer());
    EXPECT_EQ(impl::parse_value("x").has_value(), false);
    EXPECT_EQ(impl::parse_hex("9001"), 0x9001u);
    EXPECT_EQ(impl::parse_word<MergePriority_t>("-1"), MergePriority_t::Low);
}

TEST(ErrorCategory, HasATextAndAConditionForEachValue) {
    struct row {
        uint32_t value;
        const char* text;
        std::errc condition;
    };
    for (const auto& [value, text, condition] : {
             row{0x80000001, "Generic Error", std::errc::io_error},
             row{0x80000002, "Timeout", std::errc::timed_out},
             row{0x80000003, "Device lost", std::errc::no_such_device},
             row{0x80000004, "Not implemented", std::errc::not_supported},
             row{0x80000005, "Access denied", std::errc::permission_denied},
             row{0x80000006, "Out of memory", std::errc::not_enough_memory},
             row{0x80000007, "Non-memory resource exhausted", std::errc::not_enough_memory},
             row{0x80000008, "No data available", std::errc::not_connected},
             row{0x80000010, "Buffer too small", std::errc::no_buffer_space},
             row{0x80000011, "Invalid parameter", std::errc::invalid_argument},
             row{0x80000012, "Invalid address", std::errc::address_not_available},
             row{0x80000013, "Bad Alignment", std::errc::invalid_argument},
             row{0x80000101, "Failed to fetch cached value in a 'NoCache' request", std::errc::operation_would_block},
             row{0x80000102, "Index out of range", std::errc::invalid_argument},
             row{0x80000103, "Failed to parse formula", std::errc::protocol_error},
             row{0x80000104, "Operation failed due to an invalid document.", std::errc::protocol_error},
             row{0x80000110, "Passed value is out of range of Min/Max", std::errc::result_out_of_range},
             row{0x80000111, "Access failed because node was 'not-implemented' INode::is_implemented() == false",
                 std::errc::not_supported},
             row{0x80000112, "Writing failed because node was locked, INode::is_locked() == true",
                 std::errc::permission_denied},
             row{0x80000113, "Access failed because node was not available INode::is_available() == false",
                 std::errc::permission_denied},
             row{0x80000114, "Passed value not part of valid value set", std::errc::invalid_argument},
             row{0x80000115, "Passed value is not dividable by the increment", std::errc::invalid_argument},
             row{0x80000116, "Port is not bound to a memory span or an actual device port",
                 std::errc::address_not_available},
             row{0x80000117, "Failed to find enumeration entry for passed value", std::errc::invalid_argument},
         }) {
        const std::error_code code{static_cast<int>(value), genicam_category()};
        EXPECT_EQ(code.message(), text);
        EXPECT_TRUE(code == condition) << text;
    }
    EXPECT_STREQ(genicam_category().name(), "GenICam Error");
    EXPECT_EQ(genicam_category().message(0), "Success");
    EXPECT_EQ(genicam_category().default_error_condition(0), std::error_condition{});
    EXPECT_EQ(genicam_category().message(5), "");
    EXPECT_EQ(genicam_category().default_error_condition(5), std::error_condition(5, genicam_category()));
}

} // namespace
} // namespace GenICam::testing
