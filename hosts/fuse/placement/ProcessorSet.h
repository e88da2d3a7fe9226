#pragma once

#include <sched.h>

namespace fusehost {

/// The processors that a thread may run on, of the first 1024 of a machine.
class ProcessorSet {
public:
    ProcessorSet() { CPU_ZERO(&bits_); }

    explicit ProcessorSet(const cpu_set_t& bits) : bits_(bits) {}

    static ProcessorSet of(int processor) {
        ProcessorSet set;
        set.add(processor);
        return set;
    }

    /// Every number there can be, whether or not the machine has that processor.
    static ProcessorSet all() {
        ProcessorSet set;
        for (int processor = 0; processor < CPU_SETSIZE; ++processor)
            set.add(processor);
        return set;
    }

    void add(int processor) { CPU_SET(processor, &bits_); }

    bool has(int processor) const { return processor >= 0 && processor < CPU_SETSIZE && CPU_ISSET(processor, &bits_); }

    int count() const { return CPU_COUNT(&bits_); }

    /// The lowest number in it; -1 if it is empty.
    int first() const {
        for (int processor = 0; processor < CPU_SETSIZE; ++processor)
            if (has(processor))
                return processor;
        return -1;
    }

    ProcessorSet operator&(const ProcessorSet& other) const {
        ProcessorSet both;
        CPU_AND(&both.bits_, &bits_, &other.bits_);
        return both;
    }

    bool operator==(const ProcessorSet& other) const { return CPU_EQUAL(&bits_, &other.bits_); }

    const cpu_set_t& bits() const { return bits_; }

private:
    cpu_set_t bits_;
};

} // namespace fusehost
