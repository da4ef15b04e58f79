#include <list>

#include "base/JoinGuard.h"
#include "base/Thread.h"
#include "support/Testing.h"

namespace corvane {
namespace {

// Whether the waits, made in their order on threads of their owners, are allowed; all are kept until the end. 0 is a
// thread of the client.
std::vector<bool> Allowed(const std::vector<std::pair<int, int>>& waits) {
    static const char owners[1000] = {};
    std::list<std::unique_ptr<JoinGuard>> guards;
    std::vector<bool> allowed;
    for (const auto& [waiter, target] : waits)
        Thread("scope", waiter == 0 ? nullptr : &owners[waiter], [&, target = target] {
            guards.push_back(std::make_unique<JoinGuard>(&owners[target]));
            allowed.push_back(guards.back()->Allowed());
        }).Join();
    return allowed;
}

TEST(JoinGuard, RefusesWhatWouldCloseACircleAndNothingElse) {
    const struct {
        const char* name;
        std::vector<std::pair<int, int>> waits;    // the last is asked, those before are allowed
        bool allowed;
    } rows[] = {
        {"itself", {{1, 1}}, false},
        {"each other", {{1, 2}, {2, 1}}, false},
        {"a client waits for anybody", {{1, 2}, {2, 3}, {0, 1}}, true},
        {"the second of two waits of one owner", {{1, 2}, {1, 3}, {3, 1}}, false},
        {"a fork that does not come back", {{1, 2}, {1, 3}, {3, 4}, {2, 4}}, true},
        {"over a fork", {{2, 3}, {2, 4}, {4, 5}, {1, 2}, {5, 1}}, false},
        {"one target twice", {{1, 2}, {3, 2}, {4, 2}}, true},
    };
    for (const auto& row : rows) {
        const std::vector<bool> allowed = Allowed(row.waits);
        for (size_t i = 0; i + 1 < allowed.size(); ++i)
            EXPECT_TRUE(allowed[i]) << row.name << " " << i;
        EXPECT_EQ(allowed.back(), row.allowed) << row.name;
    }
    // Many waits in a chain or side by side are no circle.
    std::vector<std::pair<int, int>> many;
    for (int i = 1; i < 300; ++i)
        many.emplace_back(i, i + 1);
    for (int i = 400; i < 600; ++i)
        many.emplace_back(1, i);
    for (int i = 0; i < 60; i += 3)    // a ladder: 2^20 paths through it
        for (const auto& [from, to] : {std::pair(i, i + 1), {i, i + 2}, {i + 1, i + 3}, {i + 2, i + 3}})
            for (int twice = 0; twice < 2; ++twice)
                many.emplace_back(800 + from, 800 + to);
    many.emplace_back(300, 800);
    many.emplace_back(700, 1);
    many.emplace_back(300, 1);
    const std::vector<bool> allowed = Allowed(many);
    EXPECT_EQ(std::count(allowed.begin(), allowed.end(), false), 1);
    EXPECT_FALSE(allowed.back());
}

}    // namespace
}    // namespace corvane
