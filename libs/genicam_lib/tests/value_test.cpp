// Features: integers, floats, booleans, commands, enumerations, strings, categories.
#include "support.h"

namespace GenICam::testing {
namespace {

std::string integer_node(const std::string& name, const std::string& children) {
    return "<Integer Name=\"" + name + "\">" + children + "</Integer>";
}
std::string float_node(const std::string& name, const std::string& children) {
    return "<Float Name=\"" + name + "\">" + children + "</Float>";
}

struct range_case {
    const char* name;
    const char* children;
    int64_t value;
    unsigned flags;
    genicam_errc expected;
};

class IntegerRange : public ::testing::TestWithParam<range_case> {};

TEST_P(IntegerRange, IsCheckedInOrder) {
    const auto& p = GetParam();
    log_capture log;
    const document sut{integer_node("N", std::string{"<Value>0</Value>"} + p.children) +
                       integer_node("Six", "<Value>6</Value>") +
                       "<SwissKnife Name=\"Bad\"><Formula>1/0</Formula></SwissKnife>"};
    ASSERT_THAT(log.lines, ::testing::IsEmpty());
    EXPECT_EQ(sut.integer("N").set_val(p.value, p.flags).value(), static_cast<int>(p.expected));
    EXPECT_THAT(sut.integer("N").get_val(0), Gives(p.expected == success ? p.value : 0));
    if (p.expected == success) {
        EXPECT_THAT(log.lines, ::testing::IsEmpty());
    } else {
        EXPECT_THAT(log.lines,
                    ::testing::ElementsAre("2 N. Failed range check for parameter value=" + std::to_string(p.value) +
                                           ". Err: " + make_error_code(p.expected).message() + "."));
    }
}

INSTANTIATE_TEST_SUITE_P(
    All, IntegerRange,
    ::testing::Values(
        range_case{"Inside", "<Min>0</Min><Max>10</Max><Inc>4</Inc>", 8, 0, success},
        range_case{"OffIncrement", "<Min>0</Min><Max>10</Max><Inc>4</Inc>", 9, 0, not_on_increment},
        range_case{"Above", "<Min>0</Min><Max>10</Max><Inc>4</Inc>", 12, 0, value_out_of_range},
        range_case{"Below", "<Min>2</Min>", 1, 0, value_out_of_range},
        range_case{"IncrementFromTheMinimum", "<Min>15</Min><Inc>2</Inc>", 17, 0, success},
        range_case{"NotOfTheValueItself", "<Min>15</Min><Inc>2</Inc>", 16, 0, not_on_increment},
        range_case{"IncrementFromANegativeMinimum", "<Min>-9223372036854775807</Min><Inc>4</Inc>", 9223372036854775805,
                   0, success},
        range_case{"TheExtremeIsNoMinimum", "<Inc>3</Inc>", 9, 0, success},
        range_case{"NegativeIncrement", "<Inc>-2</Inc>", 4, 0, success},
        range_case{"NegativeIncrementOff", "<Inc>-2</Inc>", 3, 0, not_on_increment},
        range_case{"LowestIncrement", "<Inc>-9223372036854775808</Inc>", 3, 0, not_on_increment},
        range_case{"NegativeValue", "<Inc>4</Inc>", -8, 0, success},
        range_case{"ZeroIncrement", "<Inc>0</Inc>", 3, 0, success},
        range_case{"SetMember", "<ValidValueSet>4;1;2</ValidValueSet>", 4, 0, success},
        range_case{"NoSetMember", "<ValidValueSet>1;2;4</ValidValueSet>", 3, 0, not_in_value_set},
        range_case{"SetComesFirst", "<ValidValueSet>1;2</ValidValueSet><Max>3</Max>", 9, 0, not_in_value_set},
        range_case{"SetMemberOutsideTheRange", "<ValidValueSet>1;9</ValidValueSet><Max>3</Max>", 9, 0,
                   not_in_value_set},
        range_case{"LinkedLimit", "<pMax>Six</pMax>", 7, 0, value_out_of_range},
        range_case{"LinkedLimitHeld", "<pMax>Six</pMax>", 6, 0, success},
        range_case{"FailingIncrementBlocksNothing", "<pInc>Bad</pInc>", 7, 0, success},
        range_case{"FloatLimitIsRounded", "<Max>6.5</Max>", 7, 0, success},
        range_case{"Unchecked", "<Min>0</Min><Max>1</Max><Inc>4</Inc><ValidValueSet>1</ValidValueSet>", 7,
                   no_range_check, success},
        range_case{"AccessFlagDoesNotSkipTheRange", "<Max>1</Max>", 7, no_access_check, value_out_of_range}),
    case_name{});

TEST(Float, RangeHasATolerance) {
    log_capture log;
    const document sut{float_node("N", "<Value>0.5</Value><Min>0</Min><Max>1.0</Max><Inc>0.5</Inc>")};
    auto& node = sut.real("N");
    EXPECT_THAT(node.set_val(1.000005, 0), Passes());
    EXPECT_THAT(node.get_val(0), Gives(1.000005));
    EXPECT_THAT(node.set_val(1.00002, 0), Refuses(value_out_of_range));
    EXPECT_THAT(node.set_val(-0.000005, 0), Passes());
    EXPECT_THAT(node.set_val(-0.00002, 0), Refuses(value_out_of_range));
    EXPECT_THAT(node.set_val(0.3, 0), Passes()); // no increment check
    EXPECT_THAT(node.set_val(7, no_range_check), Passes());
    EXPECT_EQ(log.lines.size(), 2u);
    EXPECT_EQ(log.lines[0],
              "2 N. Failed range check for parameter value=1.00002. Err: Passed value is out of range of Min/Max.");
}

TEST(Numbers, HaveTheExtremesOfTheirType) {
    const document sut{integer_node("I", "<Value>1</Value>") + float_node("F", "<Value>1</Value>") +
                       integer_node("C", "<Value>1</Value><ImposedAccessMode>RO</ImposedAccessMode>") +
                       integer_node("P", "<pValue>F</pValue>") + float_node("Q", "<pValue>I</pValue>")};
    EXPECT_THAT(sut.integer("I").get_min(0), Gives(std::numeric_limits<int64_t>::min()));
    EXPECT_THAT(sut.integer("I").get_max(0), Gives(std::numeric_limits<int64_t>::max()));
    EXPECT_THAT(sut.integer("I").get_inc(0), Gives(1));
    EXPECT_THAT(sut.real("F").get_min(0), Gives(std::numeric_limits<double>::lowest()));
    EXPECT_THAT(sut.real("F").get_max(0), Gives(std::numeric_limits<double>::max()));
    EXPECT_THAT(sut.real("F").get_inc(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("C").get_max(0), Gives(std::numeric_limits<int64_t>::max()));
    // What does not fit an integer is its nearest.
    EXPECT_THAT(sut.integer("P").get_max(0), Gives(std::numeric_limits<int64_t>::max()));
    EXPECT_THAT(sut.integer("P").set_val(5, 0), Passes());
    EXPECT_THAT(sut.real("Q").get_max(0), Gives(9223372036854775808.0));
    EXPECT_THAT(sut.real("Q").get_inc(0), Gives(1.0));
}

TEST(Numbers, ConstantsAreNeverWritten) {
    const document sut{integer_node("I", "<Value>0x10</Value><ImposedAccessMode>RO</ImposedAccessMode>") +
                       float_node("F", "<Value>1.5</Value><ImposedAccessMode>RO</ImposedAccessMode>")};
    for (const unsigned flags : {0u, no_access_check, no_access_check | no_range_check | ignore_lock}) {
        EXPECT_THAT(sut.integer("I").set_val(1, flags), Refuses(access_denied));
        EXPECT_THAT(sut.real("F").set_val(1, flags), Refuses(access_denied));
    }
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(16));
    EXPECT_THAT(sut.real("F").get_val(0), Gives(1.5));
}

TEST(Numbers, PValueConvertsBothWays) {
    const document sut{integer_node("I", "<Value>0</Value>") + float_node("F", "<Value>0</Value>") +
                       "<Boolean Name=\"B\"><Value>0</Value></Boolean>" + integer_node("IF", "<pValue>F</pValue>") +
                       float_node("FI", "<pValue>I</pValue>") + integer_node("IB", "<pValue>B</pValue>") +
                       float_node("FB", "<pValue>B</pValue>") + "<String Name=\"S\"/>" +
                       integer_node("IS", "<pValue>S</pValue>")};
    // Reading rounds half away from zero, a plain double is cut when written: on purpose.
    for (const auto& [real, rounded] : {std::pair{2.5, 3}, {-2.5, -3}, {2.4, 2}, {-2.6, -3}}) {
        EXPECT_THAT(sut.real("F").set_val(real, 0), Passes());
        EXPECT_THAT(sut.integer("IF").get_val(0), Gives(rounded));
    }
    EXPECT_THAT(sut.real("FI").set_val(2.9, 0), Passes());
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(2));
    EXPECT_THAT(sut.real("FI").set_val(-2.9, 0), Passes());
    EXPECT_THAT(sut.real("FI").get_val(0), Gives(-2.0));
    EXPECT_THAT(sut.integer("IB").set_val(7, 0), Passes());
    EXPECT_THAT(sut.integer("IB").get_val(0), Gives(1));
    EXPECT_THAT(sut.real("FB").get_val(0), Gives(1.0));
    log_capture log;
    EXPECT_THAT(sut.integer("IS").get_val(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("IS").set_val(1, 0), Refuses(not_implemented));
    EXPECT_THAT(sut.integer("IS").get_min(0), Fails(not_implemented));
    EXPECT_THAT(log.lines, ::testing::ElementsAre(
                               "1 GenICam::impl::get_eval_val, Get value on a (4) node_type seems to be futile ...",
                               "1 GenICam::impl::set_eval_val, Set value on a (4) node_type seems to be futile ..."));
}

TEST(Numbers, PropertiesComeFromTheTarget) {
    const document sut{integer_node("I", "<Value>2</Value><Min>1</Min><Max>9</Max><Inc>2</Inc><Unit>us</Unit>"
                                         "<Representation>Logarithmic</Representation>"
                                         "<ValidValueSet>2;4;20</ValidValueSet>") +
                       integer_node("P", "<pValue>I</pValue>") +
                       integer_node("Own", "<pValue>I</pValue><Min>0</Min><Max>3</Max><Unit>ms</Unit>"
                                           "<Representation>HexNumber</Representation>") +
                       float_node("F", "<pValue>P</pValue>") +
                       float_node("Shown", "<Value>1</Value><DisplayNotation>Fixed</DisplayNotation>"
                                           "<DisplayPrecision>2</DisplayPrecision>") +
                       float_node("G", "<pValue>Shown</pValue>")};
    auto& p = sut.integer("P");
    EXPECT_THAT(p.get_min(0), Gives(1));
    EXPECT_THAT(p.get_max(0), Gives(9));
    EXPECT_THAT(p.get_inc(0), Gives(2));
    EXPECT_EQ(p.get_unit(), "us");
    EXPECT_EQ(p.get_representation(), IntRepresentation_t::Logarithmic);
    EXPECT_EQ(p.get_inc_mode(), IncMode_t::List);
    EXPECT_THAT(*p.get_valid_value_set(0), ::testing::ElementsAre(2, 4));
    auto& own = sut.integer("Own");
    EXPECT_THAT(own.get_max(0), Gives(3));
    EXPECT_EQ(own.get_unit(), "ms");
    EXPECT_EQ(own.get_representation(), IntRepresentation_t::HexNumber);
    EXPECT_THAT(*own.get_valid_value_set(0), ::testing::ElementsAre(2));
    auto& real = sut.real("F");
    EXPECT_EQ(real.get_unit(), "us");
    EXPECT_EQ(real.get_representation(), FloatRepresentation_t::Logarithmic);
    EXPECT_THAT(*real.get_valid_value_set(0), ::testing::ElementsAre(2.0, 4.0));
    EXPECT_THAT(real.get_inc(0), Gives(2.0));
    EXPECT_EQ(sut.real("G").get_display_notation(), DisplayNotation_t::Fixed);
    EXPECT_EQ(sut.real("G").get_display_precision(), 2);
}

TEST(ValidValueSet, SkipsBadItemsAndKeepsToTheRange) {
    const document sut{integer_node("N", "<Value>1</Value><ValidValueSet>4;1;2;x;</ValidValueSet>") +
                       integer_node("R", "<Value>1</Value><Max>2</Max><ValidValueSet>1;2;4</ValidValueSet>") +
                       integer_node("Empty", "<Value>1</Value><ValidValueSet>x</ValidValueSet>") +
                       integer_node("None", "<Value>1</Value>") +
                       integer_node("Broken", "<Value>1</Value><pMax>Bad</pMax><ValidValueSet>1</ValidValueSet>") +
                       "<SwissKnife Name=\"Bad\"><Formula>1/0</Formula></SwissKnife>"};
    EXPECT_THAT(*sut.integer("N").get_valid_value_set(0), ::testing::ElementsAre(1, 2, 4));
    EXPECT_THAT(*sut.integer("R").get_valid_value_set(0), ::testing::ElementsAre(1, 2));
    EXPECT_THAT(sut.integer("Empty").get_valid_value_set(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("None").get_valid_value_set(0), Fails(not_implemented));
    EXPECT_THAT(sut.integer("Broken").get_valid_value_set(0), Fails(bad_formula));
    EXPECT_EQ(sut.integer("N").get_inc_mode(), IncMode_t::List);
    EXPECT_EQ(sut.integer("None").get_inc_mode(), IncMode_t::None);
}

TEST(Integer, CopiesInDocumentOrderUpToTheFirstError) {
    const document sut{integer_node("A", "<Value>0</Value><Min>-5</Min><Max>50</Max>") +
                       integer_node("B", "<Value>0</Value><Min>1</Min><Max>40</Max>") +
                       integer_node("C", "<Value>0</Value><Max>60</Max><ImposedAccessMode>WO</ImposedAccessMode>") +
                       integer_node("N", "<pValueCopy>B</pValueCopy><pValue>A</pValue><pValueCopy>C</pValueCopy>") +
                       integer_node("Bad", "<pValue>Z</pValue><pValueCopy>Z</pValueCopy>")};
    auto& node = sut.integer("N");
    EXPECT_THAT(node.get_min(0), Gives(1));
    EXPECT_THAT(node.get_max(0), Gives(40));
    EXPECT_THAT(node.set_val(7, 0), Passes());
    EXPECT_THAT(node.get_val(0), Gives(7));
    EXPECT_THAT(sut.integer("B").get_val(0), Gives(7));
    EXPECT_THAT(sut.integer("C").get_val(no_access_check), Gives(7));
    EXPECT_THAT(node.set_val(45, 0), Refuses(value_out_of_range));
    EXPECT_THAT(sut.integer("Bad").set_val(1, 0), Refuses(not_implemented));
    EXPECT_THAT(sut.integer("Bad").get_val(0), Fails(not_implemented));
}

TEST(Integer, AFailingCopyLeavesTheFirstWritten) {
    document sut{integer_node("A", "<Value>0</Value>") + int_reg("B", 0, "<AccessMode>RO</AccessMode>") +
                 integer_node("D", "<Value>0</Value>") +
                 integer_node("N", "<pValue>A</pValue><pValueCopy>B</pValueCopy><pValueCopy>D</pValueCopy>")};
    EXPECT_THAT(sut.integer("N").set_val(3, 0), Refuses(access_denied));
    EXPECT_THAT(sut.integer("A").get_val(0), Gives(3));
    EXPECT_THAT(sut.integer("D").get_val(0), Gives(0));
}

TEST(Index, ChoosesTheFirstEqualElseTheDefault) {
    const document sut{
        integer_node("Sel", "<Value>1</Value>") +
        integer_node("T", "<Value>100</Value><Min>50</Min><Max>200</Max><Inc>10</Inc><Unit>T</Unit>") +
        integer_node("N", "<pIndex>Sel</pIndex><ValueIndexed Index=\"1\">10</ValueIndexed>"
                          "<ValueIndexed Index=\"1\">11</ValueIndexed><ValueIndexed Index=\"0x2\">20</ValueIndexed>"
                          "<pValueIndexed Index=\"3\">T</pValueIndexed><ValueDefault>-1</ValueDefault>")};
    auto& node = sut.integer("N");
    const auto select = [&](int64_t index) { EXPECT_THAT(sut.integer("Sel").set_val(index, 0), Passes()); };
    EXPECT_THAT(node.get_val(0), Gives(10));
    EXPECT_THAT(node.get_min(0), Gives(std::numeric_limits<int64_t>::min()));
    select(2);
    EXPECT_THAT(node.get_val(0), Gives(20));
    select(99);
    EXPECT_THAT(node.get_val(0), Gives(-1));
    EXPECT_EQ(node.get_unit(), "");
    select(3);
    EXPECT_THAT(node.get_val(0), Gives(100));
    EXPECT_THAT(node.get_min(0), Gives(50));
    EXPECT_THAT(node.get_inc(0), Gives(10));
    EXPECT_EQ(node.get_unit(), "T");
    EXPECT_THAT(node.set_val(120, 0), Passes());
    EXPECT_THAT(sut.integer("T").get_val(0), Gives(120));
    EXPECT_THAT(node.set_val(121, 0), Refuses(not_on_increment));
    // A constant may be written; each index keeps its own.
    select(1);
    EXPECT_THAT(node.set_val(12, 0), Passes());
    select(2);
    EXPECT_THAT(node.get_val(0), Gives(20));
    select(1);
    EXPECT_THAT(node.get_val(0), Gives(12));
    select(50);
    EXPECT_THAT(node.set_val(7, 0), Passes());
    select(51);
    EXPECT_THAT(node.get_val(0), Gives(7));
}

TEST(Index, FloatsAndFaults) {
    document sut{integer_node("Sel", "<Value>1</Value>") + int_reg("Reg", 0) +
                 float_node("F", "<pIndex>Sel</pIndex><ValueIndexed Index=\"1\">1.5</ValueIndexed>"
                                 "<pValueDefault>Sel</pValueDefault>") +
                 float_node("NoIndex", "<pIndex>Z</pIndex><ValueDefault>1</ValueDefault>") +
                 float_node("NoDefault", "<pIndex>Sel</pIndex>") +
                 float_node("BadIndex", "<pIndex>Reg</pIndex><ValueDefault>1</ValueDefault>")};
    EXPECT_THAT(sut.real("F").get_val(0), Gives(1.5));
    EXPECT_THAT(sut.integer("Sel").set_val(4, 0), Passes());
    EXPECT_THAT(sut.real("F").get_val(0), Gives(4.0));
    EXPECT_THAT(sut.real("NoIndex").get_val(0), Fails(not_implemented));
    EXPECT_THAT(sut.real("NoIndex").set_val(1, 0), Refuses(not_implemented));
    EXPECT_THAT(sut.real("NoDefault").get_val(0), Fails(not_implemented));
    EXPECT_EQ(sut.real("F").get_representation(), FloatRepresentation_t::PureNumber);
    sut.device.broken = true;
    EXPECT_THAT(sut.real("BadIndex").get_val(0), Fails(timeout));
    EXPECT_THAT(sut.real("BadIndex").set_val(1, 0), Refuses(timeout));
}

TEST(Boolean, OfItsOwn) {
    const document sut{"<Boolean Name=\"T\"><Value>true</Value></Boolean><Boolean Name=\"F\"><Value>0</Value></Boolean>"
                       "<Boolean Name=\"Odd\"><Value>1</Value><OnValue>5</OnValue><OffValue>7</OffValue></Boolean>"};
    EXPECT_THAT(sut.node<IBoolean>("T").get_val(0), Gives(true));
    EXPECT_THAT(sut.node<IBoolean>("F").get_val(0), Gives(false));
    auto& odd = sut.node<IBoolean>("Odd");
    EXPECT_THAT(odd.get_val(0), Gives(true));
    EXPECT_THAT(odd.set_val(false, 0), Passes());
    EXPECT_THAT(odd.get_val(0), Gives(false));
}

TEST(Boolean, OfARegister) {
    document sut{int_reg("R", 0, "<Cachable>NoCache</Cachable>") +
                 "<Boolean Name=\"B\"><pValue>R</pValue></Boolean>"
                 "<Boolean Name=\"X\"><pValue>R</pValue><OnValue>2</OnValue><OffValue>3</OffValue></Boolean>"
                 "<Boolean Name=\"None\"><pValue>Z</pValue></Boolean>"};
    log_capture log;
    sut.device.put(0, {5, 0, 0, 0});
    EXPECT_THAT(sut.node<IBoolean>("B").get_val(0), Gives(true));
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 B. Invalid value for boolean of: '5' ."));
    EXPECT_THAT(sut.node<IBoolean>("X").set_val(true, 0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 1), std::vector{2});
    EXPECT_THAT(sut.node<IBoolean>("X").set_val(false, 0), Passes());
    EXPECT_THAT(sut.node<IBoolean>("X").get_val(0), Gives(false));
    EXPECT_EQ(sut.device.bytes(0, 1), std::vector{3});
    EXPECT_THAT(sut.node<IBoolean>("None").get_val(0), Fails(not_implemented));
    EXPECT_THAT(sut.node<IBoolean>("None").set_val(true, 0), Refuses(not_implemented));
}

TEST(Command, RunsUntilTheRegisterChanges) {
    document sut{int_reg("R", 0, "<Cachable>NoCache</Cachable>") + int_reg("W", 4, "<AccessMode>WO</AccessMode>") +
                 integer_node("Nine", "<Value>9</Value>") +
                 "<Command Name=\"C\"><pValue>R</pValue><CommandValue>1</CommandValue></Command>"
                 "<Command Name=\"L\"><pValue>R</pValue><pCommandValue>Nine</pCommandValue></Command>"
                 "<Command Name=\"WO\"><pValue>W</pValue><CommandValue>1</CommandValue></Command>"
                 "<Command Name=\"None\"><pValue>R</pValue></Command>"
                 "<Command Name=\"V\"><Value>0</Value><CommandValue>3</CommandValue></Command>"};
    auto& command = sut.node<ICommand>("C");
    EXPECT_THAT(command.is_done(0), Gives(true));
    EXPECT_THAT(command.execute(0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 4), (std::vector{1, 0, 0, 0}));
    EXPECT_THAT(command.is_done(0), Gives(false));
    sut.device.put(0, {0});
    EXPECT_THAT(command.is_done(0), Gives(true));
    EXPECT_THAT(sut.node<ICommand>("L").execute(0), Passes());
    EXPECT_EQ(sut.device.bytes(0, 1), std::vector{9});
    // What cannot be read is done at once.
    EXPECT_THAT(sut.node<ICommand>("WO").execute(0), Passes());
    EXPECT_THAT(sut.node<ICommand>("WO").is_done(0), Gives(true));
    EXPECT_THAT(sut.node<ICommand>("None").execute(0), Refuses(not_implemented));
    EXPECT_THAT(sut.node<ICommand>("None").is_done(0), Fails(not_implemented));
    auto& stored = sut.node<ICommand>("V");
    EXPECT_THAT(stored.is_done(0), Gives(true));
    EXPECT_THAT(stored.execute(0), Passes());
    EXPECT_THAT(stored.is_done(0), Gives(false));
}

constexpr const char* entries =
    "<EnumEntry Name=\"A\"><Value>2</Value><NumericValue>2.5</NumericValue>"
    "<Symbolic>SymA</Symbolic><IsSelfClearing>Yes</IsSelfClearing></EnumEntry>"
    "<EnumEntry Name=\"B\"><Value>3</Value></EnumEntry>"
    "<EnumEntry Name=\"C\"><Value>4</Value><pIsAvailable>Off</pIsAvailable></EnumEntry>"
    "<EnumEntry Name=\"D\"><Value>5</Value><pIsImplemented>Off</pIsImplemented></EnumEntry>";

TEST(Enumeration, EntriesAreReachedThroughIt) {
    const document sut{std::string{"<Enumeration Name=\"E\">"} + entries + "<Value>2</Value></Enumeration>" +
                       integer_node("Off", "<Value>0</Value>")};
    auto& node = sut.node<IEnumeration>("E");
    ASSERT_EQ(node.get_entries().size(), 4u);
    EXPECT_EQ(sut.doc->find_node("A"), nullptr);
    IEnumEntry* a = node.find_entry_by_name("A");
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->get_index(), 0u);
    EXPECT_EQ(a->get_value(), 2);
    EXPECT_EQ(a->get_numeric_value(), 2.5);
    EXPECT_EQ(a->get_symbolic(), "SymA");
    EXPECT_TRUE(a->is_self_clearing());
    EXPECT_FALSE(node.get_entries()[1]->is_self_clearing());
    EXPECT_EQ(node.find_entry_by_name("a"), nullptr);
    EXPECT_EQ(node.find_entry_by_value(3)->get_name(), "B");
    EXPECT_EQ(node.find_entry_by_value(9), nullptr);
    EXPECT_FALSE(node.find_entry_by_name("C")->is_available());
    EXPECT_FALSE(node.find_entry_by_name("D")->is_implemented());
    // A is 2.5, B is 3: the first of equals.
    EXPECT_EQ(node.find_nearest_entry(2.75), a);
    EXPECT_EQ(node.find_nearest_entry(2.9)->get_name(), "B");
    EXPECT_EQ(node.find_nearest_entry(-100), a);
}

TEST(Enumeration, NearestWithoutNumericValues) {
    const document sut{"<Enumeration Name=\"E\"><EnumEntry Name=\"Two\"><Value>2</Value></EnumEntry>"
                       "<EnumEntry Name=\"Three\"><Value>3</Value></EnumEntry><Value>2</Value></Enumeration>"
                       "<Enumeration Name=\"None\"><Value>2</Value></Enumeration>"};
    EXPECT_EQ(sut.node<IEnumeration>("E").find_nearest_entry(2.5)->get_name(), "Two");
    EXPECT_EQ(sut.node<IEnumeration>("None").find_nearest_entry(2.5), nullptr);
}

TEST(Enumeration, SelectsWhatIsAvailable) {
    for (const bool linked : {false, true}) {
        SCOPED_TRACE(linked);
        document sut{std::string{"<Enumeration Name=\"E\">"} + entries +
                     (linked ? "<pValue>R</pValue>" : "<Value>2</Value>") + "</Enumeration>" + int_reg("R", 0) +
                     integer_node("Off", "<Value>0</Value>")};
        sut.device.put(0, {2});
        auto& node = sut.node<IEnumeration>("E");
        EXPECT_EQ((*node.get_selected_entry(0))->get_name(), "A");
        EXPECT_THAT(node.set_selected_entry(node.find_entry_by_name("B"), 0), Passes());
        EXPECT_THAT(node.get_val(0), Gives(3));
        EXPECT_THAT(node.set_selected_entry(nullptr, 0), Refuses(no_such_entry));
        EXPECT_THAT(node.set_selected_entry(node.find_entry_by_name("C"), 0), Refuses(node_not_available));
        EXPECT_THAT(node.set_selected_entry(node.find_entry_by_name("D"), 0), Refuses(node_not_implemented));
        EXPECT_THAT(node.set_selected_entry(node.find_entry_by_name("D"), no_access_check), Passes());
        EXPECT_THAT(node.get_val(0), Gives(5));
        EXPECT_EQ(sut.device.writes, linked ? 2 : 0);
    }
}

TEST(Enumeration, AValueWithoutAnEntryIsNamed) {
    document sut{std::string{"<Enumeration Name=\"E\">"} + entries + "<pValue>R</pValue></Enumeration>" +
                 int_reg("R", 0) + integer_node("Off", "<Value>0</Value>")};
    log_capture log;
    EXPECT_THAT(sut.node<IEnumeration>("E").get_selected_entry(0), Fails(no_such_entry));
    EXPECT_THAT(log.lines, ::testing::ElementsAre("1 E. Failed to find EnumEntry corresponding to current value=0."));
    EXPECT_THAT(sut.node<IEnumeration>("E").get_val(0), Gives(0));
}

TEST(Enumeration, PValueChainsAreCheckedAgainstTheEntries) {
    const document sut{std::string{"<Enumeration Name=\"E\">"} + entries + "<Value>2</Value></Enumeration>" +
                       integer_node("Off", "<Value>0</Value>") + integer_node("I", "<pValue>E</pValue>") +
                       float_node("F", "<pValue>E</pValue>")};
    EXPECT_THAT(sut.integer("I").set_val(3, 0), Passes());
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(3));
    EXPECT_THAT(sut.integer("I").set_val(9, 0), Refuses(no_such_entry));
    EXPECT_THAT(sut.integer("I").set_val(4, 0), Refuses(node_not_available));
    EXPECT_THAT(sut.real("F").set_val(2.6, 0), Passes());
    EXPECT_THAT(sut.integer("I").get_val(0), Gives(2));
}

TEST(String, OfItsOwnOrOfAnother) {
    document sut{"<String Name=\"S\"><Value> text </Value></String><String Name=\"P\"><pValue>R</pValue></String>"
                 "<StringReg Name=\"R\"><Address>0</Address><Length>8</Length><pPort>Device</pPort></StringReg>"
                 "<String Name=\"Bad\"><pValue>Z</pValue><Value>own</Value></String>"};
    EXPECT_THAT(sut.node<IString>("S").get_val(0), Gives(" text "));
    EXPECT_THAT(sut.node<IString>("S").set_val("new", 0), Passes());
    EXPECT_THAT(sut.node<IString>("S").get_val(0), Gives("new"));
    EXPECT_THAT(sut.node<IString>("P").set_val("device", 0), Passes());
    EXPECT_THAT(sut.node<IString>("P").get_val(0), Gives("device"));
    EXPECT_THAT(sut.node<IString>("P").get_max_length(0), Gives(8u));
    EXPECT_EQ(sut.device.writes, 1);
    EXPECT_THAT(sut.node<IString>("Bad").get_val(0), Gives("own"));
}

TEST(Category, ListsDirectlyAndFlattened) {
    const document sut{"<Category Name=\"Root\"><pFeature>Sub</pFeature><pFeature>A</pFeature><pFeature>Z</pFeature>"
                       "</Category><Category Name=\"Sub\"><pFeature>B</pFeature><pFeature>A</pFeature>"
                       "<pFeature>Root</pFeature><pFeature>Sub</pFeature></Category>" +
                       integer_node("A", "<Value>1</Value>") + integer_node("B", "<Value>1</Value>")};
    const auto names = [](auto nodes) {
        std::vector<std::string> out;
        for (INode* node : nodes) out.emplace_back(node->get_name());
        return out;
    };
    const ICategory* root = sut.doc->get_root_category();
    ASSERT_NE(root, nullptr);
    EXPECT_THAT(names(root->get_features()), ::testing::ElementsAre("Sub", "A"));
    EXPECT_THAT(names(sut.doc->get_root_features()), ::testing::ElementsAre("B", "A"));
}

} // namespace
} // namespace GenICam::testing
