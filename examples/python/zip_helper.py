#!/usr/bin/env python3
"""Serves the members of a zip archive, read-only, with Python's standard library alone.

kemvi init config --command 'python3 zip_helper.py' --repo-root archive.zip
"""
import base64
import json
import os
import sys
import zipfile
from datetime import datetime


class Refused(Exception):
    """An error that the program using the mount sees as the POSIX error named by `code`."""

    def __init__(self, code, message):
        super().__init__(message)
        self.code = code


class ZipTree:
    """The archive as a tree: for each path what is known of it, and the members of each folder."""

    def __init__(self, name):
        self.archive = zipfile.ZipFile(name)
        self.made = time_text(datetime.utcfromtimestamp(os.stat(name).st_mtime))
        self.stats = {"/": self.stat("/", None)}
        self.members = {"/": {}}
        self.infos = {}
        for info in self.archive.infolist():
            names = [part for part in info.filename.split("/") if part not in ("", ".", "..")]
            if names:
                self.add(names, info)

    def stat(self, path, info):
        is_file = info is not None and not info.is_dir()
        return {
            "path": path,
            "name": "/" if path == "/" else path.rsplit("/", 1)[1],
            "isDirectory": not is_file,
            "size": info.file_size if is_file else 0,
            "modifiedAt": self.time_of(info) if info else self.made,
        }

    def time_of(self, info):
        try:
            return time_text(datetime(*info.date_time))
        except ValueError:  # archives may hold dates that do not exist
            return self.made

    def add(self, names, info):
        folder = "/"
        for depth, name in enumerate(names):
            path = folder.rstrip("/") + "/" + name
            last = depth == len(names) - 1
            if last or path not in self.stats:
                self.stats[path] = self.stat(path, info if last else None)
            self.members[folder][name] = path
            if self.stats[path]["isDirectory"]:
                self.members.setdefault(path, {})
            else:
                if last:
                    self.infos[path] = info
                return  # nothing lies beneath a file
            folder = path

    def getattr(self, path):
        if path not in self.stats:
            raise Refused("ENOENT", "there is no " + path)
        return self.stats[path]

    def readdir(self, path):
        if not self.getattr(path)["isDirectory"]:
            raise Refused("ENOTDIR", path + " is not a folder")
        return [self.stats[member] for member in self.members[path].values()]

    def contents(self, path):
        if self.getattr(path)["isDirectory"]:
            raise Refused("EISDIR", path + " is a folder")
        return self.archive.read(self.infos[path])


def time_text(time):
    return time.strftime("%Y-%m-%dT%H:%M:%S.") + "%03dZ" % (time.microsecond // 1000)


class Helper:
    """Answers requests. A file is unpacked when it is opened and kept until it is released."""

    def __init__(self, tree):
        self.tree = tree
        self.files = {}
        self.last_handle = 0

    def answer(self, request):
        """What goes into the answer beside `id` and `ok`."""
        op = request["op"]
        if op == "ping":
            return {}
        if op == "statfs":
            sizes = [stat["size"] for stat in self.tree.stats.values() if not stat["isDirectory"]]
            folders = len(self.tree.stats) - len(sizes)
            return {"result": {"files": len(sizes), "directories": folders, "bytes": sum(sizes)}}
        if op == "getattr":
            return {"result": self.tree.getattr(request["path"])}
        if op == "readdir":
            return {"result": self.tree.readdir(request["path"])}
        if op == "open" and request["flags"] == ["read"]:
            data = self.tree.contents(request["path"])
            self.last_handle += 1
            self.files[self.last_handle] = data
            return {"result": {"handle": self.last_handle}}
        if op in ("read", "flush", "release"):
            if request["handle"] not in self.files:
                raise Refused("EBADF", "handle %s is not open" % request["handle"])
            if op == "release":
                del self.files[request["handle"]]
            if op != "read":
                return {}
            start = request["offset"]
            piece = self.files[request["handle"]][start : start + request["length"]]
            return {"dataBase64": base64.b64encode(piece).decode("ascii")}
        if op in ("open", "write", "mkdir", "unlink", "rename", "chmod", "utimes"):
            raise Refused("EROFS", "an archive is not changed")
        raise Refused("EINVAL", "unknown operation " + repr(op))


def main():
    try:
        helper = Helper(ZipTree(os.environ.get("KEMVI_REPO_ROOT", "")))
    except (OSError, zipfile.BadZipFile) as error:
        sys.exit("zip_helper: KEMVI_REPO_ROOT must name a zip archive: %s" % error)
    for line in sys.stdin.buffer:
        request = json.loads(line)
        answer = {"id": request["id"], "ok": True}
        try:
            answer.update(helper.answer(request))
        except Refused as error:
            answer.update(ok=False, error={"message": str(error), "code": error.code})
        except Exception as error:  # a damaged member, a field that is missing: the helper goes on
            print("zip_helper: %s failed: %r" % (request.get("op"), error), file=sys.stderr)
            answer.update(ok=False, error={"message": repr(error), "name": type(error).__name__})
        sys.stdout.buffer.write(json.dumps(answer).encode("ascii") + b"\n")
        sys.stdout.buffer.flush()


if __name__ == "__main__":
    main()
