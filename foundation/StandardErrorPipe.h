#pragma once

#include "foundation/Descriptor.h"

namespace foundation {

/// Puts a pipe in the place of standard error, for this process and the children that it starts from here on, and
/// returns its reading end. Owns nothing, with errno set, if the process can have no pipe: standard error is then what
/// it was.
Descriptor pipeAsStandardError() noexcept;

/// True if what is written to standard error is lost: it is closed, or /dev/null.
bool standardErrorLeadsNowhere() noexcept;

} // namespace foundation
