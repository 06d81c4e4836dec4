#include "support/scripted_jni.h"

#include "support/unexpected_calls.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <sstream>

namespace scripted {

namespace {

enum ReferenceKind { FREE, ARGUMENT, LOCAL };

struct Reference {
    Object* object;
    int kind;
};

// Static, so that a reference printed as a number is small and positive.
Reference references[20000];
unsigned referencesUsed = 0;
std::deque<Object> objects;

const std::string PACKAGE = "com/kestrune/tmqkci/";

struct Field {
    std::string cls, name, signature;
};

std::deque<Field>& fields() {
    static std::deque<Field> all;
    const char* const classes[] = {
        "TmqKciReport oop J classOop J classHistoryOop J objType B namedSize I indexedSize J isCollection Z isString Z "
        "isDBString Z valueType B valueInt1 I valueInt2 I valueLong J valueDouble D valueBytes [B valueLongs [J "
        "valueString Ljava/lang/String;",
        "TmqKciException number I message Ljava/lang/String; category J context J fatal Z argCount I args [J",
        "TmqKciCacheStats type I name Ljava/lang/String; pid J sid J stats32 [I stats64 [J",
    };
    for (const char* const text : all.empty() ? std::span(classes) : std::span<const char* const>()) {
        std::istringstream in(text);
        Field field;
        for (in >> field.cls; in >> field.name >> field.signature;)
            all.push_back(field);
    }
    return all;
}

// The object that stands for a class: its text is the class's name.
Object* classObject(const std::string& name) {
    return jni().create("Class", {.text = {name.begin(), name.end()}});
}

jobject reference(Object* object, ReferenceKind kind) {
    if (!object)
        return nullptr;
    if (referencesUsed == std::size(references)) {
        std::fprintf(stderr, "too many references\n");
        std::abort();
    }
    jni().localReferences += kind == LOCAL;
    references[referencesUsed] = {object, kind};
    return reinterpret_cast<jobject>(&references[referencesUsed++]);
}

} // namespace

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

std::u16string fromModifiedUtf8(const std::string& text) {
    std::u16string out;
    for (size_t at = 0; at < text.size();) {
        const auto first = static_cast<unsigned char>(text[at++]);
        const int more = first < 0xC0 ? 0 : first < 0xE0 ? 1 : 2;
        char16_t unit = more == 0 ? first : first & (0x3F >> more);
        for (const size_t end = at + more; at < std::min(end, text.size()); at++)
            unit = char16_t(unit << 6 | (text[at] & 0x3F));
        out += unit;
    }
    return out;
}

Jni& jni() {
    static Jni theJni;
    return theJni;
}

Object* Jni::create(const std::string& className, const Object& content) {
    objects.push_back(content);
    objects.back().cls = className;
    return &objects.back();
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

std::pair<unsigned, size_t> Jni::made() const {
    return {referencesUsed, objects.size()};
}

void Jni::forgetAfter(std::pair<unsigned, size_t> made) {
    referencesUsed = made.first;
    objects.resize(made.second);
}

void Jni::beginCall() {
    for (unsigned i = 0; i < referencesUsed; i++)
        references[i].kind = FREE;
    static_cast<NativeCallLog&>(*this) = {};
}

void Jni::endCall() {
    if (loans.size() != loansExpected)
        complaints.push_back(std::to_string(loans.size()) + " loans are not returned");
}

std::vector<std::string> Jni::fieldNames(const std::string& className) const {
    std::vector<std::string> names;
    for (const Field& field : fields()) {
        if (field.cls == className)
            names.push_back(field.name);
    }
    return names;
}

unsigned Jni::count(const std::string& call) const {
    return static_cast<unsigned>(std::count(calls.begin(), calls.end(), call));
}

// The functions of the environment's table.
struct Functions {
    static Object* complain(const std::string& complaint) {
        jni().complaints.push_back(complaint);
        return nullptr;
    }
    static void enter(const std::string& call, bool allowedWhilePending = false) {
        jni().calls.push_back(call);
        if (!jni().pending.empty() && !allowedWhilePending)
            complain(call + " while " + jni().pending + " is pending");
    }
    // The object that a function is called with; NULL, with a complaint, for one of another class.
    static Object* enter(const std::string& call, jobject reference, const char* className = nullptr) {
        enter(call, call.starts_with("Release"));
        Object* object = jni().object(reference);
        return object && (!className || object->cls == className) ? object : complain(call + " of a wrong object");
    }
    static bool refuse(const char* function) {
        const auto failure = jni().failures.find(function);
        if (failure == jni().failures.end() || failure->second == 0 || --failure->second > 0)
            return false;
        jni().pending = "OutOfMemoryError";
        return true;
    }
    template <typename Reference = jobject>
    static Reference local(Object* object) {
        return static_cast<Reference>(reference(object, LOCAL));
    }

    static jclass JNICALL FindClass(JNIEnv*, const char* full) {
        enter(std::string("FindClass ") + full);
        for (const Field& field : fields()) {
            if (PACKAGE + field.cls == full && field.cls != jni().missingClass)
                return local<jclass>(classObject(field.cls));
        }
        jni().pending = "NoClassDefFoundError";
        return nullptr;
    }
    static jclass JNICALL GetObjectClass(JNIEnv*, jobject reference) {
        Object* object = enter("GetObjectClass", reference);
        return object ? local<jclass>(classObject(object->cls)) : nullptr;
    }
    static jfieldID JNICALL GetFieldID(JNIEnv*, jclass cls, const char* name, const char* signature) {
        if (Object* object = enter(std::string("GetFieldID ") + name, cls, "Class")) {
            for (Field& field : fields()) {
                if (field.cls == std::string(object->text.begin(), object->text.end()) && field.name == name &&
                    field.signature == signature && field.name != jni().missingField)
                    return reinterpret_cast<jfieldID>(&field);
            }
        }
        jni().pending = "NoSuchFieldError";
        return nullptr;
    }

    // Kind is a field's signature, L for every object and array.
    template <char Kind>
    static Object::Value& field(const char* access, jobject object, jfieldID id) {
        static Object::Value none;
        const auto* found = reinterpret_cast<Field*>(id);
        const std::string call = std::string(access) + (found ? found->name : "NULL");
        Object* holder = enter(call, object);
        none = {};
        if (!holder || !found || holder->cls != found->cls ||
            (Kind == 'L' ? found->signature.size() == 1 : found->signature[0] != Kind)) {
            complain(call + ": wrong object or field");
            return none;
        }
        return access[0] == 'G' && !holder->wrote(found->name) ? none : holder->fields[found->name];
    }
    template <typename Number, char Kind, auto Member = &Object::Value::number>
    static Number JNICALL GetNumber(JNIEnv*, jobject object, jfieldID id) {
        return static_cast<Number>(field<Kind>("Get ", object, id).*Member);
    }
    template <typename Number, char Kind, auto Member = &Object::Value::number>
    static void JNICALL SetNumber(JNIEnv*, jobject object, jfieldID id, Number given) {
        field<Kind>("Set ", object, id).*Member = given;
    }
    static jobject JNICALL GetObjectField(JNIEnv*, jobject object, jfieldID id) {
        return local(field<'L'>("Get ", object, id).object);
    }
    static void JNICALL SetObjectField(JNIEnv*, jobject object, jfieldID id, jobject given) {
        field<'L'>("Set ", object, id).object = jni().object(given);
    }

    static jstring JNICALL NewStringUTF(JNIEnv*, const char* text) {
        enter("NewStringUTF");
        if (refuse("NewStringUTF"))
            return nullptr;
        Object* made = jni().string(fromModifiedUtf8(text));
        if (toModifiedUtf8(made->text) != text)
            complain("NewStringUTF of text that is not modified UTF-8");
        return local<jstring>(made);
    }
    static jsize JNICALL GetStringLength(JNIEnv*, jstring text) {
        Object* object = enter("GetStringLength", text, "String");
        return object ? jsize(object->text.size()) : 0;
    }
    static jsize JNICALL GetStringUTFLength(JNIEnv*, jstring text) {
        Object* object = enter("GetStringUTFLength", text, "String");
        return object ? jsize(toModifiedUtf8(object->text).size()) : 0;
    }

    // A loan is a copy, as most virtual machines make it, so that a missing copy back is seen.
    template <typename Data>
    static Data lend(const char* function, jobject owner, const char* className, jboolean* isCopy,
                     std::string (*content)(const Object&)) {
        Object* object = enter(function, owner, className);
        if (!object || refuse(function))
            return nullptr;
        if (isCopy)
            *isCopy = JNI_TRUE;
        const std::string copy = content(*object);
        Jni::Loan& loan = jni().loans.emplace_back(Jni::Loan{object, {}});
        loan.data.reserve(copy.size() + 1); // an empty loan has an address, too
        loan.data.assign(copy.begin(), copy.end());
        return reinterpret_cast<Data>(loan.data.data());
    }
    static Jni::Loan takeBack(const std::string& function, jobject owner, const void* data) {
        auto& loans = jni().loans;
        Object* object = enter(function, owner);
        const auto found = std::find_if(loans.begin(), loans.end(), [&](const Jni::Loan& loan) {
            return loan.data.data() == data && loan.owner == object;
        });
        if (found == loans.end()) {
            complain(function + " of what is not lent");
            return {};
        }
        Jni::Loan loan = std::move(*found);
        loans.erase(found);
        return loan;
    }
    static const char* JNICALL GetStringUTFChars(JNIEnv*, jstring text, jboolean* isCopy) {
        return lend<const char*>("GetStringUTFChars", text, "String", isCopy,
                                 [](const Object& object) { return toModifiedUtf8(object.text) + '\0'; });
    }
    static const jchar* JNICALL GetStringChars(JNIEnv*, jstring text, jboolean* isCopy) {
        return lend<const jchar*>("GetStringChars", text, "String", isCopy, [](const Object& object) {
            const auto* first = reinterpret_cast<const char*>(object.text.data());
            return std::string(first, first + object.text.size() * 2);
        });
    }
    // Takes back 16-bit units, too: the bridge releases all its strings so.
    static void JNICALL ReleaseStringUTFChars(JNIEnv*, jstring text, const char* data) {
        takeBack("ReleaseStringUTFChars", text, data);
    }
    static jbyte* JNICALL GetByteArrayElements(JNIEnv*, jbyteArray array, jboolean* isCopy) {
        return lend<jbyte*>("GetByteArrayElements", array, "[B", isCopy,
                            [](const Object& object) { return std::string(object.bytes.begin(), object.bytes.end()); });
    }
    static void JNICALL ReleaseByteArrayElements(JNIEnv*, jbyteArray array, jbyte* data, jint mode) {
        const Jni::Loan loan = takeBack("ReleaseByteArrayElements " + std::to_string(mode), array, data);
        if (mode != JNI_ABORT && loan.owner)
            loan.owner->bytes.assign(loan.data.begin(), loan.data.end());
    }

    static bool inside(jsize start, jsize count, std::size_t size) {
        if (start >= 0 && count >= 0 && size_t(start) + size_t(count) <= size)
            return true;
        jni().pending = "ArrayIndexOutOfBoundsException";
        return false;
    }
    static jsize JNICALL GetArrayLength(JNIEnv*, jarray array) {
        Object* object = enter("GetArrayLength", array);
        return object ? jsize(std::max({object->bytes.size(), object->longs.size(), object->elements.size()})) : 0;
    }
    static jobject JNICALL GetObjectArrayElement(JNIEnv*, jobjectArray array, jsize index) {
        Object* object = enter("GetObjectArrayElement " + std::to_string(index), array, "[Object");
        if (!object || !inside(index, 1, object->elements.size()))
            return nullptr;
        return jni().elementReferences.emplace_back(local(object->elements[size_t(index)]));
    }
    static void JNICALL SetObjectArrayElement(JNIEnv*, jobjectArray array, jsize index, jobject value) {
        Object* object = enter("SetObjectArrayElement " + std::to_string(index), array, "[Object");
        if (object && inside(index, 1, object->elements.size()))
            object->elements[size_t(index)] = jni().object(value);
    }

    // The primitive arrays that the bridge uses.
    template <auto Elements>
    static constexpr const char* either(const char* ofBytes, const char* ofLongs) {
        return std::is_same_v<decltype(Elements), decltype(&Object::bytes)> ? ofBytes : ofLongs;
    }
    template <typename Array, auto Elements>
    static Array JNICALL NewArray(JNIEnv*, jsize size) {
        const char* function = either<Elements>("NewByteArray", "NewLongArray");
        enter(function);
        if (size < 0)
            jni().pending = "NegativeArraySizeException";
        if (size < 0 || refuse(function))
            return nullptr;
        Object* made = jni().create(either<Elements>("[B", "[J"));
        (made->*Elements).resize(size_t(size));
        return local<Array>(made);
    }
    template <typename Array, auto Elements, typename Element>
    static void JNICALL SetRegion(JNIEnv*, Array array, jsize start, jsize count, const Element* from) {
        Object* object = enter("Set region", array, either<Elements>("[B", "[J"));
        if (object && inside(start, count, (object->*Elements).size()))
            std::copy_n(from, count, (object->*Elements).begin() + start);
    }
    static void JNICALL GetLongArrayRegion(JNIEnv*, jlongArray array, jsize start, jsize count, jlong* to) {
        Object* object = enter("GetLongArrayRegion", array, "[J");
        if (object && inside(start, count, object->longs.size()))
            std::copy_n(object->longs.begin() + start, count, to);
    }

    static void JNICALL DeleteLocalRef(JNIEnv*, jobject object) {
        enter("DeleteLocalRef", true);
        if (!object)
            return;
        auto* reference = reinterpret_cast<Reference*>(object);
        if (!jni().object(object) || reference->kind != LOCAL) {
            complain("DeleteLocalRef of another kind of reference");
            return;
        }
        jni().localReferences--;
        reference->kind = FREE;
    }
    static jboolean JNICALL ExceptionCheck(JNIEnv*) {
        enter("ExceptionCheck", true);
        return !jni().pending.empty();
    }
    static void JNICALL ExceptionClear(JNIEnv*) {
        enter("ExceptionClear", true);
        jni().pending.clear();
    }

    static JNINativeInterface_ table() {
        JNINativeInterface_ functions;
        std::fill_n(reinterpret_cast<AnyFunction*>(&functions), sizeof functions / sizeof(void*), unexpectedCall);
#define SCRIPTED(function) functions.function = function
        SCRIPTED(FindClass), SCRIPTED(GetObjectClass), SCRIPTED(GetFieldID);
        SCRIPTED(GetObjectField), SCRIPTED(SetObjectField);
        SCRIPTED(NewStringUTF), SCRIPTED(GetStringLength), SCRIPTED(GetStringUTFLength);
        SCRIPTED(GetStringUTFChars), SCRIPTED(ReleaseStringUTFChars), SCRIPTED(GetStringChars);
        SCRIPTED(GetByteArrayElements), SCRIPTED(ReleaseByteArrayElements);
        SCRIPTED(GetArrayLength), SCRIPTED(GetObjectArrayElement), SCRIPTED(SetObjectArrayElement);
        SCRIPTED(GetLongArrayRegion), SCRIPTED(DeleteLocalRef), SCRIPTED(ExceptionCheck), SCRIPTED(ExceptionClear);
#undef SCRIPTED
        functions.GetLongField = GetNumber<jlong, 'J'>, functions.SetLongField = SetNumber<jlong, 'J'>;
        functions.GetIntField = GetNumber<jint, 'I'>, functions.SetIntField = SetNumber<jint, 'I'>;
        functions.GetByteField = GetNumber<jbyte, 'B'>, functions.SetByteField = SetNumber<jbyte, 'B'>;
        functions.GetBooleanField = GetNumber<jboolean, 'Z'>, functions.SetBooleanField = SetNumber<jboolean, 'Z'>;
        functions.GetDoubleField = GetNumber<jdouble, 'D', &Object::Value::real>;
        functions.SetDoubleField = SetNumber<jdouble, 'D', &Object::Value::real>;
        functions.NewByteArray = NewArray<jbyteArray, &Object::bytes>;
        functions.NewLongArray = NewArray<jlongArray, &Object::longs>;
        functions.SetByteArrayRegion = SetRegion<jbyteArray, &Object::bytes>;
        functions.SetLongArrayRegion = SetRegion<jlongArray, &Object::longs>;
        return functions;
    }
};

JNIEnv* Jni::env() {
    static const JNINativeInterface_ functions = Functions::table();
    static JNIEnv environment{&functions};
    return &environment;
}

} // namespace scripted
