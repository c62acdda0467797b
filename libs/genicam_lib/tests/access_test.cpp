// Who may read and write when.
#include "script.h"

namespace GenICam::testing {
namespace {

const script_case modes[] = {
    // What cannot be evaluated forbids nothing. Of a node that says RW the lock is not looked at.
    {"StatesAreCheckedInOrder",
     "Integer Yes: Value 1 | Integer No: Value 0 | IntReg Gone: Address 0, Length 9 | Float Plain: Value 1"
     " | Float Missing: Value 1, pIsImplemented No | Float Off: Value 1, pIsAvailable No"
     " | Float Both: Value 1, pIsImplemented No, pIsAvailable No"
     " | Float Fails: Value 1, pIsImplemented Gone, pIsAvailable Gone | Float LockedRW: Value 1, pIsLocked Yes"
     " | Float WO: Value 1, ImposedAccessMode WO | Float Locked: Value 1, pIsLocked Yes, ImposedAccessMode WO"
     " | Float Free: Value 1, pIsLocked No, ImposedAccessMode WO"
     " | Float LockFails: Value 1, pIsLocked Gone, ImposedAccessMode WO",
     {"Plain = 1",
      "Plain := 2",
      "Missing ! node_not_implemented",
      "Missing := 2 ! node_not_implemented",
      "Off ! node_not_available",
      "Off := 2 ! node_not_available",
      "Both ! node_not_implemented",
      "Both := 2 ! node_not_implemented",
      "Both/no_access_check = 1",
      "Both/no_access_check := 2",
      "Fails = 1",
      "Fails := 2",
      "LockedRW = 1",
      "LockedRW := 2",
      "WO ! access_denied",
      "WO := 2",
      "WO/no_access_check = 2",
      "WO/no_access_check := 3",
      "Locked ! access_denied",
      "Locked := 2 ! node_locked",
      "Locked/ignore_lock ! access_denied",
      "Locked/ignore_lock := 2",
      "Free ! access_denied",
      "Free := 2",
      "LockFails ! access_denied",
      "LockFails := 2"}},
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
