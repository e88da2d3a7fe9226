#include "extension/KemviFSExtension.h"

#include "extension/KemviUnaryFileSystem.h"

namespace kemvi {

std::shared_ptr<fskit::FSUnaryFileSystem> KemviFSExtension::fileSystem() const {
    return std::make_shared<KemviUnaryFileSystem>();
}

std::shared_ptr<fskit::FSUnaryFileSystem> KemviFSExtension::fileSystem(HelperObserver& observer) const {
    return std::make_shared<KemviUnaryFileSystem>(observer);
}

} // namespace kemvi
