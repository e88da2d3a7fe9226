// A block runtime by the public block ABI. Its blocks are real Objective-C objects and retain what they capture.
// Compiled with -fobjc-runtime=gcc and manual reference counting; linked into the executable, it stands in front of the
// stubs that libgnustep-base exports.

#import <Foundation/Foundation.h>

#include <Block.h>
#include <stdlib.h>
#include <string.h>

enum { needsFree = 1 << 24, hasCopyDispose = 1 << 25, isGlobal = 1 << 28, countMask = 0xfffe, countOne = 2 };
enum { fieldObject = 3, fieldBlock = 7, fieldByref = 8, fieldKindMask = 7, byrefCaller = 128 };

struct Descriptor {
    unsigned long reserved, size;
    void (*copy)(void*, const void*);
    void (*dispose)(const void*);
};

struct Block {
    const void* isa;
    int flags, reserved;
    void (*invoke)(void);
    struct Descriptor* descriptor;
};

struct Byref {
    void* isa;
    struct Byref* forwarding;
    int flags;
    unsigned size;
    void (*keep)(struct Byref*, struct Byref*);
    void (*destroy)(struct Byref*);
};

extern char _NSConcreteMallocBlock;

void* _Block_copy(const void* argument) {
    struct Block* block = (struct Block*)argument;
    if (!block || (block->flags & isGlobal))
        return block;
    if (block->flags & needsFree) {
        __atomic_add_fetch(&block->flags, countOne, __ATOMIC_RELAXED);
        return block;
    }
    struct Block* copy = malloc(block->descriptor->size);
    if (!copy)
        abort();
    memcpy(copy, block, block->descriptor->size);
    copy->flags = (block->flags & ~(countMask | 1)) | needsFree | countOne;
    copy->isa = &_NSConcreteMallocBlock;
    if (copy->flags & hasCopyDispose)
        block->descriptor->copy(copy, block);
    return copy;
}

void _Block_release(const void* argument) {
    struct Block* block = (struct Block*)argument;
    if (!block || !(block->flags & needsFree))
        return;
    if (__atomic_sub_fetch(&block->flags, countOne, __ATOMIC_ACQ_REL) & countMask)
        return;
    if (block->flags & hasCopyDispose)
        block->descriptor->dispose(block);
    free(block);
}

static struct Byref* copyByref(struct Byref* source) {
    struct Byref* current = source->forwarding;
    if (current->flags & needsFree) {
        __atomic_add_fetch(&current->flags, countOne, __ATOMIC_RELAXED);
        return current;
    }
    struct Byref* copy = malloc(source->size);
    if (!copy)
        abort();
    memcpy(copy, source, source->size);
    copy->flags = (source->flags & ~countMask) | needsFree | 2 * countOne; // one for the frame, one for the block
    copy->forwarding = source->forwarding = copy;
    if (source->flags & hasCopyDispose)
        source->keep(copy, source);
    return copy;
}

static void releaseByref(struct Byref* byref) {
    struct Byref* current = byref->forwarding;
    if (!(current->flags & needsFree))
        return;
    if (__atomic_sub_fetch(&current->flags, countOne, __ATOMIC_ACQ_REL) & countMask)
        return;
    if (current->flags & hasCopyDispose)
        current->destroy(current);
    free(current);
}

void _Block_object_assign(void* destination, const void* object, const int flags) {
    const void** field = destination;
    if (flags & byrefCaller)
        *field = object; // under manual reference counting __block variables are not retained
    else if (flags & fieldByref)
        *field = copyByref((struct Byref*)object);
    else if ((flags & fieldKindMask) == fieldBlock)
        *field = _Block_copy(object);
    else if ((flags & fieldKindMask) == fieldObject)
        *field = [(id)object retain];
}

void _Block_object_dispose(const void* object, const int flags) {
    if (flags & byrefCaller)
        return;
    if (flags & fieldByref)
        releaseByref((struct Byref*)object);
    else if ((flags & fieldKindMask) == fieldBlock)
        _Block_release(object);
    else if ((flags & fieldKindMask) == fieldObject)
        [(id)object release];
}

// Blocks as objects: they can be copied by message, put into collections and logged.
@interface KemviTestBlock : NSObject
@end

@implementation KemviTestBlock
- (id)copyWithZone:(NSZone*)zone {
    return (id)_Block_copy(self);
}
- (id)copy {
    return (id)_Block_copy(self);
}
- (id)retain {
    return (id)_Block_copy(self);
}
- (oneway void)release {
    _Block_release(self);
}
- (NSUInteger)retainCount {
    return 1;
}
@end

@interface KemviTestStackBlock : KemviTestBlock
@end

@implementation KemviTestStackBlock
- (id)retain {
    return self;
}
- (oneway void)release {
}
- (id)autorelease {
    return self;
}
@end

@interface KemviTestGlobalBlock : KemviTestStackBlock
@end

@implementation KemviTestGlobalBlock
@end

@interface KemviTestMallocBlock : KemviTestBlock
@end

@implementation KemviTestMallocBlock
@end

// A block's isa is the address of one of these symbols: make them the classes.
__asm__(".globl _NSConcreteStackBlock\n.set _NSConcreteStackBlock, _OBJC_CLASS_KemviTestStackBlock\n"
        ".globl _NSConcreteGlobalBlock\n.set _NSConcreteGlobalBlock, _OBJC_CLASS_KemviTestGlobalBlock\n"
        ".globl _NSConcreteMallocBlock\n.set _NSConcreteMallocBlock, _OBJC_CLASS_KemviTestMallocBlock\n");

// clang collects the protocols named by @protocol() in a category of this class; without the class the runtime never
// initialises them.
@interface __ObjC_Protocol_Holder_Ugly_Hack : NSObject
@end

@implementation __ObjC_Protocol_Holder_Ugly_Hack
@end
