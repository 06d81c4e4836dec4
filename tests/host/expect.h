// Expectations that the tests of the host services share.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <regex>
#include <source_location>
#include <string>

#include "support/child.h"

using Where = std::source_location;

// A text contains a match of the pattern (ECMAScript).
inline void expectHas(const std::string& text, const std::string& pattern, Where where = Where::current()) {
    if (!std::regex_search(text, std::regex(pattern)))
        ADD_FAILURE_AT(where.file_name(), where.line()) << text << "\n  has no match of\n" << pattern;
}

// The child ended with 0, no expectation in it failed.
inline void expectGood(const ChildResult& child, Where where = Where::current()) {
    if (child.exitStatus != 0)
        ADD_FAILURE_AT(where.file_name(), where.line()) << child.exitStatus << " " << child.signal << "\n"
                                                        << child.out << child.err;
}

inline void expectGoodInChild(const std::function<void()>& body, Where where = Where::current()) {
    expectGood(runInChild(body), where);
}

// The child expected one to skip the test: it could not become what the test needs.
constexpr int notPossible = 77;
#define SKIP_IF_NOT_POSSIBLE(child)                                                                                    \
    if ((child).exitStatus == notPossible)                                                                             \
    GTEST_SKIP() << "not possible under this user"

// A folder that every user may write to, removed at the end with everything in it.
class Scratch {
public:
    Scratch() {
        std::string pattern = std::filesystem::canonical(std::filesystem::temp_directory_path()) / "hostXXXXXX";
        path_ = mkdtemp(pattern.data());
        std::filesystem::permissions(path_, std::filesystem::perms::all);
    }
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::current_path("/");
        std::filesystem::remove_all(path_, ignored);
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // Writes a shell script, by default an executable one; returns its path.
    std::string script(const std::string& name, const std::string& text, unsigned mode = 0777) const {
        std::ofstream(file(name)) << "#!/bin/sh\n" << text << '\n';
        std::filesystem::permissions(file(name), std::filesystem::perms(mode));
        return file(name);
    }
    std::string read(const std::string& name) const {
        std::ifstream stream(file(name));
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    std::string path_;
};
