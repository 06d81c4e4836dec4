#include <cstdio>
#include <string_view>

#include "errmsg.h"
#include "hosttime.h"

int main() {
    ErrMsgInit();
    char text[200];
    ErrMsgSymToText("no.such.symbol", text, sizeof text, "d", 42);
    const std::string_view message = text;
    std::printf("%.*s\n", static_cast<int>(message.size()), message.data());
}
