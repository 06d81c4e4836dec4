// Commits the fault that it is asked for, so that a clean run of the sanitizers can be trusted.
#include <climits>
#include <cstdlib>
#include <string_view>
#include <thread>

int main(int, char** argv) {
    static int shared;
    volatile int zero = 0;
    const std::string_view fault = argv[1];
    if (fault == "overrun") {
        char* block = static_cast<char*>(std::malloc(8));
        block[8 + zero] = 1;
        return block[8 + zero];
    }
    if (fault == "overflow") {
        const int most = INT_MAX - zero;
        return most + 1;
    }
    std::thread other([] { ++shared; });
    ++shared;
    other.join();
    return shared;
}
