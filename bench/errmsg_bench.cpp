// One message with a text and a number, out of a catalogue of many: beside dgettext over a .mo file and catgets over a
// catalogue of gencat, each with snprintf.
#include "ratio.h"

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <libintl.h>
#include <limits>
#include <map>
#include <nl_types.h>
#include <random>
#include <unistd.h>

#include "errmsg.h"
#include "errmsgc/source.h"

namespace {

using Path = std::filesystem::path;

std::string symbolOf(size_t i) {
    return "bench.someErrorSymbol" + std::to_string(i * 7919 % 100003);
}
std::string patternOf(size_t i) {
    return "The object " + std::to_string(i) + " named %s could not be found among %d others. Check its name.";
}

constexpr auto orders = errmsgc::Transform{0, 1, 2, 3};

// A folder with the same messages in three forms.
class Messages {
public:
    explicit Messages(size_t count) : folder(makeFolder()) {
        std::vector<errmsgc::Entry> entries;
        for (size_t i = 0; i < count; ++i) {
            symbols.push_back(symbolOf(i));
            entries.push_back({symbols.back(), {1, 2}, patternOf(i), 0});
        }
        if (!errmsgc::replaceFile(folder / "messages.err", errmsgc::buildImage(entries, orders)))
            abort();
    }
    ~Messages() { std::filesystem::remove_all(folder); }

    // The same ones each time: gettext keeps every domain, and each makes its later look-ups longer.
    static const Messages& ofSize(size_t count) {
        static std::map<size_t, Messages> all;
        return all.try_emplace(count, count).first->second;
    }

    void openOurs() const {
        setenv("KESTRUNE_LANG", (folder / "messages.err").c_str(), 1);
        ErrMsgInit();
    }
    // False when the system's compiler of such files is missing.
    bool openGettext() const {
        std::ofstream po(folder / "messages.po");
        po << "msgid \"\"\nmsgstr \"Content-Type: text/plain; charset=UTF-8\\n\"\n\n";
        for (size_t i = 0; i < symbols.size(); ++i)
            po << "msgid \"" << symbols[i] << "\"\nmsgstr \"" << patternOf(i) << "\"\n\n";
        po.close();
        const Path locale = folder / "xx" / "LC_MESSAGES";
        std::filesystem::create_directories(locale);
        const std::string domain = folder.filename().string();
        const std::string command =
            "msgfmt -o " + (locale / (domain + ".mo")).string() + " " + (folder / "messages.po").string();
        setenv("LANGUAGE", "xx", 1);
        bindtextdomain(domain.c_str(), folder.c_str());
        return system(command.c_str()) == 0;
    }
    nl_catd openCatgets() const {
        std::ofstream source(folder / "messages.txt");
        source << "$set 1\n";
        for (size_t i = 0; i < symbols.size(); ++i)
            source << i + 1 << " " << patternOf(i) << "\n";
        source.close();
        const std::string command =
            "gencat " + (folder / "messages.cat").string() + " " + (folder / "messages.txt").string();
        return system(command.c_str()) == 0 ? catopen((folder / "messages.cat").c_str(), 0) : nullptr;
    }

    std::string domain() const { return folder.filename().string(); }
    std::vector<std::string> symbols;

private:
    static Path makeFolder() {
        char pattern[] = "/tmp/errmsgbench-XXXXXX";
        return mkdtemp(pattern);
    }
    const Path folder;
};

// The indexes that a run asks for: random ones, or one all the time.
std::vector<size_t> drawIndexes(size_t count, bool hot) {
    std::mt19937 random(42);
    std::vector<size_t> indexes(4096, count / 2);
    for (size_t& index : indexes)
        index = hot ? index : random() % count;
    return indexes;
}

void ours(benchmark::State& state, size_t count, bool hot) {
    const Messages& messages = Messages::ofSize(count);
    messages.openOurs();
    const std::vector<size_t> indexes = drawIndexes(count, hot);
    ErrMsgStrType text;
    size_t next = 0;
    for (auto _ : state) {
        const size_t i = indexes[next++ % indexes.size()];
        ErrMsgSymToText(messages.symbols[i].c_str(), text, sizeof text, "sd", "some object", static_cast<int>(i));
        benchmark::DoNotOptimize(text);
    }
    if (strncmp(text, "The object ", 11) != 0)
        state.SkipWithError("wrong text");
    ErrMsgShutdown();
}

void gettextPeer(benchmark::State& state, size_t count, bool hot) {
    const Messages& messages = Messages::ofSize(count);
    if (!messages.openGettext()) {
        state.SkipWithError("msgfmt is missing (package gettext)");
        return;
    }
    const std::string domain = messages.domain();
    const std::vector<size_t> indexes = drawIndexes(count, hot);
    ErrMsgStrType text;
    size_t next = 0;
    for (auto _ : state) {
        const size_t i = indexes[next++ % indexes.size()];
        snprintf(text, sizeof text, dgettext(domain.c_str(), messages.symbols[i].c_str()), "some object",
                 static_cast<int>(i));
        benchmark::DoNotOptimize(text);
    }
    if (strncmp(text, "The object ", 11) != 0)
        state.SkipWithError("wrong text");
}

void catgetsPeer(benchmark::State& state, size_t count, bool hot) {
    const Messages& messages = Messages::ofSize(count);
    const nl_catd catalogue = messages.openCatgets();
    const std::vector<size_t> indexes = drawIndexes(count, hot);
    ErrMsgStrType text;
    size_t next = 0;
    for (auto _ : state) {
        const size_t i = indexes[next++ % indexes.size()];
        snprintf(text, sizeof text, catgets(catalogue, 1, static_cast<int>(i) + 1, "?"), "some object",
                 static_cast<int>(i));
        benchmark::DoNotOptimize(text);
    }
    if (strncmp(text, "The object ", 11) != 0)
        state.SkipWithError("wrong text");
    catclose(catalogue);
}

constexpr double noAim = std::numeric_limits<double>::infinity();
constexpr size_t usual = 2000;
BENCHMARK_CAPTURE(ours, random, usual, false)->Name("random symbol of 2,000/ours");
BENCHMARK_CAPTURE(gettextPeer, random, usual, false)->Name("random symbol of 2,000/dgettext+snprintf");
BENCHMARK_CAPTURE(catgetsPeer, random, usual, false)->Name("random symbol of 2,000/catgets+snprintf");
BENCHMARK_CAPTURE(ours, hot, usual, true)->Name("hot symbol of 2,000/ours");
BENCHMARK_CAPTURE(gettextPeer, hot, usual, true)->Name("hot symbol of 2,000/dgettext+snprintf");
BENCHMARK_CAPTURE(catgetsPeer, hot, usual, true)->Name("hot symbol of 2,000/catgets+snprintf");
BENCHMARK_CAPTURE(ours, small, 200, false)->Name("random of 20,000/200 messages");
BENCHMARK_CAPTURE(ours, large, 20000, false)->Name("random of 20,000/ours");

} // namespace

int main(int argc, char** argv) {
    setlocale(LC_ALL, "C.UTF-8");
    return runRatios(argc, argv,
                     {{"random symbol of 2,000", "dgettext+snprintf", 0.5},
                      {"random symbol of 2,000", "catgets+snprintf", noAim},
                      {"hot symbol of 2,000", "dgettext+snprintf", 0.5},
                      {"hot symbol of 2,000", "catgets+snprintf", noAim},
                      {"random of 20,000", "200 messages", 2.0}});
}
