// Much of everything: objects by the hundred thousand, and more processes than are kept.
#include "client_fixture.h"

#include <algorithm>
#include <ctime>

namespace local_tests {

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
