#pragma once

// The records that clang emits for -fobjc-runtime=gnustep-1.9 and the functions of GCC's runtime (libobjc4) that the
// bridge between the two needs. Field order and width are the binary interface of both.

#include <cstddef>

namespace objc {

struct Class;

struct Object {
    Class* isa;
};

using Id = Object*;
struct Selector;
using Sel = Selector*;
using Imp = Id (*)(Id, Sel, ...);

struct Ivar {
    const char* name;
    const char* type;
    int offset;
};

struct IvarList {
    int count;
    Ivar list[1];
};

struct ProtocolList;

struct Protocol {
    void* isa; // a version number until the runtime resolves it
    const char* name;
    ProtocolList* protocols;
    void* methodLists[2];
};

struct ProtocolList {
    ProtocolList* next;
    std::size_t count;
    Protocol* list[1];
};

struct Class {
    Class* isa;
    Class* super; // the superclass's name until the runtime resolves it
    const char* name;
    long version;
    unsigned long info;
    long instanceSize;
    IvarList* ivars;
    void* methods;
    void* dispatchTable;
    Class* subclasses;
    Class* sibling;
    ProtocolList* protocols;
    void* gc;
    long abiVersion;   // from here on: 1.9 records only
    int** ivarOffsets; // the variables through which compiled code finds its instance variables
};

struct Category {
    const char* name;
    const char* className;
    void* methodLists[2];
    ProtocolList* protocols;
};

struct Statics {
    const char* className;
    void* instances[1];
};

struct Symtab {
    unsigned long selectorCount;
    void* selectors;
    unsigned short classCount;
    unsigned short categoryCount;
    void* definitions[1]; // classes, then categories, then a null-terminated list of Statics*
};

struct Module {
    unsigned long version;
    unsigned long size;
    const char* name;
    Symtab* symtab;
};

struct Super {
    Id self;
    Class* cls;
};

extern "C" {
Imp objc_msg_lookup(Id, Sel);
Imp objc_msg_lookup_super(Super*, Sel);
Class* objc_lookUpClass(const char*);
Sel sel_registerName(const char*);
void* class_getInstanceMethod(Class*, Sel);
Imp method_setImplementation(void*, Imp);
void objc_setProperty(Id, Sel, std::size_t offset, Id value, signed char atomic, signed char copy);
void* _Block_copy(const void*);
}

/// Sends a message without arguments.
inline Id send(Id receiver, Sel selector) {
    return objc_msg_lookup(receiver, selector)(receiver, selector);
}

/// The definition that this executable's own one of the same name stands in front of; ends the program if there is
/// none.
void* nextDefinition(const char* name);

} // namespace objc
