#pragma once

// GNUstep's Foundation headers ask for this file, which belongs to a runtime Debian does not have, as soon as blocks
// are switched on.

#include <Block.h>
