#include "fskit/FSUnaryFileSystem.h"

namespace fskit {

FSUnaryFileSystemOperations::~FSUnaryFileSystemOperations() = default;

} // namespace fskit
