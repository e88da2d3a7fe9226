#pragma once

#include "hosts/fuse/tree/ByteSpool.h"
#include "hosts/fuse/tree/Contents.h"
#include "hosts/fuse/tree/Durability.h"
#include "hosts/fuse/tree/HeadCopies.h"
#include "hosts/fuse/tree/TemporaryFolder.h"

#include <cstdint>

namespace fusehost {

class KernelError;

/// Makes files shorter. The volume can only empty a file, or keep as much of its head as one read of the helper happens
/// to return. So the head is read here, by as many reads as it takes, and written back after the file was emptied.
/// Meanwhile a copy of it lies beside the file, safe with the helper, so that the head survives whoever dies in
/// between. The copy is not renamed over the file: the protocol does not tell a file's mode, nor its owner and its
/// other names, and the copy has neither. The helper is told to make the file safe when the head is back, not when it
/// is empty.
class Shrinking {
public:
    Shrinking(Nodes& nodes, Contents& contents, Durability& durability, HeadCopies& copies);

    /// Leaves the first `size` bytes, more than none and fewer than the file has. Throws KernelError: then the file is
    /// as it was, or, by the helper's fault, its head is where a log line says.
    void shrink(Node& node, std::uint64_t size);

private:
    void readHead(Node& node, std::uint64_t size, ByteSpool& head);
    void writeHead(Node& node, ByteSpool& head);
    /// Makes a file beside the node's that holds the head and is safe with the helper. Null where none is needed, or
    /// can be made.
    Node* copyHead(Node& node, ByteSpool& head);
    void replaceByHead(Node& node, ByteSpool& head);
    /// After `replaceByHead` has failed: has the file hold the head and nothing else, or, where it lost some of it, the
    /// copy take its place; otherwise throws `failure`. Consumes the copy.
    void restoreHead(Node& node, ByteSpool& head, Node* copy, const KernelError& failure);
    std::uint64_t sizeNow(Node& node);

    Nodes& nodes_;
    Contents& contents_;
    Durability& durability_;
    HeadCopies& copies_;
    const TemporaryFolder folder_;
};

} // namespace fusehost
