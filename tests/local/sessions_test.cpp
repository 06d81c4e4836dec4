// Sessions whose calls end badly, are broken or run out of memory, and what a commit, a break or a check concerns.
// The library is linked into the program, so that its allocations can be made to fail.
#include "client_fixture.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <thread>

namespace {
int allocationsLeft = -1; // the one after these fails; negative: none
} // namespace

void* operator new(size_t size) {
    bool fails = allocationsLeft >= 0 && allocationsLeft-- == 0;
    if (void* memory = fails ? nullptr : std::malloc(size + 1)) {
        return memory;
    }
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace local_tests {

using Sessions = LocalClient;

// The call of one runs, that of the other waits.
TEST_F(Sessions, BreaksReachTheSessionThatWasSelected) {
    KciSessionIdType first = kci.KciGetSessionId();
    OopType system = evaluate("System");
    const OopType wait = small(300);
    kci.KciNbPerform(system, "waitMilliseconds:", &wait, 1);
    kci.KciSoftBreak();
    ASSERT_TRUE(kci.KciLogin("guest", "guest"));
    KciSessionIdType second = kci.KciGetSessionId();
    kci.KciNbExecuteStr("[true] whileTrue: [nil]", KCI_OOP_NIL);
    void* result = nullptr;
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_PROGRESSED);
    kci.KciSetSessionId(first);
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_READY);
    EXPECT_TRUE(kci.KciErr(&error) && error.number == 6003);
    EXPECT_EQ(kci.KciContinueWith(error.context, KCI_OOP_NIL, 0, nullptr), system);
    kci.KciSetSessionId(second);
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_PROGRESSED);
    kci.KciSoftBreak();
    EXPECT_EQ(kci.KciNbEnd(&result), KCI_RESULT_READY);
}

TEST_F(Sessions, TheProcessMayEndDuringACall) {
    for (int i = 0; i < 30; ++i) {
        pid_t child = fork();
        if (child == 0) {
            kci.KciNbExecuteStr("[true] whileTrue: [#(1 2 3) collect: [:e | e printString]]", KCI_OOP_NIL);
            std::thread([this] {
                for (void* result = nullptr;;) {
                    kci.KciNbEnd(&result);
                }
            }).detach();
            usleep(3000);
            std::exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0) << "process " << i;
    }
}

TEST_F(Sessions, ACollectionWithoutMemoryLosesNothing) {
    evaluate("Object subclass: #T variables: #(#v). T method: 'foo ^#(1 (2 ''two''))'. kept := List new. "
             "1 to: 50 do: [:i | kept add: (Array with: i printString with: [i])]. Shared at: #it put: kept");
    int n = 0;
    for (bool failed = true; failed; ++n) {
        kci.KciNbExecuteStr("System collectGarbage", KCI_OOP_NIL);
        allocationsLeft = n;
        void* result = nullptr;
        kci.KciNbEnd(&result);
        failed = allocationsLeft < 0;
        allocationsLeft = -1;
        EXPECT_EQ(kci.KciErr(&error) ? error.number : 2208, 2208);
        evaluate("System collectGarbage. 3");
        ASSERT_EQ(print("{T new foo. kept inject: 0 into: [:sum :e | e last value + sum + e first size]. it size}"),
                  "Array(Array(1 Array(2 'two')) 1366 50)")
            << "allocation " << n;
    }
    EXPECT_GT(n, 5) << "few allocations were failed";
}

// What another session has in its export set and tracks must be noted in the course of publishing.
TEST_F(Sessions, ACommitWithoutMemoryPublishesNothing) {
    KciSessionIdType writer = kci.KciGetSessionId();
    evaluate("Shared at: #all put: ((1 to: 20) collect: [:i | {0}]). System commit");
    KciSessionIdType reader = logIn();
    kci.KciDirtyObjsInit();
    OopType arrays[20] = {};
    kci.KciFetchVaryingOops(evaluate("all"), 1, arrays, 20);
    kci.KciSaveObjs(arrays, 20);
    int n = 0;
    for (BoolType done = FALSE; done == FALSE; ++n) {
        kci.KciSetSessionId(writer);
        evaluate("all do: [:each | each at: 1 put: {7}]");
        allocationsLeft = n;
        done = kci.KciCommit();
        allocationsLeft = -1;
        EXPECT_EQ(pending(), done != FALSE ? 0 : 2208);
        EXPECT_EQ(print("all allSatisfy: [:each | (each at: 1) first = 7]"), "true");
        kci.KciSetSessionId(reader);
        kci.KciAbort();
        EXPECT_EQ(print("all count: [:each | (each at: 1) = 0]"), done != FALSE ? "0" : "20") << "allocation " << n;
        EXPECT_EQ(changed().empty(), done == FALSE);
    }
    EXPECT_GT(n, 20) << "few allocations were failed";
}

TEST(FreshLibrary, NeedsNoMemoryToSayThatThereIsNone) {
    const KciRtlJumpSType& kci = openTable();
    KciErrSType error{};
    const std::function<void()> calls[] = {
        [&] { kci.KciShutdown(); },
        [&] { kci.KciInit(); },
        [&] { kci.KciLogin("guest", "guest"); },
        [&] { kci.KciNbExecuteStr("System commit. #(1 $a 'two') printString foo", KCI_OOP_NIL); },
        [&] { kci.KciNbEnd(nullptr); },
        [&] { kci.KciCommit(); },
    };
    for (const auto& call : calls) {
        int n = 0;
        for (bool failed = true; failed; n += 1 + n / 16) { // KciInit has thousands
            allocationsLeft = n;
            call();
            failed = allocationsLeft < 0;
            allocationsLeft = -1;
            EXPECT_EQ(kci.KciErr(&error) && failed ? error.number : 2208, 2208) << error.message;
        }
    }
    kci.KciShutdown();
}

TEST_F(Sessions, ErrorsNameEntryArgumentAndValue) {
    const OopType many = small(4000000), missing = 40001;
    const std::pair<std::function<void()>, const char*> rows[] = {
        {[&] { kci.KciStoreIdxOops(small(3), 1, nullptr, 2); }, "KciStoreIdxOops: oops is NULL, not 2 elements"},
        {[&] { kci.KciNbPerform(evaluate("List new"), "add:", &missing, 1), kci.KciNbEnd(nullptr); },
         "no object has the identifier 40001"},
        {[&] { kci.KciOopToBool(small(3)); }, "3 is not a Boolean"},
        {[&] { setenv("KCILOCAL_SLICE", "20x", 1), kci.KciLogin("guest", "guest"); },
         "KCILOCAL_SLICE is '20x', not a number from 1 to 1000000000"},
        {[&] { unsetenv("KCILOCAL_SLICE"), setenv("KCILOCAL_MEMORY", "8", 1), kci.KciLogin("guest", "guest"); },
         "KCILOCAL_MEMORY is '8', not a number from 16 to 2048"},
        {[&] {
             setenv("KCILOCAL_MEMORY", "20", 1), kci.KciLogin("guest", "guest"), evaluate("kept := Array new: 3000000"),
                 kci.KciNbPerform(evaluate("Array"), "new:", &many, 1), kci.KciNbEnd(nullptr);
         },
         "the local store would hold more than 20 MiB"},
        {[&] { setenv("KCILOCAL_USERS", "bob", 1), kci.KciLogin("bob", ""); },
         "login to the local store denied: KCILOCAL_USERS holds no pair of the form name:password"},
    };
    for (const auto& [call, message] : rows) {
        call();
        EXPECT_TRUE(kci.KciErr(&error));
        EXPECT_STREQ(error.message, message);
    }
    unsetenv("KCILOCAL_MEMORY");
    unsetenv("KCILOCAL_USERS");
    setenv("KCILOCAL_SLICE", "50", 1);
    logIn();
    EXPECT_EQ(evaluate("System sliceSize"), small(50));
    unsetenv("KCILOCAL_SLICE");
}

} // namespace local_tests
