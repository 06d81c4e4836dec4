// Commits the fault that it is asked for, so that a clean run of the sanitizers can be trusted.

#include <climits>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace {

volatile int zero = 0;
int shared;

int overrun() {
    char* block = static_cast<char*>(std::malloc(8));
    block[8 + zero] = 1;
    return block[8 + zero];
}

int overflow() {
    int most = INT_MAX - zero;
    return most + 1;
}

int race() {
    std::thread other([] { ++shared; });
    ++shared;
    other.join();
    return shared;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    if (std::strcmp(argv[1], "overrun") == 0)
        return overrun();
    if (std::strcmp(argv[1], "overflow") == 0)
        return overflow();
    return race();
}
