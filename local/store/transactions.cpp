// Transactions: what a session has read and changed, whether it can be published, and which versions are still seen.
#include "store/store.h"

#include <algorithm>

namespace local {

// What a commit has found out so far.
struct Store::Session::Publication {
    std::vector<Object*> reached; // the session's objects that its changes lead to
    std::vector<Oop> pending;     // reached, and not followed yet
    size_t nextChange = 0;        // of the changed objects, to be followed
    Object* followed = nullptr;   // and of this one, the slots from a place on
    uint32_t nextSlot = 0;
    uint32_t checkedAt = 0; // how many commits there were when checking began
    int restarts = 0;       // since others committed meanwhile
    size_t nextRead = 0;    // to be checked
    size_t nextKeyRead = 0;
    size_t nextChecked = 0;   // of the changed objects
    std::vector<Oop> toMerge; // unordered bodies of which others have changed other keys
    std::vector<Object*> merged;
    std::forward_list<Superseded> superseded; // what the changes take the place of
};

Store::Session::Session() = default;
Store::Session::~Session() = default;

Store::Session& Store::openSession(SessionId id) {
    Session& session = sessions[id];
    session.mark = own | static_cast<uint32_t>(id);
    try {
        enter(session, commitCount);
    } catch (...) {
        sessions.erase(id);
        throw;
    }
    return session;
}

// What the session made and never published is garbage from now on.
void Store::closeSession(SessionId id) {
    Session& session = sessions.at(id);
    for (Oop oop : session.exported) {
        --entries[indexOf(oop)].exports;
    }
    dropCommit(session);
    dropChanges(session);
    discharge((session.reads.capacity() + 2 * session.keyReads.capacity()) * sizeof(Oop));
    leave(session);
    sessions.erase(id);
}

void Store::enter(Session& session, uint32_t snapshot) {
    ++snapshots[snapshot].sessions;
    session.snapshot = snapshot;
    session.readToken = ++lastToken;
}

void Store::leave(Session& session) {
    auto left = snapshots.find(session.snapshot);
    if (--left->second.sessions == 0) {
        leftOver.splice_after(leftOver.before_begin(), left->second.superseded);
        snapshots.erase(left);
    }
}

// Throws before anything is changed, or not at all.
void Store::beginTransaction(Session& session, uint32_t snapshot) {
    session.changed.reserve(session.changed.size() + session.changedByOthers.size());
    snapshots.try_emplace(snapshot);
    session.changed.merge(session.changedByOthers);
    session.changedByOthers.clear();
    session.reads.clear();
    session.keyReads.clear();
    leave(session);
    enter(session, snapshot);
    reclaim(1000);
}

// --- reads ---------------------------------------------------------------------------------------------------------

namespace {

// Sessions that take turns at an object note it more than once; what is there twice goes before a list grows.
template <class Element>
void addOnce(std::vector<Element>& list, const Element& element) {
    if (list.size() == list.capacity() && list.size() >= 1024) {
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end()), list.end());
        if (list.size() > list.capacity() / 2) {
            list.reserve(list.capacity() * 2);
        }
    }
    list.push_back(element);
}

} // namespace

void Store::noteRead(Session& session, Oop oop) {
    if (&session != &system) {
        size_t before = session.reads.capacity();
        addOnce(session.reads, oop);
        memoryUsed += (session.reads.capacity() - before) * sizeof(Oop);
        entries[indexOf(oop)].reader = session.readToken;
    }
}

void Store::noteKeyRead(Session& session, Oop oop, uint32_t hash) {
    if (&session != &system && (session.keyReads.empty() || session.keyReads.back() != std::pair(oop, hash))) {
        size_t before = session.keyReads.capacity();
        addOnce(session.keyReads, {oop, hash});
        memoryUsed += (session.keyReads.capacity() - before) * 2 * sizeof(Oop);
    }
}

// --- abort ---------------------------------------------------------------------------------------------------------

void Store::dropChanges(Session& session) {
    for (Oop oop : session.changes) {
        Object*& link = linkTo(oop, find(session, oop));
        Object* version = link;
        link = version->older;
        freeObject(version);
    }
    session.changes.clear();
    session.keyChanges.clear();
}

void Store::abort(Session& session) {
    dropCommit(session);
    if (session.tracking) {
        for (Oop oop : session.changes) {
            noteChange(entries[indexOf(oop)], session, oop);
        }
    }
    beginTransaction(session, commitCount);
    dropChanges(session);
}

// --- commit --------------------------------------------------------------------------------------------------------

// The latest version that is committed, or nullptr.
Store::Object* Store::committed(Oop oop) const {
    Object* object = entries[indexOf(oop)].versions;
    while (object != nullptr && object->isOwn()) {
        object = object->older;
    }
    return object;
}

Store::Progress Store::commit(Session& session, const Visit& visit, bool checked, uint32_t steps) {
    try {
        if (!session.publication) {
            session.publication = std::make_unique<Session::Publication>();
        }
        if (!reach(session, visit, steps)) {
            return Progress::Working;
        }
        const Progress progress = check(session, checked, steps);
        if (progress == Progress::Done) {
            publish(session);
        } else if (progress == Progress::Refused) {
            dropCommit(session);
        }
        return progress;
    } catch (...) {
        dropCommit(session);
        throw;
    }
}

void Store::dropCommit(Session& session) {
    if (session.publication) {
        for (Object* object : session.publication->reached) {
            object->version = session.mark;
        }
        for (Object* object : session.publication->merged) {
            if (object != nullptr) {
                freeObject(object);
            }
        }
        session.publication.reset();
    }
}

// Finds the session's own objects that its changes lead to. Whether all are found.
bool Store::reach(Session& session, const Visit& visit, uint32_t steps) {
    Session::Publication& work = *session.publication;
    auto take = [&](Oop oop) {
        if (isEntry(oop)) {
            Object* object = entries[indexOf(oop)].versions;
            if (object != nullptr && object->version == session.mark && object->older == nullptr) {
                if (object->body == Body::Byte) {
                    settle(oop);
                    object = entries[indexOf(oop)].versions;
                }
                work.reached.push_back(object);
                work.pending.push_back(oop);
                object->version |= publishing;
            }
        }
    };
    const Mark mark = take;
    while (steps > 0) {
        Oop oop = nil;
        if (work.followed == nullptr) {
            if (!work.pending.empty()) {
                oop = work.pending.back();
                work.pending.pop_back();
                work.followed = entries[indexOf(oop)].versions;
            } else if (work.nextChange < session.changes.size()) {
                oop = session.changes[work.nextChange++];
                work.followed = find(session, oop);
            } else {
                return true;
            }
            work.nextSlot = 0;
            Object& object = *work.followed;
            take(object.cls);
            if (object.slotCount() > 0) {
                visit(oop, object.cls, object.slots()[0], mark);
            }
        }
        const Object& object = *work.followed;
        uint32_t end = std::min(object.slotCount(), work.nextSlot + steps);
        steps -= std::min(steps, end - work.nextSlot + 1);
        while (work.nextSlot < end) {
            take(object.slots()[work.nextSlot++]);
        }
        if (end == object.slotCount()) {
            work.followed = nullptr;
        }
    }
    return false;
}

// Whether what the session changed (and read) is still as its transaction sees it. Unordered bodies to which others
// have added, or from which they have removed, other keys get these.
Store::Progress Store::check(Session& session, bool checked, uint32_t steps) {
    constexpr int mostRestarts = 3; // then all of it is done at once
    Session::Publication& work = *session.publication;
    if (work.checkedAt != commitCount) {
        work.checkedAt = commitCount;
        work.nextRead = work.nextKeyRead = work.nextChecked = 0;
        work.toMerge.clear();
        work.superseded.clear();
        steps = work.restarts++ < mostRestarts ? steps : UINT32_MAX;
    }
    auto isOld = [&](Oop oop) {
        const Object* latest = committed(oop);
        return latest == nullptr || latest->version > session.snapshot;
    };
    for (; checked && work.nextRead < session.reads.size(); ++work.nextRead) {
        if (steps-- == 0) {
            return Progress::Working;
        }
        Oop oop = session.reads[work.nextRead];
        if (entries[indexOf(oop)].versions != nullptr && isOld(oop)) {
            return Progress::Refused;
        }
    }
    for (; checked && work.nextKeyRead < session.keyReads.size(); ++work.nextKeyRead) {
        if (steps-- == 0) {
            return Progress::Working;
        }
        const auto& [oop, hash] = session.keyReads[work.nextKeyRead];
        Object* latest = committed(oop);
        if (latest != nullptr && latest->version > session.snapshot) {
            Object* seen = latest;
            while (seen != nullptr && seen->version > session.snapshot) {
                seen = seen->older;
            }
            if (seen == nullptr || !sameKeys(*seen, *latest, hash)) {
                return Progress::Refused;
            }
        }
    }
    for (; work.nextChecked < session.changes.size(); ++work.nextChecked) {
        if (steps-- == 0) {
            return Progress::Working;
        }
        Oop oop = session.changes[work.nextChecked];
        if (isOld(oop)) {
            if (!canMerge(session, oop)) {
                return Progress::Refused;
            }
            work.toMerge.push_back(oop);
        }
        work.superseded.push_front({oop, committed(oop)->version});
    }
    return Progress::Done;
}

// Whether two versions hold the same elements of a hash.
bool Store::sameKeys(const Object& before, const Object& now, uint32_t hash) const {
    auto elementsOf = [hash](const Object& object) {
        std::vector<Oop> elements;
        object.index()->find(hash, [&](uint32_t at) {
            elements.push_back(object.slots()[object.named + at]);
            return false;
        });
        std::sort(elements.begin(), elements.end());
        return elements;
    };
    return elementsOf(before) == elementsOf(now);
}

bool Store::canMerge(Session& session, Oop oop) {
    const Session::KeyChanges* changes = keyChangesOf(session, oop);
    if (changes == nullptr || !changes->isAll) {
        return false;
    }
    const Object* latest = committed(oop);
    const Object* seen = latest;
    while (seen->version > session.snapshot) {
        seen = seen->older;
    }
    return std::all_of(changes->log.begin(), changes->log.end(),
                       [&](const auto& change) { return sameKeys(*seen, *latest, change.hash); });
}

// The latest version with the session's changes of keys.
Store::Object* Store::merged(Session& session, Oop oop) {
    const Session::KeyChanges& changes = *keyChangesOf(session, oop);
    Object* object = copyObject(*committed(oop), static_cast<uint32_t>(changes.log.size()));
    try {
        for (const auto& change : changes.log) {
            if (change.added) {
                addTo(*object, change.element, change.hash);
            } else if (auto at = object->index()->find(change.hash, [&](uint32_t position) {
                           return object->slots()[object->named + position] == change.element;
                       })) {
                removeFrom(*object, object->named + *at);
            }
        }
    } catch (...) {
        freeObject(object);
        throw;
    }
    object->version = session.mark;
    return object;
}

// All that needs memory comes first.
void Store::publish(Session& session) {
    Session::Publication& work = *session.publication;
    if (session.changes.empty()) {
        work.reached.clear();
        session.publication.reset();
        beginTransaction(session, commitCount);
        return;
    }
    if (commitCount + 1 >= maxVersion) {
        throw StoreFull{.storeLimit = memoryLimit};
    }
    std::vector<std::pair<Session*, std::unordered_set<Oop>>> notes;
    for (auto& [id, seer] : sessions) {
        if (&seer == &session || !seer.tracking) {
            continue;
        }
        auto& changed = notes.emplace_back(&seer, std::unordered_set<Oop>()).second;
        for (Oop oop : session.changes) {
            if (entries[indexOf(oop)].exports != 0 && seer.exported.contains(oop)) {
                changed.insert(oop);
            }
        }
        seer.changedByOthers.reserve(seer.changedByOthers.size() + changed.size());
    }
    session.changed.reserve(session.changed.size() + session.changedByOthers.size());
    for (Oop oop : work.toMerge) {
        work.merged.push_back(nullptr);
        work.merged.back() = merged(session, oop);
    }
    snapshots.try_emplace(commitCount + 1);
    // From here on nothing throws.
    ++commitCount;
    for (size_t i = 0; i < work.merged.size(); ++i) {
        Oop oop = work.toMerge[i];
        Object*& link = linkTo(oop, find(session, oop));
        Object* mine = link;
        work.merged[i]->older = mine->older;
        link = work.merged[i];
        freeObject(mine);
        shade(oop);
        scanAgain(oop);
    }
    work.merged.clear();
    for (Object* object : work.reached) {
        object->version = commitCount;
    }
    work.reached.clear();
    for (Oop oop : session.changes) {
        Object*& link = linkTo(oop, find(session, oop));
        Object* version = link;
        link = version->older;
        Object*& place = linkTo(oop, committed(oop));
        version->older = place;
        version->version = commitCount;
        place = version;
        if (scanning == oop) {
            scanAgain(oop);
        }
    }
    for (auto& [seer, changed] : notes) {
        seer->changedByOthers.merge(changed);
    }
    leftOver.splice_after(leftOver.before_begin(), work.superseded);
    session.changes.clear();
    session.keyChanges.clear();
    session.publication.reset();
    beginTransaction(session, commitCount);
}

// Frees the versions that no transaction sees any more.
void Store::reclaim(uint32_t steps) {
    for (; steps > 0 && !leftOver.empty(); --steps) {
        auto [oop, version] = leftOver.front();
        Object* newer = nullptr;
        Object* object = entries[indexOf(oop)].versions;
        while (object != nullptr && (object->isOwn() || object->version > version)) {
            newer = object->isOwn() ? nullptr : object;
            object = object->older;
        }
        if (object == nullptr || object->version != version || newer == nullptr) {
            leftOver.pop_front(); // the object was collected
            continue;
        }
        auto seer = snapshots.lower_bound(version);
        if (seer != snapshots.end() && seer->first < newer->version) {
            auto& kept = seer->second.superseded;
            kept.splice_after(kept.before_begin(), leftOver, leftOver.before_begin());
            continue;
        }
        newer->older = object->older;
        freeObject(object);
        leftOver.pop_front();
    }
}

} // namespace local
