// The local client library opened as a program opens it, with shorthands for its calls.
#pragma once

#include "kcitable.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <set>
#include <string>
#include <vector>

namespace local_tests {

inline const KciRtlJumpSType& openTable() {
    static const KciRtlJumpSType* table = [] {
        void* library = dlopen(KCI_LOCAL_LIBRARY, RTLD_NOW);
        EXPECT_NE(library, nullptr) << dlerror();
        auto getTable = reinterpret_cast<KciGetRtlTableFuncPtr>(dlsym(library, "KciGetRtlTable"));
        return getTable();
    }();
    return *table;
}

struct Example {
    std::string source;
    std::string printed;
};

// One logged-in session.
class LocalClient : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(kci.KciInit());
        kci.KciSetNet("anywhere", nullptr, nullptr, nullptr);
        logIn();
        kci.KciDirtyObjsInit();
    }

    KciSessionIdType logIn() {
        EXPECT_TRUE(kci.KciLogin("guest", "guest"));
        return kci.KciGetSessionId();
    }

    void TearDown() override { kci.KciShutdown(); }

    // Polls a call to its end; error tells afterwards how it ended (number 0: well).
    OopType finish() {
        void* result = nullptr;
        while (kci.KciNbEnd(&result) != KCI_RESULT_READY) {
        }
        pending();
        return *static_cast<OopType*>(result);
    }

    OopType evaluate(const std::string& source) {
        kci.KciNbExecuteStr(source.c_str(), KCI_OOP_NIL);
        return finish();
    }

    OopType perform(OopType receiver, const char* selector, std::vector<OopType> arguments = {}) {
        kci.KciNbPerform(receiver, selector, arguments.data(), static_cast<ArraySizeType>(arguments.size()));
        return finish();
    }

    bool exists(OopType object) {
        KciObjInfoSType info{};
        const bool found = kci.KciFetchObjInfo(object, 1, 0, &info, nullptr, nullptr);
        pending();
        return found;
    }

    // The contents of a byte object.
    std::string bytes(OopType object) {
        KciObjInfoSType info{};
        if (!kci.KciFetchObjInfo(object, 1, 0, &info, nullptr, nullptr))
            return "no object";
        std::string text(static_cast<size_t>(info.objSize), '\0');
        kci.KciFetchBytes(object, 1, reinterpret_cast<ByteType*>(text.data()), static_cast<ArraySizeType>(text.size()));
        return text;
    }

    // What a person would see: the result printed, or the error's number and message.
    std::string print(const std::string& source) {
        OopType result = evaluate(source);
        if (error.number != 0)
            return "error " + std::to_string(error.number) + ": " + error.message;
        result = perform(result, "printString");
        return error.number != 0 ? std::string("no printString: ") + error.message : bytes(result);
    }

    void check(const std::vector<Example>& examples) {
        for (const Example& example : examples)
            EXPECT_EQ(print(example.source), example.printed) << example.source.substr(0, 200);
    }

    void store(OopType object, KciLong start, const std::string& text) {
        kci.KciStoreBytesInstanceOf(KCI_OOP_NIL, object, start, reinterpret_cast<const ByteType*>(text.data()),
                                    static_cast<ArraySizeType>(text.size()));
    }

    OopType string(const std::string& text) {
        OopType object = kci.KciNewOop(KCI_CLASS_STRING);
        store(object, 1, text);
        return object;
    }

    // The number of the pending error, which is taken; 0 when none is pending.
    int32_t pending() {
        error = {};
        return kci.KciErr(&error) ? error.number : 0;
    }

    // Takes the objects whose changes wait to be reported.
    std::set<OopType> changed() {
        OopType oops[8];
        ArraySizeType count = 8;
        kci.KciDirtySaveObjs(oops, &count);
        return {oops, oops + count};
    }

    static OopType small(int32_t value) { return static_cast<OopType>(value) << 2 | 3; }

    const KciRtlJumpSType& kci = openTable();
    KciErrSType error{};
};

} // namespace local_tests
