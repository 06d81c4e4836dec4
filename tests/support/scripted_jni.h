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

struct Class;

struct Field {
    Class* owner;
    std::string name, signature;
};

struct Class {
    std::string name; // the last part of the class's full name
    std::deque<Field> fields;
};

struct Object {
    struct Value {
        jlong number = 0;
        double real = 0;
        Object* object = nullptr;
    };

    Class* cls = nullptr;
    std::map<std::string, Value> fields;
    std::u16string text;
    std::vector<jbyte> bytes;
    std::vector<jlong> longs;
    std::vector<Object*> elements;

    jlong number(const std::string& field) const;
    Object* object(const std::string& field) const;
    bool wrote(const std::string& field) const { return fields.contains(field); }
};

std::string toModifiedUtf8(const std::u16string& text);
// Sets *valid to whether the text is well-formed modified UTF-8.
std::u16string fromModifiedUtf8(const char* text, bool* valid);

class Jni {
public:
    JNIEnv* env();

    // Objects live until those that were made after a while are forgotten; the classes of the bridge exist from the
    // start.
    Object* create(const std::string& className);
    Object* string(const std::u16string& text);
    Object* byteArray(std::vector<jbyte> bytes);
    Object* longArray(std::vector<jlong> longs);
    Object* objectArray(std::vector<Object*> elements);

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
    std::string missingClass, missingField;

    std::vector<std::string> calls; // function names with a field, class or index where there is one
    std::vector<std::string> complaints;
    std::vector<jobject> elementReferences; // what GetObjectArrayElement answered
    std::string pending;                    // the class name of the exception that is pending
    unsigned localReferences = 0;           // made by the native method and not deleted
    unsigned loansExpected = 0;             // loans that endCall() finds in order
    unsigned count(const std::string& call) const;

private:
    friend struct Functions;
    struct Loan {
        Object* owner;
        std::vector<char> data;
    };

    jobject reference(Object* object, int kind);
    bool refuse(const char* function);
    void enter(const std::string& call, bool allowedWhilePending = false);

    std::map<std::string, unsigned> failures;
    std::deque<Loan> loans;
};

Jni& jni();

} // namespace scripted
