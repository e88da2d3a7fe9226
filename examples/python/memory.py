#!/usr/bin/env python3
"""A tree in memory, gone when it is unmounted: all that a writable file system must do."""
from datetime import datetime, timezone

from kemvi_helper import Entry, OpenFlags, PosixError, Stat, serve


class Node:
    """A file, or a folder where `members` is not None."""

    def __init__(self, is_folder: bool) -> None:
        self.members: dict[str, Node] | None = {} if is_folder else None
        self.data = bytearray()
        self.touch()

    def touch(self) -> None:
        self.modified_at = datetime.now(timezone.utc)


class Memory:
    def __init__(self) -> None:
        self.root = Node(is_folder=True)

    def find(self, path: str) -> Node:
        node = self.root
        for name in path.split("/")[1:] if path != "/" else []:
            if node.members is None:
                raise PosixError("ENOTDIR", f"{path} leads through a file")
            if name not in node.members:
                raise PosixError("ENOENT", f"there is no {path}")
            node = node.members[name]
        return node

    def members(self, path: str) -> dict[str, Node]:
        members = self.find(path).members
        if members is None:
            raise PosixError("ENOTDIR", f"{path} is not a folder")
        return members

    def place(self, path: str) -> tuple[Node, dict[str, Node], str]:
        """Where a name is, or would be made: its folder, the members of that, and the name."""
        folder, _, name = path.rpartition("/")
        if not name:
            raise PosixError("EPERM", "/ stays as it is")
        return self.find(folder or "/"), self.members(folder or "/"), name

    def getattr(self, path: str) -> Stat:
        node = self.find(path)
        return Stat(is_directory=node.members is not None, size=len(node.data), modified_at=node.modified_at)

    def readdir(self, path: str) -> list[Entry]:
        return [Entry(name, is_directory=node.members is not None, size=len(node.data), modified_at=node.modified_at)
                for name, node in self.members(path).items()]

    # An open file is its node, so it outlives its name.
    def open(self, path: str, flags: OpenFlags) -> Node:
        folder, members, name = self.place(path)
        if flags.create and name not in members:
            members[name] = Node(is_folder=False)
            folder.touch()
        node = self.find(path)
        if node.members is not None:
            raise PosixError("EISDIR", f"{path} is a folder")
        if flags.truncate:
            node.data.clear()
            node.touch()
        return node

    def read(self, file: Node, offset: int, length: int) -> bytes:
        return bytes(file.data[offset:offset + length])

    def write(self, file: Node, offset: int, data: bytes) -> None:
        if offset > len(file.data):
            file.data.extend(bytes(offset - len(file.data)))
        file.data[offset:offset + len(data)] = data
        file.touch()

    def mkdir(self, path: str) -> None:
        folder, members, name = self.place(path)
        if name in members:
            raise PosixError("EEXIST", f"there is a {path} already")
        members[name] = Node(is_folder=True)
        folder.touch()

    def unlink(self, path: str) -> None:
        folder, members, name = self.place(path)
        if self.find(path).members:
            raise PosixError("ENOTEMPTY", f"{path} is not empty")
        del members[name]
        folder.touch()

    def rename(self, old_path: str, new_path: str) -> None:
        old_folder, old_members, old_name = self.place(old_path)
        new_folder, new_members, new_name = self.place(new_path)
        node, replaced = self.find(old_path), new_members.get(new_name)
        if new_path.startswith(old_path + "/"):
            raise PosixError("EINVAL", f"{old_path} cannot lie in itself")
        if replaced is node:
            return
        if replaced is not None:
            if (replaced.members is None) != (node.members is None):
                raise PosixError("EISDIR" if node.members is None else "ENOTDIR", f"{new_path} is of the other kind")
            if replaced.members:
                raise PosixError("ENOTEMPTY", f"{new_path} is not empty")
        new_members[new_name] = old_members.pop(old_name)
        old_folder.touch()
        new_folder.touch()

    def chmod(self, path: str, mode: int) -> None:
        self.find(path)  # modes are not kept: every mount shows the same for all files

    def utimes(self, path: str, mtime: datetime) -> None:
        self.find(path).modified_at = mtime


if __name__ == "__main__":
    serve(Memory())
