// Expectations that the tests of the host services share.
#pragma once

#include <gtest/gtest.h>
#include <regex>
#include <source_location>
#include <string>

#include "support/child.h"
#include "support/scratch.h"

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

// And what its streams match.
inline void expectGoodInChild(const std::function<void()>& body, const std::string& err = "",
                              const std::string& out = "", Where where = Where::current()) {
    const ChildResult child = runInChild(body);
    expectGood(child, where);
    expectHas(child.err, err, where);
    expectHas(child.out, out, where);
}

// The child expected one to skip the test: it could not become what the test needs.
constexpr int notPossible = 77;
#define SKIP_IF_NOT_POSSIBLE(child)                                                                                    \
    if ((child).exitStatus == notPossible)                                                                             \
    GTEST_SKIP() << "not possible under this user"
