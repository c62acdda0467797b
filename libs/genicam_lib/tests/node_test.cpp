// What every node tells about itself, the readers behind it, and the error category.
#include "support.h"

#include "impl/text_values.h"
#include "impl/xml_readers.h"

#include <pugixml.hpp>

namespace GenICam::testing {
namespace {

TEST(Node, TellsItsStaticProperties) {
    const document sut{
        "<Integer Name='N' NameSpace='Standard' MergePriority='+1' ExposeStatic='Yes'><Value>1</Value>"
        "<Extension><Key>some</Key><Other/></Extension><ToolTip>tip</ToolTip><Description>text</Description>"
        "<DisplayName>Nice</DisplayName><Visibility>Guru</Visibility><DocuURL>http://x</DocuURL>"
        "<IsDeprecated>Yes</IsDeprecated><EventID>1F</EventID><pAlias>M</pAlias><pCastAlias>M</pCastAlias>"
        "<pBlockPolling>M</pBlockPolling><Unit>mm</Unit><Representation>HexNumber</Representation></Integer>"
        "<Integer Name='M'><Value>2</Value></Integer>"};
    const IInteger& node = sut.integer("N");
    EXPECT_THAT((std::vector{node.get_name(), node.get_display_name(), node.get_description(), node.get_tool_tip(),
                             node.get_docu_url(), node.get_unit()}),
                ::testing::ElementsAre("N", "Nice", "text", "tip", "http://x", "mm"));
    EXPECT_EQ(node.get_name_space(), NameSpace_t::Standard);
    EXPECT_EQ(node.get_merge_priority(), MergePriority_t::High);
    EXPECT_EQ(node.get_expose_static(), true);
    EXPECT_TRUE(node.is_deprecated());
    EXPECT_EQ(node.getVisibility(), Visibility_t::Guru);
    EXPECT_EQ(node.get_event_id(), 0x1Fu);
    EXPECT_EQ(node.get_representation(), IntRepresentation_t::HexNumber);
    for (const INode* link : {node.get_alias(), node.get_cast_alias(), node.get_block_polling()})
        EXPECT_EQ(link, sut.doc->find_node("M"));
    ASSERT_EQ(node.get_extensions().size(), 2u);
    EXPECT_EQ(node.get_extensions()[0].key, "Key");
    EXPECT_EQ(node.get_extensions()[0].value, "some");
}

TEST(Node, HasDefaultsForEverything) {
    const document sut{"<Integer><Value>1</Value></Integer><Float Name=\"F\"><Value>1</Value></Float>"};
    const INode& node = *nodes_of(*sut.doc).front();
    EXPECT_EQ(std::string{node.get_name()} + std::string{node.get_display_name()}, "");
    EXPECT_EQ(node.get_name_space(), NameSpace_t::Custom);
    EXPECT_EQ(node.get_merge_priority(), MergePriority_t::Mid);
    EXPECT_EQ(node.getVisibility(), Visibility_t::Beginner);
    EXPECT_EQ(node.get_access_mode(), Access_t::RW);
    EXPECT_TRUE(node.is_implemented() && node.is_available());
    EXPECT_FALSE(node.is_locked() || node.is_deprecated() || node.is_streamable());
    EXPECT_FALSE(node.get_expose_static() || node.get_event_id() || node.get_alias() || node.get_is_locked_node());
    EXPECT_TRUE(node.get_selecting_nodes().empty());
    const IFloat& real = sut.real("F");
    EXPECT_EQ(real.get_representation(), FloatRepresentation_t::PureNumber);
    EXPECT_EQ(real.get_display_notation(), DisplayNotation_t::Automatic);
    EXPECT_EQ(real.get_display_precision(), 6);
}

TEST(BuildMessage, NamesTheFault) {
    struct row {
        const char* nodes;
        std::vector<std::string> lines;
    };
    const std::string lookup = "1 GenICam::impl::converter::build_formula_name_lookup, ";
    for (const auto& [nodes, lines] :
         {row{"Float N: pValue M, ImposedAccessMode XX | Float M: Value 1",
              {"1 N. Failed to parse 'ImposedAccessMode' node contents: 'XX'."}},
          row{"Integer N: Value 1, pIsLocked Z", {"1 N. Xml-node 'pIsLocked', failed to find link target 'Z'."}},
          row{"Integer N: Value 1, pIsAvailable S | String S: Value a",
              {"1 N. Xml-node 'pIsAvailable', INode 'S' is not Boolean compatible."}},
          row{"Integer N: Value 1, pInvalidator Z",
              {"1 N. Failed to resolve xml_node 'pInvalidator' contents 'Z' due no node with that name."}},
          row{"Integer N: Value 1, pSelected Z", {"1 N. Failed to resolve 'pSelected' xml node contents 'Z'."}},
          row{"Integer N: Value abc | Integer M: pValue Z | Boolean B: Value yes",
              {"1 N. Failed to parse or resolve 'Value' ('abc') xml element.",
               "1 M. Failed to parse or resolve 'pValue' ('Z') xml element.",
               "1 B. Failed to parse or resolve 'Value' xml element."}},
          row{"Integer A: Value 1, Min 0, pMin B | Integer B: Value 1, pMax Z | Integer C: Value 1, Max 1O",
              {"1 A. XML element contains link and constant value nodes.", "1 B. Failed to resolve link to 'Z'.",
               "1 C. Failed to parse '1O' as tValue."}},
          row{"Integer N: Value 1, ValidValueSet 1;x | Integer M: Value 1, ValidValueSet -",
              {"1 ValidValueSet, node='N'. Failed to parse integer in 'x' of ValidValueSet: '1;x'.",
               "1 ValidValueSet, node='M'. Failed to parse integer in '-' of ValidValueSet: '-'.",
               "1 ValidValueSet, node='M'. Failed to parse ValidValueSet '-'."}},
          row{"Float N: pIndex S | String S: Value a | Float M: pIndex I | Integer I: Value 1",
              {"1 N. Invalid or no IInteger base 'pIndex' element.",
               "1 M. Invalid or no 'pValueDefault'/'ValueDefault' element."}},
          row{"Float N: pIndex I, ValueDefault 1, ValueIndexed@x 1, ValueIndexed@1 x, pValueIndexed@x I,"
              " pValueIndexed@1 Z | Integer I: Value 1",
              {"1 N. Failed to parse 'Index' attribute of 'pValueIndexed' element.",
               "1 N. Failed to parse resolve contents of 'pValueIndexed' element.",
               "1 N. Failed to parse 'Index' attribute of 'ValueIndexed' element.",
               "1 N. Failed to parse resolve contents of 'ValueIndexed' element."}},
          row{"Command N: Value x | Command M: pValue Z, CommandValue 1",
              {"1 N. Failed to parse contents of 'Value' xml node.",
               "1 N. Failed to parse contents of 'CommandValue'/'pCommandValue' xml node.",
               "1 M. Failed to parse/resolve contents of 'pValue' xml node."}},
          row{"Enumeration N: Value x, EnumEntry@E {Symbolic s} | Enumeration M: pValue Z",
              {"1 E. Failed to parse 'Value' xml node.", "1 N. Failed to parse 'Value' xml element.",
               "1 M. Failed to parse/resolve 'pValue' xml element."}},
          row{"Category N: pFeature Z | String S: pValue I | Integer I: Value 1",
              {"2 N. Failed to resolve 'pFeature' name: Z.", "1 S. Failed to parse or resolve \"pValue\" xml node."}},
          row{"IntReg N: Address x, pAddress Z, pIndex Z, pIndex@Offset=x I, pIndex@pOffset=Z I, AccessMode x,"
              " Endianess x, Cachable x, Sign x, pPort Z | Integer I: Value 1",
              {"1 N. Invalid contents of 'Sign' node 'x'.", "1 N. Invalid contents of 'AccessMode' node 'x'.",
               "1 N. Invalid contents of 'Endianess' node 'x'.", "1 N. Invalid contents of 'Cachable' node 'x'.",
               "1 N. Failed to resolve port 'Z'.", "1 N. Node contains invalid 'Address' XML element.",
               "1 N. Node contains invalid 'pAddress' XML element.", "1 N. Node contains invalid 'pIndex' XML element.",
               "1 N. Node contains invalid 'pIndex/@Offset' XML element.",
               "1 N. Node contains invalid 'pIndex/@pOffset' XML element.",
               "1 N. Node contains neither pLength nor Length XML elements."}},
          row{"IntReg N: Address 0, Length x | MaskedIntReg M: Address 0, Length x"
              " | Reg R@0: AccessMode RW, ImposedAccessMode RO",
              {"1 N. Failed to parse 'Length' XML element.", "1 M. Failed to parse 'Length' XML element.",
               "1 R. Tried to change access mode from ImposedAccessMode of 'RO' to 'RW'."}},
          row{"Converter A: Unit u | Converter B: pValue F | Converter C: pValue F, FormulaFrom 1"
              " | Converter D: pValue F, FormulaFrom #, FormulaTo 1, Slope x, IsLinear x | Float F: Value 1",
              {"1 Converter ('A'). Failed due to missing pValue element.",
               "1 Converter 'B'. Failed due to empty FormulaFrom expression.",
               "1 Converter 'C'. Failed due to empty FormulaTo expression.",
               "1 D. Invalid contents 'x' of 'Slope' xml node.", "1 D. Invalid contents of 'IsLinear' node 'x'.",
               "1 km_parse_tree failed with result=2. Last token view: '#'.",
               "1 Converter ('D'). failed to evaluate '#'."}},
          row{"SwissKnife A: Unit u | SwissKnife B: Formula Q",
              {"1 SwissKnife ('A'). Failed due to missing Formula member.",
               "1 Failed to map variable 'Q' to either a constant or a pValue.",
               "1 km_parse_tree failed with result=3. Last token view: 'Q'.",
               "1 SwissKnife ('B'). failed to evaluate 'Q'."}},
          row{"IntSwissKnife A: Constant 1, Constant@C 1.5, pVariable S, pVariable@V.Entry.X S,"
              " pVariable@V.Entry.Y E, pVariable@V.Max S, Expression 1, Expression@P #, Formula 1"
              " | String S: Value a | Enumeration E: Value 0",
              {lookup + "failed to parse Constant xml-node,because it has no 'Name' attribute content='1'.",
               lookup + "failed to parse Constant named='C' content='1.5'.",
               lookup + "failed to parse pVariable xml-node, because it has no 'Name' attribute.",
               lookup + "did not find enumeration for pVariable with '.Entry' specifier.",
               lookup + "did not find entry in enumeration for pVariable with '.Entry' specifier.",
               "1 A, invalid node type for pVariable with '.Min' specifier.",
               "1 A, failed to parse Expression xml-node, because it has no 'Name' attribute.",
               "1 km_parse_tree failed with result=2. Last token view: '#'.",
               "1 Failed to parse Constant named='P' content='#'."}},
          row{"Float F: Value 1, Representation x, DisplayNotation x, DisplayPrecision x, Visibility x"
              " | Integer I: Value 1, Representation x",
              {"1 F. Failed to parse 'Visibility' xml node contents 'x'.",
               "1 F. Invalid contents 'x' of 'FloatRepresentation' xml node.",
               "1 F. Invalid contents 'x' of 'DisplayNotation' xml node.",
               "1 F. Invalid contents 'x' of 'DisplayPrecision' xml node.",
               "1 I. Invalid contents 'x' of 'IntRepresentation' xml node.)."}},
          // Looked at twice.
          row{"Integer N: Value 1, ImposedAccessMode XX",
              {"1 N. Invalid contents of 'ImposedAccessMode' node 'XX'.",
               "1 N. Failed to parse 'ImposedAccessMode' node contents: 'XX'."}}}) {
        SCOPED_TRACE(nodes);
        log_capture log;
        const document sut{nodes};
        // What is shown is read when it is asked for, and falls back to the default.
        sut.doc->for_each_node([](INode* node) {
            EXPECT_EQ(node->getVisibility(), Visibility_t::Beginner);
            if (auto* real = node_cast<IFloat>(node)) {
                EXPECT_EQ(real->get_representation(), FloatRepresentation_t::PureNumber);
                EXPECT_EQ(real->get_display_notation(), DisplayNotation_t::Automatic);
                EXPECT_EQ(real->get_display_precision(), 6);
            }
            if (auto* integer = node_cast<IInteger>(node)) {
                EXPECT_EQ(integer->get_representation(), IntRepresentation_t::PureNumber);
            }
        });
        EXPECT_EQ(log.lines, lines);
    }
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
    int texts = 0;
    for (uint32_t value = 0x80000001; value < 0x80000120; ++value) {
        const std::error_code code{static_cast<int>(value), genicam_category()};
        texts += !code.message().empty();
        EXPECT_EQ(code.message().empty(), &code.default_error_condition().category() == &genicam_category()) << value;
    }
    EXPECT_EQ(texts, 24);
    struct row {
        genicam_errc value;
        const char* text;
        std::errc condition;
    };
    for (const auto& [value, text, condition] :
         {row{timeout, "Timeout", std::errc::timed_out},
          row{buffer_too_small, "Buffer too small", std::errc::no_buffer_space},
          row{access_denied, "Access denied", std::errc::permission_denied},
          row{not_on_increment, "Passed value is not dividable by the increment", std::errc::invalid_argument},
          row{no_such_entry, "Failed to find enumeration entry for passed value", std::errc::invalid_argument}}) {
        EXPECT_EQ(make_error_code(value).message(), text);
        EXPECT_TRUE(make_error_code(value) == condition) << text;
    }
    EXPECT_STREQ(genicam_category().name(), "GenICam Error");
    EXPECT_EQ(genicam_category().message(0), "Success");
    EXPECT_EQ(genicam_category().default_error_condition(0), std::error_condition{});
}

} // namespace
} // namespace GenICam::testing
