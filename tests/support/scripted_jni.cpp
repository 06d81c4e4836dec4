#include "support/scripted_jni.h"

#include "support/unexpected_calls.h"

#include <algorithm>
#include <cstring>
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
    Object& object = objects.emplace_back();
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
    for (unsigned i = 0; i < referencesUsed; i++)
        references[i].kind = FREE;
    calls.clear();
    complaints.clear();
    elementReferences.clear();
    localReferences = loansExpected = 0;
    pending.clear();
    failures.clear();
    missingClass.clear();
    missingField.clear();
    loans.clear();
}

std::pair<unsigned, size_t> Jni::made() const {
    return {referencesUsed, objects.size()};
}

void Jni::forgetAfter(std::pair<unsigned, size_t> made) {
    referencesUsed = made.first;
    objects.resize(made.second);
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
    static Object* complain(const std::string& complaint) {
        jni().complaints.push_back(complaint);
        return nullptr;
    }
    // The object that a function is called with; NULL, with a complaint, for one of another class.
    static Object* enter(const std::string& call, jobject reference, const char* className = nullptr) {
        jni().enter(call, call.starts_with("Release"));
        Object* object = jni().object(reference);
        return object && (!className || object->cls->name == className) ? object
                                                                        : complain(call + " of a wrong object");
    }
    template <typename Reference = jobject>
    static Reference local(Object* object) {
        return static_cast<Reference>(jni().reference(object, LOCAL));
    }

    static jclass JNICALL FindClass(JNIEnv*, const char* name) {
        jni().enter(std::string("FindClass ") + name);
        const std::string full = name;
        Class* cls = full.starts_with(PACKAGE) ? findClass(full.substr(std::strlen(PACKAGE))) : nullptr;
        if (cls && cls->name != jni().missingClass)
            return local<jclass>(classObject(cls));
        jni().pending = "NoClassDefFoundError";
        return nullptr;
    }
    static jclass JNICALL GetObjectClass(JNIEnv*, jobject reference) {
        Object* object = enter("GetObjectClass", reference);
        return object ? local<jclass>(classObject(object->cls)) : nullptr;
    }
    static jfieldID JNICALL GetFieldID(JNIEnv*, jclass cls, const char* name, const char* signature) {
        if (Object* object = enter(std::string("GetFieldID ") + name, cls, "Class")) {
            for (Field& field : findClass({object->text.begin(), object->text.end()})->fields) {
                if (field.name == name && field.signature == signature && field.name != jni().missingField)
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
        if (!holder || !found || holder->cls != found->owner ||
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
        jni().enter("NewStringUTF");
        bool valid = true;
        if (jni().refuse("NewStringUTF"))
            return nullptr;
        Object* made = jni().string(fromModifiedUtf8(text, &valid));
        if (!valid)
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
        if (!object || jni().refuse(function))
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
        jni().enter(function);
        if (size < 0)
            jni().pending = "NegativeArraySizeException";
        if (size < 0 || jni().refuse(function))
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
        jni().enter("DeleteLocalRef", true);
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
        jni().enter("ExceptionCheck", true);
        return !jni().pending.empty();
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
