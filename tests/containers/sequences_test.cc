// Arrays, lists and callback lists.

#include <list>

#include "support/test.h"

namespace {

void *value(uintptr_t n) { return reinterpret_cast<void *>(n); }

std::vector<void *> freed;
void noteFreed(void *v) { freed.push_back(v); }

TEST(Array, HoldsWhatWasAddedAndGrowsWithOneSlotUnused) {
    static const struct { uint64_t size, step; } kSteps[] = {{0, 1024}, {1, 512}, {512, 512}, {513, 1024}};
    for (const auto &row : kSteps) {
        vexArray *const array = vexArrayCreate(row.size);
        ASSERT_EQ(row.step, array->step);
        EXPECT_TRUE(vexArrayFirst(array) == nullptr && vexArrayLast(array) == nullptr);
        std::vector<void *> model;
        for (uintptr_t n = 0; n < 3000; ++n) {
            model.push_back(value(n + 1));
            ASSERT_EQ(0, vexArrayAdd(array, model.back()));
            const uint64_t growths = n / (row.step - 1) + 1;
            ASSERT_EQ(growths * row.step, array->capacity) << n;
            ASSERT_EQ(growths * (row.step - 1) - n - 1, array->freeSlots) << n;
        }
        EXPECT_EQ(value(2), vexArrayNext(array));  // without First
        std::vector<void *> forward{vexArrayFirst(array)}, backward{vexArrayLast(array)};
        while (void *const v = vexArrayNext(array)) forward.push_back(v);
        while (void *const v = vexArrayPrev(array)) backward.push_back(v);
        EXPECT_EQ(model, forward);
        EXPECT_EQ(model, std::vector<void *>(backward.rbegin(), backward.rend()));
        EXPECT_TRUE(vexArrayNext(array) == nullptr && vexArrayPrev(array) == nullptr);  // stay at the ends
        freed.clear();
        EXPECT_EQ(3000u, vexArraySize(array) + static_cast<uint64_t>(vexArrayDestroy(array, noteFreed)));
        EXPECT_EQ(model, freed);
    }
}

TEST(Sequences, TellMissingMemoryAndNullAndStayAsTheyWere) {
    LogCapture log;
    vexArray *const array = vexArrayCreate(0);
    vexList *const list = vexListCreate();
    vexCallback *const callbacks = vexCallbackAdd(nullptr, nullptr, value(1));
    {
        const FaultScope fault({"malloc", "calloc", "realloc"}, 1, ENOMEM, FaultScope::kLasting);
        EXPECT_EQ(-2, vexArrayAdd(array, value(1)) + vexListAdd(list, value(1)));
        EXPECT_EQ(callbacks, vexCallbackAdd(callbacks, nullptr, value(2)));
        EXPECT_TRUE(vexArrayCreate(0) == nullptr && vexListCreate() == nullptr);
    }
    EXPECT_TRUE(vexArrayCreate(UINT64_C(1) << 61) == nullptr && vexListRemove(list, value(1)) == -1);
    EXPECT_TRUE(vexArraySize(nullptr) == UINT64_MAX && vexArrayAdd(nullptr, nullptr) == -1);
    const char *const expected =
        "12 vexArrayAdd: unable to reallocate memory for size 8192. (Cannot allocate memory)\n"
        "12 vexListAdd: could not allocate memory\n90 Could not allocate 40 bytes (vexCallbackAdd at line 153 in "
        "../callbacks)\n12 vexArrayCreate: unable to allocate memory for size 56. (Cannot allocate memory)\n"
        "12 vexListCreate: could not allocate memory\n34 vexArrayCreate: unable to allocate memory for size "
        "2305843009213693952. (Numerical result out of range)\n2 vexListRemove: could not find node\n"
        "22 vexArraySize: invalid NULL parameter\n22 vexArrayAdd: invalid NULL parameter";
    EXPECT_EQ(expected, log.text());
    EXPECT_EQ(0u, array->count + array->capacity);
    EXPECT_TRUE(vexListFirst(list) == nullptr && callbacks->next == nullptr);
    EXPECT_EQ(0, vexArrayDestroy(array, nullptr) + vexArrayDestroy(nullptr, nullptr));
    vexListDestroy(list, nullptr), vexCallbackListDelete(callbacks);
}

TEST(List, BehavesAsAPlainListWhileItsCursorWalks) {
    std::mt19937 random(static_cast<unsigned>(testSeed()));
    LogCapture log;
    vexList *const list = vexListCreate();
    std::list<void *> model;
    auto cursor = model.end();
    const auto next = [&] { return cursor == model.end() ? nullptr : *cursor++; };
    for (int i = 0; i < 20000; ++i) {
        void *const v = value(random() % 16 + 1);
        const auto at = std::find(model.begin(), model.end(), v);
        if (const auto action = random() % 8; action < 3) {
            if (action == 0) list->last = nullptr;  // is found again by walking
            ASSERT_EQ(0, vexListAdd(list, v));
            model.push_back(v);
        } else if (action < 6) {
            ASSERT_EQ(at == model.end() ? -1 : 0, vexListRemove(list, v));
            if (at == cursor && at != model.end()) ++cursor;
            if (at != model.end()) model.erase(at);
        } else {
            if (action == 6) cursor = model.begin();
            ASSERT_EQ(next(), action == 6 ? vexListFirst(list) : vexListNext(list));
        }
        auto *node = reinterpret_cast<vexListNode *>(list);
        for (void *const expected : model) {
            ASSERT_EQ(node, node->next->prev);
            node = node->next;
            ASSERT_EQ(expected, node->value);
        }
        ASSERT_TRUE(node->next == nullptr && node == list->last && !list->zero0 && !list->zero1);
    }
    freed.clear();
    vexListDestroy(list, noteFreed);
    EXPECT_EQ(std::vector<void *>(model.begin(), model.end()), freed);
}

/// A list whose callbacks are named by letters: each call is noted and may do something.
struct Callbacks : testing::Test {
    ~Callbacks() override { vexCallbackListDelete(list); }
    static void call(void *self, void *, void *argument) {
        auto *const test = static_cast<Callbacks *>(self);
        const char name = static_cast<char>(reinterpret_cast<uintptr_t>(argument));
        test->calls += name;
        test->act(name);
    }
    void run() { list = vexCallCallbackList(list, this, value(7)); }
    /// Does what stands behind the name in actions: "+x" adds, "-x" removes, "-*" removes all, "!" calls the list.
    void act(char name) {
        size_t at = actions.find(std::string{' ', name});
        if (at == std::string::npos || std::exchange(acting, true)) return;
        for (at += 2; actions[at] != ' '; at += 2) {
            const char whom = actions[at + 1];
            void *const argument = value(static_cast<uintptr_t>(whom));
            if (actions[at] == '!') run();
            else if (actions[at] == '+') list = vexCallbackAdd(list, call, argument);
            else list = vexCallbackRemove(list, whom == '*' ? nullptr : call, whom == '*' ? nullptr : argument);
        }
        acting = false;
    }
    std::string entries() const {
        std::string result;
        for (const vexCallback *entry = list, *prev = nullptr; entry != nullptr; prev = entry, entry = entry->next)
            if (entry->prev != prev || entry->executing != 0) result += '?';
            else result += static_cast<char>(reinterpret_cast<uintptr_t>(entry->argument));
        return result;
    }
    vexCallback *list = nullptr;
    std::string calls, actions;
    bool acting = false;
};

TEST_F(Callbacks, AreCalledInOrderAndSurviveEveryChangeFromInside) {
    // what is done first and then by which callback; the calls; what is left
    for (const auto &row : table(3,
             " =+a+b+a-a+b+b |abbb|ab| =+a+b-* ||| =+a+b+c b-b |abc|ac| =+b+b b-b-b |bb|| =+a a-a |a|| =+a+b+c b-b-c "
             "|ab|a|"
             " =+a+b+c c-a |abc|bc| =+a+b+c c-a-c |abc|b| =+a+b+c a-b |ac|ac| =+a+b+c b-* |ab|| =+a b+c a+b |abc|abc|"
             " =+a a+a |a|a| =+a+b+c b-b!! |abacc|ac| =+a+b b-a!! |abb|b| =+a+b a-a-a+a |ab|b|")) {
        SCOPED_TRACE(row[0]);
        vexCallbackListDelete(std::exchange(list, nullptr));
        calls.clear();
        actions = row[0];
        act('=');
        run();
        EXPECT_EQ(row[1], calls);
        EXPECT_EQ(row[2], entries());
    }
}

TEST_F(Callbacks, TraceWhatIsCollectedAndMatchByOneArgumentAlone) {
    LogCapture log(LogCapture::kAll);
    actions = " =+a+b+c b-* ";
    act('=');
    run();
    actions = " =+a+b ";
    act('=');
    list = vexCallbackAdd(list, nullptr, value('b'));  // is never called
    run();
    list = vexCallbackRemove(list, nullptr, value('b'));
    EXPECT_EQ("a", entries());
    EXPECT_EQ(nullptr, list = vexCallbackRemove(list, call, nullptr));
    const std::vector<std::string> lines = log.lines(VEX_LOG_TRACE);
    EXPECT_THAT(lines.at(0), HasSubstr("executing. -3 callbacks will be collected at a later time"));
    EXPECT_EQ("vexCallCallbackList: about to perform garbage collection", lines.at(1));
    EXPECT_EQ("vexCallbackRemove: cleaning 2 callbacks", lines.at(2));
}

}  // namespace
