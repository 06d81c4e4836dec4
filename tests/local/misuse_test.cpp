// Code that reaches for what is not its own, or is wrong in another way: the error says so, and nothing else breaks.
#include "client_fixture.h"

namespace local_tests {

class LocalMisuse : public LocalClient {};

TEST_F(LocalMisuse, MessagesByNameAreChecked) {
    std::string keywords;
    for (int i = 0; i < 190; ++i) {
        keywords += "k" + std::to_string(i) + ": a" + std::to_string(i) + " ";
    }
    evaluate("Object method: '" + keywords + "^a189'. many := Object selectors detect: [:s | s size > 500]");
    EXPECT_TRUE(print("3 perform: many").ends_with("takes 190 arguments, not 0"));
    check({
        {"3 perform: #perform:withAll: withAll: {#perform:with:. {#+. 4}}", "7"},
        {"a := Array new: 2. a at: 1 put: #perform:withAll:; at: 2 put: a. 3 perform: #perform:withAll: withAll: a",
         "error 2138: 100 times over, a perform led to another"},
        {"'abc' perform: '\xC5\xB3ize'", "error 2094: a symbol holds single-byte characters only"},
    });
}

TEST_F(LocalMisuse, WhatIsTheSystemsStaysIts) {
    const std::string at5 = "error 2005: syntax error at position 5 (line 1, column 5): the variable ";
    evaluate("Object subclass: #A variables: #(#v)");
    check({
        {"Block method: 'zap code := 999999'", at5 + "code belongs to the system (in a method of class Block)"},
        {"A classMethod: 'zap ^methods'. A zap at: #size put: 3", "error 2004: a MethodDictionary has no elements"},
        {"A variableNames at: 1 put: 3. A history at: 1 put: 3. {A variableNames. A history}",
         "Array(Array(#v) Array(A))"},
        {"List := 3", "error 2005: syntax error at position 1 (line 1, column 1): List is the name of a kernel object"},
        {"Object subclass: #nil variables: #()", "error 2094: #nil is not a name"},
    });
}

TEST_F(LocalMisuse, WhatHasNoEndIsShownWhereItBegins) {
    check({
        {"  [:x", "error 2005: syntax error at position 3 (line 1, column 3): the block has no end"},
        {"[(3]",
         "error 2005: syntax error at position 4 (line 1, column 4): expected ) to end the parenthesis that begins "
         "at position 2"},
        {"super", "error 2005: syntax error at position 1 (line 1, column 1): super means something in a method only"},
    });
}

TEST_F(LocalMisuse, AnswersAtTheEdges) {
    check({
        {"{1e300 \\\\ 7. -1e20 \\\\ 3. 6.0 \\\\ -3}", "Array(1.0 2.0 0.0)"},
        {"{(0 to: 1 by: 0.5) size. (0 to: 0.6 by: 0.1) asArray size - (0 to: 0.6 by: 0.1) size}", "Array(3 0)"},
        {"| n | n := 0. 9223372036854775806 to: 9223372036854775807 do: [:i | n := n + 1]. n", "2"},
        {"| n | n := 0. (9223372036854775806 to: 9223372036854775807) do: [:i | n := n + 1]. n", "2"},
        {"Dictionary new addAll: (Dictionary new at: 1 put: 2; yourself); addAll: {3 -> 4}; yourself",
         "Dictionary(1->2 3->4)"},
        {"| t | t := ''. 1 to: 400 do: [:i | t add: i printString]. "
         "{t indexOfText: '9091'. t indexOfText: '399400'. t indexOfText: 'x'. t indexOfText: '' from: t size + 1. "
         "((t split: '99') joinedBy: '99') = t. ((t asDoubleByteString split: '99') joinedBy: '99') = t}",
         "Array(170 1087 0 1093 true true)"},
    });
    OopType day = evaluate("DateTime year: 2024 dayOfYear: 366 milliseconds: 0");
    OopType common = small(2023);
    kci.KciStoreNamedOops(day, 1, &common, 1);
    perform(day, "month");
    EXPECT_EQ(error.number, 2261);
}

// The value takes the place of the failing expression, and nothing else stands in between.
TEST_F(LocalMisuse, ContinuedExpressionsFindTheirOperands) {
    std::string nines;
    for (int i = 0; i < 20000; ++i) {
        nines += "9. ";
    }
    evaluate("l := List new. [true] whileTrue: [l add: (Array new: 10000)]");
    evaluate("3 between: 1 and: {" + nines + "}");
    ASSERT_EQ(error.number, 2208);
    ASSERT_NE(error.context, KCI_OOP_NIL);
    EXPECT_EQ(kci.KciContinueWith(error.context, small(5), 0, nullptr), KCI_OOP_TRUE);
}

} // namespace local_tests
