#pragma once

#include "Fuzz.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace fuzz {

/// What a kernel asks for, written as text: each operation is a letter followed by its arguments, one character each,
/// and any bytes at all mean something. White space counts for nothing; behind the end everything is '0'.
///
/// The first character is the mount's options, the second how the helper behaves, both as bits. Then:
///
///     l N a      look a name up             g N      attributes of a node      e N      forget a node
///     c N a f    create and open            k N a    make a directory          n N a    make a file
///     u N a      remove a file              v N a    remove a directory        t N a N a f  rename
///     s N z      set the size               m N z    set the mode or the time  h N a    links and other kinds
///     o N f      open                       r H z z  read: offset, size        w H z z  write: offset, size
///     f H        flush                      y H      fsync                     x H      release
///     d N        open a directory           p D z    list it, z: buffer        q D      release it
///     j          figures of the file system i        nothing for a while
///
/// N, H, D: the number of a node, open file or open directory among those that are there (0 the root, in the order in
/// which they came); a: a name; z: a size; f: flags.
class RequestScript {
public:
    explicit RequestScript(Input text) : text_(text) {}

    bool isAtEnd();
    std::uint8_t byte();

    /// Less than `count`, which is more than 0.
    std::size_t choice(std::size_t count) { return static_cast<std::uint8_t>(byte() - '0') % count; }

private:
    void skipSpace();

    Input text_;
    std::size_t at_ = 0;
};

} // namespace fuzz
