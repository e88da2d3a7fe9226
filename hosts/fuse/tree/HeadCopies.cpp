#include "hosts/fuse/tree/HeadCopies.h"

#include "hosts/fuse/calls/KernelError.h"
#include "hosts/fuse/support/HostLog.h"

#include <string_view>

namespace fusehost {
namespace {

constexpr std::string_view headOf = "-head-of-";
constexpr mode_t privateMode = 0600; // the file itself may be private

} // namespace

HeadCopies::HeadCopies(Changes& changes, Nodes& nodes, NewItems& newItems, HiddenNames& names)
    : changes_(changes), nodes_(nodes), newItems_(newItems), names_(names) {}

Node& HeadCopies::make(Node& node) {
    Node& directory = *node.parent;
    const NameChange change(changes_, directory);
    return nodes_.adopt(directory,
                        newItems_.make(change, directory, nameFor(node), fskit::FSItemType::file, privateMode));
}

// It says whose head it is, as far as there is room for that: whoever finds one after a crash may need it.
std::string HeadCopies::nameFor(const Node& node) {
    std::string name = names_.next() + std::string(headOf) + node.name;
    std::size_t end = nodes_.maximumNameLength();
    if (name.size() <= end)
        return name;
    while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0U) == 0x80U) // not within a character
        --end;
    name.resize(end);
    return name;
}

void HeadCopies::drop(Node& copy) {
    Node& directory = *copy.parent;
    const NameChange change(changes_, directory);
    changes_.handles.closeQuietly(copy);
    try {
        changes_.handles.remove(nodes_.itemOf(copy), nodes_.itemOf(directory), copy.name);
    } catch (const KernelError& error) {
        error.tell();
        hostLog().error({"a copy that is needed no more stays in the served tree, named ",
                         foundation::logPrivate(copy.name), ": ", foundation::logPublic(error.what())});
    }
    nodes_.drop(copy);
}

bool HeadCopies::putInPlace(Node& copy, Node& node) {
    Node& directory = *node.parent;
    const NameChange change(changes_, directory);
    changes_.handles.closeEverything(node);
    try {
        changes_.handles.rename(nodes_.itemOf(copy), nodes_.itemOf(directory), copy.name, nodes_.itemOf(directory),
                                node.name);
    } catch (const KernelError&) {
        return false;
    }
    hostLog().error({"shortening ", foundation::logPrivate(node.name),
                     ": its head could not be written back; a copy with mode 0600 took its place"});
    nodes_.drop(copy);
    node.item.reset(); // its handles were of the file that is gone
    node.safety = Safety::told;
    return true;
}

void HeadCopies::leave(Node& copy, const Node& node) {
    hostLog().error({"shortening ", foundation::logPrivate(node.name), " failed; its head is kept beside it, as ",
                     foundation::logPublic(copy.name.substr(0, copy.name.find(headOf) + headOf.size())),
                     foundation::logPrivate(node.name)});
    changes_.handles.closeQuietly(copy);
    nodes_.dropIfUnused(copy);
}

} // namespace fusehost
