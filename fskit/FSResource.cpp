#include "fskit/FSResource.h"

namespace fskit {

FSResource::~FSResource() = default;

std::string FSPathURLResource::description() const {
    return "FSPathURLResource " + url_->path();
}

} // namespace fskit
