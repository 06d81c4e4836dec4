// Collects, step by step, what no session, no computation and no kernel object reaches.
//
// Marked objects are grey until they are scanned. Whoever stores a reference while there is marking shades it, so that
// no scanned object leads to an unmarked one; what was only on a stack is found when the roots are asked for again.
#include "store/store.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace local {

namespace {
constexpr uint32_t stepUnits = 4000; // objects, or so many slots or entries
constexpr int maxRootRounds = 8;     // after these the rest is marked at once
} // namespace

void Store::setThreshold() {
    size_t next = memoryUsed + std::clamp<size_t>(memoryUsed / 2, 4u << 20, 64u << 20);
    // Not so late that garbage alone could fill the store, and never at once again.
    collectAt = std::min(next, std::max(memoryLimit - memoryLimit / 8, memoryUsed + memoryLimit / 32));
}

void Store::startCollection() {
    giveUpMarking();
    wanted = completed + (phase == Phase::Sweeping ? 2 : 1);
}

void Store::giveUpMarking() {
    if (isMarking()) {
        phase = Phase::Idle;
    }
    grey.clear();
    scanned = nullptr;
}

// Never throws: without memory the collection begins anew later.
void Store::shadeReference(Oop oop) {
    if (isEntry(oop) && entries[indexOf(oop)].versions != nullptr && entries[indexOf(oop)].marked != collection) {
        entries[indexOf(oop)].marked = collection;
        scanAgain(oop);
    }
}

// Its references may have come to it without shade.
void Store::scanAgain(Oop oop) {
    if (scanning == oop) {
        scanned = nullptr;
    }
    if (isMarking() && entries[indexOf(oop)].marked == collection) {
        try {
            grey.push_back(oop);
        } catch (const std::bad_alloc&) {
            // Nobody waits for a collection that would fail again; the next one comes when it is due.
            giveUpMarking();
            wanted = completed;
        }
    }
}

// Follows grey objects, every version of each: what one session does not see another may.
void Store::scan(Roots& roots, uint32_t& units) {
    const Mark mark = [this](Oop oop) { shade(oop); };
    while (units > 0 && isMarking()) {
        if (scanned == nullptr) {
            if (grey.empty()) {
                return;
            }
            scanning = grey.back();
            grey.pop_back();
            scanned = entries[indexOf(scanning)].versions;
            unscanned = UINT32_MAX;
        }
        if (unscanned == UINT32_MAX) {
            unscanned = scanned->slotCount();
            shade(scanned->cls);
            if (scanned->isPrefix()) {
                shade(scanned->slots()[-1]);
            }
            if (unscanned > 0) {
                roots.visit(scanning, scanned->cls, scanned->slots()[0], mark);
            }
        }
        unscanned = std::min(unscanned, scanned->slotCount());
        uint32_t count = std::min(unscanned, units);
        units -= std::min(units, count / 4 + 1);
        while (count-- > 0) {
            shade(scanned->slots()[--unscanned]);
        }
        if (scanned != nullptr && unscanned == 0) {
            scanned = scanned->older;
            unscanned = UINT32_MAX;
        }
    }
}

void Store::collectStep(Roots& roots) {
    debt = 0;
    uint32_t units = stepUnits;
    reclaim(units / 4);
    if (phase == Phase::Idle) {
        if (memoryUsed < collectAt && !isCollectionWanted()) {
            return;
        }
        ++collection;
        madeSinceStart = 0;
        std::vector<Oop>().swap(grey);
        scanned = nullptr;
        cursor = 0;
        rootRounds = 0;
        phase = Phase::Roots;
        roots.startMarking();
        roots.addRoots([this](Oop oop) { shade(oop); });
    }
    if (phase == Phase::Roots) {
        for (; phase == Phase::Roots && cursor < entryCount && units > 0; ++cursor, --units) {
            const Entry& entry = entries[cursor];
            const Object* latest = entry.versions;
            bool isChanged = latest != nullptr && latest->isOwn() && latest->older != nullptr;
            if (latest != nullptr && (cursor < firstFreeIndex || entry.exports != 0 || isChanged)) {
                shadeReference(oopAt(cursor));
            }
        }
        if (phase == Phase::Roots && cursor == entryCount) {
            phase = Phase::Marking;
        }
    }
    if (phase == Phase::Marking) {
        scan(roots, units);
        while (phase == Phase::Marking && grey.empty() && scanned == nullptr) {
            roots.addRoots([this](Oop oop) { shade(oop); });
            if (grey.empty() && phase == Phase::Marking) {
                roots.marked();
                phase = Phase::Sweeping;
                cursor = entryCount;
            } else if (++rootRounds > maxRootRounds) {
                uint32_t all = UINT32_MAX;
                scan(roots, all);
            }
        }
    }
    if (phase == Phase::Sweeping) {
        // From the end, where memory can be given back at once.
        for (; cursor > 0 && units > 0; --units) {
            --cursor;
            if (entries[cursor].versions != nullptr && entries[cursor].marked != collection) {
                const Object& object = *entries[cursor].versions;
                roots.freeing(oopAt(cursor), object.cls, {object.bytes(), object.byteCount()});
                freeEntry(cursor);
                units -= std::min(units - 1, 3u);
            }
        }
        // Makes the C library merge the blocks that were freed here, not a million of them at once.
        void* volatile block = std::malloc(100000);
        std::free(block);
        if (cursor == 0) {
            phase = Phase::Idle;
            ++completed;
            setThreshold();
        }
    }
}

void Store::freeEntry(uint32_t index) {
    if (!prefixes.empty()) {
        prefixes.erase(oopAt(index));
    }
    while (Object* object = entries[index].versions) {
        entries[index].versions = object->older;
        freeObject(object);
    }
    entries[index] = {};
    if (firstFree == 0) {
        firstFree = index;
    } else {
        entries[lastFree].reader = index;
    }
    lastFree = index;
    --liveObjects;
}

} // namespace local
