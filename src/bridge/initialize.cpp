#include "bridge/TmqKciInterface.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace {

constexpr jint initialized = 32;
constexpr jint smallestPreload = 16;
constexpr jint noSession = -1;
constexpr int acceptedProduct = 1;
constexpr char bridgeVersion[] = "3.1.3";
constexpr char lowestVersion[] = "6.7";
constexpr char highestVersion[] = "6.9.999";
constexpr size_t messageSize = 300;

constexpr const char* productMap[] = {"", "KS/S", "KS/2G", "KS/64"};

// Identifiers and numbers that the Java side knows by their index.
constexpr jlong kernelTable[] = {
    10,         // nil
    1189,       //
    3613,       // category of the system's errors
    3,          // the small integer 0
    7,          // the small integer 1
    -536870912, // the smallest small integer
    536870911,  // the largest small integer
    38,         // true
    6,          // false
    1733,       //
    1045,       //
    1049,       //
    1197,       //
    1209,       //
    1213,       //
    0,          // no object
};

void traceSizes() {
    TRACE_DEBUG("libtmqkci loading:\n");
    TRACE_DEBUG("SiZEOF int = %d\n", static_cast<int>(sizeof(int)));
    TRACE_DEBUG("SIZEOF OopType = %d\n", static_cast<int>(sizeof(OopType)));
    TRACE_DEBUG("SIZEOF jlong = %d\n", static_cast<int>(sizeof(jlong)));
    TRACE_DEBUG("SizeOF jint   = %d\n", static_cast<int>(sizeof(jint)));
    TRACE_DEBUG("SIZEOF jint = %d\n", static_cast<int>(sizeof(jint)));
}

// What _initialize does once the flags are raised and the environment is stored; each step answers whether it
// succeeded, with the failure reported.
class Initialization {
public:
    explicit Initialization(jobject errorReport) : call(noSession, errorReport), jErrReport(errorReport) {}

    Exit run(jint useLinked, jstring jAppName, jint bufSize, jint preloadSize, jlongArray kernelOops) const {
        if (preloadSize > bufSize) {
            return call.refused("preloadSize exceeds bufSize");
        }
        // kept: callers may pass a negative size, or one that is raised above bufSize; neither is looked at again.
        if (preloadSize >= 0) {
            preloadSize = std::max(preloadSize, smallestPreload);
        }
        PreloadSizeBytes = preloadSize;
        PreloadSizeOops = preloadSize / 4;
        TRACE_DEBUG("Initialize:  PreloadSize = %d/%d\n", PreloadSizeBytes, PreloadSizeOops);

        if (const char* failure = resolveClasses()) {
            return call.refused(failure);
        }
        // As long as no client library is loaded, another attempt can succeed.
        if (kernelOops == nullptr) {
            return call.refused("NULL kernelOops argument");
        }
        return loadClient(useLinked, jAppName, bufSize, kernelOops);
    }

private:
    // NULL, or what is missing.
    static const char* resolveClasses() {
        if (const char* failure = resolve(reportClassName, reportFields, "JNI: Can't find TmqKciReport", dropClass)) {
            return failure;
        }
        if (const char* failure =
                resolve(exceptionClassName, exceptionFields, "JNI: Can't find TmqKciException", dropClass)) {
            return failure;
        }
        return resolve(cacheStatsClassName, cacheStatsFields, "JNI: Can't find TmqKciCacheStats", keepCacheStatsClass);
    }

    static void dropClass(jclass cls) { ENV->DeleteLocalRef(cls); }

    static void keepCacheStatsClass(jclass cls) { jTmqKciCacheStatsClass = cls; }

    static const char* resolve(const char* className, std::span<const JavaField> fields, const char* notFound,
                               void (*keep)(jclass)) {
        jclass cls = ENV->FindClass(className);
        if (cls == nullptr) {
            ENV->ExceptionClear();
            return notFound;
        }
        for (const JavaField& field : fields) {
            TRACE_DEBUG("    JNI/Initialize:  Setting up FID %s\n", field.name);
            *field.fid = ENV->GetFieldID(cls, field.name, field.signature);
            if (*field.fid == nullptr) {
                ENV->ExceptionClear();
                static char message[messageSize];
                snprintf(message, sizeof message, "JNI/Initialize: Field setup error on %s", field.name);
                return message;
            }
        }
        keep(cls);
        return nullptr;
    }

    Exit loadClient(jint useLinked, jstring jAppName, jint bufSize, jlongArray kernelOops) const {
        TRACE_DEBUG("     Ready to KciRtlLoad: useLinked = %d\n", useLinked);
        char reason[256] = "";
        if (!KciRtlLoad(useLinked == 0 ? TRUE : FALSE, nullptr, reason, sizeof reason)) {
            if (call.clientError()) {
                return call.failed();
            }
            char message[messageSize];
            snprintf(message, sizeof message, "KciRtlLoad failure: %s", reason);
            TRACE_DEBUG("     %s\n", message);
            return call.refused(message);
        }

        TRACE_DEBUG("Checking product/version info..\n");
        TRACE_DEBUG("   Product..\n");
        const int product = rtlPrivKciRtlFuncs->KciProduct();
        TRACE_DEBUG("             %d\n", product);
        TRACE_DEBUG("    Version..\n");
        const char* version = rtlPrivKciRtlFuncs->KciVersion();
        if (version == nullptr) {
            version = "";
        }
        TRACE_DEBUG("             %s\n", version);
        TRACE_INFO("   KS/KCI Product = %s\n", product < std::ssize(productMap) ? productMap[product] : "");
        TRACE_INFO("   KS/KCI Version = %s\n", version);
        TRACE_INFO("  TMQ/KCI Version = %s\n", bridgeVersion);
        if (product != acceptedProduct) {
            return call.refused("Incorrect version of libtmqkci loaded: wrong KS product");
        }
        // Compared as text: 6.10 counts as lower than 6.7.
        if (strcmp(version, lowestVersion) < 0 || strcmp(version, highestVersion) > 0) {
            char message[messageSize];
            snprintf(message, sizeof message, "Incorrect version of libtmqkci: built for %s, running on %s",
                     lowestVersion, version);
            return call.refused(message);
        }
        return startClient(jAppName, bufSize, kernelOops);
    }

    Exit startClient(jstring jAppName, jint bufSize, jlongArray kernelOops) const {
        if (jAppName != nullptr) {
            const char* name = GetString(jAppName);
            if (name == nullptr) {
                return call.notLent();
            }
            TRACE_DEBUG("     Ready to KciInitAppName: %s\n", name);
            rtlPrivKciRtlFuncs->KciInitAppName(name, TRUE);
        }
        TRACE_DEBUG("     Ready to KciInit..\n");
        if (!rtlPrivKciRtlFuncs->KciInit()) {
            return call.clientError() ? call.failed() : call.refused("KciInit failure");
        }
        TRACE_DEBUG("     Ready to setup buffers\n");
        if (const char* failure = allocateBuffers(bufSize)) {
            return call.refused(failure);
        }
        // kept: callers with too short an array find Java's own exception pending, and the bridge initialized.
        ENV->SetLongArrayRegion(kernelOops, 0, std::size(kernelTable), kernelTable);
        TmqKciInitialized = 1;
        TRACE_DEBUG("libtmqkci311 initialization completed.\n");
        return call.done(initialized);
    }

    // The buffers hold bufSize, or what is preloaded of one object where that is more.
    static const char* allocateBuffers(jint bufSize) {
        BufSizeBytes = bufSize;
        BufSizeOops = bufSize / 4;
        TRACE_DEBUG("Initialize: MaxBufferSize = %d/%d\n", BufSizeBytes, BufSizeOops);

        const size_t bytes = roomFor(bufSize, smallestPreload);
        byteBuf = static_cast<ByteType*>(malloc(bytes));
        if (byteBuf == nullptr) {
            return "Problem allocating byte buffer in initialize()";
        }
        // A date-time's parts are read even where the object is shorter than they are.
        memset(byteBuf, 0, smallestPreload);
        oopBuf = static_cast<OopType*>(malloc(bytes / 4 * sizeof(OopType)));
        if (oopBuf == nullptr) {
            return "Problem allocating oop buffer in initialize()";
        }
        jlongBuf = static_cast<jlong*>(malloc(bytes / 4 * sizeof(jlong)));
        if (jlongBuf == nullptr) {
            return "Problem allocating jongBuf buffer in initialize()";
        }
        return nullptr;
    }

    // A negative size asks for more than there is.
    static size_t roomFor(jint size, jint least) {
        return size < 0 ? SIZE_MAX : static_cast<size_t>(std::max(size, least));
    }

    const NativeCall call;
    const jobject jErrReport;
};

} // namespace

TMQKCI_NATIVE(initialize)
(JNIEnv* env, jclass, jint useLinked, jstring jAppName, jint bufSize, jint preloadSize, jint debugFlag,
 jlongArray kernelOops, jthrowable jErrReport) {
    if (debugFlag > 1) {
        Debug = TRUE;
    }
    if (debugFlag > 0) {
        Info = TRUE;
    }
    traceSizes();
    if (TmqKciInitialized) {
        // kept: callers may come from another thread; ENV stays as the last native call left it.
        TRACE_DEBUG("Already initialized.\n");
        TRACE_DEBUG("    Returning: %d\n", initialized);
        return initialized;
    }
    ENV = env;
    TmqKciLinked = useLinked != 0 ? TRUE : FALSE;
    return Initialization(jErrReport).run(useLinked, jAppName, bufSize, preloadSize, kernelOops).status;
}

// For KciBridge: -1 as long as the bridge is not initialized, 1 when sessions run inside this process, else 0.
extern "C" TMQKCI_API jint JNICALL Java_com_kestrune_tmqkci_KciBridge_flavour(JNIEnv*, jclass) {
    return TmqKciInitialized ? TmqKciLinked : -1;
}
