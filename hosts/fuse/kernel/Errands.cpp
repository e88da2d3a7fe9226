#include "hosts/fuse/kernel/Errands.h"

#include "hosts/fuse/calls/Quietly.h"

#include <utility>

namespace fusehost {

void Errands::add(Errand errand) {
    const std::lock_guard guard(lock_);
    errands_.push_back(std::move(errand));
    pending_ = true;
    called_.signal();
}

void Errands::runNext() noexcept {
    Errand errand;
    {
        const std::lock_guard guard(lock_);
        if (errands_.empty())
            return;
        errand = std::move(errands_.front());
        errands_.pop_front();
        if (errands_.empty()) {
            pending_ = false;
            called_.clear();
        }
    }
    quietly("an errand between two requests", errand);
}

} // namespace fusehost
