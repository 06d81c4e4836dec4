// Expectations of what child processes print and how they end.
#pragma once

#include <gtest/gtest.h>
#include <source_location>
#include <string>

#include "support/child.h"
#include "support/scratch.h"

using Where = std::source_location;

// A text contains a match of the pattern (ECMAScript).
void expectHas(const std::string& text, const std::string& pattern, Where where = Where::current());

// The child ended with 0, no expectation in it failed.
void expectGood(const ChildResult& child, Where where = Where::current());

// And what its streams match.
void expectGoodInChild(const std::function<void()>& body, const std::string& err = "", const std::string& out = "",
                       Where where = Where::current());

// The child expected one to skip the test: it could not become what the test needs.
constexpr int notPossible = 77;
#define SKIP_IF_NOT_POSSIBLE(child)                                                                                    \
    if ((child).exitStatus == notPossible)                                                                             \
    GTEST_SKIP() << "not possible under this user"
