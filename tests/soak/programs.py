"""The programs that run side by side on the mount, each in a folder of its own. A step is a few operations; `rest` lets go
of what is open, so that all can be compared; `sweep` removes what was made, so that whatever still grows is no file."""


class Program:
    def __init__(self, pair, lots):
        self.pair, self.lots = pair, lots
        self.round = 0

    def begin(self):
        """After each mount, with whatever an earlier one left."""

    def step(self):
        raise NotImplementedError

    def rest(self):
        self.pair.close_all()

    def sweep(self):
        for name in self.pair.do("listing", "."):
            size, _ = self._kind(name)
            self.pair.do("remove_tree" if size else "unlink", name)

    def seed(self):
        return self.lots.getrandbits(32)

    def length(self, largest=300000):
        """Mostly small, sometimes large."""
        return self.lots.randrange(1, self.lots.choice((50, 5000, 70000, largest)))

    def _kind(self, name):
        told = self.pair.do("stat", name)
        return told if told[0] != "error" else (0, 0)

    def size(self, name):
        """None if there is no such file."""
        told = self.pair.do("stat", name)
        return None if told[0] == "error" or told[0] else told[1]


class Editor(Program):
    """Saves as editors do: through a temporary file and a rename, in place, with a backup copy or a backup rename."""

    names = [f"text{number}" for number in range(8)]

    def step(self):
        name = self.lots.choice(self.names)
        way = self.lots.randrange(4)
        if way == 0:
            self.pair.do("write_whole", f".{name}.tmp", self.seed(), self.length(), self.lots.random() < 0.5)
            self.pair.do("rename", f".{name}.tmp", name)
        elif way == 1:
            self.pair.do("write_whole", name, self.seed(), self.length(), self.lots.random() < 0.5)
        elif way == 2:
            if self.size(name) is not None:
                self.pair.do("copy", name, name + "~")
            self.pair.do("write_whole", name, self.seed(), self.length())
        else:
            self.pair.do("rename", name, name + "~")
            self.pair.do("write_whole", name, self.seed(), self.length(), True)
        self.pair.do("read", name)
        self.pair.do("read", self.lots.choice(self.names))
        self.pair.do("listing", ".")


class Files(Program):
    """Random changes of a few names in a few folders."""

    names = [f"{folder}{name}" for folder in ("", "one/", "two/", "one/three/") for name in ("a", "b", "c", "d")]
    folders = ["one", "two", "one/three", "four"]

    def step(self):
        for _ in range(self.lots.randrange(1, 8)):
            self._change()
        self.pair.do("digest", ".")

    def _change(self):
        name, lots = self.lots.choice(self.names), self.lots
        size = self.size(name)
        kind = lots.choice(("write", "write", "append", "truncate", "map", "map", "rename", "unlink", "mkdir", "rmdir",
                            "move", "whole", "large"))
        if kind == "write":
            offset = lots.randrange((size or 0) + 5000)
            self.pair.do("write_at", name, offset, self.seed(), self.length(), lots.random() < 0.3)
        elif kind == "append":
            self.pair.do("append", name, self.seed(), self.length(5000))
        elif kind == "truncate":
            self.pair.do("truncate", name, lots.randrange((size or 0) * 3 // 2 + 100))
        elif kind == "map":
            if size:
                offset = lots.randrange(size)
                length = lots.randrange(1, min(size - offset, 50000) + 1)
                self.pair.do("map_write", name, offset, self.seed(), length, lots.random() < 0.5)
        elif kind == "rename":
            self.pair.do("rename", name, lots.choice(self.names))
        elif kind == "unlink":
            self.pair.do("unlink", name)
        elif kind == "mkdir":
            self.pair.do("mkdir", lots.choice(self.folders))
        elif kind == "rmdir":
            self.pair.do("rmdir", lots.choice(self.folders))
        elif kind == "move":
            self.pair.do("rename", "four", "two")
        elif kind == "whole":
            self.pair.do("write_whole", name, self.seed(), self.length())
        elif lots.random() < 0.15:
            self.pair.do("write_whole", name, self.seed(), lots.randrange(1, 4000000))


class Small(Program):
    """Many small files, and none of them the next time."""

    def step(self):
        self.round += 1
        name = f"many{self.seed():08x}"
        count = self.lots.randrange(10, 120)
        self.pair.do("many", name, self.seed(), count)
        self.pair.do("listing", name)
        self.pair.do("digest", name)
        if self.lots.random() < 0.5:
            self.pair.do("rename", name, name + "moved")
            name += "moved"
        for number in range(0, count, 7):
            self.pair.do("unlink", f"{name}/{number:04d}")
        self.pair.do("digest", name)
        self.pair.do("remove_tree", name)


class Kept(Program):
    """Logs that grow through descriptors held open, and files that live on without a name."""

    logs = ("log", "journal")

    def step(self):
        for log in self.logs:
            for _ in range(self.lots.randrange(1, 6)):
                self.pair.do("kept_append", log, self.seed(), self.lots.randrange(1, 2000))
            if self.lots.random() < 0.3:
                self.pair.do("kept_sync", log)
                self.pair.note_safe(log)
            if self.lots.random() < 0.2:
                told = self.pair.do("kept_read", log)
                if told[0] > 400000:
                    self._rotate(log)
        self._nameless()

    def _rotate(self, log):
        if self.lots.random() < 0.5:
            self.pair.do("kept_truncate", log, 0)
            self.pair.note_safe(log)
        else:
            self.pair.do("kept_close", log)
            self.pair.do("rename", log, log + ".1")
            self.pair.note_safe(log + ".1")
            self.pair.note_gone(log)

    def _nameless(self):
        name = f"nameless{self.round % 4}"
        self.round += 1
        self.pair.do("kept_close", name)
        self.pair.do("kept_append", name, self.seed(), self.length(100000))
        if self.lots.random() < 0.5:
            self.pair.do("kept_unlink", name)
        else:  # replaced
            self.pair.do("write_whole", name + ".new", self.seed(), self.length(5000))
            self.pair.do("rename", name + ".new", name)
        self.pair.do("kept_append", name, self.seed(), 3000)
        self.pair.do("kept_truncate", name, self.lots.randrange(3000))
        for kept in range(4):
            if kept < self.round:
                self.pair.do("kept_read", f"nameless{kept}")
        self.pair.do("unlink", name)


class Keeper(Program):
    """Files that are there from the first minute to the last: nothing removes them, little changes them."""

    names = [f"keep{number:02d}" for number in range(20)]

    def begin(self):
        for name in self.names:
            if self.size(name) is None:
                self.pair.do("write_whole", name, self.seed(), self.length(1500000), True)

    def step(self):
        self.pair.do("read", self.lots.choice(self.names))
        if self.lots.random() < 0.2:
            name = self.lots.choice(self.names)
            self.pair.do("write_at", name, self.lots.randrange(max(self.size(name) or 0, 1)), self.seed(), 100)
        self.pair.do("listing", ".")

    def sweep(self):
        pass


class Tar(Program):
    """Archives of a folder, made and unpacked."""

    def step(self):
        self.pair.do("many", "from", self.seed(), self.lots.randrange(5, 40))
        self.pair.do("write_whole", "from/large", self.seed(), self.length(800000))
        self.pair.do("tar_in", "from", "a.tar")
        self.pair.do("read", "a.tar")
        self.pair.do("mkdir", "into")
        self.pair.do("tar_out", "a.tar", "into")
        self.pair.do("digest", "into")
        for folder in ("from", "into"):
            self.pair.do("remove_tree", folder)
        self.pair.do("unlink", "a.tar")

    def begin(self):
        self.sweep()


class Git(Program):
    """A repository that is worked on, cloned and packed."""

    repository = "project"

    def begin(self):
        names = self.pair.do("listing", ".")
        for name in names:
            if name != self.repository:
                self.pair.do("remove_tree", name)
        if self.repository not in names:
            self.pair.do("mkdir", self.repository)
            self.pair.do("git", self.repository, 0, "init", "-q")
            self.pair.do("write_whole", f"{self.repository}/first", 1, 100)
            self._git("add", "-A")
            self._git("commit", "-q", "-m", "first")

    def sweep(self):
        super().sweep()
        self.begin()

    def step(self):
        self.round += 1
        for _ in range(self.lots.randrange(1, 6)):
            self.pair.do("write_whole", f"{self.repository}/file{self.lots.randrange(30)}", self.seed(), self.length(60000))
        self._git("add", "-A")
        self._git("commit", "-q", "-m", f"change {self.seed()}")
        if self.lots.random() < 0.3:
            self._git("checkout", "-q", "-B", f"branch{self.lots.randrange(4)}")
        elif self.lots.random() < 0.5:
            self._git("checkout", "-q", self.lots.choice(["main", "HEAD~1", "branch0", "branch1"]))
            self._git("checkout", "-q", "-B", "main")
        self._look()
        if self.lots.random() < 0.15:
            self._clone()
        if self.lots.random() < 0.1:
            self._git("gc", "-q", "--prune=now")
            self._look()

    def _look(self):
        self.pair.do("git_read", self.repository, "status", "--porcelain")
        self.pair.do("git_read", self.repository, "log", "--format=%H %s", "-n", "20")

    def _clone(self):
        self.pair.do("git", ".", self.round, "clone", "-q", "--no-local", self.repository, "clone")
        self.pair.do("git_read", "clone", "fsck", "--full", "--strict")
        self.pair.do("git_read", "clone", "rev-parse", "HEAD")
        self.pair.do("remove_tree", "clone")

    def _git(self, *arguments):
        moment = self.lots.randrange(100000000)
        return self.pair.do("git", self.repository, moment, *arguments)


class Database(Program):
    """Transactions in databases with each kind of journal."""

    databases = [("deleted.db", "DELETE"), ("kept.db", "PERSIST"), ("emptied.db", "TRUNCATE"), ("ahead.db", "WAL")]

    def step(self):
        self.round += 1
        for _ in range(self.lots.randrange(1, 4)):
            name, mode = self.lots.choice(self.databases)
            self.pair.do("transaction", name, mode, self.seed())
        if self.lots.random() < 0.15:
            self.pair.do("table", name)


ALL = {program.__name__.lower(): program for program in (Editor, Files, Small, Kept, Keeper, Tar, Git, Database)}
