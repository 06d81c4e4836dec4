// The host: the input is what the near side leaves in the block, request by request, and what the client library
// answers. The client library here reads all that it is handed and fills all the room that it is given.
#include <fuzzer/FuzzedDataProvider.h>
#include <sanitizer/asan_interface.h>

#include "host/server.h"

using namespace remote;

static FuzzedDataProvider* input;

static void fill(void* to, size_t size) {
    if (size > 0) {
        memset(to, 0, size);
        input->ConsumeData(to, size);
    }
}

template <EntryId id, class Result, class... Arguments>
static void serve(Result (*KciRtlJumpSType::*member)(Arguments...), KciRtlJumpSType& table) {
    table.*member = [](Arguments... given) -> Result {
        using Row = RowOf<id>;
        const std::tuple<Arguments...> arguments(given...);
        forEachArgument<Row>([&](auto i) {
            [[maybe_unused]] auto argument = std::get<i>(arguments);
            constexpr Role role = Row::roles[i];
            constexpr bool isArray = role == Role::arrayIn || role == Role::arrayOut;
            static OopType cell;
            if constexpr (role == Role::resultCell) {
                fill(&cell, sizeof cell);
                if (argument != nullptr) {
                    *argument = input->ConsumeBool() ? &cell : nullptr;
                }
            } else if constexpr (role == Role::text) {
                std::string(argument != nullptr ? argument : "");
            } else if constexpr (std::is_pointer_v<decltype(argument)>) {
                const size_t size = argument == nullptr ? 0
                                    : isArray           ? ArrayOf<Row>::bytes(arguments)
                                                        : sizeof *argument;
                if constexpr (role == Role::arrayIn || role == Role::recordIn) {
                    std::string(reinterpret_cast<const char*>(argument), size);
                } else {
                    // How much there is comes after it, and need not be true.
                    fill(argument, size);
                }
            }
        });
        if constexpr (std::is_pointer_v<Result>) {
            return input->ConsumeBool() ? "version" : nullptr;
        } else if constexpr (!std::is_void_v<Result>) {
            Result result;
            fill(&result, sizeof result);
            return result;
        }
    };
}

static KciRtlJumpSType makeTable() {
    KciRtlJumpSType table{};
#define ROW(name, ...) serve<EntryId::name>(&KciRtlJumpSType::name, table);
#define SECRET ROW
#include "wire/rows.inc"
    table.KciErr = [](KciErrSType* error) -> BoolType {
        const bool failed = input->ConsumeIntegralInRange(0, 15) == 15;
        fill(error, failed ? sizeof *error : 0);
        return failed;
    };
    return table;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const KciRtlJumpSType table = makeTable();
    static Block block;
    if (block.bodySize() == 0 && (block.create() != 0 || block.grow(2 * firstBodySize) != 0)) {
        abort();
    }
    FuzzedDataProvider provider(data, size);
    input = &provider;
    Server server(table, block);
    // What lies behind the body as the near side says it is, is not the host's.
    ASAN_POISON_MEMORY_REGION(block.body() + firstBodySize, block.bodySize() - firstBodySize);
    Control& control = block.control();
    for (bool going = true; going && provider.remaining_bytes() > 0; server.afterAnswer()) {
        const std::string request = provider.ConsumeRandomLengthString(256);
        memcpy(block.body(), request.data(), request.size());
        const auto mayLie = [&, lies = provider.ConsumeIntegralInRange(0, 15) == 15](size_t truth) {
            return lies ? provider.ConsumeIntegral<uint32_t>() : static_cast<uint32_t>(truth);
        };
        control.entry = provider.ConsumeIntegralInRange<uint32_t>(0, entryCount);
        control.requestSize = mayLie(request.size());
        control.answerAt = mayLie((request.size() + 15) & ~size_t{15});
        control.bodySize = std::min<uint32_t>(mayLie(firstBodySize), firstBodySize);
        control.newFrame = provider.ConsumeBool();
        control.usedAhead = provider.ConsumeIntegralInRange<uint32_t>(0, 60);
        going = server.answerRequest();
        if (going && (control.answerAt > control.answerEnd || control.answerEnd > control.aheadEnd ||
                      control.aheadEnd > control.bodySize || control.aheadEnd % 4 != 0)) {
            abort();
        }
    }
    ASAN_UNPOISON_MEMORY_REGION(block.body(), block.bodySize());
    return 0;
}
