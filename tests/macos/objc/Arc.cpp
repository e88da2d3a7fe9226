// The functions that clang calls for automatic reference counting, each a message of manual reference counting.

#include "GccRuntime.h"

using namespace objc;

namespace {

Id sendRetain(Id object) {
    static Sel selector = sel_registerName("retain");
    return send(object, selector);
}

Id sendAutorelease(Id object) {
    static Sel selector = sel_registerName("autorelease");
    return send(object, selector);
}

void sendRelease(Id object) {
    static Sel selector = sel_registerName("release");
    send(object, selector);
}

} // namespace

extern "C" {

Id objc_retain(Id object) {
    return object ? sendRetain(object) : object;
}

void objc_release(Id object) {
    if (object)
        sendRelease(object);
}

Id objc_autorelease(Id object) {
    return object ? sendAutorelease(object) : object;
}

Id objc_retainAutorelease(Id object) {
    return objc_autorelease(objc_retain(object));
}

Id objc_autoreleaseReturnValue(Id object) {
    return objc_autorelease(object);
}

Id objc_retainAutoreleaseReturnValue(Id object) {
    return objc_retainAutorelease(object);
}

Id objc_retainAutoreleasedReturnValue(Id object) {
    return objc_retain(object);
}

Id objc_unsafeClaimAutoreleasedReturnValue(Id object) {
    return object;
}

Id objc_retainBlock(Id block) {
    return static_cast<Id>(_Block_copy(block));
}

void objc_storeStrong(Id* location, Id object) {
    objc_retain(object);
    Id old = *location;
    *location = object;
    objc_release(old);
}

void* objc_autoreleasePoolPush() {
    static Sel selector = sel_registerName("new");
    return send(reinterpret_cast<Id>(objc_lookUpClass("NSAutoreleasePool")), selector);
}

void objc_autoreleasePoolPop(void* pool) {
    objc_release(static_cast<Id>(pool));
}

void objc_setProperty_nonatomic(Id self, Sel selector, Id value, std::ptrdiff_t offset) {
    objc_setProperty(self, selector, static_cast<std::size_t>(offset), value, 0, 0);
}

void objc_setProperty_nonatomic_copy(Id self, Sel selector, Id value, std::ptrdiff_t offset) {
    objc_setProperty(self, selector, static_cast<std::size_t>(offset), value, 0, 1);
}

void objc_setProperty_atomic(Id self, Sel selector, Id value, std::ptrdiff_t offset) {
    objc_setProperty(self, selector, static_cast<std::size_t>(offset), value, 1, 0);
}

void objc_setProperty_atomic_copy(Id self, Sel selector, Id value, std::ptrdiff_t offset) {
    objc_setProperty(self, selector, static_cast<std::size_t>(offset), value, 1, 1);
}
}
