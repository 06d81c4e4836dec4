// errmsgc: compiles text catalogues into message files, and examines such files.
#include <cstdio>
#include <cstring>
#include <getopt.h>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "errmsgc/compiled.h"
#include "errmsgc/source.h"

using namespace errmsgc;

namespace {

constexpr int exitGood = 0;
constexpr int exitFailure = 1;
constexpr int exitUsage = 2;

constexpr char usage[] = R"(Usage: errmsgc [--order ORDER] -o FILE CATALOGUE
       errmsgc --list FILE
       errmsgc --get SYMBOL FILE
       errmsgc --check FILE
       errmsgc --help

Compiles a text catalogue into a message file, or examines a message file.

  -o, --output FILE   the message file to write
      --order ORDER   byte order of its numbers: host (the default), little, big,
                      mixed (the halves of a number swapped), or four digits, the
                      power of 256 that each byte stands for (little is 0123)
      --list FILE     print the entries of a message file
      --get SYMBOL    print the text of one symbol of a message file
      --check FILE    examine a message file
      --help          print this

Exit status: 0 when all went well, 1 when a file is faulty or a symbol has no
text, 2 for a wrong command line.
)";

int wrongUsage(const char* problem) {
    fprintf(stderr, "errmsgc: %s\nTry 'errmsgc --help'.\n", problem);
    return exitUsage;
}

std::optional<Transform> parseOrder(std::string_view order) {
    struct Named {
        std::string_view name, digits;
    };
    constexpr Named names[] = {{"host", __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__ ? "0123" : "3210"},
                               {"little", "0123"},
                               {"big", "3210"},
                               {"mixed", "2301"}};
    for (const Named& named : names) {
        if (order == named.name) {
            order = named.digits;
        }
    }
    Transform transform{};
    unsigned seen = 0;
    for (size_t i = 0; i < order.size() && i < transform.size(); ++i) {
        transform[i] = static_cast<ByteType>(order[i] - '0');
        seen |= transform[i] < 4 ? 1U << transform[i] : 0;
    }
    return order.size() == transform.size() && seen == 0xF ? std::optional(transform) : std::nullopt;
}

int compile(const char* catalogue, const char* output, const Transform& transform) {
    std::vector<Entry> entries;
    if (!readCatalogue(catalogue, entries)) {
        return exitFailure;
    }
    return replaceFile(output, buildImage(entries, transform)) ? exitGood : exitFailure;
}

int list(const char* file) {
    std::vector<Entry> entries;
    const bool good = listFile(file, entries);
    for (const Entry& entry : entries) {
        puts(entry.text().c_str());
    }
    return good ? exitGood : exitFailure;
}

int get(const char* file, const std::string& symbol) {
    std::string text;
    if (!getText(file, symbol, text)) {
        return exitFailure;
    }
    puts(text.c_str());
    return exitGood;
}

// Output that was lost is a failure, too.
int finish(int status) {
    return fflush(stdout) == 0 && !ferror(stdout) ? status : exitFailure;
}

} // namespace

int main(int argc, char** argv) {
    enum { optionOrder = 256, optionList, optionGet, optionCheck, optionHelp };
    constexpr option options[] = {{"output", required_argument, nullptr, 'o'},
                                  {"order", required_argument, nullptr, optionOrder},
                                  {"list", no_argument, nullptr, optionList},
                                  {"get", required_argument, nullptr, optionGet},
                                  {"check", no_argument, nullptr, optionCheck},
                                  {"help", no_argument, nullptr, optionHelp},
                                  {}};
    const char* output = nullptr;
    const char* order = nullptr;
    std::string symbol;
    int action = 0;
    int actions = 0;
    for (int choice; (choice = getopt_long(argc, argv, "o:", options, nullptr)) != -1;) {
        switch (choice) {
        case 'o':
            output = optarg;
            break;
        case optionOrder:
            order = optarg;
            break;
        case optionGet:
            symbol = optarg;
            [[fallthrough]];
        case optionList:
        case optionCheck:
            action = choice;
            ++actions;
            break;
        case optionHelp:
            fputs(usage, stdout);
            return finish(exitGood);
        default:
            return wrongUsage("wrong options");
        }
    }
    if (optind != argc - 1) {
        return wrongUsage("exactly one file is to be named");
    }
    const char* const file = argv[optind];
    if (actions > 1 || (actions == 1 && (output != nullptr || order != nullptr))) {
        return wrongUsage("these options exclude each other");
    }
    switch (action) {
    case optionList:
        return finish(list(file));
    case optionGet:
        return finish(get(file, symbol));
    case optionCheck:
        return finish(checkFile(file) ? exitGood : exitFailure);
    default:
        break;
    }
    if (output == nullptr) {
        return wrongUsage("the file to write is missing (-o FILE)");
    }
    const std::optional<Transform> transform = parseOrder(order != nullptr ? order : "host");
    if (!transform) {
        return wrongUsage("no such byte order");
    }
    return compile(file, output, *transform);
}
