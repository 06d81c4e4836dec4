#include "language/prelude.h"

namespace local {

namespace {

using namespace kernel;

constexpr PreludeMethod methods[] = {
    // Object
    {Object, false, "~= other ^(self = other) not"},
    {Object, false, "~~ other ^(self == other) not"},
    {Object, false, "isNil ^false"},
    {Object, false, "notNil ^true"},
    {Object, false, "ifNil: block ^self"},
    {Object, false, "ifNotNil: block ^block value: self"},
    {Object, false, "ifNil: nilBlock ifNotNil: block ^block value: self"},
    {Object, false, "yourself ^self"},
    {Object, false, "displayString ^self printString"},
    {Object, false, "printLimited: depth ^self printString"},
    {Object, false, "isString ^false"},
    {Object, false, "isNumber ^self isKindOf: Number"},
    {Object, false, "isCollection ^self isKindOf: Collection"},
    {Nil, false, "isNil ^true"},
    {Nil, false, "notNil ^false"},
    {Nil, false, "ifNil: block ^block value"},
    {Nil, false, "ifNotNil: block ^nil"},
    {Nil, false, "ifNil: nilBlock ifNotNil: block ^nilBlock value"},
    // Boolean; with literal blocks the compiler needs none of these
    {Boolean, false, "ifTrue: block ^self ifTrue: [block value] ifFalse: [nil]"},
    {Boolean, false, "ifFalse: block ^self ifTrue: [nil] ifFalse: [block value]"},
    {Boolean, false, "ifTrue: yes ifFalse: no ^self ifTrue: [yes value] ifFalse: [no value]"},
    {Boolean, false, "ifFalse: no ifTrue: yes ^self ifTrue: [yes value] ifFalse: [no value]"},
    {Boolean, false, "and: block ^self ifTrue: [block value] ifFalse: [false]"},
    {Boolean, false, "or: block ^self ifTrue: [true] ifFalse: [block value]"},
    {Boolean, false, "xor: other ^(self == other) not"},
    // Block
    {Block, false, "whileTrue: body [self value] whileTrue: [body value]. ^nil"},
    {Block, false, "whileFalse: body [self value] whileFalse: [body value]. ^nil"},
    {Block, false, "whileTrue [self value] whileTrue: []. ^nil"},
    {Block, false, "repeat [true] whileTrue: [self value]"},
    // Number
    {Number, false, "negated ^0 - self"},
    {Number, false, "abs ^self < 0 ifTrue: [0 - self] ifFalse: [self]"},
    {Number, false, "sign ^self > 0 ifTrue: [1] ifFalse: [self < 0 ifTrue: [-1] ifFalse: [0]]"},
    {Number, false, "squared ^self * self"},
    {Number, false, "isZero ^self = 0"},
    {Number, false, "min: other ^self < other ifTrue: [self] ifFalse: [other]"},
    {Number, false, "max: other ^self > other ifTrue: [self] ifFalse: [other]"},
    {Number, false, "between: low and: high ^self >= low and: [self <= high]"},
    {Number, false, "to: last ^Interval from: self to: last by: 1"},
    {Number, false, "to: last by: step ^Interval from: self to: last by: step"},
    {Number, false,
     "to: last do: block | i | i := self. [i < last] whileTrue: [block value: i. i := i + 1]. "
     "i = last ifTrue: [block value: i]"},
    {Number, false, "to: last by: step do: block (self to: last by: step) do: block"},
    {Integer, false, "even ^self \\\\ 2 = 0"},
    {Integer, false, "odd ^self \\\\ 2 = 1"},
    {Integer, false, "timesRepeat: block | i | i := 1. [i <= self] whileTrue: [block value. i := i + 1]"},
    {Integer, false,
     "gcd: other | a b | a := self abs. b := other abs. [b = 0] whileFalse: [| t | t := a \\\\ b. a := b. b := t]. ^a"},
    {Integer, false,
     "factorial self < 0 ifTrue: [^self error: self printString , ' has no factorial']. "
     "^self < 2 ifTrue: [1] ifFalse: [self * (self - 1) factorial]"},
    {Integer, false, "asCharacter ^Character value: self"},
    // Character
    {Character, false, "< other ^self value < other value"},
    {Character, false, "> other ^other < self"},
    {Character, false, "<= other ^(other < self) not"},
    {Character, false, ">= other ^(self < other) not"},
    {Character, false, "displayString ^self asString"},
    {Character, false, "isDigit ^self value between: 48 and: 57"},
    {Character, false, "isLetter ^(self value between: 65 and: 90) or: [self value between: 97 and: 122]"},
    {Character, false, "isBlank ^self value = 32 or: [self value between: 9 and: 13]"},
    // Association
    {Association, true, "key: key value: value ^key -> value"},
    {Association, false, "printString ^self printLimited: 5"},
    {Association, false,
     "printLimited: depth depth < 1 ifTrue: [^'...']. ^(self key printLimited: depth - 1) , '->' , (self value "
     "printLimited: depth - 1)"},
    // Collection
    {Collection, false, "isEmpty ^self size = 0"},
    {Collection, false, "notEmpty ^self size > 0"},
    {Collection, false, "addAll: others others copy do: [:each | self add: each]. ^others"},
    {Collection, false,
     "collect: block | all | all := List new. self do: [:each | all add: (block value: each)]. ^all asArray"},
    {Collection, false,
     "select: block | all | all := List new. self do: [:each | (block value: each) ifTrue: [all add: each]]. "
     "^self like: all"},
    {Collection, false, "reject: block ^self select: [:each | (block value: each) not]"},
    {Collection, false, "detect: block ^self detect: block ifNone: [nil]"},
    {Collection, false,
     "detect: block ifNone: none self do: [:each | (block value: each) ifTrue: [^each]]. ^none value"},
    {Collection, false,
     "inject: start into: block | sum | sum := start. self do: [:each | sum := block value: sum value: each]. ^sum"},
    {Collection, false, "includes: object self do: [:each | each = object ifTrue: [^true]]. ^false"},
    {Collection, false, "anySatisfy: block self do: [:each | (block value: each) ifTrue: [^true]]. ^false"},
    {Collection, false, "allSatisfy: block self do: [:each | (block value: each) ifFalse: [^false]]. ^true"},
    {Collection, false, "count: block | n | n := 0. self do: [:each | (block value: each) ifTrue: [n := n + 1]]. ^n"},
    {Collection, false, "sum ^self inject: 0 into: [:a :b | a + b]"},
    {Collection, false, "max ^self inject: self anyOne into: [:a :b | a > b ifTrue: [a] ifFalse: [b]]"},
    {Collection, false, "min ^self inject: self anyOne into: [:a :b | a < b ifTrue: [a] ifFalse: [b]]"},
    {Collection, false, "anyOne self do: [:each | ^each]. self error: 'the collection is empty'"},
    {Collection, false,
     "do: block separatedBy: between | first | first := true. "
     "self do: [:each | first ifTrue: [first := false] ifFalse: [between value]. block value: each]"},
    {Collection, false, "asArray ^self asList asArray"},
    {Collection, false, "asList | all | all := List new. self do: [:each | all add: each]. ^all"},
    {Collection, false, "asSet | all | all := Set new. self do: [:each | all add: each]. ^all"},
    {Collection, false, "asBag | all | all := Bag new. self do: [:each | all add: each]. ^all"},
    {Collection, false, "sorted ^self sorted: [:a :b | (b < a) not]"},
    {Collection, false, "sorted: block ^self asArray mergeSort: block"},
    {Collection, false, "like: list ^list asArray"},
    {Collection, false, "displayString ^self printString"},
    {Collection, false, "printString ^self printLimited: 5"},
    {Collection, false,
     "printLimited: depth | text | depth < 1 ifTrue: [^self class printString , '(...)']. text := self class "
     "printString , '('. "
     "self do: [:each | text size > 10000 ifTrue: [^text , '...)']. text := text , (each printLimited: depth - 1)] "
     "separatedBy: [text := text , ' ']. ^text , ')'"},
    // Sequence
    {Sequence, false, "do: block | i | i := 1. [i <= self size] whileTrue: [block value: (self at: i). i := i + 1]"},
    {Sequence, false,
     "doWithIndex: block | i | i := 1. [i <= self size] whileTrue: [block value: (self at: i) value: i. i := i + 1]"},
    {Sequence, false,
     "reverseDo: block | i | i := self size. [i > 0] whileTrue: [block value: (self at: i). i := i - 1]"},
    {Sequence, false, "first ^self at: 1"},
    {Sequence, false, "last ^self at: self size"},
    {Sequence, false, "indexOf: object self doWithIndex: [:each :i | each = object ifTrue: [^i]]. ^0"},
    {Sequence, false, "reversed | all | all := List new. self reverseDo: [:each | all add: each]. ^self like: all"},
    {Sequence, false,
     "copyFrom: first to: last | all | all := List new. first to: last do: [:i | all add: (self at: i)]. ^self like: "
     "all"},
    {Sequence, false, ", other | all | all := self asList copy. all addAll: other. ^self like: all"},
    {Sequence, false,
     "sameElements: other self size = other size ifFalse: [^false]. "
     "self doWithIndex: [:each :i | each = (other at: i) ifFalse: [^false]]. ^true"},
    // Array
    {Array, true, "with: a ^{a}"},
    {Array, true, "with: a with: b ^{a. b}"},
    {Array, true, "with: a with: b with: c ^{a. b. c}"},
    {Array, false,
     "mergeSort: block | half left right all i j | self size < 2 ifTrue: [^self]. half := self size // 2. "
     "left := (self copyFrom: 1 to: half) mergeSort: block. right := (self copyFrom: half + 1 to: self size) "
     "mergeSort: block. "
     "all := List new. i := 1. j := 1. "
     "[i <= left size and: [j <= right size]] whileTrue: ["
     "(block value: (left at: i) value: (right at: j)) "
     "ifTrue: [all add: (left at: i). i := i + 1] ifFalse: [all add: (right at: j). j := j + 1]]. "
     "[i <= left size] whileTrue: [all add: (left at: i). i := i + 1]. "
     "[j <= right size] whileTrue: [all add: (right at: j). j := j + 1]. ^all asArray"},
    // List
    {List, false, "asList ^self"},
    {List, false, "like: list ^list"},
    {List, false, "addFirst: object ^self insert: object at: 1"},
    {List, false, "removeFirst ^self removeAt: 1"},
    {List, false, "removeLast ^self removeAt: self size"},
    {List, false,
     "remove: object | i | i := self indexOf: object. "
     "i = 0 ifTrue: [System signal: 2015 text: object displayString , ' is not in the list' arguments: {self. "
     "object}]. "
     "^self removeAt: i"},
    // ByteArray
    {ByteArray, false,
     "like: list | all | all := ByteArray new: list size. list doWithIndex: [:each :i | all at: i put: each]. ^all"},
    // Text
    {Text, false, "displayString ^self asString"},
    {Text, false, "isString ^true"},
    {Text, false, "printLimited: depth ^self printString"},
    {Text, false, "> other ^other < self"},
    {Text, false, "<= other ^(other < self) not"},
    {Text, false, ">= other ^(self < other) not"},
    {Text, false, "indexOfText: other ^self indexOfText: other from: 1"},
    {Text, false,
     "indexOfText: other from: start | at | at := self findText: other from: start. "
     "[at < 0] whileTrue: [at := self findText: other from: 0 - at]. ^at"},
    {Text, false, "includesText: other ^(self indexOfText: other from: 1) > 0"},
    {Text, false, "startsWith: other ^other size <= self size and: [(self copyFrom: 1 to: other size) = other]"},
    {Text, false,
     "endsWith: other ^other size <= self size and: [(self copyFrom: self size - other size + 1 to: self size) = "
     "other]"},
    {Text, false, "like: list | text | text := ''. list do: [:each | text := text append: each asString]. ^text"},
    {Text, false,
     "split: separator | all start next | all := List new. separator isEmpty ifTrue: [^{self}]. start := 1. "
     "[(next := self indexOfText: separator from: start) > 0] whileTrue: ["
     "all add: (self copyFrom: start to: next - 1). start := next + separator size]. "
     "all add: (self copyFrom: start to: self size). ^all asArray"},
    {Text, false, "replace: old with: new ^(self split: old) joinedBy: new"},
    {Text, false,
     "trimmed | first last | first := 1. last := self size. "
     "[first <= last and: [(self at: first) isBlank]] whileTrue: [first := first + 1]. "
     "[last >= first and: [(self at: last) isBlank]] whileTrue: [last := last - 1]. ^self copyFrom: first to: last"},
    {Sequence, false,
     "joinedBy: separator | text i each | text := ''. i := 1. [i <= self size] whileTrue: ["
     "i > 1 ifTrue: [text := text append: separator]. each := self at: i. "
     "text := text append: (each isString ifTrue: [each] ifFalse: [each displayString]). i := i + 1]. ^text"},
    // Bag, Set
    {Bag, false, "do: block self asArray do: block"},
    {Bag, false,
     "remove: object ifAbsent: block ^(self includes: object) ifTrue: [self remove: object] ifFalse: [block value]"},
    {Bag, false, "like: list | all | all := self class new. all addAll: list. ^all"},
    {Bag, false, "occurrencesOf: object ^self count: [:each | each = object]"},
    // Dictionary
    {Dictionary, false,
     "at: key ifAbsent: block ^(self includesKey: key) ifTrue: [self at: key] ifFalse: [block value]"},
    {Dictionary, false, "at: key ifAbsentPut: block ^self at: key ifAbsent: [self at: key put: block value]"},
    {Dictionary, false, "add: association self at: association key put: association value. ^association"},
    {Dictionary, false,
     "addAll: others (others isKindOf: Dictionary) ifFalse: [^super addAll: others]. "
     "others keysAndValuesDo: [:key :each | self at: key put: each]. ^others"},
    {Dictionary, false, "do: block self associations do: [:each | block value: each value]"},
    {Dictionary, false,
     "keysAndValuesDo: block self associations do: [:each | block value: each key value: each value]"},
    {Dictionary, false, "keys ^(self associations collect: [:each | each key]) asSet"},
    {Dictionary, false, "values ^self associations collect: [:each | each value]"},
    {Dictionary, false, "keyOf: value self keysAndValuesDo: [:key :each | each = value ifTrue: [^key]]. ^nil"},
    {Dictionary, false,
     "select: block | all | all := self class new. "
     "self keysAndValuesDo: [:key :each | (block value: each) ifTrue: [all at: key put: each]]. ^all"},
    {Dictionary, false,
     "printLimited: depth | text | depth < 1 ifTrue: [^'Dictionary(...)']. text := self class printString , '('. "
     "self associations do: [:each | text size > 10000 ifTrue: [^text , '...)']. "
     "text := text , (each printLimited: depth - 1)] separatedBy: [text := text , ' ']. ^text , ')'"},
    // Interval
    {Interval, true,
     "from: first to: last by: step step = 0 ifTrue: [^self error: 'the step of an interval is not zero']. "
     "^self new from: first to: last by: step"},
    {Interval, false, "from: a to: b by: s first := a. last := b. step := s"},
    {Interval, false, "size ^step isNil ifTrue: [0] ifFalse: [((last - first) // step + 1 max: 0) asInteger]"},
    {Interval, false,
     "at: index (index between: 1 and: self size) ifFalse: ["
     "System signal: 2004 text: 'the index ' , index printString , ' is outside an Interval' arguments: {self. "
     "index}]. "
     "^first + (index - 1 * step)"},
    {Interval, false, "do: block 1 to: self size do: [:i | block value: first + (i - 1 * step)]"},
    {Interval, false, "printLimited: depth ^self asArray printLimited: depth"},
    // DateTime
    {DateTime, false, "hour ^self milliseconds // 3600000"},
    {DateTime, false, "minute ^self milliseconds // 60000 \\\\ 60"},
    {DateTime, false, "second ^self milliseconds // 1000 \\\\ 60"},
    {DateTime, false, "addDays: count ^self addMilliseconds: count * 86400000"},
    {DateTime, false, "> other ^other < self"},
    {DateTime, false, "<= other ^(other < self) not"},
    {DateTime, false, ">= other ^(self < other) not"},
};

} // namespace

std::span<const PreludeMethod> preludeMethods() {
    return methods;
}

} // namespace local
