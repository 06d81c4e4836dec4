#include "near/near.h"

#include "kcirtl/libraryfile.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <new>

namespace remote {

namespace {

constexpr int waitStep = 1'000; // milliseconds between two looks whether the host is still there
// Beside what an answer needs: its error, a text, and what the host can know ahead.
constexpr uint64_t answerSlack = 8 * 1024;

char* copyOf(const char* text) {
    return text != nullptr ? strdup(text) : nullptr;
}

} // namespace

Near& near() {
    // Never destroyed: the process may end while one of its threads is in a call.
    alignas(Near) static char place[sizeof(Near)];
    static Near* const theNear = new (place) Near;
    return *theNear;
}

// --- the host process ----------------------------------------------------------------------------------------------

bool Near::serve(const char* givenFile, Problem& problem) {
    if (state == State::serving) {
        problem.set("the host process already serves %s", file);
        return false;
    }
    FixedText<1024> path;
    if (givenFile != nullptr) {
        path.set("%s", givenFile);
    } else {
        // libkcirpc67.so serves the libkcilnk67.so of its folder.
        FixedText<1024> folder;
        FixedText<256> name;
        char* flavour = nullptr;
        if (!ownPlace(folder, name) || (flavour = strstr(name.text, "rpc")) == nullptr) {
            problem.set("the remote client library is not called lib...rpc....so; there is no library to serve");
            return false;
        }
        std::copy_n("lnk", 3, flavour);
        path.set("%s%s", folder.text, name.text);
    }
    char* const copy = copyOf(path.text);
    if (copy == nullptr) {
        problem.set("no memory to serve %s", path.text);
        return false;
    }
    free(file);
    file = copy;
    wordSize = libraryWordSize(path.text);
    if (wordSize == 0) {
        // A name for the dynamic linker's search, or a file whose failure the host tells.
        wordSize = ownWordSize;
    }
    return startHost(problem);
}

void Near::serveDefault() {
    if (state == State::nothingServed || state == State::unloaded) {
        serve(nullptr, startProblem);
    }
}

bool Near::startHost(Problem& problem) {
    pthread_mutex_lock(&breakLock);
    const bool started = host.start(wordSize, file, problem);
    pthread_mutex_unlock(&breakLock);
    if (!started) {
        return false;
    }
    state = State::serving;
    lackingEntries = host.block().control().lacking.load(std::memory_order_relaxed);
    ++hostsStarted;
    sequence = 0;
    breakSequence = 0;
    usedAhead = 0;
    return true;
}

void Near::stop() {
    if (state == State::serving) {
        state = State::unloaded;
        host.hangUp(false);
        pthread_mutex_lock(&breakLock);
        host.stop();
        pthread_mutex_unlock(&breakLock);
        endSessions();
    }
}

void Near::leave() {
    if (state == State::serving) {
        leaving = true;
        host.hangUp(false);
        host.join();
        host.closeDescriptors();
    }
}

void Near::forgetInFork() {
    if (state == State::serving) {
        state = State::forked;
        host.forgetInFork();
        forgetAhead();
    }
}

void Near::lose(const char* why) {
    // Whoever waits for the answer to a break holds the lock until the host is gone.
    if (!leaving) {
        host.hangUp(why != nullptr);
        pthread_mutex_lock(&breakLock);
        host.stop();
        pthread_mutex_unlock(&breakLock);
    }
    state = State::ended;
    forgetAhead();
    endSessions();
    if (why != nullptr) {
        fail(ErrorNumber::hostEnded, true, "the client library's host process was ended: %s", why);
    } else {
        fail(ErrorNumber::hostEnded, true, "%s", host.ending());
    }
}

bool Near::restart() {
    if (!startHost(startProblem)) {
        fail(ErrorNumber::cannotStart, false, "%s", startProblem.text);
        return false;
    }
    if (appName != nullptr) {
        call<EntryId::KciInitAppName>({appName, appFlag});
    }
    return !initialized || call<EntryId::KciInit>({}) != FALSE;
}

// --- one exchange --------------------------------------------------------------------------------------------------

bool Near::ready() {
    switch (state) {
    case State::serving:
        return true;
    case State::nothingServed:
        fail(ErrorNumber::cannotStart, false, "%s", startProblem.text);
        break;
    case State::ended:
        fail(ErrorNumber::sessionEnded, true, "the session ended with its host process");
        break;
    case State::unloaded:
        fail(ErrorNumber::badSession, false, "the client library was unloaded");
        break;
    case State::forked:
        fail(ErrorNumber::sessionEnded, true,
             "the client library's sessions belong to the process that this one was "
             "forked from");
        break;
    }
    return false;
}

ByteType* Near::prepare(uint64_t size, uint64_t answerRoom) {
    if (!ready()) {
        return nullptr;
    }
    Block& block = host.block();
    const uint64_t needed = size + answerAlignment + answerRoom + answerSlack;
    if (needed > block.bodySize()) {
        const int problem = needed <= SIZE_MAX ? block.grow(static_cast<size_t>(needed)) : ENOMEM;
        if (problem != 0) {
            fail(ErrorNumber::outOfMemory, false, "no memory for a request of %llu bytes to the host process: %s",
                 static_cast<unsigned long long>(needed), strerror(problem));
            return nullptr;
        }
    }
    return block.body();
}

bool Near::exchange(EntryId id, size_t size) {
    constexpr auto relaxed = std::memory_order_relaxed;
    Block& block = host.block();
    Control& control = block.control();
    const size_t answerAt = (size + answerAlignment - 1) / answerAlignment * answerAlignment;
    control.entry.store(static_cast<uint32_t>(id), relaxed);
    control.requestSize.store(static_cast<uint32_t>(size), relaxed);
    control.answerAt.store(static_cast<uint32_t>(answerAt), relaxed);
    control.bodySize.store(static_cast<uint32_t>(block.bodySize()), relaxed);
    control.newFrame.store(newFrame ? 1 : 0, relaxed);
    control.usedAhead.store(usedAhead, relaxed);
    newFrame = false;
    usedAhead = 0;
    elements = Reader();
    ++exchanges;
    const uint32_t before = sequence;
    sequence = following(sequence);
    publish(control.request, sequence, control.hostAsleep);
    uint32_t answered = before;
    while (answered == before) {
        answered = awaitChange(control.answer, before, control.nearAsleep, spinning, waitStep);
    }
    const uint32_t made = control.aheadEnd.load(std::memory_order_acquire);
    if (answered == goneMark || made == goneMark) {
        lose(nullptr);
        return false;
    }
    const size_t end = control.answerEnd.load(relaxed);
    if (answered != sequence || end < answerAt || end % 4 != 0 || !takeAhead(end, made)) {
        lose("it gave an answer that is none");
        return false;
    }
    answer = Reader(block.body() + answerAt, end - answerAt);
    return true;
}

bool Near::takeAhead(size_t begin, uint32_t made) {
    const Block& block = host.block();
    const size_t end = made & ~moreComing;
    if (begin > end || end > block.bodySize() || end % 4 != 0) {
        return false;
    }
    ahead = Reader(block.body() + begin, end - begin);
    aheadEnd = made;
    hasAhead = mayHaveAhead();
    return true;
}

bool Near::awaitAhead() {
    Control& control = host.block().control();
    while (ahead.atEnd() && (aheadEnd & moreComing) != 0) {
        const uint32_t made = awaitChange(control.aheadEnd, aheadEnd, control.nearAsleep, spinning, waitStep);
        if (made == goneMark) {
            // The next exchange tells.
            forgetAhead();
        } else if (!takeAhead(aheadEnd & ~moreComing, made)) {
            host.hangUp(true);
            forgetAhead();
        }
    }
    return !ahead.atEnd();
}

void Near::dropAhead() {
    while ((aheadEnd & moreComing) != 0) {
        ahead = Reader();
        awaitAhead();
    }
    forgetAhead();
}

void Near::forgetAhead() {
    ahead = Reader();
    aheadEnd = 0;
    hasAhead = false;
    savedElements = 0;
}

bool Near::savedAhead(OopType oop) {
    if (savedElements == 0) {
        Reader next = awaitAhead() ? ahead : Reader();
        if (next.get<uint32_t>() != savedRun) {
            return false;
        }
        savedElements = next.get<uint32_t>();
        ahead = next;
    }
    // An element that carries its value in itself is not saved.
    OopType element = KCI_OOP_ILLEGAL;
    while (((element & 2) != 0 || element == KCI_OOP_ILLEGAL) && elements.ok()) {
        element = elements.get<OopType>();
    }
    if (element != oop || savedElements == 0) {
        dropAhead();
        return false;
    }
    --savedElements;
    ++usedAhead;
    hasAhead = savedElements > 0 || mayHaveAhead();
    return true;
}

void Near::saveObjects(const OopType* oops, ArraySizeType count) {
    if (!hasAhead || count != 1 || oops == nullptr || !savedAhead(*oops)) {
        call<EntryId::KciSaveObjs>({oops, count});
    }
}

void Near::requestBreak(EntryId kind) {
    pthread_mutex_lock(&breakLock);
    if (host.running()) {
        Control& control = host.block().control();
        breakSequence = following(breakSequence);
        control.breakEntry.store(static_cast<uint32_t>(kind), std::memory_order_relaxed);
        publish(control.breakRequest, breakSequence, control.breakAsleep);
        // A break that the client library is slow to take stands, and is not waited for any longer.
        uint32_t answered = control.breakAnswer.load();
        uint32_t before = ~answered;
        while (answered != before && answered != breakSequence && answered != goneMark) {
            before = answered;
            answered = awaitChange(control.breakAnswer, before, control.breakerAsleep, breakSpinning, waitStep);
        }
    }
    pthread_mutex_unlock(&breakLock);
}

// --- errors --------------------------------------------------------------------------------------------------------

void Near::fail(ErrorNumber number, bool fatal, const char* format, ...) {
    KciErrSType error{};
    error.category = KCI_CATEGORY_SYSTEM;
    error.number = static_cast<int32_t>(number);
    error.context = KCI_OOP_NIL;
    error.fatal = fatal ? TRUE : FALSE;
    va_list args;
    va_start(args, format);
    vsnprintf(error.message, sizeof error.message, format, args);
    va_end(args);
    record(error);
}

void Near::record(const KciErrSType& error) {
    PendingError& holder = current != nullptr ? current->error : loose;
    holder.pending = true;
    holder.record = error;
}

// An error that concerns no session comes first: the call that left it was the latest.
BoolType Near::takeError(KciErrSType* error) {
    PendingError* const holder = loose.pending ? &loose : current != nullptr ? &current->error : nullptr;
    if (holder == nullptr || !holder->pending) [[likely]] {
        return FALSE;
    }
    holder->pending = false;
    if (error != nullptr) {
        *error = holder->record;
    }
    // After a fatal error the session may not be selected any longer.
    if (holder->record.fatal != FALSE) {
        forgetCurrentSession();
    }
    return TRUE;
}

// --- sessions ------------------------------------------------------------------------------------------------------

Session* Near::sessionOf(KciSessionIdType number) {
    Session* session = sessions;
    while (session != nullptr && session->number != number) {
        session = session->next;
    }
    return session;
}

// What it has to tell is told as an error of no session.
void Near::forgetCurrentSession() {
    if (current != nullptr && current->error.pending) {
        loose = current->error;
        current->error.pending = false;
    }
    current = nullptr;
}

// The sessions stay known, so that who asks is told that they ended.
void Near::endSessions() {
    current = nullptr;
}

void Near::select(KciSessionIdType number) {
    dropAhead();
    newFrame = true;
    Session* const session = current != nullptr && current->number == number ? current : sessionOf(number);
    if (session != nullptr && (session->host != hostsStarted || state != State::serving)) {
        current = nullptr;
        fail(ErrorNumber::sessionEnded, true, "the session ended with its host process");
        return;
    }
    if (session != nullptr && session == current) {
        return;
    }
    current = nullptr;
    if (session == nullptr && hostsStarted > 1) {
        // The host's number of that value may be another session.
        fail(ErrorNumber::badSession, false, "%d is not the number of a session", number);
        return;
    }
    call<EntryId::KciSetSessionId>({session != nullptr ? session->hostNumber : number});
    if (!loose.pending && state == State::serving) {
        current = session;
        if (session == nullptr) {
            currentIs(number);
        }
    }
}

// Makes the host's session of that number the current one.
KciSessionIdType Near::currentIs(KciSessionIdType hostNumber) {
    current = nullptr;
    if (hostNumber == 0) {
        return 0;
    }
    KciSessionIdType highest = 0;
    for (Session* session = sessions; session != nullptr; session = session->next) {
        if (session->host == hostsStarted && session->hostNumber == hostNumber) {
            current = session;
            return session->number;
        }
        highest = std::max(highest, session->number);
    }
    auto* const session = static_cast<Session*>(calloc(1, sizeof(Session)));
    if (session == nullptr) {
        // Without a place of its own it is asked for every time.
        return hostNumber;
    }
    session->next = sessions;
    session->number = sessionOf(hostNumber) == nullptr ? hostNumber : highest + 1;
    session->hostNumber = hostNumber;
    session->host = hostsStarted;
    session->result = KCI_OOP_NIL;
    sessions = session;
    current = session;
    return session->number;
}

KciSessionIdType Near::currentSession() {
    const KciSessionIdType number = call<EntryId::KciGetSessionId>({});
    return loose.pending || state != State::serving ? number : currentIs(number);
}

BoolType Near::logIn(const char* user, const char* password) {
    if (state == State::ended && !restart()) {
        return FALSE;
    }
    forgetCurrentSession();
    return call<EntryId::KciLogin>({user, password});
}

void Near::logOut() {
    Session* const session = current;
    if (session != nullptr) {
        session->error.pending = false;
    }
    call<EntryId::KciLogout>({});
    if (session == nullptr || state != State::serving) {
        return;
    }
    const bool failed = session->error.pending;
    forgetCurrentSession();
    if (failed) {
        return;
    }
    Session** place = &sessions;
    while (*place != session) {
        place = &(*place)->next;
    }
    *place = session->next;
    free(session);
}

// --- the library ---------------------------------------------------------------------------------------------------

BoolType Near::initialize() {
    const BoolType done = call<EntryId::KciInit>({});
    initialized = initialized || done != FALSE;
    return done;
}

void Near::initializeName(const char* name, BoolType flag) {
    char* const copy = copyOf(name);
    if (copy == nullptr && name != nullptr) {
        fail(ErrorNumber::outOfMemory, false, "no memory for the application's name");
        return;
    }
    free(appName);
    appName = copy;
    appFlag = flag;
    call<EntryId::KciInitAppName>({name, flag});
}

void Near::setNet(const char* server, const char* hostUser, const char* hostPassword, const char* netService) {
    // Every login begins here.
    if (state == State::ended && !restart()) {
        return;
    }
    call<EntryId::KciSetNet>({server, hostUser, hostPassword, netService});
}

void Near::shutDown() {
    forgetCurrentSession();
    if (state == State::serving) {
        call<EntryId::KciShutdown>({});
    }
    initialized = false;
}

void Near::unload() {
    if (state == State::serving) {
        call<EntryId::KciUnload>({});
    }
    stop();
}

const char* Near::version() {
    const char* const text = call<EntryId::KciVersion>({});
    if (text == nullptr) {
        return nullptr;
    }
    // Copied once, within the block, wherever its end may be by now.
    const Block& block = host.block();
    const auto room = static_cast<size_t>(reinterpret_cast<const char*>(block.body() + block.bodySize()) - text);
    const size_t length = strnlen(text, std::min(room, sizeof versionText - 1));
    memcpy(versionText, text, length);
    versionText[length] = '\0';
    return versionText;
}

} // namespace remote
