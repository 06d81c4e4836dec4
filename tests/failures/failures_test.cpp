// Every allocation fails once, and every system call: a scenario of each library runs again and again, and each time a
// later one fails, alone, with the next two, or with all that follow. Whatever the scenario says then, it ends;
// afterwards the same calls work, and nothing is left behind.
#include "failing_calls.h"
#include "local/client_fixture.h"
#include "support/child.h"
#include "support/scratch.h"

#include "errmsg.h"
#include "hash.h"
#include "hostdebug.h"
#include "hostfault.h"
#include "hostfile.h"
#include "hostlimits.h"
#include "hostprocess.h"
#include "hostthread.h"
#include "hosttime.h"
#include "hostunix.h"
#include "hostuser.h"
#include "kciremote.h"
#include "kcirtl.h"
#include "kcitable.h"
#include "ksdstring.h"
#include "syserror.h"
#include "utlheap.h"

#include <gtest/gtest.h>

#include <climits>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <malloc.h>
#include <set>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct Loop {
    const char* library;
    std::function<void()> scenario; // under failures
    std::function<void()> works;    // without
    unsigned few;                   // fewer calls than these were not worth the run
    unsigned all = UINT_MAX;        // every one up to this; of the later ones some
    unsigned beyond = 0;            // as many more are made by children
};

void failEach(const Loop& loop) {
    mallopt(M_PERTURB, 0x5A); // what is used uninitialized, or after it was freed, shows
    failingCalls.library = loop.library;
    int kept = 0; // by one round, on purpose
    for (int i = 0; i < 3; ++i) {
        kept = -failingCalls.live;
        loop.scenario();
        loop.works();
        kept += failingCalls.live;
    }
    for (const unsigned failures : {1u, 3u, UINT_MAX}) {
        failingCalls.failures = failures;
        const unsigned dense = failures == 1 ? loop.all : std::min(loop.all, 16u);
        unsigned n = 1;
        for (bool failed = true; failed && !testing::Test::HasFailure(); n += 1 + n / dense) {
            SCOPED_TRACE(std::to_string(failures) + " from " + std::to_string(n));
            alarm(20); // a hang ends the program
            const int live = failingCalls.live;
            failingCalls.count = 0;
            failingCalls.failAt = n;
            loop.scenario();
            failed = failingCalls.count + loop.beyond >= n;
            failingCalls.failAt = 0;
            loop.works();
            EXPECT_LE(failingCalls.live, live + kept) << "left behind";
        }
        EXPECT_GT(n, loop.few);
        printf("%s: %u allocations, %u failing\n", *loop.library ? loop.library : "program", n - 1, failures);
    }
    alarm(0);
    failingCalls.library = nullptr;
}

KciRtlJumpSType open(const char* file) {
    void* const library = dlopen(file, RTLD_NOW);
    EXPECT_NE(library, nullptr) << dlerror();
    return *reinterpret_cast<KciGetRtlTableFuncPtr>(dlsym(library, "KciGetRtlTable"))();
}

// A client library through its table.
struct Client {
    KciRtlJumpSType kci{};

    std::string evaluate(const char* source) const {
        void* result = nullptr;
        kci.KciNbExecuteStr(source, KCI_OOP_NIL);
        KciErrSType error{};
        if (kci.KciErr(&error))
            return error.message;
        while (kci.KciNbEnd(&result) != KCI_RESULT_READY) {
        }
        if (kci.KciErr(&error) || result == nullptr) {
            if (error.context != KCI_OOP_NIL)
                kci.KciContinueWith(error.context, KCI_OOP_NIL, 0, nullptr);
            return error.message;
        }
        ByteType text[200];
        ArraySizeType size = 0;
        KciObjInfoSType info{};
        const OopType oop = *static_cast<OopType*>(result);
        kci.KciFetchObjInfo(oop, 1, sizeof text, &info, text, &size);
        kci.KciReleaseOops(&oop, 1);
        kci.KciErr(&error);
        return {text, text + size};
    }
    bool logIn() const {
        kci.KciSetNet("here", nullptr, nullptr, nullptr);
        return kci.KciInit() && kci.KciLogin("guest", "guest");
    }
    // A bit of everything that needs memory.
    void useAll() const {
        for (const char* source : {"| d s | d := Dictionary new. 1 to: 40 do: [:i | d at: i printString put: {i. i / "
                                   "3.0}]. s := d keys sorted. "
                                   "Shared at: #it put: d. System commit. s size printString",
                                   "#(3 $a 'b' w'c' 1e5 (x)) printString",
                                   "Object subclass: #T variables: #(#v). T method: 'foo ^v := #(1 x)'. "
                                   "T new foo printString",
                                   "nil foo", "1 +", "(DateTime now) printString , (10000000000 * 3) printString",
                                   "| b | b := Bag new. 1 to: 30 do: [:i | b add: i \\\\ 7]. [:x | x foo: b] value: "
                                   "(Set new addAll: b; yourself)"})
            evaluate(source);
        OopType oops[400] = {kci.KciNewOop(KCI_CLASS_STRING), kci.KciLongToOop(INT_MAX), kci.KciFltToOop(1.5)};
        ByteType bytes[5000] = {};
        kci.KciStoreBytesInstanceOf(KCI_OOP_NIL, oops[0], 1, bytes, sizeof bytes);
        kci.KciFetchBytes(oops[0], 1, bytes, sizeof bytes);
        // As the bridge does: saved one by one, which a host learns, and some day does not ask for all.
        evaluate("all := (1 to: 400) collect: [:i | {i}]");
        kci.KciNbExecuteStr("all", KCI_OOP_NIL);
        void* all = nullptr;
        while (kci.KciNbEnd(&all) != KCI_RESULT_READY) {
        }
        for (const KciLong asked : {400, 400, 200, 1}) {
            kci.KciSetSessionId(kci.KciGetSessionId());
            const KciLong count = std::min(
                kci.KciFetchVaryingOops(all != nullptr ? *static_cast<OopType*>(all) : KCI_OOP_NIL, 1, oops, 400),
                asked);
            for (KciLong i = 0; i < count; ++i)
                kci.KciSaveObjs(&oops[i], 1);
        }
        kci.KciReleaseOops(oops, 3);
        kci.KciDirtyObjsInit();
        ArraySizeType count = 300;
        kci.KciDirtySaveObjs(oops, &count);
        const KciSessionIdType session = kci.KciGetSessionId();
        if (kci.KciLogin("guest", "guest")) {
            evaluate("Shared at: #it");
            kci.KciLogout();
            kci.KciSetSessionId(session);
        }
        kci.KciCommit();
        kci.KciAbort();
        kci.KciErr(nullptr);
    }
    void works() const {
        ASSERT_TRUE(logIn());
        kci.KciErr(nullptr);
        useAll();
        ASSERT_EQ(evaluate("(Shared at: #it) size printString"), "40");
        kci.KciShutdown();
    }
};

// The thousands that building the store's own classes takes fail apart from those of calls.
TEST(Allocations, LocalStore) {
    const Client client{open(KCI_LOCAL_LIBRARY)};
    const auto calls = [&] {
        const unsigned failAt = failingCalls.failAt.exchange(0);
        EXPECT_TRUE(client.logIn());
        failingCalls.count = 0;
        failingCalls.failAt = failAt;
        client.useAll();
        failingCalls.failAt = 0;
        EXPECT_EQ(client.evaluate("(3 + 4) printString"), "7");
        client.kci.KciShutdown();
    };
    failEach({"kcilnk67", calls, [] {}, 1000, sizeof(void*) == 4 ? UINT_MAX : 200});
    const auto start = [&] {
        client.logIn();
        client.kci.KciShutdown();
    };
    failEach({"kcilnk67", start, [&] { client.works(); }, 1000, 64});
}

class AllocationsOfTheStore : public local_tests::LocalClient {};

TEST_F(AllocationsOfTheStore, CollectionsWithoutMemoryLoseNothing) {
    evaluate("Object subclass: #T variables: #(#v). T method: 'foo ^#(1 (2 ''two''))'. kept := List new. "
             "1 to: 50 do: [:i | kept add: (Array with: i printString with: [i])]. Shared at: #it put: kept");
    const auto collect = [&] {
        kci.KciNbExecuteStr("System collectGarbage", KCI_OOP_NIL);
        while (kci.KciNbEnd(nullptr) != KCI_RESULT_READY) {
        }
        EXPECT_TRUE(std::set({0, 2203, 2208}).contains(pending())) << error.message;
    };
    const auto works = [&] {
        evaluate("System collectGarbage. 3");
        EXPECT_EQ(print("{T new foo. kept inject: 0 into: [:sum :e | e last value + sum + e first size]. it size}"),
                  "Array(Array(1 Array(2 'two')) 1366 50)");
    };
    failEach({"kcilnk67", collect, works, 5});
}

// What another session has in its export set and tracks must be noted in the course of publishing.
TEST_F(AllocationsOfTheStore, CommitsWithoutMemoryPublishNothing) {
    const KciSessionIdType writer = kci.KciGetSessionId();
    evaluate("Shared at: #all put: ((1 to: 20) collect: [:i | {{0}}]). System commit");
    const KciSessionIdType reader = logIn();
    kci.KciDirtyObjsInit();
    OopType arrays[20] = {};
    kci.KciFetchVaryingOops(evaluate("all"), 1, arrays, 20);
    kci.KciSaveObjs(arrays, 20);
    int value = 0;
    const auto holds = [](int each) {
        return "all allSatisfy: [:each | (each at: 1) first = " + std::to_string(each) + "]";
    };
    const auto commit = [&] {
        const unsigned failAt = failingCalls.failAt.exchange(0);
        evaluate("all do: [:each | each at: 1 put: {" + std::to_string(value + 1) + "}]");
        failingCalls.count = 0;
        failingCalls.failAt = failAt;
        const bool done = kci.KciCommit();
        failingCalls.failAt = 0;
        EXPECT_EQ(pending(), done ? 0 : 2208);
        EXPECT_EQ(print(holds(value + 1)), "true");
        value += done;
        kci.KciSetSessionId(reader);
        kci.KciAbort();
        EXPECT_EQ(print(holds(value)), "true");
        EXPECT_EQ(changed().empty(), !done);
        kci.KciDirtyObjsInit();
        kci.KciSetSessionId(writer);
        kci.KciAbort();
    };
    failEach({"kcilnk67", commit, [&] { evaluate("System collectGarbage"); }, 20});
}

// What fails is announced, and in a child said in its log.
class SupportLayer : public Scratch {
public:
    SupportLayer() {
        noHalt = TRUE;
        setenv("KESTRUNE_LANG", MESSAGES, 1);
        setenv("HOME", path().c_str(), 1);
        setenv("KS_CORE_TIME_OUT", "0", 1);
    }
    void useAll() const {
        ErrMsgInit();
        char text[20000];
        for (const char* symbol : {"host.initfail", "missing"}) {
            ErrMsgSymToText(symbol, text, sizeof text, "s", "argument");
            UtlFree(ErrMsgGetString(symbol));
        }
        ErrMsgToTxt(KCI_CATEGORY_SYSTEM, 2010, text, sizeof text);
        KsDString string;
        KsDStringInit(&string);
        for (int i = 0; i < 50; ++i)
            KsDStringAppend(&string, "twenty characters...", -1);
        KsDStringSetLength(&string, 5000);
        KsDStringFree(&string);
        HashTableSType table;
        HashTableInit(&table, TRUE, 8, reinterpret_cast<HashFType>(HashCStrHash),
                      reinterpret_cast<HashCompareFType>(HashCStrCompare));
        for (int i = 0; i < 60; ++i) {
            snprintf(text, sizeof text, "%d", i);
            VoidPtrType* const slot = HashTableLookup(&table, text);
            if (slot == nullptr || (*slot == nullptr && !HashTableInsert(&table, slot, text)))
                break;
        }
        HashTableClear(&table);
        UtlFree(table.table);
        HostSetEnv("name", "value");
        HostExpandFileName("$HOME/a", text, sizeof text);
        HostGetHomeDir("root", text, sizeof text);
        HostPerform("/dev/null", "/dev/null");
        PidType pid = 0;
        if (HostForkServer("/bin/true a b c", text, sizeof text, &pid) || pid > 0)
            waitpid(pid, nullptr, 0);
        if (HostFork("/bin/true a b c", nullptr, nullptr, text, sizeof text, "here", "%N%P%M.log", path().c_str(),
                     &pid))
            waitpid(pid, nullptr, 0);
        ErrMsgShutdown();
    }
    // What needs no memory, but the system.
    void callSystem() const {
        char text[2000];
        SysErrorSType error;
        HostInit();
        HostInstallFaultHandler(nullptr, nullptr);
        HostSetMaxFiles(256, &error);
        HostMilliSleep(1);
        HostNanoSleep(2000000);
        HostStatistics(text, sizeof text);
        UtlCtime(0, text, sizeof text);
        time_t now = 0;
        HostTIMEZONE(&now);
        long seconds = 0, rest = 0;
        HostGetTimeOfDay(&seconds, &rest);
        HostClock();
        HostGetHostname(text, sizeof text);
        HostGetUserName(text, sizeof text);
        HostExpandFileName("a/../$HOME//b/../c", text, sizeof text);
        const std::string file = write("file", "text");
        HostFileType(file.c_str());
        HostFileExistSize(file.c_str(), &rest);
        if (FILE* const opened = HostOpenFile(file.c_str(), "r", &error, 0))
            fclose(opened);
        HostRemoveFile(file.c_str(), &error);
        UnixIoSystem("true", FALSE);
        HostThreadType thread{};
        if (HostThreadCreate(
                &thread, [](void* nothing) { return nothing; }, nullptr, 100000) == 0)
            HostThreadJoin(thread, nullptr);
        alignas(4096) static char page[4096];
        HostProtectPage(
            page, [](char*, char*) { return TRUE; }, &error);
        HostUnProtectPage(page);
        KciRtlLoad(FALSE, std::filesystem::path(KCI_LOCAL_LIBRARY).parent_path().c_str(), text, sizeof text);
        KciRtlUnload();
        HostUseRealId();
        HostSetUserId();
        PidType pid = 0;
        if (HostFork("/bin/true", "nobody", nullptr, text, sizeof text, nullptr, "log", path().c_str(), &pid))
            waitpid(pid, nullptr, 0);
        coreDumpEnabled = 0;
        HostPrintMyCStack();
        coreDumpEnabled = 1;
        const rlimit none{0, 0};
        setrlimit(RLIMIT_CORE, &none);
        HostCoredump(TRUE);
        hostUnInstallFaultHandler();
        signal(SIGCHLD, SIG_DFL); // what the handler takes is the status of children
    }
    void works() const {
        ErrMsgInit();
        char text[200];
        PidType pid = 0;
        int status = -1;
        ErrMsgSymToText("host.initfail", text, sizeof text, "s", "why");
        EXPECT_EQ(std::string(text).find('['), std::string::npos) << text;
        ASSERT_TRUE(HostFork("/bin/true", nullptr, nullptr, text, sizeof text, nullptr, "log", path().c_str(), &pid))
            << text;
        waitpid(pid, &status, 0);
        EXPECT_EQ(status, 0);
        ErrMsgShutdown();
    }
};

TEST(Allocations, SupportLayer) {
    const SupportLayer support;
    stderr = fopen("/dev/null", "w");
    FILE* const usual = stdout;
    const auto scenario = [&] {
        stdout = stderr;
        support.useAll();
        fflush(stdout);
        stdout = usual;
    };
    failEach({"tmqkci313", scenario, [&] { support.works(); }, 50, UINT_MAX, 20});
}

// Each in a process of its own, which may end for want of a way on: with a message and a status, or, when its own
// report fails, with abort.
void failEachSystemCall(const Loop& loop) {
    failingCalls.library = loop.library;
    constexpr int noneFailed = 42;
    for (const auto& [which, failures] : {std::pair{systemCalls, 1u}, {systemCalls, UINT_MAX}, {interruptions, 1u}}) {
        unsigned n = 1, ended = 0;
        for (bool failed = true; failed && !testing::Test::HasFailure(); n += failures == 1 ? 1 : 1 + n / 4) {
            const ChildResult child = runInChild([&] {
                failingCalls.which = which;
                failingCalls.failures = failures;
                failingCalls.count = 0;
                failingCalls.failAt = n;
                loop.scenario();
                failingCalls.failAt = 0;
                loop.works();
                const unsigned beyond = which == systemCalls ? loop.beyond : loop.beyond / 10;
                if (!testing::Test::HasFailure() && failingCalls.count + beyond < n)
                    _exit(noneFailed);
            });
            failed = child.exitStatus != noneFailed;
            ended += failed && child.exitStatus != 0;
            EXPECT_TRUE(!failed || std::set({0, 2, 3, 4}).contains(child.exitStatus) ||
                        child.err.find("Recursive error caught!") != std::string::npos)
                << which << ": " << failures << " from " << n << " on: status " << child.exitStatus << ", signal "
                << child.signal << (child.timedOut ? ", hangs\n" : "\n") << child.out << child.err;
        }
        EXPECT_GT(n, loop.few);
        printf("%s: %u system calls, %u failing, %u ended the process\n", loop.library, n - 1, failures, ended);
    }
}

TEST(SystemCalls, SupportLayer) {
    const SupportLayer support;
    std::filesystem::current_path(support.path());
    const auto scenario = [&] {
        support.useAll();
        support.callSystem();
    };
    failEachSystemCall({"tmqkci313", scenario, [&] { support.works(); }, 10, UINT_MAX, 100});
}

// Both ends, the far one in its own process.
class RemoteClient {
public:
    RemoteClient() {
        char text[500] = "";
        EXPECT_TRUE(serve(KCI_LOCAL_LIBRARY, text, sizeof text)) << text;
        client.kci = open(REMOTE_LIBRARY);
        client.kci.KciUnload();
    }
    void use() const {
        char text[500] = "";
        client.kci.KciInitAppName("name", TRUE);
        if (serve(KCI_LOCAL_LIBRARY, text, sizeof text) && client.logIn())
            client.useAll();
        KciErrSType error{};
        if (client.kci.KciErr(&error))
            snprintf(text, sizeof text, "%s", error.message);
        if (failingCalls.which == allocations) {
            EXPECT_EQ(std::string(text).find("ended"), std::string::npos) << text;
        }
        client.kci.KciShutdown();
        client.kci.KciUnload();
    }
    void works() const {
        char text[500] = "";
        ASSERT_TRUE(serve(KCI_LOCAL_LIBRARY, text, sizeof text)) << text;
        client.works();
        client.kci.KciUnload();
    }
    void failInHost(Failing which, const std::string& failures) const {
        const std::string note = "/tmp/failures-" + std::to_string(getpid());
        setenv("LD_PRELOAD", SHIM, 1);
        setenv("FAILING_CALLS_NOTE", note.c_str(), 1);
        failingCalls.which = which;
        int n = 1;
        for (bool failed = true; failed && !testing::Test::HasFailure(); ++n) {
            const std::string chosen = std::to_string(which) + ":" + std::to_string(n) + ":" + failures;
            SCOPED_TRACE(chosen);
            alarm(20);
            setenv("FAILING_CALLS", chosen.c_str(), 1);
            use();
            failed = unlink(note.c_str()) == 0;
            unsetenv("FAILING_CALLS");
            works();
        }
        EXPECT_GT(n, 3);
        printf("host: %d of %d, %s failing\n", n - 1, which, failures.c_str());
    }

private:
    const KciRemoteServeFuncPtr serve =
        reinterpret_cast<KciRemoteServeFuncPtr>(dlsym(dlopen(REMOTE_LIBRARY, RTLD_NOW), "KciRemoteServe"));
    Client client;
};

TEST(Allocations, RemoteClientLibraryAndItsHost) {
    const RemoteClient client;
    failEach({"kcirpc67", [&] { client.use(); }, [&] { client.works(); }, 2});
    for (const char* failures : {"1", "3", "1000000"})
        client.failInHost(allocations, failures);
}

TEST(SystemCalls, RemoteClientLibraryAndItsHost) {
    const RemoteClient client;
    failEachSystemCall({"kcirpc67", [&] { client.use(); }, [&] { client.works(); }, 5});
    for (const char* failures : {"1", "1000000"})
        client.failInHost(systemCalls, failures);
    client.failInHost(interruptions, "1");
}

} // namespace
