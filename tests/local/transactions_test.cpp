// What transactions see of each other, and which commits are refused.
#include "client_fixture.h"

#include <array>
#include <map>
#include <optional>
#include <random>

namespace local_tests {

class Transactions : public LocalClient {
protected:
    // Sessions are called by letters, and log in when they are first named.
    void select(char name) {
        if (!sessions.contains(name)) {
            sessions[name] = logIn();
        }
        kci.KciSetSessionId(sessions[name]);
    }

    std::map<char, KciSessionIdType> sessions;
};

// Steps of sessions in turn, each with what it prints.
TEST_F(Transactions, SeeTheirBeginAndConflictOverWhatTheyWrote) {
    struct Step {
        char session;
        const char* source;
        const char* printed;
    };
    const std::pair<const char*, std::vector<Step>> cases[] = {
        {"temporaries of a published block",
         {{'X', "| n | n := 0. Shared at: #next put: [n := n + 1]. System commit", "true"},
          {'Y', "System abort. next value", "1"},
          {'X', "next value. System commit", "true"},
          {'Y', "System commit", "false"},
          {'Y', "System abort. Shared at: #mine put: 1. System commit", "true"},
          {'Y', "next value", "2"}}},
        {"what shared objects lead to",
         {{'X', "(1 to: 4) collect: [:i | (i = 3) ifTrue: [System abort. nil] ifFalse: [System commit. i]]",
           "Array(1 2 nil 4)"},
          {'X', "Object subclass: #K variables: #(). System commit. Object subclass: #K variables: #(#v)", "K"},
          {'X', "System abort. K history size", "2"},
          {'X', "Shared at: #block put: [:x | [{x. #(1 'a'). 2.5}] value]. System commit", "true"},
          {'Y', "block value: 3", "Array(3 Array(1 'a') 2.5)"}}},
        {"a dictionary read or changed as a whole",
         {{'X', "Shared at: #d put: (Dictionary new at: 1 put: 1; at: 2 put: 2; yourself). System commit", "true"},
          {'C', "System abort. d at: 3 put: 3; removeKey: 1. d at: 9 ifAbsent: [false]", "false"},
          {'G', "System abort. d size. Shared at: #g put: 0", "0"},
          {'E', "System abort. d removeAll", "Dictionary()"},
          {'D', "System abort. d at: 4 put: 4. System commit", "true"},
          {'C', "System checkedCommit", "true"},
          {'C', "{d size. d includesKey: 1. d at: 2. d at: 3. d at: 4}", "Array(3 false 2 3 4)"},
          {'G', "System checkedCommit", "false"},
          {'E', "System commit", "false"}}},
        {"what is new to all goes with a merged body",
         {{'X', "Shared at: #k put: Set new. System commit", "true"},
          {'C', "System abort. k add: (Array with: 'of' with: 'C'). 0", "0"},
          {'X', "k add: #x. System commit", "true"},
          {'C', "System commit", "true"},
          {'X', "System abort. k asArray detect: [:e | e isKindOf: Array]", "Array('of' 'C')"}}},
        {"more than one step of a commit looks at",
         {{'X', "Shared at: #many put: ((1 to: 12000) collect: [:i | {i}]). System perform: #commit", "true"},
          {'C', "System abort. {many inject: 0 into: [:sum :e | sum + e first]. Shared at: #c put: 0}",
           "Array(72006000 0)"},
          {'D', "System abort. many do: [:e | e at: 1 put: 1]. Shared at: #d put: 0. System checkedCommit", "true"},
          {'C', "System checkedCommit", "false"},
          {'X',
           "d := Dictionary new. many doWithIndex: [:e :i | d at: i put: e]. Shared at: #keys put: d. System commit",
           "true"},
          {'C', "System abort. 1 to: 12000 do: [:i | keys at: i]. Shared at: #c put: 1", "1"},
          {'X', "System abort. keys removeKey: 12000. System commit", "true"},
          {'C', "System checkedCommit", "false"}}},
        {"a method is seen after its commit",
         {{'X', "Object method: 'twice ^2'. System commit", "true"},
          {'C', "3 twice", "2"},
          {'X', "Object method: 'twice ^22'. System commit", "true"},
          {'C', "3 twice", "2"},
          {'C', "System abort. 3 twice", "22"}}},
    };
    for (const auto& [name, steps] : cases) {
        SCOPED_TRACE(name);
        for (const auto& [session, source, printed] : steps) {
            select(session);
            EXPECT_EQ(print(source), printed) << session << ": " << source;
        }
        for (const auto& [letter, id] : sessions) {
            kci.KciSetSessionId(id);
            kci.KciLogout();
        }
        sessions.clear();
    }
}

TEST_F(Transactions, VersionsGoWhenNoneSeesThem) {
    select('W');
    evaluate("Shared at: #big put: (Array new: 100000). System commit");
    OopType before = evaluate("System memoryUsed");
    select('A'); // sees the first version from now on
    select('W');
    evaluate("1 to: 50 do: [:i | big at: 1 put: i. System commit]. System collectGarbage");
    auto grown = [&] {
        return (static_cast<int32_t>(evaluate("System memoryUsed")) - static_cast<int32_t>(before)) >> 2;
    };
    EXPECT_LT(grown(), 500000);
    EXPECT_GT(grown(), 390000) << "the one that is seen must be there";
    select('A');
    EXPECT_EQ(print("{big first. [System abort. big first] value}"), "Array(nil 50)");
    select('W');
    EXPECT_LT(grown(), 100000);
}

// Random transactions of four sessions over cells (arrays of one number, all of which rise) and keys of a dictionary,
// beside a model in which commits happen one after the other.
TEST_F(Transactions, RandomOnesAgreeWithASerialModel) {
    constexpr int cells = 40;
    constexpr int slots = 50; // the rest are keys
    struct Version {
        int32_t value = 0; // of a key: 0 when it is absent
        int commit = 0;
    };
    struct Model {
        KciSessionIdType id;
        int begin = 0;
        std::array<Version, slots> old{}, seen{}; // without and with its own changes
        std::array<bool, slots> read{}, written{};
    };
    std::array<Version, slots> committed{};
    std::array<Model, 4> models{};
    evaluate("Shared at: #cells put: ((1 to: 40) collect: [:i | {0}]); at: #keys put: Dictionary new. System commit");
    OopType oops[cells] = {};
    kci.KciFetchVaryingOops(evaluate("cells"), 1, oops, cells);
    OopType keys = evaluate("keys");
    OopType system = evaluate("System");
    for (Model& model : models) {
        model = {.id = logIn(), .old = committed, .seen = committed};
    }
    std::minstd_rand random(1);
    int commits = 0;
    int refused = 0;
    for (int ended = 0; ended < 20000;) {
        Model& model = models[random() % 4];
        kci.KciSetSessionId(model.id);
        auto begin = [&] {
            model = {.id = model.id, .begin = commits, .old = committed, .seen = committed};
            ++ended;
        };
        uint32_t slot = random() % slots;
        uint32_t action = random() % 16;
        if (action == 0) {
            kci.KciAbort();
            begin();
        } else if (action < 4) {
            bool checked = action == 3;
            bool expected = true;
            for (int i = 0; i < slots; ++i) {
                bool counts = model.written[i] || (checked && model.read[i]);
                // A key that is away again is as it was.
                counts = counts && (i < cells || model.old[i].value != 0 || committed[i].value != 0);
                expected = expected && (!counts || committed[i].commit <= model.begin);
            }
            bool done = checked ? perform(system, "checkedCommit") == KCI_OOP_TRUE : kci.KciCommit() != FALSE;
            ASSERT_EQ(done, expected) << "transaction " << ended << (checked ? ", checked" : "");
            if (done) {
                ++commits;
                for (int i = 0; i < slots; ++i) {
                    if (model.written[i]) {
                        committed[i] = {model.seen[i].value, commits};
                    }
                }
            } else {
                ++refused;
                kci.KciAbort();
            }
            begin();
        } else if (slot < cells) {
            OopType value = 0;
            kci.KciFetchVaryingOops(oops[slot], 1, &value, 1);
            model.read[slot] = true;
            ASSERT_EQ(value, small(model.seen[slot].value)) << "transaction " << ended;
            if (action < 9) {
                value = small(++model.seen[slot].value);
                kci.KciStoreIdxOops(oops[slot], 1, &value, 1);
                model.written[slot] = true;
            }
        } else {
            OopType key = small(static_cast<int32_t>(slot));
            model.read[slot] = true;
            bool isThere = model.seen[slot].value != 0;
            ASSERT_EQ(perform(keys, "includesKey:", {key}) == KCI_OOP_TRUE, isThere) << "transaction " << ended;
            if (action < 9) {
                isThere ? perform(keys, "removeKey:", {key}) : perform(keys, "at:put:", {key, key});
                model.seen[slot].value = isThere ? 0 : 1;
                model.written[slot] = true;
            }
        }
        ASSERT_EQ(pending(), 0) << error.message;
        if (random() % 10000 == 0) {
            perform(system, "collectGarbage");
        }
    }
    EXPECT_GT(refused, 1000);
    EXPECT_GT(commits, 2000);
}

} // namespace local_tests
