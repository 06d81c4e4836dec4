// Callers and source texts that make no sense: every one ends in an error or a result, and the store stays usable.
#include "client_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <iterator>
#include <random>
#include <sstream>

namespace local_tests {

std::vector<std::string> words(const char* text) {
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

// Any entry with any identifier (values, kernel objects, live objects of every body, and ones that do not exist), and
// pieces of source in any order.
TEST_F(LocalClient, RandomCallsAreHarmless) {
    std::minstd_rand random(7);
    std::vector<OopType> pool;
    const auto add = [&](auto... values) { (pool.push_back(static_cast<OopType>(values)), ...); };
    add(0, 1, 2, 14, 18, 1045, 6414, 0xFFFFFFFF, small(1), small(-1), KCI_OOP_NIL, KCI_OOP_TRUE, KCI_CLASS_STRING,
        KCI_CLASS_FLOAT, KCI_CLASS_DATE_TIME, KCI_CATEGORY_SYSTEM);
    const size_t fixed = pool.size();
    for (const char* source :
         {"'text'", "w'wide'", "1.5", "10000000000", "{1. 2}", "List new", "Set new", "Dictionary new", "1 -> 2",
          "[:a | ^a]", "DateTime now", "Object subclass: #T variables: #(#v)", "T new", "System", "Object", "#symbol",
          "1 to: 3"})
        pool.push_back(evaluate(source));
    auto any = [&] { return pool[random() % pool.size()]; };
    auto replaced = [&]() -> OopType& { return pool[fixed + random() % (pool.size() - fixed)]; };
    const auto pieces = words("3 foo x := | [ ] ( ) { } . ; ^ #( #[ $ 'a' w'b' \" + - at: put: self super nil true :y "
                              "Array new new: value do: class #z whileTrue: ifTrue: System commit abort Object copy "
                              "printString List add: size Dictionary sorted asArray \xE6\x97\xA5 1e5 perform:");
    const auto selectors =
        words("at: add: = , + copy printString hash asArray sorted value value: method: new new: keys "
              "removeKey: asSet year");
    ByteType room[16] = {};
    KciObjInfoSType info{};
    OopType oops[3];
    KciLong start = 0;
    ArraySizeType count = 0;
    const std::function<void()> calls[] = {
        [&] { kci.KciFetchObjInfo(any(), start, 16, &info, room, &count); },
        [&] { kci.KciFetchBytes(any(), start, room, count); },
        [&] { kci.KciFetchVaryingOops(any(), start, oops, count); },
        [&] { kci.KciFetchNamedOops(any(), start, oops, count); },
        [&] { kci.KciStoreBytesInstanceOf(KCI_OOP_NIL, any(), start, room, count); },
        [&] { kci.KciStoreIdxOops(any(), start, oops, count); },
        [&] { kci.KciStoreNamedOops(any(), start, oops, count); },
        [&] { replaced() = kci.KciNewOop(any()); },
        [&] { kci.KciReleaseOops(oops, count % 2); },
        [&] { kci.KciContinueWith(any(), any(), 0, nullptr); },
        [&] { kci.KciOopToFlt(any()), kci.KciOopToLong(any()), kci.KciIsKindOf(any(), any()); },
        [&] {
            const std::string& selector = selectors[random() % selectors.size()];
            kci.KciNbPerform(any(), selector.c_str(), oops, selector.ends_with(":") ? 1 : random() % 2);
            finish();
            replaced() = error.number != 0 ? error.context : any();
        },
        [&] {
            std::string source;
            for (uint32_t n = random() % 14; n > 0; --n)
                source += pieces[random() % pieces.size()] + " ";
            kci.KciNbExecuteStr(source.c_str(), KCI_OOP_NIL);
            for (int polls = 0; kci.KciNbEnd(nullptr) != KCI_RESULT_READY; ++polls) {
                if (polls == 3)
                    kci.KciSoftBreak();
            }
            kci.KciSoftBreak(); // without effect: nothing runs
        }};
    evaluate("System sliceSize: 2000");
    for (int i = 0; i < 40000; ++i) {
        for (OopType& oop : oops)
            oop = any();
        start = static_cast<KciLong>(random() % 6) - 1;
        count = random() % 4;
        calls[random() % std::size(calls)]();
        pending();
    }
    EXPECT_EQ(print("3 + 4"), "7");
}

#if !defined(__SANITIZE_THREAD__) // which takes a multiple of the time
// What was quadratic, or one long step, took seconds; here the time of the thread is counted, with much to spare.
TEST_F(LocalClient, ManyObjectsTakeLittleTimeInShortPolls) {
    auto seconds = [] {
        timespec time{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    };
    for (const char* source : {
             "n := 300000. all := List new. 1 to: n do: [:i | all add: i printString]. all size",
             "(all joinedBy: ',') size",
             "d := Dictionary new. all do: [:e | d at: e put: e]. d size",
             "| b | b := Bag new. all do: [:e | b add: 1]. all do: [:e | b remove: 1]. b size",
             "| l | l := all copy. [l isEmpty] whileFalse: [l removeFirst]. l size",
             "Shared at: #all put: all. System commit",
             "System collectGarbage",
             "d := nil. all := nil. System collectGarbage",
             "((String new: 200000) indexOfText: (String new: 3000) , 'x') = 0",
             "| t | t := (String new: 600000) , 'it''s'. (t asDoubleByteString asUppercase printString asString = "
             "('w''' , (String new: 600000) , 'IT''''S''')) ifFalse: [nil isDifferent]",
         }) {
        double start = seconds();
        double longest = 0;
        kci.KciNbExecuteStr(source, KCI_OOP_NIL);
        for (KciNbProgressEType progress = KCI_RESULT_PROGRESSED; progress != KCI_RESULT_READY;) {
            double before = seconds();
            progress = kci.KciNbEnd(nullptr);
            longest = std::max(longest, seconds() - before);
        }
        EXPECT_EQ(pending(), 0) << error.message;
        EXPECT_LT(longest, 0.1) << source;
        EXPECT_LT(seconds() - start, 3) << source;
    }
}
#endif

TEST_F(LocalClient, OnlyTheLatestProcessesAreKept) {
    perform(small(1), "nothing");
    OopType oldest = error.context;
    perform(small(2), "nothing");
    OopType second = error.context;
    for (int i = 0; i < 99; ++i)
        perform(small(3), "nothing");
    EXPECT_EQ(kci.KciContinueWith(oldest, small(5), 0, nullptr), KCI_OOP_ILLEGAL);
    EXPECT_TRUE(kci.KciErr(&error));
    EXPECT_EQ(kci.KciContinueWith(second, small(5), 0, nullptr), small(5));
}

} // namespace local_tests
