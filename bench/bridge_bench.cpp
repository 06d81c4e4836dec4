// The bridge's native methods beside straight-line code that makes only the calls their contract asks for, with the JNI
// functions of a real virtual machine that runs inside this process.

#include "ratio.h"

#include <dlfcn.h>
#include <jni.h>

#include <cstdlib>

namespace {

constexpr jint session = 1;
constexpr jint bufSize = 1 << 20;
constexpr jint oopCount = 1000;
constexpr int callsPerFrame = 32;

JNIEnv* env;

[[noreturn]] void giveUp(const char* what, const char* why) {
    std::fprintf(stderr, "bridge_bench: %s: %s\n", what, why);
    std::exit(1);
}

void* openLibrary(const char* path) {
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        giveUp(path, dlerror());
    }
    return library;
}

template <class Function>
Function* symbol(void* library, const char* name) {
    void* address = dlsym(library, name);
    if (address == nullptr) {
        giveUp(name, dlerror());
    }
    return reinterpret_cast<Function*>(address);
}

void startJava() {
    char classPath[] = "-Djava.class.path=" BENCH_CLASS_PATH;
    char heap[] = "-Xmx256m";
    char serial[] = "-XX:+UseSerialGC";
    JavaVMOption options[] = {{classPath, nullptr}, {heap, nullptr}, {serial, nullptr}};
    JavaVMInitArgs args = {JNI_VERSION_10, 3, options, JNI_FALSE};
    JavaVM* machine = nullptr;
    auto* create = symbol<jint(JavaVM**, void**, void*)>(openLibrary(BENCH_JVM), "JNI_CreateJavaVM");
    if (create(&machine, reinterpret_cast<void**>(&env), &args) != JNI_OK) {
        giveUp("JNI_CreateJavaVM", "no virtual machine");
    }
}

// The objects that the calls work on.
struct JavaSide {
    jobject newObject(const char* className) {
        jclass cls = env->FindClass(className);
        if (cls == nullptr) {
            env->ExceptionDescribe();
            giveUp(className, "class not found in " BENCH_CLASS_PATH);
        }
        return env->NewGlobalRef(env->NewObject(cls, env->GetMethodID(cls, "<init>", "()V")));
    }
    jobject newReport(jlong oop) {
        jobject report = newObject("com/kestrune/tmqkci/TmqKciReport");
        jclass cls = env->GetObjectClass(report);
        env->SetByteField(report, env->GetFieldID(cls, "objType", "B"), 0);
        env->SetLongField(report, env->GetFieldID(cls, "oop", "J"), oop);
        return report;
    }
    jobjectArray newReports(jint count) {
        jobjectArray reports = env->NewObjectArray(count, env->FindClass("com/kestrune/tmqkci/TmqKciReport"), nullptr);
        for (jint i = 0; i < count; ++i) {
            env->SetObjectArrayElement(reports, i, newReport(100));
        }
        return static_cast<jobjectArray>(env->NewGlobalRef(reports));
    }

    jthrowable error = static_cast<jthrowable>(newObject("com/kestrune/tmqkci/TmqKciException"));
    jobject string = newReport(100);
    jobject array = newReport(104);
    jobject result = newReport(100);
    jobjectArray arguments = newReports(2);
    jobjectArray reports = newReports(oopCount);
    jbyteArray bytes = static_cast<jbyteArray>(env->NewGlobalRef(env->NewByteArray(bufSize)));
    jstring selector = static_cast<jstring>(env->NewGlobalRef(env->NewStringUTF("at:put:")));
};

// One side of the comparison: the natives of one library.
struct Natives {
    explicit Natives(const char* path)
        : library(openLibrary(path)), isKindOf(find<decltype(*isKindOf)>("isKindOf")),
          setup(find<decltype(*setup)>("setup")), getObjs(find<decltype(*getObjs)>("getObjs")),
          getBytes(find<decltype(*getBytes)>("getBytes")), perform(find<decltype(*perform)>("perform")),
          nbEnd(find<decltype(*nbEnd)>("nbEnd")) {
        auto* initialize =
            find<jint(JNIEnv*, jclass, jint, jstring, jint, jint, jint, jlongArray, jthrowable)>("initialize");
        JavaSide java;
        if (initialize(env, nullptr, 1, java.selector, bufSize, 1024, 0, env->NewLongArray(16), java.error) != 32) {
            giveUp(path, "_initialize failed");
        }
    }

    template <class Function>
    std::remove_reference_t<Function>* find(const char* name) {
        return symbol<std::remove_reference_t<Function>>(
            library, (std::string("Java_com_kestrune_tmqkci_TmqKciInterface__1") + name).c_str());
    }

    void* library;
    jint (*isKindOf)(JNIEnv*, jclass, jint, jobject, jobject, jthrowable);
    jint (*setup)(JNIEnv*, jclass, jint, jobject, jthrowable);
    jint (*getObjs)(JNIEnv*, jclass, jint, jobject, jlong, jint, jobjectArray, jthrowable);
    jint (*getBytes)(JNIEnv*, jclass, jint, jobject, jlong, jint, jbyteArray, jthrowable);
    jint (*perform)(JNIEnv*, jclass, jint, jobject, jstring, jobjectArray, jint, jthrowable);
    jint (*nbEnd)(JNIEnv*, jclass, jint, jobject, jthrowable);
};

// Runs one call over and over. Local references are given back every few calls, as Java does after each.
template <class Call>
void repeat(benchmark::State& state, jint expected, Call call) {
    while (state.KeepRunningBatch(callsPerFrame)) {
        env->PushLocalFrame(callsPerFrame * 8);
        for (int i = 0; i < callsPerFrame; ++i) {
            if (call() != expected) {
                state.SkipWithError("unexpected status");
            }
        }
        env->PopLocalFrame(nullptr);
    }
}

void registerRows(const std::string& side, const Natives& natives, const JavaSide& java) {
    const auto add = [&](const char* row, jint expected, auto call) {
        benchmark::RegisterBenchmark((std::string(row) + "/" + side).c_str(),
                                     [=](benchmark::State& state) { repeat(state, expected, call); });
    };
    add("_isKindOf", 0, [=] { return natives.isKindOf(env, nullptr, session, java.string, java.array, java.error); });
    add("_setup, 12-byte string", 0, [=] { return natives.setup(env, nullptr, session, java.string, java.error); });
    add("_setup, 8 identifiers", 0, [=] { return natives.setup(env, nullptr, session, java.array, java.error); });
    add("_getObjs, 1000 references", oopCount,
        [=] { return natives.getObjs(env, nullptr, session, java.array, 1, oopCount, java.reports, java.error); });
    add("_getBytes, 1 MiB", bufSize,
        [=] { return natives.getBytes(env, nullptr, session, java.string, 1, bufSize, java.bytes, java.error); });
    // What the client library answers depends on the receiver.
    for (const auto& [row, receiver] : {std::pair("_perform with 2 arguments and _nbEnd", java.array),
                                        std::pair("_perform and _nbEnd of a small integer", java.string)}) {
        add(row, 0, [=, receiver = receiver] {
            return natives.perform(env, nullptr, session, receiver, java.selector, java.arguments, 2, java.error) +
                   natives.nbEnd(env, nullptr, session, java.result, java.error);
        });
    }
}

} // namespace

int main(int argc, char** argv) {
    setenv("KESTRUNE", BENCH_KESTRUNE, 1);
    setenv("KCIRTL_VERSION", "bench", 1);
    startJava();
    const Natives ours(BENCH_BRIDGE);
    const Natives straight(BENCH_STRAIGHT);
    const JavaSide java;
    registerRows("ours", ours, java);
    registerRows("straight line", straight, java);
    std::vector<RatioRow> rows;
    for (const auto& [row, limit] :
         std::initializer_list<std::pair<const char*, double>>{{"_isKindOf", 1.05},
                                                               {"_setup, 12-byte string", 1.02},
                                                               {"_setup, 8 identifiers", 1.02},
                                                               {"_getObjs, 1000 references", 1.05},
                                                               {"_getBytes, 1 MiB", 1.05},
                                                               {"_perform with 2 arguments and _nbEnd", 1.05},
                                                               {"_perform and _nbEnd of a small integer", 1.05}}) {
        rows.push_back({row, "straight line", limit});
    }
    return runRatios(argc, argv, rows);
}
