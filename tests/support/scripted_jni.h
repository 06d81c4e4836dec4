// A Java environment over simple objects for what a virtual machine does not do on demand: it fails the nth allocation
// or lending, lacks a class or a field, and watches what a native method does with references, loans and exceptions.
// A breach of the interface's rules is recorded as a complaint; a function that has no script here ends the program.
#pragma once

#include <jni.h>

#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace scripted {

struct Object {
    struct Value {
        jlong number = 0;
        double real = 0;
        Object* object = nullptr;
    };

    std::string cls{}; // the last part of its class's name
    std::map<std::string, Value> fields{};
    std::u16string text{};
    std::vector<jbyte> bytes{};
    std::vector<jlong> longs{};
    std::vector<Object*> elements{};

    bool wrote(const std::string& field) const { return fields.contains(field); }
    jlong number(const std::string& field) const { return wrote(field) ? fields.at(field).number : 0; }
    Object* object(const std::string& field) const { return wrote(field) ? fields.at(field).object : nullptr; }
};

std::string toModifiedUtf8(const std::u16string& text);
std::u16string fromModifiedUtf8(const std::string& text);

// What a native method does between two calls of beginCall().
struct NativeCallLog {
    std::vector<std::string> calls; // function names with a field, class or index where there is one
    std::vector<std::string> complaints;
    std::vector<jobject> elementReferences; // what GetObjectArrayElement answered
    std::string pending;                    // the class name of the exception that is pending
    unsigned localReferences = 0;           // made by the native method and not deleted

    // By script.
    std::string missingClass, missingField;
    std::map<std::string, unsigned> failures;
    unsigned loansExpected = 0; // that endCall() finds in order

    struct Loan {
        Object* owner;
        std::vector<char> data;
    };
    std::deque<Loan> loans;
};

struct Jni : NativeCallLog {
    JNIEnv* env();

    // Objects live until those that were made after a while are forgotten; the classes of the bridge exist from the
    // start.
    Object* create(const std::string& className, const Object& content = {});
    Object* string(const std::u16string& text) { return create("String", {.text = text}); }
    Object* byteArray(const std::vector<jbyte>& bytes) { return create("[B", {.bytes = bytes}); }
    Object* longArray(const std::vector<jlong>& longs) { return create("[J", {.longs = longs}); }
    Object* objectArray(const std::vector<Object*>& elements) { return create("[Object", {.elements = elements}); }

    // In the order of the class's declaration.
    std::vector<std::string> fieldNames(const std::string& className) const;

    // A reference for an argument of the next native call; NULL for no object.
    jobject argument(Object* object);
    // The object behind a reference; NULL for NULL and, with a complaint, for a reference that is not valid.
    Object* object(jobject reference);

    std::pair<unsigned, std::size_t> made() const;
    void forgetAfter(std::pair<unsigned, std::size_t> made);

    // Between two native calls: argument() comes after beginCall(). endCall() complains about loans not returned.
    void beginCall();
    void endCall();

    // The nth call from now of a lending or allocating function (1 is the next) answers NULL, as when memory is short.
    void fail(const std::string& function, unsigned nth = 1) { failures[function] = nth; }
    unsigned count(const std::string& call) const;
};

Jni& jni();

} // namespace scripted
