#include "foundation/UUID.h"

#include <uuid/uuid.h>

namespace foundation {

UUID UUID::random() {
    UUID uuid;
    uuid_generate_random(uuid.bytes.data());
    return uuid;
}

std::string UUID::uuidString() const {
    char text[37];
    uuid_unparse_upper(bytes.data(), text);
    return text;
}

} // namespace foundation
