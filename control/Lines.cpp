#include "control/Lines.h"

namespace control {

std::string greetingLine(std::string_view version, std::string_view mountPoint) {
    return Members().add("kemvi", version).add("channel", channelVersion).add("mountPoint", mountPoint).json() + "\n";
}

std::string successLine(const Members& members) {
    return Members().add("ok", true).append(members).json() + "\n";
}

std::string refusalLine(std::string_view code, std::string_view message) {
    return Members().add("ok", false).add("error", Members().add("message", message).add("code", code)).json() + "\n";
}

} // namespace control
