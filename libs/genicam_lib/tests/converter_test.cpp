// Converters and swiss knives: kinds of numbers, variables, limits.
#include "script.h"

namespace GenICam::testing {
namespace {

const std::string numbers =
    "Integer Seven: Value 7, Min 1, Max 70, Inc 7 | Integer Two: Value 2"
    " | Float Half: Value 2.5, Min 0.5, Max 9.5 | String S: Value a | Enumeration E: EnumEntry@On"
    " {Value 4}, EnumEntry@Num {Value 5, NumericValue 5.75}, Value 4 | ";

TEST(SwissKnives, MakeTheirVariablesOneKind) {
    const struct {
        const char* children; // the last is the formula
        double of_integers, of_floats;
    } rows[] = {
        {"pVariable@A Seven, pVariable@B Two, Formula A/B", 3, 3.5},
        {"pVariable@A Half, Formula A*2", 6, 5},
        {"Formula 7/2 + 0.4", 3, 3.4}, // literals keep their kind
        {"pVariable@A.Min Seven, pVariable@A.Max Seven, pVariable@A.Inc Seven, Formula A.Max*100 + A.Min*10 + A.Inc",
         7017, 7017},
        {"pVariable@A.Max Half, Formula A.Max", 10, 9.5},
        {"pVariable@A E, Formula A", 4, 4},
        {"pVariable@A.Entry.On E, Formula A.Entry.On", 4, 4},
        {"pVariable@A.Entry.Num E, Formula A.Entry.Num", 5, 5.75}, // the numeric value is cut, not rounded
        {"Constant@C 12, Formula C/8", 1, 1.5},
        {"pVariable@A Two, Expression@X A+1, Expression@Y X*X, Formula Y+X", 12, 12},
        {"Constant@A 1, pVariable@A Seven, Expression@A 99, Formula A", 1, 1},
        {"pVariable@TO Seven, pVariable@FROM Two, Formula TO*10+FROM", 72, 72}, // names as any other
    };
    for (const auto& [children, of_integers, of_floats] : rows) {
        const document sut{numbers + "IntSwissKnife I: " + children + " | SwissKnife F: " + children};
        EXPECT_THAT(sut.integer("I").get_val(0), Gives(of_integers)) << children;
        EXPECT_THAT(sut.real("F").get_val(0), Gives(of_floats)) << children;
    }
}

const script_case knives[] = {
    {"UnknownNamesLeaveNoFormula",
     numbers + "IntSwissKnife A: pVariable@X.Min S, Formula X.Min | IntSwissKnife B: pVariable@X.Min Z, Formula X.Min"
               " | IntSwissKnife C: pVariable@X.Entry E, Formula X.Entry"
               " | SwissKnife Later: Expression@A B, Expression@B 1, Formula A",
     {"A ! not_implemented", "B ! not_implemented", "C ! not_implemented", "Later ! not_implemented"}},
    {"ReadOnlyAndWithoutLimits",
     "IntSwissKnife I: Formula 1, Unit u | SwissKnife F: Formula 1",
     {"I := 1 ! not_implemented", "F/no_access_check := 1 ! not_implemented", "I.max = highest",
      "F.min = -1.7976931348623157e308", "I.inc = 1", "F.inc ! not_implemented", "I.unit = u", "I.mode = RW"}},
    // Both branches are evaluated.
    {"ErrorsOfAVariableComeUp",
     "Reg R@0 | IntSwissKnife K: pVariable@A R, Formula 1 ? 2 : A | IntSwissKnife Div: pVariable@A R, Formula 1 / A",
     {"Div ! bad_formula", "K = 2", "breaks", "K/bypass_cache ! timeout", "K = 2"}},
};
INSTANTIATE_TEST_SUITE_P(SwissKnives, Document, ::testing::ValuesIn(knives), case_name{});

std::string converter(const std::string& element_and_name, const std::string& from, const std::string& to,
                      const std::string& target, const std::string& more = "") {
    return element_and_name + ": FormulaTo " + to + ", FormulaFrom " + from + ", pValue " + target + more + " | ";
}

const script_case converters[] = {
    // 2.8 is rounded on an integer target; argument names win over variables, and both name it in either formula.
    {"EachFormulaInItsDirection",
     numbers + converter("IntConverter I", "FROM*2", "TO/2", "T") + converter("Converter F", "FROM/2", "TO*2", "T") +
         converter("Converter C", "FROM*K", "TO/K", "T", ", Constant@K 0.5") +
         converter("IntConverter Named", "TO", "FROM+TO", "T", ", pVariable@TO Two, pVariable@FROM Two") +
         "Integer T: Value 21, Min 0, Max 1000",
     {"I = 42", "I := 50", "T = 25", "F = 12.5", "F := 1.4", "T = 3", "C = 1.5", "Named = 3", "Named := 4", "T = 8"}},
    {"UnusableWithoutItsParts",
     numbers + "Converter None: Unit u | " + converter("Converter NoTarget", "FROM", "TO", "Z") +
         converter("Converter BadFrom", "#", "TO", "Half") + converter("Converter BadTo", "FROM", "#", "Half"),
     {"None ! not_implemented", "None := 1 ! not_implemented", "None.max ! not_implemented",
      "NoTarget ! not_implemented", "NoTarget := 1 ! not_implemented", "BadFrom ! not_implemented", "BadFrom := 3",
      "BadTo := 1 ! not_implemented", "BadTo = 3",
      "Half.fault = ", "BadTo.fault = Formula '#' of 'BadTo', character 1: Invalid token found."}},
    {"AFaultNamesTheFormulaBelow",
     converter("Converter C", "FROM * HIGH", "TO", "T") + "Float F: pValue C | Integer T: Value 1",
     {"F ! not_implemented",
      "F.fault = Formula 'FROM * HIGH' of 'C', character 8: Failed to map a variable name to a"
      " identifier_id",
      "T.fault = "}},
    // The target goes from 1 to 70.
    {"LimitsFollowTheSlope",
     numbers + converter("Converter Up", "FROM*2", "TO", "Seven", ", Slope Increasing") +
         converter("Converter Down", "140/FROM", "TO", "Seven", ", Slope Decreasing") +
         converter("Converter Believed", "140/FROM", "TO", "Seven", ", Slope Increasing") +
         converter("Converter Varying", "FROM*2", "TO", "Seven", ", Slope Varying") +
         converter("Converter AutoUp", "FROM*2", "TO", "Seven") +
         converter("Converter AutoDown", "140/FROM", "TO", "Seven", ", Slope Automatic"),
     {"Up.min = 2", "Up.max = 140", "Down.min = 2", "Down.max = 140", "Believed.min = 140", "Believed.max = 2",
      "Varying.min = -1.7976931348623157e308", "Varying.max = 1.7976931348623157e308", "AutoUp.min = 2",
      "AutoUp.max = 140", "AutoDown.min = 2", "AutoDown.max = 140"}},
    // The square root of a negative limit is no number.
    {"AnUnorderedLimitIsThatOfTheMaximum",
     "Float T: Value 1, Min -4, Max 9 | " + converter("Converter C", "SQRT(FROM)", "TO*TO", "T"),
     {"C.max = 3", "C.min = 3"}},
    {"ATargetThatCannotBeReadHasNoLimits",
     "Reg R@0 | " + converter("IntConverter C", "FROM", "TO", "R", ", Slope Increasing"),
     {"C.max = 0xFFFFFFFF", "breaks", "C.max/bypass_cache ! timeout"}},
    // What is computed from the type's extreme is the type's extreme.
    {"OverUnlimitedTargets",
     "Integer T: Value 0 | Float F: Value 0 | Integer From5: Value 5, Min 5 | " +
         converter("IntConverter Twice", "FROM*2", "TO/2", "T") +
         converter("IntConverter Down", "0-FROM*2", "0-TO/2", "From5") +
         converter("IntConverter Plus", "FROM*2", "TO/2", "From5") +
         converter("Converter Real", "FROM*2", "TO/2", "T") + converter("IntConverter OfReal", "FROM*2", "TO/2", "F"),
     {"Twice.min = lowest", "Twice.max = highest", "Down.min = lowest", "Down.max = -10", "Plus.min = 10",
      "Plus.max = highest", "OfReal.min = lowest", "OfReal.max = highest", "Real.max = 1.7976931348623157e308",
      "Real.min = -1.7976931348623157e308", "Twice := 42", "T = 21"}},
    // A formula that has no result at its target's limit, here 0, gives no limit, and forbids no value that has one.
    {"WithoutAResultAtALimit",
     "Reg Raw@0 | " + converter("IntConverter Auto", "1000000/FROM", "1000000/TO", "Raw") +
         converter("IntConverter Down", "1000000/FROM", "1000000/TO", "Raw", ", Slope Decreasing") +
         converter("IntConverter Varying", "1000000/FROM", "1000000/TO", "Raw", ", Slope Varying"),
     {"Raw := 1", "Auto := 10", "Raw = 100000", "Down := 20", "Raw = 50000", "Varying := 40", "Raw = 25000"}},
    // Of a set 0 fails and is dropped; of a linear one the increment is the target's, as it is.
    {"IncrementsAndSets",
     numbers + "Integer Set: Value 1, ValidValueSet 0;1;2;4 | " +
         converter("Converter Linear", "FROM*2", "TO/2", "Seven", ", IsLinear Yes") +
         converter("Converter Plain", "FROM*2", "TO/2", "Seven") +
         converter("IntConverter I", "FROM*2", "TO/2", "Seven") +
         converter("IntConverter Values", "8/FROM", "8/TO", "Set") +
         converter("Converter Real", "FROM*0.5", "TO*2", "Set") + converter("Converter None", "FROM", "TO", "Half"),
     {"Linear.inc = 7", "Plain.inc ! not_implemented", "I.inc = 1", "Values.set = 8 4 2", "Real.set = 0 0.5 1 2",
      "None.set ! not_implemented", "Values := 3 ! not_in_value_set"}},
    {"RangeIsCheckedBeforeTheWrite",
     numbers + converter("Converter C", "FROM*2", "TO/2", "Half"),
     {"C := 19.1 ! value_out_of_range", "C := 19", "Half = 9.5"}},
    // A value that is a limit, rounded, is written as that limit; a register would take the low bytes of what its
    // formula gives. A float may miss a limit by 1e-5.
    {"ARoundedLimitIsWrittenAsTheLimit",
     "IntReg R: Address 0, Length 1 | IntReg Long: Address 2, Length 2 | MaskedIntReg Bits: Address 4, LSB 3, MSB 0"
     " | Integer Checked: Value 3, Min 0, Max 255 | IntReg Signed: Address 8, Length 1, Sign Signed | " +
         converter("IntConverter C", "FROM*0.5", "TO*2", "R", ", Slope Increasing") +
         converter("IntConverter Masked", "FROM*0.5", "TO*2", "Bits") +
         converter("IntConverter Down", "0-FROM*0.5", "0-TO*2", "R", ", Slope Decreasing") +
         converter("IntConverter OfChecked", "FROM*0.5", "TO*2", "Checked") +
         converter("IntConverter OfSigned", "FROM*0.1", "TO*10", "Signed") +
         converter("Converter F", "FROM*0.000001", "TO*1000000", "Long"),
     {"[0] := ff",
      "C = 128",
      "C.max = 128",
      "C := 128",
      "[0] = ff",
      "C := 127",
      "[0] = fe",
      "C := 129 ! value_out_of_range",
      "Down := -128",
      "[0] = ff",
      "Masked := 8",
      "Bits = 15",
      "OfChecked := 128",
      "Checked = 255",
      "OfSigned := -13",
      "Signed = -128",
      "F := 0.06554",
      "[2] = ff ff",
      "F := -0.000005",
      "[2] = 00 00",
      "F := 0.0656 ! value_out_of_range"}},
    // What is not off by a rounding goes to the target, which may take the low bytes of a negative number, or refuse.
    {"OtherResultsBeyondTheTargetStay",
     numbers + "IntReg R: Address 0, Length 1 | " +
         converter("IntConverter C", "(FROM > 127) ? FROM - 256 : FROM", "TO", "R", ", Slope Varying") +
         converter("Converter F", "FROM*2", "TO/2", "Seven", ", Slope Varying") +
         converter("Converter Fine", "((FROM > 0x7FFF) ? FROM - 0x10000 : FROM) * 0.000001", "TO*1000000", "Long",
                   ", Slope Varying") +
         "IntReg Long: Address 2, Length 2",
     {"Fine := -0.000003", "[2] = ff fd", "C := -5", "[0] = fb", "C = -5", "C := -1", "[0] = ff",
      "F := 200 ! value_out_of_range", "Seven = 7", "C/no_range_check := 300", "[0] = 2c"}},
    {"OneArgumentRound",
     "Float T: Value 0 | " + converter("Converter C", "ROUND(FROM/2)", "ROUND(TO*2)", "T"),
     {"C := -1.25", "T = -3", "C = -2"}},
    // A target that is only written has limits and no value; one without limits has none that could fail.
    {"OverAWriteOnlyTarget",
     "Reg R@0: AccessMode WO | Enumeration E: EnumEntry@A {Value 1}, pValue R | Integer I: pValue E | " +
         converter("IntConverter C", "FROM", "TO", "R"),
     {"C := 1", "I := 1"}},
};
INSTANTIATE_TEST_SUITE_P(Converters, Document, ::testing::ValuesIn(converters), case_name{});

// A sound formula over sound formulas, in each of which one variable stands a hundred times.
TEST(SwissKnives, FetchAVariableOncePerRun) {
    std::string nodes = "Reg N0@0: Cachable NoCache";
    for (int i = 1; i <= 4; ++i) {
        const std::string below = " N" + std::to_string(i - 1);
        nodes += " | IntSwissKnife N" + std::to_string(i) + ": pVariable@A" + below + ", pVariable@B" + below +
                 ", Formula A";
        for (int k = 0; k < 100; ++k) nodes += "+B-A";
    }
    document sut{nodes};
    script{sut}.run({"[0] := 07", "N4 = 7", "reads = 1"});
}

} // namespace
} // namespace GenICam::testing
