// Who may read and write when.
#include "script.h"

namespace GenICam::testing {
namespace {

struct access_case {
    const char* name;
    const char* children;
    unsigned flags;
    genicam_errc read;
    genicam_errc write;
};

class Access : public ::testing::TestWithParam<access_case> {};

TEST_P(Access, IsCheckedInOrder) {
    const auto& p = GetParam();
    const document sut{std::string{"Integer Yes: Value 1 | Integer No: Value 0 | IntReg Gone: Address 0, Length 9"
                                   " | Float N: Value 1"} +
                       p.children};
    const auto value = sut.real("N").get_val(p.flags);
    EXPECT_EQ(value ? 0 : value.error().value(), static_cast<int>(p.read));
    EXPECT_EQ(sut.real("N").set_val(2, p.flags).value(), static_cast<int>(p.write));
}

// A float without RO, so that the class is the same in all rows. RW is settled before the lock is looked at.
INSTANTIATE_TEST_SUITE_P(
    All, Access,
    ::testing::Values(
        access_case{"Plain", "", 0, success, success},
        access_case{"NotImplemented", ", pIsImplemented No", 0, node_not_implemented, node_not_implemented},
        access_case{"NotAvailable", ", pIsAvailable No", 0, node_not_available, node_not_available},
        access_case{"ImplementedComesFirst", ", pIsImplemented No, pIsAvailable No", 0, node_not_implemented,
                    node_not_implemented},
        access_case{"CheckSkipped", ", pIsImplemented No, pIsAvailable No", no_access_check, success, success},
        access_case{"EvaluationFails", ", pIsImplemented Gone, pIsAvailable Gone", 0, success, success},
        access_case{"WriteOnly", ", ImposedAccessMode WO", 0, access_denied, success},
        access_case{"WriteOnlyUnchecked", ", ImposedAccessMode WO", no_access_check, success, success},
        access_case{"LockedButRW", ", pIsLocked Yes", 0, success, success},
        access_case{"LockedAndWO", ", pIsLocked Yes, ImposedAccessMode WO", 0, access_denied, node_locked},
        access_case{"LockIgnored", ", pIsLocked Yes, ImposedAccessMode WO", ignore_lock, access_denied, success},
        access_case{"Unlocked", ", pIsLocked No, ImposedAccessMode WO", 0, access_denied, success},
        access_case{"LockFails", ", pIsLocked Gone, ImposedAccessMode WO", 0, access_denied, success}),
    case_name{});

const script_case modes[] = {
    {"LockOfAReadOnlyNodeAnswersFirst",
     "Integer Yes: Value 1 | Integer V: Value 1 | Integer N: pValue V, pIsLocked Yes, ImposedAccessMode RO",
     {"N := 2 ! node_locked", "N/ignore_lock := 2 ! access_denied", "N/no_access_check := 2", "N = 2"}},
    // No combination of the two is computed: the node says RW, the register below refuses.
    {"ImposedWinsThenTheSourceThenRW",
     "Reg R@0: AccessMode RO | Reg Free@4 | Integer P: pValue R | Integer PP: pValue P"
     " | Integer Imposed: pValue P, ImposedAccessMode RW | IntConverter C: FormulaFrom FROM, FormulaTo TO, pValue R"
     " | IntSwissKnife K: pVariable@R R, Formula R | Integer Sel: Value 0"
     " | Integer X: pIndex Sel, pValueIndexed@1 R, pValueDefault Free",
     {"R.mode = RO", "Free.mode = RW", "PP.mode = RO", "C.mode = RO", "K.mode = RW", "X.mode = RW", "Sel := 1",
      "X.mode = RO", "Imposed.mode = RW", "Imposed := 1 ! access_denied", "writes = 0"}},
    {"AWriteOnlyRegisterIsNotReadThoughAvailable",
     "Reg R@0: AccessMode WO",
     {"R ! access_denied", "R.available = true", "reads = 0", "R := 1"}},
    {"LinksOfEveryKind",
     "Boolean B: Value false | Float F: Value 0.4 | Enumeration E: EnumEntry@Off {Value 0}, Value 0"
     " | Integer ByB: Value 1, pIsAvailable B | Integer ByF: Value 1, pIsAvailable F"
     " | Integer ByE: Value 1, pIsAvailable E",
     {"ByB.available = false", "ByF.available = true", "ByE.available = false"}},
    {"LimitsThatCannotBeReadBlockAWrite",
     "Integer A: Value 0, pMin Gone | Float B: Value 0, pMax Gone | Reg Gone@0",
     {"breaks", "A := 1 ! timeout", "B := 1 ! timeout", "A/no_range_check := 1"}},
};
INSTANTIATE_TEST_SUITE_P(AccessModes, Document, ::testing::ValuesIn(modes), case_name{});

TEST(AccessState, FailureIsToldWithFlagsAndSwallowedWithout) {
    document sut{"Reg R@0 | Integer N: Value 1, pIsImplemented R, pIsAvailable R, pIsLocked R"};
    sut.device.broken = true;
    const IInteger& node = sut.integer("N");
    EXPECT_THAT(node.is_implemented(0), Fails(timeout));
    EXPECT_THAT(node.is_available(0), Fails(timeout));
    EXPECT_THAT(node.is_locked(0), Fails(timeout));
    EXPECT_TRUE(node.is_implemented());
    EXPECT_TRUE(node.is_available());
    EXPECT_FALSE(node.is_locked());
    EXPECT_EQ(node.get_is_locked_node(), sut.doc->find_node("R"));
}

} // namespace
} // namespace GenICam::testing
