#include <stddef.h>
#include <stdlib.h>

#include <vex/callbacks.h>
#include <vex/log.h>

#include "log/report.h"

static_assert(sizeof(vexCallback) == 40 && offsetof(vexCallback, references) == 20);

namespace {

// what the line about missing memory says; log readers know it
constexpr int kNoMemoryLine = 153;
constexpr auto kNoMemorySource = "../callbacks";

vexCallback *startOf(vexCallback *entry) {
    while (entry != nullptr && entry->prev != nullptr) entry = entry->prev;
    return entry;
}

/// Frees the entries without references. Those that run stay: an outer call of the list, or the
/// call in which this one happens, still stands on them and collects them itself.
vexCallback *collect(vexCallback *list) {
    for (vexCallback *entry = list; entry != nullptr;) {
        vexCallback *const next = entry->next;
        if (entry->references <= 0 && entry->executing == 0) {
            if (next != nullptr) next->prev = entry->prev;
            if (entry->prev != nullptr) entry->prev->next = next;
            if (entry == list) list = next;
            free(entry);
        }
        entry = next;
    }
    return list;
}

/// Runs the entry as often as its count says now; whatever it does to the list, the entry stays.
void run(vexCallback *entry, void *first, void *second) {
    ++entry->executing;
    for (int32_t left = entry->references; left > 0; --left)
        if (entry->function != nullptr) entry->function(first, second, entry->argument);
    --entry->executing;
}

}  // namespace

vexCallback *vexCallbackAdd(vexCallback *list, vexCallbackFn function, void *argument) {
    vexCallback *last = nullptr;
    for (vexCallback *entry = list; entry != nullptr; entry = entry->next) {
        if (entry->function == function && entry->argument == argument) {
            ++entry->references;
            return list;
        }
        last = entry;
    }
    auto *entry = static_cast<vexCallback *>(malloc(sizeof(vexCallback)));
    if (entry == nullptr) {
        vex::log::allocationFailure(sizeof(vexCallback), __func__, kNoMemoryLine, kNoMemorySource);
        return list;
    }
    *entry = {function, argument, 0, 1, last, nullptr};
    if (last == nullptr) return entry;
    last->next = entry;
    return list;
}

vexCallback *vexCallbackRemove(vexCallback *list, vexCallbackFn function, void *argument) {
    int removed = 0;
    bool executing = false;
    for (vexCallback *entry = list; entry != nullptr; entry = entry->next) {
        if ((function != nullptr && entry->function != function) ||
            (argument != nullptr && entry->argument != argument))
            continue;
        --entry->references;
        ++removed;
        executing = executing || entry->executing != 0;
    }
    if (executing) {
        // readers of the trace know the count by its sign: these wait
        if (TraceOn())
            __Trace(
                "%s: called while callback was currently executing. %i callbacks will be collected "
                "at a later time",
                __func__, -removed);
        return list;
    }
    if (removed == 0) return list;
    if (TraceOn()) __Trace("%s: cleaning %i callbacks", __func__, removed);
    return collect(list);
}

vexCallback *vexCallCallbackList(vexCallback *list, void *first, void *second) {
    bool garbage = false;
    vexCallback *last = nullptr;
    for (vexCallback *entry = list; entry != nullptr; entry = entry->next) {
        if (entry->references > 0) run(entry, first, second);
        garbage = garbage || entry->references <= 0;
        last = entry;
    }
    // the callbacks may have freed the entries before the one that ran, the first one included
    list = startOf(last);
    if (!garbage) return list;
    if (TraceOn()) __Trace("%s: about to perform garbage collection", __func__);
    return collect(list);
}

void vexCallbackListDelete(vexCallback *list) {
    while (list != nullptr) {
        vexCallback *const next = list->next;
        free(list);
        list = next;
    }
}
