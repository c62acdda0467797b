// Converters and swiss knives: kinds of numbers, variables, limits.
#include "support.h"

namespace GenICam::testing {
namespace {

constexpr const char* numbers =
    "<Integer Name=\"Seven\"><Value>7</Value><Min>1</Min><Max>70</Max><Inc>7</Inc></Integer>"
    "<Integer Name=\"Two\"><Value>2</Value></Integer>"
    "<Float Name=\"Half\"><Value>2.5</Value><Min>0.5</Min><Max>9.5</Max></Float>"
    "<Enumeration Name=\"E\"><EnumEntry Name=\"On\"><Value>4</Value></EnumEntry>"
    "<EnumEntry Name=\"Num\"><Value>5</Value><NumericValue>5.75</NumericValue></EnumEntry>"
    "<Value>4</Value></Enumeration><String Name=\"S\"/>";

struct knife_case {
    const char* name;
    const char* children; // the last is the formula
    double integer_result;
    double float_result;
};

class SwissKnife : public ::testing::TestWithParam<knife_case> {};

TEST_P(SwissKnife, MakesItsVariablesOneKind) {
    const auto& p = GetParam();
    const document sut{std::string{numbers} + "<IntSwissKnife Name=\"I\">" + p.children + "</IntSwissKnife>" +
                       "<SwissKnife Name=\"F\">" + p.children + "</SwissKnife>"};
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(p.integer_result));
    EXPECT_THAT(sut.real("F").get_val(0), Gives(p.float_result));
}

INSTANTIATE_TEST_SUITE_P(
    All, SwissKnife,
    ::testing::Values(
        knife_case{"Division",
                   "<pVariable Name=\"A\">Seven</pVariable><pVariable Name=\"B\">Two</pVariable><Formula>A/B</Formula>",
                   3, 3.5},
        knife_case{"FloatVariable", "<pVariable Name=\"A\">Half</pVariable><Formula>A*2</Formula>", 6, 5},
        knife_case{"LiteralsKeepTheirKind", "<Formula>7/2 + 0.4</Formula>", 3, 3.4},
        knife_case{"Limits",
                   "<pVariable Name=\"A.Min\">Seven</pVariable><pVariable Name=\"A.Max\">Seven</pVariable>"
                   "<pVariable Name=\"A.Inc\">Seven</pVariable><Formula>A.Max*100 + A.Min*10 + A.Inc</Formula>",
                   7017, 7017},
        knife_case{"FloatLimits", "<pVariable Name=\"A.Max\">Half</pVariable><Formula>A.Max</Formula>", 10, 9.5},
        knife_case{"Enumeration", "<pVariable Name=\"A\">E</pVariable><Formula>A</Formula>", 4, 4},
        knife_case{"EntryByValue", "<pVariable Name=\"A.Entry.On\">E</pVariable><Formula>A.Entry.On</Formula>", 4, 4},
        // Of an integer node the numeric value is cut, not rounded.
        knife_case{"EntryByNumericValue", "<pVariable Name=\"A.Entry.Num\">E</pVariable><Formula>A.Entry.Num</Formula>",
                   5, 5.75},
        knife_case{"Constant", "<Constant Name=\"C\">12</Constant><Formula>C/8</Formula>", 1, 1.5},
        knife_case{"Expressions",
                   "<pVariable Name=\"A\">Two</pVariable><Expression Name=\"X\">A+1</Expression>"
                   "<Expression Name=\"Y\">X*X</Expression><Formula>Y+X</Formula>",
                   12, 12},
        knife_case{"FirstNameWins",
                   "<Constant Name=\"A\">1</Constant><pVariable Name=\"A\">Seven</pVariable>"
                   "<Expression Name=\"A\">99</Expression><Formula>A</Formula>",
                   1, 1},
        // For a swiss knife these are names as any other.
        knife_case{"ToAndFromAreOrdinary",
                   "<pVariable Name=\"TO\">Seven</pVariable><pVariable Name=\"FROM\">Two</pVariable>"
                   "<Formula>TO*10+FROM</Formula>",
                   72, 72}),
    case_name{});

TEST(SwissKnifes, UnknownNamesLeaveTheNodeWithoutAFormula) {
    for (const char* variable : {"<pVariable Name=\"X.Min\">S</pVariable>", "<pVariable Name=\"X.Min\">Z</pVariable>",
                                 "<pVariable Name=\"X.Entry\">E</pVariable>"}) {
        const document sut{std::string{numbers} + "<IntSwissKnife Name=\"K\">" + variable +
                           "<Formula>X.Min</Formula></IntSwissKnife>"};
        EXPECT_THAT(sut.integer("K").get_val(0), Fails(not_implemented)) << variable;
    }
    const document sut{"<SwissKnife Name=\"K\"><Expression Name=\"A\">B</Expression>"
                       "<Expression Name=\"B\">1</Expression><Formula>A</Formula></SwissKnife>"};
    EXPECT_THAT(sut.real("K").get_val(0), Fails(not_implemented));
}

TEST(SwissKnifes, AreReadOnlyAndHaveNoLimits) {
    const document sut{
        "<IntSwissKnife Name=\"I\"><Formula>1</Formula><Unit>u</Unit>"
        "<Representation>HexNumber</Representation></IntSwissKnife>"
        "<SwissKnife Name=\"F\"><Formula>1</Formula><DisplayPrecision>3</DisplayPrecision></SwissKnife>"};
    EXPECT_THAT(sut.integer("I").set_val(1, 0), Refuses(not_implemented));
    EXPECT_THAT(sut.real("F").set_val(1, no_access_check), Refuses(not_implemented));
    EXPECT_THAT(sut.integer("I").get_max(0), Gives(std::numeric_limits<int64_t>::max()));
    EXPECT_THAT(sut.real("F").get_min(0), Gives(std::numeric_limits<double>::lowest()));
    EXPECT_THAT(sut.integer("I").get_inc(0), Gives(1));
    EXPECT_THAT(sut.real("F").get_inc(0), Fails(not_implemented));
    EXPECT_EQ(sut.integer("I").get_unit(), "u");
    EXPECT_EQ(sut.integer("I").get_representation(), IntRepresentation_t::HexNumber);
    EXPECT_EQ(sut.real("F").get_display_precision(), 3);
    EXPECT_EQ(sut.integer("I").get_access_mode(), Access_t::RW);
}

TEST(SwissKnifes, ErrorsOfAVariableComeUp) {
    document sut{int_reg("R", 0) + "<IntSwissKnife Name=\"K\"><pVariable Name=\"A\">R</pVariable><Formula>1 ? 2 : A"
                                   "</Formula></IntSwissKnife><IntSwissKnife Name=\"Div\"><pVariable Name=\"A\">R"
                                   "</pVariable><Formula>1 / A</Formula></IntSwissKnife>"};
    EXPECT_THAT(sut.integer("Div").get_val(0), Fails(bad_formula));
    EXPECT_THAT(sut.integer("K").get_val(0), Gives(2));
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("K").get_val(bypass_cache), Fails(timeout));
    EXPECT_THAT(sut.integer("K").get_val(0), Gives(2));
}

std::string converter(const std::string& element, const std::string& name, const std::string& from,
                      const std::string& to, const std::string& target, const std::string& more = "") {
    return "<" + element + " Name=\"" + name + "\">" + more + "<FormulaTo>" + to + "</FormulaTo><FormulaFrom>" + from +
           "</FormulaFrom><pValue>" + target + "</pValue></" + element + ">";
}

TEST(Converter, RunsEachFormulaInItsDirection) {
    const document sut{
        std::string{numbers} + "<Integer Name=\"T\"><Value>21</Value><Min>0</Min><Max>1000</Max></Integer>" +
        converter("IntConverter", "I", "FROM*2", "TO/2", "T") + converter("Converter", "F", "FROM/2", "TO*2", "T") +
        converter("Converter", "Const", "FROM*K", "TO/K", "T", "<Constant Name=\"K\">0.5</Constant>") +
        // Argument names win over variables, and both name it in either formula.
        converter("IntConverter", "Named", "TO", "FROM+TO", "T",
                  "<pVariable Name=\"TO\">Two</pVariable><pVariable Name=\"FROM\">Two</pVariable>")};
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(42));
    EXPECT_THAT(sut.integer("I").set_val(50, 0), Passes());
    EXPECT_THAT(sut.integer("T").get_val(0), Gives(25));
    EXPECT_THAT(sut.real("F").get_val(0), Gives(12.5));
    EXPECT_THAT(sut.real("F").set_val(1.4, 0), Passes()); // 2.8 is rounded on an integer target
    EXPECT_THAT(sut.integer("T").get_val(0), Gives(3));
    EXPECT_THAT(sut.real("Const").get_val(0), Gives(1.5));
    EXPECT_THAT(sut.integer("Named").get_val(0), Gives(3));
    EXPECT_THAT(sut.integer("Named").set_val(4, 0), Passes());
    EXPECT_THAT(sut.integer("T").get_val(0), Gives(8));
}

TEST(Converter, IsUnusableWithoutItsParts) {
    const document sut{
        std::string{numbers} + "<Converter Name=\"None\"/>" + converter("Converter", "NoTarget", "FROM", "TO", "Z") +
        converter("Converter", "BadFrom", "#", "TO", "Half") + converter("Converter", "BadTo", "FROM", "#", "Half")};
    for (const char* name : {"None", "NoTarget", "BadFrom"})
        EXPECT_THAT(sut.real(name).get_val(0), Fails(not_implemented)) << name;
    for (const char* name : {"None", "NoTarget", "BadTo"})
        EXPECT_THAT(sut.real(name).set_val(1, 0), Refuses(not_implemented)) << name;
    EXPECT_THAT(sut.real("BadTo").get_val(0), Gives(2.5));
    EXPECT_THAT(sut.real("BadFrom").set_val(3, 0), Passes());
    EXPECT_EQ(sut.real("BadTo").get_fault(), "Formula '#' of 'BadTo', character 1: Invalid token found.");
    EXPECT_EQ(sut.real("Half").get_fault(), "");
    EXPECT_THAT(sut.real("None").get_max(0), Fails(not_implemented));
}

struct slope_case {
    const char* name;
    const char* slope;
    const char* formula;
    double min;
    double max;
};

class ConverterLimits : public ::testing::TestWithParam<slope_case> {};

// The target goes from 1 to 70.
TEST_P(ConverterLimits, FollowTheSlope) {
    const auto& p = GetParam();
    const std::string slope = *p.slope ? std::string{"<Slope>"} + p.slope + "</Slope>" : "";
    const document sut{std::string{numbers} + converter("Converter", "C", p.formula, "TO", "Seven", slope)};
    EXPECT_THAT(sut.real("C").get_min(0), Gives(p.min));
    EXPECT_THAT(sut.real("C").get_max(0), Gives(p.max));
}

constexpr double largest = std::numeric_limits<double>::max();

INSTANTIATE_TEST_SUITE_P(All, ConverterLimits,
                         ::testing::Values(slope_case{"Increasing", "Increasing", "FROM*2", 2, 140},
                                           slope_case{"Decreasing", "Decreasing", "140/FROM", 2, 140},
                                           slope_case{"IncreasingIsBelieved", "Increasing", "140/FROM", 140, 2},
                                           slope_case{"Varying", "Varying", "FROM*2", -largest, largest},
                                           slope_case{"AutomaticUp", "", "FROM*2", 2, 140},
                                           slope_case{"AutomaticDown", "Automatic", "140/FROM", 2, 140}),
                         case_name{});

TEST(Converter, AnUnorderedLimitIsThatOfTheMaximum) {
    // The square root of a negative limit is no number.
    const document sut{"<Float Name=\"T\"><Value>1</Value><Min>-4</Min><Max>9</Max></Float>" +
                       converter("Converter", "C", "SQRT(FROM)", "TO*TO", "T")};
    EXPECT_THAT(sut.real("C").get_max(0), Gives(3.0));
    EXPECT_THAT(sut.real("C").get_min(0), Gives(3.0));
}

TEST(Converter, ATargetThatCannotBeReadHasNoLimits) {
    document sut{int_reg("R", 0) + converter("IntConverter", "C", "FROM", "TO", "R", "<Slope>Increasing</Slope>")};
    EXPECT_THAT(sut.integer("C").get_max(0), Gives(0xFFFFFFFF));
    sut.device.broken = true;
    EXPECT_THAT(sut.integer("C").get_max(bypass_cache), Fails(timeout));
}

TEST(Converter, IncrementsAndSets) {
    const document sut{std::string{numbers} +
                       "<Integer Name=\"Set\"><Value>1</Value><ValidValueSet>0;1;2;4</ValidValueSet></Integer>" +
                       converter("Converter", "Linear", "FROM*2", "TO/2", "Seven", "<IsLinear>Yes</IsLinear>") +
                       converter("Converter", "Plain", "FROM*2", "TO/2", "Seven") +
                       converter("IntConverter", "I", "FROM*2", "TO/2", "Seven") +
                       // 0 fails and is dropped.
                       converter("IntConverter", "Values", "8/FROM", "8/TO", "Set") +
                       converter("Converter", "Real", "FROM*0.5", "TO*2", "Set") +
                       converter("Converter", "None", "FROM", "TO", "Half")};
    EXPECT_THAT(sut.real("Linear").get_inc(0), Gives(7.0)); // the target's, as it is
    EXPECT_THAT(sut.real("Plain").get_inc(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("I").get_inc(0), Gives(1));
    EXPECT_THAT(*sut.integer("Values").get_valid_value_set(0), ::testing::ElementsAre(8, 4, 2));
    EXPECT_EQ(sut.integer("Values").get_inc_mode(), IncMode_t::List);
    EXPECT_THAT(*sut.real("Real").get_valid_value_set(0), ::testing::ElementsAre(0.0, 0.5, 1.0, 2.0));
    EXPECT_THAT(sut.real("None").get_valid_value_set(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("Values").set_val(3, 0), Refuses(not_in_value_set));
}

TEST(Converter, RangeIsCheckedBeforeTheWrite) {
    const document sut{std::string{numbers} + converter("Converter", "C", "FROM*2", "TO/2", "Half")};
    EXPECT_THAT(sut.real("C").set_val(19.1, 0), Refuses(value_out_of_range));
    EXPECT_THAT(sut.real("C").set_val(19, 0), Passes());
    EXPECT_THAT(sut.real("Half").get_val(0), Gives(9.5));
}

} // namespace
} // namespace GenICam::testing
