// gstack PID: prints the C stack of every thread of a process, with gdb. Where gdb is not there or may not look into
// the process, it says so and prints what /proc tells of the threads. The fault report of a failing process runs it: it
// ends by itself after a minute, or after $GSTACK_TIME_OUT seconds, whatever gdb does.
//
// Exit status: 0 stacks were printed, 1 they were not, 2 wrong usage.
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <string>
#include <string_view>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {
using std::string;
using std::string_view;
using Clock = std::chrono::steady_clock;

std::chrono::seconds timeLimit() {
    constexpr int defaultSeconds = 60;
    const char* value = getenv("GSTACK_TIME_OUT");
    const int seconds = value != nullptr ? atoi(value) : 0;
    return std::chrono::seconds(seconds > 0 ? std::min(seconds, 3600) : defaultSeconds);
}

// Exit status of a child that found no gdb, as a shell has it.
constexpr int noSuchProgram = 127;

// What became of gdb's run.
struct DebuggerRun {
    bool printedStacks = false;
    bool timedOut = false;
    int status = 0;  // as wait gives it
    string messages; // what gdb said beside the stacks, cut to a few lines
};

string firstLine(const string& file) {
    std::ifstream in(file);
    string line;
    std::getline(in, line);
    return line;
}

// The value of a line "name:<tab>value" of /proc/.../status.
string statusValue(const string& folder, string_view name) {
    std::ifstream in(folder + "/status");
    for (string line; std::getline(in, line);) {
        if (line.starts_with(name) && line.size() > name.size() + 1 && line[name.size()] == ':') {
            return line.substr(line.find_first_not_of(" \t", name.size() + 1));
        }
    }
    return "unknown";
}

string processFolder(pid_t pid) {
    return "/proc/" + std::to_string(pid);
}

bool isStopped(pid_t pid) {
    return statusValue(processFolder(pid), "State").starts_with("T");
}

[[noreturn]] void runDebugger(pid_t pid, int output) {
    // A group of its own, so that whatever it starts ends with it; and no longer than this program.
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    dup2(null, STDIN_FILENO);
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    // No symbols from servers in the network.
    unsetenv("DEBUGINFOD_URLS");
    const string pidText = std::to_string(pid);
    execlp("gdb", "gdb", "--batch", "--nx", "-iex", "set auto-load off", "-ex", "set pagination off", "-ex",
           "set width 0", "-p", pidText.c_str(), "-ex", "thread apply all bt 200", nullptr);
    _exit(errno == ENOENT ? noSuchProgram : noSuchProgram - 1);
}

// Sorts gdb's output: stacks go to standard output at once, the rest is kept.
class OutputSorter {
public:
    explicit OutputSorter(DebuggerRun& run) : run(run) {}
    ~OutputSorter() { takeLine(partialLine); }

    void take(string_view text) {
        for (size_t end; (end = text.find('\n')) != string_view::npos; text.remove_prefix(end + 1)) {
            partialLine += text.substr(0, end);
            takeLine(partialLine);
            partialLine.clear();
        }
        partialLine += text;
    }

private:
    void takeLine(const string& line) {
        constexpr size_t longestMessages = 2000;
        if (line.starts_with("Thread ") && line.find("LWP") != string::npos) {
            printf("%s\n", line.c_str());
        } else if (line.starts_with("#")) {
            run.printedStacks = true;
            printf("%s\n", line.c_str());
        } else if (!line.empty() && run.messages.size() + line.size() < longestMessages) {
            run.messages += "  " + line + "\n";
        }
    }

    DebuggerRun& run;
    string partialLine;
};

int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::max<long long>(left, 0));
}

// Reads until the end of the output; FALSE when the time is over.
bool readOutput(int input, OutputSorter& sorter, Clock::time_point deadline) {
    std::array<char, 8192> buffer;
    for (;;) {
        pollfd channel{input, POLLIN, 0};
        const int ready = poll(&channel, 1, millisecondsUntil(deadline));
        if (ready == 0) {
            return false;
        }
        if (ready < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        const ssize_t count = read(input, buffer.data(), buffer.size());
        if (count <= 0) {
            return true;
        }
        sorter.take({buffer.data(), static_cast<size_t>(count)});
    }
}

bool waitUntil(pid_t child, int& status, Clock::time_point deadline) {
    for (;;) {
        if (waitpid(child, &status, WNOHANG) != 0) {
            return true;
        }
        if (Clock::now() >= deadline) {
            return false;
        }
        poll(nullptr, 0, 10);
    }
}

DebuggerRun printStacksWithDebugger(pid_t pid) {
    DebuggerRun run;
    std::array<int, 2> ends;
    if (pipe2(ends.data(), O_CLOEXEC) != 0) {
        run.messages = "  pipe: " + string(strerror(errno)) + "\n";
        return run;
    }
    const bool wasStopped = isStopped(pid);
    const auto deadline = Clock::now() + timeLimit();
    const pid_t debugger = fork();
    if (debugger == 0) {
        runDebugger(pid, ends[1]);
    }
    close(ends[1]);
    if (debugger < 0) {
        run.messages = "  fork: " + string(strerror(errno)) + "\n";
    } else {
        {
            OutputSorter sorter(run);
            run.timedOut = !readOutput(ends[0], sorter, deadline);
        }
        if (run.timedOut || !waitUntil(debugger, run.status, deadline)) {
            run.timedOut = true;
            kill(-debugger, SIGKILL);
            waitpid(debugger, &run.status, 0);
            // A debugger that dies may leave the process stopped.
            if (!wasStopped && isStopped(pid)) {
                kill(pid, SIGCONT);
            }
        }
    }
    close(ends[0]);
    return run;
}

void explainFailure(pid_t pid, const DebuggerRun& run) {
    if (WIFEXITED(run.status) && WEXITSTATUS(run.status) == noSuchProgram) {
        fprintf(stderr, "gstack: gdb is not installed, or not on the PATH; without it no C stacks can be printed.\n");
    } else if (run.timedOut) {
        fprintf(stderr, "gstack: gdb did not finish within %d seconds and was ended.\n",
                static_cast<int>(timeLimit().count()));
    } else {
        fprintf(stderr, "gstack: gdb printed no stacks of process %d. It said:\n%s", pid, run.messages.c_str());
    }
}

std::vector<int> threadsOf(pid_t pid) {
    std::vector<int> threads;
    if (DIR* folder = opendir((processFolder(pid) + "/task").c_str())) {
        while (const dirent* entry = readdir(folder)) {
            if (const int thread = atoi(entry->d_name); thread > 0) {
                threads.push_back(thread);
            }
        }
        closedir(folder);
    }
    std::sort(threads.begin(), threads.end());
    return threads;
}

void printThreads(pid_t pid) {
    printf("Threads of process %d (no stacks):\n", pid);
    for (const int thread : threadsOf(pid)) {
        const string folder = processFolder(pid) + "/task/" + std::to_string(thread);
        const string channel = firstLine(folder + "/wchan");
        printf("Thread %d \"%s\"  state %s  waits in %s\n", thread, firstLine(folder + "/comm").c_str(),
               statusValue(folder, "State").c_str(), channel.empty() || channel == "0" ? "-" : channel.c_str());
    }
}

// 0 when the text is no process id.
pid_t parsePid(string_view text) {
    pid_t pid = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), pid);
    return error == std::errc() && end == text.end() && pid > 0 ? pid : 0;
}
} // namespace

int main(int argc, char** argv) {
    // A failing process starts this program with its own signal settings.
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGCHLD, SIG_DFL);

    const bool asksForHelp = argc == 2 && string_view(argv[1]) == "--help";
    const pid_t pid = argc == 2 ? parsePid(argv[1]) : 0;
    if (pid == 0) {
        fprintf(asksForHelp ? stdout : stderr, "usage: gstack PID\nPrints the C stack of every thread of a process.\n");
        return asksForHelp ? 0 : 2;
    }
    if (access(processFolder(pid).c_str(), F_OK) != 0) {
        fprintf(stderr, "gstack: there is no process %d.\n", pid);
        return 1;
    }
    const DebuggerRun run = printStacksWithDebugger(pid);
    if (!run.printedStacks || run.timedOut) {
        explainFailure(pid, run);
    }
    if (!run.printedStacks) {
        printThreads(pid);
    }
    return run.printedStacks ? 0 : 1;
}
