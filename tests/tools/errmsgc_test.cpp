// The message compiler as a user meets it: statuses, texts, files.
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "err/catalogue.h"

namespace {

struct Outcome {
    int status;
    std::string output; // standard output and standard error
};

Outcome errmsgc(const std::string& arguments) {
    FILE* const pipe = popen((ERRMSGC " " + arguments + " 2>&1").c_str(), "re");
    Outcome run{};
    for (int c = getc(pipe); c != EOF; c = getc(pipe))
        run.output += static_cast<char>(c);
    const int status = pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

void expect(const std::string& arguments, int status, const std::string& output) {
    const Outcome run = errmsgc(arguments);
    EXPECT_EQ(run.status, status) << arguments;
    EXPECT_EQ(run.output, output) << arguments;
}

// Texts that end in a backslash stand before an empty line, which the backslash behind their own one joins.
const char* const catalogue =
    "# comment\n\nb( 2 1 ) : two %s\\n\\\n%d\nm:mid\\\\\n\na:one\nc.bmhp:A\nc.cdfa:B\nz:last\\\\\n\n";
const char* const listing = "b(2 1): two %s\\n%d\nm:mid\\\\\n\na:one\nc.bmhp:A\nc.cdfa:B\nz:last\\\\\n\n";

TEST(Errmsgc, CompilesListsAndLooksUpInEveryByteOrder) {
    const Scratch folder;
    const std::string source = folder.write("catalogue.msg", catalogue);
    const std::string output = folder.file("out.err");
    ASSERT_EQ(system(("touch -d 2040-01-01 " + source).c_str()), 0) << "seconds of more than 32 bits";
    for (const char* const order : {"", "--order little ", "--order big ", "--order mixed ", "--order 1230 "}) {
        expect(order + ("-o " + output + " " + source), 0, "");
        ASSERT_EQ(system(("touch -d 2040-01-01 " + output).c_str()), 0);
        expect("--check " + output, 0, "");
        expect("--list " + output, 0, listing);
        expect("--get b " + output, 0, " two %s\n%d\n");
        expect("--get m " + output, 0, "mid\\\n");
        expect("--get c.cdfa " + output, 0, "B\n");
        expect("--get z " + output, 0, "last\\\n");
        expect("--get x " + output, 1, "errmsgc: " + output + " has no text for \"x\"\n");
    }
    struct statx status {};
    EXPECT_EQ(statx(AT_FDCWD, output.c_str(), 0, STATX_MODE, &status), 0);
    const mode_t mask = umask(0);
    umask(mask);
    EXPECT_EQ(status.stx_mode & 0777, 0666 & ~mask);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 2);
}

TEST(Errmsgc, RefusesFaultyCatalogues) {
    const Scratch folder;
    const std::pair<std::string, std::string> cases[] = {
        // text, and the fault behind the file's name
        {"a:x\n\na : y\n", " near line 3: symbol \"a\" already defined near line 1\n"},
        {"a:x\\\n" + std::string(2050, 'y') + "\n", " near line 2: entry too long\n"},
        {std::string("a:x\0y\n", 6), " near line 1: zero byte\n"},
        {"a:x\nb:y\\\n", " near line 2: unexpected eof\n"},
    };
    const std::string output = folder.write("out.err", "kept");
    for (const auto& [text, fault] : cases) {
        const std::string source = folder.write("catalogue.msg", text);
        expect("-o " + output + " " + source, 1, source + fault);
        EXPECT_EQ(contentsOf(output), "kept");
    }
    const std::string longest = folder.write("longest.msg", "a:\\\n" + std::string(2044, 'y') + "\\\\\n\n");
    for (const std::string& good : {longest, folder.write("empty.msg", "")}) {
        expect("-o " + output + " " + good, 0, "");
        expect("--check " + output, 0, "");
    }
    EXPECT_EQ(mkfifo(folder.file("pipe").c_str(), 0600), 0);
    for (const std::string& unreadable : {folder.file("missing"), folder.path(), folder.file("pipe")})
        EXPECT_EQ(errmsgc("-o " + output + " " + unreadable).status, 1);
    EXPECT_EQ(errmsgc("--list " + folder.file("pipe")).status, 1);
    EXPECT_EQ(errmsgc("-o /nonexistent/out.err " + longest).status, 1);
}

TEST(Errmsgc, RefusesWrongCommandLines) {
    for (const char* const arguments : {"", "file", "-o out", "--order 0122 -o out file", "--order 01234 -o out file",
                                        "--list --check f", "--check -o out f", "--unknown f"})
        EXPECT_EQ(errmsgc(arguments).status, 2) << arguments;
    const Outcome help = errmsgc("--help");
    EXPECT_EQ(help.status, 0);
    EXPECT_TRUE(help.output.starts_with("Usage: errmsgc"));
    EXPECT_EQ(errmsgc("--help >/dev/full").status, 1);
}

TEST(Errmsgc, CheckFindsEveryKindOfDamage) {
    const Scratch folder;
    const std::string good = compileText(catalogue);
    size_t keyed = 20, occupied = 20;
    while (wordAt(good, keyed + 4) == 0)
        keyed += 12;
    while (wordAt(good, occupied + 8) == 0 || wordAt(good, occupied + 4) != 0)
        occupied += 12;
    const struct {
        size_t position;
        uint32_t value;
        const char* fault;
    } cases[] = {
        {0, 0, "the header is not valid"},         {12, 0x10000000, "reaches beyond the end"},
        {16, 20, "the text begins at 20"},         {16, 0xFFFFFFFF, "the text begins at 4294967295"},
        {keyed, 1, "the hash is not that of"},     {keyed + 4, 0, "shares its hash but has no key"},
        {keyed + 4, 20, "the key is not"},         {occupied + 8, 0xFFFFFFF0, "no entry at 4294967280"},
        {occupied, 1, "is not found by its hash"},
    };
    for (const auto& [position, value, fault] : cases) {
        std::string image = good;
        setWord(image, position, value);
        const Outcome run = errmsgc("--check " + folder.write("damaged.err", image));
        EXPECT_EQ(run.status, 1) << fault;
        EXPECT_NE(run.output.find(fault), std::string::npos) << run.output;
        EXPECT_NE(errmsgc("--get b " + folder.file("damaged.err")).status, -1);
    }
    for (size_t size = 0; size < good.size(); size += 7)
        EXPECT_EQ(errmsgc("--check " + folder.write("cut.err", good.substr(0, size))).status, 1) << size;
}

} // namespace
