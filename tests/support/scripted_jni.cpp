#include "support/scripted_jni.h"

#include "support/unexpected_calls.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace scripted {

namespace {

enum ReferenceKind { FREE, ARGUMENT, LOCAL, GLOBAL };

struct Reference {
    Object* object;
    int kind;
};

// Static, so that a reference printed as a number is small and positive.
Reference references[20000];
unsigned referencesUsed = 0;

const char* const PACKAGE = "com/kestrune/tmqkci/";

// Each class with the names and signatures of its fields.
const char* const CLASSES[] = {
    "TmqKciReport oop J classOop J classHistoryOop J objType B namedSize I indexedSize J isCollection Z isString Z "
    "isDBString Z valueType B valueInt1 I valueInt2 I valueLong J valueDouble D valueBytes [B valueLongs [J "
    "valueString Ljava/lang/String;",
    "TmqKciException number I message Ljava/lang/String; category J context J fatal Z argCount I args [J",
    "TmqKciCacheStats type I name Ljava/lang/String; pid J sid J stats32 [I stats64 [J",
    "String",
    "[B",
    "[J",
    "[Object",
    "Class",
};

std::deque<Class>& classes() {
    static std::deque<Class> all;
    if (all.empty()) {
        for (const char* const text : CLASSES) {
            std::istringstream in(text);
            Class& cls = all.emplace_back();
            in >> cls.name;
            for (std::string name, signature; in >> name >> signature;)
                cls.fields.push_back({&cls, name, signature});
        }
    }
    return all;
}

Class* findClass(const std::string& name) {
    for (Class& cls : classes()) {
        if (cls.name == name)
            return &cls;
    }
    return nullptr;
}

// The object that stands for a class: its text is the class's name.
Object* classObject(Class* cls) {
    static std::map<Class*, Object*> made;
    Object*& object = made[cls];
    if (!object) {
        object = jni().create("Class");
        object->text.assign(cls->name.begin(), cls->name.end());
    }
    return object;
}

} // namespace

jlong Object::number(const std::string& field) const {
    return fields.contains(field) ? fields.at(field).number : 0;
}
double Object::real(const std::string& field) const {
    return fields.contains(field) ? fields.at(field).real : 0;
}
Object* Object::object(const std::string& field) const {
    return fields.contains(field) ? fields.at(field).object : nullptr;
}

std::string toModifiedUtf8(const std::u16string& text) {
    std::string out;
    for (char16_t unit : text) {
        if (unit != 0 && unit < 0x80) {
            out += char(unit);
        } else if (unit < 0x800) {
            out += {char(0xC0 | unit >> 6), char(0x80 | (unit & 0x3F))};
        } else {
            out += {char(0xE0 | unit >> 12), char(0x80 | (unit >> 6 & 0x3F)), char(0x80 | (unit & 0x3F))};
        }
    }
    return out;
}

std::u16string fromModifiedUtf8(const char* text, bool* valid) {
    std::u16string out;
    *valid = true;
    for (auto at = reinterpret_cast<const unsigned char*>(text); *at != 0;) {
        const int extra = *at < 0x80 ? 0 : (*at & 0xE0) == 0xC0 ? 1 : (*at & 0xF0) == 0xE0 ? 2 : -1;
        char16_t unit = extra <= 0 ? *at : *at & (extra == 1 ? 0x1F : 0x0F);
        at++;
        for (int i = 0; i < extra && *valid; i++) {
            *valid = (*at & 0xC0) == 0x80;
            unit = char16_t(unit << 6 | (*at & 0x3F));
            at += *valid;
        }
        *valid = *valid && extra >= 0;
        out += unit;
    }
    return out;
}

Jni& jni() {
    static Jni theJni;
    return theJni;
}

Object* Jni::create(const std::string& className) {
    static std::deque<Object> all;
    Object& object = all.emplace_back();
    object.cls = findClass(className);
    return &object;
}

Object* Jni::string(const std::u16string& text) {
    Object* made = create("String");
    made->text = text;
    return made;
}

Object* Jni::byteArray(std::vector<jbyte> bytes) {
    Object* made = create("[B");
    made->bytes = std::move(bytes);
    return made;
}

Object* Jni::longArray(std::vector<jlong> longs) {
    Object* made = create("[J");
    made->longs = std::move(longs);
    return made;
}

Object* Jni::objectArray(std::vector<Object*> elements) {
    Object* made = create("[Object");
    made->elements = std::move(elements);
    return made;
}

jobject Jni::reference(Object* object, int kind) {
    if (!object)
        return nullptr;
    if (referencesUsed == std::size(references)) {
        std::fprintf(stderr, "too many references\n");
        std::abort();
    }
    localReferences += kind == LOCAL;
    references[referencesUsed] = {object, kind};
    return reinterpret_cast<jobject>(&references[referencesUsed++]);
}

jobject Jni::argument(Object* object) {
    return reference(object, ARGUMENT);
}

Object* Jni::object(jobject given) {
    if (!given)
        return nullptr;
    const auto* found = reinterpret_cast<Reference*>(given);
    if (found < references || found >= references + referencesUsed || found->kind == FREE) {
        complaints.push_back("a reference is used that is not valid");
        return nullptr;
    }
    return found->object;
}

void Jni::beginCall() {
    for (unsigned i = 0; i < referencesUsed; i++) {
        if (references[i].kind != GLOBAL)
            references[i].kind = FREE;
    }
    calls.clear();
    complaints.clear();
    elementReferences.clear();
    localReferences = mixedReleases = loansExpected = 0;
    pending.clear();
    failures.clear();
    missingClass.clear();
    missingField.clear();
    loans.clear();
}

void Jni::endCall() {
    if (loans.size() != loansExpected)
        complaints.push_back(std::to_string(loans.size()) + " loans are not returned");
}

std::vector<std::string> Jni::fieldNames(const std::string& className) const {
    std::vector<std::string> names;
    for (const Field& field : findClass(className)->fields)
        names.push_back(field.name);
    return names;
}

unsigned Jni::count(const std::string& call) const {
    return static_cast<unsigned>(std::count(calls.begin(), calls.end(), call));
}

void Jni::enter(const std::string& call, bool allowedWhilePending) {
    calls.push_back(call);
    if (!pending.empty() && !allowedWhilePending)
        complaints.push_back(call + " while " + pending + " is pending");
}

bool Jni::refuse(const char* function) {
    const auto failure = failures.find(function);
    if (failure == failures.end() || failure->second == 0 || --failure->second > 0)
        return false;
    pending = "OutOfMemoryError";
    return true;
}

// The functions of the environment's table.
struct Functions {
    static Object* checked(jobject reference, const char* what, const char* className = nullptr) {
        Object* object = jni().object(reference);
        if (!object || (className && object->cls->name != className)) {
            jni().complaints.push_back(std::string(what) + " of a wrong object");
            return nullptr;
        }
        return object;
    }

    static jclass JNICALL FindClass(JNIEnv*, const char* name) {
        jni().enter(std::string("FindClass ") + name);
        const std::string full = name;
        Class* cls = full.starts_with(PACKAGE) ? findClass(full.substr(std::strlen(PACKAGE))) : nullptr;
        if (!cls || cls->name == jni().missingClass) {
            jni().pending = "NoClassDefFoundError";
            return nullptr;
        }
        return static_cast<jclass>(jni().reference(classObject(cls), LOCAL));
    }

    static jclass JNICALL GetObjectClass(JNIEnv*, jobject object) {
        jni().enter("GetObjectClass");
        Object* found = checked(object, "GetObjectClass");
        return found ? static_cast<jclass>(jni().reference(classObject(found->cls), LOCAL)) : nullptr;
    }

    static jfieldID JNICALL GetFieldID(JNIEnv*, jclass cls, const char* name, const char* signature) {
        jni().enter(std::string("GetFieldID ") + name);
        if (Object* object = checked(cls, "GetFieldID", "Class")) {
            for (Field& field : findClass({object->text.begin(), object->text.end()})->fields) {
                if (field.name == name && field.signature == signature && field.name != jni().missingField)
                    return reinterpret_cast<jfieldID>(&field);
            }
        }
        jni().pending = "NoSuchFieldError";
        return nullptr;
    }

    static Object::Value* field(jobject object, jfieldID id, const char* access, bool isObject, char kind) {
        auto* found = reinterpret_cast<Field*>(id);
        const std::string what = std::string(access) + " " + (found ? found->name : "NULL");
        jni().enter(what);
        Object* holder = checked(object, what.c_str());
        if (!holder || !found || holder->cls != found->owner ||
            (isObject ? found->signature.size() == 1 : found->signature[0] != kind)) {
            jni().complaints.push_back(what + ": wrong object or field");
            return nullptr;
        }
        static Object::Value unset;
        const bool reads = std::strcmp(access, "Get") == 0;
        return reads && !holder->wrote(found->name) ? &(unset = {}) : &holder->fields[found->name];
    }

    template <typename Number, char Kind>
    static Number JNICALL GetNumber(JNIEnv*, jobject object, jfieldID id) {
        const auto* value = field(object, id, "Get", false, Kind);
        return value ? static_cast<Number>(value->number) : Number();
    }
    template <typename Number, char Kind>
    static void JNICALL SetNumber(JNIEnv*, jobject object, jfieldID id, Number given) {
        if (auto* value = field(object, id, "Set", false, Kind))
            value->number = given;
    }
    static jdouble JNICALL GetDoubleField(JNIEnv*, jobject object, jfieldID id) {
        const auto* value = field(object, id, "Get", false, 'D');
        return value ? value->real : 0;
    }
    static void JNICALL SetDoubleField(JNIEnv*, jobject object, jfieldID id, jdouble given) {
        if (auto* value = field(object, id, "Set", false, 'D'))
            value->real = given;
    }
    static jobject JNICALL GetObjectField(JNIEnv*, jobject object, jfieldID id) {
        const auto* value = field(object, id, "Get", true, 'L');
        return value ? jni().reference(value->object, LOCAL) : nullptr;
    }
    static void JNICALL SetObjectField(JNIEnv*, jobject object, jfieldID id, jobject given) {
        if (auto* value = field(object, id, "Set", true, 'L'))
            value->object = jni().object(given);
    }

    static jstring JNICALL NewStringUTF(JNIEnv*, const char* text) {
        jni().enter("NewStringUTF");
        bool valid = true;
        if (jni().refuse("NewStringUTF"))
            return nullptr;
        Object* made = jni().string(fromModifiedUtf8(text, &valid));
        if (!valid)
            jni().complaints.push_back("NewStringUTF of text that is not modified UTF-8");
        return static_cast<jstring>(jni().reference(made, LOCAL));
    }
    static jsize JNICALL GetStringLength(JNIEnv*, jstring text) {
        jni().enter("GetStringLength");
        Object* object = checked(text, "GetStringLength", "String");
        return object ? jsize(object->text.size()) : 0;
    }
    static jsize JNICALL GetStringUTFLength(JNIEnv*, jstring text) {
        jni().enter("GetStringUTFLength");
        Object* object = checked(text, "GetStringUTFLength", "String");
        return object ? jsize(toModifiedUtf8(object->text).size()) : 0;
    }

    // A loan is a copy, as most virtual machines make it, so that a missing copy back is seen.
    static void* lend(Object* object, Jni::Loan::Kind kind, const void* data, std::size_t size, jboolean* isCopy) {
        if (isCopy)
            *isCopy = JNI_TRUE;
        const auto* first = static_cast<const char*>(data);
        Jni::Loan& loan = jni().loans.emplace_back(Jni::Loan{object, kind, {}});
        loan.data.reserve(size + 1); // an empty loan has an address, too
        loan.data.assign(first, first + size);
        return loan.data.data();
    }
    static Jni::Loan takeBack(const char* function, jobject owner, const void* data) {
        auto& loans = jni().loans;
        Object* object = checked(owner, function);
        const auto found = std::find_if(loans.begin(), loans.end(), [&](const Jni::Loan& loan) {
            return loan.data.data() == data && loan.owner == object;
        });
        if (found == loans.end()) {
            jni().complaints.push_back(std::string(function) + " of what is not lent");
            return {};
        }
        Jni::Loan loan = std::move(*found);
        loans.erase(found);
        return loan;
    }

    static const char* JNICALL GetStringUTFChars(JNIEnv*, jstring text, jboolean* isCopy) {
        jni().enter("GetStringUTFChars");
        Object* object = checked(text, "GetStringUTFChars", "String");
        if (!object || jni().refuse("GetStringUTFChars"))
            return nullptr;
        const std::string utf8 = toModifiedUtf8(object->text);
        return static_cast<char*>(lend(object, Jni::Loan::UTF, utf8.c_str(), utf8.size() + 1, isCopy));
    }
    static const jchar* JNICALL GetStringChars(JNIEnv*, jstring text, jboolean* isCopy) {
        jni().enter("GetStringChars");
        Object* object = checked(text, "GetStringChars", "String");
        if (!object || jni().refuse("GetStringChars"))
            return nullptr;
        return static_cast<jchar*>(
            lend(object, Jni::Loan::UNITS, object->text.c_str(), object->text.size() * 2, isCopy));
    }
    static void JNICALL ReleaseStringUTFChars(JNIEnv*, jstring text, const char* data) {
        jni().enter("ReleaseStringUTFChars", true);
        jni().mixedReleases += takeBack("ReleaseStringUTFChars", text, data).kind == Jni::Loan::UNITS;
    }
    static void JNICALL ReleaseStringChars(JNIEnv*, jstring text, const jchar* data) {
        jni().enter("ReleaseStringChars", true);
        takeBack("ReleaseStringChars", text, data);
    }
    static jbyte* JNICALL GetByteArrayElements(JNIEnv*, jbyteArray array, jboolean* isCopy) {
        jni().enter("GetByteArrayElements");
        Object* object = checked(array, "GetByteArrayElements", "[B");
        if (!object || jni().refuse("GetByteArrayElements"))
            return nullptr;
        return static_cast<jbyte*>(lend(object, Jni::Loan::BYTES, object->bytes.data(), object->bytes.size(), isCopy));
    }
    static void JNICALL ReleaseByteArrayElements(JNIEnv*, jbyteArray array, jbyte* data, jint mode) {
        jni().enter("ReleaseByteArrayElements " + std::to_string(mode), true);
        const Jni::Loan loan = takeBack("ReleaseByteArrayElements", array, data);
        if (mode != JNI_ABORT && loan.owner)
            loan.owner->bytes.assign(loan.data.begin(), loan.data.end());
    }

    static jsize JNICALL GetArrayLength(JNIEnv*, jarray array) {
        jni().enter("GetArrayLength");
        Object* object = checked(array, "GetArrayLength");
        return object ? jsize(std::max({object->bytes.size(), object->longs.size(), object->elements.size()})) : 0;
    }
    static jobject JNICALL GetObjectArrayElement(JNIEnv*, jobjectArray array, jsize index) {
        jni().enter("GetObjectArrayElement " + std::to_string(index));
        Object* object = checked(array, "GetObjectArrayElement", "[Object");
        if (!object || !inside(index, 1, object->elements.size()))
            return nullptr;
        return jni().elementReferences.emplace_back(jni().reference(object->elements[size_t(index)], LOCAL));
    }
    static void JNICALL SetObjectArrayElement(JNIEnv*, jobjectArray array, jsize index, jobject value) {
        jni().enter("SetObjectArrayElement " + std::to_string(index));
        Object* object = checked(array, "SetObjectArrayElement", "[Object");
        if (object && inside(index, 1, object->elements.size()))
            object->elements[size_t(index)] = jni().object(value);
    }
    static bool inside(jsize start, jsize count, std::size_t size) {
        if (start >= 0 && count >= 0 && size_t(start) + size_t(count) <= size)
            return true;
        jni().pending = "ArrayIndexOutOfBoundsException";
        return false;
    }

    static jobject make(const char* function, jsize size, Object* (*create)(jsize)) {
        jni().enter(function);
        if (size < 0)
            jni().pending = "NegativeArraySizeException";
        return size < 0 || jni().refuse(function) ? nullptr : jni().reference(create(size), LOCAL);
    }
    static jbyteArray JNICALL NewByteArray(JNIEnv*, jsize size) {
        const auto create = [](jsize count) { return jni().byteArray(std::vector<jbyte>(size_t(count))); };
        return static_cast<jbyteArray>(make("NewByteArray", size, create));
    }
    static jlongArray JNICALL NewLongArray(JNIEnv*, jsize size) {
        const auto create = [](jsize count) { return jni().longArray(std::vector<jlong>(size_t(count))); };
        return static_cast<jlongArray>(make("NewLongArray", size, create));
    }
    static void JNICALL SetByteArrayRegion(JNIEnv*, jbyteArray array, jsize start, jsize count, const jbyte* from) {
        jni().enter("SetByteArrayRegion");
        Object* object = checked(array, "SetByteArrayRegion", "[B");
        if (object && inside(start, count, object->bytes.size()))
            std::copy_n(from, count, object->bytes.begin() + start);
    }
    static void JNICALL GetByteArrayRegion(JNIEnv*, jbyteArray array, jsize start, jsize count, jbyte* to) {
        jni().enter("GetByteArrayRegion");
        Object* object = checked(array, "GetByteArrayRegion", "[B");
        if (object && inside(start, count, object->bytes.size()))
            std::copy_n(object->bytes.begin() + start, count, to);
    }
    static void JNICALL SetLongArrayRegion(JNIEnv*, jlongArray array, jsize start, jsize count, const jlong* from) {
        jni().enter("SetLongArrayRegion");
        Object* object = checked(array, "SetLongArrayRegion", "[J");
        if (object && inside(start, count, object->longs.size()))
            std::copy_n(from, count, object->longs.begin() + start);
    }
    static void JNICALL GetLongArrayRegion(JNIEnv*, jlongArray array, jsize start, jsize count, jlong* to) {
        jni().enter("GetLongArrayRegion");
        Object* object = checked(array, "GetLongArrayRegion", "[J");
        if (object && inside(start, count, object->longs.size()))
            std::copy_n(object->longs.begin() + start, count, to);
    }

    static jobject JNICALL NewGlobalRef(JNIEnv*, jobject object) {
        jni().enter("NewGlobalRef");
        return jni().reference(jni().object(object), GLOBAL);
    }
    static void drop(jobject object, int kind, const char* function) {
        jni().enter(function, true);
        if (!object)
            return;
        auto* reference = reinterpret_cast<Reference*>(object);
        if (!jni().object(object) || reference->kind != kind) {
            jni().complaints.push_back(std::string(function) + " of another kind of reference");
            return;
        }
        jni().localReferences -= kind == LOCAL;
        reference->kind = FREE;
    }
    static void JNICALL DeleteGlobalRef(JNIEnv*, jobject object) { drop(object, GLOBAL, "DeleteGlobalRef"); }
    static void JNICALL DeleteLocalRef(JNIEnv*, jobject object) { drop(object, LOCAL, "DeleteLocalRef"); }

    static jboolean JNICALL ExceptionCheck(JNIEnv*) {
        jni().enter("ExceptionCheck", true);
        return !jni().pending.empty();
    }
    static jthrowable JNICALL ExceptionOccurred(JNIEnv*) {
        jni().enter("ExceptionOccurred", true);
        Object* thrown = jni().pending.empty() ? nullptr : jni().create("TmqKciException");
        return static_cast<jthrowable>(jni().reference(thrown, LOCAL));
    }
    static void JNICALL ExceptionClear(JNIEnv*) {
        jni().enter("ExceptionClear", true);
        jni().pending.clear();
    }

    static constexpr const char* name = "Java environment";

    static JNINativeInterface_ table() {
        JNINativeInterface_ functions;
        const auto unexpected =
            unexpectedCalls<Functions>(std::make_index_sequence<sizeof functions / sizeof(void*)>());
        static_assert(sizeof unexpected == sizeof functions);
        std::memcpy(static_cast<void*>(&functions), unexpected.data(), sizeof functions);
#define SCRIPTED(function) functions.function = function
        SCRIPTED(FindClass), SCRIPTED(GetObjectClass), SCRIPTED(GetFieldID);
        SCRIPTED(GetDoubleField), SCRIPTED(SetDoubleField), SCRIPTED(GetObjectField), SCRIPTED(SetObjectField);
        SCRIPTED(NewStringUTF), SCRIPTED(GetStringLength), SCRIPTED(GetStringUTFLength);
        SCRIPTED(GetStringUTFChars), SCRIPTED(ReleaseStringUTFChars);
        SCRIPTED(GetStringChars), SCRIPTED(ReleaseStringChars);
        SCRIPTED(GetByteArrayElements), SCRIPTED(ReleaseByteArrayElements);
        SCRIPTED(GetArrayLength), SCRIPTED(GetObjectArrayElement), SCRIPTED(SetObjectArrayElement);
        SCRIPTED(NewByteArray), SCRIPTED(SetByteArrayRegion), SCRIPTED(GetByteArrayRegion);
        SCRIPTED(NewLongArray), SCRIPTED(SetLongArrayRegion), SCRIPTED(GetLongArrayRegion);
        SCRIPTED(NewGlobalRef), SCRIPTED(DeleteGlobalRef), SCRIPTED(DeleteLocalRef);
        SCRIPTED(ExceptionCheck), SCRIPTED(ExceptionOccurred), SCRIPTED(ExceptionClear);
#undef SCRIPTED
        functions.GetLongField = GetNumber<jlong, 'J'>, functions.SetLongField = SetNumber<jlong, 'J'>;
        functions.GetIntField = GetNumber<jint, 'I'>, functions.SetIntField = SetNumber<jint, 'I'>;
        functions.GetByteField = GetNumber<jbyte, 'B'>, functions.SetByteField = SetNumber<jbyte, 'B'>;
        functions.GetBooleanField = GetNumber<jboolean, 'Z'>, functions.SetBooleanField = SetNumber<jboolean, 'Z'>;
        return functions;
    }
};

JNIEnv* Jni::env() {
    static const JNINativeInterface_ functions = Functions::table();
    static JNIEnv environment{&functions};
    return &environment;
}

} // namespace scripted
