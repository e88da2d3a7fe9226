// Lets GCC's runtime load modules that clang compiled for gnustep-1.9: their records are rewritten in place to the
// format that the runtime knows, and message sends through slots are answered with its look-up.

#include "GccRuntime.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <vector>

namespace objc {

void* nextDefinition(const char* name) {
    void* definition = dlsym(RTLD_NEXT, name);
    if (!definition) {
        std::fprintf(stderr, "Objective-C bridge: %s is not in any library\n", name);
        std::abort();
    }
    return definition;
}

namespace {

constexpr unsigned long gccModuleVersion = 8;
constexpr std::size_t gccProtocolVersion = 2;
constexpr std::size_t clangProtocolVersion = 3;
constexpr unsigned long newAbiBit = 0x10; // GCC's runtime reads it as "class under construction"

void convertProtocols(ProtocolList* list);

void convertProtocol(Protocol* protocol) {
    if (reinterpret_cast<std::size_t>(protocol->isa) != clangProtocolVersion)
        return;
    protocol->isa = reinterpret_cast<void*>(gccProtocolVersion);
    convertProtocols(protocol->protocols);
}

void convertProtocols(ProtocolList* list) {
    for (; list; list = list->next)
        for (std::size_t i = 0; i < list->count; ++i)
            convertProtocol(list->list[i]);
}

bool layOut(Class* cls, Symtab* symtab);

// The superclass with its layout settled; null while it is not loaded yet.
Class* laidOutClass(const char* name, Symtab* symtab) {
    for (unsigned i = 0; i < symtab->classCount; ++i) {
        auto* candidate = static_cast<Class*>(symtab->definitions[i]);
        if (std::strcmp(candidate->name, name) == 0)
            return layOut(candidate, symtab) ? candidate : nullptr;
    }
    return objc_lookUpClass(name);
}

// Places a class's instance variables behind its superclass's. False while a superclass is not loaded yet.
bool layOut(Class* cls, Symtab* symtab) {
    if (cls->instanceSize > 0 || cls->abiVersion == 0)
        return true;
    Class* super = nullptr;
    if (const char* superName = reinterpret_cast<const char*>(cls->super)) {
        super = laidOutClass(superName, symtab);
        if (!super)
            return false;
    }
    const long base = super ? (super->instanceSize + 15) & ~15L : 0;
    const bool hasOwn = cls->ivars && cls->ivars->count > 0;
    for (int i = 0; hasOwn && i < cls->ivars->count; ++i) {
        cls->ivars->list[i].offset += static_cast<int>(base);
        if (cls->ivarOffsets)
            *cls->ivarOffsets[i] = cls->ivars->list[i].offset;
    }
    // clang gives the size of the own variables, negated.
    if (hasOwn)
        cls->instanceSize = base - cls->instanceSize;
    else
        cls->instanceSize = super ? super->instanceSize : -cls->instanceSize;
    return true;
}

void convertStatics(Statics** statics) {
    for (; statics && *statics; ++statics) {
        if (std::strcmp((*statics)->className, "Protocol") != 0)
            continue;
        for (void** instance = (*statics)->instances; *instance; ++instance)
            convertProtocol(static_cast<Protocol*>(*instance));
    }
}

// False, with nothing but layouts changed, while a superclass of the module is not loaded yet.
bool convert(Module* module) {
    Symtab* symtab = module->symtab;
    for (unsigned i = 0; i < symtab->classCount; ++i)
        if (!layOut(static_cast<Class*>(symtab->definitions[i]), symtab))
            return false;
    for (unsigned i = 0; i < symtab->classCount; ++i) {
        auto* cls = static_cast<Class*>(symtab->definitions[i]);
        cls->info &= ~newAbiBit;
        cls->isa->info &= ~newAbiBit;
        convertProtocols(cls->protocols);
    }
    void** categories = symtab->definitions + symtab->classCount;
    for (unsigned i = 0; i < symtab->categoryCount; ++i)
        convertProtocols(static_cast<Category*>(categories[i])->protocols);
    convertStatics(static_cast<Statics**>(categories[symtab->categoryCount]));
    module->version = gccModuleVersion;
    module->size = sizeof(Module);
    return true;
}

std::vector<Module*>& waitingModules() {
    static std::vector<Module*> modules;
    return modules;
}

struct Slot {
    Class* owner;
    Class* cachedFor;
    const char* types;
    int version;
    Imp method;
};

thread_local Slot currentSlot;

} // namespace
} // namespace objc

using namespace objc;

// Called by every module's constructor, in any order.
extern "C" void __objc_exec_class(Module* module) {
    static const auto load = reinterpret_cast<void (*)(Module*)>(nextDefinition("__objc_exec_class"));
    if (module->version == gccModuleVersion)
        return load(module);
    if (module->version != 9 && module->version != 10) {
        std::fprintf(stderr, "Objective-C bridge: unknown module version %lu\n", module->version);
        std::abort();
    }
    std::vector<Module*>& waiting = waitingModules();
    waiting.push_back(module);
    for (bool progress = true; progress;) {
        progress = false;
        for (auto it = waiting.begin(); it != waiting.end();) {
            if (convert(*it)) {
                load(*it);
                it = waiting.erase(it);
                progress = true;
            } else {
                ++it;
            }
        }
    }
}

extern "C" Slot* objc_msg_lookup_sender(Id* receiver, Sel selector, Id) {
    currentSlot.method = objc_msg_lookup(*receiver, selector);
    return &currentSlot;
}

extern "C" Slot* objc_slot_lookup_super(Super* super, Sel selector) {
    currentSlot.method = objc_msg_lookup_super(super, selector);
    return &currentSlot;
}
