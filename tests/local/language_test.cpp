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
        {"..3.. 4", "4"},
        {"x_1:=2e+1.\t\xC2\xA0\"a remark\" x_1", "20.0"},
        {"{#++. #->. #'+|'. #'<<='. #'1a'. #'a b'. #A_1:b:. #''. #'it''s'}",
         "Array(#++ #-> #'+|' #'<<=' #'1a' #'a b' #A_1:b: #'' #'it''s')"},
        {"#(nil true false #(536870912 2.5) - 3 -4 + w'a')",
         "Array(nil true false Array(536870912 2.5) #- 3 -4 #+ w'a')"},
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
        {"3 \"no end", "3 (line 1, column 3): the comment has no end"},
        {"w'no end''", "2 (line 1, column 2): the string has no end"},
        {"3 $", "3 (line 1, column 3): a character is missing after $"},
        {"3 ! 4", "3 (line 1, column 3): this character has no meaning here"},
        {"# a", "2 (line 1, column 2): a symbol or a literal array should follow #"},
        {"3 ]", "3 (line 1, column 3): this belongs to no expression"},
        {"| self |", "3 (line 1, column 3): self cannot be the name of a variable"},
        {"| a a |", "1 (line 1, column 1): the variable a is declared twice"},
        {"[:x x]", "5 (line 1, column 5): expected | after the block's arguments"},
        {"3; foo", "2 (line 1, column 2): a cascade follows a message"},
        {"#(3 ])", "5 (line 1, column 5): a literal should stand here"},
        {"#[1 256]", "8 (line 1, column 8): a byte array holds integers from 0 to 255"},
        {"#[-1]", "5 (line 1, column 5): a byte array holds integers from 0 to 255"},
        {"3" + repeat(" k: 0", 201), "1007 (line 1, column 1007): too many arguments or variables"},
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
        {"true and: [:x | x]", "error 2005: a block of 1 arguments was given 0"},
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
        {"Integer subclass: #B variables: #()", "error 2094: class Integer cannot have such a subclass"},
        {"Object subclass: #B variables: 'a'", "error 2094: variable names are given as an array"},
        {"Base subclass: #B variables: #(#z)", "error 2094: the variable z exists already"},
        {"B_9z := 3. Object subclass: #B_9z variables: #(). {B_9z history size. B_9z new. 3 copy. B_9z copy == B_9z}",
         "Array(1 a B_9z 3 true)"},
        {"Object new: 3", "error 2094: objects of class Object have no elements"},
        {"{(DoubleByteString new: 2) size. [:a :b | a] argumentCount. 3 size. (3 -> 4) value: 5; yourself}",
         "Array(2 2 0 3->5)"},
        {"Object removeMethod: #none", "error 2015: Object has no method #none"},
        {"{3 respondsTo: #+. 3 respondsTo: 'size:'. Derived respondsTo: #make. 3 hash = 3.0 hash. 0 hash = (0.0 * -1) "
         "hash. Object identifier}",
         "Array(true false true true true 1001)"},
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
        {"{-1 sqrt. 0 ln. 3 asFloat. 2.5 asFloat. 0 sin. 0 cos. 1 exp floor. 7 rounded. 1e18 truncated}",
         "Array(nan -infinity 3.0 2.5 0.0 1.0 2 7 1000000000000000000)"},
        {"| nan | nan := -1 sqrt. {nan < 1. nan > 1. nan >= 1. nan = (-1 sqrt). 2.5 >= 2. 2 >= 2.5. 2 <= 2.0}",
         "Array(false false false false true false true)"},
        {"{9007199254740993 = 9007199254740992.0. 9007199254740993 > 9007199254740992.0. 9007199254740993.0 < "
         "9007199254740993. 1e300 > 3. 3 > -1e300. -3 > -3.5. 3 < 3.5}",
         "Array(false true true true true true true)"},
        {"2 raisedTo: 64", "error 2163: the result does not fit an integer of 64 bits"},
        {"1e19 asInteger", "error 2163: the result does not fit an integer of 64 bits"},
        {"3 + 'x'", "error 2094: 'x' is not a number"},
        {"3 bitOr: 'x'", "error 2094: 'x' is not an integer"},
        {"{10000000000 // 3. -10000000000 // 3. -10000000000 // 5. 10000000000 // -3. -9223372036854775808 \\\\ -1. "
         "10000000000 \\\\ -3. -10000000000 \\\\ -3. 10000000000 / 4. 7 / 2. 7 / 2.0. -255 printString: 16}",
         "Array(3333333333 -3333333334 -2000000000 -3333333334 0 -2 -1 2500000000 3.5 3.5 '-FF')"},
        {"{'12' asNumber. '-1.5e2' asNumber. 'x' asNumber. '1' asDoubleByteString asNumber. (String new: 1048577) "
         "asNumber}",
         "Array(12 -150.0 nil 1 nil)"},
        {"SmallInteger method: '* other ^''times'''. {3 * 4. 3 + 4}", "Array('times' 7)"},
        {"SmallInteger removeMethod: #*. 3 * 4", "12"},
    });
}

TEST_F(Language, TextsAndCollections) {
    check({
        {"('ab' , '\xE6\x97\xA5') class", "DoubleByteString"},
        {"('\xE6\x97\xA5' copyFrom: 9 to: 0) class", "DoubleByteString"},
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
        {"'abc' at: 1 put: (Character value: 256)", "error 2094: a String holds characters up to code 255"},
        {"(String new: 70000) asSymbol", "error 2094: a symbol has at most 65535 characters"},
        {"#[1 2] at: 2 put: -1", "error 2094: -1 is not in the range 0 to 255"},
        {"{$a asString. (Character value: 26085) asString class. true & true. true & false. false & 3. false | true. "
         "true | 3. false | false}",
         "Array('a' DoubleByteString true false false true true false)"},
        {"| w | w := 'b' asDoubleByteString. {w < 'c'. w < 'a'. 'a' < w. w < 'ba'. w < 'b'. '' < 'a'. 'a' < ''. 'b' < "
         "'ba'}",
         "Array(true false true true false true false true)"},
        {"| l | l := List new. 1 to: 100 do: [:i | l add: i]. l removeAll. l add: 7. l", "List(7)"},
        {"| d s | d := DateTime year: 2024 month: 2 day: 29. s := Set new. s add: d; add: (d addMilliseconds: 0); add: "
         "(d addMilliseconds: 1). "
         "{s size. d year. d dayOfYear. d month. d day. d milliseconds. d < (d addDays: 1). d = 3. d = (d addDays: 1). "
         "(d addDays: 400) millisecondsSince: d}",
         "Array(2 2024 60 2 29 0 true false false 34560000000)"},
        {"| t d | t := String new: 500. d := Dictionary new at: t put: 1; at: t asDoubleByteString put: 2; at: t , 'x' "
         "put: 3; yourself. {d size. d at: t copy. t = d. d = t. 3 = t. 'a' = #a. #a = 'a'. 'a' = w'a'}",
         "Array(2 2 false false false false false true)"},
        {"[| s | s := 'x'. 5 timesRepeat: [s add: 'y']. s] value , 'z'", "'xyyyyyz'"},
        {"| s | s := Set new. 1 to: 2000 do: [:i | s add: i; add: i printString; add: i asFloat; add: i + 0.5]. s size",
         "6000"},
        {"| d | d := Dictionary new. 1 to: 1000 do: [:i | d at: i printString put: i]. "
         "(1 to: 1000) allSatisfy: [:i | (d at: i printString) = i]",
         "true"},
        {"Object new at: 1", "error 2004: an Object has no elements"},
        {"(1 to: 200) asArray sorted: [:a :b | a > b]. ((1 to: 200) asArray sorted: [:a :b | a > b]) first", "200"},
        {"a := Array new: 1. a at: 1 put: a. a", "Array(Array(Array(Array(Array(Array(...))))))"},
        {"(DateTime year: 2024 month: 2 day: 29) asString", "error 2010: a DateTime does not understand #asString"},
        {"(DateTime year: 2023 month: 2 day: 29)", "error 2161: year 2023, month 2, day 29 is not a date"},
        {"(DateTime year: 1 month: 1 day: 1) addMilliseconds: -1",
         "error 2161: year 0, day 366, milliseconds 86399999 is not a date-time"},
        {"DateTime now addMilliseconds: 9223372036854775807", "error 2161: the year is not between 1 and 9999"},
        {"DateTime now addMilliseconds: -9000000000000000000", "error 2161: the year is not between 1 and 9999"},
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
        {"System signal: 17 text: 'x' arguments: #()", "error 2094: 17 is not a number of the local store's errors"},
        {"System signal: 2094 text: 'x' arguments: (Array new: 11)",
         "error 2094: an error's arguments are an array of at most ten"},
        {"System forget: #none", "error 2015: #none is not a global of this session"},
        {"k := 1. {System globalNames includes: #k. System session > 0. System milliseconds >= 0}",
         "Array(true true true)"},
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
        // lists that change at their front while their elements are marked
        {"| l | l := List new. 1 to: 20000 do: [:i | l add: i printString]. "
         "1 to: 2000 do: [:i | Array new: 8000. l addFirst: i printString; removeLast]. "
         "{l size. l first. l last. l allSatisfy: [:e | e size > 0]}",
         "Array(20000 '2000' '18000' true)"},
    });
}

TEST_F(Language, MessagesByNameAreChecked) {
    std::string keywords;
    std::string sent;
    for (int i = 0; i < 200; ++i) {
        keywords += "k" + std::to_string(i) + ": a" + std::to_string(i) + " ";
        sent += " k" + std::to_string(i) + ": " + std::to_string(i);
    }
    evaluate("Object method: '" + keywords + "^a199'. many := Object selectors detect: [:s | s size > 500]");
    EXPECT_TRUE(print("3 perform: many").ends_with("takes 200 arguments, not 0"));
    EXPECT_EQ(print("nil" + sent), "199");
    check({
        {"3 perform: #perform:withAll: withAll: {#perform:with:. {#+. 4}}", "7"},
        {"a := Array new: 2. a at: 1 put: #perform:withAll:; at: 2 put: a. 3 perform: #perform:withAll: withAll: a",
         "error 2138: 100 times over, a perform led to another"},
        {"'abc' perform: '\xC5\xB3ize'", "error 2094: a symbol holds single-byte characters only"},
        {"3 perform: #foo withAll: 3", "error 2094: 3 is not an array"},
        {"3 perform: #foo withAll: (Array new: 201)", "error 2005: a message has at most 200 arguments"},
    });
}

TEST_F(Language, WhatIsTheSystemsStaysIts) {
    const std::string at5 = "error 2005: syntax error at position 5 (line 1, column 5): the variable ";
    evaluate("Object subclass: #A variables: #(#v)");
    check({
        {"Block method: 'zap code := 999999'", at5 + "code belongs to the system (in a method of class Block)"},
        {"A classMethod: 'zap name := 3'", at5 + "name belongs to the system (in a method of class A)"},
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
