#include "bridge/strings.h"

#include "bridge/state.h"

jint AllocatedStringIndex = 0;

namespace {

constexpr jint highestStringIndex = 100;
constexpr int stringTableSize = highestStringIndex + 1;
constexpr int utfString = 1;

jstring AllocatedJniString[stringTableSize];
const ByteType* AllocatedString[stringTableSize];
int AllocatedStringType[stringTableSize];

[[nodiscard]] bool canBorrow(jstring jstr) {
    return jstr != nullptr && AllocatedStringIndex <= highestStringIndex;
}

void record(jstring jstr, const ByteType* str) {
    AllocatedJniString[AllocatedStringIndex] = jstr;
    AllocatedString[AllocatedStringIndex] = str;
    AllocatedStringType[AllocatedStringIndex] = utfString;
    ++AllocatedStringIndex;
}

} // namespace

const char* GetString(jstring jstr) {
    if (!canBorrow(jstr)) {
        return nullptr;
    }
    const char* str = ENV->GetStringUTFChars(jstr, nullptr);
    if (str != nullptr) {
        record(jstr, reinterpret_cast<const ByteType*>(str));
    }
    return str;
}

const ByteType* GetDbString(jstring jstr) {
    if (!canBorrow(jstr)) {
        return nullptr;
    }
    const auto* str = reinterpret_cast<const ByteType*>(ENV->GetStringChars(jstr, nullptr));
    if (str != nullptr) {
        // kept: callers get it released as the other strings, as if it were UTF; virtual machines take it, unless they
        // check.
        record(jstr, str);
    }
    return str;
}

void releaseHeldStrings() {
    for (jint i = 0; i < AllocatedStringIndex; ++i) {
        if (AllocatedStringType[i] == utfString) {
            ENV->ReleaseStringUTFChars(AllocatedJniString[i], reinterpret_cast<const char*>(AllocatedString[i]));
        } else {
            ENV->ReleaseStringChars(AllocatedJniString[i], reinterpret_cast<const jchar*>(AllocatedString[i]));
        }
    }
    AllocatedStringIndex = 0;
}
