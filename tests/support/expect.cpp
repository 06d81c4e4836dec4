#include "support/expect.h"

#include <regex>

void expectHas(const std::string& text, const std::string& pattern, Where where) {
    if (!std::regex_search(text, std::regex(pattern)))
        ADD_FAILURE_AT(where.file_name(), where.line()) << text << "\n  has no match of\n" << pattern;
}

void expectGood(const ChildResult& child, Where where) {
    if (child.exitStatus != 0)
        ADD_FAILURE_AT(where.file_name(), where.line()) << child.exitStatus << " " << child.signal << "\n"
                                                        << child.out << child.err;
}

void expectGoodInChild(const std::function<void()>& body, const std::string& err, const std::string& out, Where where) {
    const ChildResult child = runInChild(body);
    expectGood(child, where);
    expectHas(child.err, err, where);
    expectHas(child.out, out, where);
}
