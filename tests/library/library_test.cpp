// The library as others get it: its names, what it needs, how it binds.
#include "support/scripted_jni.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#if defined(__i386__)
#define MACHINE "Intel 80386"
#define WORD_SIZE "32"
#else
#define MACHINE "Advanced Micro Devices X86-64"
#define WORD_SIZE "64"
#endif

namespace {

using scripted::jni;

std::string output(const std::string& command) {
    std::string text;
    FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    for (int c = getc(pipe); c != EOF; c = getc(pipe))
        text += char(c);
    if (pclose(pipe) != 0)
        ADD_FAILURE() << command << "\n" << text;
    return text;
}

// The first group of every match.
std::vector<std::string> matches(const std::string& text, const char* pattern) {
    const std::regex expression(pattern);
    std::vector<std::string> found;
    for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at)
        found.push_back((*at)[1]);
    return found;
}

TEST(Library, ExportsTheListedNames) {
    std::ifstream file(EXPORTS);
    const std::vector<std::string> listed(std::istream_iterator<std::string>(file), {});
    EXPECT_TRUE(std::is_sorted(listed.begin(), listed.end())) << "src/exports.txt is sorted by bytes";
    const auto symbols = matches(output("nm -D --defined-only " LIBRARY), "[0-9a-f]+ [A-Za-z] (.+)\n");
    const std::set<std::string> exported(symbols.begin(), symbols.end()), wanted(listed.begin(), listed.end());
    for (const std::string& name : exported)
        EXPECT_TRUE(wanted.contains(name)) << name << " is exported and not listed in src/exports.txt";
    for (const std::string& name : wanted)
        EXPECT_TRUE(exported.contains(name)) << name << " is listed in src/exports.txt and not exported";
    EXPECT_FALSE(exported.contains("JNI_OnLoad"));
}

TEST(Library, NeedsOnlyTheCLibrary) {
    EXPECT_NE(output("readelf -hW " LIBRARY).find(MACHINE), std::string::npos);
    const std::string dynamic = output("readelf -dW " LIBRARY);
    EXPECT_EQ(matches(dynamic, "\\(SONAME\\) .*\\[(.*)\\]"), std::vector<std::string>{"libtmqkci313.so"});
    EXPECT_FALSE(matches(dynamic, "(SYMBOLIC)").empty()) << "names bind within the library";
    EXPECT_TRUE(matches(dynamic, "(TEXTREL)").empty());
    const std::set<std::string> allowed = {"libc.so.6",       "libm.so.6",     "libdl.so.2",
                                           "libpthread.so.0", "ld-linux.so.2", "ld-linux-x86-64.so.2"};
    for (const std::string& needed : matches(dynamic, "\\(NEEDED\\) .*\\[(.*)\\]"))
        EXPECT_TRUE(allowed.contains(needed)) << needed;
    EXPECT_EQ(matches(output("readelf -lW " LIBRARY), "GNU_STACK .* (R\\S+)"), std::vector<std::string>{"RW"});
}

TEST(Library, HeadersStandAlone) {
    for (const auto& entry : std::filesystem::directory_iterator(HEADERS)) {
        if (entry.path().extension() != ".h") {
            continue;
        }
        const std::string flags =
            " -m" WORD_SIZE " -D_POSIX_C_SOURCE=200809L -Wall -Wextra -Wpedantic -Werror -fsyntax-only ";
        output("gcc -std=c17 -x c" + flags + entry.path().string());
        output("g++ -std=c++20 -x c++" + flags + entry.path().string());
    }
}

TEST(Library, SharesItsDataWithAProgramAtFixedAddresses) {
    EXPECT_NE(output("readelf -hW " CONSUMER).find("EXEC"), std::string::npos) << "the program can be moved";
    EXPECT_EQ(output("KS_CORE_TIME_OUT=0 KCIRTL_BASELIBNAME=script " CONSUMER " " SCRIPTED_FOLDER),
              "announced\ntable\n");
}

// A piece of the C++ library that throws brings as much again.
TEST(Library, IsSmall) {
    output("strip -o " INSTALLATION "/stripped.so " LIBRARY);
    EXPECT_LE(std::filesystem::file_size(INSTALLATION "/stripped.so"), sizeof(void*) == 4 ? 190'000u : 210'000u);
}

#if defined(__i386__)
// Old callers keep the stack aligned to 4 bytes; what the library calls expects 16.
uintptr_t misalignment = 0;
__attribute__((noinline)) void JNICALL setIntField(JNIEnv*, jobject, jfieldID, jint) {
    // Above the frame address lie the saved frame pointer and the return address.
    misalignment |= (reinterpret_cast<uintptr_t>(__builtin_frame_address(0)) + 8) % 16;
}

TEST(Library, RealignsTheStack) {
    JNINativeInterface_ functions = *jni().env()->functions;
    functions.SetIntField = setIntField;
    JNIEnv environment{&functions};
    void* native =
        dlsym(dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL), "Java_com_kestrune_tmqkci_TmqKciInterface__1KCSIdetach");
    jobject report = jni().argument(jni().create("TmqKciException"));
    for (int offset = 0; offset < 16; offset += 4) {
        void* function = native;
        JNIEnv* env = &environment;
        jobject object = report;
        asm volatile("movl %%esp, %%esi\n\t"
                     "andl $-16, %%esp\n\t"
                     "subl %%edi, %%esp\n\t"
                     "pushl %%edx\n\t"
                     "pushl $0\n\t"
                     "pushl %%ecx\n\t"
                     "call *%%eax\n\t"
                     "movl %%esi, %%esp"
                     : "+a"(function), "+c"(env), "+d"(object)
                     : "D"(offset)
                     : "esi", "memory", "cc");
        EXPECT_EQ(static_cast<jint>(reinterpret_cast<intptr_t>(function)), -1);
    }
    EXPECT_EQ(misalignment, 0u);
}
#endif

} // namespace
