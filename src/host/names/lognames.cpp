#include "utlhost.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <unistd.h>

#include "host/base/boundedtext.h"
#include "host/names/lognames.h"
#include "hostfile.h"
#include "hostuser.h"

namespace {
using std::string_view;

string_view lastComponent(string_view name) {
    name.remove_prefix(name.rfind('/') + 1);
    return name;
}

// Appends what the letter after a "%" stands for.
bool appendLogNameValue(char letter, const LogNameValues& values, BoundedText& text) {
    HostFnameStrType own;
    switch (letter) {
    case 'N':
        return text.appendWhole(lastComponent(values.program != nullptr ? values.program : program_invocation_name));
    case 'P':
        snprintf(own, sizeof own, "%d", getpid());
        return text.appendWhole(own);
    case 'M':
        return HostGetHostname(own, sizeof own) != 0 && text.appendWhole(own);
    case 'U':
        if (values.user != nullptr) {
            return text.appendWhole(values.user);
        }
        return values.looksUp && HostGetUserName(own, sizeof own) != 0 && text.appendWhole(own);
    case 'H':
        if (values.home != nullptr) {
            return text.appendWhole(values.home);
        }
        return values.looksUp && HostGetHomeDir(values.user, own, sizeof own) != 0 && text.appendWhole(own);
    case 'D': {
        if (values.date != nullptr) {
            return text.appendWhole(values.date);
        }
        const time_t now = time(nullptr);
        tm local;
        return localtime_r(&now, &local) != nullptr && strftime(own, sizeof own, "%Y-%m-%d", &local) != 0 &&
               text.appendWhole(own);
    }
    case '%':
        return text.appendWhole("%");
    default:
        return false;
    }
}

// What a link leads to counts: one that leads nowhere, or a folder of that name, must not hide a file further on.
bool leadsToFile(const char* path) {
    HostFnameStrType target;
    HostExpandFileName(path, target, sizeof target);
    return HostFileType(target) == HOST_FILE_KIND_FILE;
}

bool appendLogName(string_view pattern, const LogNameValues& values, BoundedText& text) {
    while (!pattern.empty()) {
        const size_t plain = std::min(pattern.find('%'), pattern.size());
        if (!text.appendWhole({pattern.data(), plain})) {
            return false;
        }
        pattern.remove_prefix(plain);
        if (pattern.empty()) {
            return true;
        }
        if (pattern.size() < 2 || !appendLogNameValue(pattern[1], values, text)) {
            return false;
        }
        pattern.remove_prefix(2);
    }
    return true;
}
} // namespace

BoolType UtlFindExeFile(const char* name, const char* ext, char* dst, unsigned size) {
    const string_view file = lastComponent(name);
    if (file.empty()) {
        return FALSE;
    }
    HostFnameStrType program;
    const ssize_t programLength = readlink("/proc/self/exe", program, sizeof program);
    if (programLength <= 0 || programLength == sizeof program) {
        return FALSE;
    }
    const string_view programPath(program, static_cast<size_t>(programLength));
    const string_view folder(programPath.data(), programPath.rfind('/') + 1);
    const string_view extension = file.find('.') == string_view::npos ? ext : "";

    for (const string_view place : {"", "../bin/", "../sys/"}) {
        HostFnameStrType path;
        BoundedText candidate(path, sizeof path);
        if (!candidate.appendWhole(folder) || !candidate.appendWhole(place) || !candidate.appendWhole(file) ||
            !candidate.appendWhole(extension) || !leadsToFile(path)) {
            continue;
        }
        const size_t length = strlen(path);
        if (length >= size) {
            return FALSE;
        }
        memcpy(dst, path, length + 1);
        return TRUE;
    }
    return FALSE;
}

BoolType UtlExpandLogName(const char* pattern, const char* program, const char* user, const char* home, char* dst,
                          unsigned size) {
    return hostExpandLogName(pattern, {program, user, home, nullptr, true}, dst, size);
}

BoolType hostExpandLogName(const char* pattern, const LogNameValues& values, char* dst, unsigned size) {
    if (size == 0) {
        return FALSE;
    }
    BoundedText text(dst, size);
    if (appendLogName(pattern, values, text)) {
        return TRUE;
    }
    text.clear();
    return FALSE;
}
