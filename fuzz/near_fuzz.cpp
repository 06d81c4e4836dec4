// The remote client library: the input is what is called, and what a host leaves in the block for each call. The host
// is asked where the library would wait for it.
#include <fuzzer/FuzzedDataProvider.h>

#include <list>
#include <vector>

#include "near/near.h"

extern "C" const KciRtlJumpSType* KciGetRtlTable();

using namespace remote;

static constexpr size_t longest = 2048; // bytes of one answer, or of answers ahead
static FuzzedDataProvider* input;
static Block* theBlock;

template <EntryId id>
static void callEntry() {
    using Row = RowOf<id>;
    typename Row::Arguments arguments{};
    std::list<std::vector<char>> memory;
    const auto count = input->ConsumeIntegralInRange<ArraySizeType>(0, 200);
    forEachArgument<Row>([&](auto i) {
        auto& argument = std::get<i>(arguments);
        using Argument = std::remove_cvref_t<decltype(argument)>;
        constexpr Role role = Row::roles[i];
        if constexpr (role == Role::count) {
            argument = count;
        } else if constexpr (!std::is_pointer_v<Argument>) {
            argument = input->ConsumeIntegralInRange<uint8_t>(0, 255);
        } else if (input->ConsumeIntegralInRange(0, 7) < 7) {
            // A piece of memory of its own, no longer than what the call says.
            constexpr bool isArray = role == Role::arrayIn || role == Role::arrayOut;
            memory.emplace_back((isArray ? count : 1) * sizeof(Pointee<Argument>));
            argument = reinterpret_cast<Argument>(memory.back().data());
            if constexpr (role == Role::countInOut) {
                *argument = count;
            }
        }
    });
    std::apply(KciGetRtlTable()->*EntryRow<id>::member, arguments);
}

static constexpr void (*calls[])() = {
#define ROW(name, ...) callEntry<EntryId::name>,
#define SECRET ROW
#include "wire/rows.inc"
};

namespace remote {

Spinning::Spinning() : longest(0), budget(0) {}

void publish(Word& word, uint32_t value, const Word&) {
    word = value;
}

// The host's turn.
uint32_t awaitChange(const Word& word, uint32_t, Word&, Spinning&, int) {
    Control& control = theBlock->control();
    if (&word == &control.breakAnswer) {
        return control.breakRequest;
    }
    if (input->remaining_bytes() == 0 || input->ConsumeIntegralInRange(0, 63) == 63) {
        return goneMark;
    }
    const bool lies = input->ConsumeIntegralInRange(0, 15) == 15;
    const auto place = [&](uint32_t from) {
        const std::string bytes =
            from + ::longest > theBlock->bodySize() ? "" : input->ConsumeRandomLengthString(::longest);
        memcpy(theBlock->body() + from, bytes.data(), bytes.size());
        return from + static_cast<uint32_t>(bytes.size() & ~size_t{3});
    };
    uint32_t begin = control.aheadEnd & ~3U;
    if (&word == &control.answer) {
        begin = place(control.answerAt);
        control.answerEnd = lies ? input->ConsumeIntegral<uint32_t>() : begin;
    }
    const uint32_t end = lies ? input->ConsumeIntegral<uint32_t>() : place(begin);
    control.aheadEnd = end | (input->ConsumeBool() ? moreComing : 0);
    return &word == &control.answer ? control.request : control.aheadEnd;
}

template <size_t size>
void FixedText<size>::set(const char*, ...) {}
template struct FixedText<400>;
template struct FixedText<1024>;

bool ownPlace(FixedText<1024>&, FixedText<256>& name) {
    strcpy(name.text, "libkcirpc67.so");
    return true;
}
bool HostProcess::start(int, const char*, Problem&) {
    theBlock = &shared;
    watching = true;
    return shared.create() == 0;
}
void HostProcess::stop() {
    watching = false;
    shared.close();
}
void HostProcess::hangUp(bool) {}
void HostProcess::join() {}
void HostProcess::closeDescriptors() {}
void HostProcess::forgetInFork() {}

} // namespace remote

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider provider(data, size);
    input = &provider;
    // From the beginning: no host process, and nothing known of sessions.
    new (&near()) Near;
    for (KciErrSType error; provider.remaining_bytes() > 0; KciGetRtlTable()->KciErr(&error)) {
        calls[provider.ConsumeIntegralInRange<size_t>(0, entryCount - 1)]();
    }
    near().stop();
    return 0;
}
