// The language beyond its document: what must not go wrong.
#include "client_fixture.h"

namespace local_tests {

class Language : public LocalClient {};

std::string repeat(const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i)
        all += text;
    return all;
}

TEST_F(Language, Syntax) {
    check({
        {"", "nil"},
        {"#(1 -2 - foo: #bar $a #[1] (true))", "Array(1 -2 #- #foo: #bar $a ByteArray(1) Array(true))"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"[] value", "nil"},
        {"3 + 4; * 10; yourself", "3"},
        {"[:x || y | y := x. y] value: 2", "2"},
    });
    const std::pair<std::string, std::string> errors[] = {
        // with the place of the error and its text
        {"9223372036854775808", "1 (line 1, column 1): not a number, or one beyond 64 bits"},
        {"3\n + )", "6 (line 2, column 4): an expression should stand here"},
        {"self := 3", "6 (line 1, column 6): self cannot be assigned to"},
        {"3 4", "3 (line 1, column 3): expected a period or the end"},
        {"  [:x", "3 (line 1, column 3): the block has no end"},
        {"[(3]", "4 (line 1, column 4): expected ) to end the parenthesis that begins at position 2"},
        {"super", "1 (line 1, column 1): super means something in a method only"},
        {"#'\xE6\x97\xA5'", "1 (line 1, column 1): a symbol holds single-byte characters only"},
    };
    for (const auto& [source, text] : errors)
        EXPECT_EQ(print(source), "error 2005: syntax error at position " + text);
    for (const char* part : {"(", "[", "{", "#(", "#[", "#(#[", "- ", "a := ", "3 + (", "x foo: ["})
        EXPECT_TRUE(print(repeat(part, 100000)).starts_with("error 2005")) << part;
    EXPECT_TRUE(print("1" + repeat(" + 1", 100000)).starts_with("error 2005"));
    EXPECT_EQ(print("1" + repeat(" + 1", 200)), "201");
    EXPECT_EQ(print(repeat("x := 1. ", 20000) + "x"), "1");
}

TEST_F(Language, BlocksAndScopes) {
    check({
        {"| all | all := (1 to: 3) collect: [:i | [i]]. all collect: [:b | b value]", "Array(1 2 3)"},
        {"| n add | n := 0. add := [:k | n := n + k]. add value: 3. add value: 4. n", "7"},
        {"| all | all := List new. 1 to: 2 do: [:i | | t | t := i. all add: [t := t + 10]]. "
         "all first value. all first value. {all first value. all last value}",
         "Array(31 12)"},
        {"| i all | all := List new. i := 0. [i < 2] whileTrue: [| t | t := i. all add: [t]. i := i + 1]. "
         "all collect: [:b | b value]",
         "Array(0 1)"},
        {"kept := [:x | ^x]. 1", "1"},
        {"kept value: 5", "error 2094: a block cannot return from a method that has ended"},
        {"[:f | f value: f] value: [:f | 3]", "3"},
        {"| b | b := 3 > 2. b ifTrue: 5", "error 2010: 5 does not understand #value"},
    });
    evaluate("Object subclass: #Finder variables: #(). "
             "Finder method: 'find: k in: c c do: [:e | e = k ifTrue: [^''found'']]. ^''absent'''");
    check({{"Finder new find: 2 in: #(1 2 3)", "'found'"}, {"Finder new find: 4 in: #(1 2 3)", "'absent'"}});
}

TEST_F(Language, Classes) {
    check({
        {"Object subclass: #Base variables: #(#a). Base method: 'a ^a'. Base method: 'a: x a := x'. "
         "Base method: 'name ^''base'''. Base subclass: #Derived variables: #(#b). "
         "Derived method: 'name ^''derived '' , super name'. Derived method: 'b: x b := x. a := x + 1'. "
         "(Derived new b: 4) a",
         "5"},
        {"Base classMethod: 'make ^self new a: 1'. Derived make class", "Derived"},
        {"Derived classMethod: 'make ^super make a: 2; yourself'. Derived make a", "2"},
        {"old := Base new a: 7. Object subclass: #Base variables: #(#z). old a", "7"},
        {"Base new a", "error 2010: a Base does not understand #a"},
        {"Integer method: 'twice ^self * 2'. 1000000000000 twice + 4 twice", "2000000000008"},
        {"List subclass: #Stack variables: #(#limit). s := Stack new add: 1; add: 2; yourself. s removeLast. s",
         "Stack(1)"},
        {"Dictionary subclass: #Map variables: #(#note). (Map new at: 1 put: 2; yourself) copy", "Map(1->2)"},
        {"String subclass: #Note variables: #(#x)",
         "error 2094: a byte object has no variables, others have at most 1000"},
        {"Block subclass: #B variables: #()", "error 2094: class Block cannot have such a subclass"},
        {"Object method: '3 foo'", "error 2005: syntax error at position 1 (line 1, column 1): expected a method's "
                                   "name (in a method of class Object)"},
        {"(String subclass: #Label variables: #()) new isString", "true"},
    });
}

TEST_F(Language, Numbers) {
    check({
        {"-9223372036854775808 // -1", "error 2163: the result does not fit an integer of 64 bits"},
        {"-9223372036854775808 / -1", "9223372036854775808.0"},
        {"{7 // -2. 7 \\\\ -2. -7.5 // 2. -7.5 \\\\ 2}", "Array(-4 -1 -4.0 0.5)"},
        {"536870912 class", "LargeInteger"},
        {"1e300 * 1e300", "infinity"},
        {"{3 = 3.0. 3 = 'x'. 10000000000 = 10000000000}", "Array(true false true)"},
        {"{536870911 + 1. -536870912 - 1. 536870911 * 2. -7 // 2. -7 \\\\ 2. 7 // -2. 3 == 3. -5 < -4}",
         "Array(536870912 -536870913 1073741822 -4 1 -4 true true)"},
        {"SmallInteger method: '* other ^''times'''. {3 * 4. 3 + 4}", "Array('times' 7)"},
        {"SmallInteger removeMethod: #*. 3 * 4", "12"},
    });
}

TEST_F(Language, TextsAndCollections) {
    check({
        {"('ab' , '\xE6\x97\xA5') class", "DoubleByteString"},
        {"('\xE6\x97\xA5' copyFrom: 1 to: 0) class", "DoubleByteString"},
        {"| a b c | a := String new: 300. b := a , 'b'. c := b , 'c'. b at: 1 put: $x. c at: 2 put: $y. a at: 3 put: "
         "$z. "
         "{a size. a at: 1. a at: 3. b size. b at: 1. b at: 2. b last. c at: 1. c at: 2. c last}",
         "Array(300 $  $z 301 $x $  $b $  $y $c)"},
        {"| t all | t := ''. all := List new. 1 to: 1000 do: [:i | t := t , 'xy'. all add: t. "
         "i = 700 ifTrue: [Shared at: #joined put: t. System commit]. i = 800 ifTrue: [t at: 1 put: $z]]. "
         "joined at: 1 put: $q. "
         "{all inject: 0 into: [:sum :e | sum + e size]. all count: [:e | e first = $z]. (all at: 700) first. "
         "(t , t) size}",
         "Array(1001000 201 $q 4000)"},
        {"| l | l := List new. 1 to: 9 do: [:i | i odd ifTrue: [l addFirst: i] ifFalse: [l add: i]]. "
         "l removeFirst; insert: 0 at: 3; removeAt: 5; removeLast. l",
         "List(7 5 0 3 2 4 6)"},
        {"#abc at: 1 put: $x", "error 2094: #abc cannot be changed"},
        {"'abc' at: 1 put: 5", "error 2164: 5 is not a character"},
        {"[| s | s := 'x'. 5 timesRepeat: [s add: 'y']. s] value , 'z'", "'xyyyyyz'"},
        {"| s | s := Set new. 1 to: 1000 do: [:i | s add: i; add: i printString; add: i asFloat]. s size", "2000"},
        {"| d | d := Dictionary new. 1 to: 1000 do: [:i | d at: i printString put: i]. "
         "(1 to: 1000) allSatisfy: [:i | (d at: i printString) = i]",
         "true"},
        {"Object new at: 1", "error 2004: an Object has no elements"},
        {"(1 to: 200) asArray sorted: [:a :b | a > b]. ((1 to: 200) asArray sorted: [:a :b | a > b]) first", "200"},
        {"a := Array new: 1. a at: 1 put: a. a", "Array(Array(Array(Array(Array(Array(...))))))"},
        {"(DateTime year: 2024 month: 2 day: 29) asString", "error 2010: a DateTime does not understand #asString"},
        {"(DateTime year: 2023 month: 2 day: 29)", "error 2161: year 2023, month 2, day 29 is not a date"},
        {"(DateTime year: 9999 month: 12 day: 31) addDays: 1",
         "error 2161: year 10000, day 1, milliseconds 0 is not a date-time"},
    });
}

TEST_F(Language, LimitsEndInErrors) {
    check({
        {"| s | s := 'x'. [true] whileTrue: [s := s , s]",
         "error 2208: an object would have more than 16 MiB of bytes or 4194304 references"},
        {"| s | s := 'x'. 24 timesRepeat: [s := s , s]. s add: 'x'",
         "error 2208: an object would have more than 16 MiB of bytes or 4194304 references"},
        {"| l | l := List new. [true] whileTrue: [l add: (Array new: 1000000)]",
         "error 2208: the local store would hold more than 256 MiB"},
        {"Array new: 100000000", "error 2094: 100000000 is not in the range 0 to 4194304"},
        {"| b | b := nil. b := [:n | b value: n + 1]. b value: 1", "error 2138: the stack of 10000 calls is used up"},
        {"System collectGarbage. 3 + 4", "7"},
    });
}

TEST_F(Language, CodeOutlivesCollections) {
    evaluate("Object subclass: #Counter variables: #(#n). Counter method: 'next n := (n ifNil: [0]) + 1. ^n'. "
             "c := Counter new. b := [:x | [:y | x + y]]. add := b value: 10");
    check({
        {"| sum | sum := 0. 1 to: 50000 do: [:i | sum := sum + (add value: c next). "
         "i \\\\ 1000 = 0 ifTrue: [System collectGarbage]]. sum",
         "1250525000"},
        {"1 to: 300 do: [:i | Object subclass: #Temp variables: #(). Temp method: 'm ^' , i printString. "
         "Temp new m = i ifFalse: [^i]. i \\\\ 20 = 0 ifTrue: [System collectGarbage]]. 'same'",
         "'same'"},
        {"Shared at: #k put: {'inner' , ''}. System commit. (Shared at: #k) at: 1 put: 'other'. System collectGarbage. "
         "System abort. (Shared at: #k) first",
         "'inner'"},
        {"k := {1}. System commit. k at: 1 put: 'x' , 'y'. System collectGarbage. k first", "'xy'"},
        {"| n | n := 1. System commit. [n := n + 1] value. System abort. n", "2"},
    });
}

TEST_F(Language, MessagesByNameAreChecked) {
    std::string keywords;
    for (int i = 0; i < 190; ++i)
        keywords += "k" + std::to_string(i) + ": a" + std::to_string(i) + " ";
    evaluate("Object method: '" + keywords + "^a189'. many := Object selectors detect: [:s | s size > 500]");
    EXPECT_TRUE(print("3 perform: many").ends_with("takes 190 arguments, not 0"));
    check({
        {"3 perform: #perform:withAll: withAll: {#perform:with:. {#+. 4}}", "7"},
        {"a := Array new: 2. a at: 1 put: #perform:withAll:; at: 2 put: a. 3 perform: #perform:withAll: withAll: a",
         "error 2138: 100 times over, a perform led to another"},
        {"'abc' perform: '\xC5\xB3ize'", "error 2094: a symbol holds single-byte characters only"},
    });
}

TEST_F(Language, WhatIsTheSystemsStaysIts) {
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

TEST_F(Language, AnswersAtTheEdges) {
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
TEST_F(Language, ContinuedExpressionsFindTheirOperands) {
    evaluate("l := List new. [true] whileTrue: [l add: (Array new: 10000)]");
    evaluate("3 between: 1 and: {" + repeat("9. ", 20000) + "}");
    ASSERT_EQ(error.number, 2208);
    ASSERT_NE(error.context, KCI_OOP_NIL);
    EXPECT_EQ(kci.KciContinueWith(error.context, small(5), 0, nullptr), KCI_OOP_TRUE);
}

} // namespace local_tests
