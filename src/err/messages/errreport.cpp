// The report of a client error, line by line.
#include "errmsg.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "err/messages/errformat.h"

namespace {

constexpr size_t lineColumns = 80;
constexpr size_t breakColumns = 65; // from here on a space ends the line
constexpr size_t secondColumn = 24; // where the later pieces of a line begin
constexpr int errRtInternal = 2183;
constexpr int errFatalInternal = 4126;

bool takesTwoColumns(char c) {
    const bool control = static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
    return control && c != '\r' && c != '\n' && c != '\t' && c != '\a';
}

// Prints a text in lines. A text that is not terminated ends with its array.
void writeErrStr(ErrMsgPrinterFuncType* msgRoutine, std::string_view text) {
    char line[lineColumns + 1];
    size_t length = 0;
    size_t columns = 0;
    const auto emit = [&] {
        line[length] = 0;
        msgRoutine(line);
        msgRoutine("\n");
        length = 0;
        columns = 0;
    };
    for (const char c : text) {
        if (columns >= lineColumns || c == '\n' || (c == ' ' && columns >= breakColumns)) {
            emit();
            if (c == '\n' || c == ' ') {
                continue;
            }
        }
        line[length++] = c;
        columns += takesTwoColumns(c) ? 2 : 1;
    }
    emit();
}

// A line that is made of several messages.
class ReportLine {
public:
    ReportLine() : out(text, sizeof text) {}

    template <class... Args>
    void append(const char* sym, const char* kinds, Args... args) {
        ErrMsgStrType piece;
        ErrMsgSymToText(sym, piece, sizeof piece, kinds, args...);
        out.appendCut(piece);
    }
    void padToSecondColumn() {
        while (out.length() < secondColumn) {
            out.appendCut(" ");
        }
    }
    void print(ErrMsgPrinterFuncType* msgRoutine) { msgRoutine(text); }

private:
    ErrMsgStrType text;
    BoundedText out;
};

const char* categorySymbol(const KciErrSType& error) {
    if (error.category != KCI_CATEGORY_SYSTEM) {
        return "errmsg.line3e";
    }
    switch (error.number) {
    case errRtInternal:
        return "errmsg.line3b";
    case errFatalInternal:
        return "errmsg.line3c";
    default:
        return "errmsg.line3d";
    }
}

void writeLineOne(ErrMsgPrinterFuncType* msgRoutine, const KciErrSType& error, int errorNum, int errsInProgress) {
    ReportLine line;
    if (errsInProgress >= 2) {
        line.append("errmsg.line1", "dd", errorNum, errsInProgress);
    } else {
        line.append("errmsg.line1a", "");
    }
    line.padToSecondColumn();
    line.append(error.fatal ? "errmsg.line1b" : "errmsg.line1c", "");
    line.print(msgRoutine);
    msgRoutine("\n");
}

void writeLineThree(ErrMsgPrinterFuncType* msgRoutine, const KciErrSType& error, BoolType displayOops) {
    ErrMsgStrType word;
    ErrMsgSymToText(categorySymbol(error), word, sizeof word, "");
    ReportLine line;
    if (displayOops) {
        line.append("errmsg.line3f", "dsd", static_cast<int32_t>(error.category), word, error.number);
    } else {
        line.append("errmsg.line3g", "sd", word, error.number);
    }
    line.padToSecondColumn();
    line.append("errmsg.line3h", "d", error.argCount);
    if (displayOops) {
        line.append("errmsg.line3i", "d", static_cast<int32_t>(error.context));
    }
    line.print(msgRoutine);
    msgRoutine("\n");
}

} // namespace

void ErrMsgWriteError(ErrMsgPrinterFuncType* msgRoutine, ErrMsgObjPrinterFuncType* objPrinter,
                      const KciErrSType* theError, int errorNum, BoolType displayOops, int errsInProgress) {
    msgRoutine("-----------------------------------------------------\n");
    writeLineOne(msgRoutine, *theError, errorNum, errsInProgress);
    writeErrStr(msgRoutine, {theError->message, strnlen(theError->message, sizeof theError->message)});
    writeLineThree(msgRoutine, *theError, displayOops);
    const int arguments = std::min(theError->argCount, KCI_ERR_MAX_ARGS);
    for (int j = 0; j < arguments; ++j) {
        ErrMsgStrType label;
        ErrMsgSymToText("errmsg.line4", label, sizeof label, "d", j + 1);
        msgRoutine(label);
        objPrinter(msgRoutine, theError->args[j]);
        msgRoutine("\n");
    }
}
