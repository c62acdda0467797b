// Features: integers, floats, booleans, commands, enumerations, strings, categories.
#include "script.h"

namespace GenICam::testing {

TEST_P(Document, FollowsItsScript) {
    document sut{GetParam().nodes};
    script{sut}.run(GetParam().steps);
}

namespace {

const script_case number_values[] = {
    {"IntegersAreCheckedInOrder",
     "Integer Six: Value 6 | SwissKnife Bad: Formula 1/0 | Integer Range: Value 0, Min 0, Max 10, Inc 4"
     " | Integer FromMin: Value 0, Min 15, Inc 2 | Integer FromNegative: Value 0, Min -9223372036854775807, Inc 4"
     " | Integer NoMin: Value 0, Inc 3 | Integer NegativeInc: Value 0, Inc -2 | Integer ZeroInc: Value 0, Inc 0"
     " | Integer LowestInc: Value 0, Inc -9223372036854775808 | Integer Set: Value 0, ValidValueSet 4;1;2"
     " | Integer RangeOfASet: Value 0, ValidValueSet 1;2;9, Max 3 | Integer Linked: Value 0, pMax Six"
     " | Integer FailingInc: Value 0, pInc Bad | Integer FloatMax: Value 0, Max 6.5"
     " | Integer All: Value 0, Min 0, Max 1, Inc 4, ValidValueSet 1",
     {"Range := 9 ! not_on_increment",
      "says 2 Range. Failed range check for parameter value=9. Err: Passed value is not dividable by the increment.",
      "Range := 12 ! value_out_of_range", "Range := -1 ! value_out_of_range", "Range = 0", "Range := 8", "Range = 8",
      "FromMin := 17", "FromMin := 16 ! not_on_increment", "FromMin = 17", "FromNegative := 9223372036854775805",
      // The type's extreme is no minimum.
      "NoMin := 9", "NegativeInc := 4", "ZeroInc := 3", "LowestInc := 3 ! not_on_increment", "Set := 4",
      "RangeOfASet := 5 ! not_in_value_set", "RangeOfASet := 9 ! not_in_value_set", "Linked := 7 ! value_out_of_range",
      "Linked := 6", "FailingInc := 7", "FloatMax := 7", "All/no_range_check := 7", "All = 7",
      "All/no_access_check := 7 ! not_in_value_set"}},
    {"FloatsHaveATolerance",
     "Float N: Value 0.5, Min 0, Max 1.0, Inc 0.5",
     {"N := 1.000005", "N = 1.000005", "N := 1.00002 ! value_out_of_range",
      "says 2 N. Failed range check for parameter value=1.00002. Err: Passed value is out of range of Min/Max.",
      "N := -0.000005", "N := -0.00002 ! value_out_of_range", "N := 0.3", "N/no_range_check := 7"}},
    // No number is in no range, also where there are no limits: an integer below would be written 0.
    {"NoNumberIsRefused",
     "Float N: Value 1, Min 0, Max 2 | Float Free: pValue R | Reg R@0: AccessMode RW"
     " | Converter C: FormulaTo TO * 2, FormulaFrom FROM / 2, pValue R"
     " | Converter Root: FormulaTo SQRT(TO), FormulaFrom FROM * FROM, pValue R",
     {"N := nan ! value_out_of_range",
      "says 2 N. Failed range check for parameter value=nan. Err: Passed value is out of range of Min/Max.",
      "Free := nan ! value_out_of_range", "C := nan ! value_out_of_range", "Root := -1 ! value_out_of_range",
      "writes = 0", "N = 1"}},
    // What does not fit an integer is its nearest.
    {"Extremes",
     "Integer I: Value 1 | Float F: Value 1 | Integer P: pValue F | Float Q: pValue I",
     {"I.min = lowest", "I.max = highest", "I.inc = 1", "F.min = -1.7976931348623157e308", "F.inc ! not_implemented",
      "F.max = 1.7976931348623157e308", "P.max = highest", "Q.max = 9223372036854775808", "Q.inc = 1"}},
    {"SourcesAreWhatTheValueIsComputedFrom",
     "IntSwissKnife Lock: pVariable@A Sel, pVariable@B Knob, Formula A + B | Integer Sel: pValue R, pSelected Gain"
     " | Integer Knob: Value 0 | Integer Gain: Value 0 | Integer Other: Value 0, pInvalidator Knob | Reg R@0",
     {"Lock.sources = Sel Knob R"}},
    {"ConstantsAreNeverWritten",
     "Integer I: Value 0x10, ImposedAccessMode RO | Float F: Value 1.5, ImposedAccessMode RO",
     {"I := 1 ! access_denied", "I/no_access_check := 1 ! access_denied",
      "F/no_access_check/no_range_check/ignore_lock := 1 ! access_denied", "I = 16", "F = 1.5", "I.max = highest"}},
    // Reading rounds half away from zero, a plain double is cut when written: on purpose.
    {"PValueConvertsBothWays",
     "Integer I: Value 0 | Float F: Value 0 | Boolean B: Value 0 | Integer IF: pValue F | Float FI: pValue I"
     " | Integer IB: pValue B | Float FB: pValue B",
     {"F := 2.5", "IF = 3", "F := -2.5", "IF = -3", "F := 2.4", "IF = 2", "F := -2.6", "IF = -3", "FI := 2.9", "I = 2",
      "FI := -2.9", "FI = -2", "IB := 7", "IB = 1", "FB = 1"}},
    {"PValueOfAText",
     "Integer N: pValue S | String S: Value a",
     {"N ! not_implemented", "says 1 GenICam::impl::get_eval_val, Get value on a (4) node_type seems to be futile ...",
      "N := 1 ! not_implemented",
      "says 1 GenICam::impl::set_eval_val, Set value on a (4) node_type seems to be futile ...",
      "N.min ! not_implemented"}},
    {"PropertiesComeFromTheTarget",
     "Integer I: Value 2, Min 1, Max 9, Inc 2, Unit us, ValidValueSet 2;4;20 | Integer P: pValue I | Float F: pValue P"
     " | Integer Own: pValue I, Min 0, Max 3, Unit ms",
     {"P.min = 1", "P.max = 9", "P.inc = 2", "P.unit = us", "P.set = 2 4", "Own.max = 3", "Own.unit = ms",
      "Own.set = 2", "F.unit = us", "F.set = 2 4", "F.inc = 2"}},
    {"SetsSkipBadItemsAndKeepToTheRange",
     "Integer N: Value 1, ValidValueSet 4;1;2;x; | Integer R: Value 1, Max 2, ValidValueSet 1;2;4"
     " | Integer Empty: Value 1, ValidValueSet x | Integer None: Value 1"
     " | Integer Broken: Value 1, pMax Bad, ValidValueSet 1 | SwissKnife Bad: Formula 1/0",
     {"N.set = 1 2 4", "R.set = 1 2", "Empty.set ! not_implemented", "None.set ! not_implemented",
      "Broken.set ! bad_formula"}},
    {"CopiesInDocumentOrderUpToTheFirstError",
     "Integer A: Value 0, Min -5, Max 50 | Integer B: Value 0, Min 1, Max 40"
     " | Integer C: Value 0, Max 60, ImposedAccessMode WO | Integer N: pValueCopy B, pValue A, pValueCopy C"
     " | Reg Locked@0: AccessMode RO | Integer Late: pValue A, pValueCopy Locked, pValueCopy B"
     " | Integer Bad: pValue Z, pValueCopy Z",
     {"N.min = 1", "N.max = 40", "N := 7", "N = 7", "B = 7", "C/no_access_check = 7", "N := 45 ! value_out_of_range",
      "Late := 3 ! access_denied", "A = 3", "B = 7", "Bad := 1 ! not_implemented", "Bad ! not_implemented"}},
    {"CopiesToWhatHasNoLimitsKeepThoseOfTheOthers",
     "Integer N: pValueCopy E, pValue R, pValueCopy Top | IntReg R: Address 0, Length 1 | Reg Most@4: Cachable NoCache"
     " | Enumeration E: EnumEntry@On {Value 3}, Value 3 | Integer Top: Value 0, Min 1, pMax Most",
     {"[4] := 2c 01", "N.min = 1", "N.max = 255", "N := 300 ! value_out_of_range", "breaks", "N.max ! timeout"}},
    // A constant may be written; each index keeps its own.
    {"IndexChoosesTheFirstEqualElseTheDefault",
     "Integer Sel: Value 1 | Integer T: Value 100, Min 50, Max 200, Inc 10, Unit T"
     " | Integer N: pIndex Sel, ValueIndexed@1 10, ValueIndexed@1 11, ValueIndexed@0x2 20, pValueIndexed@3 T,"
     " ValueDefault -1",
     {"N = 10",     "N.min = lowest", "Sel := 2", "N = 20",    "Sel := 99",
      "N = -1",     "N.unit = ",      "Sel := 3", "N = 100",   "N.min = 50",
      "N.inc = 10", "N.unit = T",     "N := 120", "T = 120",   "N := 121 ! not_on_increment",
      "Sel := 1",   "N := 12",        "Sel := 2", "N = 20",    "Sel := 1",
      "N = 12",     "Sel := 50",      "N := 7",   "Sel := 51", "N = 7"}},
    {"IndexOfFloatsAndItsFaults",
     "Integer Sel: Value 1 | Reg Where@0 | Float F: pIndex Sel, ValueIndexed@1 1.5, pValueDefault Sel"
     " | Float NoIndex: pIndex Z, ValueDefault 1 | Float NoDefault: pIndex Sel | Float Bad: pIndex Where, ValueDefault "
     "1",
     {"F = 1.5", "Sel := 4", "F = 4", "NoIndex ! not_implemented", "NoIndex := 1 ! not_implemented",
      "NoDefault ! not_implemented", "breaks", "Bad ! timeout", "Bad := 1 ! timeout", "Bad.min ! timeout",
      "Bad.max ! timeout", "Bad.inc ! timeout", "Bad.set ! timeout"}},
};
INSTANTIATE_TEST_SUITE_P(Numbers, Document, ::testing::ValuesIn(number_values), case_name{});

const std::string enumeration = "Integer Off: Value 0 | Enumeration E: EnumEntry@A {Value 2, NumericValue 2.5, Symbolic"
                                " SymA, IsSelfClearing Yes}, EnumEntry@B {Value 3}, EnumEntry@C {Value 4, pIsAvailable"
                                " Off}, EnumEntry@D {Value 5, pIsImplemented Off}, ";

const script_case others[] = {
    {"BooleanOfItsOwn",
     "Boolean T: Value true | Boolean F: Value 0 | Boolean Odd: Value 1, OnValue 5, OffValue 7"
     " | Boolean Both: Value 1, pValue F",
     {"T = true", "F = false", "Odd = true", "Odd := false", "Odd = false", "Both = false"}},
    {"BooleanOfARegister",
     "Reg R@0: Cachable NoCache | Boolean B: pValue R | Boolean X: pValue R, OnValue 2, OffValue 3"
     " | Boolean None: pValue Z",
     {"[0] := 05", "B = true", "says 1 B. Invalid value for boolean of: '5' .", "X := true", "[0] = 02", "X := false",
      "X = false", "[0] = 03", "None ! not_implemented", "None := true ! not_implemented"}},
    // What cannot be read is done at once.
    {"CommandRunsUntilTheRegisterChanges",
     "Reg R@0: Cachable NoCache | Reg W@4: AccessMode WO | Integer Nine: Value 9"
     " | Command C: pValue R, CommandValue 1 | Command L: pValue R, pCommandValue Nine"
     " | Command WO: pValue W, CommandValue 1 | Command None: pValue R | Command V: pValue R, Value 0, CommandValue 3",
     {"C = true", "C := run", "[0] = 01 00 00 00", "C = false", "[0] := 00", "C = true", "L := run", "[0] = 09",
      "WO := run", "WO = true", "None := run ! not_implemented", "None ! not_implemented", "V = true", "V := run",
      "V = false", "[0] = 09"}},
    {"EnumerationSelectsWhatIsAvailable",
     enumeration + "Value 2",
     {"E = A", "E := B", "E.value = 3", "E := Nobody ! no_such_entry", "E := C ! node_not_available",
      "E := D ! node_not_implemented", "E/no_access_check := D", "E.value = 5"}},
    {"EnumerationOfARegister",
     enumeration + "pValue R | Reg R@0",
     {"E ! no_such_entry", "says 1 E. Failed to find EnumEntry corresponding to current value=0.", "E.value = 0",
      "E := B", "[0] = 03", "E := C ! node_not_available", "[0] = 03", "E/no_access_check := D", "[0] = 05"}},
    {"PValueChainsAreCheckedAgainstTheEntries",
     enumeration + "Value 2 | Integer I: pValue E | Float F: pValue E",
     {"I := 3", "I = 3", "I := 9 ! no_such_entry", "I := 4 ! node_not_available", "F := 2.6", "I = 2"}},
    {"StringOfItsOwnOrOfAnother",
     "String S: Value text | String P: pValue R | StringReg R: Address 0, Length 8 | String Bad: pValue Z, Value own",
     {"S = text", "S := new", "S = new", "P := device", "P = device", "P.max_length = 8", "writes = 1", "Bad = own"}},
};
INSTANTIATE_TEST_SUITE_P(Others, Document, ::testing::ValuesIn(others), case_name{});

TEST(Enumeration, EntriesAreReachedThroughIt) {
    const document sut{enumeration + "Value 2 | Enumeration Plain: EnumEntry@Two {Value 2}, EnumEntry@Three {Value 3},"
                                     " Value 2 | Enumeration None: Value 2"};
    auto& node = sut.node<IEnumeration>("E");
    ASSERT_EQ(node.get_entries().size(), 4u);
    EXPECT_EQ(sut.doc->find_node("A"), nullptr);
    IEnumEntry* a = node.find_entry_by_name("A");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->get_value(), 2);
    EXPECT_EQ(a->get_numeric_value(), 2.5);
    EXPECT_EQ(a->get_symbolic(), "SymA");
    EXPECT_TRUE(a->is_self_clearing());
    EXPECT_FALSE(node.get_entries()[1]->is_self_clearing());
    EXPECT_EQ(node.find_entry_by_value(3)->get_name(), "B");
    EXPECT_EQ(node.find_entry_by_value(9), nullptr);
    EXPECT_FALSE(node.find_entry_by_name("C")->is_available());
    EXPECT_FALSE(node.find_entry_by_name("D")->is_implemented());
    // A is 2.5, B is 3: the first of equals.
    EXPECT_EQ(node.find_nearest_entry(2.75), a);
    EXPECT_EQ(node.find_nearest_entry(2.9)->get_name(), "B");
    EXPECT_EQ(sut.node<IEnumeration>("Plain").find_nearest_entry(2.5)->get_name(), "Two");
    EXPECT_EQ(sut.node<IEnumeration>("None").find_nearest_entry(2.5), nullptr);
}

TEST(Category, ListsDirectlyAndFlattened) {
    const document sut{"Category Root: pFeature Sub, pFeature A, pFeature Z | Integer A: Value 1 | Integer B: Value 1"
                       " | Category Sub: pFeature B, pFeature A, pFeature Root, pFeature Sub"};
    EXPECT_EQ(names_of(sut.doc->get_root_category()->get_features()), "Sub A");
    EXPECT_EQ(names_of(sut.doc->get_root_features()), "B A");
}

} // namespace
} // namespace GenICam::testing
