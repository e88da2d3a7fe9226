// One exception personality for C++ and Objective-C: clang's Objective-C++ code for gnustep-1.9 names a personality
// and type records that libobjc2 would supply. Here they lead to the C++ runtime's, so that catch, @catch and
// destructors meet both kinds of exception as they do on macOS. @finally is not covered: use destructors.

#include "GccRuntime.h"

#include <cxxabi.h>
#include <typeinfo>
#include <unwind.h>

using namespace objc;

namespace {

thread_local _Unwind_Exception* exceptionInFlight;

bool isObjectiveC(const _Unwind_Exception* exception) {
    return exception->exception_class == 0x474e55434f424a43ULL; // "GNUCOBJC"
}

Id thrownObject(_Unwind_Exception* exception) {
    return *reinterpret_cast<Id*>(exception + 1);
}

bool objectIsKindOf(Id object, const char* className) {
    const Class* wanted = objc_lookUpClass(className);
    for (const Class* cls = object->isa; cls && wanted; cls = cls->super)
        if (cls == wanted)
            return true;
    return false;
}

bool isObjectInFlight(const std::type_info* thrown) {
    return *thrown == typeid(abi::__foreign_exception) && exceptionInFlight && isObjectiveC(exceptionInFlight);
}

} // namespace

extern "C" _Unwind_Reason_Code __gxx_personality_v0(int, _Unwind_Action, _Unwind_Exception_Class, _Unwind_Exception*,
                                                    _Unwind_Context*);

extern "C" _Unwind_Reason_Code __gnustep_objcxx_personality_v0(int version, _Unwind_Action actions,
                                                               _Unwind_Exception_Class exceptionClass,
                                                               _Unwind_Exception* exception, _Unwind_Context* context) {
    exceptionInFlight = exception;
    return __gxx_personality_v0(version, actions, exceptionClass, exception, context);
}

// The type records that clang emits for @catch clauses; names and layout are its choice.
namespace gnustep::libobjc {

struct __objc_class_type_info : std::type_info {
    explicit __objc_class_type_info(const char* className) : type_info(className) {}

    ~__objc_class_type_info() override;

    bool __do_catch(const std::type_info* thrown, void**, unsigned) const override {
        return isObjectInFlight(thrown) && objectIsKindOf(thrownObject(exceptionInFlight), name());
    }
};

__objc_class_type_info::~__objc_class_type_info() = default;

struct __objc_id_type_info : std::type_info {
    __objc_id_type_info() : type_info("@id") {}

    ~__objc_id_type_info() override;

    bool __do_catch(const std::type_info* thrown, void**, unsigned) const override { return isObjectInFlight(thrown); }
};

__objc_id_type_info::~__objc_id_type_info() = default;

} // namespace gnustep::libobjc

extern "C" {
gnustep::libobjc::__objc_id_type_info __objc_id_type_info;
}

// Hands an @catch clause the object itself instead of the exception that carries it.
extern "C" void* __cxa_begin_catch(void* caught) noexcept {
    static const auto begin = reinterpret_cast<void* (*)(void*)>(nextDefinition("__cxa_begin_catch"));
    auto* exception = static_cast<_Unwind_Exception*>(caught);
    Id object = isObjectiveC(exception) ? thrownObject(exception) : nullptr;
    void* value = begin(caught);
    return object ? object : value;
}
