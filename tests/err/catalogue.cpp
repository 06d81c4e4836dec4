#include "err/catalogue.h"

#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>

#include "hostdebug.h"

std::string compileText(const std::string& text, const errmsgc::Transform& transform) {
    const Scratch folder;
    std::vector<errmsgc::Entry> entries;
    EXPECT_TRUE(errmsgc::readCatalogue(folder.write("catalogue.msg", text), entries));
    return errmsgc::buildImage(entries, transform);
}

OpenCatalogue::OpenCatalogue(const std::string& image) : name(folder.write("messages.err", image)) {
    setenv("KESTRUNE_LANG", name.c_str(), 1);
    ErrMsgInit();
}

void countHookCalls() {
    noHalt = FALSE;
    coreDumpEnabled = 0;
    HostOnDebug([] {
        ++hookCalls;
        ErrMsgGetPanicked();
        message("from.the.hook", "");
    });
}

uint32_t wordAt(const std::string& image, size_t position) {
    uint32_t value = 0;
    memcpy(&value, image.data() + position, sizeof value);
    return value;
}

void setWord(std::string& image, size_t position, uint32_t value) {
    memcpy(image.data() + position, &value, sizeof value);
}
