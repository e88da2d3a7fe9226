#pragma once

// The one place that says which version of libfuse's interface is used.
#define FUSE_USE_VERSION 312
#include <fuse_lowlevel.h>
