// Zeroing weak references. A class whose objects are ever referenced weakly has its releases made under a lock, so
// that the last one first clears the references: a weak load finds either a living object or nil.

#include "GccRuntime.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <unordered_map>
#include <unordered_set>

using namespace objc;

namespace {

struct WeakTable {
    // Recursive: releasing an object under it may destroy others that have weak references of their own.
    std::recursive_mutex lock;
    std::unordered_map<Id, std::unordered_set<Id*>> references;
    // Append-only, so that a release need not take the lock to find that its class is not listed.
    std::array<std::atomic<Class*>, 16> watchedClasses{};
    Imp originalRelease = nullptr;

    bool watches(const Class* cls) const {
        for (const auto& watched : watchedClasses) {
            const Class* candidate = watched.load(std::memory_order_acquire);
            if (!candidate)
                return false;
            if (candidate == cls)
                return true;
        }
        return false;
    }

    void clear(Id object) {
        auto found = references.find(object);
        if (found == references.end())
            return;
        for (Id* location : found->second)
            *location = nullptr;
        references.erase(found);
    }
};

WeakTable& table() {
    static auto* const instance = new WeakTable;
    return *instance;
}

bool isLastReference(Id object) {
    static Sel selector = sel_registerName("retainCount");
    return reinterpret_cast<std::size_t>(send(object, selector)) == 1;
}

Id releaseWatched(Id self, Sel selector, ...) {
    WeakTable& weak = table();
    if (weak.watches(self->isa)) {
        std::lock_guard guard(weak.lock);
        if (!isLastReference(self))
            return weak.originalRelease(self, selector);
        weak.clear(self);
    }
    // Outside the lock: what the object's destruction does is its own affair.
    return weak.originalRelease(self, selector);
}

void watch(Class* cls) {
    WeakTable& weak = table();
    if (weak.watches(cls))
        return;
    if (!weak.originalRelease)
        weak.originalRelease = method_setImplementation(
            class_getInstanceMethod(objc_lookUpClass("NSObject"), sel_registerName("release")), releaseWatched);
    for (auto& watched : weak.watchedClasses) {
        if (watched.load(std::memory_order_relaxed))
            continue;
        watched.store(cls, std::memory_order_release);
        return;
    }
    std::fprintf(stderr, "Objective-C bridge: more than 16 classes are referenced weakly\n");
    std::abort();
}

void forget(Id object, Id* location) {
    auto found = table().references.find(object);
    if (found == table().references.end())
        return;
    found->second.erase(location);
    if (found->second.empty())
        table().references.erase(found);
}

} // namespace

extern "C" {

Id objc_retain(Id);
Id objc_autorelease(Id);

Id objc_storeWeak(Id* location, Id object) {
    std::lock_guard guard(table().lock);
    if (*location)
        forget(*location, location);
    *location = object;
    if (object) {
        watch(object->isa);
        table().references[object].insert(location);
    }
    return object;
}

Id objc_initWeak(Id* location, Id object) {
    *location = nullptr;
    return objc_storeWeak(location, object);
}

void objc_destroyWeak(Id* location) {
    objc_storeWeak(location, nullptr);
}

Id objc_loadWeakRetained(Id* location) {
    std::lock_guard guard(table().lock);
    return objc_retain(*location);
}

Id objc_loadWeak(Id* location) {
    return objc_autorelease(objc_loadWeakRetained(location));
}

void objc_copyWeak(Id* to, Id* from) {
    std::lock_guard guard(table().lock);
    objc_initWeak(to, *from);
}

void objc_moveWeak(Id* to, Id* from) {
    std::lock_guard guard(table().lock);
    objc_initWeak(to, *from);
    objc_destroyWeak(from);
}
}
