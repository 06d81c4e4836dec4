// The natives of TmqKciBulk: many objects in one call.

#include "bridge/TmqKciInterface.h"

#include <algorithm>

#define TMQKCI_BULK(name) extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_TmqKciBulk__1##name

namespace {

// What of an object's body is fetched with it. The rest of a larger one is left to the caller.
constexpr jint mostOops = 256;
constexpr jint tooLarge = -1;

// Makes `count` objects, which replace their variables in jlongBuf, and counts them. FALSE after an error.
bool makeObjects(const NativeCall& call, OopType cls, jint named, jint count, jint& made) {
    for (made = 0; made < count;) {
        const jlong* const values = jlongBuf + static_cast<ptrdiff_t>(made) * named;
        std::transform(values, values + named, oopBuf, [](jlong value) { return static_cast<OopType>(value); });
        const OopType object = rtlPrivKciRtlFuncs->KciNewOop(cls);
        if (call.clientError()) [[unlikely]] {
            return false;
        }
        jlongBuf[made++] = object;
        if (named > 0) {
            rtlPrivKciRtlFuncs->KciStoreNamedOops(object, 1, oopBuf, static_cast<ArraySizeType>(named));
            if (call.clientError()) [[unlikely]] {
                return false;
            }
        }
    }
    return true;
}

// Puts the object's references behind those of `used` before it. Answers how many; tooLarge when it has more than are
// fetched; -2 when there is no room left, or an error.
jint fetchOops(OopType object, jint used) {
    if (isSpecial(object)) {
        return 0;
    }
    const jint room = std::min(mostOops, BufSizeOops - used);
    KciObjInfoSType info = {};
    ArraySizeType fetched = 0;
    if (!rtlPrivKciRtlFuncs->KciFetchObjInfo(object, 1, static_cast<ArraySizeType>(room) * 4, &info,
                                             reinterpret_cast<ByteType*>(oopBuf + used), &fetched)) {
        return -2;
    }
    if (info.objImpl != KCI_IMPL_POINTER && info.objImpl != KCI_IMPL_NSC) {
        return 0;
    }
    // A client that claims more than it was asked for is not believed.
    const jint got = static_cast<jint>(std::min<ArraySizeType>(fetched, static_cast<ArraySizeType>(room)));
    if (got >= info.objSize) {
        return info.objSize < 0 ? tooLarge : info.objSize;
    }
    return room < mostOops ? -2 : tooLarge;
}

// Has the client library keep what was fetched; identifiers that carry their value are not kept.
void save(jint count) {
    OopType* const end =
        std::remove_if(oopBuf, oopBuf + count, [](OopType oop) { return isSpecial(oop) || oop <= KCI_OOP_ILLEGAL; });
    if (end != oopBuf) {
        rtlPrivKciRtlFuncs->KciSaveObjs(oopBuf, static_cast<ArraySizeType>(end - oopBuf));
    }
}

} // namespace

TMQKCI_BULK(create)
(JNIEnv* env, jclass, jint sessionId, jlong cls, jint named, jlongArray values, jlongArray oops, jint count,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: create num %d\n", sessionId, count);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        const auto size = static_cast<int64_t>(named) * count;
        if (count < 0 || named < 0 || std::max<int64_t>(size, count) > BufSizeOops) {
            return call.refused("create(): numbers below 0 or beyond the buffer size");
        }
        if (values == nullptr || oops == nullptr || ENV->GetArrayLength(values) < size ||
            ENV->GetArrayLength(oops) < count) {
            return call.refused("create(): an array is NULL or too short");
        }
        ENV->GetLongArrayRegion(values, 0, static_cast<jint>(size), jlongBuf);
        jint made = 0;
        const bool complete = makeObjects(call, static_cast<OopType>(cls), named, count, made);
        // After a failure, too: the caller gives up what was made.
        ENV->SetLongArrayRegion(oops, 0, made, jlongBuf);
        return complete ? call.done(made) : call.failed();
    });
}

TMQKCI_BULK(contents)
(JNIEnv* env, jclass, jint sessionId, jlongArray objects, jint count, jintArray sizes, jlongArray contents,
 jthrowable jErrReport) {
    TRACE_DEBUG("%d: contents num %d\n", sessionId, count);
    return inSession(env, sessionId, jErrReport, [&](const NativeCall& call) {
        if (count < 0 || count > BufSizeOops) {
            return call.refused("contents(): numbers below 0 or beyond the buffer size");
        }
        if (objects == nullptr || sizes == nullptr || contents == nullptr || ENV->GetArrayLength(objects) < count ||
            ENV->GetArrayLength(sizes) < count || ENV->GetArrayLength(contents) < BufSizeOops) {
            return call.refused("contents(): an array is NULL or too short");
        }
        jint used = 0;
        jint done = 0;
        for (; done < count; ++done) {
            jlong object = 0;
            ENV->GetLongArrayRegion(objects, done, 1, &object);
            const jint size = fetchOops(static_cast<OopType>(object), used);
            if (call.clientError()) [[unlikely]] {
                return call.failed();
            }
            if (size < tooLarge) {
                break;
            }
            ENV->SetIntArrayRegion(sizes, done, 1, &size);
            used += std::max(size, 0);
        }
        std::copy(oopBuf, oopBuf + used, jlongBuf);
        ENV->SetLongArrayRegion(contents, 0, used, jlongBuf);
        save(used);
        return call.clientError() ? call.failed() : call.done(done);
    });
}
